// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose index is whole, and parts of which were never written or could not be read.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/BlankStretches.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Clusters.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::ClipRecipe;
using testing::placeOf;
using VideoRepair::Diagnosis;

Movie movieOf(const ByteSource& source) {
  return MovieParser::parse(BoxReader(source));
}

double endOf(const Track& track, const Movie& movie) {
  return static_cast<double>(track.startDelay) / movie.timescale +
         static_cast<double>(track.duration()) / track.timescale;
}

// When each picture is shown, by its bytes; in seconds.
std::map<Bytes, double> timesOfPictures(const ByteSource& source) {
  const Movie movie = movieOf(source);
  const Track& video = *movie.videoTrack();
  std::map<Bytes, double> times;
  std::uint64_t decoded = 0;
  for (const Sample sample : video.samples) {
    times[source.read(sample.offset, sample.size)] =
        static_cast<double>(decoded) / video.timescale +
        static_cast<double>(video.startDelay) / movie.timescale;
    decoded += sample.duration;
  }
  return times;
}

class BlankClip : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }

  /// The clip with nothing in that part of its media.
  static Bytes blanked(const Bytes& clip, double from, double to, std::uint8_t with) {
    const MemorySource source(clip);
    const Box media = MovieParser::layout(BoxReader(source)).mdats.front();
    const auto size = static_cast<double>(media.end() - media.payloadOffset());
    const auto place = [&](double share) {
      return placeOf(media.payloadOffset()) + static_cast<std::ptrdiff_t>(share * size);
    };
    Bytes bytes = clip;
    std::fill(bytes.begin() + place(from), bytes.begin() + place(to), with);
    return bytes;
  }
  std::filesystem::path copyOf(const ByteSource& source) const {
    FileSink sink((folder_ / "copy.mov").string());
    (void)VideoRepair::repair(source, nullptr, sink);
    return folder_ / "copy.mov";
  }

 private:
  testing::TemporaryFolder folder_;
};

TEST_F(BlankClip, keepsWhatIsLeftInStep) {
  const struct {
    const char* label;
    double from;
    double to;
  } rows[] = {{"beginning", 0, 0.4}, {"middle", 0.3, 0.6}, {"end", 0.6, 1}};
  const ClipRecipe recipes[] = {
      {.bFrames = 2, .seconds = 6},
      {.codec = "libx265", .container = "mov", .audio = "pcm_s16le", .bFrames = 2, .seconds = 6}};
  for (const ClipRecipe& recipe : recipes) {
    const Bytes clip = testing::contentsOf(makeClip(recipe));
    const auto times = timesOfPictures(MemorySource(clip));
    for (const auto& [label, from, to] : rows) {
      for (const std::uint8_t with : {std::uint8_t{0}, std::uint8_t{0xFF}}) {
        SCOPED_TRACE(recipe.codec + ' ' + label + ' ' + std::to_string(with));
        const Bytes damaged = blanked(clip, from, to, with);
        const MemorySource source(damaged);
        ASSERT_TRUE(std::holds_alternative<VideoRepair::Truncated>(VideoRepair::diagnose(source)));
        const FileSource copy(copyOf(source).string());
        const auto kept = timesOfPictures(copy);
        const Movie movie = movieOf(copy);
        // Where the beginning is lost, up to a second of pictures has no key picture ahead.
        const auto whole = timesOfPictures(source);
        std::size_t missed = 0;
        for (const auto& [bytes, time] : times) {
          missed += whole.contains(bytes) && !kept.contains(bytes) ? 1U : 0U;
        }
        EXPECT_LE(missed, from > 0 ? 0U : 25U);
        EXPECT_GE(kept.size(), from > 0 ? 80U : 60U);
        // All moved by as much as the copy begins later.
        std::optional<double> moved;
        for (const auto& [bytes, time] : kept) {
          const auto was = times.find(bytes);
          if (was == times.end()) continue;
          moved = moved.value_or(was->second - time);
          EXPECT_NEAR(was->second - time, *moved, 0.001);
        }
        EXPECT_NEAR(endOf(*movie.videoTrack(), movie), endOf(*movie.audioTrack(), movie), 0.3);
        EXPECT_TRUE(movie.videoTrack()->samples.front().isSync);
      }
    }
  }
}

// Phones store sound ahead of the pictures that it belongs to.
TEST_F(BlankClip, keepsNoBlankSoundAheadOfItsPictures) {
  const testing::TemporaryFolder folder;
  testing::storeInChunks(testing::makeClip({.seconds = 8}), 2, folder / "clip.mp4", {1, 0});
  const Bytes clip = testing::contentsOf(folder / "clip.mp4");
  for (const auto& [from, to] : {std::pair(0.0, 0.2), {0.4, 0.6}}) {
    const Bytes damaged = blanked(clip, from, to, 0);
    const MemorySource source(damaged);
    const FileSource copy(copyOf(source).string());
    const Movie movie = movieOf(copy);
    std::size_t blank = 0;
    for (const Sample sample : movie.audioTrack()->samples) {
      const Bytes bytes = copy.read(sample.offset, sample.size);
      const bool isBlank =
          std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
      blank += isBlank ? 1U : 0U;
    }
    EXPECT_EQ(blank, 0U) << from;
    EXPECT_GT(movie.audioTrack()->samples.size(), 200U);
  }
}

