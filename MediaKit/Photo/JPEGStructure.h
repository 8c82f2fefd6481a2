// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <vector>

#include "MediaKit/Photo/MarkerSearch.h"

/// JPEG files (ISO/IEC 10918-1) in memory: what they hold, what is wrong with them, and how they
/// open again. Positions count from the start of the data.
namespace tallowmark::JPEGRepair {

/// One marker segment as it stands in the file. Borrows the data it was found in.
struct Segment {
  /// The byte after 0xFF.
  std::uint8_t marker = 0;
  /// Where its 0xFF stands.
  std::size_t offset = 0;
  /// All of it: 0xFF, the marker, the two-byte length and what the length covers.
  ByteView bytes;
};

/// Set of marker codes to pick segments by.
using MarkerSet = bool (*)(std::uint8_t code);
bool isFrameMarker(std::uint8_t code);
bool isQuantizationMarker(std::uint8_t code);
bool isHuffmanMarker(std::uint8_t code);

struct Dimensions {
  int width = 0;
  int height = 0;
  friend bool operator==(const Dimensions&, const Dimensions&) = default;
};

/// Everything between the start of the image and its first scan.
struct Header {
  /// In file order, without the start of scan.
  std::vector<Segment> segments;
  Segment sos;
  /// First byte of entropy-coded data.
  std::size_t scanStart = 0;

  /// The segments whose marker is in the set, in file order.
  std::vector<Segment> all(MarkerSet markers) const;
  /// The first frame header.
  std::optional<Segment> frame() const;
  /// From the frame header; height 0 when it leaves the number of lines to a DNL segment.
  std::optional<Dimensions> dimensions() const;
  /// Whether the tables that the frame and the first scan refer to are all defined. A scan needs
  /// those of its coding process: none for DC refinement, only DC tables for a first DC scan.
  bool isComplete() const;
};

/// Which tables a DQT or DHT segment defines.
enum class TableKind { quantization, huffman };

using TableIDs = std::set<int>;

/// The strict walk from SOI to the first SOS; nothing when anything but segments lies between.
std::optional<Header> parseHeader(ByteView data);

/// Width and height as a frame header gives them; nothing when it is too short.
std::optional<Dimensions> frameDimensions(const Segment& frame);

/// Identifiers that DQT or DHT segments define; DC tables are 0x00–0x0F, AC tables 0x10–0x1F.
TableIDs tableIDs(std::span<const Segment> segments, TableKind kind);

/// Identifiers that a frame header's components refer to.
TableIDs neededQuantIDs(const Segment& frame);

/// Identifiers that a scan header's components refer to, DC and AC alike, as a sequential scan
/// needs them.
TableIDs neededHuffmanIDs(const Segment& sos);

/// Identifiers that the scan really decodes with in the coding process of its frame.
TableIDs decodedHuffmanIDs(const Segment& frame, const Segment& sos);

/// Whether `defined` holds all of `needed`.
bool covers(const TableIDs& defined, const TableIDs& needed);

}  // namespace tallowmark::JPEGRepair
