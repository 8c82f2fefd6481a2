// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tests/Support/Boxes.h"

#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/BoxWriter.h"

namespace tallowmark::testing {

namespace {
template <typename Number>
Bytes bigEndianBytes(Number value) {
  Bytes bytes(sizeof(Number));
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(value >> (8 * (bytes.size() - 1 - i)));
  }
  return bytes;
}
}  // namespace

Bytes u16(std::uint16_t value) {
  return bigEndianBytes(value);
}
Bytes u32(std::uint32_t value) {
  return bigEndianBytes(value);
}
Bytes u64(std::uint64_t value) {
  return bigEndianBytes(value);
}
Bytes zeros(std::size_t count) {
  return Bytes(count);
}
Bytes text(std::string_view letters) {
  return {letters.begin(), letters.end()};
}

Bytes joined(std::initializer_list<Bytes> pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

Bytes makeBox(FourCC type, std::initializer_list<Bytes> contents) {
  const Bytes payload = joined(contents);
  return joined({u32(static_cast<std::uint32_t>(payload.size() + 8)), u32(type.value), payload});
}

Bytes makeFull(FourCC type, std::uint8_t version, std::initializer_list<Bytes> contents) {
  return makeBox(type, {u32(std::uint32_t{version} << 24U), joined(contents)});
}

Bytes makeTable(FourCC type, std::uint32_t count, std::initializer_list<std::uint32_t> fields) {
  Bytes entries;
  for (const std::uint32_t field : fields) entries = joined({entries, u32(field)});
  return makeFull(type, 0, {u32(count), entries});
}

Bytes makeTrack(FourCC handler, std::initializer_list<Bytes> tables,
                std::initializer_list<Bytes> moreBoxes) {
  return makeBox(
      "trak",
      {makeFull("tkhd", 0, {zeros(8), u32(1), zeros(60), u32(640U << 16U), u32(480U << 16U)}),
       joined(moreBoxes),
       makeBox("mdia", {makeFull("mdhd", 0, {zeros(8), u32(1000), zeros(4), u16(0x55C4), u16(0)}),
                        makeFull("hdlr", 0, {zeros(4), u32(handler.value), zeros(13)}),
                        makeBox("minf", {makeBox("stbl", tables)})})});
}

Bytes makeSampleDescription(FourCC codec) {
  return makeFull("stsd", 0, {u32(1), makeBox(codec, {zeros(8)})});
}

Bytes withoutIndex(const Bytes& movie) {
  const MemorySource source(movie);
  Bytes rest = movie;
  for (const Box& box : BoxReader(source).children(0, source.size())) {
    if (box.type == "moov") {
      const auto at = rest.begin() + static_cast<std::ptrdiff_t>(box.offset);
      rest.erase(at, at + static_cast<std::ptrdiff_t>(box.size));
      break;
    }
  }
  return rest;
}

}  // namespace tallowmark::testing
