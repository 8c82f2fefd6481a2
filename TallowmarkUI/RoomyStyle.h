// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QProxyStyle>

namespace tallowmark {

/// Fusion with more room in its buttons and menus, with the button that is meant in the accent
/// colour, and with no little pictures on the buttons of dialogs.
class RoomyStyle final : public QProxyStyle {
  Q_OBJECT

 public:
  RoomyStyle() : QProxyStyle("Fusion") {}

  int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                QStyleHintReturn* data) const override;

  QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& contents,
                         const QWidget* widget) const override;
  void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                   const QWidget* widget) const override;
};

}  // namespace tallowmark
