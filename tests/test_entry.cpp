// vqpDemosaicing: the status codes and the order of the checks, what a failing call leaves alone, the
// output record, in-place compaction of padded 8-bit input, and monochrome input.
#include <gtest/gtest.h>

#include <cstdlib>

#include "core/handle.h"
#include "model/frame.h"
#include "model/input.h"

using namespace vqt;

namespace {

struct Fixture {
    ProcessingHandle *h = nullptr;
    std::vector<uint8_t> in, out;
    ImageFrame fin{}, fout{};
    Fixture(int32_t height, int32_t width, int32_t stride, uint32_t format, uint64_t config = VQP_PIXEL_FORMAT_BGR8) {
        vqpCreate(&h);
        vqpDemosaicSetConfig(h, &config);
        in.assign(size_t(std::abs(stride)) * size_t(std::max(height, 1)) * 2 + 64, 7);
        out.assign(size_t(std::max(height, 1)) * size_t(std::max(width, 1)) * 4, 0xEE);
        fin = {height, width, format, in.data(), stride};
        fout = {-1, -1, 0xDEADBEEF, out.data(), -5};
    }
    ~Fixture() { vqpRelease(&h); }
    int32_t run(uint32_t method = VQP_METHOD_NEAREST) { return vqpDemosaicing(h, &fin, method, &fout); }
    bool outputUntouched() const {
        return fout.height == -1 && fout.width == -1 && fout.pixelFormat == 0xDEADBEEF && fout.stride == -5 &&
               std::all_of(out.begin(), out.end(), [](uint8_t b) { return b == 0xEE; });
    }
};

} // namespace

