// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/ParameterFitting.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "MediaKit/Video/MediaWindow.h"
#include "MediaKit/Video/ParameterSetWriting.h"
#include "MediaKit/Video/PictureOrderCount.h"
#include "MediaKit/Video/ReferenceWindow.h"
#include "MediaKit/Video/UnitHead.h"
#include "MediaKit/Video/WholeSliceHeader.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

constexpr auto fittedCodec = NALFormat::Codec::h264;
// Some seconds of pictures, several sequences among them.
constexpr std::size_t enoughSlices = 400;
constexpr std::size_t fewestSlices = 8;
// Weights for many pictures are the longest part of a header.
constexpr std::size_t bytesOfSlice = 512;
constexpr int mostUnitsBefore = 64;
// Of a clip's slices one in so many may contradict numbers that fit: damage hit it.
constexpr std::size_t damagedShare = 20;
// Where headers need not end on a whole byte they tell less.
constexpr std::size_t surelyWorse = 6;
// §A.3.1
constexpr std::uint32_t mostFrames = 16;

/// The first slice of a picture.
struct Slice {
  Bytes bytes;
  bool isBehindLoss = false;
};

/// How an encoder numbers its pictures, and where it weighs them.
struct Numbering {
  unsigned frameNumBits = 4;
  unsigned orderType = 0;
  unsigned orderBits = 0;
  bool weighsP = false;
  std::uint32_t weighsB = 0;

  ParameterSets in(ParameterSets sets) const;
};

ParameterSets Numbering::in(ParameterSets sets) const {
  for (auto& [id, sps] : sets.sequences) {
    sps.frameNumBits = frameNumBits;
    sps.orderType = orderType;
    sps.orderBits = orderBits;
  }
  for (auto& [id, pps] : sets.pictures) {
    if (pps.tail) {
      pps.tail->weighsP = weighsP;
      pps.tail->weighsB = weighsB;
    }
  }
  return sets;
}

/// Reads the first slices of pictures.
class SliceReader {
 public:
  SliceReader(const ByteSource& source, NALFormat format)
      : format_(std::move(format)), window_(source, source.size(), {bytesOfSlice, bytesOfSlice}) {}

  /// Nothing when there is none, or the picture brings parameter sets.
  std::optional<Bytes> read(const Sample& sample) {
    const std::uint64_t end = sample.offset + sample.size;
    std::uint64_t at = sample.offset;
    for (int unit = 0; unit < mostUnitsBefore && at < end; ++unit) {
      const auto head = readUnitHead(window_, at, end, format_);
      if (!head || head->type() == 7 || head->type() == 8) {
        return std::nullopt;
      }
      if (head->type() == 6) {
        lookForNotes(*head);
      }
      if (head->type() == 1 || head->type() == 5) {
        const View bytes = window_.at(at + format_.lengthSize, bytesOfSlice);
        const auto size = std::min<std::uint64_t>(head->length - format_.lengthSize, bytes.size());
        return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      }
      at += head->length;
    }
    return std::nullopt;
  }

  /// Whether B pictures are weighed by distance, where the encoder put that into words.
  std::optional<bool> weighsB() const { return weighsB_; }

 private:
  void lookForNotes(const UnitHead& head);

  NALFormat format_;
  MediaWindow window_;
  std::optional<bool> weighsB_;
};

// Some encoders write their settings into a message ahead of the first picture (§D.2.6).
void SliceReader::lookForNotes(const UnitHead& head) {
  constexpr std::uint64_t longest = 2048;
  constexpr std::string_view setting = " weightb=";
  const auto size = static_cast<std::size_t>(std::min(head.length - format_.lengthSize, longest));
  const View all = window_.at(head.at + format_.lengthSize, size);
  const View bytes = all.first(std::min(all.size(), size));
  const auto found = std::search(bytes.begin(), bytes.end(), setting.begin(), setting.end());
  if (static_cast<std::size_t>(bytes.end() - found) > setting.size()) {
    weighsB_ = *(found + static_cast<std::ptrdiff_t>(setting.size())) != '0';
  }
}

struct Slices {
  std::vector<Slice> slices;
  std::optional<bool> weighsB;
};

Slices slicesOf(const SampleList& samples, const ByteSource& source, const NALFormat& format,
                std::span<const std::uint64_t> losses, const StopToken& stop) {
  SliceReader reader(source, format);
  std::vector<Slice> slices;
  std::uint64_t number = 0;
  auto loss = losses.begin();
  for (const Sample& sample : samples) {
    if (slices.size() == enoughSlices) break;
    stop.check();
    const bool isBehindLoss = loss != losses.end() && *loss == number;
    loss += isBehindLoss ? 1 : 0;
    auto bytes = reader.read(sample);
    if (!bytes) {
      return {};
    }
    slices.push_back({std::move(*bytes), isBehindLoss});
    ++number;
  }
  return {std::move(slices), reader.weighsB()};
}

