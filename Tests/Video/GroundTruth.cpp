// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tests/Video/GroundTruth.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"

namespace tallowmark::testing {

namespace {

bool overlap(const ByteRange& a, const ByteRange& b) {
  return a.lower < b.upper && b.lower < a.upper;
}

/// A stretch of sound with the time it starts at.
struct Stretch {
  ByteRange range;
  double start = 0;
  double perByte = 0;
  std::uint32_t sampleSize = 1;
};

/// Bytes of `b` that are whole samples of `a`, too.
std::uint64_t shared(const Stretch& a, const Stretch& b) {
  const bool sameGrid = (b.range.lower - a.range.lower) % a.sampleSize == 0;
  return sameGrid && overlap(a.range, b.range)
             ? std::min(a.range.upper, b.range.upper) - std::max(a.range.lower, b.range.lower)
             : 0;
}

std::vector<Stretch> soundOf(const Movie& movie, const Track& audio, std::uint64_t shift) {
  std::vector<Stretch> stretches;
  double time = static_cast<double>(audio.startDelay) / movie.timescale -
                static_cast<double>(audio.mediaStart) / audio.timescale;
  for (const SampleRun& run : audio.samples.runs()) {
    const double length = static_cast<double>(run.duration()) / audio.timescale;
    const ByteRange range{run.first.offset + shift, run.end() + shift};
    stretches.push_back({range, time,
                         length / static_cast<double>(std::max<std::uint64_t>(1, range.length())),
                         std::max(1U, run.first.size)});
    time += length;
  }
  return stretches;
}

// The first tracks, and with each further PCM track the one of the same number, null for none.
std::vector<std::pair<const Track*, const Track*>> soundTracks(const Movie& truth,
                                                               const Movie& rebuilt) {
  std::vector<std::pair<const Track*, const Track*>> tracks;
  for (const Track& then : truth.tracks) {
    if (then.kind != Track::Kind::audio || (!tracks.empty() && then.codec == "mp4a")) {
      continue;
    }
    const auto now =
        std::find_if(rebuilt.tracks.begin(), rebuilt.tracks.end(),
                     [&](const Track& track) { return track.trackID == then.trackID; });
    tracks.emplace_back(&then, tracks.empty()                ? rebuilt.audioTrack()
                               : now != rebuilt.tracks.end() ? &*now
                                                             : nullptr);
  }
  return tracks;
}

// Sound that was put into the copy has no place in the clip.
bool isFromClip(const Sample& sample, std::uint64_t shift, const ByteSource& copy,
                const Bytes& victim) {
  const std::uint64_t at = sample.offset + shift;
  const Bytes bytes = copy.read(sample.offset, sample.size);
  return at + sample.size <= victim.size() &&
         std::equal(bytes.begin(), bytes.end(), victim.begin() + static_cast<std::ptrdiff_t>(at));
}

std::map<std::uint64_t, double> timesOf(const Track& video, std::uint64_t shift) {
  std::map<std::uint64_t, double> times;
  double ticks = 0;
  for (const Sample& sample : video.samples) {
    times[sample.offset + shift] = ticks / video.timescale;
    ticks += sample.duration;
  }
  return times;
}

// Where the copy's media came from in the victim: its first frame, found there again.
std::uint64_t shiftOf(const ByteSource& copy, const Track& video, const Bytes& victim) {
  const Sample first = video.samples.front();
  const Bytes frame = copy.read(first.offset, first.size);
  const auto found = std::search(victim.begin(), victim.end(),
                                 std::boyer_moore_searcher(frame.begin(), frame.end()));
  if (found == victim.end()) {
    throw std::runtime_error("the copy's first frame is not in the clip");
  }
  return static_cast<std::uint64_t>(found - victim.begin()) - first.offset;
}

void compareFrames(const Victim& victim, const Track& rebuilt, std::uint64_t shift,
                   Comparison& comparison) {
  std::map<std::uint64_t, Sample> whole;
  std::set<std::uint64_t> all;
  for (const Sample& sample : victim.truth().videoTrack()->samples) {
    all.insert(sample.offset);
    if (!victim.isTouched(sample.offset, sample.offset + sample.size)) {
      whole[sample.offset] = sample;
    }
  }
  comparison.frames = whole.size();
  const std::uint64_t first = rebuilt.samples.front().offset + shift;
  for (const Sample& sample : rebuilt.samples) {
    const auto known = whole.find(sample.offset + shift);
    comparison.invented += all.contains(sample.offset + shift) ? 0U : 1U;
    comparison.exact += known != whole.end() && known->second.size == sample.size &&
                                known->second.isSync == sample.isSync
                            ? 1U
                            : 0U;
  }
  comparison.beforeKeyframe = static_cast<std::uint64_t>(
      std::count_if(whole.begin(), whole.end(), [&](const auto& f) { return f.first < first; }));
  comparison.missed = comparison.frames - comparison.exact - comparison.beforeKeyframe;
}

void compareSound(const Victim& victim, const std::vector<Stretch>& truth,
                  const std::vector<Stretch>& rebuilt, Comparison& comparison) {
  for (const Stretch& t : truth) {
    if (victim.isTouched(t.range.lower, t.range.upper)) continue;
    comparison.sound += t.range.length();
    for (const Stretch& r : rebuilt) comparison.soundRight += shared(t, r);
  }
  for (const Stretch& r : rebuilt) {
    if (victim.isTouched(r.range.lower, r.range.upper)) continue;
    std::uint64_t right = 0;
    for (const Stretch& t : truth) right += shared(t, r);
    comparison.soundWrong += r.range.length() - right;
  }
}

std::vector<const Track*> compressedSound(const Movie& movie) {
  std::vector<const Track*> tracks;
  for (const Track& track : movie.tracks) {
    if (track.kind == Track::Kind::audio && track.codec == "mp4a") tracks.push_back(&track);
  }
  return tracks;
}

void compareBlocks(const Victim& victim, const Movie& rebuilt, const ByteSource& copy,
                   std::uint64_t shift, Comparison& comparison) {
  const auto truth = compressedSound(victim.truth());
  const auto now = compressedSound(rebuilt);
  for (std::size_t i = 0; i < truth.size(); ++i) {
    std::map<std::uint64_t, std::uint32_t> whole;
    std::set<std::uint64_t> all;
    for (const Sample& sample : truth[i]->samples) {
      all.insert(sample.offset);
      if (!victim.isTouched(sample.offset, sample.offset + sample.size)) {
        whole[sample.offset] = sample.size;
      }
    }
    comparison.blocks += whole.size();
    if (i >= now.size()) continue;
    std::uint64_t first = std::numeric_limits<std::uint64_t>::max();
    for (const Sample& sample : now[i]->samples) {
      const std::uint64_t at = sample.offset + shift;
      if (!isFromClip(sample, shift, copy, victim.bytes())) continue;
      first = std::min(first, at);
      const auto known = whole.find(at);
      comparison.blocksExact += known != whole.end() && known->second == sample.size ? 1U : 0U;
      comparison.blocksInvented +=
          !all.contains(at) && !victim.isTouched(at, at + sample.size) ? 1U : 0U;
    }
    comparison.blocksBeforeKeyframe += static_cast<std::uint64_t>(std::count_if(
        whole.begin(), whole.end(), [&](const auto& block) { return block.first < first; }));
  }
}

// When the frames are shown, by where they lie.
std::map<std::uint64_t, double> shownTimes(const Track& video, std::uint64_t shift) {
  std::map<std::uint64_t, double> times;
  std::int64_t ticks = -video.mediaStart;
  for (const Sample& sample : video.samples) {
    times[sample.offset + shift] =
        static_cast<double>(ticks + sample.compositionOffset) / video.timescale;
    ticks += sample.duration;
  }
  return times;
}

// Seconds from a movie's start to its first picture.
double firstShown(const Movie& movie) {
  double first = std::numeric_limits<double>::max();
  for (const auto& [offset, time] : shownTimes(*movie.videoTrack(), 0)) {
    first = std::min(first, time);
  }
  return first + static_cast<double>(movie.videoTrack()->startDelay) / movie.timescale;
}

// For every frame: its time against that of the sound stored before it, then and now, as edit lists
// have them.
void compareSteps(const Victim& victim, const Movie& rebuiltMovie, std::uint64_t shift,
                  const std::vector<Stretch>& truth, const std::vector<Stretch>& rebuilt,
                  Comparison& comparison) {
  const Track& video = *victim.truth().videoTrack();
  const auto then = timesOf(video, 0);
  const double start = firstShown(rebuiltMovie) - firstShown(victim.truth());
  const double frame = static_cast<double>(video.typicalDuration()) / video.timescale;
  std::size_t next = 0;
  for (const auto& [offset, time] : timesOf(*rebuiltMovie.videoTrack(), shift)) {
    while (next < rebuilt.size() && rebuilt[next].range.lower < offset) ++next;
    const auto known = then.find(offset);
    if (next == 0 || known == then.end()) continue;
    const Stretch& sound = rebuilt[next - 1];
    for (const Stretch& t : truth) {
      if (sound.range.lower >= t.range.lower && sound.range.lower < t.range.upper) {
        const double soundThen =
            t.start + static_cast<double>(sound.range.lower - t.range.lower) * t.perByte;
        const double step = ((start + time - sound.start) - (known->second - soundThen)) / frame;
        if (std::abs(step) > std::abs(comparison.worstStep)) comparison.worstStep = step;
      }
    }
  }
}

// By how much stretches of sound are later than they were, by when that was, in samples of 48 kHz.
std::map<long long, double> movesOf(const std::vector<Stretch>& truth,
                                    const std::vector<Stretch>& rebuilt) {
  std::map<long long, double> moves;
  for (const Stretch& now : rebuilt) {
    for (const Stretch& then : truth) {
      if (now.range.lower >= then.range.lower && now.range.lower < then.range.upper) {
        const double start =
            then.start + static_cast<double>(now.range.lower - then.range.lower) * then.perByte;
        moves[std::llround(start * 48000)] = now.start - start;
      }
    }
  }
  return moves;
}

// `first` are the first track's moves, which it becomes.
void compareTracks(std::map<long long, double>& first, std::map<long long, double> moves,
                   Comparison& comparison) {
  for (const auto& [start, move] : moves) {
    if (const auto other = first.find(start); other != first.end()) {
      comparison.tracksApart = std::max(comparison.tracksApart, std::abs(move - other->second));
    }
  }
  if (first.empty()) first = std::move(moves);
}

// For every frame that is left: how much later it is shown, and how much later the sound is heard
// that is nearest to its time.
void compareApart(const Victim& victim, const Movie& rebuilt, std::uint64_t shift,
                  const std::vector<Stretch>& truth, const std::vector<Stretch>& found,
                  Comparison& comparison) {
  constexpr double near = 0.15;
  struct Moved {
    double from = 0;
    double to = 0;
    double by = 0;
  };
  std::vector<Moved> sounds;
  for (const Stretch& now : found) {
    for (const Stretch& then : truth) {
      if (!overlap(now.range, then.range)) continue;
      const std::uint64_t from = std::max(now.range.lower, then.range.lower);
      const std::uint64_t to = std::min(now.range.upper, then.range.upper);
      const double start = then.start + static_cast<double>(from - then.range.lower) * then.perByte;
      const double heard = now.start + static_cast<double>(from - now.range.lower) * now.perByte;
      sounds.push_back(
          {start, start + static_cast<double>(to - from) * then.perByte, heard - start});
    }
  }
  const auto delayOf = [](const Movie& movie) {
    return static_cast<double>(movie.videoTrack()->startDelay) / movie.timescale;
  };
  const double delay = delayOf(rebuilt) - delayOf(victim.truth());
  const auto shownThen = shownTimes(*victim.truth().videoTrack(), 0);
  for (const auto& [offset, shown] : shownTimes(*rebuilt.videoTrack(), shift)) {
    const auto known = shownThen.find(offset);
    if (known == shownThen.end()) continue;
    const double time = known->second + delayOf(victim.truth());
    const auto distance = [&](const Moved& sound) {
      return std::max({0.0, sound.from - time, time - sound.to});
    };
    const auto heard =
        std::min_element(sounds.begin(), sounds.end(),
                         [&](const Moved& a, const Moved& b) { return distance(a) < distance(b); });
    if (heard == sounds.end() || distance(*heard) > near) continue;
    const double later = shown - known->second + delay;
    comparison.apart = std::max(comparison.apart, std::abs(later - heard->by));
  }
}

void compareOrder(const Track& truth, const Track& rebuilt, std::uint64_t shift,
                  Comparison& comparison) {
  auto then = shownTimes(truth, 0);
  auto now = shownTimes(rebuilt, shift);
  std::erase_if(then, [&](const auto& frame) { return !now.contains(frame.first); });
  std::erase_if(now, [&](const auto& frame) { return !then.contains(frame.first); });
  const auto byTime = [](const std::map<std::uint64_t, double>& times) {
    std::vector<std::pair<double, std::uint64_t>> frames;
    for (const auto& [offset, time] : times) frames.emplace_back(time, offset);
    std::sort(frames.begin(), frames.end());
    return frames;
  };
  const auto framesThen = byTime(then);
  const auto framesNow = byTime(now);
  const double frame = static_cast<double>(truth.typicalDuration()) / truth.timescale;
  comparison.shared = framesThen.size();
  for (std::size_t i = 0; i < framesThen.size(); ++i) {
    comparison.inOrder += framesThen[i].second == framesNow[i].second ? 1U : 0U;
    const double step = ((now.at(framesThen[i].second) - now.at(framesThen[0].second)) -
                         (framesThen[i].first - framesThen[0].first)) /
                        frame;
    if (std::abs(step) > std::abs(comparison.worstTime)) comparison.worstTime = step;
  }
}

const Track* trackOf(const Movie& movie, FourCC codec) {
  const auto track = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                  [&](const Track& t) { return t.codec == codec; });
  return track != movie.tracks.end() ? &*track : nullptr;
}

std::map<std::uint64_t, std::pair<Sample, double>> startsOf(const Track& track, const Movie& movie,
                                                            std::uint64_t shift) {
  std::map<std::uint64_t, std::pair<Sample, double>> starts;
  double time = static_cast<double>(track.startDelay) / movie.timescale;
  for (const Sample& sample : track.samples) {
    starts[sample.offset + shift] = {sample, time};
    time += static_cast<double>(sample.duration) / track.timescale;
  }
  return starts;
}

// Telemetry belongs to the pictures it is stored with: its time is held against theirs.
void compareTelemetry(const Victim& victim, const Movie& rebuilt, std::uint64_t shift,
                      Comparison& comparison) {
  const Track* then = trackOf(victim.truth(), "gpmd");
  const Track* now = trackOf(rebuilt, "gpmd");
  if (then == nullptr) return;
  const auto truth = startsOf(*then, victim.truth(), 0);
  const auto picturesThen = timesOf(*victim.truth().videoTrack(), 0);
  const auto picturesNow = timesOf(*rebuilt.videoTrack(), shift);
  const auto first = picturesThen.lower_bound(picturesNow.begin()->first);
  for (const auto& [offset, start] : truth) {
    // What ends before the first picture of the copy goes with the pictures ahead of it.
    const double end = start.second + static_cast<double>(start.first.duration) / then->timescale;
    const bool isShown = first != picturesThen.end() && end > first->second;
    comparison.telemetry +=
        isShown && !victim.isTouched(offset, offset + start.first.size) ? 1U : 0U;
  }
  if (now == nullptr) return;
  for (const auto& [offset, start] : startsOf(*now, rebuilt, shift)) {
    const auto known = truth.find(offset);
    if (known == truth.end()) {
      comparison.telemetryInvented += victim.isTouched(offset, offset + start.first.size) ? 0U : 1U;
      continue;
    }
    comparison.telemetryExact += known->second.first.size == start.first.size ? 1U : 0U;
    const auto picture = picturesNow.lower_bound(offset);
    if (picture == picturesNow.end() || !picturesThen.contains(picture->first)) continue;
    const double step =
        (start.second - picture->second) - (known->second.second - picturesThen.at(picture->first));
    comparison.worstTelemetryTime = std::max(comparison.worstTelemetryTime, std::abs(step));
  }
}

void compareTimecode(const Victim& victim, const Movie& rebuilt, std::uint64_t shift,
                     Comparison& comparison) {
  const Track* then = trackOf(victim.truth(), "tmcd");
  const Track* now = trackOf(rebuilt, "tmcd");
  comparison.hasTimecode = then != nullptr;
  comparison.timecodeRight = then != nullptr && now != nullptr && now->samples.size() == 1 &&
                             now->samples.front().offset + shift == then->samples.front().offset &&
                             now->samples.front().size == then->samples.front().size;
}

}  // namespace

