// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// Tells `visitor` of each place in [from, to) where those letters stand whole, in order, until it
/// answers false. Passes the source's errors through.
void visitNames(std::string_view name, const ByteSource& source, std::uint64_t from,
                std::uint64_t to, const std::function<bool(std::uint64_t place)>& visitor);

}  // namespace tallowmark
