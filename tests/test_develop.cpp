// Development of raw frames against a double-precision statement of the rule: black, white, gains, the
// demosaic (nearest and bilinear, means exact), the matrix and the curve, for Bayer and mono input of
// every depth and packing, odd sizes, padded strides and every output layout; the identities with the
// plain conversions; clipped highlights; refused settings; automatic balance; thread counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "velqora.h"

namespace {

struct Handle {
    ProcessingHandle *h = nullptr;
    Handle() { vqpCreate(&h); }
    ~Handle() { vqpRelease(&h); }
};

enum Kind { kBytes, kContainers, kPacked };
struct Format {
    uint32_t gr; // the code of GRBG (mono: the mono code)
    int bits;
    Kind kind;
    bool mono;
};
constexpr Format kFormats[] = {
    {VQP_PIXEL_FORMAT_BAYER_GR8, 8, kBytes, false},          {VQP_PIXEL_FORMAT_BAYER_GR10, 10, kContainers, false},
    {VQP_PIXEL_FORMAT_BAYER_GR12, 12, kContainers, false},   {VQP_PIXEL_FORMAT_BAYER_GR14, 14, kContainers, false},
    {VQP_PIXEL_FORMAT_BAYER_GR16, 16, kContainers, false},   {VQP_PIXEL_FORMAT_BAYER_GR10_PACKED, 10, kPacked, false},
    {VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, 12, kPacked, false}, {VQP_PIXEL_FORMAT_MONO8, 8, kBytes, true},
    {VQP_PIXEL_FORMAT_MONO12, 12, kContainers, true},        {VQP_PIXEL_FORMAT_MONO10_PACKED, 10, kPacked, true},
    {VQP_PIXEL_FORMAT_MONO16, 16, kContainers, true}};
// Phases 0..3: RGGB, GRBG, GBRG, BGGR; their offsets from the GR code.
constexpr const char *kPhaseNames[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
constexpr uint32_t kPhaseOffset[] = {1, 0, 2, 3};
uint32_t codeOf(const Format &f, int phase) { return f.mono ? f.gr : f.gr + kPhaseOffset[phase]; }
char colourAt(int phase, int y, int x) { return kPhaseNames[phase][2 * (y & 1) + (x & 1)]; }

// Samples as a frame's bytes: 8-bit, 16-bit containers with stray bits above the depth, or packed pairs
// (one run when not padded).
std::vector<uint8_t> encode(const std::vector<uint16_t> &s, int h, int w, const Format &f, bool padded,
                            int32_t *stride, std::mt19937 &rng) {
    std::vector<uint8_t> b;
    if (f.kind == kBytes) {
        *stride = padded ? w + 3 : w;
        b.assign(size_t(*stride) * h, 0xA5);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) b[size_t(y) * *stride + x] = uint8_t(s[size_t(y) * w + x]);
    } else if (f.kind == kContainers) {
        *stride = padded ? 2 * w + 3 : 2 * w;
        b.assign(size_t(*stride) * h, 0xA5);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const uint16_t v = uint16_t(s[size_t(y) * w + x] | ((rng() << f.bits) & 0xFFFF));
                std::memcpy(&b[size_t(y) * *stride + 2 * x], &v, 2);
            }
    } else {
        const int low = f.bits - 8;
        *stride = padded ? 3 * ((w + 1) / 2) + 2 : w + w / 2;
        b.assign(padded ? size_t(*stride) * h : 3 * ((size_t(w) * h + 1) / 2), 0xA5);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const size_t i = padded ? size_t(x) : size_t(y) * w + x;
                uint8_t *p = b.data() + (padded ? size_t(y) * *stride : 0) + 3 * (i / 2);
                const unsigned v = s[size_t(y) * w + x];
                p[(i & 1) ? 2 : 0] = uint8_t(v >> low);
                p[1] = uint8_t((i & 1) ? (p[1] & 0x0F) | ((v & ((1u << low) - 1)) << 4)
                                       : (p[1] & 0xF0) | (v & ((1u << low) - 1)));
            }
    }
    return b;
}

