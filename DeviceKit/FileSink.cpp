// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FileSink.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/KernelCopy.h"
#include "DeviceKit/PositionedWrite.h"
#include "DeviceKit/WriteBehind.h"

namespace tallowmark {

namespace {
constexpr std::size_t pieceSize = std::size_t{8} << 20U;
constexpr std::uint64_t sharedBlock = 4096;
// From here on a thread of its own for writing costs less than it saves.
constexpr std::uint64_t worthAThread = std::uint64_t{16} << 20U;
// Each time the file is locked, and both threads wait; but a slow disk takes its time for more.
constexpr std::uint64_t reservedAtOnce = std::uint64_t{4} << 30U;
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
  const WriteOutcome outcome = writeFully(fd_, size_, bytes);
  size_ += outcome.count;
  if (outcome.error != 0) {
    throw DeviceError::writeFailed(name_, outcome.error);
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

// A hole in the source becomes one here: as fast, and as small, as it was.
std::uint64_t FileSink::copyHole(int from, std::uint64_t offset, std::uint64_t count) {
  const Stretch stretch = stretchAt(from, offset, std::min<std::uint64_t>(count, pieceSize));
  return stretch.hole && leaveHole(stretch.length) ? stretch.length : 0;
}

std::size_t FileSink::copyInKernel(int from, std::uint64_t offset, std::uint64_t count) {
  // Pieces end with a page, as storage is shared by these.
  const std::uint64_t most = pieceSize - offset % sharedBlock;
  const auto wanted = static_cast<std::size_t>(std::min(count, most));
  const auto moved = kernelCopy(from, offset, fd_, size_, wanted);
  // 0 can also be a file system that only pretends; an ordinary read decides.
  kernelCopies_ = moved.has_value();
  size_ += moved.value_or(0);
  return moved.value_or(0);
}

std::size_t FileSink::copyThroughBuffer(const ByteSource& source, std::uint64_t offset,
                                        std::uint64_t count) {
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, pieceSize));
  buffer_.resize(std::max(buffer_.size(), wanted));
  const std::size_t got = source.readInto(offset, std::span(buffer_).first(wanted));
  append(std::span(buffer_).first(got));
  return got;
}

std::uint64_t FileSink::copyBehind(WriteBehind& behind, const ByteSource& source,
                                   std::uint64_t offset, std::uint64_t count, const Told& progress,
                                   const StopToken& stop) {
  std::uint64_t done = 0;
  std::uint64_t told = 0;
  std::uint64_t reserved = 0;
  while (done < count) {
    stop.check();
    if (done >= reserved) {
      const std::uint64_t more = std::min(count - reserved, reservedAtOnce);
      reserveStorage(fd_, size_ + reserved, more);
      reserved += more;
    }
    std::span<std::uint8_t> room = behind.next();
    room = room.first(static_cast<std::size_t>(std::min<std::uint64_t>(count - done, room.size())));
    const std::size_t got = room.empty() ? 0 : source.readInto(offset + done, room);
    if (got == 0) {
      break;
    }
    behind.give(got);
    done += got;
    if (progress && done - told >= pieceSize) {
      progress(done);
      told = done;
    }
  }
  behind.finish();
  size_ = behind.position();
  if (done < reserved) {  // cut at its end, a file gives back what lies beyond
    (void)::ftruncate(fd_, static_cast<off_t>(size_));
  }
  if (behind.error() != 0) {
    throw DeviceError::writeFailed(name_, behind.error());
  }
  return done;
}

std::uint64_t FileSink::copyOnward(const ByteSource& source, std::uint64_t offset,
                                   std::uint64_t count, const Told& progress,
                                   const StopToken& stop) {
  const auto from = source.descriptor();
  if (from) {
    if (const std::uint64_t stored = storedAt(source, *from, offset)) {
      count = std::min(count, stored);
    } else if (const std::uint64_t hole = copyHole(*from, offset, count)) {
      return hole;
    }
  }
  const bool isLong = count >= worthAThread;
  if (from && kernelCopies_ && (!isLong || kernelCopyPays(offset, fd_, size_))) {
    if (const std::size_t moved = copyInKernel(*from, offset, count)) {
      return moved;
    }
  }
  std::optional<WriteBehind> behind;
  if (isLong) {
    try {
      behind.emplace(fd_, size_);
    } catch (const std::system_error&) {  // no more threads to be had
    }
  }
  return behind ? copyBehind(*behind, source, offset, count, progress, stop)
                : copyThroughBuffer(source, offset, count);
}

std::uint64_t FileSink::copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count,
                             const Told& progress, const StopToken& stop) {
  // The kernel would go on behind the size that a growing file had when it was opened.
  count = std::min(count, source.size() - std::min(offset, source.size()));
  std::uint64_t done = 0;
  const Told further = progress ? [&](std::uint64_t more) { progress(done + more); } : progress;
  while (done < count) {
    stop.check();
    const std::uint64_t start = size_;
    const std::uint64_t got = copyOnward(source, offset + done, count - done, further, stop);
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