/// Numberings held against slices.
class Fitting {
 public:
  Fitting(std::vector<Slice> slices, ParameterSets sets)
      : slices_(std::move(slices)), sets_(std::move(sets)) {}

  bool fits(const Numbering& numbering) const;
  std::optional<Numbering> best(const Numbering& known) const;
  std::uint32_t framesKept(const Numbering& numbering, std::uint32_t known) const;
  bool hasB(const Numbering& numbering) const;

 private:
  bool endsOnWholeBytes() const { return sets_.pictures.begin()->second.tail->arithmeticCoding; }
  std::optional<Numbering> bestWith(bool weighsP, std::uint32_t weighsB) const;
  std::size_t contradicting(const Numbering& numbering) const;
  std::size_t contradicting(const Numbering& numbering, std::uint32_t frames) const;

  std::vector<Slice> slices_;
  ParameterSets sets_;
};

// Whether pictures follow one another so: numbers count on from every reference picture (§7.4.3),
// and no two neighbours are shown at once.
bool isNext(const SliceHeader& before, const SliceHeader& slice, std::uint32_t mask) {
  const std::uint32_t step = (slice.frameNumber - before.frameNumber) & mask;
  return slice.resetsOrder ||
         (step == (before.isReference ? 1U : 0U) && (!slice.order || slice.order != before.order));
}

// The slices that do not read to their end or do not follow the one before.
std::size_t Fitting::contradicting(const Numbering& numbering) const {
  const ParameterSets sets = numbering.in(sets_);
  const std::uint32_t mask = (1U << numbering.frameNumBits) - 1;
  std::optional<SliceHeader> before;
  std::size_t bad = 0;
  for (const Slice& slice : slices_) {
    const auto header = readWholeSliceHeader(slice.bytes, sets);
    const bool isGood =
        header && (!before || slice.isBehindLoss || isNext(*before, header->start, mask));
    bad += isGood ? 0 : 1;
    before = header ? std::optional(header->start) : std::nullopt;
  }
  return bad;
}

bool Fitting::fits(const Numbering& numbering) const {
  return contradicting(numbering) <= slices_.size() / damagedShare;
}

// Nothing when no numbers explain the slices with these weights, or others do nearly as well.
std::optional<Numbering> Fitting::bestWith(bool weighsP, std::uint32_t weighsB) const {
  std::optional<Numbering> best;
  std::size_t fewest = slices_.size();
  std::size_t next = slices_.size();
  const auto consider = [&](const Numbering& numbering) {
    const std::size_t bad = contradicting(numbering);
    next = std::min(next, std::max(bad, fewest));
    if (bad < fewest) {
      fewest = bad;
      best = numbering;
    }
  };
  for (unsigned frameNumBits = 4; frameNumBits <= 16; ++frameNumBits) {
    consider({frameNumBits, 2, 0, weighsP, weighsB});
    for (unsigned orderBits = 4; orderBits <= 16; ++orderBits) {
      consider({frameNumBits, 0, orderBits, weighsP, weighsB});
    }
  }
  const bool isSure = fewest <= slices_.size() / damagedShare &&
                      next >= 2 * fewest + (endsOnWholeBytes() ? 1 : surelyWorse);
  return isSure ? best : std::nullopt;
}

// With the weights of `known` if numbers fit them, before others are tried.
std::optional<Numbering> Fitting::best(const Numbering& known) const {
  const std::uint32_t otherB = known.weighsB == 1 ? 0 : 1;
  for (const bool weighsP : {known.weighsP, !known.weighsP}) {
    for (const std::uint32_t weighsB : {known.weighsB, otherB}) {
      if (auto found = bestWith(weighsP, weighsB)) {
        return found;
      }
    }
  }
  return std::nullopt;
}

bool Fitting::hasB(const Numbering& numbering) const {
  const ParameterSets sets = numbering.in(sets_);
  return std::any_of(slices_.begin(), slices_.end(), [&](const Slice& slice) {
    const auto header = readWholeSliceHeader(slice.bytes, sets);
    return header && header->start.type % 5 == 1;
  });
}

std::size_t Fitting::contradicting(const Numbering& numbering, std::uint32_t frames) const {
  const ParameterSets sets = numbering.in(sets_);
  ReferenceWindow window(frames, numbering.frameNumBits);
  PictureOrderCount counter(fittedCodec);
  for (const Slice& slice : slices_) {
    const auto header = readWholeSliceHeader(slice.bytes, sets);
    const SequenceParameters* sps = header ? sets.sequenceOf(header->start.pictureSet) : nullptr;
    if (slice.isBehindLoss || sps == nullptr) window.noteLoss();
    if (sps != nullptr) {
      window.take(*header, counter.next(header->start, slice.bytes.front(), *sps));
    }
  }
  return window.contradicting();
}

// As few as explain the most, and no fewer than the reference's.
std::uint32_t Fitting::framesKept(const Numbering& numbering, std::uint32_t known) const {
  std::uint32_t best = known;
  std::size_t fewest = contradicting(numbering, known);
  for (std::uint32_t frames = known + 1; frames <= mostFrames && fewest > 0; ++frames) {
    if (const std::size_t count = contradicting(numbering, frames); count < fewest) {
      fewest = count;
      best = frames;
    }
  }
  return best;
}

