// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/MissingPictures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace tallowmark::VideoRepair {

namespace {

// Counts are not believed to skip more; whoever loses more sees a cut.
constexpr std::int64_t mostMissing = 240;
// Ticks that the field of a duration takes, whatever else a clip claims.
constexpr std::uint64_t longestDuration = std::numeric_limits<std::int32_t>::max();
// A decoder holds back no more pictures than this: those around a loss may take turns.
constexpr std::uint64_t mostReordering = 16;

/// Bytes that pictures of a stream take, with the sound and others' data that goes with them.
struct PictureBytes {
  double key = 0;
  double other = 0;
  /// Pictures from one key picture to the next, where all are as far apart; else 0.
  std::int64_t sequence = 0;

  /// Of so many in a row, of which the first stands at that position of its sequence.
  double of(std::int64_t pictures, std::int64_t position) const {
    const std::int64_t keys = sequence > 0 ? (position + pictures + sequence - 1) / sequence -
                                                 (position + sequence - 1) / sequence
                                           : 0;
    return static_cast<double>(keys) * key + static_cast<double>(pictures - keys) * other;
  }
};

// Whether so many pictures can have been where so many bytes are now. Some of these may be sound
// that came in few large pieces, and damage may have taken little of the last picture.
bool isPlausible(std::int64_t pictures, std::int64_t position, const PictureBytes& beside,
                 double bytes) {
  const double expected = beside.of(pictures, position);
  const double slack = 6 * beside.other + beside.key;
  return expected <= 2 * bytes + slack && expected >= bytes / 3 - slack;
}

class Counting {
 public:
  Counting(const SampleList& video, std::span<const std::uint64_t> losses,
           const PictureOrder& order, const CountHabits& habits);

  MissingPictures find(bool countsAreTime);

 private:
  struct Skip {
    std::size_t place = 0;
    std::uint32_t pictures = 0;
  };

  PictureBytes bytesOfPictures() const;
  std::int64_t sequenceLength(std::int64_t taught) const;
  std::optional<std::size_t> nearestLoss(std::size_t place) const;
  double bytesAt(std::uint64_t loss) const;
  PictureBytes bytesBeside(std::uint64_t loss) const;
  double apart(double pictures, double bytes) const;
  double bytesBetween() const;
  bool changesSequence(std::uint64_t loss) const;
  bool repeats(std::size_t number) const;
  std::optional<std::int64_t> behindInLine(std::size_t number, std::int64_t position) const;
  void tellInLine(bool countsAreTime);
  std::optional<std::int64_t> withinSequence(std::uint64_t loss, std::int64_t skipped) const;
  std::optional<std::int64_t> betweenSequences(std::uint64_t loss, std::size_t place) const;
  std::size_t placeBefore(std::uint64_t loss) const;
  bool isShownBehind(std::uint64_t loss) const;
  std::vector<Skip>::iterator overrun(std::vector<Skip>& skips) const;
  std::optional<Skip> skipAtEnd(std::uint64_t loss) const;
  bool tell(std::size_t loss, std::vector<Skip> skips);

