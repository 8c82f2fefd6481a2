// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "TallowmarkRepair/Views/Desktop.h"

namespace tallowmark {

/// The desktop that the program runs on. `reveal` and `notify` differ between systems.
class SystemDesktop final : public Desktop {
 public:
  void reveal(const std::vector<std::filesystem::path>& files) override;
  void open(const std::filesystem::path& file) override;
  void notify(const QString& title, const QString& text) override;
};

}  // namespace tallowmark
