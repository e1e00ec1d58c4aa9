// Bit-exactness of the vector interiors: every conversion at the level under test (the program's
// --vq-level) against the scalar reference, byte for byte, on random and adversarial frames of every
// width from 4 to a few vector widths, with guard bytes around every output and input that ends at an
// unreadable page. A failure names the seed, the level, the case and the first differing byte.
#include <gtest/gtest.h>
#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "model/frame.h"
#include "simd/dispatch.h"

namespace {

using vq::simd::Level;
using namespace vqt;

constexpr size_t kGuard = 64;
constexpr uint8_t kGuardByte = 0xC3;
constexpr uint32_t kSeed = 20261122;

// Bytes whose end touches a page that cannot be read or written: any access past the end faults.
class PageEnd {
public:
#if defined(_WIN32)
    explicit PageEnd(size_t bytes) : page_(4096) {
        const size_t body = (bytes + page_ - 1) / page_ * page_;
        length_ = body + page_;
        base_ = static_cast<uint8_t *>(VirtualAlloc(nullptr, length_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (!base_) throw std::runtime_error("VirtualAlloc");
        DWORD old;
        VirtualProtect(base_ + body, page_, PAGE_NOACCESS, &old);
        data_ = base_ + body - bytes;
    }
    ~PageEnd() { VirtualFree(base_, 0, MEM_RELEASE); }
#else
    explicit PageEnd(size_t bytes) : page_(size_t(sysconf(_SC_PAGESIZE))) {
        const size_t body = (bytes + page_ - 1) / page_ * page_;
        length_ = body + page_;
        base_ = static_cast<uint8_t *>(mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base_ == MAP_FAILED) throw std::runtime_error("mmap");
        mprotect(base_ + body, page_, PROT_NONE);
        data_ = base_ + body - bytes;
    }
    ~PageEnd() { munmap(base_, length_); }
#endif
    PageEnd(const PageEnd &) = delete;
    PageEnd &operator=(const PageEnd &) = delete;
    uint8_t *data() { return data_; }

private:
    size_t page_, length_ = 0;
    uint8_t *base_ = nullptr, *data_ = nullptr;
};

// An output buffer with guard bytes on both sides.
struct Guarded {
    std::vector<uint8_t> bytes;
    explicit Guarded(size_t n, uint8_t fill = 0x5A) : bytes(n + 2 * kGuard, kGuardByte) {
        std::memset(bytes.data() + kGuard, fill, n);
    }
    uint8_t *data() { return bytes.data() + kGuard; }
    bool guardsIntact() const {
        for (size_t i = 0; i < kGuard; ++i)
            if (bytes[i] != kGuardByte || bytes[bytes.size() - 1 - i] != kGuardByte) return false;
        return true;
    }
};

// Runs `produce` at the scalar level and at the level under test and compares what it returned.
class LevelCheck : public ::testing::Test {
protected:
    void SetUp() override {
        level_ = vq::simd::activeLevel();
        if (level_ == Level::Scalar) GTEST_SKIP() << "the scalar level is the reference";
    }
    void TearDown() override { vq::simd::forceLevel(level_); }

    // True when equal; otherwise reports the first difference and returns false.
    bool same(const std::string &what, const std::function<std::vector<uint8_t>()> &produce) {
        vq::simd::forceLevel(Level::Scalar);
        const std::vector<uint8_t> want = produce();
        vq::simd::forceLevel(level_);
        const std::vector<uint8_t> got = produce();
        if (want == got) return true;
        size_t i = 0;
        while (i < want.size() && i < got.size() && want[i] == got[i]) ++i;
        ADD_FAILURE() << "seed " << kSeed << ", level " << vq::simd::levelName(level_) << ", " << what
                      << ": first difference at byte " << i << " of " << want.size() << " (scalar "
                      << (i < want.size() ? int(want[i]) : -1) << ", vector " << (i < got.size() ? int(got[i]) : -1)
                      << ")";
        return false;
    }
    Level level_ = Level::Scalar;
};

enum class Pattern { Random, Zero, Full, Ramp, Columns, Rows, Checker, Binary, Count };

void fill(uint8_t *p, int h, int w, Pattern pat, std::mt19937 &rng) {
    std::uniform_int_distribution<int> any(0, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t v = 0;
            switch (pat) {
            case Pattern::Random: v = uint8_t(any(rng)); break;
            case Pattern::Zero: v = 0; break;
            case Pattern::Full: v = 255; break;
            case Pattern::Ramp: v = uint8_t(7 * x + 13 * y); break;
            case Pattern::Columns: v = (x / 2) % 2 ? 255 : 0; break;
            case Pattern::Rows: v = (y / 2) % 2 ? 255 : 0; break;
            case Pattern::Checker: v = (x + y) % 2 ? 255 : 0; break;
            default: v = any(rng) & 1 ? 255 : 0; break;
            }
            p[size_t(y) * size_t(w) + size_t(x)] = v;
        }
}

// One conversion of an 8-bit frame whose last byte ends at an unreadable page; output with guards.
std::vector<uint8_t> convert8(const std::vector<uint8_t> &mosaic, int h, int w, uint32_t code, uint64_t config,
                              uint32_t method) {
    PageEnd in(mosaic.size());
    std::memcpy(in.data(), mosaic.data(), mosaic.size());
    const size_t n = outputBytes(config, h, w);
    Guarded out(n);
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    vqpDemosaicSetConfig(handle, &config);
    ImageFrame fi{h, w, code, in.data(), w}, fo{0, 0, 0, out.data(), 0};
    const int32_t rc = vqpDemosaicing(handle, &fi, method, &fo);
    vqpRelease(&handle);
    std::vector<uint8_t> result(out.bytes); // guards included: any write outside shows as a difference
    if (rc != VQP_OK || !out.guardsIntact()) result.push_back(uint8_t(rc)), result.push_back(0xEE);
    return result;
}

TEST_F(LevelCheck, EveryMethodLayoutAndPhaseAtEveryWidth) {
    std::mt19937 rng(kSeed);
    std::vector<std::pair<int, int>> sizes;
    for (int w = 4; w <= 104; ++w)
        for (int h : {4, 5, 6, 7, 8, 9, 12}) sizes.push_back({h, w});
    for (int h = 10; h <= 21; ++h) sizes.push_back({h, 37 + h});
    sizes.insert(sizes.end(), {{200, 333}, {37, 1000}, {513, 67}});
    int k = 0;
    for (const auto &size : sizes) {
        const int h = size.first, w = size.second; // plain names: lambdas below capture them
        std::vector<uint8_t> mosaic(size_t(h) * size_t(w));
        fill(mosaic.data(), h, w, Pattern(k++ % int(Pattern::Count)), rng);
        for (Phase p : kPhases)
            for (uint64_t config : kOutputFormats)
                for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
                    const std::string what = std::string(phaseName(p)) + " " + std::to_string(h) + "x" +
                                             std::to_string(w) + " method " + std::to_string(method) +
                                             " format " + std::to_string(config) + " pattern " +
                                             std::to_string((k - 1) % int(Pattern::Count));
                    ASSERT_TRUE(same(what, [&] { return convert8(mosaic, h, w, phaseCode(p), config, method); }));
                }
    }
}

// The edge-directed drivers at every height and width up to 40 and around the seams of two vector steps,
// both phases, every layout and channel order: chains of body bands of every length and parity, stripes of
// period four in either direction (estimates past 0 and 255), flat frames and ramps (gradient ties), random
// extremes. The green line of the planar and luma drivers is compared too, with guards of its own; the
// interleaved drivers keep it in their output.
TEST_F(LevelCheck, EdgeDirectedAtEverySize) {
    std::mt19937 rng(kSeed + 8);
    std::vector<int> widths;
    for (int w = 4; w <= 40; ++w) widths.push_back(w);
    for (int w = 64; w <= 72; ++w) widths.push_back(w);
    // A band's vector steps cover 2 columns per lane: two steps and the step that ends on the tail at the
    // widest level, and a few widths past them.
    for (int w = 130; w <= 136; ++w) widths.push_back(w);
    for (int w : {100, 165, 197, 198}) widths.push_back(w);
    int k = 0;
    for (int h = 4; h <= 40; ++h)
        for (const int w : widths) {
            if (w > 72 && h > 12 && (h < 31 || h > 33)) continue; // wide frames: a few heights of each kind
            const int pattern = k++ % int(Pattern::Count);
            const size_t n = size_t(h) * size_t(w);
            std::vector<uint8_t> mosaic(n);
            fill(mosaic.data(), h, w, Pattern(pattern), rng);
            for (int driver = 0; driver < 8; ++driver)
                for (uint32_t swap : {0u, 1u}) {
                    const bool gb = driver & 1;
                    const int layout = driver / 2; // 3-byte, 4-byte, planar, luma
                    if (layout == 2 && swap) continue;
                    ASSERT_TRUE(same(std::string(gb ? "GBRG " : "RGGB ") + std::to_string(h) + "x" +
                                         std::to_string(w) + " layout " + std::to_string(layout) + " swap " +
                                         std::to_string(swap) + " pattern " + std::to_string(pattern),
                                     [&] {
                                         PageEnd in(n);
                                         std::memcpy(in.data(), mosaic.data(), n);
                                         const uint8_t *src = in.data();
                                         const size_t bytes[] = {3 * n, 4 * n, 3 * n, n};
                                         Guarded out(bytes[layout]), line(static_cast<size_t>(w));
                                         uint8_t *d = out.data(), *g = line.data();
                                         const uint32_t H = uint32_t(h), W = uint32_t(w);
                                         switch (layout) {
                                         case 0: (gb ? gb8ToBgr8_edge : rg8ToBgr8_edge)(src, H, W, d, swap); break;
                                         case 1: (gb ? gb8ToBgra8_edge : rg8ToBgra8_edge)(src, H, W, d, swap); break;
                                         case 2: (gb ? gb8ToBgr8P_edge : rg8ToBgr8P_edge)(src, H, W, d, d + n, d + 2 * n, g); break;
                                         default: (gb ? gb8ToMono8_edge : rg8ToMono8_edge)(src, H, W, d, swap, g); break;
                                         }
                                         std::vector<uint8_t> all = out.bytes;
                                         all.insert(all.end(), line.bytes.begin(), line.bytes.end());
                                         return all;
                                     }));
                }
        }
}

// One conversion of deep or packed input (`raw`, rows `stride` bytes apart) whose last byte ends at an
// unreadable page; output with guards; on `threads` threads when above 1.
std::vector<uint8_t> convertDeep(const std::vector<uint8_t> &raw, int h, int w, uint32_t code, int stride,
                                 uint64_t config, uint32_t method, uint32_t threads = 1) {
    PageEnd in(raw.size());
    std::memcpy(in.data(), raw.data(), raw.size());
    Guarded out(outputBytes(config, h, w));
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    vqpDemosaicSetConfig(handle, &config);
    ImageFrame fi{h, w, code, in.data(), stride}, fo{0, 0, 0, out.data(), 0};
    const int32_t rc = threads > 1 ? vqpDemosaicingParallel(handle, &fi, method, &fo, threads)
                                   : vqpDemosaicing(handle, &fi, method, &fo);
    vqpRelease(&handle);
    std::vector<uint8_t> result(out.bytes);
    result.push_back(uint8_t(rc));
    return result;
}

// Deep and packed input through the entry point: every width, both reduction routines of each kind.
TEST_F(LevelCheck, DeepAndPackedInput) {
    std::mt19937 rng(kSeed + 1);
    std::uniform_int_distribution<int> any(0, 255);
    for (int w = 4; w <= 140; ++w)
        for (int h : {4, 5}) {
            const int widths[] = {2 * w, 2 * w + 3, w + (w >> 1), 3 * ((w + 1) / 2) + 2}; // u16 rows, packed rows
            const uint32_t codes[] = {VQP_PIXEL_FORMAT_BAYER_RG12, VQP_PIXEL_FORMAT_BAYER_GB16,
                                      VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, VQP_PIXEL_FORMAT_MONO10_PACKED};
            for (int c = 0; c < 4; ++c) {
                const int stride = widths[c];
                // The packed run needs 3 bytes a pair of samples, plus the last pair's third byte.
                const size_t bytes = c == 2 ? size_t(3 * ((h * w + 1) / 2)) : size_t(stride) * size_t(h);
                std::vector<uint8_t> raw(bytes);
                for (auto &v : raw) v = uint8_t(any(rng));
                ASSERT_TRUE(same("code " + std::to_string(codes[c]) + " " + std::to_string(h) + "x" +
                                     std::to_string(w) + " stride " + std::to_string(stride),
                                 [&] { return convertDeep(raw, h, w, codes[c], stride, VQP_PIXEL_FORMAT_RGB8,
                                                          VQP_METHOD_NEAREST); }));
            }
        }
}

// Wide deep and packed frames, whose body rows the nearest and bilinear interiors read without a reduced
// copy: widths around the vector steps past 256, heights with one body row or several bands, every phase,
// every shift and both packed layouts, padded and odd strides, every output layout, one and three threads.
TEST_F(LevelCheck, WideDeepAndPackedInput) {
    std::mt19937 rng(kSeed + 9);
    std::uniform_int_distribution<int> any(0, 255);
    const uint32_t codes[] = {VQP_PIXEL_FORMAT_BAYER_RG12, VQP_PIXEL_FORMAT_BAYER_GR10, VQP_PIXEL_FORMAT_BAYER_GB16,
                              VQP_PIXEL_FORMAT_BAYER_BG12, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED,
                              VQP_PIXEL_FORMAT_BAYER_GB12_PACKED, VQP_PIXEL_FORMAT_BAYER_GR12_PACKED};
    int k = 0;
    for (int w : {255, 256, 257, 258, 259, 271, 286, 287, 288, 289, 290, 291, 300, 319, 320, 321, 333})
        for (int h : {9, 10, 13, 150}) {
            if (h == 150 && w % 16 != 0) continue;
            for (const uint32_t code : codes) {
                const bool packed = (code >> 16 & 0xFF) == 0x0C;
                // Contiguous rows, then padded ones (an odd stride for 16-bit samples).
                const int strides[] = {packed ? w + (w >> 1) : 2 * w, packed ? 3 * ((w + 1) / 2) + 2 : 2 * w + 3};
                for (const int stride : strides) {
                    const bool run = packed && stride == w + (w >> 1) && (w & 1) != 0;
                    const size_t bytes = run ? size_t(3 * ((h * w + 1) / 2)) : size_t(stride) * size_t(h);
                    std::vector<uint8_t> raw(bytes);
                    for (auto &v : raw) v = uint8_t(any(rng));
                    const uint64_t config = kOutputFormats[k++ % std::size(kOutputFormats)];
                    for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR})
                        for (uint32_t threads : {1u, 3u}) {
                            if (threads > 1 && h < 150) continue;
                            ASSERT_TRUE(same("code " + std::to_string(code) + " " + std::to_string(h) + "x" +
                                                 std::to_string(w) + " stride " + std::to_string(stride) +
                                                 " method " + std::to_string(method) + " format " +
                                                 std::to_string(config) + " threads " + std::to_string(threads),
                                             [&] { return convertDeep(raw, h, w, code, stride, config, method, threads); }));
                        }
                }
            }
        }
}

