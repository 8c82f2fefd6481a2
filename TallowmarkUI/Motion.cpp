// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/Motion.h"

#include <QStyle>
#include <QWidget>

namespace tallowmark::Motion {

namespace {
bool reducedByDesktop = false;
}  // namespace

bool isReduced(const QWidget& widget) {
  return reducedByDesktop ||
         widget.style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, &widget) == 0;
}

void setReduced(bool reduced) {
  reducedByDesktop = reduced;
}

}  // namespace tallowmark::Motion
