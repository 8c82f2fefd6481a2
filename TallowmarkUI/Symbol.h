// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QColor>
#include <QPixmap>

namespace tallowmark {

/// The drawings of this application, each of one colour.
enum class Symbol {
  // The tips of the welcome pane.
  boltSlash,
  film,
  filmStack,
  lock,
  // The states of items.
  checking,
  healthy,
  cut,
  working,
  repaired,
  saved,
  failed,
  waiting,
  raw,
  unknown,
  // Others.
  reference,
  drop,
};

/// A symbol in a colour, `size` device-independent pixels wide and high, sharp at that pixel ratio.
/// Kept for the next time.
QPixmap pixmapOf(Symbol symbol, const QColor& color, int size, qreal devicePixelRatio);

}  // namespace tallowmark
