// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QUrl>
#include <filesystem>
#include <vector>

/// Between Qt's texts and the names of files, which are bytes.
namespace tallowmark::FilePaths {

/// For people: what is no UTF-8 shows replacement characters.
QString shown(const std::filesystem::path& path);

/// Byte by byte what the URL says, so that names in no known encoding arrive, too. URLs that are
/// not of local files are left out.
std::vector<std::filesystem::path> fromURLs(const QList<QUrl>& urls);

QUrl url(const std::filesystem::path& path);

}  // namespace tallowmark::FilePaths
