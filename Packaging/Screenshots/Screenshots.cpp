// SPDX-License-Identifier: GPL-3.0-or-later
// screenshots SAMPLES FOLDER: pictures of the program in every state, made from real files. The
// platform, the scale and where to write come from the script that calls it.
#include <QApplication>
#include <QDir>
#include <QTest>
#include <atomic>
#include <functional>
#include <iostream>

#include "ImageKit/LibraryImageService.h"
#include "TallowmarkRepair/Preview/PreviewExport.h"
#include "TallowmarkRepair/Views/Detail/VideoSurface.h"
#include "TallowmarkRepair/Views/MainWindow.h"
#include "TallowmarkUI/Appearance.h"
#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

struct Look {
  const char* name;
  bool isDark;
  QSize size;
};

// Nobody chooses files here, and nothing is opened.
class NoPanels final : public FilePanels {
 public:
  void ask(const PanelRequest&, QWidget*, Chosen) override {}
};

class NoDesktop final : public Desktop {
 public:
  void reveal(const std::vector<fs::path>&) override {}
  void open(const fs::path&) override {}
  void notify(const QString&, const QString&) override {}
};

constexpr const char* longName =
    "Geburtstagsfeier am Bodensee, ungeschnittene Originalaufnahme 旅行の思い出.JPG";
constexpr int patience = 60'000;

/// Holds the work on previews where a picture of it is to be taken.
struct Gate {
  std::atomic<bool> open = true;

  bool makePreview(const fs::path& clip, const fs::path& preview, double seconds,
                   const StopToken& stop) const {
    while (!open) {
      stop.check();
      QThread::msleep(10);
    }
    static const PreviewExport exporter;
    return exporter.makePreview(clip, preview, seconds, stop);
  }
};

class Photographer {
 public:
  Photographer(fs::path samples, const QDir& folder)
      : samples_(std::move(samples)), folder_(folder) {
    Surroundings surroundings;
    surroundings.images = std::make_shared<LibraryImageService>();
    surroundings.scratchParent = fs::path(folder.path().toStdString()) / "scratch";
    surroundings.previewer = [this](const fs::path& clip, const fs::path& preview, double seconds,
                                    const StopToken& stop) {
      return gate_.makePreview(clip, preview, seconds, stop);
    };
    model_ = std::make_unique<RepairModel>(surroundings);
    window_ = std::make_unique<MainWindow>(*model_, updater_, panels_, desktop_);
  }

  void takeAll() {
    take("welcome");
    gate_.open = false;
    add({"SMPL0001.MOV", "SMPL0002.MOV", "GX010042.MP4", "GX020042.MP4", "GX030042.MP4"});
    wait([&] { return model_->clips().size() == 5 && !model_->joins().empty(); });
    take("repairing", clip("SMPL0002.MOV"));
    take("join-checking", model_->joins().front().id);
    gate_.open = true;
    add({"SMPL0003.MOV", "SMPL0009.MOV", "IMG_0101.JPG", "IMG_0102.JPG", "IMG_0103.JPG",
         "IMG_0199.JPG", "DSC_0040.NEF", longName});
    settle(13);
    takeResults();
    takeSaved();
    takeFailures();
  }

 private:
  void takeResults() {
    take("healthy-clip", clip("SMPL0001.MOV"));
    take("healthy-chapter", clip("GX020042.MP4"));
    take("healthy-photo", clip("IMG_0101.JPG"));
    take("rebuilt-clip", clip("SMPL0002.MOV"));
    take("trimmed-clip", clip("SMPL0003.MOV"));
    take("cut-photo", clip("IMG_0102.JPG"));
    take("long-name", clip(longName));
    take("rebuilt-photo", clip("IMG_0103.JPG"));
    take("rescued-raw", clip("DSC_0040.NEF"));
    take("not-a-video", clip("SMPL0009.MOV"));
    take("not-a-photo", clip("IMG_0199.JPG"));
    take("join-ready", model_->joins().front().id);
  }

