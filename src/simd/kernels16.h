// The 16-bit bilinear body and edge-directed kernel, written once over the operations layer `O`
// (ops_x86.h, ops_neon.h) and instantiated per instruction set by src/simd/kernels16_<isa>.cpp. Everything
// is local to that unit.
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
#include "simd/steps.h"

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
// redOut address pixel 0 of their rows. Returns the first column not written (odd). Fetches the rows of
// `ahead` as it goes.
template <class O>
int32_t rowsInterleaved(const unsigned char *r0, ptrdiff_t w, int32_t colEnd, unsigned char *blueOut,
                        unsigned char *redOut, int redFirst, const vq::simd::Ahead &ahead) {
    const unsigned char *r1 = r0 + 2 * w, *r2 = r1 + 2 * w, *r3 = r2 + 2 * w;
    return stepsTo<O>(colEnd, [&](int32_t x) {
        fetchAhead(ahead, x, O::N);
        const Rgb16<O> b = blueRow<O>(Rows16<O>(r0, r1, r2, x)), r = redRow<O>(Rows16<O>(r1, r2, r3, x));
        if (redFirst) {
            O::store3x16b(blueOut + 6 * ptrdiff_t{x}, b.r, b.g, b.b);
            O::store3x16b(redOut + 6 * ptrdiff_t{x}, r.r, r.g, r.b);
        } else {
            O::store3x16b(blueOut + 6 * ptrdiff_t{x}, b.b, b.g, b.r);
            O::store3x16b(redOut + 6 * ptrdiff_t{x}, r.b, r.g, r.r);
        }
    });
}

// The same into three planes: planes[0..2] address pixel 0 of the blue row in the blue, green and red
// planes; the red row is w samples further.
template <class O>
int32_t rowsPlanar(const unsigned char *r0, ptrdiff_t w, int32_t colEnd, unsigned char *const *planes,
                   const vq::simd::Ahead &ahead) {
    const unsigned char *r1 = r0 + 2 * w, *r2 = r1 + 2 * w, *r3 = r2 + 2 * w;
    return stepsTo<O>(colEnd, [&](int32_t x) {
        fetchAhead(ahead, x, O::N);
        const Rgb16<O> b = blueRow<O>(Rows16<O>(r0, r1, r2, x)), r = redRow<O>(Rows16<O>(r1, r2, r3, x));
        const ptrdiff_t at = 2 * ptrdiff_t{x}, below = at + 2 * w;
        O::store16b(planes[0] + at, b.b), O::store16b(planes[1] + at, b.g), O::store16b(planes[2] + at, b.r);
        O::store16b(planes[0] + below, r.b), O::store16b(planes[1] + below, r.g), O::store16b(planes[2] + below, r.r);
    });
}

