// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tallowmark {

/// How far a write came.
struct WriteOutcome {
  /// Bytes that the file took.
  std::size_t count = 0;
  /// The errno of the call that ended it early; 0 when it is complete.
  int error = 0;
};

/// Writes all of `bytes` from `offset` of an open file on, in as many calls as it takes; calls that
/// a signal interrupts are made again.
WriteOutcome writeFully(int fd, std::uint64_t offset, std::span<const std::uint8_t> bytes);

}  // namespace tallowmark
