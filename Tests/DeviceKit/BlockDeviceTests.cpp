// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "DeviceKit/BlockDeviceSource.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FailingDevice.h"
#include "DeviceKit/FileSource.h"
#include "DeviceKit/RawDevice.h"
#include "DeviceKit/SourceOpener.h"
#include "Tests/Support/LoopDevice.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::LoopDevice;
using testing::TemporaryFolder;
using testing::writeFile;

Bytes noise(std::size_t count) {
  Bytes bytes(count);
  std::minstd_rand random(7);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random() >> 8U | 1U);
  return bytes;
}

/// What a device with bad blocks is to give: zeros there, and how many.
struct Expected {
  Bytes bytes;
  std::int64_t bad = 0;
};

Expected expected(const Bytes& data, std::size_t block, const std::set<std::uint64_t>& bad,
                  std::uint64_t offset, std::size_t count) {
  Expected result;
  const std::uint64_t end = std::min<std::uint64_t>(offset + count, data.size());
  for (std::uint64_t at = offset; at < end; ++at) {
    result.bytes.push_back(bad.count(at / block) > 0 ? std::uint8_t{0} : data[at]);
  }
  for (const std::uint64_t number : bad) {
    result.bad += number * block < end && (number + 1) * block > offset ? 1 : 0;
  }
  return result;
}

TEST(BlockDeviceSources, giveEveryAlignmentWithZerosForWhatFails) {
  for (const std::size_t block : {512U, 4096U}) {
    const Bytes data = noise(block * 40);
    for (const std::set<std::uint64_t>& bad :
         {std::set<std::uint64_t>{}, {0}, {39}, {5, 6, 20}, {1, 3, 5, 7, 38}}) {
      for (const bool bringsWhatComesBefore : {true, false}) {
        for (const std::uint64_t offset :
             {std::uint64_t{0}, std::uint64_t{1}, block - 1, block, block * 3 + 100, block * 39,
              block * 40 - 1, block * 40, std::uint64_t{1} << 50U}) {
          for (const std::size_t count : {std::size_t{0}, std::size_t{1}, block - 1, block,
                                          block + 1, block * 17 + 3, block * 100}) {
            auto device = std::make_unique<FailingDevice>(data, block, bad);
            device->bringsWhatComesBefore = bringsWhatComesBefore;
            const BlockDeviceSource source(std::move(device), "card");
            const Expected wanted =
                count == 0 ? Expected() : expected(data, block, bad, offset, count);
            ASSERT_EQ(source.read(offset, count), wanted.bytes)
                << block << " " << offset << "+" << count;
            ASSERT_EQ(source.badReads(), wanted.bad) << block << " " << offset << "+" << count;
          }
        }
      }
    }
  }
}

TEST(BlockDeviceSources, readOnlyAroundABadBlockOneByOne) {
  constexpr std::size_t size = std::size_t{64} << 20U;
  const Bytes data = noise(size);
  for (const std::size_t block : {512U, 4096U}) {
    for (const bool bringsWhatComesBefore : {true, false}) {
      auto owned = std::make_unique<FailingDevice>(data, block, std::set<std::uint64_t>{9999});
      FailingDevice& device = *owned;
      device.bringsWhatComesBefore = bringsWhatComesBefore;
      const BlockDeviceSource source(std::move(owned), "card");
      EXPECT_EQ(source.read(0, size).size(), size);
      EXPECT_EQ(source.badReads(), 1);
      EXPECT_LE(device.reads(), 100U);
      EXPECT_LE(device.failedReads(), 7U);
    }
  }
  // Each bad block costs one failing read, and a fifteenth more for finding it.
  std::set<std::uint64_t> bad;
  for (std::uint64_t number = 4096; number < 8192; ++number) bad.insert(number);
  auto owned = std::make_unique<FailingDevice>(data, 512, bad);
  FailingDevice& device = *owned;
  device.bringsWhatComesBefore = false;
  const BlockDeviceSource source(std::move(owned), "card");
  EXPECT_EQ(source.read(0, size).size(), size);
  EXPECT_EQ(source.badReads(), 4096);
  EXPECT_LE(device.failedReads(), 4096U + 4096U / 15 + 20);
}

