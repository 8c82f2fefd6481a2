// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/TriedPictures.h"

#include <algorithm>
#include <cmath>
#include <list>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Video/ClipStart.h"

namespace tallowmark {

namespace {

using End = PictureExcerpt::End;

constexpr std::size_t keysToTry = 4;
constexpr std::size_t dependentPlaces = 8;
// In smaller ones nearly anything ends well.
constexpr std::uint32_t smallestDependent = 768;
constexpr std::uint64_t mostOfRun = 300;
constexpr double nearlyIntact = 0.9;

}  // namespace

std::optional<DecodedPictures> TrialDecoder::decode(
    std::initializer_list<TriedExcerpt> excerpts) const {
  std::list<PendingFile> files;
  std::vector<std::filesystem::path> paths;
  try {
    for (const auto& [pictures, end] : excerpts) {
      PendingFile& file = files.emplace_back(folder);
      pictures.write(file.sink(), end, stop);
      paths.push_back(file.temporaryPath());
    }
    return decoder(paths, stop);
  } catch (const DeviceError& error) {
    if (error.kind() == DeviceError::Kind::writeFailed) {
      return std::nullopt;
    }
    throw;
  }
}

std::optional<bool> TrialDecoder::fits(const PictureExcerpt& excerpt) const {
  if (!excerpt.hasSliceEnd()) {
    const auto plain = decode({{excerpt}});
    return plain ? std::optional(plain->whole) : std::nullopt;
  }
  // At once: most of the time goes into the decoder's start.
  auto plain = decode({{excerpt}, {excerpt, End::moreBytes}});
  if (!plain) plain = decode({{excerpt}});
  if (!plain) {
    return std::nullopt;
  }
  return plain->whole && plain->sums.front() == plain->sums.back() &&
         endsWithItsData(excerpt, plain->sums.front());
}

bool TrialDecoder::bothFit(const PictureExcerpt& excerpt, const PictureExcerpt& others) const {
  if (!excerpt.hasSliceEnd()) {
    return false;
  }
  const auto plain = decode({{excerpt}, {excerpt, End::moreBytes}, {others}});
  return plain && plain->whole && plain->sums.at(0) == plain->sums.at(1) &&
         endsWithItsData(excerpt, plain->sums.front());
}

bool TrialDecoder::endsWithItsData(const PictureExcerpt& excerpt, const std::string& sum) const {
  const auto ended = decode({{excerpt, End::otherBytes}});
  return !ended || !ended->whole || ended->sums.front() != sum;
}

// Of HEVC pictures of 1,400 bytes, 320 × 180, read with sets for 320 × 240, about one in four ended
// well by chance; larger ones are taken to do so as much less often as they are larger.
void TrialEvidence::add(std::optional<bool> fits, std::uint32_t pictureSize) {
  constexpr double chanceBytes = 350;
  constexpr double settled = 1;
  if (!fits) {
    return;
  }
  ++tried_;
  bytes_ += pictureSize;
  fitting_ += *fits ? 1U : 0U;
  const double byChance = chanceBytes / std::max(pictureSize, 1U);
  const auto weightWith = [&](double share) {
    return *fits ? std::log(share / std::min(share, byChance)) : std::log(1 - share);
  };
  weight_ += weightWith(intactShare_);
  weightIfNearlyIntact_ += weightWith(nearlyIntact);
  isSettled_ = isSettled_ || weight_ > settled;
}

// Small pictures that nearly all fit tell that damage is rare, and then that they do not by chance.
bool TrialEvidence::speaksForThem() const {
  constexpr double unusual = 1;
  return fitting_ > 0 && (weight_ >= 0 || weightIfNearlyIntact_ > unusual);
}

// With other sets than their own few pictures fit at all.
bool TrialEvidence::speaksAgainstThem(bool isBadlyDamaged) const {
  constexpr double unlikely = -3;
  constexpr double hardlyPossible = -5;
  return !isSettled_ && weight_ < (isBadlyDamaged ? hardlyPossible : unlikely);
}

double TrialEvidence::share() const {
  return (static_cast<double>(fitting_) + 0.5) / (static_cast<double>(tried_) + 1);
}

std::vector<std::uint64_t> TriedClip::keys(std::size_t most) const {
  return VideoRepair::keyPictures(movie_, most);
}

std::vector<Sample> TriedClip::keyPictures() const {
  std::vector<Sample> pictures;
  for (const std::uint64_t key : keys(keysToTry)) pictures.push_back(video().samples[key]);
  return pictures;
}

// Spread over the track.
std::vector<Sample> TriedClip::dependentPictures(Dependents which) const {
  const auto isBetter = [&](const Sample& one, const Sample& other) {
    return which == Dependents::small ? one.size < other.size : one.size > other.size;
  };
  const SampleList& samples = video().samples;
  std::vector<Sample> found;
  const std::uint64_t stretch = samples.size() / dependentPlaces + 1;
  for (std::uint64_t from = 0; from < samples.size(); from += stretch) {
    std::optional<Sample> best;
    for (const Sample picture : samples.slice(from, std::min(samples.size(), from + stretch))) {
      const bool canTell = !picture.isSync && picture.size >= smallestDependent;
      if (canTell && (!best || isBetter(picture, *best))) best = picture;
    }
    if (best) found.push_back(*best);
  }
  return found;
}

double TriedClip::meanDependentSize(Dependents which) const {
  const std::vector<Sample> pictures = dependentPictures(which);
  double bytes = 0;
  for (const Sample& picture : pictures) bytes += picture.size;
  return bytes / std::max(static_cast<double>(pictures.size()), 1.0);
}

std::optional<PictureExcerpt> TriedClip::goodKey(const TrialDecoder& decoder) const {
  for (const Sample& key : keyPictures()) {
    PictureExcerpt excerpt(video());
    if (excerpt.add(key, source_) && decoder.fits(excerpt) == true) {
      return excerpt;
    }
  }
  return std::nullopt;
}

PictureRun TriedClip::runFrom(std::uint64_t key, std::uint64_t most,
                              std::uint64_t fewestBytes) const {
  const SampleList& samples = video().samples;
  PictureRun run{PictureExcerpt(video())};
  std::uint64_t taken = 0;
  bool isOver = false;
  for (const Sample sample : samples.slice(key, std::min(samples.size(), key + mostOfRun))) {
    isOver = isOver || taken == most || (taken > 0 && sample.isSync);
    if ((isOver && run.bytes >= fewestBytes) || !run.pictures.add(sample, source_)) break;
    run.bytes += sample.isSync ? 0 : sample.size;
    ++taken;
  }
  return run;
}

// Those that hold what no encoder writes are damaged; asked without them unless there are no
// others.
TrialEvidence TriedClip::ask(const PictureExcerpt& beginning, const std::vector<Sample>& pictures,
                             const TrialDecoder& decoder, const TrialEvidence& before,
                             Until until) const {
  for (const bool damaged : {false, true}) {
    TrialEvidence evidence = before;
    for (const Sample& picture : pictures) {
      decoder.stop.check();
      PictureExcerpt excerpt = beginning;
      if (excerpt.add(picture, source_) && excerpt.isSurelyDamaged() == damaged) {
        evidence.add(decoder.fits(excerpt), picture.size);
      }
      if (until == Until::settled && evidence.settlesIt()) break;
    }
    if (evidence.tried() > 0) {
      return evidence;
    }
  }
  return before;
}

TrialEvidence TriedClip::askKeys(const TrialDecoder& decoder) const {
  return ask(PictureExcerpt(video()), keyPictures(), decoder, TrialEvidence(), Until::settled);
}

TrialEvidence TriedClip::askDependents(const PictureExcerpt& good, Dependents which,
                                       const TrialDecoder& decoder,
                                       const TrialEvidence& before) const {
  return ask(good, dependentPictures(which), decoder, before, Until::settled);
}

TrialEvidence TriedClip::askAllDependents(const PictureExcerpt& good, Dependents which,
                                          const TrialDecoder& decoder,
                                          const TrialEvidence& before) const {
  return ask(good, dependentPictures(which), decoder, before, Until::allAsked);
}

}  // namespace tallowmark
