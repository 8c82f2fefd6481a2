// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose pictures bring their parameter sets along, rebuilt with a reference of another size.
#include "MediaKit/Bitstream/CarriedSets.h"

#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Clusters.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::makeClip;
using testing::Victim;

namespace fs = std::filesystem;

Track pictureTrack(const fs::path& clip) {
  return *MovieParser::parse(BoxReader(FileSource(clip.string()))).videoTrack();
}

class CarriedParameterSets : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }

  NALFormat::Codec codec() const {
    return std::string(GetParam()) == "libx264" ? NALFormat::Codec::h264 : NALFormat::Codec::hevc;
  }
  /// Cropped: no whole number of blocks.
  ClipRecipe recipe(const char* settings) const {
    return {.codec = GetParam(),
            .bFrames = 2,
            .seconds = 4,
            .width = 482,
            .height = 274,
            .settings = settings,
            .variant = 1};
  }
  ClipRecipe reference(const char* settings) const {
    return {.codec = GetParam(), .bFrames = 2, .seconds = 3, .settings = settings};
  }
};

// Whatever is in front of the reference's pictures.
TEST_P(CarriedParameterSets, bringAClipBackByAReferenceOfAnotherSize) {
  for (const char* settings : {":repeat-headers=1", ":aud=1:repeat-headers=1"}) {
    const fs::path clip = makeClip(recipe(settings));
    const Track truth = pictureTrack(clip);
    for (const char* of : {"", ":aud=1", ":aud=1:repeat-headers=1"}) {
      SCOPED_TRACE(std::string(settings) + " by " + of);
      const Victim victim(clip);
      const auto compared = testing::rebuildAndCompare(victim, makeClip(reference(of)));
      EXPECT_EQ(compared.exact, compared.frames);
      EXPECT_EQ(compared.inOrder, compared.frames);
      EXPECT_EQ(compared.invented, 0U);
      EXPECT_EQ(compared.blocksExact, compared.blocks);

      const testing::TemporaryFolder folder;
      const fs::path copy = folder / "copy.mp4";
      {
        FileSink sink(copy.string());
        VideoRepair::rebuild(MemorySource(victim.bytes()),
                             FileSource(makeClip(reference(of)).string()), sink);
      }
      EXPECT_EQ(testing::decodedPictures(copy), testing::decodedPictures(clip));
      const Track rebuilt = pictureTrack(copy);
      EXPECT_EQ(rebuilt.width, truth.width);
      EXPECT_EQ(rebuilt.height, truth.height);
    }
  }
}

// A player that reads the sample entry alone finds what the clip's own said.
TEST_P(CarriedParameterSets, areDescribedAsTheClipsOwnEntryDid) {
  const fs::path clip = makeClip(recipe(":repeat-headers=1"));
  const Track truth = pictureTrack(clip);
  const Track other = pictureTrack(makeClip(reference("")));
  const FileSource source(clip.string());
  const auto format = *NALFormat::of(truth.sampleEntry, truth.codec);
  const auto carried = CarriedSets::of(truth.samples, source, format);
  ASSERT_TRUE(carried);
  EXPECT_EQ(CarriedSets::search(source, 0, format, {}), carried);
  EXPECT_FALSE(carried->areIn(other.sampleEntry, codec()));
  const auto entry = carried->describe(other.sampleEntry, codec());
  ASSERT_TRUE(entry);
  EXPECT_TRUE(carried->areIn(*entry, codec()));
  const auto recordOf = [&](const std::vector<std::uint8_t>& described) {
    const std::size_t at = *configurationRecord(described, codec());
    // As far as the first set: profile, level and bit depth.
    constexpr std::size_t fields = 6;
    constexpr std::size_t fieldsHEVC = 13;
    const std::size_t count = codec() == NALFormat::Codec::h264 ? fields : fieldsHEVC;
    return std::vector<std::uint8_t>(described.begin() + testing::placeOf(at),
                                     described.begin() + testing::placeOf(at + count));
  };
  EXPECT_EQ(recordOf(*entry), recordOf(truth.sampleEntry));
  // Width and height.
  EXPECT_TRUE(std::equal(entry->begin() + 32, entry->begin() + 36, truth.sampleEntry.begin() + 32));
}