// ---- 16-bit edge-directed kernel -------------------------------------------------------------------------
//
// One row pair (y an R/G row, y+1 a G/B row), N32 steps a vector: lane i is the step centred on the red
// site (y, x+2i). Samples are loaded as 32-bit pairs (the even column in the low half, the odd one in the
// high half), so every step's own columns sit in its lane; the arithmetic runs in 32-bit lanes, as the
// differences of 16-bit samples need. Greens of the two rows above come from the destination, greens of the
// step before from the previous lane (the destination for the first). Each vector then writes row y whole
// from the column before its first step (that column's blue comes from the step before), red into the row
// above, and green and blue into row y+1 (its red waits for the next pair).
template <class O>
int32_t edgePair(const unsigned char *s0, ptrdiff_t w, unsigned char *d0, int32_t x0, int32_t columnEnd,
                 int32_t maximum, const vq::simd::Ahead &ahead) {
    using D = typename O::D;
    constexpr int S = O::N32; // steps a vector: 2S pixels
    ptrdiff_t x = x0;
    if (x + 2 * S > columnEnd) return x0;
    const ptrdiff_t sr = 2 * w, dr = 6 * w; // row strides in bytes
    const unsigned char *sm2 = s0 - 2 * sr, *sm1 = s0 - sr, *s1 = s0 + sr, *s2 = s0 + 2 * sr, *s3 = s0 + 3 * sr;
    unsigned char *dm2 = d0 - 2 * dr, *dm1 = d0 - dr, *d1 = d0 + dr;
    enum { B = 0, G = 1, R = 2 };

    const auto at = [](const unsigned char *row, ptrdiff_t c) { return O::toD(O::load16b(row + 2 * c)); };
    const auto sample = [](const unsigned char *p, ptrdiff_t i) {
        uint16_t v;
        __builtin_memcpy(&v, p + 2 * i, 2);
        return uint32_t{v};
    };
    const D low = O::set1_32(0xFFFF), top = O::set1_32(maximum);
    const auto lo = [&](D v) { return O::and_(v, low); };
    const auto hi = [](D v) { return O::template srl32<16>(v); };
    const auto pair = [](D even, D odd) { return O::or_(even, O::template sll32<16>(odd)); };
    const auto clamp = [&](D v) { return O::clamp32(v, top); };
    const auto twice = [](D v) { return O::add32(v, v); };
    const auto quarter = [](D v) { return O::template sra32<2>(v); };
    const auto mean = [](D u, D v) { return O::template srl32<1>(O::add32(u, v)); }; // of two samples
    // A value plus the mean of two or four colour differences (arithmetic shifts), clamped.
    const auto plusHalf = [&](D base, D d1, D d2) {
        return clamp(O::add32(base, O::template sra32<1>(O::add32(d1, d2))));
    };
    const auto plusQuarter = [&](D base, D d1, D d2, D d3, D d4) {
        return clamp(O::add32(base, quarter(O::add32(O::add32(d1, d2), O::add32(d3, d4)))));
    };
    const auto greens = [](const unsigned char *row) { return O::toD(O::template channel3x16b<G>(row)); };
    // Green at a red or blue site c: along each direction the greens beside it (m1, p1) and the samples of
    // its own colour two away (m2, p2); the smaller cost wins, ties vertical.
    const auto green = [&](D hm2, D hm1, D c, D hp1, D hp2, D vm2, D vm1, D vp1, D vp2) {
        const D secondH = O::sub32(O::sub32(twice(c), hm2), hp2), secondV = O::sub32(O::sub32(twice(c), vm2), vp2);
        const D costH = O::add32(O::abs32(O::sub32(hm1, hp1)), O::abs32(secondH));
        const D costV = O::add32(O::abs32(O::sub32(vm1, vp1)), O::abs32(secondV));
        return clamp(O::pickNotLess32(costH, costV, O::add32(quarter(secondV), mean(vm1, vp1)),
                                      O::add32(quarter(secondH), mean(hm1, hp1))));
    };

    // The step before x0: its lane is the last of a vector.
    D prevGreenA, prevGreenB, prevBlueRight, prevAbove2, prevAbove1;
    {
        alignas(64) uint32_t lanes[5][S] = {};
        lanes[0][S - 1] = sample(d0, 3 * (x - 2) + G);
        lanes[1][S - 1] = sample(d1, 3 * (x - 1) + G);
        lanes[2][S - 1] = sample(d0, 3 * (x - 1) + B);
        lanes[3][S - 1] = sample(dm2, 3 * (x - 2) + G) | sample(dm2, 3 * (x - 1) + G) << 16;
        lanes[4][S - 1] = sample(dm1, 3 * (x - 2) + G) | sample(dm1, 3 * (x - 1) + G) << 16;
        const auto load = [&](int k) { return O::toD(O::load16b(reinterpret_cast<const unsigned char *>(lanes[k]))); };
        prevGreenA = load(0), prevGreenB = load(1), prevBlueRight = load(2), prevAbove2 = load(3), prevAbove1 = load(4);
    }

    for (; x + 2 * S <= columnEnd; x += 2 * S) {
        fetchAhead(ahead, x, 2 * S);
        const D row0 = at(s0, x), row0L = at(s0, x - 2), row0R = at(s0, x + 2);
        const D row1 = at(s1, x), row1L = at(s1, x - 2), row1R = at(s1, x + 2);
        const D up2 = at(sm2, x), up2L = at(sm2, x - 2), up1 = at(sm1, x), up1L = at(sm1, x - 2);
        const D down2 = at(s2, x), down3 = at(s3, x);

        // Green at the red site (y, x) and at the blue site (y+1, x+1).
        const D a = lo(row0), left = hi(row0L), right = hi(row0), b = hi(row1);
        const D greenA = green(lo(row0L), left, a, right, lo(row0R), lo(up2), lo(up1), lo(row1), lo(down2));
        const D greenB = green(hi(row1L), lo(row1), b, lo(row1R), hi(row1R), hi(up1), right, hi(down2), hi(down3));

        // Greens around: rows y-2 and y-1 at the step's columns and the step before, the step before's own.
        const D above2 = greens(dm2 + 6 * x), above1 = greens(dm1 + 6 * x);
        const D above2L = O::laneBack32(prevAbove2, above2), above1L = O::laneBack32(prevAbove1, above1);
        const D greenAL = O::laneBack32(prevGreenA, greenA), greenBL = O::laneBack32(prevGreenB, greenB);

        const D dR = O::sub32(a, greenA), dB = O::sub32(b, greenB);
        const D dRUp = O::sub32(lo(up2), lo(above2));
        const D dRLeft = O::sub32(lo(row0L), greenAL);
        const D dRUpLeft = O::sub32(lo(up2L), lo(above2L));
        const D dBUpLeft = O::sub32(hi(up1L), hi(above1L));
        const D dBUpRight = O::sub32(hi(up1), hi(above1));
        const D dBLeft = O::sub32(hi(row1L), greenBL);

        // Row y-1: red of (y-1, x-1) and (y-1, x).
        const D redUpLeft = plusQuarter(hi(above1L), dRLeft, dRUpLeft, dRUp, dR), redUp = plusHalf(lo(up1), dRUp, dR);
        const D zero = O::set1_32(0);
        O::template replace3x16b<1 << R>(dm1 + 6 * (x - 1), O::toW(zero), O::toW(zero), O::toW(pair(redUpLeft, redUp)));
        // Row y whole, pixels x-1 (a green site) and x (the red site).
        const D redLeft = plusHalf(left, dRLeft, dR);
        const D blueHere = plusQuarter(greenA, dBUpLeft, dBUpRight, dBLeft, dB);
        const D blueRight = plusHalf(right, dBUpRight, dB);
        O::store3x16b(d0 + 6 * (x - 1), O::toW(pair(O::laneBack32(prevBlueRight, blueRight), blueHere)),
                      O::toW(pair(left, greenA)), O::toW(pair(redLeft, a)));
        // Row y+1: green and blue of (y+1, x) and (y+1, x+1).
        const D blueBelow = plusHalf(lo(row1), dBLeft, dB);
        O::template replace3x16b<1 << B | 1 << G>(d1 + 6 * x, O::toW(pair(blueBelow, b)),
                                                  O::toW(pair(lo(row1), greenB)), O::toW(zero));

        prevGreenA = greenA, prevGreenB = greenB, prevBlueRight = blueRight, prevAbove2 = above2, prevAbove1 = above1;
    }

    // Column x-1 of row y: its green and blue are the last step's; its red is the next step's.
    alignas(64) uint32_t lanes[S];
    O::store16b(reinterpret_cast<unsigned char *>(lanes), O::toW(prevBlueRight));
    const uint16_t blue = static_cast<uint16_t>(lanes[S - 1]);
    __builtin_memcpy(d0 + 2 * (3 * (x - 1) + B), &blue, 2);
    __builtin_memcpy(d0 + 2 * (3 * (x - 1) + G), s0 + 2 * (x - 1), 2);
    return static_cast<int32_t>(x);
}

