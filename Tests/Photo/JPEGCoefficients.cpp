// SPDX-License-Identifier: GPL-3.0-or-later
#include "JPEGCoefficients.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>  // jpeglib.h names FILE without including it

#include <jpeglib.h>

namespace tallowmark {
namespace {

struct ErrorState {
  jpeg_error_mgr manager{};
  std::jmp_buf onError{};
};

[[noreturn]] void jumpOut(j_common_ptr info) {
  std::longjmp(static_cast<ErrorState*>(info->client_data)->onError, 1);
}

void stayQuiet(j_common_ptr) {}

Coefficients::Plane emptyPlane(const jpeg_component_info& component) {
  Coefficients::Plane plane;
  plane.blocksAcross = component.width_in_blocks;
  plane.values.resize(std::size_t{component.width_in_blocks} * component.height_in_blocks * 64);
  if (component.quant_table != nullptr) {
    plane.steps.assign(component.quant_table->quantval, component.quant_table->quantval + 64);
  }
  return plane;
}

void copyPlane(jpeg_decompress_struct& info, jvirt_barray_ptr blocks,
               const jpeg_component_info& component, Coefficients::Plane& plane) {
  std::int16_t* to = plane.values.data();
  for (JDIMENSION y = 0; y < component.height_in_blocks; ++y) {
    JBLOCKARRAY row =
        info.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&info), blocks, y, 1, FALSE);
    to = std::copy_n(row[0][0], std::size_t{component.width_in_blocks} * 64, to);
  }
}

bool read(std::span<const std::uint8_t> jpeg, ErrorState& errors, jpeg_decompress_struct& info,
          Coefficients& result) {
  if (setjmp(errors.onError) != 0) {
    return false;
  }
  jpeg_create_decompress(&info);
  info.client_data = &errors;
  jpeg_mem_src(&info, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
  jpeg_read_header(&info, TRUE);
  jvirt_barray_ptr* const blocks = jpeg_read_coefficients(&info);
  result.width = info.image_width;
  result.height = info.image_height;
  for (int k = 0; k < info.num_components; ++k) {
    result.planes.push_back(emptyPlane(info.comp_info[k]));
    copyPlane(info, blocks[k], info.comp_info[k], result.planes.back());
  }
  return true;
}

std::size_t equalRows(const Coefficients::Plane& a, const Coefficients::Plane& b) {
  const std::size_t row = a.blocksAcross * 64;
  std::size_t rows = 0;
  while ((rows + 1) * row <= std::min(a.values.size(), b.values.size()) &&
         std::equal(&a.values[rows * row], &a.values[rows * row] + row, &b.values[rows * row])) {
    ++rows;
  }
  return rows;
}

}  // namespace

Coefficients readCoefficients(std::span<const std::uint8_t> jpeg) {
  ErrorState errors;
  jpeg_decompress_struct info{};
  info.err = jpeg_std_error(&errors.manager);
  info.client_data = &errors;
  errors.manager.error_exit = jumpOut;
  errors.manager.output_message = stayQuiet;
  Coefficients result;
  const bool done = read(jpeg, errors, info, result);
  jpeg_destroy_decompress(&info);
  return done ? result : Coefficients{};
}

double equalTopShare(const Coefficients& a, const Coefficients& b) {
  if (a.planes.empty() || a.planes.size() != b.planes.size()) {
    return 0;
  }
  double share = 1;
  for (std::size_t k = 0; k < a.planes.size(); ++k) {
    if (a.planes[k].blocksAcross != b.planes[k].blocksAcross) {
      return 0;
    }
    const std::size_t row = a.planes[k].blocksAcross * 64;
    const std::size_t rows = b.planes[k].values.size() / std::max<std::size_t>(row, 1);
    share = std::min(share, static_cast<double>(equalRows(a.planes[k], b.planes[k])) /
                                static_cast<double>(rows));
  }
  return share;
}

}  // namespace tallowmark
