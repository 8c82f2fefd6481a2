// SPDX-License-Identifier: GPL-3.0-or-later
#include <map>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/RAWPreview.h"

namespace tallowmark::RAWPreview {
namespace {

/// Where the next EOI stands, asked for positions in any order. What was searched once is not
/// searched again: a file of scans without an end would else be read once for each of them.
class EndSearch {
 public:
  explicit EndSearch(ByteView data) : data_(data) {}

  /// Just past the first EOI at or behind `from`; the data's size when there is none.
  std::size_t endBehind(std::size_t from) {
    const auto later = known_.lower_bound(from);
    std::size_t limit = data_.size();
    if (later != known_.end()) {
      const auto& [foundAt, searchedFrom] = *later;
      if (searchedFrom <= from) {
        return past(foundAt);
      }
      limit = searchedFrom;
    }
    // The pair may stand across the border of what was searched before.
    const ByteView stretch = data_.first(std::min(limit + 1, data_.size()));
    std::size_t found = findMarker(stretch, from, JPEGMarker::endOfImage);
    if (found == stretch.size()) {
      found = later == known_.end() ? data_.size() : later->first;
    }
    known_[found] = from;
    return past(found);
  }

 private:
  std::size_t past(std::size_t found) const { return std::min(found + 2, data_.size()); }

  ByteView data_;
  std::map<std::size_t, std::size_t> known_;  // where an EOI stands → from where it is the next
};

/// Steps over segments that a search may take in all.
struct StepBudget {
  std::size_t left;
  bool take() {
    if (left == 0) {
      return false;
    }
    --left;
    return true;
  }
};

bool isDecodable(std::uint8_t frameMarker) {
  return frameMarker == JPEGMarker::baselineFrame || frameMarker == JPEGMarker::extendedFrame ||
         frameMarker == JPEGMarker::progressiveFrame;
}

std::optional<Candidate> readCandidate(ByteView data, std::size_t start, StepBudget& budget,
                                       EndSearch& ends) {
  Candidate candidate{.start = start};
  std::size_t at = start + 2;
  while (data.size() - at >= 4 && budget.take()) {
    if (data[at] != 0xFF) {
      return std::nullopt;
    }
    const std::uint8_t marker = data[at + 1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    const std::size_t length = bigEndian<std::uint16_t>(data, at + 2);
    if (length < 2 || length > data.size() - at - 2 || marker < 0xC0 ||
        marker == JPEGMarker::startOfImage || marker == JPEGMarker::endOfImage) {
      return std::nullopt;
    }
    if (JPEGMarker::isFrame(marker)) {
      if (!isDecodable(marker) || length < 7) {
        return std::nullopt;
      }
      candidate.height = bigEndian<std::uint16_t>(data, at + 5);
      candidate.width = bigEndian<std::uint16_t>(data, at + 7);
    }
    at += 2 + length;
    if (marker == JPEGMarker::startOfScan) {
      if (candidate.width == 0 || candidate.height == 0) {
        return std::nullopt;
      }
      candidate.end = ends.endBehind(at);
      candidate.incomplete = candidate.end - at < 2 || data[candidate.end - 2] != 0xFF ||
                             data[candidate.end - 1] != JPEGMarker::endOfImage;
      return candidate;
    }
  }
  return std::nullopt;
}

}  // namespace

std::vector<Candidate> embeddedJPEGs(ByteView data) {
  // Real headers take some dozen steps. Without a bound, a file of nothing but segments could have
  // all of them walked again from each of its 0xFF 0xD8 0xFF.
  StepBudget budget{4096 + data.size() / 16};
  EndSearch ends(data);
  std::vector<Candidate> found;
  for (std::size_t at = findStartOfImage(data, 0); at < data.size();
       at = findStartOfImage(data, at + 1)) {
    if (const auto candidate = readCandidate(data, at, budget, ends)) {
      found.push_back(*candidate);
    }
  }
  return found;
}

std::optional<Candidate> parse(ByteView data, std::size_t start) {
  if (start > data.size() || data.size() - start < 3 || data[start] != 0xFF ||
      data[start + 1] != JPEGMarker::startOfImage) {
    return std::nullopt;
  }
  StepBudget budget{data.size()};
  EndSearch ends(data);
  return readCandidate(data, start, budget, ends);
}

}  // namespace tallowmark::RAWPreview
