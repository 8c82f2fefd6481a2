// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "DeviceKit/FileSink.h"

namespace tallowmark {

/// Ends the run when what must hold does not.
inline void require(bool holds) {
  if (!holds) std::abort();
}

/// A copy that is written into memory.
class WrittenCopy {
 public:
  FileSink& sink() { return sink_; }
  /// What was written so far.
  std::vector<std::uint8_t> contents() {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(sink_.size()));
    const ssize_t got = ::pread(file_, bytes.data(), bytes.size(), 0);
    require(got == static_cast<ssize_t>(bytes.size()));
    return bytes;
  }

 private:
  int file_ = ::memfd_create("copy", MFD_CLOEXEC);
  FileSink sink_{file_, "copy"};
};

}  // namespace tallowmark
