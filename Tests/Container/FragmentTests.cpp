// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"

namespace tallowmark {
namespace {

using namespace testing;

Movie parsed(const std::filesystem::path& file) {
  const FileSource source(file);
  return MovieParser::parse(BoxReader(source));
}

// ffprobe's packets of a stream in the terms of samples; the time from each to the next is its
// duration.
std::vector<Sample> packetsOf(const std::filesystem::path& file, const char* stream) {
  std::istringstream lines(
      run({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
           "packet=pts,dts,size,pos,flags", "-of", "csv=p=0", file.string()})
          .output);
  std::vector<Sample> packets;
  std::int64_t before = 0;
  for (std::string line; std::getline(lines, line);) {
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream fields(line);
    std::int64_t shown = 0;
    std::int64_t decoded = 0;
    std::string flags;
    Sample packet;
    fields >> shown >> decoded >> packet.size >> packet.offset >> flags;
    packet.compositionOffset = static_cast<std::int32_t>(shown - decoded);
    packet.isSync = flags.starts_with('K');
    if (!packets.empty()) packets.back().duration = static_cast<std::uint32_t>(decoded - before);
    before = decoded;
    packets.push_back(packet);
  }
  return packets;
}

TEST(Fragments, holdTheSamplesThatPlayersSee) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const auto clip = makeClip({.bFrames = 2, .keyInterval = 10});
  const TemporaryFolder folder;
  for (const char* flags :
       {"frag_keyframe", "frag_keyframe+empty_moov", "frag_every_frame+empty_moov",
        "frag_keyframe+empty_moov+default_base_moof", "frag_keyframe+empty_moov+omit_tfhd_offset",
        "frag_keyframe+delay_moov+separate_moof"}) {
    const auto pieces = folder / "pieces.mp4";
    run({"ffmpeg", "-v", "error", "-y", "-i", clip.string(), "-c", "copy", "-movflags", flags,
         pieces.string()});
    const Movie movie = parsed(pieces);
    const struct {
      const Track* track;
      const char* stream;
      std::uint64_t count;
    } rows[] = {{movie.videoTrack(), "v", 50}, {movie.audioTrack(), "a", 95}};
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(flags) + " " + row.stream);
      ASSERT_NE(row.track, nullptr);
      std::vector<Sample> packets = packetsOf(pieces, row.stream);
      ASSERT_GE(packets.size(), row.count);
      ASSERT_EQ(row.track->samples.size(), packets.size());
      packets.back().duration = row.track->samples.back().duration;
      EXPECT_TRUE(std::equal(packets.begin(), packets.end(), row.track->samples.begin()));
    }
  }
}

Bytes makeFragment(const Bytes& header, std::initializer_list<Bytes> boxes) {
  return makeBox("moof", {makeBox("traf", {header, joined(boxes)})});
}

