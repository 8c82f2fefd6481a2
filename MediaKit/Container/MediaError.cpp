// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MediaError.h"

#include <utility>

namespace tallowmark {

MediaError::MediaError(Kind kind, std::string detail, std::string sentence)
    : kind_(kind), detail_(std::move(detail)), sentence_(std::move(sentence)) {}

MediaError MediaError::malformed(const std::string& detail) {
  return {Kind::malformed, detail,
          "The video file is damaged in a way Repair can't handle: " + detail};
}

MediaError MediaError::unsupported(const std::string& sentence) {
  return {Kind::unsupported, sentence, sentence};
}

MediaError MediaError::notAMovie() {
  return {Kind::notAMovie, {}, "This doesn't look like an MP4 or MOV video file."};
}

MediaError MediaError::noVideo() {
  return {Kind::noVideo, {}, "No video could be found in this file."};
}

}  // namespace tallowmark
