// SPDX-License-Identifier: GPL-3.0-or-later
#include <csignal>
#include <thread>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Program.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class RepairTests : public ProgramTests {};

TEST_F(RepairTests, saveWhatCanBeSavedAndLeaveTheOriginalsAlone) {
  const std::vector<fs::path> originals{good, cut, noIndex};
  std::vector<Fingerprint> before;
  for (const fs::path& file : originals) before.push_back(fingerprint(file));

  const auto result = tallowmark({"repair", "--json", folder.path(), "--to", out});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.errors, "");
  const auto lines = linesOf(result);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0]["state"], "healthy");
  EXPECT_EQ(lines[0]["reference"], nullptr);
  EXPECT_FALSE(lines[0].contains("output"));
  for (const std::size_t repaired : {1U, 2U}) {
    SCOPED_TRACE(lines[repaired].dump());
    EXPECT_EQ(lines[repaired]["state"], "saved");
    const fs::path copy = lines[repaired].value("output", "");
    EXPECT_EQ(copy, out / (originals[repaired].stem().string() + " (repaired).MOV"));
    EXPECT_EQ(decodingComplaints(copy), "");
    EXPECT_EQ(fs::last_write_time(copy), fs::last_write_time(originals[repaired]));
    EXPECT_EQ(linesOf(tallowmark({"check", "--json", copy})).at(0)["state"], "healthy");
  }
  EXPECT_EQ(lines[1]["reference"], nullptr);
  EXPECT_EQ(lines[2]["reference"], good.string());
  EXPECT_EQ(lines[2]["result"]["videoFrames"], 50);
  EXPECT_EQ(lines[2]["result"]["audioPackets"], 96'000);
  EXPECT_EQ(namesIn(out).size(), 2U);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(fingerprint(originals[i]), before[i]);
}

TEST_F(RepairTests, overwriteNothingAndNumberEqualStemsInTheOrderGiven) {
  fs::create_directories(folder / "a");
  fs::create_directories(folder / "b");
  for (const char* name : {"a/旅行.mov", "b/旅行.mov"}) fs::copy_file(cut, folder / name);
  fs::create_directory(out);
  writeFile(out / "旅行 (repaired).mov", Bytes{1});
  const auto lines = linesOf(
      tallowmark({"repair", "--json", "--to", out, folder / "b/旅行.mov", folder / "a/旅行.mov"}));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0]["file"], (folder / "b/旅行.mov").string());
  EXPECT_EQ(lines[0]["output"], (out / "旅行 (repaired 2).mov").string());
  EXPECT_EQ(lines[1]["output"], (out / "旅行 (repaired 3).mov").string());
  EXPECT_EQ(contentsOf(out / "旅行 (repaired).mov"), Bytes{1});
}

TEST_F(RepairTests, askForAReferenceAndRefuseABadOne) {
  const auto alone = tallowmark({"repair", "--json", "--to", out, noIndex});
  EXPECT_EQ(alone.exitCode, 1);
  EXPECT_EQ(linesOf(alone).at(0)["state"], "missingIndex");
  EXPECT_EQ(linesOf(alone).at(0)["needsReference"], true);

  const auto messageWith = [&](const fs::path& reference) {
    const auto result =
        tallowmark({"repair", "--json", "--to", out, noIndex, "--reference", reference});
    EXPECT_EQ(result.exitCode, 1);
    return linesOf(result).at(0).value("message", "");
  };
  const std::string refused =
      "That clip doesn't open either. Pick a clip that plays, recorded on the same camera.";
  EXPECT_EQ(messageWith(noIndex), refused);
  EXPECT_EQ(messageWith(folder / "missing.mov"), refused);
  EXPECT_EQ(messageWith(writeFile(folder / "a.nef", Bytes{1})),
            "RAW files aren't used as references. Pick a JPEG photo or a clip from the same "
            "camera.");
  EXPECT_TRUE(namesIn(out).empty());
  EXPECT_EQ(linesOf(tallowmark({"repair", "--json", "--to", out, noIndex, "--reference", good}))
                .at(0)["state"],
            "saved");
}

TEST_F(RepairTests, learnFromAReferenceThatIsCutShort) {
  const fs::path front = folder / "front.mp4";
  run({"ffmpeg", "-v", "error", "-i", makeClip({.seconds = 4, .variant = 1}).string(), "-c", "copy",
       "-movflags", "faststart", front.string()});
  writeFile(noIndex, withoutIndex(contentsOf(makeClip({}))));
  const auto repairWith = [&](double share) {
    const std::string reference = firstPart(front.string(), share, folder / "part.mp4");
    return linesOf(tallowmark({"repair", "--json", "--to", out, noIndex, "--reference", reference}))
        .at(0);
  };
  const auto taughtByAll = repairWith(1)["result"];
  const auto taught = repairWith(0.4)["result"];
  EXPECT_EQ(taught["videoFrames"], taughtByAll["videoFrames"]);
  EXPECT_EQ(taught["audioPackets"], taughtByAll["audioPackets"]);
  const FileSource source(front.string());
  const auto media = MovieParser::layout(BoxReader(source)).mdats.front().payloadOffset();
  EXPECT_EQ(repairWith((static_cast<double>(media) + 100) / static_cast<double>(source.size()))
                .value("message", ""),
            "That clip doesn't open either. Pick a clip that plays, recorded on the same camera.");
}

