// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/ParameterFitting.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Bitstream/FirstSlices.h"
#include "MediaKit/Bitstream/ParameterSetWriting.h"
#include "MediaKit/Bitstream/SettingsFit.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

constexpr auto fittedCodec = NALFormat::Codec::h264;
constexpr std::size_t fewestSlices = 8;

// Of a sample entry of whole frames whose sets agree in it.
std::optional<PictureSettings> settingsOf(View entry, const ParameterSets& sets) {
  std::optional<CodedNumbers> coded;
  for (const UnitPlace& unit : parameterUnits(entry, fittedCodec)) {
    const auto numbers = readNumbering(entry.subspan(unit.at, unit.size));
    if (numbers && coded && numbers->numbers != coded->numbers) {
      return std::nullopt;
    }
    coded = numbers ? numbers : coded;
  }
  const bool isKnown = coded && !sets.pictures.empty() && !sets.sequences.empty() &&
                       sets.pictures.begin()->second.tail &&
                       sets.sequences.begin()->second.framesOnly;
  if (!isKnown) {
    return std::nullopt;
  }
  const SequenceParameters& sps = sets.sequences.begin()->second;
  const SliceTailParameters& tail = *sets.pictures.begin()->second.tail;
  const bool agree =
      std::all_of(sets.pictures.begin(), sets.pictures.end(), [&](const auto& picture) {
        const auto& other = picture.second.tail;
        return other && other->weighsP == tail.weighsP && other->weighsB == tail.weighsB &&
               other->references == tail.references;
      });
  return agree ? std::optional(PictureSettings{sps.frameNumBits, sps.orderType, sps.orderBits,
                                               tail.weighsP, tail.weighsB, tail.references,
                                               coded->numbers.back()})
               : std::nullopt;
}

std::optional<Bytes> sequenceWith(const PictureSettings& settings, View unit,
                                  const CodedNumbers& known) {
  std::vector<std::uint32_t> numbers{settings.frameNumBits - 4, settings.orderType};
  if (settings.orderType == 0) numbers.push_back(settings.orderBits - 4);
  numbers.push_back(settings.frames);
  Bytes written = withNumbers(unit, fittedCodec, known, numbers);
  auto limits = readOutputLimits(written, fittedCodec);
  if (limits && limits->numbers.back() < settings.frames) {
    limits->numbers.back() = settings.frames;
    written = withNumbers(written, fittedCodec, *limits, limits->numbers);
  }
  const auto read = readNumbering(written);
  return read && read->numbers == numbers ? std::optional(written) : std::nullopt;
}

// A parameter set with these settings.
std::optional<Bytes> unitWith(const PictureSettings& settings, View unit) {
  if (const auto known = readNumbering(unit)) {
    return sequenceWith(settings, unit, *known);
  }
  ParameterSets read;
  read.add(unit, fittedCodec);
  if (read.pictures.empty() || !read.pictures.begin()->second.tail) {
    return std::nullopt;
  }
  const SliceTailParameters& tail = *read.pictures.begin()->second.tail;
  const Bytes weighing = withBits(unit, fittedCodec, tail.weightsAtBit, 3,
                                  (settings.weighsP ? 4U : 0U) | settings.weighsB);
  const auto& [list0, list1] = settings.references;
  const std::array<std::uint32_t, 2> references{list0 - 1, list1 - 1};
  return withNumbers(weighing, fittedCodec, {tail.referencesAtBit, tail.weightsAtBit, {}},
                     references);
}

// How B pictures are weighed is not in their headers. A reference without any does not say either:
// encoders that weigh P pictures by what stands in their headers let the weights of B pictures
// follow from distances.
std::uint32_t weightsOfB(const PictureSettings& found, const PictureSettings& reference,
                         std::optional<bool> noted) {
  constexpr std::uint32_t inHeaders = 1;
  constexpr std::uint32_t byDistance = 2;
  if (found.weighsB == inHeaders || (reference.orderType != 2 && !noted)) {
    return found.weighsB;
  }
  return noted.value_or(found.weighsP) ? byDistance : 0;
}

}  // namespace

ParameterFitting::ParameterFitting(const Track& reference, const ByteSource& source,
                                   NALFormat format)
    : reference_(reference), source_(source), format_(std::move(format)) {
  reference_.samples =
      reference.samples.slice(0, std::min(reference.samples.size(), FirstSlices::enough));
  if (format_.codec == fittedCodec) {
    sets_ = ParameterSets::of(reference.sampleEntry, fittedCodec);
    own_ = settingsOf(reference.sampleEntry, sets_);
    believed_ = own_;
  }
}

const ParameterFitting::Habits& ParameterFitting::habits(const StopToken& stop) {
  if (!habits_) {
    auto read = FirstSlices::read(reference_.samples, source_, format_, {}, stop);
    constexpr std::size_t irregularShare = 100;
    const std::size_t mostIrregular = read.slices.size() / irregularShare;
    const bool areEnough = read.slices.size() >= fewestSlices;
    const SettingsFit fit(std::move(read.slices), sets_);
    const std::size_t contradicting = fit.contradicting(*own_, false);
    habits_ = {areEnough && contradicting <= mostIrregular,
               fit.contradicting(*own_, true) == contradicting};
  }
  return *habits_;
}

bool ParameterFitting::hasOtherSettings() const {
  if (!own_) {
    return false;
  }
  constexpr std::uint32_t inHeaders = 1;
  PictureSettings alike = *believed_;
  const bool isReadAlike = (alike.weighsB == inHeaders) == (own_->weighsB == inHeaders);
  alike.weighsB = isReadAlike ? own_->weighsB : alike.weighsB;
  return alike != *own_;
}

// Nothing when none are found.
std::optional<PictureSettings> ParameterFitting::settingsFor(const SettingsFit& fit,
                                                             std::optional<bool> weighsB,
                                                             const StopToken& stop) {
  const bool isRenumbered = !fit.fits(*believed_);
  const bool isRegular = habits(stop).areRegular;
  const bool isTerse = isRegular && habits(stop).areTerse;
  const auto found = isRenumbered ? fit.numbered(*believed_, isTerse) : believed_;
  if (!found) {
    return std::nullopt;
  }
  PictureSettings settings = *found;
  if (isRenumbered || hasOtherSettings()) {
    settings = isRegular ? fit.referring(*found, isTerse) : fit.keeping(*found);
  } else if (isRegular) {
    const PictureSettings other = fit.referring(*found, isTerse);
    settings = fit.isFarBetter(other, *found, isTerse) ? other : *found;
  }
  if ((isRenumbered || weighsB) && fit.hasB(settings)) {
    settings.weighsB = weightsOfB(settings, *own_, weighsB);
  }
  return settings;
}

std::optional<FittedEntry> ParameterFitting::fit(const SampleList& samples,
                                                 const ByteSource& source,
                                                 std::span<const std::uint64_t> losses,
                                                 const StopToken& stop) {
  if (!own_) {
    return std::nullopt;
  }
  FirstSlices read = FirstSlices::read(samples, source, format_, losses, stop);
  if (read.slices.size() < fewestSlices) {
    return std::nullopt;
  }
  const SettingsFit slices(std::move(read.slices), sets_);
  const auto settings = settingsFor(slices, read.weighsB, stop);
  if (!settings || settings == believed_) {
    return std::nullopt;
  }
  const bool isRenumbered = !slices.fits(*believed_);
  believed_ = settings;
  return FittedEntry{withParameterSets(reference_.sampleEntry, fittedCodec,
                                       [&](View unit) { return unitWith(*settings, unit); }),
                     isRenumbered};
}

}  // namespace tallowmark
