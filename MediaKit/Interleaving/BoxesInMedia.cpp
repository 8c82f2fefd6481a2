// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BoxesInMedia.h"

#include <algorithm>
#include <array>

#include "MediaKit/Container/NameSearch.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t shortHeader = 8;
constexpr std::uint64_t longHeader = 16;

bool isPassedWhole(FourCC type) {
  return type == "free" || type == "skip" || type == "wide";
}

// A box at `at` as they stand beside media.
std::optional<Box> knownBox(const ByteSource& source, std::uint64_t at) {
  static constexpr std::array<FourCC, 8> known{"free", "skip", "wide", "mdat",
                                               "moov", "moof", "uuid", "udta"};
  const auto box = BoxReader(source).box(at);
  const bool isKnown = box && std::find(known.begin(), known.end(), box->type) != known.end();
  return isKnown ? box : std::nullopt;
}

}  // namespace

// Gaps are looked at several times and grow at their end.
void BoxesInMedia::scan(const ByteRange& gap) {
  if (gap.lower < scanned_.lower || gap.lower > scanned_.upper) {
    scanned_ = {gap.lower, gap.lower};
    names_.clear();
  }
  if (gap.upper <= scanned_.upper) {
    return;
  }
  // Cameras write a few between two chunks; of more those behind are taken as they come.
  constexpr std::size_t mostNames = std::size_t{1} << 16U;
  // A name may lie across the end of what was gone through.
  const std::uint64_t from =
      std::max(gap.lower, scanned_.upper - std::min<std::uint64_t>(scanned_.upper, 3));
  if (names_.size() < mostNames) {
    visitNames({"free", "skip", "wide", "mdat"}, source_, from, gap.upper,
               [&](std::uint64_t place) {
                 names_.push_back(place);
                 return names_.size() < mostNames;
               });
  }
  std::sort(names_.begin(), names_.end());
  names_.erase(std::unique(names_.begin(), names_.end()), names_.end());
  scanned_.upper = gap.upper;
}

bool BoxesInMedia::leadsOn(std::uint64_t end) const {
  return end == source_.size() || knownBox(source_, end);
}

// The end of what a header at `at` has to itself: the box, or the header of media data. Four
// letters are seldom there by chance, and then lead nowhere.
std::optional<std::uint64_t> BoxesInMedia::endOf(std::uint64_t at, std::uint64_t limit,
                                                 bool isBehindBox) const {
  const auto box = BoxReader(source_).box(at);
  if (!box || box->payloadOffset() > limit) {
    return std::nullopt;
  }
  if (isPassedWhole(box->type)) {
    return !box->truncated && box->end() <= limit ? std::optional(box->end()) : std::nullopt;
  }
  const bool isMedia =
      box->type == "mdat" && (isBehindBox || (!box->truncated && leadsOn(box->end())));
  return isMedia ? std::optional(box->payloadOffset()) : std::nullopt;
}

std::vector<ByteRange> BoxesInMedia::outside(const ByteRange& gap) {
  scan(gap);
  std::vector<ByteRange> parts;
  std::uint64_t at = gap.lower;
  bool isBehindBox = false;
  const auto pass = [&](std::uint64_t header) {
    const auto end = endOf(header, gap.upper, isBehindBox && header == at);
    if (end && *end > at) {
      if (header > at) parts.push_back({at, header});
      at = *end;
      isBehindBox = true;
    }
  };
  // The walk passes the header of free space, which may hold media.
  if (gap.lower >= shortHeader) pass(gap.lower - shortHeader);
  for (auto name = std::lower_bound(names_.begin(), names_.end(), gap.lower + 4);
       name != names_.end() && *name + 4 <= gap.upper; ++name) {
    if (*name >= at + 4) pass(*name - 4);
  }
  if (at < gap.upper) parts.push_back({at, gap.upper});
  return parts;
}

bool opensMedia(const BoxReader& reader, std::uint64_t from) {
  return std::ranges::any_of(std::vector{shortHeader, longHeader}, [&](std::uint64_t header) {
    const auto box = from >= header ? reader.box(from - header) : std::nullopt;
    return box && box->type == "mdat" && box->payloadOffset() == from;
  });
}

bool endsMedia(const ByteSource& source, std::uint64_t at) {
  constexpr int mostBoxes = 16;
  for (int boxes = 0; at < source.size() && boxes < mostBoxes; ++boxes) {
    const auto box = knownBox(source, at);
    if (!box) {
      return false;
    }
    // An index whose end is cut off is one all the same.
    at = box->end();
  }
  return true;
}

}  // namespace tallowmark
