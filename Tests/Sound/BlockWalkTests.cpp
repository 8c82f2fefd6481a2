// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Sound/SilentBlock.h"
#include "MediaKit/Sound/SoundHabits.h"
#include "MediaKit/Sound/SpectrumCodebooks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::livelySound;

/// The first AAC track of a clip.
struct Clip {
  explicit Clip(const std::filesystem::path& path)
      : source(path.string()), movie(MovieParser::parse(BoxReader(source))) {
    for (const Track& track : movie.tracks) {
      if (audio == nullptr && AACConfig::of(track.sampleEntry)) audio = &track;
    }
  }
  Bytes sample(std::uint64_t i) const {
    return source.read(audio->samples[i].offset, audio->samples[i].size);
  }

  FileSource source;
  Movie movie;
  const Track* audio = nullptr;
};

std::vector<std::filesystem::path> clipsWithAAC() {
  std::vector<std::filesystem::path> clips;
  for (const auto& clip : testing::corpusFiles("video")) {
    if (Clip(clip).audio != nullptr) clips.push_back(clip);
  }
  if (testing::canMakeClips()) {
    for (const auto& [rate, channels] :
         {std::pair{48000, 2}, {44100, 1}, {44100, 2}, {48000, 6}, {32000, 2}, {16000, 1}}) {
      clips.push_back(testing::makeClip(
          {.sound = livelySound(channels, rate), .sampleRate = rate, .channels = channels}));
    }
  }
  return clips;
}

#define SKIP_WITHOUT(clips)                                                        \
  if ((clips).empty()) {                                                           \
    GTEST_SKIP() << "neither ffmpeg nor the folder of real camera files is there"; \
  }

TEST(SpectrumCodebooks, haveACodewordForAllBits) {
  const SpectrumCodebooks& books = SpectrumCodebooks::standard();
  for (std::uint32_t bits = 0; bits < 1U << 19U; ++bits) {
    for (std::size_t book = 1; book <= 11; ++book) {
      ASSERT_GT(books.spectrum.at(book).at(std::uint64_t{bits} << 45U).length, 0)
          << book << ": " << bits;
    }
    const auto word = books.scalefactors.at(std::uint64_t{bits} << 45U);
    ASSERT_TRUE(word.length > 0 && word.value >= -60 && word.value <= 60) << bits;
  }
}

TEST(Codebook, passesSeveralCodewordsAsOneByOne) {
  const SpectrumCodebooks& books = SpectrumCodebooks::standard();
  std::mt19937_64 random(3);
  for (std::size_t number = 1; number <= 11; ++number) {
    const Codebook& book = books.spectrum.at(number);
    unsigned longest = 0;
    for (int i = 0; i < 20'000; ++i) {
      const std::uint64_t bits = random();
      for (const unsigned most : {1U, 2U, 100U}) {
        const Codebook::Run run = book.runAt(bits, most);
        ASSERT_TRUE(run.count > 0 && run.count <= most) << number;
        unsigned length = 0;
        for (unsigned word = 0; word < run.count; ++word) length += book.at(bits << length).length;
        ASSERT_EQ(run.length, length) << number << ": " << bits;
        longest = std::max<unsigned>(longest, run.count);
      }
    }
    // The shortest of book 10 have six bits with their signs.
    EXPECT_EQ(longest > 1, number != 10) << number;
  }
}

TEST(BlockWalk, endsWhereEachSampleOfGoodClipsEnds) {
  const auto clips = clipsWithAAC();
  SKIP_WITHOUT(clips)
  for (const auto& path : clips) {
    const Clip clip(path);
    const auto habits = SoundHabits::learn(*clip.audio, clip.source);
    ASSERT_TRUE(habits) << path;
    const BlockWalk walk(habits->config, habits->rules);
    for (std::uint64_t i = 0; i < clip.audio->samples.size(); ++i) {
      Bytes bytes = clip.sample(i);
      const std::size_t size = bytes.size();
      const auto cut = walk.at(std::span(bytes).first(size - 1));
      EXPECT_FALSE(cut) << path << " sample " << i << " cut by a byte";
      for (const std::uint8_t more : Bytes{0x00, 0xFF, 0x21}) {
        bytes.resize(size + 9000, more);
        const auto block = walk.at(bytes);
        ASSERT_TRUE(block) << path << " sample " << i;
        EXPECT_EQ(block->size, size) << path << " sample " << i;
        EXPECT_TRUE(walk.mayStartWith(bytes[0]));
        bytes.resize(size);
      }
    }
  }
}

// Of other data one position in some hundred thousand walks as a block, and never two in a row.
TEST(BlockWalk, takesNothingElseForSound) {
  const auto clips = clipsWithAAC();
  SKIP_WITHOUT(clips)
  std::mt19937 random(7);
  Bytes noise(1U << 19U);
  for (auto& byte : noise) byte = static_cast<std::uint8_t>(random());
  for (const auto& path : clips) {
    const Clip clip(path);
    const auto habits = SoundHabits::learn(*clip.audio, clip.source);
    ASSERT_TRUE(habits) << path;
    const BlockWalk walk(habits->config, habits->rules);
    std::vector<Bytes> others{noise, Bytes(65536, 0), Bytes(65536, 0xFF), Bytes(65536, 0x21)};
    for (const Track& track : clip.movie.tracks) {
      Bytes pieces;
      for (std::uint64_t i = 0; track.kind != Track::Kind::audio && i < track.samples.size(); ++i) {
        const Bytes sample = clip.source.read(track.samples[i].offset, track.samples[i].size);
        pieces.insert(pieces.end(), sample.begin(), sample.end());
        if (pieces.size() > noise.size()) break;
      }
      others.push_back(std::move(pieces));
    }
    std::uint64_t single = 0;
    std::uint64_t positions = 0;
    for (const Bytes& other : others) {
      positions += other.size();
      for (std::size_t at = 0; at < other.size(); ++at) {
        if (!walk.mayStartWith(other[at])) continue;
        const auto rest = std::span(other).subspan(at);
        const auto block = walk.at(rest);
        if (!block) continue;
        ++single;
        EXPECT_FALSE(walk.at(rest.subspan(block->size))) << path << " at " << at;
      }
    }
    EXPECT_LE(single << 17U, positions) << path;
  }
}

TEST(SilentBlock, isABlockOfItsPattern) {
  const auto clips = clipsWithAAC();
  SKIP_WITHOUT(clips)
  for (const auto& path : clips) {
    const Clip clip(path);
    const auto habits = SoundHabits::learn(*clip.audio, clip.source);
    ASSERT_TRUE(habits) << path;
    const Bytes silence = silentBlock(habits->usualPattern);
    const auto block = BlockWalk(habits->config, habits->rules).at(silence);
    ASSERT_TRUE(block) << path;
    EXPECT_EQ(block->size, silence.size());
    EXPECT_EQ(block->pattern, habits->usualPattern);
  }
  constexpr ElementPattern coupled = 0x80A0;
  EXPECT_TRUE(silentBlock(coupled).empty());
}

}  // namespace
}  // namespace tallowmark
