// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/Appearance.h"

#include <QApplication>
#include <QStyle>

#include "TallowmarkUI/BrandColors.h"
#include "TallowmarkUI/DesktopSettings.h"
#include "TallowmarkUI/Motion.h"
#include "TallowmarkUI/RoomyStyle.h"

namespace tallowmark {

void applyAppearance(const QString& wanted) {
  const QPalette ofDesktop = QApplication::palette();
  auto* style = new RoomyStyle;
  style->setParent(qApp);
  QApplication::setStyle(style);
  const bool isAsked = wanted == "light" || wanted == "dark";
  // Some desktops hand their colours to every program. On the others Qt takes the style's own.
  const bool desktopHasColors = ofDesktop.color(QPalette::Window) !=
                                QApplication::style()->standardPalette().color(QPalette::Window);
  if (isAsked || !desktopHasColors) {
    QApplication::setPalette(wanted == "dark" ? darkPalette() : lightPalette());
  }
  auto* settings = new DesktopSettings(qApp);
  if (!isAsked && !desktopHasColors) {
    QObject::connect(settings, &DesktopSettings::prefersDark, qApp, [](bool dark) {
      if (dark != BrandColors::isDark(QApplication::palette())) {
        QApplication::setPalette(dark ? darkPalette() : lightPalette());
      }
    });
  }
  QObject::connect(settings, &DesktopSettings::prefersStillness, qApp, &Motion::setReduced);
}

}  // namespace tallowmark
