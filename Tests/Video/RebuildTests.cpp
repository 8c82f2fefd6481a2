// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Clusters.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::ClipRecipe;
using testing::joined;
using testing::makeBox;
using testing::makeClip;
using testing::u32;
using testing::zeros;

class Rebuild : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
    clip_ = makeClip({.container = "mov", .audio = "pcm_s16le"});
  }

  VideoRepair::Result rebuild(const Bytes& damaged, const std::filesystem::path& reference,
                              const StopToken& stop = {}) {
    const MemorySource source(damaged);
    const FileSource teacher(reference.string());
    FileSink sink(copy().string());
    return VideoRepair::repair(source, &teacher, sink, {}, stop);
  }
  Movie written() const { return MovieParser::parse(BoxReader(FileSource(copy().string()))); }
  std::filesystem::path copy() const { return folder_ / "copy.mov"; }

  /// The clip's file type, and its media without any header.
  Bytes fileType() const {
    const Bytes whole = testing::contentsOf(clip_);
    const MemorySource source(whole);
    return BoxReader(source).whole(*MovieParser::layout(BoxReader(source)).ftyp);
  }
  Bytes media() const {
    const FileSource source(clip_.string());
    const BoxReader reader(source);
    return reader.payload(MovieParser::layout(reader).mdats.front());
  }

  testing::TemporaryFolder folder_;
  std::filesystem::path clip_;
};

TEST_F(Rebuild, mediaIsFoundHoweverItsBoxIsWritten) {
  const Bytes type = fileType();
  const Bytes data = media();
  const Bytes name = testing::text("mdat");
  const auto size = static_cast<std::uint32_t>(data.size() + 8);
  const std::size_t half = data.size() / 2;
  const Bytes front(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(half));
  const Bytes back(data.begin() + static_cast<std::ptrdiff_t>(half), data.end());
  const struct {
    const char* label;
    Bytes file;
    std::uint64_t framesLost;
  } rows[] = {
      {"trueSize", joined({type, u32(size), name, data}), 0},
      {"sizeZero", joined({type, u32(0), name, data}), 0},
      {"sizeNeverWritten", joined({type, u32(5), name, data}), 0},
      {"headerNeverWritten", joined({type, zeros(8), data}), 0},
      {"sizeTooLarge", joined({type, u32(size + 5000), name, data}), 0},
      {"sizeTooSmall", joined({type, u32(size / 2), name, data}), 0},
      {"othersAhead",
       joined({type, makeBox("wide", {}), makeBox("free", {zeros(500)}), u32(size), name, data}),
       0},
      {"preallocated", joined({type, u32(0), name, data, zeros(40U << 20U)}), 0},
      {"twoBoxes", joined({type, makeBox("mdat", {front}), makeBox("mdat", {back})}), 1},
  };
  for (const auto& row : rows) {
    const VideoRepair::Result result = rebuild(row.file, clip_);
    EXPECT_GE(result.videoFrames + row.framesLost, 50U) << row.label;
    EXPECT_LE(result.videoFrames, 50U) << row.label;
    EXPECT_FALSE(result.audioDropped) << row.label;
  }
}

TEST_F(Rebuild, theCopyPlays) {
  for (const ClipRecipe& recipe :
       {ClipRecipe{.container = "mov", .audio = "pcm_s16le"}, ClipRecipe{.audio = "aac"},
        ClipRecipe{.codec = "libx265", .container = "mov", .audio = "pcm_s24be", .slices = 4}}) {
    const auto clip = makeClip(recipe);
    rebuild(testing::withoutIndex(testing::contentsOf(clip)), clip);
    EXPECT_EQ(testing::decodingComplaints(copy()), "") << recipe.codec << recipe.audio;
  }
}