struct Settings {
    float black[4] = {0, 0, 0, 0};
    float white = 0;
    float gain[3] = {1, 1, 1};
    float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    uint32_t curve = VQP_TRANSFER_LINEAR;
    float gamma = 1;
    void apply(ProcessingHandle *h) const {
        ASSERT_EQ(vqpSetWhiteLevel(h, 0), VQP_OK);
        ASSERT_EQ(vqpSetBlackLevel(h, black), VQP_OK);
        ASSERT_EQ(vqpSetWhiteLevel(h, white), VQP_OK);
        ASSERT_EQ(vqpSetBalanceRatio(h, gain), VQP_OK);
        ASSERT_EQ(vqpSetColorTransformation(h, matrix), VQP_OK);
        ASSERT_EQ(vqpSetTransfer(h, curve, gamma), VQP_OK);
    }
};

double transfer(const Settings &s, double c) {
    if (s.curve == VQP_TRANSFER_SRGB) return c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1 / 2.4) - 0.055;
    if (s.curve == VQP_TRANSFER_GAMMA) return std::pow(c, 1.0 / s.gamma);
    return c;
}

// The rule up to the curve: R, G, B before it (c), per pixel, for nearest (0) or bilinear (1).
std::vector<double> linearModel(const std::vector<uint16_t> &s, int h, int w, const Format &f, int phase,
                                uint32_t method, const Settings &set) {
    const double white = set.white == 0 ? double((1u << f.bits) - 1) : set.white;
    std::vector<double> b(s.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int site = 2 * (y & 1) + (x & 1);
            const double n = std::clamp((s[size_t(y) * w + x] - set.black[site]) / (white - set.black[site]), 0.0, 1.0);
            const char c = colourAt(phase, y, x);
            const double gain = f.mono ? 1.0 : set.gain[c == 'R' ? 0 : c == 'G' ? 1 : 2];
            b[size_t(y) * w + x] = std::min(n * gain, 1.0);
        }
    const auto B = [&](int y, int x) { return b[size_t(y) * w + x]; };
    const auto has = [&](int y, int x) { return y >= 0 && y < h && x >= 0 && x < w; };
    std::vector<double> out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double rgb[3];
            if (f.mono) {
                rgb[0] = rgb[1] = rgb[2] = B(y, x);
            } else if (method == VQP_METHOD_NEAREST) {
                for (int cy : {std::max(y, 1) - 1, std::max(y, 1)})
                    for (int cx : {std::max(x, 1) - 1, std::max(x, 1)}) {
                        if (colourAt(phase, cy, cx) == 'R') rgb[0] = B(cy, cx);
                        if (colourAt(phase, cy, cx) == 'B') rgb[2] = B(cy, cx);
                    }
                rgb[1] = colourAt(phase, y, x) == 'G' ? B(y, x) : x >= 1 ? B(y, x - 1) : y >= 1 ? B(y - 1, 0) : B(0, 1);
            } else { // the mean of the nearest samples of each colour; green beside an edge counts the facing one twice
                for (int k = 0; k < 3; ++k) {
                    const char want = "RGB"[k];
                    if (colourAt(phase, y, x) == want) {
                        rgb[k] = B(y, x);
                        continue;
                    }
                    double sum = 0;
                    int n = 0, fy = 0, fx = 0;
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx) {
                            if (colourAt(phase, y + dy + 2, x + dx + 2) != want) continue;
                            if (has(y + dy, x + dx)) sum += B(y + dy, x + dx), ++n;
                            else fy = y - dy, fx = x - dx;
                        }
                    if (n == 3) sum += B(fy, fx), ++n;
                    rgb[k] = sum / n;
                }
            }
            for (int k = 0; k < 3; ++k) {
                double c = rgb[k];
                if (!f.mono) c = set.matrix[3 * k] * rgb[0] + set.matrix[3 * k + 1] * rgb[1] + set.matrix[3 * k + 2] * rgb[2];
                out.push_back(std::clamp(c, 0.0, 1.0));
            }
        }
    return out;
}

