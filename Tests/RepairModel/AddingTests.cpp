// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/resource.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <ctime>
#include <iostream>
#include <utility>

#include "ModelTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class AddingTests : public ModelTests {};

TEST_F(AddingTests, takeTheKindsOfAFolderOnceAndLeaveHiddenFilesAlone) {
  fs::create_directory(folder / "card");
  fs::copy_file(good, folder / "card" / "clip.MP4");
  fs::copy_file(good, folder / "card" / ".hidden.mp4");
  writeFile(folder / "card" / "notes.txt", Bytes{1});
  fs::create_directory_symlink(folder / "card", folder / "link");
  const std::vector<fs::path> spellings{folder / "card", folder / "card" / "clip.MP4",
                                        folder / "card" / ".." / "card" / "." / "clip.MP4",
                                        folder / "link" / "clip.MP4",
                                        folder / "card" / "notes.txt"};
  add(spellings);
  ASSERT_EQ(model->clips().size(), 1U);
  EXPECT_EQ(model->clips()[0].url, folder / "card" / "clip.MP4");
  EXPECT_EQ(model->clips()[0].size, fs::file_size(good));
  add(spellings);
  EXPECT_EQ(model->clips().size(), 1U);
  EXPECT_EQ(model->clipList().data(model->clipList().index(0), Qt::DisplayRole).toString(),
            "clip.MP4");
  model->remove(model->clips()[0].id);
  add({folder / "link" / "clip.MP4"});
  EXPECT_EQ(model->clips().size(), 1U);
}

TEST_F(AddingTests, listFilesInTheOrderInWhichTheyCame) {
  add({raw});
  std::vector<std::string> names{raw.filename().string()};
  for (const fs::path& file : {good, cut, noIndex, goodPhoto, cutPhoto, headlessPhoto}) {
    model->add({file});
    names.push_back(file.filename().string());
  }
  ASSERT_TRUE(until([&] { return model->clips().size() == names.size(); }));
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(model->clips()[i].url.filename(), names[i]);
  ASSERT_TRUE(settle());
}

/// Five hundred files as people have them, in folders five deep.
void fillCard(const fs::path& card, const std::vector<fs::path>& kinds) {
  for (int i = 0; i < 500; ++i) {
    fs::path deep = card;
    for (int level = 0; level < i % 6; ++level) deep /= "level" + std::to_string(level);
    fs::create_directories(deep);
    const fs::path& kind = kinds[static_cast<std::size_t>(i) % kinds.size()];
    fs::copy_file(
        kind, deep / (kind.stem().string() + "_" + std::to_string(i) + kind.extension().string()));
  }
}

// Processor time of the thread that calls, which does not count what else the machine does.
std::int64_t ownMilliseconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

TEST_F(AddingTests, stayResponsiveWhileAWholeCardIsDropped) {
  const fs::path card = folder / "card";
  fillCard(card, {good, goodPhoto, good, goodPhoto, cut, good, goodPhoto, good, noIndex, raw});
  fs::create_directory_symlink(card, card / "level0" / "loop");
  fs::create_symlink(card / "GX010001_0.MOV", card / "again.MOV");
  const bool isRoot = ::geteuid() == 0;
  fs::permissions(card / "GX010001_0.MOV", fs::perms::none);

  startModel(Watch::nothing);
  // As a view does with every change.
  int steps = 0;
  QObject::connect(model.get(), &RepairModel::changed,
                   [&] { steps += model->step() + static_cast<int>(model->stepStatus().size()); });
  std::int64_t longest = 0;
  std::int64_t longestByClock = 0;
  std::int64_t lastTick = ownMilliseconds();
  QElapsedTimer sinceTick;
  QTimer ticks;
  QObject::connect(&ticks, &QTimer::timeout, [&] {
    const std::int64_t now = ownMilliseconds();
    longest = std::max(longest, now - std::exchange(lastTick, now));
    longestByClock = std::max<std::int64_t>(longestByClock, sinceTick.restart());
  });
  ticks.start(1);
  sinceTick.start();
  QElapsedTimer whole;
  whole.start();
  QEventLoop loop;
  const auto quitWhenIdle = [&] {
    if (!model->isWorking()) loop.quit();
  };
  QObject::connect(model.get(), &RepairModel::changed, &loop, quitWhenIdle, Qt::QueuedConnection);
  model->add({card, card / "level0", card / "." / "GX010001_0.MOV"});
  loop.exec();
  const std::int64_t elapsed = whole.elapsed();
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  std::cout << "main thread at work for at most " << longest << " ms, blocked for "
            << longestByClock << " ms, " << elapsed << " ms in all, peak memory "
            << usage.ru_maxrss / 1024 << " MB\n";

  EXPECT_EQ(model->clips().size(), 500U);
  std::map<std::string, int> ends;
  for (const Clip& clip : model->clips()) ++ends[nameOf(clip.state)];
  EXPECT_EQ(ends["preview"], 150);
  EXPECT_EQ(ends["healthy"], isRoot ? 350 : 349);
  EXPECT_EQ(ends["failed"], isRoot ? 0 : 1);
  // Some 6 ms where nothing is instrumented, and much more where work strays onto this thread.
  EXPECT_LT(longest, 300);
  // Nor does it wait for others' work: a machine that is slow is so for the whole.
  EXPECT_LT(longestByClock, std::max<std::int64_t>(300, elapsed / 2));
  EXPECT_LT(usage.ru_maxrss / 1024, 400);
}

}  // namespace
}  // namespace tallowmark::testing
