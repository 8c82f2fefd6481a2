// SPDX-License-Identifier: GPL-3.0-or-later
#include "Photos.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>  // jpeglib.h names FILE without including it
#include <cstdlib>
#include <random>
#include <stdexcept>

#include <jpeglib.h>

namespace tallowmark::testing {
namespace {

[[noreturn]] void refuse(j_common_ptr) {
  throw std::runtime_error("libjpeg refused the recipe");
}

// Soft shapes with grain: no two rows alike, nothing flat.
std::uint8_t sampleAt(const PhotoRecipe& recipe, int x, int y, int channel) {
  const double scale = 9.0 + recipe.variant;
  const double wave = std::sin(x / scale + channel) + std::cos(y / (scale + 4) - x / 31.0);
  const int grain = (x * 7919 + y * 104729 + static_cast<int>(recipe.variant) * 31) % 23;
  return static_cast<std::uint8_t>(std::clamp(128 + 50 * wave + grain, 0.0, 255.0));
}

void applyRecipe(const PhotoRecipe& recipe, jpeg_compress_struct& info,
                 std::array<jpeg_scan_info, 3>& scans) {
  info.image_width = static_cast<JDIMENSION>(recipe.width);
  info.image_height = static_cast<JDIMENSION>(recipe.height);
  info.input_components = recipe.color ? 3 : 1;
  info.in_color_space = recipe.color ? JCS_RGB : JCS_GRAYSCALE;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, recipe.quality, TRUE);
  info.comp_info[0].h_samp_factor = recipe.horizontal;
  info.comp_info[0].v_samp_factor = recipe.vertical;
  info.restart_interval = recipe.restartInterval;
  info.optimize_coding = recipe.optimizedTables ? TRUE : FALSE;
  info.arith_code = recipe.arithmetic ? TRUE : FALSE;
  if (recipe.progressive) jpeg_simple_progression(&info);
  if (recipe.separateScans) {
    for (int k = 0; k < 3; ++k) {
      scans[static_cast<std::size_t>(k)] = {
          .comps_in_scan = 1, .component_index = {k}, .Ss = 0, .Se = 63, .Ah = 0, .Al = 0};
    }
    info.scan_info = scans.data();
    info.num_scans = 3;
  }
}

}  // namespace

Bytes makePhoto(const PhotoRecipe& recipe) {
  jpeg_error_mgr errors{};
  jpeg_compress_struct info{};
  info.err = jpeg_std_error(&errors);
  errors.error_exit = refuse;
  jpeg_create_compress(&info);
  unsigned char* output = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &output, &size);
  std::array<jpeg_scan_info, 3> scans{};
  applyRecipe(recipe, info, scans);
  jpeg_start_compress(&info, TRUE);
  Bytes row(static_cast<std::size_t>(recipe.width * info.input_components));
  for (int y = 0; y < recipe.height; ++y) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const int index = static_cast<int>(i);
      row[i] = sampleAt(recipe, index / info.input_components, y, index % info.input_components);
    }
    JSAMPROW rows = row.data();
    jpeg_write_scanlines(&info, &rows, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  Bytes bytes(output, output + size);
  std::free(output);
  return bytes;
}

Bytes segment(std::uint8_t marker, const Bytes& payload) {
  return joined({{0xFF, marker}, u16(static_cast<std::uint16_t>(payload.size() + 2)), payload});
}

Bytes quantTable(std::uint8_t id, std::uint8_t step) {
  return segment(0xDB, joined({{id}, Bytes(64, step)}));
}

Bytes huffmanTable(std::uint8_t id) {
  return segment(0xC4, joined({{id, 1}, zeros(15), {0}}));
}

Bytes grayFrame(int width, int height, std::uint8_t quantization, std::uint8_t marker) {
  return segment(marker, joined({{8},
                                 u16(static_cast<std::uint16_t>(height)),
                                 u16(static_cast<std::uint16_t>(width)),
                                 {1, 1, 0x11, quantization}}));
}

Bytes grayScan() {
  return segment(0xDA, {1, 1, 0x00, 0, 63, 0});
}

Bytes grayHeader(int width, int height) {
  return joined({soi, quantTable(0), grayFrame(width, height), huffmanTable(0x00),
                 huffmanTable(0x10), grayScan()});
}

Bytes wiped(Bytes data, std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  for (std::size_t i = 0; i < std::min(count, data.size()); ++i) {
    data[i] = seed == 0 ? std::uint8_t{0} : static_cast<std::uint8_t>(random());
  }
  return data;
}

Bytes markerNoise(std::size_t size, unsigned seed) {
  constexpr std::array<std::uint8_t, 16> likely{0xFF, 0xFF, 0xFF, 0xDA, 0xDA, 0xD8, 0xD9, 0x00,
                                                0x00, 0x08, 0x01, 0xD3, 0xC0, 0xE0, 0x04, 0x55};
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes) byte = likely[random() % likely.size()];
  return bytes;
}

}  // namespace tallowmark::testing