// Where colour k of pixel i lies in each output layout, and its size.
struct Layout {
    uint64_t format;
    bool wide;
};
constexpr Layout kLayouts[] = {{VQP_PIXEL_FORMAT_BGR8, false},         {VQP_PIXEL_FORMAT_RGB8, false},
                               {VQP_PIXEL_FORMAT_BGRA8, false},        {VQP_PIXEL_FORMAT_RGBA8, false},
                               {VQP_PIXEL_FORMAT_RGB8_PLANAR, false},  {VQP_PIXEL_FORMAT_BGR8_PLANAR, false},
                               {VQP_PIXEL_FORMAT_MONO8, false},        {VQP_PIXEL_FORMAT_BGR16, true},
                               {VQP_PIXEL_FORMAT_RGB16, true},         {VQP_PIXEL_FORMAT_RGB16_PLANAR, true},
                               {VQP_PIXEL_FORMAT_BGR16_PLANAR, true}};
// Index of colour k (0 R, 1 G, 2 B) of pixel i among the output's samples; -1 for Mono8.
ptrdiff_t sampleIndex(uint64_t format, ptrdiff_t i, ptrdiff_t n, int k) {
    switch (uint32_t(format)) {
    case VQP_PIXEL_FORMAT_BGR8: case VQP_PIXEL_FORMAT_BGR16: return 3 * i + 2 - k;
    case VQP_PIXEL_FORMAT_RGB8: case VQP_PIXEL_FORMAT_RGB16: return 3 * i + k;
    case VQP_PIXEL_FORMAT_BGRA8: return 4 * i + 2 - k;
    case VQP_PIXEL_FORMAT_RGBA8: return 4 * i + k;
    case VQP_PIXEL_FORMAT_RGB8_PLANAR: case VQP_PIXEL_FORMAT_RGB16_PLANAR: return k * n + i;
    case VQP_PIXEL_FORMAT_BGR8_PLANAR: case VQP_PIXEL_FORMAT_BGR16_PLANAR: return (2 - k) * n + i;
    default: return -1;
    }
}

int32_t develop(ProcessingHandle *h, const Layout &l, const std::vector<uint8_t> &raw, int32_t height, int32_t width,
                int32_t stride, uint32_t code, uint32_t method, std::vector<uint8_t> &out, uint32_t threads = 1) {
    uint64_t fmt = l.format;
    if (l.wide ? vqpDemosaicSetConfig16(h, &fmt) : vqpDemosaicSetConfig(h, &fmt)) return -1;
    out.assign(vqpOutputSize(height, width, l.format) + 16, 0xCD);
    ImageFrame in{height, width, code, const_cast<uint8_t *>(raw.data()), stride};
    ImageFrame o{0, 0, 0, out.data(), 0};
    return l.wide ? vqpDevelop16(h, &in, method, &o, threads) : vqpDevelop(h, &in, method, &o, threads);
}

// Random settings of every kind: per-site black, white, gains, a full matrix, each curve.
Settings randomSettings(int bits, int which, std::mt19937 &rng) {
    Settings s;
    const double top = double((1u << bits) - 1);
    std::uniform_real_distribution<float> u(0, 1);
    for (float &b : s.black) b = float(top * 0.08 * u(rng));
    s.white = which % 2 ? float(top * (0.85 + 0.1 * u(rng))) : 0.0f;
    for (float &g : s.gain) g = 0.6f + 1.8f * u(rng);
    const float m[9] = {1.6f, -0.4f, -0.2f, -0.3f, 1.5f, -0.2f, 0.1f, -0.5f, 1.4f};
    for (int i = 0; i < 9; ++i) s.matrix[i] = m[i] + 0.1f * (u(rng) - 0.5f);
    s.curve = uint32_t(which % 3);
    const float gammas[] = {2.2f, 1.8f, 0.45f, 3.0f, 2.5f}; // some fit the 8-bit curve's cubics, some keep its table
    s.gamma = gammas[which / 3 % 5];
    return s;
}

