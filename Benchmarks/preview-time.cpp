// SPDX-License-Identifier: GPL-3.0-or-later
// Prints how long a clip takes from being added to its preview, with a good clip of the camera
// beside it.
//   preview-time GOOD DAMAGED
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <iostream>

#include "ImageKit/LibraryImageService.h"
#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Preview/PreviewExport.h"

using namespace tallowmark;

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  if (argc != 3) {
    std::cerr << "usage: preview-time GOOD DAMAGED\n";
    return 2;
  }
  const QTemporaryDir scratch;
  QElapsedTimer timer;
  qint64 exportTime = 0;
  Surroundings surroundings;
  surroundings.images = std::make_shared<LibraryImageService>();
  surroundings.scratchParent = scratch.path().toStdString();
  surroundings.previewer = [&](const auto& clip, const auto& preview, double seconds,
                               const StopToken& stop) {
    const qint64 start = timer.elapsed();
    const bool made = PreviewExport().makePreview(clip, preview, seconds, stop);
    exportTime = timer.elapsed() - start;
    return made;
  };
  RepairModel model(surroundings);
  const auto report = [&] {
    for (const Clip& clip : model.clips()) {
      if (clip.is<Clip::Preview>()) {
        std::cout << timer.elapsed() << " ms, " << exportTime << " ms of them for the export; "
                  << std::get<Clip::Preview>(clip.state).summary.frames << " frames, "
                  << (model.previewFile(clip.id) ? "with" : "without") << " preview\n";
        QCoreApplication::quit();
      } else if (clip.is<Clip::Failed>()) {
        std::cout << std::get<Clip::Failed>(clip.state).text << '\n';
        QCoreApplication::quit();
      }
    }
  };
  QObject::connect(&model, &RepairModel::clipsChanged, &model, report, Qt::QueuedConnection);
  timer.start();
  model.add({argv[1], argv[2]});
  return QCoreApplication::exec();
}
