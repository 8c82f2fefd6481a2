// SPDX-License-Identifier: GPL-3.0-or-later
#include "Program.h"

namespace tallowmark::testing {
namespace {

class InspectTests : public ProgramTests {};

TEST_F(InspectTests, findEverySampleWhereFfprobeFindsIt) {
  const auto seen = linesOf(tallowmark({"inspect", "--json", "--samples", good})).at(0);
  EXPECT_EQ(seen["diagnosis"], "healthy");
  EXPECT_EQ(seen["fileSize"], std::filesystem::file_size(good));
  const auto& video = seen["tracks"][0];
  EXPECT_EQ(video["kind"], "video");
  EXPECT_EQ(video["sampleCount"], 50);
  EXPECT_EQ(video["nal"]["lengthSize"], 4);
  const auto probed = nlohmann::json::parse(
      run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_packets", "-of", "json", good})
          .output);
  ASSERT_EQ(video["samples"].size(), probed["packets"].size());
  for (std::size_t i = 0; i < 50; ++i) {
    const auto& packet = probed["packets"][i];
    const auto& sample = video["samples"][i];
    EXPECT_EQ(std::to_string(sample[0].get<long>()), packet["pos"]);
    EXPECT_EQ(std::to_string(sample[1].get<long>()), packet["size"]);
    EXPECT_EQ(sample[2], packet["duration"]);
    EXPECT_EQ(sample[4].get<bool>(), packet["flags"].get<std::string>()[0] == 'K');
  }
  const auto& sound = seen["tracks"][1];
  EXPECT_EQ(sound["samples"].size(), 96'000U);
  EXPECT_EQ(sound["samples"][0][1], 2);
}

TEST_F(InspectTests, tellWhatIsLeftOfADamagedFile) {
  const auto cutShort = linesOf(tallowmark({"inspect", "--json", cut})).at(0);
  EXPECT_EQ(cutShort["diagnosis"], "truncated");
  EXPECT_GT(cutShort["samplesMissing"], 10);
  EXPECT_EQ(cutShort["boxes"].back()["truncated"], true);
  const auto indexless = linesOf(tallowmark({"inspect", "--json", noIndex})).at(0);
  EXPECT_EQ(indexless["diagnosis"], "missingIndex");
  EXPECT_FALSE(indexless.contains("tracks"));
  EXPECT_EQ(indexless["boxes"][0]["type"], "ftyp");
  const std::string name = "stsz";
  Bytes torn = contentsOf(good);
  const auto sizes = std::search(torn.rbegin(), torn.rend(), name.rbegin(), name.rend()).base();
  std::fill_n(sizes, 16, std::uint8_t{0});
  writeFile(folder / "torn.mov", torn);
  EXPECT_EQ(linesOf(tallowmark({"inspect", "--json", folder / "torn.mov"})).at(0)["diagnosis"],
            "missingIndex");
  writeFile(folder / "noise.mp4", Bytes(1000, 7));
  EXPECT_EQ(linesOf(tallowmark({"inspect", "--json", folder / "noise.mp4"})).at(0)["diagnosis"],
            "notAMovie");
  EXPECT_EQ(tallowmark({"inspect", folder / "missing.mp4"}).exitCode, 1);
}

}  // namespace
}  // namespace tallowmark::testing
