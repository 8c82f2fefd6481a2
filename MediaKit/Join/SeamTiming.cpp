// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/SeamTiming.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::ClipJoin {

namespace {

// A camera cuts sound at packets and pictures at frames; up to one packet of difference at a seam
// is how a continuous recording looks, and it is never heard: ITU-R BT.1359 finds 45 ms of early
// sound just detectable.
constexpr double leastTolerance = 0.010;
constexpr double largestTolerance = 0.045;
// Shortening some frames for less than this is not seen; a longer pause is left in the sound.
constexpr double largestHurry = 0.100;
// A pause in PCM sound makes players keep an entry for each of its samples: a gigabyte for a
// quarter of an hour. The picture hurries for longer before that.
constexpr double largestHurryForPCM = 1.0;
// Telemetry may be off by this much before its time is corrected.
constexpr double extraTolerance = 0.010;
constexpr std::uint64_t longestTail = 1000;

// Where sample time 0 of a track is presented, in seconds of its own part (ISO/IEC 14496-12
// §8.6.6).
double leadOf(const Track& track, const Movie& movie) {
  const double delay = movie.timescale == 0 ? 0
                                            : static_cast<double>(track.startDelay) /
                                                  static_cast<double>(movie.timescale);
  return delay - static_cast<double>(track.mediaStart) / static_cast<double>(track.timescale);
}

std::uint64_t ticksOf(double seconds, const Track& track) {
  constexpr double most = 4503599627370496.0;  // 2^52: exact, and beyond every recording
  return static_cast<std::uint64_t>(
      std::llround(std::clamp(std::fabs(seconds) * track.timescale, 0.0, most)));
}

/// A strand while the parts are laid out one after another.
class Line {
 public:
  Line(std::span<const Part> parts, const Strand& strand) : parts_(parts), strand_(&strand) {}

  bool hasTimescale() const { return strand_->first().timescale != 0; }
  Track::Kind kind() const { return strand_->first().kind; }
  /// Each sample is one tick, as in uncompressed sound.
  bool countsSingly() const { return strand_->first().typicalDuration() == 1; }
  std::vector<std::uint64_t> takeLengths() { return std::move(lengths_); }

  void layNextPiece() {
    const std::uint64_t length = strand_->pieces[lengths_.size()]->duration();
    lengths_.push_back(length);
    end_ = saturatingAdd(end_, length);
  }

  /// When the next part would begin, in seconds of the joined clip, if this track went on without
  /// a pause: by the one edit list there is, and by what the next part's own edit list says.
  double nextPartStart() const {
    const std::size_t next = lengths_.size();
    const Track& piece = *strand_->pieces[next];
    const double change =
        leadOf(piece, parts_[next].movie) - leadOf(strand_->first(), parts_[0].movie);
    return static_cast<double>(end_) / strand_->first().timescale - change;
  }

  /// The last piece laid ends later: its last sample lasts longer.
  void lengthen(double seconds) {
    const std::uint64_t ticks = ticksOf(seconds, strand_->first());
    lengths_.back() = saturatingAdd(lengths_.back(), ticks);
    end_ = saturatingAdd(end_, ticks);
  }

  /// The last piece laid ends earlier; false when it has not enough samples to take the time from.
  bool shorten(double seconds) {
    const std::uint64_t ticks = ticksOf(seconds, strand_->first());
    const SampleList& samples = strand_->pieces[lengths_.size() - 1]->samples;
    if (ticks > 0 && tailThatGives(samples, ticks) == 0) {
      return false;
    }
    lengths_.back() -= ticks;
    end_ -= ticks;
    return true;
  }

