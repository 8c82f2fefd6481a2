// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FileIdentity.h"

#include "DeviceKit/FileTimes.h"

namespace tallowmark {

FileIdentity FileIdentity::of(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
          static_cast<std::uint64_t>(status.st_size), modificationTimeOf(status)};
}

std::optional<FileIdentity> FileIdentity::of(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 ? std::optional(of(status)) : std::nullopt;
}

}  // namespace tallowmark