// Its parameter sets tell a decoder to hold no picture back.
TEST_F(Rebuild, theCopyShowsItsPicturesInOrderByAReferenceWithoutBFrames) {
  const auto clip = makeClip({.codec = "libx265", .audio = "", .bFrames = 3});
  rebuild(testing::withoutIndex(testing::contentsOf(clip)),
          makeClip({.codec = "libx265", .audio = ""}));
  EXPECT_EQ(testing::decodingComplaints(copy()), "");
  EXPECT_EQ(testing::decodedPictures(copy()), testing::decodedPictures(clip));
}

TEST_F(Rebuild, failuresAreSentences) {
  const Bytes damaged = testing::withoutIndex(testing::contentsOf(clip_));
  const auto otherCodec = makeClip({.codec = "libx265", .container = "mov"});
  const auto motionJPEG = makeClip({.codec = "mjpeg", .container = "mov"});
  const auto soundOnly = folder_ / "sound.mov";
  {
    Movie movie = MovieParser::parse(BoxReader(FileSource(clip_.string())));
    movie.tracks.erase(movie.tracks.begin());
    FileSink sink(soundOnly.string());
    MovieWriter::write(movie, FileSource(clip_.string()), {0, 0}, sink);
  }
  const struct {
    const char* label;
    Bytes file;
    std::filesystem::path reference;
    const char* sentence;
  } rows[] = {
      {"otherCodec", damaged, otherCodec, "No video could be found in this file."},
      {"motionJPEG", damaged, motionJPEG,
       "Repair supports H.264 and HEVC video. The reference clip uses jpeg."},
      {"noPictures", damaged, soundOnly, "The reference clip has no video."},
      {"noMedia", fileType(), clip_,
       "The video file is damaged in a way Repair can't handle: no media data (mdat) was found"},
      {"noise", joined({fileType(), makeBox("mdat", {Bytes(100'000, 0x5A)})}), clip_,
       "No video could be found in this file."},
      {"noMovie", Bytes(100'000, 0x5A), clip_, "This doesn't look like an MP4 or MOV video file."},
  };
  for (const auto& row : rows) {
    try {
      rebuild(row.file, row.reference);
      ADD_FAILURE() << row.label << " was rebuilt";
    } catch (const MediaError& error) {
      EXPECT_STREQ(error.what(), row.sentence) << row.label;
    }
  }
  const MemorySource source(damaged);
  FileSink sink(copy().string());
  EXPECT_THROW(VideoRepair::repair(source, nullptr, sink), MediaError);
}

TEST_F(Rebuild, endsSoonWhenAsked) {
  StopSource stop;
  stop.requestStop();
  EXPECT_THROW(rebuild(testing::withoutIndex(testing::contentsOf(clip_)), clip_, stop.token()),
               Stopped);
}

// The camera's name and the rotation come from the reference; its date and place do not.
TEST_F(Rebuild, looksAsTheCameraRecords) {
  constexpr TransformationMatrix quarterTurn{0, 0x10000, 0, 0xFFFF0000, 0, 0, 0, 0, 0x40000000};
  const FourCC model(0xA96D6F64U);
  const FourCC place(0xA978797AU);
  const FileSource original(clip_.string());
  Movie movie = MovieParser::parse(BoxReader(original));
  movie.creationTime = 3'700'000'000;
  movie.tracks.front().matrix = quarterTurn;
  // Refers to a timecode track that a rebuild does not bring back.
  movie.tracks.front().extraBoxes = {makeBox("tref", {makeBox("tmcd", {u32(3)})})};
  const Bytes modelItem = makeBox(model, {testing::text("Camera")});
  const Bytes placeItem = makeBox(place, {testing::text("+46.5+007.9/")});
  movie.userData = makeBox(
      "udta",
      {modelItem, placeItem, makeBox("meta", {u32(0), makeBox("ilst", {modelItem, placeItem})})});
  const auto reference = folder_ / "reference.mov";
  {
    const Box media = MovieParser::layout(BoxReader(original)).mdats.front();
    FileSink sink(reference.string());
    MovieWriter::write(movie, original, {media.payloadOffset(), media.end()}, sink);
  }
  rebuild(testing::withoutIndex(testing::contentsOf(reference)), reference);
  const Movie rebuilt = written();
  EXPECT_EQ(rebuilt.tracks.front().matrix, quarterTurn);
  EXPECT_EQ(rebuilt.creationTime, 0U);
  EXPECT_TRUE(rebuilt.tracks.front().extraBoxes.empty());
  EXPECT_EQ(rebuilt.userData,
            makeBox("udta", {modelItem, makeBox("meta", {u32(0), makeBox("ilst", {modelItem})})}));

  rebuild(testing::contentsOf(reference), reference);
  const Movie copied = written();
  EXPECT_EQ(copied.tracks.front().matrix, quarterTurn);
  EXPECT_EQ(copied.creationTime, movie.creationTime);
  EXPECT_EQ(copied.userData, movie.userData);
}

// Delimiters, messages and parameter sets come ahead of pictures in some files of a stream and not
// in others: another program wrote the reference.
TEST_F(Rebuild, findsPicturesThatAreFramedUnlikeTheReferences) {
  const auto framed = [](const char* codec, const char* settings, int variant) {
    return makeClip({.codec = codec, .seconds = 4, .settings = settings, .variant = variant});
  };
  for (const char* codec : {"libx264", "libx265"}) {
    const char* const plain = "";
    for (const char* settings : {":aud=1", ":aud=1:repeat-headers=1", ":repeat-headers=1"}) {
      for (const bool isReference : {true, false}) {
        SCOPED_TRACE(std::string(codec) + settings + (isReference ? " of the reference" : ""));
        const testing::Victim victim(framed(codec, isReference ? plain : settings, 1));
        const auto compared =
            testing::rebuildAndCompare(victim, framed(codec, isReference ? settings : plain, 0));
        EXPECT_EQ(compared.exact, compared.frames);
        EXPECT_EQ(compared.invented, 0U);
        EXPECT_EQ(compared.blocksExact, compared.blocks);
      }
    }
  }
}

// Loud sound reads as a small picture now and then; the stretch that it stands in is as long as the
// reference's, and leads to a picture that counts on.
TEST_F(Rebuild, takesNoiseForSoundWhereAPictureIsDueBehindIt) {
  for (int seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const auto clip =
        makeClip({.container = "mov",
                  .audio = "pcm_s16be",
                  .bFrames = 2,
                  .seconds = 8,
                  .keyInterval = 12,
                  .sound = "anoisesrc=c=pink:a=0.3:r=48000:seed=" + std::to_string(seed) +
                           ",tremolo=f=3:d=0.9",
                  .channels = 2});
    const auto compared = testing::rebuildAndCompare(testing::Victim(clip), clip);
    EXPECT_EQ(compared.exact, compared.frames);
    EXPECT_EQ(compared.invented, 0U);
    EXPECT_EQ(compared.soundRight, compared.sound);
  }
}

// What a camera had set aside and never wrote to is no sound, however long it is.
TEST_F(Rebuild, endsWhereSpaceThatWasSetAsideBegins) {
  const testing::TemporaryFolder folder;
  const auto clip = folder / "clip.mov";
  testing::storeInChunks(
      makeClip({.container = "mov", .audio = "pcm_s16le", .seconds = 8, .framesPerSecond = 25}),
      0.5, clip);
  const FileSource reference(clip.string());
  const testing::Bytes whole = testing::withoutIndex(testing::contentsOf(clip));
  for (const std::uint8_t unwritten : {std::uint8_t{0}, std::uint8_t{0xFF}}) {
    testing::Bytes bytes(whole.begin(), whole.begin() + testing::placeOf(whole.size() * 3 / 5));
    bytes.resize(bytes.size() + 2'000'000, unwritten);
    const MemorySource source(bytes);
    const auto plan = VideoRepair::planRebuild(source, reference);
    EXPECT_GT(plan.result.videoFrames, 100U);
    EXPECT_LT(plan.result.seconds, static_cast<double>(plan.result.videoFrames) / 25 + 0.6)
        << int{unwritten};
  }
}

}  // namespace
}  // namespace tallowmark
