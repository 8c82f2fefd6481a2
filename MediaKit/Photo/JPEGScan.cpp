// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/JPEGScan.h"

#include <algorithm>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

constexpr std::size_t shortestRun = 64;

// As many scans as a picture may have in good faith: four components of 64 coefficients, each
// refined bit by bit, would still be fewer.
constexpr std::size_t mostScans = 4096;

// Where the run that starts at `start` ends.
std::size_t runEnd(ByteView data, std::size_t start) {
  std::size_t at = start;
  while (at < data.size()) {
    const std::size_t hit = findScanInterruption(data, at);
    if (hit == data.size()) {
      break;
    }
    if (data[hit + 1] != 0xFF) {
      return hit;
    }
    at = hit + 2;
  }
  // The data ends first: its last byte counts only as the second of a pair.
  if (at >= data.size()) {
    return at;
  }
  const std::size_t last = data.size() - 1;
  return last > at && data[last - 1] == 0xFF ? data.size() : last;
}

// Ends of the runs at ascending starts. Runs overlap where a fill byte hides a marker from one of
// them. Behind any byte that is not 0xFF all runs stand at the same step, so that one which starts
// inside another ends with it: no byte is walked twice, however the file is made.
class RunEnds {
 public:
  explicit RunEnds(ByteView data) : data_(data) {}

  std::size_t of(std::size_t start) {
    std::size_t at = start;
    while (at < end_ && data_[at] == 0xFF && data_[at - 1] == 0xFF) {
      if (at + 1 == data_.size()) {
        return at;
      }
      const std::uint8_t next = data_[at + 1];
      if (next != 0xFF && next != 0 && !JPEGMarker::isRestart(next)) {
        return at;
      }
      at += 2;
    }
    if (at >= end_) {
      end_ = runEnd(data_, at);
    }
    return end_;
  }

 private:
  ByteView data_;
  std::size_t end_ = 0;
};

std::optional<ScanStart> scanAt(ByteView data, std::size_t at) {
  if (data.size() - at < 5) {
    return std::nullopt;
  }
  const std::size_t length = bigEndian<std::uint16_t>(data, at + 2);
  const std::size_t components = data[at + 4];
  if (components < 1 || components > 4 || length != 2 * components + 6 ||
      length > data.size() - at - 2) {
    return std::nullopt;
  }
  return ScanStart{.sos = {JPEGMarker::startOfScan, at, data.subspan(at, 2 + length)},
                   .scanStart = at + 2 + length};
}

// The next well-formed start of scan from `from` on that lies wholly inside the data.
std::optional<ScanStart> nextScan(ByteView data, std::size_t from) {
  for (std::size_t at = from;; ++at) {
    at = findMarker(data, at, JPEGMarker::startOfScan);
    if (at == data.size()) {
      return std::nullopt;
    }
    if (const auto scan = scanAt(data, at)) {
      return scan;
    }
  }
}

// A scan of all coefficients of several components carries the whole picture.
bool isWholePicture(const Segment& sos) {
  const std::size_t size = sos.bytes.size();
  return sos.bytes[4] > 1 && sos.bytes[size - 3] == 0 && sos.bytes[size - 2] == 63;
}

}  // namespace

std::size_t entropyLength(ByteView data, std::size_t start) {
  return start < data.size() ? runEnd(data, start) - start : 0;
}

std::optional<ScanStart> findMainScan(ByteView data) {
  RunEnds runEnds(data);
  std::optional<ScanStart> best;
  std::size_t bestLength = 0;
  for (auto scan = nextScan(data, 0); scan; scan = nextScan(data, scan->scanStart)) {
    const std::size_t start = scan->scanStart;
    const std::size_t length = start < data.size() ? runEnds.of(start) - start : 0;
    if (length > bestLength) {
      best = scan;
      bestLength = length;
    }
  }
  return bestLength >= shortestRun ? best : std::nullopt;
}

std::optional<ScanStart> findOwnMainScan(ByteView data) {
  // Thumbnails whose end is lost are small against what follows them.
  constexpr std::size_t smallShare = 16;
  const auto longest = findMainScan(data);
  const std::size_t least =
      longest ? std::max(shortestRun, entropyLength(data, longest->scanStart) / smallShare) : 0;
  RunEnds runEnds(data);
  for (auto scan = nextScan(data, 0); scan && longest; scan = nextScan(data, scan->scanStart)) {
    const std::size_t start = scan->scanStart;
    const std::size_t end = start < data.size() ? runEnds.of(start) : start;
    if (end - start >= least && startsAnotherFile(data, end)) {
      return findMainScan(data.first(end));
    }
  }
  return longest;
}

bool startsAnotherFile(ByteView data, std::size_t at) {
  return data.size() - at > 2 && data[at] == 0xFF && data[at + 1] == JPEGMarker::startOfImage &&
         data[at + 2] == 0xFF;
}

std::size_t lengthWithoutTrailingZeros(ByteView data) {
  std::size_t length = data.size();
  while (length > 0 && data[length - 1] == 0) {
    --length;
  }
  return length;
}

bool hasEnd(ByteView data) {
  const std::size_t length = lengthWithoutTrailingZeros(data);
  return length >= 2 && data[length - 1] == JPEGMarker::endOfImage && data[length - 2] == 0xFF;
}

PictureData walkPicture(ByteView data, const ScanStart& first) {
  PictureData picture;
  picture.scans.push_back(first);
  std::size_t at = first.scanStart;
  for (;;) {
    at = findScanInterruption(data, at);
    picture.end = at;
    if (at == data.size()) {
      return picture;
    }
    const std::uint8_t code = data[at + 1];
    if (code == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if (code == JPEGMarker::endOfImage) {
      picture.end = at + 2;
      picture.ended = true;
      return picture;
    }
    const bool startsScan = code == JPEGMarker::startOfScan;
    if (!startsScan && !JPEGMarker::isMiscellaneous(code)) {
      return picture;
    }
    const std::size_t left = data.size() - at - 2;
    const std::size_t length = bigEndianOrZero<std::uint16_t>(data, at + 2);
    if (left < 2 || length > left) {
      picture.cutInSegment = true;
      return picture;
    }
    if (startsScan) {
      const auto scan = scanAt(data, at);
      if (!scan || picture.scans.size() == mostScans) {
        return picture;
      }
      picture.scans.push_back(*scan);
    } else if (length < 2 || picture.between.size() == mostScans) {
      return picture;
    } else {
      picture.between.push_back({code, at, data.subspan(at, 2 + length)});
    }
    at += 2 + length;
  }
}

ScanStart firstScanOfPicture(ByteView data, const ScanStart& scan) {
  if (isWholePicture(scan.sos)) {
    return scan;
  }
  std::size_t from = 0;
  while (const auto first = nextScan(data, from)) {
    if (first->sos.offset >= scan.sos.offset) {
      break;
    }
    const PictureData picture = walkPicture(data, *first);
    const bool holds =
        std::any_of(picture.scans.begin(), picture.scans.end(),
                    [&](const ScanStart& other) { return other.sos.offset == scan.sos.offset; });
    if (holds && !isWholePicture(first->sos)) {
      return *first;
    }
    from = std::max(first->scanStart, std::min(picture.end, scan.sos.offset));
  }
  return scan;
}

bool hasRestartMarkers(ByteView data, std::size_t start) {
  const std::size_t first = findMarker(data, start, 0xD0);
  return first < data.size() && first < start + entropyLength(data, start);
}

}  // namespace tallowmark::JPEGRepair
