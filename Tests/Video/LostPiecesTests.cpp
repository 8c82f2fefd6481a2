// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Clusters.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

// A clip of a piece a second.
Bytes inPieces(const ClipRecipe& recipe, const char* flags, const TemporaryFolder& folder) {
  const fs::path pieces = folder / ("pieces." + recipe.container);
  run({"ffmpeg", "-v", "error", "-y", "-i", makeClip(recipe).string(), "-c", "copy", "-movflags",
       flags, pieces.string()});
  return contentsOf(pieces);
}

std::vector<Box> boxesOf(const Bytes& file, const char* type) {
  const MemorySource source(file);
  std::vector<Box> boxes = BoxReader(source).children(0, file.size());
  std::erase_if(boxes, [&](const Box& box) { return box.type != FourCC(type); });
  return boxes;
}

Bytes overwritten(Bytes file, std::uint64_t from, std::uint64_t to, bool noise) {
  std::mt19937 random(3);
  for (std::uint64_t at = from; at < to; ++at) {
    file[at] = noise ? static_cast<std::uint8_t>(random()) : std::uint8_t{0};
  }
  return file;
}

// What is shown when, with the bytes of each sample.
std::vector<std::string> shown(const ByteSource& source, Track::Kind kind) {
  const Movie movie = MovieParser::parse(BoxReader(source));
  const Track* track = kind == Track::Kind::video ? movie.videoTrack() : movie.audioTrack();
  std::vector<std::string> samples;
  std::uint64_t time = 0;
  for (const Sample sample : track->samples) {
    const Bytes bytes = source.read(sample.offset, sample.size);
    samples.push_back(std::to_string(time) + " " + std::to_string(sample.compositionOffset) +
                      (sample.isSync ? " key " : " ") + std::string(bytes.begin(), bytes.end()));
    time += sample.duration;
  }
  return samples;
}

TEST(LostPieces, comeBackByWhatTheOthersTeach) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const struct {
    const char* codec;
    const char* flags;
  } kinds[] = {{"libx264", "frag_keyframe+empty_moov"},
               {"libx265", "frag_keyframe+default_base_moof"}};
  for (const auto& [codec, flags] : kinds) {
    const Bytes clip = inPieces({.codec = codec, .bFrames = 2, .seconds = 4}, flags, folder);
    const std::vector<Box> indexes = boxesOf(clip, "moof");
    const Box index = indexes[1];
    const Box last = indexes.back();
    const struct {
      const char* label;
      Bytes file;
    } rows[] = {
        {"index zeroed", overwritten(clip, index.offset, index.end(), false)},
        {"index overwritten", overwritten(clip, index.offset, index.end(), true)},
        {"half of its table zeroed",
         overwritten(clip, index.offset + index.size / 2, index.end(), false)},
        {"half of its table overwritten",
         overwritten(clip, index.offset + index.size / 2, index.end() - 4, true)},
        {"header of its media zeroed", overwritten(clip, index.end(), index.end() + 8, false)},
        {"size of its media overwritten", overwritten(clip, index.end(), index.end() + 4, true)},
        {"last index zeroed", overwritten(clip, last.offset, last.end(), false)},
        {"header of the last media zeroed", overwritten(clip, last.end(), last.end() + 8, false)},
    };
    const MemorySource whole(clip);
    EXPECT_EQ(VideoRepair::diagnose(whole), VideoRepair::Diagnosis(VideoRepair::Healthy{}));
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(codec) + " " + flags + ": " + row.label);
      const MemorySource source(row.file);
      EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::Truncated{0}));
      const fs::path path = folder / "copy.mp4";
      {
        FileSink sink(path.string());
        (void)VideoRepair::repair(source, nullptr, sink);
      }
      const FileSource copy(path.string());
      for (const auto kind : {Track::Kind::video, Track::Kind::audio}) {
        EXPECT_TRUE(shown(copy, kind) == shown(whole, kind)) << static_cast<int>(kind);
      }
    }
  }
}

// An index without a picture plays nothing, wherever the file was cut; what media follows is found
// by what a good clip teaches.
TEST(LostPieces, leaveNothingThatPlaysWhereNoPieceIsWhole) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const Bytes clip = inPieces({.seconds = 2}, "frag_keyframe+empty_moov", folder);
  const MemorySource whole(clip);
  const Box first = boxesOf(clip, "moof").front();
  for (const std::uint64_t end :
       {first.offset, first.offset + 20, first.end() + 8, first.end() + 20'000}) {
    SCOPED_TRACE(end - first.offset);
    Bytes file(clip.begin(), clip.begin() + placeOf(end));
    if (end > first.end()) file = overwritten(std::move(file), first.offset, first.end(), false);
    const MemorySource source(file);
    EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::MissingIndex{}));
    if (end > first.end() + 8) {
      EXPECT_GT(VideoRepair::planRebuild(source, whole).result.videoFrames, 5U);
    }
  }
}