// The reduction routines and bgrToBgra called directly, every length, the source ending at a page.
TEST_F(LevelCheck, ReductionRoutinesAndWidening) {
    std::mt19937 rng(kSeed + 2);
    std::uniform_int_distribution<int> any(0, 0xFFFF);
    for (int n = 1; n <= 300; ++n) {
        std::vector<uint16_t> samples(static_cast<size_t>(n));
        for (auto &v : samples) v = uint16_t(any(rng));
        for (int shift : {2, 4, 6, 8})
            ASSERT_TRUE(same("u16Tou8_old n " + std::to_string(n) + " shift " + std::to_string(shift), [&] {
                PageEnd in(2 * size_t(n));
                std::memcpy(in.data(), samples.data(), 2 * size_t(n));
                Guarded out(static_cast<size_t>(n));
                u16Tou8_old(reinterpret_cast<const uint16_t *>(in.data()), 1, n, shift, out.data());
                return out.bytes;
            }));
        const size_t groups = size_t(n + 1) / 2;
        std::vector<uint8_t> packed(3 * groups);
        for (auto &v : packed) v = uint8_t(any(rng));
        ASSERT_TRUE(same("unpacked_old n " + std::to_string(n), [&] {
            PageEnd in(packed.size());
            std::memcpy(in.data(), packed.data(), packed.size());
            Guarded out(2 * groups);
            unpacked_old(in.data(), 1, n, out.data());
            return out.bytes;
        }));
        ASSERT_TRUE(same("unpacked rows width " + std::to_string(n), [&] {
            PageEnd in(packed.size() * 3);
            for (int y = 0; y < 3; ++y) std::memcpy(in.data() + y * packed.size(), packed.data(), packed.size());
            Guarded out(3 * size_t(n) + 1);
            unpacked(in.data(), 3, n, int32_t(packed.size()), out.data());
            return out.bytes;
        }));
        std::vector<uint8_t> bgr(3 * size_t(n));
        for (auto &v : bgr) v = uint8_t(any(rng));
        ASSERT_TRUE(same("bgrToBgra pixels " + std::to_string(n), [&] {
            PageEnd in(bgr.size());
            std::memcpy(in.data(), bgr.data(), bgr.size());
            Guarded out(4 * size_t(n));
            bgrToBgra(in.data(), 1, uint32_t(n), out.data());
            return out.bytes;
        }));
    }
}

} // namespace

