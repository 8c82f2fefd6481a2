// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/SystemDesktop.h"

#include <QDesktopServices>

#include "TallowmarkRepair/Views/FilePaths.h"

namespace tallowmark {

void SystemDesktop::open(const std::filesystem::path& file) {
  QDesktopServices::openUrl(FilePaths::url(file));
}

}  // namespace tallowmark
