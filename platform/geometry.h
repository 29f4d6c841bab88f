// geometry.h - positions and sizes in pixels of the screen's own scale (logical pixels).
#pragma once

#include <algorithm>

namespace brickfall {

struct Point {
    int x = 0;
    int y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    int w = 0;
    int h = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    int x = 0;
    int y = 0;
    int w = 0;
    int h = 0;
    bool operator==(const Rect&) const = default;

    int Right() const { return x + w; }   // the first column behind it
    int Bottom() const { return y + h; }  // the first row below it
    bool Contains(Point p) const { return p.x >= x && p.x < Right() && p.y >= y && p.y < Bottom(); }
    bool Touches(const Rect& other) const {
        return x < other.Right() && other.x < Right() && y < other.Bottom() && other.y < Bottom();
    }
    Rect Grown(int by) const { return {x - by, y - by, w + 2 * by, h + 2 * by}; }
    // Moved as little as it takes to stand inside `area`; where it is too large, from its left and top edge
    // on.
    Rect MovedInside(const Rect& area) const {
        return {std::max(std::min(x, area.Right() - w), area.x),
                std::max(std::min(y, area.Bottom() - h), area.y), w, h};
    }
};

// From edge to edge, the right and bottom ones excluded.
inline Rect FromEdges(int left, int top, int right, int bottom) {
    return {left, top, right - left, bottom - top};
}

struct Monitor {
    Rect area;
    Rect work;  // without the desktop's bars
};

}  // namespace brickfall
