// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/SavedJoin.h"

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Rescue/CopyWriting.h"
#include "MediaKit/Rescue/Explain.h"

namespace tallowmark {

namespace {

JoinState::Saved save(std::span<const ClipJoin::Part> parts, const std::filesystem::path& folder,
                      const Progress& progress, const StopToken& stop) {
  const std::filesystem::path& first = parts.front().url;
  // The joined index is no larger than the parts' own.
  std::uint64_t room = 0;
  for (const ClipJoin::Part& part : parts) {
    room = saturatingAdd(room, part.stamp ? part.stamp->size : 0);
  }
  JoinState::Saved saved;
  saved.path = writeCopy(
      {first, SavedAs::joined, folder, FileSource(first.string()).modificationTime(), room},
      [&](FileSink& copy) { saved.result = ClipJoin::join(parts, copy, progress, stop); }, stop);
  return saved;
}

}  // namespace

std::vector<ClipJoin::Part> readJoinParts(std::span<const std::filesystem::path> files,
                                          const StopToken& stop) {
  std::vector<ClipJoin::Part> parts;
  for (const std::filesystem::path& file : files) {
    stop.check();
    parts.push_back(ClipJoin::readPart(file));
  }
  return parts;
}

JoinState::Any saveJoinedClip(std::span<const std::filesystem::path> parts,
                              const std::filesystem::path& folder, const Progress& progress,
                              const StopToken& stop) {
  try {
    const std::vector<ClipJoin::Part> read = readJoinParts(parts, stop);
    if (const auto reason = ClipJoin::incompatibility(read)) {
      return JoinState::Incompatible{*reason};
    }
    return save(read, folder, progress, stop);
  } catch (const Stopped&) {
    throw;
  } catch (const std::exception& error) {
    return JoinState::Failed{explain(error, false)};
  }
}

}  // namespace tallowmark
