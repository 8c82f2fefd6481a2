// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string_view>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// Tells `visitor` of each place in [from, to) where one of the `sought`, of as many letters each,
/// stands whole, until it answers false: in order for one name, those of several as they are come
/// upon. Passes the source's errors through.
void visitNames(std::initializer_list<std::string_view> sought, const ByteSource& source,
                std::uint64_t from, std::uint64_t to,
                const std::function<bool(std::uint64_t place)>& visitor);

}  // namespace tallowmark
