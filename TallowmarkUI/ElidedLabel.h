// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QLabel>

namespace tallowmark {

/// One line that leaves out its middle where it does not fit, so that the start and the extension
/// of a file name stay; all of it is in the tool tip then, and for assistive technology.
class ElidedLabel final : public QLabel {
 public:
  explicit ElidedLabel(const QString& text = {}, QWidget* parent = nullptr);

  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  bool event(QEvent* event) override;
};

}  // namespace tallowmark
