// The vector operations layer on AArch64 (NEON), with the same names as the x86 ones (ops_x86.h), so
// the kernels written over `O` compile here unchanged. W holds 8 unsigned 16-bit lanes, one pixel each.
#pragma once

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

struct NeonOps {
    static constexpr int N = 8;
    using W = uint16x8_t;

    static W load8(const uint8_t *p) { return vmovl_u8(vld1_u8(p)); }
    static W load16(const uint16_t *p) { return vld1q_u16(p); }
    static W set1(uint32_t v) { return vdupq_n_u16(static_cast<uint16_t>(v)); }
    static W add(W a, W b) { return vaddq_u16(a, b); }
    static W sub(W a, W b) { return vsubq_u16(a, b); }
    static W mullo(W a, W b) { return vmulq_u16(a, b); }
    static W and_(W a, W b) { return vandq_u16(a, b); }
    template <int K> static W srl(W a) { return vshrq_n_u16(a, K); }
    template <int K> static W sll(W a) { return vshlq_n_u16(a, K); }
    static W srlBy(W a, int k) { return vshlq_u16(a, vdupq_n_s16(static_cast<int16_t>(-k))); }
    static W oddFrom(W even, W odd) {
        static constexpr uint16_t kOdd[8] = {0, 0xFFFF, 0, 0xFFFF, 0, 0xFFFF, 0, 0xFFFF};
        return vbslq_u16(vld1q_u16(kOdd), odd, even);
    }
    static W evensOf(W a, W b) { return vtrn1q_u16(a, b); }
    static W oddsOf(W a) { return vtrn2q_u16(a, a); }

    static void store8(uint8_t *p, W v) { vst1_u8(p, vmovn_u16(v)); }
    static void store3(uint8_t *p, W c0, W c1, W c2) {
        uint8x8x3_t t;
        t.val[0] = vmovn_u16(c0);
        t.val[1] = vmovn_u16(c1);
        t.val[2] = vmovn_u16(c2);
        vst3_u8(p, t);
    }
    static void store4(uint8_t *p, W c0, W c1, W c2) {
        uint8x8x4_t t;
        t.val[0] = vmovn_u16(c0);
        t.val[1] = vmovn_u16(c1);
        t.val[2] = vmovn_u16(c2);
        t.val[3] = vdup_n_u8(0);
        vst4_u8(p, t);
    }
    static void store4Keep(uint8_t *p, W c0, W c1, W c2) {
        uint8x8x4_t t = vld4_u8(p);
        t.val[0] = vmovn_u16(c0);
        t.val[1] = vmovn_u16(c1);
        t.val[2] = vmovn_u16(c2);
        vst4_u8(p, t);
    }

    // Packed pairs: 8 groups (24 bytes) to 16 samples; reads 24 bytes.
    static constexpr int kPairGroups = 8, kPairReadBytes = 24;
    static void unpackPairs(const uint8_t *src, uint8_t *dst) {
        const uint8x8x3_t in = vld3_u8(src);
        uint8x8x2_t out;
        out.val[0] = in.val[0];
        out.val[1] = in.val[2];
        vst2_u8(dst, out);
    }
    // 8 pixels (24 bytes) to 32 bytes; reads 24 bytes.
    static constexpr int kExpandPixels = 8, kExpandReadBytes = 24;
    static void expand3to4(const uint8_t *src, uint8_t *dst) {
        const uint8x8x3_t in = vld3_u8(src);
        uint8x8x4_t out;
        out.val[0] = in.val[0];
        out.val[1] = in.val[1];
        out.val[2] = in.val[2];
        out.val[3] = vdup_n_u8(0);
        vst4_u8(dst, out);
    }

    // ---- 16-bit samples at any byte address
    static W xor_(W a, W b) { return veorq_u16(a, b); }
    static W load16b(const unsigned char *p) { return vreinterpretq_u16_u8(vld1q_u8(p)); }
    static void store16b(unsigned char *p, W v) { vst1q_u8(p, vreinterpretq_u8_u16(v)); }
    static void store3x16b(unsigned char *p, W c0, W c1, W c2) {
        uint16_t out[3 * N];
        uint16x8x3_t t;
        t.val[0] = c0;
        t.val[1] = c1;
        t.val[2] = c2;
        vst3q_u16(out, t);
        __builtin_memcpy(p, out, sizeof out);
    }

