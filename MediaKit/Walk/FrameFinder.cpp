// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/FrameFinder.h"

#include <algorithm>
#include <cmath>

namespace tallowmark {

namespace {

constexpr MediaWindow::ReadAhead scanAhead{std::size_t{4} << 10U, std::size_t{1} << 20U};
constexpr MediaWindow::ReadAhead probeAhead{512, std::size_t{4} << 10U};
/// No camera puts more units ahead of a picture; the limit keeps hostile files linear.
constexpr unsigned mostLeadingUnits = 40;
constexpr unsigned mostUnits = 2000;
constexpr unsigned fewUnits = 64;
// A unit has some hundred bytes, and is looked at two or three times.
constexpr std::uint64_t bytesForAUnit = 4;
constexpr std::uint64_t unitsAtLeast = std::uint64_t{1} << 20U;

// Filler data holds nothing but ones, as far as it is looked at (H.264 §7.3.2.7, H.265 §7.3.2.8):
// other data has the type of its header now and then.
bool isFiller(const UnitHead& head, NALFormat::Codec codec) {
  const int type = codec == NALFormat::Codec::h264 ? 12 : 38;
  const auto bytes = head.bytes().subspan(std::min(head.headerSize, head.count));
  const bool isAll = head.count < UnitHead::mostBytes;
  const auto ones = bytes.first(bytes.size() - (isAll && !bytes.empty() ? 1 : 0));
  return head.type() == type &&
         std::all_of(ones.begin(), ones.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

double log2Of(double value) {
  return std::log2(std::max(1.0, value));
}

}  // namespace

/// A frame under construction.
struct FrameFinder::Assembly {
  FoundFrame frame;
  Trust trust = Trust::learntOnly;
  unsigned units = 0;
  unsigned slices = 0;
  unsigned pictures = 0;
  std::uint16_t lastHeader = 0;
};

FrameFinder::FrameFinder(const ByteSource& source, std::uint64_t end,
                         const StreamEvidence& evidence, std::uint64_t maxFrameSize)
    : source_(source),
      end_(end),
      evidence_(evidence),
      maxFrameSize_(maxFrameSize),
      scan_(source, end, scanAhead),
      probe_(source, end, probeAhead),
      openings_(evidence, maxFrameSize),
      forbidden_(source, end),
      unitsAllowed_(unitsAtLeast) {}

// A parameter set in the stream that describes other pictures than the reference's belongs to
// another track, or to another camera.
bool FrameFinder::fitsStream(const UnitHead& head) {
  const NALFormat& format = evidence_.format();
  const bool isSequence = head.type() == (format.codec == NALFormat::Codec::h264 ? 7 : 33);
  if (!isSequence) {
    return true;
  }
  const std::vector<std::uint8_t> unit = source_.read(
      head.at + format.lengthSize,
      static_cast<std::size_t>(std::min<std::uint64_t>(head.length - format.lengthSize, 4096)));
  const auto found = readSequenceParameters(unit, format.codec);
  if (!found) {
    return false;
  }
  const auto& known = evidence_.parameterSets().sequences;
  const auto same = known.find(found->first);
  return known.empty() || (same != known.end() && same->second.width == found->second.width &&
                           same->second.height == found->second.height &&
                           same->second.bitDepth == found->second.bitDepth);
}

bool FrameFinder::takeSlice(Assembly& assembly, const UnitHead& head, const UnitHabit* habit,
                            const NALFormat::Unit& described) {
  if (!described.firstInPicture && assembly.slices == 0) {
    return false;  // a picture cannot begin in its middle
  }
  const auto slice =
      readSliceHeader(head.bytes(), evidence_.parameterSets(), evidence_.format().codec);
  const bool setsAreKnown = !evidence_.parameterSets().pictures.empty();
  if (setsAreKnown && !slice) {
    return false;
  }
  double sliceBits = 0;
  if (habit != nullptr && slice) {
    const auto& kinds = described.firstInPicture ? habit->firstSlices : habit->laterSlices;
    const bool known = kinds.contains({slice->type, slice->pictureSet});
    assembly.frame.isLearnt = assembly.frame.isLearnt && (known || kinds.empty());
    sliceBits = known ? 5 : 1;
  } else if (slice) {
    sliceBits = 2;
  }
  const double sizes = habit != nullptr ? 4.0 * habit->largest : static_cast<double>(maxFrameSize_);
  const auto headers = static_cast<double>(evidence_.habits().size());
  assembly.frame.bits +=
      8.0 * static_cast<double>(evidence_.format().lengthSize) - log2Of(sizes) +
      (habit != nullptr ? 8.0 * static_cast<double>(head.headerSize) - log2Of(headers) : 2) +
      sliceBits;
  if (assembly.slices == 0) {
    assembly.frame.slice = slice.value_or(SliceHeader{});
  }
  assembly.frame.isLearnt = assembly.frame.isLearnt && habit != nullptr && !habit->isAssumed;
  assembly.pictures += described.firstInPicture ? 1 : 0;
  ++assembly.slices;
  assembly.frame.isKeyframe = assembly.frame.isKeyframe || described.isKeyframe;
  return true;
}

bool FrameFinder::takeOther(Assembly& assembly, const UnitHead& head, const UnitHabit* habit,
                            bool standardAllows, bool startsAccessUnit) {
  const bool leading = assembly.slices == 0;
  if (leading && assembly.units >= mostLeadingUnits) {
    return false;
  }
  const bool learnt =
      habit != nullptr && (leading ? habit->leads : habit->trails || habit->between);
  if (!leading && isFiller(head, evidence_.format().codec)) {
    return true;  // cameras of constant bit rate fill up with any number of bytes
  }
  if (!learnt && (assembly.trust == Trust::learntOnly || !standardAllows)) {
    return false;
  }
  if (!learnt && !leading && startsAccessUnit) {
    return false;
  }
  const std::uint64_t body = head.length - evidence_.format().lengthSize;
  if (learnt) {
    if (body > habit->mostBytes()) {
      return false;
    }
    const bool usualSize = body >= habit->smallest && body <= habit->largest;
    const double sizes = usualSize ? habit->largest - habit->smallest + 1.0
                                   : static_cast<double>(habit->mostBytes());
    assembly.frame.bits += 8.0 * static_cast<double>(evidence_.format().lengthSize) -
                           log2Of(sizes) + 8.0 * static_cast<double>(head.headerSize) -
                           log2Of(static_cast<double>(evidence_.habits().size()));
  } else {
    assembly.frame.bits += 4;
  }
  return fitsStream(head);
}

// Whether a unit behind the first slice opens the next frame.
bool FrameFinder::belongsToNext(const Assembly& assembly, const UnitHead& head,
                                const UnitHabit* habit, const NALFormat::Unit& described) {
  if (described.firstInPicture) {
    if (!evidence_.hasFieldPairs() || assembly.pictures != 1 || !assembly.frame.slice.isField) {
      return true;
    }
    const auto slice =
        readSliceHeader(head.bytes(), evidence_.parameterSets(), evidence_.format().codec);
    return !slice || !slice->isField ||
           slice->isBottomField == assembly.frame.slice.isBottomField ||
           slice->frameNumber != assembly.frame.slice.frameNumber;
  }
  if (!described.startsAccessUnit) {
    return false;
  }
  const bool betweenFields = evidence_.hasFieldPairs() && assembly.pictures == 1 &&
                             assembly.frame.slice.isField && habit != nullptr && habit->between;
  const bool onlyTrails = habit != nullptr && habit->trails && !habit->leads;
  return !betweenFields && !onlyTrails;
}

bool FrameFinder::takeUnit(Assembly& assembly, const UnitHead& head) {
  const UnitHabit* habit = evidence_.habit(head.header);
  const bool fillsUp = assembly.slices > 0 && isFiller(head, evidence_.format().codec);
  if (assembly.trust == Trust::learntOnly && !fillsUp &&
      (habit == nullptr || (assembly.units == 0 && !habit->starts))) {
    return false;
  }
  const auto described = evidence_.format().describe(head.header, head.afterHeader());
  const NALFormat::Unit plain = described.value_or(NALFormat::Unit{});
  if (assembly.slices > 0 && belongsToNext(assembly, head, habit, plain)) {
    return false;
  }
  const bool taken =
      plain.isVCL ? takeSlice(assembly, head, habit, plain)
                  : takeOther(assembly, head, habit, described.has_value(), plain.startsAccessUnit);
  if (taken) {
    assembly.frame.recovers =
        assembly.frame.recovers || tellsRecovery(head, evidence_.format().codec);
    ++assembly.units;
    assembly.lastHeader = head.header;
    assembly.frame.size += head.length;
  }
  return taken;
}

void FrameFinder::forgetBefore(std::uint64_t offset) {
  forbidden_.forgetBefore(offset);
  if (offset > goneThrough_) {
    unitsAllowed_ += (offset - goneThrough_) / bytesForAUnit;
    goneThrough_ = offset;
  }
}

std::optional<FoundFrame> FrameFinder::frameAt(std::uint64_t offset, Trust trust) {
  Assembly assembly;
  assembly.trust = trust;
  return assemble(assembly, offset, mostUnits);
}

std::optional<FoundFrame> FrameFinder::maybeFrameAt(std::uint64_t offset) {
  Assembly assembly;
  const unsigned limit = isOverworked() ? fewUnits : mostUnits;
  auto frame = assemble(assembly, offset, limit);
  // What is cut short here is no frame of that size.
  return limit == fewUnits && assembly.units == fewUnits ? std::nullopt : frame;
}

std::optional<FoundFrame> FrameFinder::assemble(Assembly& assembly, std::uint64_t offset,
                                                unsigned most) {
  assembly.frame.offset = offset;
  const std::uint64_t limit = std::min(end_, offset + maxFrameSize_);
  while (assembly.units < most) {
    ++unitsSeen_;
    const std::uint64_t at = assembly.frame.end();
    MediaWindow& window = scan_.holds(at, mostBytesOfHead) ? scan_ : probe_;
    const auto head = readUnitHead(window, at, limit, evidence_.format());
    if (!head || !takeUnit(assembly, *head)) {
      break;
    }
  }
  if (assembly.slices == 0) {
    return std::nullopt;
  }
  const auto closing = evidence_.closingHeader();
  assembly.frame.isComplete =
      assembly.slices >= evidence_.fewestSlices() && (!closing || assembly.lastHeader == *closing);
  return assembly.frame;
}

std::optional<FoundFrame> FrameFinder::search(std::uint64_t from, std::uint64_t to) {
  const std::size_t least = openings_.length();
  for (std::uint64_t at = from; at < to && !openings_.empty();) {
    auto bytes = scan_.at(at, least);
    if (bytes.size() < least) {
      return std::nullopt;
    }
    bytes = bytes.first(
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), to - at + least - 1)));
    for (auto hit = openings_.find(bytes, 0); hit; hit = openings_.find(bytes, *hit + 1)) {
      if (auto frame = maybeFrameAt(at + *hit)) {
        return frame;
      }
    }
    at += bytes.size() - least + 1;
  }
  return std::nullopt;
}

bool FrameFinder::isContradicted(const FoundFrame& frame, std::uint64_t most) {
  if (evidence_.breaksEmulationRule()) {
    return false;
  }
  const std::size_t prefix = evidence_.format().lengthSize;
  const std::uint64_t until = frame.offset + std::min(most, frame.size);
  for (std::uint64_t at = frame.offset; at < until;) {
    const auto head = readUnitHead(probe_, at, frame.end(), evidence_.format());
    if (!head) {
      return false;
    }
    if (forbidden_.anyIn(at + prefix, std::min(at + head->length, until))) {
      return true;
    }
    at += head->length;
  }
  return false;
}

}  // namespace tallowmark
