// SPDX-License-Identifier: GPL-3.0-or-later
#include <unistd.h>
#include <QElapsedTimer>

#include <fstream>

#include "DeviceKit/FailingSource.h"
#include "ModelTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class SavingTests : public ModelTests {
 protected:
  void save() {
    model->save(model->savableIDs(), out);
    ASSERT_TRUE(settle());
  }
};

TEST_F(SavingTests, replaceNothingAndNumberEqualNames) {
  for (const char* name : {"a", "b"}) {
    fs::create_directory(folder / name);
    fs::copy_file(cut, folder / name / "clip.MP4");
  }
  writeFile(out / "clip (repaired).MP4", Bytes{1});
  writeFile(out / "clip (repaired 2).MP4", Bytes{2});
  const Fingerprint before = fingerprint(folder / "a" / "clip.MP4");
  add({folder / "a", folder / "b" / "clip.MP4"});
  ASSERT_EQ(model->savableIDs().size(), 2U);
  save();
  EXPECT_EQ(namesIn(out), (Names{"clip (repaired 2).MP4", "clip (repaired 3).MP4",
                                 "clip (repaired 4).MP4", "clip (repaired).MP4"}));
  EXPECT_EQ(contentsOf(out / "clip (repaired).MP4"), Bytes{1});
  EXPECT_EQ(contentsOf(out / "clip (repaired 2).MP4"), Bytes{2});
  EXPECT_EQ(decodingComplaints(out / "clip (repaired 3).MP4"), "");
  for (const Clip& clip : model->clips()) {
    EXPECT_EQ(fs::last_write_time(*model->savedFile(clip.id)), fs::last_write_time(clip.url));
  }
  EXPECT_EQ(fingerprint(folder / "a" / "clip.MP4"), before);
}

TEST_F(SavingTests, sayWhatWentWrongAndLeaveNoPartialFile) {
  add({cut, raw});
  model->save(model->savableIDs(), "/proc/copies");
  ASSERT_TRUE(settle());
  for (const char* name : {"GX010002.MOV", "IMG_0004.NEF"}) {
    EXPECT_TRUE(stateOf(name).starts_with("Could not write /proc/copies")) << stateOf(name);
    model->retry(clip(name).id);
  }
  ASSERT_TRUE(settle());
  save();
  EXPECT_EQ(namesIn(out).size(), 2U);
}

TEST_F(SavingTests, useWhatThePreviewLearntWhileTheSourceIsTheSame) {
  add({good, noIndex});
  // Without what was learnt the save would need the reference.
  fs::remove(good);
  save();
  EXPECT_EQ(stateOf("GX010003.MOV"), "saved");
  EXPECT_EQ(decodingComplaints(out / "GX010003 (repaired).MOV"), "");
}

TEST_F(SavingTests, workOutAnewWhatWasReplacedSincePreviewing) {
  add({good, noIndex, cut});
  fs::remove(noIndex);
  fs::rename(cut, noIndex);
  save();
  const auto* saved = std::get_if<Clip::Saved>(&clip("GX010003.MOV").state);
  ASSERT_NE(saved, nullptr);
  EXPECT_LT(saved->summary.frames, 50);
  EXPECT_EQ(decodingComplaints(out / "GX010003 (repaired).MOV"), "");
  EXPECT_TRUE(stateOf("GX010002.MOV").starts_with("Could not open ")) << stateOf("GX010002.MOV");
  EXPECT_EQ(namesIn(out).size(), 1U);
}

TEST_F(SavingTests, saveNothingOfAFileThatGrowsMeanwhile) {
  std::atomic<bool> growing = false;
  surroundings.open = [&](const fs::path& path) {
    OpenedFile file = openFile(path);
    if (growing) std::ofstream(path, std::ios::app | std::ios::binary) << "more";
    return file;
  };
  startModel();
  add({cut});
  growing = true;
  save();
  EXPECT_EQ(stateOf("GX010002.MOV"),
            "GX010002.MOV changed while it was being read. Try again once nothing else writes to "
            "it.");
  EXPECT_TRUE(namesIn(out).empty());
}