    // ---- 32-bit lanes (N / 2 of them), for 16-bit samples taken in pairs
    using D = uint32x4_t;
    static constexpr int N32 = N / 2;
    static D toD(W v) { return vreinterpretq_u32_u16(v); }
    static W toW(D v) { return vreinterpretq_u16_u32(v); }
    static int32x4_t s32(D a) { return vreinterpretq_s32_u32(a); }
    static D u32(int32x4_t a) { return vreinterpretq_u32_s32(a); }
    static D set1_32(int32_t v) { return vdupq_n_u32(static_cast<uint32_t>(v)); }
    static D add32(D a, D b) { return vaddq_u32(a, b); }
    static D sub32(D a, D b) { return vsubq_u32(a, b); }
    static D abs32(D a) { return u32(vabsq_s32(s32(a))); }
    static D and_(D a, D b) { return vandq_u32(a, b); }
    static D or_(D a, D b) { return vorrq_u32(a, b); }
    template <int K> static D sra32(D a) { return u32(vshrq_n_s32(s32(a), K)); }
    template <int K> static D srl32(D a) { return vshrq_n_u32(a, K); }
    template <int K> static D sll32(D a) { return vshlq_n_u32(a, K); }
    static D clamp32(D a, D top) { return u32(vminq_s32(vmaxq_s32(s32(a), vdupq_n_s32(0)), s32(top))); }
    static D pickNotLess32(D a, D b, D ifNotLess, D otherwise) {
        return vbslq_u32(vcgeq_s32(s32(a), s32(b)), ifNotLess, otherwise);
    }
    static D laneBack32(D prev, D cur) { return vextq_u32(prev, cur, 3); }
    static D laneNext32(D cur, D next) { return vextq_u32(cur, next, 1); }
    // Bytes 0..11 of p (four 3-byte groups) in the low bytes.
    static uint8x16_t groups(const unsigned char *p) {
        uint32_t last;
        std::memcpy(&last, p + 8, 4);
        const uint32x4_t first = vreinterpretq_u32_u8(vcombine_u8(vld1_u8(p), vdup_n_u8(0)));
        return vreinterpretq_u8_u32(vsetq_lane_u32(last, first, 2));
    }
    static W loadPairs(const unsigned char *p) {
        static constexpr uint8_t kPick[16] = {0, 255, 2, 255, 3, 255, 5, 255, 6, 255, 8, 255, 9, 255, 11, 255};
        return vreinterpretq_u16_u8(vqtbl1q_u8(groups(p), vld1q_u8(kPick)));
    }
    static W loadMiddles(const unsigned char *p) {
        static constexpr uint8_t kPick[16] = {1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11};
        return vreinterpretq_u16_u8(vqtbl1q_u8(groups(p), vld1q_u8(kPick)));
    }
    template <int C> static W channel3x16b(const unsigned char *p) {
        uint16_t in[3 * N];
        __builtin_memcpy(in, p, sizeof in);
        return vld3q_u16(in).val[C];
    }
    template <int Mask> static void replace3x16b(unsigned char *p, W c0, W c1, W c2) {
        uint16_t buf[3 * N];
        __builtin_memcpy(buf, p, sizeof buf);
        uint16x8x3_t t = vld3q_u16(buf);
        if constexpr (Mask & 1) t.val[0] = c0;
        if constexpr (Mask & 2) t.val[1] = c1;
        if constexpr (Mask & 4) t.val[2] = c2;
        vst3q_u16(buf, t);
        __builtin_memcpy(p, buf, sizeof buf);
    }

    // ---- Signed 16-bit lanes (differences of samples) and lane moves
    static int16x8_t s(W a) { return vreinterpretq_s16_u16(a); }
    static W u(int16x8_t a) { return vreinterpretq_u16_s16(a); }
    template <int K> static W sra(W a) { return u(vshrq_n_s16(s(a), K)); }
    static W abs(W a) { return u(vabsq_s16(s(a))); }
    static W clampByte(W a) { return u(vminq_s16(vmaxq_s16(s(a), vdupq_n_s16(0)), vdupq_n_s16(255))); }
    static W pickLess(W a, W b, W ifLess, W otherwise) { return vbslq_u16(vcltq_s16(s(a), s(b)), ifLess, otherwise); }
    template <int K> static W lanesBack(W prev, W cur) { return vextq_u16(prev, cur, N - K); }
    static void storeGreen3(uint8_t *p, W g) {
        uint8x8x3_t t = vld3_u8(p);
        t.val[1] = vmovn_u16(g);
        vst3_u8(p, t);
    }
    static void storeGreen4(uint8_t *p, W g) {
        uint8x8x4_t t = vld4_u8(p);
        t.val[1] = vmovn_u16(g);
        vst4_u8(p, t);
    }

