// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"

namespace tallowmark::testing {

/// The state's name as the code spells it, in lower case: "truncated".
std::string nameOf(const Clip::State& state);
std::string nameOf(const Join::State& state);

/// A model with a scratch folder of its own, and damaged files to put into it.
class ModelTests : public ::testing::Test {
 protected:
  ModelTests();
  void SetUp() override;

  /// A new model in place of the last. Watching its lists for breaches of their contract, and what
  /// states there are, takes time with every change.
  enum class Watch { everything, nothing };
  void startModel(Watch watch = Watch::everything);
  /// Waits, with the event loop running, for what must come to be; generous.
  static bool until(const std::function<bool()>& condition);
  /// Adds, and waits until all that was started is done.
  void add(const std::vector<std::filesystem::path>& urls);
  bool settle();
  /// The clip of that file name; it must be there.
  const Clip& clip(const std::string& name) const;
  /// Its state's name; for failed ones their text.
  std::string stateOf(const std::string& name) const;
  /// A preview that is not done before `holding` is false, or it is stopped.
  ClipPreviewer heldPreviewer();

  TemporaryFolder folder;
  Surroundings surroundings;
  std::unique_ptr<RepairModel> model;
  std::atomic<bool> holding = true;
  std::atomic<int> held = 0;
  /// The states each clip and join went through, repeated ones once.
  std::map<QUuid, std::vector<std::string>> road;

  std::filesystem::path good = folder / "GX010001.MOV";
  std::filesystem::path cut = folder / "GX010002.MOV";
  std::filesystem::path noIndex = folder / "GX010003.MOV";
  std::filesystem::path goodPhoto = folder / "IMG_0001.JPG";
  std::filesystem::path cutPhoto = folder / "IMG_0002.JPG";
  std::filesystem::path headlessPhoto = folder / "IMG_0003.JPG";
  std::filesystem::path raw = folder / "IMG_0004.NEF";
  std::filesystem::path out = folder / "out";

 private:
  std::vector<std::unique_ptr<QAbstractItemModelTester>> listTesters_;
};

}  // namespace tallowmark::testing
