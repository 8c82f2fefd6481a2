// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "MediaKit/Bitstream/BitReader.h"

namespace tallowmark {

/// Seconds of the clock tick that an HEVC sequence parameter set states in its usability
/// information (ITU-T H.265 §E.2.1); nothing when it states none. `bits`: right behind
/// log2_diff_max_min_luma_coding_block_size (§7.3.2.2.1). `orderBits`: of a slice's
/// slice_pic_order_cnt_lsb.
std::optional<double> readClockTickHEVC(BitReader& bits, unsigned orderBits);

}  // namespace tallowmark
