// Test support for the 16-bit path: random 16-bit mosaics and per-pixel statements of the bilinear
// and edge-directed rules on the whole frame, written without the library's region pieces.
// Colour images are interleaved B, G, R samples, row-major.
#pragma once

#include <cstdint>
#include <algorithm>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

namespace vqt16 {

// Phases 0..3 are RGGB, GRBG, GBRG, BGGR: the colours of the top-left 2x2 cell, row by row.
constexpr const char *kPhases[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
inline char colourAt(int phase, int y, int x) { return kPhases[phase][2 * (y & 1) + (x & 1)]; }

struct Mosaic16 {
    int h, w;
    std::vector<uint16_t> s;
    bool has(int y, int x) const { return y >= 0 && y < h && x >= 0 && x < w; }
    int operator()(int y, int x) const { return s[size_t(y) * size_t(w) + size_t(x)]; }
};

inline Mosaic16 randomMosaic16(int h, int w, int maxValue, std::mt19937 &rng) {
    Mosaic16 m{h, w, std::vector<uint16_t>(size_t(h) * size_t(w))};
    for (auto &v : m.s) v = uint16_t(std::uniform_int_distribution<int>(0, maxValue)(rng));
    return m;
}

// Truncated mean of f over the sites of colour `want` among the eight neighbours of (y, x) that
// exist. When three are found (green beside an edge) the one facing the missing one counts twice.
template <class F> int neighbourMean(const Mosaic16 &m, int phase, int y, int x, char want, F f) {
    int sum = 0, n = 0, facingY = 0, facingX = 0;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            if (colourAt(phase, y + dy, x + dx) != want) continue;
            if (m.has(y + dy, x + dx)) sum += f(y + dy, x + dx), ++n;
            else facingY = y - dy, facingX = x - dx;
        }
    if (n == 3) sum += f(facingY, facingX), ++n;
    return n == 4 ? sum >> 2 : n == 2 ? sum >> 1 : sum;
}

// ---- bilinear: every missing value is a mean of the nearest samples of its colour -------------
inline std::vector<uint16_t> bilinearModel(const Mosaic16 &m, int phase = 0) {
    std::vector<uint16_t> out;
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x)
            for (char want : {'B', 'G', 'R'})
                out.push_back(uint16_t(colourAt(phase, y, x) == want ? m(y, x)
                                                                     : neighbourMean(m, phase, y, x, want, m)));
    return out;
}

// ---- nearest: red and blue from the 2x2 cell whose lower-right corner is the pixel (moved inside the
// frame on the top row and left column); green its own, else the one to the left, in column 0 the one
// above, at the top-left corner the one to the right -------------------------------------------------
inline std::vector<uint16_t> nearestModel(const Mosaic16 &m, int phase) {
    std::vector<uint16_t> out;
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x) {
            int r = 0, b = 0;
            for (int cy : {std::max(y, 1) - 1, std::max(y, 1)})
                for (int cx : {std::max(x, 1) - 1, std::max(x, 1)}) {
                    if (colourAt(phase, cy, cx) == 'R') r = m(cy, cx);
                    if (colourAt(phase, cy, cx) == 'B') b = m(cy, cx);
                }
            const int g = colourAt(phase, y, x) == 'G' ? m(y, x) : x >= 1 ? m(y, x - 1) : y >= 1 ? m(y - 1, 0) : m(0, 1);
            out.insert(out.end(), {uint16_t(b), uint16_t(g), uint16_t(r)});
        }
    return out;
}

// ---- edge-directed ---------------------------------------------------------------------------
// Unclamped green at an R or B site. Per direction: cost |G1 - G2| + |2V - V1 - V2| and estimate
// (G1 + G2) / 2 + (2V - V1 - V2) / 4, where a missing green neighbour and the far sample behind it
// are replaced by their mirrors and a far sample missing alone by V. Horizontal only if cheaper.
inline int edgeGreenEstimate(const Mosaic16 &m, int y, int x) {
    auto along = [&](int dy, int dx) {
        auto sample = [&](int k) {
            if (!m.has(y + (k < 0 ? -dy : dy), x + (k < 0 ? -dx : dx))) k = -k;
            return m.has(y + k * dy, x + k * dx) ? m(y + k * dy, x + k * dx) : m(y, x);
        };
        const int g1 = sample(-1), g2 = sample(1), second = 2 * m(y, x) - sample(-2) - sample(2);
        return std::pair{std::abs(g1 - g2) + std::abs(second), ((g1 + g2) >> 1) + (second >> 2)};
    };
    const auto horizontal = along(0, 1), vertical = along(1, 0);
    return horizontal.first < vertical.first ? horizontal.second : vertical.second;
}

// Green, then red and blue as green plus the mean colour difference at the nearest sites of that
// colour, all clamped to [0, maximum]: the drivers' 4095 for RGGB and 65535 for the other phases
// unless given.
inline std::vector<uint16_t> edgeModel(const Mosaic16 &m, int phase, int maximum = -1) {
    if (maximum < 0) maximum = phase == 0 ? 4095 : 65535;
    auto clamp = [&](int v) { return uint16_t(v < 0 ? 0 : v > maximum ? maximum : v); };
    std::vector<int> green;
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x)
            green.push_back(colourAt(phase, y, x) == 'G' ? m(y, x) : clamp(edgeGreenEstimate(m, y, x)));
    auto G = [&](int y, int x) { return green[size_t(y) * size_t(m.w) + size_t(x)]; };
    auto difference = [&](int y, int x) { return m(y, x) - G(y, x); };
    std::vector<uint16_t> out;
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x)
            for (char want : {'B', 'G', 'R'})
                out.push_back(colourAt(phase, y, x) == want ? m(y, x)
                              : want == 'G'                 ? G(y, x)
                                  : clamp(G(y, x) + neighbourMean(m, phase, y, x, want, difference)));
    // The top-left red site of an RGGB frame: blue from the two green estimates before clamping.
    if (phase == 0) out[0] = clamp(edgeGreenEstimate(m, 0, 0) + m(1, 1) - edgeGreenEstimate(m, 1, 1));
    return out;
}

} // namespace vqt16
