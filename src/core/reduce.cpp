// Input classification and reduction of deep or packed samples to one byte a sample.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/wrap32.h"
#include "simd/dispatch.h"
#include "velqora.h"

namespace {

struct FormatRule {
    uint32_t code;
    uint32_t phase;
    int32_t rule; // 0: 8-bit; 2, 4, 6, 8: right shift of 16-bit containers; -1: two samples in three bytes
};

constexpr uint32_t kMono = 0x01080001u, kGR = 0x01080008u, kRG = 0x01080009u, kGB = 0x0108000Au, kBG = 0x0108000Bu;

constexpr FormatRule kFormats[] = {
    {0x01080001u, kMono, 0}, {0x01100003u, kMono, 2},  {0x01100005u, kMono, 4},  {0x01100025u, kMono, 6},
    {0x01100007u, kMono, 8}, {0x010C0004u, kMono, -1}, {0x010C0006u, kMono, -1},
    {0x01080008u, kGR, 0},   {0x01080009u, kRG, 0},    {0x0108000Au, kGB, 0},    {0x0108000Bu, kBG, 0},
    {0x0110000Cu, kGR, 2},   {0x0110000Du, kRG, 2},    {0x0110000Eu, kGB, 2},    {0x0110000Fu, kBG, 2},
    {0x01100010u, kGR, 4},   {0x01100011u, kRG, 4},    {0x01100012u, kGB, 4},    {0x01100013u, kBG, 4},
    {0x0110002Eu, kGR, 8},   {0x0110002Fu, kRG, 8},    {0x01100030u, kGB, 8},    {0x01100031u, kBG, 8},
    {0x010C0026u, kGR, -1},  {0x010C0027u, kRG, -1},   {0x010C0028u, kGB, -1},   {0x010C0029u, kBG, -1},
    {0x010C002Au, kGR, -1},  {0x010C002Bu, kRG, -1},   {0x010C002Cu, kGB, -1},   {0x010C002Du, kBG, -1},
};

} // namespace

int32_t demosaicDataInit(const ImageFrame *in, ProcessingHandle * /*handle*/, int64_t *phaseOut, int32_t *ruleOut) {
    *phaseOut = static_cast<int64_t>(static_cast<int32_t>(in->pixelFormat));
    *ruleOut = 0;
    for (const FormatRule &f : kFormats) {
        if (f.code == in->pixelFormat) {
            *phaseOut = f.phase;
            *ruleOut = f.rule;
            return VQP_OK;
        }
    }
    return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
}

// One run of height * width samples; bits above the kept byte are dropped (wrapped, not clamped).
void u16Tou8_old(const uint16_t *src, int32_t height, int32_t width, int32_t shift, uint8_t *dst) {
    const ptrdiff_t n = ptrdiff_t{height} * width; // counted in 64 bits
    ptrdiff_t i = 0;
    if (const auto vector = vq::simd::table().u16ToU8; vector != nullptr && n > 0) i = vector(src, n, shift, dst);
    for (; i < n; ++i) dst[i] = static_cast<uint8_t>(vq::load16(src, i) >> shift);
}

// Row by row; the source advances by strideBytes >> 1 samples, so an odd stride loses its last byte.
void u16Tou8(const uint16_t *src, int32_t height, int32_t width, int32_t strideBytes, int32_t shift, uint8_t *dst) {
    const ptrdiff_t srcStep = strideBytes >> 1;
    const auto vector = vq::simd::table().u16ToU8;
    if (width < 1) return; // nothing to reduce: the pointers are not moved
    for (int32_t y = 0; y < height; ++y) {
        ptrdiff_t x = 0;
        if (vector != nullptr && width > 0) x = vector(src, width, shift, dst);
        for (; x < width; ++x) dst[x] = static_cast<uint8_t>(vq::load16(src, x) >> shift);
        src += srcStep;
        dst += width;
    }
}

namespace {

// One run of `count` packed samples: whole pairs, then with an odd count a half pair (two bytes, the
// first the sample's high byte), which writes its sample and a 0 after it, one byte past the run.
void unpackRun(const uint8_t *src, ptrdiff_t count, uint8_t *dst) {
    const ptrdiff_t pairs = count >> 1;
    ptrdiff_t g = 0;
    if (const auto vector = vq::simd::table().unpackPairs; vector != nullptr && pairs > 0)
        g = vector(src, pairs, 3 * pairs, dst);
    for (; g < pairs; ++g) {
        dst[2 * g] = src[3 * g];
        dst[2 * g + 1] = src[3 * g + 2];
    }
    if ((count & 1) != 0) {
        dst[2 * pairs] = src[3 * pairs];
        dst[2 * pairs + 1] = 0;
    }
}

} // namespace

// Two samples in three bytes: the first and third byte are the high bytes of the two samples. With an
// odd count the last group, a half pair, writes a 0 one byte beyond the run.
void unpacked_old(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    const ptrdiff_t n = ptrdiff_t{height} * width; // counted in 64 bits
    if (n < 1) return;
    unpackRun(src, n, dst);
}

// As unpacked_old per row. The destination advances by width, so with an odd width the 0 written past a
// row is overwritten by the next row, and the last row writes it one byte past the frame.
void unpacked(const uint8_t *src, int32_t height, int32_t width, int32_t strideBytes, uint8_t *dst) {
    if (width < 1) return;
    for (int32_t y = 0; y < height; ++y) {
        unpackRun(src, width, dst);
        src += strideBytes;
        dst += width;
    }
}

// Forward byte-at-a-time row copy: run in place with a stride above the width, every row moves
// towards the start of the buffer without overwriting bytes not yet read.
void u8Tou8(const uint8_t *src, int32_t height, int32_t width, int32_t strideBytes, uint8_t *dst) {
    if (width < 1) return; // nothing to copy: the pointers are not moved
    for (int32_t y = 0; y < height; ++y) {
        // A forward byte copy equals a block move unless the destination starts inside the source row
        // past its first byte, where the forward copy repeats bytes it has already written.
        if (width > 0 && (dst <= src || dst >= src + width)) std::memmove(dst, src, static_cast<size_t>(width));
        else
            for (int32_t x = 0; x < width; ++x) dst[x] = src[x];
        src += strideBytes;
        dst += width;
    }
}
