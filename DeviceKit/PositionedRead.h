// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tallowmark {

/// How far a read came.
struct ReadOutcome {
  /// Bytes that arrived.
  std::size_t count = 0;
  /// The errno of the call that ended it early; 0 when it is complete or met the end.
  int error = 0;
};

/// Fills `into` from `offset` of an open file on, in as many calls as it takes; calls that a signal
/// interrupts are made again.
ReadOutcome readFully(int fd, std::uint64_t offset, std::span<std::uint8_t> into);

}  // namespace tallowmark
