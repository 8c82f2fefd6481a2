// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/StatedClock.h"

#include <set>
#include <span>

#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Bitstream/UnitHead.h"
#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark::VideoRepair {

namespace {

// Sets stand ahead of a key picture's slices, beside a few other units.
constexpr int mostUnits = 8;
constexpr std::size_t largestSet = 1024;
constexpr std::size_t readAtOnce = std::size_t{4} << 10U;

void addTick(std::set<double>& ticks, std::span<const std::uint8_t> unit, NALFormat::Codec codec) {
  if (const auto tick = readClockTick(unit, codec)) ticks.insert(*tick);
}

void addTicks(std::set<double>& ticks, const Sample& picture, MediaWindow& window,
              const NALFormat& format) {
  const std::uint64_t end = picture.offset + picture.size;
  std::uint64_t at = picture.offset;
  for (int unit = 0; unit < mostUnits && at < end; ++unit) {
    const auto head = readUnitHead(window, at, end, format);
    if (!head) {
      return;
    }
    if (head->length <= largestSet) {
      const auto length = static_cast<std::size_t>(head->length);
      const auto bytes = window.at(at, length);
      if (bytes.size() >= length) {
        addTick(ticks, bytes.subspan(format.lengthSize, length - format.lengthSize), format.codec);
      }
    }
    at += head->length;
  }
}

std::set<double> ticksIn(const SampleList& pictures, const ByteSource& source,
                         const NALFormat& format) {
  constexpr std::size_t enough = 16;
  MediaWindow window(source, source.size(), {readAtOnce, readAtOnce});
  std::set<double> ticks;
  std::size_t looked = 0;
  for (const SampleRun& run : pictures.runs()) {
    if (run.first.isSync && looked++ < enough) addTicks(ticks, run.first, window, format);
  }
  return ticks;
}

}  // namespace

std::optional<StatedClocks> StatedClocks::of(const SampleList& clip, const ByteSource& clipSource,
                                             const Track& reference,
                                             const ByteSource& referenceSource,
                                             const NALFormat& format) {
  const std::set<double> own = ticksIn(clip, clipSource, format);
  std::set<double> taught;
  for (const UnitPlace& unit : parameterUnits(reference.sampleEntry, format.codec)) {
    addTick(taught, std::span(reference.sampleEntry).subspan(unit.at, unit.size), format.codec);
  }
  if (taught.empty()) taught = ticksIn(reference.samples, referenceSource, format);
  const bool areOne = own.size() == 1 && taught.size() == 1;
  return areOne ? std::optional(StatedClocks{*own.begin(), *taught.begin()}) : std::nullopt;
}

}  // namespace tallowmark::VideoRepair
