// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/WriteBehind.h"

#include <system_error>

#include "DeviceKit/KernelCopy.h"
#include "DeviceKit/PositionedWrite.h"

namespace tallowmark {

namespace {
// Small enough to stay in the processor's cache between the read and the write.
constexpr std::size_t pieceSize = std::size_t{512} << 10U;
constexpr std::size_t pageSize = 4096;
constexpr std::uint64_t sentAtOnce = std::uint64_t{8} << 20U;
}  // namespace

WriteBehind::WriteBehind(int descriptor, std::uint64_t offset)
    : fd_(descriptor), written_(offset), sent_(offset), end_(offset) {
  for (Piece& piece : ring_) piece.bytes.resize(pieceSize);
  writing_ = std::thread([this] { write(); });
  try {
    sending_ = std::thread([this] { sendToMedium(); });
  } catch (const std::system_error&) {  // a later sync has more to do then
  }
}

WriteBehind::~WriteBehind() {
  finish();
}

std::span<std::uint8_t> WriteBehind::next() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return given_ - done_ < pieces || error_ != 0; });
  if (error_ != 0) {
    return {};
  }
  return std::span(ring_.at(given_ % pieces).bytes).first(pieceSize - end_ % pageSize);
}

void WriteBehind::give(std::size_t count) {
  ring_.at(given_ % pieces).count = count;
  end_ += count;
  {
    const std::lock_guard lock(mutex_);
    ++given_;
  }
  changed_.notify_all();
}

void WriteBehind::finish() {
  if (!writing_.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_all();
  writing_.join();
  if (!sending_.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    isWritten_ = true;
  }
  writtenMore_.notify_all();
  sending_.join();
}

void WriteBehind::write() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return done_ < given_ || isOver_; });
    if (done_ == given_ || error_ != 0) {
      return;
    }
    const Piece& piece = ring_.at(done_ % pieces);
    const std::uint64_t at = written_;
    lock.unlock();
    const WriteOutcome outcome = writeFully(fd_, at, std::span(piece.bytes).first(piece.count));
    lock.lock();
    written_ += outcome.count;
    error_ = outcome.error;
    ++done_;
    changed_.notify_all();
    if (written_ - sent_ >= sentAtOnce) {
      writtenMore_.notify_all();
    }
  }
}

// The kernel prepares the transfer within this call, in a quarter of the time that reading takes;
// from either of the other threads the other one would wait for it.
void WriteBehind::sendToMedium() {
  std::unique_lock lock(mutex_);
  for (;;) {
    writtenMore_.wait(lock, [this] { return written_ - sent_ >= sentAtOnce || isWritten_; });
    if (isWritten_) {
      return;
    }
    const std::uint64_t written = written_;
    lock.unlock();
    startWriteback(fd_, sent_, written - sent_);
    lock.lock();
    sent_ = written;
  }
}

}  // namespace tallowmark