TEST(LostPieces, leaveTheRestInStep) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const Bytes clip = inPieces({.seconds = 4}, "frag_keyframe+empty_moov", folder);
  const Box index = boxesOf(clip, "moof")[1];
  // The pictures that stand ahead of the sound go with the index.
  const std::uint64_t end = index.end() + boxesOf(clip, "mdat")[1].size / 2;
  const MemorySource source(overwritten(clip, index.offset, end, false));
  const fs::path path = folder / "copy.mp4";
  {
    FileSink sink(path.string());
    (void)VideoRepair::repair(source, nullptr, sink);
  }
  const FileSource copy(path.string());
  const MemorySource whole(clip);
  const auto pictures = shown(whole, Track::Kind::video);
  const auto kept = shown(copy, Track::Kind::video);
  EXPECT_LT(kept.size(), pictures.size());
  for (const auto& [all, some] :
       {std::pair(pictures, kept),
        std::pair(shown(whole, Track::Kind::audio), shown(copy, Track::Kind::audio))}) {
    for (const std::string& sample : some) {
      EXPECT_TRUE(std::find(all.begin(), all.end(), sample) != all.end());
    }
  }
}

// Of a clip's samples, how many a copy does not have at their time, and the other way round.
struct Differences {
  std::size_t missing = 0;
  std::size_t foreign = 0;
};

Differences differences(const std::vector<std::string>& all, const std::vector<std::string>& some) {
  Differences found;
  const auto lacks = [](const auto& samples, const std::string& sample) {
    return std::find(samples.begin(), samples.end(), sample) == samples.end();
  };
  for (const std::string& sample : all) found.missing += lacks(some, sample) ? 1U : 0U;
  for (const std::string& sample : some) found.foreign += lacks(all, sample) ? 1U : 0U;
  return found;
}

// Players take every packet of PCM for as long as its bytes.
TEST(LostPieces, ofPCMAreSilent) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  for (const char* audio : {"pcm_s16le", "pcm_s24be", "pcm_alaw"}) {
    SCOPED_TRACE(audio);
    const ClipRecipe recipe{.container = "mov", .audio = audio, .bFrames = 2, .seconds = 4};
    const Bytes clip = inPieces(recipe, "frag_keyframe+empty_moov+default_base_moof", folder);
    const MemorySource whole(clip);
    // The piece's sound is lost with it, and that of the one behind with its media.
    const Box index = boxesOf(clip, "moof")[1];
    const Bytes damaged = overwritten(clip, index.offset, boxesOf(clip, "mdat")[1].end(), false);
    const MemorySource source(damaged);
    const fs::path path = folder / "copy.mov";
    {
      FileSink sink(path.string());
      (void)VideoRepair::repair(source, nullptr, sink);
    }
    const FileSource copy(path.string());
    const Movie movie = MovieParser::parse(BoxReader(copy));
    const Movie known = MovieParser::parse(BoxReader(whole));
    const Track& sound = *movie.audioTrack();
    const Sample usual = known.audioTrack()->samples[2];
    std::uint64_t silent = 0;
    for (const Sample sample : sound.samples.slice(1, sound.samples.size())) {
      EXPECT_EQ(sample.duration * usual.size, sample.size * usual.duration);
      const Bytes bytes = copy.read(sample.offset, sample.size);
      silent +=
          std::set<std::uint8_t>(bytes.begin(), bytes.end()).size() == 1 ? sample.duration : 0;
    }
    EXPECT_NEAR(static_cast<double>(silent) / sound.timescale, 1, 0.1);
    EXPECT_EQ(sound.duration(), known.audioTrack()->duration());
    const Differences differing =
        differences(shown(whole, Track::Kind::audio), shown(copy, Track::Kind::audio));
    EXPECT_LE(differing.missing, 50U);
  }
}

