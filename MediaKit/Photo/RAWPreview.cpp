// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/RAWPreview.h"

#include <algorithm>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/JPEGRepair.h"

namespace tallowmark::RAWPreview {
namespace {

constexpr int proofPixels = 256;

// A real file opens at its first or second picture; a file made of pictures that do not decode must
// not keep the machine busy for ever.
constexpr std::size_t mostTried = 64;
constexpr std::size_t mostBytesTried = 4;  // times the file

bool decodes(ByteView image, const ImageService& images) {
  return images.imageCount(image) > 0 &&
         images.thumbnail(image, proofPixels, Turn::asStored).has_value();
}

// The candidate as a file of its own; nothing when it is incomplete and lacks tables.
std::optional<Found> cutOut(ByteView raw, const Candidate& candidate) {
  const ByteView range = raw.subspan(candidate.start, candidate.end - candidate.start);
  const auto header = JPEGRepair::parseHeader(range);
  const bool usable = header && header->isComplete();
  if (candidate.incomplete && !usable) {
    return std::nullopt;
  }
  Found found{.jpeg = {}, .width = candidate.width, .height = candidate.height};
  if (usable) {
    const auto picture =
        JPEGRepair::walkPicture(range, {.sos = header->sos, .scanStart = header->scanStart});
    if (!picture.ended) {  // sensor data may follow where it breaks off
      found.jpeg = JPEGRepair::closeEnd(range.first(picture.end));
      found.incomplete = true;
      return found;
    }
  }
  found.jpeg.assign(range.begin(), range.end());
  found.incomplete = JPEGRepair::checkPicture(range).lacksParts();
  return found;
}

}  // namespace

const std::set<std::string>& extensions() {
  static const std::set<std::string> known{"cr2", "cr3", "crw", "nef", "nrw", "arw", "srf",
                                           "sr2", "dng", "raf", "orf", "rw2", "pef", "srw",
                                           "x3f", "3fr", "iiq", "erf", "kdc", "mrw", "raw"};
  return known;
}

Diagnosis diagnose(ByteView raw, const ImageService& images) {
  return decodes(raw, images) ? Diagnosis::opens : Diagnosis::damaged;
}

Found extract(ByteView raw, const ImageService& images) {
  std::vector<Candidate> candidates = embeddedJPEGs(raw);
  const auto area = [](const Candidate& candidate) {
    return std::int64_t{candidate.width} * candidate.height;
  };
  std::stable_sort(candidates.begin(), candidates.end(),
                   [&](const Candidate& a, const Candidate& b) { return area(a) > area(b); });
  candidates.resize(std::min(candidates.size(), mostTried));
  std::size_t bytesTried = 0;
  for (const Candidate& candidate : candidates) {
    bytesTried += candidate.end - candidate.start;
    if (bytesTried / mostBytesTried > raw.size()) {
      break;
    }
    auto found = cutOut(raw, candidate);
    if (!found || !decodes(found->jpeg, images)) {
      continue;
    }
    if (auto detailed = copyingDetails(raw, found->jpeg, images)) {
      found->jpeg = std::move(*detailed);
      found->keptDetails = true;
    }
    return std::move(*found);
  }
  throw MediaError::unsupported(
      "No usable picture was found inside this RAW file. The preview the camera stores in it is "
      "missing or damaged too.");
}

std::optional<std::vector<std::uint8_t>> copyingDetails(ByteView raw, ByteView jpeg,
                                                        const ImageService& images) {
  const ImageProperties properties = images.properties(raw);
  return properties.empty() ? std::nullopt : images.withProperties(jpeg, properties);
}

}  // namespace tallowmark::RAWPreview
