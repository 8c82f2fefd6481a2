// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PlayerBackend.h"

namespace tallowmark {

void choosePlayerBackend() {}

// The bundle has the plugin, and the system's own player is behind it.
bool loadPlayerBackend() {
  return true;
}

}  // namespace tallowmark
