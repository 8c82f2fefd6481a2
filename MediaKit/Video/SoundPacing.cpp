// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/SoundPacing.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "MediaKit/Video/PCMTracks.h"
#include "MediaKit/Video/PicturePacing.h"

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

/// Works out, loss by loss, what is held for how long.
class Pacer {
 public:
  Pacer(EvidencedFindings& found, const SoundLead& lead, std::uint32_t videoTimescale,
        std::uint32_t audioTimescale)
      : found_(found),
        lead_(lead),
        videoTimescale_(videoTimescale),
        audioTimescale_(audioTimescale),
        frame_(static_cast<double>(found.video.typicalDuration()) / videoTimescale) {}

  double frameSeconds() const { return frame_; }

  /// How far sound is ahead of the picture at a frame, as the samples stand in the file.
  double leadAt(std::uint64_t frame) const {
    const std::uint64_t sound = storedBefore(found_.audio, found_.video[frame].offset);
    return static_cast<double>(sound) / audioTimescale_ - static_cast<double>(frame) * frame_;
  }

  void holdBehindLosses(std::uint64_t key);

 private:
  void holdFor(std::uint64_t frame, double surplus);

  EvidencedFindings& found_;
  const SoundLead& lead_;
  std::uint32_t videoTimescale_;
  std::uint32_t audioTimescale_;
  double frame_;
  std::vector<Hold> videoHolds_;
  std::vector<Hold> audioHolds_;
};

void Pacer::holdFor(std::uint64_t frame, double surplus) {
  if (surplus > 0) {
    videoHolds_.push_back({frame - 1, ticks(surplus, videoTimescale_)});
  } else if (const auto sound = storedBefore(found_.audio, found_.video[frame].offset); sound > 0) {
    audioHolds_.push_back({sound - 1, ticks(-surplus, audioTimescale_)});
  }
}

void Pacer::holdBehindLosses(std::uint64_t key) {
  double corrected = leadAt(key) - std::clamp(leadAt(key), lead_.least, lead_.most);
  for (const std::uint64_t frame : found_.losses) {
    if (frame <= key || frame >= found_.video.size()) {
      continue;
    }
    const double lead = leadAt(frame) - corrected;
    // Chunks make the lead swing; only what lies outside the reference's own swing is a loss.
    if (lead > lead_.most + frame_ || lead < lead_.least - frame_) {
      holdFor(frame, lead - lead_.usual);
      corrected += lead - lead_.usual;
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
  Pacer pacer(found, layout.lead(), videoTimescale, audio.timescale);
  const std::uint64_t key = firstKeyframe(found.video);
  const bool lostBefore =
      std::any_of(found.losses.begin(), found.losses.end(), [&](auto n) { return n <= key; });
  double surplus = static_cast<double>(key) * pacer.frameSeconds();
  if (lostBefore) {
    const double stored = pacer.leadAt(key) + surplus;
    surplus = stored - std::clamp(stored, layout.lead().least, layout.lead().most);
  }
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
}

}  // namespace tallowmark::VideoRepair
