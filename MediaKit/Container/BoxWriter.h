// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "MediaKit/Container/FourCC.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

/// Writes nested boxes into memory, all numbers big-endian, sizes in the 32-bit form.
class BoxWriter {
 public:
  const std::vector<std::uint8_t>& data() const { return data_; }
  std::vector<std::uint8_t> take() { return std::move(data_); }

  void u8(std::uint8_t value) { data_.push_back(value); }
  void u16(std::uint16_t value) { number(value); }
  void u32(std::uint32_t value) { number(value); }
  void u64(std::uint64_t value) { number(value); }
  void fourCC(FourCC code) { u32(code.value); }
  void bytes(std::span<const std::uint8_t> more) {
    data_.insert(data_.end(), more.begin(), more.end());
  }
  void zeros(std::size_t count) { data_.insert(data_.end(), count, 0); }

  /// One box around what `body(*this)` writes. Throws MediaError::malformed when it grows past the
  /// 32-bit size.
  template <typename Body>
  void box(FourCC type, Body&& body) {
    const std::size_t start = data_.size();
    u32(0);
    fourCC(type);
    body(*this);
    const std::size_t size = data_.size() - start;
    if (size > std::numeric_limits<std::uint32_t>::max()) {
      throw MediaError::malformed(type.description() + " box is too large to write");
    }
    for (unsigned i = 0; i < 4; ++i) {
      data_[start + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
    }
  }

  /// As box, with the version and the low 24 bits of the flags ahead (ISO/IEC 14496-12 §4.2).
  template <typename Body>
  void full(FourCC type, std::uint8_t version, std::uint32_t flags, Body&& body) {
    box(type, [&](BoxWriter& writer) {
      writer.u32((std::uint32_t{version} << 24U) | (flags & 0xFFFFFFU));
      body(writer);
    });
  }

 private:
  template <typename Number>
  void number(Number value) {
    for (std::size_t i = sizeof(Number); i > 0; --i) {
      data_.push_back(
          static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * (i - 1))));
    }
  }

  std::vector<std::uint8_t> data_;
};

}  // namespace tallowmark
