// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QColor>
#include <QPalette>

namespace tallowmark {

/// What a colour says. It never says so alone: words or a symbol stand beside it.
enum class Tone { quiet, accent, good, attention, problem };

/// The application's own colours, to go with the palette of the desktop. Each of the tones can be
/// read on the palette's window and base colours (contrast of 4.5 to 1 and more).
struct BrandColors {
  QColor accent;
  /// For text and symbols on `accent`.
  QColor onAccent;
  QColor good;
  QColor attention;
  QColor problem;
  /// For what may be overlooked: explanations, facts.
  QColor quiet;
  /// Separates areas.
  QColor line;
  /// Of boxes that stand out from the window a little.
  QColor card;

  static BrandColors of(const QPalette& palette);
  QColor of(Tone tone) const;

  static bool isDark(const QPalette& palette);
};

/// The palettes for desktops that have none of their own.
QPalette lightPalette();
QPalette darkPalette();

}  // namespace tallowmark
