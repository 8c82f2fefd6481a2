// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <set>
#include <vector>

#include "DeviceKit/BlockDevice.h"

namespace tallowmark {

/// A stand-in for a worn card, for tests: bytes in memory of which chosen blocks cannot be read. It
/// refuses what real raw devices refuse, too: reads that are not whole blocks.
class FailingDevice final : public BlockDevice {
 public:
  /// `bad` are numbers of blocks.
  FailingDevice(std::vector<std::uint8_t> data, std::size_t blockSize, std::set<std::uint64_t> bad)
      : data_(std::move(data)), blockSize_(blockSize), bad_(std::move(bad)) {}

  /// Whether a failing read brings the blocks before the bad one, as Linux has it, or nothing.
  bool bringsWhatComesBefore = true;
  /// Is called before each read, with the number of reads so far: to mend or break it meanwhile.
  std::function<void(FailingDevice& device, std::size_t reads)> beforeRead;

  /// Takes the card out, or puts it back.
  void setPresent(bool present) { present_ = present; }
  /// Makes every read fail while the device claims to be there.
  void setMute(bool mute) { mute_ = mute; }
  std::set<std::uint64_t>& badBlocks() { return bad_; }
  const std::vector<std::uint8_t>& data() const { return data_; }
  std::size_t reads() const { return reads_; }
  std::size_t failedReads() const { return failedReads_; }

  std::size_t blockSize() const override { return blockSize_; }
  std::uint64_t size() const override { return data_.size(); }
  ReadOutcome readAt(std::uint64_t offset, std::span<std::uint8_t> into) const override;
  ReadOutcome readExactly(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    return readAt(offset, into);
  }
  bool isPresent() const override { return present_; }

 private:
  ReadOutcome outcomeOf(std::uint64_t offset, std::size_t count) const;

  std::vector<std::uint8_t> data_;
  std::size_t blockSize_;
  std::set<std::uint64_t> bad_;
  bool present_ = true;
  bool mute_ = false;
  mutable std::size_t reads_ = 0;
  mutable std::size_t failedReads_ = 0;
};

}  // namespace tallowmark
