// SPDX-License-Identifier: GPL-3.0-or-later
#include "Updates/AppUpdater.h"

#include <QCoreApplication>
#include <QUrl>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FileSource.h"
#include "PropertyLists/PropertyList.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t largestInformation = std::size_t{1} << 20U;

std::optional<PropertyList> informationOf(const fs::path& bundle) {
  try {
    const FileSource file((bundle / "Contents" / "Info.plist").string());
    const auto bytes = file.read(0, largestInformation);
    return PropertyList::parse({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  } catch (const DeviceError&) {
    return std::nullopt;
  }
}

bool isSafeFeed(const std::string& text) {
  const QUrl feed(QString::fromStdString(text), QUrl::StrictMode);
  return feed.isValid() && feed.scheme() == QLatin1String("https");
}

}  // namespace

AppUpdater::AppUpdater(const fs::path& bundle, const MakeUpdaterController& makeController,
                       QObject* parent)
    : QObject(parent) {
  if (!isConfigured(bundle)) {
    return;
  }
  // Whatever thread the controller speaks on, this object hears it on its own.
  connect(this, &AppUpdater::controllerSaid, this, &AppUpdater::setCanCheck);
  controller_ = makeController();
  if (controller_) {
    controller_->observe([this](bool canCheck) { emit controllerSaid(canCheck, {}); });
  }
}

void AppUpdater::checkForUpdates() {
  if (controller_) {
    controller_->checkForUpdates();
  }
}

void AppUpdater::setCanCheck(bool canCheck) {
  if (canCheck != canCheckForUpdates_) {
    canCheckForUpdates_ = canCheck;
    emit canCheckForUpdatesChanged(canCheck);
  }
}

bool AppUpdater::isConfigured(const fs::path& bundle) {
  // "X.app/" names the same folder as "X.app".
  const fs::path folder = bundle.has_filename() ? bundle : bundle.parent_path();
  if (folder.extension() != ".app") {
    return false;
  }
  const auto information = informationOf(folder);
  const auto feed = information ? information->text("SUFeedURL") : std::nullopt;
  return feed && information->text("SUPublicEDKey") && isSafeFeed(*feed);
}

// Tallowmark Repair.app/Contents/MacOS/program
fs::path AppUpdater::runningBundle() {
  const fs::path folder = QCoreApplication::applicationDirPath().toStdString();
  return folder.parent_path().parent_path();
}

}  // namespace tallowmark
