// The parallel entry points against the single-threaded ones: byte-equal output (fourth bytes, green
// line and bytes left alone included) for every thread count, method, phase, layout and input depth, on
// frames from too small to split up to frames that give every thread a band of a few rows; the status
// codes of the new entry points; handles used from several threads at once.
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "core/handle.h"
#include "model/frame.h"
#include "model/input.h"

using namespace vqt;

namespace {

constexpr uint32_t kThreadCounts[] = {1, 2, 3, 7, 0};
// Below, at and well above the size from which frames are split; 7 threads get 4 or 5 rows each.
constexpr int kSizes[][2] = {{4, 4}, {9, 13}, {29, 1131}, {40, 1024}, {300, 131}};

struct Handle {
    ProcessingHandle *h = nullptr;
    Handle() { vqpCreate(&h); }
    ~Handle() { vqpRelease(&h); }
};

// One conversion through vqpDemosaicingParallel (threads > 0 or 0) or vqpDemosaicing (threads < 0),
// on a copy of the input (8-bit input is compacted in place) into an output pre-filled with 0xA5.
Run convert(ProcessingHandle *h, const RawFrame &raw, int height, int width, uint32_t code, uint64_t config,
            uint32_t method, int64_t threads) {
    RawFrame in = raw;
    vqpDemosaicSetConfig(h, &config);
    Run r{0, std::vector<uint8_t>(outputBytes(config, height, width), 0xA5)};
    ImageFrame fi{height, width, code, in.bytes(), in.stride}, fo{0, 0, 0, r.out.data(), 0};
    r.status = threads < 0 ? vqpDemosaicing(h, &fi, method, &fo)
                           : vqpDemosaicingParallel(h, &fi, method, &fo, uint32_t(threads));
    return r;
}

} // namespace

TEST(Parallel, EightBitEqualsOneThreadForEveryMethodPhaseLayoutAndDepth) {
    std::mt19937 rng(41);
    Handle one, many;
    for (const auto &hw : kSizes)
        for (char phase : {'r', 'g', 'b', 'B', 'M'})
            for (Depth d : {Depth::Bits8, Depth::Bits12, Depth::Packed12}) {
                const int h = hw[0], w = hw[1];
                const RawFrame raw = makeRaw(randomMosaic(h, w, rng), d, (h + w + int(d)) % 2 == 1, rng);
                for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE})
                    for (uint64_t config : {VQP_PIXEL_FORMAT_BGR8, VQP_PIXEL_FORMAT_RGBA8,
                                            VQP_PIXEL_FORMAT_BGR8_PLANAR, VQP_PIXEL_FORMAT_MONO8}) {
                        const vqt::Run want = convert(one.h, raw, h, w, inputCode(phase, d), config, method, -1);
                        for (uint32_t t : kThreadCounts) {
                            const vqt::Run got = convert(many.h, raw, h, w, inputCode(phase, d), config, method, t);
                            ASSERT_EQ(got.status, want.status);
                            ASSERT_EQ(got.out, want.out) << phase << " " << h << "x" << w << " depth " << int(d)
                                                         << " method " << method << " format " << std::hex << config
                                                         << std::dec << " threads " << t;
                        }
                    }
            }
}

TEST(Parallel, SixteenBitEqualsTheDrivers) {
    std::mt19937 rng(43);
    Handle handle;
    for (const auto &hw : kSizes)
        for (uint32_t maximum : {4095u, 65535u}) {
            const uint32_t h = uint32_t(hw[0]), w = uint32_t(hw[1]);
            const size_t n = size_t(h) * w;
            std::vector<uint16_t> src(n);
            for (uint16_t &v : src) v = uint16_t(rng() % (maximum + 1));
            std::vector<uint16_t> want(3 * n, 0xA5A5), got(3 * n);
            demosaicingBilinearRGGBU16(src.data(), h, w, want.data());
            std::vector<uint16_t> wantP(3 * n, 0xA5A5), gotP(3 * n);
            demosaicingBilinearRGGBU16P(src.data(), h, w, wantP.data(), wantP.data() + n, wantP.data() + 2 * n);
            using Driver = int32_t (*)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
            const std::pair<uint32_t, Driver> edges[] = {{VQP_PIXEL_FORMAT_BAYER_RG12, demosaicingEdgeRGGBU16},
                                                         {VQP_PIXEL_FORMAT_BAYER_GR16, demosaicingEdgeGRBGU16},
                                                         {VQP_PIXEL_FORMAT_BAYER_GB8, demosaicingEdgeGBRGU16},
                                                         {VQP_PIXEL_FORMAT_BAYER_BG10, demosaicingEdgeBGGRU16}};
            std::vector<std::vector<uint16_t>> wantEdge;
            for (const auto &e : edges) {
                wantEdge.emplace_back(3 * n, 0xA5A5);
                e.second(src.data(), h, w, wantEdge.back().data());
            }
            for (uint32_t t : kThreadCounts) {
                std::fill(got.begin(), got.end(), 0xA5A5);
                ASSERT_EQ(vqpDemosaicingBilinearU16Parallel(handle.h, src.data(), h, w, got.data(), t), VQP_OK);
                ASSERT_EQ(got, want) << "bilinear " << h << "x" << w << " threads " << t;
                std::fill(gotP.begin(), gotP.end(), 0xA5A5);
                ASSERT_EQ(vqpDemosaicingBilinearU16PParallel(handle.h, src.data(), h, w, gotP.data(), gotP.data() + n,
                                                             gotP.data() + 2 * n, t),
                          VQP_OK);
                ASSERT_EQ(gotP, wantP) << "planar " << h << "x" << w << " threads " << t;
                for (size_t e = 0; e < 4; ++e) {
                    std::fill(got.begin(), got.end(), 0xA5A5);
                    ASSERT_EQ(vqpDemosaicingEdgeU16Parallel(handle.h, src.data(), h, w, got.data(), edges[e].first, t),
                              VQP_OK);
                    ASSERT_EQ(got, wantEdge[e]) << "edge phase " << e << " " << h << "x" << w << " threads " << t;
                }
            }
        }
}

