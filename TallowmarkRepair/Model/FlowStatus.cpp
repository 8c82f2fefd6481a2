// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/FlowStatus.h"

#include <QCoreApplication>
#include <algorithm>

namespace tallowmark::FlowStatus {

namespace {

template <class Case, class Item>
std::ptrdiff_t countOf(std::span<const Item> items) {
  return std::count_if(items.begin(), items.end(),
                       [](const Item& item) { return item.template is<Case>(); });
}

QString translated(const char* sentence) {
  return QCoreApplication::translate("RepairModel", sentence);
}

// Each form is a sentence of its own: other languages change more than an "s".
QString counted(std::ptrdiff_t count, const char* one, const char* many) {
  return translated(count == 1 ? one : many).arg(count);
}

QString workingText(std::ptrdiff_t joining, std::ptrdiff_t repairing) {
  if (joining > 0) {
    return counted(joining, "Joining %1 recording. Your originals aren't changed.",
                   "Joining %1 recordings. Your originals aren't changed.");
  }
  if (repairing > 0) {
    return counted(repairing, "Repairing %1 file. Your originals aren't changed.",
                   "Repairing %1 files. Your originals aren't changed.");
  }
  return translated("Checking the files…");
}

QString bothReadyText(std::ptrdiff_t files, std::ptrdiff_t recordings) {
  return translated("%1 and %2 are ready. Check the previews, then save.")
      .arg(counted(files, "%1 repaired file", "%1 repaired files"),
           counted(recordings, "%1 split recording", "%1 split recordings"));
}

QString recordingsReadyText(std::ptrdiff_t recordings) {
  if (recordings == 1) {
    return translated(
        "Found a recording the camera split into parts. Check the preview, then save it as one "
        "clip.");
  }
  return translated(
             "Found %1 recordings the camera split into parts. Check the previews, then save each "
             "as one clip.")
      .arg(recordings);
}

QString nothingReadyText(std::span<const Clip> clips, std::span<const Join> joins) {
  if (step(clips, joins) == 4) {
    return translated("Saved. The new copies are where you chose; the originals are untouched.");
  }
  const bool allHealthy = countOf<Clip::Healthy>(clips) == std::ssize(clips);
  return joins.empty() && allHealthy
             ? translated("Everything you added opens fine. Add the files that don't.")
             : translated("Select a file to see what Repair found.");
}

}  // namespace

bool isBroken(const Clip& clip) {
  return !clip.is<Clip::Healthy>() && !clip.is<Clip::Checking>() && !clip.is<Clip::NotAVideo>();
}

bool isWorking(std::span<const Clip> clips, std::span<const Join> joins) {
  return countOf<Clip::Repairing>(clips) + countOf<Clip::Checking>(clips) +
             countOf<Join::Joining>(joins) + countOf<Join::Checking>(joins) >
         0;
}

int step(std::span<const Clip> clips, std::span<const Join> joins) {
  if (clips.empty() && joins.empty()) {
    return 0;
  }
  const bool savable = countOf<Clip::Preview>(clips) + countOf<Join::Preview>(joins) > 0;
  if (!savable && countOf<Clip::Saved>(clips) + countOf<Join::Saved>(joins) > 0) {
    return 4;
  }
  return savable && !isWorking(clips, joins) ? 2 : 1;
}

QString text(std::span<const Clip> clips, std::span<const Join> joins, std::size_t waiting) {
  if (clips.empty() && joins.empty()) {
    return translated(
        "Drop in the clips or photos that won't open, plus one that does from the same camera.");
  }
  if (isWorking(clips, joins)) {
    return workingText(countOf<Join::Joining>(joins), countOf<Clip::Repairing>(clips));
  }
  if (waiting > 0) {
    return translated(
               "Add a file that opens from the same camera, so Repair can rebuild the %1 that need "
               "it.")
        .arg(waiting);
  }
  const std::ptrdiff_t files = countOf<Clip::Preview>(clips);
  const std::ptrdiff_t recordings = countOf<Join::Preview>(joins);
  if (files > 0 && recordings > 0) {
    return bothReadyText(files, recordings);
  }
  if (recordings > 0) {
    return recordingsReadyText(recordings);
  }
  if (files > 0) {
    return counted(
        files, "%1 repaired file is ready. Check the previews, then save full-quality copies.",
        "%1 repaired files are ready. Check the previews, then save full-quality copies.");
  }
  return nothingReadyText(clips, joins);
}

}  // namespace tallowmark::FlowStatus
