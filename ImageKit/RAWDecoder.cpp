// SPDX-License-Identifier: GPL-3.0-or-later
#include "ImageKit/RAWDecoder.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <vector>

#include <libraw/libraw.h>

#include "ImageKit/PixelReducer.h"

namespace tallowmark {
namespace {

constexpr unsigned mostMegabytes = 1024;

// Sensor data is seldom packed below one bit a pixel; a header that claims far more is not true.
constexpr std::uint64_t mostPixelsPerByte = 64;

// The type of the position that comes third has changed between versions of the library.
constexpr auto noteDataError = [](void* flag, const char*, auto) {
  *static_cast<bool*>(flag) = true;
};

/// A RAW file open in LibRaw; the bytes outlive it.
class OpenRAW {
 public:
  explicit OpenRAW(ByteView raw) {
    auto& parameters = library_->imgdata.params;
    parameters.half_size = 1;
    parameters.use_camera_wb = 1;
    parameters.user_flip = 0;
    parameters.output_bps = 8;
    parameters.max_raw_memory_mb = mostMegabytes;
    library_->set_dataerror_handler(noteDataError, &complained_);
    // The library reads only, its type aside.
    auto* bytes = const_cast<std::uint8_t*>(raw.data());
    open_ = library_->open_buffer(bytes, raw.size()) == LIBRAW_SUCCESS && fitsMemory(raw.size());
  }

  bool isOpen() const { return open_; }
  bool complained() const { return complained_; }

  /// 8-bit RGB at half the sensor's size; null when it cannot be decoded. Owned by the caller.
  std::unique_ptr<libraw_processed_image_t, void (*)(libraw_processed_image_t*)> decode() {
    libraw_processed_image_t* image = nullptr;
    if (open_ && library_->unpack() == LIBRAW_SUCCESS &&
        library_->dcraw_process() == LIBRAW_SUCCESS) {
      int error = LIBRAW_SUCCESS;
      image = library_->dcraw_make_mem_image(&error);
    }
    return {image, LibRaw::dcraw_clear_mem};
  }

 private:
  bool fitsMemory(std::size_t fileSize) const {
    const auto& sizes = library_->imgdata.sizes;
    const std::uint64_t pixels = std::uint64_t{sizes.raw_width} * sizes.raw_height;
    return pixels > 0 && pixels / mostPixelsPerByte <= fileSize;
  }

  bool complained_ = false;
  bool open_ = false;
  std::unique_ptr<LibRaw> library_ = std::make_unique<LibRaw>();
};

}  // namespace

bool rawHeaderOpens(ByteView raw) {
  try {
    return OpenRAW(raw).isOpen();
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<Thumbnail> reducedRAW(ByteView raw, int maxPixels) {
  try {
    OpenRAW file(raw);
    const auto image = file.decode();
    if (!image || image->type != LIBRAW_IMAGE_BITMAP || image->bits != 8) {
      return std::nullopt;
    }
    const bool gray = image->colors == 1;
    const std::size_t across = std::size_t{image->width} * image->colors;
    if ((!gray && image->colors != 3) || across == 0 || image->height == 0 ||
        image->data_size / across < image->height) {
      return std::nullopt;
    }
    PixelReducer reducer(image->width, image->height, maxPixels);
    std::vector<std::uint8_t> rgb(std::size_t{image->width} * 3);
    for (std::size_t y = 0; y < image->height; ++y) {
      const std::uint8_t* const row = image->data + y * across;
      for (std::size_t i = 0; i < rgb.size(); ++i) {
        rgb[i] = row[gray ? i / 3 : i];
      }
      reducer.addRow(rgb);
    }
    return Thumbnail{.pixels = reducer.take(), .complained = file.complained()};
  } catch (const std::exception&) {  // memory the file asked for, mostly
    return std::nullopt;
  }
}

}  // namespace tallowmark
