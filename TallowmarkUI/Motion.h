// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

class QWidget;

/// Whether things may move on their own.
namespace tallowmark::Motion {

/// The user asked for as little as possible: the style's or the desktop's animations are off.
bool isReduced(const QWidget& widget);

/// What the desktop says where no style tells; off by default.
void setReduced(bool reduced);

}  // namespace tallowmark::Motion
