// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

#include "Tests/Support/Files.h"

/// What a card with a damaged table of files does to one of them.
namespace tallowmark::testing {

inline std::ptrdiff_t placeOf(std::size_t position) {
  return static_cast<std::ptrdiff_t>(position);
}

/// Bytes of something else, the same ones each time.
inline Bytes foreignCluster(std::size_t size) {
  std::mt19937 random(3);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

/// The file with `size` bytes from `at` on missing.
inline Bytes withoutCluster(Bytes file, std::size_t at, std::size_t size) {
  file.erase(file.begin() + placeOf(at), file.begin() + placeOf(at + size));
  return file;
}

/// The file with `size` foreign bytes put in.
inline Bytes withForeignCluster(Bytes file, std::size_t at, std::size_t size) {
  const Bytes more = foreignCluster(size);
  file.insert(file.begin() + placeOf(at), more.begin(), more.end());
  return file;
}

}  // namespace tallowmark::testing
