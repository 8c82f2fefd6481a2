// SPDX-License-Identifier: GPL-3.0-or-later
// Prints the table of docs/accuracy.md: good clips without their index, rebuilt, against the index
// that was dropped.
//   ClipAccuracy CLIP|REFERENCE=CLIP … OTHER   (OTHER: the file whose data fills holes)
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "Tests/Video/GroundTruth.h"

namespace {

using namespace tallowmark;
using testing::Comparison;
using testing::Filling;
using testing::Victim;

void add(Comparison& sum, const Comparison& c) {
  sum.frames += c.frames;
  sum.exact += c.exact;
  sum.missed += c.missed;
  sum.beforeKeyframe += c.beforeKeyframe;
  sum.invented += c.invented;
  sum.shared += c.shared;
  sum.inOrder += c.inOrder;
  sum.blocks += c.blocks;
  sum.blocksExact += c.blocksExact + c.blocksBeforeKeyframe;
  sum.blocksInvented += c.blocksInvented;
  sum.telemetry += c.telemetry;
  sum.telemetryExact += c.telemetryExact;
  sum.telemetryInvented += c.telemetryInvented;
  sum.worstTelemetryTime = std::max(sum.worstTelemetryTime, c.worstTelemetryTime);
}

double percent(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 100 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

/// Of many runs with holes.
struct Holed {
  Comparison sum;
  /// How far picture and sound were apart, in seconds, in each run.
  std::vector<double> apart;
};

// Holes of every filling and of 4 KB to 256 KB; what cannot be rebuilt at all counts as missed.
Holed withHoles(const std::string& clip, const std::string& reference,
                const testing::Bytes& other) {
  Holed holed;
  unsigned seed = 1;
  for (const Filling filling : {Filling::zeros, Filling::noise, Filling::otherFile}) {
    for (const auto& [count, size] :
         {std::pair{1U, 4096U}, {20U, 4096U}, {8U, 12000U}, {5U, 65536U}, {3U, 262144U}}) {
      Victim victim(clip);
      victim.punch(seed++, count, size, filling, other);
      try {
        const Comparison c = rebuildAndCompare(victim, reference);
        add(holed.sum, c);
        holed.apart.push_back(c.apart);
      } catch (const std::exception&) {
      }
    }
  }
  std::sort(holed.apart.begin(), holed.apart.end());
  return holed;
}

// The worst run, the middle one, and how many were more than a tenth of a second apart.
void printApart(const std::vector<double>& apart) {
  constexpr double noticeable = 0.1;
  if (apart.empty()) {
    std::printf("| | | ");
    return;
  }
  const auto more = std::count_if(apart.begin(), apart.end(),
                                  [](double seconds) { return seconds > noticeable; });
  std::printf("%.2f s | %.2f s | %jd of %ju | ", apart.back(), apart[apart.size() / 2],
              static_cast<std::intmax_t>(more), static_cast<std::uintmax_t>(apart.size()));
}

void printBlocks(const Comparison& c) {
  if (c.blocks == 0) {
    std::printf("| | ");
    return;
  }
  std::printf("%ju of %ju | %ju | ", static_cast<std::uintmax_t>(c.blocksExact),
              static_cast<std::uintmax_t>(c.blocks), static_cast<std::uintmax_t>(c.blocksInvented));
}

void printTelemetry(const Comparison& c) {
  if (c.telemetry == 0) {
    std::printf("| | | ");
    return;
  }
  std::printf("%ju of %ju | %ju | %.2f s | ", static_cast<std::uintmax_t>(c.telemetryExact),
              static_cast<std::uintmax_t>(c.telemetry),
              static_cast<std::uintmax_t>(c.telemetryInvented), c.worstTelemetryTime);
}

void printRow(const std::string& reference, const std::string& clip, const testing::Bytes& other) {
  const std::string name = std::filesystem::path(clip).filename().string();
  const char* teacher = reference == clip ? "itself" : "sibling";
  try {
    const Comparison c = rebuildAndCompare(Victim(clip), reference);
    const auto [holes, apart] = withHoles(clip, reference, other);
    std::printf("| %s | %s | %ju of %ju | %ju | ", name.c_str(), teacher,
                static_cast<std::uintmax_t>(c.exact), static_cast<std::uintmax_t>(c.frames),
                static_cast<std::uintmax_t>(c.invented));
    if (c.result.audioPackets > 0) {
      std::printf("%.2f %% | %.1f | ", percent(c.soundRight, c.sound), c.worstStep);
    } else {
      std::printf("%s | | ", c.result.audioDropped ? "dropped" : "none");
    }
    std::printf("%ju of %ju | %.2f | %ju of %ju | ", static_cast<std::uintmax_t>(c.inOrder),
                static_cast<std::uintmax_t>(c.shared), c.worstTime,
                static_cast<std::uintmax_t>(holes.inOrder),
                static_cast<std::uintmax_t>(holes.shared));
    std::printf("%ju of %ju | %ju | %ju | ",
                static_cast<std::uintmax_t>(holes.exact + holes.beforeKeyframe),
                static_cast<std::uintmax_t>(holes.frames),
                static_cast<std::uintmax_t>(holes.beforeKeyframe),
                static_cast<std::uintmax_t>(holes.invented));
    printBlocks(c);
    printBlocks(holes);
    printTelemetry(c);
    printTelemetry(holes);
    printApart(apart);
    std::printf("%s |\n", !c.hasTimecode ? "" : c.timecodeRight ? "yes" : "no");
  } catch (const std::exception& error) {
    std::printf("| %s | %s | %s |\n", name.c_str(), teacher, error.what());
  }
}

}  // namespace

int main(int count, char** arguments) {
  std::printf(
      "| clip | reference | exact | invented | sound | step | in order | time | in order with "
      "holes | "
      "exact with holes | of these before a key frame | invented with holes | AAC blocks | "
      "invented | "
      "AAC blocks with holes | invented | telemetry | invented | time | telemetry with holes | "
      "invented | time | apart with holes | middle | above 0.1 s | timecode |\n"
      "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | "
      "--- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
  const testing::Bytes other =
      count > 1 ? testing::contentsOf(arguments[count - 1]) : testing::Bytes{};
  for (int i = 1; i + 1 < count; ++i) {
    const std::string argument = arguments[i];
    const auto equals = argument.find('=');
    const std::string reference = argument.substr(0, equals);
    printRow(reference, equals == std::string::npos ? reference : argument.substr(equals + 1),
             other);
  }
}
