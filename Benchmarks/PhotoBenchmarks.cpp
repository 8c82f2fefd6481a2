// SPDX-License-Identifier: GPL-3.0-or-later
// How fast photos are looked at: work a second on data already in memory.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Photo/RAWPreview.h"

namespace {

using tallowmark::JPEGRepair::Diagnosis;

using Bytes = std::vector<std::uint8_t>;

void append(Bytes& bytes, const Bytes& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

// One code of each length from 1 to 16: ones and a zero. Fifteen ones in a row are the most there
// are in the data below, for no code may be of ones only.
void appendTable(Bytes& bytes, std::uint8_t selector, std::uint8_t often, std::uint8_t seldom) {
  append(bytes, {0xFF, 0xC4, 0x00, 0x23, selector});
  bytes.resize(bytes.size() + 16, 1);
  for (unsigned i = 0; i < 16; ++i) bytes.push_back(i % 2 == 0 ? often : seldom);
}

// A gray picture of 65,528 × 65,528 whose codes the data below is: it ends before the picture does.
Bytes tables() {
  Bytes bytes{0xFF, 0xDB, 0x00, 0x43, 0x00};
  bytes.resize(bytes.size() + 64, 1);
  appendTable(bytes, 0x00, 0, 3);        // differences of no bits, of three
  appendTable(bytes, 0x10, 0x00, 0x13);  // end of block, a coefficient
  append(bytes, {0xFF, 0xC0, 0x00, 0x0B, 8, 0xFF, 0xF8, 0xFF, 0xF8, 1, 1, 0x11, 0});
  append(bytes, {0xFF, 0xDA, 0x00, 0x08, 1, 1, 0x00, 0, 63, 0});
  return bytes;
}

// Bytes as an encoder would stuff them.
Bytes entropyData(std::size_t size) {
  std::mt19937 random(1);
  Bytes bytes;
  while (bytes.size() < size) {
    bytes.push_back(random() % 256 == 0 ? 0xFF : static_cast<std::uint8_t>(random() & 0x7FU));
    if (bytes.back() == 0xFF) {
      bytes.push_back(0);
      bytes.push_back(static_cast<std::uint8_t>(random() & 0x7FU));
    }
  }
  return bytes;
}

Bytes photo(std::size_t size) {
  Bytes bytes{0xFF, 0xD8};
  append(bytes, tables());
  append(bytes, entropyData(size));
  append(bytes, {0xFF, 0xD9});
  return bytes;
}

constexpr std::size_t photoSize = 12'000'000;

void diagnose(benchmark::State& state, const Bytes& bytes, Diagnosis expected) {
  if (tallowmark::JPEGRepair::diagnose(bytes) != expected) {
    state.SkipWithError("the photo is not in the state that this measures");
  }
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(tallowmark::JPEGRepair::diagnose(bytes));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

void BM_diagnoseHealthy(benchmark::State& state) {
  diagnose(state, photo(photoSize), Diagnosis::healthy);
}
BENCHMARK(BM_diagnoseHealthy);

void BM_diagnoseCutShort(benchmark::State& state) {
  Bytes bytes = photo(photoSize);
  bytes.resize(bytes.size() - 2);
  bytes.back() = 1;
  diagnose(state, bytes, Diagnosis::truncated);
}
BENCHMARK(BM_diagnoseCutShort);

void BM_diagnoseDamagedHeader(benchmark::State& state) {
  Bytes bytes = photo(photoSize);
  bytes[0] = 0;
  diagnose(state, bytes, Diagnosis::damagedHeader);
}
BENCHMARK(BM_diagnoseDamagedHeader);

// The cost of certainty where something follows the picture; blocks are as short as can be.
void BM_checkPicture(benchmark::State& state) {
  const Bytes bytes = photo(photoSize);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(tallowmark::JPEGRepair::checkPicture(bytes));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_checkPicture);

void BM_findPicturesInRAW(benchmark::State& state) {
  Bytes bytes(100'000'000);
  std::mt19937_64 random(2);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(random());
  }
  const Bytes preview = photo(1'000'000);
  std::copy(preview.begin(), preview.end(), bytes.begin() + 50'000'000);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(tallowmark::RAWPreview::embeddedJPEGs(bytes));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_findPicturesInRAW);

void BM_findPicturesInBlownHighlights(benchmark::State& state) {
  const Bytes bytes(100'000'000, 0xFF);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(tallowmark::RAWPreview::embeddedJPEGs(bytes));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_findPicturesInBlownHighlights);

}  // namespace
