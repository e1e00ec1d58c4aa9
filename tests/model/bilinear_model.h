// Per-pixel model of the bilinear demosaic, written pixel by pixel in the frame's own colours.
//
// Every missing colour is the truncated mean of the nearest samples of that colour: the four edge
// neighbours or the four diagonals (>> 2), or the two neighbours along the row or the column (>> 1).
// Outside the frame the mosaic is reflected about its first and last rows and columns (row -1 reads row 1,
// column w reads column w - 2). Reflection keeps the colour pattern and reproduces every border rule: a
// missing neighbour replaced by its opposite one counted twice, a lone neighbour copied, a lone diagonal
// copied. Green-first phases with an odd width add the two reuses of their top-rows routine.
#pragma once

#include "model/frame.h"

namespace vqt {

inline Image bilinearModel(const Mosaic &m, Phase p) {
    const auto reflect = [](int i, int n) { return i < 0 ? -i : (i >= n ? 2 * (n - 1) - i : i); };
    const auto M = [&](int y, int x) { return m(reflect(y, m.h), reflect(x, m.w)); };
    Image img(m.h, m.w);
    for (int y = 0; y < m.h; ++y) {
        for (int x = 0; x < m.w; ++x) {
            const int own = M(y, x);
            const int edges = (M(y - 1, x) + M(y + 1, x) + M(y, x - 1) + M(y, x + 1)) >> 2;
            const int diagonals = (M(y - 1, x - 1) + M(y - 1, x + 1) + M(y + 1, x - 1) + M(y + 1, x + 1)) >> 2;
            const int alongRow = (M(y, x - 1) + M(y, x + 1)) >> 1;
            const int alongCol = (M(y - 1, x) + M(y + 1, x)) >> 1;
            switch (siteColour(p, y, x)) {
            case 'R': img.at(y, x) = {own, edges, diagonals}; break;
            case 'B': img.at(y, x) = {diagonals, edges, own}; break;
            default: // green: the row's other colour comes from along the row, the third from along the column
                img.at(y, x) = siteColour(p, y, x ^ 1) == 'R' ? Rgb{alongRow, own, alongCol} : Rgb{alongCol, own, alongRow};
            }
        }
    }
    if ((p == Phase::GB || p == Phase::GR) && (m.w & 1)) {
        const int k = m.w - 2;
        // Green at (0, k) takes the top-left sample where its west neighbour would be.
        img.at(0, k).g = (m(0, 0) + m(0, k + 1) + 2 * m(1, k)) >> 2;
        // Row 0's other colour at (1, k) and (1, k + 1) pairs (0, k) with (2, 1) instead of (2, k).
        const int v = (m(0, k) + m(2, 1)) >> 1;
        int Rgb::*c = p == Phase::GB ? &Rgb::b : &Rgb::r;
        img.at(1, k).*c = v;
        img.at(1, k + 1).*c = v;
    }
    return img;
}

} // namespace vqt
