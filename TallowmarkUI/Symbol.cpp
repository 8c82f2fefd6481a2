// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/Symbol.h"

#include <QFile>
#include <QPainter>
#include <QPixmapCache>
#include <QSvgRenderer>
#include <QtMath>

// The resources of a static library are left out by the linker unless somebody asks for them; the
// macro must stand outside of every namespace.
static void loadSymbols() {
  Q_INIT_RESOURCE(symbols);
}

namespace tallowmark {

namespace {

QLatin1String nameOf(Symbol symbol) {
  switch (symbol) {
    case Symbol::boltSlash:
      return QLatin1String("bolt-slash");
    case Symbol::film:
      return QLatin1String("film");
    case Symbol::filmStack:
      return QLatin1String("film-stack");
    case Symbol::lock:
      return QLatin1String("lock");
    case Symbol::checking:
      return QLatin1String("checking");
    case Symbol::healthy:
      return QLatin1String("healthy");
    case Symbol::cut:
      return QLatin1String("cut");
    case Symbol::working:
      return QLatin1String("working");
    case Symbol::repaired:
      return QLatin1String("repaired");
    case Symbol::saved:
      return QLatin1String("saved");
    case Symbol::failed:
      return QLatin1String("failed");
    case Symbol::waiting:
      return QLatin1String("waiting");
    case Symbol::raw:
      return QLatin1String("raw");
    case Symbol::unknown:
      return QLatin1String("unknown");
    case Symbol::reference:
      return QLatin1String("reference");
    case Symbol::drop:
      return QLatin1String("drop");
  }
  return {};
}

QByteArray drawingOf(Symbol symbol, const QColor& color) {
  static const bool loaded = [] {
    loadSymbols();
    return true;
  }();
  Q_UNUSED(loaded)
  QFile file(QStringLiteral(":/tallowmark/symbols/%1.svg").arg(nameOf(symbol)));
  if (!file.open(QIODevice::ReadOnly)) {
    return {};
  }
  return file.readAll().replace("currentColor", color.name().toLatin1());
}

}  // namespace

QPixmap pixmapOf(Symbol symbol, const QColor& color, int size, qreal devicePixelRatio) {
  const int pixels = qCeil(size * devicePixelRatio);
  const QString key =
      QStringLiteral("tallowmark %1 %2 %3").arg(nameOf(symbol), color.name()).arg(pixels);
  QPixmap pixmap;
  if (!QPixmapCache::find(key, &pixmap)) {
    pixmap = QPixmap(pixels, pixels);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    QSvgRenderer(drawingOf(symbol, color)).render(&painter);
    painter.end();
    QPixmapCache::insert(key, pixmap);
  }
  pixmap.setDevicePixelRatio(devicePixelRatio);
  return pixmap;
}

}  // namespace tallowmark
