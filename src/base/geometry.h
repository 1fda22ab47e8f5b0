// Points, sizes and rectangles in points. Screen rectangles in the core have their origin at the
// bottom-left of the primary screen, y growing upwards, as on macOS; each platform converts.
#pragma once

#include <algorithm>
#include <ostream>

namespace mirlo {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double minX() const { return std::min(x, x + width); }
  double maxX() const { return std::max(x, x + width); }
  double minY() const { return std::min(y, y + height); }
  double maxY() const { return std::max(y, y + height); }
  Point origin() const { return {x, y}; }
  Size size() const { return {width, height}; }

  // Grown by `d` on every side (a negative `d` shrinks it).
  Rect outset(double d) const { return {x - d, y - d, width + 2 * d, height + 2 * d}; }

  // Like the platform's point-in-rect test: the minimum edges are inside, the maximum ones not.
  bool contains(Point p) const { return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY(); }

  bool intersects(const Rect& o) const {
    if (width == 0 || height == 0 || o.width == 0 || o.height == 0) return false;
    return minX() < o.maxX() && o.minX() < maxX() && minY() < o.maxY() && o.minY() < maxY();
  }

  friend bool operator==(const Rect&, const Rect&) = default;
};

inline std::ostream& operator<<(std::ostream& os, const Rect& r) {
  return os << "(" << r.x << ", " << r.y << ", " << r.width << ", " << r.height << ")";
}
inline std::ostream& operator<<(std::ostream& os, const Point& p) { return os << "(" << p.x << ", " << p.y << ")"; }

}  // namespace mirlo
