// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <unistd.h>

#include "DeviceKit/ChildInheritance.h"

namespace tallowmark::ChildInheritance {

void keepStandardStreamsOnly() {
  const int end = ::getdtablesize();
  for (int fd = STDERR_FILENO + 1; fd < end; ++fd) (void)::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void endWithParent(pid_t) {}

}  // namespace tallowmark::ChildInheritance
