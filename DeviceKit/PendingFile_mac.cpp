// SPDX-License-Identifier: GPL-3.0-or-later
#include <stdio.h>

#include <cerrno>

#include "DeviceKit/PendingFile.h"

namespace tallowmark {

int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  return ::renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0 ? 0 : errno;
}

}  // namespace tallowmark
