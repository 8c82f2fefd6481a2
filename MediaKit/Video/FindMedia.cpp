// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/FindMedia.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include "MediaKit/Walk/ForeignSound.h"
#include "MediaKit/Walk/MediaWalk.h"

namespace tallowmark::VideoRepair {

namespace {

// The largest frame that is looked for: well above the reference's largest, within reason.
std::size_t frameSizeLimit(std::uint32_t largestSample) {
  constexpr std::uint64_t least = std::uint64_t{1} << 20U;
  constexpr std::uint64_t most = std::uint64_t{64} << 20U;
  return static_cast<std::size_t>(
      std::clamp<std::uint64_t>(std::uint64_t{largestSample} * 4, least, most));
}

EvidencedFindings walkMedia(const ByteSource& source, std::uint64_t from, const Teacher& teacher,
                            const Progress& progress, const StopToken& stop) {
  const std::size_t maxFrameSize = frameSizeLimit(teacher.video->samples.largestSize());
  const std::uint32_t duration = frameDuration(*teacher.video);
  if (!teacher.evidence) {
    EvidencedFindings found;
    static_cast<Findings&>(found) =
        walk(source, from, teacher.format, teacher.pcm, teacher.video->typicalDuration(),
             maxFrameSize, progress, stop);
    return found;
  }
  const WalkLessons lessons{&*teacher.evidence,
                            teacher.otherTracks,
                            teacher.turns,
                            teacher.sound ? &*teacher.sound : nullptr,
                            teacher.blocks ? &*teacher.blocks : nullptr,
                            teacher.sound && teacher.beside ? &*teacher.beside : nullptr,
                            duration,
                            maxFrameSize,
                            teacher.side};
  return walkByEvidence(source, from, lessons, progress, stop);
}

// What the pictures found teach of their stream, as a good clip would.
std::optional<StreamEvidence> learnFrom(const SampleList& found, const Teacher& teacher,
                                        const ByteSource& source) {
  Track own = *teacher.video;
  own.samples = found;
  return StreamEvidence::learn(own, source, teacher.format);
}

// Where the clip's pictures were coded with other settings than the reference's: takes these for
// the clip's. Says whether pictures are numbered in another way by them, so that more may be found.
bool adoptSettings(Teacher& teacher, const EvidencedFindings& found, const ByteSource& source,
                   const StopToken& stop) {
  auto fitted = teacher.fitting->fit(found.video, source, found.losses, stop);
  if (!fitted) {
    return false;
  }
  for (Track& track : teacher.movie.tracks) {
    if (&track == teacher.video) track.sampleEntry = std::move(fitted->sampleEntry);
  }
  if (!fitted->isRenumbered) {
    return false;
  }
  if (const auto own = learnFrom(found.video, teacher, source)) {
    teacher.evidence->adoptSets(*own);
    teacher.evidence->adoptSlices(*own);
  }
  return true;
}

// Whether pictures may be missing: there are losses, or more follows the last one than sound.
bool lacksPictures(const EvidencedFindings& found, const StreamEvidence& evidence,
                   const ByteSource& source) {
  if (found.video.empty() || !found.losses.empty()) {
    return !found.video.empty();
  }
  const Sample last = found.video.back();
  return source.size() - last.offset - last.size > 2 * evidence.largestGap();
}

// Behind losses pictures of kinds that the reference does not have are hard to find, until the clip
// itself shows that it has them; so are those that lie further apart.
bool adoptKinds(Teacher& teacher, const EvidencedFindings& found, const ByteSource& source) {
  const auto own = lacksPictures(found, *teacher.evidence, source)
                       ? learnFrom(found.video, teacher, source)
                       : std::nullopt;
  const bool hasOtherSlices = own && teacher.evidence->adoptSlices(*own);
  const bool hasOtherGaps = own && teacher.evidence->adoptGaps(*own);
  return hasOtherSlices || hasOtherGaps;
}

// Whether what lies between the pictures found cannot be the reference's PCM sound.
bool isForeign(const EvidencedFindings& found, const Teacher& teacher, const SoundLayout& sound,
               const ByteSource& source) {
  const double second = static_cast<double>(sound.pcm().sampleSize) * teacher.audio->timescale;
  const double picture =
      static_cast<double>(frameDuration(*teacher.video)) / std::max(1U, teacher.video->timescale);
  return isForeignSound(found.gaps, second * picture, sound, source);
}

// Of compressed sound hardly anything fits, half of it at most. Where more does it is PCM, of a
// clip that others were written over.
bool hasHardlyAnyPCM(const EvidencedFindings& found, const Teacher& teacher) {
  constexpr double hardlyAny = 0.4;
  const double pictures = static_cast<double>(found.video.size()) * frameDuration(*teacher.video);
  return static_cast<double>(found.audio.size()) * teacher.video->timescale <
         pictures * teacher.audio->timescale * hardlyAny;
}

// Whether most of the media is neither pictures nor blocks of sound that were found.
bool isMostLeft(const EvidencedFindings& found, std::uint64_t bytes) {
  std::uint64_t used = found.blocks.bytes;
  for (const Sample& picture : found.video) used += picture.size;
  return used < bytes / 2;
}

// Walks once more with the evidence changed. Where that finds far more, both stay; another camera's
// pictures hardly ever have its key pictures among them.
bool findsFarMore(const std::function<EvidencedFindings()>& walk, Teacher& teacher,
                  EvidencedFindings& found, void (StreamEvidence::*change)()) {
  constexpr std::uint64_t farMore = 4;
  const auto evidence = teacher.evidence;
  ((*teacher.evidence).*change)();
  EvidencedFindings more = walk();
  const bool isFarMore = more.video.size() > farMore * found.video.size() &&
                         std::any_of(more.video.begin(), more.video.end(),
                                     [](const Sample& picture) { return picture.isSync; });
  if (isFarMore) {
    found = std::move(more);
  } else {
    teacher.evidence = evidence;
  }
  return isFarMore;
}

}  // namespace

EvidencedFindings findMedia(const ByteSource& source, std::uint64_t from, Teacher& teacher,
                            WalkProgress& progress, const StopToken& stop) {
  const auto walk = [&] {
    EvidencedFindings found = walkMedia(source, from, teacher, progress.next(), stop);
    found.video = found.video.endingBy(source.size());
    return found;
  };
  EvidencedFindings found = walk();
  if (!teacher.evidence) {
    return found;
  }
  // Other sound than the reference's misleads the search for pictures, too.
  if (teacher.sound && hasHardlyAnyPCM(found, teacher) &&
      (areStrange(found.gaps) || isForeign(found, teacher, *teacher.sound, source))) {
    auto sound = std::exchange(teacher.sound, std::nullopt);
    auto evidence = teacher.evidence;
    teacher.evidence->forgetGaps();
    EvidencedFindings silent = walk();
    // Pictures that only the reference's sound leads to show that it is there.
    const bool isAsFull = silent.video.size() * 10 >= found.video.size() * 9;
    if (isAsFull && isForeign(silent, teacher, *sound, source)) {
      found = std::move(silent);
    } else {
      teacher.sound = std::move(sound);
      teacher.evidence = std::move(evidence);
    }
  }
  // The same where the reference's is compressed and the clip's is not: hardly any picture is
  // followed by what it should be. Or pictures are framed in another way.
  const std::uint64_t bytes = source.size() - std::min(from, source.size());
  if (teacher.blocks && isMostLeft(found, bytes)) {
    auto blocks = std::exchange(teacher.blocks, std::nullopt);
    if (!findsFarMore(walk, teacher, found, &StreamEvidence::forgetGaps)) {
      teacher.blocks = std::move(blocks);
    }
  }
  if (isMostLeft(found, bytes)) {
    (void)findsFarMore(walk, teacher, found, &StreamEvidence::allowOtherFraming);
  }
  constexpr int mostWalks = 4;
  for (int walks = 1; walks < mostWalks; ++walks) {
    if (!adoptSettings(teacher, found, source, stop) && !adoptKinds(teacher, found, source)) {
      break;
    }
    EvidencedFindings more = walk();
    if (more.video.size() < found.video.size()) {
      break;
    }
    found = std::move(more);
  }
  return found;
}

}  // namespace tallowmark::VideoRepair
