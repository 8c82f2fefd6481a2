// SPDX-License-Identifier: GPL-3.0-or-later
// Prints the table of docs/accuracy.md: good clips without their index, rebuilt, against the index
// that was dropped.
//   ClipAccuracy CLIP|REFERENCE=CLIP … OTHER   (OTHER: the file whose data fills holes)
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

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

// Holes of every filling and of 4 KB to 256 KB; what cannot be rebuilt at all counts as missed.
Comparison withHoles(const std::string& clip, const std::string& reference,
                     const testing::Bytes& other) {
  Comparison sum;
  unsigned seed = 1;
  for (const Filling filling : {Filling::zeros, Filling::noise, Filling::otherFile}) {
    for (const auto& [count, size] :
         {std::pair{1U, 4096U}, {20U, 4096U}, {8U, 12000U}, {5U, 65536U}, {3U, 262144U}}) {
      Victim victim(clip);
      victim.punch(seed++, count, size, filling, other);
      try {
        add(sum, rebuildAndCompare(victim, reference));
      } catch (const std::exception&) {
      }
    }
  }
  return sum;
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
    const Comparison holes = withHoles(clip, reference, other);
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
      "invented | time | timecode |\n"
      "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | "
      "--- | --- | --- | --- | --- | --- | --- | --- |\n");
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
