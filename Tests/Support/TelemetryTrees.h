// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "Tests/Support/Files.h"

namespace tallowmark::testing {

/// An item of telemetry: key, type, size and number of its values, values, padding.
inline Bytes item(const std::string& key, char type, std::uint8_t valueSize, const Bytes& values) {
  Bytes bytes(key.begin(), key.end());
  const std::size_t count = valueSize == 0 ? 0 : values.size() / valueSize;
  for (const std::size_t byte :
       {static_cast<std::size_t>(type), std::size_t{valueSize}, count >> 8U, count & 0xFFU}) {
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  bytes.insert(bytes.end(), values.begin(), values.end());
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

/// The telemetry of a device with a name and a stream of three-axis values that depend on `seed`.
inline Bytes deviceTree(std::uint8_t seed, std::size_t values = 300) {
  Bytes axes(values * 6);
  for (std::size_t i = 0; i < axes.size(); ++i) axes[i] = static_cast<std::uint8_t>(seed + i * 7);
  const Bytes stream = item("STRM", 0, 1, item("ACCL", 's', 6, axes));
  Bytes inside = item("DVNM", 'c', 1, {'C', 'a', 'm', 'e', 'r', 'a'});
  inside.insert(inside.end(), stream.begin(), stream.end());
  return item("DEVC", 0, 1, inside);
}

}  // namespace tallowmark::testing
