// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "MediaKit/Photo/JPEGStructure.h"

namespace tallowmark::JPEGRepair {

/// A start of scan and the first byte of its entropy-coded data.
struct ScanStart {
  Segment sos;
  std::size_t scanStart = 0;
};

/// Length of the entropy-coded run from `start` on: up to the first marker that is no restart
/// marker. The file's last byte is not counted unless it belongs to a pair (0xFF and what follows).
std::size_t entropyLength(ByteView data, std::size_t start);

/// The well-formed start of scan with the longest run behind it, whatever lies before; nothing when
/// that run is shorter than 64 bytes.
std::optional<ScanStart> findMainScan(ByteView data);

/// The same for the photo that the file began as: where another file starts in the midst of picture
/// data, nothing of that is looked at.
std::optional<ScanStart> findOwnMainScan(ByteView data);

/// Whether another JPEG's first bytes stand at `at`.
bool startsAnotherFile(ByteView data, std::size_t at);

/// Whether the file ends with EOI, zeros behind it aside: cameras and card readers leave them.
bool hasEnd(ByteView data);

/// Bytes up to and including the last that is not zero.
std::size_t lengthWithoutTrailingZeros(ByteView data);

/// What the scans of one picture are, from the first on. A progressive picture has several, with
/// tables between them.
struct PictureData {
  std::vector<ScanStart> scans;
  /// Tables and other segments between the scans.
  std::vector<Segment> between;
  /// Just past the EOI, or where the walk stopped.
  std::size_t end = 0;
  /// The scans end with EOI.
  bool ended = false;
  /// The data ends inside the segment that starts at `end`: nothing of it is of use.
  bool cutInSegment = false;
};

/// Walks from a scan to the picture's end: over restart markers, DNL, tables and further scans.
PictureData walkPicture(ByteView data, const ScanStart& first);

/// The first scan of the picture that `scan` belongs to: earlier scans are its own when nothing but
/// tables lies between their end and it.
ScanStart firstScanOfPicture(ByteView data, const ScanStart& scan);

/// Whether restart markers stand in the run of entropy-coded data at `start`.
bool hasRestartMarkers(ByteView data, std::size_t start);

}  // namespace tallowmark::JPEGRepair