// Of a sample entry of whole frames whose sets agree in it; beside it the number of frames kept.
std::optional<std::pair<Numbering, std::uint32_t>> numberingOf(View entry,
                                                               const ParameterSets& sets) {
  std::optional<CodedNumbers> coded;
  for (const UnitPlace& unit : parameterUnits(entry, fittedCodec)) {
    const auto numbers = readNumbering(entry.subspan(unit.at, unit.size));
    if (numbers && coded && numbers->numbers != coded->numbers) {
      return std::nullopt;
    }
    coded = numbers ? numbers : coded;
  }
  if (!coded || sets.pictures.empty() || sets.sequences.empty()) {
    return std::nullopt;
  }
  const auto& first = sets.pictures.begin()->second.tail;
  const bool agree =
      std::all_of(sets.pictures.begin(), sets.pictures.end(), [&](const auto& picture) {
        const auto& tail = picture.second.tail;
        return tail && tail->weighsP == first->weighsP && tail->weighsB == first->weighsB;
      });
  const SequenceParameters& sps = sets.sequences.begin()->second;
  if (!agree || !sps.framesOnly) {
    return std::nullopt;
  }
  return std::pair(
      Numbering{sps.frameNumBits, sps.orderType, sps.orderBits, first->weighsP, first->weighsB},
      coded->numbers.back());
}

// A parameter set with this numbering, and with as many frames to be kept.
std::optional<Bytes> renumbered(View unit, const Numbering& numbering, std::uint32_t frames) {
  if (const auto known = readNumbering(unit)) {
    std::vector<std::uint32_t> numbers{numbering.frameNumBits - 4, numbering.orderType};
    if (numbering.orderType == 0) numbers.push_back(numbering.orderBits - 4);
    numbers.push_back(frames);
    Bytes written = withNumbers(unit, fittedCodec, *known, numbers);
    auto limits = readOutputLimits(written, fittedCodec);
    if (limits && limits->numbers.back() < frames) {
      limits->numbers.back() = frames;
      written = withNumbers(written, fittedCodec, *limits, limits->numbers);
    }
    const auto read = readNumbering(written);
    return read && read->numbers == numbers ? std::optional(written) : std::nullopt;
  }
  ParameterSets read;
  read.add(unit, fittedCodec);
  if (read.pictures.empty() || !read.pictures.begin()->second.tail) {
    return std::nullopt;
  }
  const std::size_t at = read.pictures.begin()->second.tail->weightsAtBit;
  return withBits(unit, fittedCodec, at, 3, (numbering.weighsP ? 4U : 0U) | numbering.weighsB);
}

// How B pictures are weighed is not in their headers. A reference without any does not say either:
// encoders that weigh P pictures by what stands in their headers let the weights of B pictures
// follow from distances.
std::uint32_t weightsOfB(const Numbering& found, const Numbering& reference,
                         std::optional<bool> noted) {
  constexpr std::uint32_t inHeaders = 1;
  constexpr std::uint32_t byDistance = 2;
  if (found.weighsB == inHeaders || (reference.orderType != 2 && !noted)) {
    return found.weighsB;
  }
  return noted.value_or(found.weighsP) ? byDistance : 0;
}

}  // namespace

std::optional<FittedEntry> sampleEntryFor(const SampleList& samples, const ByteSource& source,
                                          const Track& reference, const NALFormat& format,
                                          std::span<const std::uint64_t> losses, bool isFitted,
                                          const StopToken& stop) {
  if (format.codec != fittedCodec) {
    return std::nullopt;
  }
  const ParameterSets sets = ParameterSets::of(reference.sampleEntry, fittedCodec);
  const auto known = numberingOf(reference.sampleEntry, sets);
  Slices read = slicesOf(samples, source, format, losses, stop);
  if (!known || read.slices.size() < fewestSlices) {
    return std::nullopt;
  }
  const Fitting fitting(std::move(read.slices), sets);
  const auto& [numbering, frames] = *known;
  const bool isRenumbered = !fitting.fits(numbering);
  auto found = isRenumbered ? fitting.best(numbering) : std::optional(numbering);
  // A number of frames alone is no reason: some encoders ask for more than they keep.
  const bool isWanted = isRenumbered || isFitted;
  const std::uint32_t kept = found && isWanted ? fitting.framesKept(*found, frames) : frames;
  if (!found || (!isRenumbered && kept == frames)) {
    return std::nullopt;
  }
  if (isRenumbered && fitting.hasB(*found)) {
    found->weighsB = weightsOfB(*found, numbering, read.weighsB);
  }
  return FittedEntry{withParameterSets(reference.sampleEntry, fittedCodec,
                                       [&](View unit) { return renumbered(unit, *found, kept); }),
                     isRenumbered};
}

}  // namespace tallowmark
