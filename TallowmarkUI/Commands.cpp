// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/Commands.h"

#include <QKeySequence>

#include "TallowmarkUI/PlatformWords.h"

namespace tallowmark {

Commands::Commands(QObject* parent)
    : QObject(parent),
      add_(make("add", tr("Add Files…"), tr("Add clips or photos that won't open"),
                QKeySequence::keyBindings(QKeySequence::Open))),
      addFolder_(make("addFolder", tr("Add Folder…"), tr("Add all clips and photos of a folder"),
                      {Qt::CTRL | Qt::SHIFT | Qt::Key_O})),
      chooseReference_(make("chooseReference", tr("Choose Reference…"),
                            tr("Choose a file that opens, from the same camera"),
                            {Qt::CTRL | Qt::SHIFT | Qt::Key_R})),
      joinParts_(make("joinParts", tr("Join Parts…"),
                      tr("Choose the parts of one recording and join them"),
                      {Qt::CTRL | Qt::Key_J})),
      saveAll_(make("saveAll", tr("Save All…"), tr("Save a copy of everything that is ready"),
                    {Qt::CTRL | Qt::SHIFT | Qt::Key_S})),
      clear_(make("clear", tr("Clear List"),
                  tr("Take everything off the list. Files on the disk stay."))),
      useAsReference_(make("useAsReference", tr("Use as Reference"),
                           tr("Repair the other files with the help of this one"))),
      save_(make("save", tr("Save…"), tr("Save a full-quality copy in a folder you choose"),
                 QKeySequence::keyBindings(QKeySequence::Save))),
      retry_(make("retry", tr("Try Again"), tr("Check this again"),
                  QKeySequence::keyBindings(QKeySequence::Refresh))),
      remove_(make("remove", tr("Remove from List"),
                   tr("Take this off the list. The file on the disk stays."),
                   {Qt::Key_Delete, Qt::CTRL | Qt::Key_Backspace})),
      showInFileManager_(make("showInFileManager", PlatformWords::showInFileManager(),
                              tr("Show where this file is"), {Qt::CTRL | Qt::Key_E})),
      openSaved_(make("openSaved", tr("Open Saved Copy"), tr("Open the copy that was saved"),
                      {Qt::CTRL | Qt::Key_Return})),
      showParts_(make("showParts", PlatformWords::showPartsInFileManager(),
                      tr("Show where the parts of this recording are"))),
      checkForUpdates_(make("checkForUpdates", tr("Check for Updates…"),
                            tr("See whether there is a newer version"))),
      about_(make("about", tr("About Tallowmark Repair"), tr("Version and licences"))),
      quit_(make("quit", tr("Quit Tallowmark Repair"), tr("Close the window and quit"),
                 QKeySequence::keyBindings(QKeySequence::Quit))) {
  takePlacesOfTheMac();
}

QAction* Commands::make(const char* name, const QString& text, const QString& explanation,
                        const QList<QKeySequence>& shortcuts) {
  auto* action = new QAction(text, this);
  action->setObjectName(QLatin1String(name));
  action->setToolTip(explanation);
  action->setStatusTip(explanation);
  action->setShortcuts(shortcuts);
  // Without it the Mac guesses from the text and moves actions to its own menu.
  action->setMenuRole(QAction::NoRole);
  return action;
}

// The Mac has these in the menu that is named after the application; other systems leave them where
// they are put.
void Commands::takePlacesOfTheMac() {
  about_->setMenuRole(QAction::AboutRole);
  checkForUpdates_->setMenuRole(QAction::ApplicationSpecificRole);
  quit_->setMenuRole(QAction::QuitRole);
}

}  // namespace tallowmark
