// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/OutputOrder.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <numeric>
#include <utility>

#include "MediaKit/Bitstream/PictureOrderCount.h"
#include "MediaKit/Bitstream/UnitHead.h"
#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark {

namespace {

// Enough for the units ahead of a first slice in most streams.
constexpr MediaWindow::ReadAhead headReadAhead{512, 512};
// Parameter sets are far smaller.
constexpr std::uint64_t largestSet = 4096;
// The most pictures that a decoder can hold back (H.264 A.3.1, H.265 A.4.2).
constexpr std::size_t mostHeldBack = 16;
// Streams count in steps of one or two.
constexpr std::size_t mostKinds = 256;
// A unit has at least six bytes; a picture of more units ahead of its first slice is no camera's.
constexpr int mostUnitsAhead = 64;

/// A picture in decoding order.
struct Picture {
  std::int64_t count = 0;
  bool startsSequence = false;
  /// Counts without their wrapping round are not known; 0 where they have none.
  std::int64_t wrap = 0;
  /// It may be shown ahead of the picture that began its sequence.
  bool isLeading = false;
};

// How far H.264 and HEVC count before they begin again (H.264 §8.2.1, H.265 §8.3.1).
std::int64_t wrapOf(const SequenceParameters& sps, NALFormat::Codec codec) {
  if (codec == NALFormat::Codec::hevc || sps.orderType == 0) {
    return std::int64_t{1} << sps.orderBits;
  }
  return sps.orderType == 2 ? std::int64_t{2} << sps.frameNumBits : 0;
}

/// Reads the samples of a track one after the other.
class PictureReader {
 public:
  PictureReader(const ByteSource& source, const OrderLessons& lessons)
      : format_(lessons.format),
        sets_(lessons.sets),
        window_(source, source.size(), headReadAhead),
        counter_(lessons.format.codec),
        deepest_(lessons.mostReordered) {}

  std::optional<Picture> read(const Sample& sample, bool isBehindLoss) {
    isBehindLoss_ = isBehindLoss;
    const std::uint64_t end = sample.offset + sample.size;
    std::uint64_t at = sample.offset;
    for (int unit = 0; unit < mostUnitsAhead && at < end; ++unit) {
      const auto head = readUnitHead(window_, at, end, format_);
      if (!head) {
        return std::nullopt;
      }
      if (isSlice(*head)) {
        return pictureOf(*head);
      }
      takeIn(*head);
      at += head->length;
    }
    return std::nullopt;
  }

  /// The most pictures held back, as far as reference and stream tell.
  std::size_t deepestOrder() const { return deepest_; }

 private:
  bool isHEVC() const { return format_.codec == NALFormat::Codec::hevc; }

  // Slices of the base layer; others show the same moment again.
  bool isSlice(const UnitHead& head) const {
    const int type = head.type();
    if (isHEVC()) {
      const bool baseLayer = ((head.header >> 3U) & 63U) == 0;
      return baseLayer && (type <= 9 || (type >= 16 && type <= 21));
    }
    return type == 1 || type == 2 || type == 5;
  }

  std::optional<Picture> pictureOf(const UnitHead& head) {
    const auto slice = readSliceHeader(head.bytes(), sets_, format_.codec);
    const SequenceParameters* sps = slice ? sets_.sequenceOf(slice->pictureSet) : nullptr;
    if (sps == nullptr) {
      return std::nullopt;
    }
    deepest_ = std::max<std::size_t>(deepest_, sps->mostReordered.value_or(0));
    const bool isLeading = isHEVC() && head.type() >= 6 && head.type() <= 9;
    return Picture{counter_.next(*slice, head.header, *sps, isBehindLoss_), slice->resetsOrder,
                   wrapOf(*sps, format_.codec), isLeading};
  }

  void takeIn(const UnitHead& head) {
    const int type = head.type();
    const bool isSet = isHEVC() ? type == 33 || type == 34 : type == 7 || type == 8;
    if (isSet && head.length <= largestSet) {
      const auto length = static_cast<std::size_t>(head.length);
      const auto bytes = window_.at(head.at, length);
      if (bytes.size() >= length) {
        sets_.add(bytes.subspan(format_.lengthSize, length - format_.lengthSize), format_.codec);
      }
    }
  }

