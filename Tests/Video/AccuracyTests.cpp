// SPDX-License-Identifier: GPL-3.0-or-later
// Good clips without their index against the index that was dropped.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <utility>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::Comparison;
using testing::Filling;
using testing::makeClip;
using testing::Victim;

void expectFrames(const Comparison& c, const std::string& label) {
  EXPECT_GT(c.frames, 0U) << label;
  EXPECT_EQ(c.exact, c.frames) << label;
  EXPECT_EQ(c.invented, 0U) << label;
  EXPECT_EQ(c.soundWrong, 0U) << label;
  EXPECT_EQ(c.blocksExact, c.blocks) << label;
  EXPECT_EQ(c.blocksInvented, 0U) << label;
  EXPECT_EQ(c.telemetryExact, c.telemetry) << label;
  EXPECT_EQ(c.telemetryInvented, 0U) << label;
  EXPECT_LT(c.worstTelemetryTime, 0.001) << label;
  EXPECT_EQ(c.timecodeRight, c.hasTimecode) << label;
  EXPECT_FALSE(c.result.audioDropped) << label;
  EXPECT_EQ(c.result.unusedBy.total(), c.result.unusedBytes) << label;
}

void expectWhole(const Comparison& c, const std::string& label) {
  expectFrames(c, label);
  EXPECT_TRUE(c.result.orderRestored) << label;
  EXPECT_EQ(c.inOrder, c.shared) << label;
}

bool isRebuildable(const std::filesystem::path& clip) {
  return !clip.filename().string().starts_with("panasonic_mjpeg");
}

TEST(Accuracy, cameraClipsComeBackFrameByFrame) {
  const auto clips = testing::corpusFiles("video");
  if (clips.empty()) {
    GTEST_SKIP() << "the folder of real camera files is not beside the source tree";
  }
  for (const auto& clip : clips) {
    if (!isRebuildable(clip)) continue;
    const Comparison c = rebuildAndCompare(Victim(clip), clip);
    expectWhole(c, clip.filename().string());
    if (c.result.audioPackets > 0) {
      EXPECT_EQ(c.soundRight, c.sound) << clip.filename();
    }
  }
}

const std::vector<ClipRecipe>& recipes() {
  static const std::vector<ClipRecipe> all{
      {.audio = "aac"},
      {.audio = "aac", .bFrames = 2, .sound = testing::livelySound(2, 48000), .channels = 2},
      {.audio = "aac", .sound = testing::livelySound(2, 48000), .channels = 2, .soundTracks = 2},
      {.audio = "aac", .sound = testing::livelySound(6, 44100), .sampleRate = 44100, .channels = 6},
      {.container = "mov", .audio = "pcm_s16le", .bFrames = 2},
      {.container = "mov", .audio = "pcm_s16be", .bFrames = 2, .slices = 4},
      {.container = "mov", .audio = "pcm_s24be", .slices = 4},
      {.container = "mov", .audio = "pcm_mulaw"},
      {.container = "mov", .audio = "pcm_f32le"},
      {.container = "mov",
       .audio = "pcm_s16le",
       .bFrames = 3,
       .settings = ":open-gop=1:b-pyramid=2"},
      {.container = "mov", .audio = "pcm_s16le", .bFrames = 2, .settings = ":interlaced=1"},
      {.audio = "aac", .settings = ":intra-refresh=1"},
      {.codec = "libx265", .audio = "aac", .bFrames = 2},
      {.codec = "libx265", .bFrames = 4, .settings = ":open-gop=1:b-pyramid=1"},
      {.codec = "libx265", .container = "mov", .audio = "pcm_s16le", .slices = 4},
      {.codec = "libx265", .container = "mov", .audio = "pcm_s32le", .bFrames = 2},
  };
  return all;
}

std::string labelOf(const ClipRecipe& r) {
  return r.codec + r.settings + " " + r.audio + " b" + std::to_string(r.bFrames) + " s" +
         std::to_string(r.slices) + " " + std::to_string(r.soundTracks) + "×" +
         std::to_string(r.channels);
}

TEST(Accuracy, generatedClipsComeBackWithThemselvesAndASibling) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const ClipRecipe& recipe : recipes()) {
    ClipRecipe other = recipe;
    other.variant = 1;
    const auto clip = makeClip(recipe);
    for (const auto& reference : {clip, makeClip(other)}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      expectWhole(c, labelOf(recipe));
      EXPECT_LT(std::abs(c.worstTime), 0.001) << labelOf(recipe);
      EXPECT_EQ(c.soundRight, c.sound) << labelOf(recipe);
      EXPECT_LT(std::abs(c.worstStep), 1.0) << labelOf(recipe);
    }
  }
}

