// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tallowmark {

/// A disk that is not built in: a memory card in its reader, a disk on a cable.
struct ExternalDisk {
  /// Names the whole disk: "disk4", "sdb".
  std::string deviceIdentifier;
  /// What the maker calls it; can be empty.
  std::string mediaName;
  std::uint64_t sizeBytes = 0;
  std::vector<std::string> volumeNames;

  /// Identifies the disk while it is attached.
  const std::string& id() const { return deviceIdentifier; }
  /// The path to read the whole disk from: "/dev/rdisk4", "/dev/sdb".
  std::string rawPath() const;
  /// Whether the name is one of a card or a card reader.
  bool isMemoryCard() const;
  /// Its volumes' names, else the maker's, else the identifier.
  std::string displayName() const;
  /// "63.9 GB".
  std::string sizeDescription() const;

  friend bool operator==(const ExternalDisk&, const ExternalDisk&) = default;
};

/// A whole disk that holds a mounted volume.
struct WholeDisk {
  std::string identifier;
  std::string rawPath;
  std::uint64_t size = 0;
  friend bool operator==(const WholeDisk&, const WholeDisk&) = default;
};

/// The path to read a whole disk from. Differs between systems.
std::string rawPathOf(const std::string& deviceIdentifier);

/// "63.9 GB": in powers of ten, as card makers count.
std::string sizeText(std::uint64_t bytes);

}  // namespace tallowmark

/// As equality is: over all fields.
template <>
struct std::hash<tallowmark::ExternalDisk> {
  std::size_t operator()(const tallowmark::ExternalDisk& disk) const noexcept;
};
