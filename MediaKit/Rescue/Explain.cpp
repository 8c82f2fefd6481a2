// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/Explain.h"

#include <new>

#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

std::string explain(const std::exception& error, bool referenceUsed) {
  const auto* media = dynamic_cast<const MediaError*>(&error);
  if (media != nullptr && media->kind() == MediaError::Kind::noVideo) {
    return referenceUsed
               ? "No video from this camera was found in the clip. Check that the reference clip "
                 "was recorded on the same camera, at the same resolution and frame rate."
               : "No playable video was found in this clip.";
  }
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
    return "There is not enough memory to repair this file.";
  }
  return error.what();
}

}  // namespace tallowmark