// How long blocks of sound are, and what they begin with, hangs on what is heard.
TEST(Accuracy, picturesAreFoundWhateverStandsBetweenThemIsLike) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const int channels : {1, 2}) {
    ClipRecipe recipe{
        .seconds = 4, .sound = testing::livelySound(channels, 48000), .channels = channels};
    const auto lively = makeClip(recipe);
    recipe.variant = 1;
    recipe.sound = channels == 1 ? "anullsrc=r=48000:cl=mono" : "anullsrc=r=48000:cl=stereo";
    const auto still = makeClip(recipe);
    for (const auto& [clip, reference] : {std::pair(lively, still), std::pair(still, lively)}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames) << clip;
      EXPECT_EQ(c.invented + c.blocksInvented, 0U) << clip;
      EXPECT_GE(c.blocksExact * 100, c.blocks * 98) << clip;
    }
  }
}

// It is called healthy where its index is whole.
TEST(Accuracy, aReferenceWithAHoleTeachesWhatIsThere) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  for (const auto& [container, audio] : {std::pair("mp4", "aac"), std::pair("mov", "pcm_s16le")}) {
    ClipRecipe recipe{.container = container,
                      .audio = audio,
                      .bFrames = 2,
                      .seconds = 4,
                      .sound = testing::livelySound(2, 48000),
                      .channels = 2};
    const Victim clip(makeClip(recipe));
    recipe.variant = 1;
    for (const bool isNoise : {false, true}) {
      testing::Bytes reference = testing::contentsOf(makeClip(recipe));
      std::mt19937 random(1);
      for (std::size_t at = reference.size() * 2 / 5; at < reference.size() * 3 / 5; ++at) {
        reference[at] = isNoise ? static_cast<std::uint8_t>(random()) : std::uint8_t{0};
      }
      const Comparison c =
          rebuildAndCompare(clip, testing::writeFile(folder / "reference", reference));
      EXPECT_EQ(c.exact, c.frames) << audio << isNoise;
      EXPECT_EQ(c.inOrder, c.shared) << audio << isNoise;
      EXPECT_EQ(c.invented + c.blocksInvented + c.soundWrong, 0U) << audio << isNoise;
      EXPECT_EQ(c.blocksExact, c.blocks) << audio << isNoise;
      EXPECT_EQ(c.soundRight, c.sound) << audio << isNoise;
    }
  }
}

// The clip's own pictures show how far apart they lie.
TEST(Accuracy, picturesAreFoundByAReferenceWithSoundOfAnotherKind) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const int grain : {0, 12}) {
    ClipRecipe recipe{.container = "mov",
                      .audio = "pcm_s16le",
                      .bFrames = grain > 0 ? 0 : 2,
                      .seconds = 4,
                      .width = grain > 0 ? 640 : 320,
                      .height = grain > 0 ? 360 : 240,
                      .settings = grain > 0 ? ":bitrate=2000" : "",
                      .grain = grain,
                      .sound = testing::livelySound(2, 48000),
                      .channels = 2};
    const auto clip = makeClip(recipe);
    recipe.audio = "aac";
    recipe.variant = 1;
    const Comparison c = rebuildAndCompare(Victim(clip), makeClip(recipe));
    EXPECT_EQ(c.exact, c.frames) << grain;
    EXPECT_EQ(c.invented + c.blocksInvented, 0U) << grain;
    EXPECT_TRUE(c.result.audioDropped) << grain;
  }
}

/// The bytes of a sample with length prefixes of two bytes in place of four.
std::vector<std::uint8_t> withShortPrefixes(const std::vector<std::uint8_t>& sample) {
  std::vector<std::uint8_t> shortened;
  for (std::size_t at = 0; at < sample.size();) {
    const std::size_t length = bigEndian<std::uint32_t>(sample, at);
    const auto unit = sample.begin() + static_cast<std::ptrdiff_t>(at);
    shortened.insert(shortened.end(), unit + 2, unit + 4 + static_cast<std::ptrdiff_t>(length));
    at += 4 + length;
  }
  return shortened;
}

