// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "DecoderKit/FFmpegDecoder.h"
#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/PictureExcerpt.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Lifeline.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class DecoderTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
    path = std::getenv("PATH");
  }
  void TearDown() override { ::setenv("PATH", path.c_str(), 1); }

  fs::path write(const std::string& name, const std::string& text) const {
    fs::path file = writeFile(folder / name, Bytes(text.begin(), text.end()));
    fs::permissions(file, fs::perms::owner_all);
    return file;
  }
  /// From here on a shell stands in for ffmpeg.
  void replaceFFmpeg(const std::string& script) const {
    write("ffmpeg", "#!/bin/sh\ncase $* in *-version*) exit 0;; esac\nexec 9>'" + lifeline.path() +
                        "'\ncd '" + folder.path().string() + "'\n" + script + "\n");
    ::setenv("PATH", (folder.path().string() + ":" + path).c_str(), 1);
  }

  std::string path;
  TemporaryFolder folder;
  Lifeline lifeline;
};

std::optional<bool> allWhole(const fs::path& clip) {
  const auto decoded = decodePictures({&clip, 1}, {});
  return decoded ? std::optional(decoded->whole) : std::nullopt;
}

TEST_F(DecoderTests, readNothingButTheClip) {
  const fs::path clip = makeClip({});
  fs::copy_file(clip, folder / "http:-i|b.mp4");
  EXPECT_EQ(allWhole(folder / "http:-i|b.mp4"), true);
  EXPECT_EQ(allWhole(write("hls.mp4", "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" +
                                          clip.string() + "\n#EXT-X-ENDLIST\n")),
            false);
  EXPECT_EQ(allWhole(write("list.mp4", "ffconcat version 1.0\nfile '" + clip.string() + "'\n")),
            false);
}

TEST_F(DecoderTests, tellWhatTheDecoderSaidFromWhatItWasKeptFromSaying) {
  const std::string head = "printf '#tb 0: 1/25\\n";
  const std::string picture = "0, 0, 0, 1, 115200, 0x00000000\\n1, 0, 0, 1, 384, 0x";
  const struct {
    std::string script;
    std::optional<bool> decodes;
  } rows[] = {{head + picture + "000000f1\\n" + picture + "10000000, S=1\\n'", true},
              {head + picture + "000000f1\\n" + picture + "00000000\\n'", false},
              {head + picture + "00000000, S=1\\n'", false},
              {head + "7, 0, 0, 1, 384, 0x000000f1\\n'", false},
              {head + "'", false},
              {"exit 0", false},
              {head + picture + "000000f1\\n'; exit 1", false},
              {"kill -SEGV $$", false},
              {"echo x >other; exit 0", false},
              {"exec yes", std::nullopt},
              {"yes >&2 & exec yes", std::nullopt}};
  for (const auto& row : rows) {
    replaceFFmpeg(row.script);
    EXPECT_EQ(allWhole("clip.mp4"), row.decodes) << row.script;
    EXPECT_TRUE(lifeline.willBeHeld(false)) << row.script;
  }
  EXPECT_EQ(fs::file_size(folder / "other"), 0U);
}

// The decoder shows the same whatever follows a picture's data, and another thing where its end is
// another.
TEST_F(DecoderTests, tellWhereAPictureEnds) {
  for (const ClipRecipe& recipe :
       {ClipRecipe{}, ClipRecipe{.bFrames = 2, .slices = 4}, ClipRecipe{.settings = ":no-cabac=1"},
        ClipRecipe{.codec = "libx265"}, ClipRecipe{.codec = "libx265", .slices = 2}}) {
    SCOPED_TRACE(recipe.codec + recipe.settings);
    const FileSource source(makeClip(recipe).string());
    const Movie movie = MovieParser::parse(BoxReader(source));
    PictureExcerpt excerpt(*movie.videoTrack());
    const auto written = [&](PictureExcerpt::End end) {
      fs::path clip = folder / std::to_string(static_cast<int>(end));
      FileSink sink(clip.string());
      excerpt.write(sink, end, {});
      sink.close();
      return clip;
    };
    for (const std::uint64_t picture : {0U, 1U}) {
      ASSERT_TRUE(excerpt.add(movie.videoTrack()->samples[picture], source));
      ASSERT_TRUE(excerpt.hasSliceEnd());
      EXPECT_FALSE(excerpt.isSurelyDamaged());
      const std::array clips{written(PictureExcerpt::End::asItIs),
                             written(PictureExcerpt::End::moreBytes),
                             written(PictureExcerpt::End::otherBytes)};
      const DecodedPictures good = decodePictures(std::span(clips).first(2), {}).value();
      EXPECT_TRUE(good.whole);
      ASSERT_EQ(good.sums.size(), 2U);
      EXPECT_EQ(std::count(good.sums[0].begin(), good.sums[0].end(), '\n'), picture + 1);
      EXPECT_EQ(good.sums[1], good.sums[0]);
      EXPECT_EQ(decodePictures(std::span(clips).first(1), {}).value().sums[0], good.sums[0]);
      EXPECT_NE(decodePictures(std::span(clips).last(1), {}).value().sums[0], good.sums[0]);
    }
  }
}

// What is decoded beside a damaged clip is not whole for that.
TEST_F(DecoderTests, complainOfOneClipAmongOthers) {
  const fs::path whole = makeClip({});
  Bytes bytes = contentsOf(whole);
  const FileSource source(whole.string());
  const Sample key = MovieParser::parse(BoxReader(source)).videoTrack()->samples[0];
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(key.offset + key.size / 4), key.size / 4,
              std::uint8_t{0xFF});
  const fs::path damaged = writeFile(folder / "damaged.mp4", bytes);
  for (const auto& clips : {std::array{whole, damaged}, std::array{damaged, whole}}) {
    const auto decoded = decodePictures(clips, {});
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->whole);
  }
  EXPECT_TRUE(decodePictures(std::array{whole, whole}, {}).value().whole);
  const std::string first = "0, 0, 0, 1, 115200, 0x000000f1\\n1, 0, 0, 1, 384, 0x000000f1\\n";
  const std::string second = "2, 0, 0, 1, 115200, 0x000000f2\\n3, 0, 0, 1, 384, 0x";
  const struct {
    std::string output;
    bool areWhole;
  } rows[] = {{first + second + "000000f1\\n", true},
              {first + second + "00000000\\n", false},
              {first, false}};
  for (const auto& row : rows) {
    replaceFFmpeg("printf '" + row.output + "'");
    EXPECT_EQ(decodePictures(std::array{whole, whole}, {}).value().whole, row.areWhole);
  }
}

TEST_F(DecoderTests, endWithTheItem) {
  replaceFFmpeg("sleep 600 & exec sleep 600");
  StopSource stop;
  std::thread user([&] {
    EXPECT_TRUE(lifeline.willBeHeld(true));
    stop.requestStop();
  });
  EXPECT_THROW((void)decodePictures(std::array{fs::path("clip.mp4")}, stop.token()), Stopped);
  user.join();
  EXPECT_TRUE(lifeline.willBeHeld(false));
}

}  // namespace
}  // namespace tallowmark::testing
