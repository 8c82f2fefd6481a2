// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MediaKit/Photo/JPEGScan.h"
#include "MediaKit/Photo/JPEGStructure.h"
#include "MediaKit/Photo/PictureCheck.h"

namespace tallowmark::JPEGRepair {

enum class Diagnosis {
  /// The header is whole and the picture's data ends as it should.
  healthy,
  /// The header is whole, the data ends early or breaks off at what is no part of the picture.
  truncated,
  /// There is picture data behind something that is no header.
  damagedHeader,
  /// Not even picture data.
  notJPEG,
};

/// What a repair did.
struct Result {
  enum class Fix { none, closedEnd, rebuiltHeader };

  Fix fix = Fix::none;
  /// 0 when no frame header tells.
  int width = 0;
  int height = 0;
  /// What came from the reference, of these in this order: "image size and layout", "quantization
  /// tables", "Huffman tables", "restart interval".
  std::vector<std::string> borrowed;
  /// The picture data ends early: the bottom shows gray.
  bool incomplete = false;

  friend bool operator==(const Result&, const Result&) = default;
};

/// A photo that should open.
struct Repaired {
  std::vector<std::uint8_t> bytes;
  Result result;
  /// The picture data had no end and was given one.
  bool endClosed = false;
  /// How the rebuilt header and the data go together; absent when no header was rebuilt.
  std::optional<PictureCheck> check;
};

/// Never throws, whatever the bytes.
Diagnosis diagnose(ByteView data);

/// Whether only a good photo from the same camera can repair this one: its header is damaged and
/// something that the picture data needs did not survive.
bool needsReference(ByteView data);

/// Makes a photo that opens: unchanged when it is fine, with its end closed, or with a header from
/// what survived of its own and, where that does not do, from `reference`, a good photo from the
/// same camera. Details such as the date are not kept in a rebuilt header. Throws
/// MediaError::unsupported with the user's sentence.
Repaired repair(ByteView data, std::optional<ByteView> reference);

/// The data up to its last byte that is not zero, without half a marker, and an EOI. A decoder
/// paints what is missing gray.
std::vector<std::uint8_t> closeEnd(ByteView data);

}  // namespace tallowmark::JPEGRepair
