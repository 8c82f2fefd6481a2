// SPDX-License-Identifier: GPL-3.0-or-later
#include <QAccessible>
#include <QMenu>
#include <QMenuBar>

#include "TallowmarkUI/BrandColors.h"
#include "WindowTests.h"

namespace tallowmark::testing {
namespace {

/// What can be used or is looked at on its own, and has no name.
QStringList unnamedIn(QAccessibleInterface& parent) {
  QStringList unnamed;
  for (int i = 0; i < parent.childCount(); ++i) {
    QAccessibleInterface* child = parent.child(i);
    if (child == nullptr || child->state().invisible) continue;
    const QAccessible::Role role = child->role();
    const bool isControl = child->state().focusable || role == QAccessible::Button ||
                           role == QAccessible::Slider || role == QAccessible::ListItem ||
                           role == QAccessible::MenuItem || role == QAccessible::List;
    if (isControl && child->text(QAccessible::Name).isEmpty()) {
      const QObject* object = child->object();
      unnamed << QStringLiteral("%1 %2 %3")
                     .arg(role)
                     .arg(object != nullptr ? object->metaObject()->className() : "",
                          object != nullptr ? object->objectName() : QString());
    }
    unnamed << unnamedIn(*child);
  }
  return unnamed;
}

class AccessTests : public WindowTests {
 protected:
  std::string unnamed() const {
    return unnamedIn(*QAccessible::queryAccessibleInterface(window.get())).join(", ").toStdString();
  }
};

TEST_F(AccessTests, nameEveryControl) {
  EXPECT_EQ(unnamed(), "") << "welcome";
  ASSERT_TRUE(settleAfter([&] { drop(find("welcomeView"), {good, cut, noIndex, cutPhoto}); }));
  for (const char* name : {"GX010001.MOV", "GX010002.MOV", "IMG_0002.JPG"}) {
    click(name);
    QTest::qWait(0);
    EXPECT_EQ(unnamed(), "") << name;
  }
  QAccessibleInterface* rows = QAccessible::queryAccessibleInterface(&list());
  ASSERT_EQ(rows->childCount(), 4);
  EXPECT_EQ(rows->child(1)->text(QAccessible::Name), "GX010002.MOV, " + statusOf("GX010002.MOV"));
}

TEST_F(AccessTests, explainEveryCommandAndPutItIntoAMenu) {
  QList<QAction*> listed;
  for (const QMenu* menu : window->menuBar()->findChildren<QMenu*>()) listed << menu->actions();
  QList<QKeySequence> shortcuts;
  for (QAction* action : window->commands().findChildren<QAction*>()) {
    EXPECT_TRUE(listed.contains(action)) << action->objectName().toStdString();
    EXPECT_NE(action->toolTip(), action->text()) << action->objectName().toStdString();
    for (const QKeySequence& shortcut : action->shortcuts()) {
      EXPECT_FALSE(shortcuts.contains(shortcut)) << shortcut.toString().toStdString();
      shortcuts << shortcut;
    }
  }
}

double luminance(const QColor& color) {
  const auto part = [](float value) {
    return value <= 0.04045F ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * part(color.redF()) + 0.7152 * part(color.greenF()) + 0.0722 * part(color.blueF());
}

double contrast(const QColor& one, const QColor& other) {
  const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
  return (light + 0.05) / (dark + 0.05);
}

// WCAG 2.2, success criterion 1.4.3.
TEST(BrandColorTests, canBeReadOnEverySurface) {
  constexpr double enough = 4.5;
  for (const QPalette& palette : {lightPalette(), darkPalette()}) {
    const BrandColors colors = BrandColors::of(palette);
    for (const QColor& surface :
         {palette.color(QPalette::Window), palette.color(QPalette::Base), colors.card}) {
      for (const Tone tone :
           {Tone::quiet, Tone::accent, Tone::good, Tone::attention, Tone::problem}) {
        EXPECT_GE(contrast(colors.of(tone), surface), enough)
            << static_cast<int>(tone) << " on " << surface.name().toStdString();
      }
      EXPECT_GE(contrast(palette.color(QPalette::Text), surface), 7);
    }
    EXPECT_GE(contrast(colors.onAccent, colors.accent), enough);
    EXPECT_GE(
        contrast(palette.color(QPalette::HighlightedText), palette.color(QPalette::Highlight)),
        enough);
  }
}

}  // namespace
}  // namespace tallowmark::testing
