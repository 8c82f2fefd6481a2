// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlankStretches.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Interleaving/PCMLayout.h"

namespace tallowmark::BlankStretches {

namespace {

constexpr std::uint64_t looks = 64;
constexpr std::size_t head = 64;

bool isBlank(std::uint64_t offset, std::size_t count, const ByteSource& clip) {
  const auto bytes = clip.read(offset, count);
  const auto isAll = [&](std::uint8_t of) {
    return std::all_of(bytes.begin(), bytes.end(), [&](std::uint8_t byte) { return byte == of; });
  };
  return bytes.size() == count && (isAll(0) || isAll(0xFF));
}

// Smaller samples, as some programs write for pictures that repeat, may be all zeros.
bool isBlankPicture(const Sample& picture, const ByteSource& clip) {
  return picture.size >= head && isBlank(picture.offset, head, clip);
}

// No block of sound is all zeros or ones, however small. Others' samples may be: a timecode is.
bool isBlankSample(const Sample& sample, bool isSound, const ByteSource& clip) {
  constexpr std::size_t leastOfOthers = 8;
  return sample.size >= (isSound ? 2 : leastOfOthers) &&
         isBlank(sample.offset, std::min<std::size_t>(sample.size, head), clip);
}

/// Pictures by number, and where these lie in the file.
struct Stretch {
  std::uint64_t first = 0;
  std::uint64_t end = 0;
  ByteRange bytes;
  /// No picture stands behind.
  bool isLast = false;

  bool isWhole() const { return first == 0 && isLast; }
  bool holds(std::uint64_t offset) const { return offset >= bytes.lower && offset < bytes.upper; }
};

/// Looks at pictures spread over a clip, and for where what is blank among them begins and ends.
class Search {
 public:
  Search(const SampleList& pictures, const ByteSource& clip)
      : pictures_(pictures.endingBy(clip.size())), clip_(clip) {}

  std::vector<Stretch> find() const;

 private:
  bool isBlankAt(std::uint64_t number) const { return isBlankPicture(pictures_[number], clip_); }
  std::uint64_t edge(std::uint64_t here, std::uint64_t there) const;
  Stretch stretch(std::uint64_t first, std::uint64_t end) const;

  SampleList pictures_;
  const ByteSource& clip_;
};

// The first picture that is, in that, like the one at `there` and unlike the one at `here`.
std::uint64_t Search::edge(std::uint64_t here, std::uint64_t there) const {
  const bool blank = isBlankAt(there);
  while (there - here > 1) {
    const std::uint64_t middle = here + (there - here) / 2;
    (isBlankAt(middle) == blank ? there : here) = middle;
  }
  return there;
}

// From one picture that is left to the next, or to the end of all media.
Stretch Search::stretch(std::uint64_t first, std::uint64_t end) const {
  const bool isLast = end == pictures_.size();
  const std::uint64_t from =
      first == 0 ? 0 : pictures_[first - 1].offset + pictures_[first - 1].size;
  const std::uint64_t to = isLast ? clip_.size() : pictures_[end].offset;
  return {first, end, {from, std::max(from, to)}, isLast};
}

std::vector<Stretch> Search::find() const {
  std::vector<Stretch> stretches;
  const std::uint64_t count = pictures_.size();
  const std::uint64_t step = std::max<std::uint64_t>(1, count / looks);
  std::optional<std::uint64_t> from;
  std::uint64_t before = 0;
  for (std::uint64_t at = 0; at < count;
       at = at + 1 == count ? count : std::min(at + step, count - 1)) {
    const bool blank = isBlankAt(at);
    if (blank && !from) from = at == 0 ? 0 : edge(before, at);
    if (!blank && from)
      stretches.push_back(stretch(*std::exchange(from, std::nullopt), edge(before, at)));
    before = at;
  }
  if (from) stretches.push_back(stretch(*from, count));
  return stretches;
}

std::vector<Stretch> allStretchesIn(const Movie& movie, const ByteSource& clip) {
  const Track* video = movie.videoTrack();
  const bool isKnown = video != nullptr && NALFormat::of(video->sampleEntry, video->codec);
  return isKnown ? Search(video->samples, clip).find() : std::vector<Stretch>{};
}

std::vector<Stretch> stretchesIn(const Movie& movie, const ByteSource& clip) {
  auto stretches = allStretchesIn(movie, clip);
  if (!stretches.empty() && stretches.front().isWhole()) stretches.clear();
  return stretches;
}

bool isPCM(const Track& track) {
  return track.kind == Track::Kind::audio && PCMLayout::ofEvenSamples(track).has_value();
}

std::uint64_t countIn(const Stretch& stretch, const SampleList& samples) {
  std::uint64_t count = 0;
  for (const SampleRun& run : samples.runs()) {
    if (stretch.holds(run.first.offset)) count += run.countEndingBy(stretch.bytes.upper);
  }
  return count;
}

/// Takes what is blank out of one track.
class Thinning {
 public:
  Thinning(const Track& track, std::span<const Stretch> stretches, std::span<LostPiece> pieces,
           const ByteSource& clip)
      : track_(track), isPCM_(isPCM(track)), stretches_(stretches), pieces_(pieces), clip_(clip) {}

  SampleList rest();

 private:
  const Stretch* stretchAt(std::uint64_t offset) const;
  bool isLost(const SampleRun& run, const Stretch& stretch) const;
  bool isLost(const Sample& sample, const Stretch* stretch) const;
  void lose(std::uint64_t ticks, const Stretch* stretch);
  void keep(const SampleList& samples);

