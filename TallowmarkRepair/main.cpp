// SPDX-License-Identifier: GPL-3.0-or-later
#include <QApplication>
#include <QIcon>
#include <QSettings>

#include "DecoderKit/FFmpegDecoder.h"
#include "ImageKit/LibraryImageService.h"
#include "TallowmarkRepair/Model/StartupValues.h"
#include "TallowmarkRepair/Preview/PreviewExport.h"
#include "TallowmarkRepair/Views/MainWindow.h"
#include "TallowmarkRepair/Views/OpenRequests.h"
#include "TallowmarkRepair/Views/SystemDesktop.h"
#include "TallowmarkRepair/Views/SystemPanels.h"
#include "TallowmarkUI/Appearance.h"

namespace {

void nameApplication() {
  QApplication::setApplicationName("Tallowmark Repair");
  QApplication::setApplicationDisplayName("Tallowmark Repair");
  QApplication::setApplicationVersion(TALLOWMARK_VERSION);
  QApplication::setDesktopFileName("io.github.tallowmark.repair");
  QApplication::setWindowIcon(QIcon(":/io.github.tallowmark.repair.svg"));
}

tallowmark::Surroundings surroundings(const tallowmark::StartupValues& startup) {
  tallowmark::Surroundings found;
  found.images = std::make_shared<tallowmark::LibraryImageService>();
  found.previewer = [exporter = tallowmark::PreviewExport()](
                        const std::filesystem::path& clip, const std::filesystem::path& preview,
                        double seconds, const tallowmark::StopToken& stop) {
    return exporter.makePreview(clip, preview, seconds, stop);
  };
  found.decoder = tallowmark::decodePictures;
  found.select = startup.select;
  return found;
}

}  // namespace

int main(int count, char** arguments) {
  using namespace tallowmark;
  const QApplication application(count, arguments);
  nameApplication();
  const StartupValues startup = startupValues(QApplication::arguments(), QSettings());
  applyAppearance(startup.appearance);
  RepairModel model(surroundings(startup));
  AppUpdater updater(AppUpdater::runningBundle());
  OpenRequests requests(model);
  qApp->installEventFilter(&requests);
  SystemPanels panels;
  SystemDesktop desktop;
  MainWindow window(model, updater, panels, desktop);
  window.show();
  if (!startup.openFiles.empty()) {
    model.add(startup.openFiles);
  }
  return QApplication::exec();
}
