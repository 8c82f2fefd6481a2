// SPDX-License-Identifier: GPL-3.0-or-later
// PCM sound in chunks: several tracks, padding, and what chunks tell of the pictures beside them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

namespace fs = std::filesystem;
using testing::Bytes;
using testing::Chunk;
using testing::chunksOf;
using testing::ClipRecipe;
using testing::Comparison;
using testing::Filling;
using testing::makeClip;
using testing::Victim;

/// How a camera stores what ffmpeg made.
struct Storing {
  const char* label;
  /// Of a chunk of every track; 0: as ffmpeg stores it.
  double seconds = 0;
  std::uint64_t alignment = 1;
  /// Multiples of the alignment count from the media's first byte, not the file's.
  bool fromMedia = false;
  std::uint8_t padding = 0;
  /// Ahead of each so many chunks, and of the last, the media-data box ends, and free space with
  /// something in it follows.
  std::size_t chunksPerBox = 0;
};

/// Media-data boxes with free space between them.
class MediaBoxes {
 public:
  /// Ends one and begins another.
  void split(Bytes& media) {
    Bytes space(4096);
    std::generate(space.begin(), space.end(), [&] { return static_cast<std::uint8_t>(random_()); });
    ends_.push_back(media.size());
    const Bytes boxes =
        testing::joined({testing::makeBox("free", {space}), testing::makeBox("mdat", {})});
    media.insert(media.end(), boxes.begin(), boxes.end());
    starts_.push_back(media.size() - 8);
  }
  /// Gives each its size in the file, where all of the media is in one so far.
  void setSizes(Bytes& file, const Box& whole) const {
    for (std::size_t i = 0; i <= ends_.size(); ++i) {
      const std::uint64_t start = i == 0 ? whole.offset : whole.payloadOffset() + starts_[i - 1];
      const std::uint64_t end = i < ends_.size() ? whole.payloadOffset() + ends_[i] : whole.end();
      const Bytes size = testing::u32(static_cast<std::uint32_t>(end - start));
      std::copy(size.begin(), size.end(), file.begin() + static_cast<std::ptrdiff_t>(start));
    }
  }

 private:
  std::vector<std::uint64_t> ends_;
  std::vector<std::uint64_t> starts_;
  std::minstd_rand random_;
};

void store(const fs::path& clip, const Storing& how, std::uint64_t mediaStart,
           const fs::path& target) {
  const FileSource source(clip.string());
  Movie movie = MovieParser::parse(BoxReader(source));
  Bytes media;
  MediaBoxes boxes;
  std::size_t number = 0;
  const std::vector<Chunk> chunks = chunksOf(movie, how.seconds);
  movie = testing::gatherChunks(std::move(movie), source, chunks, media, [&] {
    const bool isLast = ++number == chunks.size();
    if (how.chunksPerBox > 0 && (isLast || number % how.chunksPerBox == 0)) boxes.split(media);
    while ((mediaStart + media.size()) % how.alignment != 0) media.push_back(how.padding);
  });
  FileSink sink(target.string());
  MovieWriter::write(movie, MemorySource(media), {0, media.size()}, sink);
  sink.close();
  Bytes file = testing::contentsOf(target);
  boxes.setSizes(file, MovieParser::layout(BoxReader(MemorySource(file))).mdats.front());
  testing::writeFile(target, file);
}

fs::path stored(const fs::path& clip, const Storing& how, const fs::path& target) {
  if (how.seconds == 0) {
    return clip;
  }
  store(clip, how, 0, target);
  if (!how.fromMedia) {
    const FileSource made(target.string());
    store(clip, how, MovieParser::layout(BoxReader(made)).mdats.front().payloadOffset(), target);
  }
  return target;
}

