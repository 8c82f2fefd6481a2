// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/SoundPacing.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <numeric>
#include <span>

#include "MediaKit/Interleaving/SoundArrivals.h"
#include "MediaKit/Timing/PicturePacing.h"
#include "MediaKit/Walk/PCMTracks.h"

namespace tallowmark::VideoRepair {

std::uint64_t firstKeyframe(const SampleList& video) {
  for (const SampleRun& run : video.runs()) {
    if (run.first.isSync) {
      return run.start;
    }
  }
  return 0;
}

std::uint32_t ticks(double seconds, std::uint32_t timescale) {
  constexpr double most = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::uint32_t>(std::clamp(seconds * timescale + 0.5, 0.0, most));
}

std::vector<double> startSeconds(const SampleList& samples, std::uint32_t timescale) {
  std::vector<double> starts{0};
  starts.reserve(static_cast<std::size_t>(samples.size()) + 1);
  std::uint64_t time = 0;
  for (const Sample& sample : samples) {
    time += sample.duration;
    starts.push_back(static_cast<double>(time) / timescale);
  }
  return starts;
}

bool ratesAgree(const EvidencedFindings& found, const SoundLead& lead, double pictures,
                double sound, double soundTick) {
  constexpr double tooShortToTell = 2;
  constexpr double tooShortToGoBy = 1;
  const auto agree = [](double picturesThen, double soundThen) {
    return soundThen < picturesThen * 1.6 && soundThen > picturesThen * 0.6;
  };
  if (pictures < tooShortToTell || agree(pictures, sound)) {
    return true;
  }
  const auto anchors = soundAnchors(found, soundTick);
  if (anchors.empty()) {
    return false;
  }
  const double frame = pictures / static_cast<double>(found.video.size());
  const double due = static_cast<double>(anchors.back().frame) * frame + lead.usual;
  return due >= tooShortToGoBy && agree(due, anchors.back().seconds);
}

SampleList withHolds(const SampleList& samples, const std::vector<Hold>& holds) {
  SampleList held;
  std::uint64_t done = 0;
  for (const Hold& hold : holds) {
    if (hold.sample < done) {
      continue;
    }
    held.append(samples.slice(done, hold.sample));
    Sample longer = samples[hold.sample];
    longer.duration += hold.extra;
    held.append(longer);
    done = hold.sample + 1;
  }
  held.append(samples.slice(done, samples.size()));
  return held;
}

namespace {

// Number of the list's samples that are stored before a position of the file.
std::uint64_t storedBefore(const SampleList& samples, std::uint64_t offset) {
  const auto& runs = samples.runs();
  const auto behind = std::partition_point(
      runs.begin(), runs.end(), [&](const SampleRun& run) { return run.first.offset < offset; });
  return behind == runs.begin() ? 0 : std::prev(behind)->start + std::prev(behind)->count;
}

// Of more the mean would be surer, but cameras may let sound run ahead slowly.
constexpr std::size_t anchorsEnough = 4;

double meanOf(std::span<const double> leads) {
  return std::accumulate(leads.begin(), leads.end(), 0.0) / static_cast<double>(leads.size());
}

// Seconds of nearly every chunk of sound between pictures of which nothing is lost; 0 where they
// differ.
double chunkOf(const std::vector<SoundAnchor>& anchors, const std::vector<std::uint64_t>& losses) {
  std::vector<double> chunks;
  for (std::size_t i = 1; i < anchors.size(); ++i) {
    const auto loss = std::lower_bound(losses.begin(), losses.end(), anchors[i - 1].frame);
    if (loss == losses.end() || *loss > anchors[i].frame) {
      chunks.push_back(anchors[i].seconds - anchors[i - 1].seconds);
    }
  }
  return usualChunk(std::move(chunks));
}

/// Works out, loss by loss, what is held for how long. A picture right behind sound is an anchor:
/// however long chunks are, sound is about as far ahead of each of them.
class Pacer {
 public:
  Pacer(EvidencedFindings& found, const SoundLayout& layout, std::uint32_t videoTimescale,
        std::uint32_t audioTimescale);

  double frameSeconds() const { return frame_; }

  /// Seconds of sound that go with the pictures ahead of the key frame; negative where sound is
  /// lost at its start.
  double surplusAtStart(std::uint64_t key);

  void holdBehindLosses(std::uint64_t key);

  /// Seconds of sound that are lost ahead of all that is left.
  double silentStart() const { return silentStart_; }

 private:
  /// How far sound is ahead of the picture at an anchor, as the samples stand in the file.
  struct Anchor {
    std::uint64_t frame = 0;
    double lead = 0;
  };
  using Loss = std::vector<std::uint64_t>::const_iterator;

