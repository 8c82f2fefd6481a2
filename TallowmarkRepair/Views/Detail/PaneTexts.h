// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <filesystem>
#include <vector>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"
#include "TallowmarkRepair/Views/Detail/ItemBackground.h"

namespace tallowmark {

/// What a pane says of an item, from the first line on.
struct PaneText {
  /// How it stands; shown as an icon beside the words.
  enum class Tone { working, fine, ready, attention, failed };

  Tone tone = Tone::working;
  /// "Repaired", "Cut short".
  QString status;
  /// One sentence: what is wrong, or what was done.
  QString lead;
  /// What Repair will do or has done; may be empty.
  QString explanation;
  /// What cannot come back, a sentence each.
  std::vector<QString> losses;
  /// What the user can try; empty where nothing needs to be.
  QString advice;
};

/// The words of the panes: functions of what they speak of alone.
namespace PaneTexts {

PaneText of(const Clip& clip, const ClipBackground& background);
PaneText of(const Join& join, const JoinBackground& background);

/// A file's name for use in a sentence; long ones lose their middle.
QString nameInSentence(const std::filesystem::path& file);

}  // namespace PaneTexts
}  // namespace tallowmark