namespace {

// The 16-bit bilinear body, interleaved in both channel orders and planar, at an odd byte address and at
// an even one, on full-range and adversarial samples (all 0, all 65535, alternating extremes that make
// every pair of a mean drop a bit), input ending at an unreadable page, guarded output.
TEST_F(LevelCheck, SixteenBitBilinearAtEveryWidth) {
    std::mt19937 rng(kSeed + 16);
    for (int w = 4; w <= 104; ++w)
        for (int h : {4, 5, 7, 10})
            for (int pattern = 0; pattern < 4; ++pattern)
                for (size_t shift : {0, 1}) {
                    const size_t n = size_t(h) * size_t(w);
                    std::vector<uint8_t> samples(2 * n);
                    for (size_t i = 0; i < n; ++i) {
                        const uint16_t v = pattern == 0   ? uint16_t(rng())
                                           : pattern == 1 ? 0
                                           : pattern == 2 ? 65535
                                                          : uint16_t((i + i / size_t(w)) % 2 ? 65535 : 65533);
                        std::memcpy(&samples[2 * i], &v, 2);
                    }
                    const std::string what = std::to_string(h) + "x" + std::to_string(w) + " pattern " +
                                             std::to_string(pattern) + " shift " + std::to_string(shift);
                    ASSERT_TRUE(same(what, [&] {
                        PageEnd in(2 * n + shift);
                        std::memcpy(in.data() + shift, samples.data(), 2 * n);
                        const auto *src = reinterpret_cast<const uint16_t *>(in.data() + shift);
                        Guarded a(6 * n + shift), b(6 * n + shift), p(6 * n + shift);
                        auto *da = reinterpret_cast<uint16_t *>(a.data() + shift);
                        auto *db = reinterpret_cast<uint16_t *>(b.data() + shift);
                        auto *dp = reinterpret_cast<uint16_t *>(p.data() + shift);
                        vqpDemosaicingBilinearU16(src, uint32_t(h), uint32_t(w), da);
                        const uint64_t stop = bilinearBodyRGGBU16(src, db, uint32_t(h), uint32_t(w), 1);
                        vqpDemosaicingBilinearU16P(src, uint32_t(h), uint32_t(w), dp, dp + n, dp + 2 * n);
                        EXPECT_TRUE(a.guardsIntact() && b.guardsIntact() && p.guardsIntact()) << what;
                        std::vector<uint8_t> all = a.bytes;
                        all.insert(all.end(), b.bytes.begin(), b.bytes.end());
                        all.insert(all.end(), p.bytes.begin(), p.bytes.end());
                        all.push_back(uint8_t(stop));
                        return all;
                    }));
                }
}

} // namespace