TEST(ChunkOrder, soundIsOfItsTrackAndNeverPadding) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const ClipRecipe two{.container = "mov",
                       .audio = "pcm_s16le",
                       .seconds = 4,
                       .sound = testing::livelySound(1, 48000),
                       .soundTracks = 2};
  ClipRecipe four = two;
  four.audio = "pcm_s24be";
  four.soundTracks = 4;
  ClipRecipe one = four;
  one.soundTracks = 1;
  one.channels = 2;
  const struct {
    Storing how;
    ClipRecipe recipe;
  } rows[] = {
      {{.label = "two take turns"}, two},
      {{.label = "four take turns"}, four},
      {{.label = "half a second of each", .seconds = 0.5}, four},
      {{.label = "a sector", .seconds = 0.4, .alignment = 512}, one},
      {{.label = "a block, junk", .seconds = 0.5, .alignment = 4096, .padding = 0xA7}, one},
      {{.label = "32 KB, media", .seconds = 0.36, .alignment = 32768, .fromMedia = true}, one},
      {{.label = "a block, four", .seconds = 0.5, .alignment = 4096}, four},
  };
  const testing::TemporaryFolder folder;
  for (const auto& [how, recipe] : rows) {
    SCOPED_TRACE(how.label);
    ClipRecipe other = recipe;
    other.variant = 1;
    other.seconds = 3;
    const fs::path clip = stored(makeClip(recipe), how, folder / "clip.mov");
    const fs::path sibling = stored(makeClip(other), how, folder / "sibling.mov");
    for (const fs::path& reference : {clip, sibling}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames);
      EXPECT_GT(c.sound, 0U);
      EXPECT_EQ(c.soundRight, c.sound);
      EXPECT_EQ(c.soundWrong, 0U);
      EXPECT_LT(std::abs(c.worstStep), 1.0);
      EXPECT_LT(c.tracksApart, 1e-4);
    }
    for (unsigned seed = 0; seed < 3; ++seed) {
      Victim victim(clip);
      victim.punch(seed, 1 + seed, 3000 + 8000 * seed,
                   seed % 2 == 0 ? Filling::noise : Filling::zeros);
      const Comparison c = rebuildAndCompare(victim, sibling);
      EXPECT_EQ(c.soundWrong, 0U) << seed;
      EXPECT_GT(c.soundRight * 2, c.sound) << seed;
      EXPECT_LT(c.tracksApart, 1e-4) << seed;
    }
  }
}

Bytes soundBytes(const fs::path& clip) {
  const FileSource source(clip.string());
  const Movie movie = MovieParser::parse(BoxReader(source));
  Bytes bytes;
  for (const SampleRun& run : movie.audioTrack()->samples.runs()) {
    const Bytes more = source.read(run.first.offset, run.count * run.first.size);
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  return bytes;
}

// Power may fail between two tracks' chunks, in a box whose size was never written.
TEST(ChunkOrder, whatFollowsTheLastPictureMayBeCut) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const ClipRecipe recipe{.container = "mov",
                          .audio = "pcm_s16le",
                          .seconds = 3,
                          .sound = testing::livelySound(1, 48000),
                          .soundTracks = 2};
  for (const double seconds : {0.0, 0.5}) {
    const fs::path clip =
        stored(makeClip(recipe), {.label = "", .seconds = seconds}, folder / "clip.mov");
    const Bytes sound = soundBytes(clip);
    Bytes file = testing::contentsOf(clip);
    const FileSource source(clip.string());
    const Box media = MovieParser::layout(BoxReader(source)).mdats.front();
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(media.offset), 4, std::uint8_t{0});
    for (std::uint64_t lost = 0; lost < 100'000; lost += 3100) {
      file.resize(media.end() - lost);
      FileSink sink((folder / "copy.mov").string());
      (void)VideoRepair::rebuild(MemorySource(file), source, sink);
      sink.close();
      const Bytes found = soundBytes(folder / "copy.mov");
      EXPECT_GT(found.size() * 5, sound.size() * 2) << lost;
      EXPECT_TRUE(found.size() <= sound.size() &&
                  std::equal(found.begin(), found.end(), sound.begin()))
          << seconds << " s, " << lost << " bytes cut";
    }
  }
}

// Where tracks do not keep an order, or not the reference's, none is kept and all of it is counted.
TEST(ChunkOrder, soundThatCannotBeToldApartIsLeftOut) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ClipRecipe slower{.container = "mov",
                    .audio = "pcm_s16le",
                    .seconds = 4,
                    .sound = testing::livelySound(1, 48000),
                    .soundTracks = 2};
  ClipRecipe late = slower;
  slower.lastSampleRate = 44100;
  const ClipRecipe turns = late;
  late.lastTrack = ",asetpts=PTS+0.013/TB";
  const testing::TemporaryFolder folder;
  const fs::path halves = stored(
      makeClip(turns), {.label = "half a second of each", .seconds = 0.5}, folder / "halves.mov");
  ClipRecipe four = turns;
  four.audio = "pcm_s24le";
  four.sound = "anoisesrc=r=48000:a=0.5:seed=1";
  four.soundTracks = 4;
  ClipRecipe other = four;
  other.variant = 1;
  const fs::path fourInHalves =
      stored(makeClip(other), {.label = "", .seconds = 0.5}, folder / "four.mov");
  const struct {
    const char* label;
    fs::path clip;
    fs::path reference;
  } rows[] = {{"another rate", makeClip(slower), makeClip(slower)},
              {"one late", makeClip(late), makeClip(late)},
              {"reference in halves", makeClip(turns), halves},
              {"reference in turns", halves, makeClip(turns)},
              {"four, reference in halves", makeClip(four), fourInHalves}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const Comparison c = rebuildAndCompare(Victim(row.clip), row.reference);
    EXPECT_EQ(c.exact, c.frames);
    EXPECT_EQ(c.invented, 0U);
    EXPECT_EQ(c.soundWrong, 0U);
    EXPECT_TRUE(c.result.audioDropped);
    EXPECT_GT(c.result.unusedBy.sound, 0U);
    EXPECT_EQ(c.result.unusedBy.total(), c.result.unusedBytes);
  }
}

