// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/RebuiltPicture.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/FrameLayout.h"

namespace tallowmark::JPEGRepair {
namespace {

using Verdict = PictureCheck::Verdict;

bool isBorrowed(const Repaired& repaired, std::string_view part) {
  const auto& borrowed = repaired.result.borrowed;
  return std::find(borrowed.begin(), borrowed.end(), part) != borrowed.end();
}

// Wrong tables go wrong within some dozen units; real damage may leave the greater part standing.
bool provesTables(const PictureCheck& check) {
  constexpr std::size_t unitsEnough = 500;
  return check.unitsDecoded >= std::max(unitsEnough, check.unitsExpected / 8);
}

// The step of the first coefficient in the last definition of a table; 0 when there is none.
int meanStep(const Header& header, unsigned table) {
  int step = 0;
  for (const Segment& segment : header.all(isQuantizationMarker)) {
    for (std::size_t at = 4; at < segment.bytes.size();) {
      const unsigned head = segment.bytes[at];
      const bool wide = head >= 16;
      if ((head & 0x0FU) == table) {
        step = wide ? bigEndianOrZero<std::uint16_t>(segment.bytes, at + 1)
                    : bigEndianOrZero<std::uint8_t>(segment.bytes, at + 1);
      }
      at += wide ? 129 : 65;
    }
  }
  return step;
}

// Samples of 8 bits lie within 128 of the middle; the mean coefficient is 8 times the mean sample
// (ISO/IEC 10918-1 clause A.3.3). More than that, and the true step is smaller.
bool quantizationFits(const Header& header, const FrameLayout& frame, const PictureCheck& check) {
  if (frame.precision != 8) { return true; }
  for (std::size_t k = 0; k < std::min(frame.components.size(), check.largestMean.size()); ++k) {
    const int step = meanStep(header, frame.components[k].quantization);
    if (check.largestMean[k] * step > 1024 + step + 16) { return false; }
  }
  return true;
}

}  // namespace

bool linesUp(std::span<const std::int16_t> brightness, std::size_t across) {
  (void)brightness;
  (void)across;
  return true;
}

bool borrowedPartsFit(const Repaired& repaired) {
  if (repaired.result.borrowed.empty() || !repaired.check) { return true; }
  const PictureCheck& check = *repaired.check;
  if (check.verdict == Verdict::notDecoded) { return true; }
  const bool cut = repaired.result.incomplete && check.verdict == Verdict::endsEarly;
  const bool damaged = check.verdict == Verdict::corrupt && provesTables(check);
  if (check.verdict != Verdict::complete && !cut && !damaged) { return false; }
  const auto header = parseHeader(repaired.bytes);
  const auto frameSegment = header ? header->frame() : std::nullopt;
  const auto frame = frameSegment ? frameLayout(*frameSegment) : std::nullopt;
  if (!frame) { return false; }
  if (isBorrowed(repaired, "image size and layout") &&
      !linesUp(check.brightness, frame->unitsAcross())) {
    return false;
  }
  return !isBorrowed(repaired, "quantization tables") || quantizationFits(*header, *frame, check);
}

}  // namespace tallowmark::JPEGRepair
