// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/JPEGRepair.h"

#include <algorithm>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/HeaderRebuild.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/SegmentSalvage.h"
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

OwnData ownData(ByteView data, const Header& header) {
  return findOwnData(data, header.frame(), firstScan(header));
}

// Maker's data, a second picture or a film may follow the end of the picture. Then only its own
// data can tell that it is whole: what follows may as well be the rest of some other file.
bool isWhole(ByteView data, const OwnData& own) {
  if (!own.strays.empty()) {
    return false;
  }
  if (hasEnd(data) && (own.ended || own.end == data.size())) {
    return true;
  }
  if (!own.ended && !hasEnd(data)) {
    return false;
  }
  const auto verdict = checkPicture(data).verdict;
  return verdict == PictureCheck::Verdict::complete ||
         verdict == PictureCheck::Verdict::dataLeftOver ||
         (verdict == PictureCheck::Verdict::notDecoded && own.ended);
}

bool namesComponentsOf(const Segment& frame, const Segment& sos) {
  const std::size_t count = sos.bytes.size() < 10 ? 0 : sos.bytes[4];
  if (sos.bytes.size() != 8 + 2 * count) {
    return false;
  }
  for (std::size_t k = 0; k < count; ++k) {
    bool found = false;
    for (std::size_t at = 10; at < frame.bytes.size(); at += 3) {
      found = found || frame.bytes[at] == sos.bytes[5 + 2 * k];
    }
    if (!found) {
      return false;
    }
  }
  return true;
}

// Where it is not so, decoders give up before they see any of the picture.
bool headerAddsUp(const Header& header) {
  const auto frame = header.frame();
  const auto tablesAddUp = [&header](MarkerSet markers) {
    const auto tables = header.all(markers);
    return std::all_of(tables.begin(), tables.end(), [](const Segment& segment) {
      return segment.bytes.size() == 4 || isWellFormed(segment);  // one without tables harms nobody
    });
  };
  return frame && addsUp(*frame) && namesComponentsOf(*frame, header.sos) &&
         tablesAddUp(isQuantizationMarker) && tablesAddUp(isHuffmanMarker);
}

std::optional<Header> usableHeader(ByteView data) {
  auto header = parseHeader(data);
  if (!header || (!header->isComplete() && !tablesComeLater(data, *header))) {
    return std::nullopt;
  }
  // A picture that has its end would pass for healthy by its structure alone.
  const bool passes = headerAddsUp(*header) || !walkPicture(data, firstScan(*header)).ended;
  return passes || !findMainScan(data) ? std::move(header) : std::nullopt;
}

Result resultOf(Result::Fix fix, const Header& header) {
  const Dimensions size = header.dimensions().value_or(Dimensions{});
  return {.fix = fix,
          .width = size.width,
          .height = size.height,
          .borrowed = {},
          .incomplete = fix == Result::Fix::closedEnd};
}

// What is no part of the picture goes: decoders give up where it holds markers, or half a table.
Repaired closed(ByteView data, const Header& header, const OwnData& own) {
  Result result = resultOf(Result::Fix::closedEnd, header);
  if (own.ended && !own.strays.empty()) {
    auto mended = withoutStrayMarkers(data, header, own);
    result.incomplete = checkPicture(mended).lacksParts();
    return {std::move(mended), std::move(result), false, std::nullopt};
  }
  const ByteView picture = own.ended ? data : data.first(own.end);
  const auto mended = withoutStrayMarkers(picture, header, own);
  // The scan's header may end with a zero.
  const bool isEmpty = lengthWithoutTrailingZeros(mended) <= header.scanStart;
  auto bytes = isEmpty ? mended : closeEnd(mended);
  if (isEmpty) {
    bytes.resize(header.scanStart);
    bytes.insert(bytes.end(), {0xFF, JPEGMarker::endOfImage});
  }
  return {std::move(bytes), std::move(result), true, std::nullopt};
}

}  // namespace

Diagnosis diagnose(ByteView data) {
  if (const auto header = usableHeader(data)) {
    const bool opens = isWhole(data, ownData(data, *header));
    return opens ? Diagnosis::healthy : Diagnosis::truncated;
  }
  return findMainScan(data) ? Diagnosis::damagedHeader : Diagnosis::notJPEG;
}

bool needsReference(ByteView data) {
  return !usableHeader(data) && findMainScan(data) && !headerSurvives(data);
}

Repaired repair(ByteView data, std::optional<ByteView> reference) {
  if (const auto header = usableHeader(data)) {
    const OwnData own = ownData(data, *header);
    if (!isWhole(data, own)) {
      return closed(data, *header, own);
    }
    return {.bytes = {data.begin(), data.end()},
            .result = resultOf(Result::Fix::none, *header),
            .endClosed = false,
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
