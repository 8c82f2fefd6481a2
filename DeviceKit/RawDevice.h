// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <shared_mutex>
#include <string>

#include "DeviceKit/BlockDevice.h"

namespace tallowmark {

/// A device, or a file that stands in for one, behind an open descriptor that it owns.
class RawDevice final : public BlockDevice {
 public:
  /// Takes over `fd`, which is open for reading. Throws DeviceError::notAFileOrDevice naming `path`
  /// when no size can be determined; the descriptor is closed then.
  RawDevice(int fd, std::string path);
  ~RawDevice() override;
  RawDevice(const RawDevice&) = delete;
  RawDevice& operator=(const RawDevice&) = delete;
  RawDevice(RawDevice&&) = delete;
  RawDevice& operator=(RawDevice&&) = delete;

  const std::string& path() const { return path_; }
  int descriptor() const { return fd_; }

  std::size_t blockSize() const override { return blockSize_; }
  std::uint64_t size() const override { return size_; }
  ReadOutcome readAt(std::uint64_t offset, std::span<std::uint8_t> into) const override;
  ReadOutcome readExactly(std::uint64_t offset, std::span<std::uint8_t> into) const override;
  bool isPresent() const override;

 private:
  int fd_;
  std::size_t blockSize_ = 0;
  std::uint64_t size_ = 0;
  std::string path_;
  // readExactly changes how the descriptor reads while it lasts.
  mutable std::shared_mutex reading_;
};

/// What a device says of its size.
struct DeviceGeometry {
  std::uint32_t blockSize = 0;
  std::uint64_t blockCount = 0;
};

/// Asks the driver; nothing when the descriptor is no disk. Differs between systems.
std::optional<DeviceGeometry> askGeometry(int fd);

/// Bytes of a device; nothing when it has none, or more than a position in a file can count.
std::optional<std::uint64_t> bytesOf(const DeviceGeometry& geometry);

/// Reads around the system's cache where there is one, so that it reads nothing ahead. The
/// descriptor must not be read from meanwhile. Differs between systems.
ReadOutcome readUncached(int fd, std::uint64_t offset, std::span<std::uint8_t> into);

/// Whether a file or folder lies on the disk that a device is, or is a partition of. Differs
/// between systems.
bool liesOn(const struct stat& file, const struct stat& device);

}  // namespace tallowmark
