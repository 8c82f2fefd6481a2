// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/PictureCheck.h"
#include "MediaKit/Photo/StrayMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

constexpr std::size_t restartNumbers = 8;

/// A stretch of damaged data, from its first stray marker to its last.
struct Patch {
  std::size_t first = 0;
  std::size_t last = 0;
  /// The restart marker whose turn it is at its start, counted on beyond 7.
  std::size_t turn = 0;
  /// Restart markers that stood in it.
  std::size_t lost = 0;

  /// A restart marker takes two bytes and the data in front of it one; the damage may begin and end
  /// some hundred bytes away from the strays.
  std::size_t mostLost() const { return (last - first + 1024) / 3; }
};

bool isRestartAt(ByteView data, std::size_t at) {
  return data[at] == 0xFF && JPEGMarker::isRestart(data[at + 1]);
}

/// Puts back the restart markers that damage took, so that what lies behind stands in its place.
class Mending {
 public:
  Mending(ByteView data, const Header& header, const OwnData& own)
      : header_(header),
        end_(std::min(own.end, data.size())),
        ended_(own.ended),
        mended_(withStuffedBytes(data, own.strays)) {
    for (const std::size_t stray : own.strays) {
      add(stray);
    }
  }

  std::vector<std::uint8_t> run() {
    const PictureData picture =
        walkPicture(mended_, {.sos = header_.sos, .scanStart = header_.scanStart});
    interval_ = intervalOf(header_.segments);
    if (interval_ == 0 && intervalOf(picture.between) == 0) {
      return std::move(mended_);
    }
    for (std::size_t i = 0; i < patches_.size(); ++i) {
      measure(patches_[i], i == 0 ? nullptr : &patches_[i - 1], picture.scans);
    }
    if (picture.scans.size() == 1 && ended_) {
      addLostRounds();
    }
    return withRestartMarkers();
  }

 private:
  static std::size_t intervalOf(const std::vector<Segment>& segments) {
    std::size_t interval = 0;
    for (const Segment& segment : segments) {
      if (segment.marker == JPEGMarker::restartInterval) {
        interval = bigEndianOrZero<std::uint16_t>(segment.bytes, 4);
      }
    }
    return interval;
  }

  // Strays near one another are of one stretch of noise, and so are the restart markers between.
  void add(std::size_t stray) {
    if (patches_.empty()) {
      patches_.push_back({.first = stray, .last = stray});
      return;
    }
    Patch& patch = patches_.back();
    const std::vector<std::size_t> between = restartsBetween(patch.last, stray);
    if (areApart(patch, stray, between)) {
      patches_.push_back({.first = stray, .last = stray});
      return;
    }
    for (const std::size_t restart : between) {
      mended_[restart + 1] = 0;
    }
    patch.last = stray;
  }

  // A single restart marker behind a stretch of noise is often noise, too; several that follow on
  // from one another are not.
  bool areApart(const Patch& patch, std::size_t stray,
                const std::vector<std::size_t>& between) const {
    constexpr std::size_t far = 4096;
    const bool inTurn = std::adjacent_find(between.begin(), between.end(), [this](auto a, auto b) {
                          return !follows(numberAt(a), numberAt(b));
                        }) == between.end();
    const std::size_t doubtful = patch.first == patch.last ? 0 : 1;
    return stray - patch.last > far || (inTurn && between.size() > doubtful);
  }

  std::vector<std::size_t> restartsBetween(std::size_t stray, std::size_t next) {
    std::vector<std::size_t> found;
    for (auto at = restartBehind(stray + 2, next); at; at = restartBehind(*at + 2, next)) {
      found.push_back(*at);
    }
    return found;
  }

  static bool follows(std::size_t number, std::size_t next) {
    return (number + 1) % restartNumbers == next;
  }

  // By the numbers of the markers around it; more than seven lost cannot be told from these.
  void measure(Patch& patch, const Patch* previous, const std::vector<ScanStart>& scans) {
    std::size_t from = header_.scanStart;
    for (const ScanStart& scan : scans) {
      from = scan.scanStart <= patch.first ? scan.scanStart : from;
    }
    if (previous != nullptr && previous->last >= from) {
      from = previous->last + 2;
      patch.turn = previous->turn + previous->lost;
    }
    if (const auto before = trustedBefore(patch.first, from)) {
      patch.turn = numberAt(*before) + 1;
    }
    if (const auto next = trustedBehind(patch)) {
      patch.lost = (*next + restartNumbers - patch.turn % restartNumbers) % restartNumbers;
    } else {
      patch.lost = decodesFurtherWith(patch.turn, patch.last) ? 1 : 0;
    }
  }

  // Noise reaches beyond its strays and holds restart markers, too: near to these, one that does
  // not follow on from its neighbour is no restart marker.
  static constexpr std::size_t noiseReach = 1024;

