// The 16-bit path against the per-pixel model on random frames of every size from 4x4 to 20x20:
// bilinear through both entry points and through the pieces with both channel orders, edge-directed
// through the four phase drivers; full 16-bit, 12-bit and tiny value ranges (the last makes direction
// ties common). Uniform frames and a few hand-worked pixels pin the model itself to the rules; the
// entry-point checks and the edge kernel's empty case are not visible through the comparison.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "model/u16_model.h"
#include "velqora.h"

using namespace vqt16;

namespace {

constexpr uint16_t kUnwritten = 0xA5A5;

// Bilinear results, as B, G, R: interleaved entry point, planar entry point, interleaved pieces in
// driver order with order flag 1 (R, G, B) and with 5 (any other flag: B, G, R).
std::vector<std::vector<uint16_t>> runBilinear(const Mosaic16 &m) {
    const uint32_t h = uint32_t(m.h), w = uint32_t(m.w);
    const size_t n = m.s.size();
    std::vector<std::vector<uint16_t>> outs(5, std::vector<uint16_t>(3 * n, kUnwritten));
    uint16_t *planes = outs[4].data();
    EXPECT_EQ(vqpDemosaicingBilinearU16(m.s.data(), h, w, outs[0].data()), 0);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(m.s.data(), h, w, planes, planes + n, planes + 2 * n), 0);
    for (size_t i = 0; i < 3 * n; ++i) outs[1][i] = planes[i % 3 * n + i / 3];
    for (uint32_t order : {1u, 5u}) {
        uint16_t *d = outs[order == 1 ? 2 : 3].data();
        bilinearFirstRowsRGGBU16(m.s.data(), d, w, order);
        bilinearFirstColsRGGBU16(m.s.data(), d, h, w, order);
        const uint64_t stop = bilinearBodyRGGBU16(m.s.data(), d, h, w, order);
        bilinearLastRowsRGGBU16(m.s.data(), d, h, w, int32_t(stop >> 32), order);
        bilinearLastColsRGGBU16(m.s.data(), d, h, w, int32_t(stop & 0xFFFFFFFFu), order);
    }
    for (size_t i = 0; i < 3 * n; i += 3) std::swap(outs[2][i], outs[2][i + 2]);
    outs.pop_back();
    return outs;
}

std::vector<uint16_t> runEdge(const Mosaic16 &m, int phase) {
    static constexpr decltype(&demosaicingEdgeRGGBU16) kDrivers[] = {demosaicingEdgeRGGBU16, demosaicingEdgeGRBGU16,
                                                                      demosaicingEdgeGBRGU16, demosaicingEdgeBGGRU16};
    std::vector<uint16_t> out(3 * m.s.size(), kUnwritten);
    EXPECT_EQ(kDrivers[phase](m.s.data(), uint32_t(m.h), uint32_t(m.w), out.data()), 0);
    return out;
}

// Empty when equal, else the first differing sample.
std::string firstDifference(const std::vector<uint16_t> &got, const std::vector<uint16_t> &want, int w) {
    const auto [g, e] = std::mismatch(got.begin(), got.end(), want.begin());
    if (g == got.end()) return "";
    const ptrdiff_t i = g - got.begin();
    return "pixel " + std::to_string(i / 3 / w) + "," + std::to_string(i / 3 % w) + " sample " +
           std::to_string(i % 3) + ": got " + std::to_string(*g) + ", want " + std::to_string(*e);
}

} // namespace

TEST(U16, EverySizeAndPhaseMatchesModel) {
    std::mt19937 rng(1616);
    for (int maxValue : {65535, 4095, 3})
        for (int h = 4; h <= 20; ++h)
            for (int w = 4; w <= 20; ++w) {
                SCOPED_TRACE(testing::Message() << h << "x" << w << " max " << maxValue);
                const Mosaic16 m = randomMosaic16(h, w, maxValue, rng);
                const auto bilinear = runBilinear(m);
                for (size_t k = 0; k < bilinear.size(); ++k)
                    ASSERT_EQ(firstDifference(bilinear[k], bilinearModel(m), w), "") << "bilinear run " << k;
                for (int p = 0; p < 4; ++p)
                    ASSERT_EQ(firstDifference(runEdge(m, p), edgeModel(m, p), w), "") << "edge " << kPhases[p];
            }
}

// Uniform frames stay uniform, borders included, except that the RGGB edge driver clamps every
// interpolated value at 4095 (native samples are copied whatever their value).
TEST(U16, UniformFramesAndThePerPhaseMaximum) {
    for (int v : {0, 1234, 4095, 65535}) {
        const Mosaic16 m{7, 9, std::vector<uint16_t>(63, uint16_t(v))};
        for (const auto &got : runBilinear(m)) EXPECT_EQ(got, std::vector<uint16_t>(3 * 63, uint16_t(v)));
        for (int p = 0; p < 4; ++p) {
            std::vector<uint16_t> want;
            for (int i = 0; i < 63; ++i)
                for (char c : {'B', 'G', 'R'})
                    want.push_back(uint16_t(p == 0 && colourAt(0, i / 9, i % 9) != c ? std::min(v, 4095) : v));
            EXPECT_EQ(firstDifference(runEdge(m, p), want, 9), "") << kPhases[p] << " " << v;
        }
    }
}

