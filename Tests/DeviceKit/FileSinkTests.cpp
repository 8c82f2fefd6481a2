// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <random>

#include "DeviceKit/CachedSource.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FailingSource.h"
#include "DeviceKit/FileSink.h"
#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::contentsOf;
using testing::TemporaryFolder;
using testing::writeFile;

// No two stretches of it are alike.
Bytes unlike(std::size_t count) {
  std::mt19937_64 random(count);
  Bytes bytes(count);
  for (std::size_t at = 0; at + 8 <= count; at += 8) {
    const std::uint64_t word = random();
    std::memcpy(bytes.data() + at, &word, sizeof word);
  }
  return bytes;
}

// The bytes of the disk that a file occupies.
std::uint64_t storageOf(const std::filesystem::path& file) {
  struct stat status {};
  EXPECT_EQ(::stat(file.c_str(), &status), 0);
  return static_cast<std::uint64_t>(status.st_blocks) * 512;
}

constexpr std::size_t longEnough = 50'000'000;

TEST(FileSinks, copyStretchesShortAndLongWhereverTheyBeginOnAPage) {
  const TemporaryFolder folder;
  const Bytes bytes = unlike(longEnough);
  const FileSource file(writeFile(folder / "clip", bytes).string());
  const CachedSource cached(file);
  const MemorySource memory(bytes);
  const struct {
    std::size_t ahead;
    std::size_t from;
    std::size_t count;
  } stretches[] = {{3, 1000, 40'000'000}, {0, 0, longEnough}, {40, 4136, 17'000'000},
                   {5000, 7, 16U << 20U}, {3, 1000, 900'000}, {1, 0, 1}};
  for (const ByteSource* source :
       std::initializer_list<const ByteSource*>{&file, &cached, &memory}) {
    for (const auto& [ahead, from, count] : stretches) {
      SCOPED_TRACE(source->descriptionForReport() + ", " + std::to_string(count));
      FileSink sink((folder / "copy").string());
      sink.append(unlike(ahead));
      std::vector<std::uint64_t> steps;
      const auto note = [&](std::uint64_t done) { steps.push_back(done); };
      EXPECT_EQ(sink.copy(*source, from, count, note, {}), count);
      EXPECT_EQ(sink.size(), ahead + count);
      sink.append(unlike(ahead));
      sink.close();
      const Bytes copy = contentsOf(folder / "copy");
      ASSERT_EQ(copy.size(), 2 * ahead + count);
      const auto copied = copy.begin() + static_cast<std::ptrdiff_t>(ahead);
      EXPECT_TRUE(std::equal(copied, copied + static_cast<std::ptrdiff_t>(count),
                             bytes.begin() + static_cast<std::ptrdiff_t>(from)));
      EXPECT_EQ(Bytes(copy.end() - static_cast<std::ptrdiff_t>(ahead), copy.end()), unlike(ahead));
      EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
      EXPECT_GE(steps.size(), count >> 23U);
      EXPECT_EQ(steps.back(), count);
    }
  }
}

TEST(FileSinks, leaveHolesWhereTheSourceHasThem) {
  const TemporaryFolder folder;
  const Bytes bytes = unlike(20'000'000);
  writeFile(folder / "clip", bytes);
  std::filesystem::resize_file(folder / "clip", 120'000'000);
  const FileSource file((folder / "clip").string());
  FileSink sink((folder / "copy").string());
  sink.append(Bytes(40));
  EXPECT_EQ(sink.copy(file, 100, file.size(), {}, {}), file.size() - 100);
  sink.close();
  EXPECT_LE(storageOf(folder / "copy"), storageOf(folder / "clip") + 32768);
  Bytes expected = bytes;
  expected.resize(120'000'000);
  expected.erase(expected.begin(), expected.begin() + 60);
  std::fill_n(expected.begin(), 40, std::uint8_t{0});
  EXPECT_TRUE(contentsOf(folder / "copy") == expected);
}

TEST(FileSinks, endWithTheSourceEvenWhereTheFileGrewMeanwhile) {
  const TemporaryFolder folder;
  const FileSource file(writeFile(folder / "clip", unlike(100)).string());
  std::filesystem::resize_file(folder / "clip", 5000);
  FileSink sink((folder / "copy").string());
  EXPECT_EQ(sink.copy(file, 40, 1000, {}, {}), 60U);
}

// A card that is cut off while it is copied.
TEST(FileSinks, tellHowManyBytesAFileGaveThatShrankMeanwhile) {
  const TemporaryFolder folder;
  const FileSource file(writeFile(folder / "clip", unlike(longEnough)).string());
  std::filesystem::resize_file(folder / "clip", 30'000'000);
  FileSink sink((folder / "copy").string());
  EXPECT_EQ(sink.copy(file, 10, longEnough, {}, {}), 29'999'990U);
  EXPECT_EQ(sink.size(), 29'999'990U);
  // Nor does the copy hold the room that the rest would have needed.
  EXPECT_LT(storageOf(folder / "copy"), 30'500'000U);
}

TEST(FileSinks, passOnWhatTheSourceThrows) {
  const TemporaryFolder folder;
  for (const std::uint64_t bad : {20ULL, 30'000'000ULL, 49'999'999ULL}) {
    const FailingSource source(unlike(longEnough), {{bad, bad + 1}});
    FileSink sink((folder / "copy").string());
    try {
      sink.copy(source, 10, longEnough, {}, {});
      ADD_FAILURE() << "nothing thrown for byte " << bad;
    } catch (const DeviceError& error) {
      EXPECT_EQ(error.kind(), DeviceError::Kind::readFailed);
      EXPECT_EQ(error.offset(), bad);
    }
  }
}

TEST(FileSinks, sayThatTheDiskIsFull) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no device here that is always full";
  for (const std::size_t count : {std::size_t{1000}, longEnough}) {
    FileSink sink(::open("/dev/full", O_WRONLY | O_CLOEXEC), "wedding.mp4");
    try {
      sink.copy(MemorySource(unlike(count)), 0, count, {}, {});
      ADD_FAILURE() << "nothing thrown for " << count;
    } catch (const DeviceError& error) {
      EXPECT_EQ(error.kind(), DeviceError::Kind::writeFailed);
      EXPECT_EQ(error.errorNumber(), ENOSPC);
      EXPECT_EQ(error.path(), "wedding.mp4");
    }
  }
}

// As a disk that fills up while the copy is written.
TEST(FileSinks, sayWhatEndedThemHalfWay) {
  const TemporaryFolder folder;
  struct rlimit usual {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &usual), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  for (const rlim_t room : {rlim_t{1'000'000}, rlim_t{30'000'000}, rlim_t{longEnough - 1}}) {
    const MemorySource source(unlike(longEnough));
    FileSink sink((folder / "copy").string());
    const struct rlimit tight { room, usual.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
    EXPECT_THROW(sink.copy(source, 0, longEnough, {}, {}), DeviceError);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &usual), 0);
    EXPECT_EQ(sink.size(), room);
  }
  std::signal(SIGXFSZ, handler);
}

TEST(FileSinks, stopBetweenPieces) {
  const TemporaryFolder folder;
  for (const std::size_t count : {std::size_t{15'000'000}, longEnough}) {
    const MemorySource source(unlike(count));
    FileSink sink((folder / "copy").string());
    StopSource stop;
    EXPECT_THROW(sink.copy(
                     source, 0, source.size(), [&](auto) { stop.requestStop(); }, stop.token()),
                 Stopped);
    EXPECT_LT(std::filesystem::file_size(folder / "copy"), source.size());
  }
}

}  // namespace
}  // namespace tallowmark
