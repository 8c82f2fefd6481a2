// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/FrameLayout.h"

#include <algorithm>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

constexpr std::size_t blockSide = 8;

std::size_t dividedUp(std::size_t value, std::size_t divisor) {
  return (value + divisor - 1) / divisor;
}

bool precisionFits(std::uint8_t marker, unsigned precision) {
  if (marker == JPEGMarker::baselineFrame) {
    return precision == 8;
  }
  if ((marker & 0x03U) == 0x03U) {
    return precision >= 2 && precision <= 16;
  }
  return precision == 8 || precision == 12;
}

bool parametersFit(const FrameLayout& frame, const ScanLayout& scan) {
  if (frame.marker == JPEGMarker::baselineFrame || frame.marker == JPEGMarker::extendedFrame) {
    return scan.spectralStart == 0 && scan.spectralEnd == 63 && scan.approximationHigh == 0 &&
           scan.approximationLow == 0;
  }
  if (frame.marker == JPEGMarker::progressiveFrame) {
    const bool dcAlone = scan.spectralStart == 0 && scan.spectralEnd == 0;
    const bool acAlone = scan.spectralStart > 0 && scan.spectralEnd >= scan.spectralStart &&
                         scan.spectralEnd <= 63 && scan.components.size() == 1;
    const bool bitsFit =
        scan.approximationLow <= 13 &&
        (scan.approximationHigh == 0 || scan.approximationHigh == scan.approximationLow + 1);
    return (dcAlone || acAlone) && bitsFit;
  }
  return true;
}

}  // namespace

std::size_t FrameLayout::mostHorizontal() const {
  std::size_t most = 1;
  for (const Component& component : components) {
    most = std::max(most, component.horizontal);
  }
  return most;
}

std::size_t FrameLayout::mostVertical() const {
  std::size_t most = 1;
  for (const Component& component : components) {
    most = std::max(most, component.vertical);
  }
  return most;
}

std::size_t FrameLayout::unitsAcross() const {
  return dividedUp(width, blockSide * mostHorizontal());
}

std::size_t FrameLayout::unitsDown() const {
  return dividedUp(height, blockSide * mostVertical());
}

// Clause A.1.1: a component's own size is the picture's, scaled by its sampling and rounded up.
std::size_t FrameLayout::blocksAcross(const Component& component) const {
  return dividedUp(dividedUp(width * component.horizontal, mostHorizontal()), blockSide);
}

std::size_t FrameLayout::blocksDown(const Component& component) const {
  return dividedUp(dividedUp(height * component.vertical, mostVertical()), blockSide);
}

bool addsUp(const Segment& frame) {
  const ByteView bytes = frame.bytes;
  if (!JPEGMarker::isFrame(frame.marker) || bytes.size() < 13 ||
      bytes.size() != 10 + 3 * std::size_t{bytes[9]} || !precisionFits(frame.marker, bytes[4]) ||
      bigEndian<std::uint16_t>(bytes, 7) == 0) {
    return false;
  }
  for (std::size_t at = 11; at < bytes.size(); at += 3) {
    const unsigned horizontal = bytes[at] >> 4U;
    const unsigned vertical = bytes[at] & 0x0FU;
    if (horizontal < 1 || horizontal > 4 || vertical < 1 || vertical > 4) {
      return false;
    }
  }
  return true;
}

std::optional<FrameLayout> frameLayout(const Segment& frame) {
  const ByteView bytes = frame.bytes;
  if (!addsUp(frame) || bytes[9] > 4) {
    return std::nullopt;
  }
  FrameLayout layout{.marker = frame.marker,
                     .precision = bytes[4],
                     .width = bigEndian<std::uint16_t>(bytes, 7),
                     .height = bigEndian<std::uint16_t>(bytes, 5),
                     .components = {}};
  for (std::size_t k = 0; k < bytes[9]; ++k) {
    const ByteView entry = bytes.subspan(10 + 3 * k, 3);
    const FrameLayout::Component component{.id = entry[0],
                                           .horizontal = std::size_t{entry[1]} >> 4U,
                                           .vertical = std::size_t{entry[1]} & 0x0FU,
                                           .quantization = entry[2]};
    const bool known = std::any_of(layout.components.begin(), layout.components.end(),
                                   [&](const auto& other) { return other.id == component.id; });
    if (known || component.quantization > 3) {
      return std::nullopt;
    }
    layout.components.push_back(component);
  }
  return layout;
}

std::optional<ScanLayout> scanLayout(const Segment& sos, const FrameLayout& frame) {
  const ByteView bytes = sos.bytes;
  if (bytes.size() < 10) {
    return std::nullopt;
  }
  const std::size_t count = bytes[4];
  if (count < 1 || count > frame.components.size() || bytes.size() != 8 + 2 * count) {
    return std::nullopt;
  }
  ScanLayout layout;
  for (std::size_t k = 0; k < count; ++k) {
    const std::uint8_t id = bytes[5 + 2 * k];
    const unsigned selectors = bytes[6 + 2 * k];
    const auto found = std::find_if(frame.components.begin(), frame.components.end(),
                                    [id](const auto& component) { return component.id == id; });
    if (found == frame.components.end() || (selectors >> 4U) > 3 || (selectors & 0x0FU) > 3) {
      return std::nullopt;
    }
    layout.components.push_back(
        {.index = static_cast<std::size_t>(found - frame.components.begin()),
         .dcTable = static_cast<std::uint8_t>(selectors >> 4U),
         .acTable = static_cast<std::uint8_t>(selectors & 0x0FU)});
  }
  const ByteView parameters = bytes.subspan(5 + 2 * count, 3);
  layout.spectralStart = parameters[0];
  layout.spectralEnd = parameters[1];
  layout.approximationHigh = parameters[2] >> 4U;
  layout.approximationLow = parameters[2] & 0x0FU;
  return parametersFit(frame, layout) ? std::optional(layout) : std::nullopt;
}

}  // namespace tallowmark::JPEGRepair
