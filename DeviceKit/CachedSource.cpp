// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/CachedSource.h"

#include <algorithm>

namespace tallowmark {

namespace {
constexpr std::size_t pageSize = std::size_t{4} << 10U;
/// The most that is read at once.
constexpr std::size_t mostPages = 16;
constexpr std::size_t longestKept = std::size_t{16} << 10U;
}  // namespace

CachedSource::CachedSource(const ByteSource& source)
    : source_(source), size_(source.size()), bytes_(pages * pageSize) {}

bool CachedSource::holds(std::uint64_t number) const {
  const Page& page = pages_.at(static_cast<std::size_t>(number % pages));
  return page.count > 0 && page.number == number;
}

// How many pages right before this one are at hand, up to `mostPages`.
std::size_t CachedSource::heldBefore(std::uint64_t number) const {
  std::size_t count = 0;
  while (count < mostPages && count < number && holds(number - 1 - count)) {
    ++count;
  }
  return count;
}

void CachedSource::load(std::uint64_t number, std::size_t count) const {
  const auto first = static_cast<std::size_t>(number % pages);
  std::fill_n(pages_.begin() + static_cast<std::ptrdiff_t>(first), count, Page{});
  std::size_t left = source_.readInto(
      number * pageSize, std::span(bytes_).subspan(first * pageSize, count * pageSize));
  for (std::size_t i = 0; i < count; ++i) {
    pages_.at(first + i) = {number + i, std::min(left, pageSize)};
    left -= std::min(left, pageSize);
  }
}

std::span<const std::uint8_t> CachedSource::page(std::uint64_t number, std::size_t wanted) const {
  const auto place = static_cast<std::size_t>(number % pages);
  if (!holds(number)) {
    // A look here and there stays cheap; where reading goes on, it takes twice as much each time,
    // and never less than is asked for.
    load(number, std::min({std::max(heldBefore(number), wanted), mostPages, pages - place}));
  }
  return std::span(bytes_).subspan(place * pageSize, pages_.at(place).count);
}

std::size_t CachedSource::readInto(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (into.size() > longestKept) {
    return source_.readInto(offset, into);
  }
  const std::lock_guard lock(mutex_);
  std::size_t done = 0;
  while (done < into.size() && offset + done < size_) {
    const std::uint64_t at = offset + done;
    const auto skipped = static_cast<std::size_t>(at % pageSize);
    const auto whole =
        page(at / pageSize, (skipped + into.size() - done + pageSize - 1) / pageSize);
    const auto held = whole.subspan(std::min(whole.size(), skipped));
    if (held.empty()) {
      break;  // it became shorter
    }
    const std::size_t taken = std::min(into.size() - done, held.size());
    std::copy_n(held.begin(), taken, into.begin() + static_cast<std::ptrdiff_t>(done));
    done += taken;
  }
  return done;
}

}  // namespace tallowmark
