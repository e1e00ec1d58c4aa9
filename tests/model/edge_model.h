// Per-pixel model of the edge-directed method: each pixel on its own, from which neighbours exist.
#pragma once

#include <cstdlib>
#include <vector>

#include "model/frame.h"

namespace vqt {

inline int clampByte(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

struct Directional {
    int grad, est;
};

// Green estimate along one direction through a red or blue site; s(k) is the sample k steps along it,
// has(k) whether it lies inside the frame.
template <class S, class Has>
Directional alongDirection(S s, Has has) {
    const int c = s(0);
    if (has(-1) && has(1)) { // both greens: second difference, or a single one if a far sample is missing
        const int second = (has(-2) && has(2)) ? 2 * c - s(-2) - s(2) : has(-2) ? c - s(-2) : c - s(2);
        return {std::abs(s(-1) - s(1)) + std::abs(second), ((s(-1) + s(1)) >> 1) + (second >> 2)};
    }
    const int k = has(-1) ? -1 : 1; // on the edge: the one green and the far sample on its side
    const int d = 2 * (c - s(2 * k));
    return {std::abs(d), s(k) + (d >> 2)};
}

struct EdgeResult {
    Image img;
    std::vector<int> green; // green of every site (raw or estimated)
};

inline EdgeResult edgeModel(const Mosaic &m, Phase p) {
    const int h = m.h, w = m.w;
    EdgeResult res{Image(h, w), std::vector<int>(size_t(h) * size_t(w))};
    auto G = [&](int y, int x) -> int & { return res.green[size_t(y) * size_t(w) + size_t(x)]; };
    const bool colourFirst = siteColour(p, 0, 0) != 'G';
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (siteColour(p, y, x) == 'G') {
                G(y, x) = m(y, x);
                continue;
            }
            // RGGB/BGGR frames of odd width: (0, w-3) and (1, w-2) see the frame as one column narrower.
            const bool narrower = colourFirst && w % 2 == 1 && ((y == 0 && x == w - 3) || (y == 1 && x == w - 2));
            const int right = narrower ? w - 1 : w;
            const Directional hd = alongDirection([&](int k) { return m(y, x + k); },
                                                  [&](int k) { return x + k >= 0 && x + k < right; });
            const Directional vd = alongDirection([&](int k) { return m(y + k, x); },
                                                  [&](int k) { return y + k >= 0 && y + k < h; });
            G(y, x) = clampByte(hd.grad < vd.grad ? hd.est : vd.est);
        }
    // Mean colour difference (sample minus green) over the listed neighbours that exist.
    auto mean = [&](int y, int x, std::initializer_list<std::pair<int, int>> offsets) {
        int sum = 0, n = 0;
        for (auto [dy, dx] : offsets) {
            const int yy = y + dy, xx = x + dx;
            if (yy < 0 || yy >= h || xx < 0 || xx >= w) continue;
            sum += m(yy, xx) - G(yy, xx);
            ++n;
        }
        return n == 4 ? sum >> 2 : n == 2 ? sum >> 1 : sum;
    };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const char c = siteColour(p, y, x);
            const int g = G(y, x);
            int r, b;
            if (c == 'G') {
                const int across = clampByte(g + mean(y, x, {{0, -1}, {0, 1}}));
                const int upDown = clampByte(g + mean(y, x, {{-1, 0}, {1, 0}}));
                const bool redAcross = siteColour(p, y, x > 0 ? x - 1 : x + 1) == 'R';
                r = redAcross ? across : upDown;
                b = redAcross ? upDown : across;
            } else {
                const int other = clampByte(g + mean(y, x, {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}}));
                r = c == 'R' ? m(y, x) : other;
                b = c == 'B' ? m(y, x) : other;
            }
            res.img.at(y, x) = {r, g, b};
        }
    return res;
}

// The green line after the last band that stores into it: estimates of rows rb-2 (even columns) and rb-1
// (odd columns), rb being the first row of the bottom piece.
inline std::vector<uint8_t> edgeLineAtBottom(const EdgeResult &res, Phase p) {
    const int h = res.img.h, w = res.img.w;
    const bool colourFirst = siteColour(p, 0, 0) != 'G';
    const int rb = colourFirst ? (h % 2 == 0 ? h - 2 : h - 3) : (h == 4 ? 3 : h % 2 == 1 ? h - 2 : h - 3);
    std::vector<uint8_t> line(static_cast<size_t>(w));
    for (int e = 0; e < w; ++e) line[size_t(e)] = uint8_t(res.green[size_t(rb - 2 + (e & 1)) * size_t(w) + size_t(e)]);
    return line;
}

// The bytes an edge-directed conversion leaves in a buffer pre-filled with `fill`: 4-byte layouts keep
// the fill in byte 3 except where the green line (the last w bytes of the output) left its values.
inline std::vector<uint8_t> edgeExpected(const EdgeResult &res, Phase p, uint64_t config, uint8_t fill) {
    if (outputBytes(config, res.img.h, res.img.w) != 4 * res.img.px.size()) return encode(res.img, config);
    std::vector<uint8_t> keep(4 * res.img.px.size(), fill);
    const std::vector<uint8_t> line = edgeLineAtBottom(res, p);
    std::copy(line.begin(), line.end(), keep.end() - std::ptrdiff_t(line.size()));
    return encode(res.img, config, -1, &keep);
}

} // namespace vqt
