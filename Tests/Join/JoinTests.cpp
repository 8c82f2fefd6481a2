// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/ClipJoin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "Chapters.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"

namespace tallowmark::ClipJoin {
namespace {

using namespace tallowmark::testing;
namespace fs = std::filesystem;

fs::path joinInto(const fs::path& folder, const std::vector<Part>& parts,
                  const Progress& progress = {}) {
  PendingFile pending(folder);
  (void)join(parts, pending.sink(), progress);
  return pending.publish([](unsigned) { return "joined.mp4"; }, {});
}

// Everything ffprobe knows of a stream's packets but where they lie.
std::string packetsOf(const fs::path& file, const char* stream, const char* entries) {
  const auto probed = run({"ffprobe", "-v", "error", "-select_streams", stream, "-show_packets",
                           "-show_data_hash", "md5", "-of", "compact", "-show_entries",
                           std::string("packet=") + entries, file.string()});
  return probed.output + probed.errors;
}

// GPMF: four letters, a type, a size and a count, padded to four bytes, one after another.
bool isTelemetry(std::span<const std::uint8_t> payload) {
  for (std::size_t at = 0; at < payload.size();) {
    if (at + 8 > payload.size()) return false;
    const std::size_t size =
        std::size_t{payload[at + 5]} * bigEndian<std::uint16_t>(payload, at + 6);
    if (payload[at] < 'A' || payload[at] > 'Z') return false;
    at += 8 + (size + 3) / 4 * 4;
    if (at > payload.size()) return false;
  }
  return !payload.empty();
}

class RealChapters : public ::testing::TestWithParam<const char*> {};

TEST_P(RealChapters, becomeTheUncutClip) {
  const auto clip = corpusFile(GetParam());
  if (!clip) GTEST_SKIP() << "no real camera files beside the source tree";
  const TemporaryFolder folder;
  const std::vector<Part> parts = readParts(cutIntoChapters(*clip, folder.path(), 3));
  const fs::path output = joinInto(folder.path(), parts);
  const Movie uncut = parsed(*clip);
  const Movie joined = parsed(output);

  ASSERT_EQ(joined.tracks.size(), uncut.tracks.size());
  for (std::size_t i = 0; i < uncut.tracks.size(); ++i) {
    const Track& before = uncut.tracks[i];
    const Track& after = joined.tracks[i];
    EXPECT_EQ(after.sampleEntry, before.sampleEntry);
    EXPECT_EQ(after.extraBoxes, before.extraBoxes);
    EXPECT_EQ(after.handlerName, before.handlerName);
    const Bytes payload = payloadOf(output, after);
    if (before.handler == "tmcd") {
      EXPECT_EQ(after.samples.size(), 3U);
      EXPECT_EQ(after.duration(), joined.videoTrack()->duration());
      const auto start = bigEndian<std::uint32_t>(payload, 0);
      EXPECT_EQ(bigEndian<std::uint32_t>(payload, 8) - start,
                parts[0].movie.videoTrack()->samples.size() +
                    parts[1].movie.videoTrack()->samples.size());
      continue;
    }
    EXPECT_EQ(after.samples.size(), before.samples.size());
    EXPECT_TRUE(payload == payloadOf(*clip, before)) << "track " << before.trackID;
    std::span<const std::uint8_t> left = payload;
    for (std::uint64_t n = 0; before.codec == "gpmd" && n < after.samples.size(); ++n) {
      EXPECT_TRUE(isTelemetry(left.first(after.samples[n].size)));
      left = left.subspan(after.samples[n].size);
    }
  }
  EXPECT_EQ(joined.userData, uncut.userData);
  EXPECT_EQ(joined.creationTime, uncut.creationTime);

  for (const char* stream : {"v", "a"}) {
    constexpr auto all = "pts,dts,duration,size,flags,data_hash";
    EXPECT_EQ(packetsOf(output, stream, all), packetsOf(*clip, stream, all));
  }
  EXPECT_EQ(packetsOf(output, "d:1", "size,data_hash"), packetsOf(*clip, "d:1", "size,data_hash"));
  EXPECT_EQ(decodingComplaints(output), "");
  const auto timecode = [](const fs::path& file) {
    return run({"ffprobe", "-v", "error", "-show_entries", "stream_tags=timecode", file.string()})
        .output;
  };
  EXPECT_EQ(timecode(output), timecode(*clip));
}

INSTANTIATE_TEST_SUITE_P(Join, RealChapters,
                         ::testing::Values("video/gopro_hero7_h264.mp4",
                                           "video/gopro_hero10_GL012297.LRV"));

TEST(Join, tellsWhatItWrote) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const std::vector<Part> parts = readParts(
      {makeClip({.bFrames = 2}), makeClip({.bFrames = 2}), makeClip({.bFrames = 2, .seconds = 3})});
  double last = 0;
  const fs::path output = joinInto(folder.path(), parts, [&](double done) {
    EXPECT_GE(done, last);
    last = done;
  });
  EXPECT_EQ(last, 1);
  const Result told = summary(parts);
  EXPECT_EQ(told.parts, 3);
  EXPECT_EQ(told.videoFrames, 7 * 25);
  EXPECT_NEAR(told.seconds, 7, 0.15);
  EXPECT_LT(fs::file_size(output) - told.bytes, 20'000U);
  EXPECT_EQ(decodingComplaints(output), "");
  for (const Part& part : parts) EXPECT_EQ(FileStamp::of(part.url), part.stamp);
}

TEST(Join, keepsTwentyRealPartsTogether) {
  const auto clip = corpusFile("video/gopro_hero7_h264.mp4");
  if (!clip) GTEST_SKIP() << "no real camera files beside the source tree";
  const TemporaryFolder folder;
  const std::vector<Part> parts = readParts(std::vector<fs::path>(20, *clip));
  const Movie joined = parsed(joinInto(folder.path(), parts));
  const Track& video = *joined.videoTrack();
  for (std::uint64_t part = 1; part < 20; ++part) {
    const double start = startOf(video, part * 352);
    EXPECT_NEAR(startOf(*joined.audioTrack(), part * 550), start, 0.0214) << part;
    for (const Track& track : joined.tracks) {
      if (track.kind == Track::Kind::other) {
        EXPECT_NEAR(startOf(track, part * track.samples.size() / 20), start, 0.0101) << part;
      }
    }
  }
  EXPECT_EQ(joined.audioTrack()->duration(), 20U * 550 * 1024) << "sound goes on without a pause";
}

std::string sentenceOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "no error";
}

TEST(Join, refusesPartsThatAreNotWholeOrDidNotStayAsTheyWere) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const fs::path first = folder / "a.mp4";
  const fs::path second = folder / "b.mp4";
  const auto reset = [&] {
    for (const fs::path& file : {first, second}) {
      fs::copy_file(makeClip({}), file, fs::copy_options::overwrite_existing);
    }
    return readParts({first, second});
  };
  const auto grow = [&] { std::ofstream(second, std::ios::app) << "more"; };
  constexpr auto changed =
      "b.mp4 has changed since it was checked. Check it again when it is complete.";

  std::vector<Part> parts = reset();
  grow();
  EXPECT_EQ(sentenceOf([&] { joinInto(folder.path(), parts); }), changed);

  parts = reset();
  EXPECT_EQ(sentenceOf([&] { joinInto(folder.path(), parts, [&](double) { grow(); }); }), changed);

  parts = reset();
  fs::resize_file(second, 5000);
  parts[1].stamp.reset();
  EXPECT_EQ(sentenceOf([&] { joinInto(folder.path(), parts); }),
            "b.mp4 is cut short. Repair it first, then join the repaired copy.");
  EXPECT_EQ(sentenceOf([&] { readPart(second); }),
            "b.mp4 doesn't open. Repair it first, then join the repaired copy.");

  parts = reset();
  fs::remove(second);
  EXPECT_EQ(sentenceOf([&] { joinInto(folder.path(), parts); }),
            "Could not open " + second.string() + ": No such file or directory");

  parts[1].movie.tracks.pop_back();
  EXPECT_EQ(sentenceOf([&] { joinInto(folder.path(), parts); }),
            "b.mp4 has no sound but the first clip does.");
  EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"a.mp4"});
}

}  // namespace
}  // namespace tallowmark::ClipJoin
