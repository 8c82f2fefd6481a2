// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// A source up to some position, and other bytes from there on. Borrows both.
class LengthenedSource final : public ByteSource {
 public:
  LengthenedSource(const ByteSource& source, std::uint64_t at, std::span<const std::uint8_t> more)
      : source_(source), at_(std::min(at, source.size())), more_(more) {}

  std::uint64_t size() const override { return at_ + more_.size(); }
  std::string descriptionForReport() const override { return source_.descriptionForReport(); }
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    std::size_t done = 0;
    if (offset < at_) {
      const auto own = static_cast<std::size_t>(std::min<std::uint64_t>(at_ - offset, into.size()));
      done = source_.readInto(offset, into.first(own));
      if (done < own) {
        return done;
      }
    }
    const std::uint64_t start = offset + done - at_;
    if (start < more_.size()) {
      const auto rest = more_.subspan(static_cast<std::size_t>(start));
      const std::size_t count = std::min(rest.size(), into.size() - done);
      std::copy_n(rest.begin(), count, into.begin() + static_cast<std::ptrdiff_t>(done));
      done += count;
    }
    return done;
  }

 private:
  const ByteSource& source_;
  std::uint64_t at_;
  std::span<const std::uint8_t> more_;
};

}  // namespace tallowmark