  NALFormat format_;
  ParameterSets sets_;
  MediaWindow window_;
  PictureOrderCount counter_;
  std::size_t deepest_ = 0;
  bool isBehindLoss_ = false;
};

// The count nearest to another that is the same but for wrapping round.
std::int64_t nearestTo(std::int64_t other, std::int64_t count, std::int64_t wrap) {
  if (wrap <= 0) {
    return count;
  }
  const std::int64_t apart = (count - other) % wrap;
  const std::int64_t half = wrap / 2;
  return other + (apart >= half ? apart - wrap : apart < -half ? apart + wrap : apart);
}

// Behind a loss counts are taken to have gone on by less than half of what they count to, and those
// of pictures that no other refers to by themselves. Two with nothing lost between them are that
// near in truth; and none but leading pictures is shown ahead of the one that began the sequence
// (H.264 §8.2.1, H.265 §7.4.2.2): where one would be, they have gone on by more.
void unwrapBehindLosses(std::vector<Picture>& pictures, std::span<const std::uint64_t> losses) {
  std::optional<std::int64_t> first;
  bool isLossy = false;
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    Picture& picture = pictures[i];
    if (picture.startsSequence) {
      first = picture.count;
      isLossy = false;
      continue;
    }
    const bool isBehindLoss = std::binary_search(losses.begin(), losses.end(), std::uint64_t{i});
    isLossy = isLossy || isBehindLoss;
    if (isLossy && i > 0) {
      picture.count = nearestTo(pictures[i - 1].count, picture.count, picture.wrap);
    }
    if (first && !picture.isLeading && picture.count <= *first) picture.count += picture.wrap;
  }
}

/// Pictures one after the other in decoding order, each held against those just before it.
class Backlog {
 public:
  void clear() { counts_.clear(); }
  void add(std::int64_t count) {
    if (counts_.size() == 2 * mostHeldBack) {
      counts_.erase(counts_.begin());
    }
    counts_.push_back(count);
  }
  /// How many pictures decoded before this one are shown after it.
  std::size_t heldBackFor(std::int64_t count) const {
    return static_cast<std::size_t>(
        std::count_if(counts_.begin(), counts_.end(), [&](std::int64_t c) { return c > count; }));
  }

 private:
  std::vector<std::int64_t> counts_;
};

// The most pictures held back, as the stream itself shows. Behind a loss the counts may start anew
// without a word of it: nothing is held against what came before. Held back so far several times: a
// single one may be none of the stream's, unless there are few and nothing is missing.
std::size_t mostHeldBackIn(std::span<const Picture> pictures,
                           std::span<const std::uint64_t> losses) {
  constexpr std::size_t few = 60;
  const std::uint64_t several = losses.empty() && pictures.size() <= few ? 1 : 3;
  std::array<std::uint64_t, mostHeldBack + 1> seen{};
  Backlog backlog;
  auto loss = losses.begin();
  for (std::uint64_t i = 0; i < pictures.size(); ++i) {
    const bool isBehindLoss = loss != losses.end() && *loss == i;
    loss += isBehindLoss ? 1 : 0;
    if (isBehindLoss || pictures[i].startsSequence) {
      backlog.clear();
    }
    const std::size_t held = backlog.heldBackFor(pictures[i].count);
    if (held < seen.size()) ++seen.at(held);
    backlog.add(pictures[i].count);
  }
  std::size_t most = mostHeldBack;
  for (std::uint64_t count = seen.at(most); most > 0 && count < several; count += seen.at(most)) {
    --most;
  }
  return most;
}

// The losses that took more pictures than any is held back for, by their bytes: of more than the
// largest gap where nothing is lost.
std::vector<std::uint64_t> wideLosses(const SampleList& video,
                                      std::span<const std::uint64_t> losses, std::size_t deepest) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> lost;
  std::uint64_t largest = 0;
  std::uint64_t bytes = 0;
  std::uint64_t number = 0;
  std::uint64_t end = std::numeric_limits<std::uint64_t>::max();
  for (const Sample& sample : video) {
    const std::uint64_t gap = sample.offset > end ? sample.offset - end : 0;
    if (std::binary_search(losses.begin(), losses.end(), number)) {
      lost.emplace_back(number, gap);
    } else {
      largest = std::max(largest, gap);
    }
    bytes += sample.size;
    end = sample.offset + sample.size;
    ++number;
  }
  const std::uint64_t wide =
      largest + 2 * (deepest + 1) * (bytes / std::max<std::uint64_t>(number, 1));
  std::vector<std::uint64_t> wideOnes;
  for (const auto& [place, gap] : lost) {
    if (gap > wide) wideOnes.push_back(place);
  }
  return wideOnes;
}

