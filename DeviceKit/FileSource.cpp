// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FileSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "DeviceKit/DeviceError.h"

namespace tallowmark {

namespace {
// Linux moves at most 0x7ffff000 bytes a call; asking for less keeps one behaviour everywhere.
constexpr std::size_t largestRead = std::size_t{1} << 30U;
}  // namespace

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
  std::size_t done = 0;
  while (done < wanted) {
    const ssize_t got = ::pread(fd_, into.data() + done, std::min(wanted - done, largestRead),
                                static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      throw DeviceError::readFailed(offset + done, errno);
    }
    if (got == 0) {
      break;
    }
    done += static_cast<std::size_t>(got);
  }
  return done;
}

}  // namespace tallowmark
