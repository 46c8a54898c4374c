#include "wizard_win32/artwork.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace dossync::win32ui {
namespace {

constexpr int kSuper = 4;  // drawn this many times larger, then averaged down
constexpr double kPi = 3.14159265358979323846;

const COLORREF kDeep = RGB(22, 62, 112);
const COLORREF kSky = RGB(64, 140, 204);
const COLORREF kPaper = RGB(246, 248, 252);
const COLORREF kAccent = RGB(255, 196, 61);
const COLORREF kWhite = RGB(255, 255, 255);

// A top-down 32-bit DIB section with a memory DC selected into it.
class Canvas {
 public:
  Canvas(int w, int h) : w_(w), h_(h) {
    BITMAPINFO bi{};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = w;
    bi.bmiHeader.biHeight = -h;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    bi.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    bmp_ = CreateDIBSection(nullptr, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    px_ = static_cast<uint32_t*>(bits);
    dc_ = CreateCompatibleDC(nullptr);
    old_ = SelectObject(dc_, bmp_);
    SetGraphicsMode(dc_, GM_ADVANCED);
    SetBkMode(dc_, TRANSPARENT);
  }
  ~Canvas() {
    if (dc_) {
      SelectObject(dc_, old_);
      DeleteDC(dc_);
    }
    if (bmp_) DeleteObject(bmp_);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  // Hands the bitmap over (deselected from the DC).
  HBITMAP release() {
    SelectObject(dc_, old_);
    DeleteDC(dc_);
    dc_ = nullptr;
    HBITMAP b = bmp_;
    bmp_ = nullptr;
    return b;
  }
  void fill(uint32_t value) { std::fill(px_, px_ + static_cast<size_t>(w_) * h_, value); }
  uint32_t* pixels() { return px_; }
  HDC dc() const { return dc_; }
  int width() const { return w_; }
  int height() const { return h_; }

 private:
  int w_, h_;
  HBITMAP bmp_ = nullptr;
  uint32_t* px_ = nullptr;
  HDC dc_ = nullptr;
  HGDIOBJ old_ = nullptr;
};

// GDI drawing in design units (scaled by f). In mask mode every colour is white, so the same
// drawing on black gives the shapes' coverage.
class Painter {
 public:
  Painter(HDC dc, double f, bool mask) : dc_(dc), f_(f), mask_(mask) {
    oldPen_ = SelectObject(dc_, GetStockObject(NULL_PEN));
    oldBrush_ = SelectObject(dc_, GetStockObject(NULL_BRUSH));
  }
  ~Painter() {
    SelectObject(dc_, oldPen_);
    SelectObject(dc_, oldBrush_);
    if (pen_) DeleteObject(pen_);
    if (brush_) DeleteObject(brush_);
  }
  Painter(const Painter&) = delete;
  Painter& operator=(const Painter&) = delete;

  int s(double v) const { return static_cast<int>(std::lround(v * f_)); }
  COLORREF colour(COLORREF c) const { return mask_ ? kWhite : c; }

  void pen(COLORREF c, double width, bool round = false) {
    LOGBRUSH lb{BS_SOLID, colour(c), 0};
    DWORD style = PS_GEOMETRIC | PS_SOLID |
                  (round ? PS_ENDCAP_ROUND | PS_JOIN_ROUND : PS_ENDCAP_FLAT | PS_JOIN_MITER);
    HPEN p = ExtCreatePen(style, std::max(1, s(width)), &lb, 0, nullptr);
    SelectObject(dc_, p);
    if (pen_) DeleteObject(pen_);
    pen_ = p;
  }
  void noPen() { SelectObject(dc_, GetStockObject(NULL_PEN)); }
  void brush(COLORREF c) {
    HBRUSH b = CreateSolidBrush(colour(c));
    SelectObject(dc_, b);
    if (brush_) DeleteObject(brush_);
    brush_ = b;
  }
  void noBrush() { SelectObject(dc_, GetStockObject(NULL_BRUSH)); }

  // Without a pen GDI leaves out the right and bottom edges: one more unit closes them.
  int extra() const { return GetCurrentObject(dc_, OBJ_PEN) == GetStockObject(NULL_PEN) ? 1 : 0; }
  void ellipse(double x, double y, double w, double h) {
    Ellipse(dc_, s(x), s(y), s(x + w) + extra(), s(y + h) + extra());
  }
  void circle(double cx, double cy, double r) { ellipse(cx - r, cy - r, 2 * r, 2 * r); }
  void rect(double x, double y, double w, double h) {
    Rectangle(dc_, s(x), s(y), s(x + w) + extra(), s(y + h) + extra());
  }
  void roundRect(double x, double y, double w, double h, double r) {
    RoundRect(dc_, s(x), s(y), s(x + w) + extra(), s(y + h) + extra(), s(2 * r), s(2 * r));
  }
  void polygon(const std::vector<std::pair<double, double>>& pts) {
    auto p = points(pts);
    Polygon(dc_, p.data(), static_cast<int>(p.size()));
  }
  void polyline(const std::vector<std::pair<double, double>>& pts) {
    auto p = points(pts);
    Polyline(dc_, p.data(), static_cast<int>(p.size()));
  }
  // An arc of the circle (cx, cy, r) from startDeg, counter-clockwise for spanDeg degrees
  // (0 at three o'clock).
  void arc(double cx, double cy, double r, double startDeg, double spanDeg) {
    double a0 = startDeg * kPi / 180, a1 = (startDeg + spanDeg) * kPi / 180;
    SetArcDirection(dc_, AD_COUNTERCLOCKWISE);
    Arc(dc_, s(cx - r), s(cy - r), s(cx + r), s(cy + r), s(cx + r * std::cos(a0)),
        s(cy - r * std::sin(a0)), s(cx + r * std::cos(a1)), s(cy - r * std::sin(a1)));
  }
  // A closed path of one cubic curve and a straight line back, filled and outlined.
  void cubicShape(std::pair<double, double> from, std::pair<double, double> c1,
                  std::pair<double, double> c2, std::pair<double, double> to) {
    BeginPath(dc_);
    auto p = points({from, c1, c2, to});
    MoveToEx(dc_, p[0].x, p[0].y, nullptr);
    PolyBezierTo(dc_, p.data() + 1, 3);
    CloseFigure(dc_);
    EndPath(dc_);
    StrokeAndFillPath(dc_);
  }
  void text(const std::wstring& t, double x, double y, double w, double h, double pixelSize,
            COLORREF c) {
    HFONT font = CreateFontW(-s(pixelSize), 0, 0, 0, FW_BOLD, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                             OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, ANTIALIASED_QUALITY,
                             DEFAULT_PITCH | FF_SWISS, L"Segoe UI");
    HGDIOBJ old = SelectObject(dc_, font);
    SetTextColor(dc_, colour(c));
    RECT r{s(x), s(y), s(x + w), s(y + h)};
    DrawTextW(dc_, t.c_str(), static_cast<int>(t.size()), &r,
              DT_CENTER | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
    SelectObject(dc_, old);
    DeleteObject(font);
  }

 private:
  std::vector<POINT> points(const std::vector<std::pair<double, double>>& pts) const {
    std::vector<POINT> out;
    for (auto [x, y] : pts) out.push_back({s(x), s(y)});
    return out;
  }

  HDC dc_;
  double f_;
  bool mask_;
  HGDIOBJ oldPen_, oldBrush_;
  HPEN pen_ = nullptr;
  HBRUSH brush_ = nullptr;
};

// Blends colour over target where the drawing covers, at the given opacity.
void layer(Canvas& target, double f, COLORREF colour, double opacity,
           const std::function<void(Painter&)>& draw) {
  Canvas mask(target.width(), target.height());
  mask.fill(0);
  {
    Painter p(mask.dc(), f, true);
    draw(p);
  }
  GdiFlush();
  uint32_t* dst = target.pixels();
  const uint32_t* m = mask.pixels();
  const double cr = GetRValue(colour), cg = GetGValue(colour), cb = GetBValue(colour);
  for (size_t i = 0, n = static_cast<size_t>(target.width()) * target.height(); i < n; ++i) {
    double a = opacity * ((m[i] >> 8) & 0xff) / 255.0;
    if (a <= 0) continue;
    uint32_t d = dst[i];
    auto mix = [&](double from, double to) {
      return static_cast<uint32_t>(std::lround(from + (to - from) * a));
    };
    dst[i] =
        (mix((d >> 16) & 0xff, cr) << 16) | (mix((d >> 8) & 0xff, cg) << 8) | mix(d & 0xff, cb);
  }
}

// Averages kSuper x kSuper blocks of src into a new canvas.
void shrink(Canvas& src, Canvas& dst) {
  GdiFlush();
  const uint32_t* s = src.pixels();
  uint32_t* d = dst.pixels();
  const int sw = src.width();
  for (int y = 0; y < dst.height(); ++y)
    for (int x = 0; x < dst.width(); ++x) {
      uint32_t sum[4] = {0, 0, 0, 0};
      for (int dy = 0; dy < kSuper; ++dy)
        for (int dx = 0; dx < kSuper; ++dx) {
          uint32_t v = s[static_cast<size_t>(y * kSuper + dy) * sw + x * kSuper + dx];
          for (int c = 0; c < 4; ++c) sum[c] += (v >> (8 * c)) & 0xff;
        }
      uint32_t out = 0;
      for (int c = 0; c < 4; ++c)
        out |= ((sum[c] + kSuper * kSuper / 2) / (kSuper * kSuper)) << (8 * c);
      d[static_cast<size_t>(y) * dst.width() + x] = out;
    }
}

// A person: head and shoulders, inside a square of side s at (x, y).
void person(Painter& p, double x, double y, double s, COLORREF fill) {
  p.brush(fill);
  p.ellipse(x + s * 0.3, y + s * 0.05, s * 0.4, s * 0.4);
  p.cubicShape({x + s * 0.1, y + s * 0.98}, {x + s * 0.1, y + s * 0.5}, {x + s * 0.9, y + s * 0.5},
               {x + s * 0.9, y + s * 0.98});
}

void arrowArc(Painter& p, double cx, double cy, double r, double startDeg, double spanDeg) {
  p.pen(kWhite, 7, true);
  p.noBrush();
  p.arc(cx, cy, r, startDeg, spanDeg);
  double end = (startDeg + spanDeg) * kPi / 180;
  double tx = cx + r * std::cos(end), ty = cy - r * std::sin(end);
  // The head points along the direction of travel (counter-clockwise for positive spans).
  double dir = end + (spanDeg > 0 ? kPi / 2 : -kPi / 2);
  double ax = std::cos(dir), ay = -std::sin(dir);
  double bx = -ay, by = ax;
  p.noPen();
  p.brush(kWhite);
  p.polygon({{tx + ax * 11, ty + ay * 11}, {tx + bx * 9, ty + by * 9}, {tx - bx * 9, ty - by * 9}});
}

void glyph(Painter& p, int number, double cx, double cy) {
  switch (number) {
    case 1: {  // two arrows chasing each other: synchronising
      arrowArc(p, cx, cy, 40, 100, 150);
      arrowArc(p, cx, cy, 40, 280, 150);
      p.noPen();
      person(p, cx - 16, cy - 18, 32, kAccent);
      break;
    }
    case 2: {  // a list with ticks: choosing
      p.noPen();
      p.brush(kPaper);
      p.roundRect(cx - 42, cy - 50, 84, 100, 6);
      for (int i = 0; i < 4; ++i) {
        double y = cy - 36 + i * 22;
        p.pen(kDeep, 1.5);
        p.brush(kWhite);
        p.rect(cx - 32, y, 13, 13);
        if (i != 2) {
          p.pen(RGB(30, 150, 70), 3, true);
          p.polyline({{cx - 30, y + 7}, {cx - 26, y + 11}, {cx - 20, y + 2}});
        }
        p.noPen();
        p.brush(RGB(150, 170, 195));
        p.roundRect(cx - 12, y + 3, 42 - (i % 2) * 12, 7, 3);
      }
      break;
    }
    case 3: {  // a chequered flag: finishing
      p.pen(kWhite, 4, true);
      p.polyline({{cx - 34, cy - 48}, {cx - 34, cy + 52}});
      p.noPen();
      for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 5; ++col) {
          p.brush((row + col) % 2 ? RGB(30, 30, 40) : kWhite);
          p.rect(cx - 32 + col * 14, cy - 46 + row * 12, 14, 12);
        }
      break;
    }
    default: {  // a cog: advanced options
      p.noPen();
      p.brush(kWhite);
      for (int i = 0; i < 8; ++i) {
        double a = i * kPi / 4, c = std::cos(a), s = std::sin(a);
        std::vector<std::pair<double, double>> tooth;
        for (auto [x, y] : {std::pair{-9.0, -48.0}, {9.0, -48.0}, {9.0, -26.0}, {-9.0, -26.0}})
          tooth.push_back({cx + x * c - y * s, cy + x * s + y * c});
        p.polygon(tooth);
      }
      p.circle(cx, cy, 34);
      p.brush(kSky);
      p.circle(cx, cy, 14);
      break;
    }
  }
}

void drawIcon(Painter& p, const std::string& key) {
  p.pen(RGB(60, 60, 70), 0.8);
  if (key == "category") {
    p.brush(RGB(240, 190, 70));
    p.polygon({{1, 3}, {6, 3}, {7.5, 5}, {15, 5}, {15, 14}, {1, 14}});
  } else if (key == "company") {
    p.brush(RGB(120, 150, 190));
    p.rect(2.5, 3.5, 8, 11);
    p.rect(10.5, 7.5, 4, 7);
    p.noPen();
    p.brush(RGB(230, 240, 250));
    for (int r = 0; r < 3; ++r)
      for (int col = 0; col < 2; ++col) p.rect(4 + col * 3.5, 5 + r * 3, 2, 2);
  } else if (key == "contact" || key == "default-contact" || key == "contact-open") {
    COLORREF fill = key == "default-contact" ? RGB(70, 150, 90)
                    : key == "contact-open"  ? RGB(120, 170, 230)
                                             : RGB(90, 120, 170);
    person(p, 1, 1, 14, fill);
    if (key == "default-contact") {
      p.noPen();
      p.brush(kAccent);
      p.ellipse(10, 0, 6, 6);
    }
  }
}

}  // namespace

HBITMAP stepPicture(int number, int width, int height) {
  width = std::max(1, width);
  height = std::max(1, height);
  Canvas big(width * kSuper, height * kSuper);
  // Design units are those of a 144-pixel-wide picture.
  const double f = static_cast<double>(width * kSuper) / 144.0;
  const double dw = 144.0, dh = height * 144.0 / width;
  {
    // The background: from sky at the top left to deep blue along (0.4 w, h).
    const double gx = big.width() * 0.4, gy = big.height();
    const double len2 = gx * gx + gy * gy;
    uint32_t* px = big.pixels();
    for (int y = 0; y < big.height(); ++y)
      for (int x = 0; x < big.width(); ++x) {
        double t = std::clamp((x * gx + y * gy) / len2, 0.0, 1.0);
        auto mix = [&](int a, int b) {
          return static_cast<uint32_t>(std::lround(a + (b - a) * t));
        };
        px[static_cast<size_t>(y) * big.width() + x] =
            (mix(GetRValue(kSky), GetRValue(kDeep)) << 16) |
            (mix(GetGValue(kSky), GetGValue(kDeep)) << 8) | mix(GetBValue(kSky), GetBValue(kDeep));
      }
  }
  // Soft rings in the background.
  layer(big, f, kWhite, 28 / 255.0, [&](Painter& p) {
    p.pen(kWhite, 14);
    p.noBrush();
    p.circle(dw * 0.9, dh * 0.15, dw * 0.6);
    p.circle(dw * 0.1, dh * 0.95, dw * 0.5);
  });
  {
    Painter p(big.dc(), f, false);
    glyph(p, number, dw / 2, dh * 0.18 + dh * 0.45 / 2);
  }
  // The step's number on a badge.
  const double bx = dw / 2, by = dh * 0.82;
  layer(big, f, kWhite, 230 / 255.0, [&](Painter& p) {
    p.noPen();
    p.brush(kWhite);
    p.circle(bx, by, 20);
  });
  {
    Painter p(big.dc(), f, false);
    p.text(std::to_wstring(number), bx - 20, by - 20, 40, 40, 22, kDeep);
  }
  Canvas out(width, height);
  shrink(big, out);
  return out.release();
}

IconBitmaps nodeIcon(const std::string& key, int size) {
  size = std::max(1, size);
  const double f = static_cast<double>(size * kSuper) / 16.0;
  Canvas colour(size * kSuper, size * kSuper), cover(size * kSuper, size * kSuper);
  colour.fill(0);
  cover.fill(0);
  {
    Painter p(colour.dc(), f, false);
    drawIcon(p, key);
  }
  {
    Painter p(cover.dc(), f, true);
    drawIcon(p, key);
  }
  Canvas small(size, size), alpha(size, size);
  shrink(colour, small);
  shrink(cover, alpha);
  // Drawn on black, the averaged colour is already premultiplied by the coverage.
  uint32_t* px = small.pixels();
  const uint32_t* a = alpha.pixels();
  std::vector<uint8_t> maskBits(static_cast<size_t>((size + 15) / 16 * 2) * size, 0);
  const size_t stride = static_cast<size_t>((size + 15) / 16 * 2);
  for (int y = 0; y < size; ++y)
    for (int x = 0; x < size; ++x) {
      size_t i = static_cast<size_t>(y) * size + x;
      uint32_t cov = (a[i] >> 8) & 0xff;
      px[i] = (px[i] & 0xffffff) | (cov << 24);
      if (cov < 128) maskBits[y * stride + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
      if (cov == 0) px[i] = 0;
    }
  IconBitmaps out;
  out.mask = CreateBitmap(size, size, 1, 1, maskBits.data());
  out.color = small.release();
  return out;
}

}  // namespace dossync::win32ui
