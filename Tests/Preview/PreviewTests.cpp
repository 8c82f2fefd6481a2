// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "TallowmarkRepair/Preview/PreviewExport.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Lifeline.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class PreviewTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  }
  /// ffmpeg's stand-in: a script of ours.
  fs::path script(const std::string& body) const {
    const std::string text = "#!/bin/sh\n" + body + "\n";
    fs::path file = folder / "ffmpeg";
    writeFile(file, Bytes(text.begin(), text.end()));
    fs::permissions(file, fs::perms::owner_all);
    return file;
  }
  static std::string probe(const fs::path& file, const std::string& entries) {
    return run({"ffprobe", "-v", "error", "-show_entries", entries, "-of", "csv=p=0",
                file.string()})
        .output;
  }

  TemporaryFolder folder;
  fs::path preview = folder / "a: b-preview.MOV";
};

TEST_F(PreviewTests, fitThePictureAndKeepItsShape) {
  struct Row {
    const char* what;
    int width, height;
    std::vector<std::string> filter;
    const char* size;
  };
  const std::vector<Row> rows{{"wide", 1280, 720, {}, "640,360"},
                              {"small", 320, 240, {}, "320,240"},
                              {"upright", 1280, 720, {"-display_rotation", "90"}, "270,480"},
                              {"squeezed", 1440, 1080, {"-aspect", "16:9"}, "640,360"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ClipRecipe recipe;
    recipe.width = row.width;
    recipe.height = row.height;
    recipe.seconds = 1;
    // ffmpeg reads protocols, lists and patterns in names.
    const fs::path clip = folder / "concat:a|%03d.mov";
    std::vector<std::string> command{
        "ffmpeg", "-y", "-v", "error", "-i", makeClip(recipe).string(), "-c", "copy"};
    if (row.filter.size() == 2 && row.filter[0] == "-aspect") {
      command.insert(command.end(), row.filter.begin(), row.filter.end());
    } else if (!row.filter.empty()) {
      command.insert(command.end(), {"-metadata:s:v:0", "rotate=90"});
    }
    command.push_back("file:" + clip.string());
    ASSERT_EQ(run(command).exitCode, 0);
    ASSERT_TRUE(PreviewExport().makePreview(clip, preview, 15, {}));
    EXPECT_TRUE(probe(preview, "stream=width,height").starts_with(row.size))
        << probe(preview, "stream=width,height");
    EXPECT_EQ(probe(preview, "stream=codec_name"), "h264\naac\n");
    EXPECT_EQ(decodingComplaints(preview), "");
    fs::remove(clip);
  }
}

TEST_F(PreviewTests, endAfterTheSecondsAskedFor) {
  ClipRecipe recipe;
  recipe.seconds = 4;
  recipe.audio = "";
  ASSERT_TRUE(PreviewExport().makePreview(makeClip(recipe), preview, 1.5, {}));
  EXPECT_NEAR(std::stod(probe(preview, "format=duration")), 1.5, 0.05);
  recipe.seconds = 1;
  ASSERT_TRUE(PreviewExport().makePreview(makeClip(recipe), preview, 15, {}));
  EXPECT_NEAR(std::stod(probe(preview, "format=duration")), 1, 0.05);
}

TEST_F(PreviewTests, leaveNothingWhenItCannotBeMade) {
  const fs::path clip = makeClip({});
  EXPECT_FALSE(PreviewExport(std::nullopt).makePreview(clip, preview, 15, {}));
  EXPECT_FALSE(PreviewExport("/no/such/program").makePreview(clip, preview, 15, {}));
  EXPECT_FALSE(PreviewExport(script("exit 1")).makePreview(clip, preview, 15, {}));
  // A list of other files is no clip, whatever it is called.
  for (const std::string& list :
       {"ffconcat version 1.0\nfile '" + clip.string() + "'\n",
        "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + clip.string() + "\n#EXT-X-ENDLIST\n"}) {
    const fs::path trap = writeFile(folder / "trap.mp4", Bytes(list.begin(), list.end()));
    EXPECT_FALSE(PreviewExport().makePreview(trap, preview, 15, {})) << list;
  }
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"ffmpeg", "trap.mp4"}));
}

TEST_F(PreviewTests, outliveAChildThatGoesWild) {
  const Lifeline lifeline;
  const std::string flood = "for last; do :; done; exec yes >\"${last#file:}\"";
  const std::pair<std::string, std::chrono::milliseconds> rows[] = {
      {flood, std::chrono::seconds(30)},
      {"sleep 600 & " + flood, std::chrono::seconds(30)},
      {"yes & yes >&2 & exec sleep 600", std::chrono::milliseconds(500)}};
  for (const auto& [wild, timeLimit] : rows) {
    SCOPED_TRACE(wild);
    const PreviewExport exporter(script("exec 9>'" + lifeline.path() + "'; " + wild), timeLimit);
    const auto start = Clock::now();
    EXPECT_FALSE(exporter.makePreview(makeClip({}), preview, 15, {}));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(15));
    EXPECT_TRUE(lifeline.willBeHeld(false));
    EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"ffmpeg"});
  }
}

TEST_F(PreviewTests, killTheChildWithItsItemAndWhenItsTimeIsUp) {
  const fs::path hanging = script("echo $$ > '" + (folder / "pid").string() + "'; exec sleep 600");
  const auto start = Clock::now();
  EXPECT_FALSE(PreviewExport(hanging, std::chrono::milliseconds(100))
                   .makePreview(makeClip({}), preview, 15, {}));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));

  fs::remove(folder / "pid");
  StopSource stop;
  std::atomic<Clock::rep> stopped = 0;
  std::thread user([&] {
    // The shell makes the file before it writes the number into it.
    while (!fs::exists(folder / "pid") || fs::is_empty(folder / "pid")) std::this_thread::yield();
    stopped = Clock::now().time_since_epoch().count();
    stop.requestStop();
  });
  EXPECT_THROW((void)PreviewExport(hanging).makePreview(makeClip({}), preview, 15, stop.token()),
               Stopped);
  const auto ended = Clock::now();
  user.join();
  EXPECT_LT(ended - Clock::time_point(Clock::duration(stopped)), std::chrono::seconds(5));
  const Bytes pid = contentsOf(folder / "pid");
  EXPECT_NE(run({"kill", "-0", std::string(pid.begin(), pid.end() - 1)}).exitCode, 0);
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"ffmpeg", "pid"}));
}

}  // namespace
}  // namespace tallowmark::testing
