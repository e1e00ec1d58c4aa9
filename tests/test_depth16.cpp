// The full-depth entry point against the per-pixel models of tests/model/u16_model.h: random frames of
// every size from 4x4 to 13x13 and larger ones for the vector interiors, every Bayer code (10, 12, 14,
// 16 bits, 10 and 12-bit packed), tight, padded and odd strides, samples with stray bits above the
// depth, every method, output layout and full-range scaling; equality with the exported RGGB bilinear
// entry points and edge-directed drivers where they apply; every thread count; full-range extremes; the
// checks and their order; a few hand-worked samples of the packing and the scaling.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "model/u16_model.h"
#include "velqora.h"

using namespace vqt16;

namespace {

constexpr uint32_t kGR[] = {VQP_PIXEL_FORMAT_BAYER_GR10, VQP_PIXEL_FORMAT_BAYER_GR12, VQP_PIXEL_FORMAT_BAYER_GR14,
                            VQP_PIXEL_FORMAT_BAYER_GR16, VQP_PIXEL_FORMAT_BAYER_GR10_PACKED,
                            VQP_PIXEL_FORMAT_BAYER_GR12_PACKED};
constexpr int kBits[] = {10, 12, 14, 16, 10, 12};
// Offset from the GR code of each phase 0..3 (RGGB, GRBG, GBRG, BGGR).
constexpr uint32_t kPhaseOffset[] = {1, 0, 2, 3};
constexpr uint64_t kLayouts[] = {VQP_PIXEL_FORMAT_BGR16, VQP_PIXEL_FORMAT_RGB16, VQP_PIXEL_FORMAT_RGB16_PLANAR,
                                 VQP_PIXEL_FORMAT_BGR16_PLANAR};

struct Handle {
    ProcessingHandle *h = nullptr;
    Handle() { vqpCreate(&h); }
    ~Handle() { vqpRelease(&h); }
};

// A frame's bytes in its format: 16-bit containers (with stray bits above the depth in every row when `stray`
// is 1, in three rows a third of the way down when it is 2), or
// packed pairs (high bits in bytes 0 and 2, low bits in byte 1, the first sample's in the low nibble),
// rows `stride` bytes apart or, with stride 0, one run of samples.
struct Encoded {
    std::vector<uint8_t> bytes;
    int32_t stride;
};
Encoded encode(const Mosaic16 &m, bool packed, int bits, int32_t stride, int stray, std::mt19937 &rng) {
    const size_t n = m.s.size();
    std::vector<uint8_t> b;
    if (!packed) {
        b.assign(size_t(stride) * size_t(m.h), 0xEE);
        for (int y = 0; y < m.h; ++y)
            for (int x = 0; x < m.w; ++x) {
                const bool strayRow = stray == 1 || (stray == 2 && y >= m.h / 3 && y < m.h / 3 + 3);
                uint16_t v = uint16_t(m(y, x) | (strayRow ? (rng() << bits) & 0xFFFF : 0));
                std::memcpy(&b[size_t(y) * size_t(stride) + 2 * size_t(x)], &v, 2);
            }
        return {b, stride};
    }
    const int low = bits - 8;
    auto put = [&](uint8_t *p, int v0, int v1, bool second) {
        p[0] = uint8_t(v0 >> low);
        p[1] = uint8_t((v0 & ((1 << low) - 1)) | (second ? (v1 & ((1 << low) - 1)) << 4 : 0));
        if (second) p[2] = uint8_t(v1 >> low);
    };
    if (stride == 0) { // one run: pairs across row ends, a trailing half pair of two bytes
        b.assign(3 * (n / 2) + 2 * (n & 1), 0xEE);
        for (size_t i = 0; i < n; i += 2) put(&b[i / 2 * 3], m.s[i], i + 1 < n ? m.s[i + 1] : 0, i + 1 < n);
        return {b, m.w + (m.w >> 1)};
    }
    b.assign(size_t(stride) * size_t(m.h), 0xEE);
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; x += 2)
            put(&b[size_t(y) * size_t(stride) + size_t(x) / 2 * 3], m(y, x), x + 1 < m.w ? m(y, x + 1) : 0, x + 1 < m.w);
    return {b, stride};
}

uint16_t widen(int v, int bits) { return uint16_t(bits == 16 ? v : v << (16 - bits) | v >> (2 * bits - 16)); }

