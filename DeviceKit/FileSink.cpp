// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FileSink.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/KernelCopy.h"

namespace tallowmark {

namespace {
constexpr std::size_t pieceSize = std::size_t{8} << 20U;
constexpr std::size_t largestWrite = std::size_t{1} << 30U;
}  // namespace

FileSink::FileSink(std::string path) : name_(std::move(path)) {
  do {
    fd_ = ::open(name_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  } while (fd_ < 0 && errno == EINTR);
  if (fd_ < 0) {
    throw DeviceError::writeFailed(name_, errno);
  }
}

FileSink::FileSink(int descriptor, std::string name) : fd_(descriptor), name_(std::move(name)) {}

FileSink::~FileSink() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

void FileSink::append(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::pwrite(fd_, bytes.data(), std::min(bytes.size(), largestWrite),
                                     static_cast<off_t>(size_));
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      throw DeviceError::writeFailed(name_, written < 0 ? errno : EIO);
    }
    size_ += static_cast<std::uint64_t>(written);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

bool FileSink::leaveHole(std::uint64_t length) {
  if (::ftruncate(fd_, static_cast<off_t>(size_ + length)) != 0) {
    return false;
  }
  size_ += length;
  return true;
}

// How many bytes from `offset` on have storage in the source; 0 in a hole. Kept, since some file
// systems go through every page of a file to find its next hole.
std::uint64_t FileSink::storedAt(const ByteSource& source, int descriptor, std::uint64_t offset) {
  if (&source != storedIn_ || offset < stored_.first || offset >= stored_.second) {
    const Stretch stretch = stretchAt(descriptor, offset, source.size() - offset);
    if (stretch.hole) {
      return 0;
    }
    storedIn_ = &source;
    stored_ = {offset, offset + stretch.length};
  }
  return stored_.second - offset;
}

std::uint64_t FileSink::copyPiece(const ByteSource& source, std::uint64_t offset,
                                  std::uint64_t count) {
  if (const auto from = source.descriptor(); from && kernelCopies_) {
    // A hole in the source becomes one here: as fast, and as small, as it was.
    const std::uint64_t stored = storedAt(source, *from, offset);
    if (stored == 0) {
      const std::uint64_t hole = stretchAt(*from, offset, count).length;
      if (leaveHole(hole)) {
        return hole;
      }
    }
    count = stored == 0 ? count : std::min(count, stored);
    const auto moved = kernelCopy(*from, offset, fd_, size_, static_cast<std::size_t>(count));
    if (moved && *moved > 0) {
      size_ += *moved;
      return *moved;
    }
    // 0 can also be a file system that only pretends; the ordinary read below decides.
    kernelCopies_ = moved.has_value();
  }
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, pieceSize));
  buffer_.resize(std::max(buffer_.size(), wanted));
  const std::size_t got = source.readInto(offset, std::span(buffer_).first(wanted));
  append(std::span(buffer_).first(got));
  return got;
}

std::uint64_t FileSink::copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count,
                             const std::function<void(std::uint64_t)>& progress,
                             const StopToken& stop) {
  // The kernel would go on behind the size that a growing file had when it was opened.
  count = std::min(count, source.size() - std::min(offset, source.size()));
  std::uint64_t done = 0;
  while (done < count) {
    stop.check();
    const std::uint64_t start = size_;
    const std::uint64_t got =
        copyPiece(source, offset + done, std::min<std::uint64_t>(count - done, pieceSize));
    if (got == 0) {
      break;
    }
    done += got;
    startWriteback(fd_, start, got);
    if (progress) {
      progress(done);
    }
  }
  return done;
}

void FileSink::sync() {
  if (const int error = syncToMedium(fd_); error != 0) {
    throw DeviceError::writeFailed(name_, error);
  }
}

void FileSink::close() {
  if (fd_ < 0) {
    return;
  }
  // The descriptor is gone whatever close says, EINTR included.
  if (::close(std::exchange(fd_, -1)) != 0 && errno != EINTR) {
    throw DeviceError::writeFailed(name_, errno);
  }
}

}  // namespace tallowmark
