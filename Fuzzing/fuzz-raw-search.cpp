// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes through the search for embedded pictures.
#include <cstdlib>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/RAWPreview.h"

namespace {

using namespace tallowmark;

void require(bool holds) {
  if (!holds) std::abort();
}

/// Takes every other picture for one that decodes.
class DoubtfulImages final : public ImageService {
 public:
  std::size_t imageCount(ByteView image) const override { return image.size() % 2; }
  std::optional<Thumbnail> thumbnail(ByteView, int, Turn) const override { return Thumbnail{}; }
  ImageProperties properties(ByteView) const override { return {}; }
  std::optional<std::vector<std::uint8_t>> withProperties(ByteView,
                                                          const ImageProperties&) const override {
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> encodeJPEG(const Pixels&, double) const override {
    return std::nullopt;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  std::size_t last = 0;
  for (const RAWPreview::Candidate& candidate : RAWPreview::embeddedJPEGs(bytes)) {
    require(candidate.start >= last && candidate.start < candidate.end && candidate.end <= size);
    require(candidate.width > 0 && candidate.height > 0);
    require(RAWPreview::parse(bytes, candidate.start) == candidate);
    last = candidate.start + 1;
  }
  try {
    const RAWPreview::Found found = RAWPreview::extract(bytes, DoubtfulImages());
    require(found.width > 0 && found.jpeg.size() <= size + 2);
  } catch (const MediaError&) {
  }
  return 0;
}
