// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FileTimes.h"

namespace tallowmark {

timespec modificationTimeOf(const struct stat& status) {
  return status.st_mtim;
}

}  // namespace tallowmark
