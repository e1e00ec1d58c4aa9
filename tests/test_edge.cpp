// Edge-directed method: the library against the per-pixel model on every phase, size and output format,
// plus hand-computed cases for the direction choice, shifts, clamps and the first-band tail.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "model/edge_model.h"

using namespace vqt;

namespace {

constexpr uint8_t kFill = 0xA5;

// First differing byte, or -1.
long firstDiff(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b) {
    if (a.size() != b.size()) return 0;
    const auto it = std::mismatch(a.begin(), a.end(), b.begin());
    return it.first == a.end() ? -1 : long(it.first - a.begin());
}

void expectMatchesModel(const Mosaic &m) {
    for (Phase p : kPhases) {
        const EdgeResult model = edgeModel(m, p);
        for (uint64_t config : kOutputFormats) {
            const auto run = demosaic(m, p, config, VQP_METHOD_EDGE, kFill);
            ASSERT_EQ(run.status, VQP_OK);
            const long at = firstDiff(run.out, edgeExpected(model, p, config, kFill));
            ASSERT_EQ(at, -1) << phaseName(p) << " " << m.h << "x" << m.w << " format 0x" << std::hex << config
                              << std::dec << " byte " << at;
        }
    }
}

// A frame of `v` with a few samples set, and the pixels the library makes of it.
struct Probe {
    Mosaic m;
    Probe(int h, int w, int v) : m(h, w) { std::fill(m.s.begin(), m.s.end(), uint8_t(v)); }
    Probe &set(int y, int x, int v) {
        m.s[size_t(y) * size_t(m.w) + size_t(x)] = uint8_t(v);
        return *this;
    }
    Rgb pixel(int y, int x, Phase p = Phase::RG) const {
        const auto run = demosaic(m, p, VQP_PIXEL_FORMAT_RGB8, VQP_METHOD_EDGE);
        const uint8_t *px = &run.out[(size_t(y) * size_t(m.w) + size_t(x)) * 3];
        return {px[0], px[1], px[2]};
    }
    int green(int y, int x, Phase p = Phase::RG) const { return pixel(y, x, p).g; }
};

} // namespace

TEST(Edge, MatchesModelOnEverySmallSize) {
    std::mt19937 rng(2024);
    std::bernoulli_distribution coin;
    for (int h = 4; h <= 20; ++h)
        for (int w = 4; w <= 20; ++w) {
            expectMatchesModel(randomMosaic(h, w, rng));
            Mosaic extremes(h, w); // 0 and 255 only: estimates and differences far outside the byte range
            for (auto &s : extremes.s) s = coin(rng) ? 255 : 0;
            expectMatchesModel(extremes);
        }
}

TEST(Edge, MatchesModelOnLargerFrames) {
    std::mt19937 rng(7);
    for (auto [h, w] : {std::pair{33, 64}, {64, 33}, {101, 47}, {48, 130}}) expectMatchesModel(randomMosaic(h, w, rng));
}

TEST(Edge, FlatFramesStayFlat) {
    for (int v = 0; v < 256; ++v)
        for (auto [h, w] : {std::pair{4, 4}, {7, 9}}) {
            Mosaic m(h, w);
            std::fill(m.s.begin(), m.s.end(), uint8_t(v));
            Image img(h, w);
            std::fill(img.px.begin(), img.px.end(), Rgb{v, v, v});
            std::vector<uint8_t> keep(size_t(4 * h * w), kFill); // the line leaves v in the last w bytes
            std::fill(keep.end() - w, keep.end(), uint8_t(v));
            for (Phase p : kPhases)
                for (uint64_t config : kOutputFormats) {
                    const auto run = demosaic(m, p, config, VQP_METHOD_EDGE, kFill);
                    ASSERT_EQ(run.out, encode(img, config, -1, &keep)) << v << " " << phaseName(p) << " " << config;
                }
        }
}

TEST(Edge, StripesAreFollowedAndTiesGoVertical) {
    // Vertical stripes: the vertical estimate, the column's own green, wins at every interior site.
    Probe columns(8, 8, 0);
    const int colValue[8] = {10, 200, 60, 140, 30, 250, 90, 120};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) columns.set(y, x, colValue[x]);
    EXPECT_EQ(columns.green(2, 2), 60);
    EXPECT_EQ(columns.green(3, 3), 140);
    // Horizontal stripes: the horizontal estimate, the row's green.
    Probe rows(8, 8, 0);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) rows.set(y, x, colValue[y]);
    EXPECT_EQ(rows.green(2, 4), 60);
    EXPECT_EQ(rows.green(3, 3), 140);
    // Equal gradients (40 each way): horizontal would give (110 + 70) / 2 = 90, vertical (120 + 80) / 2.
    EXPECT_EQ(Probe(8, 8, 100).set(2, 3, 110).set(2, 1, 70).set(1, 2, 120).set(3, 2, 80).green(2, 2), 100);
}

