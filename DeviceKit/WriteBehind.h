// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
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

  /// Room for the next piece, the same until it is given; waits until some is free. Filled, the
  /// piece ends with a page of the file. Empty once a write has failed.
  std::span<std::uint8_t> next();

  /// Hands over the first `count` bytes of what next() gave last; `count` is not 0.
  void give(std::size_t count);

  /// Waits until all that was given is written, or a write has failed. Nothing can be given after.
  void finish();

  /// Where the next byte goes: behind what was written. To be asked after finish().
  std::uint64_t position() const { return written_; }
  /// The errno of the write that failed; 0 if none did. To be asked after finish().
  int error() const { return error_; }

 private:
  struct Piece {
    std::vector<std::uint8_t> bytes;
    std::size_t count = 0;
  };
  static constexpr std::size_t pieces = 4;

  void work();
  void sendToMedium(std::uint64_t upTo);

  int fd_;
  std::array<Piece, pieces> ring_;
  // Of both threads, under the lock; `given_` changes on the giving one.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t given_ = 0;
  std::size_t done_ = 0;
  bool isOver_ = false;
  std::uint64_t written_;
  int error_ = 0;
  // The giving thread's own.
  std::uint64_t end_;
  std::uint64_t sent_;
  std::thread thread_;
};

}  // namespace tallowmark
