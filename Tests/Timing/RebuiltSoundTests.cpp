// SPDX-License-Identifier: GPL-3.0-or-later
// Rebuilt AAC sound as a decoder hears it.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::Filling;
using testing::livelySound;
using testing::makeClip;
using testing::Victim;

namespace fs = std::filesystem;

std::vector<fs::path> clipsWithAAC() {
  std::vector<fs::path> clips;
  for (const char* name :
       {"gopro_hero7_h264.mp4", "iphone6_h264_gps.mov", "iphone_hevc10_moovfirst_editlist.mov",
        "phone_3gp5_720p_h264.mp4", "android_hlg10_hevc.mp4"}) {
    if (const auto clip = testing::corpusFile(fs::path("video") / name)) clips.push_back(*clip);
  }
  clips.push_back(makeClip({.sound = livelySound(1, 44100), .sampleRate = 44100}));
  clips.push_back(makeClip({.sound = livelySound(2, 48000), .channels = 2}));
  clips.push_back(makeClip({.sound = livelySound(2, 48000), .channels = 2, .soundTracks = 2}));
  clips.push_back(makeClip(
      {.container = "mov", .sound = livelySound(6, 44100), .sampleRate = 44100, .channels = 6}));
  return clips;
}

VideoRepair::Result rebuildTo(const fs::path& copy, const testing::Bytes& damaged,
                              const fs::path& reference,
                              VideoRepair::Depth depth = VideoRepair::Depth::full) {
  const MemorySource source(damaged);
  const FileSource teacher(reference.string());
  FileSink sink(copy.string());
  return VideoRepair::rebuild(source, teacher, sink, {}, {}, depth);
}

/// What ffmpeg makes of a file's sound: a sum of all decoded samples of all tracks, and its words.
struct Heard {
  std::string sum;
  std::string complaints;
};
Heard listenTo(const fs::path& clip) {
  const auto decoded =
      testing::run({"ffmpeg", "-v", "error", "-ignore_editlist", "1", "-i", clip.string(), "-map",
                    "0:a", "-c:a", "pcm_s16le", "-f", "hash", "-hash", "md5", "-"});
  // Opening the file looks at its pictures, too; what holes did to these is not asked here.
  std::istringstream lines(decoded.errors);
  std::string complaints;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("[aac") != std::string::npos) complaints += line + "\n";
  }
  return {decoded.output, complaints};
}

TEST(RebuiltSound, isTheOriginalSampleForSample) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  for (const fs::path& clip : clipsWithAAC()) {
    const fs::path copy = folder / "copy.mp4";
    const auto result = rebuildTo(copy, Victim(clip).bytes(), clip);
    EXPECT_FALSE(result.audioDropped) << clip;
    EXPECT_EQ(result.soundBlocksFilled, 0U) << clip;
    EXPECT_EQ(result.soundBlocksLost, 0U) << clip;
    const Heard original = listenTo(clip);
    const Heard rebuilt = listenTo(copy);
    EXPECT_EQ(rebuilt.complaints, "") << clip;
    EXPECT_EQ(rebuilt.sum, original.sum) << clip;
    EXPECT_NE(rebuilt.sum, "") << clip;
  }
}

// Sound that holes cut through decodes, with silence where blocks are lost and as long as the
// pictures are.
TEST(RebuiltSound, decodesAroundHoles) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const fs::path other = makeClip({.codec = "libx265", .audio = "aac", .bFrames = 2});
  std::uint64_t filled = 0;
  for (const fs::path& clip : clipsWithAAC()) {
    unsigned seed = 0;
    for (const Filling filling : {Filling::zeros, Filling::noise, Filling::otherFile}) {
      Victim victim(clip);
      victim.punch(++seed, 12, 2048, filling, testing::contentsOf(other));
      const fs::path copy = folder / "copy.mp4";
      const auto result = rebuildTo(copy, victim.bytes(), clip);
      filled += result.soundBlocksFilled;
      if (result.audioPackets > 0) {
        EXPECT_EQ(listenTo(copy).complaints, "") << clip << " seed " << seed;
      }
    }
  }
  EXPECT_GT(filled, 0U);
}

