// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <memory>

#include "DeviceKit/BlockDevice.h"
#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// The bytes of a raw device, from any position on. An unreadable area costs zeros, which are
/// counted, and not the whole read.
class BlockDeviceSource final : public ByteSource {
 public:
  /// Takes over `fd`, a device open for reading. Throws DeviceError::notAFileOrDevice when no size
  /// can be determined; the descriptor is closed then.
  BlockDeviceSource(int fd, std::string path);
  BlockDeviceSource(std::unique_ptr<const BlockDevice> device, std::string path);

  const std::string& path() const { return path_; }
  /// Bytes of one of the device's blocks.
  std::size_t blockSize() const { return device_->blockSize(); }

  std::uint64_t size() const override { return device_->size(); }
  /// How often a block could not be read and zeros took its place.
  std::int64_t badReads() const override { return badReads_; }
  std::string descriptionForReport() const override { return path_; }
  /// Throws DeviceError::readFailed only when the device is gone.
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override;

 private:
  std::unique_ptr<const BlockDevice> device_;
  std::string path_;
  mutable std::atomic<std::int64_t> badReads_{0};
};

}  // namespace tallowmark