// In the order in which they are shown, and no later than they were.
TEST(LostPieces, keepTheTimeOfPicturesOutOfOrder) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  for (const char* codec : {"libx264", "libx265"}) {
    for (const char* audio : {"aac", ""}) {
      SCOPED_TRACE(std::string(codec) + ' ' + audio);
      const ClipRecipe recipe{.codec = codec,
                              .audio = audio,
                              .bFrames = 3,
                              .seconds = 8,
                              .framesPerSecond = 30,
                              .keyInterval = 30};
      const Bytes clip = inPieces(recipe, "frag_keyframe+empty_moov", folder);
      const MemorySource whole(clip);
      const Box torn = boxesOf(clip, "mdat")[4];
      const MemorySource source(overwritten(clip, boxesOf(clip, "moof")[3].offset,
                                            torn.payloadOffset() + torn.size / 5, true));
      const fs::path path = folder / "copy.mp4";
      {
        FileSink sink(path.string());
        (void)VideoRepair::repair(source, nullptr, sink);
      }
      const Differences pictures = differences(
          shown(whole, Track::Kind::video), shown(FileSource(path.string()), Track::Kind::video));
      EXPECT_LE(pictures.missing, 45U);
      // Those whose reference is lost, and one that is torn.
      EXPECT_LE(pictures.foreign, 4U);
    }
  }
}

// When a sample is shown or heard, in seconds, by all that the index says.
double timeOf(std::uint64_t number, const Track& track, const Movie& movie) {
  const auto decoded = static_cast<double>(track.samples.slice(0, number).duration());
  const auto ahead = static_cast<double>(track.mediaStart);
  return (decoded + track.samples[number].compositionOffset - ahead) / track.timescale +
         static_cast<double>(track.startDelay) / movie.timescale;
}

std::uint64_t numberOf(const Bytes& bytes, const Track& track, const ByteSource& clip) {
  std::uint64_t number = 0;
  while (number + 1 < track.samples.size() &&
         clip.read(track.samples[number].offset, track.samples[number].size) != bytes) {
    ++number;
  }
  return number;
}

// Where an edit list begins ahead of the first picture some players show that at once.
TEST(LostPieces, keepTheFirstPictureThatIsLeftInStep) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const ClipRecipe recipe{.bFrames = 2, .seconds = 8, .sound = livelySound(2, 48000)};
  const Bytes clip = inPieces(recipe, "frag_keyframe+empty_moov", folder);
  const MemorySource whole(clip);
  // The key picture of the third piece is blank, too; its sound is left.
  Bytes blank = clip;
  for (std::size_t piece = 0; piece < 3; ++piece) {
    const Box media = boxesOf(clip, "mdat").at(piece);
    const std::uint64_t end = piece < 2 ? media.end() : media.payloadOffset() + media.size / 2;
    blank = overwritten(std::move(blank), media.payloadOffset(), end, false);
  }
  const MemorySource source(blank);
  const fs::path path = folder / "copy.mp4";
  {
    FileSink sink(path.string());
    (void)VideoRepair::repair(source, nullptr, sink);
  }
  const FileSource copy(path.string());
  const Movie left = MovieParser::parse(BoxReader(copy));
  const Movie all = MovieParser::parse(BoxReader(whole));
  const auto late = [&](const Track* kept, const Track* known) {
    const Sample first = kept->samples[0];
    const std::uint64_t number = numberOf(copy.read(first.offset, first.size), *known, whole);
    return timeOf(number, *known, all) - timeOf(0, *kept, left);
  };
  const Track& pictures = *left.videoTrack();
  EXPECT_NEAR(late(&pictures, all.videoTrack()), late(left.audioTrack(), all.audioTrack()), 0.002);
  ASSERT_GT(pictures.startDelay, 0U);
  EXPECT_EQ(pictures.mediaStart, pictures.samples[0].compositionOffset);
}

