// SPDX-License-Identifier: GPL-3.0-or-later
// Indexes of clips that are checked, looked into, trimmed, joined, and learnt from.
#include <algorithm>
#include <array>
#include <fstream>

#include "CommandLine/Inspect.h"
#include "DeviceKit/FileSource.h"
#include "HostileRun.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Join/ClipJoin.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Join/JoinPlan.h"
#include "MediaKit/Rescue/Checking.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/TelemetryTrees.h"

namespace tallowmark::testing {

namespace {

namespace fs = std::filesystem;

constexpr unsigned checkCeiling = 64;
constexpr unsigned joinCeiling = 96;
constexpr unsigned indexCeiling = 150;

using Numbers = std::function<std::uint32_t(std::uint32_t)>;

Bytes concatenated(const std::vector<Bytes>& pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

Bytes entriesOf(std::size_t entries, const std::vector<Numbers>& fields) {
  Bytes table;
  table.reserve(entries * fields.size() * 4);
  for (std::uint32_t i = 0; i < entries; ++i) {
    for (const Numbers& field : fields) {
      const std::uint32_t number = field(i);
      for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        table.push_back(static_cast<std::uint8_t>(number >> shift));
      }
    }
  }
  return table;
}

/// A table that holds what it claims: `entries` times the fields, each by the entry's number.
Bytes tableOf(FourCC type, std::size_t entries, const std::vector<Numbers>& fields) {
  return makeFull(type, 0, {u32(static_cast<std::uint32_t>(entries)), entriesOf(entries, fields)});
}

Numbers always(std::uint32_t value) {
  return [value](std::uint32_t) { return value; };
}

const auto number = [](std::uint32_t i) { return i + 1; };

/// Sizes, chunks and durations of `samples` samples of a byte.
Bytes plainTables(std::uint32_t samples) {
  return joined({makeSampleDescription("avc1"), makeFull("stsz", 0, {u32(1), u32(samples)}),
                 makeTable("stco", 1, {40}), makeTable("stsc", 1, {1, samples, 1})});
}

void writeMovie(const fs::path& file, const Bytes& index, const Bytes& behind = {}) {
  writeFile(file, joined({MovieWriter::defaultFileType(), makeBox("mdat", {zeros(64)}),
                          makeBox("moov", {index}), behind}));
}

void check(const fs::path& file) {
  (void)checkFile(file, Kind::video);
}

void inspect(const fs::path& file) {
  std::ofstream out("/dev/null");
  inspectMovie({.file = file}, out);
}

void listBoxes(const fs::path& file) {
  std::ofstream out("/dev/null");
  inspectMovie({.file = file, .json = true}, out);
}

// Checking looks at the same index; trimming also writes it.
void trim(const fs::path& file) {
  const FileSource source(file.string());
  (void)MovieWriter::moov(VideoRepair::planTrim(source).movie);
}

void join(const fs::path& file) {
  const std::vector<ClipJoin::Part> parts{ClipJoin::readPart(file), ClipJoin::readPart(file)};
  (void)ClipJoin::incompatibility(parts);
  (void)MovieWriter::moov(ClipJoin::plan(parts).movie);
}

void learnFrom(const fs::path& reference) {
  rebuildClip(makeClip({}), reference);
}

HostileCase indexCase(const char* name, std::size_t size, unsigned ceiling,
                      const std::function<Bytes(std::size_t)>& index,
                      const std::function<void(const fs::path&)>& use) {
  return {name, size, ceiling,
          [index](const fs::path& file, std::size_t n) { writeMovie(file, index(n)); }, use};
}

/// As indexCase, for the tables of one video track.
HostileCase tableCase(const char* name, std::size_t size, unsigned ceiling,
                      const std::function<Bytes(std::size_t)>& tables,
                      const std::function<void(const fs::path&)>& use = check) {
  return indexCase(
      name, size, ceiling, [tables](std::size_t n) { return makeTrack("vide", {tables(n)}); }, use);
}

// The last box of the file and all around it grow by so many MB of zeros, which take no room on the
// disk.
void writeGrown(const fs::path& file, Bytes movie, std::size_t megabytes) {
  const std::uint64_t more = megabytes << 20U;
  const MemorySource source(movie);
  const BoxReader reader(source);
  for (std::vector<Box> inside = reader.children(0, movie.size());
       !inside.empty() && inside.back().end() == movie.size();
       inside = reader.children(inside.back(), inside.back().type == "stsd" ? 8 : 0)) {
    const Bytes size = u32(static_cast<std::uint32_t>(inside.back().size + more));
    std::copy(size.begin(), size.end(),
              movie.begin() + static_cast<std::ptrdiff_t>(inside.back().offset));
  }
  writeFile(file, movie);
  fs::resize_file(file, movie.size() + more);
}

HostileCase hugeBoxCase(const char* name, const std::function<Bytes()>& movie) {
  return {name, 24, checkCeiling,
          [movie](const fs::path& file, std::size_t megabytes) {
            writeGrown(file, movie(), megabytes);
          },
          check};
}

/// A movie that ends with `last`: in its sample table, its track, its index.
Bytes endingInTable(const Bytes& last) {
  return makeBox("moov", {makeTrack("vide", {plainTables(4), last})});
}
Bytes endingInTrack(const Bytes& last) {
  const Bytes track = makeTrack("vide", {plainTables(4)});
  return makeBox("moov", {makeBox("trak", {Bytes(track.begin() + 8, track.end()), last})});
}
Bytes endingInIndex(const Bytes& last) {
  return makeBox("moov", {makeTrack("vide", {plainTables(4)}), last});
}

/// The real clip with more boxes at the end of its index, which stands at the end of the file.
void writeTaught(const fs::path& file, const Bytes& more) {
  Bytes clip = contentsOf(makeClip({}));
  const auto moov = MovieParser::layout(BoxReader(MemorySource(clip))).moov.value();
  const Bytes size = u32(static_cast<std::uint32_t>(moov.size + more.size()));
  std::copy(size.begin(), size.end(), clip.begin() + static_cast<std::ptrdiff_t>(moov.offset));
  writeFile(file, joined({clip, more}));
}

HostileCase teacherCase(const char* name, std::size_t size,
                        const std::function<Bytes(std::size_t)>& more) {
  return {name, size, rebuildCeiling,
          [more](const fs::path& file, std::size_t n) { writeTaught(file, more(n)); }, learnFrom};
}

Bytes manyTracks(std::size_t count, const std::function<Bytes(std::uint32_t)>& track) {
  std::vector<Bytes> tracks;
  for (std::uint32_t i = 0; i < count; ++i) tracks.push_back(track(i));
  return concatenated(tracks);
}

/// A track of one sample whose description holds `i`.
Bytes numberedTrack(FourCC handler, FourCC codec, std::uint32_t i) {
  return makeTrack(handler, {makeFull("stsd", 0, {u32(1), makeBox(codec, {zeros(8), u32(i)})}),
                             makeFull("stsz", 0, {u32(1), u32(1)}), makeTable("stco", 1, {40})});
}

Track trackLike(Track::Kind kind, std::uint32_t likeness) {
  Track track;
  track.kind = kind;
  track.timescale = 1000;
  track.trackID = likeness;
  track.sampleEntry = joined({zeros(40), u32(likeness)});
  track.samples = {{.offset = 40, .size = 1, .duration = 1}};
  return track;
}

/// Two parts with as many tracks as the file tells, the second one's in the opposite order.
std::vector<ClipJoin::Part> partsOfTracks(const fs::path& file, Track::Kind every,
                                          Track::Kind other) {
  const auto count = static_cast<std::uint32_t>(fs::file_size(file));
  std::vector<ClipJoin::Part> parts(2);
  for (std::uint32_t i = 0; i < count; ++i) {
    const Track::Kind kind = i % 2 == 0 ? every : other;
    parts[0].movie.tracks.push_back(trackLike(kind, i));
    parts[1].movie.tracks.push_back(trackLike(kind, count - i));
  }
  for (ClipJoin::Part& part : parts) part.movie.tracks.push_back(trackLike(Track::Kind::video, 0));
  return parts;
}

void joinTracks(const fs::path& file) {
  (void)ClipJoin::plan(partsOfTracks(file, Track::Kind::other, Track::Kind::other));
}

void joinSound(const fs::path& file) {
  (void)ClipJoin::plan(partsOfTracks(file, Track::Kind::other, Track::Kind::audio));
}

// Each of the tracks refers to thousands, of which none is there.
void joinReferences(const fs::path& file) {
  std::vector<ClipJoin::Part> parts = partsOfTracks(file, Track::Kind::other, Track::Kind::other);
  parts.pop_back();
  const Bytes ids = entriesOf(fs::file_size(file), {[](std::uint32_t i) { return 7'000'000 + i; }});
  parts[0].movie.tracks[0].extraBoxes = {makeBox("tref", {makeBox("cdsc", {ids})})};
  (void)ClipJoin::plan(parts);
}

// Numbers that standard libraries put into one bucket of a hash table of as many elements.
Bytes collidingDurations(std::size_t count) {
  static constexpr std::array<std::uint32_t, 5> buckets{10273, 20753, 42043, 85229, 172933};
  const std::uint32_t bucket =
      *std::lower_bound(buckets.begin(), buckets.end() - 1, static_cast<std::uint32_t>(count));
  return joined(
      {plainTables(static_cast<std::uint32_t>(count)),
       tableOf("stts", count, {always(1), [bucket](std::uint32_t i) { return i * bucket; }})});
}

/// Tracks that all have the same samples, which are looked at for each.
Bytes tracksOfOneContent(std::size_t count) {
  return manyTracks(count, [](std::uint32_t i) {
    return makeTrack(i % 2 == 0 ? "meta" : "vide",
                     {makeSampleDescription(i % 2 == 0 ? "mett" : "avc1"),
                      makeFull("stsz", 0, {u32(60'000), u32(300)}), makeTable("stco", 1, {40}),
                      makeTable("stsc", 1, {1, 300, 1})});
  });
}

Bytes metadataOfManyKeys(std::size_t count) {
  Bytes keys;
  Bytes items;
  for (std::uint32_t i = 0; i < count; ++i) {
    const Bytes key = joined({u32(12), text("mdta"), text("date")});
    keys.insert(keys.end(), key.begin(), key.end());
    const Bytes item = joined({u32(8), u32(static_cast<std::uint32_t>(count) + i)});
    items.insert(items.end(), item.begin(), item.end());
  }
  return makeBox("meta", {makeFull("hdlr", 0, {zeros(20)}),
                          makeFull("keys", 0, {u32(static_cast<std::uint32_t>(count)), keys}),
                          makeBox("ilst", {items})});
}

// Four billion samples of a byte, beside telemetry that claims to lie far behind all of them.
void writeTelemetryFarAway(const fs::path& file, std::size_t) {
  const Bytes tree = deviceTree(1, 4);
  const auto treeSize = static_cast<std::uint32_t>(tree.size());
  const Bytes video = makeTrack(
      "vide", {makeFull("stsd", 0,
                        {u32(1), makeBox("avc1", {zeros(78), makeBox("avcC", {Bytes(8, 0xFF)})})}),
               makeFull("stsz", 0, {u32(1), u32(0xFFFFFFFF)}), makeTable("stco", 1, {40}),
               makeTable("stsc", 1, {1, 0xFFFFFFFF, 1})});
  const Bytes telemetry = makeTrack(
      "meta", {makeSampleDescription("gpmd"), makeFull("stsz", 0, {u32(treeSize), u32(2)}),
               makeFull("co64", 0, {u32(2), u64(40), u64(std::uint64_t{1} << 60U)})});
  writeFile(file, joined({MovieWriter::defaultFileType(), makeBox("mdat", {tree}),
                          makeBox("moov", {video, telemetry})}));
}

// Pictures of a thousand tiny units, no two with one header.
void writeUnitsOfEveryKind(const fs::path& file, std::size_t pictures) {
  Bytes media;
  std::uint32_t header = 0;
  std::uint32_t size = 0;
  for (std::size_t i = 0; i < pictures; ++i) {
    Bytes picture = joined({u32(3), Bytes{0x02, 0x01, 0x80}});
    for (int other = 0; other < 900; ++other, header = (header + 1) & 0x7FFFU) {
      const Bytes unit = joined({u32(2), u16(static_cast<std::uint16_t>(header))});
      picture.insert(picture.end(), unit.begin(), unit.end());
    }
    size = static_cast<std::uint32_t>(picture.size());
    media.insert(media.end(), picture.begin(), picture.end());
  }
  Bytes configuration(30, 0xFF);
  const Bytes entry = makeBox("hvc1", {zeros(78), makeBox("hvcC", {configuration})});
  const Bytes track = makeTrack(
      "vide", {makeFull("stsd", 0, {u32(1), entry}),
               makeFull("stsz", 0, {u32(size), u32(static_cast<std::uint32_t>(pictures))}),
               makeTable("stco", 1, {40}),
               makeTable("stsc", 1, {1, static_cast<std::uint32_t>(pictures), 1})});
  writeFile(file, joined({MovieWriter::defaultFileType(), makeBox("mdat", {media}),
                          makeBox("moov", {track})}));
}

// One picture of one unit, which takes no room on the disk.
void writeHugePicture(const fs::path& file, std::size_t megabytes) {
  const auto size = static_cast<std::uint32_t>(megabytes << 20U);
  const Bytes entry = makeBox("avc1", {zeros(78), makeBox("avcC", {Bytes(8, 0xFF)})});
  const Bytes track =
      makeTrack("vide", {makeFull("stsd", 0, {u32(1), entry}),
                         makeFull("stsz", 0, {u32(size), u32(1)}), makeTable("stco", 1, {0})});
  Bytes index = makeBox("moov", {track});
  const std::size_t mediaAt = MovieWriter::defaultFileType().size() + index.size() + 8;
  index = makeBox(
      "moov", {makeTrack("vide", {makeFull("stsd", 0, {u32(1), entry}),
                                  makeFull("stsz", 0, {u32(size), u32(1)}),
                                  makeTable("stco", 1, {static_cast<std::uint32_t>(mediaAt)})})});
  writeFile(file, joined({MovieWriter::defaultFileType(), index, u32(size + 8), text("mdat"),
                          u32(size - 4), Bytes{0x65, 0x88, 0x84, 0x00}}));
  fs::resize_file(file, mediaAt + size);
}

}  // namespace

std::vector<HostileCase> hostileIndexes() {
  const Bytes empty = makeBox("free", {});
  const auto boxes = [empty](std::size_t n) { return repeated(empty, n); };
  return {
      {"emptyBoxesAtTopLevel", 200'000, checkCeiling,
       [boxes](const fs::path& file, std::size_t n) {
         writeMovie(file, makeTrack("vide", {plainTables(4)}), boxes(n));
       },
       check},
      {"emptyMedia", 200'000, checkCeiling,
       [](const fs::path& file, std::size_t n) {
         writeMovie(file, makeTrack("vide", {plainTables(4)}), repeated(makeBox("mdat", {}), n));
       },
       check},
      {"fragmentsBehindDamage", 8 * megabyte, checkCeiling,
       [](const fs::path& file, std::size_t n) {
         const Bytes fragment =
             joined({makeBox("moof", {makeFull("mfhd", 0, {u32(1)})}), makeBox("mdat", {})});
         const Bytes brokenHeader = joined({u32(1), zeros(60)});
         writeMovie(file, joined({makeTrack("vide", {plainTables(4)}), makeBox("mvex", {})}),
                    joined({brokenHeader, filledWith(fragment, n)}));
       },
       check},
      {"emptyBoxesToList", 20'000, checkCeiling,
       [boxes](const fs::path& file, std::size_t n) { writeMovie(file, {}, boxes(n)); }, listBoxes},
      indexCase("emptyBoxesInIndex", 200'000, checkCeiling, boxes, check),
      indexCase(
          "nestedBoxes", 5'000, indexCeiling,
          [](std::size_t n) {
            Bytes heads;
            for (std::size_t left = n; left > 0; --left) {
              const Bytes head = joined({u32(static_cast<std::uint32_t>(left * 8)), text("trak")});
              heads.insert(heads.end(), head.begin(), head.end());
            }
            return heads;
          },
          inspect),
      tableCase("emptyBoxesInTable", 50'000, checkCeiling,
                [boxes](std::size_t n) {
                  return joined({boxes(n), plainTables(4)});
                }),
      indexCase(
          "tracks", 250, checkCeiling,
          [](std::size_t n) {
            return manyTracks(n, [](std::uint32_t i) {
              return numberedTrack(i == 0 ? "vide" : "soun", "mp4a", i);
            });
          },
          check),
      {"tracksToJoin", 4'000, joinCeiling, writeCount, joinTracks},
      {"tracksOfSoundToJoin", 4'000, joinCeiling, writeCount, joinSound},
      {"tracksThatRefer", 4'000, joinCeiling, writeCount, joinReferences},
      tableCase("collidingDurations", 10'000, checkCeiling, collidingDurations),
      tableCase("countsOfZero", 100'000, checkCeiling,
                [](std::size_t n) {
                  return joined({plainTables(4), tableOf("stts", n, {always(0), number})});
                }),
      tableCase("keySamplesBackwards", 75'000, checkCeiling,
                [](std::size_t n) {
                  return joined({plainTables(static_cast<std::uint32_t>(n)),
                                 tableOf("stss", n, {[n](std::uint32_t i) {
                                           return static_cast<std::uint32_t>(n) - i;
                                         }})});
                }),
      tableCase("chunkRunsBackwards", 75'000, checkCeiling,
                [](std::size_t n) {
                  return joined(
                      {plainTables(0xFFFFFFFF), tableOf("stco", n, {always(40)}),
                       tableOf("stsc", n,
                               {[n](std::uint32_t i) { return static_cast<std::uint32_t>(n) - i; },
                                number, always(1)})});
                }),
      tableCase(
          "sizesAllDifferent", 250'000, indexCeiling,
          [](std::size_t n) {
            const auto count = static_cast<std::uint32_t>(n);
            return joined({plainTables(count),
                           makeFull("stsz", 0, {u32(0), u32(count), entriesOf(n, {number})})});
          },
          inspect),
      tableCase(
          "everythingDifferent", 50'000, indexCeiling,
          [](std::size_t n) {
            const auto count = static_cast<std::uint32_t>(n);
            return joined({plainTables(count), tableOf("stts", n, {always(1), number}),
                           tableOf("ctts", n, {always(1), number})});
          },
          trim),
      tableCase(
          "samplesOverOneAnother", 100'000, rebuildCeiling,
          [](std::size_t n) {
            return joined({plainTables(0xFFFFFFFF), tableOf("stco", n, {always(40)}),
                           makeTable("stsc", 1, {1, 60, 1}), makeTable("stss", 0, {})});
          },
          trim),
      indexCase(
          "editsOfNothing", 50'000, checkCeiling,
          [](std::size_t n) {
            return makeTrack(
                "vide", {plainTables(4)},
                {makeBox("edts", {tableOf("elst", n, {number, always(0xFFFFFFFF), always(0)})})});
          },
          check),
      indexCase(
          "descriptorsOfSound", 40'000, joinCeiling,
          [](std::size_t n) {
            const Bytes descriptor =
                makeFull("esds", 0, {Bytes{3, 0x80, 0x80, 0x80, 0x7F, 0, 0, 0xE0}});
            const Bytes entry = makeBox("mp4a", {zeros(28), repeated(descriptor, n)});
            return joined({makeTrack("vide", {plainTables(4)}),
                           makeTrack("soun", {makeFull("stsd", 0, {u32(1), entry}),
                                              makeFull("stsz", 0, {u32(1), u32(1)}),
                                              makeTable("stco", 1, {40})})});
          },
          join),
      hugeBoxCase("hugeUnknownTable", [] { return endingInTable(makeBox("????", {})); }),
      hugeBoxCase("hugeDescription", [] { return endingInTable(makeSampleDescription("avc1")); }),
      hugeBoxCase("hugeUserData", [] { return endingInIndex(makeBox("udta", {})); }),
      hugeBoxCase("hugeUserDataOfTrack", [] { return endingInTrack(makeBox("udta", {})); }),
      hugeBoxCase("hugeMovieHeader", [] { return endingInIndex(makeFull("mvhd", 0, {})); }),
      hugeBoxCase("hugeFileType",
                  [] {
                    return joined({endingInIndex({}), makeBox("ftyp", {text("isom")})});
                  }),
      teacherCase("tracksOfTelemetry", 500,
                  [](std::size_t n) {
                    return manyTracks(
                        n, [](std::uint32_t i) { return numberedTrack("meta", "gpmd", i); });
                  }),
      teacherCase("tracksOfOneContent", 300, tracksOfOneContent),
      teacherCase("keysOfMetadata", 10'000, metadataOfManyKeys),
      {"telemetryFarAway", 1, rebuildCeiling, writeTelemetryFarAway, learnFrom},
      {"unitsOfEveryKind", 16, rebuildCeiling, writeUnitsOfEveryKind, learnFrom},
      {"hugePictureToLearnFrom", 64, rebuildCeiling, writeHugePicture, learnFrom},
  };
}

}  // namespace tallowmark::testing
