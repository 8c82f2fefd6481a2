// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PaneTexts.h"

#include <QLocale>
#include <cmath>

#include "TallowmarkRepair/Model/ItemTexts.h"
#include "TallowmarkRepair/Views/Detail/PaneWords.h"

namespace tallowmark {

namespace {

using AudioOutcome = Clip::Summary::AudioOutcome;
using Tone = PaneText::Tone;
using PaneWords::tr;

bool isFile(const Clip& clip) {
  return kindOf(clip.url).has_value();
}

QString perKind(Kind kind, const char* video, const char* photo, const char* raw) {
  return tr(kind == Kind::video ? video : kind == Kind::photo ? photo : raw);
}

QString originalsStay() {
  return tr("Your original isn't changed.");
}

// "1:05", or seconds where they are few.
QString stretch(double seconds) {
  const auto whole = static_cast<int>(std::lround(seconds));
  if (whole >= 60) {
    return ItemTexts::duration(seconds);
  }
  QString text = whole == 1 ? tr("1 second") : tr("%1 seconds").arg(whole);
  return text.replace(QLatin1Char(' '), QChar::Nbsp);
}

// Not made anew, and not found where players look for it.
bool isByItsOwnIndex(const ClipBackground& background) {
  return background.details && !background.details->rebuilt && !background.details->secondsRecorded;
}

// Not cut short, or not only.
bool isDamagedInside(const ClipBackground& background) {
  return background.details && background.details->isDamagedInside;
}

void addLostMiddle(std::vector<QString>& losses, double secondsLost) {
  if (secondsLost >= 0.5) {
    losses.push_back(tr("Of the recording, %1 can't come back.").arg(stretch(secondsLost)));
  } else {
    losses.push_back(tr("Pictures that were overwritten can't come back."));
  }
}

void addLostEnd(std::vector<QString>& losses, double secondsLost) {
  if (secondsLost >= 0.5) {
    losses.push_back(
        tr("The recording went on for another %1. That part never reached the file and "
           "can't come back.")
            .arg(stretch(secondsLost)));
  } else {
    losses.push_back(
        tr("The very end of the recording never reached the file and can't come back."));
  }
}

void addLostSound(std::vector<QString>& losses, const VideoRepair::Result& result) {
  const std::uint64_t found = result.soundBlocksFound;
  const qulonglong filled = result.soundBlocksFilled;
  const std::uint64_t lost = result.soundBlocksLost;
  if (lost > filled) {
    const qulonglong percent = std::max<std::uint64_t>(100 * lost / (lost + found), 1);
    losses.push_back(tr("About %1 % of the sound is lost.").arg(percent));
  } else if (filled > 0) {
    losses.push_back(tr("%1 of %2 pieces of the sound are lost. The copy is silent there.")
                         .arg(QLocale().toString(filled), QLocale().toString(filled + found)));
  }
}

// Beyond a fiftieth of the file, pictures or sound may be among what could not be used.
void addUnused(std::vector<QString>& losses, const Clip& clip, const VideoRepair::Result& result) {
  const VideoRepair::UnusedBytes& by = result.unusedBy;
  constexpr std::uint64_t negligible = 50;
  const std::uint64_t lost = by.sound + by.unknown + by.otherPictures;
  if (lost > clip.size / negligible) {
    losses.push_back(tr("%1 of the recording could not be recognised and is not in the copy.")
                         .arg(QLocale().formattedDataSize(static_cast<qint64>(lost), 1,
                                                          QLocale::DataSizeSIFormat)));
  }
  if (result.telemetrySamples > 0 && (by.sideTracks > 0 || !by.byTrack.empty())) {
    losses.push_back(
        tr("Some of what the camera records beside picture and sound is not in the copy."));
  } else if (by.sideTracks > 0 || !by.byTrack.empty()) {
    losses.push_back(
        tr("What the camera records beside picture and sound, such as GPS or motion "
           "data, is not in the copy."));
  }
}

std::vector<QString> clipLosses(const Clip& clip, const Clip::Summary& summary,
                                const ClipBackground& background) {
  std::vector<QString> losses;
  const auto* details = background.details ? &*background.details : nullptr;
  if (details != nullptr && details->secondsRecorded) {
    const double lost = *details->secondsRecorded - summary.seconds;
    details->isDamagedInside ? addLostMiddle(losses, lost) : addLostEnd(losses, lost);
  }
  if (isByItsOwnIndex(background)) {
    losses.push_back(tr("Pictures that were overwritten can't come back."));
  }
  if (summary.audio == AudioOutcome::notRecoverable) {
    losses.push_back(
        tr("The sound could not be recovered: the camera compresses it, and only the "
           "missing index told where it is. The copy is silent."));
  }
  const auto* result =
      details == nullptr ? nullptr : std::get_if<VideoRepair::Result>(&details->facts);
  if (result != nullptr) addLostSound(losses, *result);
  if (result != nullptr && details->rebuilt) addUnused(losses, clip, *result);
  return losses;
}

bool hasRebuiltHeader(const ClipBackground& background) {
  const auto* result =
      background.details ? std::get_if<JPEGRepair::Result>(&background.details->facts) : nullptr;
  return result != nullptr && result->fix == JPEGRepair::Result::Fix::rebuiltHeader;
}

std::vector<QString> pictureLosses(const Clip::PhotoFacts& facts,
                                   const ClipBackground& background) {
  std::vector<QString> losses;
  if (facts.incomplete) {
    losses.push_back(tr("The bottom of the picture is not in the file. It shows gray."));
  }
  if (!facts.fromRAW && hasRebuiltHeader(background)) {
    losses.push_back(
        tr("Date, place and camera settings were lost with the header. They are not in the copy."));
  }
  if (facts.fromRAW && !facts.keptDetails) {
    losses.push_back(tr("The RAW file's date and camera settings could not be copied over."));
  }
  return losses;
}

std::vector<QString> lossesOf(const Clip& clip, const Clip::Summary& summary,
                              const ClipBackground& background) {
  return summary.photo ? pictureLosses(*summary.photo, background)
                       : clipLosses(clip, summary, background);
}

QString whatWasDoneToClip(const Clip::Summary& summary, const ClipBackground& background) {
  const auto& details = background.details;
  if (details && details->rebuilt) {
    return details->reference
               ? tr("Repair found the pictures in the recording and made a new index for them. It "
                    "learned from %1 how this camera records.")
                     .arg(PaneTexts::nameInSentence(*details->reference))
               : tr("Repair found the pictures in the recording and made a new index for them.");
  }
  if (isByItsOwnIndex(background)) {
    return tr(
        "Repair found the clip's own index behind the damage and kept everything that it "
        "describes.");
  }
  if (isDamagedInside(background)) {
    return tr("Repair kept everything that the clip's index describes and that is still there.");
  }
  return tr("Repair kept everything up to where the recording breaks off: %1.")
      .arg(stretch(summary.seconds));
}

QString whatWasDoneToPicture(const Clip::PhotoFacts& facts, const ClipBackground& background) {
  if (facts.fromRAW) {
    return facts.keptDetails
               ? tr("This is the picture that the camera stored inside the RAW file, with the "
                    "date, "
                    "settings and orientation of that file.")
               : tr("This is the picture that the camera stored inside the RAW file.");
  }
  if (!hasRebuiltHeader(background)) {
    return facts.incomplete
               ? tr("Repair closed the file where it breaks off.")
               : tr("Repair mended the places at which programs stop reading the picture.");
  }
  return !facts.borrowed.empty() && background.details->reference
             ? tr("Repair rebuilt the damaged header with the help of %1.")
                   .arg(PaneTexts::nameInSentence(*background.details->reference))
             : tr("Repair rebuilt the damaged header from what is left of it.");
}

QString whatWasDone(const Clip::Summary& summary, const ClipBackground& background) {
  return summary.photo ? whatWasDoneToPicture(*summary.photo, background)
                       : whatWasDoneToClip(summary, background);
}

QString neededReference(Kind kind) {
  return kind == Kind::video
             ? tr("Add a clip that plays, from the same camera and with the same settings. Repair "
                  "learns from it how to rebuild this one.")
             : tr("Add a photo that opens, from the same camera and with the same settings. Repair "
                  "takes the missing parts of the header from it.");
}

QString savedWhere(const std::optional<std::filesystem::path>& copy) {
  return copy ? tr("The copy is called %1. The original is as it was.")
                    .arg(PaneTexts::nameInSentence(*copy))
              : tr("The copy is where you chose. The original is as it was.");
}

/// The text of a clip's pane, by state.
struct ClipText {
  const Clip& clip;
  const ClipBackground& background;

