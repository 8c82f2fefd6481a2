// SPDX-License-Identifier: GPL-3.0-or-later
#include "ImageKit/JPEGDecoder.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>  // jpeglib.h names FILE without including it
#include <cstdlib>
#include <memory>

#include <jpeglib.h>

#include "ImageKit/PixelReducer.h"

namespace tallowmark {
namespace {

constexpr std::uint64_t mostCoefficientBytes = std::uint64_t{1} << 30U;
constexpr std::uint64_t mostPixelsDecoded = std::uint64_t{1} << 30U;

// What a picture of any few bytes may take, and how much more for every byte of it: even the start
// of a large photo of nothing but sky has more. The largest of today's sensors stay below the first
// bound for photos of one scan, so that not a row of these is given up.
constexpr std::uint64_t freeCoefficientBytes = std::uint64_t{96} << 20U;
constexpr std::uint64_t freePixels = std::uint64_t{160} << 20U;
constexpr std::uint64_t mostForAByte = 4096;
constexpr int mostScans = 256;

/// What the library reports, and where it goes on an error: libjpeg returns from none of its calls
/// then, but jumps.
struct ErrorState {
  jpeg_error_mgr manager{};
  std::jmp_buf onError{};
  bool complained = false;
};

[[noreturn]] void jumpOut(j_common_ptr info) {
  std::longjmp(static_cast<ErrorState*>(info->client_data)->onError, 1);
}

void noteComplaint(j_common_ptr info, int level) {
  if (level < 0) {
    static_cast<ErrorState*>(info->client_data)->complained = true;
  }
}

void stayQuiet(j_common_ptr) {}

template <typename Info>
void install(ErrorState& errors, Info& info) {
  info.err = jpeg_std_error(&errors.manager);
  info.client_data = &errors;
  errors.manager.error_exit = jumpOut;
  errors.manager.emit_message = noteComplaint;
  errors.manager.output_message = stayQuiet;
}

// A picture of thousands of empty scans would be gone through thousands of times.
void limitScans(j_common_ptr info) {
  const auto* const decompressor = reinterpret_cast<j_decompress_ptr>(info);
  if (decompressor->input_scan_number > mostScans) {
    jumpOut(info);
  }
}

/// A decompressor over bytes that outlive it.
class Decompressor {
 public:
  explicit Decompressor(ByteView jpeg) : jpeg_(jpeg) {
    install(errors_, info_);
    progress_.progress_monitor = limitScans;
  }
  ~Decompressor() { jpeg_destroy_decompress(&info_); }
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;
  Decompressor(Decompressor&&) = delete;
  Decompressor& operator=(Decompressor&&) = delete;

  /// Does `work`, which may hold nothing that needs destroying: an error leaves it by a jump.
  template <typename Work>
  bool attempt(Work work) {
    if (setjmp(errors_.onError) != 0) {
      return false;
    }
    work();
    return true;
  }

  bool readHeader() {
    return attempt([this] {
      jpeg_create_decompress(&info_);
      info_.client_data = &errors_;
      info_.progress = &progress_;
      jpeg_mem_src(&info_, jpeg_.data(), static_cast<unsigned long>(jpeg_.size()));
      jpeg_read_header(&info_, TRUE);
    });
  }

  jpeg_decompress_struct& info() { return info_; }
  bool complained() const { return errors_.complained; }

 private:
  ByteView jpeg_;
  ErrorState errors_;
  jpeg_progress_mgr progress_{};
  jpeg_decompress_struct info_{};
};

/// A compressor into memory of its own.
class Compressor {
 public:
  Compressor() { install(errors_, info_); }
  ~Compressor() {
    jpeg_destroy_compress(&info_);
    std::free(output_);  // NOLINT(*-no-malloc): libjpeg's
  }
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
  Compressor(Compressor&&) = delete;
  Compressor& operator=(Compressor&&) = delete;

  std::optional<std::vector<std::uint8_t>> encode(const Pixels& pixels, double quality) {
    if (!compress(pixels, static_cast<int>(quality * 100))) {
      return std::nullopt;
    }
    return std::vector<std::uint8_t>(output_, output_ + size_);
  }

 private:
  bool compress(const Pixels& pixels, int quality) {
    if (setjmp(errors_.onError) != 0) {
      return false;
    }
    jpeg_create_compress(&info_);
    info_.client_data = &errors_;
    jpeg_mem_dest(&info_, &output_, &size_);
    info_.image_width = static_cast<JDIMENSION>(pixels.width);
    info_.image_height = static_cast<JDIMENSION>(pixels.height);
    info_.input_components = 3;
    info_.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info_);
    jpeg_set_quality(&info_, quality, TRUE);
    jpeg_start_compress(&info_, TRUE);
    while (info_.next_scanline < info_.image_height) {
      const std::size_t at = std::size_t{info_.next_scanline} * info_.image_width * 3;
      auto* row =
          const_cast<std::uint8_t*>(&pixels.rgb[at]);  // read only, the library's type aside
      jpeg_write_scanlines(&info_, &row, 1);
    }
    jpeg_finish_compress(&info_);
    return true;
  }

