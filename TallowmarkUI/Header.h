// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QLabel>
#include <QWidget>

#include "TallowmarkUI/StepBar.h"

namespace tallowmark {

/// The top of the window: what this application is, how far the user has come, and one sentence
/// about what is going on or what to do next.
class Header final : public QWidget {
  Q_OBJECT

 public:
  Header(const QString& name, const QString& tagline, const QStringList& steps,
         QWidget* parent = nullptr);

  StepBar& steps() { return *steps_; }
  QString status() const { return status_->text(); }
  void setStatus(const QString& sentence);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void colorTexts();

  QLabel* name_;
  QLabel* tagline_;
  StepBar* steps_;
  QLabel* status_;
};

}  // namespace tallowmark