// Dashcams keep positions in free space between media-data boxes, which come at a step of their
// own.
TEST(ChunkOrder, boxesBetweenChunksAreNoSound) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const struct {
    const char* audio;
    std::size_t chunksPerBox;
  } rows[] = {{"pcm_s16le", 1}, {"pcm_s16le", 5}, {"pcm_u8", 5}, {"aac", 5}};
  for (const auto& row : rows) {
    ClipRecipe recipe{.container = "mov",
                      .audio = row.audio,
                      .seconds = 4,
                      .sound = testing::livelySound(1, 16000),
                      .sampleRate = 16000};
    ClipRecipe other = recipe;
    other.variant = 1;
    const Storing how{.label = "", .seconds = 0.5, .chunksPerBox = row.chunksPerBox};
    const fs::path clip = stored(makeClip(recipe), how, folder / "clip.mov");
    const fs::path sibling = stored(makeClip(other), how, folder / "sibling.mov");
    for (const fs::path& reference : {clip, sibling}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames) << row.audio << row.chunksPerBox;
      EXPECT_EQ(c.soundRight, c.sound) << row.audio << row.chunksPerBox;
      EXPECT_EQ(c.soundWrong, 0U) << row.audio << row.chunksPerBox;
      EXPECT_EQ(c.blocksExact, c.blocks) << row.audio << row.chunksPerBox;
      EXPECT_LT(std::abs(c.worstStep), 1.0) << row.audio << row.chunksPerBox;
    }
  }
}

// The text of each picture, as long as cameras' metadata is, in chunks of half a second that come
// now ahead of the sound's and now behind them.
fs::path withTexts(const ClipRecipe& recipe, const testing::TemporaryFolder& folder) {
  constexpr std::size_t letters = 900;
  const fs::path texts = folder / "texts.srt";
  std::mt19937 random(static_cast<unsigned>(recipe.variant));
  const auto pictures = static_cast<int>(recipe.seconds * recipe.framesPerSecond);
  std::ofstream lines(texts);
  for (int i = 0; i < pictures; ++i) {
    const auto time = [&](int picture) {
      const int milliseconds = picture * 1000 / recipe.framesPerSecond;
      return "00:00:0" + std::to_string(milliseconds / 1000) + "," +
             std::to_string(1000 + milliseconds % 1000).substr(1);
    };
    lines << i + 1 << "\n" << time(i) << " --> " << time(i + 1) << "\n";
    for (std::size_t letter = 0; letter < letters; ++letter) {
      lines << static_cast<char>('A' + random() % 50);
    }
    lines << "\n\n";
  }
  lines.close();
  fs::path clip = folder / ("texts" + std::to_string(recipe.variant) + ".mov");
  testing::run({"ffmpeg", "-v", "error", "-y", "-i", makeClip(recipe).string(), "-i",
                texts.string(), "-map", "0", "-map", "1", "-c", "copy", "-c:s", "mov_text",
                "-chunk_duration", "500000", clip.string()});
  return clip;
}

TEST(ChunkOrder, soundIsTakenFromTheSideItStandsOn) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  ClipRecipe recipe{.container = "mov",
                    .audio = "pcm_s16be",
                    .seconds = 6,
                    .sound = testing::livelySound(2, 48000),
                    .channels = 2};
  const fs::path clip = withTexts(recipe, folder);
  recipe.variant = 1;
  for (const fs::path& reference : {clip, withTexts(recipe, folder)}) {
    const Comparison c = rebuildAndCompare(Victim(clip), reference);
    EXPECT_EQ(c.exact, c.frames) << reference;
    // Of texts a few letters longer than the reference's that many may be taken for sound.
    EXPECT_GE(c.soundRight + 64, c.sound) << reference;
    EXPECT_LE(c.soundWrong, 64U) << reference;
  }
}

