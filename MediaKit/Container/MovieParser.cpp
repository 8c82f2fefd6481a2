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

/// Boxes that are carried on as they are, as many as a movie has in good faith.
class CarriedBoxes {
 public:
  /// The whole box; nothing when all that is carried would be more than any camera writes.
  std::optional<Bytes> take(const Box& box, const BoxReader& reader) {
    BoxReader::requirePlausible(box);
    if (box.size > left_) {
      return std::nullopt;
    }
    left_ -= box.size;
    return reader.detached(box);
  }

 private:
  std::uint64_t left_ = std::uint64_t{16} << 20U;
};

std::optional<Bytes> findMediaInformationHeader(const Box& minf, const BoxReader& reader,
                                                CarriedBoxes& carried) {
  static constexpr std::array<FourCC, 6> headers{"vmhd", "smhd", "nmhd", "gmhd", "hmhd", "sthd"};
  std::optional<Bytes> header;
  reader.visitChildren(minf, [&](const Box& box) {
    const bool found = std::find(headers.begin(), headers.end(), box.type) != headers.end();
    header = found ? carried.take(box, reader) : std::nullopt;
    return !found;
  });
  return header;
}

// What the model does not name but a copy should carry on.
void collectExtraBoxes(const Box& trak, const BoxReader& reader, CarriedBoxes& carried,
                       Track& track) {
  static constexpr std::array<FourCC, 4> kinds{"tref", "tapt", "udta", "meta"};
  reader.visitChildren(trak, [&](const Box& box) {
    if (!box.truncated && std::find(kinds.begin(), kinds.end(), box.type) != kinds.end()) {
      if (auto whole = carried.take(box, reader)) {
        track.extraBoxes.push_back(std::move(*whole));
      }
    }
    return true;
  });
}

// No header and no edit list of a camera comes near it; what stands behind is not read.
constexpr std::uint64_t longestHeader = std::uint64_t{1} << 16U;

std::optional<Track> readTrack(const Box& trak, const BoxReader& reader, CarriedBoxes& carried) {
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
  readTrackHeader(reader.payload(*trackHeader, longestHeader), track);
  readMediaHeader(reader.payload(*mediaHeader, longestHeader), track);
  const Bytes handlerBytes = reader.payload(*handler, longestHeader);
  track.handler = FourCC(bigEndianOrZero<std::uint32_t>(handlerBytes, 8));
  track.kind = kindOf(track.handler);
  if (const auto edits = find(editPath, trak, reader)) {
    readEditList(reader.payload(*edits, longestHeader), track);
  }
  track.mediaHeader =
      findMediaInformationHeader(*find(informationPath, trak, reader), reader, carried);
  collectExtraBoxes(trak, reader, carried, track);
  readSampleTable(*table, reader, track);
  return track;
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
  // A recorder that starts a new one every second goes on for a day and a half.
  constexpr std::size_t mostMediaBoxes = std::size_t{1} << 17U;
  FileLayout found;
  bool isMovie = false;
  reader.visit(0, reader.size(), [&](const Box& box) {
    isMovie = isMovie || box.type == "ftyp" || box.type == "mdat" || box.type == "moov";
    if (box.type == "ftyp" && !found.ftyp) {
      found.ftyp = box;
    } else if (box.type == "moov" && !found.moov && !box.truncated) {
      found.moov = box;
    } else if (box.type == "mdat" && found.mdats.size() < mostMediaBoxes) {
      found.mdats.push_back(box);
    }
    return true;
  });
  if (!isMovie) {
    throw MediaError::notAMovie();
  }
  found.fileSize = reader.size();
  return found;
}

std::optional<FileLayout> layoutIfAny(const BoxReader& reader) {
  try {
    return layout(reader);
  } catch (const MediaError&) {
    return std::nullopt;
  }
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
  CarriedBoxes carried;
  const auto fileType = found.ftyp ? carried.take(*found.ftyp, reader) : std::nullopt;
  return parseMoov(*found.moov, reader, fileType.value_or(Bytes{}));
}

Movie parseMoov(const Box& moov, const BoxReader& reader, std::vector<std::uint8_t> fileType) {
  Movie movie;
  movie.fileType = std::move(fileType);
  CarriedBoxes carried;
  std::size_t runs = 0;
  reader.visitChildren(moov, [&](const Box& box) {
    if (box.type == "mvhd") {
      const Bytes header = reader.payload(box, longestHeader);
      const bool one = isVersionOne(header);
      movie.creationTime = one ? bigEndianOrZero<std::uint64_t>(header, 4)
                               : bigEndianOrZero<std::uint32_t>(header, 4);
      movie.timescale = bigEndianOrZero<std::uint32_t>(header, one ? 20 : 12);
    } else if (box.type == "trak") {
      if (auto track = readTrack(box, reader, carried)) {
        runs += track->samples.runs().size();
        movie.tracks.push_back(std::move(*track));
      }
      if (runs > mostSampleRuns) {
        throw MediaError::malformed("its index is implausibly large");
      }
    } else if (box.type == "udta") {
      movie.userData = carried.take(box, reader);
    } else if (box.type == "meta") {
      movie.metadata = carried.take(box, reader);
    }
    return true;
  });
  MovieFragments::append(moov, reader, movie);
  return movie;
}

std::optional<Track> parseTrack(const Box& trak, const BoxReader& reader) {
  CarriedBoxes carried;
  return readTrack(trak, reader, carried);
}

void readHandlerNames(const BoxReader& reader, Movie& movie) {
  static constexpr std::array<FourCC, 1> trackHeaderPath{"tkhd"};
  static constexpr std::array<FourCC, 2> handlerPath{"mdia", "hdlr"};
  std::map<std::uint32_t, std::string> names;
  const auto takeName = [&](const Box& trak) {
    const auto header = find(trackHeaderPath, trak, reader);
    const auto handler = header ? find(handlerPath, trak, reader) : std::nullopt;
    if (handler) {
      Track track;
      readTrackHeader(reader.payload(*header, longestHeader), track);
      names.try_emplace(track.trackID, nameOfHandler(reader.payload(*handler, longestHeader)));
    }
    return true;
  };
  if (const auto moov = layout(reader).moov) {
    reader.visitChildren(*moov,
                         [&](const Box& box) { return box.type != "trak" || takeName(box); });
  }
  for (Track& track : movie.tracks) {
    if (track.kind == Track::Kind::other) track.handlerName = names[track.trackID];
  }
}

}  // namespace tallowmark::MovieParser