// A model result (B, G, R pixels) in an output layout, optionally scaled to 16 bits.
std::vector<uint16_t> laidOut(const std::vector<uint16_t> &bgr, uint64_t config, int bits) {
    const size_t n = bgr.size() / 3;
    const uint32_t format = uint32_t(config);
    const bool full = (config & VQP_OUTPUT16_FULL_RANGE) != 0;
    std::vector<uint16_t> out(bgr.size());
    for (size_t i = 0; i < n; ++i)
        for (size_t c = 0; c < 3; ++c) {
            const uint16_t v = full ? widen(bgr[3 * i + c], bits) : bgr[3 * i + c];
            const size_t rgb = 2 - c; // 0 red, 1 green, 2 blue
            switch (format) {
            case VQP_PIXEL_FORMAT_BGR16: out[3 * i + c] = v; break;
            case VQP_PIXEL_FORMAT_RGB16: out[3 * i + rgb] = v; break;
            case VQP_PIXEL_FORMAT_RGB16_PLANAR: out[rgb * n + i] = v; break;
            default: out[c * n + i] = v; break;
            }
        }
    return out;
}

std::vector<uint16_t> run(ProcessingHandle *h, const Encoded &e, int height, int width, uint32_t code,
                          uint32_t method, uint64_t config, uint32_t threads, int32_t *status = nullptr) {
    EXPECT_EQ(vqpDemosaicSetConfig16(h, &config), VQP_OK);
    std::vector<uint16_t> out(size_t(3) * size_t(height) * size_t(width), 0xA5A5);
    ImageFrame in{height, width, code, const_cast<uint8_t *>(e.bytes.data()), e.stride};
    ImageFrame o{0, 0, 0, out.data(), 0};
    const int32_t rc = vqpDemosaicing16(h, &in, method, &o, threads);
    if (status != nullptr) *status = rc;
    else EXPECT_EQ(rc, VQP_OK);
    EXPECT_TRUE(rc != VQP_OK || (o.height == height && o.width == width && o.pixelFormat == uint32_t(config)));
    return out;
}

std::vector<uint16_t> modelOf(const Mosaic16 &m, int phase, uint32_t method, int bits) {
    if (method == VQP_METHOD_NEAREST) return nearestModel(m, phase);
    if (method == VQP_METHOD_BILINEAR) return bilinearModel(m, phase);
    return edgeModel(m, phase, (1 << bits) - 1);
}

std::string firstDifference(const std::vector<uint16_t> &got, const std::vector<uint16_t> &want) {
    const auto [g, e] = std::mismatch(got.begin(), got.end(), want.begin());
    if (g == got.end()) return "";
    return "sample " + std::to_string(g - got.begin()) + ": got " + std::to_string(*g) + ", want " + std::to_string(*e);
}

// Every format, phase, method and layout on one frame size; strides and stray bits chosen at random.
void checkSize(ProcessingHandle *h, int height, int width, std::mt19937 &rng) {
    for (size_t k = 0; k < std::size(kGR); ++k) {
        const bool packed = k >= 4;
        const int bits = kBits[k];
        const int32_t tight = packed ? 3 * (width / 2) + 2 * (width & 1) : 2 * width;
        for (int phase = 0; phase < 4; ++phase) {
            const uint32_t code = kGR[k] + kPhaseOffset[phase];
            const int top = rng() % 4 == 0 ? 3 : (1 << bits) - 1; // small values make direction ties common
            const Mosaic16 m = randomMosaic16(height, width, top, rng);
            const int32_t stride = packed && rng() % 3 == 0 ? 0 : tight + int32_t(rng() % 3) * int32_t(rng() % 5);
            const Encoded e = encode(m, packed, bits, stride, packed ? 0 : int(rng() % 3), rng);
            // Nearest last: it converts the whole input into the handle's scratch, which the others must not rely on.
            for (uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE, VQP_METHOD_NEAREST}) {
                const auto want = modelOf(m, phase, method, bits);
                for (uint64_t layout : kLayouts) {
                    const uint64_t config = layout | (rng() % 2 ? VQP_OUTPUT16_FULL_RANGE : 0);
                    ASSERT_EQ(firstDifference(run(h, e, height, width, code, method, config, 1),
                                              laidOut(want, config, bits)), "")
                        << height << "x" << width << " code " << std::hex << code << std::dec << " stride "
                        << e.stride << " method " << method << " config " << std::hex << config;
                }
            }
        }
    }
}

} // namespace

