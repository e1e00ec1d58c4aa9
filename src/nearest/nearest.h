// Nearest-neighbour demosaic: every output pixel copies one red, one green and one blue sample of the
// 2x2 cell whose lower-right corner it is (moved down or right in the top row and left column).
//
// Both kernel phases have red at even columns and blue at odd columns. An R-row reads R G R G ..., a
// B-row G B G B ...; RGGB has R-rows at even rows, GBRG at odd rows. Green at an R or B site is the
// left neighbour on the pixel's own row; in column 0 (always an R site) it is the green above, or, for
// the top-left pixel of an RGGB frame, the green to its right. Greens are never averaged.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/pixel_store.h"
#include "core/rows.h"
#include "simd/dispatch.h"

namespace vq::nearest {

// One R-row: `own` is the row, `bRow` the B-row that gives blue, `green0` the green of column 0.
// `done`: the columns before it are written already (by a deep-input interior).
template <class Store>
void rRow(const uint8_t *own, const uint8_t *bRow, uint8_t green0, int32_t w, const Store &out, int32_t done = 1) {
    out.put(0, own[0], green0, bRow[1]);
    int32_t x = done;
    if (const auto vectorRow = simd::kernels<Store>().nearestRRow; vectorRow != nullptr && x == 1)
        x = vectorRow(own, bRow, w, out);
    for (; x + 1 < w; x += 2) {
        out.put(x, own[x - 1], own[x], bRow[x]);     // G site
        out.put(x + 1, own[x + 1], own[x], bRow[x]); // R site: green from the left
    }
    if (x < w) out.put(x, own[x - 1], own[x], bRow[x]); // even width: last column, a G site
}

// One B-row: `own` is the row, `rRow` the R-row that gives red.
template <class Store>
void bRow(const uint8_t *own, const uint8_t *rRowAbove, int32_t w, const Store &out, int32_t done = 1) {
    out.put(0, rRowAbove[0], own[0], own[1]);
    int32_t x = done;
    if (const auto vectorRow = simd::kernels<Store>().nearestBRow; vectorRow != nullptr && x == 1)
        x = vectorRow(own, rRowAbove, w, out);
    for (; x + 1 < w; x += 2) {
        out.put(x, rRowAbove[x - 1], own[x - 1], own[x]);     // B site: green from the left
        out.put(x + 1, rRowAbove[x + 1], own[x + 1], own[x]); // G site
    }
    if (x < w) out.put(x, rRowAbove[x - 1], own[x - 1], own[x]); // even width: last column, a B site
}

// Rows y (a B-row) and y + 1 (an R-row) from rows y - 1, y and y + 1.
template <class Store>
void body(const uint8_t *src, int32_t y, int32_t w, const Store &out, RowSpan rows) {
    const uint8_t *above = rows.row(src, y - 1, w);
    const uint8_t *row = above + w;
    const uint8_t *below = row + w;
    const Store bOut = out.at(ptrdiff_t{y} * w), rOut = out.at(ptrdiff_t{y + 1} * w);
    int32_t done = 1;
    if (rows.deep != nullptr) {
        const unsigned char *deep[3];
        rows.deepRows(y - 1, deep);
        done = simd::kernels<Store>().nearestRowsDeep(deep, rows.deepRule, w, w - 2, bOut, rOut);
    }
    bRow(row, above, w, bOut, done);
    rRow(below, row, row[0], w, rOut, done);
}

// The final row, a B-row, from the R-row above it.
template <class Store>
void lastRow(const uint8_t *src, int32_t h, int32_t w, const Store &out, RowSpan rows) {
    const uint8_t *above = rows.row(src, h - 2, w);
    bRow(above + w, above, w, out.at(ptrdiff_t{h - 1} * w));
}

// RGGB: row 0, the pairs from row 1, and a last B-row when the height is even. A band (`rows`) starts
// at row 0 or at an odd row.
template <class Store>
void nearestRGGB(const uint8_t *src, int32_t h, int32_t w, const Store &out, RowSpan rows = kAllRows) {
    if (rows.top()) rRow(src, src + w, src[1], w, out); // top-left: no green above, the one to the right
    for (int32_t y = rows.firstPair(1); y < rows.pairEnd(h - 1); y += 2) body(src, y, w, out, rows);
    if (rows.bottom(h) && (h & 1) == 0) lastRow(src, h, w, out, rows);
}

// GBRG: rows 0 and 1, the pairs from row 2, and a last B-row when the height is odd. A band (`rows`)
// starts at row 0 or at an even row.
template <class Store>
void nearestGBRG(const uint8_t *src, int32_t h, int32_t w, const Store &out, RowSpan rows = kAllRows) {
    if (rows.top()) {
        bRow(src, src + w, w, out);               // row 0 takes red from row 1 below it
        rRow(src + w, src, src[0], w, out.at(w)); // row 1 takes blue from row 0
    }
    for (int32_t y = rows.firstPair(2); y < rows.pairEnd(h - 1); y += 2) body(src, y, w, out, rows);
    if (rows.bottom(h) && (h & 1) == 1) lastRow(src, h, w, out, rows);
}

} // namespace vq::nearest
