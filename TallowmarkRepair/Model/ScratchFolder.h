// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QLockFile>
#include <filesystem>
#include <memory>
#include <string>

#include "MediaKit/Rescue/Previewing.h"

namespace tallowmark {

/// A folder for the preview of one item; goes with everything in it.
class ScratchPlace {
 public:
  explicit ScratchPlace(std::filesystem::path folder) : folder_(std::move(folder)) {}
  ~ScratchPlace();
  ScratchPlace(const ScratchPlace&) = delete;
  ScratchPlace& operator=(const ScratchPlace&) = delete;
  ScratchPlace(ScratchPlace&&) = delete;
  ScratchPlace& operator=(ScratchPlace&&) = delete;

  /// "<stem of the original>-preview.<extension>", and "-full." before the extension for what it is
  /// made from.
  PreviewFiles filesFor(const std::filesystem::path& original, const std::string& extension) const;
  /// The seam of a recording whose first part this is, "-seam.mp4", and its preview.
  PreviewFiles seamFilesFor(const std::filesystem::path& firstPart) const;

 private:
  std::filesystem::path folder_;
};

/// Where previews live while the program runs. Several programs share the parent folder; each
/// empties at its start what none that runs owns, and its own at its end.
class ScratchFolder {
 public:
  /// Makes a folder of its own in `parent`. Never throws: without it there are no previews.
  explicit ScratchFolder(const std::filesystem::path& parent);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ScratchFolder(ScratchFolder&&) = delete;
  ScratchFolder& operator=(ScratchFolder&&) = delete;

  /// "Tallowmark Repair/Previews" where this system keeps data of programs.
  static std::filesystem::path defaultParent();

  const std::filesystem::path& path() const { return own_; }

  /// A new place; nothing is made there yet.
  std::shared_ptr<const ScratchPlace> newPlace();

 private:
  void takeOwnership();

  std::filesystem::path own_;
  std::unique_ptr<QLockFile> lock_;
};

}  // namespace tallowmark
