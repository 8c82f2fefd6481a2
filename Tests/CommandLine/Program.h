// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {

inline std::vector<std::string> call(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), TALLOWMARK_PROGRAM);
  return arguments;
}

inline ProcessResult tallowmark(std::vector<std::string> arguments) {
  return run(call(std::move(arguments)));
}

inline std::vector<nlohmann::json> linesOf(const ProcessResult& result) {
  std::vector<nlohmann::json> lines;
  std::istringstream in(result.output);
  for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
  return lines;
}

inline std::string firstPart(const std::string& path, double share, const std::string& target) {
  Bytes bytes = contentsOf(path);
  bytes.resize(static_cast<std::size_t>(static_cast<double>(bytes.size()) * share));
  return writeFile(target, bytes).string();
}

/// A folder with a clip that plays, the same cut short, and the same without its index.
class ProgramTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
    ClipRecipe recipe;
    recipe.audio = "pcm_s16le";
    recipe.container = "mov";
    const Bytes clip = contentsOf(makeClip(recipe));
    // The index first, as phones do after recording: then a cut leaves it whole.
    run({"ffmpeg", "-v", "error", "-i", makeClip(recipe).string(), "-c", "copy", "-movflags",
         "+faststart", good.string()});
    firstPart(good.string(), 0.6, cut.string());
    writeFile(noIndex, withoutIndex(clip));
  }

  TemporaryFolder folder;
  std::filesystem::path good = folder / "GX010001.MOV";
  std::filesystem::path cut = folder / "GX010002.MOV";
  std::filesystem::path noIndex = folder / "GX010003.MOV";
  std::filesystem::path out = folder / "out";
};

}  // namespace tallowmark::testing
