// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/Interleaving.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <utility>

namespace tallowmark {

namespace {

void addExtents(const Track& track, std::vector<Extent>& extents) {
  const double ticks = std::max(1U, track.timescale);
  double time = 0;
  for (const SampleRun& run : track.samples.runs()) {
    const double length = static_cast<double>(run.duration()) / ticks;
    if (!extents.empty() && extents.back().to == run.first.offset &&
        extents.back().track == &track) {
      extents.back().to = run.end();
      extents.back().samples += run.count;
      extents.back().length += length;
    } else {
      extents.push_back({run.first.offset, run.end(), &track, run.count, time, length});
    }
    time += length;
  }
}

/// How many frames of a track follow one another.
class RowLengths {
 public:
  void add(std::uint64_t frames) { row_ += frames; }
  /// How long the row was that ends here.
  std::optional<std::uint64_t> endRow() {
    if (row_ == 0) {
      return std::nullopt;
    }
    ++lengths_[row_];
    return std::exchange(row_, 0);
  }

  /// No fewer than nearly all.
  std::optional<std::uint64_t> most() const {
    const std::uint64_t wanted = count() - count() / unusualShare;
    std::uint64_t covered = 0;
    for (const auto& [length, times] : lengths_) {
      covered += times;
      if (covered >= wanted && count() >= enough) {
        return length;
      }
    }
    return std::nullopt;
  }
  /// As nearly all; the last one is as long as the recording went on.
  std::optional<std::uint64_t> usual() const {
    const auto isUsual = [&](const auto& length) {
      const std::uint64_t others = std::max<std::uint64_t>(1, count() / unusualShare);
      return count() >= enough && length.second + others >= count();
    };
    const auto found = std::find_if(lengths_.begin(), lengths_.end(), isUsual);
    return found != lengths_.end() ? std::optional(found->first) : std::nullopt;
  }

 private:
  static constexpr std::uint64_t enough = 8;
  static constexpr std::uint64_t unusualShare = 20;

  std::uint64_t count() const {
    return std::accumulate(
        lengths_.begin(), lengths_.end(), std::uint64_t{0},
        [](std::uint64_t sum, const auto& length) { return sum + length.second; });
  }

  std::uint64_t row_ = 0;
  /// How often there were rows of a length.
  std::map<std::uint64_t, std::uint64_t> lengths_;
};

}  // namespace

std::vector<Extent> extentsOf(const Movie& movie) {
  std::vector<Extent> extents;
  for (const Track& track : movie.tracks) {
    addExtents(track, extents);
  }
  std::sort(extents.begin(), extents.end(),
            [](const Extent& a, const Extent& b) { return a.from < b.from; });
  return extents;
}

SoundLead leadOf(const std::vector<Extent>& extents, const Track& video, const Track& audio) {
  double sound = 0;
  std::vector<double> leads;
  for (const Extent& extent : extents) {
    if (extent.track == &audio) {
      sound += extent.length;
    } else if (extent.track == &video) {
      leads.push_back(sound - extent.startTime);
    }
  }
  return SoundLead::of(std::move(leads));
}

SoundLead leadBehindSound(const std::vector<Extent>& extents, const Track& video,
                          const Track& audio) {
  double sound = 0;
  bool isBehindSound = false;
  std::vector<double> leads;
  for (const Extent& extent : extents) {
    if (extent.track == &audio) {
      sound += extent.length;
      isBehindSound = true;
    } else if (extent.track == &video && std::exchange(isBehindSound, false)) {
      leads.push_back(sound - extent.startTime);
    }
  }
  // Cameras may begin with more of one than the other.
  constexpr std::size_t enough = 3;
  const double first = leads.empty() ? 0 : leads.front();
  if (leads.size() >= enough) leads.erase(leads.begin());
  SoundLead lead = SoundLead::of(std::move(leads));
  lead.first = first;
  return lead;
}

SoundLead SoundLead::of(std::vector<double> leads) {
  if (leads.empty()) {
    return {};
  }
  SoundLead lead;
  lead.first = leads.front();
  lead.usual = std::accumulate(leads.begin(), leads.end(), 0.0) / static_cast<double>(leads.size());
  std::sort(leads.begin(), leads.end());
  lead.least = leads.front();
  lead.most = leads.back();
  const std::size_t outliers = leads.size() / 12;
  lead.mostlyLeast = leads[outliers];
  lead.mostlyMost = leads[leads.size() - 1 - outliers];
  lead.middle = leads[leads.size() / 2];
  return lead;
}

void SoundLead::moveBy(double seconds) {
  for (double* lead : {&first, &usual, &least, &most, &mostlyLeast, &mostlyMost, &middle})
    *lead += seconds;
}

Turns turnsOf(const Movie& movie, const Track& video) {
  constexpr std::size_t mostGaps = 16;
  constexpr std::size_t first = 8;
  // Longer ones do not repeat among the pictures that are compared; sample tables may claim any.
  constexpr std::uint64_t longestRow = 32;
  Turns turns;
  RowLengths ours;
  RowLengths theirs;
  std::set<std::uint64_t> gaps;
  std::optional<std::uint64_t> end;
  for (const Extent& extent : extentsOf(movie)) {
    if (extent.track->kind != Track::Kind::video) {
      continue;
    }
    if (end && *end <= extent.from && gaps.size() <= mostGaps) gaps.insert(extent.from - *end);
    const bool isOurs = extent.track == &video;
    if (!end) turns.theirsFirst = !isOurs;
    end = extent.to;
    if (const auto row = (isOurs ? theirs : ours).endRow(); row && turns.firstRows.size() < first) {
      turns.firstRows.push_back(*row);
    }
    (isOurs ? ours : theirs).add(extent.samples);
  }
  turns.mostInARow = ours.most();
  const auto row = ours.usual();
  const auto other = theirs.usual();
  if (row && other && *row <= longestRow && *other <= longestRow) {
    turns.rows = {*row, *other};
  }
  if (gaps.size() <= mostGaps) turns.gaps.assign(gaps.begin(), gaps.end());
  return turns;
}

}  // namespace tallowmark
