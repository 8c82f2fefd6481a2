// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Photo/JPEGScan.h"
#include "MediaKit/Photo/JPEGStructure.h"

/// Decodes a picture's entropy-coded data without making a picture of it: enough to tell whether a
/// header belongs with its data, and whether the data is all there.
namespace tallowmark::JPEGRepair {

struct PictureCheck {
  enum class Verdict {
    /// Every unit the header promises was decoded, and then the data ended.
    complete,
    /// The data is sound and ends before the picture does.
    endsEarly,
    /// Bits that are no code, a block with too many coefficients, a restart marker out of turn, a
    /// scan of components that the frame does not have.
    corrupt,
    /// Every unit was decoded and data was left: the picture is larger than the header says.
    dataLeftOver,
    /// The coding process is none that is decoded here, or the header lacks something.
    notDecoded,
  };

  Verdict verdict = Verdict::notDecoded;
  /// Some of the picture is not there, or not what it was.
  bool lacksParts() const { return verdict == Verdict::endsEarly || verdict == Verdict::corrupt; }
  /// Units (MCUs) of the first scan: decoded without a fault, in the whole picture, in a row.
  std::size_t unitsDecoded = 0;
  std::size_t unitsExpected = 0;
  std::size_t unitsAcross = 0;
  /// Units before the first restart marker, when there is one that the header does not announce.
  std::optional<std::size_t> unitsToRestart;
  /// Mean brightness of the last block that each decoded unit of the first scan has in its first
  /// component, in quantized steps; of the first 2^17 units, which is more than are compared.
  std::vector<std::int16_t> brightness;
  /// The largest mean, either way, of any block that the first scan has of each component of the
  /// frame, in quantized steps.
  std::vector<int> largestMean;
};

/// A picture's header in pieces, which need not stand in one file.
struct PictureParts {
  Segment frame;
  /// DHT and DRI segments, in the order in which they take effect. Others are passed over.
  std::vector<Segment> tables;
  /// Lies in the data that is checked.
  ScanStart first;
};

/// Time grows with the data, never with what the header claims.
PictureCheck checkPicture(ByteView data, const PictureParts& parts);

/// The same for a whole file whose header walks.
PictureCheck checkPicture(ByteView jpeg);

}  // namespace tallowmark::JPEGRepair
