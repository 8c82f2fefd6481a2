// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MovieWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BoxWriter.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SampleTable.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::MovieWriter {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t trackEnabledAndInMovie = 3;
constexpr std::uint32_t normalSpeed = 0x10000;
constexpr std::uint16_t fullVolume = 0x100;
constexpr std::uint32_t sameFile = 1;

// The box header of the media data: the wide form from a total on that leaves the compact one no
// doubt.
void writeMediaDataHeader(std::uint64_t total, BoxWriter& head) {
  if (total + 16 > std::numeric_limits<std::uint32_t>::max()) {
    head.u32(1);
    head.fourCC("mdat");
    head.u64(total + 16);
  } else {
    head.u32(static_cast<std::uint32_t>(total + 8));
    head.fourCC("mdat");
  }
}

std::uint64_t durationInMovie(const Track& track, const Movie& movie) {
  return rescale(track.duration(), movie.timescale, track.timescale);
}

void writeMatrix(const TransformationMatrix& matrix, BoxWriter& writer) {
  for (const std::uint32_t value : matrix) {
    writer.u32(value);
  }
}

// §8.2.2
void writeMovieHeader(const Movie& movie, BoxWriter& writer) {
  std::uint64_t duration = 0;
  std::uint32_t largestID = 0;
  for (const Track& track : movie.tracks) {
    duration = std::max(duration, saturatingAdd(track.startDelay, durationInMovie(track, movie)));
    largestID = std::max(largestID, track.trackID);
  }
  writer.full("mvhd", 1, 0, [&](BoxWriter& box) {
    box.u64(movie.creationTime);
    box.u64(movie.creationTime);
    box.u32(movie.timescale);
    box.u64(duration);
    box.u32(normalSpeed);
    box.u16(fullVolume);
    box.zeros(10);
    writeMatrix(unityMatrix, box);
    box.zeros(24);
    box.u32(largestID == std::numeric_limits<std::uint32_t>::max() ? largestID : largestID + 1);
  });
}

std::uint32_t fixedPoint(double pixels) {
  const double scaled = std::round(pixels * 65536.0);
  constexpr double largest = std::numeric_limits<std::uint32_t>::max();
  return std::isfinite(scaled) ? static_cast<std::uint32_t>(std::clamp(scaled, 0.0, largest)) : 0;
}

// §8.3.2
void writeTrackHeader(const Track& track, const Movie& movie, BoxWriter& writer) {
  writer.full("tkhd", 1, trackEnabledAndInMovie, [&](BoxWriter& box) {
    box.u64(movie.creationTime);
    box.u64(movie.creationTime);
    box.u32(track.trackID);
    box.zeros(4);
    box.u64(saturatingAdd(track.startDelay, durationInMovie(track, movie)));
    box.zeros(8);
    box.u16(track.layer);
    box.u16(track.alternateGroup);
    box.u16(track.kind == Track::Kind::audio ? fullVolume : 0);
    box.zeros(2);
    writeMatrix(track.matrix, box);
    box.u32(fixedPoint(track.width));
    box.u32(fixedPoint(track.height));
  });
}

// §8.6.6
void writeEditList(const Track& track, const Movie& movie, BoxWriter& writer) {
  if (track.mediaStart <= 0 && track.startDelay == 0) {
    return;
  }
  writer.box("edts", [&](BoxWriter& edts) {
    edts.full("elst", 1, 0, [&](BoxWriter& box) {
      box.u32(track.startDelay != 0 ? 2 : 1);
      if (track.startDelay != 0) {
        box.u64(track.startDelay);
        box.u64(std::numeric_limits<std::uint64_t>::max());
        box.u32(normalSpeed);
      }
      box.u64(durationInMovie(track, movie));
      box.u64(static_cast<std::uint64_t>(track.mediaStart));
      box.u32(normalSpeed);
    });
  });
}

// §8.4.2
void writeMediaHeader(const Track& track, const Movie& movie, BoxWriter& writer) {
  writer.full("mdhd", 1, 0, [&](BoxWriter& box) {
    box.u64(movie.creationTime);
    box.u64(movie.creationTime);
    box.u32(track.timescale);
    box.u64(track.duration());
    box.u16(track.language);
    box.u16(0);
  });
}

// §8.4.3
void writeHandler(const Track& track, BoxWriter& writer) {
  FourCC handler = track.handler == "????" ? FourCC("meta") : track.handler;
  std::string_view name = "DataHandler";
  if (track.kind == Track::Kind::video) {
    handler = "vide";
    name = "VideoHandler";
  } else if (track.kind == Track::Kind::audio) {
    handler = "soun";
    name = "SoundHandler";
  } else if (!track.handlerName.empty()) {
    name = track.handlerName;
  }
  writer.full("hdlr", 0, 0, [&](BoxWriter& box) {
    box.u32(0);
    box.fourCC(handler);
    box.zeros(12);
    for (const char letter : name) box.u8(static_cast<std::uint8_t>(letter));
    box.u8(0);
  });
}