// Silence that is put in lies in bytes of the copy's own and walks on in time with the pictures.
TEST(RebuiltSound, holdsItsTimeWhereOnlySoundIsLost) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const fs::path clip = makeClip({.seconds = 4, .sound = livelySound(2, 48000), .channels = 2});
  const Victim whole(clip);
  testing::Bytes damaged = whole.bytes();
  const SampleList& blocks = whole.truth().audioTrack()->samples;
  const std::uint64_t from = blocks.size() / 3;
  const std::uint64_t to = from + 20;
  for (std::uint64_t i = from; i < to; ++i) {
    const Sample block = blocks[i];
    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(block.offset), block.size,
                std::uint8_t{0});
  }
  const testing::TemporaryFolder folder;
  const fs::path copy = folder / "copy.mp4";
  const auto result = rebuildTo(copy, damaged, clip);
  EXPECT_EQ(result.soundBlocksFound, blocks.size() - (to - from));
  EXPECT_NEAR(static_cast<double>(result.soundBlocksFilled), static_cast<double>(to - from), 1);
  EXPECT_NEAR(static_cast<double>(result.soundBlocksLost), static_cast<double>(to - from), 2);
  EXPECT_EQ(listenTo(copy).complaints, "");
  const FileSource source(copy.string());
  const Movie movie = MovieParser::parse(BoxReader(source));
  const Sample last = movie.audioTrack()->samples.back();
  EXPECT_EQ(source.read(last.offset, last.size),
            MemorySource(whole.bytes()).read(blocks.back().offset, blocks.back().size));
  EXPECT_NEAR(static_cast<double>(movie.audioTrack()->duration()),
              static_cast<double>(whole.truth().audioTrack()->duration()), 1024);
}

TEST(RebuiltSound, endsWhereItsTrackDid) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const fs::path clip = makeClip({.seconds = 8,
                                  .sound = livelySound(2, 48000),
                                  .channels = 2,
                                  .soundTracks = 2,
                                  .lastTrack = ",atrim=end=3"});
  const Victim whole(clip);
  const testing::TemporaryFolder folder;
  const fs::path copy = folder / "copy.mp4";
  rebuildTo(copy, whole.bytes(), clip);
  const Movie movie = MovieParser::parse(BoxReader(FileSource(copy.string())));
  ASSERT_EQ(movie.tracks.size(), whole.truth().tracks.size());
  EXPECT_EQ(movie.tracks.back().samples.size(), whole.truth().tracks.back().samples.size());
}

// Order counts tell how many pictures went with it: the one before takes their time, and silence
// the sound's.
TEST(RebuiltSound, isSilentWhereItIsLostWithItsPictures) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const fs::path clip = makeClip({.seconds = 8, .sound = livelySound(2, 48000), .channels = 2});
  const Victim whole(clip);
  testing::Bytes damaged = whole.bytes();
  const SampleList& blocks = whole.truth().audioTrack()->samples;
  const std::uint64_t from = blocks[100].offset;
  const std::uint64_t to = blocks[180].offset;
  std::fill(damaged.begin() + static_cast<std::ptrdiff_t>(from),
            damaged.begin() + static_cast<std::ptrdiff_t>(to), std::uint8_t{0});
  const testing::TemporaryFolder folder;
  const fs::path copy = folder / "copy.mp4";
  const auto result = rebuildTo(copy, damaged, clip);
  EXPECT_GE(result.soundBlocksFound, blocks.size() - 85);
  EXPECT_NEAR(static_cast<double>(result.soundBlocksLost), 80, 2);
  EXPECT_NEAR(static_cast<double>(result.soundBlocksFilled), 80, 2);
  const Movie movie = MovieParser::parse(BoxReader(FileSource(copy.string())));
  EXPECT_EQ(movie.videoTrack()->duration(), whole.truth().videoTrack()->duration());
}

