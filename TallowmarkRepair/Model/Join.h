// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QUuid>
#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include "MediaKit/Join/ClipJoin.h"

namespace tallowmark {

/// One recording that the camera split.
struct Join {
  /// The parts cannot be joined; the sentence says why.
  struct Incompatible {
    std::string text;
    friend bool operator==(const Incompatible&, const Incompatible&) = default;
  };
  /// The joined clip is being written.
  struct Joining {
    /// From 0 to 1.
    double fraction = 0;
    friend bool operator==(const Joining&, const Joining&) = default;
  };
  /// Checked; its seam can be looked at and it can be saved.
  struct Preview {
    ClipJoin::Result result;
    friend bool operator==(const Preview&, const Preview&) = default;
  };
  struct Saved {
    ClipJoin::Result result;
    friend bool operator==(const Saved&, const Saved&) = default;
  };
  /// Reading or writing failed; a sentence for the user.
  struct Failed {
    std::string text;
    friend bool operator==(const Failed&, const Failed&) = default;
  };
  /// The parts are being checked.
  struct Checking {
    friend bool operator==(const Checking&, const Checking&) = default;
  };
  using State = std::variant<Incompatible, Joining, Preview, Saved, Failed, Checking>;

  QUuid id;
  /// In playing order.
  std::vector<std::filesystem::path> parts;
  /// By the camera's names among the added files, not by the user.
  bool foundAutomatically = false;
  State state = Checking{};

  /// "GX010123 – GX030123": the first and the last part without extension; one part's name alone.
  std::string title() const;

  template <class Case>
  bool is() const {
    return std::holds_alternative<Case>(state);
  }

  friend bool operator==(const Join&, const Join&) = default;
};

}  // namespace tallowmark
