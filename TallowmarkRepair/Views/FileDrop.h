// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QWidget>
#include <filesystem>
#include <vector>

class QDropEvent;

namespace tallowmark {

/// Makes a pane take files and folders that are dropped on it or on what lies in it, and shows the
/// pane's border while they hover. Owned by the pane.
class FileDrop final : public QObject {
  Q_OBJECT

 public:
  explicit FileDrop(QWidget& pane);

  /// Files hover above the pane.
  bool isOver() const { return over_; }

  bool eventFilter(QObject* watched, QEvent* event) override;

 signals:
  void dropped(const std::vector<std::filesystem::path>& paths);

 private:
  bool take(QDropEvent& event);
  void setOver(bool over);

  QWidget& pane_;
  QWidget* frame_;
  bool over_ = false;
};

}  // namespace tallowmark
