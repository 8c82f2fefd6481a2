// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "DecoderKit/FFmpegTrial.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Lifeline.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class TrialTests : public ::testing::Test {
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

TEST_F(TrialTests, readNothingButTheClip) {
  const fs::path clip = makeClip({});
  fs::copy_file(clip, folder / "http:-i|b.mp4");
  EXPECT_EQ(picturesDecode(folder / "http:-i|b.mp4", {}), true);
  EXPECT_EQ(picturesDecode(write("hls.mp4", "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" +
                                                clip.string() + "\n#EXT-X-ENDLIST\n"),
                           {}),
            false);
  EXPECT_EQ(
      picturesDecode(write("list.mp4", "ffconcat version 1.0\nfile '" + clip.string() + "'\n"), {}),
      false);
}

TEST_F(TrialTests, tellWhatTheDecoderSaidFromWhatItWasKeptFromSaying) {
  const struct {
    const char* script;
    std::optional<bool> decodes;
  } rows[] = {{"head -c 768 /dev/zero | tr '\\0' x", true},
              {"head -c 384 /dev/zero | tr '\\0' x; head -c 384 /dev/zero", false},
              {"exit 0", false},
              {"head -c 384 /dev/zero | tr '\\0' x; exit 1", false},
              {"kill -SEGV $$", false},
              {"echo x >other; exit 0", false},
              {"exec yes", std::nullopt},
              {"yes >&2 & exec yes", std::nullopt}};
  for (const auto& row : rows) {
    replaceFFmpeg(row.script);
    EXPECT_EQ(picturesDecode("clip.mp4", {}), row.decodes) << row.script;
    EXPECT_TRUE(lifeline.willBeHeld(false)) << row.script;
  }
  EXPECT_EQ(fs::file_size(folder / "other"), 0U);
}

TEST_F(TrialTests, endWithTheItem) {
  replaceFFmpeg("sleep 600 & exec sleep 600");
  StopSource stop;
  std::thread user([&] {
    EXPECT_TRUE(lifeline.willBeHeld(true));
    stop.requestStop();
  });
  EXPECT_THROW((void)picturesDecode("clip.mp4", stop.token()), Stopped);
  user.join();
  EXPECT_TRUE(lifeline.willBeHeld(false));
}

}  // namespace
}  // namespace tallowmark::testing