Victim::Victim(const std::filesystem::path& clip) : bytes_(contentsOf(clip)) {
  const MemorySource source(bytes_);
  const BoxReader reader(source);
  truth_ = MovieParser::parse(reader);
  const FileLayout layout = MovieParser::layout(reader);
  media_ = {layout.mdats.front().payloadOffset(), layout.mdats.back().end()};
  const Box& index = *layout.moov;
  std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(index.offset + 8),
            bytes_.begin() + static_cast<std::ptrdiff_t>(index.end()), std::uint8_t{0});
  const Bytes free{'f', 'r', 'e', 'e'};
  std::copy(free.begin(), free.end(),
            bytes_.begin() + static_cast<std::ptrdiff_t>(index.offset + 4));
}

void Victim::punch(unsigned seed, unsigned count, std::size_t size, Filling filling,
                   const Bytes& otherFile) {
  std::mt19937_64 random(seed);
  if (media_.length() <= size) {
    return;
  }
  for (unsigned i = 0; i < count; ++i) {
    const std::uint64_t at = media_.lower + random() % (media_.length() - size);
    holes_.push_back({at, at + size});
    for (std::size_t k = 0; k < size; ++k) {
      bytes_[at + k] = filling == Filling::zeros ? std::uint8_t{0}
                       : filling == Filling::noise
                           ? static_cast<std::uint8_t>(random())
                           : otherFile[(otherFile.size() / 3 + k) % otherFile.size()];
    }
  }
}

