// Bilinear demosaic (method 1): every phase and output format against the per-pixel model (a uniform
// frame is one of its cases), plus the hand-computed cases of the green-first odd-width reuses and of
// the luma's truncation and rounding.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

#include "model/bilinear_model.h"
#include "model/frame.h"

namespace {

using namespace vqt;

// Random frames of every size from 4x4 to 21x21 and two larger ones, every phase, all seven formats. The
// output is pre-filled with 0xA5, so this also checks that 4-byte pixels carry alpha 0 and that every byte
// is written; AddressSanitizer builds catch any write past the exactly sized buffer.
TEST(Bilinear, MatchesModelForEverySizePhaseAndFormat) {
    std::mt19937 rng(20261121);
    std::vector<std::array<int, 2>> sizes{{37, 64}, {64, 37}};
    for (int h = 4; h <= 21; ++h)
        for (int w = 4; w <= 21; ++w) sizes.push_back({h, w});
    for (const auto &[h, w] : sizes) {
        for (Phase p : kPhases) {
            const Mosaic m = randomMosaic(h, w, rng);
            const Image want = bilinearModel(m, p);
            for (uint64_t config : kOutputFormats) {
                const vqt::Run r = demosaic(m, p, config, VQP_METHOD_BILINEAR);
                ASSERT_EQ(r.status, VQP_OK);
                ASSERT_TRUE(r.out == encode(want, config)) << phaseName(p) << " " << h << "x" << w << " format 0x" << std::hex << config;
            }
        }
    }
}

// Green-first phases, odd width 5 (k = 3): green at (0, 3) takes M(0,0) as its west neighbour, and row 0's
// other colour at (1, 3) and (1, 4) pairs M(0,3) with M(2,1) instead of M(2,3).
TEST(Bilinear, GreenFirstOddWidthReusesTopLeftSamples) {
    Mosaic m(4, 5);
    const auto set = [&](int y, int x, int v) { m.s[size_t(y * 5 + x)] = uint8_t(v); };
    set(0, 0, 200), set(0, 2, 0), set(0, 4, 40), set(1, 3, 20); // green (200 + 40 + 2*20) >> 2 = 70, not 20
    set(0, 3, 100), set(2, 1, 50), set(2, 3, 10);                // (100 + 50) >> 1 = 75, not 55
    for (Phase p : {Phase::GB, Phase::GR}) {
        const std::vector<uint8_t> bgr = demosaic(m, p, VQP_PIXEL_FORMAT_BGR8, VQP_METHOD_BILINEAR).out;
        const auto px = [&](int y, int x, int byte) { return int(bgr[size_t(3 * (y * 5 + x) + byte)]); };
        const int rowZeroColour = p == Phase::GB ? 0 : 2; // blue in GBRG, red in GRBG
        EXPECT_EQ(px(0, 3, 1), 70) << phaseName(p);
        EXPECT_EQ(px(1, 3, rowZeroColour), 75) << phaseName(p);
        EXPECT_EQ(px(1, 4, rowZeroColour), 75) << phaseName(p);
    }
}

// Components are truncated first, then weighed, then the luma is rounded (+128).
TEST(Bilinear, Mono8TruncatesComponentsThenRoundsLuma) {
    Mosaic m(4, 4); // RGGB, zero except around the red site (2, 2)
    const auto set = [&](int y, int x, int v) { m.s[size_t(y * 4 + x)] = uint8_t(v); };
    set(2, 2, 2), set(1, 2, 1), set(3, 2, 2), set(2, 1, 2), set(2, 3, 2);
    const std::vector<uint8_t> y = demosaic(m, Phase::RG, VQP_PIXEL_FORMAT_MONO8, VQP_METHOD_BILINEAR).out;
    EXPECT_EQ(y[2 * 4 + 2], 1); // R 2, G 7 >> 2 = 1, B 0: (154 + 150 + 128) >> 8; unshifted green would give 2
    EXPECT_EQ(y[1 * 4 + 2], 1); // R 1, G 1, B 0: (77 + 150 + 128) >> 8; without the rounding term 0
}

// The Mono8 drivers weigh the frame's red with weights[0] and blue with weights[2] in every region (the
// green-first driver runs its pieces on a reversed copy), and never write the caller's array.
TEST(Bilinear, Mono8DriversWeighInCallerOrderAndKeepTheWeights) {
    std::mt19937 rng(7);
    const Mosaic m = randomMosaic(7, 9, rng);
    for (Phase p : {Phase::RG, Phase::GR}) {
        const Image model = bilinearModel(m, p);
        for (int channel = 0; channel < 3; ++channel) {
            uint32_t weights[3] = {0, 0, 0};
            weights[channel] = 256; // luma = that component exactly
            std::vector<uint8_t> out(size_t(m.h * m.w), 0xA5);
            const auto driver = p == Phase::RG ? rg8ToMono8_bilinear : gr8ToMono8_bilinear;
            EXPECT_EQ(driver(m.s.data(), m.h, m.w, weights, out.data()), 0);
            EXPECT_EQ(weights[channel], 256u);
            EXPECT_EQ(weights[(channel + 1) % 3] + weights[(channel + 2) % 3], 0u);
            for (size_t i = 0; i < out.size(); ++i) {
                const Rgb &c = model.px[i];
                ASSERT_EQ(out[i], channel == 0 ? c.r : channel == 1 ? c.g : c.b)
                    << phaseName(p) << " channel " << channel << " pixel " << i;
            }
        }
    }
}

} // namespace
