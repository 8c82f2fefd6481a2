// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/FindMedia.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "MediaKit/Bitstream/CarriedSets.h"
#include "MediaKit/Walk/ForeignSound.h"
#include "MediaKit/Walk/MediaWalk.h"
#include "MediaKit/Walk/PCMTracks.h"

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

bool hasKey(const EvidencedFindings& found) {
  return std::any_of(found.video.begin(), found.video.end(),
                     [](const Sample& picture) { return picture.isSync; });
}

std::uint64_t usedBytes(const EvidencedFindings& found) {
  std::uint64_t used = found.blocks.bytes + bytesOfPCM(found);
  for (const Sample& picture : found.video) used += picture.size;
  return used;
}

// Whether most of the media is neither pictures nor sound that were found, though not behind a row
// of pictures that just ends; or no decoding can begin with any of them.
bool isMostLeft(const EvidencedFindings& found, std::uint64_t bytes) {
  constexpr std::uint64_t few = 50;
  constexpr std::uint64_t often = 8;
  const std::uint64_t pictures = found.video.size();
  const bool isBroken = pictures < few || found.losses.size() * often >= pictures;
  return !hasKey(found) || (isBroken && usedBytes(found) < bytes / 2);
}

// Describes the clip's pictures by the parameter sets that they bring along.
bool describeBy(Teacher& teacher, const CarriedSets& carried) {
  const NALFormat::Codec codec = teacher.format.codec;
  auto entry = carried.describe(teacher.sampleEntry(), codec);
  if (!entry) {
    return false;
  }
  const ParameterSets sets = carried.read(codec);
  const SequenceParameters& size = sets.sequences.begin()->second;
  teacher.carried = {std::move(*entry), size.shownWidth, size.shownHeight};
  teacher.evidence->goBy(sets);
  return true;
}

// Goes by parameter sets that the clip's pictures bring along, where they are not the reference's
// or stand behind delimiters where the reference has none. Says whether more may be found by that.
bool adoptCarried(Teacher& teacher, const std::optional<CarriedSets>& carried) {
  if (!carried) {
    return false;
  }
  const bool areOther = !carried->areIn(teacher.sampleEntry(), teacher.format.codec);
  const bool areUnexpected =
      teacher.evidence->hasDelimiters() && !teacher.evidence->expectsParameterSets();
  const bool isAnyNew = areOther ? describeBy(teacher, *carried) : areUnexpected;
  if (isAnyNew) teacher.evidence->allowOtherFraming();
  return isAnyNew;
}

/// Walks a clip, and again in other ways while that brings more.
class MediaSearch {
 public:
  MediaSearch(const ByteSource& source, std::uint64_t from, Teacher& teacher,
              WalkProgress& progress, const StopToken& stop)
      : source_(source), from_(from), teacher_(teacher), progress_(progress), stop_(stop) {}

  EvidencedFindings find();

 private:
  EvidencedFindings walk();
  bool isFarMore(const EvidencedFindings& more) const;
  bool walkAgain(const StreamEvidence& before);
  void doubtPCM();
  void doubtBlocks();
  void goByCarried();
  void allowFraming();
  bool adopt();

  const ByteSource& source_;
  std::uint64_t from_;
  Teacher& teacher_;
  WalkProgress& progress_;
  const StopToken& stop_;
  EvidencedFindings found_;
};

EvidencedFindings MediaSearch::walk() {
  EvidencedFindings found = walkMedia(source_, from_, teacher_, progress_.next(), stop_);
  found.video = found.video.endingBy(source_.size());
  return found;
}

// Another camera's pictures hardly ever have its key pictures among them, and what reads as
// pictures by chance makes little of what it stands in.
bool MediaSearch::isFarMore(const EvidencedFindings& more) const {
  constexpr std::uint64_t several = 8;
  constexpr std::uint64_t part = 8;
  const std::uint64_t pictures = found_.video.size();
  const std::uint64_t enough =
      hasKey(found_) ? 2 * pictures + several : std::max(pictures, several);
  if (more.video.size() < enough || !hasKey(more)) {
    return false;
  }
  const Sample first = more.video.front();
  const Sample last = more.video.back();
  return usedBytes(more) * part >= last.offset + last.size - first.offset;
}