// Every input family, phase, odd size, padding and layout with random settings; then clipped highlights.
TEST(Develop, FollowsTheRuleForEveryInputAndLayout) {
    std::mt19937 rng(29);
    const int sizes[][2] = {{4, 4}, {5, 7}, {7, 4}, {6, 9}, {9, 13}, {13, 10}, {34, 21}};
    int which = 0;
    for (const Format &f : kFormats)
        for (int phase = 0; phase < (f.mono ? 1 : 4); ++phase)
            for (const auto &size : sizes)
                for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR}) {
                    const int h = size[0], w = size[1];
                    std::vector<uint16_t> s(size_t(h) * w);
                    for (auto &v : s) v = uint16_t(rng() & ((1u << f.bits) - 1));
                    const bool padded = which % 2 == 1;
                    int32_t stride = 0;
                    const auto raw = encode(s, h, w, f, padded, &stride, rng);
                    const Settings set = randomSettings(f.bits, which++, rng);
                    const auto c = linearModel(s, h, w, f, phase, method, set);
                    Handle hd;
                    set.apply(hd.h);
                    for (const Layout &l : kLayouts) {
                        std::vector<uint8_t> out;
                        ASSERT_EQ(develop(hd.h, l, raw, h, w, stride, codeOf(f, phase), method, out), VQP_OK);
                        const ptrdiff_t n = ptrdiff_t(h) * w, bytes = ptrdiff_t(vqpOutputSize(h, w, l.format));
                        int off = 0, far = 0; // 8 bits: samples off by more than 1, the largest difference
                        for (ptrdiff_t i = 0; i < n; ++i) {
                            int want[3], got[3];
                            for (int k = 0; k < 3; ++k) {
                                const double ck = c[3 * i + k];
                                const ptrdiff_t at = sampleIndex(l.format, i, n, k);
                                want[k] = int(std::lround(transfer(set, ck) * 255)), got[k] = at >= 0 ? out[size_t(at)] : 0;
                                if (!l.wide) continue;
                                // 16 bits: before the curve within 2 (1 + sum |M|) steps of 1/65535, then the curve.
                                double d = 2;
                                for (int j = 0; j < 3 && !f.mono; ++j) d += 2 * std::fabs(set.matrix[3 * k + j]);
                                uint16_t v;
                                std::memcpy(&v, &out[2 * at], 2);
                                ASSERT_GE(v, std::round(transfer(set, std::max(ck - d / 65535, 0.0)) * 65535) - 1) << i;
                                ASSERT_LE(v, std::round(transfer(set, std::min(ck + d / 65535, 1.0)) * 65535) + 1) << i;
                            }
                            if (l.wide) continue;
                            if (l.format == VQP_PIXEL_FORMAT_MONO8) {
                                want[0] = (77 * want[0] + 150 * want[1] + 29 * want[2] + 128) >> 8;
                                got[0] = out[size_t(i)], want[1] = want[2] = got[1] = got[2] = 0;
                            }
                            for (int k = 0; k < 3; ++k)
                                off += std::abs(want[k] - got[k]) > 1, far = std::max(far, std::abs(want[k] - got[k]));
                            if (l.format == VQP_PIXEL_FORMAT_BGRA8 || l.format == VQP_PIXEL_FORMAT_RGBA8) {
                                ASSERT_EQ(out[size_t(4 * i + 3)], 0);
                            }
                        }
                        EXPECT_LE(far, 3) << std::hex << codeOf(f, phase) << " layout " << l.format << std::dec << " "
                                          << h << "x" << w << " method " << method;
                        EXPECT_LE(off, 3 * n / 100) << "more than 1% of samples off by more than 1";
                        for (size_t g = size_t(bytes) * (l.wide ? 2 : 1); g < out.size(); ++g)
                            ASSERT_EQ(out[g], 0xCD) << "written past the output";
                    }
                }
    // Clipped highlights stay white: a 12-bit frame at full scale, gains above 1 on red and blue.
    const std::vector<uint16_t> full(64, 4095);
    int32_t stride = 0;
    const auto raw = encode(full, 8, 8, kFormats[2], false, &stride, rng);
    Handle hd;
    const float black[4] = {100, 110, 120, 130}, gains[3] = {2.5f, 1, 1.7f};
    vqpSetBlackLevel(hd.h, black), vqpSetBalanceRatio(hd.h, gains);
    for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
        std::vector<uint8_t> out;
        ASSERT_EQ(develop(hd.h, kLayouts[0], raw, 8, 8, stride, VQP_PIXEL_FORMAT_BAYER_RG12, method, out), VQP_OK);
        EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 192), std::vector<uint8_t>(192, 255)) << method;
    }
}

