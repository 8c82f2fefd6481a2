// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdlib>

#include "DeviceKit/Imaging/ReadMap.h"

// A map of a card, by a stranger: what it says must lie on the card and add up, and be read the
// same when it is written again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tallowmark::ReadMap;
  const auto map = ReadMap::parse({reinterpret_cast<const char*>(data), size});
  if (!map) {
    return 0;
  }
  std::uint64_t total = 0;
  for (const auto state : {ReadMap::State::untried, ReadMap::State::read, ReadMap::State::bad}) {
    std::uint64_t bytes = 0;
    for (const auto& [offset, length] : map->stretches(state)) {
      if (offset > map->size() || length > map->size() - offset) std::abort();
      bytes += length;
    }
    if (bytes != map->bytes(state)) std::abort();
    total += bytes;
  }
  const auto again = ReadMap::parse(map->text());
  if (total != map->size() || !again || again->text() != map->text()) std::abort();
  return 0;
}
