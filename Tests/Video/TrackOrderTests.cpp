// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <string>

#include "MediaKit/Video/TrackOrder.h"

namespace tallowmark {
namespace {

using Anchor = TrackOrder::Anchor;

TrackOrder::Order orderOf(const std::string& digits) {
  TrackOrder::Order order;
  for (const char digit : digits) order.push_back(static_cast<std::uint8_t>(digit - '0'));
  return order;
}

// What no place tells is left: one track must not speak in another.
TEST(TrackOrder, tellsOnlyWhatEveryOrderOfTheReferenceAgreesOn) {
  struct Case {
    std::size_t tracks;
    std::vector<std::string> seen;
    Anchor anchor;
    std::size_t blocks;
    std::string told;
  };
  const std::vector<Case> cases{
      {1, {}, Anchor::neither, 3, "000"},
      // One of each in turn, of any number.
      {2, {"01", "0101"}, Anchor::start, 5, "01010"},
      {2, {"01", "0101"}, Anchor::end, 3, "101"},
      {2, {"01", "0101"}, Anchor::both, 6, "010101"},
      {2, {"01", "0101"}, Anchor::both, 3, "???"},
      {2, {"01", "0101"}, Anchor::neither, 2, "??"},
      // All of one first: the share must be known.
      {2, {"01", "0011"}, Anchor::start, 2, "0?"},
      {2, {"01", "0011"}, Anchor::end, 2, "?1"},
      {2, {"01", "0011"}, Anchor::end, 3, "011"},
      {2, {"01", "0011"}, Anchor::start, 5, "?????"},
      {2, {"000111"}, Anchor::start, 4, "0001"},
      {4, {"00112233"}, Anchor::end, 5, "12233"},
      // Either would explain a row as long as none of the reference's.
      {2, {"01"}, Anchor::both, 4, "????"},
      // Two that change places leave the third.
      {3, {"012", "021"}, Anchor::both, 3, "0??"},
      {2, {"001", "011"}, Anchor::both, 3, "???"},
      {2, {"001", "0011"}, Anchor::both, 3, "001"},
  };
  for (const Case& c : cases) {
    TrackOrder order(c.tracks);
    for (const std::string& seen : c.seen) order.learn(orderOf(seen));
    std::string told;
    for (const auto& track : order.tell(c.blocks, c.anchor)) {
      told += track ? static_cast<char>('0' + *track) : '?';
    }
    EXPECT_EQ(told, c.told) << (c.seen.empty() ? "" : c.seen.back()) << ", " << c.blocks
                            << " blocks, anchor " << static_cast<int>(c.anchor);
  }
}

}  // namespace
}  // namespace tallowmark