void Victim::blank(std::uint64_t from, std::uint64_t to) {
  holes_.push_back({from, to});
  std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(from),
            bytes_.begin() + static_cast<std::ptrdiff_t>(to), std::uint8_t{0});
}

bool Victim::isTouched(std::uint64_t from, std::uint64_t to) const {
  return std::any_of(holes_.begin(), holes_.end(), [&](const ByteRange& hole) {
    return overlap(hole, {from, to});
  });
}

Comparison rebuildAndCompare(const Victim& victim, const std::filesystem::path& reference) {
  const TemporaryFolder folder;
  const MemorySource source(victim.bytes());
  const FileSource teacher(reference.string());
  Comparison comparison;
  const VideoRepair::Plan plan = VideoRepair::planRebuild(source, teacher);
  comparison.result = plan.result;
  {
    FileSink sink((folder / "copy").string());
    VideoRepair::write(plan, source, sink);
  }
  // Silence of zeros looks as the clip's own zeros do.
  const std::uint64_t mediaEnd = plan.added.bytes.empty() ? source.size() : plan.added.at;
  const FileSource copy((folder / "copy").string());
  const Movie rebuilt = MovieParser::parse(BoxReader(copy));
  const std::uint64_t shift = shiftOf(copy, *rebuilt.videoTrack(), victim.bytes());
  compareFrames(victim, *rebuilt.videoTrack(), shift, comparison);
  compareOrder(*victim.truth().videoTrack(), *rebuilt.videoTrack(), shift, comparison);
  compareTelemetry(victim, rebuilt, shift, comparison);
  compareTimecode(victim, rebuilt, shift, comparison);
  if (rebuilt.audioTrack() != nullptr) {
    compareBlocks(victim, rebuilt, copy, shift, comparison);
    std::map<long long, double> moves;
    for (const auto& [then, now] : soundTracks(victim.truth(), rebuilt)) {
      const auto truth = soundOf(victim.truth(), *then, 0);
      auto found = now != nullptr ? soundOf(rebuilt, *now, shift) : std::vector<Stretch>();
      std::erase_if(found, [&](const Stretch& stretch) {
        const auto size = static_cast<std::uint32_t>(stretch.range.length());
        return stretch.range.lower >= mediaEnd ||
               !isFromClip({.offset = stretch.range.lower - shift, .size = size}, shift, copy,
                           victim.bytes());
      });
      compareSound(victim, truth, found, comparison);
      compareSteps(victim, rebuilt, shift, truth, found, comparison);
      if (then == victim.truth().audioTrack()) {
        compareApart(victim, rebuilt, shift, truth, found, comparison);
      }
      compareTracks(moves, movesOf(truth, found), comparison);
    }
  }
  return comparison;
}

}  // namespace tallowmark::testing