TEST(Depth16, EverySmallSizeFormatMethodAndLayoutMatchesModel) {
    Handle h;
    std::mt19937 rng(2121);
    for (int height = 4; height <= 13; ++height)
        for (int width = 4; width <= 13; ++width) checkSize(h.h, height, width, rng);
}

// Widths that cover every remainder of the vector interiors at every level, heights odd and even.
TEST(Depth16, WideFramesMatchModel) {
    Handle h;
    std::mt19937 rng(2122);
    for (int i = 0; i < 12; ++i) checkSize(h.h, 6 + int(rng() % 12), 60 + int(rng() % 80), rng);
    // Taller: the one-thread conversion reads clean borders and bands where they lie and converts the others.
    for (int height : {24, 40, 170, 203}) checkSize(h.h, height, 8 + int(rng() % 40), rng);
}

// Where the exported 16-bit functions apply, the entry point gives their bytes.
TEST(Depth16, EqualsTheExportedFunctionsWhereTheyApply) {
    Handle h;
    std::mt19937 rng(2123);
    static constexpr decltype(&demosaicingEdgeRGGBU16) kDrivers[] = {demosaicingEdgeRGGBU16, demosaicingEdgeGRBGU16,
                                                                      demosaicingEdgeGBRGU16, demosaicingEdgeBGGRU16};
    for (int i = 0; i < 8; ++i) {
        const int height = 4 + int(rng() % 40), width = 4 + int(rng() % 90);
        const uint32_t hh = uint32_t(height), ww = uint32_t(width);
        const size_t n = size_t(height) * size_t(width);
        for (int bits : {12, 16}) {
            const Mosaic16 m = randomMosaic16(height, width, (1 << bits) - 1, rng);
            const Encoded e = encode(m, false, bits, 2 * width, 0, rng);
            const uint32_t family = bits == 12 ? VQP_PIXEL_FORMAT_BAYER_GR12 : VQP_PIXEL_FORMAT_BAYER_GR16;
            std::vector<uint16_t> want(3 * n);
            vqpDemosaicingBilinearU16(m.s.data(), hh, ww, want.data());
            EXPECT_EQ(run(h.h, e, height, width, family + 1, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_BGR16, 1), want);
            vqpDemosaicingBilinearU16P(m.s.data(), hh, ww, want.data(), want.data() + n, want.data() + 2 * n);
            EXPECT_EQ(run(h.h, e, height, width, family + 1, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_BGR16_PLANAR, 1), want);
            for (int phase = bits == 12 ? 0 : 1; phase < (bits == 12 ? 1 : 4); ++phase) {
                kDrivers[phase](m.s.data(), hh, ww, want.data());
                EXPECT_EQ(run(h.h, e, height, width, family + kPhaseOffset[phase], VQP_METHOD_EDGE,
                              VQP_PIXEL_FORMAT_BGR16, 1), want) << kPhases[phase];
            }
        }
    }
}

// Large enough for the worker threads: the bytes of one thread for 2, 3 and one per hardware thread.
TEST(Depth16, EveryThreadCountGivesTheSameBytes) {
    Handle h;
    std::mt19937 rng(2124);
    const int height = 181, width = 203;
    for (size_t k : {size_t(1), size_t(5)}) {
        const int bits = kBits[k];
        const Mosaic16 m = randomMosaic16(height, width, (1 << bits) - 1, rng);
        const bool packed = k >= 4;
        const Encoded e = encode(m, packed, bits, packed ? 0 : 2 * width + 6, true, rng);
        for (int phase = 0; phase < 4; ++phase)
            for (uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
                const auto want = modelOf(m, phase, method, bits);
                for (uint64_t layout : kLayouts) {
                    const uint32_t code = kGR[k] + kPhaseOffset[phase];
                    const uint64_t config = layout | VQP_OUTPUT16_FULL_RANGE;
                    const auto one = run(h.h, e, height, width, code, method, config, 1);
                    ASSERT_EQ(firstDifference(one, laidOut(want, config, bits)), "");
                    for (uint32_t threads : {2u, 3u, 0u})
                        ASSERT_EQ(run(h.h, e, height, width, code, method, config, threads), one)
                            << kPhases[phase] << " method " << method << " threads " << threads;
                }
            }
    }
}

