// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/JPEGRepair.h"

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/HeaderRebuild.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/StrayMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

ScanStart firstScan(const Header& header) {
  return {.sos = header.sos, .scanStart = header.scanStart};
}

// Pictures of several scans may define a table as late as before the scan that needs it
// (ISO/IEC 10918-1 clause B.2.4).
bool tablesComeLater(ByteView data, const Header& header) {
  const auto frame = header.frame();
  if (!frame) {
    return false;
  }
  Header whole = header;
  for (const Segment& segment : walkPicture(data, firstScan(header)).between) {
    whole.segments.push_back(segment);
  }
  return covers(tableIDs(header.all(isHuffmanMarker), TableKind::huffman),
                decodedHuffmanIDs(*frame, header.sos)) &&
         whole.isComplete();
}

// Maker's data, a second picture or a film may follow the end of the picture. Then only its own
// data can tell that it is whole: what follows may as well be the rest of some other file.
bool picturesOwnDataIsWhole(ByteView data, const Header& header) {
  if (!walkPicture(data, firstScan(header)).ended) {
    return false;
  }
  const auto verdict = checkPicture(data).verdict;
  return verdict == PictureCheck::Verdict::complete ||
         verdict == PictureCheck::Verdict::dataLeftOver ||
         verdict == PictureCheck::Verdict::notDecoded;
}

bool isWhole(ByteView data, const Header& header) {
  return hasEnd(data) || picturesOwnDataIsWhole(data, header);
}

std::optional<Header> usableHeader(ByteView data) {
  auto header = parseHeader(data);
  if (header && !header->isComplete() && !tablesComeLater(data, *header)) {
    header.reset();
  }
  return header;
}

Result resultOf(Result::Fix fix, const Header& header) {
  const Dimensions size = header.dimensions().value_or(Dimensions{});
  return {.fix = fix,
          .width = size.width,
          .height = size.height,
          .borrowed = {},
          .incomplete = fix == Result::Fix::closedEnd};
}

// A cut through the tables between two scans would leave a decoder with half a table.
ByteView withoutHalfSegment(ByteView data, const Header& header) {
  const auto frame = header.frame();
  if (!frame || frame->marker != JPEGMarker::progressiveFrame) {
    return data;
  }
  const ByteView sound = data.first(lengthWithoutTrailingZeros(data));
  const PictureData picture = walkPicture(sound, firstScan(header));
  return picture.cutInSegment ? data.first(picture.end) : data;
}

}  // namespace

Diagnosis diagnose(ByteView data) {
  if (const auto header = usableHeader(data)) {
    const bool opens = isWhole(data, *header) && findStrayMarkers(data, *header).empty();
    return opens ? Diagnosis::healthy : Diagnosis::truncated;
  }
  return findMainScan(data) ? Diagnosis::damagedHeader : Diagnosis::notJPEG;
}

bool needsReference(ByteView data) {
  return !usableHeader(data) && findMainScan(data) && !headerSurvives(data);
}

Repaired repair(ByteView data, std::optional<ByteView> reference) {
  if (const auto header = usableHeader(data)) {
    if (const auto strays = findStrayMarkers(data, *header); !strays.empty()) {
      Result result = resultOf(Result::Fix::closedEnd, *header);
      result.incomplete = false;
      return {.bytes = withoutStrayMarkers(data, *header, strays),
              .result = result,
              .endClosed = false,
              .check = std::nullopt};
    }
    if (isWhole(data, *header)) {
      return {.bytes = {data.begin(), data.end()},
              .result = resultOf(Result::Fix::none, *header),
              .endClosed = false,
              .check = std::nullopt};
    }
    return {.bytes = closeEnd(withoutHalfSegment(data, *header)),
            .result = resultOf(Result::Fix::closedEnd, *header),
            .endClosed = true,
            .check = std::nullopt};
  }
  if (!findMainScan(data)) {
    throw MediaError::unsupported("This doesn't look like a JPEG photo.");
  }
  return rebuildHeader(data, reference);
}

std::vector<std::uint8_t> closeEnd(ByteView data) {
  std::size_t length = lengthWithoutTrailingZeros(data);
  if (length > 0 && data[length - 1] == 0xFF) {
    --length;
  }
  std::vector<std::uint8_t> closed;
  closed.reserve(length + 2);
  closed.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
  closed.insert(closed.end(), {0xFF, JPEGMarker::endOfImage});
  return closed;
}

}  // namespace tallowmark::JPEGRepair
