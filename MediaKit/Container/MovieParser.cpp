// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MovieParser.h"

#include <algorithm>
#include <array>
#include <map>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieFragments.h"
#include "MediaKit/Container/SampleTable.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::MovieParser {

namespace {

using Bytes = std::vector<std::uint8_t>;

bool isVersionOne(const Bytes& payload) {
  return !payload.empty() && payload[0] == 1;
}

// ISO/IEC 14496-12 §8.3.2. Width and height are counted from the end, the matrix stands before
// them: that holds for both versions.
void readTrackHeader(const Bytes& header, Track& track) {
  track.trackID = bigEndianOrZero<std::uint32_t>(header, isVersionOne(header) ? 20 : 12);
  if (header.size() < 8) {
    return;
  }
  constexpr double fixedPoint = 1.0 / 65536.0;
  track.width = bigEndian<std::uint32_t>(header, header.size() - 8) * fixedPoint;
  track.height = bigEndian<std::uint32_t>(header, header.size() - 4) * fixedPoint;
  if (header.size() < 60) {
    return;
  }
  const std::size_t matrix = header.size() - 44;
  track.layer = bigEndian<std::uint16_t>(header, matrix - 8);
  track.alternateGroup = bigEndian<std::uint16_t>(header, matrix - 6);
  for (std::size_t i = 0; i < track.matrix.size(); ++i) {
    track.matrix[i] = bigEndian<std::uint32_t>(header, matrix + 4 * i);
  }
  // Some writers leave the matrix empty; shown by it, the picture would be a point.
  if (std::all_of(track.matrix.begin(), track.matrix.end(), [](auto v) { return v == 0; })) {
    track.matrix = unityMatrix;
  }
}

// §8.4.2
void readMediaHeader(const Bytes& header, Track& track) {
  const bool one = isVersionOne(header);
  track.timescale = bigEndianOrZero<std::uint32_t>(header, one ? 20 : 12);
  track.language = bigEndianOrZero<std::uint16_t>(header, one ? 32 : 20);
}

Track::Kind kindOf(FourCC handler) {
  if (handler == "vide") return Track::Kind::video;
  if (handler == "soun") return Track::Kind::audio;
  return Track::Kind::other;
}

// §8.6.6: empty edits ahead of the first real one delay the track.
void readEditList(const Bytes& list, Track& track) {
  const bool one = isVersionOne(list);
  const std::size_t entrySize = one ? 20 : 12;
  const std::uint64_t claimed = bigEndianOrZero<std::uint32_t>(list, 4);
  for (std::size_t at = 8, i = 0; i < claimed && at + entrySize <= list.size();
       ++i, at += entrySize) {
    const std::uint64_t length =
        one ? bigEndian<std::uint64_t>(list, at) : bigEndian<std::uint32_t>(list, at);
    const std::int64_t mediaTime =
        one ? static_cast<std::int64_t>(bigEndian<std::uint64_t>(list, at + 8))
            : static_cast<std::int32_t>(bigEndian<std::uint32_t>(list, at + 4));
    if (mediaTime >= 0) {
      track.mediaStart = mediaTime;
      return;
    }
    track.startDelay = saturatingAdd(track.startDelay, length);
  }
}

std::optional<Bytes> findMediaInformationHeader(const Box& minf, const BoxReader& reader) {
  static constexpr std::array<FourCC, 6> headers{"vmhd", "smhd", "nmhd", "gmhd", "hmhd", "sthd"};
  for (const Box& box : reader.children(minf)) {
    if (std::find(headers.begin(), headers.end(), box.type) != headers.end()) {
      return reader.detached(box);
    }
  }
  return std::nullopt;
}

// What the model does not name but a copy should carry on.
void collectExtraBoxes(const Box& trak, const BoxReader& reader, Track& track) {
  static constexpr std::array<FourCC, 4> carried{"tref", "tapt", "udta", "meta"};
  for (const Box& box : reader.children(trak)) {
    if (!box.truncated && std::find(carried.begin(), carried.end(), box.type) != carried.end()) {
      track.extraBoxes.push_back(reader.detached(box));
    }
  }
}

std::string nameOfHandler(const Bytes& handler) {
  constexpr std::size_t nameAt = 24;
  if (handler.size() <= nameAt) return {};
  const bool isCounted = handler[nameAt] == handler.size() - nameAt - 1;
  const auto from = handler.begin() + static_cast<std::ptrdiff_t>(nameAt + (isCounted ? 1 : 0));
  return {from, std::find(from, handler.end(), std::uint8_t{0})};
}

}  // namespace

