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
    // Two rows of width 3, stride 7: row 0's extra byte is overwritten by row 1's first sample, and
    // row 1 writes one byte past the frame.
    const uint8_t rows[13] = {1, 0, 2, 3, 0, 4, 9, 5, 0, 6, 7, 0, 8};
    std::vector<uint8_t> out(8, 0xEE);
    unpacked(rows, 2, 3, 7, out.data());
    EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3, 5, 6, 7, 8, 0xEE}));
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
    EXPECT_EQ(vqpBMPAdjust(nullptr, &small), VQP_ERR_NULL_ARGUMENT);
    small.data = nullptr;
    EXPECT_EQ(vqpBMPAdjust(h, &small), VQP_ERR_NULL_ARGUMENT);
    vqpRelease(&h);
}