TEST_F(BlankClip, saysHowMuchIsMissingAtItsEnd) {
  const Bytes clip = testing::contentsOf(testing::makeClip({.seconds = 4}));
  const Bytes damaged = blanked(clip, 0.7, 1, 0);
  const Movie movie = movieOf(MemorySource(clip));
  std::uint64_t blank = 0;
  for (const Sample picture : movie.videoTrack()->samples) {
    const auto at = damaged.begin() + placeOf(picture.offset);
    const bool isBlank = std::all_of(at, at + 64, [](std::uint8_t byte) { return byte == 0; });
    blank += isBlank ? 1U : 0U;
  }
  const auto diagnosis = VideoRepair::diagnose(MemorySource(damaged));
  const auto* cut = std::get_if<VideoRepair::Truncated>(&diagnosis);
  ASSERT_NE(cut, nullptr);
  EXPECT_GT(blank, 10U);
  EXPECT_GE(cut->samplesMissing, blank);
  EXPECT_LE(cut->samplesMissing, 3 * blank + 2);
  EXPECT_EQ(VideoRepair::diagnose(MemorySource(blanked(clip, 0.4, 0.6, 0))),
            Diagnosis(VideoRepair::Truncated{0}));
}

// Its index is right, and there is nothing to show.
TEST_F(BlankClip, isToldFromOneThatPlaysWhereAllIsBlank) {
  const Bytes clip = testing::contentsOf(testing::makeClip({.seconds = 2}));
  const MemorySource whole(clip);
  EXPECT_FALSE(VideoRepair::isBlank(whole));
  for (const std::uint8_t with : {std::uint8_t{0}, std::uint8_t{0xFF}}) {
    const Bytes damaged = blanked(clip, 0, 1, with);
    const MemorySource source(damaged);
    EXPECT_TRUE(VideoRepair::isBlank(source));
    EXPECT_EQ(VideoRepair::diagnose(source), Diagnosis(VideoRepair::Healthy{}));
  }
}

// Gone through one by one they would take hours.
TEST_F(BlankClip, isMendedAtOnceWhoseOtherTracksClaimBillionsOfSamples) {
  constexpr std::uint64_t claimed = 4'000'000'000;
  const Bytes clip = testing::contentsOf(testing::makeClip({.seconds = 4}));
  const Bytes damaged = blanked(clip, 0.3, 0.6, 0);
  const MemorySource source(damaged);
  Movie movie = movieOf(source);
  const std::uint64_t pictures = movie.videoTrack()->samples.size();
  Track& sound = *std::find_if(movie.tracks.begin(), movie.tracks.end(),
                               [](const Track& track) { return track.kind == Track::Kind::audio; });
  Sample sample = sound.samples[0];
  sample.offset = damaged.size() / 2;
  sample.size = 8;
  sound.samples.append(sample, claimed);
  Track side = sound;
  side.kind = Track::Kind::other;
  side.samples.clear();
  sample.duration = 1;
  side.samples.append(sample, claimed);
  movie.tracks.push_back(side);
  BlankStretches::takeOut(movie, source);
  const Track& video = *movie.videoTrack();
  EXPECT_LT(video.samples.size(), pictures);
  EXPECT_GT(video.samples.size(), pictures / 2);
  const Track& ended = movie.tracks.back();
  EXPECT_NEAR(static_cast<double>(ended.duration()) / ended.timescale,
              static_cast<double>(video.duration()) / video.timescale, 0.001);
}

// Programs write next to nothing for pictures that repeat.
TEST_F(BlankClip, isNoneWhosePicturesAreTiny) {
  const Bytes clip = testing::contentsOf(testing::makeClip(
      {.audio = "", .bFrames = 3, .width = 64, .height = 64, .settings = ":qp=51"}));
  Bytes tiny = clip;
  std::uint64_t emptied = 0;
  const Movie movie = movieOf(MemorySource(clip));
  for (const Sample picture : movie.videoTrack()->samples) {
    if (picture.size >= 64) continue;
    std::fill_n(tiny.begin() + placeOf(picture.offset), picture.size, std::uint8_t{0});
    ++emptied;
  }
  EXPECT_GT(emptied, 0U);
  EXPECT_EQ(VideoRepair::diagnose(MemorySource(tiny)), Diagnosis(VideoRepair::Healthy{}));
}

}  // namespace
}  // namespace tallowmark
