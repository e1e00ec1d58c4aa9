// Handle and configuration, rejected input codes, the packed reduction's odd-width overrun, and the two
// output helpers.
#include <gtest/gtest.h>

#include <cstdlib>

#include "core/handle.h"
#include "model/frame.h"

TEST(Handle, LifecycleDefaultsAndConfiguration) {
    EXPECT_EQ(vqpCreate(nullptr), VQP_ERR_NULL_ARGUMENT);
    ProcessingHandle *h = nullptr;
    ASSERT_EQ(vqpCreate(&h), VQP_OK);
    const uint32_t settings[8] = {12, 1, 0, 8, 1, 0, 8, 1};
    EXPECT_TRUE(std::equal(settings, settings + 8, h->settings));
    EXPECT_EQ(h->createWord, 0);
    EXPECT_EQ(h->createValue, 0u);
    uint64_t got = 0;
    EXPECT_EQ(vqpDemosaicGetConfig(h, &got), VQP_OK);
    EXPECT_EQ(got, 0x02180015u);
    for (uint64_t v : {0x02180014ull, 0x02180015ull, 0x02200016ull, 0x02200017ull, 0x02180021ull, 0x02180025ull,
                       0x01080001ull}) {
        EXPECT_EQ(vqpDemosaicSetConfig(h, &v), VQP_OK);
        vqpDemosaicGetConfig(h, &got);
        EXPECT_EQ(got, v);
    }
    for (uint64_t v : {0x02180023ull, 0x02200018ull, 0x01080008ull, 0x102180015ull, 0x02180013ull, 0ull}) {
        EXPECT_EQ(vqpDemosaicSetConfig(h, &v), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT) << std::hex << v;
        vqpDemosaicGetConfig(h, &got);
        EXPECT_EQ(got, 0x01080001u); // the last accepted value stays
    }
    EXPECT_EQ(vqpDemosaicSetConfig(h, nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicGetConfig(nullptr, &got), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpRelease(nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpRelease(&h), VQP_OK);
    EXPECT_EQ(h, nullptr);
}

TEST(Handle, ScratchGrowsOnlyAndInitForgetsIt) {
    ScratchBuffer s{nullptr, 0};
    EXPECT_EQ(vqpMemRealloc(&s, 0), VQP_OK);
    EXPECT_EQ(s.data, nullptr); // nothing allocated for a request of zero
    EXPECT_EQ(vqpMemRealloc(&s, 100), VQP_OK);
    uint8_t *first = s.data;
    EXPECT_EQ(vqpMemRealloc(&s, 60), VQP_OK);
    EXPECT_EQ(s.data, first);
    EXPECT_EQ(s.capacity, 100);
    EXPECT_EQ(vqpMemRealloc(&s, 101), VQP_OK);
    EXPECT_EQ(s.capacity, 101);
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    h->scratch = s;
    vqpInit(h); // forgets the block without freeing it
    EXPECT_EQ(h->scratch.capacity, 0);
    EXPECT_EQ(h->scratch.data, nullptr);
    std::free(s.data);
    vqpRelease(&h);
}

TEST(Reduction, RejectedCodesAndThePackedOddWidthOverrun) {
    // Accepted codes are exercised end to end by the nearest-neighbour and monochrome tests.
    for (uint32_t code : {0x010C0005u, 0x02180015u, 0x01080002u, 0x80000001u}) {
        ImageFrame in{4, 4, code, nullptr, 4};
        int64_t phase = 0;
        int32_t rule = 99;
        EXPECT_EQ(demosaicDataInit(&in, nullptr, &phase, &rule), VQP_ERR_UNSUPPORTED_INPUT_FORMAT);
        EXPECT_EQ(phase, int64_t(int32_t(code))); // the code itself, sign-extended
        EXPECT_EQ(rule, 0);
    }
    // Two rows of width 3, stride 7: row 0's extra 0 is overwritten by row 1's first sample, and row 1
    // writes a 0 one byte past the frame. The input ends with row 1's half pair (two bytes): under
    // AddressSanitizer a read past it faults. The same as one run of 5 samples.
    const std::vector<uint8_t> rows = {1, 0, 2, 3, 0, 9, 9, 5, 0, 6, 7, 0};
    std::vector<uint8_t> out(8, 0xEE);
    unpacked(rows.data(), 2, 3, 7, out.data());
    EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3, 5, 6, 7, 0, 0xEE}));
    const std::vector<uint8_t> run = {1, 0, 2, 3, 0, 5, 6, 0};
    std::fill(out.begin(), out.end(), 0xEE);
    unpacked_old(run.data(), 1, 5, out.data());
    EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3, 5, 6, 0, 0xEE, 0xEE}));
}

TEST(OutputHelpers, BgrToBgraWidensWithZeroAlpha) {
    std::vector<uint8_t> src(4 * 4 * 3), dst(4 * 4 * 4 + 1, 0xEE), want(dst);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i + 1);
    EXPECT_EQ(bgrToBgra(src.data(), 0, 4, dst.data()), src.data());
    EXPECT_EQ(dst, want); // height 0 writes nothing
    for (size_t p = 0; p < 16; ++p) std::copy_n(&src[3 * p], 3, &want[4 * p]), want[4 * p + 3] = 0;
    bgrToBgra(src.data(), 4, 4, dst.data());
    EXPECT_EQ(dst, want);
}