  bool isRightBehind(const SoundAnchor& anchor) const;
  std::vector<double> leadsFrom(std::uint64_t frame, Loss end) const;
  void goTo(std::uint64_t frame);
  bool isSteady() const;
  double surplusBehind(std::span<const double> leads) const;
  double tolerance(std::size_t anchors) const;
  double unexplained(std::uint64_t frame) const;
  std::uint64_t soundIn(std::uint64_t frame) const;
  std::uint64_t placeOfSilence(std::span<const std::uint64_t> losses) const;
  double lostSound(std::uint64_t frame, double surplus) const;
  double lostOfChunks(std::span<const std::uint64_t> losses, double about) const;
  bool fallSilent(std::span<const std::uint64_t> losses, double seconds);
  bool isBelievable(double surplus, double tolerance) const;
  bool correct(std::span<const std::uint64_t> losses, double surplus);
  bool fallSilentAt(std::uint64_t frame, double seconds);

  EvidencedFindings& found_;
  const SoundLead& lead_;
  std::uint32_t videoTimescale_;
  std::uint32_t audioTimescale_;
  double frame_;
  std::vector<double> starts_;
  std::vector<Anchor> anchors_;
  /// Seconds of a chunk of sound, where they are alike; else 0.
  double chunk_ = 0;
  /// The next anchor, and how far sound was ahead at the last ones, as they will be shown.
  std::size_t next_ = 0;
  std::deque<double> recent_;
  /// Where the first of them had it.
  double usual_;
  double corrected_ = 0;
  double silentStart_ = 0;
  std::vector<Hold> videoHolds_;
  std::vector<Hold> audioHolds_;
};

Pacer::Pacer(EvidencedFindings& found, const SoundLayout& layout, std::uint32_t videoTimescale,
             std::uint32_t audioTimescale)
    : found_(found),
      lead_(layout.leadBehindSound()),
      videoTimescale_(videoTimescale),
      audioTimescale_(audioTimescale),
      frame_(static_cast<double>(found.video.typicalDuration()) / videoTimescale),
      starts_(startSeconds(found.video, videoTimescale)),
      usual_(lead_.middle) {
  const std::vector<SoundAnchor> all = soundAnchors(found, 1.0 / audioTimescale);
  chunk_ = chunkOf(all, found.losses);
  if (chunk_ == 0) chunk_ = layout.usualChunk();
  if (chunk_ < 2 * frame_) chunk_ = 0;
  for (const SoundAnchor& anchor : all) {
    const bool isLoss = std::binary_search(found.losses.begin(), found.losses.end(), anchor.frame);
    if (!isLoss || isRightBehind(anchor)) {
      // What stands ahead of the first picture may be more than is usual.
      const double more = anchor.frame == 0 ? lead_.first - lead_.middle : 0;
      anchors_.push_back({anchor.frame, anchor.seconds - starts_[anchor.frame] - more});
    }
  }
}

// What of a chunk is left in a loss tells only where it ends.
bool Pacer::isRightBehind(const SoundAnchor& anchor) const {
  const std::uint64_t at = found_.video[anchor.frame].offset;
  const std::uint64_t sound = storedBefore(found_.audio, at);
  const Sample last = sound > 0 ? found_.audio[sound - 1] : Sample{};
  return last.offset + last.size == at;
}

// The leads at the first anchors from a picture on, up to a loss.
std::vector<double> Pacer::leadsFrom(std::uint64_t frame, Loss end) const {
  const std::uint64_t until = end != found_.losses.end() ? *end : found_.video.size();
  auto anchor = std::partition_point(anchors_.begin(), anchors_.end(),
                                     [&](const Anchor& before) { return before.frame < frame; });
  std::vector<double> leads;
  for (; anchor != anchors_.end() && anchor->frame < until && leads.size() < anchorsEnough;
       ++anchor) {
    leads.push_back(anchor->lead);
  }
  return leads;
}

// A single anchor is as far off as anchors swing; of many the mean is sure.
double Pacer::tolerance(std::size_t anchors) const {
  const double swing = lead_.mostlyMost - lead_.mostlyLeast;
  return frame_ / 2 + swing / static_cast<double>(std::max<std::size_t>(anchors, 1));
}

double Pacer::surplusAtStart(std::uint64_t key) {
  double surplus = static_cast<double>(key) * frame_;
  const auto behind = std::upper_bound(found_.losses.begin(), found_.losses.end(), key);
  if (behind != found_.losses.begin()) {
    const std::vector<double> leads = leadsFrom(key, behind);
    const double stored = surplus + (leads.empty() ? lead_.middle - surplus : meanOf(leads));
    surplus = stored - lead_.middle;
    if (std::abs(surplus) <= tolerance(leads.size()) || (surplus < 0 && -surplus <= frame_)) {
      surplus = 0;
    }
  }
  corrected_ = surplus - static_cast<double>(key) * frame_;
  return surplus;
}

void Pacer::goTo(std::uint64_t frame) {
  for (; next_ < anchors_.size() && anchors_[next_].frame < frame; ++next_) {
    recent_.push_back(anchors_[next_].lead - corrected_);
    if (recent_.size() > anchorsEnough) recent_.pop_front();
  }
}

// Where pictures do not last as long as the reference's, only the nearest anchors tell.
bool Pacer::isSteady() const {
  const auto [least, most] = std::minmax_element(recent_.begin(), recent_.end());
  return recent_.empty() || *most - *least <= lead_.mostlyMost - lead_.mostlyLeast + 2 * frame_;
}

double Pacer::surplusBehind(std::span<const double> leads) const {
  if (!isSteady()) {
    return leads.front() - corrected_ - usual_;
  }
  const std::vector<double> recent(recent_.begin(), recent_.end());
  return meanOf(leads) - corrected_ - (recent.empty() ? usual_ : meanOf(recent));
}

// Samples of sound that are left in the loss ahead of a picture.
std::uint64_t Pacer::soundIn(std::uint64_t frame) const {
  return storedBefore(found_.audio, found_.video[frame].offset) -
         storedBefore(found_.audio, found_.video[frame - 1].offset);
}

// Bytes of the loss ahead of a picture that are no sound.
double Pacer::unexplained(std::uint64_t frame) const {
  const Sample last = found_.video[frame - 1];
  const auto bytes = static_cast<double>(found_.video[frame].offset - last.offset - last.size);
  return std::max(1.0, bytes - static_cast<double>(soundIn(frame) * found_.audio.front().size));
}

// Of several losses that which left less of a chunk than there was, or is the largest.
std::uint64_t Pacer::placeOfSilence(std::span<const std::uint64_t> losses) const {
  const auto rank = [&](std::uint64_t frame) {
    const double left = static_cast<double>(soundIn(frame)) / audioTimescale_;
    return std::pair(left > 0 && left < chunk_ - frame_, unexplained(frame));
  };
  return *std::max_element(losses.begin(), losses.end(),
                           [&](auto a, auto b) { return rank(a) < rank(b); });
}

// Seconds of sound that are lost ahead of a picture where sound gained `surplus` on the pictures.
// Chunks that are alike tell what was lost with as many pictures, too.
double Pacer::lostSound(std::uint64_t frame, double surplus) const {
  const double least = std::max(0.0, -surplus);
  if (chunk_ == 0) {
    return least;
  }
  const double left = static_cast<double>(soundIn(frame)) / audioTimescale_;
  const double chunks = std::ceil((left + least - frame_ / 2) / chunk_);
  const double lost = chunks * chunk_ - left;
  return lost + surplus > frame_ / 2 ? lost : least;
}

// What of `about` so many seconds losses took, to the sample, where chunks are alike.
double Pacer::lostOfChunks(std::span<const std::uint64_t> losses, double about) const {
  if (chunk_ == 0) {
    return about;
  }
  double left = 0;
  for (const std::uint64_t frame : losses) {
    left += static_cast<double>(soundIn(frame)) / audioTimescale_;
  }
  const double lost = std::round((left + about) / chunk_) * chunk_ - left;
  return lost >= 0 ? lost : about;
}

// Holds the sound behind what is left of it at the end of the picture before, or else ahead of it.
bool Pacer::fallSilentAt(std::uint64_t frame, double seconds) {
  const Sample last = found_.video[frame - 1];
  const std::uint64_t end = last.offset + last.size;
  const std::uint64_t behind = storedBefore(found_.audio, found_.video[frame].offset);
  std::uint64_t sound = storedBefore(found_.audio, end);
  if (sound < behind && found_.audio[sound].offset == end) {
    const auto& runs = found_.audio.runs();
    const auto next = std::partition_point(
        runs.begin(), runs.end(), [&](const SampleRun& run) { return run.start <= sound; });
    const SampleRun head = *std::prev(next);
    sound = head.start + head.count;
  }
  if (sound > 0) {
    audioHolds_.push_back({sound - 1, ticks(seconds, audioTimescale_)});
  }
  return sound > 0;
}

// Each chunk of which some is left gets its rest; what else is lost goes where that is likeliest.
bool Pacer::fallSilent(std::span<const std::uint64_t> losses, double seconds) {
  const std::uint64_t place = placeOfSilence(losses);
  std::vector<std::pair<std::uint64_t, double>> silences;
  double placed = 0;
  for (const std::uint64_t frame : losses) {
    const double left = static_cast<double>(soundIn(frame)) / audioTimescale_;
    const double rest = left > 0 && frame != place ? chunk_ - left : 0;
    if (rest > frame_ / 2 && placed + rest <= seconds) {
      silences.emplace_back(frame, rest);
      placed += rest;
    }
  }
  silences.insert(std::upper_bound(silences.begin(), silences.end(), std::pair(place, 0.0)),
                  {place, seconds - placed});
  bool areHeld = true;
  for (const auto& [frame, silence] : silences) areHeld = fallSilentAt(frame, silence) && areHeld;
  return areHeld;
}

// Where pictures last until the next one was due, sound can only have lost something against them,
// unless more are missing than their counts tell.
bool Pacer::isBelievable(double surplus, double tolerance) const {
  constexpr double miscounted = 0.1;
  const double most = found_.areMissingTold ? lead_.most - lead_.least + miscounted : tolerance;
  return surplus < -tolerance || surplus > most;
}

// What pictures lost is shared out by the bytes of the losses.
bool Pacer::correct(std::span<const std::uint64_t> losses, double surplus) {
  const double silence =
      found_.areMissingTold ? std::max(0.0, -surplus) : lostSound(placeOfSilence(losses), surplus);
  if (silence > 0 && !fallSilent(losses, silence)) {
    if (!found_.areMissingTold) {
      return false;
    }
    silentStart_ += silence;
  }
  double bytes = 0;
  for (const std::uint64_t frame : losses) bytes += unexplained(frame);
  for (const std::uint64_t frame : losses) {
    const double share = unexplained(frame) / bytes;
    const std::uint32_t extra = ticks((surplus + silence) * share, videoTimescale_);
    if (extra > 0) videoHolds_.push_back({frame - 1, extra});
  }
  return true;
}

void Pacer::holdBehindLosses(std::uint64_t key) {
  const std::vector<std::uint64_t>& losses = found_.losses;
  auto loss = std::upper_bound(losses.begin(), losses.end(), key);
  const auto end = std::lower_bound(loss, losses.end(), found_.video.size());
  if (const auto leads = leadsFrom(key, loss); !leads.empty()) {
    usual_ = meanOf(leads) - corrected_;
  }
  while (loss != end) {
    goTo(*loss);
    const auto first = loss;
    if (next_ == anchors_.size()) {
      break;
    }
    loss = std::upper_bound(loss, end, anchors_[next_].frame);
    const std::vector<double> leads = leadsFrom(anchors_[next_].frame, loss);
    double surplus = surplusBehind(leads);
    const std::size_t sure = recent_.empty() ? 1 : std::min(leads.size(), recent_.size());
    if (!isBelievable(surplus, tolerance(sure))) {
      continue;
    }
    if (found_.areMissingTold && surplus < 0) surplus = -lostOfChunks({first, loss}, -surplus);
    if (correct({first, loss}, surplus)) {
      corrected_ += surplus;
    }
  }
  found_.video = withHolds(found_.video, videoHolds_);
  found_.audio = withHolds(found_.audio, audioHolds_);
  for (FoundPCM& other : found_.otherAudio) {
    other.samples = withHolds(other.samples, audioHolds_);
  }
}

}  // namespace

void keepInStep(EvidencedFindings& found, const SoundLayout& layout, std::uint32_t videoTimescale,
                std::uint32_t movieTimescale, Track& audio) {
  if (found.audio.empty() || videoTimescale == 0 || audio.timescale == 0) {
    return;
  }
  if (found.losses.empty() &&
      !ratesAgree(
          found, layout.lead(), static_cast<double>(found.video.duration()) / videoTimescale,
          static_cast<double>(found.audio.duration()) / audio.timescale, 1.0 / audio.timescale)) {
    giveUpPCM(found);
    return;
  }
  Pacer pacer(found, layout, videoTimescale, audio.timescale);
  const std::uint64_t key = firstKeyframe(found.video);
  const double surplus = pacer.surplusAtStart(key);
  pacer.holdBehindLosses(key);

  if (surplus > 0) {
    const std::uint64_t cut = ticks(surplus, audio.timescale);
    found.audio = found.audio.slice(cut, found.audio.size());
    for (FoundPCM& other : found.otherAudio) {
      other.samples = other.samples.slice(cut, other.samples.size());
    }
  } else if (-surplus > pacer.frameSeconds()) {
    audio.startDelay += ticks(-surplus, movieTimescale);
  }
  audio.startDelay += ticks(pacer.silentStart(), movieTimescale);
}

}  // namespace tallowmark::VideoRepair
