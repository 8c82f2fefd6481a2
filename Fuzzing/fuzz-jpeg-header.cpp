// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes through the header walk, the scan search, the diagnosis and the decoding check.
#include <cstdlib>

#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Photo/StrayMarkers.h"

namespace {

using namespace tallowmark;
using namespace tallowmark::JPEGRepair;

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  if (const auto header = parseHeader(bytes)) {
    require(header->scanStart <= size);
    require(header->scanStart + entropyLength(bytes, header->scanStart) <= size);
    const PictureData picture =
        walkPicture(bytes, {.sos = header->sos, .scanStart = header->scanStart});
    require(picture.end <= size && !picture.scans.empty());
  }
  if (const auto scan = findMainScan(bytes)) {
    require(entropyLength(bytes, scan->scanStart) >= 64);
    require(firstScanOfPicture(bytes, *scan).sos.offset <= scan->sos.offset);
  }
  const PictureCheck check = checkPicture(bytes);
  require(check.unitsDecoded <= check.unitsExpected);
  const Diagnosis diagnosis = diagnose(bytes);
  require(diagnosis == Diagnosis::damagedHeader || !needsReference(bytes));
  if (const auto header = parseHeader(bytes)) {
    const OwnData own =
        findOwnData(bytes, header->frame(), {.sos = header->sos, .scanStart = header->scanStart});
    require(own.end <= size);
    for (const std::size_t stray : own.strays) require(stray + 1 < size);
    // What has its end is cut short only where other data stands in it.
    const bool isBroken = !own.strays.empty() || !own.ended;
    require(!hasEnd(bytes) || isBroken || diagnosis != Diagnosis::truncated);
  }
  return 0;
}