/// The H.264 clip again, coded so.
std::filesystem::path withShortPrefixes(const std::filesystem::path& clip) {
  const FileSource source(clip.string());
  Movie movie = MovieParser::parse(BoxReader(source));
  std::vector<SampleList> lists(movie.tracks.size());
  std::vector<std::uint8_t> media;
  for (const Extent& extent : extentsOf(movie)) {
    const auto track = static_cast<std::size_t>(extent.track - movie.tracks.data());
    for (std::uint64_t i = 0; i < extent.samples; ++i) {
      Sample sample = extent.track->samples[lists[track].size()];
      auto bytes = source.read(sample.offset, sample.size);
      if (extent.track == movie.videoTrack()) bytes = withShortPrefixes(bytes);
      sample.offset = media.size();
      sample.size = static_cast<std::uint32_t>(bytes.size());
      lists[track].append(sample);
      media.insert(media.end(), bytes.begin(), bytes.end());
    }
  }
  for (std::size_t i = 0; i < lists.size(); ++i) movie.tracks[i].samples = lists[i];
  // ISO/IEC 14496-15 §5.3.3: lengthSizeMinusOne is the fifth byte of the configuration.
  auto& entry = movie.tracks.front().sampleEntry;
  static constexpr std::array<std::uint8_t, 4> name{'a', 'v', 'c', 'C'};
  const auto config = std::search(entry.begin(), entry.end(), name.begin(), name.end());
  config[8] = static_cast<std::uint8_t>((config[8] & 0xFCU) | 1U);
  auto target = std::filesystem::path(clip).replace_extension("short.mp4");
  FileSink sink(target.string());
  const MemorySource made(media);
  MovieWriter::write(movie, made, {0, media.size()}, sink);
  sink.close();
  return target;
}

// They prove less, and sound reads as one more unit of a picture now and then.
TEST(Accuracy, shortLengthPrefixesAreEnough) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ClipRecipe recipe{.bFrames = 2,
                    .seconds = 4,
                    .width = 640,
                    .height = 480,
                    .settings = ":bitrate=2500",
                    .sound = testing::livelySound(2, 48000),
                    .channels = 2};
  const auto clip = withShortPrefixes(makeClip(recipe));
  recipe.variant = 1;
  for (const auto& reference : {clip, withShortPrefixes(makeClip(recipe))}) {
    expectWhole(rebuildAndCompare(Victim(clip), reference), reference.filename().string());
  }
  std::filesystem::remove(clip);
}

// Their blocks take turns from one gap to the next. Behind a hole it takes a reference of some
// length to know whose turn it is.
TEST(Accuracy, soundTracksThatStartApartAreToldApart) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const char* last : {",asetpts=PTS+0.005/TB", ",asetpts=PTS+0.035/TB", ",atrim=end=9"}) {
    ClipRecipe recipe{.seconds = 12,
                      .sound = testing::livelySound(2, 48000),
                      .channels = 2,
                      .soundTracks = 2,
                      .lastTrack = last};
    const bool endsEarly = std::string(last).find("end") != std::string::npos;
    const auto clip = makeClip(recipe);
    recipe.variant = 1;
    for (const auto& reference : {clip, makeClip(recipe)}) {
      const Comparison whole = rebuildAndCompare(Victim(clip), reference);
      EXPECT_GE(whole.blocksExact * 100, whole.blocks * (endsEarly ? 75 : 98)) << last;
      EXPECT_EQ(whole.blocksInvented, 0U) << last;
      Comparison sum;
      for (unsigned i = 0; i < 24; ++i) {
        Victim victim(clip);
        victim.punch(i, 1 + i % 4, 4000 + 2000 * i, i % 2 == 0 ? Filling::noise : Filling::zeros);
        const Comparison c = rebuildAndCompare(victim, reference);
        sum.blocks += c.blocks;
        sum.blocksExact += c.blocksExact + c.blocksBeforeKeyframe;
        sum.blocksInvented += c.blocksInvented;
      }
      EXPECT_GE(sum.blocksExact * 100, sum.blocks * (endsEarly ? 60 : 90))
          << last << ": " << sum.blocksExact << " of " << sum.blocks;
      EXPECT_EQ(sum.blocksInvented, 0U) << last;
    }
  }
}

