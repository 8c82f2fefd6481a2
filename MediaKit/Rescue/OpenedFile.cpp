// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/OpenedFile.h"

#include <utility>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/StoppableSource.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

OpenedFile openFile(const std::filesystem::path& file) {
  auto source = std::make_unique<FileSource>(file.string());
  const FileIdentity identity = source->identity();
  return {std::move(source), identity};
}

FileOpener stoppable(FileOpener open, StopToken stop) {
  return [open = std::move(open), stop = std::move(stop)](const std::filesystem::path& path) {
    stop.check();
    OpenedFile file = open(path);
    file.bytes = std::make_unique<StoppableSource>(std::move(file.bytes), stop);
    return file;
  };
}

void requireUnchanged(const OpenedFile& file, const std::filesystem::path& name) {
  const auto descriptor = file.bytes->descriptor();
  const auto now = descriptor ? FileIdentity::of(*descriptor) : std::nullopt;
  if (now && *now != file.identity) {
    throw MediaError::unsupported(name.filename().string() +
                                  " changed while it was being read. Try again once nothing else "
                                  "writes to it.");
  }
}

}  // namespace tallowmark
