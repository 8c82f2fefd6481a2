// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <QLocale>

#include "TallowmarkRepair/Views/Detail/PaneActions.h"
#include "TallowmarkRepair/Views/Detail/PaneFacts.h"
#include "TallowmarkRepair/Views/Detail/PaneTexts.h"

namespace tallowmark::testing {
namespace {

using Audio = Clip::Summary::AudioOutcome;
using Lines = std::vector<std::string>;

// Everything a pane says, a line each: status, sentences, facts as "name: value", buttons as
// "[name]", the main one in capitals. What comes with the file of every item is left out.
template <class Item, class Background>
Lines linesOf(const Item& item, const Background& background, const PaneActions& actions) {
  const PaneText text = PaneTexts::of(item, background);
  Lines lines{text.status.toStdString(), text.lead.toStdString()};
  const auto add = [&](const QString& sentence) {
    const QString plain = QString(sentence).replace(QChar::Nbsp, ' ');
    if (!plain.isEmpty()) lines.push_back(plain.toStdString());
  };
  add(text.explanation);
  for (const QString& loss : text.losses) add("! " + loss);
  add(text.advice);
  for (const Fact& fact : PaneFacts::of(item, background)) {
    if (fact.name != "File size" && fact.name != "Original") add(fact.name + ": " + fact.value);
  }
  const Commands commands;
  const auto name = [&](PaneActions::Command command) {
    return (commands.*command)()->objectName();
  };
  for (const auto command : actions.others) add("[" + name(command) + "]");
  if (actions.main != nullptr) add("[" + name(actions.main).toUpper() + "]");
  return lines;
}

Lines linesOf(const Clip& clip, const ClipBackground& background = {}) {
  return linesOf(clip, background, PaneActions::of(clip, background));
}

Lines linesOf(const Join& join, const JoinBackground& background = {}) {
  return linesOf(join, background, PaneActions::of(join));
}

Clip clipIn(Clip::State state, const char* name = "GX01.MP4", bool needsReference = false) {
  return {QUuid(), std::filesystem::path("/card") / name, 1'000'000, std::move(state),
          needsReference};
}

Clip::Summary photoSummary(Clip::PhotoFacts facts) {
  Clip::Summary summary;
  summary.photo = std::move(facts);
  return summary;
}

RepairDetails rebuiltClip(VideoRepair::Result result, Audio) {
  RepairDetails details{
      result, ClipInfo{"H.264", 1920, 1080, 30, 65, "AAC"}, true, {}, false, "/card/GX02.MP4"};
  return details;
}

RepairDetails trimmedClip(double recorded) {
  return {VideoRepair::Result{},
          ClipInfo{"H.264", 1920, 1080, 30, 3, "PCM"},
          false,
          recorded,
          false,
          {}};
}

RepairDetails damagedClip(double recorded) {
  RepairDetails details = trimmedClip(recorded);
  details.isDamagedInside = true;
  return details;
}

RepairDetails photoDetails(JPEGRepair::Result::Fix fix, const char* reference) {
  JPEGRepair::Result result;
  result.fix = fix;
  RepairDetails details{result, {}, false, {}, false, {}};
  if (reference != nullptr) details.reference = reference;
  return details;
}

class TextTests : public ::testing::Test {
 protected:
  TextTests() { QLocale::setDefault(QLocale::c()); }
};

TEST_F(TextTests, tellOfClipsWhatIsWrongWhatWasDoneAndWhatIsLost) {
  VideoRepair::Result damaged;
  damaged.soundBlocksFound = 90;
  damaged.soundBlocksFilled = 10;
  damaged.unusedBytes = 60'000;
  damaged.unusedBy = {.byTrack = {}, .sideTracks = 10'000, .unknown = 50'000};
  VideoRepair::Result withoutSound;
  withoutSound.soundBlocksFound = 25;
  withoutSound.soundBlocksLost = 75;
  withoutSound.soundBlocksFilled = 5;
  const ClipInfo info{"HEVC", 3840, 2160, 25, 65, {}};
  const struct {
    const char* label;
    Clip clip;
    ClipBackground background;
    Lines expected;
  } table[] = {
      {"checking",
       clipIn(Clip::Checking{}),
       {},
       {"Checking…", "Repair is looking for what is wrong.", "Your original isn't changed."}},
      {"healthy",
       clipIn(Clip::Healthy{info}),
       {},
       {"Plays", "This clip plays. There is nothing to fix.",
        "It can help to repair others from the same camera.", "Video: HEVC · 3840×2160 · 25 fps",
        "Length: 1:05", "Sound: None", "[useAsReference]"}},
      {"healthy reference",
       clipIn(Clip::Healthy{}),
       {.isReference = true},
       {"Plays", "This clip plays. There is nothing to fix.",
        "It is the reference: Repair learns from it how the other files should be."}},
      {"healthy chapter",
       clipIn(Clip::Healthy{}),
       {.splitPart = std::pair(2U, 3U)},
       {"Plays", "This clip plays. There is nothing to fix.",
        "It is part 2 of 3 of a recording that Repair can join.", "[useAsReference]"}},
      {"index found behind damage",
       clipIn(Clip::Truncated{0}),
       {},
       {"Damaged", "A part of this clip is damaged: programs won't open it, or stop there.",
        "Its index is still there: Repair keeps everything that it finds by it.",
        "! Pictures that were overwritten can't come back."}},
      {"cut short",
       clipIn(Clip::Truncated{7}),
       {},
       {"Cut short", "This clip is cut short: its end never reached the file.",
        "Repair keeps everything up to the break.",
        "! What came after the break can't come back."}},
      {"no index, nothing to learn from",
       clipIn(Clip::MissingIndex{}, "a.mp4", true),
       {},
       {"Won't open",
        "This clip won't open because recording stopped before the camera wrote its index.",
        "The pictures are most likely still there.",
        "Add a clip that plays, from the same camera and with the same settings. Repair learns "
        "from it how to rebuild this one.",
        "[remove]", "[CHOOSEREFERENCE]"}},
      {"no index, reference there",
       clipIn(Clip::MissingIndex{}, "a.mp4", true),
       {.reference = "/card/b.mp4"},
       {"Won't open",
        "This clip won't open because recording stopped before the camera wrote its index.",
        "Repair rebuilds it with the help of b.mp4."}},
      {"repairing",
       clipIn(Clip::Repairing{0.5}),
       {},
       {"Repairing…", "Repair is working on this clip.", "Your original isn't changed."}},
      {"saving",
       clipIn(Clip::Repairing{0.5}),
       {.isSaving = true},
       {"Saving…", "Repair is writing the full-quality copy.", "Your original isn't changed."}},
      {"trimmed",
       clipIn(Clip::Preview{{90, 3, Audio::recovered, {}}}),
       {.details = trimmedClip(65)},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair kept everything up to where the recording breaks off: 3 seconds.",
        "! The recording went on for another 1:02. That part never reached the file and can't come "
        "back.",
        "Video: H.264 · 1920×1080 · 30 fps", "Length: 0:03 of 1:05 recorded", "Frames: 90",
        "Sound: Recovered (PCM)", "[SAVE]"}},
      {"hardly trimmed",
       clipIn(Clip::Preview{{90, 3, Audio::none, {}}}),
       {.details = trimmedClip(3.2)},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair kept everything up to where the recording breaks off: 3 seconds.",
        "! The very end of the recording never reached the file and can't come back.",
        "Video: H.264 · 1920×1080 · 30 fps", "Length: 0:03", "Frames: 90", "Sound: None",
        "[SAVE]"}},
      {"damaged in its middle",
       clipIn(Clip::Preview{{90, 3, Audio::none, {}}}),
       {.details = damagedClip(3)},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair kept everything that the clip's index describes and that is still there.",
        "! Pictures that were overwritten can't come back.", "Video: H.264 · 1920×1080 · 30 fps",
        "Length: 0:03", "Frames: 90", "Sound: None", "[SAVE]"}},
      {"damaged at its beginning",
       clipIn(Clip::Preview{{90, 3, Audio::none, {}}}),
       {.details = damagedClip(5)},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair kept everything that the clip's index describes and that is still there.",
        "! Of the recording, 2 seconds can't come back.", "Video: H.264 · 1920×1080 · 30 fps",
        "Length: 0:03 of 0:05 recorded", "Frames: 90", "Sound: None", "[SAVE]"}},
      {"by the index behind the damage",
       clipIn(Clip::Preview{{90, 3, Audio::none, {}}}),
       {.details = RepairDetails{VideoRepair::Result{}, {}, false, {}, false, {}}},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair found the clip's own index behind the damage and kept everything that it "
        "describes.",
        "! Pictures that were overwritten can't come back.", "Length: 0:03", "Frames: 90",
        "Sound: None", "[SAVE]"}},
      {"rebuilt, silent",
       clipIn(Clip::Preview{{1950, 65, Audio::notRecoverable, {}}}, "a.mp4", true),
       {.details = rebuiltClip({}, Audio::notRecoverable)},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair found the pictures in the recording and made a new index for them. It learned from "
        "GX02.MP4 how this camera records.",
        "! The sound could not be recovered: the camera compresses it, and only the missing index "
        "told where it is. The copy is silent.",
        "Video: H.264 · 1920×1080 · 30 fps", "Length: 1:05", "Frames: 1950",
        "Sound: Could not be recovered", "Reference: GX02.MP4", "[chooseReference]", "[SAVE]"}},
      {"rebuilt with losses, saved",
       clipIn(Clip::Saved{{1950, 65, Audio::recovered, {}}}),
       {.details = rebuiltClip(damaged, Audio::recovered), .savedCopy = "/out/a (repaired).mp4"},
       {"Saved", "A copy that plays is saved in full quality.",
        "The copy is called a (repaired).mp4. The original is as it was.",
        "! 10 of 100 pieces of the sound are lost. The copy is silent there.",
        "! 50.0 kB of the recording could not be recognised and is not in the copy.",
        "! What the camera records beside picture and sound, such as GPS or motion data, is not in "
        "the copy.",
        "Video: H.264 · 1920×1080 · 30 fps", "Length: 1:05", "Frames: 1950",
        "Sound: Recovered (AAC)", "Not used: 60.0 kB", "Reference: GX02.MP4",
        "Saved copy: /out/a (repaired).mp4", "[openSaved]", "[SHOWINFILEMANAGER]"}},
      {"rebuilt without much of its sound",
       clipIn(Clip::Preview{{1950, 65, Audio::recovered, {}, true}}, "a.mp4", true),
       {.details = rebuiltClip(withoutSound, Audio::recovered)},
       {"Repaired", "This clip plays again. Look at the preview, then save it.",
        "Repair found the pictures in the recording and made a new index for them. It learned from "
        "GX02.MP4 how this camera records.",
        "! About 75 % of the sound is lost.", "Video: H.264 · 1920×1080 · 30 fps", "Length: 1:05",
        "Frames: 1950", "Sound: Recovered in part (AAC)", "Reference: GX02.MP4",
        "[chooseReference]", "[SAVE]"}},
      {"failed",
       clipIn(Clip::Failed{"Couldn't read this file."}),
       {},
       {"Couldn't repair", "Repair couldn't bring this clip back.", "Couldn't read this file.",
        "If it is on a card or an external disk, make sure that this is connected, then try again.",
        "[remove]", "[RETRY]"}},
      {"failed with reference",
       clipIn(Clip::Failed{"No video."}, "a.mp4", true),
       {},
       {"Couldn't repair", "Repair couldn't bring this clip back.", "No video.",
        "Another reference may help: a file that opens, from the same camera, taken with exactly "
        "the same settings.",
        "[remove]", "[retry]", "[CHOOSEREFERENCE]"}},
      {"failed to save",
       clipIn(Clip::Failed{"The disk is full."}),
       {.details = trimmedClip(9)},
       {"Couldn't save", "Repair couldn't save the copy.", "The disk is full.",
        "Try again, and choose a folder on a disk with room for it.", "[remove]", "[RETRY]"}},
      {"a folder",
       clipIn(Clip::Failed{"Couldn't look into this folder."}, "DCIM"),
       {},
       {"Couldn't repair", "Repair couldn't read this folder.", "Couldn't look into this folder.",
        "If it is on a card or an external disk, make sure that this is connected, then try again.",
        "[remove]", "[RETRY]"}},
      {"no clip",
       clipIn(Clip::NotAVideo{}),
       {},
       {"Not a video Repair can read", "There is no clip in this file that Repair can read.",
        "Its name says video, but its content is neither MP4 nor MOV with a picture in it.",
        "If it came from a card, copy it from there once more, then try again.", "[retry]",
        "[REMOVE]"}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(linesOf(row.clip, row.background), row.expected) << row.label;
  }
}

