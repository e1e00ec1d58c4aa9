// The vector interiors of the 8-bit nearest-neighbour and bilinear kernels, of the depth reduction and of
// bgrToBgra, written once over an operations layer `O` (ops_x86.h, ops_neon.h). Included by one unit per
// instruction set, which compiles it with that set's flags; nothing here is shared between units.
//
// A step covers O::N pixels of a row, starting at an odd column x, so that even lanes are the pixels at
// odd columns and odd lanes those at even columns; the site types of a row alternate the same way, and a
// value is picked per lane with oddFrom(valueForEvenLanes, valueForOddLanes). Each step computes exactly
// what the scalar code computes for its pixel pairs, truncating shifts and all.
//
// Only the stores' fields are read here (never their member functions), so that no code compiled with
// this unit's flags can stand in for the scalar code's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/pixel_store.h"
#include "simd/dispatch.h"
#include "simd/steps.h"

namespace {

// ---- Vector pixel stores: where N finished red, green and blue lanes go --------------------------------

template <class O, class Store>
struct VecStore;

template <class O, int Bytes, bool ZeroAlpha>
struct VecStore<O, vq::InterleavedStore<Bytes, ZeroAlpha>> {
    using W = typename O::W;
    static void put(const vq::InterleavedStore<Bytes, ZeroAlpha> &s, ptrdiff_t i, W r, W g, W b) {
        uint8_t *p = s.base + i * Bytes;
        const bool redFirst = s.redAt == 0;
        const W first = redFirst ? r : b, last = redFirst ? b : r;
        if constexpr (Bytes == 3) O::store3(p, first, g, last);
        else if constexpr (ZeroAlpha) O::store4(p, first, g, last);
        else O::store4Keep(p, first, g, last);
    }
    // The green byte alone; the other bytes keep what they held.
    static void putGreen(const vq::InterleavedStore<Bytes, ZeroAlpha> &s, ptrdiff_t i, W g) {
        if constexpr (Bytes == 3) O::storeGreen3(s.base + i * 3, g);
        else O::storeGreen4(s.base + i * 4, g);
    }
    // 2N pixels from i, each channel as the values of the pixels i, i+2, ... and of i+1, i+3, ...,
    // saturated to 0..255 (green, which the edge-directed band alone stores this way, is always in range).
    static void putPairs(const vq::InterleavedStore<Bytes, ZeroAlpha> &s, ptrdiff_t i, W r0, W r1, W g0, W g1, W b0,
                         W b1) {
        uint8_t *p = s.base + i * Bytes;
        if (s.redAt == 0) store(p, r0, r1, g0, g1, b0, b1);
        else store(p, b0, b1, g0, g1, r0, r1);
    }
    // n green bytes alone, one at a time.
    static void putGreens(const vq::InterleavedStore<Bytes, ZeroAlpha> &s, ptrdiff_t i, const uint8_t *g, ptrdiff_t n) {
        for (ptrdiff_t k = 0; k < n; ++k) s.base[(i + k) * Bytes + 1] = g[k];
    }
    static void store(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        if constexpr (Bytes == 3) O::store3x2(p, c0e, c0o, c1e, c1o, c2e, c2o);
        else O::template store4x2<!ZeroAlpha>(p, c0e, c0o, c1e, c1o, c2e, c2o);
    }
};

template <class O>
struct VecStore<O, vq::PlanarStore> {
    using W = typename O::W;
    static void put(const vq::PlanarStore &s, ptrdiff_t i, W r, W g, W b) {
        O::store8(s.red + i, r);
        O::store8(s.green + i, g);
        O::store8(s.blue + i, b);
    }
    static void putGreen(const vq::PlanarStore &s, ptrdiff_t i, W g) { O::store8(s.green + i, g); }
    static void putGreens(const vq::PlanarStore &s, ptrdiff_t i, const uint8_t *g, ptrdiff_t n) {
        for (ptrdiff_t k = 0; k < n; ++k) s.green[i + k] = g[k];
    }
    static void putPairs(const vq::PlanarStore &s, ptrdiff_t i, W r0, W r1, W g0, W g1, W b0, W b1) {
        O::store8x2(s.red + i, r0, r1);
        O::store8x2(s.green + i, g0, g1);
        O::store8x2(s.blue + i, b0, b1);
    }
};

// (wR*R + wG*G + wB*B + 128) >> 8, low 8 bits kept: those bits depend only on the low 16 bits of the sum,
// so 16-bit lanes that wrap give them exactly, whatever the weights.
template <class O>
struct VecStore<O, vq::LumaStore> {
    using W = typename O::W;
    static void put(const vq::LumaStore &s, ptrdiff_t i, W r, W g, W b) {
        const W sum = O::add(O::add(O::mullo(O::set1(s.wR), r), O::mullo(O::set1(s.wG), g)),
                             O::add(O::mullo(O::set1(s.wB), b), O::set1(128)));
        O::store8(s.base + i, O::and_(O::template srl<8>(sum), O::set1(0xFF)));
    }
    static void putGreen(const vq::LumaStore &, ptrdiff_t, W) {} // luma is written with red and blue
    static void putGreens(const vq::LumaStore &, ptrdiff_t, const uint8_t *, ptrdiff_t) {}
    // Red and blue saturated here; green arrives in 0..255 (a sample or a clamped estimate).
    static W luma(const vq::LumaStore &s, W r, W g, W b) {
        const W sum = O::add(O::add(O::mullo(O::set1(s.wR), O::clampByte(r)), O::mullo(O::set1(s.wG), g)),
                             O::add(O::mullo(O::set1(s.wB), O::clampByte(b)), O::set1(128)));
        return O::and_(O::template srl<8>(sum), O::set1(0xFF));
    }
    static void putPairs(const vq::LumaStore &s, ptrdiff_t i, W r0, W r1, W g0, W g1, W b0, W b1) {
        O::store8x2(s.base + i, luma(s, r0, g0, b0), luma(s, r1, g1, b1));
    }
};

// ---- Where a step's samples come from -------------------------------------------------------------------
//
// A step at column x reads, of each source row it uses, the samples at x-1 .., x .. and x+1 .. (one per
// lane), as 8-bit values in 16-bit lanes.

template <class O>
struct Near3 {
    typename O::W left, here, right;
};

// From 8-bit rows; near2 leaves the samples at x+1 .. unread (the `right` lanes repeat those at x).
template <class O>
Near3<O> near3(const uint8_t *row, ptrdiff_t x) {
    return {O::load8(row + x - 1), O::load8(row + x), O::load8(row + x + 1)};
}
template <class O>
Near3<O> near2(const uint8_t *row, ptrdiff_t x) {
    const auto here = O::load8(row + x);
    return {O::load8(row + x - 1), here, here};
}

// Deep or packed rows, each sample reduced to the byte the reduction would keep: 16-bit samples at any
// byte address shifted right by `shift` and cut to 8 bits, or packed pairs (two samples in three bytes,
// the first and third of which are kept). Loads start at even samples, so packed loads start at a group.
template <class O, bool Packed>
struct DeepSamples {
    int32_t shift;
    static ptrdiff_t bytesTo(ptrdiff_t sample) { return Packed ? sample / 2 * 3 : sample * 2; }
    typename O::W load(const unsigned char *row, ptrdiff_t sample) const {
        if constexpr (Packed) return O::loadPairs(row + bytesTo(sample));
        else return O::and_(O::srlBy(O::load16b(row + bytesTo(sample)), shift), O::set1(0xFF));
    }
    // The samples at x .. from those at x-1 .. and x+1 ..: odd lanes of the first, even lanes of the second.
    static typename O::W between(typename O::W left, typename O::W right) {
        return O::toW(O::or_(O::template srl32<16>(O::toD(left)), O::template sll32<16>(O::toD(right))));
    }
};

// The steps of stepsTo over K deep rows (K pointers to the first sample of rows one stride apart), one
// load a row and step: each step's samples at x-1 .. are the previous step's next vector. The loads stay
// inside the samples before `end` + 1 and before the row's last sample `w` - 1, so `end` must be at most
// `w` - 2. The two rows below the last are fetched into the cache meanwhile, for the next pair of rows.
template <class O, class Deep, int K, class Step>
int32_t deepStepsTo(const unsigned char *const *rows, const Deep deep, int32_t end, int32_t w, Step step) {
    constexpr int N = O::N;
    using W = typename O::W;
    const uintptr_t below = reinterpret_cast<uintptr_t>(rows[K - 1]);
    const uintptr_t stride = below - reinterpret_cast<uintptr_t>(rows[K - 2]);
    W cur[K];
    // A step whose samples at x-1 .. are in `cur` (or loaded here) and, while the next vector still lies
    // before the row's last sample, leaves that vector in `cur`.
    const auto visit = [&](int32_t x, bool fromCur) __attribute__((always_inline)) {
        const bool carry = fromCur && x - 1 + 2 * N <= w - 1;
        Near3<O> r[K];
        __builtin_prefetch(reinterpret_cast<const void *>(below + stride + Deep::bytesTo(x)));
        __builtin_prefetch(reinterpret_cast<const void *>(below + 2 * stride + Deep::bytesTo(x)));
        for (int k = 0; k < K; ++k) {
            const W left = fromCur ? cur[k] : deep.load(rows[k], x - 1);
            W right;
            if (carry) {
                cur[k] = deep.load(rows[k], x - 1 + N);
                right = O::toW(O::laneNext32(O::toD(left), O::toD(cur[k])));
            } else {
                right = deep.load(rows[k], x + 1);
            }
            r[k] = {left, Deep::between(left, right), right};
        }
        step(x, r);
    };
    int32_t x = 1;
    if (x + N > end) return x;
    for (int k = 0; k < K; ++k) cur[k] = deep.load(rows[k], 0);
    for (; x + N <= end; x += N) visit(x, true);
    if (x + 1 < end) { // one step more that ends exactly at `end` (odd-aligned), as stepsTo
        const int32_t last = (end - N) & 1 ? end - N : end - N - 1;
        visit(last, false);
        x = last + N;
    }
    return x;
}

// Calls `run(deep)` with the sample reader of `rule` (2 to 8: the shift of 16-bit samples; -1: packed).
template <class O, class Run>
int32_t withDeep(int32_t rule, Run run) {
    return rule < 0 ? run(DeepSamples<O, true>{0}) : run(DeepSamples<O, false>{rule});
}

// ---- Nearest-neighbour -----------------------------------------------------------------------------------

// What nearest-neighbour takes of a row at the pixel pairs (odd column x, even column x+1) of a step:
// `evens` the samples at x-1 and x+1 (even columns), `odds` the sample at x (an odd column) twice. From
// deep rows the same lanes are picked from those at x-1 .. and x+1 .. (evensOf, oddsOf).
template <class O>
struct Picks {
    typename O::W evens, odds;
};
template <class O>
Picks<O> picks(const Near3<O> &r) {
    return {O::oddFrom(r.left, r.here), O::oddFrom(r.here, r.left)};
}
template <class O>
Picks<O> deepPicks(const Near3<O> &r) {
    return {O::evensOf(r.left, r.right), O::oddsOf(r.left)};
}

// One row's pixel pairs: in an R row the G site x takes red from x-1 and the R site x+1 takes green and
// blue from column x (`other` gives blue); in a B row the B site x takes red and green from x-1 and the
// G site x+1 takes blue from column x (`other` gives red).
template <class O, bool RRow, class Store>
void nearestStep(const Store &out, ptrdiff_t x, const Picks<O> &own, const Picks<O> &other) {
    if constexpr (RRow) VecStore<O, Store>::put(out, x, own.evens, own.odds, other.odds);
    else VecStore<O, Store>::put(out, x, other.evens, own.evens, own.odds);
}

template <class O, bool RRow, class Store>
int32_t nearestRow(const uint8_t *own, const uint8_t *other, int32_t w, const Store &out) {
    return stepsTo<O>(w, [&](int32_t x) {
        nearestStep<O, RRow>(out, x, picks<O>(near2<O>(own, x)), picks<O>(near2<O>(other, x)));
    });
}

// A B row and the R row below it from deep rows: rows[0] the R row above, rows[1] the B row, rows[2] the
// R row below.
template <class O, class Store>
int32_t nearestRowsDeep(const unsigned char *const *rows, int32_t rule, int32_t w, int32_t end, const Store &bRow,
                        const Store &rRow) {
    // The stores are copied into the step, where no byte stored can alias them.
    return withDeep<O>(rule, [&](const auto &deep) {
        return deepStepsTo<O, std::decay_t<decltype(deep)>, 3>(
            rows, deep, end, w, [b = bRow, r = rRow](int32_t x, const Near3<O> *n) {
                const Picks<O> above = deepPicks<O>(n[0]), row = deepPicks<O>(n[1]);
                nearestStep<O, false>(b, x, row, above);
                nearestStep<O, true>(r, x, deepPicks<O>(n[2]), row);
            });
    });
}

// ---- Bilinear --------------------------------------------------------------------------------------------

// Sums around column x of a row c between rows n and s, one lane per pixel.
template <class O>
struct Around {
    typename O::W diagonal; // n[x-1] + n[x+1] + s[x-1] + s[x+1]
    typename O::W vertical; // n[x] + s[x]
    typename O::W across;   // c[x-1] + c[x+1]
    typename O::W centre;   // c[x]

