// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/ExternalDisk.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>

namespace tallowmark {

namespace {

constexpr std::array<const char*, 10> cardWords{"sd",   "sdhc",   "sdxc", "sduc",  "microsd",
                                                "card", "reader", "cf",   "cfast", "cfexpress"};

// ASCII, or part of a letter of another script.
bool isWordByte(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
         static_cast<unsigned char>(byte) >= 0x80;
}

char lowered(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

}  // namespace

std::string ExternalDisk::rawPath() const {
  return rawPathOf(deviceIdentifier);
}

bool ExternalDisk::isMemoryCard() const {
  std::string name(mediaName.size(), ' ');
  std::transform(mediaName.begin(), mediaName.end(), name.begin(), lowered);
  for (auto at = name.begin(); at != name.end();) {
    const auto start = std::find_if(at, name.end(), isWordByte);
    at = std::find_if_not(start, name.end(), isWordByte);
    if (std::find(cardWords.begin(), cardWords.end(), std::string(start, at)) != cardWords.end()) {
      return true;
    }
  }
  return false;
}

std::string ExternalDisk::displayName() const {
  std::string name;
  for (const std::string& volume : volumeNames) {
    name += (name.empty() ? "" : ", ") + volume;
  }
  if (name.empty()) {
    name = mediaName;
  }
  return name.empty() ? deviceIdentifier : name;
}

std::string ExternalDisk::sizeDescription() const {
  return sizeText(sizeBytes);
}

std::string sizeText(std::uint64_t bytes) {
  constexpr std::array<const char*, 5> units{"bytes", "kB", "MB", "GB", "TB"};
  auto size = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (size >= 999.5 && unit + 1 < units.size()) {
    size /= 1000;
    ++unit;
  }
  std::array<char, 64> text{};
  const int decimals = unit > 0 && size < 99.95 ? 1 : 0;
  (void)std::snprintf(text.data(), text.size(), "%.*f %s", decimals, size,
                      bytes == 1 ? "byte" : units[unit]);
  return text.data();
}

}  // namespace tallowmark

std::size_t std::hash<tallowmark::ExternalDisk>::operator()(
    const tallowmark::ExternalDisk& disk) const noexcept {
  const std::hash<std::string> ofText;
  std::size_t sum = std::hash<std::uint64_t>()(disk.sizeBytes);
  const auto add = [&](const std::string& text) { sum = sum * 31 + ofText(text); };
  add(disk.deviceIdentifier);
  add(disk.mediaName);
  for (const std::string& volume : disk.volumeNames) add(volume);
  return sum;
}
