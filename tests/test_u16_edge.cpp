// 16-bit edge-directed drivers against the per-pixel model (every phase, every size 4x4..20x20,
// full 16-bit, 12-bit and tiny value ranges, the last making direction ties common), plus hand-made
// cases for clamping, the per-phase maximum, the top-left quirk and the kernel's loop bounds.
#include <gtest/gtest.h>

#include <algorithm>

#include "model/u16_model.h"
#include "velqora.h"

using namespace vqt16;

namespace {

constexpr uint16_t kUnwritten = 0xA5A5;

// Runs the driver of `p` into an exactly sized buffer pre-filled with kUnwritten.
Colour16 runEdge(const Mosaic16 &m, Bayer p) {
    std::vector<uint16_t> out(size_t(m.h) * size_t(m.w) * 3, kUnwritten);
    const uint32_t h = uint32_t(m.h), w = uint32_t(m.w);
    int32_t status = -1;
    switch (p) {
    case Bayer::RGGB: status = demosaicingEdgeRGGBU16(m.s.data(), h, w, out.data()); break;
    case Bayer::GRBG: status = demosaicingEdgeGRBGU16(m.s.data(), h, w, out.data()); break;
    case Bayer::GBRG: status = demosaicingEdgeGBRGU16(m.s.data(), h, w, out.data()); break;
    case Bayer::BGGR: status = demosaicingEdgeBGGRU16(m.s.data(), h, w, out.data()); break;
    }
    EXPECT_EQ(status, 0);
    return fromInterleaved(out, m.h, m.w);
}

// First differing pixel, for a readable failure.
std::string firstDifference(const Colour16 &got, const Colour16 &want) {
    for (int y = 0; y < got.h; ++y)
        for (int x = 0; x < got.w; ++x) {
            const Bgr &a = got.at(y, x), &b = want.at(y, x);
            if (!(a == b))
                return testing::PrintToString(y) + "," + testing::PrintToString(x) + " got B" +
                       std::to_string(a.b) + " G" + std::to_string(a.g) + " R" + std::to_string(a.r) + " want B" +
                       std::to_string(b.b) + " G" + std::to_string(b.g) + " R" + std::to_string(b.r);
        }
    return "";
}

} // namespace

TEST(U16Edge, EveryPhaseAndSizeMatchesModel) {
    std::mt19937 rng(1616);
    for (Bayer p : kBayers)
        for (int maxValue : {65535, 4095, 3})
            for (int h = 4; h <= 20; ++h)
                for (int w = 4; w <= 20; ++w) {
                    const Mosaic16 m = randomMosaic16(h, w, maxValue, rng);
                    const std::string diff = firstDifference(runEdge(m, p), edgeModel(m, p));
                    ASSERT_EQ(diff, "") << name(p) << " " << h << "x" << w << " max " << maxValue;
                }
}

TEST(U16Edge, UniformFramesAndThePerPhaseMaximum) {
    for (Bayer p : kBayers)
        for (uint16_t v : {uint16_t(0), uint16_t(1234), uint16_t(4095)})
            for (const Bgr &px : runEdge(Mosaic16(9, 8, v), p).px) ASSERT_EQ(px, (Bgr{v, v, v})) << name(p);

    // 65535 everywhere: the RGGB driver clamps every interpolated value at 4095, the others at 65535.
    const Mosaic16 full(8, 9, 65535);
    const Colour16 rggb = runEdge(full, Bayer::RGGB);
    for (int y = 0; y < full.h; ++y)
        for (int x = 0; x < full.w; ++x) {
            const char site = colourAt(Bayer::RGGB, y, x);
            const Bgr &px = rggb.at(y, x);
            EXPECT_EQ(px.b, site == 'B' ? 65535 : 4095);
            EXPECT_EQ(px.g, site == 'G' ? 65535 : 4095);
            EXPECT_EQ(px.r, site == 'R' ? 65535 : 4095);
        }
    for (Bayer p : {Bayer::GRBG, Bayer::GBRG, Bayer::BGGR})
        for (const Bgr &px : runEdge(full, p).px) ASSERT_EQ(px, (Bgr{65535, 65535, 65535})) << name(p);
}