// Blocks of other channels tell whose they are, also where their places do not: in tracks that
// begin apart, or one of which ends. At another rate nothing tells, and none is kept.
TEST(Accuracy, soundTracksOfOtherKindsAreNotMixed) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const ClipRecipe alike{
      .seconds = 8, .sound = testing::livelySound(2, 48000), .channels = 2, .soundTracks = 2};
  ClipRecipe mono = alike;
  mono.lastChannels = 1;
  ClipRecipe apart = mono;
  apart.lastTrack = ",asetpts=PTS+0.010/TB";
  ClipRecipe shorter = mono;
  shorter.lastTrack = ",atrim=end=5";
  ClipRecipe slower = alike;
  slower.lastSampleRate = 44100;
  for (const ClipRecipe& recipe : {mono, apart, shorter, slower}) {
    const auto clip = makeClip(recipe);
    for (unsigned holes = 0; holes < 6; ++holes) {
      Victim victim(clip);
      victim.punch(holes, holes, 6000, holes % 2 == 0 ? Filling::noise : Filling::zeros);
      const Comparison c = rebuildAndCompare(victim, clip);
      EXPECT_EQ(c.blocksInvented, 0U) << holes;
      EXPECT_TRUE(holes > 0 || std::abs(c.worstTime) < 0.001);
      if (recipe.lastChannels) {
        EXPECT_EQ(c.blocksExact + c.blocksBeforeKeyframe, c.blocks) << holes << recipe.lastTrack;
        EXPECT_EQ(c.result.unusedBy.sound, 0U) << holes << recipe.lastTrack;
      } else {
        EXPECT_TRUE(c.result.audioDropped) << holes;
      }
    }
  }
}

// Pictures that a camera stretched or left out, in the dark or in a hurry, are shown at their time:
// by their own counts, or by the sound around them.
TEST(Accuracy, variableRatesStayWithTheSound) {
  constexpr double mostSeconds = 0.1;
  for (const char* name :
       {"iphoneXR_IMG_3589_hevc_lpcm.mov", "iphone_hevc10_moovfirst_editlist.mov"}) {
    if (const auto clip = testing::corpusFile(std::filesystem::path("video") / name)) {
      EXPECT_LT(std::abs(rebuildAndCompare(Victim(*clip), *clip).worstTime), mostSeconds * 30);
    }
  }
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (ClipRecipe recipe : {ClipRecipe{.audio = "aac", .bFrames = 2},
                            {.codec = "libx265", .container = "mov", .audio = "pcm_s16le"}}) {
    recipe.seconds = 8;
    const auto constant = makeClip(recipe);
    recipe.keep = "not(between(n,30,70)*mod(n,2))*not(between(n,120,130))";
    const auto clip = makeClip(recipe);
    for (const auto& reference : {clip, constant}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      expectWhole(c, labelOf(recipe));
      EXPECT_LT(std::abs(c.worstTime), mostSeconds * recipe.framesPerSecond) << labelOf(recipe);
      EXPECT_EQ(c.soundRight, c.sound) << labelOf(recipe);
    }
    EXPECT_LT(std::abs(rebuildAndCompare(Victim(constant), clip).worstTime), 0.001);
  }
}

// A phone takes half as many pictures once it is dark; a hole parts them from the sound by
// no more than a few.
TEST(Accuracy, variableRatesStayWithTheSoundBesideLosses) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (ClipRecipe recipe : {ClipRecipe{.audio = "aac"},
                            {.container = "mov", .audio = "aac", .bFrames = 2},
                            {.codec = "libx265", .container = "mov", .audio = "pcm_s16le"}}) {
    recipe.seconds = 8;
    recipe.keep = "lt(n,75)+not(mod(n,2))";
    const auto clip = makeClip(recipe);
    recipe.seconds = 5;
    const auto reference = makeClip(recipe);
    for (const unsigned seed : {0U, 1U, 2U, 3U}) {
      Victim victim(clip);
      victim.punch(seed, 2, 3000, Filling::noise);
      const Comparison c = rebuildAndCompare(victim, reference);
      EXPECT_LT(std::abs(c.worstStep), 3) << labelOf(recipe) << seed;
      EXPECT_FALSE(c.result.audioDropped) << labelOf(recipe) << seed;
    }
  }
}

