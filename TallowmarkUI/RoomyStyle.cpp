// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/RoomyStyle.h"

#include <QStyleOption>

#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

int RoomyStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                          QStyleHintReturn* data) const {
  return hint == SH_DialogButtonBox_ButtonsHaveIcons
             ? 0
             : QProxyStyle::styleHint(hint, option, widget, data);
}

QSize RoomyStyle::sizeFromContents(ContentsType type, const QStyleOption* option,
                                   const QSize& contents, const QWidget* widget) const {
  const QSize size = QProxyStyle::sizeFromContents(type, option, contents, widget);
  switch (type) {
    case CT_PushButton:
      return size + QSize(14, 8);
    case CT_MenuItem:
      return size + QSize(12, 4);
    case CT_MenuBarItem:
      return size + QSize(4, 4);
    default:
      return size;
  }
}

void RoomyStyle::drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                             const QWidget* widget) const {
  const auto* button = qstyleoption_cast<const QStyleOptionButton*>(option);
  if (element != CE_PushButton || button == nullptr ||
      !button->features.testFlag(QStyleOptionButton::DefaultButton) ||
      !button->state.testFlag(State_Enabled)) {
    QProxyStyle::drawControl(element, option, painter, widget);
    return;
  }
  QStyleOptionButton meant = *button;
  const BrandColors colors = BrandColors::of(meant.palette);
  meant.palette.setColor(QPalette::Button, colors.accent);
  meant.palette.setColor(QPalette::ButtonText, colors.onAccent);
  QProxyStyle::drawControl(element, &meant, painter, widget);
}

}  // namespace tallowmark