  std::span<const std::uint64_t> losses_;
  const PictureOrder& order_;
  std::vector<Sample> samples_;
  /// The number of the sample at each place.
  std::vector<std::size_t> numbers_;
  /// Pictures are decoded in the order they are shown in; else this many places apart from it at
  /// most, and one more.
  bool isInLine_;
  std::uint64_t reordering_ = 1;
  double largestGap_;
  double between_ = 0;
  PictureBytes bytes_;
  MissingPictures missing_;
};

Counting::Counting(const SampleList& video, std::span<const std::uint64_t> losses,
                   const PictureOrder& order, const CountHabits& habits)
    : losses_(losses),
      order_(order),
      numbers_(order.places.size()),
      isInLine_(order.mostHeldBack == 0 && !habits.isReordered),
      largestGap_(static_cast<double>(habits.largestGap)) {
  samples_.reserve(static_cast<std::size_t>(video.size()));
  for (const Sample& sample : video) samples_.push_back(sample);
  for (std::size_t i = 0; i < order.places.size(); ++i) {
    const std::uint64_t place = order.places[i];
    numbers_[order.places[i]] = i;
    reordering_ = std::max(
        reordering_, std::max<std::uint64_t>(place, i) - std::min<std::uint64_t>(place, i) + 1);
  }
  reordering_ = std::min(reordering_, mostReordering);
  between_ = bytesBetween();
  bytes_ = bytesOfPictures();
  bytes_.sequence = sequenceLength(habits.sequence);
}

PictureBytes Counting::bytesOfPictures() const {
  double key = 0;
  double other = 0;
  std::size_t keys = 0;
  for (const Sample& sample : samples_) {
    (sample.isSync ? key : other) += sample.size;
    keys += sample.isSync ? 1U : 0U;
  }
  const std::size_t others = samples_.size() - keys;
  key /= static_cast<double>(std::max<std::size_t>(keys, 1));
  return {.key = key + between_,
          .other = (others > 0 ? other / static_cast<double>(others) : key) + between_};
}

// Pictures from one that begins a sequence to the next, where nothing between them is lost.
std::int64_t Counting::sequenceLength(std::int64_t taught) const {
  std::set<std::int64_t> lengths;
  if (taught > 0) lengths.insert(taught);
  std::size_t from = 0;
  for (std::size_t i = 1; i < samples_.size(); ++i) {
    if (order_.sequences[i] == order_.sequences[i - 1]) {
      if (samples_[i].isSync) return 0;
      continue;
    }
    const auto loss = std::upper_bound(losses_.begin(), losses_.end(), from);
    const bool isWhole = order_.positions[from] == 0 && order_.positions[i] == 0 &&
                         (loss == losses_.end() || *loss > i);
    if (isWhole) lengths.insert(static_cast<std::int64_t>(i - from));
    from = i;
  }
  return lengths.size() == 1 ? *lengths.begin() : 0;
}

// The loss between whose sides a place and the next one lie; or which they lie next to, as
// pictures around it are not decoded in the order they are shown in.
std::optional<std::size_t> Counting::nearestLoss(std::size_t place) const {
  const auto [first, last] = std::minmax(numbers_[place], numbers_[place + 1]);
  std::optional<std::size_t> nearest;
  std::uint64_t distance = reordering_ + 1;
  auto loss = std::upper_bound(losses_.begin(), losses_.end(),
                               first > reordering_ ? first - reordering_ : 0);
  for (; loss != losses_.end() && *loss <= last + reordering_; ++loss) {
    const std::uint64_t beside = *loss <= first ? first + 1 - *loss
                                 : *loss > last ? *loss - last
                                                : 0;
    if (beside < distance) {
      distance = beside;
      nearest = static_cast<std::size_t>(loss - losses_.begin());
    }
  }
  return nearest;
}

// Bytes between two pictures of which nothing is lost.
double Counting::bytesBetween() const {
  double bytes = 0;
  std::size_t count = 0;
  for (std::size_t i = 1; i < samples_.size(); ++i) {
    if (!std::binary_search(losses_.begin(), losses_.end(), i)) {
      bytes += bytesAt(i);
      ++count;
    }
  }
  return count == 0 ? 0 : bytes / static_cast<double>(count);
}

// How far bytes of pictures are from those that lie at a loss, some of which may be a piece of
// sound as large as any.
double Counting::apart(double pictures, double bytes) const {
  constexpr double little = 0.1;
  return std::max({0.0, pictures - bytes, bytes - largestGap_ - pictures}) +
         little * std::abs(pictures - bytes);
}

// Pictures differ in size less from their neighbours than from others of the clip.
PictureBytes Counting::bytesBeside(std::uint64_t loss) const {
  constexpr std::size_t few = 8;
  double bytes = 0;
  std::size_t count = 0;
  const std::size_t to = std::min(samples_.size(), static_cast<std::size_t>(loss) + few);
  for (std::size_t i = loss > few ? static_cast<std::size_t>(loss) - few : 0; i < to; ++i) {
    if (!samples_[i].isSync) {
      bytes += samples_[i].size;
      ++count;
    }
  }
  PictureBytes beside = bytes_;
  if (count > 0) {
    beside.other = bytes / static_cast<double>(count) + between_;
    beside.key *= beside.other / bytes_.other;
  }
  return beside;
}

double Counting::bytesAt(std::uint64_t loss) const {
  const Sample& before = samples_[loss - 1];
  const std::uint64_t end = before.offset + before.size;
  return static_cast<double>(samples_[loss].offset - std::min(end, samples_[loss].offset));
}

// Whether the pictures from one on were there before, as in a clip of which a cluster is doubled.
bool Counting::repeats(std::size_t number) const {
  constexpr std::size_t alike = 3;
  constexpr std::size_t furthest = 256;
  for (std::size_t i = number > furthest ? number - furthest : 0; i < number; ++i) {
    std::size_t same = 0;
    while (same < alike && number + same < samples_.size() &&
           samples_[i + same].size == samples_[number + same].size) {
      ++same;
    }
    if (same == alike) {
      return true;
    }
  }
  return false;
}

bool Counting::changesSequence(std::uint64_t loss) const {
  return order_.sequences[loss] != order_.sequences[loss - 1];
}

// Counts begin again after some pictures: where the bytes ask for that many more than the counts
// skip, it is as many more.
std::optional<std::int64_t> Counting::withinSequence(std::uint64_t loss,
                                                     std::int64_t skipped) const {
  constexpr double near = 0.4;
  const double bytes = bytesAt(loss);
  const PictureBytes beside = bytesBeside(loss);
  const std::int64_t position = order_.positions[loss - 1] + 1;
  std::int64_t best = skipped;
  for (const std::int64_t period : {bytes_.sequence, order_.cycle}) {
    for (std::int64_t more = period; period > 1 && skipped + more <= mostMissing; more += period) {
      const auto wrong = [&](std::int64_t pictures) {
        return apart(beside.of(pictures, position), bytes);
      };
      const bool isNear = wrong(skipped + more) < near * bytes && wrong(skipped) > near * bytes;
      if (isNear && wrong(skipped + more) < wrong(best)) best = skipped + more;
    }
  }
  return isPlausible(best, position, beside, bytes) ? std::optional(best) : std::nullopt;
}

// `place`: the last one of the sequence before.
std::optional<std::int64_t> Counting::betweenSequences(std::uint64_t loss,
                                                       std::size_t place) const {
  // Sequences of any length hardly begin in a hole; then counts go on round their cycle.
  const bool goesOn = bytes_.sequence == 0 && order_.cycle > 1 && !samples_[loss].isSync;
  const std::int64_t period = goesOn ? order_.cycle : bytes_.sequence;
  if (period == 0 || period > order_.cycle) {
    return std::nullopt;
  }
  const std::int64_t last = order_.positions[numbers_[place]];
  const std::int64_t next = order_.positions[numbers_[place + 1]];
  if (last >= period || next >= period) {
    return std::nullopt;
  }
  const double bytes = bytesAt(loss);
  const PictureBytes beside = bytesBeside(loss);
  std::int64_t best = (period - 1 - last + next) % period;
  const auto wrong = [&](std::int64_t pictures) {
    return apart(beside.of(pictures, last + 1), bytes);
  };
  for (std::int64_t more = best + period; more <= mostMissing; more += period) {
    if (wrong(more) < wrong(best)) best = more;
  }
  constexpr double near = 0.4;
  const double most = beside.of(period, 0) * near;
  return best <= mostMissing && wrong(best) <= most ? std::optional(best) : std::nullopt;
}

// The last place ahead of all pictures behind a loss.
std::size_t Counting::placeBefore(std::uint64_t loss) const {
  const auto from = order_.places.begin() + static_cast<std::ptrdiff_t>(loss);
  const auto left = static_cast<std::uint64_t>(order_.places.end() - from);
  const std::uint32_t first =
      *std::min_element(from, from + static_cast<std::ptrdiff_t>(std::min(left, mostReordering)));
  return std::max(first, 1U) - 1;
}

// Whether all pictures behind a loss are shown behind those ahead of it.
bool Counting::isShownBehind(std::uint64_t loss) const {
  const auto at = order_.places.begin() + static_cast<std::ptrdiff_t>(loss);
  const auto from = at - static_cast<std::ptrdiff_t>(std::min(loss, mostReordering));
  return *std::max_element(from, at) <= placeBefore(loss);
}

// Where counts that seem to go on must have begun anew.
std::vector<Counting::Skip>::iterator Counting::overrun(std::vector<Skip>& skips) const {
  if (bytes_.sequence == 0 || bytes_.sequence > order_.cycle) {
    return skips.end();
  }
  return std::find_if(skips.begin(), skips.end(), [&](const Skip& skip) {
    return order_.positions[numbers_[skip.place]] + 1 + skip.pictures >= bytes_.sequence;
  });
}

// What is missing at the end of a sequence right behind a loss, where it ends earlier than all
// others do: no count that follows tells of it.
std::optional<Counting::Skip> Counting::skipAtEnd(std::uint64_t loss) const {
  std::size_t next = loss;
  while (next < samples_.size() && next - loss <= reordering_ && !changesSequence(next)) ++next;
  const bool isLossBehind = std::upper_bound(losses_.begin(), losses_.end(), loss) !=
                            std::upper_bound(losses_.begin(), losses_.end(), std::uint64_t{next});
  if (bytes_.sequence == 0 || next == samples_.size() || next - loss > reordering_ ||
      isLossBehind || order_.positions[next] != 0 || order_.places[next] == 0) {
    return std::nullopt;
  }
  const std::size_t place = order_.places[next] - 1;
  const std::int64_t missing = bytes_.sequence - 1 - order_.positions[numbers_[place]];
  const bool isSame = order_.sequences[numbers_[place]] == order_.sequences[loss];
  return isSame && missing > 0 && missing <= static_cast<std::int64_t>(reordering_)
             ? std::optional(Skip{place, static_cast<std::uint32_t>(missing)})
             : std::nullopt;
}

// Says whether the counts tell what is missing at a loss. `skips`: those that belong to it.
bool Counting::tell(std::size_t loss, std::vector<Skip> skips) {
  const std::uint64_t at = losses_[loss];
  if (repeats(static_cast<std::size_t>(at))) {
    return false;
  }
  std::int64_t skipped = 0;
  for (const Skip& skip : skips) skipped += skip.pictures;
  std::size_t place = placeBefore(at);
  std::optional<std::int64_t> all;
  if (changesSequence(at)) {
    // Those of a sequence have its places.
    place = static_cast<std::size_t>(at) - 1;
    all = betweenSequences(at, place);
    if (all) *all += skipped;
  } else if (const auto over = overrun(skips); over != skips.end()) {
    place = over->place;
    skipped -= over->pictures;
    skips.erase(over);
    all = betweenSequences(at, place);
    if (all) *all += skipped;
  } else {
    if (const auto last = skipAtEnd(at)) {
      skips.push_back(*last);
      skipped += last->pictures;
    }
    all = withinSequence(at, skipped);
  }
  // A whole sequence between them, and yet shown in turns: one was misread.
  const bool isMisread = all && *all > skipped && !isShownBehind(at);
  if (!all || *all > mostMissing || isMisread) {
    return false;
  }
  for (const Skip& skip : skips) missing_.shown[skip.place] += skip.pictures;
  missing_.shown[place] += static_cast<std::uint32_t>(*all - skipped);
  missing_.decoded[static_cast<std::size_t>(at) - 1] += static_cast<std::uint32_t>(*all);
  return true;
}

// Where pictures are decoded in the order they are shown in: of the numbers that lead to the count
// ahead of which something is lost, that which the bytes come nearest to. `position`: where the
// picture before stands in its sequence.
std::optional<std::int64_t> Counting::behindInLine(std::size_t number,
                                                   std::int64_t position) const {
  const double bytes = bytesAt(number);
  const PictureBytes beside = bytesBeside(number);
  const bool isKey = samples_[number].isSync;
  std::optional<std::int64_t> best;
  const auto wrong = [&](std::int64_t pictures) {
    return apart(beside.of(pictures, position + 1), bytes);
  };
  for (std::int64_t pictures = 0; pictures <= mostMissing; ++pictures) {
    std::int64_t then = position + 1 + pictures;
    if (bytes_.sequence > 0) then %= bytes_.sequence;
    const bool fits = then % order_.cycle == order_.positions[number] &&
                      (bytes_.sequence == 0 || isKey == (then == 0));
    if (fits && (!best || wrong(pictures) < wrong(*best))) best = pictures;
  }
  return best && isPlausible(*best, position + 1, beside, bytes) ? best : std::nullopt;
}

void Counting::tellInLine(bool countsAreTime) {
  std::int64_t position = order_.positions.front();
  for (std::size_t i = 1; i < samples_.size(); ++i) {
    const bool begins = samples_[i].isSync && order_.positions[i] == 0;
    if (std::binary_search(losses_.begin(), losses_.end(), i)) {
      const bool isKnown = (!begins || bytes_.sequence > 0) && !repeats(i);
      const auto pictures = isKnown ? behindInLine(i, position) : std::nullopt;
      missing_.areAllTold = missing_.areAllTold && pictures;
      missing_.decoded[i - 1] = static_cast<std::uint32_t>(pictures.value_or(0));
      position = pictures ? position + 1 + *pictures : order_.positions[i];
      if (bytes_.sequence > 0) position %= bytes_.sequence;
    } else if (begins) {
      position = 0;
    } else {
      const std::uint32_t skipped = order_.intervals[i - 1] - 1;
      if (countsAreTime && skipped <= mostMissing) missing_.decoded[i - 1] = skipped;
      position += order_.intervals[i - 1];
    }
  }
  missing_.shown = missing_.decoded;
}

MissingPictures Counting::find(bool countsAreTime) {
  missing_.decoded.assign(samples_.size(), 0);
  missing_.shown.assign(samples_.size(), 0);
  if (isInLine_ && order_.cycle > 0 && !samples_.empty()) {
    tellInLine(countsAreTime);
    return std::move(missing_);
  }
  std::vector<std::vector<Skip>> skips(losses_.size());
  for (std::size_t place = 0; place + 1 < order_.intervals.size(); ++place) {
    const std::uint32_t skipped = order_.intervals[place] - 1;
    if (skipped == 0) {
      continue;
    }
    if (const auto loss = nearestLoss(place)) {
      skips[*loss].push_back({place, skipped});
    } else if (countsAreTime && skipped <= mostMissing) {
      missing_.decoded[place] += skipped;
      missing_.shown[place] += skipped;
    }
  }
  for (std::size_t loss = 0; loss < losses_.size(); ++loss) {
    const std::uint64_t at = losses_[loss];
    const bool isInside = at > 0 && at < samples_.size();
    if (isInside && !tell(loss, skips[loss])) missing_.areAllTold = false;
  }
  return std::move(missing_);
}

}  // namespace

