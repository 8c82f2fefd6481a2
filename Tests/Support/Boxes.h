// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string_view>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/FourCC.h"
#include "Tests/Support/Files.h"

/// Builds boxes of which a test states only the bytes that it cares about.
namespace tallowmark::testing {

Bytes u16(std::uint16_t value);
Bytes u32(std::uint32_t value);
Bytes u64(std::uint64_t value);
Bytes zeros(std::size_t count);
Bytes text(std::string_view letters);
Bytes joined(std::initializer_list<Bytes> pieces);

/// A box with the size its contents have.
Bytes makeBox(FourCC type, std::initializer_list<Bytes> contents);
/// As makeBox, with version and flags ahead.
Bytes makeFull(FourCC type, std::uint8_t version, std::initializer_list<Bytes> contents);
/// A full box of 32-bit numbers: a count that need not be true, then the entries' fields.
Bytes makeTable(FourCC type, std::uint32_t count, std::initializer_list<std::uint32_t> fields);

/// A track around the children of its stbl, with a 640×480 picture, timescale 1000.
Bytes makeTrack(FourCC handler, std::initializer_list<Bytes> tables,
                std::initializer_list<Bytes> moreBoxes = {});
/// An stsd with one entry of that type and no fields.
Bytes makeSampleDescription(FourCC codec);

/// The file's bytes without its top-level index: what a camera leaves that lost power. The boxes
/// behind it move up.
Bytes withoutIndex(const Bytes& movie);

}  // namespace tallowmark::testing
