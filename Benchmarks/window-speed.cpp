// SPDX-License-Identifier: GPL-3.0-or-later
// window-speed PHOTO: how long the window takes to be there, what it holds when idle, and the
// longest that it is deaf while five hundred copies of a damaged photo are added, checked and
// repaired and the list scrolls. Under Xvfb, or with QT_QPA_PLATFORM=offscreen.
#include <unistd.h>

#include <QApplication>
#include <QListView>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>

#include "ImageKit/LibraryImageService.h"
#include "TallowmarkRepair/Views/MainWindow.h"
#include "TallowmarkRepair/Views/SystemDesktop.h"
#include "TallowmarkRepair/Views/SystemPanels.h"
#include "TallowmarkUI/Appearance.h"

namespace {

namespace fs = std::filesystem;

double milliseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// Notes how long each event of the main thread takes, all that it causes included: by the clock,
/// and by what the processor spent on it, which other programs do not lengthen.
class TimedApplication final : public QApplication {
 public:
  using QApplication::QApplication;

  bool notify(QObject* receiver, QEvent* event) override {
    if (depth_++ > 0) {
      const bool done = QApplication::notify(receiver, event);
      --depth_;
      return done;
    }
    const double start = milliseconds(CLOCK_MONOTONIC);
    const double startOfThread = milliseconds(CLOCK_THREAD_CPUTIME_ID);
    const bool done = QApplication::notify(receiver, event);
    --depth_;
    events.push_back(milliseconds(CLOCK_MONOTONIC) - start);
    processor.push_back(milliseconds(CLOCK_THREAD_CPUTIME_ID) - startOfThread);
    return done;
  }

  std::vector<double> events;
  std::vector<double> processor;

 private:
  int depth_ = 0;
};

// Milliseconds since the kernel started this process, to 10 ms: loading the libraries counts, too.
double sinceStart() {
  std::ifstream stat("/proc/self/stat");
  const std::string all((std::istreambuf_iterator<char>(stat)), {});
  std::istringstream fields(all.substr(all.rfind(')') + 2));
  std::string field;
  // The 22nd field of proc(5); the third comes first here.
  for (int i = 3; i <= 22; ++i) fields >> field;
  const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
  return milliseconds(CLOCK_BOOTTIME) - std::stod(field) / ticks * 1'000;
}

double megabytes(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key + ":")) return std::stod(line.substr(key.size() + 1)) / 1'024;
  }
  return 0;
}

void report(const char* clock, std::vector<double> events) {
  std::sort(events.begin(), events.end());
  const std::size_t last = events.size() - 1;
  std::cout << events.size() << " events by the " << clock << ": 99.9 % within "
            << events[last - last / 1'000] << " ms, the longest " << events[last] << " ms\n";
}

void addAndScroll(TimedApplication& application, tallowmark::RepairModel& model,
                  tallowmark::MainWindow& window, const fs::path& photo) {
  constexpr int copies = 500;
  const QTemporaryDir folder;
  for (int i = 0; i < copies; ++i) {
    fs::copy_file(photo, fs::path(folder.path().toStdString()) /
                             ("IMG_" + std::to_string(1'000 + i) + ".JPG"));
  }
  application.events.clear();
  application.processor.clear();
  model.add({folder.path().toStdString()});
  if (!QTest::qWaitFor([&] { return model.clips().size() == copies; }, 60'000)) return;
  QScrollBar* bar = window.findChild<QListView*>("itemList")->verticalScrollBar();
  QTimer scrolling;
  int place = 0;
  QObject::connect(&scrolling, &QTimer::timeout, bar, [&] {
    constexpr int step = 160;
    place = (place + step) % (2 * std::max(1, bar->maximum()));
    bar->setValue(std::min(place, 2 * bar->maximum() - place));
  });
  scrolling.start(16);
  const bool ended = QTest::qWaitFor([&] { return !model.isWorking(); }, 600'000);
  scrolling.stop();
  if (!ended) std::cout << "not ended after ten minutes: ";
  report("clock", application.events);
  report("processor", application.processor);
  std::cout << "with 500 files: " << megabytes("VmRSS") << " MB resident\n";
}

}  // namespace

int main(int count, char** arguments) {
  using namespace tallowmark;
  TimedApplication application(count, arguments);
  if (count < 2) {
    std::cerr << "usage: window-speed PHOTO\n";
    return 2;
  }
  applyAppearance({});
  const QTemporaryDir scratch;
  Surroundings surroundings;
  surroundings.images = std::make_shared<LibraryImageService>();
  surroundings.scratchParent = scratch.path().toStdString();
  RepairModel model(surroundings);
  AppUpdater updater(AppUpdater::runningBundle());
  SystemPanels panels;
  SystemDesktop desktop;
  MainWindow window(model, updater, panels, desktop);
  window.show();
  if (!QTest::qWaitForWindowExposed(&window)) return 1;
  QApplication::processEvents();
  std::cout << "usable after " << sinceStart() << " ms\n";
  QTest::qWait(3'000);
  std::cout << "idle: " << megabytes("VmRSS") << " MB resident, of these " << megabytes("RssAnon")
            << " MB its own\n";
  addAndScroll(application, model, window, arguments[1]);
  return 0;
}
