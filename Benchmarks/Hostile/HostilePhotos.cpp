// SPDX-License-Identifier: GPL-3.0-or-later
// Photos and RAW files that are checked, repaired, and asked for their details.
#include <algorithm>

#include "HostileRun.h"
#include "ImageKit/LibraryImageService.h"
#include "MediaKit/Photo/RAWPreview.h"
#include "MediaKit/Rescue/Checking.h"
#include "MediaKit/Rescue/SavedCopy.h"
#include "Photos.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark::testing {

namespace {

namespace fs = std::filesystem;

constexpr unsigned photoCeiling = 200;

using Maker = std::function<Bytes(std::size_t)>;

// What becomes of a photo: it is checked, repaired with a good one of another camera, looked at.
void usePhoto(const fs::path& file) {
  (void)checkPhoto(file);
  const TemporaryFolder folder;
  const fs::path reference = writeFile(folder / "good.jpg", makePhoto({}));
  const LibraryImageService images;
  (void)repairPicture({file, Kind::photo, reference}, images, {});
}

void useRaw(const fs::path& file) {
  const LibraryImageService images;
  const Bytes raw = contentsOf(file);
  (void)RAWPreview::diagnose(raw, images);
  (void)images.properties(raw);
  (void)RAWPreview::extract(raw, images);
}

void readDetails(const fs::path& file) {
  const LibraryImageService images;
  const Bytes photo = contentsOf(file);
  (void)images.withProperties(makePhoto({}), images.properties(photo));
  (void)images.thumbnail(photo, 256, Turn::byOrientation);
}

HostileCase photoCase(const char* name, std::size_t size, const Maker& photo,
                      const std::function<void(const fs::path&)>& use = usePhoto) {
  return {name, size, photoCeiling,
          [photo](const fs::path& file, std::size_t bytes) { writeFile(file, photo(bytes)); }, use};
}

Maker pattern(const Bytes& piece, const Bytes& ahead = {}, const Bytes& behind = {}) {
  return [=](std::size_t bytes) { return joined({ahead, filledWith(piece, bytes), behind}); };
}

Bytes colorFrame(int width, int height, std::uint8_t marker) {
  const auto side = [](int length) { return u16(static_cast<std::uint16_t>(length)); };
  return segment(marker, joined({Bytes{8}, side(height), side(width),
                                 Bytes{3, 1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0}}));
}

Bytes colorScan(const Bytes& parameters) {
  return segment(0xDA, joined({Bytes{3, 1, 0, 2, 0, 3, 0}, parameters}));
}

const Bytes sequential{0, 63, 0};
const Bytes means{0, 0, 0};

/// A picture of any size and few bytes.
Bytes pictureOf(int side, std::uint8_t marker, const Bytes& parameters, const Bytes& data) {
  return joined({soi, quantTable(0), colorFrame(side, side, marker), huffmanTable(0x00),
                 huffmanTable(0x10), colorScan(parameters), data});
}

// Segments of Huffman tables, each of which goes on through all those behind it up to the scan.
Bytes tablesInTables(std::size_t size) {
  constexpr std::size_t step = 21;
  constexpr std::size_t most = 0xFFFF / step * step;
  const std::size_t count = size / step;
  Bytes photo(4);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t left = (count - i) * step;
    // A table of four values, which are the next segment's marker and length.
    Bytes piece =
        joined({Bytes{0xFF, 0xC4}, u16(static_cast<std::uint16_t>(std::min(left - 2, most - 2))),
                Bytes{0x00, 0, 0, 4}, Bytes(13)});
    photo.insert(photo.end(), piece.begin(), piece.end());
  }
  return joined({photo, grayScan(), Bytes(4000, 0x55), eoi});
}

/// A TIFF whose directories hold `entries` each and lead to the next, the last one to the first.
Bytes directories(std::size_t count, std::size_t entries) {
  Bytes tiff{'I', 'I', 42, 0, 8, 0, 0, 0};
  const auto put = [&tiff](std::size_t value, int bytes) {
    for (int i = 0; i < bytes; ++i, value >>= 8U) {
      tiff.push_back(static_cast<std::uint8_t>(value & 0xFFU));
    }
  };
  for (std::size_t i = 0; i < count; ++i) {
    put(entries, 2);
    for (std::size_t k = 0; k < entries; ++k) {
      put(k % 3 == 0 ? 0x014A : k % 3 == 1 ? 0x8769 : 0x0110, 2);  // sub-directories, EXIF, model
      put(k % 3 == 2 ? 2 : 4, 2);
      put(k % 3 == 2 ? 4 : 1, 4);
      put(k % 3 == 2 ? 0x41414141 : 8 + (i + k) % count * (6 + 12 * entries), 4);
    }
    put(i + 1 < count ? tiff.size() + 4 : 8, 4);
  }
  return tiff;
}

