// SPDX-License-Identifier: GPL-3.0-or-later
#include <QSettings>

#include "ModelTests.h"
#include "TallowmarkRepair/Model/FlowStatus.h"
#include "TallowmarkRepair/Model/StartupValues.h"
#include "Tests/Support/Clusters.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Road = std::vector<std::string>;

class StateTests : public ModelTests {};

TEST_F(StateTests, leadEachKindOfFileFromCheckingToItsCopy) {
  add({cut, noIndex, cutPhoto, headlessPhoto, raw});
  EXPECT_EQ(stateOf("GX010002.MOV"), "preview");
  EXPECT_EQ(stateOf("IMG_0002.JPG"), "preview");
  EXPECT_EQ(stateOf("GX010003.MOV"), "missingIndex");
  EXPECT_EQ(stateOf("IMG_0003.JPG"), "missingIndex");
  EXPECT_TRUE(clip("GX010003.MOV").needsReference && clip("IMG_0003.JPG").needsReference);
  ASSERT_NE(model->selectedClip(), nullptr);
  EXPECT_EQ(model->step(), 2);

  add({good, goodPhoto});
  EXPECT_EQ(model->savableIDs().size(), 5U);
  EXPECT_EQ(model->reference(), good);
  model->save(model->savableIDs(), out);
  ASSERT_TRUE(settle());
  EXPECT_EQ(model->step(), 4);
  EXPECT_EQ(namesIn(out),
            (std::vector<std::string>{"GX010002 (repaired).MOV", "GX010003 (repaired).MOV",
                                      "IMG_0002 (repaired).JPG", "IMG_0003 (repaired).JPG",
                                      "IMG_0004 (rescued).jpg"}));
  const std::vector<std::pair<std::string, Road>> roads{
      {"GX010001.MOV", {"checking", "healthy"}},
      {"GX010002.MOV", {"checking", "truncated", "repairing", "preview", "repairing", "saved"}},
      {"GX010003.MOV", {"checking", "missingIndex", "repairing", "preview", "repairing", "saved"}},
      {"IMG_0002.JPG", {"checking", "truncated", "repairing", "preview", "repairing", "saved"}},
      {"IMG_0003.JPG", {"checking", "missingIndex", "repairing", "preview", "repairing", "saved"}},
      {"IMG_0004.NEF", {"checking", "rawFile", "repairing", "preview", "repairing", "saved"}}};
  for (const auto& [name, states] : roads) EXPECT_EQ(road[clip(name).id], states) << name;

  const auto& clipSummary = std::get<Clip::Saved>(clip("GX010003.MOV").state).summary;
  EXPECT_EQ(clipSummary.frames, 50);
  EXPECT_EQ(clipSummary.seconds, 2);
  EXPECT_EQ(clipSummary.audio, Clip::Summary::AudioOutcome::recovered);
  const auto& rescued = std::get<Clip::Saved>(clip("IMG_0004.NEF").state).summary.photo;
  ASSERT_TRUE(rescued);
  EXPECT_TRUE(rescued->fromRAW);
  EXPECT_EQ(rescued->width, 200);
  const auto& rebuilt = std::get<Clip::Saved>(clip("IMG_0003.JPG").state).summary.photo;
  EXPECT_FALSE(rebuilt->borrowed.empty());
}

TEST_F(StateTests, sayWhatCannotBeReadAndCheckItAgainOnRetry) {
  const fs::path text = writeFile(folder / "notes.mp4", Bytes(100, 'x'));
  const fs::path noPhoto = writeFile(folder / "notes.jpg", Bytes(100, 'x'));
  const fs::path gone = folder / "GX010009.MP4";
  add({text, noPhoto, gone});
  EXPECT_EQ(stateOf("notes.mp4"), "notAVideo");
  EXPECT_EQ(stateOf("notes.jpg"), "notAVideo");
  EXPECT_TRUE(stateOf("GX010009.MP4").starts_with("Couldn't read this file: "))
      << stateOf("GX010009.MP4");
  EXPECT_EQ(clip("GX010009.MP4").size, 0U);
  fs::copy_file(good, gone);
  model->retry(clip("GX010009.MP4").id);
  ASSERT_TRUE(settle());
  EXPECT_EQ(road[clip("GX010009.MP4").id], (Road{"checking", "failed", "checking", "healthy"}));
}

