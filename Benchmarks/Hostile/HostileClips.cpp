// SPDX-License-Identifier: GPL-3.0-or-later
// Media data without an index that a rebuild goes through.
#include <algorithm>

#include "DeviceKit/FileSource.h"
#include "HostileRun.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Interleaving/BlockSearch.h"
#include "MediaKit/Interleaving/SoundLayout.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"

namespace tallowmark::testing {

namespace {

namespace fs = std::filesystem;

Movie parsedClip(const fs::path& clip) {
  const FileSource source(clip.string());
  return MovieParser::parse(BoxReader(source));
}

Bytes sampleOf(const Movie& movie, Track::Kind kind, const fs::path& clip, std::uint64_t number) {
  const Track& track = *(kind == Track::Kind::video ? movie.videoTrack() : movie.audioTrack());
  const Sample sample = track.samples[number];
  return FileSource(clip.string()).read(sample.offset, sample.size);
}

/// The first bytes of a picture that is no key picture, behind its length.
Bytes pictureHead() {
  const fs::path clip = makeClip({});
  const Bytes picture = sampleOf(parsedClip(clip), Track::Kind::video, clip, 1);
  return {picture.begin() + 4, picture.begin() + 28};
}

/// A unit that claims `length` bytes and begins as `head`, of which `more` follows here.
Bytes unit(std::size_t length, const Bytes& head, const Bytes& more = {}) {
  return joined({u32(static_cast<std::uint32_t>(length)), head, more});
}

void writeMedia(const fs::path& file, const Bytes& media) {
  writeFile(file, joined({MovieWriter::defaultFileType(), u32(0), text("mdat"), media}));
}

// A slice that goes on with a picture at its second macroblock, of the reference's first sets.
const Bytes laterSlice{0x41, 0x46, 0x88, 0x88, 0x88, 0x88};

/// Beginnings of pictures with bytes that no slice has, each of which leads through the same long
/// chain of slices.
Bytes headsOfOneChain(std::size_t size) {
  constexpr std::size_t heads = 4000;
  const Bytes head = joined({pictureHead(), {0, 0, 1, 0xFF}});
  const Bytes chain = repeated(unit(laterSlice.size(), laterSlice), 2000);
  Bytes media;
  while (media.size() < size) {
    media.push_back(0xFF);
    const std::size_t chainAt = media.size() + heads * (head.size() + 4);
    while (media.size() < chainAt) {
      const Bytes piece = unit(chainAt - media.size() - 4, head);
      media.insert(media.end(), piece.begin(), piece.end());
    }
    media.insert(media.end(), chain.begin(), chain.end());
  }
  return media;
}

/// Whole pictures and sound, and ahead of each the beginning of another that claims to reach over
/// the next ones and holds none of what it claims.
Bytes picturesInTornOnes() {
  constexpr std::size_t reach = 4001;
  const fs::path clip = makeClip({});
  const Movie movie = parsedClip(clip);
  Bytes media;
  for (std::uint64_t number = 1; number < 25; ++number) {
    for (const Bytes& piece :
         {unit(reach, pictureHead()), sampleOf(movie, Track::Kind::video, clip, number),
          sampleOf(movie, Track::Kind::audio, clip, number)}) {
      media.insert(media.end(), piece.begin(), piece.end());
    }
  }
  return media;
}

HostileCase mediaCase(const char* name, std::size_t size,
                      const std::function<Bytes(std::size_t)>& media) {
  return {name, size, rebuildCeiling,
          [media](const fs::path& file, std::size_t bytes) { writeMedia(file, media(bytes)); },
          [](const fs::path& file) { rebuildClip(file, makeClip({})); }};
}

HostileCase patternCase(const char* name, std::size_t size, const std::function<Bytes()>& pattern) {
  return mediaCase(name, size,
                   [pattern](std::size_t bytes) { return filledWith(pattern(), bytes); });
}

// Stretches between pictures, as short as cameras have them, each looked through by itself.
void searchSound(const fs::path& file) {
  constexpr std::uint64_t stretch = 700;
  const fs::path clip = makeClip({});
  const FileSource teacher(clip.string());
  const auto layout = BlockLayout::learn(parsedClip(clip), teacher);
  const FileSource source(file.string());
  BlockSearch search(source, layout.value());
  for (std::uint64_t at = 0; at + stretch <= source.size(); at += stretch) {
    (void)search.in({at, at + stretch}, StretchEnd::known, {});
  }
}

HostileCase soundCase(const char* name, std::size_t size, const std::function<Bytes()>& pattern) {
  return {name, size, rebuildCeiling,
          [pattern](const fs::path& file, std::size_t bytes) {
            writeFile(file, filledWith(pattern(), bytes));
          },
          searchSound};
}

Bytes soundBlock() {
  const fs::path clip = makeClip({});
  return sampleOf(parsedClip(clip), Track::Kind::audio, clip, 20);
}

const ClipRecipe uncompressedSound{.container = "mov", .audio = "pcm_s16le"};

// Between two pictures that count on, and gigabytes long.
void divideGap(const fs::path& file) {
  const fs::path clip = makeClip(uncompressedSound);
  const FileSource teacher(clip.string());
  const auto layout = SoundLayout::learn(parsedClip(clip), teacher);
  const FileSource source(file.string());
  (void)layout.value().divide(source, 0, source.size(), SoundLayout::Neighbours::countOn);
}

HostileCase gapCase() {
  return {"gapOfGigabytes", 16, rebuildCeiling,
          [](const fs::path& file, std::size_t gigabytes) {
            fs::resize_file(writeFile(file, {}), gigabytes << 30U);
          },
          divideGap};
}

}  // namespace

std::vector<HostileCase> hostileClips() {
  return {
      patternCase("tinyMessages", megabyte / 16,
                  [] {
                    return unit(2, {0x06, 0x01});
                  }),
      patternCase("tinyPictures", megabyte / 2, [] { return unit(24, pictureHead()); }),
      // Each reaches over thousands of others and ends amidst one of them.
      patternCase("overlappingPictures", megabyte / 8, [] { return unit(20'010, pictureHead()); }),
      patternCase("overlappingForbidden", megabyte / 8,
                  [] {
                    return unit(20'010, pictureHead(), {0, 0, 1, 0xFF});
                  }),
      patternCase("picturesThatFollow", megabyte / 2,
                  [] { return unit(std::size_t{28} * 5000 - 4, pictureHead()); }),
      patternCase("picturesInTornOnes", megabyte, picturesInTornOnes),
      mediaCase("headsOfOneChain", megabyte / 8, headsOfOneChain),
      patternCase("slicesOfNoPicture", megabyte / 2,
                  [] { return unit(laterSlice.size(), laterSlice); }),
      patternCase("emptyBoxesInMedia", megabyte / 4,
                  [] {
                    return joined({u32(8), text("free")});
                  }),
      patternCase("lengthsOfLengths", megabyte,
                  [] {
                    return Bytes{0, 0, 0x41, 0x41};
                  }),
      soundCase("soundBehindAByte", megabyte / 4,
                [] {
                  return joined({Bytes{0x55}, soundBlock()});
                }),
      soundCase("soundCutShort", megabyte / 4,
                [] {
                  Bytes block = soundBlock();
                  block.resize(block.size() - 2);
                  return block;
                }),
      gapCase(),
      soundCase("soundOfZeros", megabyte / 8, [] { return Bytes{0x00}; }),
  };
}

}  // namespace tallowmark::testing