// ---- deep input as full samples --------------------------------------------------------------------------

// The bits set in any of the first samples of src, a whole vector at a time; *done: how many it looked at.
template <class O>
uint32_t orSamples(const unsigned char *src, ptrdiff_t n, ptrdiff_t *done) {
    using D = typename O::D;
    const auto at = [&](ptrdiff_t i) { return O::toD(O::load16b(src + 2 * i)); };
    D acc = O::set1_32(0);
    ptrdiff_t i = 0;
    for (; i + 4 * O::N <= n; i += 4 * O::N)
        acc = O::or_(acc, O::or_(O::or_(at(i), at(i + O::N)), O::or_(at(i + 2 * O::N), at(i + 3 * O::N))));
    for (; i + O::N <= n; i += O::N) acc = O::or_(acc, at(i));
    alignas(64) uint16_t lanes[O::N];
    O::store16b(reinterpret_cast<unsigned char *>(lanes), O::toW(acc));
    uint32_t bits = 0;
    for (const uint16_t lane : lanes) bits |= lane;
    *done = i;
    return bits;
}

// 16-bit containers with bits above the depth: dst[i] = src[i] & mask for i below n, a whole vector at a
// time; returns the samples done.
template <class O>
ptrdiff_t maskSamples(const unsigned char *src, ptrdiff_t n, uint32_t mask, unsigned char *dst) {
    const auto m = O::set1(mask);
    ptrdiff_t i = 0;
    for (; i + O::N <= n; i += O::N) O::store16b(dst + 2 * i, O::and_(O::load16b(src + 2 * i), m));
    return i;
}

