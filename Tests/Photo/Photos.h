// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ostream>
#include <string>

#include "Tests/Support/Boxes.h"
#include "Tests/Support/Files.h"

namespace tallowmark::testing {

/// A photo for libjpeg to make. Photos of one recipe and different variants are siblings.
struct PhotoRecipe {
  int width = 200;
  int height = 150;
  int quality = 80;
  bool color = true;
  /// Sampling of the first component: 2 and 2 make 4:2:0.
  int horizontal = 2;
  int vertical = 2;
  bool progressive = false;
  bool optimizedTables = false;
  bool arithmetic = false;
  /// Each component in a scan of its own.
  bool separateScans = false;
  unsigned restartInterval = 0;
  unsigned variant = 0;
};

Bytes makePhoto(const PhotoRecipe& recipe);

/// A marker segment with the length its payload has.
Bytes segment(std::uint8_t marker, const Bytes& payload);
/// A DQT with one table of equal steps, and a DHT with one table of one code of one bit.
Bytes quantTable(std::uint8_t id, std::uint8_t step = 1);
Bytes huffmanTable(std::uint8_t id);
/// A gray frame header that names quantization table `quantization`, and its scan's header.
Bytes grayFrame(int width, int height, std::uint8_t quantization = 0, std::uint8_t marker = 0xC0);
Bytes grayScan();
/// A header in the usual order, SOI to SOS, for a gray picture.
Bytes grayHeader(int width = 16, int height = 16);

inline const Bytes soi{0xFF, 0xD8};
inline const Bytes eoi{0xFF, 0xD9};

/// The data with its first `count` bytes overwritten: by zeros, or by noise of a seed other than 0.
Bytes wiped(Bytes data, std::size_t count, unsigned seed);
/// Bytes that hold many 0xFF and marker codes.
Bytes markerNoise(std::size_t size, unsigned seed);

}  // namespace tallowmark::testing
