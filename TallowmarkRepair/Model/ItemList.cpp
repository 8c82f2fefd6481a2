// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/ItemList.h"

#include <QFile>

namespace tallowmark {

namespace {
QVariant text(const std::filesystem::path& path) {
  return QFile::decodeName(path.c_str());
}
}  // namespace

QVariant rowData(const Clip& clip, int role) {
  switch (role) {
    case Qt::DisplayRole:
      return text(clip.url.filename());
    case Qt::ToolTipRole:
      return text(clip.url);
    case itemIdRole:
      return clip.id;
    default:
      return {};
  }
}

QVariant rowData(const Join& join, int role) {
  switch (role) {
    case Qt::DisplayRole:
      return text(join.title());
    case Qt::ToolTipRole:
      return join.parts.empty() ? QVariant() : text(join.parts.front().parent_path());
    case itemIdRole:
      return join.id;
    default:
      return {};
  }
}

}  // namespace tallowmark
