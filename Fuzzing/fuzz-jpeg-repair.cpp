// SPDX-License-Identifier: GPL-3.0-or-later
// Any photo, repaired with any reference: the first byte says where one ends and the other begins.
#include <algorithm>
#include <cstdlib>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Photo/RebuiltPicture.h"

namespace {

using namespace tallowmark;
using namespace tallowmark::JPEGRepair;

void require(bool holds) {
  if (!holds) std::abort();
}

void checkRepair(ByteView photo, std::optional<ByteView> reference) {
  try {
    const Repaired repaired = repair(photo, reference);
    require(parseHeader(repaired.bytes).has_value());
    require(repaired.result.fix != Result::Fix::none ||
            std::equal(photo.begin(), photo.end(), repaired.bytes.begin(), repaired.bytes.end()));
    require(reference || repaired.result.borrowed.empty());
    (void)borrowedPartsFit(repaired);
  } catch (const MediaError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const ByteView both(data + 1, size - 1);
  const std::size_t border = both.size() * data[0] / 255;
  checkRepair(both.first(border), both.subspan(border));
  checkRepair(both, std::nullopt);
  return 0;
}
