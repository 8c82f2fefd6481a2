// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <span>

#include "DeviceKit/Descriptor.h"
#include "DeviceKit/Imaging/ReadMap.h"

namespace tallowmark {

/// The image of a card and the map beside it. Until every block was tried the image is called
/// "NAME.part"; it gets its name in a step that replaces nothing. What the map claims is on the
/// medium. Not for use from two threads.
class ImageFile {
 public:
  /// Starts the image of a card of `size` bytes under that name, or goes on with the one that is
  /// there with its map. Throws ImageError for what is there and is not such an image, DeviceError.
  ImageFile(std::filesystem::path file, std::uint64_t size);

  static std::filesystem::path unfinishedName(const std::filesystem::path& file);
  static std::filesystem::path mapName(const std::filesystem::path& file);

  const std::filesystem::path& file() const { return file_; }
  /// Where the bytes are now.
  const std::filesystem::path& path() const { return path_; }
  const ReadMap& map() const { return map_; }

  /// Bytes of the image, which the map calls read. Returns how many there are.
  std::size_t read(std::uint64_t offset, std::span<std::uint8_t> into) const;
  /// Puts what was read from the card in its place. Throws DeviceError::writeFailed.
  void write(std::uint64_t offset, std::span<const std::uint8_t> bytes);
  /// Notes what cannot be read. Its place holds zeros.
  void markBad(std::uint64_t offset, std::uint64_t length);
  /// Waits until the bytes are on the medium, then writes the map. Throws DeviceError::writeFailed;
  /// the map stays as it was then.
  void save();
  /// Saves, and gives the image its name unless it has it. Throws DeviceError::writeFailed,
  /// ImageError::nameTaken.
  void publish();

 private:
  void resume(const std::filesystem::path& existing);
  void start();
  void lock() const;
  void setLength();
  void writeAll(std::uint64_t offset, std::span<const std::uint8_t> bytes);
  void writeMap() const;

  std::filesystem::path file_;
  std::filesystem::path path_;
  ReadMap map_;
  Descriptor image_;
  // A sync that failed once can succeed the next time with the bytes lost: fsync(2).
  bool lostBytes_ = false;
};

}  // namespace tallowmark
