// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/StrayMarkers.h"

#include <algorithm>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/SegmentSalvage.h"

namespace tallowmark::JPEGRepair {

namespace {

// Noise makes a marker code of every 264th byte. Where half of the data is that, following it
// further shows nothing but noise.
bool isRubble(std::size_t strays, std::size_t length) {
  constexpr std::size_t few = 16;
  constexpr std::size_t bytesForAStray = 528;
  return strays > few + length / bytesForAStray;
}

/// Goes through a picture's data marker by marker.
class DataWalk {
 public:
  DataWalk(ByteView data, const std::optional<Segment>& frame, const ScanStart& first)
      : data_(data.first(std::max(first.scanStart, lengthWithoutTrailingZeros(data)))),
        layout_(frame ? frameLayout(*frame) : std::nullopt),
        first_(first),
        lastEnd_(hasEnd(data) ? data_.size() : 0) {
    // A scan of all coefficients of all components: no other follows.
    constexpr std::size_t usualComponents = 3;
    const ByteView sos = first.sos.bytes;
    const std::size_t components = layout_ ? layout_->components.size() : usualComponents;
    isOnlyScan_ = sos.size() >= 10 && sos[4] >= components && sos[sos.size() - 3] == 0 &&
                  sos[sos.size() - 2] == 63;
  }

  OwnData run() {
    OwnData own{.strays = {}, .end = data_.size(), .ended = false};
    std::size_t at = first_.scanStart;
    const std::size_t most = data_.size() - first_.scanStart;
    while ((at = findScanInterruption(data_, at)) < data_.size() &&
           !isRubble(own.strays.size(), most)) {
      if (data_[at + 1] == 0xFF) {  // fill byte
        ++at;
        continue;
      }
      const std::size_t next = behindSegments(at);
      if (next == data_.size() || startsAnotherFile(data_, next)) {
        own.end = next == data_.size() ? at : next;
        break;
      }
      const bool ends = isMarker(next, JPEGMarker::endOfImage);
      if (ends && (own.strays.empty() || !goesOnBehind(next))) {
        own.end = next + 2;
        own.ended = true;
        break;
      }
      if (ends || next == at) {
        own.strays.push_back(next);
        at = next + 2;
      } else {
        at = next;
      }
    }
    if (isRubble(own.strays.size(), own.end - first_.scanStart)) {
      own = {.strays = {}, .end = own.strays.front(), .ended = false};
    }
    return own;
  }

 private:
  bool isMarker(std::size_t at, std::uint8_t code) const {
    return data_.size() - at >= 2 && data_[at] == 0xFF && data_[at + 1] == code;
  }

  // Noise holds EOIs, too. It is one of those when the file's only picture ends later.
  bool goesOnBehind(std::size_t end) {
    if (end + 2 >= lastEnd_) {
      return false;
    }
    if (!isLonePicture_) {
      isLonePicture_ = findStartOfImage(data_, end) == data_.size();
    }
    return *isLonePicture_;
  }

  // Where the segments that start at `at` lead: to the data of a further scan, an EOI or another
  // file; past the end of the data (its size); nowhere (`at`). Tables that add up are no chance,
  // even where they lead nowhere: later scans need them.
  std::size_t behindSegments(std::size_t at) const {
    constexpr int mostSteps = 64;
    std::size_t next = at;
    std::size_t behindTables = at;
    for (int step = 0; step < mostSteps && next < data_.size() && data_[next] == 0xFF; ++step) {
      const std::size_t left = data_.size() - next;
      if (left < 4) {
        return isMarker(next, JPEGMarker::endOfImage) ? next : data_.size();
      }
      const std::uint8_t code = data_[next + 1];
      if (code == JPEGMarker::endOfImage || startsAnotherFile(data_, next)) {
        return next;
      }
      if (code == 0xFF || code == JPEGMarker::temporary) {
        next += code == 0xFF ? 1 : 2;
        continue;
      }
      const std::size_t length = 2 + std::size_t{bigEndian<std::uint16_t>(data_, next + 2)};
      if (length > left) {
        return isCutSegment(code) ? data_.size() : behindTables;
      }
      const Segment segment{code, next, data_.subspan(next, length)};
      if (!belongs(segment)) {
        break;
      }
      next += length;
      behindTables = !isOnlyScan_ && isTable(code) ? next : behindTables;
      if (code == JPEGMarker::startOfScan) {
        return next;
      }
    }
    return behindTables;
  }

  static bool isTable(std::uint8_t code) {
    return code == JPEGMarker::quantizationTables || code == JPEGMarker::huffmanTables ||
           code == JPEGMarker::restartInterval;
  }

  // The rest of a file that ends as it should is no half segment.
  bool isCutSegment(std::uint8_t code) const {
    const bool known = JPEGMarker::isMiscellaneous(code) || code == JPEGMarker::startOfScan;
    return known && !isOnlyScan_ && lastEnd_ == 0;
  }

  bool belongs(const Segment& segment) const {
    if (segment.marker == JPEGMarker::startOfScan) {
      return !isOnlyScan_ && isScan(segment);
    }
    return isTable(segment.marker)
               ? isWellFormed(segment)
               : JPEGMarker::isMiscellaneous(segment.marker) && segment.bytes.size() >= 4;
  }

  bool isScan(const Segment& segment) const {
    const ByteView bytes = segment.bytes;
    return layout_ ? scanLayout(segment, *layout_).has_value()
                   : bytes.size() >= 10 && bytes[4] <= 4 &&
                         bytes.size() == 8 + 2 * std::size_t{bytes[4]};
  }

  ByteView data_;
  std::optional<FrameLayout> layout_;
  ScanStart first_;
  // Just past the EOI with which the data ends, 0 without one.
  std::size_t lastEnd_;
  bool isOnlyScan_ = false;
  std::optional<bool> isLonePicture_;
};

}  // namespace

OwnData findOwnData(ByteView data, const std::optional<Segment>& frame, const ScanStart& first) {
  return DataWalk(data, frame, first).run();
}

std::vector<std::uint8_t> withStuffedBytes(ByteView data, const std::vector<std::size_t>& strays) {
  std::vector<std::uint8_t> mended(data.begin(), data.end());
  for (const std::size_t stray : strays) {
    mended[stray + 1] = 0;
  }
  return mended;
}

}  // namespace tallowmark::JPEGRepair
