// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <filesystem>
#include <vector>

namespace tallowmark {

/// What the desktop around the window does for it; a test's double in tests. Returns at once, and
/// stays quiet where the desktop cannot.
class Desktop {
 public:
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  Desktop(Desktop&&) = delete;
  Desktop& operator=(Desktop&&) = delete;
  virtual ~Desktop() = default;

  /// Shows files selected in the file manager.
  virtual void reveal(const std::vector<std::filesystem::path>& files) = 0;
  /// Opens a file in what the user opens such files with.
  virtual void open(const std::filesystem::path& file) = 0;
  virtual void notify(const QString& title, const QString& text) = 0;
};

}  // namespace tallowmark
