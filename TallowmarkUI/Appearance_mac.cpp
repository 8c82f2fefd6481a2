// SPDX-License-Identifier: GPL-3.0-or-later
#include <QApplication>

#include "TallowmarkUI/Appearance.h"
#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

void applyAppearance(const QString& wanted) {
  if (wanted == "light" || wanted == "dark") {
    // The native controls know no palette but the system's.
    QApplication::setStyle("Fusion");
    QApplication::setPalette(wanted == "dark" ? darkPalette() : lightPalette());
  }
}

}  // namespace tallowmark