  const Track& track_;
  bool isPCM_;
  std::span<const Stretch> stretches_;
  std::span<LostPiece> pieces_;
  const ByteSource& clip_;
  SampleList kept_;
  std::uint64_t lost_ = 0;
  std::size_t piece_ = 0;
  /// A day of sound has as many blocks; a table may claim billions.
  std::uint64_t looksLeft_ = std::uint64_t{1} << 22U;
};

const Stretch* Thinning::stretchAt(std::uint64_t offset) const {
  const auto found = std::find_if(stretches_.begin(), stretches_.end(),
                                  [&](const Stretch& one) { return one.holds(offset); });
  return found == stretches_.end() ? nullptr : &*found;
}

// Silence in between keeps step; ahead of all pictures, or behind, it is of no use.
bool Thinning::isLost(const SampleRun& run, const Stretch& stretch) const {
  const std::uint64_t bytes = run.count * run.first.size;
  return (kept_.empty() || stretch.isLast) &&
         isBlank(run.first.offset, static_cast<std::size_t>(std::min<std::uint64_t>(bytes, head)),
                 clip_);
}

// Where the beginning is lost, pictures need one to begin with.
bool Thinning::isLost(const Sample& sample, const Stretch* stretch) const {
  if (track_.kind == Track::Kind::video) {
    return (stretch != nullptr && isBlankPicture(sample, clip_)) ||
           (kept_.empty() && lost_ > 0 && !sample.isSync);
  }
  return stretch != nullptr && isBlankSample(sample, track_.kind == Track::Kind::audio, clip_);
}

void Thinning::lose(std::uint64_t ticks, const Stretch* stretch) {
  lost_ += ticks;
  if (stretch != nullptr) piece_ = static_cast<std::size_t>(stretch - stretches_.data());
}

void Thinning::keep(const SampleList& samples) {
  if (lost_ > 0) {
    pieces_[piece_].resumptions.push_back({track_.trackID, kept_.size(), lost_});
    kept_.lengthenLast(std::exchange(lost_, 0));
  }
  kept_.append(samples);
}

SampleList Thinning::rest() {
  for (const SampleRun& run : track_.samples.runs()) {
    const Stretch* const stretch = stretchAt(run.first.offset);
    const bool mayBeLost =
        (stretch != nullptr || (kept_.empty() && lost_ > 0)) && (isPCM_ || run.count <= looksLeft_);
    if (!mayBeLost || isPCM_) {
      if (isPCM_ && stretch != nullptr && isLost(run, *stretch)) {
        lose(run.duration(), stretch);
      } else {
        keep(track_.samples.slice(run.start, run.start + run.count));
      }
      continue;
    }
    looksLeft_ -= run.count;
    for (std::uint64_t i = 0; i < run.count; ++i) {
      const Sample sample = run.at(i);
      if (isLost(sample, stretchAt(sample.offset))) {
        lose(sample.duration, stretchAt(sample.offset));
      } else {
        keep({sample});
      }
    }
  }
  return std::move(kept_);
}

// The samples that start within so many ticks, the last of them no longer than that.
SampleList endingWith(std::uint64_t ticks, const SampleList& samples) {
  std::uint64_t count = 0;
  for (const SampleRun& run : samples.runs()) {
    const std::uint64_t each = run.first.duration;
    const std::uint64_t whole = each == 0 ? run.count : std::min(run.count, ticks / each);
    count += whole;
    ticks -= whole * each;
    if (whole == run.count) continue;
    SampleList ended = samples.slice(0, count);
    if (ticks > 0) {
      Sample last = run.at(whole);
      last.duration = static_cast<std::uint32_t>(ticks);
      ended.append(last);
    }
    return ended;
  }
  return samples;
}

// A timecode's one sample lasts as long as the clip did.
void endSideTracks(Movie& movie) {
  const Track* video = movie.videoTrack();
  if (video->timescale == 0) {
    return;
  }
  const double seconds = static_cast<double>(video->duration()) / video->timescale;
  for (Track& track : movie.tracks) {
    if (track.kind != Track::Kind::other) continue;
    const auto end = static_cast<std::uint64_t>(seconds * track.timescale);
    track.samples = endingWith(end, track.samples);
  }
}

}  // namespace

std::optional<std::uint64_t> missingIn(const Movie& movie, const ByteSource& clip) {
  const std::vector<Stretch> stretches = stretchesIn(movie, clip);
  if (stretches.empty()) {
    return std::nullopt;
  }
  const Stretch& first = stretches.front();
  std::uint64_t count = 0;
  for (const Track& track : movie.tracks) {
    const bool isCounted = first.isLast && !isPCM(track);
    count += isCounted ? countIn(first, track.samples) : 0;
  }
  return count;
}

bool isAllOf(const Movie& movie, const ByteSource& clip) {
  const auto stretches = allStretchesIn(movie, clip);
  return !stretches.empty() && stretches.front().isWhole();
}

void takeOut(Movie& movie, const ByteSource& clip) {
  const std::vector<Stretch> stretches = stretchesIn(movie, clip);
  std::vector<LostPiece> pieces;
  pieces.reserve(stretches.size());
  for (const Stretch& stretch : stretches) {
    pieces.push_back({.from = stretch.bytes.lower, .to = stretch.bytes.upper, .isBlank = true});
  }
  if (pieces.empty()) {
    return;
  }
  for (Track& track : movie.tracks) {
    track.samples = Thinning(track, stretches, pieces, clip).rest();
  }
  endSideTracks(movie);
  movie.lostPieces = std::move(pieces);
}

}  // namespace tallowmark::BlankStretches