TEST(Fragments, costNothingWhateverTheyClaim) {
  const Bytes moov = makeBox(
      "moov", {makeTrack("vide", {}),
               makeBox("mvex", {makeTable("trex", 1, {1, 10, 100, 0}), makeBox("trex", {})})});
  const Bytes header = makeFull("tfhd", 0, {u32(1)});
  const auto run = [](std::uint32_t flags, std::uint32_t count, const Bytes& fields) {
    return makeBox("trun", {u32(flags), u32(count), fields});
  };
  const struct {
    const char* label;
    Bytes fragments;
    std::uint64_t samples;
  } rows[] = {
      {"as many alike as the file has bytes",
       makeFragment(header, {run(0, 0xFFFFFFFF, zeros(900))}), 12},
      {"of no size",
       makeFragment(joined({makeBox("tfhd", {u32(0x10), u32(1), u32(0)})}),
                    {run(0, 0xFFFFFFFF, {})}),
       0},
      {"more sizes than there are", makeFragment(header, {run(0x200, 0xFFFFFFFF, zeros(12))}), 3},
      {"no header", makeBox("moof", {makeBox("traf", {run(0, 5, {})})}), 0},
      {"of a track that is not there", makeFragment(makeFull("tfhd", 0, {u32(7)}), {run(0, 5, {})}),
       0},
      {"empty boxes", makeFragment(makeBox("tfhd", {}), {makeBox("trun", {}), makeBox("tfdt", {})}),
       0},
      {"cut short", joined({u32(900), text("moof"), header}), 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const MemorySource source(joined({makeBox("ftyp", {}), moov, row.fragments}));
    EXPECT_EQ(MovieParser::parse(BoxReader(source)).tracks.at(0).samples.size(), row.samples);
  }
}

TEST(Fragments, pausesMakeTheSampleAheadLonger) {
  const Bytes moov = makeBox("moov", {makeTrack("vide", {}), makeBox("mvex", {})});
  const auto fragment = [](std::uint32_t time) {
    return makeFragment(joined({makeBox("tfhd", {u32(0x18), u32(1), u32(10), u32(4)})}),
                        {makeFull("tfdt", 0, {u32(time)}), makeBox("trun", {u32(0), u32(3)})});
  };
  const MemorySource source(
      joined({makeBox("ftyp", {}), moov, fragment(0), fragment(30), fragment(95), fragment(0)}));
  const SampleList samples = MovieParser::parse(BoxReader(source)).tracks.at(0).samples;
  std::vector<std::uint32_t> durations;
  for (const Sample sample : samples) durations.push_back(sample.duration);
  const std::vector<std::uint32_t> expected{10, 10, 10, 10, 10, 45, 10, 10, 10, 10, 10, 10};
  EXPECT_EQ(durations, expected);
}

// A piece of two samples of 50 bytes, 10 ticks each.
struct Piece {
  std::uint32_t number = 0;
  std::uint32_t time = 0;
  std::uint32_t claimed = 2;
  std::uint32_t dataAt = 0;
  std::uint32_t mediaBytes = 100;
};

Bytes makePiece(const Piece& piece) {
  const Bytes table = joined({u32(50), u32(50)});
  const auto moof = [&](std::uint32_t dataAt) {
    return makeBox(
        "moof",
        {makeFull("mfhd", 0, {u32(piece.number)}),
         makeBox("traf", {makeBox("tfhd", {u32(0x20008), u32(1), u32(10)}),
                          makeFull("tfdt", 0, {u32(piece.time)}),
                          makeBox("trun", {u32(0x201), u32(piece.claimed), u32(dataAt), table})})});
  };
  const auto behind = static_cast<std::uint32_t>(moof(0).size() + 8);
  return joined({moof(piece.dataAt == 0 ? behind : piece.dataAt),
                 makeBox("mdat", {Bytes(piece.mediaBytes, 0x55)})});
}

TEST(Fragments, behindDamageAreBelievedOnlyWhereTheyGoOn) {
  const Bytes moov = makeBox("moov", {makeTrack("vide", {}), makeBox("mvex", {})});
  const Bytes start = joined(
      {makeBox("ftyp", {}), moov, makePiece({.number = 1}), makePiece({.number = 2, .time = 20})});
  const Bytes damage = joined({zeros(100), Bytes(500, 0x55)});
  const struct {
    const char* label;
    Bytes behind;
    std::vector<std::uint32_t> durations;
  } rows[] = {
      {"the next but one", makePiece({.number = 4, .time = 60}), {10, 10, 10, 30, 10, 10}},
      {"and those after it",
       joined({makePiece({.number = 4, .time = 60}), makePiece({.number = 5, .time = 80})}),
       {10, 10, 10, 30, 10, 10, 10, 10}},
      {"numbered as one that was", makePiece({.number = 2, .time = 60}), {10, 10, 10, 10}},
      {"before what there is", makePiece({.number = 4, .time = 39}), {10, 10, 10, 10}},
      {"hours later", makePiece({.number = 4, .time = 9'000}), {10, 10, 10, 10}},
      {"of more samples than its table has",
       makePiece({.number = 4, .time = 60, .claimed = 3}),
       {10, 10, 10, 10}},
      {"of samples ahead of its media",
       makePiece({.number = 4, .time = 60, .dataAt = 8}),
       {10, 10, 10, 10}},
      {"of samples behind its media",
       makePiece({.number = 4, .time = 60, .mediaBytes = 99}),
       {10, 10, 10, 10}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const MemorySource source(joined({start, damage, row.behind, zeros(5000)}));
    const Movie movie = MovieParser::parse(BoxReader(source));
    std::vector<std::uint32_t> durations;
    for (const Sample sample : movie.tracks.at(0).samples) durations.push_back(sample.duration);
    EXPECT_EQ(durations, row.durations);
    ASSERT_EQ(movie.lostPieces.size(), 1U);
    EXPECT_EQ(movie.lostPieces[0].from, start.size());
    const bool isBelieved = row.durations.size() > 4;
    EXPECT_EQ(movie.lostPieces[0].to, isBelieved ? start.size() + damage.size() : source.size());
  }
  for (const Bytes& tail : {Bytes{}, zeros(100'000), Bytes(400, 0x55)}) {
    const MemorySource source(joined({start, tail}));
    EXPECT_TRUE(MovieParser::parse(BoxReader(source)).lostPieces.empty()) << tail.size();
  }
}

}  // namespace
}  // namespace tallowmark
