// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <functional>
#include <memory>

namespace tallowmark {

/// What looks for updates and installs them. Used on the main thread.
class UpdaterController {
 public:
  UpdaterController() = default;
  UpdaterController(const UpdaterController&) = delete;
  UpdaterController& operator=(const UpdaterController&) = delete;
  UpdaterController(UpdaterController&&) = delete;
  UpdaterController& operator=(UpdaterController&&) = delete;
  virtual ~UpdaterController() = default;

  /// Calls `changed` with whether a check can be started: now, and whenever that changes, on
  /// whatever thread, until this object goes.
  virtual void observe(std::function<void(bool canCheck)> changed) = 0;

  /// Starts a check, and shows the user what it finds.
  virtual void checkForUpdates() = 0;
};

using MakeUpdaterController = std::function<std::unique_ptr<UpdaterController>()>;

/// The system's, started; nothing where updates come another way. Differs between systems.
std::unique_ptr<UpdaterController> makeUpdaterController();

/// What the menu says in the place of its command where there is no controller, for people. Differs
/// between systems.
QString whereUpdatesComeFrom();

}  // namespace tallowmark
