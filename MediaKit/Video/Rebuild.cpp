// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/EvidenceWalk.h"
#include "MediaKit/Video/ForeignSound.h"
#include "MediaKit/Video/FrameRate.h"
#include "MediaKit/Video/Interleaving.h"
#include "MediaKit/Video/MediaStart.h"
#include "MediaKit/Video/MediaWalk.h"
#include "MediaKit/Video/MissingPictures.h"
#include "MediaKit/Video/NALFormat.h"
#include "MediaKit/Video/OutputOrder.h"
#include "MediaKit/Video/PCMTracks.h"
#include "MediaKit/Video/ParameterFitting.h"
#include "MediaKit/Video/PicturePacing.h"
#include "MediaKit/Video/RebuiltSound.h"
#include "MediaKit/Video/RebuiltTelemetry.h"
#include "MediaKit/Video/RecordingFacts.h"
#include "MediaKit/Video/Reordering.h"
#include "MediaKit/Video/SilentSamples.h"
#include "MediaKit/Video/SoundPacing.h"
#include "MediaKit/Video/SoundStep.h"
#include "MediaKit/Video/StatedClock.h"
#include "MediaKit/Video/VideoRepair.h"
#include "MediaKit/Video/WrittenRange.h"

namespace tallowmark::VideoRepair {

namespace {

constexpr std::size_t samplesForHeaders = 600;
// Cameras have one or two; each costs a look at thousands of samples.
constexpr std::size_t mostOtherTracks = 4;

/// A good clip of the camera and what it teaches.
struct Teacher {
  Movie movie;
  const Track* video = nullptr;
  const Track* audio = nullptr;
  NALFormat format;
  std::optional<PCMLayout> pcm;
  std::optional<SoundLayout> sound;
  std::optional<BlockLayout> blocks;
  std::optional<StreamEvidence> evidence;
  std::vector<StreamEvidence> otherTracks;
  Turns turns;
  SideLessons side;
  /// Where it believes other settings than the reference's, the video track has the clip's own
  /// parameter sets, by which the reference's pictures make no sense.
  std::optional<ParameterFitting> fitting;