// Order counts tell how many pictures a hole took: the others are shown when they were, and what is
// left of the sound is heard with them.
TEST(Accuracy, picturesKeepTheirTimeBesideHoles) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (ClipRecipe recipe : {ClipRecipe{.audio = "aac"},
                            {.audio = "aac", .bFrames = 2},
                            {.codec = "libx265", .container = "mov", .audio = "pcm_s16le"}}) {
    recipe.seconds = 8;
    const auto clip = makeClip(recipe);
    for (const unsigned seed : {0U, 1U, 2U}) {
      for (const auto& [holes, size] : {std::pair{8U, 2000U}, {1U, 60000U}}) {
        SCOPED_TRACE(labelOf(recipe) + std::to_string(seed) + " " + std::to_string(size));
        Victim victim(clip);
        victim.punch(seed, holes, size, Filling::noise);
        const Comparison c = rebuildAndCompare(victim, clip);
        EXPECT_LT(std::abs(c.worstTime), 0.1);
        EXPECT_LT(std::abs(c.worstStep), 2);
      }
    }
  }
}

// Counts may have gone on by more than half of what they count to.
TEST(Accuracy, picturesBehindALongHoleAreShownBehindIt) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const auto clip = makeClip({.bFrames = 2, .seconds = 4, .keyInterval = 250});
  const Victim whole(clip);
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  for (const std::uint64_t from : {1U, 43U}) {
    for (const std::uint64_t lost : {14U, 18U, 22U, 26U, 28U, 29U, 30U, 31U}) {
      Victim victim(clip);
      victim.blank(pictures[from].offset, pictures[from + lost].offset);
      const Comparison c = rebuildAndCompare(victim, clip);
      EXPECT_EQ(c.inOrder, c.shared) << from << " " << lost;
      EXPECT_LT(std::abs(c.worstTime), 2) << from << " " << lost;
    }
  }
}

// The last picture of a sequence is missed by no count behind it, only by the sequence's length.
TEST(Accuracy, picturesKeepTheirTimeBehindTheEndOfASequence) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const auto clip = makeClip({.bFrames = 2, .seconds = 4});
  const Victim whole(clip);
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  std::size_t ends = 0;
  for (std::uint64_t key = 25; key < pictures.size(); key += 25) {
    ASSERT_TRUE(pictures[key].isSync);
    std::uint64_t last = key - 1;
    while (pictures[last].compositionOffset <= pictures[last + 1].compositionOffset) --last;
    Victim victim(clip);
    victim.blank(pictures[last].offset, pictures[last].offset + pictures[last].size);
    const Comparison c = rebuildAndCompare(victim, clip);
    EXPECT_EQ(c.inOrder, c.shared) << last;
    EXPECT_LT(std::abs(c.worstTime), 0.1) << last;
    ++ends;
  }
  EXPECT_GT(ends, 1U);
}

// A camera that is busy drops pictures here and there. With sound at each picture all others keep
// their time, to a picture at most, whatever their number and that of the reference.
TEST(Accuracy, picturesKeepTheirTimeWhereOthersWereDropped) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const int bFrames : {0, 2}) {
    ClipRecipe recipe{.bFrames = bFrames, .seconds = 8};
    const auto constant = makeClip(recipe);
    for (const char* keep : {"gt(random(0),0.12)*gt(n,3)+lt(n,4)", "gt(random(1),0.3)+lt(n,4)"}) {
      recipe.keep = keep;
      const auto clip = makeClip(recipe);
      for (const auto& reference : {clip, constant}) {
        const Comparison c = rebuildAndCompare(Victim(clip), reference);
        expectWhole(c, keep);
        EXPECT_LT(std::abs(c.worstTime), 1.1) << keep << bFrames;
        EXPECT_EQ(c.blocksExact, c.blocks) << keep << bFrames;
      }
      EXPECT_LT(std::abs(rebuildAndCompare(Victim(constant), clip).worstTime), 0.001) << keep;
    }
  }
}

TEST(Accuracy, aReferenceThatLacksKindsOfFramesStillTeaches) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const char* codec : {"libx264", "libx265"}) {
    for (const char* audio : {"pcm_s16le", "aac"}) {
      ClipRecipe recipe{.codec = codec, .container = "mov", .audio = audio};
      recipe.bFrames = 2;
      const auto clip = makeClip(recipe);
      recipe.bFrames = 0;
      for (const double seconds : {2.0, 0.2}) {
        recipe.seconds = seconds;
        expectFrames(rebuildAndCompare(Victim(clip), makeClip(recipe)),
                     std::string(codec) + " " + audio);
      }
    }
  }
}

