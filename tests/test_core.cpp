// Handle and configuration, input classification, the reduction routines' edge behaviour, and the
// two output helpers.
#include <gtest/gtest.h>

#include <cstdlib>

#include "core/handle.h"
#include "model/frame.h"

using namespace vqt;

TEST(Handle, CreateReleaseAndDefaults) {
    EXPECT_EQ(vqpCreate(nullptr), VQP_ERR_NULL_ARGUMENT);
    ProcessingHandle *h = nullptr;
    ASSERT_EQ(vqpCreate(&h), VQP_OK);
    uint64_t config = 0;
    EXPECT_EQ(vqpDemosaicGetConfig(h, &config), VQP_OK);
    EXPECT_EQ(config, 0x02180015u);
    const uint32_t settings[8] = {12, 1, 0, 8, 1, 0, 8, 1};
    EXPECT_TRUE(std::equal(settings, settings + 8, h->settings));
    EXPECT_EQ(h->createWord, 0);
    EXPECT_EQ(h->createValue, 0u);
    EXPECT_EQ(vqpDemosaicGetConfig(nullptr, &config), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpDemosaicGetConfig(h, nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpRelease(nullptr), VQP_ERR_NULL_ARGUMENT);
    EXPECT_EQ(vqpRelease(&h), VQP_OK);
    EXPECT_EQ(h, nullptr);
}

TEST(Handle, ConfigurationAcceptsExactlyTheSevenOutputFormats) {
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    for (uint64_t v : {0x02180014ull, 0x02180015ull, 0x02200016ull, 0x02200017ull, 0x02180021ull, 0x02180025ull,
                       0x01080001ull}) {
        EXPECT_EQ(vqpDemosaicSetConfig(h, &v), VQP_OK);
        uint64_t got = 0;
        vqpDemosaicGetConfig(h, &got);
        EXPECT_EQ(got, v);
    }
    for (uint64_t v : {0x02180023ull, 0x02200018ull, 0x01080008ull, 0x102180015ull, 0x02180013ull, 0ull}) {
        EXPECT_EQ(vqpDemosaicSetConfig(h, &v), VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT) << std::hex << v;
        uint64_t got = 0;
        vqpDemosaicGetConfig(h, &got);
        EXPECT_EQ(got, 0x01080001u); // the last accepted value stays
    }
    EXPECT_EQ(vqpDemosaicSetConfig(h, nullptr), VQP_ERR_NULL_ARGUMENT);
    vqpRelease(&h);
}

TEST(Handle, ScratchGrowsOnlyAndInitForgetsIt) {
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    ScratchBuffer &s = h->scratch;
    EXPECT_EQ(vqpMemRealloc(&s, 0), VQP_OK);
    EXPECT_EQ(s.data, nullptr); // nothing allocated for a request of zero
    EXPECT_EQ(vqpMemRealloc(&s, 100), VQP_OK);
    EXPECT_EQ(s.capacity, 100);
    uint8_t *first = s.data;
    EXPECT_EQ(vqpMemRealloc(&s, 60), VQP_OK);
    EXPECT_EQ(s.data, first);
    EXPECT_EQ(s.capacity, 100);
    EXPECT_EQ(vqpMemRealloc(&s, 101), VQP_OK);
    EXPECT_EQ(s.capacity, 101);
    uint8_t *held = s.data;
    vqpInit(h); // forgets the block without freeing it
    EXPECT_EQ(s.capacity, 0);
    EXPECT_EQ(s.data, nullptr);
    std::free(held);
    vqpRelease(&h);
}

TEST(Classification, RejectedCodesKeepTheCodeItselfAsThePhase) {
    // Accepted codes are exercised end to end by the nearest-neighbour and monochrome tests.
    for (uint32_t code : {0x010C0005u, 0x02180015u, 0x01080002u, 0x80000001u}) {
        ImageFrame in{4, 4, code, nullptr, 4};
        int64_t phase = 0;
        int32_t rule = 99;
        EXPECT_EQ(demosaicDataInit(&in, nullptr, &phase, &rule), VQP_ERR_UNSUPPORTED_INPUT_FORMAT);
        EXPECT_EQ(phase, int64_t(int32_t(code))); // sign-extended
        EXPECT_EQ(rule, 0);
    }
}

TEST(Reduction, OddWidthPackedRowsWriteOneBytePastTheFrame) {
    // Two rows of width 3, stride 7: row 0's extra byte is overwritten by row 1's first sample, and
    // row 1 writes one byte past the frame.
    const uint8_t rows[13] = {1, 0, 2, 3, 0, 4, 9, 5, 0, 6, 7, 0, 8};
    uint8_t out[8];
    std::fill(out, out + 8, 0xEE);
    unpacked(rows, 2, 3, 7, out);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8), (std::vector<uint8_t>{1, 2, 3, 5, 6, 7, 8, 0xEE}));
}

TEST(OutputHelpers, BgrToBgraWidensWithZeroAlpha) {
    std::vector<uint8_t> src(4 * 4 * 3), dst(4 * 4 * 4 + 1, 0xEE);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i + 1);
    EXPECT_EQ(bgrToBgra(src.data(), 0, 4, dst.data()), src.data());
    EXPECT_EQ(dst[0], 0xEE); // height 0 writes nothing
    bgrToBgra(src.data(), 4, 4, dst.data());
    for (size_t p = 0; p < 16; ++p) {
        EXPECT_EQ(dst[4 * p], src[3 * p]);
        EXPECT_EQ(dst[4 * p + 1], src[3 * p + 1]);
        EXPECT_EQ(dst[4 * p + 2], src[3 * p + 2]);
        EXPECT_EQ(dst[4 * p + 3], 0);
    }
    EXPECT_EQ(dst[64], 0xEE);
}

TEST(OutputHelpers, BmpAdjustPadsRowsToFourBytes) {
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    for (int w = 4; w <= 9; ++w) {
        const int h4 = 5, row = 3 * w, newRow = (row + 3) & ~3;
        std::vector<uint8_t> buf(size_t(h4) * newRow, 0xEE);
        for (int i = 0; i < h4 * row; ++i) buf[size_t(i)] = uint8_t(i % 251 + 1);
        const std::vector<uint8_t> packed = buf;
        ImageFrame img{h4, w, VQP_PIXEL_FORMAT_BGR8, buf.data(), row};
        ASSERT_EQ(vqpBMPAdjust(h, &img), VQP_OK);
        EXPECT_EQ(img.stride, row); // not updated
        for (int y = 0; y < h4; ++y)
            for (int i = 0; i < newRow; ++i) {
                const uint8_t want = i < row ? packed[size_t(y * row + i)] : (newRow == row ? packed[size_t(y * row + i)] : 0);
                ASSERT_EQ(buf[size_t(y * newRow + i)], want) << "width " << w << " row " << y << " byte " << i;
            }
    }
    std::vector<uint8_t> buf(64);
    ImageFrame small{4, 3, 0, buf.data(), 9};
    EXPECT_EQ(vqpBMPAdjust(h, &small), VQP_ERR_BAD_DIMENSIONS);
    EXPECT_EQ(vqpBMPAdjust(nullptr, &small), VQP_ERR_NULL_ARGUMENT);
    small.data = nullptr;
    EXPECT_EQ(vqpBMPAdjust(h, &small), VQP_ERR_NULL_ARGUMENT);
    vqpRelease(&h);
}