 private:
  std::span<const Part> parts_;
  const Strand* strand_;
  std::vector<std::uint64_t> lengths_;
  std::uint64_t end_ = 0;
};

double toleranceFor(const Track& sound) {
  const double packet = static_cast<double>(sound.typicalDuration()) / sound.timescale;
  return std::clamp(packet, leastTolerance, largestTolerance);
}

// Sound goes on without a pause, and the picture gives way: a frame that stays a little longer is
// not seen, a hole in the sound is heard.
void bringTogether(Line& picture, Line& sound, double tolerance) {
  const double hurry = sound.countsSingly() ? largestHurryForPCM : largestHurry;
  const double late = sound.nextPartStart() - picture.nextPartStart();
  if (std::fabs(late) <= tolerance) {
    return;
  }
  if (late > 0) {
    picture.lengthen(late);
  } else if (-late > hurry || !picture.shorten(-late)) {
    sound.lengthen(-late);
  }
}

void follow(Line& extra, double partStart) {
  const double late = extra.nextPartStart() - partStart;
  if (late < -extraTolerance) {
    extra.lengthen(-late);
  } else if (late > extraTolerance) {
    (void)extra.shorten(late);  // what cannot be had now is had at the next seam
  }
}

Line* firstOf(std::vector<Line>& lines, Track::Kind kind) {
  const auto line = std::find_if(lines.begin(), lines.end(), [&](const Line& candidate) {
    return candidate.kind() == kind && candidate.hasTimescale();
  });
  return line == lines.end() ? nullptr : &*line;
}

void closeSeam(std::vector<Line>& lines, double soundTolerance) {
  Line* picture = firstOf(lines, Track::Kind::video);
  Line* sound = firstOf(lines, Track::Kind::audio);
  if (picture != nullptr && sound != nullptr) {
    bringTogether(*picture, *sound, soundTolerance);
  }
  const Line* leader = picture != nullptr ? picture : sound;
  for (Line& line : lines) {
    if (leader != nullptr && line.kind() == Track::Kind::other && line.hasTimescale()) {
      follow(line, leader->nextPartStart());
    }
  }
}

double soundToleranceOf(std::span<const Strand> strands) {
  for (const Strand& strand : strands) {
    if (strand.first().kind == Track::Kind::audio && strand.first().timescale != 0) {
      return toleranceFor(strand.first());
    }
  }
  return leastTolerance;
}

}  // namespace

void timePieces(std::span<const Part> parts, std::span<Strand> strands) {
  std::vector<Line> lines;
  lines.reserve(strands.size());
  for (const Strand& strand : strands) lines.emplace_back(parts, strand);
  const double soundTolerance = soundToleranceOf(strands);
  for (std::size_t part = 0; part < parts.size(); ++part) {
    for (Line& line : lines) line.layNextPiece();
    if (part + 1 < parts.size()) {
      closeSeam(lines, soundTolerance);
    }
  }
  for (std::size_t i = 0; i < lines.size(); ++i) strands[i].lengths = lines[i].takeLengths();
}

std::uint64_t tailThatGives(const SampleList& samples, std::uint64_t ticks) {
  std::uint64_t tail = 0;
  std::uint64_t time = 0;
  const SampleRuns runs = samples.runs();
  for (std::size_t i = runs.size(); i > 0 && tail < longestTail; --i) {
    const SampleRun run = runs[i - 1];
    const std::uint64_t each = run.first.duration;
    const std::uint64_t wanted = saturatingMultiply(ticks, 2) - time;
    const std::uint64_t needed =
        each == 0 ? run.count : std::min(run.count, wanted / each + (wanted % each != 0));
    const std::uint64_t taken = std::min(needed, longestTail - tail);
    tail += taken;
    time = saturatingAdd(time, saturatingMultiply(taken, each));
    if (time >= saturatingMultiply(ticks, 2)) {
      return tail;
    }
  }
  return tail == samples.size() && time > ticks ? tail : 0;
}

void appendLasting(SampleList& joined, const SampleList& piece, std::uint64_t delta,
                   std::uint64_t ticks) {
  const std::uint64_t before = piece.duration();
  std::uint64_t tail = 0;
  if (ticks != before && !piece.empty()) {
    tail = ticks > before ? 1 : tailThatGives(piece, before - ticks);
  }
  const std::uint64_t untouched = piece.size() - tail;
  for (const SampleRun& run : piece.runs()) {
    Sample sample = run.first;
    sample.offset += delta;
    joined.append(sample, std::min(run.count, untouched - std::min(untouched, run.start)));
  }

  std::uint64_t tailTime = 0;
  for (std::uint64_t i = untouched; i < piece.size(); ++i) tailTime += piece[i].duration;
  const std::uint64_t newTime =
      saturatingAdd(tailTime, ticks) - std::min(before, ticks) - (before - std::min(before, ticks));
  std::uint64_t gone = 0;
  std::uint64_t given = 0;
  for (std::uint64_t i = untouched; i < piece.size(); ++i) {
    Sample sample = piece[i];
    sample.offset += delta;
    gone += sample.duration;
    // Each sample ends at its share of the new time, so that roundings do not add up.
    const double share =
        i + 1 == piece.size() ? 1 : static_cast<double>(gone) / static_cast<double>(tailTime);
    const auto end = static_cast<std::uint64_t>(std::llround(share * static_cast<double>(newTime)));
    sample.duration = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(end - given, std::numeric_limits<std::uint32_t>::max()));
    given = end;
    joined.append(sample);
  }
}

}  // namespace tallowmark::ClipJoin
