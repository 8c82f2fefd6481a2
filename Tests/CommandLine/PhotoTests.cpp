// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>

#include "JPEGCoefficients.h"
#include "Photos.h"
#include "Program.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

std::size_t scanOf(const Bytes& photo) {
  const Bytes marker{0xFF, 0xDA};
  const auto scan = std::search(photo.begin(), photo.end(), marker.begin(), marker.end());
  return static_cast<std::size_t>(scan - photo.begin());
}

/// A folder with a photo that opens, its sibling in several states, and a RAW file.
class PhotoProgramTests : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(good, makePhoto({.width = 800, .height = 600}));
    writeFile(headless, wiped(photo, scanOf(photo), 1));
    Bytes half(photo.begin(), photo.begin() + static_cast<std::ptrdiff_t>(photo.size() / 2));
    writeFile(cut, half);
    Bytes startGone = photo;
    startGone[0] = startGone[1] = 0;
    writeFile(ownTables, startGone);
    writeFile(noise, Bytes(500, 7));
    writeFile(raw, joined({zeros(5000), photo, zeros(900)}));
  }

  nlohmann::json repaired(std::vector<std::string> arguments, int exitCode) const {
    arguments.insert(arguments.begin(), {"repair", "--json", "--to", out});
    const auto result = tallowmark(arguments);
    EXPECT_EQ(result.exitCode, exitCode) << result.output << result.errors;
    return linesOf(result);
  }

  Bytes photo = makePhoto({.width = 800, .height = 600, .variant = 30});
  TemporaryFolder folder;
  fs::path good = folder / "DSC_0001.JPG";
  fs::path headless = folder / "DSC_0002.JPG";
  fs::path cut = folder / "DSC_0003.JPG";
  fs::path ownTables = folder / "DSC_0004.JPG";
  fs::path noise = folder / "DSC_0005.JPG";
  fs::path raw = folder / "DSC_0006.NEF";
  fs::path out = folder / "out";
};

TEST_F(PhotoProgramTests, areCheckedByWhatTheyHold) {
  const auto result = tallowmark({"check", "--json", folder.path(), "/missing.jpg"});
  EXPECT_EQ(result.exitCode, 1);
  const auto lines = linesOf(result);
  const struct {
    const char* kind;
    const char* state;
    bool needsReference;
  } rows[] = {{"photo", "healthy", false},   {"photo", "missingIndex", true},
              {"photo", "truncated", false}, {"photo", "missingIndex", false},
              {"photo", "notAVideo", false}, {"raw", "rawFile", false},
              {"photo", "failed", false}};
  ASSERT_EQ(lines.size(), std::size(rows));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE(lines[i].dump());
    EXPECT_EQ(lines[i]["kind"], rows[i].kind);
    EXPECT_EQ(lines[i]["state"], rows[i].state);
    EXPECT_EQ(lines[i]["needsReference"], rows[i].needsReference);
  }
  EXPECT_EQ(lines[0]["info"]["summary"], "JPEG · 800×600");
  EXPECT_EQ(lines[2]["missingSamples"], 0);
  EXPECT_EQ(lines[6]["message"], "Couldn't read this file.");
  const std::string text = tallowmark({"check", folder.path()}).output;
  for (const char* sentence : {"DSC_0002.JPG: Header damaged · needs reference",
                               "DSC_0004.JPG: Header damaged · ready to repair",
                               "DSC_0006.NEF: RAW · picture can be rescued"}) {
    EXPECT_NE(text.find(sentence), std::string::npos) << text;
  }
}

TEST_F(PhotoProgramTests, areSavedWithTheOriginalsLeftAlone) {
  fs::last_write_time(headless, fs::last_write_time(headless) - std::chrono::hours(50));
  const Fingerprint before = fingerprint(headless);
  const auto lines = repaired({good, headless, cut, ownTables, raw}, 0);
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0]["state"], "healthy");
  const char* names[] = {"DSC_0002 (repaired).JPG", "DSC_0003 (repaired).JPG",
                         "DSC_0004 (repaired).JPG", "DSC_0006 (rescued).jpg"};
  const Coefficients whole = readCoefficients(photo);
  for (std::size_t i = 1; i < 5; ++i) {
    SCOPED_TRACE(lines[i].dump());
    EXPECT_EQ(lines[i]["state"], "saved");
    EXPECT_EQ(lines[i]["output"], (out / names[i - 1]).string());
    EXPECT_EQ(lines[i]["result"]["width"], 800);
    EXPECT_EQ(lines[i]["result"]["height"], 600);
    EXPECT_EQ(lines[i]["result"]["incomplete"], i == 2);
    const Bytes copy = contentsOf(lines[i].value("output", ""));
    EXPECT_GE(equalTopShare(readCoefficients(copy), whole), i == 2 ? 0.4 : 1.0);
  }
  EXPECT_EQ(lines[1]["reference"], good.string());
  EXPECT_EQ(lines[1]["result"]["fix"], "rebuiltHeader");
  EXPECT_EQ(
      lines[1]["result"]["borrowed"],
      (std::vector<std::string>{"image size and layout", "quantization tables", "Huffman tables"}));
  EXPECT_EQ(lines[2]["result"]["fix"], "closedEnd");
  EXPECT_EQ(lines[3]["result"]["fix"], "rebuiltHeader");
  EXPECT_EQ(lines[3]["reference"], nullptr);
  EXPECT_TRUE(lines[3]["result"]["borrowed"].empty());
  EXPECT_EQ(lines[4]["reference"], nullptr);
  EXPECT_EQ(lines[4]["result"]["keptDetails"], false);
  EXPECT_EQ(fs::last_write_time(out / names[0]), fs::last_write_time(headless));
  EXPECT_EQ(fingerprint(headless), before);
}

