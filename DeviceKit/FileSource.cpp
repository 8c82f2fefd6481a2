// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FileSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PositionedRead.h"

namespace tallowmark {

FileSource::FileSource(std::string path) : path_(std::move(path)) {
  // O_NONBLOCK: a pipe without a writer must not hang the program; it changes nothing for files.
  do {
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  } while (fd_ < 0 && errno == EINTR);
  if (fd_ < 0) {
    throw DeviceError::cannotOpen(path_, errno);
  }
  struct stat status {};
  if (::fstat(fd_, &status) != 0) {
    const int error = errno;
    ::close(fd_);
    throw DeviceError::cannotOpen(path_, error);
  }
  if (!S_ISREG(status.st_mode) || status.st_size < 0) {
    ::close(fd_);
    throw DeviceError::notAFileOrDevice(path_);
  }
  identity_ = FileIdentity::of(status);
}

FileSource::~FileSource() {
  ::close(fd_);
}

std::size_t FileSource::readInto(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (offset >= size()) {
    return 0;
  }
  const auto wanted =
      static_cast<std::size_t>(std::min<std::uint64_t>(size() - offset, into.size()));
  const ReadOutcome got = readFully(fd_, offset, into.first(wanted));
  if (got.error != 0) {
    throw DeviceError::readFailed(offset + got.count, got.error);
  }
  return got.count;
}

}  // namespace tallowmark