// Neutral settings: 8-bit input gives the plain conversion's bytes (every method, layout and stride), and
// 16-bit input through vqpDevelop16 the full-depth conversion's, across bands (tall frames) too.
TEST(Develop, NeutralSettingsGiveThePlainConversions) {
    std::mt19937 rng(7);
    for (int phase = 0; phase < 4; ++phase)
        for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
            const int h = 37 + phase, w = 23 + 2 * phase;
            std::vector<uint16_t> s(size_t(h) * w);
            for (auto &v : s) v = uint16_t(rng() & 0xFF);
            int32_t stride = 0;
            const auto raw = encode(s, h, w, kFormats[0], phase & 1, &stride, rng);
            for (int l = 0; l < 7; ++l) {
                Handle a, b;
                std::vector<uint8_t> developed, plain(vqpOutputSize(h, w, kLayouts[l].format) + 16, 0xCD);
                ASSERT_EQ(develop(a.h, kLayouts[l], raw, h, w, stride, codeOf(kFormats[0], phase), method, developed),
                          VQP_OK);
                uint64_t fmt = kLayouts[l].format;
                vqpDemosaicSetConfig(b.h, &fmt);
                auto copy = raw;
                ImageFrame in{h, w, codeOf(kFormats[0], phase), copy.data(), stride}, out{0, 0, 0, plain.data(), 0};
                ASSERT_EQ(vqpDemosaicing(b.h, &in, method, &out), VQP_OK);
                ASSERT_EQ(developed, plain) << kPhaseNames[phase] << " method " << method << " layout " << l;
            }
        }
    // Frames of one band, two bands (at most 1024 rows a band, fewer on wide rows) and several.
    for (const auto &size : {std::pair{9, 8}, std::pair{1100, 64}, std::pair{2101, 67}, std::pair{600, 4100}})
        for (int phase = 0; phase < (size.second > 1000 ? 1 : 4); ++phase)
            for (uint32_t method : {VQP_METHOD_EDGE, VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR}) {
                if (size.second > 1000 && method != VQP_METHOD_EDGE) continue; // wide rows: once is enough
                const auto [h, w] = size;
                std::vector<uint16_t> s(size_t(h) * w);
                for (auto &v : s) v = uint16_t(rng());
                int32_t stride = 0;
                const auto raw = encode(s, h, w, kFormats[4], false, &stride, rng);
                Handle a, b;
                std::vector<uint8_t> developed, plain(vqpOutputSize(h, w, VQP_PIXEL_FORMAT_BGR16), 0xCD);
                ASSERT_EQ(develop(a.h, kLayouts[7], raw, h, w, stride, codeOf(kFormats[4], phase), method, developed, 2),
                          VQP_OK);
                ImageFrame in{h, w, codeOf(kFormats[4], phase), const_cast<uint8_t *>(raw.data()), stride};
                ImageFrame out{0, 0, 0, plain.data(), 0};
                ASSERT_EQ(vqpDemosaicing16(b.h, &in, method, &out, 1), VQP_OK);
                developed.resize(plain.size());
                ASSERT_EQ(developed, plain) << h << "x" << w << " " << kPhaseNames[phase] << " method " << method;
            }
}