TEST(Parallel, StatusCodesInTheSingleThreadedOrder) {
    Handle handle;
    std::vector<uint8_t> in(64 * 64 * 2), out(64 * 64 * 4);
    ImageFrame fi{64, 64, VQP_PIXEL_FORMAT_BAYER_RG8, in.data(), 64}, fo{0, 0, 0, out.data(), 0};
    EXPECT_EQ(vqpDemosaicingParallel(nullptr, &fi, 1, &fo, 2), VQP_ERR_NULL_ARGUMENT);
    ImageFrame bad = fi;
    bad.width = 3;
    bad.pixelFormat = 0x12345678u;
    EXPECT_EQ(vqpDemosaicingParallel(handle.h, &bad, 1, &fo, 2), VQP_ERR_BAD_DIMENSIONS);
    bad.width = 64;
    EXPECT_EQ(vqpDemosaicingParallel(handle.h, &bad, 1, &fo, 2), VQP_ERR_UNSUPPORTED_INPUT_FORMAT);
    const uint64_t unknown = 0x02200018u;
    handle.h->config = unknown; // bypasses the setter's check, as a caller's stale handle could not
    EXPECT_EQ(vqpDemosaicingParallel(handle.h, &fi, 1, &fo, 2), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT);

    const uint16_t *s16 = reinterpret_cast<const uint16_t *>(in.data());
    uint16_t *d16 = reinterpret_cast<uint16_t *>(out.data());
    EXPECT_EQ(vqpDemosaicingBilinearU16Parallel(nullptr, s16, 8, 8, d16, 2), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16Parallel(handle.h, s16, 3, 8, d16, 2), VQP_ERR_BAD_DIMENSIONS);
    EXPECT_EQ(vqpDemosaicingBilinearU16PParallel(handle.h, s16, 8, 8, d16, nullptr, d16, 2), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingBilinearU16PParallel(handle.h, s16, 8, 0x80000000u, d16, d16, d16, 2),
              VQP_ERR_BAD_DIMENSIONS);
    EXPECT_EQ(vqpDemosaicingEdgeU16Parallel(handle.h, nullptr, 8, 8, d16, VQP_PIXEL_FORMAT_BAYER_RG16, 2),
              VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicingEdgeU16Parallel(handle.h, s16, 8, 2, d16, 0x12345678u, 2), VQP_ERR_BAD_DIMENSIONS);
    for (uint32_t code : {VQP_PIXEL_FORMAT_MONO16, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, 0u})
        EXPECT_EQ(vqpDemosaicingEdgeU16Parallel(handle.h, s16, 8, 8, d16, code, 2), VQP_ERR_UNSUPPORTED_INPUT_FORMAT);
}

// Several handles on several threads at once, each reused for many frames of different sizes and methods,
// with parallel calls of their own: every result equals the single-threaded one. (Run under
// ThreadSanitizer too.)
TEST(Parallel, HandlesOnSeveralThreadsAtOnce) {
    std::mt19937 rng(47);
    const int sizes[][2] = {{64, 600}, {130, 301}, {48, 1024}};
    std::vector<RawFrame> raws;
    std::vector<vqt::Run> wants;
    Handle reference;
    for (int k = 0; k < 3; ++k) {
        const int h = sizes[k][0], w = sizes[k][1];
        raws.push_back(makeRaw(randomMosaic(h, w, rng), Depth::Bits12, false, rng));
        wants.push_back(convert(reference.h, raws.back(), h, w, inputCode('g', Depth::Bits12), VQP_PIXEL_FORMAT_BGRA8,
                                uint32_t(k), -1));
    }
    std::vector<std::thread> callers;
    std::vector<int> mismatches(3, 0);
    for (int c = 0; c < 3; ++c)
        callers.emplace_back([&, c] {
            Handle mine;
            for (int frame = 0; frame < 12; ++frame) {
                const int k = (frame + c) % 3;
                const vqt::Run got = convert(mine.h, raws[size_t(k)], sizes[k][0], sizes[k][1],
                                             inputCode('g', Depth::Bits12), VQP_PIXEL_FORMAT_BGRA8, uint32_t(k),
                                             1 + (frame + c) % 3);
                mismatches[size_t(c)] += got.out != wants[size_t(k)].out || got.status != VQP_OK;
            }
        });
    for (std::thread &t : callers) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(3, 0));
}