TEST(Entry, NullPointersComeFirst) {
    Fixture f(2, 2, 2, 0x12345678u); // bad size and bad format too: the pointer check wins
    ImageFrame noIn = f.fin, noOut = f.fout;
    noIn.data = noOut.data = nullptr;
    EXPECT_EQ(vqpDemosaicing(nullptr, &f.fin, 0, &f.fout), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing(f.h, nullptr, 0, &f.fout), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing(f.h, &f.fin, 0, nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing(f.h, &noIn, 0, &f.fout), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicing(f.h, &f.fin, 0, &noOut), VQP_ERR_NULL_ARGUMENT);
}

TEST(Entry, DimensionsComeBeforeFormats) {
    const uint32_t bad = 0x12345678u;
    for (auto [h, w, s] : {std::tuple{3, 8, 8}, {8, 3, 8}, {8, 8, 3}, {0, 8, 8}, {-4, 8, 8}, {8, 8, -8}}) {
        Fixture f(h, w, s, bad);
        EXPECT_EQ(f.run(), VQP_ERR_BAD_DIMENSIONS) << h << "x" << w << " stride " << s;
        EXPECT_TRUE(f.outputUntouched());
    }
    // 46341 * 46341 turns negative in 32 bits; the frame is never read.
    ImageFrame big{46341, 46341, VQP_PIXEL_FORMAT_BAYER_RG8, reinterpret_cast<void *>(16), 46341};
    Fixture f(4, 4, 4, VQP_PIXEL_FORMAT_BAYER_RG8);
    EXPECT_EQ(vqpDemosaicing(f.h, &big, 0, &f.fout), VQP_ERR_BAD_DIMENSIONS);
    EXPECT_EQ(f.h->scratch.capacity, 0);
}

TEST(Entry, InputFormatComesBeforeOutputFormat) {
    Fixture f(4, 4, 4, 0x010C0005u); // not an accepted input code
    f.h->config = 0x02180023u;       // nor an accepted output (set behind the setter's back)
    EXPECT_EQ(f.run(), VQP_ERR_UNSUPPORTED_INPUT_FORMAT);
    EXPECT_EQ(f.h->scratch.capacity, 0); // refused before the scratch grew
    f.fin.pixelFormat = VQP_PIXEL_FORMAT_BAYER_GB8;
    EXPECT_EQ(f.run(), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT);
    EXPECT_TRUE(f.outputUntouched());
    f.fin.pixelFormat = VQP_PIXEL_FORMAT_MONO12;
    EXPECT_EQ(f.run(), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT);
    EXPECT_TRUE(f.outputUntouched());
}

TEST(Entry, ScratchGrowsToTheReducedFrameAndIsKept) {
    Fixture f(6, 10, 20, VQP_PIXEL_FORMAT_BAYER_RG12);
    ASSERT_EQ(f.run(), VQP_OK);
    EXPECT_EQ(f.h->scratch.capacity, 6 * 10 + 10 + 64);
    f.fin = {6, 10, VQP_PIXEL_FORMAT_BAYER_RG8, f.in.data(), 10};
    std::fill(f.out.begin(), f.out.end(), 0xEE);
    f.fout = {-1, -1, 0, f.out.data(), -5};
    ASSERT_EQ(f.run(3), VQP_OK); // an unknown method: no pixels, but the record is written
    EXPECT_EQ(f.h->scratch.capacity, 6 * 10 + 10 + 64); // never shrinks
    EXPECT_TRUE(std::all_of(f.out.begin(), f.out.end(), [](uint8_t b) { return b == 0xEE; }));
    EXPECT_EQ(f.fout.height, 6);
    EXPECT_EQ(f.fout.width, 10);
    EXPECT_EQ(f.fout.pixelFormat, VQP_PIXEL_FORMAT_BGR8); // the configuration, not the input format
    EXPECT_EQ(f.fout.stride, -5);
    EXPECT_EQ(f.fout.data, f.out.data());
    Fixture g(5, 9, 9, VQP_PIXEL_FORMAT_BAYER_BG8);
    ASSERT_EQ(g.run(), VQP_OK);
    EXPECT_EQ(g.h->scratch.capacity, 9 + 64);
}

TEST(Entry, PaddedEightBitInputIsCompactedInPlaceEvenWhenTheOutputIsRefused) {
    Fixture f(4, 4, 6, VQP_PIXEL_FORMAT_BAYER_RG8);
    for (size_t i = 0; i < f.in.size(); ++i) f.in[i] = uint8_t(i);
    f.h->config = 0x02200018u;
    EXPECT_EQ(f.run(), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT);
    const uint8_t packed[16] = {0, 1, 2, 3, 6, 7, 8, 9, 12, 13, 14, 15, 18, 19, 20, 21};
    EXPECT_TRUE(std::equal(packed, packed + 16, f.in.begin()));
    EXPECT_EQ(f.fin.stride, 6); // the record itself is not changed
}

TEST(Entry, MonochromeInputInEveryOutputFormat) {
    std::mt19937 rng(3);
    for (int h : {4, 5, 9})
        for (int w : {4, 7, 10})
            for (Depth d : {Depth::Bits8, Depth::Bits10, Depth::Bits12, Depth::Bits14, Depth::Bits16, Depth::Packed10,
                            Depth::Packed12})
                for (uint64_t config : kOutputFormats) {
                    const Mosaic m = randomMosaic(h, w, rng);
                    RawFrame raw = makeRaw(m, d, (h + w) % 2 == 1, rng);
                    Image grey(h, w);
                    for (size_t i = 0; i < m.s.size(); ++i) grey.px[i] = {m.s[i], m.s[i], m.s[i]};
                    // The method is not consulted; Mono8 is a copy (encode's luma of v, v, v is v anyway).
                    ASSERT_EQ(convertFrame(h, w, inputCode('M', d), raw.bytes(), raw.stride, config, 99).out,
                              encode(grey, config))
                        << h << "x" << w << " depth " << int(d) << " format " << std::hex << config;
                }
}

// Deep and packed frames are reduced and converted a band of rows at a time (nearest and bilinear; rows
// of 256 samples and more are read directly by the vector interiors), or reduced a few rows ahead of the
// edge-directed bands; tall frames of narrow and wide rows cross many band boundaries, at both parities of
// the first row, with odd widths that split a packed pair across rows and odd sizes whose packed run
// writes a byte past its end.
TEST(Entry, DeepAndPackedInputByBandsEqualsTheReducedFrame) {
    std::mt19937 rng(29);
    const int sizes[][2] = {{64, 4}, {67, 5}, {130, 7}, {131, 13}, {200, 8}, {75, 4097}, {90, 2051}};
    for (const auto &hw : sizes)
        for (char phase : {'r', 'g', 'b', 'B', 'M'})
            for (Depth d : {Depth::Bits12, Depth::Bits16, Depth::Packed12})
                for (bool padded : {false, true}) {
                    const int h = hw[0], w = hw[1];
                    const Mosaic m = randomMosaic(h, w, rng);
                    RawFrame raw = makeRaw(m, d, padded, rng);
                    for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE})
                        for (uint64_t config : {VQP_PIXEL_FORMAT_BGR8, VQP_PIXEL_FORMAT_RGBA8,
                                                VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_PIXEL_FORMAT_MONO8}) {
                            std::vector<uint8_t> eight = m.s;
                            const auto want = convertFrame(h, w, inputCode(phase, Depth::Bits8), eight.data(), w,
                                                           config, method);
                            const auto got = convertFrame(h, w, inputCode(phase, d), raw.bytes(), raw.stride, config,
                                                          method);
                            ASSERT_EQ(got.out, want.out) << phase << " " << h << "x" << w << " depth " << int(d)
                                                         << " padded " << padded << " method " << method;
                        }
                }
}

