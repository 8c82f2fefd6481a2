// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// Boxes that cameras put between or into their media: dashcams keep positions in free space, many
/// close one media-data box and open another. Their bytes are of no track.
class BoxesInMedia {
 public:
  /// The source must outlive it.
  explicit BoxesInMedia(const ByteSource& source) : source_(source) {}

  /// The parts of a gap between samples that lie in no such box, nor in a header; all of it where
  /// there is none. Throws DeviceError.
  std::vector<ByteRange> outside(const ByteRange& gap);

 private:
  void scan(const ByteRange& gap);
  std::optional<std::uint64_t> endOf(std::uint64_t at, std::uint64_t limit, bool isBehindBox) const;
  bool leadsOn(std::uint64_t end) const;

  const ByteSource& source_;
  /// Where names of such boxes stand in what was gone through last.
  ByteRange scanned_;
  std::vector<std::uint64_t> names_;
};

/// Whether media data begins at `from`: nothing ahead of it was lost with its box's header.
bool opensMedia(const BoxReader& reader, std::uint64_t from);

/// Whether the file ends at `at`, or boxes follow there up to its end. Throws DeviceError.
bool endsMedia(const ByteSource& source, std::uint64_t at);

}  // namespace tallowmark