// Hand-worked RGGB edge-directed pixels. `ties`: every direction costs 0, greens are 10 on even rows
// and 30 on odd ones, so the vertical choice reads 30 at the R site (4,4) and 10 at the B site (5,5).
// `corner`: green at (0,0) is estimated at 5000 (written as 4095), at (1,1) at 2000; blue at (0,0)
// takes the unclamped 5000 + 0 - 2000.
TEST(U16, EdgeHandWorkedPixels) {
    auto frame = [](int n, auto value) {
        Mosaic16 m{n, n, {}};
        for (int i = 0; i < n * n; ++i) m.s.push_back(uint16_t(value(i / n, i % n)));
        return m;
    };
    const Mosaic16 ties = frame(10, [](int y, int x) { return colourAt(0, y, x) != 'G' ? 500 : y % 2 ? 30 : 10; });
    const Mosaic16 corner = frame(6, [](int y, int x) { return y + x == 0 ? 10000 : x == 1 && y % 2 == 0 && y < 4 ? 2000 : 0; });
    struct Case {
        const Mosaic16 &m;
        int y, x, sample, want;
    };
    for (const Case &c : {Case{ties, 4, 4, 1, 30}, Case{ties, 5, 5, 1, 10}, Case{corner, 0, 0, 1, 4095},
                          Case{corner, 1, 1, 1, 2000}, Case{corner, 0, 0, 0, 3000}})
        EXPECT_EQ(runEdge(c.m, 0)[size_t(3 * (c.y * c.m.w + c.x) + c.sample)], c.want) << c.y << "," << c.x;
}

TEST(U16, BilinearEntryPointsCheckPointersThenSizes) {
    std::vector<uint16_t> s(16, 7), d(48);
    uint16_t *o = d.data(), *g = o + 16, *r = o + 32;
    EXPECT_EQ(vqpDemosaicingBilinearU16(nullptr, 2, 2, o), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16(s.data(), 4, 4, nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(nullptr, 0, 0, o, g, r), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(s.data(), 4, 4, nullptr, g, r), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(s.data(), 4, 4, o, nullptr, r), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16P(s.data(), 4, 4, o, g, nullptr), VQP_ERR_NULL_ARGUMENT);
    for (uint32_t bad : {0u, 3u, 0xFFFFFFFFu, 0x80000000u})
        for (auto [h, w] : {std::pair{bad, 4u}, std::pair{4u, bad}}) {
            EXPECT_EQ(vqpDemosaicingBilinearU16(s.data(), h, w, o), VQP_ERR_BAD_DIMENSIONS) << h << "x" << w;
            EXPECT_EQ(vqpDemosaicingBilinearU16P(s.data(), h, w, o, g, r), VQP_ERR_BAD_DIMENSIONS) << h << "x" << w;
        }
}

// The exported edge kernel given fewer than two rows writes nothing and reports 0 (a driver's output
// comes out the same either way, so the comparison above cannot see this).
TEST(U16, EdgeKernelWithoutRowPairsDoesNothing) {
    std::vector<uint16_t> src(12 * 12, 100), dst(12 * 12 * 3, kUnwritten);
    for (uint32_t rows : {0u, 1u, 0xFFFFFFFFu})
        EXPECT_EQ(edgeSecRGGBU16(src.data() + 24, dst.data() + 72, rows, 12, 2, 4095), 0u) << rows;
    EXPECT_EQ(std::count(dst.begin(), dst.end(), kUnwritten), ptrdiff_t(dst.size()));
}

// A frame inside a packet buffer: input and output at odd addresses give the bytes of aligned buffers.
TEST(U16, AnyAlignmentGivesTheSameSamples) {
    const uint32_t h = 9, w = 11;
    const size_t n = size_t(h) * w;
    std::vector<uint16_t> src(n);
    for (size_t i = 0; i < n; ++i) src[i] = uint16_t(i * 2654435761u >> 16);
    std::vector<uint8_t> in(2 * n + 1), out(6 * n + 1);
    std::memcpy(in.data() + 1, src.data(), 2 * n);
    const auto *odd = reinterpret_cast<const uint16_t *>(in.data() + 1);
    auto *oddOut = reinterpret_cast<uint16_t *>(out.data() + 1);
    std::vector<uint16_t> want(3 * n);
    using Run = std::function<void(const uint16_t *, uint16_t *)>;
    const Run runs[] = {
        [&](const uint16_t *s, uint16_t *d) { vqpDemosaicingBilinearU16(s, h, w, d); },
        [&](const uint16_t *s, uint16_t *d) { vqpDemosaicingBilinearU16P(s, h, w, d, d + n, d + 2 * n); },
        [&](const uint16_t *s, uint16_t *d) { demosaicingEdgeRGGBU16(s, h, w, d); },
        [&](const uint16_t *s, uint16_t *d) { demosaicingEdgeBGGRU16(s, h, w, d); }};
    for (const Run &run : runs) {
        run(src.data(), want.data());
        run(odd, oddOut);
        EXPECT_EQ(std::memcmp(out.data() + 1, want.data(), 6 * n), 0);
    }
}