    Around(const Near3<O> &n, const Near3<O> &c, const Near3<O> &s)
        : diagonal(O::add(O::add(n.left, n.right), O::add(s.left, s.right))), vertical(O::add(n.here, s.here)),
          across(O::add(c.left, c.right)), centre(c.here) {}
    typename O::W cross() const { return O::template srl<2>(O::add(vertical, across)); }
};

// Blue row: blue sites at odd columns (even lanes), green sites at even columns.
template <class O, class Store>
void blueRowStep(const Around<O> &a, ptrdiff_t x, const Store &o) {
    VecStore<O, Store>::put(o, x, O::oddFrom(O::template srl<2>(a.diagonal), O::template srl<1>(a.vertical)),
                            O::oddFrom(a.cross(), a.centre), O::oddFrom(a.centre, O::template srl<1>(a.across)));
}

// Red row: green sites at odd columns (even lanes), red sites at even columns.
template <class O, class Store>
void redRowStep(const Around<O> &a, ptrdiff_t x, const Store &o) {
    VecStore<O, Store>::put(o, x, O::oddFrom(O::template srl<1>(a.across), a.centre), O::oddFrom(a.centre, a.cross()),
                            O::oddFrom(O::template srl<1>(a.vertical), O::template srl<2>(a.diagonal)));
}

template <class O, class Store>
int32_t bilinearRowPair(const uint8_t *r0, ptrdiff_t w, int32_t colEnd, const Store &blueRow, const Store &redRow) {
    const uint8_t *r1 = r0 + w, *r2 = r1 + w, *r3 = r2 + w;
    return stepsTo<O>(colEnd, [&](int32_t x) {
        const Near3<O> n1 = near3<O>(r1, x), n2 = near3<O>(r2, x);
        blueRowStep<O>(Around<O>(near3<O>(r0, x), n1, n2), x, blueRow);
        redRowStep<O>(Around<O>(n1, n2, near3<O>(r3, x)), x, redRow);
    });
}

// The same rows from deep rows: rows[0 .. 3] the rows above, blue, red and below.
template <class O, class Store>
int32_t bilinearRowPairDeep(const unsigned char *const *rows, int32_t rule, int32_t w, int32_t colEnd,
                            const Store &blueRow, const Store &redRow) {
    return withDeep<O>(rule, [&](const auto &deep) {
        return deepStepsTo<O, std::decay_t<decltype(deep)>, 4>(
            rows, deep, colEnd, w, [b = blueRow, r = redRow](int32_t x, const Near3<O> *n) {
                blueRowStep<O>(Around<O>(n[0], n[1], n[2]), x, b);
                redRowStep<O>(Around<O>(n[1], n[2], n[3]), x, r);
            });
    });
}

// Row 0 of a green-first frame (blue sites at odd columns, nothing above: green counts the sample below
// twice) and row 1 (a red row by the interior rule).
template <class O, class Store>
int32_t bilinearGreenFirstRows(const uint8_t *r0, ptrdiff_t w, int32_t colEnd, const Store &row0, const Store &row1) {
    const uint8_t *r1 = r0 + w, *r2 = r1 + w;
    return stepsTo<O>(colEnd, [&](int32_t x) {
        const auto below = O::load8(r1 + x);
        const auto belowAcross = O::add(O::load8(r1 + x - 1), O::load8(r1 + x + 1));
        const auto across = O::add(O::load8(r0 + x - 1), O::load8(r0 + x + 1));
        const auto centre = O::load8(r0 + x);
        VecStore<O, Store>::put(row0, x, O::oddFrom(O::template srl<1>(belowAcross), below),
                                O::oddFrom(O::template srl<2>(O::add(across, O::template sll<1>(below))), centre),
                                O::oddFrom(centre, O::template srl<1>(across)));
        redRowStep<O>(Around<O>(near3<O>(r0, x), near3<O>(r1, x), near3<O>(r2, x)), x, row1);
    });
}

// ---- Edge-directed body band -----------------------------------------------------------------------------
//
// A step covers the 2N columns x .. x+2N-1 of the band of R/G row r (x even) with each row's even and odd
// columns in separate vectors: lane k stands for the column pair x+2k, x+2k+1, which holds one red site of
// row r (even column) and one blue site of row r+1 (odd column). Every lane of the estimates is thus a
// site that needs one. The step then finishes red and blue of rows r-1 and r at the columns x-1 .. x+2N-2,
// lane k standing for the pair x+2k-1, x+2k: the odd column's neighbours to the left come from the
// previous step, one lane back.

template <class O>
struct EdgeEstimate {
    typename O::W grad, value;
};

// Along one direction: green neighbours m1, p1, the site c and the same-colour samples m2, p2 beyond.
template <class O>
EdgeEstimate<O> edgeInterior(typename O::W m2, typename O::W m1, typename O::W c, typename O::W p1, typename O::W p2) {
    const auto second = O::sub(O::sub(O::add(c, c), m2), p2);
    return {O::add(O::abs(O::sub(m1, p1)), O::abs(second)),
            O::add(O::template srl<1>(O::add(m1, p1)), O::template sra<2>(second))};
}

// The colour differences (sample minus green) a step leaves for the next, lane k being the pair x+2k,
// x+2k+1: at the red sites, dR(r-2) + dR(r) and dR(r); at the blue sites, dB(r-1) + dB(r+1) and dB(r-1).
template <class O>
struct EdgeDiffs {
    typename O::W redSum, red, blueSum, blueAbove;
};

// KeepAll: every band of a frame on one thread; otherwise `keep` is read at run time (a few bands of a frame
// split between threads).
template <class O, class Store, bool KeepAll>
int32_t edgeBand(const uint8_t *const *rows, ptrdiff_t w, uint8_t *line, uint8_t *seam, int greensBelow,
                 const Store &out, const vq::simd::Ahead &ahead, int keep) {
    using W = typename O::W;
    constexpr int N = O::N, C = 2 * N; // columns a step
    const bool above = KeepAll || (keep & vq::simd::kEdgeRowAbove) != 0;
    const bool below = KeepAll || (keep & vq::simd::kEdgeRowsBelow) != 0;
    greensBelow = greensBelow && below;
    ptrdiff_t x = 2;
    if (x + C + 2 > w) return int32_t(x);
    const uint8_t *r0 = rows[0], *r1 = rows[1], *r2 = rows[2], *r3 = rows[3], *r4 = rows[4], *r5 = rows[5];
    const auto bytes = [](const uint8_t *p) { return O::load16b(p); };
    const auto evens = [](W v) { return O::and_(v, O::set1(0xFF)); };
    const auto odds = [](W v) { return O::template srl<8>(v); };
    const auto back = [](W before, W now) { return O::template lanesBack<1>(before, now); };

    // Columns 0 and 1 as the last lane of a step before the first (differences wrap in 16 bits).
    const auto lastLaneOnly = [](const int32_t (&v)[4]) {
        alignas(64) uint16_t lanes[4][O::N] = {};
        for (int f = 0; f < 4; ++f) lanes[f][O::N - 1] = uint16_t(v[f]);
        return EdgeDiffs<O>{O::load16(lanes[0]), O::load16(lanes[1]), O::load16(lanes[2]), O::load16(lanes[3])};
    };
    EdgeDiffs<O> prev;
    {
        const int32_t red = r2[0] - line[0], blueAbove = r1[1] - seam[1];
        prev = lastLaneOnly({r0[0] - seam[0] + red, red, blueAbove + r3[1] - line[1], blueAbove});
    }

    // One step at column x after `before` (the step ending at x), with `found` the line's bytes of its
    // columns as the band found them. Inlined by force: called from two places, g++ would otherwise make
    // it a function and pass the vectors through memory.
    const auto step = [&](ptrdiff_t x, const EdgeDiffs<O> &before, W found) __attribute__((always_inline)) {
        fetchAhead(ahead, x, C);
        // Rows r (a2, b2, c2 at x-2, x, x+2) and r+1 (a3, b3, c3), and the others at x.
        const W a2 = bytes(r2 + x - 2), b2 = bytes(r2 + x), c2 = bytes(r2 + x + 2);
        const W a3 = bytes(r3 + x - 2), b3 = bytes(r3 + x), c3 = bytes(r3 + x + 2);
        const W v0 = bytes(r0 + x), v1 = bytes(r1 + x), v4 = bytes(r4 + x), v5 = bytes(r5 + x);
        const W red = evens(b2), blue = odds(b3);
        const auto green = [](const EdgeEstimate<O> &h, const EdgeEstimate<O> &v) {
            return O::clampByte(O::pickLess(h.grad, v.grad, h.value, v.value)); // ties vertical
        };
        const W greenR = green(edgeInterior<O>(evens(a2), odds(a2), red, odds(b2), evens(c2)),
                               edgeInterior<O>(evens(v0), evens(v1), red, evens(b3), evens(v4)));
        const W greenB = green(edgeInterior<O>(odds(a3), evens(b3), blue, evens(c3), odds(c3)),
                               edgeInterior<O>(odds(v1), odds(b2), blue, odds(v4), odds(v5)));
        O::store8x2(line + x, greenR, greenB);
        if (greensBelow) { // once a frame: the band below is not a body band
            alignas(64) uint8_t greens[C];
            O::store8x2(greens, evens(b3), greenB);
            VecStore<O, Store>::putGreens(out, w + x, greens, C);
        }
        const W dRed = O::sub(red, greenR), dBlueAbove = O::sub(odds(v1), odds(found));
        const EdgeDiffs<O> cur{O::add(O::sub(evens(v0), evens(found)), dRed), dRed,
                               O::add(dBlueAbove, O::sub(blue, greenB)), dBlueAbove};

        // Red and blue of the pairs x+2k-1 (odd column), x+2k (even column).
        const W redSumBack = back(before.redSum, cur.redSum), redBack = back(before.red, cur.red);
        const W blueSumBack = back(before.blueSum, cur.blueSum), blueAboveBack = back(before.blueAbove, cur.blueAbove);
        // Row r-1 (G/B): a blue site, then a green site.
        if (above) {
            const W aboveBlue = odds(bytes(r1 + x - 2)), aboveGreen = evens(v1);
            const W aboveBlueGreen = O::sub(aboveBlue, blueAboveBack); // the line's old entry
            VecStore<O, Store>::putPairs(
                out, x - 1 - w, O::add(aboveBlueGreen, O::template sra<2>(O::add(redSumBack, cur.redSum))),
                O::add(aboveGreen, O::template sra<1>(cur.redSum)), aboveBlueGreen, aboveGreen, aboveBlue,
                O::add(aboveGreen, O::template sra<1>(O::add(blueAboveBack, cur.blueAbove))));
        }
        // Row r (R/G): a green site, then a red site.
        if (below) {
            const W hereGreen = odds(a2);
            VecStore<O, Store>::putPairs(out, x - 1, O::add(hereGreen, O::template sra<1>(O::add(redBack, cur.red))),
                                         red, hereGreen, greenR, O::add(hereGreen, O::template sra<1>(blueSumBack)),
                                         O::add(greenR, O::template sra<2>(O::add(blueSumBack, cur.blueSum))));
        }
        return cur;
    };
    W found = bytes(line + x);
    for (;;) {
        prev = step(x, prev, found);
        x += C;
        if (x + C + 2 > w) break;
        found = bytes(line + x);
    }

    // One step more that ends where the scalar tail would start (two columns before the end, three for an odd
    // width), over columns already done: greens and colours come out the same, and the line entries they
    // found are taken from the previous step.
    const ptrdiff_t last = ((w - C - 2) & 1) != 0 ? w - C - 3 : w - C - 2;
    if (last > x - C) {
        const ptrdiff_t k = x - last; // columns done again, 2 .. C-2
        alignas(64) uint8_t was[C], entries[C];
        O::store16b(was, found);
        for (ptrdiff_t i = 0; i < C; ++i) entries[i] = i < k ? was[C - k + i] : line[last + i];
        alignas(64) uint16_t lanes[4][N];
        const W *fields[4] = {&prev.redSum, &prev.red, &prev.blueSum, &prev.blueAbove};
        int32_t pair[4];
        for (int f = 0; f < 4; ++f) {
            O::store16b(reinterpret_cast<unsigned char *>(lanes[f]), *fields[f]);
            pair[f] = lanes[f][N - 1 - k / 2]; // the pair last-2, last-1
        }
        found = bytes(entries);
        prev = step(last, lastLaneOnly(pair), found);
        x = last + C;
    }

    alignas(64) uint8_t entries[C];
    O::store16b(entries, found);
    seam[0] = entries[C - 2], seam[1] = entries[C - 1];
    return int32_t(x);
}

template <class O, class Store>
int32_t edgeBody(const uint8_t *const *rows, ptrdiff_t w, uint8_t *line, uint8_t *seam, int greensBelow,
                 const Store &out, const vq::simd::Ahead &ahead, int keep) {
    if (keep == vq::simd::kEdgeAll) return edgeBand<O, Store, true>(rows, w, line, seam, greensBelow, out, ahead, keep);
    return edgeBand<O, Store, false>(rows, w, line, seam, greensBelow, out, ahead, keep);
}

// ---- Depth reduction and widening ------------------------------------------------------------------------

template <class O>
ptrdiff_t u16ToU8(const uint16_t *src, ptrdiff_t n, int32_t shift, uint8_t *dst) {
    ptrdiff_t i = 0;
    const auto low = O::set1(0xFF);
    for (; i + O::N <= n; i += O::N) O::store8(dst + i, O::and_(O::srlBy(O::load16(src + i), shift), low));
    return i;
}

template <class O>
ptrdiff_t unpackPairs(const uint8_t *src, ptrdiff_t groups, ptrdiff_t srcBytes, uint8_t *dst) {
    ptrdiff_t g = 0;
    for (; g + O::kPairGroups <= groups && 3 * g + O::kPairReadBytes <= srcBytes; g += O::kPairGroups)
        O::unpackPairs(src + 3 * g, dst + 2 * g);
    return g;
}

template <class O>
ptrdiff_t bgrToBgra(const uint8_t *src, ptrdiff_t pixels, uint8_t *dst) {
    ptrdiff_t i = 0;
    for (; i + O::kExpandPixels <= pixels && 3 * i + O::kExpandReadBytes <= 3 * pixels; i += O::kExpandPixels)
        O::expand3to4(src + 3 * i, dst + 4 * i);
    return i;
}

// ---- The table entries -----------------------------------------------------------------------------------

template <class O, class Store>
constexpr void installStore(vq::simd::StoreKernels<Store> &k) {
    k.bilinearRowPair = bilinearRowPair<O, Store>;
    k.bilinearGreenFirstRows = bilinearGreenFirstRows<O, Store>;
    k.nearestRRow = nearestRow<O, true, Store>;
    k.nearestBRow = nearestRow<O, false, Store>;
    k.nearestRowsDeep = nearestRowsDeep<O, Store>;
    k.bilinearRowPairDeep = bilinearRowPairDeep<O, Store>;
    k.edgeBody = edgeBody<O, Store>;
}

// Constant data of the unit: the dispatcher copies it once the machine has the unit's instruction set.
template <class O>
constexpr vq::simd::Kernels8 makeKernels8() {
    vq::simd::Kernels8 t{};
    installStore<O>(t.bgr);
    installStore<O>(t.bgra);
    installStore<O>(t.bgraKeep);
    installStore<O>(t.planar);
    installStore<O>(t.luma);
    t.u16ToU8 = u16ToU8<O>;
    t.unpackPairs = unpackPairs<O>;
    t.bgrToBgra = bgrToBgra<O>;
    return t;
}

} // namespace