// Two tracks half a block apart look alike from either side of a hole: behind it neither can be
// kept. All that is missing up to the end is told.
TEST(RebuiltSound, isCountedAsLostWhereItsTracksCannotBeTold) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const fs::path clip = makeClip({.seconds = 8,
                                  .framesPerSecond = 24,
                                  .sound = livelySound(2, 48000),
                                  .channels = 2,
                                  .soundTracks = 2,
                                  .lastTrack = ",asetpts=PTS+0.01066/TB"});
  const Victim whole(clip);
  testing::Bytes damaged = whole.bytes();
  const SampleList& frames = whole.truth().videoTrack()->samples;
  const auto at = static_cast<std::ptrdiff_t>(frames[frames.size() / 4].offset);
  std::fill_n(damaged.begin() + at, 60000, std::uint8_t{0});
  const testing::TemporaryFolder folder;
  const fs::path copy = folder / "copy.mp4";
  const auto result = rebuildTo(copy, damaged, clip);
  const auto blocks = static_cast<double>(whole.truth().audioTrack()->samples.size());
  ASSERT_GT(result.unusedBy.sound, result.unusedBytes / 2);
  EXPECT_LT(static_cast<double>(result.soundBlocksFound), blocks / 2);
  EXPECT_NEAR(static_cast<double>(result.soundBlocksFound + result.soundBlocksLost), blocks,
              blocks / 20);
  EXPECT_EQ(listenTo(copy).complaints, "");
}

// Sound that ends before its pictures is whole, whatever stands behind the last of these.
TEST(RebuiltSound, isNotCalledLostWhereItEndedEarly) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const struct {
    const char* container;
    const char* audio;
    const char* duration;
  } rows[] = {{"mp4", "aac", "3.5"}, {"mp4", "aac", "1.5"}, {"mov", "pcm_s16le", "1.5"}};
  for (const auto& row : rows) {
    const fs::path clip = makeClip({.container = row.container,
                                    .audio = row.audio,
                                    .seconds = 4,
                                    .sound = livelySound(2, 48000) + ":duration=" + row.duration,
                                    .channels = 2});
    const Victim whole(clip);
    testing::Bytes damaged = whole.bytes();
    for (unsigned i = 0; i < 65536; ++i) damaged.push_back(static_cast<std::uint8_t>(i * i >> 5U));
    const testing::TemporaryFolder folder;
    const auto result = rebuildTo(folder / "copy.mp4", damaged, clip);
    const std::uint64_t count = whole.truth().audioTrack()->samples.size();
    const bool isPCM = std::string(row.audio) != "aac";
    EXPECT_GE(static_cast<std::uint64_t>(result.audioPackets), count) << row.audio << row.duration;
    EXPECT_EQ(result.soundBlocksFound, isPCM ? 0 : count) << row.audio << row.duration;
    EXPECT_EQ(result.soundBlocksLost, 0U) << row.audio << row.duration;
  }
}

// Some cameras store a small picture of its own track every now and then. One that takes more bytes
// than the reference's is no sound that is lost.
TEST(RebuiltSound, isNotCalledLostBesideALargerPictureOfAnotherTrack) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const auto withSmallPictures = [&](const char* name, const char* size) {
    fs::path clip = folder / name;
    testing::run({"ffmpeg",
                  "-v",
                  "error",
                  "-i",
                  makeClip({.container = "mov", .seconds = 4}).string(),
                  "-f",
                  "lavfi",
                  "-i",
                  std::string("testsrc2=rate=1:duration=4:size=") + size,
                  "-map",
                  "0",
                  "-map",
                  "1:v",
                  "-c",
                  "copy",
                  "-c:v:1",
                  "mjpeg",
                  "-pix_fmt:v:1",
                  "yuvj420p",
                  clip.string()});
    return clip;
  };
  const Victim whole(withSmallPictures("large.mov", "480x270"));
  const auto result =
      rebuildTo(folder / "copy.mov", whole.bytes(), withSmallPictures("small.mov", "160x90"));
  EXPECT_EQ(result.soundBlocksFound, whole.truth().audioTrack()->samples.size());
  EXPECT_EQ(result.soundBlocksLost, 0U);
}