Bytes photoWithDetails(const Bytes& tiff) {
  const Bytes photo = makePhoto({});
  return joined({soi, segment(0xE1, joined({text(std::string_view("Exif\0\0", 6)), tiff})),
                 Bytes(photo.begin() + 2, photo.end())});
}

Bytes photoWithManyNotes(std::size_t bytes) {
  const Bytes open = text("<rdf:li>");
  const std::string head =
      "http://ns.adobe.com/xap/1.0/" + std::string(1, '\0') +
      "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
      "xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description "
      "xmlns:dc='http://purl.org/dc/elements/1.1/'><dc:title>";
  const Bytes photo = makePhoto({});
  const Bytes note = segment(0xE1, joined({text(head), filledWith(open, 60'000)}));
  return joined({soi, filledWith(note, bytes), Bytes(photo.begin() + 2, photo.end())});
}

}  // namespace

std::vector<HostileCase> hostilePhotos() {
  const Bytes app{0xFF, 0xE1, 0x00, 0x02};
  const Bytes hiddenScan{0xFF, 0xFF, 0xDA, 0x00, 0x08, 0x01, 0x01, 0x00, 0x00, 0x3F, 0x00};
  const Bytes dcScan = segment(0xDA, joined({Bytes{1, 1, 0}, means}));
  return {
      photoCase("startsEverywhere", megabyte / 2, pattern({0xFF, 0xD8, 0xFF}), useRaw),
      photoCase("startsInSegments", megabyte, pattern({0xFF, 0xE0, 0, 4, 0xFF, 0xD8}), useRaw),
      photoCase("picturesInPictures", megabyte / 2, pattern(grayHeader(9000, 9000)), useRaw),
      photoCase("hugePicturesInside", 8'192,
                pattern(pictureOf(5'000, 0xC0, sequential, joined({Bytes(64, 0x33), eoi}))),
                useRaw),
      photoCase("tinySegments", megabyte, pattern(app, soi)),
      photoCase("fillBytes", megabyte, pattern({0xFF}, soi, {0xD9})),
      photoCase("hiddenScans", megabyte / 2, pattern(hiddenScan)),
      photoCase("restartMarkers", megabyte, pattern({0xFF, 0xD0, 0xFF, 0xD3}, grayHeader())),
      photoCase("tablesInTables", megabyte / 8, tablesInTables),
      photoCase("tablesBeforeScan", megabyte / 2, pattern(quantTable(0), {}, grayHeader())),
      photoCase("scansOfNothing", megabyte / 8,
                pattern(dcScan, joined({pictureOf(1000, 0xC2, means, Bytes(9000, 0))}))),
      photoCase("scansOfMeans", megabyte / 4,
                pattern(joined({dcScan, Bytes(40'000, 0)}),
                        joined({Bytes{0}, pictureOf(1000, 0xC2, means, Bytes(9000, 0))}))),
      photoCase(
          "unitsOfTwoBits", megabyte / 8,
          pattern({0x00}, joined({Bytes{0}, pictureOf(65'000, 0xC0, sequential, {})}), {0x55})),
      photoCase("hugePicture", 1'024, pattern({0x33}, pictureOf(7'000, 0xC0, sequential, {}))),
      photoCase("hugeProgressivePicture", 1'024,
                pattern({0x33}, pictureOf(3'000, 0xC2, means, {}))),
      photoCase(
          "detailsInCircles", 20,
          [](std::size_t n) { return photoWithDetails(directories(n, 30)); }, readDetails),
      photoCase(
          "detailsOfManyEntries", 600,
          [](std::size_t n) { return photoWithDetails(directories(1, n)); }, readDetails),
      photoCase(
          "directoriesInAChain", 20'000, [](std::size_t n) { return directories(n, 3); }, useRaw),
      photoCase(
          "directoryOfManyEntries", 15'000, [](std::size_t n) { return directories(1, n); },
          useRaw),
      photoCase("manyNotes", megabyte / 4, photoWithManyNotes, readDetails),
  };
}

}  // namespace tallowmark::testing
