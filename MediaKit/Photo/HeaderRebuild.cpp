// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/HeaderRebuild.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/SegmentSalvage.h"
#include "MediaKit/Photo/StrayMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

using Verdict = PictureCheck::Verdict;

/// Where a piece of the new header comes from.
enum class Origin { linked, loose, reference };

/// One way to head the picture data.
struct Candidate {
  Segment frame;
  Origin frameOrigin = Origin::linked;
  std::vector<Segment> quantization;
  Origin quantizationOrigin = Origin::linked;
  std::vector<Segment> huffman;
  Origin huffmanOrigin = Origin::linked;
  /// A whole DRI segment, empty for none.
  std::vector<std::uint8_t> restart;
  Origin restartOrigin = Origin::linked;

  bool has(Origin origin) const {
    return frameOrigin == origin || quantizationOrigin == origin || huffmanOrigin == origin ||
           (!restart.empty() && restartOrigin == origin);
  }

  std::vector<std::string> borrowed() const {
    std::vector<std::string> names;
    if (frameOrigin == Origin::reference) {
      names.emplace_back("image size and layout");
    }
    if (quantizationOrigin == Origin::reference) {
      names.emplace_back("quantization tables");
    }
    if (huffmanOrigin == Origin::reference) {
      names.emplace_back("Huffman tables");
    }
    if (!restart.empty() && restartOrigin == Origin::reference) {
      names.emplace_back("restart interval");
    }
    return names;
  }

  /// Borrows from this candidate.
  PictureParts parts(const ScanStart& first) const {
    PictureParts parts{.frame = frame, .tables = huffman, .first = first};
    if (!restart.empty()) {
      parts.tables.push_back({JPEGMarker::restartInterval, 0, restart});
    }
    return parts;
  }
};

struct Chosen {
  Candidate candidate;
  PictureCheck check;
};

std::vector<Segment> only(MarkerSet markers, const std::vector<Segment>& segments) {
  std::vector<Segment> found;
  std::copy_if(segments.begin(), segments.end(), std::back_inserter(found),
               [markers](const Segment& segment) { return markers(segment.marker); });
  return found;
}

// As many as a header can hold in good faith: survivors may lie in one another, and all that are
// taken are written out.
std::vector<Segment> nearestToScan(std::vector<Segment> tables) {
  constexpr std::size_t mostSegments = 64;
  const std::size_t excess = tables.size() - std::min(tables.size(), mostSegments);
  tables.erase(tables.begin(), tables.begin() + static_cast<std::ptrdiff_t>(excess));
  return tables;
}

bool isRestartInterval(std::uint8_t code) {
  return code == JPEGMarker::restartInterval;
}

std::vector<std::uint8_t> ownedBytes(const Segment& segment) {
  return {segment.bytes.begin(), segment.bytes.end()};
}

/// Finds the header that belongs with a photo's picture data.
class HeaderSearch {
 public:
  HeaderSearch(ByteView data, const ScanStart& scan, const Header* reference)
      : data_(data.first(std::max(scan.scanStart, lengthWithoutTrailingZeros(data)))),
        scan_(scan),
        survivors_(survivorsBefore(data, scan.sos.offset)),
        reference_(reference),
        hasRestartMarkers_(JPEGRepair::hasRestartMarkers(data, scan.scanStart)) {}

  /// The first way whose header and data go together; failing that the one that decodes furthest.
  /// Nothing when pieces are missing that there is no reference for.
  std::optional<Chosen> choose() const {
    std::optional<Chosen> best;
    for (const Candidate& candidate : candidates()) {
      Chosen chosen = checked(candidate);
      if (fits(chosen)) {
        return chosen;
      }
      if (!best || rank(chosen.check) > rank(best->check)) {
        best = std::move(chosen);
      }
    }
    // Pieces between which damage lies are believed only when the data says so.
    const bool believed = best && (reference_ != nullptr || !best->candidate.has(Origin::loose));
    return believed ? best : std::nullopt;
  }

 private:
  std::vector<Candidate> candidates() const {
    std::vector<Candidate> found;
    for (const auto& [frame, origin] : frames()) {
      if (auto candidate = completed(frame, origin)) {
        found.push_back(std::move(*candidate));
      }
    }
    return found;
  }