// Frames whose scratch block cannot be described by a 32-bit capacity: -117 before anything is read,
// reduced or written (the buffers here are far smaller than such frames; nothing may touch them). The
// statuses of the 32-bit checks before it are unchanged.
TEST(Entry, HiddenSizesAreOutOfMemoryWithNothingWritten) {
    struct Case {
        int32_t h, w, stride;
        uint32_t code;
        uint64_t config;
        uint32_t method;
        int32_t status;
    };
    const Case cases[] = {
        {65536, 65536, 131072, VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BGR8, 1, VQP_ERR_OUT_OF_MEMORY},
        {65536, 65536, 131074, VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BGR8, 2, VQP_ERR_OUT_OF_MEMORY},
        {65536, 65536, 98304, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, VQP_PIXEL_FORMAT_BGR8, 0, VQP_ERR_OUT_OF_MEMORY},
        {46341, 46340, 92680, VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_MONO8, 1, VQP_ERR_OUT_OF_MEMORY},
        {4, 1431655766, 0x7FFFFFFF, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, VQP_PIXEL_FORMAT_BGR8, 1,
         VQP_ERR_OUT_OF_MEMORY},
        {5, 2147483600, 2147483600, VQP_PIXEL_FORMAT_BAYER_RG8, VQP_PIXEL_FORMAT_RGB8_PLANAR, 2,
         VQP_ERR_OUT_OF_MEMORY},
        {4, 1 << 30, 0x7FFFFFFF, VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BGR8, 1, VQP_ERR_OUT_OF_MEMORY},
        {6, 1431655766, 0x7FFFFFFF, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, VQP_PIXEL_FORMAT_BGR8, 1,
         VQP_ERR_OUT_OF_MEMORY}, // the product wraps to 4
        {46341, 46341, 46341, VQP_PIXEL_FORMAT_BAYER_RG8, VQP_PIXEL_FORMAT_BGR8, 1,
         VQP_ERR_BAD_DIMENSIONS}, // the 32-bit product is negative
    };
    for (const Case &c : cases)
        for (bool parallel : {false, true}) {
            ProcessingHandle *h = nullptr;
            ASSERT_EQ(vqpCreate(&h), VQP_OK);
            vqpDemosaicSetConfig(h, &c.config);
            std::vector<uint8_t> in(64, 7), out(64, 0xEE);
            ImageFrame fi{c.h, c.w, c.code, in.data(), c.stride}, fo{-1, -1, 0xDEADBEEF, out.data(), -5};
            const int32_t status = parallel ? vqpDemosaicingParallel(h, &fi, c.method, &fo, 2)
                                            : vqpDemosaicing(h, &fi, c.method, &fo);
            EXPECT_EQ(status, c.status) << c.h << " x " << c.w;
            EXPECT_EQ(out, std::vector<uint8_t>(64, 0xEE));
            EXPECT_EQ(in, std::vector<uint8_t>(64, 7));
            EXPECT_EQ(fo.height, -1);
            vqpRelease(&h);
            EXPECT_EQ(vqpRelease(&h), VQP_OK); // a second release finds null and does nothing
        }
}
