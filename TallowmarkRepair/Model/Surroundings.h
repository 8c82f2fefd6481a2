// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QThread>
#include <filesystem>
#include <memory>
#include <string>

#include "MediaKit/Photo/ImageService.h"
#include "MediaKit/Rescue/OpenedFile.h"
#include "MediaKit/Rescue/Previewing.h"
#include "MediaKit/Video/PictureDecoder.h"
#include "TallowmarkRepair/Model/ScratchFolder.h"

namespace tallowmark {

/// What the model needs of the program and the machine around it. Used from several threads.
struct Surroundings {
  /// Never null.
  std::shared_ptr<const ImageService> images;
  /// Without one there are no previews of clips.
  ClipPreviewer previewer;
  /// Without one rebuilt clips are believed untried.
  PictureDecoder decoder;
  FileOpener open = openFile;
  /// Where the scratch folder is made.
  std::filesystem::path scratchParent = ScratchFolder::defaultParent();
  /// The name of the file to select after checking; empty for none.
  std::string select;
  int threads = QThread::idealThreadCount();
};

}  // namespace tallowmark
