// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/TelemetrySearch.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Telemetry/KeyLengthValue.h"

namespace tallowmark {

namespace {

constexpr MediaWindow::ReadAhead openingReadAhead{std::size_t{4} << 10U, std::size_t{256} << 10U};
constexpr std::string_view opening = "DEVC";

}  // namespace

TelemetrySearch::TelemetrySearch(const ByteSource& source)
    : source_(source),
      window_(source, source.size(), openingReadAhead),
      bytesToTry_((std::uint64_t{64} << 20U) + saturatingMultiply(source.size(), 4)) {}

// The next position in a stretch at which a tree may begin. An opening may begin with the stretch's
// last byte.
std::optional<std::uint64_t> TelemetrySearch::nextOpening(std::uint64_t from,
                                                          const ByteRange& stretch) {
  const std::uint64_t end = stretch.upper + opening.size() - 1;
  window_.readAheadUpTo(end);
  while (from < stretch.upper) {
    const auto held = window_.at(from, opening.size());
    const auto piece =
        held.first(static_cast<std::size_t>(std::min<std::uint64_t>(held.size(), end - from)));
    if (piece.size() < opening.size()) {
      break;
    }
    const std::string_view text(reinterpret_cast<const char*>(piece.data()), piece.size());
    if (const auto found = text.find(opening); found != std::string_view::npos) {
      return from + found;
    }
    from += piece.size() - (opening.size() - 1);
  }
  return std::nullopt;
}

std::vector<ByteRange> TelemetrySearch::in(const ByteRange& stretch, std::uint64_t reach) {
  std::vector<ByteRange> trees;
  for (auto at = nextOpening(stretch.lower, stretch); at;) {
    const auto size = claimedTreeSize(source_.read(*at, 8));
    std::uint64_t next = *at + 1;
    if (size && *at + *size <= reach) {
      if (*size > bytesToTry_) {
        break;
      }
      bytesToTry_ -= *size;
      if (isTelemetryTree(source_.read(*at, *size))) {
        trees.push_back({*at, *at + *size});
        next = *at + *size;
      }
    }
    at = nextOpening(next, stretch);
  }
  return trees;
}

}  // namespace tallowmark