TEST(Develop, RefusedSettingsChangeNothing) {
    Handle hd;
    const float nan = std::nanf(""), inf = INFINITY;
    const float black[4] = {10, 20, 30, 40}, gains[3] = {1.5f, 1, 2}, m[9] = {1, 0.5f, 0, 0, 1, 0, 0, 0, 1};
    ASSERT_EQ(vqpSetBlackLevel(hd.h, black), VQP_OK);
    ASSERT_EQ(vqpSetWhiteLevel(hd.h, 1000), VQP_OK);
    ASSERT_EQ(vqpSetBalanceRatio(hd.h, gains), VQP_OK);
    ASSERT_EQ(vqpSetColorTransformation(hd.h, m), VQP_OK);
    ASSERT_EQ(vqpSetTransfer(hd.h, VQP_TRANSFER_GAMMA, 2.2f), VQP_OK);
    // A frame developed before and after every refused call: the same bytes.
    std::mt19937 rng(3);
    std::vector<uint16_t> s(16 * 16);
    for (auto &v : s) v = uint16_t(rng() & 1023);
    int32_t stride = 0;
    const auto raw = encode(s, 16, 16, kFormats[1], false, &stride, rng);
    std::vector<uint8_t> before, after;
    ASSERT_EQ(develop(hd.h, kLayouts[0], raw, 16, 16, stride, VQP_PIXEL_FORMAT_BAYER_RG10, 1, before), VQP_OK);
    const float badBlack[][4] = {{nan, 0, 0, 0}, {0, inf, 0, 0}, {0, 0, -1, 0}, {0, 0, 0, 1000}};
    const float badGains[][3] = {{nan, 1, 1}, {1, -0.5f, 1}, {1, 1, inf}}, badMatrix[9] = {1, 0, 0, 0, nan, 0, 0, 0, 1};
    std::vector<int32_t> refused = {vqpSetColorTransformation(hd.h, badMatrix), vqpSetBalanceWhiteAuto(hd.h, 3),
                                    vqpSetTransfer(hd.h, 3, 2.2f)};
    for (const auto &b : badBlack) refused.push_back(vqpSetBlackLevel(hd.h, b));
    for (const auto &g : badGains) refused.push_back(vqpSetBalanceRatio(hd.h, g));
    for (float white : {nan, inf, -5.0f, 40.0f, 25.0f}) refused.push_back(vqpSetWhiteLevel(hd.h, white));
    for (float g : {0.0f, -1.0f, 10.5f, nan, inf}) refused.push_back(vqpSetTransfer(hd.h, VQP_TRANSFER_GAMMA, g));
    for (const int32_t status : refused) EXPECT_EQ(status, VQP_ERR_BAD_PARAMETER);
    // Null pointers.
    float back[3];
    uint32_t mode = 9;
    for (const int32_t status : {vqpSetBlackLevel(hd.h, nullptr), vqpSetBalanceRatio(hd.h, nullptr),
                                 vqpGetBalanceRatio(hd.h, nullptr), vqpGetBalanceWhiteAuto(nullptr, &mode),
                                 vqpSetWhiteLevel(nullptr, 1), vqpSetColorTransformation(nullptr, m),
                                 vqpSetTransfer(nullptr, 0, 1), vqpSetBalanceWhiteAuto(nullptr, 0)})
        EXPECT_EQ(status, VQP_ERR_NULL_ARGUMENT);
    ASSERT_EQ(develop(hd.h, kLayouts[0], raw, 16, 16, stride, VQP_PIXEL_FORMAT_BAYER_RG10, 1, after), VQP_OK);
    EXPECT_EQ(before, after);
    ASSERT_EQ(vqpGetBalanceRatio(hd.h, back), VQP_OK);
    EXPECT_EQ(std::vector<float>(back, back + 3), std::vector<float>(gains, gains + 3));
    ASSERT_EQ(vqpGetBalanceWhiteAuto(hd.h, &mode), VQP_OK);
    EXPECT_EQ(mode, VQP_BALANCE_WHITE_AUTO_OFF);
    EXPECT_STREQ(vqpStatusName(VQP_ERR_BAD_PARAMETER), "VQP_ERR_BAD_PARAMETER");

    // A black level at or above the depth's maximum is refused by the frame; the statuses in their order.
    Handle fresh;
    const float high[4] = {0, 0, 1023, 0};
    ASSERT_EQ(vqpSetBlackLevel(fresh.h, high), VQP_OK); // no white set: checked against the frame's depth
    std::vector<uint8_t> out;
    EXPECT_EQ(develop(fresh.h, kLayouts[0], raw, 16, 16, stride, VQP_PIXEL_FORMAT_BAYER_RG10, 1, out),
              VQP_ERR_BAD_PARAMETER);
    EXPECT_EQ(develop(fresh.h, kLayouts[0], raw, 16, 16, stride, VQP_PIXEL_FORMAT_BAYER_RG16, 1, out), VQP_OK);
    EXPECT_EQ(develop(fresh.h, kLayouts[0], raw, 16, 16, stride, 0x01100006, 1, out), VQP_ERR_UNSUPPORTED_INPUT_FORMAT);
    EXPECT_EQ(develop(fresh.h, kLayouts[0], raw, 3, 16, stride, 0x01100006, 1, out), VQP_ERR_BAD_DIMENSIONS);
    ImageFrame in{16, 16, VQP_PIXEL_FORMAT_BAYER_RG10, nullptr, stride}, o{0, 0, 0, out.data(), 0};
    EXPECT_EQ(vqpDevelop(fresh.h, &in, 1, &o, 1), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDevelop16(nullptr, &in, 1, &o, 1), VQP_ERR_NULL_ARGUMENT);
}

