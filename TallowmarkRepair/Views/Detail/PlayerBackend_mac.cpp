// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PlayerBackend.h"

namespace tallowmark {

// The bundle has the plugin, and the system's own player is behind it.
bool choosePlayerBackend() {
  return true;
}

}  // namespace tallowmark