// What destroyed a few pictures may take as many bytes as a chunk, in a stream that does not tell
// that they are missing.
TEST(ChunkOrder, destroyedPicturesAreNoSound) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const ClipRecipe recipe{
      .codec = "libx265", .container = "mov", .audio = "pcm_s16le", .seconds = 6};
  ClipRecipe other = recipe;
  other.variant = 1;
  const Storing halves{.label = "", .seconds = 0.5};
  const testing::TemporaryFolder folder;
  const fs::path clip = stored(makeClip(recipe), halves, folder / "clip.mov");
  const fs::path sibling = stored(makeClip(other), halves, folder / "sibling.mov");
  const Victim whole(clip);
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  const std::uint64_t sound = whole.truth().audioTrack()->samples.size();
  for (const std::uint64_t first : {53U, 66U, 78U}) {
    for (const std::uint64_t count : {4U, 6U, 8U}) {
      Victim victim(clip);
      victim.blank(pictures[first].offset, pictures[first + count].offset);
      const Comparison c = rebuildAndCompare(victim, sibling);
      EXPECT_LE(static_cast<std::uint64_t>(c.result.audioPackets), sound) << first << " " << count;
      EXPECT_LT(std::abs(c.worstStep), 1.0) << first << " " << count;
    }
  }
}

// Any number of bytes is a whole number of samples by the laws of ITU-T G.711, and ahead of a key
// picture nothing tells that pictures are missing.
TEST(ChunkOrder, tornPicturesAreNoSoundOfOneByteASample) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const struct {
    const char* audio;
    std::string sound;
  } rows[] = {{"pcm_mulaw", testing::livelySound(1, 16000)},
              {"pcm_alaw", testing::livelySound(1, 16000)},
              {"pcm_mulaw", "anoisesrc=sample_rate=16000:amplitude=0.5:seed=1"}};
  for (const auto& [audio, sound] : rows) {
    const ClipRecipe recipe{.container = "mov",
                            .audio = audio,
                            .seconds = 6,
                            .framesPerSecond = 30,
                            .keyInterval = 15,
                            .settings = ":scenecut=0",
                            .sound = sound,
                            .sampleRate = 16000};
    const Storing halves{.label = "", .seconds = 0.5, .chunksPerBox = 2};
    const fs::path clip = stored(makeClip(recipe), halves, folder / "clip.mov");
    Victim victim(clip);
    const SampleList& pictures = victim.truth().videoTrack()->samples;
    for (const std::uint64_t torn : {41U, 42U, 43U, 44U}) {
      victim.blank(pictures[torn].offset, pictures[torn].offset + 64);
    }
    const Comparison c = rebuildAndCompare(victim, clip);
    EXPECT_EQ(c.exact, c.frames) << audio << sound;
    EXPECT_LE(static_cast<std::uint64_t>(c.result.audioPackets),
              victim.truth().audioTrack()->samples.size() + 800)
        << audio << sound;
    EXPECT_NEAR(c.result.seconds, 6, 0.05) << audio << sound;
    EXPECT_LT(std::abs(c.worstStep), 1.5) << audio << sound;
  }
}

// However long the camera's chunks of sound are, each tells where the pictures beside it belong.
TEST(ChunkOrder, eachChunkKeepsThePicturesBesideItInStep) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const ClipRecipe recipe{.container = "mov",
                          .audio = "pcm_s16le",
                          .seconds = 10,
                          .sound = testing::livelySound(1, 48000)};
  ClipRecipe other = recipe;
  other.variant = 1;
  const Storing halves{.label = "", .seconds = 0.5};
  const testing::TemporaryFolder folder;
  const fs::path clip = stored(makeClip(recipe), halves, folder / "clip.mov");
  const fs::path sibling = stored(makeClip(other), halves, folder / "sibling.mov");
  const Victim whole(clip);
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  const auto& sounds = whole.truth().audioTrack()->samples.runs();
  const SampleRun sound = sounds[sounds.size() / 2];
  const auto behind = std::find_if(pictures.begin(), pictures.end(), [&](const Sample& picture) {
    return picture.offset >= sound.end();
  });
  const std::uint64_t fewPictures = (*behind).offset + 3000;
  const SampleRun later = sounds[sounds.size() / 2 + 2];
  const struct {
    const char* label;
    std::vector<ByteRange> holes;
  } rows[] = {
      {"firstKeyPicture", {{pictures[0].offset, pictures[1].offset}}},
      {"pictures", {{pictures[103].offset, pictures[106].offset}}},
      {"picturesTwice",
       {{pictures[103].offset, pictures[106].offset}, {later.end() + 2000, later.end() + 5000}}},
      {"soundAndPictures", {{sound.first.offset, fewPictures}}},
      {"halfTheSoundAndPictures", {{sound.at(sound.count / 2).offset, fewPictures}}},
  };
  for (const auto& row : rows) {
    Victim victim(clip);
    for (const ByteRange& hole : row.holes) victim.blank(hole.lower, hole.upper);
    const Comparison c = rebuildAndCompare(victim, sibling);
    EXPECT_LT(std::abs(c.worstStep), 1.0) << row.label;
    EXPECT_EQ(c.missed, 0U) << row.label;
    EXPECT_NEAR(static_cast<double>(c.result.audioPackets) / 48000, c.result.seconds, 0.1)
        << row.label;
  }
}

}  // namespace
}  // namespace tallowmark
