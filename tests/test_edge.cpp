// Edge-directed method: the library against the per-pixel model on every phase, size and output format,
// plus hand-computed cases for the direction choice, shifts, clamps, borders and the first-band tail.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "model/edge_model.h"

using namespace vqt;

namespace {

constexpr uint8_t kFill = 0xA5;

void expectMatchesModel(const Mosaic &m) {
    for (Phase p : kPhases) {
        const EdgeResult model = edgeModel(m, p);
        for (uint64_t config : kOutputFormats) {
            // 4-byte layouts never write byte 3: it keeps the fill except in the last w bytes, the green line.
            std::vector<uint8_t> want = encode(model.img, config, kFill);
            const size_t line = want.size() - size_t(m.w);
            for (size_t i = line; want.size() == 4 * m.s.size() && i < want.size(); ++i)
                if (i % 4 == 3) want[i] = uint8_t(edgeLineEntry(model, p, int(i - line)));
            const auto run = demosaic(m, p, config, VQP_METHOD_EDGE, kFill);
            const ptrdiff_t at = std::mismatch(run.out.begin(), run.out.end(), want.begin()).first - run.out.begin();
            ASSERT_EQ(at, ptrdiff_t(want.size())) << phaseName(p) << " " << m.h << "x" << m.w << " format " << config;
        }
    }
}

} // namespace

TEST(Edge, MatchesModelOnEveryPhaseSizeAndFormat) {
    std::mt19937 rng(2024);
    for (int h = 4; h <= 20; ++h)
        for (int w = 4; w <= 20; ++w) {
            Mosaic m = randomMosaic(h, w, rng);
            expectMatchesModel(m);
            for (auto &s : m.s) s = s & 1 ? 255 : 0; // estimates and differences far outside the byte range
            expectMatchesModel(m);
        }
    for (auto [h, w] : {std::pair{33, 64}, {101, 47}}) expectMatchesModel(randomMosaic(h, w, rng));
}

// A frame of one value per colour with a few samples changed, and one channel of one pixel, by hand. The model
// must give it too, and the library must agree with the model on the whole frame.
TEST(Edge, HandComputedPixels) {
    using enum Phase;
    using Set = std::vector<std::array<int, 3>>; // y, x, sample
    const Set tail{{0, 6, 0}, {2, 4, 0}, {1, 6, 200}, {2, 5, 250}};
    const struct { Phase p; int h, w; Rgb base; Set set; int y, x, Rgb::*channel, want; } cases[] = {
        // Gradients 40 and 40: vertical (120 + 80) / 2, not horizontal (110 + 70) / 2; 41 vertically: horizontal.
        {RG, 8, 8, {100, 100, 100}, {{2, 3, 110}, {2, 1, 70}, {1, 2, 120}, {3, 2, 80}}, 2, 2, &Rgb::g, 100},
        {RG, 8, 8, {100, 100, 100}, {{2, 3, 110}, {2, 1, 70}, {1, 2, 121}, {3, 2, 80}}, 2, 2, &Rgb::g, 90},
        // Horizontal 2C - C1 - C2 = -3 floors to -1 (vertical greens 0 and 200 lose).
        {RG, 8, 8, {100, 100, 100}, {{2, 1, 50}, {2, 3, 50}, {2, 0, 101}, {2, 4, 102}, {1, 2, 0}, {3, 2, 200}}, 2, 2,
         &Rgb::g, 49},
        // 255 + (510 >> 2) and 0 + (-510 >> 2) are clamped.
        {RG, 8, 8, {255, 255, 255}, {{2, 0, 0}, {2, 4, 0}, {0, 2, 0}, {4, 2, 0}}, 2, 2, &Rgb::g, 255},
        {RG, 8, 8, {0, 0, 0}, {{2, 0, 255}, {2, 4, 255}, {0, 2, 255}, {4, 2, 255}}, 2, 2, &Rgb::g, 0},
        // Blue site (3,3) at 0 among blues 255: green 255 + (-510 >> 2) = 127, red 127 - 255 clamps; and mirrored.
        {RG, 8, 8, {0, 255, 255}, {{3, 3, 0}}, 3, 3, &Rgb::r, 0},
        {RG, 8, 8, {255, 0, 0}, {{3, 3, 255}}, 3, 3, &Rgb::r, 255},
        // Corner: green 100 at (0,0) plus the one blue difference, 140 - 110, unshifted.
        {RG, 8, 8, {100, 100, 100}, {{1, 1, 140}}, 0, 0, &Rgb::b, 130},
        // Width 7: (0,4) ignores S(0,6) = 0 (single difference 100 - 100, not 2*100 - 100 - 0, against a vertical
        // gradient of 200) and (1,5) its right green S(1,6) = 200 (edge form 100, not the single difference
        // (100 + 200) / 2, against 150). One row down in GBRG, (1,4) is horizontally interior: 100 + (100 >> 2).
        {RG, 6, 7, {100, 100, 100}, tail, 0, 4, &Rgb::g, 100},
        {RG, 6, 7, {100, 100, 100}, tail, 1, 5, &Rgb::g, 100},
        {GB, 6, 7, {100, 100, 100}, {{1, 6, 0}, {3, 4, 0}, {2, 6, 200}, {3, 5, 250}}, 1, 4, &Rgb::g, 125},
    };
    for (const auto &c : cases) {
        Mosaic m(c.h, c.w);
        for (int i = 0; i < c.h * c.w; ++i) {
            const char colour = siteColour(c.p, i / c.w, i % c.w);
            m.s[size_t(i)] = uint8_t(colour == 'R' ? c.base.r : colour == 'G' ? c.base.g : c.base.b);
        }
        for (auto [y, x, v] : c.set) m.s[size_t(y * c.w + x)] = uint8_t(v);
        EXPECT_EQ(edgeModel(m, c.p).img.at(c.y, c.x).*c.channel, c.want) << "case " << &c - cases;
        expectMatchesModel(m);
    }
}

// The planar and Mono8 drivers called directly with a line of exactly w bytes (the sanitizer build catches any
// access beyond it) give the converter's bytes.
TEST(Edge, DriversUseExactlyTheirLine) {
    std::mt19937 rng(99);
    for (auto [h, w] : {std::pair{4, 5}, {5, 4}, {9, 11}})
        for (Phase p : {Phase::RG, Phase::GB}) {
            const Mosaic m = randomMosaic(h, w, rng);
            const size_t n = m.s.size();
            std::vector<uint8_t> line(static_cast<size_t>(w)), planes(3 * n), mono(n);
            (p == Phase::GB ? gb8ToBgr8P_edge : rg8ToBgr8P_edge)(m.s.data(), h, w, &planes[0], &planes[n],
                                                                 &planes[2 * n], line.data());
            (p == Phase::GB ? gb8ToMono8_edge : rg8ToMono8_edge)(m.s.data(), h, w, mono.data(), 0, line.data());
            EXPECT_EQ(planes, demosaic(m, p, VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_METHOD_EDGE).out);
            EXPECT_EQ(mono, demosaic(m, p, VQP_PIXEL_FORMAT_MONO8, VQP_METHOD_EDGE).out);
        }
}
