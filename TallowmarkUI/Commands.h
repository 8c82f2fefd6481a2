// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAction>
#include <QObject>

namespace tallowmark {

/// Everything the user can ask for, each as one action that menus, context menus and buttons share:
/// its words, its shortcut, and whether it can be asked for now. What it does is connected by who
/// can do it. The actions are owned here and never null; an action's object name is its accessor's.
class Commands final : public QObject {
  Q_OBJECT

 public:
  explicit Commands(QObject* parent = nullptr);

  QAction* add() const { return add_; }
  QAction* addFolder() const { return addFolder_; }
  QAction* chooseReference() const { return chooseReference_; }
  QAction* joinParts() const { return joinParts_; }
  QAction* saveAll() const { return saveAll_; }
  QAction* clear() const { return clear_; }

  // These are about the selected item.
  QAction* useAsReference() const { return useAsReference_; }
  QAction* save() const { return save_; }
  QAction* retry() const { return retry_; }
  QAction* remove() const { return remove_; }
  /// The saved copy where there is one, else the original.
  QAction* showInFileManager() const { return showInFileManager_; }
  QAction* openSaved() const { return openSaved_; }
  /// Of a split recording.
  QAction* showParts() const { return showParts_; }

  QAction* checkForUpdates() const { return checkForUpdates_; }
  QAction* about() const { return about_; }
  QAction* quit() const { return quit_; }

 private:
  QAction* make(const char* name, const QString& text, const QString& explanation,
                const QList<QKeySequence>& shortcuts = {});
  void takePlacesOfTheMac();

  QAction* add_;
  QAction* addFolder_;
  QAction* chooseReference_;
  QAction* joinParts_;
  QAction* saveAll_;
  QAction* clear_;
  QAction* useAsReference_;
  QAction* save_;
  QAction* retry_;
  QAction* remove_;
  QAction* showInFileManager_;
  QAction* openSaved_;
  QAction* showParts_;
  QAction* checkForUpdates_;
  QAction* about_;
  QAction* quit_;
};

}  // namespace tallowmark