// Another number of channels is another stream: nothing of it may be taken.
TEST(RebuiltSound, isNotTakenFromAStreamOfAnotherBuild) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const fs::path stereo = makeClip({.sound = livelySound(2, 48000), .channels = 2});
  const fs::path mono = makeClip({.sound = livelySound(1, 48000)});
  const testing::TemporaryFolder folder;
  const auto result = rebuildTo(folder / "copy.mp4", Victim(stereo).bytes(), mono);
  EXPECT_TRUE(result.audioDropped);
  EXPECT_EQ(result.audioPackets, 0U);
  EXPECT_EQ(result.soundBlocksFound, 0U);
  EXPECT_EQ(result.unusedBy.total(), result.unusedBytes);
}

// A clip with more or fewer tracks than its reference: blocks and pictures tell how many they are.
// One track is whole, several without an order to go by are none, and pictures keep their time.
TEST(RebuiltSound, isToldByHowManyTracksItHas) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const std::string apart = ",asetpts=PTS+0.007/TB";
  const std::string halfApart = ",asetpts=PTS+0.01066/TB";
  struct Build {
    int tracks = 1;
    int rate = 25;
    std::string lastTrack;
  };
  const auto clipOf = [](const Build& build, int variant) {
    return makeClip({.seconds = 5,
                     .framesPerSecond = build.rate,
                     .sound = livelySound(2, 48000, variant),
                     .channels = 2,
                     .soundTracks = build.tracks,
                     .lastTrack = build.lastTrack,
                     .variant = variant});
  };
  const struct {
    const char* label;
    Build clip;
    Build reference;
    bool isKept;
    unsigned holes = 0;
  } rows[] = {
      {"one, not two", {}, {2}, true},
      {"one, not two, holes", {}, {2}, true, 3},
      {"one, not two, many holes", {1, 24}, {2, 24}, true, 14},
      {"one, not two apart", {}, {2, 25, apart}, true},
      {"one, not two that come as evenly", {}, {2, 25, halfApart}, true},
      {"one at half the rate of two", {}, {2, 50}, true},
      {"one at 24, not at 48", {1, 24}, {1, 48}, true},
      {"two, not one", {2}, {}, false},
      {"two, not one, holes", {2}, {}, false, 3},
      {"two apart, not one at half the rate", {2, 50, apart}, {1, 50}, false},
      {"two as even as one at half the rate", {2, 50, halfApart}, {1, 50}, false},
      {"two, not four", {2}, {4}, false},
      {"three, not two", {3}, {2}, false},
      {"two of which one ends soon", {2, 30, ",atrim=end=1.2"}, {2, 30}, false},
      {"two apart, not two that begin together", {2, 30, apart}, {2, 30}, false},
  };
  for (const auto& row : rows) {
    Victim victim(clipOf(row.clip, 0));
    victim.punch(7, row.holes, 4096, Filling::zeros);
    const auto c = testing::rebuildAndCompare(victim, clipOf(row.reference, 1));
    EXPECT_EQ(c.result.audioDropped, !row.isKept) << row.label;
    // A single block between two holes proves too little.
    EXPECT_NEAR(static_cast<double>(c.blocksExact),
                static_cast<double>(row.isKept ? c.blocks - c.blocksBeforeKeyframe : 0),
                row.isKept && row.holes > 0 ? 1 : 0)
        << row.label;
    EXPECT_EQ(c.blocksInvented, 0U) << row.label;
    EXPECT_EQ(c.result.audioPackets > 0, row.isKept) << row.label;
    if (row.holes == 0) {
      EXPECT_NEAR(c.result.seconds, 5, 0.05) << row.label;
      EXPECT_EQ(c.result.soundBlocksLost, 0U) << row.label;
    }
  }
}

