// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tallowmark {

/// Random-access reading of media: a file, memory or a device. A source keeps no position, so one
/// source may be read from several threads at once. It never writes.
class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  ByteSource(ByteSource&&) = delete;
  ByteSource& operator=(ByteSource&&) = delete;
  virtual ~ByteSource() = default;

  /// Bytes the source holds.
  virtual std::uint64_t size() const = 0;

  /// How many reads were papered over with zeros; devices only, 0 elsewhere.
  virtual std::int64_t badReads() const { return 0; }

  /// Names the source in reports: a path, or what stands in for one.
  virtual std::string descriptionForReport() const = 0;

  /// Fills `into` from `offset` on and returns how many bytes it holds then: all of it, or fewer
  /// exactly when the source ends first. Throws DeviceError::readFailed.
  virtual std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const = 0;

  /// The bytes from `offset` on, at most `count`, fewer only past the end. Memory is taken for
  /// bytes that are there, never for what is asked. Throws as readInto.
  std::vector<std::uint8_t> read(std::uint64_t offset, std::size_t count) const;

  /// The open descriptor behind the source, for copies inside the kernel; owned by the source.
  /// Absent where bytes exist only in this process.
  virtual std::optional<int> descriptor() const { return std::nullopt; }
};

}  // namespace tallowmark
