// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/CopyWriting.h"

#include <array>
#include <cstdio>
#include <string>

#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

namespace {

// Decimal units, as cards and file managers count.
std::string sizeText(std::uint64_t bytes) {
  constexpr std::array<const char*, 4> units{"KB", "MB", "GB", "TB"};
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 1000 && unit + 1 < units.size(); ++unit) size /= 1000;
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f %s", size, units.at(unit));
  return text.data();
}

void requireRoom(const std::filesystem::path& folder, std::uint64_t needed) {
  if (const auto free = availableSpace(folder); free && *free < needed) {
    throw MediaError::unsupported("There isn't enough room in " + folder.string() +
                                  ": the copy may take " + sizeText(needed) + ", and " +
                                  sizeText(*free) + " are free.");
  }
}

}  // namespace

std::filesystem::path writeCopy(const NewCopy& copy, const std::function<void(FileSink&)>& write,
                                const StopToken& stop) {
  requireRoom(copy.folder, copy.room);
  PendingFile file(copy.folder);
  write(file.sink());
  stop.check();
  return file.publish([&](unsigned attempt) { return savedName(copy.original, copy.how, attempt); },
                      copy.modified);
}

}  // namespace tallowmark
