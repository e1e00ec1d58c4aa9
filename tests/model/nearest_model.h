// The nearest-neighbour rule stated per pixel: red, green and blue each copied from one sample of the
// 2x2 cell whose lower-right corner is the pixel.
#pragma once

#include "model/frame.h"

namespace vqt {

inline Image nearestModel(const Mosaic &m, Phase p) {
    Image img(m.h, m.w);
    // Which rows hold red-or-blue at even columns ("A-rows"), and which colour that is.
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x) {
            // The colour at even columns of row y's neighbours decide; find the rows and columns of
            // the cell that hold red and blue.
            auto rowWith = [&](char c) {
                // the row of the cell holding colour c: this row if it has c, else the row above,
                // except at the top, where the row below is used
                for (int r : {y, y - 1, 1})
                    if (r >= 0 && r < m.h && (siteColour(p, r, 0) == c || siteColour(p, r, 1) == c)) return r;
                return -1;
            };
            auto colWith = [&](int r, char c) {
                for (int k : {x, x - 1, 1})
                    if (k >= 0 && siteColour(p, r, k) == c) return k;
                return -1;
            };
            const int rr = rowWith('R'), rb = rowWith('B');
            int gy = y, gx = x;
            if (siteColour(p, y, x) != 'G') {
                if (x >= 1) gx = x - 1;          // the green on the pixel's own row, to its left
                else if (y >= 1) gy = y - 1;     // column 0: the green above
                else gx = 1;                     // top-left: the green to its right
            }
            img.at(y, x) = {m(rr, colWith(rr, 'R')), m(gy, gx), m(rb, colWith(rb, 'B'))};
        }
    return img;
}

} // namespace vqt
