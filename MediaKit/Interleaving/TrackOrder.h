// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "MediaKit/Interleaving/GapRhythm.h"

namespace tallowmark {

/// How the blocks of sound tracks follow one another in a file, as a reference's index shows it.
/// Those of one kind look alike. Tracks count from 0. Where the order between two pictures is not
/// always the same, it follows from what each track is ahead of the others by then: tracks that
/// begin at different moments take turns from one gap to the next.
class TrackOrder {
 public:
  using Order = std::vector<std::uint8_t>;

  /// What blocks in a row lie against: the picture before them, the one behind, both or neither.
  enum class Anchor { neither, start, end, both };

  /// By how many blocks each track is ahead of the one that had the fewest.
  using Lead = std::vector<std::uint16_t>;

  /// Blocks in a row.
  struct Row {
    std::size_t blocks = 0;
    Anchor anchor = Anchor::neither;
    /// Nothing is missing between the row before, or the start of the file, and this one.
    bool goesOn = true;
    /// Of each block; empty when all are of one.
    std::span<const std::uint8_t> kinds{};
    /// Number of the picture behind it, where the one before it is the one before in the file.
    std::optional<std::uint64_t> frame{};
  };
  /// A row of blocks given to tracks.
  struct Told {
    /// Nothing for a block that could be of several.
    std::vector<std::optional<std::size_t>> tracks;
    /// Behind the row; nothing where that cannot be told.
    std::optional<Lead> lead;
  };

  /// `kinds`: of the blocks of each track. `mostBlocks`: of any gap between two pictures of the
  /// reference.
  explicit TrackOrder(std::vector<std::uint8_t> kinds = {0}, std::size_t mostBlocks = 1);

  /// Learns the tracks of the blocks between two pictures, in the reference's order.
  void learn(const Order& order);
  /// Learns how many blocks a picture lasts.
  void learnPicture(double blocks) { picture_ = blocks; }
  /// Learns what stands behind the last picture.
  void learnEnd(const Order& order);
  /// Learns that a clip whose tracks take turns has so many blocks between two pictures.
  void learnCount(std::size_t blocks);

  /// What rows tell of each other: that tracks do not take turns where they should. Or each is
  /// told for itself, as if they always did.
  enum class Turns { doubted, trusted };

  /// Tells the tracks of all rows of a clip and gives them to `visit`, in order. Where something is
  /// missing, what follows may tell what came before.
  void tell(std::span<const Row> rows, const std::function<void(const Told&)>& visit,
            Turns turns = Turns::doubted) const;

 private:
  /// Orders, and how many gaps have each.
  using Lesson = std::map<Order, std::uint64_t>;
  /// A whole order of the reference that a row may be, or be the start or the end of.
  struct Possible {
    Order order;
    Lead ahead;
    Lead behind;
  };
  struct Candidates {
    Row row;
    std::vector<Possible> orders;
  };

  Lead behind(Lead lead, const Order& order) const;
  bool isExact(const Lead& lead) const;
  std::size_t mostOfOneIn(const Order& order) const;
  bool isTooMuchOfOne(const Order& order) const { return mostOfOneIn(order) > mostOfOne_ + 1; }
  void learnLesson(const Order& order);
  void learnNext(const Order& order);
  bool takesTurns() const { return takeTurnsByGap_ || takeTurnsByBlock_; }
  std::set<Lead> allLeads() const;
  std::vector<Possible> possible(const Row& row, const std::set<Lead>& leads, bool isLast) const;
  std::vector<Possible> turns(const Row& row) const;
  std::vector<Possible> lastTurns(const Row& row) const;
  void addRounds(const Order& before, std::size_t blocks, std::vector<Order>& orders) const;
  std::vector<Possible> learnt(const Row& row, const std::set<Lead>& leads) const;
  std::optional<Possible> byLead(const Row& row, const Lead& lead) const;
  std::vector<std::uint8_t> kindsOf(const Order& order) const;
  bool isOfKinds(const Row& row, const Order& order) const;
  std::optional<std::uint8_t> onlyTrackOf(const Row& row, std::size_t block) const;
  bool tellsItself(const Row& row) const;
  void addEndings(std::vector<Possible>& orders, std::size_t blocks) const;
  std::vector<Order> ordersOf(std::size_t share) const;
  class Telling;

  std::size_t tracks_;
  /// Of the tracks' blocks.
  std::vector<std::uint8_t> kinds_;
  /// A track that is further ahead than this goes on where another has ended.
  std::uint16_t mostLead_;
  /// As many blocks of one track as of the next: all of one track first, or one of each in turn.
  bool takeTurnsByGap_ = true;
  bool takeTurnsByBlock_ = true;
  std::size_t leastShare_ = std::numeric_limits<std::size_t>::max();
  std::size_t mostShare_ = 0;
  /// The fewest in the reference.
  std::size_t leastLearnt_ = 0;
  /// Behind the reference's last picture several rounds stand, or one that is longer.
  bool endsInRounds_ = false;
  bool endsInOneRound_ = false;
  /// All orders there are behind each lead, while these are few.
  std::map<Lead, Lesson> lessons_;
  /// The track of the block that comes next behind each lead; nothing where that changes.
  std::map<Lead, std::optional<std::uint8_t>> next_;
  std::size_t blocksLearnt_ = 0;
  std::size_t ordersLearnt_ = 0;
  /// The most blocks of one track in one gap.
  std::size_t mostOfOne_ = 0;
  /// Of the first gap with any.
  std::size_t firstBlocks_ = 0;
  bool hasTooMany_ = false;
  double picture_ = 0;
  GapRhythm rhythm_;
  /// Behind what has been learnt.
  Lead reference_;
};

}  // namespace tallowmark
