#include "wizard_qt/artwork.h"

#include <QHash>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

namespace dossync::qt {
namespace {

const QColor kDeep(22, 62, 112);
const QColor kSky(64, 140, 204);
const QColor kPaper(246, 248, 252);
const QColor kAccent(255, 196, 61);

// A person: head and shoulders, inside a square of side s at (x, y).
void person(QPainter& p, qreal x, qreal y, qreal s, const QColor& fill) {
  p.setBrush(fill);
  p.drawEllipse(QRectF(x + s * 0.3, y + s * 0.05, s * 0.4, s * 0.4));
  QPainterPath body;
  body.moveTo(x + s * 0.1, y + s * 0.98);
  body.cubicTo(x + s * 0.1, y + s * 0.5, x + s * 0.9, y + s * 0.5, x + s * 0.9, y + s * 0.98);
  body.closeSubpath();
  p.drawPath(body);
}

void arrowArc(QPainter& p, const QRectF& r, int startDeg, int spanDeg) {
  QPen pen(Qt::white, 7, Qt::SolidLine, Qt::RoundCap);
  p.setPen(pen);
  p.setBrush(Qt::NoBrush);
  p.drawArc(r, startDeg * 16, spanDeg * 16);
  qreal end = qDegreesToRadians(static_cast<qreal>(startDeg + spanDeg));
  QPointF c = r.center();
  qreal rad = r.width() / 2;
  QPointF tip(c.x() + rad * qCos(end), c.y() - rad * qSin(end));
  // The head points along the direction of travel (counter-clockwise for positive spans).
  qreal dir = end + (spanDeg > 0 ? M_PI / 2 : -M_PI / 2);
  QPointF along(qCos(dir), -qSin(dir));
  QPointF across(-along.y(), along.x());
  QPolygonF head;
  head << tip + along * 11 << tip + across * 9 << tip - across * 9;
  p.setPen(Qt::NoPen);
  p.setBrush(Qt::white);
  p.drawPolygon(head);
}

void drawGlyph(QPainter& p, int number, const QRectF& box) {
  p.setRenderHint(QPainter::Antialiasing);
  QPointF c = box.center();
  switch (number) {
    case 1: {  // two arrows chasing each other: synchronising
      QRectF r(c.x() - 40, c.y() - 40, 80, 80);
      arrowArc(p, r, 100, 150);
      arrowArc(p, r, 280, 150);
      p.setPen(Qt::NoPen);
      person(p, c.x() - 16, c.y() - 18, 32, kAccent);
      break;
    }
    case 2: {  // a list with ticks: choosing
      p.setPen(Qt::NoPen);
      p.setBrush(kPaper);
      p.drawRoundedRect(QRectF(c.x() - 42, c.y() - 50, 84, 100), 6, 6);
      for (int i = 0; i < 4; ++i) {
        qreal y = c.y() - 36 + i * 22;
        p.setPen(QPen(kDeep, 1.5));
        p.setBrush(Qt::white);
        p.drawRect(QRectF(c.x() - 32, y, 13, 13));
        if (i != 2) {
          p.setPen(QPen(QColor(30, 150, 70), 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
          QPolygonF tick;
          tick << QPointF(c.x() - 30, y + 7) << QPointF(c.x() - 26, y + 11)
               << QPointF(c.x() - 20, y + 2);
          p.drawPolyline(tick);
        }
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(150, 170, 195));
        p.drawRoundedRect(QRectF(c.x() - 12, y + 3, 42 - (i % 2) * 12, 7), 3, 3);
      }
      break;
    }
    case 3: {  // a chequered flag: finishing
      p.setPen(QPen(Qt::white, 4, Qt::SolidLine, Qt::RoundCap));
      p.drawLine(QPointF(c.x() - 34, c.y() - 48), QPointF(c.x() - 34, c.y() + 52));
      p.setPen(Qt::NoPen);
      for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 5; ++col) {
          p.setBrush((row + col) % 2 ? QColor(30, 30, 40) : QColor(Qt::white));
          p.drawRect(QRectF(c.x() - 32 + col * 14, c.y() - 46 + row * 12, 14, 12));
        }
      break;
    }
    default: {  // a cog: advanced options
      p.setPen(Qt::NoPen);
      p.setBrush(Qt::white);
      for (int i = 0; i < 8; ++i) {
        p.save();
        p.translate(c);
        p.rotate(i * 45);
        p.drawRoundedRect(QRectF(-9, -48, 18, 22), 3, 3);
        p.restore();
      }
      p.drawEllipse(c, 34, 34);
      p.setBrush(kSky);
      p.drawEllipse(c, 14, 14);
      break;
    }
  }
}

}  // namespace

QPixmap stepPicture(int number, int width, int height) {
  QPixmap pm(width, height);
  QPainter p(&pm);
  QLinearGradient g(0, 0, width * 0.4, height);
  g.setColorAt(0, kSky);
  g.setColorAt(1, kDeep);
  p.fillRect(pm.rect(), g);
  p.setRenderHint(QPainter::Antialiasing);
  // Soft rings in the background.
  p.setPen(QPen(QColor(255, 255, 255, 28), 14));
  p.setBrush(Qt::NoBrush);
  p.drawEllipse(QPointF(width * 0.9, height * 0.15), width * 0.6, width * 0.6);
  p.drawEllipse(QPointF(width * 0.1, height * 0.95), width * 0.5, width * 0.5);
  drawGlyph(p, number, QRectF(0, height * 0.18, width, height * 0.45));
  // The step's number.
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(255, 255, 255, 230));
  QPointF badge(width / 2.0, height * 0.82);
  p.drawEllipse(badge, 20, 20);
  QFont f = p.font();
  f.setBold(true);
  f.setPixelSize(22);
  p.setFont(f);
  p.setPen(kDeep);
  p.drawText(QRectF(badge.x() - 20, badge.y() - 20, 40, 40), Qt::AlignCenter,
             QString::number(number));
  return pm;
}

