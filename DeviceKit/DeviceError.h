// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace tallowmark {

/// What goes wrong while opening, reading or writing files and devices. `what()` is one finished
/// sentence for the user.
class DeviceError : public std::exception {
 public:
  enum class Kind { cannotOpen, authorizationDenied, notAFileOrDevice, readFailed, writeFailed };

  static DeviceError cannotOpen(const std::string& path, int errorNumber);
  static DeviceError authorizationDenied(const std::string& path);
  static DeviceError notAFileOrDevice(const std::string& path);
  /// `offset` is the absolute position at which the failing call started.
  static DeviceError readFailed(std::uint64_t offset, int errorNumber);
  /// `path` is the file the user was promised, not a temporary beside it.
  static DeviceError writeFailed(const std::string& path, int errorNumber);

  Kind kind() const noexcept { return kind_; }
  /// Empty for readFailed.
  const std::string& path() const noexcept { return path_; }
  /// 0 except for readFailed.
  std::uint64_t offset() const noexcept { return offset_; }
  /// The system's errno; 0 where none was involved.
  int errorNumber() const noexcept { return errorNumber_; }
  const char* what() const noexcept override { return sentence_.c_str(); }

 private:
  DeviceError(Kind kind, std::string path, std::uint64_t offset, int errorNumber,
              std::string sentence);

  Kind kind_;
  std::string path_;
  std::uint64_t offset_;
  int errorNumber_;
  std::string sentence_;
};

}  // namespace tallowmark