// §8.4.5
void writeMediaInformationHeader(const Track& track, BoxWriter& writer) {
  if (track.kind == Track::Kind::video) {
    writer.full("vmhd", 0, 1, [](BoxWriter& box) { box.zeros(8); });
  } else if (track.kind == Track::Kind::audio) {
    writer.full("smhd", 0, 0, [](BoxWriter& box) { box.zeros(4); });
  } else if (track.mediaHeader) {
    writer.bytes(*track.mediaHeader);
  } else {
    writer.full("nmhd", 0, 0, [](BoxWriter&) {});
  }
}

void writeMediaInformation(const Track& track, std::uint64_t mediaStart, BoxWriter& writer) {
  writer.box("minf", [&](BoxWriter& minf) {
    writeMediaInformationHeader(track, minf);
    minf.box("dinf", [](BoxWriter& dinf) {
      dinf.full("dref", 0, 0, [](BoxWriter& dref) {
        dref.u32(1);
        dref.full("url ", 0, sameFile, [](BoxWriter&) {});
      });
    });
    writeSampleTable(track, mediaStart, minf);
  });
}

void writeTrack(const Track& track, const Movie& movie, std::uint64_t mediaStart,
                BoxWriter& writer) {
  writer.box("trak", [&](BoxWriter& trak) {
    writeTrackHeader(track, movie, trak);
    writeEditList(track, movie, trak);
    trak.box("mdia", [&](BoxWriter& mdia) {
      writeMediaHeader(track, movie, mdia);
      writeHandler(track, mdia);
      writeMediaInformation(track, mediaStart, mdia);
    });
    for (const Bytes& box : track.extraBoxes) {
      trak.bytes(box);
    }
  });
}

// Sample offsets count from `mediaStart`. They are moved while the tables are written: the samples
// of long clips are too many for a moved copy.
Bytes index(const Movie& movie, std::uint64_t mediaStart) {
  BoxWriter writer;
  writer.box("moov", [&](BoxWriter& box) {
    writeMovieHeader(movie, box);
    for (const Track& track : movie.tracks) {
      writeTrack(track, movie, mediaStart, box);
    }
    if (movie.userData) box.bytes(*movie.userData);
    if (movie.metadata) box.bytes(*movie.metadata);
  });
  return writer.take();
}

}  // namespace

std::vector<std::uint8_t> defaultFileType() {
  BoxWriter writer;
  writer.box("ftyp", [](BoxWriter& box) {
    box.fourCC("isom");
    box.u32(512);
    for (const char* brand : {"isom", "iso2", "avc1", "mp41"}) {
      box.fourCC(brand);
    }
  });
  return writer.take();
}

std::vector<std::uint8_t> moov(const Movie& movie) {
  return index(movie, 0);
}

namespace {

// As the public form, for samples whose offsets count from `origin` in the segments.
void writeFrom(const Movie& movie, std::uint64_t origin, std::span<const Segment> segments,
               FileSink& destination, const Progress& progress, const StopToken& stop) {
  BoxWriter head;
  head.bytes(movie.fileType.empty() ? defaultFileType() : movie.fileType);
  std::uint64_t total = 0;
  for (const Segment& segment : segments) {
    total = saturatingAdd(total, segment.range.length());
  }
  writeMediaDataHeader(total, head);
  const std::uint64_t mediaStart = head.data().size();
  // Building the index before the copy: what cannot be indexed fails before gigabytes are written.
  const Bytes ending = index(movie, mediaStart - origin);

  destination.append(head.data());
  std::uint64_t copied = 0;
  for (const Segment& segment : segments) {
    const auto report = [&](std::uint64_t done) {
      if (progress) {
        progress(static_cast<double>(copied + done) /
                 static_cast<double>(std::max<std::uint64_t>(total, 1)));
      }
    };
    const std::uint64_t got = destination.copy(*segment.source, segment.range.lower,
                                               segment.range.length(), report, stop);
    copied += got;
    if (got < segment.range.length()) {
      throw MediaError::malformed("the file ended early");
    }
  }
  destination.append(ending);
}

}  // namespace

void write(const Movie& movie, std::span<const Segment> segments, FileSink& destination,
           const Progress& progress, const StopToken& stop) {
  writeFrom(movie, 0, segments, destination, progress, stop);
}

void write(const Movie& movie, const ByteSource& source, ByteRange range, FileSink& destination,
           const Progress& progress, const StopToken& stop) {
  const Segment segment{&source, range};
  writeFrom(movie, range.lower, std::span(&segment, 1), destination, progress, stop);
}

void write(const Movie& movie, const ByteSource& source, ByteRange range,
           std::vector<std::uint8_t> bytesBehind, FileSink& destination, const Progress& progress,
           const StopToken& stop) {
  const MemorySource behind(std::move(bytesBehind));
  const std::array<Segment, 2> segments{{{&source, range}, {&behind, {0, behind.size()}}}};
  writeFrom(movie, range.lower, segments, destination, progress, stop);
}

}  // namespace tallowmark::MovieWriter
