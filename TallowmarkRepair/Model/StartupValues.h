// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QSettings>
#include <QStringList>
#include <filesystem>
#include <string>
#include <vector>

namespace tallowmark {

/// What a script tells a program that it starts.
struct StartupValues {
  /// Files and folders to add when the window first appears: paths between ":" in "TMOpenFiles",
  /// then the paths and file URLs given without a key, as file managers do.
  std::vector<std::filesystem::path> openFiles;
  /// The name of the file to select after checking, "TMSelect"; empty for none.
  std::string select;
  /// "TMAppearance": "light" or "dark", whatever the desktop is; empty for what that is. For
  /// pictures of the window.
  QString appearance;
};

/// From the arguments, "-TMOpenFiles VALUE" and the others, as on the Mac; what these do not
/// tell, from the settings of the same names.
StartupValues startupValues(const QStringList& arguments, const QSettings& settings);

}  // namespace tallowmark
