// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/NameSearch.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

#include "MediaKit/Container/ByteLanes.h"

namespace tallowmark {

namespace {

constexpr std::size_t stride = 4 * ByteLanes::width;

// One question for four steps: its first and its last letter hardly ever stand so far apart.
bool mayBeInStride(const std::uint8_t* data, std::string_view name) {
  ByteLanes::Mask any{};
  for (std::size_t at = 0; at < stride; at += ByteLanes::width) {
    any |= ByteLanes::equal(data + at, static_cast<std::uint8_t>(name.front())) &
           ByteLanes::equal(data + at + name.size() - 1, static_cast<std::uint8_t>(name.back()));
  }
  return ByteLanes::any(any);
}

// Where the name first stands from `from` on; the end of `bytes` when it does not.
std::size_t findName(std::span<const std::uint8_t> bytes, std::size_t from, std::string_view name) {
  std::size_t at = from;
  while (at + name.size() <= bytes.size()) {
    const bool isWhole = at + stride + name.size() <= bytes.size();
    const std::size_t end = isWhole ? at + stride : bytes.size() - name.size() + 1;
    const bool mayBe = !isWhole || mayBeInStride(bytes.data() + at, name);
    for (; at < end && mayBe; ++at) {
      if (std::memcmp(bytes.data() + at, name.data(), name.size()) == 0) {
        return at;
      }
    }
    at = end;
  }
  return bytes.size();
}

}  // namespace

void visitNames(std::initializer_list<std::string_view> sought, const ByteSource& source,
                std::uint64_t from, std::uint64_t to,
                const std::function<bool(std::uint64_t place)>& visitor) {
  // From small pieces, for what is near, to some that stay in the processor's cache.
  constexpr std::size_t least = std::size_t{1} << 12U;
  constexpr std::size_t most = std::size_t{1} << 18U;
  const std::size_t length = sought.begin()->size();
  std::vector<std::uint8_t> buffer;
  for (std::uint64_t at = from; at < to && to - at >= length; at += buffer.size() - length + 1) {
    buffer.resize(std::clamp(buffer.size() * 4, least, most));
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), to - at));
    const std::size_t got = source.readInto(at, std::span(buffer).first(wanted));
    const auto bytes = std::span<const std::uint8_t>(buffer).first(got);
    for (const std::string_view name : sought) {
      for (std::size_t place = findName(bytes, 0, name); place < got;
           place = findName(bytes, place + 1, name)) {
        if (!visitor(at + place)) {
          return;
        }
      }
    }
  }
}

}  // namespace tallowmark
