// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "TallowmarkRepair/Views/AboutBox.h"
#include "TallowmarkRepair/Views/ClipsView.h"
#include "TallowmarkRepair/Views/WelcomeView.h"

namespace tallowmark {

namespace {

// Five hundred files that are worked on change the model thousands of times; eyes follow this
// often.
constexpr int refreshMilliseconds = 30;

// The model counts from 0 to 2 and calls the end 4.
int barStep(int modelStep) {
  constexpr int last = 3;
  return std::min(modelStep, last);
}

}  // namespace

MainWindow::MainWindow(RepairModel& model, AppUpdater& updater, FilePanels& panels,
                       Desktop& desktop, BatchWatch watch)
    : model_(model),
      desktop_(desktop),
      picker_(panels, *this),
      header_(new Header(tr("Tallowmark Repair"),
                         tr("Fix clips and photos that won't open, and join split recordings"),
                         {tr("Add files"), tr("Repair"), tr("Check and save"), tr("Done")}, this)),
      pages_(new QStackedWidget(this)),
      welcome_(new WelcomeView(commands_, pages_)),
      clips_(new ClipsView(model, commands_, pages_)),
      router_(model, commands_, picker_, desktop, [this] { return clips_->selectedIDs(); }),
      watch_(watch) {
  setObjectName("mainWindow");
  setWindowTitle(tr("Tallowmark Repair"));
  setMinimumSize(820, 560);
  resize(1100, 720);
  makePages();
  makeMenus();
  connectUpdates(updater);
  takeDrops();
  refreshing_.setSingleShot(true);
  refreshing_.setInterval(refreshMilliseconds);
  connect(&refreshing_, &QTimer::timeout, this, &MainWindow::refresh);
  connect(&model_, &RepairModel::changed, this, &MainWindow::refreshSoon);
  connect(clips_, &ClipsView::selectedIDsChanged, &router_, &CommandRouter::refresh);
  connect(&router_, &CommandRouter::referenceRefused, this, &MainWindow::showReferenceAlert);
  connect(commands_.quit(), &QAction::triggered, this, &QWidget::close);
  connect(commands_.about(), &QAction::triggered, this, [this] { showAboutBox(*this); });
  refresh();
}

MainWindow::~MainWindow() = default;

void MainWindow::makePages() {
  pages_->addWidget(welcome_);
  pages_->addWidget(clips_);
  auto* central = new QWidget(this);
  auto* column = new QVBoxLayout(central);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  column->addWidget(header_);
  column->addWidget(pages_, 1);
  setCentralWidget(central);
}

void MainWindow::makeMenus() {
  const auto addMenu = [this](const QString& title, const QList<QAction*>& actions) {
    QMenu* menu = menuBar()->addMenu(title);
    for (QAction* action : actions) {
      if (action != nullptr) {
        menu->addAction(action);
      } else {
        menu->addSeparator();
      }
    }
  };
  addMenu(tr("&File"), {commands_.add(), commands_.addFolder(), nullptr,
                        commands_.chooseReference(), commands_.joinParts(), nullptr,
                        commands_.save(), commands_.saveAll(), nullptr, commands_.quit()});
  addMenu(tr("&Edit"), {commands_.useAsReference(), commands_.retry(), nullptr, commands_.remove(),
                        commands_.clear()});
  addMenu(tr("&View"),
          {commands_.showInFileManager(), commands_.openSaved(), commands_.showParts()});
  addMenu(tr("&Help"), {commands_.checkForUpdates(), commands_.about()});
}

void MainWindow::connectUpdates(AppUpdater& updater) {
  QAction* check = commands_.checkForUpdates();
  if (!updater.isEnabled()) {
    check->setText(whereUpdatesComeFrom());
    check->setEnabled(false);
    return;
  }
  check->setEnabled(updater.canCheckForUpdates());
  connect(&updater, &AppUpdater::canCheckForUpdatesChanged, check, &QAction::setEnabled);
  connect(check, &QAction::triggered, &updater, &AppUpdater::checkForUpdates);
}

void MainWindow::takeDrops() {
  for (FileDrop* drop : {&welcome_->drop(), &clips_->drop()}) {
    connect(drop, &FileDrop::dropped, this,
            [this](const std::vector<std::filesystem::path>& paths) { model_.add(paths); });
  }
}

void MainWindow::refreshSoon() {
  if (!refreshing_.isActive()) {
    refreshing_.start();
  }
}

void MainWindow::showPage() {
  const bool empty = model_.clips().empty() && model_.joins().empty();
  QWidget* page = empty ? static_cast<QWidget*>(welcome_) : clips_;
  if (page != pages_->currentWidget()) {
    pages_->setCurrentWidget(page);
    page->setFocus();
  }
}

bool MainWindow::isInFront() const {
  const QWidget* active = QApplication::activeWindow();
  return active == this || (active != nullptr && active->parentWidget() == this);
}

void MainWindow::refresh() {
  showPage();
  const bool working = model_.isWorking();
  header_->steps().setCurrent(barStep(model_.step()));
  header_->steps().setWorking(working);
  header_->setStatus(model_.stepStatus());
  clips_->refresh();
  router_.refresh();
  if (watch_.endsWith(working) && !isInFront()) {
    desktop_.notify(tr("Tallowmark Repair"), model_.stepStatus());
  }
}

void MainWindow::showReferenceAlert(const QString& sentence) {
  auto* alert = new QMessageBox(QMessageBox::Warning, tr("Can't use that clip"),
                                tr("Can't use that clip"), QMessageBox::Ok, this);
  alert->setObjectName("referenceAlert");
  alert->setAttribute(Qt::WA_DeleteOnClose);
  alert->setInformativeText(sentence);
  alert->open();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (model_.isWorking() && !mayQuit_) {
    event->ignore();
    askBeforeQuitting();
  } else {
    event->accept();
  }
}

void MainWindow::askBeforeQuitting() {
  if (findChild<QMessageBox*>("quitQuestion") != nullptr) {
    return;
  }
  auto* question =
      new QMessageBox(QMessageBox::Question, tr("Quit Tallowmark Repair?"),
                      tr("Repair is still working. Quit anyway?"), QMessageBox::NoButton, this);
  question->setObjectName("quitQuestion");
  question->setAttribute(Qt::WA_DeleteOnClose);
  question->setInformativeText(
      tr("Copies that aren't finished yet won't be saved. Your originals aren't changed."));
  QPushButton* stay = question->addButton(tr("Keep Working"), QMessageBox::RejectRole);
  question->addButton(tr("Quit"), QMessageBox::AcceptRole);
  question->setDefaultButton(stay);
  question->setEscapeButton(stay);
  connect(question, &QMessageBox::buttonClicked, this, [this, stay](const QAbstractButton* button) {
    if (button != stay) {
      mayQuit_ = true;
      close();
    }
  });
  question->open();
}

}  // namespace tallowmark