TEST_F(RepairTests, tryAnotherSortOfReferenceWhereTheFirstFails) {
  ClipRecipe other;
  other.codec = "libx265";
  fs::copy_file(makeClip(other), folder / "GX010000.MOV");
  const auto line =
      linesOf(tallowmark({"repair", "--json", "--to", out, folder / "GX010000.MOV", good, noIndex}))
          .at(2);
  EXPECT_EQ(line["state"], "saved");
  EXPECT_EQ(line["reference"], good.string());
}

// The frames are found either way; only their parameter sets are another camera's.
TEST_F(RepairTests, refuseAReferenceWhosePicturesHaveAnotherSize) {
  struct Size {
    int width, height;
  };
  const struct {
    const char* codec;
    Size one, other;
    int keyInterval;
  } rows[] = {{"libx264", {640, 480}, {1280, 720}, 5},
              {"libx264", {640, 480}, {640, 360}, 250},
              {"libx265", {640, 480}, {1280, 720}, 5},
              {"libx265", {320, 240}, {320, 180}, 5},
              {"libx265", {320, 240}, {640, 360}, 250}};
  for (const auto& row : rows) {
    const auto recipe = [&](Size size) {
      return ClipRecipe{.codec = row.codec,
                        .audio = "",
                        .seconds = 1,
                        .width = size.width,
                        .height = size.height,
                        .keyInterval = row.keyInterval};
    };
    for (const auto& [damaged, reference] : {std::pair{row.one, row.other}, {row.other, row.one}}) {
      SCOPED_TRACE(std::string(row.codec) + " of height " + std::to_string(damaged.height));
      const fs::path clip =
          writeFile(folder / "size.mp4", withoutIndex(contentsOf(makeClip(recipe(damaged)))));
      const auto repair = [&](Size with) {
        return linesOf(tallowmark({"repair", "--json", "--to", out, clip, "--reference",
                                   makeClip(recipe(with))}))
            .at(0);
      };
      EXPECT_EQ(
          repair(reference).value("message", ""),
          "No video from this camera was found in the clip. Check that the reference clip was "
          "recorded on the same camera, at the same resolution and frame rate.");
      EXPECT_TRUE(namesIn(out).empty());
      EXPECT_EQ(repair(damaged)["state"], "saved");
      fs::remove_all(out);
    }
  }
}

// What the pictures' headers tell of other settings is taken over. In one sequence they do not tell
// whether one picture or two are referred to by slices that do not say; that shows when others than
// key pictures are decoded.
TEST_F(RepairTests, refuseAReferenceWhoseOtherSettingsCannotBeToldFromThePictures) {
  const auto clip = [](int references, int keyInterval) {
    return makeClip({.audio = "",
                     .seconds = 3,
                     .width = 640,
                     .height = 480,
                     .keyInterval = keyInterval,
                     .settings = ":scenecut=0:weightp=0:ref=" + std::to_string(references)});
  };
  const auto repair = [&](const fs::path& whole, const fs::path& reference) {
    const fs::path broken = writeFile(folder / "b.mp4", withoutIndex(contentsOf(whole)));
    return linesOf(tallowmark({"repair", "--json", "--to", out, broken, "--reference", reference}))
        .at(0);
  };
  EXPECT_EQ(repair(clip(2, 250), clip(1, 250))["state"], "failed");
  EXPECT_TRUE(namesIn(out).empty());
  EXPECT_EQ(repair(clip(2, 10), clip(1, 250))["state"], "saved");
  EXPECT_EQ(repair(clip(2, 250), clip(2, 10))["state"], "saved");

  // The B pictures between P pictures are read alike either way.
  const auto weighted = [](const char* weights) {
    return makeClip({.codec = "libx265",
                     .audio = "",
                     .bFrames = 3,
                     .width = 416,
                     .height = 240,
                     .keyInterval = 60,
                     .settings = std::string(":weightp=") + weights});
  };
  EXPECT_EQ(repair(weighted("0"), weighted("1"))["state"], "failed");
  EXPECT_EQ(repair(weighted("1"), weighted("0"))["state"], "failed");
  EXPECT_EQ(repair(weighted("1"), weighted("1"))["state"], "saved");
}

