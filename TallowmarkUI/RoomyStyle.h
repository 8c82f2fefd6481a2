// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QProxyStyle>

namespace tallowmark {

/// Fusion with more room in its buttons and menus, and with the one that is meant in the accent
/// colour.
class RoomyStyle final : public QProxyStyle {
  Q_OBJECT

 public:
  RoomyStyle() : QProxyStyle("Fusion") {}

  QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& contents,
                         const QWidget* widget) const override;
  void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                   const QWidget* widget) const override;
};

}  // namespace tallowmark