// A grey scene seen through a tint: automatic balance finds the inverse of the tint. ONCE uses it for
// its own frame and returns to OFF; CONTINUOUS measures its first frame, then follows the scene within
// 1% after 8 frames; the gains and bytes are the same for every thread count.
TEST(Develop, AutomaticBalance) {
    const int h = 2100, w = 64; // three bands of rows, for the threads
    const auto scene = [&](double r, double g, double b, std::mt19937 &rng) { // a grey of each 2x2 cell, RGGB
        std::vector<uint16_t> s(size_t(h) * w);
        std::uniform_real_distribution<double> level(0.1, 0.7);
        for (int y = 0; y < h; y += 2)
            for (int x = 0; x < w; x += 2) {
                const double grey = level(rng) * 4095, tint[4] = {r, g, g, b};
                for (int k = 0; k < 4; ++k) s[size_t(y + k / 2) * w + x + k % 2] = uint16_t(64 + grey * tint[k]);
            }
        return s;
    };
    std::mt19937 rng(11);
    int32_t stride = 0;
    const auto tinted = encode(scene(0.5, 0.9, 0.3, rng), h, w, kFormats[6], false, &stride, rng);
    const auto other = encode(scene(0.8, 0.9, 0.45, rng), h, w, kFormats[6], false, &stride, rng);
    const float black[4] = {64, 64, 64, 64};
    const uint32_t code = VQP_PIXEL_FORMAT_BAYER_RG12_PACKED;

    Handle once;
    vqpSetBlackLevel(once.h, black);
    ASSERT_EQ(vqpSetBalanceWhiteAuto(once.h, VQP_BALANCE_WHITE_AUTO_ONCE), VQP_OK);
    std::vector<uint8_t> first, again;
    ASSERT_EQ(develop(once.h, kLayouts[1], tinted, h, w, stride, code, VQP_METHOD_BILINEAR, first), VQP_OK);
    float g[3];
    uint32_t mode = 9;
    vqpGetBalanceRatio(once.h, g);
    vqpGetBalanceWhiteAuto(once.h, &mode);
    EXPECT_EQ(mode, VQP_BALANCE_WHITE_AUTO_OFF);
    EXPECT_NEAR(g[0], 0.9 / 0.5, 0.01);
    EXPECT_EQ(g[1], 1.0f);
    EXPECT_NEAR(g[2], 0.9 / 0.3, 0.01);
    ASSERT_EQ(develop(once.h, kLayouts[1], tinted, h, w, stride, code, VQP_METHOD_BILINEAR, again), VQP_OK);
    EXPECT_EQ(first, again) << "ONCE's gains were not used for its own frame";
    // A balanced grey: red, green and blue agree on average.
    double sum[3] = {};
    for (size_t i = 0; i < size_t(h * w); ++i)
        for (int k = 0; k < 3; ++k) sum[k] += first[3 * i + k];
    EXPECT_NEAR(sum[0] / sum[1], 1.0, 0.01);
    EXPECT_NEAR(sum[2] / sum[1], 1.0, 0.01);

    // The statistics read every packing alike: odd rows of a packed run start inside a pair.
    {
        const int oh = 41, ow = 127;
        std::vector<uint16_t> s(size_t(oh) * ow);
        for (auto &v : s) v = uint16_t(200 + rng() % 3000);
        float gains[3][3];
        for (int k = 0; k < 3; ++k) {
            const Format &f = kFormats[k == 0 ? 2 : 6];
            int32_t st = 0;
            const auto raw = encode(s, oh, ow, f, k == 2, &st, rng);
            Handle hd;
            vqpSetBalanceWhiteAuto(hd.h, VQP_BALANCE_WHITE_AUTO_ONCE);
            std::vector<uint8_t> out;
            ASSERT_EQ(develop(hd.h, kLayouts[0], raw, oh, ow, st, codeOf(f, 0), VQP_METHOD_NEAREST, out), VQP_OK);
            vqpGetBalanceRatio(hd.h, gains[k]);
        }
        for (int k = 1; k < 3; ++k)
            EXPECT_EQ(std::vector<float>(gains[k], gains[k] + 3), std::vector<float>(gains[0], gains[0] + 3)) << k;
    }

    for (uint32_t threads : {1u, 2u, 3u}) {
        Handle cont;
        vqpSetBlackLevel(cont.h, black);
        ASSERT_EQ(vqpSetBalanceWhiteAuto(cont.h, VQP_BALANCE_WHITE_AUTO_CONTINUOUS), VQP_OK);
        std::vector<uint8_t> out;
        ASSERT_EQ(develop(cont.h, kLayouts[1], tinted, h, w, stride, code, VQP_METHOD_BILINEAR, out, threads), VQP_OK);
        EXPECT_EQ(out, first) << "the first continuous frame measures itself";
        float c[3];
        for (int frame = 0; frame < 9; ++frame)
            ASSERT_EQ(develop(cont.h, kLayouts[1], other, h, w, stride, code, VQP_METHOD_EDGE, out, threads), VQP_OK);
        vqpGetBalanceRatio(cont.h, c);
        vqpGetBalanceWhiteAuto(cont.h, &mode);
        EXPECT_EQ(mode, VQP_BALANCE_WHITE_AUTO_CONTINUOUS);
        EXPECT_NEAR(c[0] / (0.9 / 0.8), 1.0, 0.01);
        EXPECT_NEAR(c[2] / (0.9 / 0.45), 1.0, 0.01);
        static std::vector<uint8_t> oneThread;
        if (threads == 1) oneThread = out;
        else EXPECT_EQ(out, oneThread) << threads << " threads";
    }
}

} // namespace
