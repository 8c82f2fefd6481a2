// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/SavedCopy.h"

#include <memory>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Rescue/CopyWriting.h"

namespace tallowmark {

SavedClip saveRepairedClip(const std::filesystem::path& clip,
                           const std::optional<std::filesystem::path>& reference,
                           const std::filesystem::path& folder, const Progress& progress,
                           const StopToken& stop) {
  const FileSource source(clip.string());
  const auto teacher = reference ? std::make_unique<FileSource>(reference->string()) : nullptr;
  SavedClip saved;
  saved.path = writeCopy(
      {clip, SavedAs::repaired, folder, source.modificationTime(), source.size()},
      [&](FileSink& copy) {
        saved.result = VideoRepair::repair(source, teacher.get(), copy, progress, stop);
      },
      stop);
  return saved;
}

}  // namespace tallowmark
