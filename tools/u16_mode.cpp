// The 16-bit mode: Bayer frames of 10 to 16 bits, unpacked or packed, of every phase are demosaiced at full
// depth by the library's full-depth entry point into 16-bit PNG, PPM or raw files.
#include <chrono>
#include <string>
#include <vector>

#include "tool.h"
#include "velqora.h"

namespace vqtool {

namespace {

// Developed at 16 bits: every input the library develops, mono and 8-bit included; samples 0 .. 65535.
double developU16(const LoadedInput &in, Method method, const std::string &outPath, FileKind kind,
                  ProcessingHandle *handle, uint32_t threads, const DevelopOptions &develop) {
    applyDevelop(develop, handle);
    const uint64_t config = kind == FileKind::Raw ? uint64_t{VQP_PIXEL_FORMAT_BGR16} : uint64_t{VQP_PIXEL_FORMAT_RGB16};
    std::vector<uint16_t> pixels(size_t(3) * size_t(in.width) * size_t(in.height));
    int32_t status = vqpDemosaicSetConfig16(handle, &config);
    const auto start = std::chrono::steady_clock::now();
    if (status == VQP_OK) {
        ImageFrame frame{in.height, in.width, in.format.code, const_cast<uint8_t *>(in.bytes.data()), int32_t(in.stride)};
        ImageFrame out{0, 0, 0, pixels.data(), 0};
        status = vqpDevelop16(handle, &frame, uint32_t(method), &out, threads);
    }
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (status == VQP_ERR_BAD_PARAMETER)
        throw Failure(kExitUsage, in.path + ": a black level is at or above the white level of " + in.format.name +
                                      " (--black): lower --black or raise --white " + statusTag(status));
    if (status != VQP_OK) throw Failure(kExitLibrary, in.path + ": the library refused the frame " + statusTag(status));
    AtomicFile file(outPath);
    if (kind == FileKind::Raw)
        std::fwrite(pixels.data(), 2, pixels.size(), file.stream());
    else if (kind == FileKind::Png)
        writePng(file, in.width, in.height, 3, 16, pixels.data(), 16);
    else
        writePnm(file, in.width, in.height, 3, 16, pixels.data(), 16);
    file.commit();
    return ms;
}

} // namespace

double convertU16(const LoadedInput &in, Method method, const std::string &outPath, FileKind kind,
                  ProcessingHandle *handle, uint32_t threads, const DevelopOptions &develop) {
    const InputFormat &f = in.format;
    if (develop.any) return developU16(in, method, outPath, kind, handle, threads, develop);
    if (f.phase[0] == '\0')
        throw Failure(kExitUsage, f.name + " is monochrome: the 16-bit mode demosaics Bayer frames, leave out --u16");
    if (f.bits == 8)
        throw Failure(kExitUsage, f.name + " has 8-bit samples: leave out --u16 or give a 10 to 16-bit format");

    // Raw files get the library's B, G, R samples at the input's depth; PNG gets R, G, B scaled to 16 bits
    // (with the depth recorded), PPM R, G, B at the input's depth (its maximum value says which).
    const uint64_t config = kind == FileKind::Raw ? uint64_t{VQP_PIXEL_FORMAT_BGR16}
                            : kind == FileKind::Png ? VQP_PIXEL_FORMAT_RGB16 | VQP_OUTPUT16_FULL_RANGE
                                                    : uint64_t{VQP_PIXEL_FORMAT_RGB16};
    std::vector<uint16_t> pixels(size_t(3) * size_t(in.width) * size_t(in.height));
    int32_t status = vqpDemosaicSetConfig16(handle, &config);
    const auto start = std::chrono::steady_clock::now();
    if (status == VQP_OK) {
        ImageFrame frame{in.height, in.width, f.code, const_cast<uint8_t *>(in.bytes.data()), int32_t(in.stride)};
        ImageFrame out{0, 0, 0, pixels.data(), 0};
        status = vqpDemosaicing16(handle, &frame, uint32_t(method), &out, threads);
    }
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (status != VQP_OK) {
        const std::string what = status == VQP_ERR_BAD_DIMENSIONS
                                     ? "a " + std::to_string(in.width) + " x " + std::to_string(in.height) +
                                           " frame is too small: frames need at least 4 rows and columns "
                                     : "the library refused the frame ";
        throw Failure(kExitLibrary, in.path + ": " + what + statusTag(status));
    }

    AtomicFile file(outPath);
    if (kind == FileKind::Raw)
        std::fwrite(pixels.data(), 2, pixels.size(), file.stream());
    else if (kind == FileKind::Png)
        writePng(file, in.width, in.height, 3, 16, pixels.data(), f.bits);
    else
        writePnm(file, in.width, in.height, 3, 16, pixels.data(), f.bits);
    file.commit();
    return ms;
}

} // namespace vqtool