// No key picture decodes any more, and nearly every other one is as it was.
TEST_F(RepairTests, keepWhatFollowsDamagedKeyPictures) {
  const auto recipe = [](const char* codec, int height, int keyInterval, const char* settings) {
    return ClipRecipe{.codec = codec,
                      .audio = "",
                      .seconds = 2,
                      .width = height * 4 / 3,
                      .height = height,
                      .keyInterval = keyInterval,
                      .settings = settings};
  };
  const struct {
    const char* label;
    ClipRecipe recipe;
    /// Ahead of this picture few others are whole either.
    std::uint64_t wholeFrom;
  } rows[] = {{"H.264, many keys", recipe("libx264", 480, 10, ""), 0},
              {"H.264, one key", recipe("libx264", 480, 250, ""), 0},
              {"HEVC, many keys", recipe("libx265", 480, 10, ""), 0},
              {"HEVC, one key", recipe("libx265", 480, 250, ""), 0},
              {"small pictures", recipe("libx264", 240, 10, ":cabac=0:crf=28"), 7}};
  for (const auto& row : rows) {
    const fs::path whole = makeClip(row.recipe);
    Bytes bytes = contentsOf(whole);
    const FileSource source(whole.string());
    const Movie movie = MovieParser::parse(BoxReader(source));
    std::uint64_t number = 0;
    for (const Sample sample : movie.videoTrack()->samples) {
      const bool isHit = sample.isSync || (number < row.wholeFrom && number % 8 != 0);
      for (std::uint64_t at = sample.size / 2; isHit && at < sample.size - 20; ++at) {
        bytes[sample.offset + at] = static_cast<std::uint8_t>(at * at >> 3U | 1U);
      }
      ++number;
    }
    const fs::path clip = writeFile(folder / "keys.mp4", withoutIndex(bytes));
    const auto line =
        linesOf(tallowmark({"repair", "--json", "--to", out, clip, "--reference", whole})).at(0);
    EXPECT_EQ(line["state"], "saved") << row.label;
    fs::remove_all(out);
  }
}

TEST_F(RepairTests, leaveNothingBehindWhenTheDiskIsFull) {
  const std::uint64_t little = 20'000;
  const auto result = Process(call({"repair", "--json", "--to", out, cut}), little).wait();
  EXPECT_EQ(result.exitCode, 1);
  const auto line = linesOf(result).at(0);
  EXPECT_EQ(line["state"], "failed");
  EXPECT_TRUE(line["message"].get<std::string>().starts_with("Could not write " + out.string()));
  EXPECT_TRUE(namesIn(out).empty());
}

TEST_F(RepairTests, sayWhyAFolderCannotBeWrittenTo) {
  const auto result = tallowmark({"repair", "--to", "/proc/copies", cut});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Couldn't repair: Could not write /proc/copies: "),
            std::string::npos);
}

// A clip with gigabytes of media that take no room: a copy of it runs long enough to be stopped.
std::string makeLongClip(const fs::path& target) {
  constexpr std::uint32_t frameSize = 1 << 20;
  constexpr std::uint32_t frames = 6'000;
  const Bytes index = makeBox(
      "moov",
      {makeTrack("vide",
                 {makeSampleDescription("avc1"), makeFull("stsz", 0, {u32(frameSize), u32(frames)}),
                  makeTable("stsc", 1, {1, frames, 1}), makeTable("stco", 1, {4096})})});
  writeFile(target, joined({makeBox("ftyp", {text("isom")}), index, u32(0), text("mdat")}));
  fs::resize_file(target, 4096 + std::uint64_t{frameSize} * (frames - 1));
  return target;
}

// Stops a run while it writes. Where the copy was complete before the signal came, which is no
// fault, it is tried again.
void expectNothingLeft(const std::vector<std::string>& arguments, const fs::path& out, int signal) {
  for (int attempt = 0; attempt < 30; ++attempt) {
    fs::remove_all(out);
    fs::create_directories(out);
    Process running(call(arguments));
    while (namesIn(out).empty()) std::this_thread::yield();
    running.signal(signal);
    const int exitCode = running.wait().exitCode;
    const auto left = namesIn(out);
    if (left.empty()) {
      EXPECT_EQ(exitCode, 128 + signal);
      return;
    }
    ASSERT_EQ(left.size(), 1U);
    ASSERT_FALSE(left[0].starts_with('.')) << left[0];
  }
  FAIL() << "every copy was complete before the signal came";
}

TEST_F(RepairTests, removeWhatTheyWroteWhenASignalStopsThem) {
  const std::string clip = makeLongClip(folder / "long.mp4");
  const std::string next = makeLongClip(folder / "next.mp4");
  if (fs::space(folder.path()).available < fs::file_size(clip) * 3) {
    GTEST_SKIP() << "not enough free space for a copy that takes a while";
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    expectNothingLeft({"repair", "--to", out, clip}, out, signal);
  }
  for (const auto& part : {clip, next}) fs::resize_file(part, fs::file_size(part) + (1 << 20));
  expectNothingLeft({"join", "--to", out, clip, next}, out, SIGINT);
}

}  // namespace
}  // namespace tallowmark::testing
