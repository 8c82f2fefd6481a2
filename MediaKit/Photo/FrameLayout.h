// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Photo/JPEGStructure.h"

namespace tallowmark::JPEGRepair {

/// A well-formed frame header (ISO/IEC 10918-1 clause B.2.2).
struct FrameLayout {
  struct Component {
    std::uint8_t id = 0;
    /// Blocks of the component in a unit of an interleaved scan, 1 to 4 each way.
    std::size_t horizontal = 1;
    std::size_t vertical = 1;
    std::uint8_t quantization = 0;
  };

  std::uint8_t marker = 0;
  unsigned precision = 8;
  std::size_t width = 0;
  /// 0 when a DNL segment behind the first scan tells.
  std::size_t height = 0;
  std::vector<Component> components;

  std::size_t mostHorizontal() const;
  std::size_t mostVertical() const;
  /// Interleaved units in a row and in a column of the picture.
  std::size_t unitsAcross() const;
  std::size_t unitsDown() const;
  /// Blocks in a row and a column of one component, as a scan of that component alone has them.
  std::size_t blocksAcross(const Component& component) const;
  std::size_t blocksDown(const Component& component) const;
};

/// A well-formed scan header (clause B.2.3) whose components the frame has.
struct ScanLayout {
  struct Component {
    std::size_t index = 0;  // into FrameLayout::components
    std::uint8_t dcTable = 0;
    std::uint8_t acTable = 0;
  };
  std::vector<Component> components;
  /// First and last coefficient, and the bit position before and after, of a progressive scan.
  unsigned spectralStart = 0;
  unsigned spectralEnd = 63;
  unsigned approximationHigh = 0;
  unsigned approximationLow = 0;
};

/// Whether a frame header is one that decoders take: its length, precision and sampling.
bool addsUp(const Segment& frame);

/// Nothing when a number cannot stand where it stands.
std::optional<FrameLayout> frameLayout(const Segment& frame);

/// Nothing when the scan header is malformed or does not belong to this frame.
std::optional<ScanLayout> scanLayout(const Segment& sos, const FrameLayout& frame);

}  // namespace tallowmark::JPEGRepair
