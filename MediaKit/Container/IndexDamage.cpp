// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/IndexDamage.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "MediaKit/Container/EntryTable.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::IndexDamage {

namespace {

// How the boxes inside a container fill it. Zeros at its end, and boxes whose names are no text,
// are harmless unless a box is missing that may have stood there.
enum class Filling { whole, doubtful, broken };

bool holdsZeros(std::uint64_t from, std::uint64_t to, const BoxReader& reader) {
  // Padding that is longer is not looked through.
  constexpr std::uint64_t most = std::uint64_t{64} << 10U;
  const auto bytes = reader.data(from, static_cast<std::size_t>(std::min(to - from, most)));
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

// Inside a container nothing may reach up to wherever the end is (ISO/IEC 14496-12 §4.2); a size
// that was overwritten does.
bool lacksSize(const Box& box, const BoxReader& reader) {
  return bigEndianOrZero<std::uint32_t>(reader.data(box.offset, 4), 0) == 0;
}

Filling fillingOf(const Box& container, const BoxReader& reader) {
  constexpr std::uint64_t header = 8;
  constexpr int mostWithOddNames = 16;
  std::uint64_t at = container.payloadOffset();
  for (int odd = 0; odd < mostWithOddNames; ++odd) {
    bool isBroken = false;
    reader.visit(at, container.end(), [&](const Box& box) {
      at = box.end();
      isBroken = box.truncated || (at == container.end() && lacksSize(box, reader));
      return !isBroken;
    });
    if (isBroken) return Filling::broken;
    // QuickTime ends some containers in 32 zero bits.
    if (container.end() - at < header) return odd == 0 ? Filling::whole : Filling::doubtful;
    const auto next = reader.data(at, header);
    const auto size = bigEndianOrZero<std::uint32_t>(next, 0);
    if (bigEndianOrZero<std::uint32_t>(next, 4) == 0 || size < header ||
        size > container.end() - at) {
      return holdsZeros(at, container.end(), reader) ? Filling::doubtful : Filling::broken;
    }
    at += size;
  }
  return Filling::doubtful;
}

// Whether boxes of a container were overwritten.
bool isTorn(const Box& container, std::span<const FourCC> essentials, const BoxReader& reader) {
  const Filling filling = fillingOf(container, reader);
  return filling == Filling::broken ||
         (filling == Filling::doubtful &&
          !std::all_of(essentials.begin(), essentials.end(),
                       [&](FourCC type) { return reader.child(container, type).has_value(); }));
}

// More than tables of a recorder differ by that lost power between two of them.
bool differ(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t few = 8;
  return std::max(a, b) - std::min(a, b) > std::max(few, std::max(a, b) / 20);
}

// Whether a table of (count, value) entries has many that are for no sample: zeros in place of it.
bool hasEmptyEntries(const Box& box, const BoxReader& reader) {
  constexpr int many = 16;
  const EntryTable table(box, reader, 8, 8);
  int empty = 0;
  for (std::uint64_t i = 0; i < table.count() && empty < many; ++i) {
    empty += table.field(i, 0) == 0 ? 1 : 0;
  }
  return empty >= many;
}

struct StatedTimes {
  std::uint64_t count = 0;
  std::uint64_t ticks = 0;
};

// §8.6.1.2
StatedTimes timesOf(const Box& stts, const BoxReader& reader) {
  const EntryTable table(stts, reader, 8, 8);
  StatedTimes times;
  for (std::uint64_t i = 0; i < table.count(); ++i) {
    const std::uint64_t count = table.field(i, 0);
    times.count = saturatingAdd(times.count, count);
    times.ticks = saturatingAdd(times.ticks, saturatingMultiply(count, table.field(i, 4)));
  }
  return times;
}

// Whether the chunks hold another number of samples than there are sizes (§8.7.4).
bool isUnlikeChunks(const Box& stsc, std::uint64_t chunks, std::uint64_t samples,
                    const BoxReader& reader) {
  const EntryTable table(stsc, reader, 8, 12);
  if (!table.isInOrder()) return true;
  std::uint64_t placed = 0;
  std::uint64_t inLast = 0;
  for (std::uint64_t i = 0; i < table.count(); ++i) {
    const std::uint64_t first = table.field(i, 0);
    const std::uint64_t each = table.field(i, 4);
    const std::uint64_t next = i + 1 < table.count()
                                   ? std::min<std::uint64_t>(table.field(i + 1, 0), chunks + 1)
                                   : chunks + 1;
    if (first == 0) return true;
    if (first >= next) continue;
    placed = saturatingAdd(placed, saturatingMultiply(next - first, each));
    inLast = each;
  }
  // Not all write an entry of its own for a last chunk that is not full.
  return placed > samples ? differ(std::max(samples, placed - std::min(placed, inLast)), samples)
                          : differ(placed, samples);
}

// §8.7.3: how many samples have sizes.
std::uint64_t sizesIn(const Box& stsz, const BoxReader& reader) {
  const auto head = reader.payload(stsz, 12);
  return bigEndianOrZero<std::uint32_t>(head, 4) == 0 ? EntryTable(stsz, reader, 12, 4).count()
                                                      : bigEndianOrZero<std::uint32_t>(head, 8);
}

// Whether a description is there that cannot be read as one (§8.5.2).
bool isUnreadable(const Box& stsd, const BoxReader& reader) {
  constexpr std::uint64_t head = 8;
  constexpr std::uint64_t shortest = 16;
  return stsd.payloadSize() >= head + shortest &&
         !reader.box(stsd.payloadOffset() + head, stsd.end());
}

// What a movie's or a track's media header says (§8.2.2, §8.4.2).
struct StatedLength {
  std::uint64_t timescale = 0;
  std::uint64_t duration = 0;

  double seconds() const { return static_cast<double>(duration) / static_cast<double>(timescale); }
};

StatedLength lengthIn(const Box& header, const BoxReader& reader) {
  const auto bytes = reader.payload(header, 32);
  if (!bytes.empty() && bytes[0] == 1) {
    return {bigEndianOrZero<std::uint32_t>(bytes, 20), bigEndianOrZero<std::uint64_t>(bytes, 24)};
  }
  return {bigEndianOrZero<std::uint32_t>(bytes, 12), bigEndianOrZero<std::uint32_t>(bytes, 16)};
}

// Whether a media header has no clock, or one by which the samples last quite another time than it
// and the movie's header say.
bool isUnlikeHeaders(std::uint64_t ticks, const Box& media, const std::optional<Box>& movie,
                     const BoxReader& reader) {
  constexpr double quiteAnother = 8;
  const auto areFar = [](double a, double b, double times) {
    return a > b * times || b > a * times;
  };
  const StatedLength track = lengthIn(media, reader);
  if (track.timescale == 0) return true;
  const StatedLength whole = movie ? lengthIn(*movie, reader) : StatedLength{};
  if (track.duration == 0 || whole.timescale == 0 || whole.duration == 0) return false;
  const double told = StatedLength{track.timescale, ticks}.seconds();
  return !areFar(track.seconds(), whole.seconds(), 2) &&
         areFar(told, track.seconds(), quiteAnother);
}

struct TableBoxes {
  std::optional<Box> descriptions;
  std::optional<Box> times;
  std::optional<Box> offsetsInTime;
  std::optional<Box> samplesPerChunk;
  std::optional<Box> sizes;
  std::optional<Box> chunks;
  std::uint64_t chunkEntry = 4;
};

TableBoxes tablesIn(const Box& stbl, const BoxReader& reader) {
  TableBoxes tables;
  reader.visitChildren(stbl, [&](const Box& box) {
    if (box.type == "stsd") tables.descriptions = box;
    if (box.type == "stts") tables.times = box;
    if (box.type == "ctts") tables.offsetsInTime = box;
    if (box.type == "stsc") tables.samplesPerChunk = box;
    if (box.type == "stsz") tables.sizes = box;
    if (box.type == "stco" || box.type == "co64") {
      tables.chunks = box;
      tables.chunkEntry = box.type == "co64" ? 8 : 4;
    }
    return true;
  });
  return tables;
}

// The headers that say how long the samples last.
struct Headers {
  std::optional<Box> media;
  std::optional<Box> movie;
};

bool disagree(const TableBoxes& tables, const Headers& headers, const BoxReader& reader) {
  if (tables.descriptions && isUnreadable(*tables.descriptions, reader)) return true;
  for (const auto& runs : {tables.times, tables.offsetsInTime}) {
    if (runs && hasEmptyEntries(*runs, reader)) return true;
  }
  // Without sizes there are none to compare with: those of stz2 are not read.
  if (!tables.sizes) return false;
  const std::uint64_t samples = sizesIn(*tables.sizes, reader);
  if (tables.offsetsInTime &&
      differ(std::max(timesOf(*tables.offsetsInTime, reader).count, samples * 2), samples * 2)) {
    return true;
  }
  if (tables.times) {
    const StatedTimes times = timesOf(*tables.times, reader);
    if (differ(times.count, samples) || (times.ticks == 0 && differ(samples, 0))) return true;
    if (headers.media && differ(samples, 0) &&
        isUnlikeHeaders(times.ticks, *headers.media, headers.movie, reader)) {
      return true;
    }
  }
  if (!tables.samplesPerChunk || !tables.chunks) return false;
  const EntryTable chunks(*tables.chunks, reader, 8, static_cast<std::size_t>(tables.chunkEntry));
  return isUnlikeChunks(*tables.samplesPerChunk, chunks.count(), samples, reader);
}

// Essential boxes of tracks (§8.3 to §8.7). Of those tables that have two names one is looked for.
constexpr std::array<FourCC, 2> ofTrack{"tkhd", "mdia"};
constexpr std::array<FourCC, 3> ofMedia{"mdhd", "hdlr", "minf"};
constexpr std::array<FourCC, 1> ofInformation{"stbl"};
constexpr std::array<FourCC, 3> ofTables{"stsd", "stts", "stsc"};

bool lacksPlaces(const Box& stbl, const BoxReader& reader) {
  const auto has = [&](FourCC type) { return reader.child(stbl, type).has_value(); };
  return fillingOf(stbl, reader) == Filling::doubtful &&
         !((has("stsz") || has("stz2")) && (has("stco") || has("co64")));
}

bool isTrackDamaged(const Box& trak, const std::optional<Box>& movieHeader, bool hasFragments,
                    const BoxReader& reader) {
  const auto media = reader.child(trak, "mdia");
  const auto handler = media ? reader.child(*media, "hdlr") : std::nullopt;
  if (handler) {
    const FourCC kind(bigEndianOrZero<std::uint32_t>(reader.payload(*handler, 12), 8));
    if (!kind.isPlausible()) return true;
    if (kind != "vide" && kind != "soun") return false;
  }
  if (isTorn(trak, ofTrack, reader) || (media && isTorn(*media, ofMedia, reader))) return true;
  const auto information = media ? reader.child(*media, "minf") : std::nullopt;
  const auto tables = information ? reader.child(*information, "stbl") : std::nullopt;
  if (!tables) return information && isTorn(*information, ofInformation, reader);
  if (isTorn(*information, ofInformation, reader) || isTorn(*tables, ofTables, reader)) return true;
  const Headers headers{reader.child(*media, "mdhd"), movieHeader};
  return !hasFragments &&
         (lacksPlaces(*tables, reader) || disagree(tablesIn(*tables, reader), headers, reader));
}

// Whether a box is a track in all but its name.
bool isRenamedTrack(const Box& box, const BoxReader& reader) {
  static constexpr std::array<FourCC, 7> others{"mvhd", "udta", "meta", "free",
                                                "skip", "wide", "mvex"};
  if (std::find(others.begin(), others.end(), box.type) != others.end()) return false;
  const auto first = reader.box(box.payloadOffset(), box.end());
  return first && first->type == "tkhd";
}

// Whether the samples' places and sizes are such as no recorder gives them.
class PlaceCheck {
 public:
  PlaceCheck(const Box& moov, const BoxReader& reader) : moov_(moov), fileSize_(reader.size()) {
    constexpr std::uint64_t longestType = 4096;
    const auto first = reader.box(0);
    const bool isType = first && first->type == "ftyp" && first->size <= longestType;
    mediaFrom_ = isType ? first->end() : 8;
  }

  bool fails(const Track& track) const {
    // Fewer are lost without the rest.
    constexpr std::uint64_t mostEmpty = 31;
    constexpr std::uint64_t mostMisplaced = 4;
    constexpr std::uint64_t mostOverlapping = 8;
    std::uint64_t empty = 0;
    std::uint64_t misplaced = 0;
    std::uint64_t overlapping = 0;
    std::uint64_t beyond = 0;
    SampleRun last;
    for (const SampleRun& run : track.samples.runs()) {
      empty = run.first.size == 0 ? empty + run.count : 0;
      if (empty > mostEmpty) return true;
      if (run.first.size == 0) continue;
      if (isNowhere(run.first)) misplaced += run.count;
      if (run.end() > fileSize_) {
        beyond += run.count;
        continue;
      }
      // Of a file that was cut short all that follows is missing.
      if (run.first.offset > last.first.offset) misplaced += beyond;
      beyond = 0;
      overlapping += overlap(last, run) ? 1U : 0U;
      last = run;
    }
    // What QuickTime counts as a sample of compressed sound is not what has a size.
    return misplaced > mostMisplaced ||
           (track.kind == Track::Kind::video &&
            overlapping > std::max(mostOverlapping, track.samples.size() / 8));
  }

 private:
  // Whether it lies beside the media, or is larger than any.
  bool isNowhere(const Sample& sample) const {
    constexpr std::uint32_t largest = 1U << 30U;
    return sample.size > largest || sample.offset < mediaFrom_ ||
           (sample.offset >= moov_.offset && sample.offset < moov_.end());
  }
  // A picture that is shown again may have the same place again.
  static bool overlap(const SampleRun& last, const SampleRun& next) {
    return next.first.offset > last.first.offset && next.first.offset < last.end();
  }

  const Box& moov_;
  std::uint64_t fileSize_ = 0;
  std::uint64_t mediaFrom_ = 0;
};

}  // namespace

bool isIn(const Box& moov, const Movie& movie, const BoxReader& reader) {
  constexpr int mostBoxes = 256;
  if (fillingOf(moov, reader) == Filling::broken) return true;
  const bool hasFragments = reader.child(moov, "mvex").has_value();
  const auto header = reader.child(moov, "mvhd");
  bool isDamaged = false;
  int seen = 0;
  reader.visitChildren(moov, [&](const Box& box) {
    isDamaged = box.type == "trak" ? isTrackDamaged(box, header, hasFragments, reader)
                                   : isRenamedTrack(box, reader);
    return !isDamaged && ++seen < mostBoxes;
  });
  if (isDamaged || hasFragments) return isDamaged;
  const PlaceCheck check(moov, reader);
  return std::any_of(movie.tracks.begin(), movie.tracks.end(), [&](const Track& track) {
    return track.kind != Track::Kind::other && check.fails(track);
  });
}

}  // namespace tallowmark::IndexDamage
