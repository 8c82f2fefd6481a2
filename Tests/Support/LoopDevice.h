// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Tests/Support/Process.h"

namespace tallowmark::testing {

/// A file as a block device that cannot be written to. False where the system gives none, as inside
/// most containers and for all but the superuser: then skip, saying so.
class LoopDevice {
 public:
  LoopDevice(const std::filesystem::path& file, std::size_t blockSize) {
    ProcessResult made = run({"losetup", "--find", "--show", "--read-only", "--sector-size",
                              std::to_string(blockSize), file.string()});
    complaint_ = made.errors;
    if (made.exitCode == 0) {
      path_ = made.output.substr(0, made.output.find('\n'));
    }
  }
  ~LoopDevice() {
    if (!path_.empty()) run({"losetup", "--detach", path_});
  }
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;
  LoopDevice(LoopDevice&&) = delete;
  LoopDevice& operator=(LoopDevice&&) = delete;

  explicit operator bool() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  const std::string& complaint() const { return complaint_; }

 private:
  std::string path_;
  std::string complaint_;
};

}  // namespace tallowmark::testing
