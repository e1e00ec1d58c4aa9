// The exported helpers on exact-size buffers: the reduction routines (16-bit shifts at any alignment,
// packed pairs as one run and as rows, in-place compaction), bgrToBgra, vqpBMPAdjust, and the status
// and size queries.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "velqora.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vqf::Input in(data, size);
    const uint32_t pick = in.u32();
    const int32_t h = in.u8() % 40, w = in.u8() % 40;
    const int32_t pad = in.u8() % 7;
    const size_t n = size_t(h) * w;
    switch (pick % 6) {
    case 0: { // 16-bit rows, strided, at an odd address when asked
        const int32_t stride = 2 * w + pad;
        const size_t bytes = h == 0 ? 0 : size_t(stride >> 1) * 2 * (h - 1) + 2 * size_t(w);
        std::vector<uint8_t> block = in.bytes(bytes + 1);
        std::vector<uint8_t> dst(n + 1);
        u16Tou8(reinterpret_cast<const uint16_t *>(block.data() + (pick >> 3 & 1)), h, w, stride, 2 * (pick >> 4 & 3),
                dst.data());
        break;
    }
    case 1: { // packed, one run: a half pair ends an odd run; one byte is written past it
        const std::vector<uint8_t> src = in.bytes(3 * (n / 2) + 2 * (n % 2));
        std::vector<uint8_t> dst(n + (n % 2) + (n == 0));
        unpacked_old(src.data(), h, w, dst.data());
        break;
    }
    case 2: { // packed rows at a stride
        const int32_t row = 3 * (w / 2) + 2 * (w % 2), stride = row + pad;
        const std::vector<uint8_t> src = in.bytes(h == 0 ? 0 : size_t(stride) * (h - 1) + size_t(row));
        std::vector<uint8_t> dst(n + (w % 2) + (n == 0));
        unpacked(src.data(), h, w, stride, dst.data());
        break;
    }
    case 3: { // 8-bit compaction in place and into another buffer
        const int32_t stride = w + pad;
        std::vector<uint8_t> a = in.bytes(h == 0 ? 0 : size_t(stride) * (h - 1) + size_t(w)), b(a), c(n + 1);
        u8Tou8(a.data(), h, w, stride, a.data());
        u8Tou8(b.data(), h, w, stride, c.data());
        if (n != 0 && std::memcmp(a.data(), c.data(), n) != 0) std::abort();
        break;
    }
    case 4: { // widening and bitmap padding
        const std::vector<uint8_t> src = in.bytes(3 * n);
        std::vector<uint8_t> dst(4 * n + 1);
        if (bgrToBgra(src.data(), uint32_t(h), uint32_t(w), dst.data()) != src.data()) std::abort();
        const size_t padded = size_t((3 * w + 3) & ~3) * size_t(h);
        std::vector<uint8_t> image = in.bytes(padded > 0 ? padded : 1);
        ProcessingHandle *handle = nullptr;
        vqpCreate(&handle);
        ImageFrame frame{h, w, 0, image.data(), 3 * w};
        const int32_t status = vqpBMPAdjust(handle, &frame);
        if ((h <= 3 || w <= 3) != (status == VQP_ERR_BAD_DIMENSIONS)) std::abort();
        vqpRelease(&handle);
        break;
    }
    default: { // queries on arbitrary values
        const int32_t status = int32_t(in.u32());
        if (vqpStatusName(status) == nullptr || vqpStatusMessage(status) == nullptr) std::abort();
        (void)vqpOutputSize(int32_t(in.u32()), int32_t(in.u32()), in.u32());
    }
    }
    return 0;
}
