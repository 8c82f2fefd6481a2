// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/AboutBox.h"

#include <QApplication>
#include <QMessageBox>

namespace tallowmark {

namespace {

QString aboutText(const char* text) {
  return QCoreApplication::translate("AboutBox", text);
}

// The libraries that are linked, with the licences they come under.
QString madeWith() {
  return QStringLiteral(
             "<p>%1</p><ul>"
             "<li>Qt %2 (LGPL-3.0)</li>"
             "<li>Exiv2 (GPL-2.0-or-later)</li>"
             "<li>LibRaw (LGPL-2.1 or CDDL-1.0)</li>"
             "<li>libjpeg-turbo (IJG, BSD-3-Clause)</li>"
             "<li>libplist (LGPL-2.1-or-later)</li>"
             "</ul><p>%3</p>")
      .arg(aboutText("Made with:"), QString::fromLatin1(qVersion()),
           aboutText("Previews are made by the ffmpeg program, which is installed apart."));
}

}  // namespace

void showAboutBox(QWidget& window) {
  auto* box = new QMessageBox(&window);
  box->setObjectName("aboutBox");
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setWindowTitle(aboutText("About Tallowmark Repair"));
  box->setIconPixmap(QApplication::windowIcon().pixmap(64));
  box->setTextFormat(Qt::RichText);
  box->setText(QStringLiteral("<b>Tallowmark Repair</b><br>%1")
                   .arg(aboutText("Version %1").arg(QCoreApplication::applicationVersion())));
  box->setInformativeText(
      QStringLiteral("<p>%1</p><p>%2</p>%3")
          .arg(aboutText("Fix clips and photos that won't open, and join split recordings"),
               aboutText("Free software under the GNU General Public License, version 3 or "
                         "later. It comes without any warranty."),
               madeWith()));
  box->setStandardButtons(QMessageBox::Close);
  box->open();
}

}  // namespace tallowmark
