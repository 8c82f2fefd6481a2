// SPDX-License-Identifier: GPL-3.0-or-later
#include "ModelTests.h"

#include <QSignalSpy>
#include <QTest>
#include <array>
#include <thread>

#include "ImageKit/LibraryImageService.h"
#include "Photos.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {

namespace fs = std::filesystem;

std::string nameOf(const Clip::State& state) {
  static constexpr std::array names{"healthy", "truncated", "repairing",    "preview", "saved",
                                    "failed",  "checking",  "missingIndex", "rawFile", "notAVideo"};
  return names.at(state.index());
}

std::string nameOf(const Join::State& state) {
  static constexpr std::array names{"incompatible", "joining", "preview",
                                    "saved",        "failed",  "checking"};
  return names.at(state.index());
}

ModelTests::ModelTests() {
  surroundings.images = std::make_shared<LibraryImageService>();
  surroundings.scratchParent = folder / "scratch";
  surroundings.previewer = [](const fs::path& clip, const fs::path& preview, double,
                              const StopToken&) { return fs::copy_file(clip, preview); };
}

void ModelTests::SetUp() {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  ClipRecipe recipe;
  recipe.audio = "pcm_s16le";
  recipe.container = "mov";
  const fs::path clip = makeClip(recipe);
  // The index first, as phones do after recording: then a cut leaves it whole.
  run({"ffmpeg", "-v", "error", "-i", clip.string(), "-c", "copy", "-movflags", "+faststart",
       good.string()});
  fs::copy_file(good, cut);
  fs::resize_file(cut, fs::file_size(good) * 6 / 10);
  writeFile(noIndex, withoutIndex(contentsOf(clip)));
  const Bytes photo = makePhoto({});
  writeFile(goodPhoto, photo);
  writeFile(cutPhoto, std::span(photo).first(photo.size() * 7 / 10));
  PhotoRecipe other;
  other.variant = 1;
  writeFile(headlessPhoto, wiped(makePhoto(other), 400, 0));
  writeFile(raw, joined({Bytes(5'000, 1), photo, Bytes(500, 2)}));
  fs::create_directory(out);
  startModel();
}

void ModelTests::startModel(Watch watch) {
  listTesters_.clear();
  model = std::make_unique<RepairModel>(surroundings);
  if (watch == Watch::nothing) return;
  using Mode = QAbstractItemModelTester::FailureReportingMode;
  for (QAbstractListModel* list : {&model->clipList(), &model->joinList()}) {
    listTesters_.push_back(std::make_unique<QAbstractItemModelTester>(list, Mode::Fatal));
  }
  QObject::connect(model.get(), &RepairModel::changed, [this] {
    const auto note = [this](const auto& items) {
      for (const auto& item : items) {
        auto& states = road[item.id];
        if (states.empty() || states.back() != nameOf(item.state)) {
          states.push_back(nameOf(item.state));
        }
      }
    };
    note(model->clips());
    note(model->joins());
  });
}

bool ModelTests::until(const std::function<bool()>& condition) {
  return QTest::qWaitFor(condition, 60'000);
}

void ModelTests::add(const std::vector<fs::path>& urls) {
  const QSignalSpy added(model.get(), &RepairModel::filesAdded);
  model->add(urls);
  ASSERT_TRUE(until([&] { return !added.isEmpty(); }));
  ASSERT_TRUE(settle());
}

bool ModelTests::settle() {
  return until([this] { return !model->isWorking(); });
}

const Clip& ModelTests::clip(const std::string& name) const {
  for (const Clip& clip : model->clips()) {
    if (clip.url.filename() == name) return clip;
  }
  throw std::runtime_error("no clip " + name);
}

std::string ModelTests::stateOf(const std::string& name) const {
  const Clip& found = clip(name);
  const auto* failed = std::get_if<Clip::Failed>(&found.state);
  return failed == nullptr ? nameOf(found.state) : failed->text;
}

ClipPreviewer ModelTests::heldPreviewer() {
  return [this](const fs::path& clip, const fs::path& preview, double, const StopToken& stop) {
    ++held;
    while (holding) {
      stop.check();
      std::this_thread::yield();
    }
    return fs::copy_file(clip, preview);
  };
}

}  // namespace tallowmark::testing
