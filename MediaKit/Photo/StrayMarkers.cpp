// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/StrayMarkers.h"

#include <optional>

#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/JPEGScan.h"
#include "MediaKit/Photo/PictureCheck.h"

namespace tallowmark::JPEGRepair {

namespace {

// Each costs decoding the picture twice.
constexpr std::size_t mostStrays = 16;

// TEM, which may stand anywhere and means nothing to decoders, is none of them.
bool isReserved(std::uint8_t code) {
  return (code >= 0x02 && code <= 0xBF) || code == 0xC8 || (code >= 0xF0 && code <= 0xFD);
}

constexpr std::size_t restartMarkers = 8;

// Whose turn it is at `place`: the number of the restart markers ahead in its scan, modulo 8.
std::size_t turnAt(ByteView data, const Header& header, std::size_t place) {
  std::size_t from = header.scanStart;
  for (const ScanStart& scan :
       walkPicture(data, {.sos = header.sos, .scanStart = header.scanStart}).scans) {
    if (scan.scanStart <= place) from = scan.scanStart;
  }
  std::size_t count = 0;
  for (std::size_t at = from; at + 1 < place; ++at) {
    if (data[at] == 0xFF && JPEGMarker::isRestart(data[at + 1])) ++count;
  }
  return count % restartMarkers;
}

// The number of the next restart marker of the scan.
std::optional<std::size_t> nextTurn(ByteView data, std::size_t from) {
  for (std::size_t at = from; at + 1 < data.size(); ++at) {
    if (data[at] != 0xFF || data[at + 1] == 0 || data[at + 1] == 0xFF) continue;
    if (!JPEGMarker::isRestart(data[at + 1])) return std::nullopt;
    return static_cast<std::size_t>(data[at + 1] - JPEGMarker::firstRestart);
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::size_t> findStrayMarkers(ByteView data, const Header& header) {
  std::vector<std::size_t> strays;
  ScanStart from{.sos = header.sos, .scanStart = header.scanStart};
  for (;;) {
    const PictureData picture = walkPicture(data, from);
    if (picture.ended) return strays;
    const bool isStray =
        !picture.cutInSegment && picture.end + 1 < data.size() && isReserved(data[picture.end + 1]);
    if (!isStray || strays.size() == mostStrays) return {};
    strays.push_back(picture.end);
    from.scanStart = picture.end + 2;
  }
}

std::vector<std::uint8_t> withoutStrayMarkers(ByteView data, const Header& header,
                                              const std::vector<std::size_t>& strays) {
  constexpr std::uint8_t stuffedZero = 0;
  std::vector<std::uint8_t> mended(data.begin(), data.end());
  for (const std::size_t stray : strays) mended[stray + 1] = stuffedZero;
  for (const std::size_t stray : strays) {
    const std::size_t turn = turnAt(mended, header, stray);
    const auto next = nextTurn(mended, stray + 2);
    if (next == turn) continue;
    const std::size_t asByte = checkPicture(mended).unitsDecoded;
    mended[stray + 1] = static_cast<std::uint8_t>(JPEGMarker::firstRestart + turn);
    const bool isTaken = next == (turn + 1) % restartMarkers;
    if (!isTaken && checkPicture(mended).unitsDecoded <= asByte) mended[stray + 1] = stuffedZero;
  }
  return mended;
}

}  // namespace tallowmark::JPEGRepair
