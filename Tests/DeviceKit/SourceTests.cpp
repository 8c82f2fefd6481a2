// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <random>
#include <thread>

#include "DeviceKit/CachedSource.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FailingSource.h"
#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::contentsOf;
using testing::TemporaryFolder;
using testing::writeFile;

Bytes counting(std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  return bytes;
}

TEST(Sources, giveTheBytesThatAreThereAndNeverMore) {
  const TemporaryFolder folder;
  const Bytes bytes = counting(100);
  const FileSource file(writeFile(folder / "clip", bytes).string());
  const MemorySource memory(bytes);
  const struct {
    std::uint64_t offset;
    std::size_t count;
    std::size_t expected;
  } reads[] = {{0, 100, 100}, {0, 0, 0},        {40, 0, 0},
               {90, 50, 10},  {99, 1, 1},       {100, 1, 0},
               {101, 5, 0},   {~0ULL, 4096, 0}, {10, ~std::size_t{0}, 90}};
  for (const ByteSource* source :
       {static_cast<const ByteSource*>(&file), static_cast<const ByteSource*>(&memory)}) {
    for (const auto& [offset, count, expected] : reads) {
      SCOPED_TRACE(source->descriptionForReport() + " at " + std::to_string(offset));
      const Bytes got = source->read(offset, count);
      ASSERT_EQ(got.size(), expected);
      EXPECT_TRUE(std::equal(got.begin(), got.end(),
                             bytes.end() - std::ptrdiff_t(100 - offset) * (expected > 0 ? 1 : 0)));
    }
    EXPECT_EQ(source->badReads(), 0);
  }
  EXPECT_EQ(memory.descriptionForReport(), "memory(100 bytes)");
  EXPECT_EQ(file.descriptionForReport(), (folder / "clip").string());
  EXPECT_TRUE(MemorySource({}).read(0, 10).empty());
}

TEST(Sources, aFileThatShrankGivesAShortReadWithoutTrailingZeros) {
  const TemporaryFolder folder;
  const FileSource file(writeFile(folder / "clip", counting(100)).string());
  std::filesystem::resize_file(folder / "clip", 30);
  EXPECT_EQ(file.size(), 100U);
  EXPECT_EQ(file.read(10, 50), Bytes({10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
                                      20, 21, 22, 23, 24, 25, 26, 27, 28, 29}));
}

/// Counts how often its bytes are read.
class CountedSource final : public ByteSource {
 public:
  explicit CountedSource(const ByteSource& source) : source_(source) {}
  std::uint64_t size() const override { return source_.size(); }
  std::string descriptionForReport() const override { return "counted"; }
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    ++reads;
    return source_.readInto(offset, into);
  }
  mutable std::size_t reads = 0;

 private:
  const ByteSource& source_;
};

TEST(Sources, aCachedOneGivesTheSameBytesWithFewReads) {
  std::mt19937 random(7);
  Bytes bytes((1U << 20U) + 333);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  const MemorySource memory(bytes);
  const CountedSource counted(memory);
  const CachedSource cached(counted);
  for (int i = 0; i < 3000; ++i) {
    const std::uint64_t offset = random() % (bytes.size() + 100);
    const std::size_t count = random() % (i % 10 == 0 ? 40'000 : 3000);
    ASSERT_EQ(cached.read(offset, count), memory.read(offset, count)) << offset << ", " << count;
  }
  counted.reads = 0;
  for (std::uint64_t at = 0; at < bytes.size(); at += 100) {
    ASSERT_EQ(cached.read(at, 140), memory.read(at, 140)) << at;
  }
  EXPECT_LE(counted.reads, bytes.size() / 60'000 + 10);
  counted.reads = 0;
  cached.read(100'000, 12'000);
  EXPECT_EQ(counted.reads, 1U) << "what is asked for is known";
}

TEST(Sources, aCachedOneIsAsShortAndAsBrokenAsItsFile) {
  const TemporaryFolder folder;
  const FileSource file(writeFile(folder / "clip", Bytes(10'000, 1)).string());
  const CachedSource cached(file);
  std::filesystem::resize_file(folder / "clip", 5000);
  EXPECT_EQ(cached.read(4000, 2000).size(), 1000U);
  EXPECT_TRUE(cached.read(6000, 100).empty());

  const FailingSource worn(counting(20'000), {{8000, 8001}});
  const CachedSource cachedWorn(worn);
  EXPECT_THROW(cachedWorn.read(7900, 200), DeviceError);
  EXPECT_THROW(cachedWorn.read(7900, 200), DeviceError);  // not remembered as bytes
  EXPECT_EQ(cachedWorn.read(100, 50), worn.read(100, 50));
}

TEST(Sources, whatIsNoFileIsRefusedWithASentence) {
  const TemporaryFolder folder;
  const auto sentence = [](const std::string& path) -> std::string {
    try {
      const FileSource source(path);
      return "opened";
    } catch (const DeviceError& error) {
      return error.what();
    }
  };
  const std::string missing = (folder / "no such clip").string();
  const std::string pipe = (folder / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(sentence(missing), "Could not open " + missing + ": " + std::strerror(ENOENT));
  EXPECT_EQ(sentence(pipe), pipe + " is not a readable file or device.");
  EXPECT_EQ(sentence(folder.path().string()),
            folder.path().string() + " is not a readable file or device.");
  EXPECT_EQ(sentence("/dev/null"), "/dev/null is not a readable file or device.");
}

TEST(DeviceErrors, nameTheCaseInOneSentence) {
  EXPECT_STREQ(DeviceError::authorizationDenied("/dev/sdb").what(),
               "Authorization to read /dev/sdb was denied.");
  EXPECT_EQ(std::string(DeviceError::readFailed(4096, EIO).what()),
            std::string("Read failed at offset 4096: ") + std::strerror(EIO));
}

TEST(FailingSources, nameTheFirstByteThatCannotBeRead) {
  const FailingSource source(counting(100), {{20, 30}, {60, 100}});
  EXPECT_EQ(source.read(0, 20), counting(20));
  EXPECT_EQ(source.read(30, 30).size(), 30U);
  const std::array<std::array<std::uint64_t, 2>, 3> failures{{{0, 20}, {25, 25}, {59, 60}}};
  for (const auto& [offset, expected] : failures) {
    try {
      source.read(offset, 100);
      ADD_FAILURE() << "read at " << offset;
    } catch (const DeviceError& error) {
      EXPECT_EQ(error.offset(), expected);
      EXPECT_EQ(error.errorNumber(), EIO);
    }
  }
}

}  // namespace
}  // namespace tallowmark
