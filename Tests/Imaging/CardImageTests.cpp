// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/CardImage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <numeric>
#include <random>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FailingDevice.h"
#include "DeviceKit/Imaging/ImageError.h"
#include "DeviceKit/Imaging/ImageFile.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::contentsOf;
using testing::namesIn;
using testing::TemporaryFolder;
using testing::writeFile;

constexpr std::size_t block = 512;
constexpr std::size_t mebibyte = std::size_t{1} << 20U;

/// A card with pictures on its first half; the rest was never used.
Bytes cardOf(std::size_t size, unsigned seed) {
  Bytes bytes(size);
  std::minstd_rand random(seed);
  for (std::size_t i = 0; i < size / 2; ++i) bytes[i] = static_cast<std::uint8_t>(random() >> 8U);
  return bytes;
}

Bytes withZeros(Bytes bytes, const std::set<std::uint64_t>& blocks) {
  for (const std::uint64_t number : blocks) {
    std::fill_n(bytes.begin() + std::ptrdiff_t(number * block), block, std::uint8_t{0});
  }
  return bytes;
}

class CardImages : public ::testing::Test {
 protected:
  CardImage::Result copy(const FailingDevice& card) const {
    return CardImage::copy(card, image, {}, {});
  }
  ImageError::Kind refusal(const FailingDevice& card) const {
    try {
      copy(card);
    } catch (const ImageError& error) {
      return error.kind();
    }
    throw std::logic_error("copied");
  }

  TemporaryFolder folder;
  std::filesystem::path image = folder / "card.img";
  const Bytes data = cardOf(20 * mebibyte, 1);
  const std::vector<std::string> finished{"card.img", "card.img.map"};
  const std::vector<std::string> unfinished{"card.img.map", "card.img.part"};
};

TEST_F(CardImages, holdEveryBlockThatCanBeReadAndTheNextRunFillsTheHoles) {
  const std::set<std::uint64_t> bad{0, 7, 8, 9, 17'000, 40'959};
  for (const bool bringsWhatComesBefore : {true, false}) {
    image = folder / (bringsWhatComesBefore ? "a.img" : "b.img");
    FailingDevice card(data, block, bad);
    card.bringsWhatComesBefore = bringsWhatComesBefore;
    const CardImage::Result first = copy(card);
    EXPECT_EQ(first.unreadableBlocks, bad.size());
    EXPECT_EQ(first.unreadableBytes, bad.size() * block);
    EXPECT_EQ(contentsOf(image), withZeros(data, bad));
    EXPECT_LE(card.reads(), 500U);

    card.badBlocks() = {8};
    const std::size_t before = card.reads();
    const CardImage::Result second = copy(card);
    EXPECT_EQ(second.unreadableBlocks, 1U);
    EXPECT_EQ(second.readBefore, data.size() - bad.size() * block);
    EXPECT_EQ(contentsOf(image), withZeros(data, {8}));
    EXPECT_LE(card.reads() - before, 64U + 20U) << "only the holes, and samples to compare";

    card.badBlocks().clear();
    EXPECT_EQ(copy(card).unreadableBlocks, 0U);
    EXPECT_EQ(contentsOf(image), data);
    struct stat status {};
    ASSERT_EQ(::stat(image.c_str(), &status), 0);
    EXPECT_LE(status.st_blocks * 512, 11 * std::ptrdiff_t(mebibyte)) << "zeros take room";
  }
  EXPECT_EQ(namesIn(folder.path()).size(), 4U);
}

