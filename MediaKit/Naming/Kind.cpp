// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/Kind.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "MediaKit/Photo/RAWPreview.h"

namespace tallowmark {

namespace {

constexpr std::array<std::string_view, 5> videoExtensions{"mp4", "mov", "m4v", "lrv", "3gp"};
constexpr std::array<std::string_view, 3> photoExtensions{"jpg", "jpeg", "jpe"};

template <typename Set>
bool holds(const Set& set, const std::string& extension) {
  return std::find(set.begin(), set.end(), extension) != set.end();
}

}  // namespace

std::string lowerCaseExtension(const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  extension.erase(0, 1);
  for (char& letter : extension) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return extension;
}

std::optional<Kind> kindOf(const std::filesystem::path& file) {
  const std::string extension = lowerCaseExtension(file);
  if (holds(videoExtensions, extension)) return Kind::video;
  if (holds(photoExtensions, extension)) return Kind::photo;
  if (RAWPreview::extensions().contains(extension)) return Kind::raw;
  return std::nullopt;
}

}  // namespace tallowmark
