// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BoxWriter.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::makeClip;

// A movie with its index in front, as cameras that preallocate write it: built from a clip.
Bytes indexFirst(const std::filesystem::path& clip) {
  const FileSource source(clip.string());
  const BoxReader reader(source);
  Movie movie = MovieParser::parse(reader);
  const Box media = MovieParser::layout(reader).mdats.front();
  const std::uint64_t head =
      movie.fileType.size() + MovieWriter::moov(movie).size() + media.headerSize;
  for (Track& track : movie.tracks) {
    track.samples = track.samples.movedBy(head - media.payloadOffset());
  }
  return testing::joined({movie.fileType, MovieWriter::moov(movie), reader.whole(media)});
}

TEST(Trim, everyCutIsDiagnosedAndTheRestPlays) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const auto clip = makeClip({.container = "mov", .audio = "pcm_s16le", .bFrames = 2});
  const Bytes whole = indexFirst(clip);
  const MemorySource wholeSource(whole);
  const Movie movie = MovieParser::parse(BoxReader(wholeSource));
  const std::uint64_t mediaStart =
      MovieParser::layout(BoxReader(wholeSource)).mdats.front().payloadOffset();
  for (std::uint64_t i = 1; i < 100; ++i) {
    const std::uint64_t cut = mediaStart + (whole.size() - mediaStart) * i / 100;
    std::uint64_t missing = 0;
    std::uint64_t frames = 0;
    for (const Track& track : movie.tracks) {
      for (const Sample& sample : track.samples) {
        const bool inside = sample.offset + sample.size <= cut;
        missing += inside ? 0U : 1U;
        frames += inside && track.kind == Track::Kind::video ? 1U : 0U;
      }
    }
    const MemorySource source(
        Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)));
    EXPECT_EQ(VideoRepair::diagnose(source),
              VideoRepair::Diagnosis(VideoRepair::Truncated{missing}));
    const auto copy = folder / "copy.mov";
    {
      FileSink sink(copy.string());
      if (frames == 0) {
        EXPECT_THROW(VideoRepair::trim(source, sink), MediaError);
        continue;
      }
      EXPECT_EQ(VideoRepair::trim(source, sink).videoFrames, frames);
    }
    if (i % 10 == 5) {
      EXPECT_EQ(testing::decodingComplaints(copy), "") << "cut at " << i << " %";
    }
  }
}

TEST(Trim, aHealthyClipIsCopiedSampleForSample) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const auto clip = makeClip({.bFrames = 2});
  const FileSource source(clip.string());
  EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::Healthy{}));
  FileSink sink((folder / "copy.mp4").string());
  const auto result = VideoRepair::repair(source, nullptr, sink);
  const Movie movie = MovieParser::parse(BoxReader(source));
  EXPECT_EQ(result.videoFrames, movie.videoTrack()->samples.size());
  EXPECT_EQ(result.audioPackets, movie.audioTrack()->samples.size());
  EXPECT_DOUBLE_EQ(result.seconds, movie.seconds());
  EXPECT_FALSE(result.audioDropped);
  EXPECT_EQ(testing::decodingComplaints(folder / "copy.mp4"), "");
}

TEST(Diagnosis, tellsTheKindsOfDamageApart) {
  const Bytes type = testing::makeBox("ftyp", {testing::text("isom"), testing::zeros(4)});
  const Bytes media = testing::makeBox("mdat", {testing::zeros(100)});
  const Bytes soundOnly = testing::makeBox("moov", {testing::makeTrack("soun", {})});
  const Bytes pictures = testing::makeBox("moov", {testing::makeTrack("vide", {})});
  const struct {
    const char* label;
    Bytes file;
    VideoRepair::Diagnosis diagnosis;
  } rows[] = {
      {"empty", {}, VideoRepair::NotAMovie{}},
      {"noise", Bytes(1000, 0x5A), VideoRepair::NotAMovie{}},
      {"noIndex", testing::joined({type, media}), VideoRepair::MissingIndex{}},
      {"indexOfSoundAlone", testing::joined({type, media, soundOnly}), VideoRepair::MissingIndex{}},
      {"cutIndex", testing::joined({type, media, Bytes(pictures.begin(), pictures.end() - 4)}),
       VideoRepair::MissingIndex{}},
      {"healthy", testing::joined({type, media, pictures}), VideoRepair::Healthy{}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(VideoRepair::diagnose(MemorySource(row.file)), row.diagnosis) << row.label;
  }
}

}  // namespace
}  // namespace tallowmark
