// Speed of every conversion at every vector level this machine has, on one 4096 x 3000 frame, single
// threaded (and the parallel entry points on 2 threads), in Mpix/s, best of several runs. Built with
// -DVELQORA_BENCH_OPENCV=ON it times OpenCV's corresponding conversions in the same run (one thread) and
// prints each ratio beside its target.
//
//   velqora_bench [--quick] [--cold] [--filter TEXT] [--reps N]
//
// --quick: a 256 x 128 frame, one run of each case (what CI runs); --filter: only the cases whose name
// contains TEXT; --cold: the input frame is flushed from every cache level before each run, as a frame
// that a camera has just written to memory would be (by default the same frame is converted again and
// again, and a small one stays in the last-level cache between runs).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "simd/dispatch.h"
#include "velqora.h"

#ifdef VELQORA_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

int gH = 3000, gW = 4096, gReps = 7;
bool gCold = false;
std::string gFilter;
// The input of the cases being reported, flushed before each run with --cold.
const void *gInput = nullptr;
size_t gInputBytes = 0;

void flushInput() {
#if defined(__x86_64__)
    const char *p = static_cast<const char *>(gInput);
    for (size_t i = 0; i < gInputBytes; i += 64) __builtin_ia32_clflush(p + i);
    __builtin_ia32_mfence();
#endif
}
std::map<std::string, double> gResults; // case name at the best level -> Mpix/s

double mpixPerSecond(const std::function<void()> &run) {
    double best = 1e30;
    for (int i = 0; i < gReps; ++i) {
        if (gCold) flushInput();
        const auto t0 = std::chrono::steady_clock::now();
        run();
        const auto t1 = std::chrono::steady_clock::now();
        best = std::min(best, std::chrono::duration<double>(t1 - t0).count());
    }
    return double(gH) * gW / best / 1e6;
}

void report(const std::string &level, const std::string &name, const std::function<void()> &run, bool keep) {
    if (!gFilter.empty()) { // alternatives separated by '|'
        bool any = false;
        for (size_t at = 0; at <= gFilter.size() && !any;) {
            const size_t bar = std::min(gFilter.find('|', at), gFilter.size());
            any = name.find(gFilter.substr(at, bar - at)) != std::string::npos;
            at = bar + 1;
        }
        if (!any) return;
    }
    const double v = mpixPerSecond(run);
    std::printf("%-8s %-44s %9.0f Mpix/s\n", level.c_str(), name.c_str(), v);
    std::fflush(stdout);
    if (keep) gResults[name] = v;
}

struct Frames {
    std::vector<uint8_t> rg8, rg12Packed;
    std::vector<uint16_t> rg12;
    std::vector<uint8_t> out;
    std::vector<uint16_t> out16;
};

Frames makeFrames() {
    Frames f;
    const size_t n = size_t(gH) * gW;
    std::mt19937 rng(1);
    f.rg8.resize(n);
    f.rg12.resize(n);
    f.rg12Packed.resize(n + n / 2 + 1);
    for (auto &v : f.rg8) v = uint8_t(rng());
    for (auto &v : f.rg12) v = uint16_t(rng() & 4095);
    for (auto &v : f.rg12Packed) v = uint8_t(rng());
    f.out.assign(4 * n, 0);
    f.out16.assign(3 * n, 0);
    return f;
}

