// The vector operations layer on x86-64: one struct per instruction set, the same names in each, so that
// a kernel written once over `O` compiles for either. Include only from a unit compiled with the set's
// flags (-mavx2, or -mavx512f -mavx512bw -mavx512vl); everything here is local to that unit.
//
// W holds N unsigned 16-bit lanes, one pixel each. Samples are widened to 16 bits on load, the
// arithmetic runs on the lanes, and the stores narrow them again: a value that goes to an 8-bit output
// must already lie in 0..255.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace {

#if defined(__AVX2__)
struct Avx2Ops {
    static constexpr int N = 16;
    using W = __m256i;

    static W load8(const uint8_t *p) { return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p))); }
    static W load16(const uint16_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
    static W set1(uint32_t v) { return _mm256_set1_epi16(static_cast<short>(v)); }
    static W add(W a, W b) { return _mm256_add_epi16(a, b); }
    static W sub(W a, W b) { return _mm256_sub_epi16(a, b); }
    static W mullo(W a, W b) { return _mm256_mullo_epi16(a, b); }
    static W and_(W a, W b) { return _mm256_and_si256(a, b); }
    template <int K> static W srl(W a) { return _mm256_srli_epi16(a, K); }
    template <int K> static W sll(W a) { return _mm256_slli_epi16(a, K); }
    static W srlBy(W a, int k) { return _mm256_srl_epi16(a, _mm_cvtsi32_si128(k)); }
    // Even lanes from `even`, odd lanes from `odd`.
    static W oddFrom(W even, W odd) { return _mm256_blend_epi16(even, odd, 0xAA); }
    // Lane pairs (2k, 2k+1): lanes 2k of `a` and of `b`; and lane 2k+1 of `a` twice.
    static W evensOf(W a, W b) { return _mm256_blend_epi16(a, _mm256_slli_epi32(b, 16), 0xAA); }
    static W oddsOf(W a) {
        return _mm256_shuffle_epi8(a, _mm256_broadcastsi128_si256(
                                          _mm_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15)));
    }

    // N bytes, the low byte of each lane (lanes must hold 0..255).
    static void store8(uint8_t *p, W v) {
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(v, v), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
    }

    // The pixels as 32-bit words c0 | c1 << 8 | c2 << 16, pixels 0-7 and 8-15.
    static void words(W c0, W c1, W c2, __m256i &lo, __m256i &hi) {
        const __m256i low = _mm256_or_si256(c0, _mm256_slli_epi16(c1, 8));
        const __m256i a = _mm256_unpacklo_epi16(low, c2), b = _mm256_unpackhi_epi16(low, c2);
        lo = _mm256_permute2x128_si256(a, b, 0x20);
        hi = _mm256_permute2x128_si256(a, b, 0x31);
    }
    // 8 words to 24 bytes.
    static void store24(uint8_t *p, __m256i words8) {
        const __m256i shuffle = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,
                                                 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
        const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words8, shuffle),
                                                           _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(p + 16), _mm256_extracti128_si256(packed, 1));
    }
    // 3 bytes a pixel: c0, c1, c2.
    static void store3(uint8_t *p, W c0, W c1, W c2) {
        __m256i lo, hi;
        words(c0, c1, c2, lo, hi);
        store24(p, lo);
        store24(p + 24, hi);
    }
    // 4 bytes a pixel: c0, c1, c2, 0.
    static void store4(uint8_t *p, W c0, W c1, W c2) {
        __m256i lo, hi;
        words(c0, c1, c2, lo, hi);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), lo);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p + 32), hi);
    }
    // 4 bytes a pixel: c0, c1, c2, and the fourth byte as it was.
    static void store4Keep(uint8_t *p, W c0, W c1, W c2) {
        __m256i lo, hi;
        words(c0, c1, c2, lo, hi);
        const __m256i fourth = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
        __m256i *q = reinterpret_cast<__m256i *>(p);
        _mm256_storeu_si256(q, _mm256_blendv_epi8(lo, _mm256_loadu_si256(q), fourth));
        _mm256_storeu_si256(q + 1, _mm256_blendv_epi8(hi, _mm256_loadu_si256(q + 1), fourth));
    }

    // Packed pairs: 8 groups (24 bytes) to 16 samples; reads 32 bytes.
    static constexpr int kPairGroups = 8, kPairReadBytes = 32;
    static void unpackPairs(const uint8_t *src, uint8_t *dst) {
        const __m256i in = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(src)),
                                                       _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0));
        const __m256i pick = _mm256_setr_epi8(0, 2, 3, 5, 6, 8, 9, 11, -1, -1, -1, -1, -1, -1, -1, -1,
                                              0, 2, 3, 5, 6, 8, 9, 11, -1, -1, -1, -1, -1, -1, -1, -1);
        const __m256i out = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(in, pick), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst), _mm256_castsi256_si128(out));
    }
    // 3-byte pixels to 4-byte pixels: 8 pixels (24 bytes) to 32 bytes; reads 32 bytes.
    static constexpr int kExpandPixels = 8, kExpandReadBytes = 32;
    static void expand3to4(const uint8_t *src, uint8_t *dst) {
        const __m256i in = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(src)),
                                                       _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0));
        const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,
                                                0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst), _mm256_shuffle_epi8(in, spread));
    }

    // ---- 16-bit samples at any byte address
    static W xor_(W a, W b) { return _mm256_xor_si256(a, b); }
    static W load16b(const unsigned char *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
    static void store16b(unsigned char *p, W v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }
    // Three samples a pixel. Within each 128-bit lane, eight pixels of three channel vectors become three
    // "pieces" of eight samples (sample 8k + s of the lane's 24 is slot s of piece k) by byte shuffles;
    // the pieces of the two lanes are then put in memory order.
    struct Lanes3 {
        alignas(32) uint8_t pick[3][3][32];  // piece k from channel c: the bytes of each slot, or zero
        alignas(32) uint8_t place[3][3][32]; // piece k: 0xFF where a slot holds channel c
        alignas(32) uint8_t take[3][3][32];  // channel c from piece k: the bytes of each pixel, or zero
    };
    static constexpr Lanes3 lanes3() {
        Lanes3 t{};
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c)
                for (int b = 0; b < 32; ++b) {
                    const int slot = (b & 15) / 2, sample = 8 * k + slot;
                    const bool here = sample % 3 == c;
                    t.pick[k][c][b] = here ? uint8_t(2 * (sample / 3) + (b & 1)) : 0x80;
                    t.place[k][c][b] = here ? 0xFF : 0;
                    const int from = 3 * ((b & 15) / 2) + c; // the lane's sample that pixel (b & 15) / 2 takes
                    t.take[k][c][b] = from / 8 == k ? uint8_t(2 * (from % 8) + (b & 1)) : 0x80;
                }
        return t;
    }
    static __m256i table(const uint8_t *row) { return _mm256_load_si256(reinterpret_cast<const __m256i *>(row)); }
    // Memory holds the pieces as [0 lo, 1 lo], [2 lo, 0 hi], [1 hi, 2 hi].
    static void storePieces(unsigned char *p, const __m256i (&o)[3]) {
        __m256i *q = reinterpret_cast<__m256i *>(p);
        _mm256_storeu_si256(q, _mm256_permute2x128_si256(o[0], o[1], 0x20));
        _mm256_storeu_si256(q + 1, _mm256_permute2x128_si256(o[2], o[0], 0x30));
        _mm256_storeu_si256(q + 2, _mm256_permute2x128_si256(o[1], o[2], 0x31));
    }
    static void loadPieces(const unsigned char *p, __m256i (&o)[3]) {
        const __m256i *q = reinterpret_cast<const __m256i *>(p);
        const __m256i v0 = _mm256_loadu_si256(q), v1 = _mm256_loadu_si256(q + 1), v2 = _mm256_loadu_si256(q + 2);
        o[0] = _mm256_permute2x128_si256(v0, v1, 0x30);
        o[1] = _mm256_permute2x128_si256(v0, v2, 0x21);
        o[2] = _mm256_permute2x128_si256(v1, v2, 0x30);
    }
    static void store3x16b(unsigned char *p, W c0, W c1, W c2) {
        static constexpr Lanes3 kT = lanes3();
        const W c[3] = {c0, c1, c2};
        __m256i o[3];
        for (int k = 0; k < 3; ++k)
            o[k] = _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(c[0], table(kT.pick[k][0])),
                                                   _mm256_shuffle_epi8(c[1], table(kT.pick[k][1]))),
                                   _mm256_shuffle_epi8(c[2], table(kT.pick[k][2])));
        storePieces(p, o);
    }

    // ---- 32-bit lanes (N / 2 of them) over the same registers, for 16-bit samples taken in pairs
    using D = W;
    static constexpr int N32 = N / 2;
    static D toD(W v) { return v; }
    static W toW(D v) { return v; }
    static D set1_32(int32_t v) { return _mm256_set1_epi32(v); }
    static D add32(D a, D b) { return _mm256_add_epi32(a, b); }
    static D sub32(D a, D b) { return _mm256_sub_epi32(a, b); }
    static D abs32(D a) { return _mm256_abs_epi32(a); }
    static D or_(D a, D b) { return _mm256_or_si256(a, b); }
    template <int K> static D sra32(D a) { return _mm256_srai_epi32(a, K); }
    template <int K> static D srl32(D a) { return _mm256_srli_epi32(a, K); }
    template <int K> static D sll32(D a) { return _mm256_slli_epi32(a, K); }
    static D clamp32(D a, D top) { return _mm256_min_epi32(_mm256_max_epi32(a, _mm256_setzero_si256()), top); }
    // a >= b (signed) ? ifNotLess : otherwise, per lane.
    static D pickNotLess32(D a, D b, D ifNotLess, D otherwise) {
        return _mm256_blendv_epi8(ifNotLess, otherwise, _mm256_cmpgt_epi32(b, a));
    }
    // The last lane of `prev` followed by the first N32 - 1 lanes of `cur`.
    static D laneBack32(D prev, D cur) {
        return _mm256_alignr_epi8(cur, _mm256_permute2x128_si256(prev, cur, 0x21), 12);
    }
    // The last N32 - 1 lanes of `cur` followed by the first lane of `next`.
    static D laneNext32(D cur, D next) {
        return _mm256_alignr_epi8(_mm256_permute2x128_si256(cur, next, 0x21), cur, 4);
    }
    // N packed-pair samples (3N/2 bytes read, no more), the first and third byte of each group.
    // Bytes 0..11 and 12..23 of p (eight 3-byte groups) in the low bytes of the two halves.
    static __m256i groups(const unsigned char *p) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i hi = _mm_alignr_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p + 16)), lo, 12);
        return _mm256_set_m128i(hi, lo);
    }
    static W loadPairs(const unsigned char *p) {
        const __m256i pick = _mm256_setr_epi8(0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1,
                                              0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1);
        return _mm256_shuffle_epi8(groups(p), pick);
    }
    static W loadMiddles(const unsigned char *p) {
        const __m256i pick = _mm256_setr_epi8(1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11,
                                              1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11);
        return _mm256_shuffle_epi8(groups(p), pick);
    }
    // Channel C of N interleaved three-sample pixels, and the same pixels with the channels in `Mask`
    // (bit c for channel c) replaced, the others kept.
    template <int C> static W channel3x16b(const unsigned char *p) {
        static constexpr Lanes3 kT = lanes3();
        __m256i o[3];
        loadPieces(p, o);
        return _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(o[0], table(kT.take[0][C])),
                                               _mm256_shuffle_epi8(o[1], table(kT.take[1][C]))),
                               _mm256_shuffle_epi8(o[2], table(kT.take[2][C])));
    }
    template <int Mask> static void replace3x16b(unsigned char *p, W c0, W c1, W c2) {
        static constexpr Lanes3 kT = lanes3();
        const W c[3] = {c0, c1, c2};
        __m256i o[3];
        loadPieces(p, o);
        for (int k = 0; k < 3; ++k)
            for (int ch = 0; ch < 3; ++ch)
                if (Mask >> ch & 1)
                    o[k] = _mm256_blendv_epi8(o[k], _mm256_shuffle_epi8(c[ch], table(kT.pick[k][ch])),
                                              table(kT.place[k][ch]));
        storePieces(p, o);
    }

    // ---- Signed 16-bit lanes (differences of samples) and lane moves
    template <int K> static W sra(W a) { return _mm256_srai_epi16(a, K); }
    static W abs(W a) { return _mm256_abs_epi16(a); }
    static W clampByte(W a) { return _mm256_min_epi16(_mm256_max_epi16(a, _mm256_setzero_si256()), _mm256_set1_epi16(255)); }
    // a < b (signed) ? ifLess : otherwise, per lane.
    static W pickLess(W a, W b, W ifLess, W otherwise) {
        return _mm256_blendv_epi8(otherwise, ifLess, _mm256_cmpgt_epi16(b, a));
    }
    // The last K lanes of `prev` followed by the first N - K lanes of `cur`.
    template <int K> static W lanesBack(W prev, W cur) {
        return _mm256_alignr_epi8(cur, _mm256_permute2x128_si256(prev, cur, 0x21), 16 - 2 * K);
    }
    // The green byte of N 3-byte or 4-byte pixels; the other bytes keep what they held.
    static void storeGreen3(uint8_t *p, W g) {
        const W zero = _mm256_setzero_si256();
        __m256i lo, hi;
        words(zero, g, zero, lo, hi);
        greenInto24(p, lo);
        greenInto24(p + 24, hi);
    }
    static void greenInto24(uint8_t *p, __m256i words8) {
        const __m256i shuffle = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,
                                                 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
        const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words8, shuffle),
                                                           _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
        const __m256i green = _mm256_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0,
                                               -1, 0, 0, -1, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0);
        const __m256i old = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p))),
            _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p + 16)), 1);
        const __m256i out = _mm256_blendv_epi8(old, packed, green);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(out));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(p + 16), _mm256_extracti128_si256(out, 1));
    }
    static void storeGreen4(uint8_t *p, W g) {
        const W zero = _mm256_setzero_si256();
        __m256i lo, hi;
        words(zero, g, zero, lo, hi);
        const __m256i green = _mm256_set1_epi32(0x0000FF00);
        __m256i *q = reinterpret_cast<__m256i *>(p);
        _mm256_storeu_si256(q, _mm256_blendv_epi8(_mm256_loadu_si256(q), lo, green));
        _mm256_storeu_si256(q + 1, _mm256_blendv_epi8(_mm256_loadu_si256(q + 1), hi, green));
    }

    // ---- Pairs: 2N values held as the N at even positions and the N at odd positions, in signed lanes,
    // stored as bytes in position order, each saturated to 0..255 (the edge-directed band's row halves)
    static constexpr uint8_t kZipPairs[16] = {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15};
    static __m256i packPairs(W even, W odd) {
        return _mm256_shuffle_epi8(_mm256_packus_epi16(even, odd),
                                   _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(kZipPairs))));
    }
    static void store8x2(uint8_t *p, W even, W odd) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), packPairs(even, odd));
    }
    // Three bytes a position from the saturated pairs as they come out of packus_epi16 (per 128-bit lane
    // the 8 even positions, then the 8 odd ones): one byte shuffle per channel puts each of the lane's 16
    // positions where one of the three 16-byte pieces of its 48 output bytes wants it, and two blends a
    // piece pick the channels.
    struct Pairs3 {
        alignas(32) uint8_t pick[3][32];  // channel c: slot j of piece (c - j) mod 3
        alignas(32) uint8_t take1[3][32]; // piece k: 0xFF where slot j holds channel 1
        alignas(32) uint8_t take2[3][32]; // piece k: 0xFF where slot j holds channel 2
    };
    static constexpr Pairs3 pairs3() {
        Pairs3 t{};
        for (int c = 0; c < 3; ++c)
            for (int b = 0; b < 32; ++b) {
                const int j = b & 15, k = ((c - j) % 3 + 3) % 3, position = (16 * k + j) / 3;
                t.pick[c][b] = uint8_t(position % 2 == 0 ? position / 2 : 8 + position / 2);
                t.take1[c][b] = (c + j) % 3 == 1 ? 0xFF : 0; // here c stands for the piece
                t.take2[c][b] = (c + j) % 3 == 2 ? 0xFF : 0;
            }
        return t;
    }
    static void store3x2(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        static constexpr Pairs3 kT = pairs3();
        const __m256i a0 = _mm256_shuffle_epi8(_mm256_packus_epi16(c0e, c0o), table(kT.pick[0]));
        const __m256i a1 = _mm256_shuffle_epi8(_mm256_packus_epi16(c1e, c1o), table(kT.pick[1]));
        const __m256i a2 = _mm256_shuffle_epi8(_mm256_packus_epi16(c2e, c2o), table(kT.pick[2]));
        __m256i o[3];
        for (int k = 0; k < 3; ++k)
            o[k] = _mm256_blendv_epi8(_mm256_blendv_epi8(a0, a1, table(kT.take1[k])), a2, table(kT.take2[k]));
        storePieces(p, o);
    }
    // Four bytes a position: c0, c1, c2 and 0, or the fourth byte as it was.
    template <bool KeepFourth>
    static void store4x2(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        const __m256i a = packPairs(c0e, c0o), b = packPairs(c1e, c1o), c = packPairs(c2e, c2o);
        const __m256i zero = _mm256_setzero_si256();
        const __m256i abLo = _mm256_unpacklo_epi8(a, b), abHi = _mm256_unpackhi_epi8(a, b);
        const __m256i cLo = _mm256_unpacklo_epi8(c, zero), cHi = _mm256_unpackhi_epi8(c, zero);
        // Positions 0-3 | 16-19, 4-7 | 20-23, 8-11 | 24-27, 12-15 | 28-31.
        const __m256i w0 = _mm256_unpacklo_epi16(abLo, cLo), w1 = _mm256_unpackhi_epi16(abLo, cLo);
        const __m256i w2 = _mm256_unpacklo_epi16(abHi, cHi), w3 = _mm256_unpackhi_epi16(abHi, cHi);
        const __m256i out[4] = {_mm256_permute2x128_si256(w0, w1, 0x20), _mm256_permute2x128_si256(w2, w3, 0x20),
                                _mm256_permute2x128_si256(w0, w1, 0x31), _mm256_permute2x128_si256(w2, w3, 0x31)};
        __m256i *q = reinterpret_cast<__m256i *>(p);
        const __m256i fourth = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
        for (int i = 0; i < 4; ++i)
            _mm256_storeu_si256(q + i, KeepFourth ? _mm256_blendv_epi8(out[i], _mm256_loadu_si256(q + i), fourth) : out[i]);
    }

    // Single precision, NF lanes: 16-bit samples widened to floats and floats truncated back to them
    // (after the caller's clamp to 0 .. 65535). Each operation is one instruction, never fused with another.
    static constexpr int NF = 8;
    using F = __m256;
    static F loadF(const uint16_t *p) {
        return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p))));
    }
    static F fset1(float v) { return _mm256_set1_ps(v); }
    static F fmul(F a, F b) { return _mm256_mul_ps(a, b); }
    static F fadd(F a, F b) { return _mm256_add_ps(a, b); }
    static F fmaxZero(F a) { return _mm256_max_ps(a, _mm256_setzero_ps()); } // a NaN gives 0
    static F fmin(F a, F b) { return _mm256_min_ps(a, b); }
    static void storeF(uint16_t *p, F v) {
        const __m256i i = _mm256_cvttps_epi32(v);
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(i, i), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
    }
    static F floadu(const float *p) { return _mm256_loadu_ps(p); }
    static F fsub(F a, F b) { return _mm256_sub_ps(a, b); }
    // NF pixels of three samples (blue, green, red) as three vectors.
    static void loadF3(const uint16_t *p, F &b, F &g, F &r) {
        const __m128i p0 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)),
                      p1 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 8)),
                      p2 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16));
        // Each sample from the piece that holds it, then in order: the words of sample 0 .. 7 of a colour.
        const auto f = [](__m128i v, char a, char b, char c, char d, char e, char f, char g, char h) {
            const __m128i order = _mm_setr_epi8(2 * a, 2 * a + 1, 2 * b, 2 * b + 1, 2 * c, 2 * c + 1, 2 * d, 2 * d + 1,
                                                2 * e, 2 * e + 1, 2 * f, 2 * f + 1, 2 * g, 2 * g + 1, 2 * h, 2 * h + 1);
            return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_shuffle_epi8(v, order)));
        };
        b = f(_mm_blend_epi16(_mm_blend_epi16(p0, p1, 0x92), p2, 0x24), 0, 3, 6, 1, 4, 7, 2, 5);
        g = f(_mm_blend_epi16(_mm_blend_epi16(p0, p1, 0x24), p2, 0x49), 1, 4, 7, 2, 5, 0, 3, 6);
        r = f(_mm_blend_epi16(_mm_blend_epi16(p0, p1, 0x49), p2, 0x92), 2, 5, 0, 3, 6, 1, 4, 7);
    }
    // Lane i of a 16-entry table (two registers), i the octave of c in 2 .. 65537: (bits of c >> 23) & 15
    // (the permutation reads the low three bits, the blend the fourth).
    struct FTable {
        __m256 lo, hi;
    };
    static FTable ftable(const float *t) { return {_mm256_loadu_ps(t), _mm256_loadu_ps(t + 8)}; }
    static __m256i fsegment(F c) { return _mm256_srli_epi32(_mm256_castps_si256(c), 23); }
    static F flookup(const FTable &t, __m256i i) {
        return _mm256_blendv_ps(_mm256_permutevar8x32_ps(t.lo, i), _mm256_permutevar8x32_ps(t.hi, i),
                                _mm256_castsi256_ps(_mm256_slli_epi32(i, 28)));
    }
    // NF pixels of blue, green and red already in 0 .. 255, truncated, as 3 x NF bytes B, G, R.
    static void storeF3x8(unsigned char *p, F b, F g, F r) {
        const __m256i px = _mm256_or_si256(_mm256_or_si256(_mm256_cvttps_epi32(b), _mm256_slli_epi32(_mm256_cvttps_epi32(g), 8)),
                                           _mm256_slli_epi32(_mm256_cvttps_epi32(r), 16));
        const __m256i lanes = _mm256_shuffle_epi8(px, _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,
                                                                        0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
        const __m256i packed = _mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(packed));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(p + 16), _mm256_extracti128_si256(packed, 1));
    }
};
#endif

