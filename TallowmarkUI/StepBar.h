// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QBasicTimer>
#include <QStringList>
#include <QWidget>

namespace tallowmark {

/// The steps of a flow in a row: the ones that are done, the one the user is at, and those to come.
/// While work is under way an arc goes round the present step; it stands still where motion is to
/// be reduced.
class StepBar final : public QWidget {
  Q_OBJECT

 public:
  explicit StepBar(QStringList steps, QWidget* parent = nullptr);

  /// From 0. The last one counts as done once it is reached.
  int current() const { return current_; }
  void setCurrent(int step);
  bool isWorking() const { return working_; }
  void setWorking(bool working);
  /// Whether the arc is moving now.
  bool isMoving() const { return motion_.isActive(); }

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void timerEvent(QTimerEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  bool isDone(int step) const;
  int widthOf(int step) const;
  QRect place(int step) const;
  void paintStep(QPainter& painter, int step) const;
  void describe();
  void moveOrRest();

  QStringList steps_;
  int current_ = 0;
  bool working_ = false;
  QBasicTimer motion_;
  int angle_ = 0;
};

}  // namespace tallowmark
