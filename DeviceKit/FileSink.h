// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"

namespace tallowmark {

class WriteBehind;

/// Appends to a file that this object creates or empties, or to a descriptor it is handed.
/// Not for use from two threads.
class FileSink {
 public:
  /// Creates or empties `path`. Throws DeviceError::writeFailed.
  explicit FileSink(std::string path);
  /// Takes over a descriptor of an empty file open for writing; `name` is what errors call the
  /// file.
  FileSink(int descriptor, std::string name);
  ~FileSink();
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;
  FileSink(FileSink&&) = delete;
  FileSink& operator=(FileSink&&) = delete;

  /// Bytes appended so far.
  std::uint64_t size() const { return size_; }

  /// Throws DeviceError::writeFailed.
  void append(std::span<const std::uint8_t> bytes);

  /// Told how many bytes are copied.
  using Told = std::function<void(std::uint64_t)>;

  /// Appends `count` bytes of `source` from `offset` on, in pieces of at most 8 MiB: inside the
  /// kernel where it has more to offer than copying, otherwise reading and writing at a time.
  /// Stretches the source has no storage for stay so. Returns how many bytes the source gave: fewer
  /// than asked exactly when it ended first. `progress` is told the bytes read after every piece,
  /// on the calling thread, which alone reads `source`; the stop is looked at as often. Throws
  /// DeviceError of either end, Stopped; nothing is to be appended after that.
  std::uint64_t copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count,
                     const Told& progress, const StopToken& stop);

  /// Blocks until the bytes are on the medium. Throws DeviceError::writeFailed.
  void sync();

  /// Throws DeviceError::writeFailed; later calls do nothing.
  void close();

 private:
  bool leaveHole(std::uint64_t length);
  std::uint64_t storedAt(const ByteSource& source, int descriptor, std::uint64_t offset);
  std::uint64_t copyHole(int from, std::uint64_t offset, std::uint64_t count);
  std::size_t copyInKernel(int from, std::uint64_t offset, std::uint64_t count);
  std::size_t copyThroughBuffer(const ByteSource& source, std::uint64_t offset,
                                std::uint64_t count);
  std::uint64_t copyBehind(WriteBehind& behind, const ByteSource& source, std::uint64_t offset,
                           std::uint64_t count, const Told& progress, const StopToken& stop);
  std::uint64_t copyOnward(const ByteSource& source, std::uint64_t offset, std::uint64_t count,
                           const Told& progress, const StopToken& stop);

  int fd_ = -1;
  std::uint64_t size_ = 0;
  std::string name_;
  bool kernelCopies_ = true;
  // A stretch with storage, from its start to behind its end, and whose it is; never looked into.
  const ByteSource* storedIn_ = nullptr;
  std::pair<std::uint64_t, std::uint64_t> stored_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace tallowmark