FileLayout layout(const BoxReader& reader) {
  FileLayout found;
  const std::vector<Box> top = reader.children(0, reader.size());
  for (const Box& box : top) {
    if (box.type == "ftyp" && !found.ftyp) {
      found.ftyp = box;
    } else if (box.type == "moov" && !found.moov && !box.truncated) {
      found.moov = box;
    } else if (box.type == "mdat") {
      found.mdats.push_back(box);
    }
  }
  const auto isMedia = [](const Box& box) { return box.type == "mdat" || box.type == "moov"; };
  if (!found.ftyp && std::none_of(top.begin(), top.end(), isMedia)) {
    throw MediaError::notAMovie();
  }
  found.fileSize = reader.size();
  return found;
}

std::optional<Box> find(std::span<const FourCC> path, const Box& box, const BoxReader& reader) {
  std::optional<Box> current = box;
  for (const FourCC type : path) {
    current = reader.child(*current, type);
    if (!current) {
      return std::nullopt;
    }
  }
  return current;
}

Movie parse(const BoxReader& reader) {
  const FileLayout found = layout(reader);
  if (!found.moov) {
    throw MediaError::malformed("its index (moov) is missing");
  }
  return parseMoov(*found.moov, reader, found.ftyp ? reader.detached(*found.ftyp) : Bytes{});
}

Movie parseMoov(const Box& moov, const BoxReader& reader, std::vector<std::uint8_t> fileType) {
  Movie movie;
  movie.fileType = std::move(fileType);
  for (const Box& box : reader.children(moov)) {
    if (box.type == "mvhd") {
      const Bytes header = reader.payload(box);
      const bool one = isVersionOne(header);
      movie.creationTime = one ? bigEndianOrZero<std::uint64_t>(header, 4)
                               : bigEndianOrZero<std::uint32_t>(header, 4);
      movie.timescale = bigEndianOrZero<std::uint32_t>(header, one ? 20 : 12);
    } else if (box.type == "trak") {
      if (auto track = parseTrack(box, reader)) {
        movie.tracks.push_back(std::move(*track));
      }
    } else if (box.type == "udta") {
      movie.userData = reader.detached(box);
    } else if (box.type == "meta") {
      movie.metadata = reader.detached(box);
    }
  }
  MovieFragments::append(moov, reader, movie);
  return movie;
}

std::optional<Track> parseTrack(const Box& trak, const BoxReader& reader) {
  static constexpr std::array<FourCC, 1> trackHeaderPath{"tkhd"};
  static constexpr std::array<FourCC, 2> mediaHeaderPath{"mdia", "mdhd"};
  static constexpr std::array<FourCC, 2> handlerPath{"mdia", "hdlr"};
  static constexpr std::array<FourCC, 2> informationPath{"mdia", "minf"};
  static constexpr std::array<FourCC, 3> tablePath{"mdia", "minf", "stbl"};
  static constexpr std::array<FourCC, 2> editPath{"edts", "elst"};

  const auto trackHeader = find(trackHeaderPath, trak, reader);
  const auto mediaHeader = find(mediaHeaderPath, trak, reader);
  const auto handler = find(handlerPath, trak, reader);
  const auto table = find(tablePath, trak, reader);
  if (!trackHeader || !mediaHeader || !handler || !table) {
    return std::nullopt;
  }
  Track track;
  readTrackHeader(reader.payload(*trackHeader), track);
  readMediaHeader(reader.payload(*mediaHeader), track);
  track.handler = FourCC(bigEndianOrZero<std::uint32_t>(reader.payload(*handler), 8));
  track.kind = kindOf(track.handler);
  if (const auto edits = find(editPath, trak, reader)) {
    readEditList(reader.payload(*edits), track);
  }
  track.mediaHeader = findMediaInformationHeader(*find(informationPath, trak, reader), reader);
  collectExtraBoxes(trak, reader, track);
  readSampleTable(*table, reader, track);
  return track;
}

void readHandlerNames(const BoxReader& reader, Movie& movie) {
  static constexpr std::array<FourCC, 1> trackHeaderPath{"tkhd"};
  static constexpr std::array<FourCC, 2> handlerPath{"mdia", "hdlr"};
  const auto moov = layout(reader).moov;
  std::map<std::uint32_t, std::string> names;
  for (const Box& trak : moov ? reader.children(*moov) : std::vector<Box>{}) {
    const auto header = find(trackHeaderPath, trak, reader);
    const auto handler = find(handlerPath, trak, reader);
    if (header && handler) {
      Track track;
      readTrackHeader(reader.payload(*header), track);
      names.try_emplace(track.trackID, nameOfHandler(reader.payload(*handler)));
    }
  }
  for (Track& track : movie.tracks) {
    if (track.kind == Track::Kind::other) track.handlerName = names[track.trackID];
  }
}

}  // namespace tallowmark::MovieParser
