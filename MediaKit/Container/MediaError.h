// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <exception>
#include <string>

namespace tallowmark {

/// What is wrong with a clip or photo. `what()` is the sentence the user reads.
class MediaError : public std::exception {
 public:
  enum class Kind { malformed, unsupported, notAMovie, noVideo };

  /// `detail` is the end of the sentence.
  static MediaError malformed(const std::string& detail);
  /// `sentence` is shown as it stands.
  static MediaError unsupported(const std::string& sentence);
  static MediaError notAMovie();
  static MediaError noVideo();

  Kind kind() const noexcept { return kind_; }
  /// What malformed and unsupported were given; empty for the others.
  const std::string& detail() const noexcept { return detail_; }
  const char* what() const noexcept override { return sentence_.c_str(); }

 private:
  MediaError(Kind kind, std::string detail, std::string sentence);

  Kind kind_;
  std::string detail_;
  std::string sentence_;
};

}  // namespace tallowmark
