// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <limits>
#include <utility>

#include "MediaKit/Container/SampleTable.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t largestChunk = 4096;

std::uint32_t checkedCount(std::uint64_t count) {
  if (count > std::numeric_limits<std::uint32_t>::max()) {
    throw MediaError::malformed("it has more samples than an index can hold");
  }
  return static_cast<std::uint32_t>(count);
}

using RunLengths = std::vector<std::pair<std::uint64_t, std::uint32_t>>;

// Consecutive samples with an equal field become one (count, value) entry.
template <typename Field>
RunLengths runLengths(const SampleList& samples, Field field) {
  RunLengths entries;
  for (const SampleRun& run : samples.runs()) {
    const auto value = static_cast<std::uint32_t>(field(run.first));
    if (!entries.empty() && entries.back().second == value) {
      entries.back().first += run.count;
    } else {
      entries.emplace_back(run.count, value);
    }
  }
  return entries;
}

void writeRunLengths(FourCC type, std::uint8_t version, const RunLengths& entries,
                     BoxWriter& writer) {
  writer.full(type, version, 0, [&](BoxWriter& box) {
    box.u32(checkedCount(entries.size()));
    for (const auto& [count, value] : entries) {
      box.u32(checkedCount(count));
      box.u32(value);
    }
  });
}

void writeSyncSamples(const SampleList& samples, BoxWriter& writer) {
  std::uint64_t count = 0;
  for (const SampleRun& run : samples.runs()) {
    count += run.first.isSync ? run.count : 0;
  }
  if (count == samples.size()) {
    return;
  }
  writer.full("stss", 0, 0, [&](BoxWriter& box) {
    box.u32(checkedCount(count));
    for (const SampleRun& run : samples.runs()) {
      for (std::uint64_t i = 0; run.first.isSync && i < run.count; ++i) {
        box.u32(static_cast<std::uint32_t>(run.start + i + 1));
      }
    }
  });
}

struct Chunk {
  std::uint64_t offset;
  std::uint64_t samples;
};

// A sample starts a chunk when it does not begin where the one before ended, or when the chunk is
// full.
std::vector<Chunk> chunks(const SampleList& samples) {
  std::vector<Chunk> all;
  std::uint64_t end = 0;
  for (const SampleRun& run : samples.runs()) {
    std::uint64_t done = 0;
    if (!all.empty() && run.first.offset == end && all.back().samples < largestChunk) {
      done = std::min(run.count, largestChunk - all.back().samples);
      all.back().samples += done;
    }
    for (; done < run.count; done += all.back().samples) {
      all.push_back({run.at(done).offset, std::min(run.count - done, largestChunk)});
    }
    end = run.end();
  }
  return all;
}

void writeSampleToChunk(const std::vector<Chunk>& all, BoxWriter& writer) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> entries;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto samples = static_cast<std::uint32_t>(all[i].samples);
    if (entries.empty() || entries.back().second != samples) {
      entries.emplace_back(checkedCount(i + 1), samples);
    }
  }
  writer.full("stsc", 0, 0, [&](BoxWriter& box) {
    box.u32(checkedCount(entries.size()));
    for (const auto& [firstChunk, samples] : entries) {
      box.u32(firstChunk);
      box.u32(samples);
      box.u32(1);
    }
  });
}

void writeSizes(const SampleList& samples, BoxWriter& writer) {
  const SampleRuns runs = samples.runs();
  const bool allEqual = std::all_of(runs.begin(), runs.end(), [&](const SampleRun& run) {
    return run.first.size == runs.front().first.size;
  });
  const std::uint32_t count = checkedCount(samples.size());
  // A common size of 0 would announce a list; zero-sized samples are therefore listed.
  const bool listed = !allEqual || runs.empty() || runs.front().first.size == 0;
  if (listed && count > (std::numeric_limits<std::uint32_t>::max() - 20) / 4) {
    throw MediaError::malformed("it has more samples than an index can hold");
  }
  writer.full("stsz", 0, 0, [&](BoxWriter& box) {
    box.u32(listed ? 0 : runs.front().first.size);
    box.u32(count);
    for (const SampleRun& run : runs) {
      for (std::uint64_t i = 0; listed && i < run.count; ++i) {
        box.u32(run.first.size);
      }
    }
  });
}

void writeChunkOffsets(const std::vector<Chunk>& all, std::uint64_t mediaStart, BoxWriter& writer) {
  writer.full("co64", 0, 0, [&](BoxWriter& box) {
    box.u32(checkedCount(all.size()));
    for (const Chunk& chunk : all) {
      box.u64(chunk.offset + mediaStart);
    }
  });
}

}  // namespace

void writeSampleTable(const Track& track, std::uint64_t mediaStart, BoxWriter& writer) {
  const SampleList& samples = track.samples;
  (void)checkedCount(samples.size());
  const SampleRuns runs = samples.runs();
  const bool reordered = std::any_of(runs.begin(), runs.end(), [](const SampleRun& run) {
    return run.first.compositionOffset != 0;
  });
  const std::vector<Chunk> allChunks = chunks(samples);

  writer.box("stbl", [&](BoxWriter& table) {
    table.full("stsd", 0, 0, [&](BoxWriter& box) {
      box.u32(1);
      box.bytes(track.sampleEntry);
    });
    writeRunLengths("stts", 0, runLengths(samples, [](const Sample& s) { return s.duration; }),
                    table);
    if (reordered) {
      writeRunLengths("ctts", 1,
                      runLengths(samples, [](const Sample& s) { return s.compositionOffset; }),
                      table);
    }
    if (track.kind == Track::Kind::video) {
      writeSyncSamples(samples, table);
    }
    writeSampleToChunk(allChunks, table);
    writeSizes(samples, table);
    writeChunkOffsets(allChunks, mediaStart, table);
  });
}

}  // namespace tallowmark