// Extremes at every depth: all samples at the maximum stay there, 0 and the maximum alternating by
// column or by row stay inside [0, maximum] and equal the models; the 16-bit RGGB ramp of a camera keeps
// its range (nothing stuck at 4095).
TEST(Depth16, FullRangeExtremesAndTheRamp) {
    Handle h;
    std::mt19937 rng(2125);
    for (size_t k = 0; k < 4; ++k) {
        const int bits = kBits[k], top = (1 << bits) - 1;
        for (int pattern = 0; pattern < 3; ++pattern) {
            Mosaic16 m{9, 10, {}};
            for (int i = 0; i < 90; ++i) m.s.push_back(uint16_t(pattern == 0 ? top : pattern == 1 ? (i % 2) * top : (i / 10 % 2) * top));
            const Encoded e = encode(m, false, bits, 20, false, rng);
            for (int phase = 0; phase < 4; ++phase)
                for (uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE, VQP_METHOD_NEAREST}) {
                    const auto got = run(h.h, e, 9, 10, kGR[k] + kPhaseOffset[phase], method, VQP_PIXEL_FORMAT_BGR16, 1);
                    EXPECT_EQ(firstDifference(got, modelOf(m, phase, method, bits)), "");
                    EXPECT_LE(*std::max_element(got.begin(), got.end()), top);
                    EXPECT_TRUE(pattern != 0 || *std::min_element(got.begin(), got.end()) == top);
                }
        }
    }
    Mosaic16 ramp{64, 64, {}};
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) ramp.s.push_back(uint16_t((x + y) * 505));
    const Encoded e = encode(ramp, false, 16, 128, false, rng);
    for (uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
        const auto got = run(h.h, e, 64, 64, VQP_PIXEL_FORMAT_BAYER_RG16, method, VQP_PIXEL_FORMAT_RGB16, 1);
        EXPECT_EQ(std::count(got.begin(), got.end(), 4095), 0);
        EXPECT_GT(*std::max_element(got.begin(), got.end()), 60000);
    }
}

// Packed pairs reassemble to full samples; stray container bits are dropped; scaling repeats top bits.
TEST(Depth16, HandWorkedSamples) {
    Handle h;
    const uint64_t config = VQP_PIXEL_FORMAT_BGR16;
    auto firstPixels = [&](uint32_t code, const std::vector<uint8_t> &row0, int32_t stride, uint64_t cfg) {
        std::vector<uint8_t> bytes(size_t(stride) * 4, 0);
        for (int y = 0; y < 4; ++y) std::copy(row0.begin(), row0.end(), bytes.begin() + y * stride);
        EXPECT_EQ(vqpDemosaicSetConfig16(h.h, &cfg), VQP_OK);
        std::vector<uint16_t> out(48);
        ImageFrame in{4, 4, code, bytes.data(), stride}, o{0, 0, 0, out.data(), 0};
        EXPECT_EQ(vqpDemosaicing16(h.h, &in, VQP_METHOD_NEAREST, &o, 1), VQP_OK);
        return out; // B, G, R of row 0: RGGB pixel (0, 1) has G = sample 1 of row 0
    };
    const std::vector<uint8_t> packed = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56};
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, packed, 6, config)[4], 0xEFC);
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, packed, 6, config)[2], 0xABD); // R of (0, 0)
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG10_PACKED, packed, 6, config)[4], 0xEF << 2);
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG10_PACKED, packed, 6, config)[2], 0xAB << 2 | 1);
    const std::vector<uint8_t> stray = {0x23, 0xF1, 0xFF, 0xFF, 0x01, 0x00, 0x00, 0x00}; // 0xF123, 0xFFFF, 1, 0
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG12, stray, 8, config)[2], 0x123);
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG12, stray, 8, config)[4], 0xFFF);
    const uint64_t full = config | VQP_OUTPUT16_FULL_RANGE;
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG12, stray, 8, full)[4], 0xFFFF);
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG10, stray, 8, full)[2], 0x123 << 6 | 0x123 >> 4);
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG14, stray, 8, full)[2], 0x3123 << 2 | 0x3123 >> 12);
    EXPECT_EQ(firstPixels(VQP_PIXEL_FORMAT_BAYER_RG16, stray, 8, full)[2], 0xF123);
}