namespace {

// The 16-bit edge-directed drivers, every phase, at every height and width up to 40 and around the seams
// of two vector steps: full-range and 12-bit samples, all 0, all at the drivers' maxima (4095, 65535),
// alternating extremes (estimates past both ends, ties), at an odd byte address and an even one, input
// ending at an unreadable page, guarded output.
TEST_F(LevelCheck, SixteenBitEdgeAtEverySize) {
    std::mt19937 rng(kSeed + 17);
    static constexpr decltype(&demosaicingEdgeRGGBU16) kDrivers[] = {demosaicingEdgeRGGBU16, demosaicingEdgeGRBGU16,
                                                                      demosaicingEdgeGBRGU16, demosaicingEdgeBGGRU16};
    std::vector<std::pair<int, int>> sizes;
    for (int h = 4; h <= 40; ++h) {
        for (int w = 4; w <= 40; ++w) sizes.push_back({h, w});
        for (int w = 64; w <= 72; ++w) sizes.push_back({h, w});
    }
    sizes.insert(sizes.end(), {{200, 333}, {37, 1000}, {301, 130}});
    int k = 0;
    for (const auto &size : sizes) {
        const int h = size.first, w = size.second; // plain names: the lambda captures them
        const int pattern = k++ % 6;
        const size_t n = size_t(h) * size_t(w), shift = size_t(k % 2);
        std::vector<uint8_t> samples(2 * n);
        for (size_t i = 0; i < n; ++i) {
            const size_t y = i / size_t(w), x = i % size_t(w);
            const uint16_t v = pattern == 0   ? uint16_t(rng())
                               : pattern == 1 ? uint16_t(rng() & 4095)
                               : pattern == 2 ? 0
                               : pattern == 3 ? 4095
                               : pattern == 4 ? 65535
                                              : uint16_t(((x / 2 + y / 2) % 2) ? 65535 : 0);
            std::memcpy(&samples[2 * i], &v, 2);
        }
        for (int p = 0; p < 4; ++p)
            ASSERT_TRUE(same(std::string(phaseName(kPhases[p])) + " " + std::to_string(h) + "x" +
                                 std::to_string(w) + " pattern " + std::to_string(pattern),
                             [&] {
                                 PageEnd in(2 * n + shift);
                                 std::memcpy(in.data() + shift, samples.data(), 2 * n);
                                 Guarded out(6 * n + shift);
                                 kDrivers[p](reinterpret_cast<const uint16_t *>(in.data() + shift), uint32_t(h),
                                             uint32_t(w), reinterpret_cast<uint16_t *>(out.data() + shift));
                                 return out.bytes;
                             }));
    }
}

} // namespace