  ErrorState errors_;
  jpeg_compress_struct info_{};
  unsigned char* output_ = nullptr;
  unsigned long size_ = 0;
};

// Pictures of several scans are held as coefficients, 128 bytes a block, until all are read.
bool fitsMemory(jpeg_decompress_struct& info, std::size_t fileSize) {
  const std::uint64_t more = fileSize * mostForAByte;
  const std::uint64_t pixels = std::uint64_t{info.image_width} * info.image_height;
  if (pixels == 0 || pixels > std::min(mostPixelsDecoded, freePixels + more)) {
    return false;
  }
  if (jpeg_has_multiple_scans(&info) == 0) {
    return true;
  }
  std::uint64_t samples = 0;
  for (int k = 0; k < info.num_components; ++k) {
    const jpeg_component_info& component = info.comp_info[k];
    samples += pixels * static_cast<std::uint64_t>(component.h_samp_factor) *
               static_cast<std::uint64_t>(component.v_samp_factor) /
               static_cast<std::uint64_t>(info.max_h_samp_factor * info.max_v_samp_factor);
  }
  return samples * 2 <= std::min(mostCoefficientBytes, freeCoefficientBytes + more);
}

// The smallest number of eighths that keeps the long side at `maxPixels` or more.
unsigned eighthsFor(const jpeg_decompress_struct& info, int maxPixels) {
  const std::uint64_t longSide = std::max(info.image_width, info.image_height);
  unsigned eighths = 1;
  while (eighths < 8 && longSide * eighths < 8 * static_cast<std::uint64_t>(maxPixels)) {
    ++eighths;
  }
  return eighths;
}

// Photos for print store how much ink to leave out (Adobe technical note 5116).
void inkToLight(const std::uint8_t* cmyk, std::size_t pixels, std::uint8_t* rgb) {
  for (std::size_t i = 0; i < pixels; ++i) {
    for (std::size_t c = 0; c < 3; ++c) {
      rgb[3 * i + c] = static_cast<std::uint8_t>(cmyk[4 * i + c] * cmyk[4 * i + 3] / 255);
    }
  }
}

}  // namespace

bool jpegHeaderOpens(ByteView jpeg) {
  Decompressor decompressor(jpeg);
  return decompressor.readHeader() && decompressor.attempt([&decompressor] {
    jpeg_calc_output_dimensions(&decompressor.info());
  });
}

std::optional<Thumbnail> reducedJPEG(ByteView jpeg, int maxPixels) {
  Decompressor decompressor(jpeg);
  jpeg_decompress_struct& info = decompressor.info();
  if (!decompressor.readHeader() || !fitsMemory(info, jpeg.size())) {
    return std::nullopt;
  }
  const bool inks = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
  const bool started = decompressor.attempt([&] {
    info.scale_num = eighthsFor(info, maxPixels);
    info.scale_denom = 8;
    info.out_color_space = inks ? JCS_CMYK : JCS_RGB;
    info.dct_method = JDCT_FASTEST;
    info.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&info);
  });
  if (!started) {
    return std::nullopt;
  }
  PixelReducer reducer(static_cast<int>(info.output_width), static_cast<int>(info.output_height),
                       maxPixels);
  const std::size_t across = info.output_width;
  std::vector<std::uint8_t> row(across * static_cast<std::size_t>(info.output_components));
  std::vector<std::uint8_t> rgb(across * 3);
  const bool decoded = decompressor.attempt([&] {
    JSAMPROW rows = row.data();
    while (info.output_scanline < info.output_height) {
      jpeg_read_scanlines(&info, &rows, 1);
      if (inks) {
        inkToLight(row.data(), across, rgb.data());
      }
      reducer.addRow(inks ? rgb : row);
    }
    jpeg_finish_decompress(&info);
  });
  if (!decoded) {
    return std::nullopt;
  }
  return Thumbnail{.pixels = reducer.take(), .complained = decompressor.complained()};
}

std::optional<std::vector<std::uint8_t>> encodedJPEG(const Pixels& pixels, double quality) {
  const auto across = static_cast<std::size_t>(std::max(pixels.width, 0)) * 3;
  const auto down = static_cast<std::size_t>(std::max(pixels.height, 0));
  if (across == 0 || down == 0 || pixels.rgb.size() / across < down) {
    return std::nullopt;
  }
  return Compressor().encode(pixels, std::clamp(quality, 0.01, 1.0));
}

}  // namespace tallowmark
