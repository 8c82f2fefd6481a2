// SPDX-License-Identifier: GPL-3.0-or-later
// Sample entries of real clips, made to allow more pictures to be held back than they did.
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Bitstream/Reordering.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Clips.h"

namespace tallowmark {
namespace {

using Codec = NALFormat::Codec;
using testing::makeClip;

std::vector<std::uint8_t> entryOf(const std::filesystem::path& clip) {
  return MovieParser::parse(BoxReader(FileSource(clip.string()))).videoTrack()->sampleEntry;
}

// The parameter sets but for what they say of reordering.
ParameterSets withoutReordering(ParameterSets sets) {
  for (auto& [id, sequence] : sets.sequences) sequence.mostReordered = 0;
  return sets;
}

// The entry's child boxes by type and, but for the configuration's, content.
std::vector<std::pair<FourCC, std::vector<std::uint8_t>>> childrenOf(
    const std::vector<std::uint8_t>& entry) {
  constexpr std::uint64_t fixedPart = 86;
  const MemorySource source(entry);
  const BoxReader reader(source);
  std::vector<std::pair<FourCC, std::vector<std::uint8_t>>> found;
  reader.visit(fixedPart, entry.size(), [&](const Box& box) {
    const bool isConfig = box.type == "avcC" || box.type == "hvcC";
    found.emplace_back(box.type, isConfig ? std::vector<std::uint8_t>() : reader.payload(box));
    return true;
  });
  return found;
}

TEST(Reordering, isAllowedByTheSetsAndNothingElseChanges) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const auto& [encoder, codec] :
       {std::pair("libx264", Codec::h264), {"libx265", Codec::hevc}}) {
    const auto entry = entryOf(makeClip({.codec = encoder}));
    const ParameterSets before = ParameterSets::of(entry, codec);
    ASSERT_EQ(before.sequences.size(), 1U);
    for (const std::size_t pictures : {1U, 2U, 5U, 15U}) {
      const auto allowing = allowingReordering(entry, codec, pictures);
      const ParameterSets after = ParameterSets::of(allowing, codec);
      ASSERT_EQ(after.sequences.size(), 1U) << encoder;
      EXPECT_EQ(after.sequences.begin()->second.mostReordered, pictures) << encoder;
      EXPECT_EQ(withoutReordering(after).sequences, withoutReordering(before).sequences);
      EXPECT_EQ(after.pictures.size(), before.pictures.size()) << encoder;
      EXPECT_EQ(childrenOf(allowing), childrenOf(entry)) << encoder << pictures;
      EXPECT_EQ(allowingReordering(allowing, codec, pictures - 1), allowing) << encoder;
    }
    EXPECT_EQ(allowingReordering(entry, codec, 0), entry) << encoder;
    // No decoder holds back as many.
    EXPECT_EQ(allowingReordering(entry, codec, 17), entry) << encoder;
  }
}

TEST(Reordering, leavesWhatCannotBeRead) {
  const std::vector<std::uint8_t> rubbish(200, 0x21);
  EXPECT_EQ(allowingReordering(rubbish, Codec::hevc, 3), rubbish);
  EXPECT_TRUE(allowingReordering({}, Codec::h264, 3).empty());
}

}  // namespace
}  // namespace tallowmark