  // Nearest to the scan first.
  std::vector<std::pair<Segment, Origin>> frames() const {
    constexpr std::size_t mostTried = 8;
    std::vector<std::pair<Segment, Origin>> found;
    const auto take = [&](const std::vector<Segment>& from, Origin origin) {
      std::vector<Segment> headers = only(isFrameMarker, from);
      std::reverse(headers.begin(), headers.end());
      for (const Segment& frame : headers) {
        const bool known = std::any_of(found.begin(), found.end(), [&](const auto& other) {
          return other.first.offset == frame.offset;
        });
        const auto layout = frameLayout(frame);
        if (!known && found.size() < mostTried && layout && scanLayout(scan_.sos, *layout)) {
          found.emplace_back(frame, origin);
        }
      }
    };
    take(survivors_.linked, Origin::linked);
    take(survivors_.all, Origin::loose);
    if (reference_ != nullptr) {
      found.emplace_back(*reference_->frame(), Origin::reference);
    }
    return found;
  }

  std::optional<Candidate> completed(const Segment& frame, Origin frameOrigin) const {
    Candidate candidate;
    candidate.frame = frame;
    candidate.frameOrigin = frameOrigin;
    const auto quantization =
        tablesFor(isQuantizationMarker, TableKind::quantization, neededQuantIDs(frame));
    const auto huffman =
        tablesFor(isHuffmanMarker, TableKind::huffman, decodedHuffmanIDs(frame, scan_.sos));
    if (!quantization || !huffman) {
      return std::nullopt;
    }
    std::tie(candidate.quantization, candidate.quantizationOrigin) = *quantization;
    std::tie(candidate.huffman, candidate.huffmanOrigin) = *huffman;
    addRestartInterval(candidate);
    return candidate;
  }

  std::optional<std::pair<std::vector<Segment>, Origin>> tablesFor(MarkerSet markers,
                                                                   TableKind kind,
                                                                   const TableIDs& needed) const {
    const std::array<std::pair<const std::vector<Segment>*, Origin>, 2> own{
        {{&survivors_.linked, Origin::linked}, {&survivors_.all, Origin::loose}}};
    for (const auto& [segments, origin] : own) {
      std::vector<Segment> tables = nearestToScan(only(markers, *segments));
      if (covers(tableIDs(tables, kind), needed)) {
        return std::pair(std::move(tables), origin);
      }
    }
    if (reference_ == nullptr) {
      return std::nullopt;
    }
    return std::pair(reference_->all(markers), Origin::reference);
  }

  void addRestartInterval(Candidate& candidate) const {
    const auto linked = only(isRestartInterval, survivors_.linked);
    const auto all = only(isRestartInterval, survivors_.all);
    if (!linked.empty()) {
      candidate.restart = ownedBytes(linked.back());
    } else if (!all.empty()) {
      candidate.restart = ownedBytes(all.back());
      candidate.restartOrigin = Origin::loose;
    } else if (reference_ != nullptr && hasRestartMarkers_) {
      const auto lent = reference_->all(isRestartInterval);
      if (!lent.empty()) {
        candidate.restart = ownedBytes(lent.front());
        candidate.restartOrigin = Origin::reference;
      }
    }
  }

  // Decodes the data with the candidate's header. A restart interval that is missing or does not
  // fit is read off the data: it is the number of units before the first restart marker.
  Chosen checked(const Candidate& candidate) const {
    Chosen chosen{candidate, checkPicture(data_, candidate.parts(scan_))};
    const bool mayCount = candidate.restart.empty() || candidate.restartOrigin != Origin::linked;
    if (fits(chosen) || !hasRestartMarkers_ || !mayCount) {
      return chosen;
    }
    Candidate counted = candidate;
    counted.restart.clear();
    const auto units = candidate.restart.empty()
                           ? chosen.check.unitsToRestart
                           : checkPicture(data_, counted.parts(scan_)).unitsToRestart;
    if (!units || *units == 0 || *units > 0xFFFF) {
      return chosen;
    }
    counted.restart = intervalOf(*units);
    counted.restartOrigin = Origin::linked;
    Chosen recount{counted, checkPicture(data_, counted.parts(scan_))};
    return fits(recount) || rank(recount.check) > rank(chosen.check) ? recount : chosen;
  }