void runLevel(const std::string &level, Frames &f, bool best) {
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    const struct {
        const char *name;
        uint32_t code;
        void *data;
        int32_t stride;
    } inputs[] = {{"RG8", VQP_PIXEL_FORMAT_BAYER_RG8, f.rg8.data(), gW},
                  {"RG12", VQP_PIXEL_FORMAT_BAYER_RG12, f.rg12.data(), 2 * gW},
                  {"RG12Packed", VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, f.rg12Packed.data(), gW + gW / 2}};
    const struct {
        const char *name;
        uint64_t config;
    } outputs[] = {{"BGR8", VQP_PIXEL_FORMAT_BGR8},
                   {"BGRA8", VQP_PIXEL_FORMAT_BGRA8},
                   {"planar", VQP_PIXEL_FORMAT_RGB8_PLANAR},
                   {"Mono8", VQP_PIXEL_FORMAT_MONO8}};
    const char *methods[] = {"nearest", "bilinear", "edge"};
    for (uint32_t m = 0; m < 3; ++m)
        for (const auto &o : outputs)
            for (const auto &in : inputs) {
                gInput = in.data, gInputBytes = size_t(in.stride) * size_t(gH);
                vqpDemosaicSetConfig(h, &o.config);
                ImageFrame fi{gH, gW, in.code, in.data, in.stride}, fo{0, 0, 0, f.out.data(), 0};
                report(level, std::string(methods[m]) + " " + in.name + " -> " + o.name,
                       [&] { vqpDemosaicing(h, &fi, m, &fo); }, best);
            }
    const uint32_t H = uint32_t(gH), W = uint32_t(gW);
    const size_t n = size_t(gH) * gW;
    uint16_t *o16 = f.out16.data();
    gInput = f.rg12.data(), gInputBytes = 2 * n;
    report(level, "16-bit bilinear", [&] { vqpDemosaicingBilinearU16(f.rg12.data(), H, W, o16); }, best);
    report(level, "16-bit bilinear planar",
           [&] { vqpDemosaicingBilinearU16P(f.rg12.data(), H, W, o16, o16 + n, o16 + 2 * n); }, best);
    const struct {
        const char *name;
        int32_t (*driver)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
        uint32_t phase;
    } edges[] = {{"RGGB", demosaicingEdgeRGGBU16, VQP_PIXEL_FORMAT_BAYER_RG12},
                 {"GRBG", demosaicingEdgeGRBGU16, VQP_PIXEL_FORMAT_BAYER_GR12},
                 {"GBRG", demosaicingEdgeGBRGU16, VQP_PIXEL_FORMAT_BAYER_GB12},
                 {"BGGR", demosaicingEdgeBGGRU16, VQP_PIXEL_FORMAT_BAYER_BG12}};
    for (const auto &e : edges)
        report(level, std::string("16-bit edge ") + e.name, [&] { e.driver(f.rg12.data(), H, W, o16); }, best);

    // The full-depth entry point, one thread, B, G, R: every phase from 16-bit containers read where they lie
    // (16), from 12-bit ones (12, reassembled without the stray bits) and from packed pairs (12p).
    const uint64_t bgr16 = VQP_PIXEL_FORMAT_BGR16;
    vqpDemosaicSetConfig16(h, &bgr16);
    const char *phases[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
    const uint32_t offsets[] = {1, 0, 2, 3}; // from the GR code of each family
    const struct {
        const char *name;
        uint32_t gr;
        void *data;
        int32_t stride;
    } deep[] = {{"16", VQP_PIXEL_FORMAT_BAYER_GR16, f.rg12.data(), 2 * gW},
                {"12", VQP_PIXEL_FORMAT_BAYER_GR12, f.rg12.data(), 2 * gW},
                {"12p", VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, f.rg12Packed.data(), gW + gW / 2}};
    for (uint32_t m : {1u, 2u})
        for (int p = 0; p < 4; ++p)
            for (const auto &in : deep) {
                gInput = in.data, gInputBytes = size_t(in.stride) * size_t(gH);
                ImageFrame fi{gH, gW, in.gr + offsets[p], in.data, in.stride}, fo{0, 0, 0, o16, 0};
                report(level, std::string("full-depth ") + methods[m] + " " + phases[p] + in.name,
                       [&] { vqpDemosaicing16(h, &fi, m, &fo, 1); }, best);
            }

    if (best) { // the parallel entry points, 1 and 2 threads
        for (uint32_t t : {1u, 2u}) {
            const std::string suffix = ", " + std::to_string(t) + " thread" + (t > 1 ? "s" : "");
            const uint64_t bgr = VQP_PIXEL_FORMAT_BGR8;
            vqpDemosaicSetConfig(h, &bgr);
            for (uint32_t m : {1u, 2u}) {
                gInput = f.rg8.data(), gInputBytes = n;
                ImageFrame fi{gH, gW, VQP_PIXEL_FORMAT_BAYER_RG8, f.rg8.data(), gW}, fo{0, 0, 0, f.out.data(), 0};
                report(level, std::string(methods[m]) + " RG8 -> BGR8" + suffix,
                       [&] { vqpDemosaicingParallel(h, &fi, m, &fo, t); }, true);
            }
            gInput = f.rg12.data(), gInputBytes = 2 * n;
            report(level, "16-bit bilinear" + suffix,
                   [&] { vqpDemosaicingBilinearU16Parallel(h, f.rg12.data(), H, W, o16, t); }, true);
            report(level, "16-bit edge RGGB" + suffix,
                   [&] { vqpDemosaicingEdgeU16Parallel(h, f.rg12.data(), H, W, o16, VQP_PIXEL_FORMAT_BAYER_RG12, t); },
                   true);
        }
    }
    vqpRelease(&h);
}

#ifdef VELQORA_BENCH_OPENCV
void runOpenCV(Frames &f) {
    cv::setNumThreads(1);
    // OpenCV names a Bayer pattern by the second row's second and third samples: RGGB is its "BG".
    cv::Mat raw(gH, gW, CV_8UC1, f.rg8.data()), raw16(gH, gW, CV_16UC1, f.rg12.data()), dst, dst16;
    const struct {
        const char *name;
        cv::Mat *src;
        int code;
    } cases[] = {{"OpenCV bilinear -> BGR", &raw, cv::COLOR_BayerBG2BGR},
                 {"OpenCV bilinear -> BGRA", &raw, cv::COLOR_BayerBG2BGRA},
                 {"OpenCV bilinear -> Gray", &raw, cv::COLOR_BayerBG2GRAY},
                 {"OpenCV edge-aware -> BGR", &raw, cv::COLOR_BayerBG2BGR_EA},
                 {"OpenCV 16-bit bilinear -> BGR", &raw16, cv::COLOR_BayerBG2BGR},
                 {"OpenCV 16-bit edge-aware -> BGR", &raw16, cv::COLOR_BayerBG2BGR_EA},
                 {"copy floor (mosaic -> 3 bytes a pixel)", &raw, cv::COLOR_GRAY2BGR}};
    for (const auto &c : cases) {
        cv::Mat &out = c.src == &raw16 ? dst16 : dst;
        cv::cvtColor(*c.src, out, c.code); // allocates once
        gInput = c.src->data, gInputBytes = c.src->total() * c.src->elemSize();
        report("opencv", c.name, [&] { cv::cvtColor(*c.src, out, c.code); }, true);
    }
}
#endif

void targets() {
    const auto get = [](const std::string &k) {
        const auto it = gResults.find(k);
        return it == gResults.end() ? 0.0 : it->second;
    };
    std::printf("\nTargets (best level; ratio, target, met):\n");
    const auto line = [](const std::string &what, double ratio, double target, bool atMost) {
        if (ratio <= 0) return;
        const bool met = atMost ? ratio <= target : ratio >= target;
        std::printf("  %-58s %6.2fx  %s %.2fx  %s\n", what.c_str(), ratio, atMost ? "<=" : ">=", target,
                    met ? "yes" : "NO");
    };
    const auto vs = [&](const std::string &a, const std::string &b) {
        return get(b) > 0 && get(a) > 0 ? get(a) / get(b) : 0.0;
    };
    line("bilinear BGR8 / OpenCV bilinear", vs("bilinear RG8 -> BGR8", "OpenCV bilinear -> BGR"), 1.5, false);
    line("bilinear BGRA8 / OpenCV bilinear BGRA", vs("bilinear RG8 -> BGRA8", "OpenCV bilinear -> BGRA"), 1.2, false);
    line("bilinear planar / OpenCV bilinear BGRA", vs("bilinear RG8 -> planar", "OpenCV bilinear -> BGRA"), 1.2, false);
    line("bilinear Mono8 / OpenCV Bayer->Gray", vs("bilinear RG8 -> Mono8", "OpenCV bilinear -> Gray"), 1.0, false);
    line("nearest BGR8 / copy floor", vs("nearest RG8 -> BGR8", "copy floor (mosaic -> 3 bytes a pixel)"), 0.5, false);
    for (const char *m : {"nearest", "bilinear", "edge"})
        for (const char *o : {"BGR8", "BGRA8", "planar", "Mono8"})
            for (const char *in : {"RG12", "RG12Packed"}) {
                const std::string base = std::string(m) + " RG8 -> " + o, deep = std::string(m) + " " + in + " -> " + o;
                line(std::string(in) + " time / RG8 time, " + m + " -> " + o, vs(base, deep), 1.3, true);
            }
    line("edge BGR8 / OpenCV edge-aware", vs("edge RG8 -> BGR8", "OpenCV edge-aware -> BGR"), 1.5, false);
    for (const char *o : {"BGRA8", "planar", "Mono8"})
        line(std::string("edge ") + o + " / OpenCV edge-aware", vs(std::string("edge RG8 -> ") + o, "OpenCV edge-aware -> BGR"),
             1.2, false);
    line("16-bit bilinear / OpenCV 16-bit bilinear", vs("16-bit bilinear", "OpenCV 16-bit bilinear -> BGR"), 1.5, false);
    line("16-bit bilinear planar / OpenCV 16-bit bilinear", vs("16-bit bilinear planar", "OpenCV 16-bit bilinear -> BGR"),
         1.2, false);
    for (const char *p : {"RGGB", "GRBG", "GBRG", "BGGR"})
        line(std::string("16-bit edge ") + p + " / OpenCV 16-bit edge-aware",
             vs(std::string("16-bit edge ") + p, "OpenCV 16-bit edge-aware -> BGR"), 2.0, false);
    // The full-depth entry point: every phase at least as fast as the RGGB functions, packed input at most
    // 1.3 times the time of unpacked.
    for (const char *p : {"RGGB", "GRBG", "GBRG", "BGGR"})
        for (const char *in : {"16", "12", "12p"}) {
            const std::string b = std::string("full-depth bilinear ") + p + in, e = std::string("full-depth edge ") + p + in;
            line(b + " / OpenCV 16-bit bilinear", vs(b, "OpenCV 16-bit bilinear -> BGR"), 1.5, false);
            line(b + " / 16-bit bilinear", vs(b, "16-bit bilinear"), 1.0, false);
            line(e + " / OpenCV 16-bit edge-aware", vs(e, "OpenCV 16-bit edge-aware -> BGR"), 2.0, false);
            line(e + " / 16-bit edge RGGB", vs(e, "16-bit edge RGGB"), 1.0, false);
        }
    for (const char *m : {"bilinear", "edge"})
        for (const char *p : {"RGGB", "GRBG", "GBRG", "BGGR"}) {
            const std::string base = std::string("full-depth ") + m + " " + p;
            line(base + "12p time / " + p + "12 time", vs(base + "12", base + "12p"), 1.3, true);
        }
    for (const char *c : {"edge RG8 -> BGR8", "bilinear RG8 -> BGR8", "16-bit bilinear", "16-bit edge RGGB"})
        line(std::string(c) + ", 2 threads / 1 thread", vs(std::string(c) + ", 2 threads", std::string(c) + ", 1 thread"),
             1.8, false);
}

} // namespace