  bool hasOtherSettings() const { return fitting && fitting->hasOtherSettings(); }
};

// The largest frame that is looked for: well above the reference's largest, within reason.
std::size_t frameSizeLimit(std::uint32_t largestSample) {
  constexpr std::uint64_t least = std::uint64_t{1} << 20U;
  constexpr std::uint64_t most = std::uint64_t{64} << 20U;
  return static_cast<std::size_t>(
      std::clamp<std::uint64_t>(std::uint64_t{largestSample} * 4, least, most));
}

void learnStreams(Teacher& teacher, const ByteSource& reference) {
  teacher.format.learnHeaders(teacher.video->samples, reference, samplesForHeaders);
  teacher.evidence = StreamEvidence::learn(*teacher.video, reference, teacher.format);
  std::size_t others = 0;
  for (const Track& track : teacher.movie.tracks) {
    if (&track == teacher.video || track.kind != Track::Kind::video || others == mostOtherTracks) {
      continue;
    }
    ++others;
    const auto format = NALFormat::of(track.sampleEntry, track.codec);
    if (format && format->codec == teacher.format.codec &&
        format->lengthSize == teacher.format.lengthSize) {
      if (auto other = StreamEvidence::learn(track, reference, *format)) {
        teacher.otherTracks.push_back(std::move(*other));
      }
    }
  }
  if (!teacher.otherTracks.empty()) teacher.turns = turnsOf(teacher.movie, *teacher.video);
}

// `movie` is what is known of the reference.
Teacher learn(Movie movie, const ByteSource& reference, Depth depth) {
  Teacher teacher;
  teacher.movie = std::move(movie);
  // One that is cut short teaches what is there.
  for (Track& track : teacher.movie.tracks) {
    track.samples = track.samples.endingBy(reference.size());
  }
  teacher.video = teacher.movie.videoTrack();
  teacher.audio = teacher.movie.audioTrack();
  if (teacher.video == nullptr) {
    throw MediaError::unsupported("The reference clip has no video.");
  }
  const auto format = NALFormat::of(teacher.video->sampleEntry, teacher.video->codec);
  if (!format) {
    throw MediaError::unsupported("Repair supports H.264 and HEVC video. The reference clip uses " +
                                  teacher.video->codec.description() + ".");
  }
  teacher.format = *format;
  teacher.pcm = teacher.audio != nullptr ? PCMLayout::of(*teacher.audio) : std::nullopt;
  if (depth == Depth::basic) {
    teacher.format.learnHeaders(teacher.video->samples, reference, samplesForHeaders);
    return teacher;
  }
  learnStreams(teacher, reference);
  teacher.fitting.emplace(*teacher.video, reference, teacher.format);
  teacher.side = SideLessons::learn(teacher.movie, reference);
  if (teacher.audio != nullptr) {
    teacher.pcm = PCMLayout::ofEvenSamples(*teacher.audio);
    teacher.sound = SoundLayout::learn(teacher.movie, reference);
    teacher.blocks = BlockLayout::learn(teacher.movie, reference);
  }
  if (teacher.evidence && teacher.blocks) {
    teacher.evidence->expectSound(teacher.blocks->mostBytes());
  }
  return teacher;
}

// How long a rebuilt frame lasts: as most of the reference's do. Where these are not what its
// length is made of (some slow motion is timed by few long samples among many short ones), their
// mean.
std::uint32_t frameDuration(const Track& video) {
  const std::uint32_t typical = video.typicalDuration();
  const std::uint64_t mean =
      video.samples.empty() ? typical : video.duration() / video.samples.size();
  const bool isUsual = mean <= std::uint64_t{typical} * 2 && mean >= typical / 2;
  return isUsual || mean == 0 ? typical
                              : static_cast<std::uint32_t>(std::min<std::uint64_t>(
                                    mean, std::numeric_limits<std::uint32_t>::max()));
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

/// The progress of walks through one clip: each takes half of what those before left.
class WalkProgress {
 public:
  explicit WalkProgress(const Progress& progress) : progress_(progress) {}

  /// Of the next walk, which reports up to a half. This object must outlive it.
  Progress next() {
    const double from = std::exchange(done_, done_ + (1 - done_) / 2);
    return progress_ ? [this, from](double half) { progress_(from + half * (1 - from)); }
                     : Progress();
  }
  /// Where it stands once they are over.
  double done() const { return done_; }

 private:
  const Progress& progress_;
  double done_ = 0;
};

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

// Walks a clip, and again as long as a walk teaches what the reference could not.
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

OrderLessons orderLessons(const Teacher& teacher) {
  return {teacher.evidence ? teacher.evidence->format() : teacher.format,
          teacher.evidence ? teacher.evidence->parameterSets()
                           : ParameterSets::of(teacher.video->sampleEntry, teacher.format.codec),
          mostReordered(teacher.video->samples)};
}

// What the counts of the reference's own pictures tell.
CountsTell learnCounts(const Teacher& teacher, const ByteSource& reference,
                       const OrderLessons& lessons, const StopToken& stop) {
  constexpr std::uint64_t enough = 4000;
  Track video = *teacher.video;
  video.samples = video.samples.slice(0, std::min(video.samples.size(), enough));
  const auto order = teacher.hasOtherSettings()
                         ? std::nullopt
                         : outputOrder(video.samples, reference, lessons, {}, stop);
  return order ? whatCountsTell(video, order->intervals) : CountsTell::nothing;
}

// What the sound of a clip says of its pictures.
std::optional<SoundPace> soundPace(const EvidencedFindings& found, const Teacher& teacher) {
  if (teacher.audio == nullptr || teacher.audio->timescale == 0 || teacher.video->timescale == 0) {
    return std::nullopt;
  }
  SoundPace pace;
  pace.variableRate = hasVariableRate(*teacher.video);
  if (teacher.blocks && !found.blocks.empty()) {
    const double block =
        static_cast<double>(teacher.blocks->kinds.front().ticks) / teacher.audio->timescale;
    pace.anchors = soundAnchors(found, block);
    pace.seconds = static_cast<double>(found.blocks.tracks.front().size()) * block;
    pace.lead = teacher.blocks->lead;
    return pace;
  }
  if (teacher.sound && !found.audio.empty()) {
    pace.anchors = soundAnchors(found, 1.0 / teacher.audio->timescale);
    pace.seconds = static_cast<double>(found.audio.size()) / teacher.audio->timescale;
    pace.lead = teacher.sound->lead();
    return pace;
  }
  return std::nullopt;
}

// Seconds of a picture that was found.
double pictureLength(const SampleList& pictures, const Track& taught) {
  return static_cast<double>(pictures.duration()) / static_cast<double>(pictures.size()) /
         taught.timescale;
}

// By how many seconds the clip's pictures start later than the reference's. Where something is lost
// at the beginning, sound is put as far ahead of the picture as the reference's is.
double lateStart(const EvidencedFindings& found, const SoundPace& pace, const Teacher& teacher) {
  const std::uint64_t lossless = found.losses.empty() ? found.video.size() : found.losses.front();
  const double frame = pictureLength(found.video, *teacher.video);
  return lossless > firstKeyframe(found.video) ? lateStart(pace, frame, lossless) : 0;
}

/// What pictures and their reference are read from.
struct Sources {
  const ByteSource& clip;
  const ByteSource& reference;
  const Teacher& teacher;
};

// Pictures that were recorded at another rate than the reference's last as long as sound tells.
void adoptFrameRate(EvidencedFindings& found, const SoundPace& pace, const Sources& from) {
  const Teacher& teacher = from.teacher;
  const auto stated =
      statedRatio(found.video, from.clip, *teacher.video, from.reference, teacher.format);
  const auto length = otherPictureLength(found, pace, pictureLength(found.video, *teacher.video),
                                         teacher.blocks ? &*teacher.blocks : nullptr, stated);
  if (length) {
    showFor(found.video, *length * teacher.video->timescale);
  }
}

bool isWhole(const EvidencedFindings& found) {
  const bool isUntold = std::any_of(found.blocks.gaps.begin(), found.blocks.gaps.end(),
                                    [](const SoundGap& gap) { return gap.isUntold; });
  return found.losses.empty() && !isUntold && firstKeyframe(found.video) == 0;
}

// Where something is lost: what the sound that is left says of pictures of variable rate. At a
// constant rate they tell their time themselves. `audio`: the track that PCM will be in.
std::optional<SoundPace> paceOfRest(SoundPace pace, const EvidencedFindings& found,
                                    const RebuiltSound& sound, const Track& audio,
                                    std::uint32_t movieTimescale) {
  if (!pace.variableRate || audio.timescale == 0 || movieTimescale == 0) {
    return std::nullopt;
  }
  pace.anchors = sound.tracks.empty() ? soundAnchors(found, 1.0 / audio.timescale) : sound.anchors;
  const double delay = static_cast<double>(audio.startDelay) / movieTimescale;
  const std::uint64_t cut = firstKeyframe(found.video);
  std::vector<SoundAnchor> behindCut;
  for (const SoundAnchor& anchor : pace.anchors) {
    if (anchor.frame >= cut) behindCut.push_back({anchor.frame - cut, anchor.seconds + delay});
  }
  pace.anchors = std::move(behindCut);
  return pace.anchors.empty() ? std::nullopt : std::optional(std::move(pace));
}

/// In which order pictures are shown, from the first key frame on, and what is missing among them.
struct FoundOrder {
  PictureOrder order;
  CountsTell tell = CountsTell::nothing;
  std::optional<MissingPictures> missing;
  /// Of a picture behind which none is.
  std::uint32_t pictureTicks = 0;
};

// Nothing where the headers cannot be read.
std::optional<FoundOrder> findOrder(const EvidencedFindings& found, const Sources& from,
                                    const StopToken& stop) {
  const std::uint64_t cut = firstKeyframe(found.video);
  const SampleList video = found.video.slice(cut, found.video.size());
  const std::vector<std::uint64_t> losses = lossesBehind(cut, found.losses);
  const OrderLessons lessons = orderLessons(from.teacher);
  auto order = outputOrder(video, from.clip, lessons, losses, stop);
  if (!order) {
    return std::nullopt;
  }
  FoundOrder read{.order = std::move(*order),
                  .tell = learnCounts(from.teacher, from.reference, lessons, stop),
                  .pictureTicks = video.typicalDuration()};
  // Where the camera drops pictures that its counts do not skip, these tell nothing of time.
  const bool isTold = read.tell == CountsTell::time ||
                      (read.tell == CountsTell::unknown && !hasVariableRate(*from.teacher.video));
  if (!found.losses.empty() && isTold) {
    read.missing = missingPictures(video, losses, read.order,
                                   {.countsAreTime = read.tell == CountsTell::time,
                                    .sequence = sequenceLength(from.teacher.video->samples),
                                    .isReordered = lessons.mostReordered > 0,
                                    .largestGap = largestGap(from.teacher.video->samples)});
  }
  return read;
}

// Shows the pictures in the order their slice headers ask for, and where nothing is lost for as
// long as their counts or the sound tell.
void restoreOrder(Track& video, std::span<const std::uint64_t> losses,
                  const std::optional<FoundOrder>& found, const std::optional<SoundPace>& pace,
                  const Sources& from) {
  const bool isTold = found && found->missing && found->missing->areAllTold;
  if (found && losses.empty() && !isTold) {
    paceByCounts(video.samples, video.timescale, found->order.intervals, found->tell,
                 pace ? &*pace : nullptr);
  }
  if (pace && !isTold) {
    paceBySound(video.samples, video.timescale, *pace, losses,
                found ? decodingDelay(*from.teacher.video) : 0);
  }
  if (!found) {
    return;
  }
  // A reference without B-frames tells decoders not to wait for any.
  video.sampleEntry =
      allowingReordering(video.sampleEntry, from.teacher.format.codec, found->order.mostHeldBack);
  const std::int32_t smallest = smallestOffset(from.teacher.video->samples);
  if (isTold) {
    showInOrder(video, found->order.places,
                shownFor(video.samples, *found->missing, found->pictureTicks), smallest);
  } else {
    showInOrder(video, found->order.places, smallest);
  }
}

// Appends timecode and telemetry, in the reference's order, to a movie of picture and sound.
void addSideTracks(Movie& movie, const Teacher& teacher, const Movie& described,
                   const SideFindings& found, const PictureTimes& times, Result& result) {
  std::vector<std::pair<std::size_t, Track>> added;
  // The value names the first picture of all: without that it would be another's.
  if (found.timecode && times.cut == 0) {
    const TimecodePlace& place = *teacher.side.timecode;
    added.emplace_back(place.track,
                       rebuildTimecode(*found.timecode, described, place, movie.tracks.front()));
    referToTimecode(movie, teacher.movie, added.back().second.trackID);
    result.timecodeRestored = true;
  }
  if (!found.telemetry.empty()) {
    Track track = rebuildTelemetry(found, described, *teacher.side.telemetry, times);
    result.telemetrySamples = track.samples.size();
    if (!track.samples.empty()) {
      added.emplace_back(teacher.side.telemetry->track, std::move(track));
    }
  }
  std::sort(added.begin(), added.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [place, track] : added) {
    movie.tracks.push_back(std::move(track));
  }
}

// What became of all that was found. `soundGivenUp`: bytes.
void count(const Movie& movie, const EvidencedFindings& found, const RebuiltSound& sound,
           std::uint64_t soundGivenUp, Result& result) {
  result.videoFrames = movie.tracks.front().samples.size();
  result.audioPackets = movie.audioTrack() == nullptr ? 0 : movie.audioTrack()->samples.size();
  result.seconds = movie.seconds();
  result.unusedBytes = found.unused + soundGivenUp;
  result.unusedBy = {found.otherPictures, soundGivenUp + found.undividedSound, found.side.others,
                     found.sideTracks, 0};
  result.unusedBy.unknown = result.unusedBytes - result.unusedBy.total();
  result.soundBlocksFound = sound.found;
  result.soundBlocksLost = sound.lost;
  result.soundBlocksFilled = sound.filled;
}

Plan planBy(Teacher teacher, const ByteSource& source, const ByteSource& reference,
            const Progress& progress, const StopToken& stop, Depth depth) {
  const BoxReader reader(source);
  const auto layout = MovieParser::layoutIfAny(reader);
  const bool hasMediaBox = !layout || !layout->mdats.empty();
  WalkProgress walks(progress);
  EvidencedFindings found = findMedia(source, mediaStart(reader, depth), teacher, walks, stop);
  if (found.video.empty()) {
    throw hasMediaBox ? MediaError::noVideo()
                      : MediaError::malformed("no media data (mdat) was found");
  }

  Movie movie = teacher.movie;
  forgetTheRecording(movie);
  const Movie described = movie;
  Track video = *movie.videoTrack();
  video.mediaStart = 0;
  video.startDelay = 0;
  std::optional<Track> audio =
      movie.audioTrack() != nullptr ? std::optional(*movie.audioTrack()) : std::nullopt;
  std::optional<SoundPace> pace = soundPace(found, teacher);
  const Sources sources{source, reference, teacher};
  if (pace) adoptFrameRate(found, *pace, sources);
  const double late = pace ? lateStart(found, *pace, teacher) : 0;
  const auto order =
      depth == Depth::full ? findOrder(found, sources, stop) : std::optional<FoundOrder>();
  if (order && order->missing) {
    holdForMissing(found.video, firstKeyframe(found.video), *order->missing, order->pictureTicks);
    found.areMissingTold = order->missing->areAllTold;
  }
  std::uint64_t soundGivenUp = 0;
  RebuiltSound sound;
  if (teacher.blocks) {
    const FoundBlocks& blocks = found.blocks;
    sound = rebuildSound(found, movie, *teacher.blocks);
    soundGivenUp = blocks.unplaced + (sound.tracks.empty() ? blocks.bytes : 0);
  } else if (audio && teacher.sound) {
    const std::uint64_t before = bytesOfPCM(found);
    keepInStep(found, *teacher.sound, video.timescale, movie.timescale, *audio);
    soundGivenUp = before - bytesOfPCM(found);
  }
  const bool hasSound = !sound.tracks.empty() || !found.audio.empty();
  if (pace && !isWhole(found)) {
    pace =
        audio ? paceOfRest(std::move(*pace), found, sound, *audio, movie.timescale) : std::nullopt;
  }
  if (!hasSound) pace.reset();
  if (pace) pace->lead.moveBy(late);
  SampleList allPictures = found.video;
  // A movie begins on a key frame.
  const std::uint64_t cut = firstKeyframe(found.video);
  video.samples = found.video.slice(cut, found.video.size());
  if (depth == Depth::full) {
    restoreOrder(video, lossesBehind(cut, found.losses), order, pace, sources);
  }
  allPictures = cut == 0 ? video.samples : allPictures;
  movie.tracks = {std::move(video)};
  if (audio && !found.audio.empty()) {
    sound.tracks = rebuildPCM(found, described, std::move(*audio));
  }
  for (Track& track : sound.tracks) {
    if (!track.samples.empty()) {
      movie.tracks.push_back(std::move(track));
    }
  }

  Result result;
  addSideTracks(movie, teacher, described, found.side, {allPictures, cut, found.losses}, result);
  if (hasSound && depth == Depth::full) {
    startPicturesAt(movie, pictureStart(teacher.movie) + late);
  }
  if (teacher.sound) sound.silence = fillHolds(movie);
  const std::uint64_t mediaEnd = writtenRange(movie).upper - sound.silence.size();

  count(movie, found, sound, soundGivenUp, result);
  result.audioDropped = teacher.audio != nullptr && found.audioSeen && result.audioPackets == 0;
  result.orderRestored = order.has_value();
  return {std::move(movie),
          result,
          true,
          teacher.hasOtherSettings(),
          {mediaEnd, std::move(sound.silence)},
          walks.done()};
}

}  // namespace

Plan planRebuild(const ByteSource& source, const ByteSource& reference, const Progress& progress,
                 const StopToken& stop, Depth depth) {
  const BoxReader reader(reference);
  Movie movie = MovieParser::parse(reader);
  if (depth == Depth::full) MovieParser::readHandlerNames(reader, movie);
  return planBy(learn(std::move(movie), reference, depth), source, reference, progress, stop,
                depth);
}

Plan planRebuildFrom(const Movie& known, const ByteSource& source, const Progress& progress,
                     const StopToken& stop) {
  constexpr Depth depth = Depth::full;
  return planBy(learn(known, source, depth), source, source, progress, stop, depth);
}

}  // namespace tallowmark::VideoRepair
