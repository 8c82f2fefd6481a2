// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "DeviceKit/ChildInheritance.h"

namespace tallowmark::ChildInheritance {

void keepStandardStreamsOnly() {
  // Kernels before 5.11 refuse; then what this program opens is closed by its own flags.
  (void)::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

void endWithParent(pid_t parent) {
  (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // It may have gone before that was said.
  if (::getppid() != parent) {
    ::_exit(127);
  }
}

}  // namespace tallowmark::ChildInheritance
