// SPDX-License-Identifier: GPL-3.0-or-later
#include "Program.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

/// A folder with the three chapters of one recording, 2 s each.
class JoinTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
    for (const int chapter : {0, 1, 2}) {
      ClipRecipe recipe;
      recipe.variant = chapter;
      const fs::path file = folder / ("GX0" + std::to_string(chapter + 1) + "1234.MP4");
      fs::copy_file(makeClip(recipe), file);
      chapters.push_back(file);
    }
    fs::last_write_time(chapters[0], fs::last_write_time(chapters[0]) - std::chrono::hours(50));
  }

  nlohmann::json joined(std::vector<std::string> arguments, int exitCode) const {
    arguments.insert(arguments.begin(), {"join", "--json", "--to", out});
    const auto result = tallowmark(arguments);
    EXPECT_EQ(result.exitCode, exitCode) << result.output << result.errors;
    const auto lines = linesOf(result);
    return lines.size() == 1 ? lines[0] : nlohmann::json(lines);
  }

  TemporaryFolder folder;
  Paths chapters;
  fs::path out = folder / "out";
};

TEST_F(JoinTests, joinTheGivenFilesInNameOrderAndOverwriteNothing) {
  std::vector<Fingerprint> before;
  for (const auto& file : chapters) before.push_back(fingerprint(file));
  fs::create_directory(out);
  writeFile(out / "GX011234 (joined).MP4", Bytes{1});

  const auto line = joined({chapters[2], chapters[0], chapters[1]}, 0);
  EXPECT_EQ(line["state"], "saved");
  EXPECT_EQ(line["parts"], chapters);
  const fs::path copy = line.value("output", "");
  EXPECT_EQ(copy, out / "GX011234 (joined 2).MP4");
  EXPECT_EQ(line["result"]["parts"], 3);
  EXPECT_EQ(line["result"]["videoFrames"], 150);
  EXPECT_NEAR(line["result"]["seconds"].get<double>(), 6.0, 0.1);
  EXPECT_GT(line["result"]["bytes"], 10'000);
  EXPECT_EQ(line["result"]["extraTracksKept"], 0);
  EXPECT_EQ(line["result"]["extraTracksDropped"], 0);
  EXPECT_EQ(decodingComplaints(copy), "");
  EXPECT_EQ(fs::last_write_time(copy), fs::last_write_time(chapters[0]));
  EXPECT_EQ(contentsOf(out / "GX011234 (joined).MP4"), Bytes{1});
  EXPECT_EQ(namesIn(out).size(), 2U);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(fingerprint(chapters[i]), before[i]);
}

TEST_F(JoinTests, sayWhichPartKeepsThemFromIt) {
  ClipRecipe large;
  large.width = 640;
  large.height = 480;
  const std::string other = folder / "GX091234.MP4";
  fs::copy_file(makeClip(large), other);
  const std::string broken =
      writeFile(folder / "GX051234.MP4", withoutIndex(contentsOf(chapters[1]))).string();
  const std::string photo = writeFile(folder / "GX061234.JPG", Bytes(500, 1)).string();
  const std::string doesNotOpen = " doesn't open. Repair it first, then join the repaired copy.";
  const struct {
    Paths arguments;
    const char* state;
    std::string message;
  } rows[] = {
      {{chapters[0]}, "incompatible", "Joining needs at least two clips."},
      {{chapters[0], chapters[0]}, "incompatible", "Joining needs at least two clips."},
      {{chapters[0], other},
       "incompatible",
       "GX091234.MP4 is 640×480, not 320×240. Only pieces of the same recording can be joined."},
      {{broken, chapters[0]}, "failed", "GX051234.MP4" + doesNotOpen},
      {{photo, chapters[0]}, "failed", "GX061234.JPG" + doesNotOpen},
      {{chapters[0], "/missing.mp4"}, "failed", "Could not open /missing.mp4"},
  };
  for (const auto& row : rows) {
    const auto line = joined(row.arguments, 1);
    EXPECT_EQ(line["state"], row.state) << line;
    EXPECT_TRUE(line.value("message", "").starts_with(row.message)) << line;
    EXPECT_FALSE(line.contains("output"));
  }
  EXPECT_TRUE(namesIn(out).empty());
}

TEST_F(JoinTests, findRecordingsByTheirNamesAcrossFoldersAndOnlyThose) {
  fs::create_directory(folder / "later");
  fs::rename(chapters[1], folder / "later" / "GX021234.MP4");
  for (const char* name : {"holiday.mp4", "GX010001.MP4", "GH011235.MP4", "GH031235.MP4"}) {
    fs::copy_file(chapters[0], folder / name);
  }
  writeFile(folder / "GOPR0007.JPG", Bytes(9, 1));
  const auto lines = joined({"--find", folder.path(), "/missing.mp4"}, 1);
  ASSERT_EQ(lines.size(), 3U) << lines;
  EXPECT_EQ(lines[0]["state"], "saved");
  EXPECT_EQ(lines[0]["parts"],
            (Paths{chapters[0], folder / "later" / "GX021234.MP4", chapters[2]}));
  EXPECT_EQ(lines[0]["result"]["videoFrames"], 150);
  EXPECT_EQ(lines[1]["state"], "failed");
  EXPECT_EQ(lines[1]["parts"], (Paths{folder / "GH011235.MP4", folder / "GH031235.MP4"}));
  EXPECT_EQ(lines[1]["missing"], Paths{"GH021235.MP4"});
  EXPECT_EQ(lines[1]["message"],
            "GH021235.MP4 is missing from this recording. Add it to join the whole of it.");
  EXPECT_EQ(lines[2]["parts"], Paths{"/missing.mp4"});
  EXPECT_EQ(lines[2]["state"], "failed");
  EXPECT_EQ(namesIn(out), Paths{"GX011234 (joined).MP4"});
}

TEST_F(JoinTests, tellOfAMissingBeginningAndJoinTheRest) {
  const auto result = tallowmark({"join", "--find", "--to", out, chapters[1], chapters[2]});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(result.output.starts_with(chapters[1] + " + " + chapters[2] + ": Saved as "));
  EXPECT_NE(result.output.find("GX011234.MP4 is missing from this recording."), std::string::npos);
  const auto none = tallowmark({"join", "--find", "--to", out, chapters[0]});
  EXPECT_EQ(none.exitCode, 0);
  EXPECT_EQ(none.errors, "No split recordings were found.\n");
}

}  // namespace
}  // namespace tallowmark::testing