  PaneText operator()(const Clip::Checking&) const {
    return {Tone::working,
            tr("Checking…"),
            tr("Repair is looking for what is wrong."),
            originalsStay(),
            {},
            {}};
  }

  PaneText operator()(const Clip::Healthy&) const {
    const bool isClip = clip.kind() == Kind::video;
    PaneText text{Tone::fine,
                  tr(isClip ? "Plays" : "Opens"),
                  isClip ? tr("This clip plays. There is nothing to fix.")
                         : tr("This photo opens. There is nothing to fix."),
                  {},
                  {},
                  {}};
    if (background.splitPart) {
      text.explanation = tr("It is part %1 of %2 of a recording that Repair can join.")
                             .arg(background.splitPart->first)
                             .arg(background.splitPart->second);
    } else {
      text.explanation =
          background.isReference
              ? tr("It is the reference: Repair learns from it how the other files should be.")
              : tr("It can help to repair others from the same camera.");
    }
    return text;
  }

  PaneText operator()(const Clip::Truncated& state) const {
    if (clip.kind() == Kind::video && state.missingSamples == 0) {
      return {Tone::attention,
              tr("Damaged"),
              tr("A part of this clip is damaged: programs won't open it, or stop there."),
              tr("Its index is still there: Repair keeps everything that it finds by it."),
              {tr("Pictures that were overwritten can't come back.")},
              {}};
    }
    return clip.kind() == Kind::video
               ? PaneText{Tone::attention,
                          tr("Cut short"),
                          tr("This clip is cut short: its end never reached the file."),
                          tr("Repair keeps everything up to the break."),
                          {tr("What came after the break can't come back.")},
                          {}}
               : PaneText{Tone::attention,
                          tr("Cut short"),
                          tr("This photo is cut short: the end of the picture is missing."),
                          tr("Repair closes the file, so that it opens."),
                          {tr("The missing bottom will show gray.")},
                          {}};
  }

