// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <mutex>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// Another source, with what was read of it lately at hand: for work that looks at the same bytes
/// several times over, a few at a time. Long reads go straight to the source.
class CachedSource final : public ByteSource {
 public:
  /// `source` must outlive it, and not change.
  explicit CachedSource(const ByteSource& source);

  std::uint64_t size() const override { return size_; }
  std::int64_t badReads() const override { return source_.badReads(); }
  std::string descriptionForReport() const override { return source_.descriptionForReport(); }
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override;
  std::optional<int> descriptor() const override { return source_.descriptor(); }

 private:
  struct Page {
    std::uint64_t number = 0;
    /// Bytes that are there; 0 in a place that holds nothing.
    std::size_t count = 0;
  };
  static constexpr std::size_t pages = 64;

  std::span<const std::uint8_t> page(std::uint64_t number, std::size_t wanted) const;
  bool holds(std::uint64_t number) const;
  std::size_t heldBefore(std::uint64_t number) const;
  void load(std::uint64_t number, std::size_t count) const;

  const ByteSource& source_;
  const std::uint64_t size_;
  mutable std::mutex mutex_;
  /// Page n of the source has its place at n modulo `pages`.
  mutable std::vector<std::uint8_t> bytes_;
  mutable std::array<Page, pages> pages_;
};

}  // namespace tallowmark
