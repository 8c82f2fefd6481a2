// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <vector>

#include "MediaKit/Photo/JPEGStructure.h"

namespace tallowmark::JPEGRepair {

/// The frame headers, tables and restart intervals that can still be read before a scan, in file
/// order: behind the last EOI before it (an embedded thumbnail's end), well formed, and wholly
/// before `before`. Damaged bytes between them are stepped over.
std::vector<Segment> salvageSegments(ByteView data, std::size_t before);

/// What survives before a scan, by how sure it is to belong there.
struct Survivors {
  /// From each of these, segment after segment leads exactly to the scan.
  std::vector<Segment> linked;
  /// These and the salvaged segments that lead nowhere, damage lying between; without those that
  /// lead to the scan of another picture, such as a thumbnail in a maker note.
  std::vector<Segment> all;
};

Survivors survivorsBefore(ByteView data, std::size_t before);

/// A frame header, DQT, DHT or DRI segment whose contents add up.
bool isWellFormed(const Segment& segment);

}  // namespace tallowmark::JPEGRepair
