// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <filesystem>
#include <memory>

#include "Updates/UpdaterController.h"

namespace tallowmark {

/// Looks for new versions of the application, where its bundle is set up for that: builds made for
/// testing run without a feed. For the main thread.
class AppUpdater final : public QObject {
  Q_OBJECT
  /// Whether a check can be started now.
  Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates NOTIFY canCheckForUpdatesChanged)

 public:
  /// `bundle` is the application's folder, "Tallowmark Repair.app". Its controller, if it is to
  /// have one, is made and started here.
  explicit AppUpdater(const std::filesystem::path& bundle,
                      const MakeUpdaterController& makeController = makeUpdaterController,
                      QObject* parent = nullptr);

  bool canCheckForUpdates() const { return canCheckForUpdates_; }
  bool isEnabled() const { return controller_ != nullptr; }

  /// Starts a check that the user asked for; does nothing when updating is off.
  void checkForUpdates();

  /// Whether a bundle is an application's, names a feed that is read over https, and the key that
  /// updates are signed with.
  static bool isConfigured(const std::filesystem::path& bundle);

  /// The bundle that the running program lies in, by where bundles keep programs; any other folder
  /// is none that isConfigured takes.
  static std::filesystem::path runningBundle();

 signals:
  void canCheckForUpdatesChanged(bool canCheck);
  void controllerSaid(bool canCheck, QPrivateSignal);

 private:
  void setCanCheck(bool canCheck);

  bool canCheckForUpdates_ = false;
  std::unique_ptr<UpdaterController> controller_;
};

}  // namespace tallowmark