  std::optional<std::size_t> trustedBefore(std::size_t stray, std::size_t from) {
    auto found = restartBefore(stray, from);
    while (found && stray - *found < noiseReach) {
      const auto earlier = restartBefore(*found, from);
      if (!earlier || follows(numberAt(*earlier), numberAt(*found))) {
        break;
      }
      mended_[*found + 1] = 0;
      found = earlier;
    }
    return found;
  }

  std::optional<std::size_t> trustedBehind(const Patch& patch) {
    const std::size_t limit = &patch == &patches_.back() ? end_ : (&patch + 1)->first;
    auto found = restartBehind(patch.last + 2, end_);
    while (found && *found - patch.last < noiseReach) {
      const auto later = restartBehind(*found + 2, limit);
      if (!later || follows(numberAt(*found), numberAt(*later))) {
        break;
      }
      mended_[*found + 1] = 0;
      found = later;
    }
    return found ? std::optional(numberAt(*found)) : std::nullopt;
  }

  std::size_t numberAt(std::size_t restart) const {
    return std::size_t{mended_[restart + 1]} - JPEGMarker::firstRestart;
  }

  std::optional<std::size_t> restartBefore(std::size_t before, std::size_t from) const {
    for (std::size_t at = before; at-- > from;) {
      if (isRestartAt(mended_, at)) {
        return at;
      }
    }
    return std::nullopt;
  }

  // Before any other marker. Many patches may share one next marker: what was searched for it is
  // not searched again, for markers only become fewer.
  std::optional<std::size_t> restartBehind(std::size_t from, std::size_t limit) {
    const bool known = from >= searchedFrom_ && from <= searchedTo_;
    std::size_t at = known ? searchedTo_ : from;
    searchedFrom_ = known ? searchedFrom_ : from;
    while (at + 1 < limit &&
           (mended_[at] != 0xFF || mended_[at + 1] == 0 || mended_[at + 1] == 0xFF)) {
      ++at;
    }
    searchedTo_ = at;
    return at + 1 < limit && isRestartAt(mended_, at) ? std::optional(at) : std::nullopt;
  }

  bool decodesFurtherWith(std::size_t turn, std::size_t at) {
    constexpr std::size_t mostTried = 16;  // it takes time
    if (patches_.size() > mostTried) {
      return false;
    }
    const std::size_t asByte = checkPicture(mended_).unitsDecoded;
    mended_[at + 1] = static_cast<std::uint8_t>(JPEGMarker::firstRestart + turn % restartNumbers);
    const bool further = checkPicture(mended_).unitsDecoded > asByte;
    mended_[at + 1] = 0;
    return further;
  }

  // Markers are numbered in rounds of eight. How many rounds went is told by how many markers the
  // picture must have.
  void addLostRounds() {
    const std::size_t units = checkPicture(mended_).unitsExpected;
    std::size_t present = 0;
    for (std::size_t at = header_.scanStart; at + 1 < end_; ++at) {
      present += isRestartAt(mended_, at) ? 1U : 0U;
    }
    for (const Patch& patch : patches_) {
      present += patch.lost;
    }
    const std::size_t expected = units == 0 || interval_ == 0 ? 0 : (units - 1) / interval_;
    const auto longest = std::max_element(
        patches_.begin(), patches_.end(),
        [](const Patch& a, const Patch& b) { return a.last - a.first < b.last - b.first; });
    const std::size_t more = expected - std::min(present, expected);
    if (more % restartNumbers == 0 && longest->lost + more <= longest->mostLost()) {
      longest->lost += more;
    }
  }

  std::vector<std::uint8_t> withRestartMarkers() const {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(mended_.size());
    std::size_t from = 0;
    for (const Patch& patch : patches_) {
      const std::size_t upTo = patch.last + (patch.lost == 0 ? 2 : 0);
      bytes.insert(bytes.end(), mended_.begin() + static_cast<std::ptrdiff_t>(from),
                   mended_.begin() + static_cast<std::ptrdiff_t>(upTo));
      from = patch.last + 2;
      for (std::size_t i = 0; i < patch.lost; ++i) {
        const std::size_t number = (patch.turn + i) % restartNumbers;
        bytes.push_back(0xFF);
        bytes.push_back(static_cast<std::uint8_t>(JPEGMarker::firstRestart + number));
      }
    }
    bytes.insert(bytes.end(), mended_.begin() + static_cast<std::ptrdiff_t>(from), mended_.end());
    return bytes;
  }

  const Header& header_;
  std::size_t end_;
  bool ended_;
  std::vector<std::uint8_t> mended_;
  std::vector<Patch> patches_;
  std::size_t interval_ = 0;
  std::size_t searchedFrom_ = 0;
  std::size_t searchedTo_ = 0;
};

}  // namespace

std::vector<std::uint8_t> withoutStrayMarkers(ByteView data, const Header& header,
                                              const OwnData& own) {
  return own.strays.empty() ? std::vector(data.begin(), data.end())
                            : Mending(data, header, own).run();
}

}  // namespace tallowmark::JPEGRepair
