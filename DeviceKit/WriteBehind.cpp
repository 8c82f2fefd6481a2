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
    : fd_(descriptor), written_(offset), given_(offset), sent_(offset) {
  for (Piece& piece : ring_) piece.bytes.resize(pieceSize);
  thread_ = std::thread([this] { work(); });
}

WriteBehind::~WriteBehind() {
  finish();
}

std::span<std::uint8_t> WriteBehind::next() {
  sendToMedium();
  if (!holdsPiece_) {
    free_.acquire();
    holdsPiece_ = true;
  }
  if (error_ != 0) {
    return {};
  }
  return std::span(ring_.at(head_).bytes).first(pieceSize - given_ % pageSize);
}

void WriteBehind::give(std::size_t count) {
  ring_.at(head_).count = count;
  head_ = (head_ + 1) % ring_.size();
  given_ += count;
  holdsPiece_ = false;
  filled_.release();
}

void WriteBehind::finish() {
  if (!thread_.joinable()) {
    return;
  }
  if (!holdsPiece_) {
    free_.acquire();
  }
  ring_.at(head_).count = 0;  // the sign to end
  filled_.release();
  thread_.join();
}

void WriteBehind::work() {
  for (std::size_t tail = 0;; tail = (tail + 1) % ring_.size()) {
    filled_.acquire();
    const Piece& piece = ring_.at(tail);
    if (piece.count == 0) {
      return;
    }
    write(piece);
    free_.release();
  }
}

void WriteBehind::write(const Piece& piece) {
  if (error_ != 0) {
    return;
  }
  const WriteOutcome outcome = writeFully(fd_, written_, std::span(piece.bytes).first(piece.count));
  written_ += outcome.count;
  error_ = outcome.error;
}

// The kernel prepares the transfer within this call, which costs as much as the write did: so here,
// where there is time for it.
void WriteBehind::sendToMedium() {
  const std::uint64_t upTo = written_;
  if (upTo - sent_ >= sentAtOnce) {
    startWriteback(fd_, sent_, upTo - sent_);
    sent_ = upTo;
  }
}

}  // namespace tallowmark