// Packed pairs, two samples in three bytes: the high bits of the first in byte 0 and of the second in
// byte 2, their low `Low` bits in the low and high nibble of byte 1. loadMiddles gives each lane of a pair
// its high byte above byte 1.
template <class O, int Low>
ptrdiff_t unpackSamples(const unsigned char *src, ptrdiff_t groups, ptrdiff_t srcBytes, unsigned char *dst) {
    constexpr ptrdiff_t G = O::N / 2, readBytes = 3 * G;
    const auto lowMask = O::set1((1u << Low) - 1u), highMask = O::set1(0xFFFFu << Low & 0xFFFFu);
    ptrdiff_t g = 0;
    for (; g + G <= groups && 3 * g + readBytes <= srcBytes; g += G) {
        const auto v = O::loadMiddles(src + 3 * g); // high byte << 8 | byte 1
        const auto high = O::and_(O::template srl<8 - Low>(v), highMask);
        const auto low = O::and_(O::oddFrom(v, O::template srl<4>(v)), lowMask);
        O::store16b(dst + 4 * g, O::add(high, low));
    }
    return g;
}

template <class O>
ptrdiff_t unpackSamplesOf(const unsigned char *src, ptrdiff_t groups, ptrdiff_t srcBytes, int32_t lowBits,
                          unsigned char *dst) {
    if (lowBits == 2) return unpackSamples<O, 2>(src, groups, srcBytes, dst);
    if (lowBits == 4) return unpackSamples<O, 4>(src, groups, srcBytes, dst);
    return 0;
}

// Development: planes of camera blue, green and red through the matrix m (blue, green, red out of blue,
// green, red), each value (m0 b + m1 g) + m2 r + 0.5 clamped to 0 .. 65535 and truncated, as the scalar
// code computes it, NF pixels at a time; returns the pixels done.
template <class O>
ptrdiff_t mixPlanes(const uint16_t *const *in, uint16_t *const *out, ptrdiff_t w, const float *m) {
    using F = typename O::F;
    F k[9];
    for (int i = 0; i < 9; ++i) k[i] = O::fset1(m[i]);
    const F half = O::fset1(0.5f), top = O::fset1(65535.0f);
    ptrdiff_t x = 0;
    for (; x + O::NF <= w; x += O::NF) {
        const F b = O::loadF(in[0] + x), g = O::loadF(in[1] + x), r = O::loadF(in[2] + x);
        for (int c = 0; c < 3; ++c) {
            const F v = O::fadd(O::fadd(O::fadd(O::fmul(k[3 * c], b), O::fmul(k[3 * c + 1], g)), O::fmul(k[3 * c + 2], r)), half);
            O::storeF(out[c] + x, O::fmin(O::fmaxZero(v), top));
        }
    }
    return x;
}

// Development's input: full samples through black level, white level and gain, the even and the odd
// column's site alternating from an even column, as the scalar code computes them:
// min(min(max((s - black) x inv, 0), 1) x gain, 65535) + 0.5, truncated. p: black, inv and gain of the even
// column, then of the odd one. In place when d == s. NF samples at a time; returns the samples done.
template <class O>
ptrdiff_t balanceSamples(const uint16_t *s, uint16_t *d, ptrdiff_t w, const float *p) {
    using F = typename O::F;
    alignas(64) float lanes[3][O::NF];
    for (int k = 0; k < 3; ++k)
        for (int i = 0; i < O::NF; ++i) lanes[k][i] = p[3 * (i & 1) + k];
    const F black = O::floadu(lanes[0]), inv = O::floadu(lanes[1]), gain = O::floadu(lanes[2]);
    const F one = O::fset1(1.0f), top = O::fset1(65535.0f), half = O::fset1(0.5f);
    ptrdiff_t x = 0;
    for (; x + O::NF <= w; x += O::NF) {
        const F n = O::fmin(O::fmaxZero(O::fmul(O::fsub(O::loadF(s + x), black), inv)), one);
        O::storeF(d + x, O::fadd(O::fmin(O::fmul(n, gain), top), half));
    }
    return x;
}

