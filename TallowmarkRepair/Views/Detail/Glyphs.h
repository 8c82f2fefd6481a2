// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QIcon>
#include <QPalette>

#include "TallowmarkRepair/Views/Detail/PaneTexts.h"

/// The small drawings of the panes, in the colours of a palette and sharp at every scale.
namespace tallowmark::Glyphs {

enum class Glyph { play, pause, sound, muted, zoomIn, zoomOut, fit };

/// Drawn in the palette's text colour; grayed where disabled.
QIcon icon(Glyph glyph, const QPalette& palette);

/// Beside the words of a status.
QPixmap status(PaneText::Tone tone, const QPalette& palette, int size, qreal devicePixelRatio);

/// Legible on the palette's window colour, light or dark.
QColor colour(PaneText::Tone tone, const QPalette& palette);

}  // namespace tallowmark::Glyphs
