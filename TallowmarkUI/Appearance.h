// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

namespace tallowmark {

/// Gives the application its looks: those of the desktop, light or dark, and as much motion as the
/// user wants, also when that changes while the program runs. "light" and "dark" are had whatever
/// the desktop says. Needs the QApplication. Differs between systems: the Mac's own style does most
/// of it.
void applyAppearance(const QString& wanted);

}  // namespace tallowmark
