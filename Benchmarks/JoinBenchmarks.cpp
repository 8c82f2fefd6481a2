// SPDX-License-Identifier: GPL-3.0-or-later
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include "MediaKit/Container/BoxWriter.h"
#include "MediaKit/Join/ClipJoin.h"
#include "MediaKit/Join/JoinPlan.h"

namespace tallowmark::ClipJoin {
namespace {

constexpr std::uint64_t framesPerHour = 107'892;

Track track(std::uint32_t id, Track::Kind kind, const char* codec, std::uint32_t timescale) {
  BoxWriter entry;
  entry.box(codec, [](BoxWriter& box) { box.zeros(78); });
  Track made;
  made.trackID = id;
  made.kind = kind;
  made.codec = codec;
  made.sampleEntry = entry.take();
  made.timescale = timescale;
  return made;
}

// An hour of 30 frames a second, each of another size, its PCM sound interleaved frame by frame,
// and telemetry once a second: the layout with the most runs that cameras write.
Part hour() {
  Part part;
  Track video = track(1, Track::Kind::video, "avc1", 30000);
  Track sound = track(2, Track::Kind::audio, "sowt", 48000);
  Track telemetry = track(3, Track::Kind::other, "gpmd", 1000);
  std::uint64_t offset = 4096;
  for (std::uint64_t frame = 0; frame < framesPerHour; ++frame) {
    const auto size = static_cast<std::uint32_t>(20'000 + frame * 7919 % 30'011);
    video.samples.append({offset, size, 1001, 0, frame % 15 == 0});
    offset += size;
    const std::uint64_t sounds = frame % 5 < 3 ? 1602 : 1601;
    sound.samples.append({offset, 4, 1, 0, true}, sounds);
    offset += sounds * 4;
    if (frame % 30 == 0) {
      telemetry.samples.append(
          {offset, static_cast<std::uint32_t>(3000 + frame % 97), 1001, 0, true});
      offset += 4000;
    }
  }
  part.movie.tracks = {std::move(video), std::move(sound), std::move(telemetry)};
  return part;
}

double peakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

void BM_PlanThirtyHours(benchmark::State& state) {
  const std::vector<Part> parts(30, hour());
  while (state.KeepRunning()) {
    const Plan joined = plan(parts);
    benchmark::DoNotOptimize(joined.movie.tracks.data());
  }
  state.counters["peakMB"] = peakMegabytes();
}
BENCHMARK(BM_PlanThirtyHours)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_SummaryThirtyHours(benchmark::State& state) {
  const std::vector<Part> parts(30, hour());
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(summary(parts).bytes);
  }
}
BENCHMARK(BM_SummaryThirtyHours)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tallowmark::ClipJoin
