// Test support for the 16-bit path: random 16-bit mosaics and per-pixel statements of the bilinear
// and edge-directed rules on the whole frame, written without the library's region pieces.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

namespace vqt16 {

enum class Bayer { RGGB, GRBG, GBRG, BGGR };
constexpr Bayer kBayers[] = {Bayer::RGGB, Bayer::GRBG, Bayer::GBRG, Bayer::BGGR};
inline const char *name(Bayer p) {
    switch (p) {
    case Bayer::RGGB: return "RGGB";
    case Bayer::GRBG: return "GRBG";
    case Bayer::GBRG: return "GBRG";
    case Bayer::BGGR: return "BGGR";
    }
    return "?";
}

// 'R', 'G' or 'B' at (y, x).
inline char colourAt(Bayer p, int y, int x) {
    const bool oddRow = y & 1, oddCol = x & 1;
    const bool redRow = (p == Bayer::RGGB || p == Bayer::GRBG) ? !oddRow : oddRow;
    const bool redCol = (p == Bayer::RGGB || p == Bayer::GBRG) ? !oddCol : oddCol;
    if (redRow == redCol) return redRow ? 'R' : 'B';
    return 'G';
}

struct Mosaic16 {
    int h, w;
    std::vector<uint16_t> s;
    Mosaic16(int height, int width, uint16_t fill = 0) : h(height), w(width), s(size_t(height) * size_t(width), fill) {}
    bool has(int y, int x) const { return y >= 0 && y < h && x >= 0 && x < w; }
    int operator()(int y, int x) const { return s[size_t(y) * size_t(w) + size_t(x)]; }
    uint16_t &at(int y, int x) { return s[size_t(y) * size_t(w) + size_t(x)]; }
};

inline Mosaic16 randomMosaic16(int h, int w, int maxValue, std::mt19937 &rng) {
    Mosaic16 m(h, w);
    std::uniform_int_distribution<int> d(0, maxValue);
    for (auto &v : m.s) v = uint16_t(d(rng));
    return m;
}

struct Bgr {
    int b, g, r;
    bool operator==(const Bgr &) const = default;
};

// A colour image in B, G, R sample order, row-major.
struct Colour16 {
    int h, w;
    std::vector<Bgr> px;
    Colour16(int height, int width) : h(height), w(width), px(size_t(height) * size_t(width)) {}
    Bgr &at(int y, int x) { return px[size_t(y) * size_t(w) + size_t(x)]; }
    const Bgr &at(int y, int x) const { return px[size_t(y) * size_t(w) + size_t(x)]; }
};

// Reads an interleaved buffer with B at `blueAt` and R at 2 - blueAt.
inline Colour16 fromInterleaved(const std::vector<uint16_t> &d, int h, int w, int blueAt = 0) {
    Colour16 c(h, w);
    for (size_t i = 0; i < c.px.size(); ++i) c.px[i] = {d[3 * i + blueAt], d[3 * i + 1], d[3 * i + 2 - blueAt]};
    return c;
}

// ---- bilinear --------------------------------------------------------------------------------
// Every missing value is the truncated mean of the neighbours of that colour that exist: the two
// in line at a green site, the four diagonals at an R or B site, the four direct neighbours for green.
// When green has only three neighbours, the one facing the missing one is counted twice.
inline Colour16 bilinearModel(const Mosaic16 &m) {
    Colour16 out(m.h, m.w);
    const int cross[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    const int diagonal[4][2] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x) {
            const char site = colourAt(Bayer::RGGB, y, x);
            auto value = [&](char want) -> int {
                if (site == want) return m(y, x);
                unsigned sum = 0, n = 0;
                if (want == 'G') {
                    int missing = -1;
                    for (int i = 0; i < 4; ++i) {
                        if (m.has(y + cross[i][0], x + cross[i][1])) sum += unsigned(m(y + cross[i][0], x + cross[i][1])), ++n;
                        else missing = i;
                    }
                    if (n == 3) sum += unsigned(m(y - cross[missing][0], x - cross[missing][1]));
                    return int(n == 2 ? sum >> 1 : sum >> 2);
                }
                const auto &around = site == 'G' ? cross : diagonal;
                for (int i = 0; i < 4; ++i) {
                    const int ny = y + around[i][0], nx = x + around[i][1];
                    if (m.has(ny, nx) && colourAt(Bayer::RGGB, ny, nx) == want) sum += unsigned(m(ny, nx)), ++n;
                }
                return int(n == 4 ? sum >> 2 : n == 2 ? sum >> 1 : sum);
            };
            out.at(y, x) = {value('B'), value('G'), value('R')};
        }
    return out;
}

// ---- edge-directed ---------------------------------------------------------------------------
inline int maximumFor(Bayer p) { return p == Bayer::RGGB ? 4095 : 65535; }

inline int clampTo(int v, int maximum) { return v < 0 ? 0 : v > maximum ? maximum : v; }

// Green at an R or B site, unclamped. Per direction: the full form with both neighbours and both
// far samples, the single difference when one far sample is missing, the edge form when a
// neighbour is missing. Horizontal wins only when strictly cheaper.
inline int edgeGreenEstimate(const Mosaic16 &m, int y, int x) {
    struct Option {
        int cost, value;
    };
    auto direction = [&](int dy, int dx) -> Option {
        const int v = m(y, x);
        const bool before = m.has(y - dy, x - dx), after = m.has(y + dy, x + dx);
        if (!before || !after) {
            const int k = before ? -1 : 1;
            const int diff = v - m(y + 2 * k * dy, x + 2 * k * dx);
            return {2 * std::abs(diff), m(y + k * dy, x + k * dx) + ((2 * diff) >> 2)};
        }
        const int g1 = m(y - dy, x - dx), g2 = m(y + dy, x + dx);
        const bool farBefore = m.has(y - 2 * dy, x - 2 * dx), farAfter = m.has(y + 2 * dy, x + 2 * dx);
        int term;
        if (farBefore && farAfter) term = 2 * v - m(y - 2 * dy, x - 2 * dx) - m(y + 2 * dy, x + 2 * dx);
        else term = v - (farBefore ? m(y - 2 * dy, x - 2 * dx) : m(y + 2 * dy, x + 2 * dx));
        return {std::abs(g1 - g2) + std::abs(term), ((g1 + g2) >> 1) + (term >> 2)};
    };
    const Option horizontal = direction(0, 1), vertical = direction(1, 0);
    return horizontal.cost < vertical.cost ? horizontal.value : vertical.value;
}

inline Colour16 edgeModel(const Mosaic16 &m, Bayer p) {
    const int maximum = maximumFor(p);
    std::vector<int> green(m.s.size());
    auto G = [&](int y, int x) -> int & { return green[size_t(y) * size_t(m.w) + size_t(x)]; };
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x)
            G(y, x) = colourAt(p, y, x) == 'G' ? m(y, x) : clampTo(edgeGreenEstimate(m, y, x), maximum);

    Colour16 out(m.h, m.w);
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x) {
            const char site = colourAt(p, y, x);
            auto value = [&](char want) -> int {
                if (site == want) return m(y, x);
                // The nearest sites of the wanted colour: diagonal from the other colour, in line
                // (whichever line holds that colour) from green.
                int sum = 0, n = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int ny = y + dy, nx = x + dx;
                        if ((dy == 0 && dx == 0) || !m.has(ny, nx) || colourAt(p, ny, nx) != want) continue;
                        sum += m(ny, nx) - G(ny, nx);
                        ++n;
                    }
                const int base = site == 'G' ? m(y, x) : G(y, x);
                return clampTo(base + (n == 4 ? sum >> 2 : n == 2 ? sum >> 1 : sum), maximum);
            };
            out.at(y, x) = {value('B'), G(y, x), value('R')};
        }
    // The top-left red site of an RGGB frame: blue from the two green estimates before clamping.
    if (p == Bayer::RGGB)
        out.at(0, 0).b = clampTo(edgeGreenEstimate(m, 0, 0) + m(1, 1) - edgeGreenEstimate(m, 1, 1), maximum);
    return out;
}

} // namespace vqt16
