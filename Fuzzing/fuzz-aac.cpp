// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes as a block of any configuration. What walks must lie inside its bytes and walk the same
// without what stands behind it.
#include <cstdlib>

#include "MediaKit/Sound/BlockWalk.h"
#include "MediaKit/Sound/SilentBlock.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

// The input: a byte that chooses rate and block length, the block.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tallowmark;
  const std::span<const std::uint8_t> input(data, size);
  AACConfig::of(input);
  if (size == 0) {
    return 0;
  }
  const AACConfig config{data[0] % 13U, 0, data[0] < 128 ? 1024U : 960U};
  const BlockWalk walk(config);
  const auto bytes = input.subspan(1);
  const BlockWalk::Look look = walk.look(bytes);
  // Past the end nothing goes on for longer than one channel may.
  require(look.bits <= bytes.size() * 8 + (std::size_t{1} << 17U));
  if (look.block) {
    require(look.block->size <= bytes.size());
    require(walk.mayStartWith(bytes[0]));
    const auto alone = walk.at(bytes.first(look.block->size));
    require(alone && alone->size == look.block->size);
    BlockRules rules;
    rules.patterns = {look.block->pattern};
    require(BlockWalk(config, rules).at(bytes).has_value());
    const auto silence = silentBlock(look.block->pattern);
    require(silence.empty() || walk.at(silence)->pattern == look.block->pattern);
  }
  return 0;
}