// The least count of a picture and of those that may be shown ahead of it.
std::int64_t leastFrom(std::span<const Picture> pictures, std::size_t from, std::size_t to) {
  const auto few = pictures.subspan(from, to - from);
  std::int64_t least = few.front().count;
  for (const Picture& picture : few) {
    if (picture.startsSequence) break;
    least = std::min(least, picture.count);
  }
  return least;
}

// Numbers the sequences: pictures of a later one are shown after all of those before. One begins
// where the stream says so, and where a picture would be shown earlier than the stream could: the
// picture that began its sequence was lost, or counts have gone on by more than can be told.
std::vector<std::uint32_t> sequencesOf(std::span<const Picture> pictures,
                                       std::span<const std::uint64_t> losses,
                                       std::span<const std::uint64_t> wide, std::size_t deepest) {
  std::vector<std::uint32_t> sequences;
  sequences.reserve(pictures.size());
  Backlog backlog;
  std::uint32_t sequence = 0;
  std::size_t sinceLoss = pictures.size();
  auto loss = losses.begin();
  for (std::uint64_t i = 0; i < pictures.size(); ++i, ++sinceLoss) {
    if (loss != losses.end() && *loss == i) {
      ++loss;
      sinceLoss = 0;
    }
    const std::size_t most = sinceLoss <= mostHeldBack ? deepest : mostHeldBack;
    const bool isBehindWide = std::binary_search(wide.begin(), wide.end(), i);
    const std::uint64_t next = loss != losses.end() ? *loss : pictures.size();
    const auto few = std::min<std::uint64_t>({next, pictures.size(), i + deepest + 2});
    const bool isMixed = isBehindWide && backlog.heldBackFor(leastFrom(pictures, i, few)) > 0;
    if (pictures[i].startsSequence || isMixed || backlog.heldBackFor(pictures[i].count) > most) {
      ++sequence;
      backlog.clear();
    }
    backlog.add(pictures[i].count);
    sequences.push_back(sequence);
  }
  return sequences;
}

// The distance of counts that most neighbours in output order have; 1 without any.
std::int64_t usualDistance(std::span<const std::int64_t> distances) {
  std::map<std::int64_t, std::size_t> kinds;
  std::pair<std::size_t, std::int64_t> usual{0, 1};
  for (const std::int64_t distance : distances) {
    if (distance > 0 && kinds.size() < mostKinds) {
      usual = std::max(usual, std::pair(++kinds[distance], distance));
    }
  }
  return usual.second;
}

// Distances of counts between neighbours in output order; 0 between sequences.
std::vector<std::int64_t> distancesOf(std::span<const Picture> pictures,
                                      std::span<const std::uint32_t> shown,
                                      std::span<const std::uint32_t> sequences) {
  std::vector<std::int64_t> distances;
  for (std::size_t place = 0; place + 1 < shown.size(); ++place) {
    const std::uint32_t here = shown[place];
    const std::uint32_t next = shown[place + 1];
    distances.push_back(
        sequences[here] == sequences[next] ? pictures[next].count - pictures[here].count : 0);
  }
  return distances;
}

std::vector<std::uint32_t> intervalsOf(std::span<const std::int64_t> distances,
                                       std::int64_t usual) {
  std::vector<std::uint32_t> intervals(distances.size() + 1, 1);
  for (std::size_t place = 0; place < distances.size(); ++place) {
    const std::int64_t distance = distances[place];
    if (distance > usual && distance % usual == 0) {
      intervals[place] = static_cast<std::uint32_t>(
          std::min<std::int64_t>(distance / usual, std::numeric_limits<std::int32_t>::max()));
    }
  }
  return intervals;
}

std::vector<std::int64_t> positionsOf(std::span<const Picture> pictures, std::int64_t usual) {
  std::vector<std::int64_t> positions;
  positions.reserve(pictures.size());
  for (const Picture& picture : pictures) {
    const std::int64_t wrap = std::max<std::int64_t>(picture.wrap, 1);
    positions.push_back(((picture.count % wrap) + wrap) % wrap / usual);
  }
  return positions;
}

}  // namespace

