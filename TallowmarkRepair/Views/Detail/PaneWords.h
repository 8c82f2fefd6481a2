// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QCoreApplication>
#include <QString>

/// The words of the detail panes, in the user's language.
namespace tallowmark::PaneWords {

struct Context {
  Q_DECLARE_TR_FUNCTIONS(DetailPanes)
};

inline QString tr(const char* words) {
  return Context::tr(words);
}

}  // namespace tallowmark::PaneWords
