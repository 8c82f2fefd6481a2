// SPDX-License-Identifier: GPL-3.0-or-later
#include "FaultRun.h"

#include <fstream>
#include <stdexcept>

namespace tallowmark::testing {

namespace fs = std::filesystem;

namespace {

constexpr int killed = 128 + 9;

std::vector<Fingerprint> fingerprints(const fs::path& folder) {
  std::vector<Fingerprint> all;
  for (const std::string& name : namesIn(folder)) all.push_back(fingerprint(folder / name));
  return all;
}

std::map<std::string, Bytes> filesIn(const fs::path& folder) {
  std::map<std::string, Bytes> files;
  if (fs::exists(folder)) {
    for (const std::string& name : namesIn(folder)) files[name] = contentsOf(folder / name);
  }
  return files;
}

// What the card's copy keeps on purpose, to go on with another day.
bool isUnfinishedImage(const std::string& name) {
  return name.find(".img.part") != std::string::npos || name.ends_with(".map");
}

bool isSentence(const std::string& text) {
  for (const char* internal :
       {"terminate called", "std::", "what()", "basic_", "vector::", "Signal"}) {
    if (text.find(internal) != std::string::npos) return false;
  }
  return text.find_first_not_of(" \n") != std::string::npos;
}

}  // namespace

FaultRuns::FaultRuns(const Scenario& scenario) : scenario_(scenario) {
  fs::create_directories(folder_ / "sources");
  scenario_.prepare(folder_ / "sources");
  sources_ = fingerprints(folder_ / "sources");
  const ProcessResult result = runWith(nullptr, folder_ / "expected", folder_ / "counts");
  if (result.exitCode != 0) throw std::runtime_error(result.output + result.errors);
  expected_ = filesIn(folder_ / "expected");
  std::ifstream lines(folder_ / "counts");
  std::string call;
  for (long count = 0; lines >> call >> count;) counts_[call] = count;
}

ProcessResult FaultRuns::runWith(const Fault* fault, const fs::path& results,
                                 const fs::path& counts) const {
  // Without ffmpeg no child takes part, whose calls would count.
  std::vector<std::string> words{"/usr/bin/env", "PATH=/nowhere",
                                 "LD_PRELOAD=" TALLOWMARK_FAULT_SHIM,
                                 "FAULT_UNDER=" + folder_.path().string()};
  if (!counts.empty()) words.push_back("FAULT_COUNTS=" + counts.string());
  if (fault != nullptr) {
    words.insert(words.end(), {"FAULT_CALL=" + fault->call, "FAULT_AT=" + std::to_string(fault->at),
                               "FAULT_ERROR=" + fault->error});
    if (fault->lasts) words.emplace_back("FAULT_LASTING=1");
  }
  words.emplace_back(TALLOWMARK_PROGRAM);
  fs::create_directories(results);
  for (std::string& word : scenario_.arguments(folder_ / "sources", results)) {
    words.push_back(std::move(word));
  }
  return run(words);
}

std::string FaultRuns::complaint(const Fault& fault) const {
  const TemporaryFolder place;
  const fs::path results = folder_ / "results";
  fs::remove_all(results);
  const ProcessResult ended = runWith(&fault, results);
  const bool wasKilled = ended.exitCode == killed && fault.error == "kill";
  std::string wrong;
  if (!wasKilled && (ended.exitCode < 0 || ended.exitCode > 2)) {
    wrong = "exit status " + std::to_string(ended.exitCode);
  } else if (ended.exitCode != 0 && !wasKilled && !isSentence(ended.output + ended.errors)) {
    wrong = "no sentence for the user";
  } else if (ended.exitCode != 0 && (fault.error == "short" || fault.error == "4")) {
    wrong = "gave up where it should have gone on";
  } else if (ended.exitCode == 0 && filesIn(results) != expected_) {
    wrong = "says that all is well and it is not";
  } else {
    // Out of memory for good, not even what would clean up can.
    const bool mayLeaveHidden = wasKilled || (fault.call == "allocate" && fault.lasts);
    wrong = complaintAboutFiles(results, mayLeaveHidden);
  }
  if (wrong.empty() && fingerprints(folder_ / "sources") != sources_) wrong = "a source changed";
  if (wrong.empty() && ended.exitCode != 0) wrong = complaintAboutNextRun(results);
  return wrong.empty() ? wrong : wrong + "\n" + ended.output + ended.errors;
}

std::string FaultRuns::complaintAboutFiles(const fs::path& results, bool mayLeaveHidden) const {
  const auto files = filesIn(results);
  for (const auto& [name, bytes] : files) {
    const auto known = expected_.find(name);
    // An image beside its map says itself what of it could not be read.
    if (isUnfinishedImage(name) || files.contains(name + ".map")) continue;
    if (known == expected_.end()) {
      if (!mayLeaveHidden || !name.starts_with(".")) return "left " + name;
    } else if (known->second != bytes) {
      return "an incomplete " + name;
    }
  }
  return {};
}

std::string FaultRuns::complaintAboutNextRun(const fs::path& results) const {
  const ProcessResult again = runWith(nullptr, results);
  if (again.exitCode != 0) {
    // A card's copy that was finished before is not made twice.
    if (fs::exists(results / "card.img")) return {};
    return "the next run fails: " + again.output + again.errors;
  }
  for (const auto& [name, bytes] : filesIn(results)) {
    if (name.starts_with(".")) return "the next run leaves " + name;
  }
  for (const auto& [name, bytes] : expected_) {
    if (contentsOf(results / name) != bytes) return "the next run differs in " + name;
  }
  return {};
}

}  // namespace tallowmark::testing
