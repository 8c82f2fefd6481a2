// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <vector>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"
#include "TallowmarkRepair/Views/Detail/ItemBackground.h"

namespace tallowmark {

/// A line of the table of facts.
struct Fact {
  QString name;
  QString value;

  friend bool operator==(const Fact&, const Fact&) = default;
};

/// The facts that panes list, in the order listed.
namespace PaneFacts {

std::vector<Fact> of(const Clip& clip, const ClipBackground& background);
std::vector<Fact> of(const Join& join, const JoinBackground& background);

/// "4.1 MB".
QString size(std::uint64_t bytes);

/// The parts of a join in playing order: "Part 1", "GX010123.MP4 · 4.0 GB · 12:05".
std::vector<Fact> parts(const Join& join, const JoinBackground& background);

}  // namespace PaneFacts
}  // namespace tallowmark
