// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/SavedName.h"

#include "MediaKit/Naming/Utf8.h"

namespace tallowmark {

namespace {

// The limit of ext4, APFS, Btrfs and most others, in bytes.
constexpr std::size_t longestName = 255;

const char* word(SavedAs how) {
  switch (how) {
    case SavedAs::rescued:
      return "rescued";
    case SavedAs::joined:
      return "joined";
    case SavedAs::repaired:
      break;
  }
  return "repaired";
}

std::string extensionFor(const std::filesystem::path& original, SavedAs how) {
  if (how == SavedAs::rescued) {
    return "jpg";
  }
  const std::string extension = original.extension().string();
  return extension.size() > 1 ? extension.substr(1) : "mov";
}

}  // namespace

std::string savedName(const std::filesystem::path& original, SavedAs how, unsigned attempt) {
  const std::string counter = attempt > 1 ? " " + std::to_string(attempt) : "";
  const std::string tail =
      " (" + std::string(word(how)) + counter + ")." + extensionFor(original, how);
  const std::string stem = original.stem().string();
  const std::size_t room = tail.size() < longestName ? longestName - tail.size() : 0;
  return std::string(startOf(stem, room)) + tail;
}

}  // namespace tallowmark