  PaneText operator()(const Clip::Repairing&) const {
    if (background.isSaving) {
      return {Tone::working,
              tr("Saving…"),
              tr("Repair is writing the full-quality copy."),
              originalsStay(),
              {},
              {}};
    }
    return {
        Tone::working,
        tr("Repairing…"),
        perKind(clip.kind(), "Repair is working on this clip.", "Repair is working on this photo.",
                "Repair is looking for the picture inside this RAW file."),
        originalsStay(),
        {},
        {}};
  }

  PaneText operator()(const Clip::Preview& state) const {
    return {Tone::ready,
            perKind(clip.kind(), "Repaired", "Repaired", "Rescued"),
            perKind(clip.kind(), "This clip plays again. Look at the preview, then save it.",
                    "This photo opens again. Look at it, then save it.",
                    "The picture in this RAW file is rescued. Look at it, then save it."),
            whatWasDone(state.summary, background),
            lossesOf(clip, state.summary, background),
            {}};
  }

  PaneText operator()(const Clip::Saved& state) const {
    return {Tone::fine,
            tr("Saved"),
            perKind(clip.kind(), "A copy that plays is saved in full quality.",
                    "A copy that opens is saved in full quality.",
                    "The rescued picture is saved in full quality."),
            savedWhere(background.savedCopy),
            lossesOf(clip, state.summary, background),
            {}};
  }

  PaneText operator()(const Clip::Failed& state) const {
    if (background.details) {
      return {Tone::failed,
              tr("Couldn't save"),
              tr("Repair couldn't save the copy."),
              QString::fromStdString(state.text),
              {},
              tr("Try again, and choose a folder on a disk with room for it.")};
    }
    PaneText text{Tone::failed,
                  tr("Couldn't repair"),
                  isFile(clip) ? perKind(clip.kind(), "Repair couldn't bring this clip back.",
                                         "Repair couldn't bring this photo back.",
                                         "Repair couldn't rescue a picture from this RAW file.")
                               : tr("Repair couldn't read this folder."),
                  QString::fromStdString(state.text),
                  {},
                  {}};
    text.advice = clip.needsReference
                      ? tr("Another reference may help: a file that opens, from the same camera, "
                           "taken with exactly the same settings.")
                      : tr("If it is on a card or an external disk, make sure that this is "
                           "connected, then try again.");
    return text;
  }

  PaneText operator()(const Clip::MissingIndex&) const {
    const bool isClip = clip.kind() == Kind::video;
    PaneText text{Tone::attention,
                  tr(isClip ? "Won't open" : "Header damaged"),
                  isClip
                      ? tr("This clip won't open because recording stopped before the camera "
                           "wrote its index.")
                      : tr("This photo won't open because its header, which says how to read the "
                           "picture, is damaged."),
                  {},
                  {},
                  {}};
    if (background.reference) {
      text.explanation = tr("Repair rebuilds it with the help of %1.")
                             .arg(PaneTexts::nameInSentence(*background.reference));
    } else if (clip.needsReference) {
      text.explanation = isClip ? tr("The pictures are most likely still there.")
                                : tr("The picture itself is most likely still there.");
      text.advice = neededReference(clip.kind());
    } else {
      text.explanation = tr("Enough of it is left for Repair to rebuild it.");
    }
    return text;
  }

