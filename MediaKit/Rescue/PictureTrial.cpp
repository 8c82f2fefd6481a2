// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/PictureTrial.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <optional>
#include <system_error>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Rescue/TriedPictures.h"

namespace tallowmark {

namespace {

constexpr std::size_t runsToTry = 6;
// Enough for pictures to refer to as many as they can; and to most that encoders do.
constexpr std::uint64_t longRun = 40;
constexpr std::uint64_t shortRun = 18;
// By the sets of another encoder, black pictures of 10,000 bytes in all decoded without a
// complaint.
constexpr std::uint64_t largeRun = 32768;
// Both kinds of pictures are among so many.
constexpr std::uint64_t shortestRun = 6;

// Whether two in three runs of pictures that begin with a key picture decode; shorter ones where
// damage is frequent.
bool mostRunsDecode(const TriedClip& clip, const TrialDecoder& decoder) {
  for (const std::uint64_t length : {longRun, shortRun}) {
    std::size_t tried = 0;
    std::size_t whole = 0;
    for (const std::uint64_t key : clip.keys(runsToTry)) {
      decoder.stop.check();
      const auto decoded = decoder.decode({{clip.runFrom(key, length).pictures}});
      tried += decoded ? 1U : 0U;
      whole += decoded && decoded->whole ? 1U : 0U;
    }
    if (whole * 3 >= tried * 2) {
      return true;
    }
  }
  return false;
}

// Whether a run decodes that is large enough not to do so by chance. Short ones are decoded
// soonest, and where damage begins soon behind the key pictures they are the only ones.
bool anyLargeRunDecodes(const TriedClip& clip, const TrialDecoder& decoder) {
  struct Runs {
    std::uint64_t length;
    std::uint64_t fewestBytes;
    std::size_t tries;
  };
  constexpr std::array runs{Runs{shortestRun, 0, 2}, Runs{shortRun, largeRun, runsToTry}};
  for (const auto& [length, fewestBytes, tries] : runs) {
    for (const std::uint64_t key : clip.keys(tries)) {
      decoder.stop.check();
      const PictureRun run = clip.runFrom(key, length, fewestBytes);
      const auto decoded = run.bytes >= largeRun ? decoder.decode({{run.pictures}}) : std::nullopt;
      if (decoded && decoded->whole) {
        return true;
      }
    }
  }
  return false;
}

// Whether the first key picture settles it for all of them, and a large run behind it for those
// between: what asking for each kind says then, by fewer runs of the decoder.
bool beginsWell(const TriedClip& clip, const Track& video, const TrialDecoder& decoder) {
  const std::vector<std::uint64_t> keys = clip.keys(1);
  if (keys.empty()) {
    return false;
  }
  const PictureExcerpt key = clip.runFrom(keys.front(), 1).pictures;
  const PictureRun run = clip.runFrom(keys.front(), shortestRun);
  TrialEvidence ifItFits;
  ifItFits.add(true, video.samples[keys.front()].size);
  return ifItFits.settlesIt() && run.bytes >= largeRun && !key.isSurelyDamaged() &&
         decoder.bothFit(key, run.pictures);
}

// Settings that were worked out from the pictures' headers leave key pictures as they are; others
// show them wrong, and a few pictures behind one now and then right. Where nothing looks damaged
// one run that does not decode is reason enough to doubt them.
bool otherSettingsFit(const TriedClip& clip, bool isWhole, const TrialDecoder& decoder) {
  constexpr std::size_t enough = 4;
  constexpr double nearlyAll = 0.7;
  if (mostRunsDecode(clip, decoder)) {
    return true;
  }
  if (isWhole && clip.keys(2).size() < 2) {
    return false;
  }
  const auto key = clip.goodKey(decoder);
  const TrialEvidence all =
      key ? clip.askAllDependents(*key, Dependents::small, decoder) : TrialEvidence();
  return all.tried() >= enough && all.share() >= nearlyAll;
}

// A clip and its reference, each with a key picture that decodes, to put others behind.
struct TrialPair {
  const TriedClip& clip;
  const PictureExcerpt& key;
  const TriedClip& reference;
  const PictureExcerpt& referenceKey;
  const TrialDecoder& decoder;

