// Per-pixel model of the edge-directed method: each pixel on its own, from which neighbours exist.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <utility>
#include <vector>

#include "model/frame.h"

namespace vqt {

struct Directional { int grad, est; };
inline bool inside(int y, int x, int h, int w) { return y >= 0 && y < h && x >= 0 && x < w; }

// Green estimate through the red or blue site (y, x) along (dy, dx), in a frame `right` columns wide.
inline Directional along(const Mosaic &m, int y, int x, int dy, int dx, int right) {
    auto s = [&](int k) { return m(y + k * dy, x + k * dx); };
    auto has = [&](int k) { return inside(y + k * dy, x + k * dx, m.h, right); };
    const int c = s(0);
    if (has(-1) && has(1)) { // both greens: second difference, or a single one if a far sample is missing
        const int second = (has(-2) && has(2)) ? 2 * c - s(-2) - s(2) : c - s(has(-2) ? -2 : 2);
        return {std::abs(s(-1) - s(1)) + std::abs(second), ((s(-1) + s(1)) >> 1) + (second >> 2)};
    }
    const int k = has(-1) ? -1 : 1, d = 2 * (c - s(2 * k)); // on the edge: the one green, the far sample beyond
    return {std::abs(d), s(k) + (d >> 2)};
}

struct EdgeResult { Image img; std::vector<int> green; }; // green of every site, raw or estimated

inline EdgeResult edgeModel(const Mosaic &m, Phase p) {
    const int h = m.h, w = m.w;
    EdgeResult res{Image(h, w), std::vector<int>(m.s.size())};
    auto G = [&](int y, int x) -> int & { return res.green[size_t(y * w + x)]; };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            G(y, x) = m(y, x);
            if (siteColour(p, y, x) == 'G') continue;
            // RGGB/BGGR frames of odd width: (0, w-3) and (1, w-2) see the frame as one column narrower.
            const int right = siteColour(p, 0, 0) != 'G' && w % 2 == 1 && y < 2 && x == w - 3 + y ? w - 1 : w;
            const Directional hd = along(m, y, x, 0, 1, right), vd = along(m, y, x, 1, 0, w);
            G(y, x) = std::clamp(hd.grad < vd.grad ? hd.est : vd.est, 0, 255);
        }
    // Green plus the mean colour difference (sample minus green) of the listed neighbours that exist:
    // one taken whole, two halved, four quartered.
    auto plusMean = [&](int y, int x, std::initializer_list<std::pair<int, int>> offsets) {
        int sum = 0, n = 0;
        for (auto [dy, dx] : offsets)
            if (inside(y + dy, x + dx, h, w)) sum += m(y + dy, x + dx) - G(y + dy, x + dx), ++n;
        return std::clamp(G(y, x) + (sum >> (n / 2)), 0, 255);
    };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const char c = siteColour(p, y, x);
            Rgb &px = res.img.at(y, x);
            px.g = G(y, x);
            if (c == 'G') { // the colour beside it from left and right, the other from above and below
                const int across = plusMean(y, x, {{0, -1}, {0, 1}}), upDown = plusMean(y, x, {{-1, 0}, {1, 0}});
                const bool redAcross = siteColour(p, y, x ^ 1) == 'R';
                px.r = redAcross ? across : upDown;
                px.b = redAcross ? upDown : across;
            } else {
                const int other = plusMean(y, x, {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}});
                px.r = c == 'R' ? m(y, x) : other;
                px.b = c == 'B' ? m(y, x) : other;
            }
        }
    return res;
}

// Entry e of the green line the conversion leaves behind: the estimate at column e of the last row with
// red or blue sites at even columns that lies at or above max(h-4, 1) (even e), or of the row below (odd e).
inline int edgeLineEntry(const EdgeResult &res, Phase p, int e) {
    const int first = siteColour(p, 0, 0) == 'G', top = first + ((std::max(res.img.h - 4, 1) - first) & ~1);
    return res.green[size_t((top + (e & 1)) * res.img.w + e)];
}

} // namespace vqt
