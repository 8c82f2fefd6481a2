// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <filesystem>

namespace tallowmark {

/// Stands where a preview cannot: a still sentence and, where there is a file, a button that hands
/// it to the desktop.
class PreviewMessage final : public QWidget {
  Q_OBJECT

 public:
  explicit PreviewMessage(QWidget* parent = nullptr);
  void say(const QString& sentence);
  void say(const QString& sentence, const std::filesystem::path& file);

 private:
  QLabel* sentence_;
  QPushButton* open_;
  std::filesystem::path file_;
};

}  // namespace tallowmark
