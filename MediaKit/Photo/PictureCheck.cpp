// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/PictureCheck.h"

#include <algorithm>
#include <set>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/ScanDecoder.h"

namespace tallowmark::JPEGRepair {
namespace {

using Verdict = PictureCheck::Verdict;

bool isSequential(const FrameLayout& frame) {
  return frame.marker == JPEGMarker::baselineFrame || frame.marker == JPEGMarker::extendedFrame;
}

// The number of lines that the frame header leaves to a DNL segment (clause B.2.5).
std::size_t linesBehindFirstScan(const PictureData& picture) {
  for (const Segment& segment : picture.between) {
    if (segment.marker == JPEGMarker::numberOfLines) {
      return bigEndianOrZero<std::uint16_t>(segment.bytes, 4);
    }
  }
  return 0;
}

/// Decodes a picture scan by scan, with the tables that stand between the scans.
class PictureDecoder {
 public:
  PictureDecoder(ByteView data, const PictureParts& parts, FrameLayout frame, PictureData picture)
      : data_(data), frame_(std::move(frame)), picture_(std::move(picture)) {
    evidence_.largestMean.resize(frame_.components.size());
    for (const Segment& segment : parts.tables) {
      tables_.apply(segment);
    }
  }

  PictureCheck run() {
    if (!isSequential(frame_)) {
      blocks_ = ProgressiveBlocks::make(frame_, data_.size());
      if (!blocks_) {
        return {};
      }
    }
    PictureCheck check;
    check.verdict = Verdict::complete;
    std::set<std::size_t> componentsSeen;
    for (std::size_t i = 0; i < picture_.scans.size() && check.verdict == Verdict::complete; ++i) {
      const ScanOutcome outcome = decode(picture_.scans[i], componentsSeen);
      check.verdict = outcome.verdict;
      if (i == 0) {
        check.unitsDecoded = outcome.units;
        check.unitsExpected = outcome.expected;
        check.unitsAcross = unitsAcross(picture_.scans[i]);
        check.unitsToRestart = outcome.unitsToRestart;
      }
    }
    if (check.verdict == Verdict::complete && componentsSeen.size() < frame_.components.size()) {
      check.verdict = Verdict::endsEarly;
    }
    check.brightness = std::move(evidence_.brightness);
    check.largestMean = std::move(evidence_.largestMean);
    return check;
  }

 private:
  ScanOutcome decode(const ScanStart& scan, std::set<std::size_t>& componentsSeen) {
    for (; nextBetween_ < picture_.between.size() &&
           picture_.between[nextBetween_].offset < scan.sos.offset;
         ++nextBetween_) {
      tables_.apply(picture_.between[nextBetween_]);
    }
    const auto layout = scanLayout(scan.sos, frame_);
    if (!layout) {
      return ScanOutcome::corrupt();
    }
    if (blocks_ &&
        !mayTake(frame_.unitsAcross() * frame_.unitsDown() * layout->components.size())) {
      return {};
    }
    for (const ScanLayout::Component& part : layout->components) {
      componentsSeen.insert(part.index);
    }
    PictureEvidence& evidence = nextScan_++ == 0 ? evidence_ : laterEvidence_;
    evidence.largestMean.resize(frame_.components.size());
    return blocks_ ? decodeProgressive(data_, scan.scanStart, frame_, *layout, tables_, *blocks_,
                                       evidence)
                   : decodeSequential(data_, scan.scanStart, frame_, *layout, tables_, evidence);
  }

  std::size_t unitsAcross(const ScanStart& scan) const {
    const auto layout = scanLayout(scan.sos, frame_);
    const bool alone = layout && layout->components.size() == 1;
    return alone ? frame_.blocksAcross(frame_.components[layout->components.front().index])
                 : frame_.unitsAcross();
  }

  // A progressive scan can pass over thousands of blocks with a few bits, so that a short file
  // could ask for hours; pictures stay far below this bound.
  bool mayTake(std::size_t units) {
    unitsTaken_ += units;
    return unitsTaken_ <= 64 * data_.size();
  }

  ByteView data_;
  FrameLayout frame_;
  PictureData picture_;
  std::size_t unitsTaken_ = 0;
  DecoderTables tables_;
  std::optional<ProgressiveBlocks> blocks_;
  std::size_t nextBetween_ = 0;
  std::size_t nextScan_ = 0;
  PictureEvidence evidence_;
  PictureEvidence laterEvidence_;
};

}  // namespace

PictureCheck checkPicture(ByteView data, const PictureParts& parts) {
  auto frame = frameLayout(parts.frame);
  if (!frame || (!isSequential(*frame) && frame->marker != JPEGMarker::progressiveFrame)) {
    return {};
  }
  PictureData picture = walkPicture(data, parts.first);
  if (frame->height == 0) {
    frame->height = linesBehindFirstScan(picture);
  }
  if (frame->height == 0) {
    return {};
  }
  return PictureDecoder(data, parts, std::move(*frame), std::move(picture)).run();
}

PictureCheck checkPicture(ByteView jpeg) {
  const auto header = parseHeader(jpeg);
  const auto frame = header ? header->frame() : std::nullopt;
  if (!frame) {
    return {};
  }
  return checkPicture(jpeg, {.frame = *frame,
                             .tables = header->segments,
                             .first = {.sos = header->sos, .scanStart = header->scanStart}});
}

}  // namespace tallowmark::JPEGRepair
