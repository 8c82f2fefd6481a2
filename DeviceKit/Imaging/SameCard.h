// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "DeviceKit/BlockDevice.h"
#include "DeviceKit/Imaging/ImageFile.h"

namespace tallowmark {

/// Whether a card can be the one that an image was copied from: samples of what the image holds are
/// read again and compared. Device names and sizes tell nothing, cards are sold by the million.
/// Zeros on both sides prove nothing either way, and what cannot be read any more does not count.
bool canBeSameCard(const BlockDevice& card, const ImageFile& image);

}  // namespace tallowmark
