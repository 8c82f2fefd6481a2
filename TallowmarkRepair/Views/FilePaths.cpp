// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/FilePaths.h"

#include <QFile>

namespace tallowmark::FilePaths {

namespace fs = std::filesystem;

QString shown(const fs::path& path) {
  return QFile::decodeName(path.c_str());
}

std::vector<fs::path> fromURLs(const QList<QUrl>& urls) {
  std::vector<fs::path> paths;
  for (const QUrl& url : urls) {
    if (url.isLocalFile()) {
      const QByteArray encoded = url.path(QUrl::FullyEncoded).toLatin1();
      paths.emplace_back(QByteArray::fromPercentEncoding(encoded).toStdString());
    }
  }
  return paths;
}

QUrl url(const fs::path& path) {
  const QByteArray bytes = QByteArray::fromStdString(path.string());
  return QUrl::fromEncoded("file://" + bytes.toPercentEncoding("/"));
}

}  // namespace tallowmark::FilePaths