  PaneText operator()(const Clip::RawFile&) const {
    return {Tone::attention,
            tr("RAW"),
            tr("Repair can rescue the picture that the camera stored inside this RAW file."),
            tr("It is a JPEG in the camera's own rendering."),
            {tr("The raw data itself isn't repaired.")},
            {}};
  }

  PaneText operator()(const Clip::NotAVideo&) const {
    return clip.kind() == Kind::video
               ? PaneText{Tone::failed,
                          tr("Not a video Repair can read"),
                          tr("There is no clip in this file that Repair can read."),
                          tr("Its name says video, but its content is neither MP4 nor MOV with a "
                             "picture in it."),
                          {},
                          tr("If it came from a card, copy it from there once more, then try "
                             "again.")}
               : PaneText{Tone::failed,
                          tr("Not a JPEG Repair can read"),
                          tr("There is no picture in this file that Repair can read."),
                          tr("Its name says JPEG, but there is no picture data in it."),
                          {},
                          tr("If it came from a card, copy it from there once more, then try "
                             "again.")};
  }
};

QString extraTracks(std::int64_t count, const char* one, const char* many) {
  return tr(count == 1 ? one : many).arg(count);
}

QString whatJoiningKeeps(const ClipJoin::Result& result) {
  QString text = tr("Pictures and sound stay exactly as they were recorded.");
  if (result.extraTracksKept > 0) {
    text += QLatin1Char(' ') +
            extraTracks(result.extraTracksKept,
                        "%1 track beside them, such as telemetry or timecode, is kept.",
                        "%1 tracks beside them, such as telemetry and timecode, are kept.");
  }
  return text;
}

/// The text of a join's pane, by state.
struct JoinText {
  const Join& join;
  const JoinBackground& background;

  std::vector<QString> losses(const ClipJoin::Result& result) const {
    std::vector<QString> losses;
    if (!background.missingParts.isEmpty()) {
      losses.push_back(background.missingParts);
    }
    if (result.extraTracksDropped > 0) {
      losses.push_back(extraTracks(
          result.extraTracksDropped, "%1 extra track is left out, because not every part has it.",
          "%1 extra tracks are left out, because not every part has them."));
    }
    return losses;
  }

  PaneText text(Tone tone, const QString& status, const QString& explanation) const {
    return {tone, status, ItemTexts::introduction(join), explanation, {}, {}};
  }

  PaneText operator()(const Join::Checking&) const {
    return text(Tone::working, tr("Checking…"),
                tr("Repair is checking that the parts fit together."));
  }
  PaneText operator()(const Join::Joining&) const {
    return text(Tone::working, tr("Joining…"),
                tr("The joined clip is being written. Your originals aren't changed."));
  }
  PaneText operator()(const Join::Preview& state) const {
    PaneText said = text(Tone::ready, tr("Ready to join"), whatJoiningKeeps(state.result));
    said.losses = losses(state.result);
    return said;
  }
  PaneText operator()(const Join::Saved& state) const {
    PaneText said =
        text(Tone::fine, tr("Saved as one clip"),
             background.savedCopy
                 ? tr("The joined clip is called %1. The parts are as they were.")
                       .arg(PaneTexts::nameInSentence(*background.savedCopy))
                 : tr("The joined clip is where you chose. The parts are as they were."));
    said.losses = losses(state.result);
    return said;
  }
  PaneText operator()(const Join::Incompatible& state) const {
    PaneText said = text(Tone::failed, tr("Can't be joined"), QString::fromStdString(state.text));
    said.advice =
        tr("Join only parts of one recording: from one camera, with the same settings, and "
           "with none left out.");
    return said;
  }
  PaneText operator()(const Join::Failed& state) const {
    PaneText said = text(Tone::failed, tr("Couldn't join"), QString::fromStdString(state.text));
    said.advice =
        tr("Make sure that all parts are where they were and that the disk they are on is "
           "connected, then try again.");
    return said;
  }
};

}  // namespace

QString PaneTexts::nameInSentence(const std::filesystem::path& file) {
  constexpr qsizetype most = 40;
  const QList<uint> name = QString::fromStdString(file.filename().string()).toUcs4();
  const auto text = [](const QList<uint>& characters) {
    const std::u32string codes(characters.begin(), characters.end());
    return QString::fromStdU32String(codes);
  };
  return name.size() <= most
             ? text(name)
             : text(name.first(most / 2)) + QStringLiteral("…") + text(name.last(most / 2 - 1));
}

PaneText PaneTexts::of(const Clip& clip, const ClipBackground& background) {
  return std::visit(ClipText{clip, background}, clip.state);
}

PaneText PaneTexts::of(const Join& join, const JoinBackground& background) {
  return std::visit(JoinText{join, background}, join.state);
}

}  // namespace tallowmark
