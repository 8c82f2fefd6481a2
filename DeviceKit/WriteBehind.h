// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <semaphore>
#include <span>
#include <thread>
#include <vector>

namespace tallowmark {

/// Writes pieces to an open file in the order they are given, on a thread of its own, so that the
/// next one is read meanwhile. What the file has taken is sent on its way to the medium from the
/// thread that gives. For one thread; the descriptor must outlive it.
class WriteBehind {
 public:
  /// Writes from `offset` on. Throws std::system_error when there is no thread to be had.
  WriteBehind(int descriptor, std::uint64_t offset);
  /// As finish().
  ~WriteBehind();
  WriteBehind(const WriteBehind&) = delete;
  WriteBehind& operator=(const WriteBehind&) = delete;
  WriteBehind(WriteBehind&&) = delete;
  WriteBehind& operator=(WriteBehind&&) = delete;

  /// Room for the next piece; waits until some is free. The piece ends at a page of the file where
  /// it is filled. Empty once a write has failed.
  std::span<std::uint8_t> next();

  /// Hands over the first `count` bytes of what next() gave last; `count` is not 0.
  void give(std::size_t count);

  /// Waits until all that was given is written, or a write has failed. Nothing can be given after.
  void finish();

  /// Where the next byte goes: behind what was written so far. Settled by finish().
  std::uint64_t position() const { return written_; }
  /// The errno of the write that failed; 0 if none did. Settled by finish().
  int error() const { return error_; }

 private:
  struct Piece {
    std::vector<std::uint8_t> bytes;
    std::size_t count = 0;
  };
  static constexpr std::ptrdiff_t pieces = 4;

  void work();
  void write(const Piece& piece);
  void sendToMedium();

  int fd_;
  std::array<Piece, pieces> ring_;
  std::counting_semaphore<pieces> free_{pieces};
  std::counting_semaphore<pieces> filled_{0};
  std::atomic<std::uint64_t> written_;
  std::atomic<int> error_ = 0;
  // The giving thread's own.
  std::uint64_t given_;
  std::uint64_t sent_;
  std::size_t head_ = 0;
  bool holdsPiece_ = false;
  std::thread thread_;
};

}  // namespace tallowmark
