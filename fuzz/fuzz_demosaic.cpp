// vqpDemosaicing and vqpDemosaicingParallel on frames of every accepted input code and arbitrary ones,
// every output format (and arbitrary ones), every method, odd and padded strides, with input and output
// buffers of exactly the size the header states, so that any byte read or written outside them faults.
// Differential: a reused handle, a fresh one and the parallel entry point give the same status and bytes.
#include <cstdio>
#include <cstdlib>

#include "fuzz_input.h"
#include "velqora.h"

namespace {

constexpr uint32_t kCodes[] = {
    0x01080001, 0x01100003, 0x01100005, 0x01100025, 0x01100007, 0x010C0004, 0x010C0006, 0x01080008,
    0x01080009, 0x0108000A, 0x0108000B, 0x0110000C, 0x0110000D, 0x0110000E, 0x0110000F, 0x01100010,
    0x01100011, 0x01100012, 0x01100013, 0x0110002E, 0x0110002F, 0x01100030, 0x01100031, 0x010C0026,
    0x010C0027, 0x010C0028, 0x010C0029, 0x010C002A, 0x010C002B, 0x010C002C, 0x010C002D};
constexpr uint64_t kOutputs[] = {0x02180014, 0x02180015, 0x02200016, 0x02200017, 0x02180021, 0x02180025, 0x01080001};

// The bytes a row of `width` samples of `code` holds, and the input bytes of a frame.
size_t rowBytes(uint32_t code, int32_t width) {
    const uint32_t bits = (code >> 16) & 0xFF;
    if (bits == 0x0C) return size_t(width / 2) * 3 + size_t(width % 2) * 2;
    return bits == 0x10 ? 2 * size_t(width) : size_t(width);
}

struct Result {
    int32_t status;
    std::vector<uint8_t> out;
};

Result run(ProcessingHandle *h, uint32_t code, int32_t height, int32_t width, int32_t stride, uint64_t config,
           uint32_t method, const std::vector<uint8_t> &frame, uint32_t threads) {
    std::vector<uint8_t> in(frame); // exact size; 8-bit padded input is rewritten in place
    // A refused configuration leaves the previous one in force: start every run from the default, and
    // size the output by what the handle holds.
    const uint64_t standard = VQP_PIXEL_FORMAT_BGR8;
    vqpDemosaicSetConfig(h, &standard);
    vqpDemosaicSetConfig(h, &config);
    uint64_t held = 0;
    vqpDemosaicGetConfig(h, &held);
    const uint64_t size = vqpOutputSize(height, width, held);
    Result r{0, std::vector<uint8_t>(size == 0 ? 1 : size, 0xA5)};
    ImageFrame fi{height, width, code, in.empty() ? nullptr : in.data(), stride}, fo{0, 0, 0, r.out.data(), 0};
    r.status = threads == 0 ? vqpDemosaicing(h, &fi, method, &fo) : vqpDemosaicingParallel(h, &fi, method, &fo, threads);
    return r;
}

ProcessingHandle *reused() {
    static ProcessingHandle *h = [] {
        ProcessingHandle *p = nullptr;
        vqpCreate(&p);
        return p;
    }();
    return h;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vqf::Input in(data, size);
    const uint32_t pick = in.u32();
    const uint32_t code = (pick & 0x80) ? in.u32() : kCodes[pick % (sizeof kCodes / sizeof kCodes[0])];
    const int32_t height = int32_t(in.u8() % 70); // 0 .. 69: the refused sizes too
    // Now and then rows of 250 .. 349 samples, which the vector interiors read straight from deep input.
    const int32_t width = (pick & 0x40000000u) ? 250 + int32_t(in.u8() % 100) : int32_t(in.u8() % 70);
    const uint32_t padding = in.u8() % 9;
    const uint64_t config = (pick & 0x100) ? in.u32() : kOutputs[(pick >> 9) % 7];
    const uint32_t method = (pick & 0x10000) ? in.u32() : (pick >> 17) % 3;
    const uint32_t threads = 1 + (pick >> 20) % 4;
    const bool packedRun = ((code >> 16) & 0xFF) == 0x0C && padding == 0;
    const int32_t stride = packedRun ? width + width / 2 : int32_t(rowBytes(code, width) + padding);
    // Contiguous packed rows are one run of samples; other frames are rows at `stride`.
    const size_t frameBytes = height <= 0 || width <= 0 ? 0
                              : packedRun ? size_t(height) * width / 2 * 3 + (size_t(height) * width % 2) * 2
                                          : size_t(stride) * (height - 1) + rowBytes(code, width);
    const std::vector<uint8_t> frame = in.bytes(frameBytes);

    const Result first = run(reused(), code, height, width, stride, config, method, frame, 0);
    ProcessingHandle *fresh = nullptr;
    vqpCreate(&fresh);
    const Result again = run(fresh, code, height, width, stride, config, method, frame, 0);
    const Result parallel = run(fresh, code, height, width, stride, config, method, frame, threads);
    vqpRelease(&fresh);
    if (first.status != again.status || first.out != again.out) {
        std::fprintf(stderr, "reused %d fresh %d sizes %zu %zu\n", first.status, again.status, first.out.size(), again.out.size());
        std::abort();
    }
    if (first.status != parallel.status || first.out != parallel.out) std::abort();
    return 0;
}
