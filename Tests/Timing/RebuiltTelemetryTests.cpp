// SPDX-License-Identifier: GPL-3.0-or-later
// Telemetry and timecode between the pictures of clips made for it.
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/TelemetryTrees.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

namespace fs = std::filesystem;
using testing::Bytes;
using testing::makeClip;
using testing::Victim;

constexpr std::uint32_t framesPerTree = 10;

void append(Track& track, Bytes& media, const Bytes& sample, std::uint32_t duration) {
  track.samples.append({.offset = media.size(),
                        .size = static_cast<std::uint32_t>(sample.size()),
                        .duration = duration,
                        .isSync = true});
  media.insert(media.end(), sample.begin(), sample.end());
}

Track sideTrack(std::uint32_t id, const char* codec, const char* handler) {
  Track track;
  track.trackID = id;
  track.timescale = 1000;
  track.codec = codec;
  track.sampleEntry = testing::makeBox(codec, {testing::zeros(8)});
  track.handler = handler;
  track.handlerName = std::string("Camera ") + codec;
  return track;
}

/// The clip again with a device's telemetry every ten pictures, a timecode behind the first, and
/// the video's reference to it.
fs::path withTelemetry(const fs::path& clip, const fs::path& target) {
  const FileSource source(clip.string());
  Movie movie = MovieParser::parse(BoxReader(source));
  const std::vector<Extent> extents = extentsOf(movie);
  Track telemetry = sideTrack(100, "gpmd", "meta");
  Track timecode = sideTrack(101, "tmcd", "tmcd");
  std::vector<SampleList> lists(movie.tracks.size());
  std::vector<std::uint64_t> done(movie.tracks.size(), 0);
  Bytes media;
  const auto& video = movie.tracks.front();
  const auto frameTicks =
      static_cast<std::uint32_t>(video.typicalDuration() * 1000 / video.timescale);
  for (const Extent& extent : extents) {
    const auto number = static_cast<std::size_t>(extent.track - movie.tracks.data());
    for (std::uint64_t i = 0; i < extent.samples; ++i) {
      Sample sample = extent.track->samples[done[number]++];
      const Bytes bytes = source.read(sample.offset, sample.size);
      sample.offset = media.size();
      lists[number].append(sample);
      media.insert(media.end(), bytes.begin(), bytes.end());
      if (number == 0 && done[0] == 1) append(timecode, media, {0, 0, 0x30, 0x39}, 1);
      if (number == 0 && done[0] % framesPerTree == 0) {
        append(telemetry, media, testing::deviceTree(static_cast<std::uint8_t>(done[0])),
               framesPerTree * frameTicks);
      }
    }
  }
  for (std::size_t i = 0; i < lists.size(); ++i) movie.tracks[i].samples = lists[i];
  movie.tracks.front().extraBoxes.push_back(
      testing::makeBox("tref", {testing::makeBox("tmcd", {testing::u32(timecode.trackID)})}));
  movie.tracks.push_back(timecode);
  movie.tracks.push_back(telemetry);
  FileSink sink(target.string());
  const MemorySource made(media);
  MovieWriter::write(movie, made, {0, media.size()}, sink);
  sink.close();
  return target;
}

class RebuiltTelemetry : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }
  Movie rebuild(const Bytes& damaged, const fs::path& reference, VideoRepair::Result& result) {
    const MemorySource source(damaged);
    const FileSource teacher(reference.string());
    FileSink sink((folder_ / "copy").string());
    result = VideoRepair::rebuild(source, teacher, sink);
    sink.close();
    const FileSource copy((folder_ / "copy").string());
    Movie movie = MovieParser::parse(BoxReader(copy));
    MovieParser::readHandlerNames(BoxReader(copy), movie);
    return movie;
  }
  const Track& telemetryOf(const Movie& movie) {
    return *std::find_if(movie.tracks.begin(), movie.tracks.end(),
                         [](const Track& track) { return track.codec == "gpmd"; });
  }

  testing::TemporaryFolder folder_;
};