int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            gH = 128, gW = 256, gReps = 1;
        } else if (std::strcmp(argv[i], "--cold") == 0) {
            gCold = true;
        } else if (std::strcmp(argv[i], "--filter") == 0 && i + 1 < argc) {
            gFilter = argv[++i];
        } else if (std::strcmp(argv[i], "--reps") == 0 && i + 1 < argc) {
            gReps = std::max(1, std::atoi(argv[++i]));
        } else {
            std::fprintf(stderr, "usage: velqora_bench [--quick] [--cold] [--filter TEXT[|TEXT...]] [--reps N]\n");
            return 2;
        }
    }
    std::printf("Frame %d x %d, best of %d, one thread unless stated%s\n", gW, gH, gReps,
                gCold ? ", input flushed from the caches before each run" : "");
    Frames f = makeFrames();
    using vq::simd::Level;
    const Level best = vq::simd::bestLevel();
    std::printf("Vector level chosen on this machine: %s\n", vqpVectorLevel());
    for (Level level : {Level::Scalar, Level::Avx2, Level::Avx512, Level::Neon}) {
        if (!vq::simd::forceLevel(level)) continue;
        runLevel(vq::simd::levelName(level), f, level == best);
    }
    vq::simd::forceLevel(best);
#ifdef VELQORA_BENCH_OPENCV
    runOpenCV(f);
#endif
    targets();
    return 0;
}
