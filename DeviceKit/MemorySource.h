// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// Bytes already in memory; owns them. Never throws.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::vector<std::uint8_t> data) : data_(std::move(data)) {}

  const std::vector<std::uint8_t>& data() const { return data_; }

  std::uint64_t size() const override { return data_.size(); }
  std::string descriptionForReport() const override;
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override;

 private:
  std::vector<std::uint8_t> data_;
};

}  // namespace tallowmark
