// SPDX-License-Identifier: GPL-3.0-or-later
// Every call of the program on files, and every allocation, goes wrong in turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "FaultRun.h"
#include "Photos.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

const std::string noSpace = std::to_string(ENOSPC);
const std::string ioError = std::to_string(EIO);
const std::string noAccess = std::to_string(EACCES);
const std::string interrupted = std::to_string(EINTR);
const std::string noMemory = std::to_string(ENOMEM);

struct WhatFails {
  std::string call;
  std::vector<std::string> errors;
};

const std::vector<WhatFails> failures{
    {"open", {noAccess, ioError, interrupted, noSpace, "kill"}},
    {"read", {ioError, interrupted, "short", "kill"}},
    {"write", {noSpace, ioError, interrupted, "short", "kill"}},
    {"copy", {noSpace, ioError, interrupted, "short", "kill"}},
    {"sync", {noSpace, ioError, "kill"}},
    {"rename", {noSpace, ioError, noAccess, "kill"}},
    {"truncate", {noSpace, ioError}},
    {"seek", {ioError}},
    {"look", {ioError, noAccess}},
    {"allocate", {noMemory}},
};

ClipRecipe shortClip(int variant) {
  ClipRecipe recipe;
  recipe.audio = "pcm_s16le";
  recipe.container = "mov";
  recipe.seconds = 1;
  recipe.width = 160;
  recipe.height = 120;
  recipe.variant = variant;
  return recipe;
}

Words repairAll(const fs::path& sources, const fs::path& results) {
  return {"repair", sources.string(), "--to", results.string()};
}

const std::vector<Scenario> scenarios{
    {"clips",
     [](const fs::path& sources) {
       const Bytes clip = contentsOf(makeClip(shortClip(0)));
       writeFile(sources / "GX010001.MOV", clip);
       writeFile(sources / "GX010002.MOV", withoutIndex(clip));
       const fs::path indexFirst = sources / "GX010003.MOV";
       run({"ffmpeg", "-v", "error", "-i", makeClip(shortClip(0)).string(), "-c", "copy",
            "-movflags", "+faststart", indexFirst.string()});
       fs::resize_file(indexFirst, fs::file_size(indexFirst) * 6 / 10);
     },
     repairAll},
    {"photos",
     [](const fs::path& sources) {
       const Bytes photo = makePhoto({});
       writeFile(sources / "IMG_0001.JPG", photo);
       writeFile(sources / "IMG_0002.JPG", wiped(makePhoto({.variant = 1}), 200, 0));
       writeFile(sources / "IMG_0003.JPG", Bytes(photo.begin(), photo.end() - 900));
       Bytes raw = markerNoise(5000, 1);
       raw.insert(raw.end(), photo.begin(), photo.end());
       writeFile(sources / "IMG_0004.NEF", raw);
     },
     repairAll},
    {"chapters",
     [](const fs::path& sources) {
       for (const int chapter : {1, 2}) {
         fs::copy_file(makeClip(shortClip(chapter)),
                       sources / ("GX0" + std::to_string(chapter) + "1234.MOV"));
       }
     },
     [](const fs::path& sources, const fs::path& results) {
       return Words{"join", (sources / "GX011234.MOV").string(),
                    (sources / "GX021234.MOV").string(), "--to", results.string()};
     }},
    {"card", [](const fs::path& sources) { writeFile(sources / "card", markerNoise(300'000, 7)); },
     [](const fs::path& sources, const fs::path& results) {
       return Words{"image", (sources / "card").string(), (results / "card.img").string()};
     }},
};

// Every fault takes minutes; a run beside other tests takes one of many, others each time it is
// changed: TALLOWMARK_FAULT_STRIDE=1 takes them all.
long stride() {
  const char* told = std::getenv("TALLOWMARK_FAULT_STRIDE");
  return told == nullptr ? 101 : std::max(1L, std::strtol(told, nullptr, 10));
}

std::vector<Fault> faultsFor(const CallCounts& counts) {
  std::vector<Fault> faults;
  for (const WhatFails& failure : failures) {
    for (const std::string& error : failure.errors) {
      const bool lasting = error == noSpace || error == ioError || error == noMemory;
      for (long at = 1; at <= counts.at(failure.call); ++at) {
        faults.push_back({failure.call, at, error, false});
        if (lasting) faults.push_back({failure.call, at, error, true});
      }
    }
  }
  return faults;
}

class Faults : public ::testing::TestWithParam<Scenario> {};

TEST_P(Faults, loseNothingAndAreTold) {
#ifdef TALLOWMARK_SANITIZED
  GTEST_SKIP() << "sanitizers want to be the first that is loaded";
#endif
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const FaultRuns runs(GetParam());
  const std::vector<Fault> faults = faultsFor(runs.counts());
  long injections = 0;
  int shown = 0;
  for (std::size_t i = 0; i < faults.size(); i += static_cast<std::size_t>(stride())) {
    ++injections;
    const std::string complaint = runs.complaint(faults[i]);
    if (complaint.empty()) continue;
    ADD_FAILURE() << faults[i].call << " " << faults[i].at << " fails with " << faults[i].error
                  << (faults[i].lasts ? " from then on: " : ": ") << complaint;
    if (++shown == 10) break;
  }
  std::cout << injections << " of " << faults.size() << " faults injected\n";
  EXPECT_GT(injections, 0);
}

INSTANTIATE_TEST_SUITE_P(Everywhere, Faults, ::testing::ValuesIn(scenarios),
                         [](const auto& row) { return row.param.label; });

}  // namespace
}  // namespace tallowmark::testing
