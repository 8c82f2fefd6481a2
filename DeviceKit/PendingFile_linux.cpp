// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "DeviceKit/PendingFile.h"

namespace tallowmark {

int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0 ? 0
                                                                                          : errno;
}

}  // namespace tallowmark