TEST_F(SavingTests, failWithASentenceWhenACardIsPulled) {
  std::atomic<bool> pulled = false;
  surroundings.open = [&](const fs::path& path) {
    OpenedFile file = openFile(path);
    if (pulled) {
      const std::uint64_t size = file.bytes->size();
      file.bytes = std::make_unique<FailingSource>(
          contentsOf(path), std::vector<FailingSource::Hole>{{size / 2, size}});
    }
    return file;
  };
  startModel();
  add({cut, raw});
  pulled = true;
  save();
  for (const char* name : {"GX010002.MOV", "IMG_0004.NEF"}) {
    EXPECT_NE(stateOf(name).find("Input/output error"), std::string::npos) << stateOf(name);
  }
  add({good, noIndex, goodPhoto});
  EXPECT_EQ(stateOf("IMG_0001.JPG"), "Couldn't read this file.");
  EXPECT_TRUE(namesIn(out).empty());
}

TEST_F(SavingTests, endPromptlyWithoutAFileWhenAnItemGoes) {
  surroundings.previewer = heldPreviewer();
  startModel();
  model->add({good, noIndex, cut});
  ASSERT_TRUE(until([&] { return held == 2; }));
  QElapsedTimer timer;
  timer.start();
  model->remove(clip("GX010003.MOV").id);
  const auto isEmpty = [&] {
    const auto& folders = fs::directory_iterator(model->workDir());
    return std::distance(folders, {}) == 1;
  };
  ASSERT_TRUE(until(isEmpty));
  const auto afterRemoving = timer.restart();
  model->clear();
  ASSERT_TRUE(until([&] { return namesIn(model->workDir()).empty(); }));
  RecordProperty("milliseconds", std::to_string(timer.elapsed()));
  // A few milliseconds each where nothing else runs; what is not told to end never does.
  EXPECT_LT(afterRemoving, 2000);
  EXPECT_LT(timer.elapsed(), 2000);
  EXPECT_EQ(model->step(), 0);
  EXPECT_EQ(model->selection(), std::nullopt);

  holding = false;
  add({cut});
  EXPECT_EQ(stateOf("GX010002.MOV"), "preview");
}

TEST_F(SavingTests, reportProgressThatRisesAndIsNoFlood) {
  std::vector<double> fractions;
  surroundings.open = [](const fs::path& path) { return openFile(path); };
  surroundings.previewer = [](const fs::path&, const fs::path&, double, const StopToken&) {
    return false;
  };
  startModel();
  const Bytes media = contentsOf(noIndex);
  {
    std::ofstream longer(noIndex, std::ios::app | std::ios::binary);
    for (int i = 0; i < 400; ++i) {
      longer.write(reinterpret_cast<const char*>(media.data()) + 48,
                   static_cast<std::streamsize>(media.size() - 48));
    }
  }
  QElapsedTimer timer;
  QObject::connect(model.get(), &RepairModel::clipsChanged, [&] {
    for (const Clip& clip : model->clips()) {
      const auto* repairing = std::get_if<Clip::Repairing>(&clip.state);
      if (repairing != nullptr && clip.url == noIndex) {
        if (fractions.empty()) timer.start();
        if (fractions.empty() || fractions.back() != repairing->fraction) {
          fractions.push_back(repairing->fraction);
        }
      }
    }
  });
  add({good, noIndex});
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  EXPECT_EQ(model->previewFile(clip("GX010003.MOV").id), std::nullopt);
  EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
  EXPECT_EQ(fractions.front(), 0);
  EXPECT_LE(static_cast<double>(fractions.size()),
            2 + 30.0 * static_cast<double>(timer.elapsed()) / 1000);
}

}  // namespace
}  // namespace tallowmark::testing