  void takeSaved() {
    const fs::path copies = fs::path(folder_.path().toStdString()) / "copies";
    fs::create_directories(copies);
    model_->save({clip("SMPL0002.MOV"), clip("IMG_0102.JPG"), model_->joins().front().id}, copies);
    settle(13);
    take("saved-clip", clip("SMPL0002.MOV"));
    take("saved-photo", clip("IMG_0102.JPG"));
    take("join-saved", model_->joins().front().id);
    fs::remove_all(copies);
  }

  void takeFailures() {
    const fs::path gone = samples_ / "SMPL0003.MOV";
    model_->save({clip("SMPL0003.MOV"), clip("IMG_0103.JPG")}, "/no/such/folder");
    settle(13);
    take("failed-save-clip", clip("SMPL0003.MOV"));
    take("failed-save-photo", clip("IMG_0103.JPG"));
    model_->join({samples_ / "GX010042.MP4", samples_ / "SMPL0001.MOV"});
    model_->join({samples_ / "GX010042.MP4", samples_ / "SMPL0009.MOV"});
    settle(13);
    take("join-incompatible", model_->joins()[1].id);
    take("join-failed", model_->joins()[2].id);
    model_->clear();
    add({"SMPL0002.MOV", "IMG_0103.JPG"});
    settle(2);
    take("no-index", clip("SMPL0002.MOV"));
    take("no-header", clip("IMG_0103.JPG"));
  }

  void add(const std::vector<std::string>& names) {
    std::vector<fs::path> files;
    files.reserve(names.size());
    for (const std::string& name : names) files.push_back(samples_ / name);
    model_->add(files);
  }

  void settle(std::size_t clips) {
    wait([&] { return model_->clips().size() == clips && !model_->isWorking(); });
  }

  static void wait(const std::function<bool()>& condition) {
    if (!QTest::qWaitFor(condition, patience)) {
      throw std::runtime_error("the samples are not done in time");
    }
  }

  QUuid clip(const std::string& name) const {
    for (const Clip& clip : model_->clips()) {
      if (clip.url.filename() == name) return clip.id;
    }
    throw std::runtime_error("no sample " + name);
  }

  void take(const QString& name, std::optional<QUuid> item = {}) {
    static const std::vector<Look> looks{{"light-large", false, {1100, 720}},
                                         {"light-small", false, {820, 560}},
                                         {"dark-large", true, {1100, 720}},
                                         {"dark-small", true, {820, 560}}};
    model_->select(item);
    for (const Look& look : looks) {
      QApplication::setPalette(look.isDark ? darkPalette() : lightPalette());
      window_->resize(look.size);
      window_->show();
      QTest::qWait(item ? 250 : 50);
      wait([this] { return playersShowPictures(); });
      folder_.mkpath(look.name);
      window_->grab().save(folder_.filePath(QStringLiteral("%1/%2.png").arg(look.name, name)));
    }
  }

  // Which they do some time after the pane is there.
  bool playersShowPictures() const {
    const auto* surface = window_->findChild<VideoSurface*>("videoSurface");
    return !surface->isVisible() || surface->hasPicture();
  }

  fs::path samples_;
  QDir folder_;
  Gate gate_;
  std::unique_ptr<RepairModel> model_;
  AppUpdater updater_{fs::path()};
  NoPanels panels_;
  NoDesktop desktop_;
  std::unique_ptr<MainWindow> window_;
};

}  // namespace
}  // namespace tallowmark

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  QApplication::setApplicationDisplayName("Tallowmark Repair");
  tallowmark::applyAppearance("light");
  if (argc != 3) {
    std::cerr << "usage: screenshots SAMPLES FOLDER\n";
    return 2;
  }
  try {
    tallowmark::Photographer(argv[1], QDir(QString::fromLocal8Bit(argv[2]))).takeAll();
  } catch (const std::exception& error) {
    std::cerr << "screenshots: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
