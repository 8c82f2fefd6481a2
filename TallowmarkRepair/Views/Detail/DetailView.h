// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QTimer>
#include <QWidget>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Views/Detail/PaneTexts.h"
#include "TallowmarkUI/Commands.h"

class QLabel;
class QProgressBar;
class QScrollArea;
class QStackedWidget;
class QVBoxLayout;

namespace tallowmark {

class ActionBar;
class ElidingLabel;
class FactsView;
class Paragraph;
class PreviewArea;

/// The pane of the selected item: what is wrong or was done in a sentence, the preview, the facts,
/// what can be done next. Follows the model by itself; `model` and `commands` outlive it.
class DetailView final : public QWidget {
  Q_OBJECT

 public:
  DetailView(RepairModel& model, Commands& commands, QWidget* parent = nullptr);

 protected:
  void changeEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  QWidget* makePage();
  void addHeading(QVBoxLayout& column);
  void addTexts(QVBoxLayout& column);
  void refresh();
  void showClip(const Clip& clip);
  void showJoin(const Join& join);
  void showText(const PaneText& text);
  void showProgress(std::optional<double> fraction);
  void showIcons();

  RepairModel& model_;
  Commands& commands_;
  QTimer refreshing_;
  PaneText::Tone tone_ = PaneText::Tone::working;

  QStackedWidget* pages_;
  QScrollArea* scroll_ = nullptr;
  ElidingLabel* title_ = nullptr;
  QLabel* statusIcon_ = nullptr;
  QLabel* status_ = nullptr;
  Paragraph* lead_ = nullptr;
  Paragraph* explanation_ = nullptr;
  QLabel* lossesIcon_ = nullptr;
  Paragraph* losses_ = nullptr;
  Paragraph* advice_ = nullptr;
  QProgressBar* progress_ = nullptr;
  PreviewArea* preview_ = nullptr;
  FactsView* parts_ = nullptr;
  FactsView* facts_ = nullptr;
  ActionBar* actions_ = nullptr;
};

}  // namespace tallowmark
