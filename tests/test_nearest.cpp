// Nearest-neighbour output through vqpDemosaicing against the per-pixel selection rule.
#include <gtest/gtest.h>

#include "model/frame.h"
#include "model/input.h"
#include "model/nearest_model.h"

using namespace vqt;

namespace {

void expectFrame(const Mosaic &m, Phase p, uint64_t config) {
    const auto r = demosaic(m, p, config, VQP_METHOD_NEAREST);
    ASSERT_EQ(r.status, VQP_OK);
    const std::vector<uint8_t> want = encode(nearestModel(m, p), config);
    ASSERT_EQ(r.out, want) << phaseName(p) << " " << m.h << "x" << m.w << " format " << std::hex << config;
}

} // namespace

TEST(Nearest, EveryPhaseSizeAndOutputFormatFollowsTheSelectionRule) {
    std::mt19937 rng(7);
    for (int h = 4; h <= 20; ++h)
        for (int w = 4; w <= 20; ++w) {
            const Mosaic m = randomMosaic(h, w, rng);
            for (Phase p : kPhases)
                for (uint64_t config : kOutputFormats) expectFrame(m, p, config);
        }
    for (Phase p : kPhases) expectFrame(randomMosaic(61, 97, rng), p, VQP_PIXEL_FORMAT_BGR8);
}

TEST(Nearest, HandComputedRggbCells) {
    // 4x4 RGGB, samples numbered by position.
    Mosaic m(4, 4);
    for (int i = 0; i < 16; ++i) m.s[size_t(i)] = uint8_t(10 + i);
    const auto r = demosaic(m, Phase::RG, VQP_PIXEL_FORMAT_RGB8, VQP_METHOD_NEAREST);
    auto px = [&](int y, int x) { return Rgb{r.out[3 * (4 * y + x)], r.out[3 * (4 * y + x) + 1], r.out[3 * (4 * y + x) + 2]}; };
    EXPECT_EQ(px(0, 0), (Rgb{m(0, 0), m(0, 1), m(1, 1)}));
    EXPECT_EQ(px(2, 0), (Rgb{m(2, 0), m(1, 0), m(1, 1)}));
    EXPECT_EQ(px(1, 1), (Rgb{m(0, 0), m(1, 0), m(1, 1)}));
    EXPECT_EQ(px(3, 3), (Rgb{m(2, 2), m(3, 2), m(3, 3)})); // even height: last B-row, last odd column
}

TEST(Nearest, DeepPackedAndPaddedInputReducesToTheSameMosaic) {
    std::mt19937 rng(11);
    for (int h = 4; h <= 13; ++h)
        for (int w = 4; w <= 13; ++w)
            for (Phase p : kPhases)
                for (Depth d : {Depth::Bits8, Depth::Bits10, Depth::Bits12, Depth::Bits16, Depth::Packed10, Depth::Packed12})
                    for (bool padded : {false, true}) {
                        const Mosaic m = randomMosaic(h, w, rng);
                        RawFrame raw = makeRaw(m, d, padded, rng);
                        const auto r = convertFrame(h, w, inputCode(phaseKey(p), d), raw.bytes(), raw.stride,
                                                    VQP_PIXEL_FORMAT_BGR8, VQP_METHOD_NEAREST);
                        ASSERT_EQ(r.out, encode(nearestModel(m, p), VQP_PIXEL_FORMAT_BGR8))
                            << phaseName(p) << " " << h << "x" << w << " depth " << int(d) << " padded " << padded;
                    }
}