    // ---- Pairs: 2N values held as the N at even positions and the N at odd positions, in signed lanes,
    // stored as bytes in position order, each saturated to 0..255 (the edge-directed band's row halves)
    static uint8x16_t packPairs(W even, W odd) {
        const uint8x8x2_t z = vzip_u8(vqmovun_s16(s(even)), vqmovun_s16(s(odd)));
        return vcombine_u8(z.val[0], z.val[1]);
    }
    static void store8x2(uint8_t *p, W even, W odd) { vst1q_u8(p, packPairs(even, odd)); }
    static void store3x2(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        uint8x16x3_t t;
        t.val[0] = packPairs(c0e, c0o);
        t.val[1] = packPairs(c1e, c1o);
        t.val[2] = packPairs(c2e, c2o);
        vst3q_u8(p, t);
    }
    template <bool KeepFourth>
    static void store4x2(uint8_t *p, W c0e, W c0o, W c1e, W c1o, W c2e, W c2o) {
        uint8x16x4_t t;
        if constexpr (KeepFourth) t = vld4q_u8(p);
        else t.val[3] = vdupq_n_u8(0);
        t.val[0] = packPairs(c0e, c0o);
        t.val[1] = packPairs(c1e, c1o);
        t.val[2] = packPairs(c2e, c2o);
        vst4q_u8(p, t);
    }

    // Single precision, NF lanes: 16-bit samples widened to floats and floats truncated back to them
    // (after the caller's clamp to 0 .. 65535). Each operation is one instruction, never fused with another.
    static constexpr int NF = 4;
    using F = float32x4_t;
    static F loadF(const uint16_t *p) { return vcvtq_f32_u32(vmovl_u16(vld1_u16(p))); }
    static F fset1(float v) { return vdupq_n_f32(v); }
    static F fmul(F a, F b) { return vmulq_f32(a, b); }
    static F fadd(F a, F b) { return vaddq_f32(a, b); }
    static F fmaxZero(F a) { return vbslq_f32(vcgtq_f32(a, vdupq_n_f32(0)), a, vdupq_n_f32(0)); } // a NaN gives 0
    static F fmin(F a, F b) { return vminq_f32(a, b); }
    static void storeF(uint16_t *p, F v) { vst1_u16(p, vmovn_u32(vcvtq_u32_f32(v))); }
    static F floadu(const float *p) { return vld1q_f32(p); }
    static F fsub(F a, F b) { return vsubq_f32(a, b); }
    // NF pixels of three samples (blue, green, red) as three vectors.
    static void loadF3(const uint16_t *p, F &b, F &g, F &r) {
        const uint16x4x3_t v = vld3_u16(p);
        b = vcvtq_f32_u32(vmovl_u16(v.val[0])), g = vcvtq_f32_u32(vmovl_u16(v.val[1])), r = vcvtq_f32_u32(vmovl_u16(v.val[2]));
    }
    // Lane i of a 16-entry table (64 bytes), i the octave of c in 2 .. 65537: (bits of c >> 23) & 15.
    using FTable = uint8x16x4_t;
    static FTable ftable(const float *t) { return vld1q_u8_x4(reinterpret_cast<const uint8_t *>(t)); }
    static uint32x4_t fsegment(F c) { return vandq_u32(vshrq_n_u32(vreinterpretq_u32_f32(c), 23), vdupq_n_u32(15)); }
    static F flookup(const FTable &t, uint32x4_t i) {
        const uint32x4_t bytes = vorrq_u32(vmulq_n_u32(i, 0x04040404u), vdupq_n_u32(0x03020100u));
        return vreinterpretq_f32_u8(vqtbl4q_u8(t, vreinterpretq_u8_u32(bytes)));
    }
    // NF pixels of blue, green and red already in 0 .. 255, truncated, as 3 x NF bytes B, G, R.
    static void storeF3x8(unsigned char *p, F b, F g, F r) {
        const uint32x4_t px = vorrq_u32(vorrq_u32(vcvtq_u32_f32(b), vshlq_n_u32(vcvtq_u32_f32(g), 8)),
                                        vshlq_n_u32(vcvtq_u32_f32(r), 16));
        static constexpr uint8_t kOrder[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 255, 255, 255, 255};
        const uint8x16_t packed = vqtbl1q_u8(vreinterpretq_u8_u32(px), vld1q_u8(kOrder));
        vst1_u8(p, vget_low_u8(packed));
        vst1q_lane_u32(reinterpret_cast<uint32_t *>(p + 8), vreinterpretq_u32_u8(packed), 2);
    }
};


} // namespace
