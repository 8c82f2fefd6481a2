// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "MediaKit/Bitstream/OutputOrder.h"
#include "MediaKit/Bitstream/Reordering.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/WrittenRange.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Interleaving/PCMChannels.h"
#include "MediaKit/Sound/SamplingRate.h"
#include "MediaKit/Timing/FrameRate.h"
#include "MediaKit/Timing/MissingPictures.h"
#include "MediaKit/Timing/PicturePacing.h"
#include "MediaKit/Timing/RebuiltSound.h"
#include "MediaKit/Timing/RebuiltTelemetry.h"
#include "MediaKit/Timing/SilentSamples.h"
#include "MediaKit/Timing/SoundPacing.h"
#include "MediaKit/Timing/SoundStep.h"
#include "MediaKit/Timing/StatedClock.h"
#include "MediaKit/Video/FindMedia.h"
#include "MediaKit/Video/MediaStart.h"
#include "MediaKit/Video/RecordingFacts.h"
#include "MediaKit/Video/Teacher.h"
#include "MediaKit/Video/VideoRepair.h"
#include "MediaKit/Walk/PCMTracks.h"

namespace tallowmark::VideoRepair {

namespace {

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
  pace.samplingRate = samplingRateOf(*teacher.audio).value_or(0);
  pace.endLead = static_cast<double>(teacher.audio->duration()) / teacher.audio->timescale -
                 static_cast<double>(teacher.video->duration()) / teacher.video->timescale;
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

std::optional<StatedClocks> statedClocks(const EvidencedFindings& found, const Sources& from) {
  const Teacher& teacher = from.teacher;
  return StatedClocks::of(found.video, from.clip, *teacher.video, from.reference, teacher.format);
}

// Pictures that were recorded at another rate than the reference's last as long as sound tells, or
// where there is none their own parameter sets.
void adoptFrameRate(EvidencedFindings& found, const std::optional<SoundPace>& pace,
                    const Sources& from) {
  const Teacher& teacher = from.teacher;
  const double frame = pictureLength(found.video, *teacher.video);
  const auto clocks = statedClocks(found, from);
  const auto hasTaughtChannels = [&](double ratio) {
    return teacher.sound && hasChannelsOf(teacher.sound->pcm(), ratio, found.audio, from.clip);
  };
  std::optional<double> length;
  if (pace) {
    length = otherPictureLength(found, *pace, frame, teacher.blocks ? &*teacher.blocks : nullptr,
                                hasTaughtChannels,
                                clocks ? std::optional(clocks->ratio()) : std::nullopt);
  } else if (clocks && !hasVariableRate(*teacher.video)) {
    length = statedPictureLength(*clocks, frame);
  }
  if (length) {
    showFor(found.video, *length * teacher.video->timescale);
  }
}

// Sound that was recorded at another rate than the reference's is described so.
void adoptSamplingRate(const EvidencedFindings& found, Teacher& teacher, const ByteSource& clip,
                       const ByteSource& reference) {
  const auto pace = soundPace(found, teacher);
  const auto taught = pace ? samplingRateOf(*teacher.audio) : std::nullopt;
  if (!taught) {
    return;
  }
  const BlockLayout* blocks = teacher.blocks ? &*teacher.blocks : nullptr;
  const auto clocks = statedClocks(found, {clip, reference, teacher});
  const double stated = clocks ? clocks->ratio() : 1;
  const double frame = pictureLength(found.video, *teacher.video) * stated;
  const auto rate = otherSamplingRate(found, *pace, frame, *taught, blocks);
  for (Track& track : teacher.movie.tracks) {
    const bool isKept = track.kind == Track::Kind::audio && samplingRateOf(track) == taught;
    if (rate && isKept) setSamplingRate(track, *rate);
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
  pace.endLead.reset();
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
                                    bool variableRate, const StopToken& stop) {
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
  const bool isTold =
      read.tell == CountsTell::time || (read.tell == CountsTell::unknown && !variableRate);
  if (!found.losses.empty() && isTold) {
    read.missing = missingPictures(video, losses, read.order,
                                   {.countsAreTime = read.tell == CountsTell::time,
                                    .sequence = sequenceLength(from.teacher.video->samples),
                                    .isReordered = lessons.mostReordered > 0,
                                    .largestGap = largestGap(from.teacher.video->samples)});
  }
  return read;
}

// Takes out what lies where the reference has sound but does not sound like it, where order counts
// tell that a picture is missing there: it was that one.
void takeOutTornPictures(EvidencedFindings& found, const Sources& from, const StopToken& stop) {
  if (found.doubtful.empty()) {
    return;
  }
  EvidencedFindings torn = found;
  for (const DoubtfulSound& doubtful : found.doubtful) torn.losses.push_back(doubtful.frame);
  std::sort(torn.losses.begin(), torn.losses.end());
  torn.losses.erase(std::unique(torn.losses.begin(), torn.losses.end()), torn.losses.end());
  const auto order = findOrder(torn, from, hasVariableRate(*from.teacher.video), stop);
  const std::uint64_t cut = firstKeyframe(found.video);
  if (!order || !order->missing) {
    return;
  }
  SampleList sound;
  std::uint64_t done = 0;
  for (const DoubtfulSound& doubtful : found.doubtful) {
    const std::uint64_t place = doubtful.frame - std::min(doubtful.frame, cut);
    if (place == 0 || place > order->missing->decoded.size() ||
        order->missing->decoded[place - 1] == 0) {
      continue;
    }
    found.losses.push_back(doubtful.frame);
    found.unused += (doubtful.to - doubtful.from) * found.audio[doubtful.from].size;
    sound.append(found.audio.slice(done, doubtful.from));
    done = doubtful.to;
  }
  sound.append(found.audio.slice(done, found.audio.size()));
  found.audio = std::move(sound);
  std::sort(found.losses.begin(), found.losses.end());
  found.losses.erase(std::unique(found.losses.begin(), found.losses.end()), found.losses.end());
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

/// Makes the plan of a rebuilt clip, step by step.
class Rebuilding {
 public:
  Rebuilding(Teacher teacher, const ByteSource& source, const ByteSource& reference, Depth depth)
      : teacher_(std::move(teacher)), sources_{source, reference, teacher_}, depth_(depth) {}
  Rebuilding(const Rebuilding&) = delete;
  Rebuilding& operator=(const Rebuilding&) = delete;
  Rebuilding(Rebuilding&&) = delete;
  Rebuilding& operator=(Rebuilding&&) = delete;
  ~Rebuilding() = default;

  Plan plan(const Progress& progress, const StopToken& stop);

 private:
  void find(WalkProgress& walks, const StopToken& stop);
  void describe();
  void tellTime(const StopToken& stop);
  void makeSound();
  void keepPace();
  void layPictures();
  void laySound();
  Result finish();
  bool hasSound() const { return !sound_.tracks.empty() || !found_.audio.empty(); }

  Teacher teacher_;
  Sources sources_;
  Depth depth_;
  EvidencedFindings found_;
  /// Of the clip, as far as it is made; and as the reference describes it.
  Movie movie_;
  Movie described_;
  Track video_;
  std::optional<Track> audio_;
  std::optional<SoundPace> pace_;
  /// By how many seconds its pictures start later than the reference's.
  double late_ = 0;
  std::optional<FoundOrder> order_;
  RebuiltSound sound_;
  std::uint64_t soundGivenUp_ = 0;
  /// Those ahead of the first key picture, too.
  SampleList allPictures_;
};

void Rebuilding::find(WalkProgress& walks, const StopToken& stop) {
  const BoxReader reader(sources_.clip);
  const auto layout = MovieParser::layoutIfAny(reader);
  const bool hasMediaBox = !layout || !layout->mdats.empty();
  found_ = findMedia(sources_.clip, mediaStart(reader, depth_), teacher_, walks, stop);
  if (found_.video.empty()) {
    throw hasMediaBox ? MediaError::noVideo()
                      : MediaError::malformed("no media data (mdat) was found");
  }
  if (teacher_.mayBlend) {
    const std::uint64_t bytes = bytesOfPCM(found_);
    found_.unused += bytes;
    found_.undividedSound += bytes;
    giveUpPCM(found_);
  }
  if (depth_ == Depth::full) {
    takeOutTornPictures(found_, sources_, stop);
    adoptSamplingRate(found_, teacher_, sources_.clip, sources_.reference);
  }
}

void Rebuilding::describe() {
  movie_ = teacher_.movie;
  forgetTheRecording(movie_);
  for (Track& track : movie_.tracks) {
    if (teacher_.carried && &track == movie_.videoTrack()) {
      track.sampleEntry = teacher_.carried->sampleEntry;
      track.width = teacher_.carried->width;
      track.height = teacher_.carried->height;
    }
  }
  described_ = movie_;
  video_ = *movie_.videoTrack();
  video_.mediaStart = 0;
  video_.startDelay = 0;
  if (const Track* audio = movie_.audioTrack()) audio_ = *audio;
}

// How long pictures last, in which order they are shown, and how many are missing.
void Rebuilding::tellTime(const StopToken& stop) {
  pace_ = soundPace(found_, teacher_);
  if (pace_ || depth_ == Depth::full) adoptFrameRate(found_, pace_, sources_);
  if (pace_) {
    // Where nothing is lost, sound tells as much later.
    pace_->variableRate =
        pace_->variableRate ||
        (!found_.losses.empty() &&
         gainsOnPictures(found_, *pace_, pictureLength(found_.video, *teacher_.video)));
    late_ = lateStart(found_, *pace_, teacher_);
  }
  const bool variableRate = pace_ ? pace_->variableRate : hasVariableRate(*teacher_.video);
  if (depth_ == Depth::full) order_ = findOrder(found_, sources_, variableRate, stop);
  if (order_ && order_->missing) {
    holdForMissing(found_.video, firstKeyframe(found_.video), *order_->missing,
                   order_->pictureTicks);
    found_.areMissingTold = order_->missing->areAllTold;
  }
}

void Rebuilding::makeSound() {
  if (teacher_.blocks) {
    const FoundBlocks& blocks = found_.blocks;
    sound_ = rebuildSound(found_, movie_, *teacher_.blocks);
    soundGivenUp_ = blocks.unplaced + (sound_.tracks.empty() ? blocks.bytes : 0);
  } else if (audio_ && teacher_.sound) {
    const std::uint64_t before = bytesOfPCM(found_);
    keepInStep(found_, *teacher_.sound, video_.timescale, movie_.timescale, *audio_);
    soundGivenUp_ = before - bytesOfPCM(found_);
  }
}

// The pace that is left for the pictures once sound is in its place.
void Rebuilding::keepPace() {
  if (pace_ && !isWhole(found_)) {
    pace_ = audio_ ? paceOfRest(std::move(*pace_), found_, sound_, *audio_, movie_.timescale)
                   : std::nullopt;
  }
  if (!hasSound()) pace_.reset();
  if (pace_) pace_->lead.moveBy(late_);
}

// A movie begins on a key frame.
void Rebuilding::layPictures() {
  const std::uint64_t cut = firstKeyframe(found_.video);
  allPictures_ = found_.video;
  video_.samples = found_.video.slice(cut, found_.video.size());
  if (depth_ == Depth::full) {
    restoreOrder(video_, lossesBehind(cut, found_.losses), order_, pace_, sources_);
  }
  if (cut == 0) allPictures_ = video_.samples;
  movie_.tracks = {std::move(video_)};
}

void Rebuilding::laySound() {
  if (audio_ && !found_.audio.empty()) {
    sound_.tracks = rebuildPCM(found_, described_, std::move(*audio_));
  }
  for (Track& track : sound_.tracks) {
    if (!track.samples.empty()) {
      movie_.tracks.push_back(std::move(track));
    }
  }
}

Result Rebuilding::finish() {
  Result result;
  addSideTracks(movie_, teacher_, described_, found_.side,
                {allPictures_, firstKeyframe(found_.video), found_.losses}, result);
  if (hasSound() && depth_ == Depth::full) {
    startPicturesAt(movie_, pictureStart(teacher_.movie) + late_);
  }
  if (teacher_.sound) sound_.silence = fillHolds(movie_);
  count(movie_, found_, sound_, soundGivenUp_, result);
  result.audioDropped = teacher_.hasSound && found_.audioSeen && result.audioPackets == 0;
  result.orderRestored = order_.has_value();
  return result;
}

Plan Rebuilding::plan(const Progress& progress, const StopToken& stop) {
  WalkProgress walks(progress);
  find(walks, stop);
  describe();
  tellTime(stop);
  makeSound();
  keepPace();
  layPictures();
  laySound();
  const Result result = finish();
  const std::uint64_t mediaEnd = writtenRange(movie_).upper - sound_.silence.size();
  return {std::move(movie_),
          result,
          true,
          teacher_.hasOtherSettings(),
          {mediaEnd, std::move(sound_.silence)},
          walks.done()};
}

}  // namespace

Plan planRebuild(const ByteSource& source, const ByteSource& reference, const Progress& progress,
                 const StopToken& stop, Depth depth) {
  const BoxReader reader(reference);
  Movie movie = MovieParser::parse(reader);
  if (depth == Depth::full) MovieParser::readHandlerNames(reader, movie);
  return Rebuilding(learn(std::move(movie), reference, depth), source, reference, depth)
      .plan(progress, stop);
}

Plan planRebuildFrom(const Movie& known, const ByteSource& source, const Progress& progress,
                     const StopToken& stop) {
  constexpr Depth depth = Depth::full;
  return Rebuilding(learn(known, source, depth), source, source, depth).plan(progress, stop);
}

}  // namespace tallowmark::VideoRepair