TEST_F(TextTests, tellOfPhotosAndRAWFilesTheSame) {
  using Fix = JPEGRepair::Result::Fix;
  const struct {
    const char* label;
    Clip clip;
    ClipBackground background;
    Lines expected;
  } table[] = {
      {"healthy",
       clipIn(Clip::Healthy{ClipInfo::ofPhoto(4000, 3000, "JPEG")}, "a.jpg"),
       {},
       {"Opens", "This photo opens. There is nothing to fix.",
        "It can help to repair others from the same camera.", "Format: JPEG",
        "Picture: 4000×3000 (12 megapixels)", "[useAsReference]"}},
      {"cut short",
       clipIn(Clip::Truncated{}, "a.jpg"),
       {},
       {"Cut short", "This photo is cut short: the end of the picture is missing.",
        "Repair closes the file, so that it opens.", "! The missing bottom will show gray."}},
      {"no header",
       clipIn(Clip::MissingIndex{}, "a.jpg", true),
       {},
       {"Header damaged",
        "This photo won't open because its header, which says how to read the picture, is damaged.",
        "The picture itself is most likely still there.",
        "Add a photo that opens, from the same camera and with the same settings. Repair takes the "
        "missing parts of the header from it.",
        "[remove]", "[CHOOSEREFERENCE]"}},
      {"enough of a header",
       clipIn(Clip::MissingIndex{}, "a.jpg"),
       {},
       {"Header damaged",
        "This photo won't open because its header, which says how to read the picture, is damaged.",
        "Enough of it is left for Repair to rebuild it."}},
      {"closed",
       clipIn(Clip::Preview{photoSummary({800, 600, true, {}, false, false})}, "a.jpg"),
       {.details = photoDetails(Fix::closedEnd, nullptr)},
       {"Repaired", "This photo opens again. Look at it, then save it.",
        "Repair closed the file where it breaks off.",
        "! The bottom of the picture is not in the file. It shows gray.", "Picture: 800×600",
        "[SAVE]"}},
      {"mended within",
       clipIn(Clip::Preview{photoSummary({800, 600, false, {}, false, false})}, "a.jpg"),
       {.details = photoDetails(Fix::closedEnd, nullptr)},
       {"Repaired", "This photo opens again. Look at it, then save it.",
        "Repair mended the places at which programs stop reading the picture.", "Picture: 800×600",
        "[SAVE]"}},
      {"rebuilt",
       clipIn(Clip::Saved{photoSummary({800, 600, false, {"Huffman tables"}, false, false})},
              "a.jpg"),
       {.details = photoDetails(Fix::rebuiltHeader, "/card/b.jpg")},
       {"Saved", "A copy that opens is saved in full quality.",
        "The copy is where you chose. The original is as it was.",
        "! Date, place and camera settings were lost with the header. They are not in the copy.",
        "Picture: 800×600", "From the reference: Huffman tables", "Reference: b.jpg", "[openSaved]",
        "[SHOWINFILEMANAGER]"}},
      {"rebuilt from its own",
       clipIn(Clip::Preview{photoSummary({800, 600, false, {}, false, false})}, "a.jpg"),
       {.details = photoDetails(Fix::rebuiltHeader, nullptr)},
       {"Repaired", "This photo opens again. Look at it, then save it.",
        "Repair rebuilt the damaged header from what is left of it.",
        "! Date, place and camera settings were lost with the header. They are not in the copy.",
        "Picture: 800×600", "[SAVE]"}},
      {"no photo",
       clipIn(Clip::NotAVideo{}, "a.jpg"),
       {},
       {"Not a JPEG Repair can read", "There is no picture in this file that Repair can read.",
        "Its name says JPEG, but there is no picture data in it.",
        "If it came from a card, copy it from there once more, then try again.", "[retry]",
        "[REMOVE]"}},
      {"RAW",
       clipIn(Clip::RawFile{}, "a.nef"),
       {},
       {"RAW", "Repair can rescue the picture that the camera stored inside this RAW file.",
        "It is a JPEG in the camera's own rendering.", "! The raw data itself isn't repaired."}},
      {"rescued",
       clipIn(Clip::Preview{photoSummary({4000, 3000, true, {}, true, true})}, "a.nef"),
       {},
       {"Rescued", "The picture in this RAW file is rescued. Look at it, then save it.",
        "This is the picture that the camera stored inside the RAW file, with the date, settings "
        "and orientation of that file.",
        "! The bottom of the picture is not in the file. It shows gray.",
        "Picture: 4000×3000 (12 megapixels)", "Camera details: Copied from the RAW file",
        "[SAVE]"}},
      {"rescued without details",
       clipIn(Clip::Preview{photoSummary({4000, 3000, false, {}, true, false})}, "a.nef"),
       {},
       {"Rescued", "The picture in this RAW file is rescued. Look at it, then save it.",
        "This is the picture that the camera stored inside the RAW file.",
        "! The RAW file's date and camera settings could not be copied over.",
        "Picture: 4000×3000 (12 megapixels)", "Camera details: Not copied", "[SAVE]"}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(linesOf(row.clip, row.background), row.expected) << row.label;
  }
}

TEST_F(TextTests, tellOfJoinsWhatIsKeptAndLeftOut) {
  const std::string split =
      "The camera split this recording into 2 files to stay under the card's 4 GB file limit. "
      "Repair joins them back into one clip.";
  const auto joinIn = [](Join::State state) {
    return Join{QUuid(), {"/card/GX010001.MP4", "/card/GX020001.MP4"}, true, std::move(state)};
  };
  const ClipJoin::Result result{2, 125, 3750, 5'000'000, 3, 1};
  const Lines facts{"Length: 2:05", "Frames: 3750", "Size: 5.0 MB",
                    "Extra tracks: 3 kept, 1 left out", "Folder: /card"};
  const auto with = [&](Lines lines, const Lines& more) {
    lines.insert(lines.end(), facts.begin(), facts.end());
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
  };
  const JoinBackground background{
      {{4'000'000, 100}, {1'000'000, 25}}, "GX030001.MP4 is missing.", {}};
  EXPECT_EQ(
      linesOf(joinIn(Join::Preview{result}), background),
      with({"Ready to join", split,
            "Pictures and sound stay exactly as they were recorded. 3 tracks beside them, such "
            "as telemetry and timecode, are kept.",
            "! GX030001.MP4 is missing.",
            "! 1 extra track is left out, because not every part has it."},
           {"[showParts]", "[SAVE]"}));
  EXPECT_EQ(linesOf(joinIn(Join::Saved{result}), {{}, {}, "/out/GX010001 (joined).MP4"}),
            with({"Saved as one clip", split,
                  "The joined clip is called GX010001 (joined).MP4. The parts are as they were.",
                  "! 1 extra track is left out, because not every part has it."},
                 {"Saved copy: /out/GX010001 (joined).MP4", "[openSaved]", "[SHOWINFILEMANAGER]"}));
  EXPECT_EQ(linesOf(joinIn(Join::Incompatible{"They differ."})),
            (Lines{"Can't be joined", split, "They differ.",
                   "Join only parts of one recording: from one camera, with the same settings, and "
                   "with none left out.",
                   "Folder: /card", "[remove]", "[showParts]", "[JOINPARTS]"}));
  EXPECT_EQ(linesOf(joinIn(Join::Failed{"It is gone."})),
            (Lines{"Couldn't join", split, "It is gone.",
                   "Make sure that all parts are where they were and that the disk they are on is "
                   "connected, then try again.",
                   "Folder: /card", "[remove]", "[showParts]", "[RETRY]"}));
  EXPECT_EQ(PaneFacts::parts(joinIn(Join::Checking{}), background),
            (std::vector<Fact>{{"Part 1", "GX010001.MP4 · 4.0 MB · 1:40"},
                               {"Part 2", "GX020001.MP4 · 1.0 MB · 0:25"}}));
}

TEST_F(TextTests, shortenLongNamesBetweenCharacters) {
  const QString name = QString(30, u'a') + QStringLiteral("旅行🚞") + QString(30, u'b') + ".MOV";
  const QString shown = PaneTexts::nameInSentence(name.toStdString());
  EXPECT_EQ(shown, QString(20, u'a') + "…" + QString(15, u'b') + ".MOV");
  EXPECT_EQ(PaneTexts::nameInSentence("GX010123.MP4"), "GX010123.MP4");
}

}  // namespace
}  // namespace tallowmark::testing