TEST_F(RebuiltTelemetry, comesBackWithItselfAndASibling) {
  for (const char* audio : {"aac", "pcm_s16le", ""}) {
    testing::ClipRecipe recipe{.container = "mov", .audio = audio, .bFrames = 2, .seconds = 4};
    const fs::path clip = withTelemetry(makeClip(recipe), folder_ / "clip.mov");
    recipe.variant = 1;
    const fs::path sibling = withTelemetry(makeClip(recipe), folder_ / "sibling.mov");
    for (const fs::path& reference : {clip, sibling}) {
      const auto c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames) << audio;
      EXPECT_EQ(c.telemetry, 10U) << audio;
      EXPECT_EQ(c.telemetryExact, c.telemetry) << audio;
      EXPECT_EQ(c.telemetryInvented, 0U) << audio;
      EXPECT_LT(c.worstTelemetryTime, 0.002) << audio;
      EXPECT_TRUE(c.timecodeRight) << audio;
      EXPECT_EQ(c.result.telemetrySamples, 10U) << audio;
      EXPECT_TRUE(c.result.timecodeRestored) << audio;
    }
  }
}

TEST_F(RebuiltTelemetry, timecodeAheadOfThePicturesComesBack) {
  for (const char* audio : {"aac", "pcm_s16le", ""}) {
    testing::ClipRecipe recipe{.container = "mov", .audio = audio, .seconds = 4};
    const auto made = [&](const char* name, const char* start) {
      fs::path clip = folder_ / name;
      const auto muxed =
          testing::run({"ffmpeg", "-v", "error", "-y", "-i", makeClip(recipe).string(), "-c",
                        "copy", "-timecode", start, clip.string()});
      EXPECT_EQ(muxed.exitCode, 0) << muxed.errors;
      return clip;
    };
    const fs::path clip = made("clip.mov", "10:20:30:05");
    recipe.variant = 1;
    for (const fs::path& reference : {clip, made("sibling.mov", "09:00:00:00")}) {
      const auto c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames) << audio;
      EXPECT_TRUE(c.timecodeRight) << audio;
    }
  }
}

TEST_F(RebuiltTelemetry, isDescribedAsTheReferences) {
  const fs::path clip = withTelemetry(makeClip({.seconds = 4}), folder_ / "clip.mov");
  const Victim victim(clip);
  VideoRepair::Result result;
  const Movie movie = rebuild(victim.bytes(), clip, result);
  const Track& now = telemetryOf(movie);
  EXPECT_EQ(now.handlerName, "Camera gpmd");
  const Track& then = telemetryOf(victim.truth());
  EXPECT_EQ(now.sampleEntry, then.sampleEntry);
  EXPECT_EQ(now.handler, then.handler);
  EXPECT_EQ(now.mediaHeader, then.mediaHeader);
  EXPECT_EQ(movie.videoTrack()->extraBoxes, victim.truth().videoTrack()->extraBoxes);
}

// What a hole breaks is left out and the one before lasts as long; a timecode whose surroundings
// are gone is none, and nobody refers to it.
TEST_F(RebuiltTelemetry, keepsItsTimeAroundHoles) {
  const fs::path clip = withTelemetry(makeClip({.seconds = 4}), folder_ / "clip.mov");
  const Victim victim(clip);
  const SampleList& samples = telemetryOf(victim.truth()).samples;
  Bytes damaged = victim.bytes();
  damaged[samples[4].offset + 9] ^= 0xFFU;
  const Sample key = victim.truth().videoTrack()->samples.front();
  std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(key.offset), key.size, std::uint8_t{0});
  VideoRepair::Result result;
  const Movie movie = rebuild(damaged, clip, result);
  EXPECT_FALSE(result.timecodeRestored);
  EXPECT_TRUE(movie.videoTrack()->extraBoxes.empty());
  // The first key frame is broken: a second of pictures and the telemetry of that time go.
  EXPECT_EQ(result.telemetrySamples, 7U);
  const SampleList& now = telemetryOf(movie).samples;
  std::vector<std::uint32_t> durations;
  for (const Sample& sample : now) durations.push_back(sample.duration);
  EXPECT_EQ(durations, (std::vector<std::uint32_t>{240, 800, 400, 400, 400, 400, 400}));
}

}  // namespace
}  // namespace tallowmark