std::size_t mostReordered(const SampleList& video) {
  constexpr std::uint64_t telling = 4000;
  Backlog backlog;
  std::size_t most = 0;
  std::int64_t time = 0;
  for (const Sample& sample : video.slice(0, std::min(video.size(), telling))) {
    most = std::max(most, backlog.heldBackFor(time + sample.compositionOffset));
    backlog.add(time + sample.compositionOffset);
    time += sample.duration;
  }
  return most;
}

std::optional<PictureOrder> outputOrder(const SampleList& video, const ByteSource& source,
                                        const OrderLessons& lessons,
                                        std::span<const std::uint64_t> losses,
                                        const StopToken& stop) {
  if (video.size() > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  PictureReader reader(source, lessons);
  std::vector<Picture> pictures;
  for (const Sample& sample : video) {
    stop.check();
    const bool isBehindLoss =
        std::binary_search(losses.begin(), losses.end(), std::uint64_t{pictures.size()});
    const auto picture = reader.read(sample, isBehindLoss);
    if (!picture) {
      return std::nullopt;
    }
    pictures.push_back(*picture);
  }
  if (!losses.empty()) unwrapBehindLosses(pictures, losses);
  const std::size_t heldBack = mostHeldBackIn(pictures, losses);
  const std::size_t deepest = std::max(reader.deepestOrder(), heldBack);
  std::vector<std::uint32_t> sequences =
      sequencesOf(pictures, losses, wideLosses(video, losses, deepest), deepest);
  std::vector<std::uint32_t> shown(pictures.size());
  std::iota(shown.begin(), shown.end(), 0U);
  std::stable_sort(shown.begin(), shown.end(), [&](std::uint32_t a, std::uint32_t b) {
    return std::pair(sequences[a], pictures[a].count) < std::pair(sequences[b], pictures[b].count);
  });
  const std::vector<std::int64_t> distances = distancesOf(pictures, shown, sequences);
  const std::int64_t usual = usualDistance(distances);
  PictureOrder order{.places = std::vector<std::uint32_t>(shown.size()),
                     .intervals = intervalsOf(distances, usual),
                     .mostHeldBack = heldBack,
                     .sequences = std::move(sequences),
                     .positions = positionsOf(pictures, usual),
                     .cycle = pictures.empty() ? 0 : pictures.back().wrap / usual};
  for (std::uint32_t place = 0; place < shown.size(); ++place) order.places[shown[place]] = place;
  return order;
}

std::int32_t smallestOffset(const SampleList& samples) {
  std::int32_t smallest = samples.empty() ? 0 : std::numeric_limits<std::int32_t>::max();
  for (const SampleRun& run : samples.runs()) {
    smallest = std::min(smallest, run.first.compositionOffset);
  }
  return smallest;
}

void showInOrder(Track& video, std::span<const std::uint32_t> order, std::int32_t smallestOffset) {
  std::vector<std::uint64_t> durations;
  durations.reserve(order.size());
  for (const Sample& sample : video.samples) durations.push_back(sample.duration);
  showInOrder(video, order, durations, smallestOffset);
}

void showInOrder(Track& video, std::span<const std::uint32_t> order,
                 std::span<const std::uint64_t> shownFor, std::int32_t smallestOffset) {
  if (order.empty()) {
    return;
  }
  std::vector<std::int64_t> times;
  times.reserve(order.size());
  std::int64_t time = 0;
  for (const std::uint64_t length : shownFor) {
    times.push_back(time);
    time += static_cast<std::int64_t>(length);
  }
  std::vector<std::int64_t> offsets;
  offsets.reserve(order.size());
  std::int64_t decoded = 0;
  for (const Sample& sample : video.samples) {
    offsets.push_back(times[order[offsets.size()]] - decoded);
    decoded += sample.duration;
  }
  const std::int64_t smallest =
      std::min<std::int64_t>(0, *std::min_element(offsets.begin(), offsets.end()));
  const std::int64_t largest =
      std::max<std::int64_t>(0, *std::max_element(offsets.begin(), offsets.end()));
  // A presentation before zero could not be shown.
  const std::int64_t shift = std::max<std::int64_t>(smallestOffset - smallest, 0);
  if (largest + shift > std::numeric_limits<std::int32_t>::max()) {
    return;
  }
  SampleList shown;
  shown.reserveRuns(order.size());
  std::size_t i = 0;
  for (Sample sample : video.samples) {
    sample.compositionOffset = static_cast<std::int32_t>(offsets[i] + shift);
    shown.append(sample);
    ++i;
  }
  video.samples = std::move(shown);
  video.mediaStart = shift;
}

}  // namespace tallowmark