TEST(BlockDeviceSources, doNotPassACardThatWasPulledOffAsZeros) {
  auto owned = std::make_unique<FailingDevice>(noise(32'768), 512, std::set<std::uint64_t>{});
  FailingDevice& device = *owned;
  const BlockDeviceSource source(std::move(owned), "card");
  EXPECT_EQ(source.read(0, 512).size(), 512U);
  device.setPresent(false);
  EXPECT_THROW(source.read(0, 32'768), DeviceError);
  EXPECT_LE(device.reads(), 3U);
}

TEST(DeviceGeometries, giveNoSizeThatCannotBe) {
  EXPECT_EQ(bytesOf({4096, std::uint64_t{1} << 50U}), std::uint64_t{1} << 62U);
  EXPECT_EQ(bytesOf({4096, std::uint64_t{1} << 52U}), std::nullopt);
  EXPECT_EQ(bytesOf({512, ~std::uint64_t{0}}), std::nullopt);
}

TEST(RawDevices, takeAFileForADeviceButNotAnEmptyOne) {
  const TemporaryFolder folder;
  const Bytes data = noise(2660);
  const std::string card = writeFile(folder / "card", data).string();
  const BlockDeviceSource source(::open(card.c_str(), O_RDONLY), card);
  EXPECT_EQ(source.size(), data.size());
  EXPECT_EQ(source.blockSize(), 512U);
  EXPECT_EQ(source.descriptionForReport(), card);
  EXPECT_EQ(source.read(0, data.size()), data);
  EXPECT_EQ(source.read(512 * 5 + 1, 500), Bytes(data.end() - 99, data.end()));
  EXPECT_EQ(source.badReads(), 0);

  const std::string empty = writeFile(folder / "empty", {}).string();
  const int fd = ::open(empty.c_str(), O_RDONLY);
  EXPECT_THROW(BlockDeviceSource(fd, empty), DeviceError);
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1) << "left open";
}

TEST(SourceOpeners, tellFilesDevicesAndTheRestApart) {
  const TemporaryFolder folder;
  const std::string file = writeFile(folder / "clip", noise(100)).string();
  const std::string pipe = (folder / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_NE(dynamic_cast<FileSource*>(SourceOpener::open(file).get()), nullptr);
  const std::string missing = folder / "missing";
  for (const std::string& path : {missing, pipe, folder.path().string(), std::string("/dev/null"),
                                  std::string("/dev/zero")}) {
    try {
      SourceOpener::open(path);
      ADD_FAILURE() << path << " opened";
    } catch (const DeviceError& error) {
      EXPECT_EQ(error.kind(), path == missing ? DeviceError::Kind::cannotOpen
                                              : DeviceError::Kind::notAFileOrDevice);
    }
  }
}

TEST(RawDeviceAccess, asksForLeaveOnlyWhereTheSystemRefuses) {
  const TemporaryFolder folder;  // others than its owner may not look into it
  const std::string file = writeFile(folder / "card", noise(1024)).string();
  int asked = 0;
  const auto opener = [&](const std::string&) { return ++asked, ::open("/dev/null", O_RDONLY); };
  ::close(RawDeviceAccess::openReadOnly(file, opener));
  EXPECT_THROW(RawDeviceAccess::openReadOnly(folder / "missing", opener), DeviceError);
  EXPECT_EQ(asked, 0);
  if (::geteuid() != 0 || ::seteuid(65'534) != 0) {
    GTEST_SKIP() << "only the superuser can be somebody else for a while";
  }
  ::close(RawDeviceAccess::openReadOnly(file, opener));
  EXPECT_EQ(asked, 1);
  EXPECT_THROW(RawDeviceAccess::openReadOnly(file, {}), DeviceError);
  ASSERT_EQ(::seteuid(0), 0);
}

TEST(LoopDevices, readAtEveryAlignmentThroughTheCacheAndAroundIt) {
  const TemporaryFolder folder;
  const Bytes data = noise(204'800);
  const auto file = writeFile(folder / "card", data);
  for (const std::size_t block : {512U, 4096U}) {
    const LoopDevice loop(file, block);
    if (!loop) GTEST_SKIP() << "no loop devices here: " << loop.complaint();
    const auto source = SourceOpener::open(loop.path());
    ASSERT_EQ(source->size(), data.size());
    for (const std::uint64_t offset : {std::uint64_t{0}, block - 1, block, block * 3 + 100}) {
      for (const std::size_t count : {std::size_t{1}, block, block * 7 + 3, data.size()}) {
        ASSERT_EQ(source->read(offset, count), expected(data, block, {}, offset, count).bytes);
      }
    }
    EXPECT_EQ(source->badReads(), 0);
    const auto device = SourceOpener::openDevice(loop.path());
    EXPECT_EQ(device->blockSize(), block);
    EXPECT_TRUE(device->isPresent());
    Bytes odd(block * 3 + 1);
    const auto part = std::span(odd).subspan(1);
    EXPECT_EQ(device->readExactly(block, part).count, part.size());
    EXPECT_TRUE(std::equal(part.begin(), part.end(), data.begin() + std::ptrdiff_t(block)));
    EXPECT_EQ(::fcntl(device->descriptor(), F_GETFL) & O_ACCMODE, O_RDONLY);
  }
}

}  // namespace
}  // namespace tallowmark