TEST_F(CardImages, goOnWhereTheyWereStoppedAnywhere) {
  const std::set<std::uint64_t> bad{100, 101, 20'000};
  for (std::size_t stopAt = 1;; stopAt += 7) {
    std::filesystem::remove(image);
    std::filesystem::remove(ImageFile::mapName(image));
    FailingDevice card(data, block, bad);
    StopSource source;
    card.beforeRead = [&](FailingDevice&, std::size_t reads) {
      if (reads >= stopAt) source.requestStop();
    };
    try {
      CardImage::copy(card, image, {}, source.token());
      EXPECT_GT(stopAt, 40U);
      break;
    } catch (const Stopped&) {
      EXPECT_EQ(namesIn(folder.path()), unfinished);
    }
    card.beforeRead = nullptr;
    EXPECT_EQ(copy(card).unreadableBlocks, bad.size());
    ASSERT_EQ(contentsOf(image), withZeros(data, bad)) << stopAt;
    EXPECT_EQ(namesIn(folder.path()), finished);
  }
}

TEST_F(CardImages, endSoonWhenTheCardIsPulledOrAnswersNoMore) {
  for (const bool tells : {true, false}) {
    std::filesystem::remove(image);
    std::filesystem::remove(ImageFile::mapName(image));
    FailingDevice card(data, block, {30});
    card.bringsWhatComesBefore = false;
    card.beforeRead = [&](FailingDevice& device, std::size_t reads) {
      if (reads < 2) return;
      tells ? device.setPresent(false) : device.setMute(true);
    };
    EXPECT_EQ(refusal(card), ImageError::Kind::noAnswer);
    EXPECT_LE(card.reads(), 200U);
    EXPECT_EQ(namesIn(folder.path()), unfinished);

    card.beforeRead = nullptr;
    card.setPresent(true);
    card.setMute(false);
    EXPECT_EQ(copy(card).unreadableBlocks, 1U);
    EXPECT_EQ(contentsOf(image), withZeros(data, {30}));
  }
}

TEST_F(CardImages, touchNothingThatIsNotTheirOwn) {
  const FailingDevice card(data, block, {5});
  const Bytes mine{1, 2, 3};
  for (const char* name : {"card.img", "card.img.part", "card.img.map"}) {
    writeFile(folder / name, mine);
    EXPECT_EQ(refusal(card), ImageError::Kind::nameTaken) << name;
    EXPECT_EQ(contentsOf(folder / name), mine);
    EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{name});
    std::filesystem::remove(folder / name);
  }
  std::filesystem::create_symlink("nowhere", image);
  EXPECT_EQ(refusal(card), ImageError::Kind::nameTaken);
  std::filesystem::remove(image);

  copy(card);
  const Bytes image1 = contentsOf(image);
  const Bytes map1 = contentsOf(ImageFile::mapName(image));
  EXPECT_EQ(refusal(FailingDevice(cardOf(data.size(), 2), block, {})),
            ImageError::Kind::anotherCard);
  EXPECT_EQ(refusal(FailingDevice(cardOf(mebibyte, 1), block, {})), ImageError::Kind::anotherCard);
  {
    const ImageFile held(image, data.size());
    EXPECT_EQ(refusal(card), ImageError::Kind::inUse);
  }
  std::filesystem::resize_file(image, mebibyte);
  EXPECT_EQ(refusal(card), ImageError::Kind::nameTaken);
  std::filesystem::resize_file(image, data.size());
  writeFile(image, image1);
  std::filesystem::rename(image, folder / "elsewhere.img");
  EXPECT_EQ(refusal(card), ImageError::Kind::nameTaken) << "the map of an image that was moved";
  EXPECT_EQ(contentsOf(ImageFile::mapName(image)), map1);
}

TEST_F(CardImages, thatAreFinishedByAnotherNameMeanwhileStayUnfinished) {
  FailingDevice card(data, block, {});
  card.beforeRead = [&](FailingDevice&, std::size_t) { writeFile(image, Bytes{9}); };
  EXPECT_EQ(refusal(card), ImageError::Kind::nameTaken);
  EXPECT_EQ(contentsOf(image), Bytes{9});
  EXPECT_EQ(contentsOf(ImageFile::unfinishedName(image)), data);
}

TEST_F(CardImages, beginAgainWhatWasKilledWhileItBegan) {
  const std::string map = ReadMap(data.size()).text();
  writeFile(ImageFile::mapName(image), Bytes(map.begin(), map.end()));
  writeFile(ImageFile::unfinishedName(image), {});
  copy(FailingDevice(data, block, {5}));
  EXPECT_EQ(contentsOf(image), withZeros(data, {5}));
  // A card that was mounted meanwhile is still the same.
  Bytes mounted = data;
  mounted[600] ^= 1U;
  EXPECT_EQ(copy(FailingDevice(mounted, block, {})).unreadableBlocks, 0U);
  EXPECT_EQ(contentsOf(image), data) << "what was read once is not read again";
}

}  // namespace
}  // namespace tallowmark
