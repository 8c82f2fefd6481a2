// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tallowmark {

/// Chooses what Qt Multimedia plays with, where the user has not. Call it on the main thread,
/// before the first player is made.
void choosePlayerBackend();

/// Whether what was chosen is there: without it no player may be made, for Qt ends the program
/// then. Loads it the first time, which takes a while; may be called from any thread.
bool loadPlayerBackend();

}  // namespace tallowmark
