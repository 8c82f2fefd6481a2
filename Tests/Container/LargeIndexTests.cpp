// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>

#include "MediaKit/Container/BoxWriter.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/MovieWriter.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark {
namespace {

using namespace testing;

constexpr std::uint32_t frames = 216'000;     // an hour at 60 fps
constexpr std::uint32_t soundPerFrame = 800;  // 48 kHz
constexpr std::uint32_t soundSize = 4;        // 16 bit stereo
constexpr std::uint64_t stride = 100'000;     // a frame and its sound

Bytes sizesOf(std::uint32_t count) {
  BoxWriter writer;
  writer.full("stsz", 0, 0, [&](BoxWriter& box) {
    box.u32(0);
    box.u32(count);
    for (std::uint32_t i = 0; i < count; ++i) box.u32(50'000 + i % 1000);
  });
  return writer.take();
}

Bytes chunksFrom(std::uint64_t first) {
  BoxWriter writer;
  writer.full("co64", 0, 0, [&](BoxWriter& box) {
    box.u32(frames);
    for (std::uint64_t i = 0; i < frames; ++i) box.u64(first + i * stride);
  });
  return writer.take();
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TALLOWMARK_SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define TALLOWMARK_SANITIZED
#endif

#ifdef TALLOWMARK_SANITIZED
constexpr long mostMegabytes = 600;  // the sanitizer keeps books of its own
#else
constexpr long mostMegabytes = 150;
#endif

long peakKilobytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST(LargeIndexes, ofAnHourWithPcmSoundStaySmallAndQuick) {
  const Bytes moov = makeBox(
      "moov",
      {makeTrack("vide", {makeTable("stts", 1, {frames, 1}), sizesOf(frames),
                          makeTable("stsc", 1, {1, 1, 1}), chunksFrom(1000)}),
       makeTrack("soun", {makeTable("stts", 1, {frames * soundPerFrame, 1}),
                          makeTable("stsz", soundSize, {frames * soundPerFrame}),
                          makeTable("stsc", 1, {1, soundPerFrame, 1}), chunksFrom(60'000)})});
  const MemorySource source(joined({makeBox("ftyp", {}), moov}));
  const auto start = std::chrono::steady_clock::now();
  Movie movie = MovieParser::parse(BoxReader(source));
  EXPECT_EQ(movie.tracks[1].samples.size(), 172'800'000U);
  for (Track& track : movie.tracks) track.samples = track.samples.endingBy(frames / 2 * stride);
  EXPECT_EQ(movie.tracks[0].samples.size(), frames / 2);
  EXPECT_EQ(movie.tracks[1].samples.size(), 86'400'000U);
  const MemorySource again(joined({makeBox("ftyp", {}), MovieWriter::moov(movie)}));
  EXPECT_EQ(MovieParser::parse(BoxReader(again)).tracks[1].samples, movie.tracks[1].samples);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_LT(peakKilobytes(), mostMegabytes * 1024);
}

}  // namespace
}  // namespace tallowmark