std::vector<std::uint64_t> lossesBehind(std::uint64_t cut, std::span<const std::uint64_t> losses) {
  std::vector<std::uint64_t> left;
  for (const std::uint64_t loss : losses) {
    if (loss > cut) left.push_back(loss - cut);
  }
  return left;
}

MissingPictures missingPictures(const SampleList& video, std::span<const std::uint64_t> losses,
                                const PictureOrder& order, const CountHabits& habits) {
  return Counting(video, losses, order, habits).find(habits.countsAreTime);
}

std::int64_t sequenceLength(const SampleList& video) {
  std::int64_t length = 0;
  std::uint64_t from = 0;
  for (const SampleRun& run : video.runs()) {
    if (!run.first.isSync || run.start == 0) continue;
    const auto here = static_cast<std::int64_t>(run.start - from);
    if (run.count > 1 || (length > 0 && here != length)) {
      return 0;
    }
    length = here;
    from = run.start;
  }
  return length;
}

std::uint64_t largestGap(const SampleList& video) {
  std::uint64_t largest = 0;
  std::uint64_t end = std::numeric_limits<std::uint64_t>::max();
  for (const SampleRun& run : video.runs()) {
    if (run.first.offset > end) largest = std::max(largest, run.first.offset - end);
    end = run.end();
  }
  return largest;
}

void holdForMissing(SampleList& pictures, std::uint64_t from, const MissingPictures& missing,
                    std::uint32_t duration) {
  SampleList held = pictures.slice(0, from);
  std::size_t number = 0;
  for (Sample picture : pictures.slice(from, pictures.size())) {
    const std::uint64_t due =
        picture.duration + std::uint64_t{missing.decoded[number++]} * duration;
    picture.duration = static_cast<std::uint32_t>(std::min(due, longestDuration));
    held.append(picture);
  }
  pictures = std::move(held);
}

std::vector<std::uint64_t> shownFor(const SampleList& pictures, const MissingPictures& missing,
                                    std::uint32_t duration) {
  std::vector<std::uint64_t> lengths;
  lengths.reserve(static_cast<std::size_t>(pictures.size()));
  for (const Sample& picture : pictures) {
    const std::size_t place = lengths.size();
    const std::uint64_t held = std::uint64_t{missing.decoded[place]} * duration;
    const std::uint64_t own = picture.duration - std::min<std::uint64_t>(held, picture.duration);
    lengths.push_back(
        std::min(own + std::uint64_t{missing.shown[place]} * duration, longestDuration));
  }
  return lengths;
}

}  // namespace tallowmark::VideoRepair
