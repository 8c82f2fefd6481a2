// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/FileSink.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// A few pictures of a clip, copied into memory to be decoded by themselves.
class PictureExcerpt {
 public:
  /// What stands at the end of the last picture's last slice. A decoder that reads a picture with
  /// the parameter sets it was coded with reads just to there: it shows another picture when the
  /// end is, and the same one whatever follows.
  enum class End { asItIs, otherBytes, moreBytes };

  /// An empty one of pictures that go by this track's parameter sets.
  explicit PictureExcerpt(const Track& video);

  /// Appends a picture, in the order of decoding. False when it does not fit into 24 MB or is not
  /// all there. Throws DeviceError.
  bool add(const Sample& picture, const ByteSource& source);

  /// Whether the last picture has an end that can be changed.
  bool hasSliceEnd() const;

  /// Whether the last picture's last slice holds bytes that never stand in one.
  bool isSurelyDamaged() const;

  /// Writes a movie of the pictures, without sound. An end other than the true one asks for
  /// hasSliceEnd(). Throws as MovieWriter.
  void write(FileSink& destination, End end, const StopToken& stop) const;

 private:
  /// Positions in `bytes_`.
  struct Slice {
    /// Of the length prefix.
    std::size_t at = 0;
    std::size_t bodyAt = 0;
    /// Behind the last byte that is no padding.
    std::size_t end = 0;
    std::size_t unitEnd = 0;
  };
  std::optional<Slice> lastSlice() const;
  std::vector<std::uint8_t> bytesEndingIn(End end) const;

  Track video_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tallowmark
