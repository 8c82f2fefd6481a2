// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/FrameRate.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tallowmark::VideoRepair {

namespace {

constexpr double broadcast = 1.001;
constexpr std::array usualRates{
    24 / broadcast, 24.0, 25.0,  30 / broadcast, 30.0,  48 / broadcast,  48.0,  50.0,
    60 / broadcast, 60.0, 100.0, 120.0,          200.0, 120 / broadcast, 240.0, 240 / broadcast};

double nearestRate(double rate) {
  return *std::min_element(usualRates.begin(), usualRates.end(), [&](double a, double b) {
    return std::abs(a - rate) < std::abs(b - rate);
  });
}

bool isNear(double value, double wanted, double tolerance) {
  return std::abs(value / wanted - 1) <= tolerance;
}

// Other channels, sample sizes and the usual pairs of sample rates make that many times the bytes.
bool isOfOtherPCM(double ratio) {
  constexpr std::array channels{2.0, 3.0, 4.0, 6.0, 8.0, 1.5, 4.0 / 3, 48000.0 / 44100};
  constexpr double near = 0.03;
  return std::any_of(channels.begin(), channels.end(), [&](double times) {
    return isNear(ratio, times, near) || isNear(ratio, 1 / times, near);
  });
}

// Blocks of several tracks come as many of each between two pictures.
bool isOfMoreTracks(const FoundBlocks& blocks, double ratio) {
  const auto tracks = static_cast<std::uint64_t>(std::llround(ratio));
  if (tracks < 2) {
    return false;
  }
  std::uint64_t before = 0;
  std::size_t others = 0;
  for (const SoundGap& gap : blocks.gaps) {
    others += (gap.blocksBehind - before) % tracks != 0 ? 1U : 0U;
    before = gap.blocksBehind;
  }
  return others * 8 < blocks.gaps.size();
}

// Which of the usual rates sound may have in place of another. One that is twice the other, or in
// PCM half as much again, may as well be another frame rate, other channels or larger samples.
bool mayBeRate(std::uint32_t rate, std::uint32_t taught, const BlockLayout* blocks) {
  const double ratio = static_cast<double>(std::max(rate, taught)) / std::min(rate, taught);
  constexpr double ofPCM = 1.1;
  constexpr double ofBlocks = 1.6;
  const bool isSole = blocks != nullptr && blocks->tracks.size() == 1;
  return ratio > 1 && ratio < (isSole ? ofBlocks : ofPCM);
}

std::vector<SoundAnchor> anchorsBefore(std::uint64_t frame, std::vector<SoundAnchor> anchors) {
  std::erase_if(anchors, [&](const SoundAnchor& anchor) { return anchor.frame >= frame; });
  return anchors;
}

}  // namespace

std::optional<SoundRate> SoundRate::of(const std::vector<SoundAnchor>& anchors) {
  constexpr std::size_t fewest = 8;
  constexpr double shortest = 2;
  if (anchors.size() < fewest || anchors.back().seconds - anchors.front().seconds < shortest) {
    return std::nullopt;
  }
  const auto count = static_cast<double>(anchors.size());
  double frames = 0;
  double seconds = 0;
  for (const SoundAnchor& anchor : anchors) {
    frames += static_cast<double>(anchor.frame) / count;
    seconds += anchor.seconds / count;
  }
  double both = 0;
  double squares = 0;
  for (const SoundAnchor& anchor : anchors) {
    const double beside = static_cast<double>(anchor.frame) - frames;
    both += beside * (anchor.seconds - seconds);
    squares += beside * beside;
  }
  if (squares <= 0 || both <= 0) {
    return std::nullopt;
  }
  SoundRate rate{.perPicture = both / squares,
                 .length = anchors.back().seconds - anchors.front().seconds};
  std::vector<double> leads;
  leads.reserve(anchors.size());
  for (const SoundAnchor& anchor : anchors) {
    leads.push_back(anchor.seconds - static_cast<double>(anchor.frame) * rate.perPicture);
  }
  const SoundLead lead = SoundLead::of(std::move(leads));
  rate.swing = lead.mostlyMost - lead.mostlyLeast;
  rate.width = lead.most - lead.least;
  return rate;
}

