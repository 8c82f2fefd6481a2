// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/Kind.h"

#include "MediaKit/Photo/RAWPreview.h"

namespace tallowmark {

const std::set<std::string>& extensionsOf(Kind kind) {
  static const std::set<std::string> videos{"mp4", "mov", "m4v", "lrv", "3gp"};
  static const std::set<std::string> photos{"jpg", "jpeg", "jpe"};
  switch (kind) {
    case Kind::video:
      return videos;
    case Kind::photo:
      return photos;
    case Kind::raw:
      break;
  }
  return RAWPreview::extensions();
}

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
  for (const Kind kind : {Kind::video, Kind::photo, Kind::raw}) {
    if (extensionsOf(kind).contains(extension)) {
      return kind;
    }
  }
  return std::nullopt;
}

}  // namespace tallowmark
