// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/stat.h>

#include <algorithm>

#include "Program.h"

namespace tallowmark::testing {
namespace {

TEST(Calls, thatAreWrongSayHowOnStandardErrorAndEndWithTwo) {
  const TemporaryFolder folder;
  const std::string file = writeFile(folder / "a.mp4", {}).string();
  const std::vector<std::vector<std::string>> wrong{{},
                                                    {"polish"},
                                                    {"check"},
                                                    {"repair", file},
                                                    {"check", "--fast", file},
                                                    {"repair", file, "--to"},
                                                    {"inspect"},
                                                    {"image", file},
                                                    {"disks", file},
                                                    {"repair", file, "--to", file},
                                                    {"join", file},
                                                    {"join", "--to", file}};
  for (const auto& arguments : wrong) {
    const auto result = tallowmark(arguments);
    EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(arguments);
    EXPECT_TRUE(result.output.empty());
    EXPECT_FALSE(result.errors.empty());
  }
  for (const char* asked : {"--help", "--version"}) {
    EXPECT_EQ(tallowmark({asked}).exitCode, 0);
    EXPECT_NE(tallowmark({asked}).output.find("tallowmark"), std::string::npos);
  }
  EXPECT_EQ(tallowmark({"repair", "--help"}).exitCode, 0);
}

class CheckTests : public ProgramTests {};

TEST_F(CheckTests, tellEachStateInTheOrderGiven) {
  const std::string pipe = folder / "pipe.mp4";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const std::string missing = folder / "missing.mp4";
  const std::string noise = writeFile(folder / "noise.mp4", Bytes(1000, 7));
  const std::string text = writeFile(folder / "notes.txt", Bytes(10, 'a'));
  const std::string raw = writeFile(folder / "a.cr2", Bytes(10, 'a'));
  Bytes unwritten = contentsOf(good);
  const Bytes name = testing::text("mdat");
  const auto media = std::search(unwritten.begin(), unwritten.end(), name.begin(), name.end());
  std::fill(media + 4, unwritten.end(), std::uint8_t{0});
  const std::string blank = writeFile(folder / "blank.mov", unwritten);
  const struct {
    std::string file;
    nlohmann::json kind;
    const char* state;
  } rows[] = {{noIndex, "video", "missingIndex"}, {good, "video", "healthy"},
              {cut, "video", "truncated"},        {noise, "video", "notAVideo"},
              {missing, "video", "failed"},       {pipe, "video", "failed"},
              {text, nullptr, "notAVideo"},       {raw, "raw", "rawFile"},
              {"/dev/null", nullptr, "failed"},   {blank, "video", "failed"}};
  std::vector<std::string> arguments{"check", "--json"};
  for (const auto& row : rows) arguments.push_back(row.file);
  const auto result = tallowmark(arguments);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.errors, "");
  const auto lines = linesOf(result);
  ASSERT_EQ(lines.size(), std::size(rows));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE(rows[i].file);
    EXPECT_EQ(lines[i]["file"], rows[i].file);
    EXPECT_EQ(lines[i]["kind"], rows[i].kind);
    EXPECT_EQ(lines[i]["state"], rows[i].state);
    EXPECT_EQ(lines[i]["needsReference"], lines[i]["state"] == "missingIndex");
    EXPECT_EQ(lines[i].contains("message"), lines[i]["state"] == "failed");
  }
  EXPECT_GT(lines[2]["missingSamples"], 10);
  EXPECT_EQ(lines[5]["message"],
            "Couldn't read this file: " + pipe + " is not a readable file or device.");
  EXPECT_EQ(lines.back()["message"],
            "Nothing is left of this clip's pictures: the file is blank where they should be.");
  const auto& info = lines[1]["info"];
  EXPECT_EQ(info["summary"], "H.264 · 320×240 · 25 fps");
  EXPECT_EQ(info["audioCodec"], "PCM");
  EXPECT_NEAR(info["seconds"].get<double>(), 2.0, 0.05);
  EXPECT_EQ(tallowmark({"check", good, raw}).exitCode, 0);
}

TEST_F(CheckTests, walkFoldersInNameOrderAndTakeEachFileOnce) {
  std::filesystem::rename(noIndex, folder / "映像 3.mov");
  const auto lines = linesOf(tallowmark({"check", "--json", cut, folder.path(), good}));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0]["file"], cut.string());
  EXPECT_EQ(lines[1]["file"], good.string());
  EXPECT_EQ(lines[2]["file"], (folder / "映像 3.mov").string());
}

TEST_F(CheckTests, aFileNameThatIsNoUnicodeStillGivesALine) {
  std::filesystem::rename(good, folder / "a\xFF.mp4");
  EXPECT_EQ(linesOf(tallowmark({"check", "--json", folder / "a\xFF.mp4"})).at(0)["file"],
            (folder / "a\xEF\xBF\xBD.mp4").string());
}

TEST(Folders, withoutClipsSaySo) {
  const TemporaryFolder folder;
  EXPECT_EQ(tallowmark({"check", folder.path()}).errors, "No clips or photos were found.\n");
}

}  // namespace
}  // namespace tallowmark::testing
