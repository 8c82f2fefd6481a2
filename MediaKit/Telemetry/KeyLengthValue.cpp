// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/KeyLengthValue.h"

#include <algorithm>
#include <string_view>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/FourCC.h"

namespace tallowmark {

namespace {

constexpr std::size_t headSize = 8;
// Device, stream, item; cameras go no deeper than a level or two more.
constexpr int deepest = 8;

/// The head of an item.
struct Item {
  FourCC key;
  std::uint8_t type = 0;
  std::uint8_t valueSize = 0;
  /// Bytes of the values with their padding.
  std::size_t length = 0;

  bool nests() const { return type == 0; }
};

Item itemAt(std::span<const std::uint8_t> bytes) {
  const std::size_t length = std::size_t{bytes[5]} * bigEndian<std::uint16_t>(bytes, 6);
  return {FourCC(bigEndian<std::uint32_t>(bytes, 0)), bytes[4], bytes[5], (length + 3) / 4 * 4};
}

// Bytes of one number of a type; 0 for what is no type.
std::size_t numberSize(std::uint8_t type) {
  const auto isOneOf = [&](std::string_view types) {
    return types.find(static_cast<char>(type)) != std::string_view::npos;
  };
  if (isOneOf("bBc?#")) return 1;
  if (isOneOf("sS")) return 2;
  if (isOneOf("lLfFq")) return 4;
  if (isOneOf("djJQ")) return 8;
  return isOneOf("GU") ? 16 : 0;
}

// Printable letters, all of them ASCII.
bool isKey(FourCC key) {
  return key.isPlausible() && (key.value & 0x80808080U) == 0;
}

bool isPlausible(const Item& item) {
  if (!isKey(item.key)) {
    return false;
  }
  if (item.nests()) {
    return true;
  }
  const std::size_t number = numberSize(item.type);
  return number != 0 && item.valueSize % number == 0;
}

// Whether items fill `bytes` to the last.
bool areItems(std::span<const std::uint8_t> bytes, int depth) {
  if (depth == deepest) {
    return false;
  }
  while (!bytes.empty()) {
    if (bytes.size() < headSize) {
      return false;
    }
    const Item item = itemAt(bytes);
    if (!isPlausible(item) || item.length > bytes.size() - headSize ||
        (item.nests() && !areItems(bytes.subspan(headSize, item.length), depth + 1))) {
      return false;
    }
    bytes = bytes.subspan(headSize + item.length);
  }
  return true;
}

}  // namespace

std::optional<std::size_t> claimedTreeSize(std::span<const std::uint8_t> head) {
  if (head.size() < headSize) {
    return std::nullopt;
  }
  const Item item = itemAt(head);
  const bool isDevice = item.key == "DEVC" && item.nests() && item.length > headSize;
  return isDevice ? std::optional(headSize + item.length) : std::nullopt;
}

bool isTelemetryTree(std::span<const std::uint8_t> tree) {
  return claimedTreeSize(tree) == tree.size() && areItems(tree, 0);
}

}  // namespace tallowmark
