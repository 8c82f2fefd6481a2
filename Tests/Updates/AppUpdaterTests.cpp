// SPDX-License-Identifier: GPL-3.0-or-later
#include "Updates/AppUpdater.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <thread>

#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

// {"SUFeedURL": "https://t.example/a.xml", "SUPublicEDKey": "key"} as a binary property list.
constexpr char binaryList[] =
    "bplist00\xD2\x01\x02\x03\x04YSUFeedURL]SUPublicEDKey_\x10\x17https://t.example/a.xmlSkey"
    "\x08\x0D\x17\x25\x3F\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x05\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x43";

std::string xml(const std::string& entries) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + entries +
         "</dict></plist>";
}

std::string entry(const char* key, const std::string& value) {
  return std::string("<key>") + key + "</key>" + value;
}

const std::string feed = entry("SUFeedURL", "<string>https://t.example/a.xml</string>");
const std::string signingKey = entry("SUPublicEDKey", "<string>key</string>");

class AppUpdaterTests : public ::testing::Test {
 protected:
  std::filesystem::path bundle(const std::string& name, const std::string& information) const {
    std::filesystem::create_directories(folder / name / "Contents");
    testing::writeFile(
        folder / name / "Contents" / "Info.plist",
        {reinterpret_cast<const std::uint8_t*>(information.data()), information.size()});
    return folder / name;
  }

  testing::TemporaryFolder folder;
  int count = 0;
  QCoreApplication application{count, nullptr};
};

/// Changes its property when the test says so.
struct StandIn final : UpdaterController {
  static inline StandIn* latest = nullptr;
  static std::unique_ptr<UpdaterController> make() {
    auto made = std::make_unique<StandIn>();
    latest = made.get();
    return made;
  }
  ~StandIn() override { latest = nullptr; }
  void observe(std::function<void(bool)> observer) override { changed = std::move(observer); }
  void checkForUpdates() override { ++checks; }

  std::function<void(bool)> changed;
  int checks = 0;
};

TEST_F(AppUpdaterTests, areConfiguredByABundleWithAFeedOverHttpsAndAKey) {
  const auto feedAt = [](const char* url) {
    return xml(entry("SUFeedURL", std::string("<string>") + url + "</string>") + signingKey);
  };
  const struct {
    const char* what;
    const char* name;
    std::string information;
    bool configured;
  } rows[] = {
      {"XML", "a.app", xml(feed + signingKey), true},
      {"binary", "b.app", {binaryList, sizeof binaryList - 1}, true},
      {"capital letters", "c.app", feedAt("HTTPS://t.example/a.xml"), true},
      {"no application", "d.bundle", xml(feed + signingKey), false},
      {"no extension", "app", xml(feed + signingKey), false},
      {"no feed", "e.app", xml(signingKey), false},
      {"no key", "f.app", xml(feed), false},
      {"feed is no text", "g.app", xml(entry("SUFeedURL", "<true/>") + signingKey), false},
      {"key is no text", "h.app", xml(feed + entry("SUPublicEDKey", "<data>AAAA</data>")), false},
      {"http", "i.app", feedAt("http://t.example/a.xml"), false},
      {"no scheme", "k.app", feedAt("t.example/a.xml"), false},
      {"no URL", "l.app", feedAt("https://t example:a/%"), false},
      {"empty file", "n.app", "", false},
      {"rubbish", "o.app", "what?", false},
      {"cut short", "p.app", "bplist00\xD2", false},
      {"a list", "q.app", R"(<plist version="1.0"><array/></plist>)", false},
  };
  for (const auto& row : rows) {
    const auto path = bundle(row.name, row.information);
    EXPECT_EQ(AppUpdater::isConfigured(path), row.configured) << row.what;
    EXPECT_EQ(AppUpdater::isConfigured(path.string() + "/"), row.configured) << row.what;
    const AppUpdater updater(path, StandIn::make);
    EXPECT_EQ(updater.isEnabled(), row.configured) << row.what;
    EXPECT_FALSE(updater.canCheckForUpdates()) << row.what;
    EXPECT_EQ(StandIn::latest != nullptr, row.configured) << row.what;
  }
  std::filesystem::create_directories(folder / "r.app" / "Contents" / "Info.plist");
  EXPECT_FALSE(AppUpdater::isConfigured(folder / "r.app"));
  EXPECT_FALSE(AppUpdater::isConfigured(folder / "missing.app"));
  EXPECT_FALSE(AppUpdater::isConfigured(AppUpdater::runningBundle()));
}

TEST_F(AppUpdaterTests, mirrorWhatTheControllerCanDo) {
  AppUpdater updater(bundle("a.app", xml(feed + signingKey)), StandIn::make);
  const QSignalSpy told(&updater, &AppUpdater::canCheckForUpdatesChanged);
  StandIn& controller = *StandIn::latest;
  controller.changed(true);
  EXPECT_TRUE(updater.property("canCheckForUpdates").toBool());
  controller.changed(true);
  std::thread([&] { controller.changed(false); }).join();
  EXPECT_TRUE(updater.canCheckForUpdates()) << "changed on another thread";
  QCoreApplication::processEvents();
  EXPECT_FALSE(updater.canCheckForUpdates());
  ASSERT_EQ(told.count(), 2);
  EXPECT_EQ(told.at(1).at(0).toBool(), false);
  updater.checkForUpdates();
  EXPECT_EQ(controller.checks, 1);
  AppUpdater off(bundle("a.app", xml(feed + signingKey)), [] { return nullptr; });
  off.checkForUpdates();
  EXPECT_FALSE(off.isEnabled());
  EXPECT_FALSE(whereUpdatesComeFrom().isEmpty());
}

}  // namespace
}  // namespace tallowmark
