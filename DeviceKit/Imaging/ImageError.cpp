// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/ImageError.h"

namespace tallowmark {

ImageError ImageError::nameTaken(const std::filesystem::path& file) {
  return {Kind::nameTaken,
          file.string() +
              " exists already and is not a copy that can be gone on with. Choose another name."};
}

ImageError ImageError::inUse(const std::filesystem::path& file) {
  return {Kind::inUse, file.string() + " is being written already."};
}

ImageError ImageError::anotherCard(const std::filesystem::path& file) {
  return {Kind::anotherCard, file.string() +
                                 " is the copy of another card, or of this one before it changed. "
                                 "Choose another name."};
}

ImageError ImageError::onTheCard(const std::filesystem::path& file) {
  return {Kind::onTheCard, file.string() + " lies on the card itself. Choose a folder elsewhere."};
}

ImageError ImageError::noAnswer() {
  return {Kind::noAnswer, "The card does not answer any more."};
}

}  // namespace tallowmark
