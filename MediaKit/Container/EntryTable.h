// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

/// A table of fixed-width entries after a version word and a count; never longer than its bytes. A
/// piece of it is held at a time: it is read from front to back, and a file may claim any length.
/// The reader must outlive it.
class EntryTable {
 public:
  EntryTable() = default;
  EntryTable(const Box& box, const BoxReader& reader, std::uint64_t entriesAt,
             std::size_t entrySize)
      : reader_(&reader), at_(box.payloadOffset() + entriesAt), entrySize_(entrySize) {
    BoxReader::requirePlausible(box);
    const std::uint64_t held =
        box.payloadSize() > entriesAt ? (box.payloadSize() - entriesAt) / entrySize : 0;
    const auto claimed = reader.payload(box, entriesAt);
    count_ = std::min<std::uint64_t>(
        held, bigEndianOrZero<std::uint32_t>(claimed, static_cast<std::size_t>(entriesAt) - 4));
  }

  std::uint64_t count() const { return count_; }
  template <typename Number = std::uint32_t>
  Number field(std::uint64_t entry, std::size_t byte) const {
    if (entry < first_ || entry - first_ >= held_) {
      hold(entry);
    }
    return bigEndian<Number>(piece_, static_cast<std::size_t>(entry - first_) * entrySize_ + byte);
  }
  /// Whether the first fields of all entries rise, or stay.
  bool isInOrder() const {
    std::uint32_t last = 0;
    for (std::uint64_t i = 0; i < count_; ++i) {
      const std::uint32_t next = field(i, 0);
      if (next < last) {
        return false;
      }
      last = next;
    }
    return true;
  }
  /// The first fields; for tables out of order, which no recorder writes. Throws
  /// MediaError::malformed when sorting them would take more memory than they are worth.
  std::vector<std::uint32_t> firstFields(FourCC type) const {
    constexpr std::uint64_t mostSorted = std::uint64_t{1} << 22U;
    if (count_ > mostSorted) {
      throw MediaError::malformed(type.description() + " box is implausibly large");
    }
    std::vector<std::uint32_t> fields;
    fields.reserve(static_cast<std::size_t>(count_));
    for (std::uint64_t i = 0; i < count_; ++i) fields.push_back(field(i, 0));
    return fields;
  }

 private:
  void hold(std::uint64_t entry) const {
    constexpr std::uint64_t pieceSize = std::uint64_t{64} << 10U;
    first_ = entry;
    held_ = std::min(count_ - entry, pieceSize / entrySize_);
    const auto size = static_cast<std::size_t>(held_) * entrySize_;
    piece_ = reader_->data(at_ + entry * entrySize_, size);
    piece_.resize(size);  // a file that was cut meanwhile
  }

  const BoxReader* reader_ = nullptr;
  std::uint64_t at_ = 0;
  std::size_t entrySize_ = 1;
  std::uint64_t count_ = 0;
  mutable std::vector<std::uint8_t> piece_;
  mutable std::uint64_t first_ = 0;
  mutable std::uint64_t held_ = 0;
};

}  // namespace tallowmark
