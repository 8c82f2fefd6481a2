// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QStyledItemDelegate>

namespace tallowmark {

/// Draws a row of the sidebar: the symbol of the state, the name, its middle left out where it does
/// not fit, and the status beneath; a line that fills while work goes on; a heading.
class ClipRow final : public QStyledItemDelegate {
  Q_OBJECT

 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  /// Shows the whole texts where some of them did not fit.
  bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                 const QModelIndex& index) override;

 private:
  static void paintHeading(QPainter& painter, const QStyleOptionViewItem& option,
                           const QModelIndex& index);
  static void paintItem(QPainter& painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index);
};

}  // namespace tallowmark
