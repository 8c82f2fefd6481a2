// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>

#include "DeviceKit/PositionedRead.h"

namespace tallowmark {

/// A medium that gives whole blocks only: a memory card in its reader, a disk. Reads are positioned
/// and may run side by side. It is never written to.
class BlockDevice {
 public:
  BlockDevice() = default;
  BlockDevice(const BlockDevice&) = delete;
  BlockDevice& operator=(const BlockDevice&) = delete;
  BlockDevice(BlockDevice&&) = delete;
  BlockDevice& operator=(BlockDevice&&) = delete;
  virtual ~BlockDevice() = default;

  /// Bytes of a block; at least 1.
  virtual std::size_t blockSize() const = 0;
  /// Bytes in all. A file that stands in for a device may end within a block.
  virtual std::uint64_t size() const = 0;

  /// Reads ahead where the system likes to. `offset` and the length are whole blocks, but for the
  /// end of the medium.
  virtual ReadOutcome readAt(std::uint64_t offset, std::span<std::uint8_t> into) const = 0;

  /// The same without reading a block more than asked: for going around those that fail.
  virtual ReadOutcome readExactly(std::uint64_t offset, std::span<std::uint8_t> into) const = 0;

  /// Whether the medium is still there.
  virtual bool isPresent() const = 0;
};

/// Is told of stretches in rising order: what they hold, or zeros for a block that cannot be read.
/// What it throws ends the read.
using BlockVisit =
    std::function<void(std::uint64_t offset, std::span<const std::uint8_t> bytes, bool wasRead)>;

/// Fills `into` from `offset` on, both whole blocks but for the end of the medium: in one read, and
/// where that fails in ever smaller ones around the blocks that fail. Those become zeros. A failing
/// read can take a card seconds, so one bad block costs a handful of them, however much is asked.
/// Throws DeviceError::readFailed when the medium is gone.
void readBlocks(const BlockDevice& device, std::uint64_t offset, std::span<std::uint8_t> into,
                const BlockVisit& visit);

/// The same for a stretch that a read has failed in before: starts with the smaller ones.
void readBlocksAround(const BlockDevice& device, std::uint64_t offset, std::span<std::uint8_t> into,
                      const BlockVisit& visit);

}  // namespace tallowmark