// Behind a hole tracks are told by how far apart they began, which the clip's own start shows. No
// reference is long enough here to show a rhythm.
TEST(RebuiltSound, isToldBehindHolesByHowFarApartItsTracksAre) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const auto clipOf = [](const std::string& lastTrack, int variant) {
    return makeClip({.seconds = 8,
                     .framesPerSecond = 30,
                     .sound = livelySound(2, 48000, variant),
                     .channels = 2,
                     .soundTracks = 2,
                     .lastTrack = lastTrack,
                     .variant = variant});
  };
  const std::string apart = ",asetpts=PTS+0.007/TB";
  const std::string halfApart = ",asetpts=PTS+0.01066/TB";
  const struct {
    std::string lastTrack;
    std::string ofReference;
    double kept;
  } rows[] = {{",asetpts=PTS+0.005/TB", apart, 0.95},
              {apart, apart, 0.95},
              {halfApart, halfApart, 0.2},
              {",atrim=end=3", apart, 0.2}};
  for (const auto& row : rows) {
    Victim victim(clipOf(row.lastTrack, 0));
    const SampleList& frames = victim.truth().videoTrack()->samples;
    for (const std::uint64_t hole : {frames.size() / 4, frames.size() / 2}) {
      victim.blank(frames[hole].offset, frames[hole].offset + 8000);
    }
    const auto c = testing::rebuildAndCompare(victim, clipOf(row.ofReference, 1));
    EXPECT_GT(static_cast<double>(c.blocksExact), row.kept * static_cast<double>(c.blocks))
        << row.lastTrack;
    EXPECT_EQ(c.blocksInvented, 0U) << row.lastTrack;
  }
}

// Chunks of half a second tell by their length.
TEST(RebuiltSound, isToldByHowManyTracksItsChunksAreOf) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const auto inChunks = [&](int tracks) {
    fs::path clip = folder / (std::to_string(tracks) + ".mp4");
    const auto made = testing::run(
        {"ffmpeg", "-v", "error", "-i",
         makeClip(
             {.seconds = 5, .sound = livelySound(2, 48000), .channels = 2, .soundTracks = tracks})
             .string(),
         "-map", "0", "-c", "copy", "-chunk_duration", "500000", clip.string()});
    EXPECT_EQ(made.exitCode, 0) << made.errors;
    return clip;
  };
  const fs::path ofOne = inChunks(1);
  const fs::path ofTwo = inChunks(2);
  const auto one = testing::rebuildAndCompare(Victim(ofOne), ofTwo);
  EXPECT_EQ(one.blocksExact, one.blocks);
  EXPECT_NEAR(one.result.seconds, 5, 0.05);
  const auto two = testing::rebuildAndCompare(Victim(ofTwo), ofOne);
  EXPECT_TRUE(two.result.audioDropped);
  EXPECT_NEAR(two.result.seconds, 5, 0.05);
  // Damage leaves few of them whole; what one's are is not told by others.
  const fs::path inTurn = makeClip({.seconds = 5, .sound = livelySound(2, 48000), .channels = 2});
  const struct {
    unsigned count;
    std::size_t size;
  } holes[] = {{2, 40000}, {8, 4096}, {20, 2000}};
  for (unsigned i = 0; i < 9; ++i) {
    Victim victim(ofTwo);
    victim.punch(i, holes[i % 3].count, holes[i % 3].size, Filling::zeros);
    for (const fs::path& reference : {ofOne, inTurn}) {
      const auto c = testing::rebuildAndCompare(victim, reference);
      EXPECT_EQ(c.blocksExact + c.blocksInvented, 0U) << i << reference;
    }
  }
  const auto same = testing::rebuildAndCompare(Victim(ofTwo), ofTwo);
  EXPECT_EQ(same.blocksInvented, 0U);
  EXPECT_GE(same.blocksExact + 5, same.blocks);
}

