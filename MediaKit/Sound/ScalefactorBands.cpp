// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/ScalefactorBands.h"

#include <algorithm>
#include <array>
#include <span>

namespace tallowmark {

namespace {

using Offsets = std::span<const std::uint16_t>;

constexpr std::array<std::uint16_t, 42> long96{
    0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  44,  48,  52,
    56,  64,  72,  80,  88,  96,  108, 120, 132, 144, 156, 172, 188, 212,
    240, 276, 320, 384, 448, 512, 576, 640, 704, 768, 832, 896, 960, 1024};
constexpr std::array<std::uint16_t, 48> long64{
    0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  44,  48,  52,  56,  64,
    72,  80,  88,  100, 112, 124, 140, 156, 172, 192, 216, 240, 268, 304, 344, 384,
    424, 464, 504, 544, 584, 624, 664, 704, 744, 784, 824, 864, 904, 944, 984, 1024};
constexpr std::array<std::uint16_t, 50> long48{
    0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,  64,  72,  80,  88,
    96,  108, 120, 132, 144, 160, 176, 196, 216, 240, 264, 292, 320, 352, 384, 416, 448,
    480, 512, 544, 576, 608, 640, 672, 704, 736, 768, 800, 832, 864, 896, 928, 1024};
constexpr std::array<std::uint16_t, 52> long32{
    0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,  64,  72,  80,  88,  96,
    108, 120, 132, 144, 160, 176, 196, 216, 240, 264, 292, 320, 352, 384, 416, 448, 480, 512,
    544, 576, 608, 640, 672, 704, 736, 768, 800, 832, 864, 896, 928, 960, 992, 1024};
constexpr std::array<std::uint16_t, 48> long24{
    0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  44,  52,  60,  68,  76,
    84,  92,  100, 108, 116, 124, 136, 148, 160, 172, 188, 204, 220, 240, 260, 284,
    308, 336, 364, 396, 432, 468, 508, 552, 600, 652, 704, 768, 832, 896, 960, 1024};
constexpr std::array<std::uint16_t, 44> long16{
    0,   8,   16,  24,  32,  40,  48,  56,  64,  72,  80,  88,  100, 112, 124,
    136, 148, 160, 172, 184, 196, 212, 228, 244, 260, 280, 300, 320, 344, 368,
    396, 424, 456, 492, 532, 572, 616, 664, 716, 772, 832, 896, 960, 1024};
constexpr std::array<std::uint16_t, 41> long8{0,   12,  24,  36,  48,  60,  72,  84,  96,  108, 120,
                                              132, 144, 156, 172, 188, 204, 220, 236, 252, 268, 288,
                                              308, 328, 348, 372, 396, 420, 448, 476, 508, 544, 580,
                                              620, 664, 712, 764, 820, 880, 944, 1024};

constexpr std::array<std::uint16_t, 13> short64{0, 4, 8, 12, 16, 20, 24, 32, 40, 48, 64, 92, 128};
constexpr std::array<std::uint16_t, 15> short48{0,  4,  8,  12, 16, 20,  28, 36,
                                                44, 56, 68, 80, 96, 112, 128};
constexpr std::array<std::uint16_t, 16> short24{0,  4,  8,  12, 16, 20, 24,  28,
                                                36, 44, 52, 64, 76, 92, 108, 128};
constexpr std::array<std::uint16_t, 16> short16{0,  4,  8,  12, 16, 20, 24,  28,
                                                32, 40, 48, 60, 72, 88, 108, 128};
constexpr std::array<std::uint16_t, 16> short8{0,  4,  8,  12, 16, 20, 24,  28,
                                               36, 44, 52, 60, 72, 88, 108, 128};

struct Tables {
  Offsets longWindow;
  Offsets shortWindow;
};

// By the index of the sampling rate: 96, 88.2, 64, 48, 44.1, 32, 24, 22.05, 16, 12, 11.025, 8,
// 7.35 kHz.
const std::array<Tables, 13>& tables() {
  static const std::array<Tables, 13> byRate{{{long96, short64},
                                              {long96, short64},
                                              {long64, short64},
                                              {long48, short48},
                                              {long48, short48},
                                              {long32, short48},
                                              {long24, short24},
                                              {long24, short24},
                                              {long16, short16},
                                              {long16, short16},
                                              {long16, short16},
                                              {long8, short8},
                                              {long8, short8}}};
  return byRate;
}

// Blocks of 960 samples have the bands of 1024, cut where their spectrum ends.
std::vector<std::uint16_t> cutAt(Offsets offsets, unsigned length) {
  std::vector<std::uint16_t> cut;
  for (const std::uint16_t offset : offsets) {
    if (!cut.empty() && cut.back() == length) {
      break;
    }
    cut.push_back(std::min(offset, static_cast<std::uint16_t>(length)));
  }
  return cut;
}

}  // namespace

ScalefactorBands ScalefactorBands::of(const AACConfig& config) {
  const Tables& rate = tables().at(config.rateIndex);
  return {cutAt(rate.longWindow, config.frameLength),
          cutAt(rate.shortWindow, config.frameLength / 8)};
}

}  // namespace tallowmark