// Development into 8-bit B, G, R pixels: camera blue, green and red (planes, or B, G, R pixels when
// `pixels`) through the matrix m (blue, green, red out of blue, green, red; null: the identity),
// c = min(max((m0 b + m1 g) + m2 r, 0), 65535), and the transfer curve as a cubic per octave of
// c' = c + 2 (curve: 16 coefficients of each power, from the constant up, with the 0.5 that rounds),
// e = q0 + c' (q1 + c' (q2 + c' q3)), whose truncation is the byte (the coefficients keep e within -1 .. 256).
// As the scalar code computes it, NF pixels at a time; returns the pixels done.
template <class O, bool Pixels, bool Mix>
ptrdiff_t encode8(const uint16_t *const *in, unsigned char *out, ptrdiff_t w, const float *m, const float *curve) {
    using F = typename O::F;
    F k[9];
    for (int i = 0; i < 9 && Mix; ++i) k[i] = O::fset1(m[i]);
    const auto q0 = O::ftable(curve), q1 = O::ftable(curve + 16), q2 = O::ftable(curve + 32), q3 = O::ftable(curve + 48);
    const F top = O::fset1(65535.0f), two = O::fset1(2.0f);
    ptrdiff_t x = 0;
    for (; x + O::NF <= w; x += O::NF) {
        F b, g, r;
        if constexpr (Pixels) O::loadF3(in[0] + 3 * x, b, g, r);
        else b = O::loadF(in[0] + x), g = O::loadF(in[1] + x), r = O::loadF(in[2] + x);
        F e[3];
        for (int c = 0; c < 3; ++c) {
            F v = c == 0 ? b : c == 1 ? g : r;
            if constexpr (Mix)
                v = O::fmin(O::fmaxZero(O::fadd(O::fadd(O::fmul(k[3 * c], b), O::fmul(k[3 * c + 1], g)), O::fmul(k[3 * c + 2], r))),
                            top);
            v = O::fadd(v, two);
            const auto seg = O::fsegment(v);
            const F inner = O::fadd(O::flookup(q2, seg), O::fmul(v, O::flookup(q3, seg)));
            e[c] = O::fadd(O::flookup(q0, seg), O::fmul(v, O::fadd(O::flookup(q1, seg), O::fmul(v, inner))));
        }
        O::storeF3x8(out + 3 * x, e[0], e[1], e[2]);
    }
    return x;
}

template <class O>
ptrdiff_t encodePlanes8(const uint16_t *const *in, ptrdiff_t step, unsigned char *out, ptrdiff_t w, const float *m,
                        const float *curve) {
    if (step == 3) return m != nullptr ? encode8<O, true, true>(in, out, w, m, curve) : encode8<O, true, false>(in, out, w, m, curve);
    return m != nullptr ? encode8<O, false, true>(in, out, w, m, curve) : encode8<O, false, false>(in, out, w, m, curve);
}

// Camera pixels of three samples (blue, green, red) into planes, N pixels at a time; returns the pixels done.
template <class O>
ptrdiff_t splitPixels(const uint16_t *bgr, ptrdiff_t w, uint16_t *const *out) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(bgr);
    ptrdiff_t x = 0;
    for (; x + O::N <= w; x += O::N) {
        O::store16b(reinterpret_cast<unsigned char *>(out[0] + x), O::template channel3x16b<0>(p + 6 * x));
        O::store16b(reinterpret_cast<unsigned char *>(out[1] + x), O::template channel3x16b<1>(p + 6 * x));
        O::store16b(reinterpret_cast<unsigned char *>(out[2] + x), O::template channel3x16b<2>(p + 6 * x));
    }
    return x;
}

template <class O>
constexpr vq::simd::Kernels16 makeKernels16() {
    vq::simd::Kernels16 t{};
    t.u16OrSamples = orSamples<O>;
    t.u16MaskSamples = maskSamples<O>;
    t.u16UnpackSamples = unpackSamplesOf<O>;
    t.u16BilinearRows = rowsInterleaved<O>;
    t.u16BilinearRowsPlanar = rowsPlanar<O>;
    t.u16EdgePair = edgePair<O>;
    t.developMix = mixPlanes<O>;
    t.developBalance = balanceSamples<O>;
    t.developSplit = splitPixels<O>;
    if constexpr (requires(typename O::F c) { O::flookup(O::ftable(nullptr), O::fsegment(c)); })
        t.developEncode8 = encodePlanes8<O>; // where lanes can look up a table
    return t;
}

} // namespace
