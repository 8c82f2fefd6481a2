// SPDX-License-Identifier: GPL-3.0-or-later
// What is neither clip nor photo: names of files, maps of cards, telemetry.
#include <algorithm>
#include <string>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/Imaging/ReadMap.h"
#include "HostileRun.h"
#include "MediaKit/Container/SampleList.h"
#include "MediaKit/Join/Recordings.h"
#include "MediaKit/Rescue/ReferenceChoice.h"
#include "MediaKit/Telemetry/TelemetrySearch.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/TelemetryTrees.h"

namespace tallowmark::testing {

namespace {

namespace fs = std::filesystem;

constexpr unsigned planningCeiling = 300;
constexpr unsigned searchCeiling = 64;

std::string chapter(std::size_t index) {
  std::string digits = std::to_string(index % 100);
  return "GX" + std::string(2 - digits.size(), '0') + digits + "0001.MP4";
}

// One recording in every folder, and pieces that two cameras numbered alike.
void findOneKeyEverywhere(const fs::path& file) {
  std::vector<ClipJoin::LocatedFile> files;
  for (std::size_t i = 0; i < fs::file_size(file); ++i) {
    files.push_back({"folder" + std::to_string(i / 3), {chapter(i), i}});
  }
  (void)ClipJoin::findRecordings(files);
}

void findDronesFiles(const fs::path& file) {
  std::vector<ClipJoin::LocatedFile> files;
  for (std::size_t i = 0; i < fs::file_size(file); ++i) {
    std::string digits = std::to_string(i % 10000);
    digits.insert(0, 4 - digits.size(), '0');
    files.push_back({i % 2 == 0 ? "a" : "b", {"DJI_" + digits + ".MP4", 3'900'000'000 + i}});
  }
  (void)ClipJoin::findRecordings(files);
}

// What is taken out again and again where a clip has thousands of losses.
void sliceSamples(const fs::path& file) {
  SampleList samples;
  const auto count = static_cast<std::uint32_t>(fs::file_size(file));
  for (std::uint32_t i = 0; i < count; ++i)
    samples.append({.offset = std::uint64_t{i} * 1000, .size = i % 900});
  SampleList rest;
  for (std::uint32_t i = 0; i < count; i += 8) rest.append(samples.slice(i, i + 7));
}

HostileCase mapCase(const char* name, const std::function<std::string(std::size_t)>& line) {
  const auto make = [line](const fs::path& file, std::size_t lines) {
    std::string map = "tallowmark map 1\nsize 1000000000000\n";
    for (std::size_t i = 0; i < lines; ++i) map += line(i) + "\n";
    writeFile(file, text(map));
  };
  const auto use = [](const fs::path& file) {
    const Bytes bytes = contentsOf(file);
    const std::string map(bytes.begin(), bytes.end());
    if (const auto parsed = ReadMap::parse(map)) {
      (void)parsed->stretches(ReadMap::State::bad);
      (void)parsed->text();
    }
  };
  return {name, 10'000, planningCeiling, make, use};
}

HostileCase telemetryCase(const char* name, std::size_t size, const Bytes& pattern) {
  return {name, size, searchCeiling,
          [pattern](const fs::path& file, std::size_t bytes) {
            writeFile(file, filledWith(pattern, bytes));
          },
          [](const fs::path& file) {
            const FileSource source(file.string());
            (void)TelemetrySearch(source).in({0, source.size()}, source.size());
          }};
}

/// A tree that goes on through all that follows it, and does not add up in the end.
Bytes endlessTree() {
  return joined({text("DEVC"), Bytes{0, 0xFF, 0xFF, 0xFF}});
}

Bytes deepTree(int depth) {
  Bytes inside = item("ACCL", 's', 2, Bytes(64, 1));
  for (int level = 0; level < depth; ++level) inside = item("STRM", 0, 1, inside);
  return item("DEVC", 0, 1, inside);
}

}  // namespace

std::vector<HostileCase> hostileLists() {
  return {
      {"oneKeyEverywhere", 2'000, planningCeiling, writeCount, findOneKeyEverywhere},
      {"numbersTwice", 2'500, planningCeiling, writeCount, findDronesFiles},
      {"slicesOfSamples", 50'000, searchCeiling, writeCount, sliceSamples},
      mapCase("mapOfStripes",
              [](std::size_t i) { return "bad " + std::to_string(i * 1024) + " 512"; }),
      mapCase("mapBackwards",
              [](std::size_t i) {
                return "read " + std::to_string(900'000'000'000 - i * 1024) + " 700";
              }),
      mapCase("mapOverItself",
              [](std::size_t i) {
                return (i % 2 == 0 ? "bad " : "read ") + std::to_string(i) + " 900000000000";
              }),
      telemetryCase("treesWithoutEnd", 250'000, endlessTree()),
      telemetryCase("treesInTrees", 200'000, item("DEVC", 0, 1, item("DEVC", 0, 1, Bytes(8)))),
      telemetryCase("deepTrees", 2'000'000, deepTree(12)),
      telemetryCase("wideTrees", 400'000, deviceTree(3, 4)),
  };
}

}  // namespace tallowmark::testing
