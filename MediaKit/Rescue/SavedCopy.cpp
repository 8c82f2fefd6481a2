// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/SavedCopy.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Naming/SavedName.h"

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

SavedClip saveRepairedClip(const std::filesystem::path& clip,
                           const std::optional<std::filesystem::path>& reference,
                           const std::filesystem::path& folder, const Progress& progress,
                           const StopToken& stop) {
  const FileSource source(clip.string());
  const auto teacher = reference ? std::make_unique<FileSource>(reference->string()) : nullptr;
  requireRoom(folder, source.size());
  PendingFile copy(folder);
  SavedClip saved;
  saved.result = VideoRepair::repair(source, teacher.get(), copy.sink(), progress, stop);
  stop.check();
  saved.path =
      copy.publish([&](unsigned attempt) { return savedName(clip, SavedAs::repaired, attempt); },
                   source.modificationTime());
  return saved;
}

}  // namespace tallowmark
