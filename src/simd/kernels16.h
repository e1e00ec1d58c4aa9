// The 16-bit bilinear body written once over the operations layer `O` (ops_x86.h, ops_neon.h) and
// instantiated per instruction set by src/simd/kernels16_<isa>.cpp. Everything is local to that unit.
//
// Lanes hold 16-bit samples, one pixel each. Means are formed without leaving 16 bits, exactly:
//   floor((a + b) / 2)          = (a & b) + ((a ^ b) >> 1)
//   floor((a + b + c + d) / 4)  = floor((m1 + m2 + e) / 2) with m1, m2 the two pair means and e = 1 when
//                                 both pairs dropped a bit: mean(m1, m2) + (((m1 ^ m2) & 1) & e).
// Samples are read and written through byte addresses: frames may start at any address.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/dispatch.h"

namespace {

template <class O>
struct Means16 {
    using W = typename O::W;
    static W mean2(W a, W b) { return O::add(O::and_(a, b), O::template srl<1>(O::xor_(a, b))); }
    static W mean4(W a, W b, W c, W d) {
        const W one = O::set1(1);
        const W m1 = mean2(a, b), m2 = mean2(c, d);
        const W both = O::and_(O::and_(O::xor_(a, b), O::xor_(c, d)), one);
        return O::add(mean2(m1, m2), O::and_(O::xor_(m1, m2), both));
    }
};

// The rows around a vector of pixels from column x: the samples at x - 1, x and x + 1 of rows n, c, s.
template <class O>
struct Rows16 {
    using W = typename O::W;
    W nl, n, nr, cl, c, cr, sl, s, sr;
    Rows16(const unsigned char *north, const unsigned char *centre, const unsigned char *south, ptrdiff_t x)
        : nl(O::load16b(north + 2 * (x - 1))), n(O::load16b(north + 2 * x)), nr(O::load16b(north + 2 * (x + 1))),
          cl(O::load16b(centre + 2 * (x - 1))), c(O::load16b(centre + 2 * x)), cr(O::load16b(centre + 2 * (x + 1))),
          sl(O::load16b(south + 2 * (x - 1))), s(O::load16b(south + 2 * x)), sr(O::load16b(south + 2 * (x + 1))) {}
};

// Red, green and blue of one row's N pixels from an odd column: even lanes are the odd columns.
template <class O>
struct Rgb16 {
    typename O::W r, g, b;
};

// A blue row (B at odd columns, G at even ones) and the red row below it (G at odd, R at even columns).
template <class O>
Rgb16<O> blueRow(const Rows16<O> &v) {
    using M = Means16<O>;
    const auto diagonal = M::mean4(v.nl, v.nr, v.sl, v.sr), cross = M::mean4(v.cl, v.cr, v.n, v.s);
    return {O::oddFrom(diagonal, M::mean2(v.n, v.s)), O::oddFrom(cross, v.c), O::oddFrom(v.c, M::mean2(v.cl, v.cr))};
}
template <class O>
Rgb16<O> redRow(const Rows16<O> &v) {
    using M = Means16<O>;
    const auto cross = M::mean4(v.cl, v.cr, v.n, v.s), diagonal = M::mean4(v.nl, v.nr, v.sl, v.sr);
    return {O::oddFrom(M::mean2(v.cl, v.cr), v.c), O::oddFrom(v.c, cross), O::oddFrom(M::mean2(v.n, v.s), diagonal)};
}

// Rows r (blue) and r + 1 (red) of the body, from r0 = row r - 1 (rows of w samples), pixels from column 1
// while a whole vector ends at or before colEnd. Interleaved B, G, R (R, G, B when redFirst): blueOut and
// redOut address pixel 0 of their rows. Returns the first column not written (odd).
template <class O>
int32_t rowsInterleaved(const unsigned char *r0, ptrdiff_t w, int32_t colEnd, unsigned char *blueOut,
                        unsigned char *redOut, int redFirst) {
    const unsigned char *r1 = r0 + 2 * w, *r2 = r1 + 2 * w, *r3 = r2 + 2 * w;
    int32_t x = 1;
    for (; x + O::N <= colEnd; x += O::N) {
        const Rgb16<O> b = blueRow<O>(Rows16<O>(r0, r1, r2, x)), r = redRow<O>(Rows16<O>(r1, r2, r3, x));
        if (redFirst) {
            O::store3x16b(blueOut + 6 * ptrdiff_t{x}, b.r, b.g, b.b);
            O::store3x16b(redOut + 6 * ptrdiff_t{x}, r.r, r.g, r.b);
        } else {
            O::store3x16b(blueOut + 6 * ptrdiff_t{x}, b.b, b.g, b.r);
            O::store3x16b(redOut + 6 * ptrdiff_t{x}, r.b, r.g, r.r);
        }
    }
    return x;
}

// The same into three planes: planes[0..2] address pixel 0 of the blue row in the blue, green and red
// planes; the red row is w samples further.
template <class O>
int32_t rowsPlanar(const unsigned char *r0, ptrdiff_t w, int32_t colEnd, unsigned char *const *planes) {
    const unsigned char *r1 = r0 + 2 * w, *r2 = r1 + 2 * w, *r3 = r2 + 2 * w;
    int32_t x = 1;
    for (; x + O::N <= colEnd; x += O::N) {
        const Rgb16<O> b = blueRow<O>(Rows16<O>(r0, r1, r2, x)), r = redRow<O>(Rows16<O>(r1, r2, r3, x));
        const ptrdiff_t at = 2 * ptrdiff_t{x}, below = at + 2 * w;
        O::store16b(planes[0] + at, b.b), O::store16b(planes[1] + at, b.g), O::store16b(planes[2] + at, b.r);
        O::store16b(planes[0] + below, r.b), O::store16b(planes[1] + below, r.g), O::store16b(planes[2] + below, r.r);
    }
    return x;
}

template <class O>
void installKernels16(vq::simd::Table &t) {
    t.u16BilinearRows = rowsInterleaved<O>;
    t.u16BilinearRowsPlanar = rowsPlanar<O>;
}

} // namespace
