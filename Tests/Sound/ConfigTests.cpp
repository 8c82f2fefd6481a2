// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "MediaKit/Sound/AACConfig.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;

// A sample entry that ends in an esds box whose elementary stream has these flags.
Bytes entry(std::uint8_t objectType, Bytes audioConfig, std::uint8_t flags = 0) {
  Bytes stream{0, 1, flags};
  if ((flags & 0x80U) != 0) stream.insert(stream.end(), {0, 9});
  if ((flags & 0x40U) != 0) stream.insert(stream.end(), {3, 'u', 'r', 'l'});
  if ((flags & 0x20U) != 0) stream.insert(stream.end(), {0, 7});
  const auto configSize = static_cast<std::uint8_t>(audioConfig.size());
  // Sizes in one byte and in four, as encoders write them.
  stream.insert(stream.end(), {4, 0x80, 0x80, 0x80, static_cast<std::uint8_t>(15 + configSize)});
  stream.insert(stream.end(), {objectType, 0x15, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  stream.insert(stream.end(), {5, configSize});
  stream.insert(stream.end(), audioConfig.begin(), audioConfig.end());
  Bytes whole{'m', 'p', '4', 'a', 0, 0, 0, 60, 'e', 's', 'd', 's', 0, 0, 0, 0, 3};
  whole.push_back(static_cast<std::uint8_t>(stream.size()));
  whole.insert(whole.end(), stream.begin(), stream.end());
  return whole;
}

TEST(AACConfig, readsWhatTheSyntaxHangsOn) {
  struct Row {
    const char* label;
    Bytes sampleEntry;
    std::optional<AACConfig> config;
  };
  const Row rows[] = {
      {"48 kHz stereo", entry(0x40, {0x11, 0x90}), AACConfig{3, 2, 1024}},
      {"44.1 kHz mono with extra bytes", entry(0x40, {0x12, 0x08, 0x56, 0xE5, 0x00}),
       AACConfig{4, 1, 1024}},
      {"5.1", entry(0x40, {0x11, 0xB0}), AACConfig{3, 6, 1024}},
      {"960 samples a block", entry(0x40, {0x11, 0x94}), AACConfig{3, 2, 960}},
      {"band replication on 24 kHz", entry(0x40, {0x2B, 0x11, 0x88, 0x00}), AACConfig{6, 2, 1024}},
      {"a rate written out, 48,000", entry(0x40, {0x17, 0x80, 0x5D, 0xC0, 0x10}),
       AACConfig{3, 2, 1024}},
      {"MPEG-2 AAC-LC", entry(0x67, {0x11, 0x90}), AACConfig{3, 2, 1024}},
      {"all flags set", entry(0x40, {0x11, 0x90}, 0xE0), AACConfig{3, 2, 1024}},
      {"main profile", entry(0x40, {0x09, 0x90}), std::nullopt},
      {"reserved rate", entry(0x40, {0x16, 0x90}), std::nullopt},
      {"MP3", entry(0x6B, {0x11, 0x90}), std::nullopt},
      {"nothing", {}, std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(AACConfig::of(row.sampleEntry), row.config) << row.label;
  }
  const Bytes whole = entry(0x40, {0x11, 0x90}, 0xE0);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(AACConfig::of(std::span(whole).first(size))) << "cut to " << size;
  }
}

TEST(AACConfig, setsARateThatIsStatedOnce) {
  const struct {
    const char* label;
    Bytes sampleEntry;
    std::optional<std::uint32_t> rate;
  } rows[] = {
      {"48 kHz stereo", entry(0x40, {0x11, 0x90}), 48000},
      {"44.1 kHz, no band replication", entry(0x40, {0x12, 0x10, 0x56, 0xE5, 0x00}), 44100},
      {"all flags set", entry(0x40, {0x11, 0x90}, 0xE0), 48000},
      {"band replication", entry(0x40, {0x2B, 0x11, 0x88, 0x00}), std::nullopt},
      {"band replication behind", entry(0x40, {0x13, 0x10, 0x56, 0xE5, 0x98}), std::nullopt},
      {"a rate written out", entry(0x40, {0x17, 0x80, 0x5D, 0xC0, 0x10}), std::nullopt},
      {"channels listed", entry(0x40, {0x11, 0x80, 0x04, 0x00}), std::nullopt},
      {"nothing", {}, std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(AACConfig::soleRate(row.sampleEntry), row.rate) << row.label;
    for (const std::uint32_t rate : {96000U, 44100U, 8000U}) {
      Bytes changed = row.sampleEntry;
      EXPECT_EQ(AACConfig::setSoleRate(changed, rate), row.rate.has_value()) << row.label;
      EXPECT_EQ(AACConfig::soleRate(changed), row.rate ? std::optional(rate) : std::nullopt)
          << row.label;
      // Channels and all else stay.
      EXPECT_TRUE(!row.rate || AACConfig::setSoleRate(changed, *row.rate)) << row.label;
      EXPECT_EQ(changed, row.sampleEntry) << row.label;
    }
    Bytes changed = row.sampleEntry;
    EXPECT_FALSE(AACConfig::setSoleRate(changed, 47999)) << row.label;
  }
}

}  // namespace
}  // namespace tallowmark