TEST_F(PhotoProgramTests, sayWhatTheyLack) {
  EXPECT_EQ(repaired({headless}, 1)[0]["state"], "missingIndex");
  EXPECT_EQ(repaired({headless, "--reference", cut}, 1)[0]["message"],
            "That photo doesn't open either. Pick a photo that opens, taken on the same camera.");
  const auto other = writeFile(folder / "other.jpg", makePhoto({.width = 320, .height = 600}));
  EXPECT_EQ(repaired({headless, "--reference", other}, 1)[0]["message"],
            "The rebuilt photo still won't open. Check that the reference photo was taken on the "
            "same camera, at the same size and quality setting.");
  EXPECT_EQ(repaired({writeFile(folder / "a.cr2", Bytes(99, 3))}, 1)[0]["message"],
            "No usable picture was found inside this RAW file. The preview the camera stores in it "
            "is missing or damaged too.");
  EXPECT_TRUE(namesIn(out).empty());
}

TEST_F(PhotoProgramTests, aReferenceThatDoesNotHelpGivesWayToOneThatDoes) {
  const auto other = writeFile(folder / "DSC_0000.JPG", makePhoto({.width = 320, .height = 600}));
  EXPECT_EQ(repaired({other, good, headless}, 0)[2]["reference"], good.string());
}

TEST_F(PhotoProgramTests, areInspectedToTheByte) {
  const auto seen = linesOf(tallowmark({"inspect", "--json", good})).at(0);
  EXPECT_EQ(seen["diagnosis"], "healthy");
  EXPECT_EQ(seen["segments"][0], (nlohmann::json{{"marker", 0xE0}, {"offset", 2}, {"length", 16}}));
  const auto size = fs::file_size(good);
  EXPECT_EQ(seen["scanStart"].get<std::size_t>(), scanOf(contentsOf(good)) + 14);
  EXPECT_EQ(seen["entropyLength"].get<std::size_t>() + seen["scanStart"].get<std::size_t>() + 2,
            size);
  EXPECT_EQ(seen["hasEnd"], true);
  EXPECT_EQ(seen["isComplete"], true);
  EXPECT_EQ(seen["width"], 800);
  EXPECT_EQ(seen["height"], 600);

  const auto damaged = linesOf(tallowmark({"inspect", "--json", headless})).at(0);
  EXPECT_EQ(damaged["diagnosis"], "damagedHeader");
  EXPECT_TRUE(damaged["segments"].empty());
  EXPECT_EQ(damaged["scanStart"].get<std::size_t>(), scanOf(photo) + 14);
  EXPECT_EQ(linesOf(tallowmark({"inspect", "--json", noise})).at(0)["scanStart"], nullptr);

  const auto inside = linesOf(tallowmark({"inspect", "--json", raw})).at(0);
  EXPECT_EQ(inside["diagnosis"], "damaged");
  EXPECT_EQ(inside["candidates"], nlohmann::json::array({{{"start", 5000},
                                                          {"end", 5000 + photo.size()},
                                                          {"width", 800},
                                                          {"height", 600},
                                                          {"incomplete", false}}}));
  EXPECT_EQ(tallowmark({"inspect", folder / "missing.nef"}).exitCode, 1);
}

TEST(CameraRawFiles, keepTheirDetailsInTheRescuedPicture) {
  const auto raw = corpusFile("raw/nikon_d70s_capturenx_247-1.nef");
  if (!raw) GTEST_SKIP() << "the folder of real camera files is not there";
  const TemporaryFolder folder;
  const auto line = linesOf(tallowmark({"repair", "--json", "--to", folder.path(), *raw})).at(0);
  EXPECT_EQ(line["state"], "saved") << line;
  EXPECT_EQ(line["result"]["keptDetails"], true) << line;
}

}  // namespace
}  // namespace tallowmark::testing
