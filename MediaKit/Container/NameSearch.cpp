// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/NameSearch.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

namespace tallowmark {

void visitNames(std::string_view name, const ByteSource& source, std::uint64_t from,
                std::uint64_t to, const std::function<bool(std::uint64_t place)>& visitor) {
  // From small pieces, for what is near, to some that stay in the processor's cache.
  constexpr std::size_t least = std::size_t{1} << 12U;
  constexpr std::size_t most = std::size_t{1} << 18U;
  std::vector<std::uint8_t> buffer;
  for (std::uint64_t at = from; at < to && to - at >= name.size();
       at += buffer.size() - name.size() + 1) {
    buffer.resize(std::clamp(buffer.size() * 4, least, most));
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), to - at));
    const std::size_t got = source.readInto(at, std::span(buffer).first(wanted));
    for (std::size_t done = 0;;) {
      const void* hit = ::memmem(buffer.data() + done, got - done, name.data(), name.size());
      if (hit == nullptr) {
        break;
      }
      const auto place =
          static_cast<std::size_t>(static_cast<const std::uint8_t*>(hit) - buffer.data());
      if (!visitor(at + place)) {
        return;
      }
      done = place + 1;
    }
  }
}

}  // namespace tallowmark
