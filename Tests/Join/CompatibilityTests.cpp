// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/Compatibility.h"

#include <gtest/gtest.h>

#include "Chapters.h"
#include "MediaKit/Join/EssentialConfig.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"

namespace tallowmark::ClipJoin {
namespace {

using namespace tallowmark::testing;
namespace fs = std::filesystem;

fs::path named(const TemporaryFolder& folder, const char* name, const ClipRecipe& recipe) {
  fs::copy_file(makeClip(recipe), folder / name);
  return folder / name;
}

TEST(Compatibility, namesTheFirstClipThatDoesNotFit) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const ClipRecipe usual;
  const fs::path first = named(folder, "first.mp4", usual);
  const fs::path silent = named(folder, "silent.mp4", {.audio = ""});
  const fs::path soundOnly = folder / "sound.m4a";
  const fs::path turned = folder / "turned.mp4";
  run({"ffmpeg", "-v", "error", "-i", first.string(), "-vn", "-c", "copy", soundOnly.string()});
  run({"ffmpeg", "-v", "error", "-i", first.string(), "-c", "copy", "-metadata:s:v:0", "rotate=90",
       turned.string()});
  struct Row {
    std::vector<fs::path> files;
    const char* sentence;  // null: they fit
  };
  const std::vector<Row> rows{
      {{}, "Joining needs at least two clips."},
      {{first}, "Joining needs at least two clips."},
      {{soundOnly, first}, "sound.m4a has no video."},
      {{first, first, soundOnly}, "sound.m4a has no video."},
      {{first, named(folder, "hevc.mp4", {.codec = "libx265"})},
       "hevc.mp4 uses a different video format (HEVC instead of H.264)."},
      {{first, named(folder, "small.mp4", {.width = 160, .height = 120})},
       "small.mp4 is 160×120, not 320×240. Only pieces of the same recording can be joined."},
      {{first, named(folder, "reordered.mp4", {.bFrames = 2})},
       "reordered.mp4 was recorded with different settings, so it isn't part of the same "
       "recording."},
      {{first, turned},
       "turned.mp4 was recorded with the camera turned, so it isn't part of the same recording."},
      {{first, silent}, "silent.mp4 has no sound but the first clip does."},
      {{silent, first}, "first.mp4 has sound but the first clip doesn't."},
      {{named(folder, "pcm.mov", {.container = "mov", .audio = "pcm_s16le"}),
        named(folder, "aac.mov", {.container = "mov"})},
       "aac.mov records sound with different settings."},
      {{first, named(folder, "other.mp4", {.seconds = 3, .variant = 1})}, nullptr},
      {{folder / "aac.mov", named(folder, "b.mov", {.container = "mov", .variant = 1})}, nullptr},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(incompatibility(readParts(row.files)).value_or("fits"),
              row.sentence == nullptr ? "fits" : row.sentence);
  }
  const auto entryOf = [&](const char* name) {
    return parsed(folder / name).audioTrack()->sampleEntry;
  };
  EXPECT_NE(entryOf("first.mp4"), entryOf("other.mp4")) << "the bit rates should differ";
}

TEST(Compatibility, ignoresWhatTellsOfTheBitRate) {
  const auto visual = [](const Bytes& children) { return makeBox("avc1", {zeros(78), children}); };
  const auto sound = [](std::uint16_t version, std::size_t fields, const Bytes& children) {
    return makeBox("mp4a", {zeros(8), u16(version), zeros(fields), children});
  };
  // Long and short forms of the descriptor lengths, and other bit rates, say the same.
  const auto esds = [](std::uint8_t rate, std::uint8_t specific) {
    return makeFull("esds", 0,
                    {Bytes{3, 22, 0, 0, 0, 4, 17, 0x40, 0x15, 0, 0, 0}, u32(rate), u32(rate),
                     Bytes{5, 2, specific, 0x10}});
  };
  const auto longEsds = makeFull("esds", 0,
                                 {Bytes{3, 0x80, 0x80, 0x80, 34,   0,    0,  0xE0, 9,    9, 1, 'u',
                                        9, 9,    4,    0x80, 0x80, 0x80, 20, 0x40, 0x16, 9, 9, 9},
                                  u32(7), u32(8), Bytes{5, 0x80, 0x80, 0x80, 2, 0x12, 0x10}});
  const Bytes avcC = makeBox("avcC", {Bytes{1, 2, 3}});
  const Bytes btrt = makeBox("btrt", {zeros(12)});
  struct Row {
    const char* label;
    Bytes a;
    Bytes b;
    Track::Kind kind;
    bool same;
  };
  const auto video = Track::Kind::video;
  const auto audio = Track::Kind::audio;
  const std::vector<Row> rows{
      {"btrt", visual(avcC), visual(joined({btrt, avcC})), video, true},
      {"avcC", visual(avcC), visual(makeBox("avcC", {Bytes{1, 2, 4}})), video, false},
      {"btrt of telemetry", makeBox("gpmd", {zeros(8)}), makeBox("gpmd", {zeros(8), btrt}),
       Track::Kind::other, false},
      {"esds rates", sound(0, 18, esds(1, 0x12)), sound(0, 18, esds(2, 0x12)), audio, true},
      {"esds forms", sound(0, 18, esds(1, 0x12)), sound(0, 18, longEsds), audio, true},
      {"esds decoder", sound(0, 18, esds(1, 0x12)), sound(0, 18, esds(1, 0x13)), audio, false},
      {"version 1", sound(1, 34, esds(1, 0x12)), sound(1, 34, esds(2, 0x12)), audio, true},
      {"version 2", sound(2, 54, esds(1, 0x12)), sound(2, 54, esds(2, 0x12)), audio, true},
      {"wave", sound(1, 34, makeBox("wave", {esds(1, 0x12)})),
       sound(1, 34, makeBox("wave", {esds(2, 0x12)})), audio, true},
      {"wave decoder", sound(1, 34, makeBox("wave", {esds(1, 0x12)})),
       sound(1, 34, makeBox("wave", {esds(1, 0x13)})), audio, false},
      {"child past the end", visual(joined({u32(99), text("btrt"), zeros(4)})), visual({}), video,
       false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(essentialConfig(row.a, row.kind) == essentialConfig(row.b, row.kind), row.same)
        << row.label;
  }
  const Bytes whole = esds(1, 0x12);
  EXPECT_EQ(esdsEssentials(whole), (Bytes{0x40, 0x14, 0x12, 0x10}));
  for (std::size_t size = 0; size < whole.size() - 4; ++size) {
    EXPECT_EQ(esdsEssentials(std::span(whole).first(size)), std::nullopt) << size;
  }
}

}  // namespace
}  // namespace tallowmark::ClipJoin