// Holes of every filling, over camera clips and generated ones: what no hole touches is found.
// A file of a kind that no clip here has in it.
testing::Bytes foreignClip() {
  const testing::TemporaryFolder folder;
  const std::filesystem::path file = folder / "foreign.mp4";
  (void)testing::run({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=640x480", "-t",
                      "4", "-c:v", "mpeg4", "-b:v", "8M", file.string()});
  return testing::contentsOf(file);
}

TEST(Accuracy, holesCostOnlyWhatTheyTouch) {
  std::vector<std::filesystem::path> clips;
  for (const char* name : {"video/gopro_hero7_h264.mp4", "video/sowt_pcm_h264_reenc.mov",
                           "video/iphone_hevc10_moovfirst_editlist.mov"}) {
    if (const auto clip = testing::corpusFile(name)) clips.push_back(*clip);
  }
  if (testing::canMakeClips()) {
    for (const ClipRecipe& recipe : recipes()) clips.push_back(makeClip(recipe));
  }
  if (clips.empty()) {
    GTEST_SKIP() << "neither ffmpeg nor the folder of real camera files is there";
  }
  const auto camera = testing::corpusFile("video/gopro_hero7_h264.mp4");
  const testing::Bytes other = camera ? testing::contentsOf(*camera) : foreignClip();
  Comparison sum;
  for (const auto& clip : clips) {
    for (const Filling filling : {Filling::zeros, Filling::noise, Filling::otherFile}) {
      for (const auto& [count, size] : {std::pair{1U, 4096U}, {20U, 4096U}, {3U, 40000U}}) {
        Victim victim(clip);
        victim.punch(count * 7 + size, count, size, filling, other);
        const Comparison c = rebuildAndCompare(victim, clip);
        sum.frames += c.frames;
        sum.missed += c.missed;
        sum.shared += c.shared;
        sum.inOrder += c.inOrder;
        sum.invented += clip == camera ? 0 : c.invented;
        sum.blocks += c.blocks;
        sum.blocksExact += c.blocksExact + c.blocksBeforeKeyframe;
        sum.blocksInvented += c.blocksInvented;
      }
    }
  }
  RecordProperty("frames", static_cast<int>(sum.frames));
  EXPECT_LE(sum.missed * 1000, sum.frames) << sum.missed << " of " << sum.frames << " missed";
  EXPECT_LE(sum.invented * 1000, sum.frames) << sum.invented << " invented";
  // A picture shown beside its place, where a hole took the one that began its sequence.
  EXPECT_LE((sum.shared - sum.inOrder) * 200, sum.shared) << sum.inOrder << " of " << sum.shared;
  RecordProperty("blocks", static_cast<int>(sum.blocks));
  EXPECT_GE(sum.blocksExact * 1000, sum.blocks * 998) << sum.blocksExact << " of " << sum.blocks;
  EXPECT_EQ(sum.blocksInvented, 0U);
}

// A card that another clip of the same camera was written over in places: that one's last picture
// there tells a length that leads far into what is left of this clip.
TEST(Accuracy, picturesOfAnotherClipSwallowNothing) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  Comparison sum;
  for (const ClipRecipe& recipe : recipes()) {
    ClipRecipe later = recipe;
    later.variant = 1;
    const auto clip = makeClip(recipe);
    const testing::Bytes written = testing::contentsOf(makeClip(later));
    for (unsigned i = 0; i < 12; ++i) {
      Victim victim(clip);
      victim.punch(i, 2, 8000 + 500 * i, Filling::otherFile, written);
      const Comparison c = rebuildAndCompare(victim, clip);
      sum.missed += c.missed;
      sum.frames += c.frames;
      sum.blocks += c.blocks;
      sum.blocksExact += c.blocksExact + c.blocksBeforeKeyframe;
    }
  }
  RecordProperty("frames", static_cast<int>(sum.frames));
  RecordProperty("blocks", static_cast<int>(sum.blocks));
  RecordProperty("blocksExact", static_cast<int>(sum.blocksExact));
  EXPECT_LE(sum.missed * 4000, sum.frames) << sum.missed << " of " << sum.frames;
  // Sound that such a length reaches over is still lost.
  EXPECT_GE(sum.blocksExact * 1000, sum.blocks * 990) << sum.blocksExact << " of " << sum.blocks;
}

}  // namespace
}  // namespace tallowmark