#if defined(__AVX512F__) && defined(__AVX512BW__) && defined(__AVX512VL__)
struct Avx512Ops {
    static constexpr int N = 32;
    using W = __m512i;

    static W load8(const uint8_t *p) { return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p))); }
    static W load16(const uint16_t *p) { return _mm512_loadu_si512(p); }
    static W set1(uint32_t v) { return _mm512_set1_epi16(static_cast<short>(v)); }
    static W add(W a, W b) { return _mm512_add_epi16(a, b); }
    static W sub(W a, W b) { return _mm512_sub_epi16(a, b); }
    static W mullo(W a, W b) { return _mm512_mullo_epi16(a, b); }
    static W and_(W a, W b) { return _mm512_and_si512(a, b); }
    template <int K> static W srl(W a) { return _mm512_srli_epi16(a, K); }
    template <int K> static W sll(W a) { return _mm512_slli_epi16(a, K); }
    static W srlBy(W a, int k) { return _mm512_srl_epi16(a, _mm_cvtsi32_si128(k)); }
    static W oddFrom(W even, W odd) { return _mm512_mask_blend_epi16(0xAAAAAAAAu, even, odd); }
    static W evensOf(W a, W b) {
        return _mm512_permutex2var_epi16(a, _mm512_set_epi16(62, 30, 60, 28, 58, 26, 56, 24, 54, 22, 52, 20, 50, 18, 48, 16,
                                                             46, 14, 44, 12, 42, 10, 40, 8, 38, 6, 36, 4, 34, 2, 32, 0),
                                         b);
    }
    static W oddsOf(W a) {
        return _mm512_shuffle_epi8(a, _mm512_broadcast_i32x4(
                                          _mm_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15)));
    }

    // N bytes, the low byte of each lane.
    static void store8(uint8_t *p, W v) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), _mm512_cvtepi16_epi8(v));
    }

    // The pixels as 32-bit words c0 | c1 << 8 | c2 << 16, pixels 0-15 and 16-31.
    static void words(W c0, W c1, W c2, __m512i &lo, __m512i &hi) {
        const __m512i low = _mm512_or_si512(c0, _mm512_slli_epi16(c1, 8));
        const __m512i a = _mm512_unpacklo_epi16(low, c2), b = _mm512_unpackhi_epi16(low, c2);
        lo = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), b);
        hi = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), b);
    }
    // 3 bytes a pixel: the first 64 of the 96 bytes in `first`, the rest in the low half of `second`.
    static void pack3(W c0, W c1, W c2, __m512i &first, __m512i &second) {
        __m512i lo, hi;
        words(c0, c1, c2, lo, hi);
        const __m512i shuffle = _mm512_broadcast_i32x4(
            _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
        lo = _mm512_shuffle_epi8(lo, shuffle); // 12 bytes at the start of every 16
        hi = _mm512_shuffle_epi8(hi, shuffle);
        // 96 bytes: the 12 useful words of `lo`, then those of `hi`.
        first = _mm512_permutex2var_epi32(lo, _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20),
                                          hi);
        second = _mm512_permutexvar_epi32(_mm512_setr_epi32(5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0, 0, 0, 0, 0), hi);
    }
    static void store3(uint8_t *p, W c0, W c1, W c2) {
        __m512i first, second;
        pack3(c0, c1, c2, first, second);
        _mm512_storeu_si512(p, first);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p + 64), _mm512_castsi512_si256(second));
    }
    static void store4(uint8_t *p, W c0, W c1, W c2) {
        __m512i lo, hi;
        words(c0, c1, c2, lo, hi);
        _mm512_storeu_si512(p, lo);
        _mm512_storeu_si512(p + 64, hi);
    }
    static void store4Keep(uint8_t *p, W c0, W c1, W c2) {
        __m512i lo, hi;
        words(c0, c1, c2, lo, hi);
        constexpr __mmask64 kFirstThree = 0x7777777777777777ull;
        _mm512_mask_storeu_epi8(p, kFirstThree, lo);
        _mm512_mask_storeu_epi8(p + 64, kFirstThree, hi);
    }

    // Packed pairs: 16 groups (48 bytes) to 32 samples; reads 64 bytes.
    static constexpr int kPairGroups = 16, kPairReadBytes = 64;
    static void unpackPairs(const uint8_t *src, uint8_t *dst) {
        const __m512i in = _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0),
                                                    _mm512_loadu_si512(src));
        const __m512i pick = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 2, 3, 5, 6, 8, 9, 11, -1, -1, -1, -1, -1, -1, -1, -1));
        const __m512i out = _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 0, 0, 0, 0), _mm512_shuffle_epi8(in, pick));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst), _mm512_castsi512_si256(out));
    }
    // 16 pixels (48 bytes) to 64 bytes; reads 64 bytes.
    static constexpr int kExpandPixels = 16, kExpandReadBytes = 64;
    static void expand3to4(const uint8_t *src, uint8_t *dst) {
        const __m512i in = _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0),
                                                    _mm512_loadu_si512(src));
        const __m512i spread = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
        _mm512_storeu_si512(dst, _mm512_shuffle_epi8(in, spread));
    }

    // ---- 16-bit samples at any byte address
    static W xor_(W a, W b) { return _mm512_xor_si512(a, b); }
    static W load16b(const unsigned char *p) { return _mm512_loadu_si512(p); }
    static void store16b(unsigned char *p, W v) { _mm512_storeu_si512(p, v); }
    // Three samples a pixel: c0, c1, c2; output vector j, lane L holds sample (32j + L) % 3 of pixel
    // (32j + L) / 3.
    struct Interleave3 {
        alignas(64) uint16_t pixel[3][N];
        uint32_t channel[3][3];
    };
    static constexpr Interleave3 interleave3() {
        Interleave3 t{};
        for (int j = 0; j < 3; ++j)
            for (int L = 0; L < N; ++L) {
                t.pixel[j][L] = static_cast<uint16_t>((N * j + L) / 3);
                t.channel[j][(N * j + L) % 3] |= 1u << L;
            }
        return t;
    }
    static void store3x16b(unsigned char *p, W c0, W c1, W c2) {
        static constexpr Interleave3 kT = interleave3();
        for (int j = 0; j < 3; ++j) {
            const __m512i index = _mm512_load_si512(kT.pixel[j]);
            __m512i v = _mm512_maskz_permutexvar_epi16(kT.channel[j][0], index, c0);
            v = _mm512_mask_permutexvar_epi16(v, kT.channel[j][1], index, c1);
            v = _mm512_mask_permutexvar_epi16(v, kT.channel[j][2], index, c2);
            _mm512_storeu_si512(p + 2 * N * j, v);
        }
    }

    // ---- 32-bit lanes (N / 2 of them) over the same registers, for 16-bit samples taken in pairs
    using D = W;
    static constexpr int N32 = N / 2;
    static D toD(W v) { return v; }
    static W toW(D v) { return v; }
    static D set1_32(int32_t v) { return _mm512_set1_epi32(v); }
    static D add32(D a, D b) { return _mm512_add_epi32(a, b); }
    static D sub32(D a, D b) { return _mm512_sub_epi32(a, b); }
    static D abs32(D a) { return _mm512_abs_epi32(a); }
    static D or_(D a, D b) { return _mm512_or_si512(a, b); }
    template <int K> static D sra32(D a) { return _mm512_srai_epi32(a, K); }
    template <int K> static D srl32(D a) { return _mm512_srli_epi32(a, K); }
    template <int K> static D sll32(D a) { return _mm512_slli_epi32(a, K); }
    static D clamp32(D a, D top) { return _mm512_min_epi32(_mm512_max_epi32(a, _mm512_setzero_si512()), top); }
    static D pickNotLess32(D a, D b, D ifNotLess, D otherwise) {
        return _mm512_mask_blend_epi32(_mm512_cmpge_epi32_mask(a, b), otherwise, ifNotLess);
    }
    static D laneBack32(D prev, D cur) { return _mm512_alignr_epi32(cur, prev, 15); }
    static D laneNext32(D cur, D next) { return _mm512_alignr_epi32(next, cur, 1); }
    // Bytes 0..47 of p (sixteen 3-byte groups), twelve in the low bytes of each 128-bit lane.
    static __m512i groups(const unsigned char *p) {
        return _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0),
                                        _mm512_maskz_loadu_epi8(0x0000FFFFFFFFFFFFull, p));
    }
    static W loadPairs(const unsigned char *p) {
        const __m512i pick = _mm512_broadcast_i32x4(_mm_setr_epi8(0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1));
        return _mm512_shuffle_epi8(groups(p), pick);
    }
    static W loadMiddles(const unsigned char *p) {
        const __m512i pick = _mm512_broadcast_i32x4(_mm_setr_epi8(1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11));
        return _mm512_shuffle_epi8(groups(p), pick);
    }
    // Channel C of N interleaved three-sample pixels: sample 3L + C of the three vectors for lane L.
    template <int C> static W channel3x16b(const unsigned char *p) {
        static constexpr auto kPick = [] {
            struct {
                uint16_t index[N];
                uint32_t fromThird = 0;
            } t{};
            for (int L = 0; L < N; ++L) {
                const int sample = 3 * L + C;
                t.index[L] = static_cast<uint16_t>(sample % (2 * N));
                if (sample >= 2 * N) t.fromThird |= 1u << L;
            }
            return t;
        }();
        const __m512i index = _mm512_loadu_si512(kPick.index);
        const __m512i firstTwo = _mm512_permutex2var_epi16(_mm512_loadu_si512(p), index, _mm512_loadu_si512(p + 64));
        return _mm512_mask_permutexvar_epi16(firstTwo, kPick.fromThird, index, _mm512_loadu_si512(p + 128));
    }
    // The same N pixels with the channels in `Mask` (bit c for channel c) replaced, the others kept.
    template <int Mask> static void replace3x16b(unsigned char *p, W c0, W c1, W c2) {
        static constexpr Interleave3 kT = interleave3();
        for (int j = 0; j < 3; ++j) {
            const __m512i index = _mm512_load_si512(kT.pixel[j]);
            __m512i v = _mm512_loadu_si512(p + 2 * N * j);
            if constexpr (Mask & 1) v = _mm512_mask_permutexvar_epi16(v, kT.channel[j][0], index, c0);
            if constexpr (Mask & 2) v = _mm512_mask_permutexvar_epi16(v, kT.channel[j][1], index, c1);
            if constexpr (Mask & 4) v = _mm512_mask_permutexvar_epi16(v, kT.channel[j][2], index, c2);
            _mm512_storeu_si512(p + 2 * N * j, v);
        }
    }

    // ---- Signed 16-bit lanes (differences of samples) and lane moves
    template <int K> static W sra(W a) { return _mm512_srai_epi16(a, K); }
    static W abs(W a) { return _mm512_abs_epi16(a); }
    static W clampByte(W a) { return _mm512_min_epi16(_mm512_max_epi16(a, _mm512_setzero_si512()), _mm512_set1_epi16(255)); }
    static W pickLess(W a, W b, W ifLess, W otherwise) {
        return _mm512_mask_blend_epi16(_mm512_cmplt_epi16_mask(a, b), otherwise, ifLess);
    }
    template <int K> static W lanesBack(W prev, W cur) {
        static constexpr auto kIndex = [] {
            struct { alignas(64) uint16_t i[N]; } t{};
            for (int L = 0; L < N; ++L) t.i[L] = static_cast<uint16_t>(L < K ? N - K + L : N + L - K);
            return t;
        }();
        return _mm512_permutex2var_epi16(prev, _mm512_loadu_si512(kIndex.i), cur);
    }
    static void storeGreen3(uint8_t *p, W g) {
        const W zero = _mm512_setzero_si512();
        __m512i first, second;
        pack3(zero, g, zero, first, second);
        _mm512_mask_storeu_epi8(p, 0x2492492492492492ull, first);          // bytes 3i + 1
        _mm256_mask_storeu_epi8(p + 64, 0x49249249u, _mm512_castsi512_si256(second)); // bytes 64 + 3i
    }
    static void storeGreen4(uint8_t *p, W g) {
        const W zero = _mm512_setzero_si512();
        __m512i lo, hi;
        words(zero, g, zero, lo, hi);
        constexpr __mmask64 kSecond = 0x2222222222222222ull;
        _mm512_mask_storeu_epi8(p, kSecond, lo);
        _mm512_mask_storeu_epi8(p + 64, kSecond, hi);
    }

    // ---- Pairs: 2N values held as the N at even positions and the N at odd positions, in signed lanes,
    // stored as bytes in position order, each saturated to 0..255 (the edge-directed band's row halves)
    static __m512i packPairs(W even, W odd) {
        const __m512i zip = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
        return _mm512_shuffle_epi8(_mm512_packus_epi16(even, odd), zip);
    }
    static void store8x2(uint8_t *p, W even, W odd) { _mm512_storeu_si512(p, packPairs(even, odd)); }
    // As at AVX2: per 128-bit lane one shuffle a channel and two blends a 16-byte piece, then the twelve
    // pieces (lane j, piece k at bytes 48j + 16k) in memory order.
    struct Pairs3 {
        alignas(16) uint8_t pick[3][16];
        uint64_t take1[3], take2[3];
    };
    static constexpr Pairs3 pairs3() {
        Pairs3 t{};
        for (int c = 0; c < 3; ++c)
            for (int j = 0; j < 16; ++j) {
                const int k = ((c - j) % 3 + 3) % 3, position = (16 * k + j) / 3;
                t.pick[c][j] = uint8_t(position % 2 == 0 ? position / 2 : 8 + position / 2);
                for (int lane = 0; lane < 4; ++lane) {
                    if ((c + j) % 3 == 1) t.take1[c] |= 1ull << (16 * lane + j);
                    if ((c + j) % 3 == 2) t.take2[c] |= 1ull << (16 * lane + j);
                }
            }
        return t;
    }
    static void store3x2(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        static constexpr Pairs3 kT = pairs3();
        const auto pick = [](int c) { return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i *>(kT.pick[c]))); };
        const __m512i a0 = _mm512_shuffle_epi8(_mm512_packus_epi16(c0e, c0o), pick(0));
        const __m512i a1 = _mm512_shuffle_epi8(_mm512_packus_epi16(c1e, c1o), pick(1));
        const __m512i a2 = _mm512_shuffle_epi8(_mm512_packus_epi16(c2e, c2o), pick(2));
        __m512i o[3];
        for (int k = 0; k < 3; ++k)
            o[k] = _mm512_mask_blend_epi8(kT.take2[k], _mm512_mask_blend_epi8(kT.take1[k], a0, a1), a2);
        // Output vector m holds pieces 4m .. 4m+3, piece q = 3j + k being lane j of o[k].
        const __m512i out0 = _mm512_mask_permutexvar_epi64(
            _mm512_permutex2var_epi64(o[0], _mm512_setr_epi64(0, 1, 8, 9, 0, 0, 2, 3), o[1]), 0x30,
            _mm512_setr_epi64(0, 0, 0, 0, 0, 1, 0, 0), o[2]);
        const __m512i out1 = _mm512_mask_permutexvar_epi64(
            _mm512_permutex2var_epi64(o[1], _mm512_setr_epi64(2, 3, 0, 0, 12, 13, 4, 5), o[0]), 0x0C,
            _mm512_setr_epi64(0, 0, 2, 3, 0, 0, 0, 0), o[2]);
        const __m512i out2 = _mm512_mask_permutexvar_epi64(
            _mm512_permutex2var_epi64(o[2], _mm512_setr_epi64(4, 5, 14, 15, 0, 0, 6, 7), o[0]), 0x30,
            _mm512_setr_epi64(0, 0, 0, 0, 6, 7, 0, 0), o[1]);
        _mm512_storeu_si512(p, out0);
        _mm512_storeu_si512(p + 64, out1);
        _mm512_storeu_si512(p + 128, out2);
    }
    template <bool KeepFourth>
    static void store4x2(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        const __m512i a = packPairs(c0e, c0o), b = packPairs(c1e, c1o), c = packPairs(c2e, c2o);
        const __m512i zero = _mm512_setzero_si512();
        const __m512i abLo = _mm512_unpacklo_epi8(a, b), abHi = _mm512_unpackhi_epi8(a, b);
        const __m512i cLo = _mm512_unpacklo_epi8(c, zero), cHi = _mm512_unpackhi_epi8(c, zero);
        // Lane j: positions 16j + 0-3, 4-7, 8-11, 12-15; transposed to memory order.
        const __m512i w0 = _mm512_unpacklo_epi16(abLo, cLo), w1 = _mm512_unpackhi_epi16(abLo, cLo);
        const __m512i w2 = _mm512_unpacklo_epi16(abHi, cHi), w3 = _mm512_unpackhi_epi16(abHi, cHi);
        const __m512i t0 = _mm512_shuffle_i64x2(w0, w1, 0x44), t1 = _mm512_shuffle_i64x2(w2, w3, 0x44);
        const __m512i t2 = _mm512_shuffle_i64x2(w0, w1, 0xEE), t3 = _mm512_shuffle_i64x2(w2, w3, 0xEE);
        const __m512i out[4] = {_mm512_shuffle_i64x2(t0, t1, 0x88), _mm512_shuffle_i64x2(t0, t1, 0xDD),
                                _mm512_shuffle_i64x2(t2, t3, 0x88), _mm512_shuffle_i64x2(t2, t3, 0xDD)};
        for (int i = 0; i < 4; ++i) {
            if constexpr (KeepFourth) _mm512_mask_storeu_epi8(p + 64 * i, 0x7777777777777777ull, out[i]);
            else _mm512_storeu_si512(p + 64 * i, out[i]);
        }
    }

    // Single precision, NF lanes: 16-bit samples widened to floats and floats truncated back to them
    // (after the caller's clamp to 0 .. 65535). Each operation is one instruction, never fused with another.
    static constexpr int NF = 16;
    using F = __m512;
    static F loadF(const uint16_t *p) {
        return _mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p))));
    }
    static F fset1(float v) { return _mm512_set1_ps(v); }
    static F fmul(F a, F b) { return _mm512_mul_ps(a, b); }
    static F fadd(F a, F b) { return _mm512_add_ps(a, b); }
    static F fmaxZero(F a) { return _mm512_max_ps(a, _mm512_setzero_ps()); } // a NaN gives 0
    static F fmin(F a, F b) { return _mm512_min_ps(a, b); }
    static void storeF(uint16_t *p, F v) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), _mm512_cvtusepi32_epi16(_mm512_cvttps_epi32(v)));
    }
    static F floadu(const float *p) { return _mm512_loadu_ps(p); }
    static F fsub(F a, F b) { return _mm512_sub_ps(a, b); }
    // NF pixels of three samples (blue, green, red) as three vectors.
    static void loadF3(const uint16_t *p, F &b, F &g, F &r) {
        const __m512i lo = _mm512_loadu_si512(p), hi = _mm512_castsi256_si512(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + 32)));
        const auto f = [&](int c) {
            const __m512i index = _mm512_add_epi16(_mm512_set_epi16(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 45, 42, 39, 36,
                                                                    33, 30, 27, 24, 21, 18, 15, 12, 9, 6, 3, 0),
                                                   _mm512_set1_epi16(static_cast<short>(c)));
            return _mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(_mm512_castsi512_si256(_mm512_permutex2var_epi16(lo, index, hi))));
        };
        b = f(0), g = f(1), r = f(2);
    }
    // Lane i of a 16-entry table, i the octave of c in 2 .. 65537: (bits of c >> 23) & 15 (the
    // permutation reads the low four bits alone).
    using FTable = __m512;
    static FTable ftable(const float *t) { return _mm512_loadu_ps(t); }
    static __m512i fsegment(F c) { return _mm512_srli_epi32(_mm512_castps_si512(c), 23); }
    static F flookup(FTable t, __m512i i) { return _mm512_permutexvar_ps(i, t); }
    // NF pixels of blue, green and red already in 0 .. 255, truncated, as 3 x NF bytes B, G, R.
    static void storeF3x8(unsigned char *p, F b, F g, F r) {
        const __m512i px = _mm512_or_si512(_mm512_or_si512(_mm512_cvttps_epi32(b), _mm512_slli_epi32(_mm512_cvttps_epi32(g), 8)),
                                           _mm512_slli_epi32(_mm512_cvttps_epi32(r), 16));
        const __m512i lanes = _mm512_shuffle_epi8(px, _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14,
                                                                                          -1, -1, -1, -1)));
        const __m512i packed =
            _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15), lanes);
        _mm512_mask_storeu_epi32(p, 0x0FFF, packed);
    }
};
#endif

} // namespace
