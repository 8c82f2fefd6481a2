// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/PictureTrial.h"

#include <gtest/gtest.h>

#include "DecoderKit/FFmpegDecoder.h"
#include "DeviceKit/FileSource.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"

namespace tallowmark::testing {
namespace {

// Each decoding is a child process: a person waits for it.
TEST(PictureTrial, settlesASmallClipByFewDecodings) {
  if (!canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const TemporaryFolder folder;
  ClipRecipe recipe{.codec = "libx265", .bFrames = 3, .seconds = 4, .keyInterval = 30};
  const auto clip = makeClip(recipe);
  const MemorySource source(withoutIndex(contentsOf(clip)));
  recipe.variant = 1;
  const FileSource reference(makeClip(recipe).string());
  const auto plan = VideoRepair::planRebuild(source, reference);
  unsigned decodings = 0;
  const auto counted = [&](const std::filesystem::path& file, const StopToken& stop) {
    ++decodings;
    return decodePictures(file, stop);
  };
  EXPECT_NO_THROW(requireDecodable(plan, source, &reference, folder.path(), counted, {}));
  EXPECT_GE(decodings, 2U);
  EXPECT_LE(decodings, 8U);
}

}  // namespace
}  // namespace tallowmark::testing
