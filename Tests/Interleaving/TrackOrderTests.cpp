// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MediaKit/Interleaving/TrackOrder.h"

namespace tallowmark {
namespace {

using Anchor = TrackOrder::Anchor;

TrackOrder::Order orderOf(const std::string& digits) {
  TrackOrder::Order order;
  for (const char digit : digits) order.push_back(static_cast<std::uint8_t>(digit - '0'));
  return order;
}

const TrackOrder::Row torn{1, Anchor::neither, false};

std::string lettersOf(const TrackOrder::Told& told) {
  std::string letters;
  for (const auto& track : told.tracks) {
    letters += track ? static_cast<char>('0' + *track) : '?';
  }
  return letters;
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
      {2, {"001", "1", "011"}, Anchor::both, 3, "???"},
      {2, {"001", "0011"}, Anchor::both, 3, "001"},
  };
  for (const Case& c : cases) {
    TrackOrder order(std::vector<std::uint8_t>(c.tracks, 0), 8);
    for (const std::string& seen : c.seen) order.learn(orderOf(seen));
    std::string told;
    const std::vector<TrackOrder::Row> rows{{c.blocks, c.anchor}, torn};
    order.tell(rows, [&](const auto& row) { told += lettersOf(row); });
    EXPECT_EQ(told, c.told + (c.tracks == 1 ? "0" : "?"))
        << (c.seen.empty() ? "" : c.seen.back()) << ", " << c.blocks << " blocks, anchor "
        << static_cast<int>(c.anchor);
  }
}

// Tracks that begin at different moments take turns from one gap to the next.
TEST(TrackOrder, followsFromGapToGap) {
  using Row = TrackOrder::Row;
  const auto both = [](std::size_t blocks) { return Row{blocks, Anchor::both}; };
  const auto behindLoss = [](std::size_t blocks) { return Row{blocks, Anchor::both, false}; };
  const std::vector<std::string> inTurn{"01", "010", "101", "0101", "010", "10"};
  const std::vector<std::string> endsEarly{"01", "0101", "01", "010", "0", "00", "0", "00", "0"};
  struct Case {
    std::vector<std::string> seen;
    std::vector<Row> rows;
    std::string told;
  };
  const std::vector<Case> cases{
      {inTurn,
       {both(2), both(3), both(3), both(2), both(3), both(2), torn},
       "01 010 101 01 010 10 ? "},
      // Where the recording ends, one track's may be last.
      {inTurn, {both(2), both(3), both(3), both(3)}, "01 010 101 ??? "},
      {inTurn, {both(2), behindLoss(3), both(3), torn}, "01 ??? ??? ? "},
      // That the reference has four blocks behind one lead only does not tell that lead.
      {inTurn, {both(2), behindLoss(3), both(3), behindLoss(4), torn}, "01 ??? ??? ???? ? "},
      {inTurn, {both(2), both(3), {2, Anchor::start}, both(3), torn}, "01 010 10 ??? ? "},
      // A number that the reference lacks, where every block tells the next one's track.
      {inTurn, {both(2), both(7), both(3), torn}, "01 0101010 101 ? "},
      {endsEarly, {both(2), both(7), both(4), torn}, "01 ??????? ???? ? "},
      {endsEarly, {both(2), both(4), both(1), both(2), torn}, "01 0101 0 ?? ? "},
      // A clip that begins otherwise than the reference may begin with another track.
      {inTurn, {both(3), both(3), torn}, "??? ??? ? "},
  };
  for (const Case& c : cases) {
    TrackOrder order({0, 0}, 4);
    for (const std::string& seen : c.seen) order.learn(orderOf(seen));
    std::string told;
    order.tell(c.rows, [&](const auto& row) { told += lettersOf(row) + " "; });
    EXPECT_EQ(told, c.told);
  }
}

// "0*20 1*20" for twenty blocks of each, "01*20" for as many in turn.
std::string shortened(const std::string& letters) {
  std::string text;
  for (std::size_t i = 0; i < letters.size();) {
    const std::string word = letters.substr(i, letters.compare(i, 4, "0101") == 0 ? 2 : 1);
    std::size_t times = 0;
    for (; letters.compare(i, word.size(), word) == 0; i += word.size()) ++times;
    text += (text.empty() ? "" : " ") + word + (times > 1 ? "*" + std::to_string(times) : "");
  }
  return text;
}

// Where one track has ended, or tracks begin apart, nobody's turn is certain.
TEST(TrackOrder, trustsTurnsOnlyWhereTheyAreTaken) {
  const std::vector<std::string> byBlock{"01", "0101", "01"};
  const std::vector<std::string> inChunks{std::string(20, '0') + std::string(20, '1')};
  const std::string inRounds = inChunks.front() + "01";
  struct Stretch {
    std::vector<std::size_t> gaps;
    std::size_t times = 1;
  };
  struct Case {
    const char* label;
    std::vector<std::string> seen;
    std::string seenLast;
    std::vector<Stretch> rows;
    std::string told;
  };
  const std::vector<Case> cases{
      {"one ends", byBlock, "", {{{4, 2, 2, 4}, 20}, {{2, 1}, 20}}, "01*120 ?*60"},
      {"both end", byBlock, "", {{{4, 2, 2, 4}, 20}}, "01*120"},
      {"apart", byBlock, "", {{{4, 4, 4, 3}, 20}}, "?*300"},
      {"one block is lost", byBlock, "", {{{4}, 60}, {{3}}, {{4}, 60}}, "01*120 ?*3 01*120"},
      {"chunks, one ends",
       inChunks,
       "",
       {{{40}, 3}, {{20, 21}, 2}},
       "0*20 1*20 0*20 1*20 0*20 1*20 ?*82"},
      {"chunks, a short last one", inChunks, "", {{{40, 10}}}, "0*20 1*20 0*5 ?*5"},
      {"chunks, a cut or a longer last one",
       inChunks,
       "",
       {{{40, 42}}},
       "0*20 1*20 0*20 ? 1*19 ?*2"},
      {"chunks, a last round", inChunks, inRounds, {{{40, 42}}}, "0*20 1*20 0*20 1*20 0 ?"},
  };
  for (const Case& c : cases) {
    TrackOrder order({0, 0}, 40);
    for (const std::string& seen : c.seen) order.learn(orderOf(seen));
    order.learnEnd(orderOf(c.seenLast));
    std::vector<TrackOrder::Row> rows;
    for (const Stretch& stretch : c.rows) {
      for (std::size_t i = 0; i < stretch.times; ++i) {
        for (const std::size_t gap : stretch.gaps) rows.push_back({gap, Anchor::both});
      }
    }
    std::string told;
    order.tell(rows, [&](const auto& row) { told += lettersOf(row); });
    EXPECT_EQ(shortened(told), c.told) << c.label;
  }
}

// A track with blocks of its own kind is told by them, wherever they stand; what they leave open is
// told by their places.
TEST(TrackOrder, tellsByKindAndByPlace) {
  struct Case {
    std::string kindsOfTracks;
    std::vector<std::string> seen;
    Anchor anchor;
    std::string kinds;
    std::string told;
  };
  const std::vector<Case> cases{
      {"01", {"01", "0101"}, Anchor::neither, "10", "10"},
      {"01", {"01", "0101"}, Anchor::both, "001", "001"},
      {"01", {"001", "1", "011"}, Anchor::both, "011", "011"},
      {"010", {"012"}, Anchor::both, "010", "012"},
      {"010", {"012"}, Anchor::start, "01", "01"},
      {"010", {"012"}, Anchor::neither, "10", "1?"},
      // Two of a kind that change places leave the third.
      {"001", {"012", "102"}, Anchor::both, "001", "??2"},
      {"010", {"012", "021"}, Anchor::both, "001", "021"},
  };
  for (const Case& c : cases) {
    TrackOrder order(orderOf(c.kindsOfTracks), 8);
    for (const std::string& seen : c.seen) order.learn(orderOf(seen));
    const TrackOrder::Order kinds = orderOf(c.kinds);
    std::string told;
    const std::vector<TrackOrder::Row> rows{{kinds.size(), c.anchor, true, kinds}};
    order.tell(rows, [&](const auto& row) { told += lettersOf(row); });
    EXPECT_EQ(told, c.told) << c.kindsOfTracks << ", " << c.kinds;
  }
}

}  // namespace
}  // namespace tallowmark
