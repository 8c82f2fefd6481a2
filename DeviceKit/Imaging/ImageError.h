// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>

namespace tallowmark {

/// Why a card is not copied, or not to its end. `what()` is a finished sentence for the user.
class ImageError : public std::exception {
 public:
  enum class Kind { nameTaken, inUse, anotherCard, onTheCard, noAnswer };

  /// `file` exists and is not an image that can be gone on with.
  static ImageError nameTaken(const std::filesystem::path& file);
  /// Another run is writing it.
  static ImageError inUse(const std::filesystem::path& file);
  /// The image holds another card than the one that is to be copied into it.
  static ImageError anotherCard(const std::filesystem::path& file);
  /// The image would be written to the card itself.
  static ImageError onTheCard(const std::filesystem::path& file);
  /// The card gives nothing any more.
  static ImageError noAnswer();

  Kind kind() const noexcept { return kind_; }
  const char* what() const noexcept override { return sentence_.c_str(); }

 private:
  ImageError(Kind kind, std::string sentence) : kind_(kind), sentence_(std::move(sentence)) {}

  Kind kind_;
  std::string sentence_;
};

}  // namespace tallowmark
