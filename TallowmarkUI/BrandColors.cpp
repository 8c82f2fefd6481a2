// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

namespace {

struct Surfaces {
  QRgb window;
  QRgb base;
  QRgb alternateBase;
  QRgb button;
  QRgb text;
  QRgb faintText;
  QRgb highlight;
  QRgb tooltip;
};

QPalette paletteOf(const Surfaces& surfaces) {
  // The bevels and shadows are worked out from these two.
  QPalette palette(QColor(surfaces.button), QColor(surfaces.window));
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                          QPalette::ToolTipText, QPalette::BrightText}) {
    palette.setColor(role, surfaces.text);
    palette.setColor(QPalette::Disabled, role, surfaces.faintText);
  }
  palette.setColor(QPalette::PlaceholderText, BrandColors::of(palette).quiet);
  palette.setColor(QPalette::Base, surfaces.base);
  palette.setColor(QPalette::AlternateBase, surfaces.alternateBase);
  palette.setColor(QPalette::ToolTipBase, surfaces.tooltip);
  palette.setColor(QPalette::Highlight, surfaces.highlight);
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::Link, BrandColors::of(palette).accent);
  return palette;
}

}  // namespace

bool BrandColors::isDark(const QPalette& palette) {
  return palette.color(QPalette::Window).lightness() <
         palette.color(QPalette::WindowText).lightness();
}

BrandColors BrandColors::of(const QPalette& palette) {
  BrandColors colors = isDark(palette) ? BrandColors{.accent = 0x8ab0ff,
                                                     .onAccent = 0x10182a,
                                                     .good = 0x6fd39b,
                                                     .attention = 0xf0b95c,
                                                     .problem = 0xff938a,
                                                     .quiet = 0xa9adb8,
                                                     .line = 0x3d4049,
                                                     .card = 0x2e3038}
                                       : BrandColors{.accent = 0x2c5bc7,
                                                     .onAccent = 0xffffff,
                                                     .good = 0x1d7745,
                                                     .attention = 0x8a5300,
                                                     .problem = 0xb3261e,
                                                     .quiet = 0x5b6070,
                                                     .line = 0xd9dbe1,
                                                     .card = 0xffffff};
  return colors;
}

QColor BrandColors::of(Tone tone) const {
  switch (tone) {
    case Tone::accent:
      return accent;
    case Tone::good:
      return good;
    case Tone::attention:
      return attention;
    case Tone::problem:
      return problem;
    case Tone::quiet:
      break;
  }
  return quiet;
}

QPalette lightPalette() {
  return paletteOf({.window = 0xf4f5f7,
                    .base = 0xffffff,
                    .alternateBase = 0xf0f1f4,
                    .button = 0xfbfbfc,
                    .text = 0x1d2028,
                    .faintText = 0x9a9eaa,
                    .highlight = 0x2c5bc7,
                    .tooltip = 0xffffff});
}

QPalette darkPalette() {
  return paletteOf({.window = 0x23252b,
                    .base = 0x1b1d22,
                    .alternateBase = 0x26282f,
                    .button = 0x363942,
                    .text = 0xeceef3,
                    .faintText = 0x7c808c,
                    .highlight = 0x3a64c8,
                    .tooltip = 0x363942});
}

}  // namespace tallowmark
