// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "MediaKit/Photo/ImageService.h"
#include "MediaKit/Photo/MarkerSearch.h"

/// RAW photos carry a JPEG that the camera rendered itself. It is often intact when the RAW file no
/// longer opens.
namespace tallowmark::RAWPreview {

/// File name extensions of RAW files, in lower case.
const std::set<std::string>& extensions();

enum class Diagnosis { opens, damaged };

/// One JPEG inside a RAW file.
struct Candidate {
  /// From its SOI to just past its EOI, or to the end of the data when it has none.
  std::size_t start = 0;
  std::size_t end = 0;
  /// From its frame header; never 0.
  int width = 0;
  int height = 0;
  /// There is no EOI behind its scan.
  bool incomplete = false;

  friend bool operator==(const Candidate&, const Candidate&) = default;
};

/// The picture that was rescued.
struct Found {
  std::vector<std::uint8_t> jpeg;
  int width = 0;
  int height = 0;
  /// The picture ends early, its bottom shows gray.
  bool incomplete = false;
  /// The RAW file's details (date, settings, place, orientation) are in the JPEG.
  bool keptDetails = false;
};

/// Whether a decoder makes a picture of the RAW file's own data.
Diagnosis diagnose(ByteView raw, const ImageService& images);

/// The largest JPEG in the file that decodes, with the RAW file's details. Throws
/// MediaError::unsupported with the user's sentence when there is none.
Found extract(ByteView raw, const ImageService& images);

/// Every JPEG in the data that a decoder for baseline, extended or progressive pictures might read,
/// in file order. Time grows with the data alone.
std::vector<Candidate> embeddedJPEGs(ByteView data);

/// The JPEG whose SOI stands at `start`; nothing when there is none such.
std::optional<Candidate> parse(ByteView data, std::size_t start);

/// The JPEG with the RAW file's details set over its own; nothing when there are none or a step
/// fails.
std::optional<std::vector<std::uint8_t>> copyingDetails(ByteView raw, ByteView jpeg,
                                                        const ImageService& images);

}  // namespace tallowmark::RAWPreview