bool SoundRate::isSteady(const SoundLead& reference) const {
  return swing <= 2 * (reference.mostlyMost - reference.mostlyLeast) + 4 * perPicture;
}

std::optional<double> otherPictureLength(const EvidencedFindings& found, const SoundPace& pace,
                                         double frame, const BlockLayout* blocks,
                                         std::optional<double> stated) {
  constexpr double nearest = 0.0015;
  constexpr double vaguest = 0.015;
  const std::uint64_t lossless = found.losses.empty() ? found.video.size() : found.losses.front();
  const auto rate = SoundRate::of(anchorsBefore(lossless, pace.anchors));
  if (!rate || frame <= 0 || !rate->isSteady(pace.lead)) {
    return std::nullopt;
  }
  const double tolerance = std::max(nearest, rate->swing / rate->length);
  const double ratio = rate->perPicture / frame;
  const double usual = nearestRate(1 / rate->perPicture);
  const bool isUsual = isNear(1 / rate->perPicture, usual, tolerance) &&
                       isNear(1 / frame, nearestRate(1 / frame), nearest);
  if (tolerance > vaguest || !isUsual || isNear(ratio, 1, 2 * tolerance)) {
    return std::nullopt;
  }
  if (stated && isNear(ratio, *stated, tolerance)) {
    return 1 / usual;
  }
  const bool isOtherSound =
      blocks == nullptr ? isOfOtherPCM(ratio)
                        : !found.blocks.isCountTold &&
                              (blocks->tracks.size() > 1 || isOfMoreTracks(found.blocks, ratio));
  return isOtherSound ? std::nullopt : std::optional(1 / usual);
}

std::optional<std::uint32_t> otherSamplingRate(const EvidencedFindings& found,
                                               const SoundPace& pace, double frame,
                                               std::uint32_t taught, const BlockLayout* blocks) {
  constexpr std::array<std::uint32_t, 9> usual{8000,  11025, 16000, 22050, 24000,
                                               32000, 44100, 48000, 96000};
  constexpr double nearest = 0.0015;
  constexpr double vaguest = 0.015;
  // A camera that drops as many pictures as would make the difference drops more than a dozen in
  // that time, and not evenly.
  constexpr double longEnough = 6;
  constexpr double block = 1024;
  const std::uint64_t lossless = found.losses.empty() ? found.video.size() : found.losses.front();
  const auto rate = SoundRate::of(anchorsBefore(lossless, pace.anchors));
  if (!rate || frame <= 0 || taught == 0 || pace.variableRate || rate->length < longEnough ||
      rate->width > frame + block / taught) {
    return std::nullopt;
  }
  const double tolerance = std::max(nearest, rate->swing / rate->length);
  const double frames = 1 / rate->perPicture;
  if (tolerance > vaguest || isNear(frames, nearestRate(frames), tolerance)) {
    return std::nullopt;
  }
  const auto told = std::find_if(usual.begin(), usual.end(), [&](std::uint32_t other) {
    return mayBeRate(other, taught, blocks) &&
           isNear(rate->perPicture * taught / other, frame, tolerance);
  });
  return told != usual.end() ? std::optional(*told) : std::nullopt;
}

void showFor(SampleList& pictures, double ticks) {
  SampleList shown;
  double time = 0;
  std::uint64_t done = 0;
  for (Sample picture : pictures) {
    // What rounding leaves goes to the next.
    time += ticks;
    picture.duration =
        static_cast<std::uint32_t>(std::llround(time) - static_cast<long long>(done));
    done += picture.duration;
    shown.append(picture);
  }
  pictures = std::move(shown);
}

}  // namespace tallowmark::VideoRepair
