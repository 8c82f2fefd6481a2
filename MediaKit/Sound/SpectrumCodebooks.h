// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>

#include "MediaKit/Sound/Codebook.h"

namespace tallowmark {

/// The Huffman codebooks of AAC (ISO/IEC 14496-3 Annex 4.A), as far as the length of a block hangs
/// on them.
struct SpectrumCodebooks {
  /// Books 1 to 11 at their numbers. A codeword's length counts the signs that follow it; its value
  /// is how many escape sequences follow these.
  std::array<Codebook, 12> spectrum;
  /// The value is the difference to the scalefactor before.
  Codebook scalefactors;

  static const SpectrumCodebooks& standard();
};

}  // namespace tallowmark
