// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "MediaKit/Container/ClipInfo.h"

/// What checking a file can find.
namespace tallowmark::FileState {

/// It opens; nothing to fix; it can serve as a reference.
struct Healthy {
  ClipInfo info;
  friend bool operator==(const Healthy&, const Healthy&) = default;
};
/// It ended early. Samples lost over all tracks of a clip; 0 for photos.
struct Truncated {
  std::uint64_t missingSamples = 0;
  friend bool operator==(const Truncated&, const Truncated&) = default;
};
/// A clip without index, a photo with a damaged header.
struct MissingIndex {
  /// False for a photo whose own header survived in pieces that do.
  bool needsReference = true;
  friend bool operator==(const MissingIndex&, const MissingIndex&) = default;
};
/// A RAW photo, whose picture can be rescued.
struct RawFile {
  friend bool operator==(const RawFile&, const RawFile&) = default;
};
/// Neither a movie nor a JPEG that can be read.
struct NotAVideo {
  friend bool operator==(const NotAVideo&, const NotAVideo&) = default;
};
/// Reading went wrong; a sentence for the user.
struct Failed {
  std::string message;
  friend bool operator==(const Failed&, const Failed&) = default;
};

using Any = std::variant<Healthy, Truncated, MissingIndex, RawFile, NotAVideo, Failed>;

}  // namespace tallowmark::FileState
