// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/VideoRepair.h"

#include <algorithm>
#include <limits>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Container/WrittenRange.h"
#include "MediaKit/Timing/SilentSamples.h"
#include "MediaKit/Video/BlankStretches.h"
#include "MediaKit/Video/DamagedIndex.h"
#include "MediaKit/Video/IndexFit.h"
#include "MediaKit/Video/LostIndex.h"
#include "MediaKit/Video/LostPieces.h"
#include "MediaKit/Video/MovedRest.h"
#include "MediaKit/Video/TornPieces.h"

namespace tallowmark::VideoRepair {

namespace {

std::uint64_t samplesBehind(const Movie& movie, std::uint64_t end) {
  std::uint64_t missing = 0;
  for (const Track& track : movie.tracks) {
    for (const SampleRun& run : track.samples.runs()) {
      missing = saturatingAdd(missing, run.count - run.countEndingBy(end));
    }
  }
  return missing;
}

// Whether the index says that all pictures are in pieces behind it (ISO/IEC 14496-12 §8.8.1), and
// none is.
bool lacksPieces(const Movie& movie, const Box& moov, const ByteSource& source) {
  return movie.videoTrack()->samples.empty() && BoxReader(source).child(moov, "mvex").has_value();
}

Movie indexOf(const ByteSource& source) {
  const BoxReader reader(source);
  try {
    Movie movie = MovieParser::parse(reader);
    MovieParser::readHandlerNames(reader, movie);
    return movie;
  } catch (const MediaError&) {
    auto lost = LostIndex::find(source);
    if (!lost) throw;
    return std::move(*lost);
  }
}

// What of the index is to be gone by.
Movie readIndex(const ByteSource& source, Depth depth) {
  Movie movie = indexOf(source);
  if (depth == Depth::full) {
    TornPieces::mend(movie, source);
    IndexFit::cutToFit(movie, source);
    if (movie.lostPieces.empty()) BlankStretches::takeOut(movie, source);
  }
  return movie;
}

// What lies inside the file.
Plan trimmed(Movie movie, std::uint64_t fileSize) {
  delayLostStarts(movie);
  for (Track& track : movie.tracks) {
    track.samples = track.samples.endingBy(fileSize);
  }
  std::erase_if(movie.tracks, [](const Track& track) { return track.samples.empty(); });
  if (movie.videoTrack() == nullptr) {
    throw MediaError::noVideo();
  }
  Plan trimmed;
  Result& result = trimmed.result;
  result.videoFrames = movie.videoTrack()->samples.size();
  result.audioPackets = movie.audioTrack() == nullptr ? 0 : movie.audioTrack()->samples.size();
  result.seconds = movie.seconds();
  trimmed.movie = std::move(movie);
  return trimmed;
}

// Behind what is read of the clip itself.
std::uint64_t mediaEndOf(const Plan& rebuilt, const ByteSource& source) {
  return rebuilt.added.bytes.empty() ? source.size() : rebuilt.added.at;
}

// The rest of a clip, which has moved, is rebuilt by what its index teaches up to there.
Plan planWithMovedRest(const ByteSource& source, Movie movie, const Progress& progress,
                       const StopToken& stop) {
  const LostPiece rest = movie.lostPieces.front();
  double done = 0;
  try {
    Plan rebuilt = planRebuildFrom(movie, source, progress, stop);
    done = rebuilt.progressDone;
    if (goOnWithMoved(movie, rest.from, rebuilt.movie, mediaEndOf(rebuilt, source))) {
      const Movie& whole = rebuilt.movie = std::move(movie);
      const Track* sound = whole.audioTrack();
      rebuilt.result.videoFrames = whole.videoTrack()->samples.size();
      rebuilt.result.audioPackets = sound == nullptr ? 0 : sound->samples.size();
      rebuilt.result.seconds = whole.seconds();
      rebuilt.rebuilt = false;
      return rebuilt;
    }
  } catch (const MediaError&) {
    // There is too little left to learn from.
  }
  Plan left = trimmed(std::move(movie), source.size());
  left.result.unusedBytes = left.result.unusedBy.unknown = rest.to - rest.from;
  left.progressDone = done;
  return left;
}

// Lost sound becomes silence: players may go on with the next block at once.
void fillSound(Plan& plan, const ByteSource& source) {
  const std::uint64_t mediaEnd = writtenRange(plan.movie).upper;
  FilledSilence silence = fillLostSound(plan.movie, source);
  if (silence.bytes.empty()) return;
  plan.added = {mediaEnd, std::move(silence.bytes)};
  Result& result = plan.result;
  if (silence.blocks > 0) {
    result.soundBlocksFound = result.audioPackets;
    result.soundBlocksLost = result.soundBlocksFilled = silence.blocks;
  }
  result.audioPackets = plan.movie.audioTrack()->samples.size();
}

// The pieces of a recording whose index is lost are rebuilt by what the others teach: no clip can
// be more like it.
Plan planWithLostPieces(const ByteSource& source, Movie movie, const Progress& progress,
                        const StopToken& stop) {
  std::uint64_t lost = 0;
  for (const LostPiece& piece : movie.lostPieces) lost += piece.to - piece.from;
  double done = 0;
  try {
    Plan rebuilt = planRebuildFrom(movie, source, progress, stop);
    done = rebuilt.progressDone;
    const std::uint64_t mediaEnd = mediaEndOf(rebuilt, source);
    lost -= std::min(lost, fillLostPieces(movie, std::move(rebuilt.movie), mediaEnd));
  } catch (const MediaError&) {
    // There is too little left to learn from.
  }
  Plan filled = trimmed(std::move(movie), source.size());
  filled.result.unusedBytes = lost;
  filled.result.unusedBy.unknown = lost;
  filled.progressDone = done;
  fillSound(filled, source);
  return filled;
}

// What is blank comes back by nothing.
Plan planWithBlanks(const ByteSource& source, Movie movie) {
  std::uint64_t lost = 0;
  for (const LostPiece& piece : movie.lostPieces) lost += piece.to - piece.from;
  Plan left = trimmed(std::move(movie), source.size());
  left.result.unusedBytes = left.result.unusedBy.unknown = lost;
  fillSound(left, source);
  return left;
}

}  // namespace

std::uint64_t UnusedBytes::total() const {
  std::uint64_t sum = otherPictures + sound + sideTracks + unknown;
  for (const auto& [track, bytes] : byTrack) {
    sum += bytes;
  }
  return sum;
}

Diagnosis diagnose(const ByteSource& source, Depth depth) {
  const BoxReader reader(source);
  const auto layout = MovieParser::layoutIfAny(reader);
  if (layout && layout->moov) {
    return diagnose(MovieParser::parseMoov(*layout->moov, reader, {}), *layout->moov, source,
                    depth);
  }
  if (const auto movie = LostIndex::find(source)) {
    const bool fitsNowhere = depth == Depth::full && !TornPieces::isMended(*movie, source) &&
                             IndexFit::endOfFit(*movie, source) == 0;
    return fitsNowhere ? Diagnosis(MissingIndex{})
                       : Diagnosis(Truncated{samplesBehind(*movie, source.size())});
  }
  return layout || LostIndex::holdsPictures(source) ? Diagnosis(MissingIndex{})
                                                    : Diagnosis(NotAMovie{});
}

Diagnosis diagnose(const Movie& movie, const Box& moov, const ByteSource& source, Depth depth) {
  if (movie.videoTrack() == nullptr) {
    return MissingIndex{};
  }
  if (depth == Depth::full) {
    if (lacksPieces(movie, moov, source)) return MissingIndex{};
    if (DamagedIndex::isDamaged(movie, moov, source)) return MissingIndex{};
    if (TornPieces::isMended(movie, source)) return Truncated{0};
    if (const auto end = IndexFit::endOfFit(movie, source)) {
      return *end == 0 ? Diagnosis(MissingIndex{}) : Diagnosis(Truncated{0});
    }
  }
  const std::uint64_t behind = samplesBehind(movie, source.size());
  const bool mayHaveBlanks = depth == Depth::full && movie.lostPieces.empty();
  const auto blank = mayHaveBlanks ? BlankStretches::missingIn(movie, source) : std::nullopt;
  const std::uint64_t missing = saturatingAdd(blank.value_or(0), behind);
  if (!movie.lostPieces.empty()) {
    return movie.videoTrack()->samples.empty() ? Diagnosis(MissingIndex{})
                                               : Diagnosis(Truncated{missing});
  }
  return missing == 0 && !blank ? Diagnosis(Healthy{}) : Diagnosis(Truncated{missing});
}

bool isBlank(const ByteSource& source) {
  return BlankStretches::isAllOf(indexOf(source), source);
}

Plan plan(const ByteSource& source, const ByteSource* reference, const Progress& progress,
          const StopToken& stop, Depth depth) {
  const Diagnosis diagnosis = diagnose(source, depth);
  if (std::holds_alternative<NotAMovie>(diagnosis)) {
    throw MediaError::notAMovie();
  }
  if (!std::holds_alternative<MissingIndex>(diagnosis)) {
    Movie movie = readIndex(source, depth);
    if (movie.lostPieces.empty() || depth == Depth::basic) {
      return trimmed(std::move(movie), source.size());
    }
    if (movie.lostPieces.front().isBlank) return planWithBlanks(source, std::move(movie));
    return movie.lostPieces.front().isMoved
               ? planWithMovedRest(source, std::move(movie), progress, stop)
               : planWithLostPieces(source, std::move(movie), progress, stop);
  }
  if (reference == nullptr) {
    throw MediaError::unsupported(
        "This clip's index is missing. Add a good clip recorded on the same camera with the same "
        "settings, and Repair will rebuild it.");
  }
  return planRebuild(source, *reference, progress, stop, depth);
}

Plan planTrim(const ByteSource& source) {
  return trimmed(readIndex(source, Depth::basic), source.size());
}

void write(const Plan& plan, const ByteSource& source, FileSink& destination,
           const Progress& progress, const StopToken& stop) {
  ByteRange range = writtenRange(plan.movie);
  if (!plan.added.bytes.empty()) range.upper = plan.added.at;
  MovieWriter::write(plan.movie, source, range, plan.added.bytes, destination, progress, stop);
}

Progress writingProgress(const Plan& plan, const Progress& progress) {
  const double done = plan.progressDone;
  return progress ? [=](double fraction) { progress(done + fraction * (1 - done)); } : progress;
}

Result repair(const ByteSource& source, const ByteSource* reference, FileSink& destination,
              const Progress& progress, const StopToken& stop, Depth depth) {
  const Plan repaired = plan(source, reference, progress, stop, depth);
  write(repaired, source, destination, writingProgress(repaired, progress), stop);
  return repaired.result;
}

Result trim(const ByteSource& source, FileSink& destination, const Progress& progress,
            const StopToken& stop) {
  const Plan trimmed = planTrim(source);
  write(trimmed, source, destination, progress, stop);
  return trimmed.result;
}

Result rebuild(const ByteSource& source, const ByteSource& reference, FileSink& destination,
               const Progress& progress, const StopToken& stop, Depth depth) {
  const Plan rebuilt = planRebuild(source, reference, progress, stop, depth);
  write(rebuilt, source, destination, writingProgress(rebuilt, progress), stop);
  return rebuilt.result;
}

}  // namespace tallowmark::VideoRepair