  // What to expect of such pictures of the clip when that share of them is intact.
  TrialEvidence expected(Dependents which, double intact) const {
    return TrialEvidence(intact * reference.askDependents(referenceKey, which, decoder).share());
  }
};

// Whether pictures that others are built on are read as they were written, where `small` is what
// others say. Damage hits them more often.
bool largeDependentsFit(const TrialPair& pair, const TrialEvidence& small, bool isBadlyDamaged) {
  const double timesAsLarge =
      pair.clip.meanDependentSize(Dependents::large) / std::max(small.meanSize(), 1.0);
  const double intact = std::pow(small.share(), timesAsLarge);
  return !pair.clip
              .askDependents(pair.key, Dependents::large, pair.decoder,
                             pair.expected(Dependents::large, intact))
              .speaksAgainstThem(isBadlyDamaged);
}

// Whether the pictures between key pictures are read as they were written, as far as that shows.
// `share` of the key pictures fit: with them alone another encoder's settings can agree, and with
// those between P pictures as well, which are the smaller ones. Nothing that was lost speaks
// against settings; nor do pictures that cannot be read by themselves, as the reference's show.
bool dependentsFit(const TriedClip& clip, const TriedClip& reference, double share,
                   const TrialDecoder& decoder) {
  if (anyLargeRunDecodes(clip, decoder)) {
    return true;
  }
  const auto referenceKey = reference.goodKey(decoder);
  const auto key = clip.goodKey(decoder);
  if (!key || !referenceKey) {
    return true;
  }
  const auto fitBehind = [&](const PictureExcerpt& good) {
    const TrialPair pair{clip, good, reference, *referenceKey, decoder};
    const TrialEvidence small = clip.askAllDependents(good, Dependents::small, decoder,
                                                      pair.expected(Dependents::small, share));
    return !small.speaksAgainstThem() && largeDependentsFit(pair, small, false);
  };
  // Behind a key picture on which decoding may begin but which is no IDR picture, others look for
  // pictures ahead of it; the reference's is mostly one.
  return fitBehind(*key) || fitBehind(*referenceKey);
}

// The same where no key picture of the clip fits: others are put behind the reference's.
bool dependentsFitTheReference(const TriedClip& clip, const TriedClip& reference,
                               const TrialDecoder& decoder) {
  const auto key = reference.goodKey(decoder);
  if (!key) {
    return true;
  }
  if (!clip.askDependents(*key, Dependents::small, decoder).speaksForThem()) {
    return false;
  }
  const TrialEvidence small = clip.askAllDependents(*key, Dependents::small, decoder);
  return largeDependentsFit({clip, *key, reference, *key, decoder}, small, true);
}

// Whether the pictures found are a tenth of the clip or more.
bool areMany(const VideoRepair::Plan& plan) {
  constexpr std::uint64_t few = 10;
  std::uint64_t bytes = 0;
  for (const Sample picture : plan.movie.videoTrack()->samples) bytes += picture.size;
  return bytes * few >= plan.result.unusedBytes;
}

// Where no key picture was found that could be tried, others are all there is, and not too small.
bool picturesWithoutKeyFit(const TriedClip& clip, const TriedClip& reference,
                           const VideoRepair::Plan& plan, const TrialDecoder& decoder) {
  if (clip.meanDependentSize(Dependents::small) == 0) {
    return areMany(plan);
  }
  return dependentsFitTheReference(clip, reference, decoder);
}

bool pictureSetsFit(const VideoRepair::Plan& plan, const ByteSource& source,
                    const ByteSource& reference, const TrialDecoder& decoder) {
  const TriedClip clip(plan.movie, source);
  const bool isWhole = plan.result.unusedBytes == 0;
  if (plan.hasOtherSettings && !otherSettingsFit(clip, isWhole, decoder)) {
    return false;
  }
  if (!plan.hasOtherSettings && beginsWell(clip, *plan.movie.videoTrack(), decoder)) {
    return true;
  }
  const TrialEvidence keys = clip.askKeys(decoder);
  if (plan.hasOtherSettings && keys.speaksForThem()) {
    return true;
  }
  const Movie good = MovieParser::parse(BoxReader(reference));
  const TriedClip taught(good, reference);
  if (keys.tried() == 0) {
    return picturesWithoutKeyFit(clip, taught, plan, decoder);
  }
  return keys.speaksForThem() ? dependentsFit(clip, taught, keys.share(), decoder)
                              : dependentsFitTheReference(clip, taught, decoder);
}

}  // namespace

void requireDecodable(const VideoRepair::Plan& plan, const ByteSource& source,
                      const ByteSource* reference, const std::filesystem::path& folder,
                      const PictureDecoder& decoder, const StopToken& stop) {
  if (!plan.rebuilt || reference == nullptr || !decoder || plan.movie.videoTrack() == nullptr) {
    return;
  }
  if (!pictureSetsFit(plan, source, *reference, {folder, decoder, stop})) {
    throw MediaError::noVideo();
  }
}

RunningPictureTrial::RunningPictureTrial(const VideoRepair::Plan& plan, const ByteSource& source,
                                         const ByteSource* reference,
                                         const std::filesystem::path& folder,
                                         const PictureDecoder& decoder) {
  const auto trial = [=, &plan, &source, &folder, &decoder, stop = end_.token()] {
    requireDecodable(plan, source, reference, folder, decoder, stop);
  };
  try {
    trial_ = std::async(std::launch::async, trial);
  } catch (const std::system_error&) {
    // No thread is to be had: it runs when it is waited for.
    trial_ = std::async(std::launch::deferred, trial);
  }
}

RunningPictureTrial::~RunningPictureTrial() {
  end_.requestStop();
  if (trial_.valid() && trial_.wait_for(std::chrono::seconds(0)) != std::future_status::deferred) {
    trial_.wait();
  }
}

void RunningPictureTrial::check() {
  if (trial_.valid() && trial_.wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
    trial_.get();
  }
}

void RunningPictureTrial::wait(const StopToken& stop) {
  while (trial_.valid()) {
    stop.check();
    if (trial_.wait_for(std::chrono::milliseconds(20)) == std::future_status::deferred) {
      trial_.get();
    } else {
      check();
    }
  }
}

}  // namespace tallowmark
