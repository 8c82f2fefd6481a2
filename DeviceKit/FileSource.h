// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/FileIdentity.h"

namespace tallowmark {

/// A file opened read-only; closes its descriptor when it goes. The size is taken once, at opening:
/// a file that shrinks afterwards gives short reads, one that grows is read as it was.
class FileSource final : public ByteSource {
 public:
  /// Throws DeviceError::cannotOpen, and notAFileOrDevice for folders, pipes, sockets and
  /// terminals: opening those could wait for ever or never end.
  explicit FileSource(std::string path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;
  FileSource(FileSource&&) = delete;
  FileSource& operator=(FileSource&&) = delete;

  const std::string& path() const { return path_; }
  /// When the file was last written, as it stood at opening.
  timespec modificationTime() const { return identity_.modified; }
  /// The file as it stood at opening.
  const FileIdentity& identity() const { return identity_; }

  std::uint64_t size() const override { return identity_.size; }
  std::string descriptionForReport() const override { return path_; }
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override;
  std::optional<int> descriptor() const override { return fd_; }

 private:
  int fd_ = -1;
  FileIdentity identity_;
  std::string path_;
};

}  // namespace tallowmark
