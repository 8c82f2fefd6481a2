// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/TelemetrySearch.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Telemetry/KeyLengthValue.h"

namespace tallowmark {

namespace {

constexpr std::size_t pieceSize = std::size_t{256} << 10U;
constexpr std::string_view opening = "DEVC";

/// The positions of a stretch at which a tree may begin, in order.
class Openings {
 public:
  Openings(const ByteSource& source, const ByteRange& stretch)
      : source_(source), stretch_(stretch), start_(stretch.lower) {}

  std::optional<std::uint64_t> next(std::uint64_t from) {
    while (from < stretch_.upper) {
      if (from < start_ || from + opening.size() > start_ + piece_.size()) {
        start_ = from;
        // An opening may begin with the stretch's last byte.
        const std::uint64_t left = stretch_.upper - from + opening.size() - 1;
        piece_ =
            source_.read(from, static_cast<std::size_t>(std::min<std::uint64_t>(left, pieceSize)));
        if (piece_.size() < opening.size()) {
          return std::nullopt;
        }
      }
      const std::string_view text(reinterpret_cast<const char*>(piece_.data()), piece_.size());
      if (const auto found = text.find(opening, static_cast<std::size_t>(from - start_));
          found != std::string_view::npos) {
        return start_ + found;
      }
      from = start_ + piece_.size() - (opening.size() - 1);
    }
    return std::nullopt;
  }

 private:
  const ByteSource& source_;
  ByteRange stretch_;
  std::uint64_t start_;
  std::vector<std::uint8_t> piece_;
};

}  // namespace

TelemetrySearch::TelemetrySearch(const ByteSource& source)
    : source_(source),
      bytesToTry_((std::uint64_t{64} << 20U) + saturatingMultiply(source.size(), 4)) {}

std::vector<ByteRange> TelemetrySearch::in(const ByteRange& stretch, std::uint64_t reach) {
  std::vector<ByteRange> trees;
  Openings openings(source_, stretch);
  for (auto at = openings.next(stretch.lower); at;) {
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
    at = openings.next(next);
  }
  return trees;
}

}  // namespace tallowmark
