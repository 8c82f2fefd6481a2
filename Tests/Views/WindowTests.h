// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QListView>
#include <QMessageBox>
#include <QTest>

#include "ModelTests.h"
#include "TallowmarkRepair/Views/MainWindow.h"

namespace tallowmark::testing {

/// Remembers what is asked, and answers what the test put there; nothing is a cancelled panel.
class AnsweringPanels final : public FilePanels {
 public:
  void ask(const PanelRequest& request, QWidget* /*window*/, Chosen chosen) override {
    asked.push_back(request);
    if (!answer.empty()) chosen(answer);
  }

  std::vector<PanelRequest> asked;
  std::vector<std::filesystem::path> answer;
};

class RememberingDesktop final : public Desktop {
 public:
  void reveal(const std::vector<std::filesystem::path>& files) override { revealed = files; }
  void open(const std::filesystem::path& file) override { opened.push_back(file); }
  void notify(const QString& /*title*/, const QString& text) override { notes << text; }

  std::vector<std::filesystem::path> revealed;
  std::vector<std::filesystem::path> opened;
  QStringList notes;
};

/// A window on a model, with damaged files to put into it.
class WindowTests : public ModelTests {
 protected:
  void SetUp() override;
  void openWindow(BatchWatch watch = BatchWatch());

  /// Throws when there is none of that name.
  template <class Widget = QWidget>
  Widget& find(const char* name) const {
    auto* found = window->findChild<Widget*>(QLatin1String(name));
    if (found == nullptr) throw std::runtime_error(std::string("no ") + name);
    return *found;
  }
  bool shows(const char* name) const;
  QString textOf(const char* name) const { return find<QLabel>(name).text(); }
  QListView& list() const { return find<QListView>("itemList"); }
  /// The row that shows this name; it must be there.
  QModelIndex row(const QString& name) const;
  QString statusOf(const QString& name) const;
  /// Clicks on the row, with the keys held.
  void click(const QString& name, Qt::KeyboardModifiers keys = {});
  /// The texts of the menu that a right click on the row brings; the one of `chosen` is chosen.
  QStringList menuOf(const QString& name, const QString& chosen = {});
  void drop(QWidget& pane, const std::vector<std::filesystem::path>& files);
  /// Waits until files were added and all work is done.
  bool settleAfter(const std::function<void()>& adding);
  /// The message box of that name, once it is there.
  QMessageBox* box(const char* name);

  AnsweringPanels panels;
  RememberingDesktop desktop;
  AppUpdater updater{folder.path()};
  std::unique_ptr<MainWindow> window;
};

}  // namespace tallowmark::testing