// With evidence that was changed; where that does not bring far more it is as before again.
bool MediaSearch::walkAgain(const StreamEvidence& before) {
  EvidencedFindings more = walk();
  const bool pays = isFarMore(more);
  if (pays) {
    found_ = std::move(more);
  } else {
    teacher_.evidence = before;
  }
  return pays;
}

// Other sound than the reference's misleads the search for pictures, too.
void MediaSearch::doubtPCM() {
  const bool isDoubtful =
      teacher_.sound && hasHardlyAnyPCM(found_, teacher_) &&
      (areStrange(found_.gaps) || isForeign(found_, teacher_, *teacher_.sound, source_));
  if (!isDoubtful) {
    return;
  }
  auto sound = std::exchange(teacher_.sound, std::nullopt);
  auto evidence = teacher_.evidence;
  teacher_.evidence->forgetGaps();
  EvidencedFindings silent = walk();
  // Pictures that only the reference's sound leads to show that it is there.
  const bool isAsFull = silent.video.size() * 10 >= found_.video.size() * 9;
  if (isAsFull && isForeign(silent, teacher_, *sound, source_)) {
    found_ = std::move(silent);
  } else {
    teacher_.sound = std::move(sound);
    teacher_.evidence = std::move(evidence);
  }
}

// The same where the reference's is compressed and the clip's is not: hardly any picture is
// followed by what it should be.
void MediaSearch::doubtBlocks() {
  constexpr std::uint64_t hardlyAny = 10;
  if (!teacher_.blocks || found_.blocks.bytes * hardlyAny >= found_.unused) {
    return;
  }
  const StreamEvidence before = *teacher_.evidence;
  auto blocks = std::exchange(teacher_.blocks, std::nullopt);
  teacher_.evidence->forgetGaps();
  if (!walkAgain(before)) teacher_.blocks = std::move(blocks);
}

// The reference may have been recorded in another mode, or by another camera of its kind.
void MediaSearch::goByCarried() {
  const StreamEvidence before = *teacher_.evidence;
  const auto carried = CarriedSets::search(source_, from_, teacher_.format, stop_);
  if (adoptCarried(teacher_, carried) && !walkAgain(before)) {
    teacher_.carried.reset();
  }
}

void MediaSearch::allowFraming() {
  const StreamEvidence before = *teacher_.evidence;
  teacher_.evidence->allowOtherFraming();
  (void)walkAgain(before);
}

// What the pictures found teach; whether more may be found by that.
bool MediaSearch::adopt() {
  const auto carried = CarriedSets::of(found_.video, source_, teacher_.format);
  return adoptCarried(teacher_, carried) || adoptSettings(teacher_, found_, source_, stop_) ||
         adoptKinds(teacher_, found_, source_);
}

EvidencedFindings MediaSearch::find() {
  found_ = walk();
  if (!teacher_.evidence) {
    return std::move(found_);
  }
  const std::uint64_t bytes = source_.size() - std::min(from_, source_.size());
  doubtPCM();
  if (isMostLeft(found_, bytes)) {
    goByCarried();
    if (isMostLeft(found_, bytes)) allowFraming();
    doubtPCM();
  }
  doubtBlocks();
  constexpr int mostWalks = 4;
  for (int walks = 1; walks < mostWalks && adopt(); ++walks) {
    EvidencedFindings more = walk();
    if (more.video.size() < found_.video.size()) {
      break;
    }
    found_ = std::move(more);
  }
  return std::move(found_);
}

}  // namespace

EvidencedFindings findMedia(const ByteSource& source, std::uint64_t from, Teacher& teacher,
                            WalkProgress& progress, const StopToken& stop) {
  return MediaSearch(source, from, teacher, progress, stop).find();
}

}  // namespace tallowmark::VideoRepair