  static std::vector<std::uint8_t> intervalOf(std::size_t units) {
    return {0xFF,
            JPEGMarker::restartInterval,
            0,
            4,
            static_cast<std::uint8_t>(units >> 8U),
            static_cast<std::uint8_t>(units & 0xFFU)};
  }

  static bool fits(const Chosen& chosen) {
    const Verdict verdict = chosen.check.verdict;
    return verdict == Verdict::complete ||
           (verdict == Verdict::endsEarly && !chosen.candidate.has(Origin::reference));
  }

  static std::pair<int, std::size_t> rank(const PictureCheck& check) {
    switch (check.verdict) {
      case Verdict::complete:
        return {3, check.unitsDecoded};
      case Verdict::endsEarly:
        return {2, check.unitsDecoded};
      case Verdict::dataLeftOver:
      case Verdict::corrupt:
        return {1, check.unitsDecoded};
      case Verdict::notDecoded:
        break;
    }
    return {0, 0};
  }

  ByteView data_;
  ScanStart scan_;
  Survivors survivors_;
  const Header* reference_;
  bool hasRestartMarkers_;
};

/// A photo whose picture data was found without its header, stray markers mended.
struct HeadlessPhoto {
  std::vector<std::uint8_t> mended;
  ByteView data;
  ScanStart scan;
  bool ended = false;

  static std::optional<HeadlessPhoto> of(ByteView data) {
    const auto main = findOwnMainScan(data);
    if (!main) {
      return std::nullopt;
    }
    HeadlessPhoto photo{.mended = {}, .data = data, .scan = firstScanOfPicture(data, *main)};
    const OwnData own = findOwnData(data, std::nullopt, photo.scan);
    photo.ended = own.ended;
    if (!own.strays.empty()) {
      photo.mended = withStuffedBytes(data, own.strays);
      photo.data = photo.mended;
      photo.scan.sos.bytes = photo.data.subspan(photo.scan.sos.offset, photo.scan.sos.bytes.size());
    }
    if (!own.ended) {
      photo.data = photo.data.first(own.end);
    }
    return photo;
  }
};

std::vector<std::uint8_t> assembled(const Candidate& candidate, const ScanStart& scan,
                                    ByteView picture) {
  std::vector<std::uint8_t> bytes{0xFF, JPEGMarker::startOfImage};
  const auto append = [&bytes](ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
  };
  for (const Segment& segment : candidate.quantization) {
    append(segment.bytes);
  }
  append(candidate.frame.bytes);
  for (const Segment& segment : candidate.huffman) {
    append(segment.bytes);
  }
  append(candidate.restart);
  append(scan.sos.bytes);
  bytes.reserve(bytes.size() + picture.size() + 2);
  append(picture);
  return bytes;
}

}  // namespace

Repaired rebuildHeader(ByteView data, std::optional<ByteView> reference) {
  const auto photo = HeadlessPhoto::of(data);
  if (!photo) {
    throw MediaError::unsupported("No image data was found in this photo.");
  }
  auto lender = reference ? parseHeader(*reference) : std::nullopt;
  if (lender && !lender->isComplete()) {
    lender.reset();
  }
  auto chosen = HeaderSearch(photo->data, photo->scan, lender ? &*lender : nullptr).choose();
  if (!chosen) {
    throw MediaError::unsupported(
        "This photo's header is damaged. Add a good photo taken on the same camera with the same "
        "settings, and Repair will rebuild it.");
  }
  const Dimensions size = frameDimensions(chosen->candidate.frame).value_or(Dimensions{});
  Repaired repaired;
  repaired.result = {.fix = Result::Fix::rebuiltHeader,
                     .width = size.width,
                     .height = size.height,
                     .borrowed = chosen->candidate.borrowed(),
                     .incomplete = !photo->ended || chosen->check.lacksParts()};
  const ByteView picture = photo->data.subspan(photo->scan.scanStart);
  repaired.bytes = photo->ended ? assembled(chosen->candidate, photo->scan, picture)
                                : assembled(chosen->candidate, photo->scan, closeEnd(picture));
  repaired.endClosed = !photo->ended;
  repaired.check = std::move(chosen->check);
  return repaired;
}

bool headerSurvives(ByteView data) {
  const auto photo = HeadlessPhoto::of(data);
  return photo && HeaderSearch(photo->data, photo->scan, nullptr).choose().has_value();
}

}  // namespace tallowmark::JPEGRepair