// The byte count is height x width x 3 wrapped to a signed 32-bit number: a negative count converts
// nothing, a count that wraps to a small positive number converts just the pixels that hold it.
TEST(OutputHelpers, BgrToBgraCountsInThirtyTwoBits) {
    std::vector<uint8_t> src(4 * 3 * 2), dst(4 * 4 * 2, 0xEE), want(dst);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i + 1);
    bgrToBgra(src.data(), 0x40000000u, 2, dst.data()); // 3 x 2^31: -2^31
    bgrToBgra(src.data(), 0x80000000u, 1, dst.data());
    EXPECT_EQ(dst, want);
    for (size_t p = 0; p < 4; ++p) std::copy_n(&src[3 * p], 3, &want[4 * p]), want[4 * p + 3] = 0;
    bgrToBgra(src.data(), 0x40000001u, 4, dst.data()); // 12 x (2^30 + 1) wraps to 12: four pixels
    EXPECT_EQ(dst, want);
    std::fill(dst.begin(), dst.end(), 0xEE);
    std::fill(want.begin() + 4, want.end(), 0xEE);
    bgrToBgra(src.data(), 0x55555556u, 1, dst.data()); // 3 x 0x55555556 wraps to 2: one pixel
    EXPECT_EQ(dst, want);
}

TEST(OutputHelpers, BmpAdjustPadsRowsToFourBytes) {
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    for (int w = 4; w <= 9; ++w) {
        const int rows = 5, row = 3 * w, newRow = (row + 3) & ~3;
        std::vector<uint8_t> buf(size_t(rows) * newRow, 0xEE), want(buf.size(), 0);
        for (int i = 0; i < rows * row; ++i) buf[size_t(i)] = uint8_t(i % 251 + 1);
        for (int y = 0; y < rows; ++y) std::copy_n(&buf[size_t(y * row)], row, &want[size_t(y * newRow)]);
        if (row == newRow) want = buf; // width 4 needs no padding: nothing changes
        ImageFrame img{rows, w, VQP_PIXEL_FORMAT_BGR8, buf.data(), row};
        ASSERT_EQ(vqpBMPAdjust(h, &img), VQP_OK);
        EXPECT_EQ(buf, want) << "width " << w;
        EXPECT_EQ(img.stride, row); // not updated
    }
    std::vector<uint8_t> buf(64);
    ImageFrame small{4, 3, 0, buf.data(), 9};
    EXPECT_EQ(vqpBMPAdjust(h, &small), VQP_ERR_BAD_DIMENSIONS);
    ImageFrame wide{4, 715827883, 0, small.data, 0}; // 3 x width is past 2^31: refused, nothing moved
    EXPECT_EQ(vqpBMPAdjust(h, &wide), VQP_ERR_BAD_DIMENSIONS);
    EXPECT_EQ(vqpBMPAdjust(nullptr, &small), VQP_ERR_NULL_ARGUMENT);
    small.data = nullptr;
    EXPECT_EQ(vqpBMPAdjust(h, &small), VQP_ERR_NULL_ARGUMENT);
    vqpRelease(&h);
}

TEST(Info, VersionStatusNamesAndOutputSizes) {
    EXPECT_EQ(vqpVersion(), (uint32_t(VQP_VERSION_MAJOR) << 16) | (VQP_VERSION_MINOR << 8) | VQP_VERSION_PATCH);
    EXPECT_STREQ(vqpVersionString(), VQP_VERSION_STRING);
    const std::pair<int32_t, const char *> names[] = {{0, "VQP_OK"},
                                                      {-111, "VQP_ERR_NULL_ARGUMENT"},
                                                      {-117, "VQP_ERR_OUT_OF_MEMORY"},
                                                      {-104, "VQP_ERR_BAD_DIMENSIONS"},
                                                      {-102, "VQP_ERR_UNSUPPORTED_INPUT_FORMAT"},
                                                      {-107, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT"},
                                                      {-1, "VQP_ERR_UNKNOWN"},
                                                      {1, "VQP_ERR_UNKNOWN"}};
    for (const auto &[status, name] : names) {
        EXPECT_STREQ(vqpStatusName(status), name);
        EXPECT_NE(std::string(vqpStatusMessage(status)), "");
    }
    EXPECT_NE(std::string(vqpStatusMessage(-104)), vqpStatusMessage(-102));
    EXPECT_EQ(vqpOutputSize(3000, 4096, VQP_PIXEL_FORMAT_BGR8), 36864000u);
    EXPECT_EQ(vqpOutputSize(5, 7, VQP_PIXEL_FORMAT_RGBA8), 140u);
    EXPECT_EQ(vqpOutputSize(5, 7, VQP_PIXEL_FORMAT_BGR8_PLANAR), 105u);
    EXPECT_EQ(vqpOutputSize(5, 7, VQP_PIXEL_FORMAT_MONO8), 35u);
    EXPECT_EQ(vqpOutputSize(46341, 46341, VQP_PIXEL_FORMAT_MONO8), 0u); // past 2^31 pixels
    EXPECT_EQ(vqpOutputSize(46340, 46340, VQP_PIXEL_FORMAT_RGBA8), 4ull * 46340 * 46340);
    EXPECT_EQ(vqpOutputSize(3, 7, VQP_PIXEL_FORMAT_BGR8), 0u);
    EXPECT_EQ(vqpOutputSize(7, -5, VQP_PIXEL_FORMAT_BGR8), 0u);
    EXPECT_EQ(vqpOutputSize(7, 7, VQP_PIXEL_FORMAT_BAYER_RG8), 0u); // not an output format
}
