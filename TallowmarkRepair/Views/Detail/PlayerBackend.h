// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tallowmark {

/// Chooses what Qt Multimedia plays with, where the user has not, and says whether it is there:
/// without it no player may be made, for Qt ends the program then.
bool choosePlayerBackend();

}  // namespace tallowmark
