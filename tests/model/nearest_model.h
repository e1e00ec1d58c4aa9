// The nearest-neighbour rule stated per pixel.
#pragma once

#include "model/frame.h"

namespace vqt {

// Red and blue come from the 2x2 cell whose lower-right corner is the pixel, moved down or right in the
// top row and left column to stay inside the frame. Green at a green site is its own sample; at a red or
// blue site the green on its own row to the left, in column 0 the green above, at the top-left corner the
// green to the right. Greens are never averaged.
inline Image nearestModel(const Mosaic &m, Phase p) {
    Image img(m.h, m.w);
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x) {
            Rgb &c = img.at(y, x);
            for (int cy : {std::max(y, 1) - 1, std::max(y, 1)})
                for (int cx : {std::max(x, 1) - 1, std::max(x, 1)}) {
                    if (siteColour(p, cy, cx) == 'R') c.r = m(cy, cx);
                    if (siteColour(p, cy, cx) == 'B') c.b = m(cy, cx);
                }
            const bool own = siteColour(p, y, x) == 'G';
            c.g = own ? m(y, x) : x >= 1 ? m(y, x - 1) : y >= 1 ? m(y - 1, 0) : m(0, 1);
        }
    return img;
}

} // namespace vqt