namespace {

// The full-depth entry point on deep and packed input, which it reassembles into full samples: every width
// up to a few vector widths (each remainder of the reassembly), tight and padded rows and packed runs,
// frames tall enough to be converted band by band ahead of the kernels, both methods, interleaved and
// planar; random bytes (stray bits above the depth), input ending at an unreadable page, guarded output.
TEST_F(LevelCheck, FullDepthInputAtEveryWidth) {
    std::mt19937 rng(kSeed + 21);
    const uint32_t codes[] = {VQP_PIXEL_FORMAT_BAYER_GR10, VQP_PIXEL_FORMAT_BAYER_RG12, VQP_PIXEL_FORMAT_BAYER_GB14,
                              VQP_PIXEL_FORMAT_BAYER_BG16, VQP_PIXEL_FORMAT_BAYER_BG12_PACKED,
                              VQP_PIXEL_FORMAT_BAYER_GR10_PACKED};
    const uint64_t layouts[] = {VQP_PIXEL_FORMAT_BGR16, VQP_PIXEL_FORMAT_RGB16_PLANAR};
    int k = 0;
    for (int w = 4; w <= 100; ++w)
        for (int h : {5, 134}) {
            if (h > 5 && w % 8 != 1 && w % 16 != 0) continue;
            for (const uint32_t code : codes) {
                const bool packed = (code >> 16 & 0xFF) == 0x0C;
                const int tight = packed ? 3 * (w / 2) + 2 * (w & 1) : 2 * w;
                // Packed: one run of samples (pairs across row ends), then rows of their own; 16-bit containers:
                // tight rows, then rows padded to an odd stride.
                const int strides[] = {packed ? w + (w >> 1) : tight, tight + 3};
                for (const int stride : strides) {
                    const size_t n = size_t(h) * size_t(w);
                    const bool run = packed && stride == w + (w >> 1);
                    const size_t bytes = run ? 3 * (n / 2) + 2 * (n & 1) : size_t(stride) * size_t(h);
                    std::vector<uint8_t> raw(bytes);
                    for (auto &v : raw) v = uint8_t(rng());
                    const uint64_t config = layouts[k++ % 2];
                    for (uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE})
                        ASSERT_TRUE(same("code " + std::to_string(code) + " " + std::to_string(h) + "x" +
                                             std::to_string(w) + " stride " + std::to_string(stride) + " method " +
                                             std::to_string(method),
                                         [&] {
                                             PageEnd in(raw.size());
                                             std::memcpy(in.data(), raw.data(), raw.size());
                                             Guarded out(6 * n);
                                             ProcessingHandle *handle = nullptr;
                                             vqpCreate(&handle);
                                             vqpDemosaicSetConfig16(handle, &config);
                                             ImageFrame fi{h, w, code, in.data(), stride}, fo{0, 0, 0, out.data(), 0};
                                             const int32_t rc = vqpDemosaicing16(handle, &fi, method, &fo, 1);
                                             vqpRelease(&handle);
                                             std::vector<uint8_t> result(out.bytes);
                                             result.push_back(uint8_t(rc));
                                             return result;
                                         }));
                }
            }
        }
}

