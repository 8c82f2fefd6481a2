// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "MediaKit/Bitstream/UnitHead.h"

namespace tallowmark {

/// Whether a unit is a message that decoding recovers from its picture on, or soon behind it
/// (recovery point: H.264 §D.2.8, H.265 §D.3.8), as far as its first bytes show.
bool tellsRecovery(const UnitHead& unit, NALFormat::Codec codec);

/// Which pictures a camera's index calls key samples beside those that start decoding afresh: where
/// groups of pictures are open, all intra pictures; where pictures are refreshed bit by bit, those
/// with a recovery point.
class KeyHabits {
 public:
  struct Picture {
    /// All that is needed to decode begins here (IDR and the like).
    bool resetsDecoding = false;
    bool isIntra = false;
    /// It has a recovery point.
    bool recovers = false;
  };

  void learn(const Picture& picture, bool isSync);
  /// As the camera's index would have it.
  bool isKey(const Picture& picture) const;

 private:
  /// How often the index calls a kind a key sample, and how often not.
  struct Habit {
    std::uint64_t keys = 0;
    std::uint64_t others = 0;

    void count(bool isSync) { ++(isSync ? keys : others); }
    bool holds() const { return keys > 0 && others == 0; }
  };

  Habit intra_;
  Habit recovering_;
};

}  // namespace tallowmark