// An old recording of another size lies ahead of the clip's media: what it brings along is no word
// on the clip, nor are its pictures.
TEST_P(CarriedParameterSets, ofAnotherRecordingSayNothing) {
  const fs::path clip = makeClip(reference(""));
  const fs::path old = makeClip(recipe(":repeat-headers=1"));
  const auto mediaOf = [](const fs::path& file) {
    const FileSource source(file.string());
    const BoxReader reader(source);
    return reader.payload(MovieParser::layout(reader).mdats.front());
  };
  const testing::Bytes whole = mediaOf(old);
  for (const std::size_t part : {whole.size(), whole.size() / 3}) {
    testing::Bytes media(whole.end() - testing::placeOf(part), whole.end());
    const testing::Bytes own = mediaOf(clip);
    media.insert(media.end(), own.begin(), own.end());
    const testing::Bytes file = testing::joined(
        {testing::makeBox("ftyp", {testing::text("isom")}), testing::makeBox("mdat", {media})});
    const MemorySource damaged(file);
    ClipRecipe sibling = reference("");
    sibling.variant = 2;
    const auto plan = VideoRepair::planRebuild(damaged, FileSource(makeClip(sibling).string()));
    const Track truth = pictureTrack(clip);
    const Track& rebuilt = *plan.movie.videoTrack();
    EXPECT_EQ(rebuilt.samples.size(), truth.samples.size());
    EXPECT_EQ(rebuilt.width, truth.width);
    EXPECT_FALSE(plan.hasOtherSettings);
  }
}

// A torn set in one key picture says nothing, nor does one in pictures that bring none.
TEST_P(CarriedParameterSets, areThoseOfMostKeyPictures) {
  const fs::path clip = makeClip(recipe(":repeat-headers=1"));
  const Track truth = pictureTrack(clip);
  const auto format = *NALFormat::of(truth.sampleEntry, truth.codec);
  Victim victim(clip);
  const auto whole = CarriedSets::of(truth.samples, MemorySource(victim.bytes()), format);
  victim.blank(truth.samples[0].offset + 12, truth.samples[0].offset + 16);
  EXPECT_EQ(CarriedSets::of(truth.samples, MemorySource(victim.bytes()), format), whole);
  const fs::path plain = makeClip(reference(""));
  EXPECT_FALSE(CarriedSets::of(pictureTrack(plain).samples, FileSource(plain.string()), format));
  EXPECT_FALSE(CarriedSets::search(FileSource(plain.string()), 0, format, {}));
}

// What says profile and level in the sample entry is read from the first bytes of a sequence's set.
TEST_P(CarriedParameterSets, areNoneWithOneCutShortAmongThem) {
  const fs::path clip = makeClip(recipe(":repeat-headers=1"));
  const Track truth = pictureTrack(clip);
  const auto format = *NALFormat::of(truth.sampleEntry, truth.codec);
  const Sample key = truth.samples[0];
  const testing::Bytes picture = FileSource(clip.string()).read(key.offset, key.size);
  const auto intact = CarriedSets::search(MemorySource(picture), 0, format, {});
  ASSERT_TRUE(intact);
  const bool isH264 = codec() == NALFormat::Codec::h264;
  const testing::Bytes header = isH264 ? testing::Bytes{0x67} : testing::Bytes{0x42, 0x01};
  for (const std::uint8_t length : {std::uint8_t{2}, std::uint8_t{3}}) {
    SCOPED_TRACE(int{length});
    testing::Bytes unit{0, 0, 0, length};
    unit.insert(unit.end(), header.begin(), header.end());
    unit.resize(4U + length, 0x64);
    unit.insert(unit.end(), picture.begin(), picture.end());
    const MemorySource source(unit);
    SampleList pictures;
    pictures.append({0, static_cast<std::uint32_t>(unit.size()), 1, 0, true});
    EXPECT_FALSE(CarriedSets::of(pictures, source, format));
    EXPECT_EQ(CarriedSets::search(source, 0, format, {}), intact);
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, CarriedParameterSets, ::testing::Values("libx264", "libx265"));

}  // namespace
}  // namespace tallowmark
