// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cerrno>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// A stand-in for a worn medium, for tests: bytes in memory of which some cannot be read.
class FailingSource final : public ByteSource {
 public:
  /// Bytes from `lower` up to, not including, `upper`.
  struct Hole {
    std::uint64_t lower = 0;
    std::uint64_t upper = 0;
  };

  /// Every read that touches a hole throws DeviceError::readFailed with `errorNumber`, naming the
  /// first byte of it that could not be read.
  FailingSource(std::vector<std::uint8_t> data, std::vector<Hole> holes, int errorNumber = EIO)
      : data_(std::move(data)), holes_(std::move(holes)), errorNumber_(errorNumber) {}

  std::uint64_t size() const override { return data_.size(); }
  std::string descriptionForReport() const override { return "failing memory"; }
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override;

 private:
  std::vector<std::uint8_t> data_;
  std::vector<Hole> holes_;
  int errorNumber_;
};

}  // namespace tallowmark