TEST(Depth16, ChecksAndTheirOrder) {
    Handle h;
    std::vector<uint16_t> src(64, 100), dst(3 * 64, 0xA5A5);
    ImageFrame in{8, 8, VQP_PIXEL_FORMAT_BAYER_RG12, src.data(), 16}, o{0, 0, 0, dst.data(), 0};
    EXPECT_EQ(vqpDemosaicing16(nullptr, &in, 1, &o, 1), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing16(h.h, nullptr, 1, &o, 1), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing16(h.h, &in, 1, nullptr, 1), VQP_ERR_NULL_ARGUMENT);
    ImageFrame bad = in, noOut = o;
    bad.data = noOut.data = nullptr;
    bad.height = 2; // pointers before sizes
    EXPECT_EQ(vqpDemosaicing16(h.h, &bad, 1, &o, 1), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing16(h.h, &in, 1, &noOut, 1), VQP_ERR_NULL_ARGUMENT);
    for (auto edit : {+[](ImageFrame &f) { f.height = 3; }, +[](ImageFrame &f) { f.width = 3; },
                      +[](ImageFrame &f) { f.stride = 3; }, +[](ImageFrame &f) { f.height = f.width = 46341; }}) {
        bad = in;
        edit(bad);
        bad.pixelFormat = VQP_PIXEL_FORMAT_MONO12; // sizes before formats
        EXPECT_EQ(vqpDemosaicing16(h.h, &bad, 1, &o, 1), VQP_ERR_BAD_DIMENSIONS);
    }
    for (uint32_t code : {VQP_PIXEL_FORMAT_MONO12, VQP_PIXEL_FORMAT_MONO16, VQP_PIXEL_FORMAT_BAYER_RG8,
                          VQP_PIXEL_FORMAT_MONO12_PACKED, VQP_PIXEL_FORMAT_BAYER_GR10 - 1, VQP_PIXEL_FORMAT_BAYER_BG16 + 1,
                          VQP_PIXEL_FORMAT_BAYER_BG14 + 1, VQP_PIXEL_FORMAT_BAYER_GR14 - 1}) {
        bad = in;
        bad.pixelFormat = code;
        EXPECT_EQ(vqpDemosaicing16(h.h, &bad, 1, &o, 1), VQP_ERR_UNSUPPORTED_INPUT_FORMAT) << std::hex << code;
    }
    EXPECT_EQ(o.pixelFormat, 0u); // failures leave the output record alone
    // An unknown method succeeds and writes no pixel, but the record.
    EXPECT_EQ(vqpDemosaicing16(h.h, &in, 3, &o, 1), VQP_OK);
    EXPECT_EQ(std::count(dst.begin(), dst.end(), 0xA5A5), long(dst.size()));
    EXPECT_EQ(o.height, 8);
    EXPECT_EQ(o.pixelFormat, VQP_PIXEL_FORMAT_BGR16);
    // The 16-bit configuration: its own word, checked when set.
    uint64_t c = 0;
    EXPECT_EQ(vqpDemosaicGetConfig16(h.h, &c), VQP_OK);
    EXPECT_EQ(c, VQP_PIXEL_FORMAT_BGR16);
    for (uint64_t refused : std::vector<uint64_t>{VQP_PIXEL_FORMAT_BGR8, 0x02300025, 0x02300024 | 1ull << 33,
                                                  VQP_OUTPUT16_FULL_RANGE, VQP_PIXEL_FORMAT_RGB16 | 3ull << 32})
        EXPECT_EQ(vqpDemosaicSetConfig16(h.h, &refused), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT) << std::hex << refused;
    EXPECT_EQ(vqpDemosaicGetConfig16(h.h, &c), VQP_OK);
    EXPECT_EQ(c, VQP_PIXEL_FORMAT_BGR16);
    EXPECT_EQ(vqpDemosaicSetConfig16(h.h, nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicSetConfig16(nullptr, &c), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicGetConfig16(h.h, nullptr), VQP_ERR_NULL_ARGUMENT);
    uint64_t eight = 0;
    EXPECT_EQ(vqpDemosaicGetConfig(h.h, &eight), VQP_OK);
    EXPECT_EQ(eight, VQP_PIXEL_FORMAT_BGR8); // the 8-bit configuration is untouched
    EXPECT_EQ(vqpOutputSize(8, 8, VQP_PIXEL_FORMAT_RGB16_PLANAR | VQP_OUTPUT16_FULL_RANGE), 384u);
}