TEST(U16Edge, EstimatesClampAtZeroAndAtTheMaximum) {
    // A dark red site between bright reds: the second difference drives green below zero. A bright
    // red site between dark reds drives it above 4095 in a 12-bit RGGB frame.
    Mosaic16 dark(12, 12, 100), bright(12, 12, 4000);
    for (int y = 0; y < 12; y += 2)
        for (int x = 0; x < 12; x += 2) dark.at(y, x) = 60000, bright.at(y, x) = 0;
    dark.at(6, 6) = 0;
    bright.at(6, 6) = 4095;
    EXPECT_EQ(runEdge(dark, Bayer::RGGB).at(6, 6).g, 0);
    EXPECT_EQ(runEdge(bright, Bayer::RGGB).at(6, 6).g, 4095);
    // Clamped, never wrapped: the blue beside a saturated green difference stays in range.
    for (const Bgr &px : runEdge(dark, Bayer::RGGB).px) ASSERT_LE(std::max({px.b, px.g, px.r}), 65535);
}

TEST(U16Edge, TopLeftBlueUsesUnclampedGreens) {
    // Green at (0,0) is estimated at 5000 (written as 4095) and green at (1,1) at 2000; blue at (0,0)
    // is 5000 + 0 - 2000, where clamped greens would give 4095 - 2000.
    Mosaic16 m(6, 6, 0);
    m.at(0, 0) = 10000;
    m.at(0, 1) = 2000;
    m.at(2, 1) = 2000;
    const Colour16 c = runEdge(m, Bayer::RGGB);
    EXPECT_EQ(c.at(0, 0).g, 4095);
    EXPECT_EQ(c.at(1, 1).g, 2000);
    EXPECT_EQ(c.at(0, 0).b, 3000);
    EXPECT_EQ(c.at(0, 0).r, 10000);
}

TEST(U16Edge, TiesGoVertical) {
    // At (4,4) both costs are 0 but the estimates differ: left/right greens 10, above/below 30.
    Mosaic16 m(10, 10, 500);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
            if (colourAt(Bayer::RGGB, y, x) == 'G') m.at(y, x) = (y % 2 == 0) ? 10 : 30;
    EXPECT_EQ(runEdge(m, Bayer::RGGB).at(4, 4).g, 30);
    EXPECT_EQ(runEdge(m, Bayer::RGGB).at(5, 5).g, 10); // blue site: greens above/below are on R rows
}

TEST(U16Edge, KernelLoopBoundsAndResult) {
    std::vector<uint16_t> src(12 * 12, 100), dst(12 * 12 * 3, kUnwritten);
    // Fewer than two rows: nothing written, result 0.
    for (uint32_t rows : {0u, 1u, 0xFFFFFFFFu}) {
        EXPECT_EQ(edgeSecRGGBU16(src.data() + 24, dst.data() + 72, rows, 12, 2, 4095), 0u);
        EXPECT_EQ(std::count(dst.begin(), dst.end(), kUnwritten), long(dst.size()));
    }
    struct Case {
        uint32_t rows, width;
        int32_t start;
        uint64_t want;
    };
    for (const Case &k : {Case{2, 4, 2, (2ull << 32) | 2}, Case{3, 6, 2, (2ull << 32) | 4}, Case{4, 7, 3, (4ull << 32) | 5},
                          Case{7, 6, 3, (6ull << 32) | 3}, Case{8, 12, 2, (8ull << 32) | 10}}) {
        std::vector<uint16_t> s(size_t(k.rows + 5) * k.width, 7), d(size_t(k.rows + 5) * k.width * 3);
        EXPECT_EQ(edgeSecRGGBU16(s.data() + 2 * k.width, d.data() + 6 * k.width, k.rows, k.width, k.start, 65535), k.want)
            << k.rows << " rows, width " << k.width << ", start " << k.start;
    }
}