// Development runs in vector lanes of single precision (black, white and gains on the input; the matrix; the
// 8-bit curve's cubics; edge-directed colour split into planes): every width, every phase of the lanes,
// values from black to full scale, an ordinary camera matrix with black levels and one whose huge entries
// overflow (infinities and NaNs, which the clamp takes to 0 and 65535), sRGB and a gamma, bilinear and
// edge-directed, into 8 and 16-bit output.
TEST_F(LevelCheck, DevelopmentAtEveryWidth) {
    std::mt19937 rng(kSeed + 29);
    const float camera[9] = {1.72f, -0.55f, -0.17f, -0.21f, 1.48f, -0.27f, 0.04f, -0.51f, 1.47f};
    const float huge[9] = {3e38f, 3e38f, -3e38f, 0.5f, -1e30f, 1e30f, -2.0f, 7.5f, 0.25f};
    for (int w = 4; w <= 70; ++w)
        for (const float *matrix : {camera, huge}) {
            const int h = 6;
            std::vector<uint8_t> raw(size_t(2 * w * h));
            for (size_t i = 0; i < raw.size(); i += 2) {
                const uint16_t v = uint16_t(i % 14 == 0 ? 4095 : i % 10 == 0 ? 0 : rng() & 4095);
                std::memcpy(&raw[i], &v, 2);
            }
            for (const uint64_t config : {uint64_t{VQP_PIXEL_FORMAT_BGR8}, uint64_t{VQP_PIXEL_FORMAT_RGB16_PLANAR}})
              for (const uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE})
                ASSERT_TRUE(same("development " + std::to_string(h) + "x" + std::to_string(w) + " layout " +
                                     std::to_string(config) + " method " + std::to_string(method) +
                                     (matrix == huge ? ", huge matrix" : ""),
                                 [&] {
                                     PageEnd in(raw.size());
                                     std::memcpy(in.data(), raw.data(), raw.size());
                                     Guarded out(6 * size_t(w) * h);
                                     ProcessingHandle *handle = nullptr;
                                     vqpCreate(&handle);
                                     const float gains[3] = {1.9f, 1.0f, 1.6f};
                                     vqpSetBalanceRatio(handle, gains);
                                     vqpSetColorTransformation(handle, matrix);
                                     const float black[4] = {60, 200, 150, 100};
                                     if (matrix == camera) vqpSetBlackLevel(handle, black);
                                     if (matrix == camera) vqpSetTransfer(handle, VQP_TRANSFER_SRGB, 0);
                                     else vqpSetTransfer(handle, VQP_TRANSFER_GAMMA, 2.2f);
                                     const bool wide = config != VQP_PIXEL_FORMAT_BGR8;
                                     wide ? vqpDemosaicSetConfig16(handle, &config) : vqpDemosaicSetConfig(handle, &config);
                                     ImageFrame fi{h, w, VQP_PIXEL_FORMAT_BAYER_GB12, in.data(), 2 * w};
                                     ImageFrame fo{0, 0, 0, out.data(), 0};
                                     const int32_t rc = wide ? vqpDevelop16(handle, &fi, method, &fo, 1)
                                                             : vqpDevelop(handle, &fi, method, &fo, 1);
                                     vqpRelease(&handle);
                                     std::vector<uint8_t> result(out.bytes);
                                     result.push_back(uint8_t(rc));
                                     return result;
                                 }));
        }
}

} // namespace
