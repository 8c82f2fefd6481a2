// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/WriteBehind.h"

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
    : fd_(descriptor), written_(offset), end_(offset), sent_(offset) {
  for (Piece& piece : ring_) piece.bytes.resize(pieceSize);
  thread_ = std::thread([this] { work(); });
}

WriteBehind::~WriteBehind() {
  finish();
}

std::span<std::uint8_t> WriteBehind::next() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return given_ - done_ < pieces || error_ != 0; });
  const std::uint64_t written = written_;
  const bool hasFailed = error_ != 0;
  lock.unlock();
  if (hasFailed) {
    return {};
  }
  sendToMedium(written);
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
  if (!thread_.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void WriteBehind::work() {
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
  }
}

// The kernel prepares the transfer within this call, which costs as much as the write did: so here,
// where there is time for it.
void WriteBehind::sendToMedium(std::uint64_t upTo) {
  if (upTo - sent_ >= sentAtOnce) {
    startWriteback(fd_, sent_, upTo - sent_);
    sent_ = upTo;
  }
}

}  // namespace tallowmark
