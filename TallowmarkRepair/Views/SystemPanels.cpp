// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/SystemPanels.h"

#include <QFileDialog>
#include <QLabel>
#include <QLayout>
#include <QStandardPaths>

#include "TallowmarkRepair/Views/FilePaths.h"

namespace tallowmark {

namespace {

QFileDialog::FileMode modeOf(PanelRequest::Choice choice) {
  switch (choice) {
    case PanelRequest::Choice::files:
      return QFileDialog::ExistingFiles;
    case PanelRequest::Choice::oneFile:
      return QFileDialog::ExistingFile;
    case PanelRequest::Choice::folder:
    case PanelRequest::Choice::folderToSaveIn:
      break;
  }
  return QFileDialog::Directory;
}

// System panels have a place for the sentence, their title. Qt's own panel, which stands in where
// there is none, has a title bar that would cut it short; there it goes above everything.
void sayIn(QFileDialog& panel, const PanelRequest& request) {
  panel.setWindowTitle(request.message);
  if (QLayout* ownLayout = panel.layout()) {
    panel.setWindowTitle(request.prompt);
    auto* message = new QLabel(request.message, &panel);
    message->setWordWrap(true);
    message->setContentsMargins(9, 9, 9, 3);
    ownLayout->setMenuBar(message);
  }
}

}  // namespace

void SystemPanels::ask(const PanelRequest& request, QWidget* window, Chosen chosen) {
  const bool saving = request.choice == PanelRequest::Choice::folderToSaveIn;
  auto* panel = new QFileDialog(window);
  panel->setAttribute(Qt::WA_DeleteOnClose);
  panel->setFileMode(modeOf(request.choice));
  panel->setOption(QFileDialog::ShowDirsOnly, request.filters.isEmpty());
  panel->setOption(QFileDialog::HideNameFilterDetails);
  panel->setNameFilters(request.filters);
  QUrl& last = saving ? lastDestination_ : lastSource_;
  panel->setDirectoryUrl(last.isValid() ? last
                                        : QUrl::fromLocalFile(QStandardPaths::writableLocation(
                                              QStandardPaths::HomeLocation)));
  sayIn(*panel, request);
  panel->setLabelText(QFileDialog::Accept, request.prompt);
  QObject::connect(panel, &QFileDialog::accepted, window,
                   [panel, &last, chosen = std::move(chosen)] {
                     last = panel->directoryUrl();
                     const auto paths = FilePaths::fromURLs(panel->selectedUrls());
                     if (!paths.empty()) {
                       chosen(paths);
                     }
                   });
  panel->open();
}

}  // namespace tallowmark
