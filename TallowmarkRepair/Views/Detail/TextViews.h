// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QLabel>
#include <QTextBrowser>

#include "TallowmarkRepair/Views/Detail/PaneFacts.h"

namespace tallowmark {

/// A line of text that loses its middle where there is no room for it; all of it is in the tool tip
/// and for assistive technology.
class ElidingLabel final : public QLabel {
  Q_OBJECT

 public:
  explicit ElidingLabel(QWidget* parent = nullptr);
  void setFullText(const QString& text);
  QSize minimumSizeHint() const override;
  QSize sizeHint() const override;

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void elide();

  QString fullText_;
};

/// A paragraph as high as its text is in the width there is; can be selected and copied.
class Paragraph final : public QLabel {
  Q_OBJECT

 public:
  explicit Paragraph(QWidget* parent = nullptr);
  /// An empty one is hidden.
  void setProse(const QString& text);
};

/// A table of facts in two columns, as high as it needs to be. Its text can be selected and copied;
/// long paths are broken anywhere.
class FactsView final : public QTextBrowser {
  Q_OBJECT

 public:
  explicit FactsView(QWidget* parent = nullptr);
  /// An empty table is hidden.
  void setFacts(const std::vector<Fact>& facts);

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  void rebuild();
  void fitHeight();

  std::vector<Fact> facts_;
};

}  // namespace tallowmark