// A card loses clusters of a file, or another's come in: what follows in the piece, and all pieces
// that say where they are in the file, have moved.
TEST(LostPieces, loseOnlyWhatIsTorn) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  constexpr std::size_t lost = 8192;
  const auto without = [](const Bytes& file, std::size_t at) {
    return withoutCluster(file, at, lost);
  };
  const TemporaryFolder folder;
  for (const char* flags : {"frag_keyframe+empty_moov", "frag_keyframe+default_base_moof"}) {
    const ClipRecipe recipe{.bFrames = 2, .seconds = 8, .settings = ":crf=12"};
    const Bytes clip = inPieces(recipe, flags, folder);
    const std::vector<Box> indexes = boxesOf(clip, "moof");
    const std::vector<Box> media = boxesOf(clip, "mdat");
    const std::size_t third = media[2].offset + media[2].size / 4;
    const std::size_t soundOfThird = media[2].end() - lost - 2000;
    const std::size_t sixth = media[5].offset + media[5].size / 3;
    const std::size_t last = media.back().offset + media.back().size / 4;
    const std::size_t nextIndex = indexes[3].offset - 2000;
    // Pictures and blocks of sound that the cluster holds, or a part of; silence takes the time of
    // the latter.
    const struct {
      const char* label;
      Bytes file;
      std::size_t pictures;
      std::size_t blocks;
      std::size_t torn = 1;
    } rows[] = {
        {"one missing", without(clip, third), 8, 0},
        {"sound missing", without(clip, soundOfThird), 1, 47},
        {"two missing", without(without(clip, sixth), third), 16, 0, 2},
        {"missing with the next index", without(clip, nextIndex), 12, 24},
        {"one put in", withForeignCluster(clip, third, lost), 1, 0},
        {"missing in the last", without(clip, last), 8, 0},
        {"put in to the last", withForeignCluster(clip, last, lost), 1, 0},
    };
    const MemorySource whole(clip);
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(flags) + ": " + row.label);
      const MemorySource source(row.file);
      EXPECT_TRUE(std::holds_alternative<VideoRepair::Truncated>(VideoRepair::diagnose(source)));
      const fs::path path = folder / "copy.mp4";
      {
        FileSink sink(path.string());
        const auto result = VideoRepair::repair(source, nullptr, sink);
        EXPECT_LE(result.unusedBytes, 2 * lost + 4000);
      }
      const FileSource copy(path.string());
      const Differences pictures =
          differences(shown(whole, Track::Kind::video), shown(copy, Track::Kind::video));
      const Differences sound =
          differences(shown(whole, Track::Kind::audio), shown(copy, Track::Kind::audio));
      EXPECT_LE(pictures.missing, row.pictures);
      EXPECT_LE(pictures.foreign, row.torn);
      EXPECT_LE(sound.missing, row.blocks);
      EXPECT_LE(sound.foreign, row.blocks + 1);
    }
  }
}

// Behind a place, each fragment says in turn that its samples are at the end of all numbers, in
// their middle and at their start.
Bytes withWildPlaces(Bytes file, std::size_t from) {
  constexpr std::uint64_t places[] = {~std::uint64_t{0}, std::uint64_t{1} << 63U, 0};
  const MemorySource source(file);
  const BoxReader reader(source);
  std::size_t count = 0;
  for (const Box& moof : boxesOf(file, "moof")) {
    if (moof.offset < from) continue;
    const std::uint64_t place = places[count++ % std::size(places)];
    for (const Box& traf : reader.children(moof)) {
      if (traf.type != FourCC("traf")) continue;
      const std::size_t field = reader.child(traf, "tfhd")->payloadOffset() + 8;
      for (std::size_t i = 0; i < 8; ++i) {
        file[field + i] = static_cast<std::uint8_t>(place >> (56 - 8 * i));
      }
    }
  }
  return file;
}

TEST(LostPieces, standWhereTheirMediaIsWhateverTheySay) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const Bytes clip = inPieces({.seconds = 6}, "frag_keyframe+empty_moov", folder);
  const std::vector<Box> indexes = boxesOf(clip, "moof");
  const Bytes wild = withWildPlaces(clip, indexes[2].offset);
  const MemorySource source(overwritten(wild, indexes[1].offset, indexes[1].end(), false));
  const MemorySource whole(clip);
  const fs::path path = folder / "copy.mp4";
  {
    FileSink sink(path.string());
    (void)VideoRepair::repair(source, nullptr, sink);
  }
  const FileSource copy(path.string());
  for (const auto kind : {Track::Kind::video, Track::Kind::audio}) {
    EXPECT_TRUE(shown(copy, kind) == shown(whole, kind)) << static_cast<int>(kind);
  }
}

TEST(LostPieces, allOfThemNeedAReference) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  Bytes clip = inPieces({}, "frag_keyframe+empty_moov", folder);
  for (const Box& index : boxesOf(clip, "moof")) {
    clip = overwritten(clip, index.offset, index.end(), false);
  }
  const MemorySource source(clip);
  EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::MissingIndex{}));
  const FileSource reference(makeClip({.variant = 1}).string());
  FileSink sink((folder / "copy.mp4").string());
  EXPECT_EQ(VideoRepair::repair(source, &reference, sink).videoFrames, 50U);
}

// Some cameras put records of their own there.
TEST(LostPieces, areNotSeenBehindAClipInOnePiece) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const MemorySource source(joined({contentsOf(makeClip({})), Bytes(100'000, 0x55)}));
  EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::Healthy{}));
}

}  // namespace
}  // namespace tallowmark::testing