TEST_F(StateTests, failWithTheSentenceForAClipWithoutPictures) {
  fs::resize_file(noIndex, 3'000);
  add({good, noIndex});
  EXPECT_EQ(stateOf("GX010003.MOV"),
            "No video from this camera was found in the clip. Check that the reference clip was "
            "recorded on the same camera, at the same resolution and frame rate.");
}

// What is missing in the middle is no end that never reached the file.
TEST_F(StateTests, knowADamagedClipFromOneThatIsCutShort) {
  Bytes bytes = contentsOf(good);
  std::fill(bytes.begin() + placeOf(bytes.size() / 3), bytes.begin() + placeOf(bytes.size() / 2),
            std::uint8_t{0});
  add({writeFile(folder / "GX010005.MOV", bytes), cut});
  const struct {
    const char* name;
    bool isDamagedInside;
  } rows[] = {{"GX010005.MOV", true}, {"GX010002.MOV", false}};
  for (const auto& [name, isDamagedInside] : rows) {
    const RepairDetails* details = model->repairDetails(clip(name).id);
    ASSERT_NE(details, nullptr) << name;
    EXPECT_EQ(details->isDamagedInside, isDamagedInside) << name;
  }
}

Clip clipIn(Clip::State state, bool needsReference = false) {
  return {QUuid::createUuid(), "A1.MP4", 1, std::move(state), needsReference};
}
Join joinIn(Join::State state) {
  return {QUuid::createUuid(), {"A1.MP4", "B1.MP4"}, true, std::move(state)};
}

TEST(FlowStatusTexts, standAsTheyAre) {
  struct Row {
    std::vector<Clip> clips;
    std::vector<Join> joins;
    std::size_t waiting;
    int step;
    const char* text;
  };
  const Clip healthy = clipIn(Clip::Healthy{});
  const Clip preview = clipIn(Clip::Preview{});
  const Clip saved = clipIn(Clip::Saved{});
  const Clip repairing = clipIn(Clip::Repairing{0.5});
  const Join found = joinIn(Join::Preview{});
  const Join joining = joinIn(Join::Joining{0.5});
  const std::vector<Row> rows{
      {{},
       {},
       0,
       0,
       "Drop in the clips or photos that won't open, plus one that does from the same camera."},
      {{clipIn(Clip::Checking{})}, {}, 0, 1, "Checking the files…"},
      {{healthy}, {joinIn(Join::Checking{})}, 0, 1, "Checking the files…"},
      {{repairing}, {}, 0, 1, "Repairing 1 file. Your originals aren't changed."},
      {{repairing, repairing, preview},
       {},
       9,
       1,
       "Repairing 2 files. Your originals aren't changed."},
      {{repairing}, {joining}, 0, 1, "Joining 1 recording. Your originals aren't changed."},
      {{}, {joining, joining}, 0, 1, "Joining 2 recordings. Your originals aren't changed."},
      {{clipIn(Clip::MissingIndex{}, true), preview},
       {},
       1,
       2,
       "Add a file that opens from the same camera, so Repair can rebuild the 1 that need it."},
      {{preview, saved},
       {found},
       0,
       2,
       "1 repaired file and 1 split recording are ready. Check the previews, then save."},
      {{preview, preview},
       {found, found},
       0,
       2,
       "2 repaired files and 2 split recordings are ready. Check the previews, then save."},
      {{healthy},
       {found},
       0,
       2,
       "Found a recording the camera split into parts. Check the preview, then save it as one "
       "clip."},
      {{healthy},
       {found, found},
       0,
       2,
       "Found 2 recordings the camera split into parts. Check the previews, then save each as one "
       "clip."},
      {{saved, healthy},
       {},
       0,
       4,
       "Saved. The new copies are where you chose; the originals are untouched."},
      {{healthy},
       {joinIn(Join::Saved{})},
       0,
       4,
       "Saved. The new copies are where you chose; the originals are untouched."},
      {{healthy, clipIn(Clip::Failed{"x"})}, {}, 0, 1, "Select a file to see what Repair found."},
      {{healthy}, {joinIn(Join::Failed{"x"})}, 0, 1, "Select a file to see what Repair found."},
      {{healthy}, {}, 0, 1, "Everything you added opens fine. Add the files that don't."},
      {{preview},
       {},
       0,
       2,
       "1 repaired file is ready. Check the previews, then save full-quality copies."},
      {{preview, preview, saved},
       {},
       0,
       2,
       "2 repaired files are ready. Check the previews, then save full-quality copies."},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(FlowStatus::text(row.clips, row.joins, row.waiting).toStdString(), row.text);
    EXPECT_EQ(FlowStatus::step(row.clips, row.joins), row.step) << row.text;
  }
}

TEST_F(StateTests, countInTheStatusWhatWaitsForAReference) {
  EXPECT_EQ(model->step(), 0);
  add({noIndex, headlessPhoto});
  EXPECT_EQ(model->stepStatus().toStdString(),
            "Add a file that opens from the same camera, so Repair can rebuild the 2 that need "
            "it.");
  add({goodPhoto});
  EXPECT_EQ(model->stepStatus().toStdString(),
            "Add a file that opens from the same camera, so Repair can rebuild the 1 that need "
            "it.");
}

TEST_F(StateTests, selectTheFileThatAScriptNames) {
  surroundings.select = "IMG_0001.JPG";
  startModel();
  add({cut, goodPhoto});
  ASSERT_NE(model->selectedClip(), nullptr);
  EXPECT_EQ(model->selectedClip()->url, goodPhoto);

  const QSettings settings((folder / "settings.ini").c_str(), QSettings::IniFormat);
  const auto values =
      startupValues({"program", "-TMOpenFiles", "/a b:/c::", "-TMSelect", "ü.MP4"}, settings);
  EXPECT_EQ(values.openFiles, (std::vector<fs::path>{"/a b", "/c"}));
  EXPECT_EQ(values.select, "ü.MP4");
  EXPECT_TRUE(startupValues({"program", "-TMSelect"}, settings).select.empty());
  // As file managers and shells hand over what to open.
  const auto given = startupValues({"program", "--quiet", "-TMAppearance", "dark", "/a%b.MP4",
                                    "file:///c%20d.MOV", "http://e/f"},
                                   settings);
  EXPECT_EQ(given.openFiles, (std::vector<fs::path>{"/a%b.MP4", "/c d.MOV"}));
  EXPECT_EQ(given.appearance, "dark");
}

}  // namespace
}  // namespace tallowmark::testing
