// SPDX-License-Identifier: GPL-3.0-or-later
// The walk over stretches that hold no frame, and over sound: the loops that touch every byte.
#include <benchmark/benchmark.h>

#include <array>
#include <map>
#include <memory>
#include <random>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Bitstream/EmulationRule.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Walk/EvidenceWalk.h"
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
  Lessons(const char* codec, const char* audio)
      : clip(testing::makeClip({.codec = codec, .container = "mov", .audio = audio}).string()),
        movie(MovieParser::parse(BoxReader(clip))) {
    const Track& video = *movie.videoTrack();
    evidence = StreamEvidence::learn(video, clip, *NALFormat::of(video.sampleEntry, video.codec));
    sound = SoundLayout::learn(movie, clip);
    blocks = BlockLayout::learn(movie, clip);
  }
  FileSource clip;
  Movie movie;
  std::optional<StreamEvidence> evidence;
  std::optional<SoundLayout> sound;
  std::optional<BlockLayout> blocks;
};

template <typename Layout>
const Layout* orNull(const std::optional<Layout>& layout) {
  return layout ? &*layout : nullptr;
}

/// A stretch between two clips.
class Between final : public ByteSource {
 public:
  Between(const ByteSource& clip, const MemorySource& middle)
      : clip_(clip), middle_(middle), behind_(clip.size() + middle.size()) {}

  std::uint64_t size() const override { return behind_ + clip_.size(); }
  std::string descriptionForReport() const override { return "a stretch between clips"; }

  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    std::size_t done = 0;
    while (done < into.size() && offset + done < size()) {
      const std::uint64_t at = offset + done;
      const auto rest = into.subspan(done);
      const bool inside = at >= clip_.size() && at < behind_;
      const std::uint64_t start = at < clip_.size() ? 0 : inside ? clip_.size() : behind_;
      const ByteSource& from = inside ? static_cast<const ByteSource&>(middle_) : clip_;
      done += from.readInto(at - start, rest);
    }
    return done;
  }

 private:
  const ByteSource& clip_;
  const MemorySource& middle_;
  std::uint64_t behind_;
};

void BM_Resynchronise(benchmark::State& state) {
  static const Lessons h264("libx264", "pcm_s16le");
  static const Lessons hevc("libx265", "pcm_s16le");
  static const Lessons compressed("libx264", "aac");
  static constexpr std::array<const char*, 3> labels{"H.264", "HEVC", "H.264 and AAC"};
  const auto which = static_cast<std::size_t>(state.range(0));
  const Lessons& lessons = which == 0 ? h264 : which == 1 ? hevc : compressed;
  const Between source(lessons.clip, sourceOf(static_cast<Content>(state.range(1))));
  const VideoRepair::WalkLessons walk{&*lessons.evidence,     {},      {}, orNull(lessons.sound),
                                      orNull(lessons.blocks), nullptr, 1,  4U << 20U};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(VideoRepair::walkByEvidence(source, 0, walk).video.size());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stretch));
  static constexpr std::array<const char*, 3> contents{"random", "zeros", "sound"};
  state.SetLabel(std::string(labels.at(which)) + ", " +
                 contents.at(static_cast<std::size_t>(state.range(1))));
}
BENCHMARK(BM_Resynchronise)->ArgsProduct({{0, 1, 2}, {0, 1, 2}})->Unit(benchmark::kMillisecond);

void BM_EmulationRule(benchmark::State& state) {
  const auto& bytes = sourceOf(Content::random).data();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(findForbiddenStretch(std::span(bytes).first(1U << 20U)));
  }
}
BENCHMARK(BM_EmulationRule);

}  // namespace
