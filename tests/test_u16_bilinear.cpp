// 16-bit bilinear: entry-point checks, and every size from 4x4 to 20x20 against the per-pixel model
// through the interleaved entry point, the planar entry point and the interleaved pieces with both
// channel orders.
#include <gtest/gtest.h>

#include <algorithm>

#include "model/u16_model.h"
#include "velqora.h"

using namespace vqt16;

namespace {

Colour16 runInterleaved(const Mosaic16 &m) {
    std::vector<uint16_t> out(size_t(m.h) * size_t(m.w) * 3, 0xBEEF);
    EXPECT_EQ(vqpDemosaicingBilinearU16(m.s.data(), uint32_t(m.h), uint32_t(m.w), out.data()), 0);
    return fromInterleaved(out, m.h, m.w);
}

Colour16 runPlanar(const Mosaic16 &m) {
    const size_t n = size_t(m.h) * size_t(m.w);
    std::vector<uint16_t> b(n, 0xBEEF), g(n, 0xBEEF), r(n, 0xBEEF);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(m.s.data(), uint32_t(m.h), uint32_t(m.w), b.data(), g.data(), r.data()), 0);
    Colour16 c(m.h, m.w);
    for (size_t i = 0; i < n; ++i) c.px[i] = {b[i], g[i], r[i]};
    return c;
}

// The interleaved pieces called in driver order with the given order flag.
Colour16 runPieces(const Mosaic16 &m, uint32_t order) {
    const uint32_t h = uint32_t(m.h), w = uint32_t(m.w);
    std::vector<uint16_t> out(size_t(h) * w * 3, 0xBEEF);
    bilinearFirstRowsRGGBU16(m.s.data(), out.data(), w, order);
    bilinearFirstColsRGGBU16(m.s.data(), out.data(), h, w, order);
    const uint64_t stop = bilinearBodyRGGBU16(m.s.data(), out.data(), h, w, order);
    bilinearLastRowsRGGBU16(m.s.data(), out.data(), h, w, int32_t(stop >> 32), order);
    bilinearLastColsRGGBU16(m.s.data(), out.data(), h, w, int32_t(stop & 0xFFFFFFFFu), order);
    return fromInterleaved(out, m.h, m.w, order == 1 ? 2 : 0);
}

} // namespace

TEST(U16Bilinear, ChecksPointersBeforeSizes) {
    std::vector<uint16_t> src(16, 7), dst(48), p1(16), p2(16), p3(16);
    EXPECT_EQ(vqpDemosaicingBilinearU16(nullptr, 2, 2, dst.data()), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16(src.data(), 4, 4, nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(nullptr, 0, 0, p1.data(), p2.data(), p3.data()), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(src.data(), 4, 4, nullptr, p2.data(), p3.data()), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(src.data(), 4, 4, p1.data(), nullptr, p3.data()), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(src.data(), 4, 4, p1.data(), p2.data(), nullptr), VQP_ERR_NULL_ARGUMENT);
    for (uint32_t bad : {0u, 3u, 0xFFFFFFFFu, 0x80000000u}) {
        EXPECT_EQ(vqpDemosaicingBilinearU16(src.data(), bad, 4, dst.data()), VQP_ERR_BAD_DIMENSIONS) << bad;
        EXPECT_EQ(vqpDemosaicingBilinearU16(src.data(), 4, bad, dst.data()), VQP_ERR_BAD_DIMENSIONS) << bad;
        EXPECT_EQ(vqpDemosaicingBilinearU16P(src.data(), bad, 4, p1.data(), p2.data(), p3.data()), VQP_ERR_BAD_DIMENSIONS);
        EXPECT_EQ(vqpDemosaicingBilinearU16P(src.data(), 4, bad, p1.data(), p2.data(), p3.data()), VQP_ERR_BAD_DIMENSIONS);
    }
    EXPECT_EQ(vqpDemosaicingBilinearU16(src.data(), 4, 4, dst.data()), VQP_OK);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(src.data(), 4, 4, p1.data(), p2.data(), p3.data()), VQP_OK);
}

TEST(U16Bilinear, EverySizeMatchesModel) {
    std::mt19937 rng(16);
    for (int maxValue : {65535, 4095})
        for (int h = 4; h <= 20; ++h)
            for (int w = 4; w <= 20; ++w) {
                SCOPED_TRACE(testing::Message() << h << "x" << w << " max " << maxValue);
                const Mosaic16 m = randomMosaic16(h, w, maxValue, rng);
                const Colour16 want = bilinearModel(m);
                ASSERT_TRUE(runInterleaved(m).px == want.px);
                ASSERT_TRUE(runPlanar(m).px == want.px);
                ASSERT_TRUE(runPieces(m, 1).px == want.px); // R, G, B order
                ASSERT_TRUE(runPieces(m, 5).px == want.px); // any other flag: B, G, R
            }
}

TEST(U16Bilinear, BodyReportsWhereItStopped) {
    for (uint32_t h : {4u, 5u, 6u, 9u})
        for (uint32_t w : {4u, 5u, 6u, 9u}) {
            std::vector<uint16_t> src(size_t(h) * w, 1), dst(size_t(h) * w * 3);
            const uint64_t want = (uint64_t(h - 1 - (h & 1)) << 32) | (((w - 4) & ~1u) + 3);
            EXPECT_EQ(bilinearBodyRGGBU16(src.data(), dst.data(), h, w, 0), want) << h << "x" << w;
        }
    // Fewer than four rows: nothing written.
    std::vector<uint16_t> src(3 * 6, 9), dst(3 * 6 * 3, 0);
    bilinearBodyRGGBU16(src.data(), dst.data(), 3, 6, 0);
    EXPECT_EQ(std::count(dst.begin(), dst.end(), 0), long(dst.size()));
}

TEST(U16Bilinear, UniformFramesStayUniform) {
    for (uint16_t v : {uint16_t(0), uint16_t(4095), uint16_t(65535)}) {
        const Mosaic16 m(7, 9, v);
        for (const Bgr &p : runInterleaved(m).px) ASSERT_EQ(p, (Bgr{v, v, v}));
        for (const Bgr &p : runPlanar(m).px) ASSERT_EQ(p, (Bgr{v, v, v}));
    }
}

TEST(U16Bilinear, FiveByFiveCornerBlockSharesOneBlue) {
    std::mt19937 rng(5);
    const Mosaic16 m = randomMosaic16(5, 5, 65535, rng);
    const Colour16 c = runInterleaved(m);
    for (int y = 3; y < 5; ++y)
        for (int x = 3; x < 5; ++x) EXPECT_EQ(c.at(y, x).b, m(3, 3)) << y << "," << x;
    EXPECT_EQ(c.at(4, 4).g, (m(3, 4) + m(4, 3)) >> 1);
}