TEST(Edge, ShiftsFloorAndEstimatesClamp) {
    // Horizontal 2C - C1 - C2 = 200 - 101 - 102 = -3 floors to -1 (vertical greens 0 and 200 lose).
    EXPECT_EQ(Probe(8, 8, 100).set(2, 1, 50).set(2, 3, 50).set(2, 0, 101).set(2, 4, 102).set(1, 2, 0).set(3, 2, 200)
                  .green(2, 2),
              49);
    // 255 + (510 >> 2) and 0 + (-510 >> 2) = -128 are clamped.
    EXPECT_EQ(Probe(8, 8, 255).set(2, 0, 0).set(2, 4, 0).set(0, 2, 0).set(4, 2, 0).green(2, 2), 255);
    EXPECT_EQ(Probe(8, 8, 0).set(2, 0, 255).set(2, 4, 255).set(0, 2, 255).set(4, 2, 255).green(2, 2), 0);
    // Red at the blue site (3,3) of a frame with greens 255, red 0, blue 255 but (3,3) = 0: the site's green
    // is 255 + (-510 >> 2) = 127, every red difference -255, so red is 127 - 255, clamped to 0. The mirror
    // image (greens 0, red 255, blue 0 but (3,3) = 255) gives 127 + 255, clamped to 255.
    for (int dark : {1, 0}) {
        Probe p(8, 8, 0);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) {
                const int v = siteColour(Phase::RG, y, x) == 'R' ? 0 : 255;
                p.set(y, x, dark ? v : 255 - v);
            }
        p.set(3, 3, dark ? 0 : 255);
        EXPECT_EQ(p.pixel(3, 3).r, dark ? 0 : 255);
        EXPECT_EQ(p.pixel(3, 3).g, 127);
    }
}

TEST(Edge, FirstRowsOfOddWidthEndOneColumnEarly) {
    // Width 7: (0,4) ignores S(0,6) = 0 (single difference 100 - 100, not 2*100 - 100 - 0, against a vertical
    // gradient of 200) and (1,5) ignores its right green S(1,6) = 200 (edge form 100, not the single
    // difference (100 + 200) / 2, against a vertical gradient of 150).
    Probe p(6, 7, 100);
    p.set(0, 6, 0).set(2, 4, 0).set(1, 6, 200).set(2, 5, 250);
    EXPECT_EQ(p.green(0, 4), 100);
    EXPECT_EQ(p.green(1, 5), 100);
    // The same rows one row down in a GBRG frame follow the general rules: (1,4) is interior horizontally,
    // 100 + (100 >> 2), taken vertically on the tie.
    std::rotate(p.m.s.begin(), p.m.s.end() - 7, p.m.s.end());
    EXPECT_EQ(p.green(1, 4, Phase::GB), 125);
}

// The planar and Mono8 drivers called directly with a line of exactly w bytes (the sanitizer build catches any
// access beyond it) give the same bytes as the converter.
TEST(Edge, DriversUseExactlyTheirLine) {
    std::mt19937 rng(99);
    for (auto [h, w] : {std::pair{4, 5}, {5, 4}, {9, 11}}) {
        const Mosaic m = randomMosaic(h, w, rng);
        const size_t n = m.s.size();
        for (bool gb : {false, true}) {
            const Phase p = gb ? Phase::GB : Phase::RG;
            std::vector<uint8_t> line(static_cast<size_t>(w)), planes(3 * n), mono(n);
            (gb ? gb8ToBgr8P_edge : rg8ToBgr8P_edge)(m.s.data(), h, w, planes.data(), planes.data() + n,
                                                     planes.data() + 2 * n, line.data());
            EXPECT_EQ(planes, demosaic(m, p, VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_METHOD_EDGE).out);
            std::vector<uint8_t> line2(static_cast<size_t>(w));
            (gb ? gb8ToMono8_edge : rg8ToMono8_edge)(m.s.data(), h, w, mono.data(), 0, line2.data());
            EXPECT_EQ(mono, demosaic(m, p, VQP_PIXEL_FORMAT_MONO8, VQP_METHOD_EDGE).out);
        }
    }
}