QIcon nodeIcon(const QString& key) {
  static QHash<QString, QIcon> cache;
  auto it = cache.find(key);
  if (it != cache.end()) return *it;
  QPixmap pm(16, 16);
  pm.fill(Qt::transparent);
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(QColor(60, 60, 70), 0.8));
  if (key == "category") {
    p.setBrush(QColor(240, 190, 70));
    QPainterPath folder;
    folder.moveTo(1, 3);
    folder.lineTo(6, 3);
    folder.lineTo(7.5, 5);
    folder.lineTo(15, 5);
    folder.lineTo(15, 14);
    folder.lineTo(1, 14);
    folder.closeSubpath();
    p.drawPath(folder);
  } else if (key == "company") {
    p.setBrush(QColor(120, 150, 190));
    p.drawRect(QRectF(2.5, 3.5, 8, 11));
    p.drawRect(QRectF(10.5, 7.5, 4, 7));
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(230, 240, 250));
    for (int r = 0; r < 3; ++r)
      for (int col = 0; col < 2; ++col) p.drawRect(QRectF(4 + col * 3.5, 5 + r * 3, 2, 2));
  } else if (key == "contact" || key == "default-contact" || key == "contact-open") {
    QColor fill = key == "default-contact" ? QColor(70, 150, 90)
                  : key == "contact-open"  ? QColor(120, 170, 230)
                                           : QColor(90, 120, 170);
    person(p, 1, 1, 14, fill);
    if (key == "default-contact") {
      p.setPen(Qt::NoPen);
      p.setBrush(kAccent);
      p.drawEllipse(QRectF(10, 0, 6, 6));
    }
  }
  p.end();
  QIcon icon(pm);
  cache.insert(key, icon);
  return icon;
}

}  // namespace dossync::qt
