// SPDX-License-Identifier: GPL-3.0-or-later
// The walk over stretches that hold no frame, and over sound: the loops that touch every byte.
#include <benchmark/benchmark.h>

#include <array>
#include <map>
#include <memory>
#include <random>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/EmulationRule.h"
#include "MediaKit/Video/EvidenceWalk.h"
#include "Tests/Support/Clips.h"

namespace {

using namespace tallowmark;

constexpr std::size_t stretch = std::size_t{1} << 30U;

enum class Content : std::int64_t { random, zeros, sound };

const MemorySource& sourceOf(Content content) {
  static std::map<Content, std::unique_ptr<MemorySource>> made;
  auto& source = made[content];
  if (!source) {
    std::vector<std::uint8_t> bytes(stretch);
    std::mt19937_64 random(1);
    // Quiet 16-bit noise: every other byte is 00 or FF.
    for (std::size_t i = 0; content != Content::zeros && i + 8 <= bytes.size(); i += 8) {
      std::uint64_t eight = random();
      for (unsigned k = 0; k < 8; ++k) {
        bytes[i + k] = static_cast<std::uint8_t>(eight >> (8 * k));
        if (content == Content::sound && k % 2 == 1) {
          bytes[i + k] = (bytes[i + k - 1] & 1U) != 0 ? 0xFF : 0x00;
        }
      }
    }
    source = std::make_unique<MemorySource>(std::move(bytes));
  }
  return *source;
}

struct Lessons {
  explicit Lessons(const char* codec)
      : clip(
            testing::makeClip({.codec = codec, .container = "mov", .audio = "pcm_s16le"}).string()),
        movie(MovieParser::parse(BoxReader(clip))) {
    const Track& video = *movie.videoTrack();
    evidence = StreamEvidence::learn(video, clip, *NALFormat::of(video.sampleEntry, video.codec));
    sound = SoundLayout::learn(movie, clip);
  }
  FileSource clip;
  Movie movie;
  std::optional<StreamEvidence> evidence;
  std::optional<SoundLayout> sound;
};

void BM_Resynchronise(benchmark::State& state) {
  static const Lessons h264("libx264");
  static const Lessons hevc("libx265");
  const Lessons& lessons = state.range(0) == 0 ? h264 : hevc;
  const MemorySource& source = sourceOf(static_cast<Content>(state.range(1)));
  const VideoRepair::WalkLessons walk{&*lessons.evidence, {}, &*lessons.sound, nullptr, 1,
                                      4U << 20U};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(VideoRepair::walkByEvidence(source, 0, walk).unused);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stretch));
  static constexpr std::array<const char*, 3> contents{"random", "zeros", "sound"};
  state.SetLabel(std::string(state.range(0) == 0 ? "H.264, " : "HEVC, ") +
                 contents.at(static_cast<std::size_t>(state.range(1))));
}
BENCHMARK(BM_Resynchronise)->ArgsProduct({{0, 1}, {0, 1, 2}})->Unit(benchmark::kMillisecond);

void BM_EmulationRule(benchmark::State& state) {
  const auto& bytes = sourceOf(Content::random).data();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(findForbiddenStretch(std::span(bytes).first(1U << 20U)));
  }
}
BENCHMARK(BM_EmulationRule);

}  // namespace
