// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/FrameRate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace tallowmark::VideoRepair {

namespace {

constexpr double broadcast = 1.001;
constexpr std::array usualRates{
    24 / broadcast, 24.0, 25.0,  30 / broadcast, 30.0,  48 / broadcast,  48.0,  50.0,
    60 / broadcast, 60.0, 100.0, 120.0,          200.0, 120 / broadcast, 240.0, 240 / broadcast};

// In the dark, and of cameras that look after a house or a road.
constexpr std::array slowRates{10.0, 12.0, 12.5, 15 / broadcast, 15.0, 20.0};

template <class Rates>
double nearestOf(const Rates& rates, double rate) {
  return *std::min_element(rates.begin(), rates.end(), [&](double a, double b) {
    return std::abs(a - rate) < std::abs(b - rate);
  });
}

double nearestRate(double rate) {
  const std::array<double, 2> nearest{nearestOf(usualRates, rate), nearestOf(slowRates, rate)};
  return nearestOf(nearest, rate);
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

}  // namespace

AnchorStretches stretchesOf(const std::vector<SoundAnchor>& anchors,
                            const std::vector<std::uint64_t>& losses) {
  AnchorStretches stretches;
  auto loss = losses.begin();
  double seconds = -1;
  for (const SoundAnchor& anchor : anchors) {
    // Without sound right before it a picture is anywhere behind its chunk.
    if (anchor.seconds <= std::exchange(seconds, anchor.seconds)) {
      continue;
    }
    const auto next = std::upper_bound(loss, losses.end(), anchor.frame);
    if (stretches.empty() || next != loss) {
      stretches.emplace_back();
    }
    loss = next;
    stretches.back().push_back(anchor);
  }
  return stretches;
}

std::optional<SoundRate> SoundRate::of(const AnchorStretches& stretches) {
  constexpr double fewest = 8;
  constexpr double shortest = 2;
  // Of each stretch, from its middle.
  std::vector<std::pair<double, double>> places;
  for (const std::vector<SoundAnchor>& anchors : stretches) {
    const auto count = static_cast<double>(anchors.size());
    double frames = 0;
    double seconds = 0;
    for (const SoundAnchor& anchor : anchors) {
      frames += static_cast<double>(anchor.frame) / count;
      seconds += anchor.seconds / count;
    }
    for (const SoundAnchor& anchor : anchors) {
      places.emplace_back(static_cast<double>(anchor.frame) - frames, anchor.seconds - seconds);
    }
  }
  double both = 0;
  double squares = 0;
  for (const auto& [frame, seconds] : places) {
    both += frame * seconds;
    squares += frame * frame;
  }
  const auto count = static_cast<double>(places.size());
  if (count < fewest || squares <= 0 || both <= 0) {
    return std::nullopt;
  }
  // Of places along one stretch the mean square is a twelfth of its length's.
  const double perPicture = both / squares;
  SoundRate rate{.perPicture = perPicture, .length = std::sqrt(12 * squares / count) * perPicture};
  // A chunk or two to a stretch err alike.
  const auto full = std::count_if(stretches.begin(), stretches.end(), [](const auto& anchors) {
    return static_cast<double>(anchors.size()) >= fewest;
  });
  rate.reach = rate.length * std::sqrt(std::max(1.0, static_cast<double>(full)));
  if (rate.reach < shortest) {
    return std::nullopt;
  }
  std::vector<double> leads;
  leads.reserve(places.size());
  for (const auto& [frame, seconds] : places) leads.push_back(seconds - frame * perPicture);
  const SoundLead lead = SoundLead::of(std::move(leads));
  rate.swing = lead.mostlyMost - lead.mostlyLeast;
  rate.width = lead.most - lead.least;
  return rate;
}

std::optional<SoundRate> SoundRate::ofSteps(const AnchorStretches& stretches) {
  constexpr std::size_t enough = 6;
  constexpr std::size_t enoughInside = 3;
  // Of shorter ones all are alike.
  constexpr std::uint64_t fewestFrames = 8;
  struct Step {
    double frames = 0;
    double seconds = 0;
    bool isFirst = false;
  };
  std::vector<Step> steps;
  for (const std::vector<SoundAnchor>& anchors : stretches) {
    for (std::size_t i = 1; i < anchors.size(); ++i) {
      const std::uint64_t frames = anchors[i].frame - anchors[i - 1].frame;
      if (frames < fewestFrames) continue;
      steps.push_back(
          {static_cast<double>(frames), anchors[i].seconds - anchors[i - 1].seconds, i == 1});
    }
  }
  if (steps.size() < enough) {
    return std::nullopt;
  }
  const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
  std::nth_element(steps.begin(), middle, steps.end(), [](const Step& a, const Step& b) {
    return a.frames * b.seconds < b.frames * a.seconds;
  });
  const double perSecond = middle->frames / middle->seconds;
  Step sum;
  std::size_t alike = 0;
  std::size_t inside = 0;
  std::size_t alikeInside = 0;
  for (const Step& step : steps) {
    inside += step.isFirst ? 0U : 1U;
    if (std::abs(step.frames - step.seconds * perSecond) > 1) continue;
    ++alike;
    alikeInside += step.isFirst ? 0U : 1U;
    sum.frames += step.frames;
    sum.seconds += step.seconds;
  }
  // Behind a loss more pictures may be missing than it tells of.
  const bool isOne = alike >= enough && alikeInside >= enoughInside &&
                     alikeInside * 10 >= inside * 9 && alike * 5 >= steps.size() * 3;
  if (!isOne || sum.frames <= 0) {
    return std::nullopt;
  }
  // Each stretch errs by a picture.
  const double perPicture = sum.seconds / sum.frames;
  return SoundRate{.perPicture = perPicture,
                   .swing = perPicture,
                   .width = perPicture,
                   .length = sum.seconds / static_cast<double>(stretches.size()),
                   .reach = sum.seconds / std::sqrt(static_cast<double>(stretches.size()))};
}

bool SoundRate::isSteady(const SoundLead& reference) const {
  // Two blocks of sound.
  constexpr double least = 0.05;
  return swing <=
         2 * (reference.mostlyMost - reference.mostlyLeast) + std::max(4 * perPicture, least);
}

std::optional<double> otherPictureLength(const EvidencedFindings& found, const SoundPace& pace,
                                         double frame, const BlockLayout* blocks,
                                         const std::function<bool(double)>& hasTaughtChannels,
                                         std::optional<double> stated) {
  constexpr double nearest = 0.0015;
  constexpr double vaguest = 0.02;
  const AnchorStretches stretches = stretchesOf(pace.anchors, found.losses);
  auto rate = SoundRate::of(stretches);
  if (rate && !rate->isSteady(pace.lead)) rate.reset();
  const auto bySteps = SoundRate::ofSteps(stretches);
  if (bySteps && (!rate || bySteps->error() < rate->error())) rate = bySteps;
  if (!rate || frame <= 0) {
    return std::nullopt;
  }
  const double tolerance = std::max(nearest, rate->error());
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
      blocks == nullptr ? isOfOtherPCM(ratio) && !hasTaughtChannels(ratio)
                        : !found.blocks.isCountTold &&
                              (blocks->tracks.size() > 1 || isOfMoreTracks(found.blocks, ratio));
  return isOtherSound ? std::nullopt : std::optional(1 / usual);
}

std::optional<double> statedPictureLength(const StatedClocks& clocks, double frame) {
  constexpr double near = 0.0015;
  const double ticks = frame / clocks.reference;
  const double rate = 1 / (frame * clocks.ratio());
  const double usual = nearestRate(rate);
  const bool isHonest = isNear(ticks, 1, near) || isNear(ticks, 2, near);
  const bool isOther = !isNear(clocks.ratio(), 1, near) && isNear(rate, usual, near);
  return isHonest && isOther ? std::optional(1 / usual) : std::nullopt;
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
  const auto rate = SoundRate::of(stretchesOf(pace.anchors, found.losses));
  if (!rate || frame <= 0 || taught == 0 || pace.variableRate || rate->length < longEnough ||
      rate->width > frame + block / taught) {
    return std::nullopt;
  }
  const double tolerance = std::max(nearest, rate->swing / rate->length);
  const double frames = 1 / rate->perPicture;
  if (tolerance > vaguest || isNear(frames, nearestOf(usualRates, frames), tolerance)) {
    return std::nullopt;
  }
  const auto told = std::find_if(usual.begin(), usual.end(), [&](std::uint32_t other) {
    return mayBeRate(other, taught, blocks) &&
           isNear(rate->perPicture * taught / other, frame, tolerance);
  });
  return told != usual.end() ? std::optional(*told) : std::nullopt;
}

bool gainsOnPictures(const EvidencedFindings& found, const SoundPace& pace, double frame) {
  constexpr double much = 0.1;
  const double usual = pace.lead.mostlyMost - pace.lead.mostlyLeast + 2 * frame + much;
  const AnchorStretches stretches = stretchesOf(pace.anchors, found.losses);
  return std::any_of(stretches.begin(), stretches.end(), [&](const auto& anchors) {
    double least = std::numeric_limits<double>::max();
    double before = 0;
    double largestStep = 0;
    return std::any_of(anchors.begin(), anchors.end(), [&](const SoundAnchor& anchor) {
      const double lead = anchor.seconds - static_cast<double>(anchor.frame) * frame;
      if (lead < least) {
        least = lead;
        largestStep = 0;
      }
      largestStep = std::max(largestStep, lead - std::max(std::exchange(before, lead), least));
      // All at once it is pictures that are lost.
      return lead - least - largestStep > usual;
    });
  });
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
