// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/SettingsFit.h"

#include <algorithm>

#include "MediaKit/Bitstream/PictureOrderCount.h"
#include "MediaKit/Bitstream/ReferenceWindow.h"
#include "MediaKit/Bitstream/WholeSliceHeader.h"

namespace tallowmark {

namespace {

constexpr auto h264 = NALFormat::Codec::h264;
// Of a clip's slices one in so many may contradict settings that fit: damage hit it.
constexpr std::size_t damagedShare = 20;
// Where headers need not end on a whole byte they tell less.
constexpr std::size_t surelyWorse = 6;
// §A.3.1
constexpr std::uint32_t mostFrames = 16;

// Whether pictures follow one another so: numbers count on from every reference picture (§7.4.3),
// and no two neighbours are shown at once.
bool isNext(const SliceHeader& before, const SliceHeader& slice, std::uint32_t mask) {
  const std::uint32_t step = (slice.frameNumber - before.frameNumber) & mask;
  return slice.resetsOrder ||
         (step == (before.isReference ? 1U : 0U) && (!slice.order || slice.order != before.order));
}

bool readAll(const std::vector<FirstSlices::Bytes>& slices, const ParameterSets& sets) {
  return std::all_of(slices.begin(), slices.end(), [&](const FirstSlices::Bytes& slice) {
    return readWholeSliceHeader(slice, sets).has_value();
  });
}

bool saysTheUsual(const WholeSliceHeader& header, const PictureSettings& settings) {
  return header.tellsReferences && header.references.front() == settings.references.front() &&
         (header.references.back() == 0 || header.references.back() == settings.references.back());
}

// Too clearly for chance.
bool isFarLess(std::size_t count, std::size_t than) {
  return count + 3 <= than && count * 4 <= than;
}

// This one first.
std::vector<std::uint32_t> countsFrom(std::uint32_t known) {
  std::vector<std::uint32_t> counts{known};
  for (std::uint32_t count = 1; count <= mostFrames; ++count) {
    if (count != known) counts.push_back(count);
  }
  return counts;
}

}  // namespace

ParameterSets PictureSettings::in(ParameterSets sets) const {
  for (auto& [id, sps] : sets.sequences) {
    sps.frameNumBits = frameNumBits;
    sps.orderType = orderType;
    sps.orderBits = orderBits;
  }
  for (auto& [id, pps] : sets.pictures) {
    if (pps.tail) {
      pps.tail->weighsP = weighsP;
      pps.tail->weighsB = weighsB;
      pps.tail->references = references;
    }
  }
  return sets;
}

std::size_t SettingsFit::mostDamaged() const {
  return slices_.size() / damagedShare;
}

// The slices that do not read to their end or do not follow the one before; counted no further than
// where that is surely worse than others.
std::size_t SettingsFit::unread(const PictureSettings& settings) const {
  const ParameterSets sets = settings.in(sets_);
  const std::uint32_t mask = (1U << settings.frameNumBits) - 1;
  const std::size_t most = 2 * mostDamaged() + surelyWorse;
  std::optional<SliceHeader> before;
  std::size_t bad = 0;
  for (const FirstSlices::Slice& slice : slices_) {
    const auto header = readWholeSliceHeader(slice.bytes, sets);
    const bool isGood = header && readAll(slice.others, sets) &&
                        (!before || slice.isBehindLoss || isNext(*before, header->start, mask));
    bad += isGood ? 0 : 1;
    before = header ? std::optional(header->start) : std::nullopt;
    if (bad > most) break;
  }
  return bad;
}

bool SettingsFit::fits(const PictureSettings& settings) const {
  return unread(settings) <= mostDamaged();
}

// With these weights and references.
std::optional<PictureSettings> SettingsFit::withItsNumbers(PictureSettings settings) const {
  std::optional<PictureSettings> best;
  std::size_t fewest = slices_.size();
  std::size_t next = slices_.size();
  const auto consider = [&](unsigned frameNumBits, unsigned orderType, unsigned orderBits) {
    settings.frameNumBits = frameNumBits;
    settings.orderType = orderType;
    settings.orderBits = orderBits;
    const std::size_t bad = unread(settings);
    next = std::min(next, std::max(bad, fewest));
    if (bad < fewest) {
      fewest = bad;
      best = settings;
    }
  };
  for (unsigned frameNumBits = 4; frameNumBits <= 16; ++frameNumBits) {
    consider(frameNumBits, 2, 0);
    for (unsigned orderBits = 4; orderBits <= 16; ++orderBits) {
      consider(frameNumBits, 0, orderBits);
    }
  }
  const bool isSure =
      fewest <= mostDamaged() && next >= 2 * fewest + (endsOnWholeBytes() ? 1 : surelyWorse);
  return isSure ? best : std::nullopt;
}

std::optional<PictureSettings> SettingsFit::numberedWith(const PictureSettings& known,
                                                         std::uint32_t references) const {
  PictureSettings settings = known;
  settings.references.front() = references;
  for (const bool weighsP : {known.weighsP, !known.weighsP}) {
    settings.weighsP = weighsP;
    for (const std::uint32_t weighsB : {known.weighsB, known.weighsB == 1 ? 0U : 1U}) {
      settings.weighsB = weighsB;
      if (auto found = withItsNumbers(settings)) {
        return found;
      }
    }
  }
  return std::nullopt;
}

std::optional<PictureSettings> SettingsFit::numbered(const PictureSettings& known,
                                                     bool isTerse) const {
  std::vector<PictureSettings> best;
  std::size_t fewest = slices_.size();
  for (const std::uint32_t references : countsFrom(known.references.front())) {
    const auto found = numberedWith(known, references);
    const std::size_t bad = found ? unread(*found) : slices_.size();
    if (bad < fewest) {
      fewest = bad;
      best.clear();
    }
    if (found && bad == fewest) best.push_back(*found);
  }
  if (best.empty() || best.front().references == known.references) {
    return best.empty() ? std::nullopt : std::optional(best.front());
  }
  const auto left = [&](const PictureSettings& settings) {
    return contradicting(keeping(settings, isTerse), isTerse);
  };
  return *std::min_element(best.begin(), best.end(),
                           [&](const auto& a, const auto& b) { return left(a) < left(b); });
}

bool SettingsFit::hasB(const PictureSettings& settings) const {
  const ParameterSets sets = settings.in(sets_);
  return std::any_of(slices_.begin(), slices_.end(), [&](const FirstSlices::Slice& slice) {
    const auto header = readWholeSliceHeader(slice.bytes, sets);
    return header && header->start.type % 5 == 1;
  });
}

std::size_t SettingsFit::contradicting(const PictureSettings& settings, bool isTerse) const {
  const ParameterSets sets = settings.in(sets_);
  ReferenceWindow window(settings.frames, settings.frameNumBits);
  PictureOrderCount counter(h264);
  std::size_t strange = 0;
  for (const FirstSlices::Slice& slice : slices_) {
    const auto header = readWholeSliceHeader(slice.bytes, sets);
    const SequenceParameters* sps = header ? sets.sequenceOf(header->start.pictureSet) : nullptr;
    if (slice.isBehindLoss || sps == nullptr) window.noteLoss();
    if (sps != nullptr) {
      window.take(*header, counter.next(header->start, slice.bytes.front(), *sps));
    }
    strange += sps == nullptr || !readAll(slice.others, sets) ||
                       (isTerse && saysTheUsual(*header, settings))
                   ? 1U
                   : 0U;
  }
  return window.contradicting() + strange;
}

PictureSettings SettingsFit::keeping(PictureSettings settings, bool isTerse) const {
  PictureSettings best = settings;
  std::size_t fewest = contradicting(settings, isTerse);
  for (++settings.frames; settings.frames <= mostFrames && fewest > 0; ++settings.frames) {
    if (const std::size_t count = contradicting(settings, isTerse); count < fewest) {
      fewest = count;
      best = settings;
    }
  }
  return best;
}

bool SettingsFit::isFarBetter(const PictureSettings& settings, const PictureSettings& than,
                              bool isTerse) const {
  return isFarLess(contradicting(settings, isTerse), contradicting(than, isTerse));
}

PictureSettings SettingsFit::referring(const PictureSettings& settings, bool isTerse) const {
  PictureSettings best = keeping(settings, isTerse);
  std::size_t fewest = contradicting(best, isTerse);
  const std::size_t before = fewest;
  for (std::uint32_t count = 1; isFarLess(0, before) && count <= mostFrames; ++count) {
    PictureSettings other = settings;
    other.references.front() = count;
    if (!fits(other)) continue;
    other = keeping(other, isTerse);
    const std::size_t left = contradicting(other, isTerse);
    if (isFarLess(left, before) && left < fewest) {
      fewest = left;
      best = other;
    }
  }
  // With B pictures encoders keep more than a picture refers to.
  if (settings.references.front() == settings.frames && !hasB(best)) {
    PictureSettings other = best;
    other.references.front() = best.frames;
    return fits(other) && contradicting(other, isTerse) <= fewest ? other : best;
  }
  return best;
}

}  // namespace tallowmark
