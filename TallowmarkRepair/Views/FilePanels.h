// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <vector>

namespace tallowmark {

/// What a file panel asks for.
struct PanelRequest {
  enum class Choice { files, oneFile, folder, folderToSaveIn };

  /// What to choose, in a sentence.
  QString message;
  /// On the button that takes the choice.
  QString prompt;
  Choice choice = Choice::files;
  /// What can be chosen, "Clips (*.mp4 *.mov)"; empty for folders.
  QStringList filters;
};

/// Asks the user for files: through the system's panels, in tests by the test.
class FilePanels {
 public:
  using Chosen = std::function<void(const std::vector<std::filesystem::path>&)>;

  FilePanels() = default;
  FilePanels(const FilePanels&) = delete;
  FilePanels& operator=(const FilePanels&) = delete;
  FilePanels(FilePanels&&) = delete;
  FilePanels& operator=(FilePanels&&) = delete;
  virtual ~FilePanels() = default;

  /// Returns at once. Calls `chosen` with at least one path when the user decides, and not at all
  /// when the user cancels or `window` goes.
  virtual void ask(const PanelRequest& request, QWidget* window, Chosen chosen) = 0;
};

}  // namespace tallowmark