// A clip with a text of some hundred letters every 0.4 s, in chunks of sound, pictures and texts.
fs::path inChunksWithTexts(const testing::TemporaryFolder& folder) {
  constexpr int texts = 20;
  const fs::path subtitles = folder / "texts.srt";
  std::ofstream lines(subtitles);
  for (int i = 0; i < texts; ++i) {
    const auto time = [](int number) {
      return "00:00:0" + std::to_string(number * 2 / 5) + "," +
             std::to_string(1000 + number * 400 % 1000).substr(1);
    };
    lines << i + 1 << "\n"
          << time(i) << " --> " << time(i + 1) << "\n"
          << std::string(static_cast<std::size_t>(400 + i * 37 % 300), 'x') << "\n\n";
  }
  lines.close();
  const auto made = testing::run(
      {"ffmpeg", "-v", "error", "-y", "-i",
       makeClip({.container = "mov", .seconds = 8, .sound = livelySound(2, 48000), .channels = 2})
           .string(),
       "-i", subtitles.string(), "-map", "0", "-map", "1", "-c", "copy", "-c:s", "mov_text",
       (folder / "turns.mov").string()});
  EXPECT_EQ(made.exitCode, 0) << made.errors;
  fs::path clip = folder / "chunks.mov";
  testing::storeInChunks(folder / "turns.mov", 0.48, clip, {1, 0, 2});
  return clip;
}

// Silence stands where blocks are lost in a chunk, so that all others keep their time: behind what
// is left of it, and even when fewer are lost than the recording's last chunk lacks.
TEST(RebuiltSound, isSilentWhereAChunkLostBlocks) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const fs::path plain = folder / "plain.mp4";
  testing::storeInChunks(makeClip({.seconds = 8, .sound = livelySound(2, 48000), .channels = 2}),
                         0.48, plain, {1, 0});
  const fs::path texts = inChunksWithTexts(folder);
  const struct {
    const char* label;
    fs::path clip;
    /// Of the chunk of five seconds: blocks that are lost, and pictures behind them.
    std::size_t from;
    std::size_t to;
    std::size_t pictures = 0;
  } rows[] = {{"in the middle", plain, 6, 12},
              {"at the end, with a picture", plain, 16, 22, 1},
              {"at the end, with a picture, behind texts", texts, 16, 22, 1}};
  for (const auto& row : rows) {
    Victim victim(row.clip);
    const Track& audio = *victim.truth().audioTrack();
    std::vector<Sample> chunk;
    for (std::uint64_t i = 0; i < audio.samples.size(); ++i) {
      const double time = static_cast<double>(i) * 1024 / 48000;
      if (std::floor(time / 0.48 + 1e-9) == 10) chunk.push_back(audio.samples[i]);
    }
    ASSERT_GE(chunk.size(), row.to) << row.label;
    std::uint64_t end = chunk[row.to - 1].offset + chunk[row.to - 1].size;
    if (row.pictures > 0) end = victim.truth().videoTrack()->samples[120].offset + 8;
    victim.blank(chunk[row.from].offset, end);
    const auto c = testing::rebuildAndCompare(victim, row.clip);
    EXPECT_EQ(c.blocksExact, c.blocks) << row.label;
    EXPECT_NEAR(static_cast<double>(c.result.soundBlocksFilled),
                static_cast<double>(audio.samples.size() - c.blocks), 1)
        << row.label;
    EXPECT_LT(std::abs(c.worstStep), 1.0) << row.label;
    EXPECT_LT(std::abs(c.worstTime), 0.05) << row.label;
  }
}

// For comparison: by framing alone every gap is unused and the sound is gone.
TEST(RebuiltSound, isLeftOutOfABasicRebuild) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const fs::path clip = makeClip({.audio = "aac"});
  const Victim victim(clip);
  std::uint64_t sound = 0;
  for (const Sample& block : victim.truth().audioTrack()->samples) sound += block.size;
  const testing::TemporaryFolder folder;
  const auto result =
      rebuildTo(folder / "copy.mp4", victim.bytes(), clip, VideoRepair::Depth::basic);
  EXPECT_EQ(result.videoFrames, victim.truth().videoTrack()->samples.size());
  EXPECT_EQ(result.audioPackets, 0U);
  EXPECT_TRUE(result.audioDropped);
  EXPECT_GE(result.unusedBytes, sound);
  EXPECT_EQ(result.unusedBy.unknown, result.unusedBytes);
}

}  // namespace
}  // namespace tallowmark
