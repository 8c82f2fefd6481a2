// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

class QWidget;

namespace tallowmark {

/// Shows the version, the licence, and what the application is made with. Returns at once.
void showAboutBox(QWidget& window);

}  // namespace tallowmark
