// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/SourceOpener.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "DeviceKit/BlockDeviceSource.h"
#include "DeviceKit/Descriptor.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FileSource.h"

namespace tallowmark::SourceOpener {

namespace {

mode_t modeOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    throw DeviceError::cannotOpen(path, errno);
  }
  return status.st_mode;
}

// A terminal can wait for its other end when it is opened, and /dev has many. Disks take no note of
// O_NONBLOCK, but for readers without a card: they open then, and cannot tell any more what is
// missing. So only character devices are opened with it, as the Mac's raw disks are.
Descriptor openPlainly(const std::string& path, mode_t mode) {
  const int patience = S_ISCHR(mode) ? O_NONBLOCK : 0;
  int fd = -1;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | patience);
  } while (fd < 0 && errno == EINTR);
  return Descriptor(fd);
}

}  // namespace

std::unique_ptr<ByteSource> open(const std::string& path, const PrivilegedOpener& opener) {
  if (S_ISREG(modeOf(path))) {
    return std::make_unique<FileSource>(path);
  }
  return std::make_unique<BlockDeviceSource>(openDevice(path, opener), path);
}

std::unique_ptr<RawDevice> openDevice(const std::string& path, const PrivilegedOpener& opener) {
  const mode_t mode = modeOf(path);
  if (!S_ISREG(mode) && !S_ISBLK(mode) && !S_ISCHR(mode)) {
    throw DeviceError::notAFileOrDevice(path);
  }
  Descriptor device = openPlainly(path, mode);
  if (!device && errno != EPERM && errno != EACCES) {
    throw DeviceError::cannotOpen(path, errno);
  }
  if (!device) {
    device.reset(RawDeviceAccess::openReadOnly(path, opener));
  }
  return std::make_unique<RawDevice>(device.release(), path);
}

}  // namespace tallowmark::SourceOpener
