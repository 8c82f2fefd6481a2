// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/ClipPicker.h"

#include <QCoreApplication>

#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

QString translated(const char* text) {
  return QCoreApplication::translate("ClipPicker", text);
}

// Some panels tell upper case from lower.
QString patternsOf(std::initializer_list<Kind> kinds) {
  QStringList patterns;
  for (const Kind kind : kinds) {
    for (const std::string& extension : extensionsOf(kind)) {
      const QString pattern = "*." + QString::fromStdString(extension);
      patterns << pattern << pattern.toUpper();
    }
  }
  return patterns.join(' ');
}

QStringList filter(const char* name, std::initializer_list<Kind> kinds) {
  return {QStringLiteral("%1 (%2)").arg(translated(name), patternsOf(kinds))};
}

QString addingMessage() {
  return translated(
      "Choose the clips or photos that won't open, or a folder of them. Include one that does "
      "open, from the same camera.");
}

}  // namespace

void ClipPicker::addClips(RepairModel& model) {
  panels_.ask({.message = addingMessage(),
               .prompt = translated("Add"),
               .choice = PanelRequest::Choice::files,
               .filters = filter("Clips and photos", {Kind::video, Kind::photo, Kind::raw})},
              &window_, [&model](const std::vector<fs::path>& files) { model.add(files); });
}

void ClipPicker::addFolder(RepairModel& model) {
  panels_.ask({.message = addingMessage(),
               .prompt = translated("Add"),
               .choice = PanelRequest::Choice::folder},
              &window_, [&model](const std::vector<fs::path>& folders) { model.add(folders); });
}

void ClipPicker::chooseReference(ChosenFile chosen) {
  panels_.ask({.message = translated("Choose a clip that plays or a photo that opens, from the "
                                     "same camera with the same settings."),
               .prompt = translated("Use as Reference"),
               .choice = PanelRequest::Choice::oneFile,
               .filters = filter("Clips and JPEG photos", {Kind::video, Kind::photo})},
              &window_, [chosen = std::move(chosen)](const std::vector<fs::path>& files) {
                chosen(files.front());
              });
}

void ClipPicker::joinClips(RepairModel& model) {
  panels_.ask({.message = translated("Choose the parts of one recording. They're joined in name "
                                     "order, without re-encoding."),
               .prompt = translated("Join"),
               .choice = PanelRequest::Choice::files,
               .filters = filter("Clips", {Kind::video})},
              &window_, [&model](const std::vector<fs::path>& parts) { model.join(parts); });
}

void ClipPicker::chooseSaveFolder(ChosenFile chosen) {
  panels_.ask({.message = translated("Choose where to save the repaired copies. Your originals "
                                     "aren't changed."),
               .prompt = translated("Save Here"),
               .choice = PanelRequest::Choice::folderToSaveIn},
              &window_, [chosen = std::move(chosen)](const std::vector<fs::path>& folders) {
                chosen(folders.front());
              });
}

}  // namespace tallowmark
