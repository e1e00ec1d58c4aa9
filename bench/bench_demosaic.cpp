// Speed of every conversion at every vector level this machine has, on one 4096 x 3000 frame, single
// threaded (and the parallel entry points on 2 threads), in Mpix/s, best of several runs. Built with
// -DVELQORA_BENCH_OPENCV=ON it times OpenCV's corresponding conversions in the same run (one thread) and
// prints each ratio beside its target, in one table per vector level (a level forced below the machine's
// best counts as that level: AVX2 on an AVX-512 machine stands for the many machines without AVX-512).
//
//   velqora_bench [--quick] [--cold] [--filter TEXT] [--reps N] [--levels NAME,NAME...] [--width W]
//
// --quick: a 256 x 128 frame, one run of each case (what CI runs); --filter: only the library's cases
// whose name contains TEXT (OpenCV's run whatever the filter, the tables need them); --cold: the input
// frame is flushed from every cache level before each run, as a frame that a camera has just written to
// memory would be (by default the same frame is converted again and again, and a small one stays in the
// last-level cache between runs); --levels: only these levels ("scalar", "avx2", "avx512", "neon");
// --width: another frame width (the height stays).
#include <algorithm>
#include <chrono>
#include <cmath>
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
std::string gFilter, gLevels;
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
// level name -> case name -> Mpix/s; OpenCV's cases under "opencv".
std::map<std::string, std::map<std::string, double>> gResults;

double seconds(const std::function<void()> &run) {
    if (gCold) flushInput();
    const auto t0 = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double mpixPerSecond(const std::function<void()> &run, double pixels) {
    double best = 1e30;
    for (int i = 0; i < gReps; ++i) best = std::min(best, seconds(run));
    return pixels / best / 1e6;
}

bool wanted(const std::string &level, const std::string &name) {
    if (level == "opencv" || gFilter.empty()) return true;
    for (size_t at = 0; at <= gFilter.size();) { // alternatives separated by '|'
        const size_t bar = std::min(gFilter.find('|', at), gFilter.size());
        if (name.find(gFilter.substr(at, bar - at)) != std::string::npos) return true;
        at = bar + 1;
    }
    return false;
}

void record(const std::string &level, const std::string &name, double mpix) {
    std::printf("%-8s %-44s %9.0f Mpix/s\n", level.c_str(), name.c_str(), mpix);
    std::fflush(stdout);
    gResults[level][name] = mpix;
}

void report(const std::string &level, const std::string &name, const std::function<void()> &run,
            int width = gW) {
    if (wanted(level, name)) record(level, name, mpixPerSecond(run, double(gH) * width));
}

// Cases compared with each other, timed in rounds (each case once a round, best of gReps rounds), so that a
// slow spell of a shared machine falls on all of them alike.
struct Case {
    std::string name;
    std::function<void()> run;
    const void *input;
    size_t inputBytes;
};
void reportInRounds(const std::string &level, const std::vector<Case> &cases) {
    std::vector<const Case *> on;
    for (const Case &c : cases)
        if (wanted(level, c.name)) on.push_back(&c);
    std::vector<double> best(on.size(), 1e30);
    for (int r = 0; r < gReps; ++r)
        for (size_t i = 0; i < on.size(); ++i) {
            gInput = on[i]->input, gInputBytes = on[i]->inputBytes;
            best[i] = std::min(best[i], seconds(on[i]->run));
        }
    for (size_t i = 0; i < on.size(); ++i) record(level, on[i]->name, double(gH) * gW / best[i] / 1e6);
}

// The CPU's model as the system names it ("unknown" where it does not).
std::string cpuModel() {
    std::FILE *f = std::fopen("/proc/cpuinfo", "r");
    if (f == nullptr) return "unknown";
    char line[512];
    std::string model;
    while (model.empty() && std::fgets(line, sizeof line, f) != nullptr) {
        const std::string s(line);
        for (const char *key : {"model name", "Model", "Hardware"})
            if (s.rfind(key, 0) == 0 && s.find(':') != std::string::npos) {
                model = s.substr(s.find(':') + 1);
                break;
            }
    }
    std::fclose(f);
    const size_t a = model.find_first_not_of(" \t"), b = model.find_last_not_of(" \t\n");
    return a == std::string::npos ? "unknown" : model.substr(a, b - a + 1);
}

struct Frames {
    std::vector<uint8_t> rg8, rg8Wider, rg12Packed;
    std::vector<uint16_t> rg12;
    std::vector<uint8_t> out;
    std::vector<uint16_t> out16;
};

Frames makeFrames() {
    Frames f;
    const size_t n = size_t(gH) * gW;
    std::mt19937 rng(1);
    f.rg8.resize(n);
    f.rg8Wider.resize(size_t(gH) * (gW + 8));
    f.rg12.resize(n);
    f.rg12Packed.resize(n + n / 2 + 1);
    for (auto &v : f.rg8) v = uint8_t(rng());
    for (auto &v : f.rg8Wider) v = uint8_t(rng());
    for (auto &v : f.rg12) v = uint16_t(rng() & 4095);
    for (auto &v : f.rg12Packed) v = uint8_t(rng());
    f.out.assign(4 * size_t(gH) * (gW + 8), 0);
    f.out16.assign(3 * n, 0);
    return f;
}

void runLevel(const std::string &level, Frames &f) {
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
                       [&] { vqpDemosaicing(h, &fi, m, &fo); });
            }
    // Planar output at a width 8 samples wider: at a power-of-two width the planes and the input rows lie a
    // multiple of 4096 bytes apart, which a slower planar time at gW shows.
    {
        const uint64_t planar = VQP_PIXEL_FORMAT_RGB8_PLANAR;
        vqpDemosaicSetConfig(h, &planar);
        const int wider = gW + 8;
        gInput = f.rg8Wider.data(), gInputBytes = f.rg8Wider.size();
        ImageFrame fi{gH, wider, VQP_PIXEL_FORMAT_BAYER_RG8, f.rg8Wider.data(), wider}, fo{0, 0, 0, f.out.data(), 0};
        for (uint32_t m : {1u, 2u})
            report(level, std::string(methods[m]) + " RG8 -> planar, width +8", [&] { vqpDemosaicing(h, &fi, m, &fo); },
                   wider);
    }
    const uint32_t H = uint32_t(gH), W = uint32_t(gW);
    const size_t n = size_t(gH) * gW;
    uint16_t *o16 = f.out16.data();
    gInput = f.rg12.data(), gInputBytes = 2 * n;
    report(level, "16-bit bilinear planar",
           [&] { vqpDemosaicingBilinearU16P(f.rg12.data(), H, W, o16, o16 + n, o16 + 2 * n); });
    // The other phases' drivers (the RGGB one is timed in rounds below).
    const struct {
        const char *name;
        int32_t (*driver)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
    } edges[] = {{"GRBG", demosaicingEdgeGRBGU16}, {"GBRG", demosaicingEdgeGBRGU16}, {"BGGR", demosaicingEdgeBGGRU16}};
    for (const auto &e : edges)
        report(level, std::string("16-bit edge ") + e.name, [&] { e.driver(f.rg12.data(), H, W, o16); });

    // The full-depth entry point, one thread, B, G, R: every phase from 16-bit containers read where they lie
    // (16), from 12-bit ones (12, no bit set above the depth) and from packed pairs (12p); in rounds with the
    // RGGB bilinear and edge-directed functions it is compared with.
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
    std::vector<Case> rounds = {
        {"16-bit bilinear", [&] { vqpDemosaicingBilinearU16(f.rg12.data(), H, W, o16); }, f.rg12.data(), 2 * n},
        {"16-bit edge RGGB", [&] { demosaicingEdgeRGGBU16(f.rg12.data(), H, W, o16); }, f.rg12.data(), 2 * n}};
    for (uint32_t m : {1u, 2u})
        for (int p = 0; p < 4; ++p)
            for (const auto &in : deep) {
                const ImageFrame fi{gH, gW, in.gr + offsets[p], in.data, in.stride};
                rounds.push_back({std::string("full-depth ") + methods[m] + " " + phases[p] + in.name,
                                  [&h, fi, m, o16] {
                                      ImageFrame input = fi, fo{0, 0, 0, o16, 0};
                                      vqpDemosaicing16(h, &input, m, &fo, 1);
                                  },
                                  in.data, size_t(in.stride) * size_t(gH)});
            }
    // Development: per-site black, gains, a full matrix and sRGB, from BayerRG12Packed and BayerRG8 to BGR8, in
    // the same rounds as the full-depth conversions they are compared with (the plain 8-bit ones are above).
    ProcessingHandle *dev = nullptr;
    vqpCreate(&dev);
    const float black[4] = {240, 256, 256, 272}, black8[4] = {15, 16, 16, 17}, gains[3] = {1.9f, 1.0f, 1.6f};
    const float matrix[9] = {1.72f, -0.55f, -0.17f, -0.21f, 1.48f, -0.27f, 0.04f, -0.51f, 1.47f};
    const uint64_t bgr8 = VQP_PIXEL_FORMAT_BGR8;
    vqpDemosaicSetConfig(dev, &bgr8);
    vqpSetColorTransformation(dev, matrix);
    vqpSetTransfer(dev, VQP_TRANSFER_SRGB, 1.0f);
    uint8_t *o8 = f.out.data();
    const auto developCase = [&](const std::string &name, uint32_t code, void *data, int32_t stride, uint32_t m,
                                 const float *blackLevel, uint32_t mode, uint32_t threads) {
        const ImageFrame fi{gH, gW, code, data, stride};
        return Case{name,
                    [=] {
                        vqpSetBlackLevel(dev, blackLevel);
                        vqpSetBalanceRatio(dev, gains);
                        if (mode == VQP_BALANCE_WHITE_AUTO_ONCE) vqpSetBalanceWhiteAuto(dev, mode);
                        ImageFrame input = fi, fo{0, 0, 0, o8, 0};
                        vqpDevelop(dev, &input, m, &fo, threads);
                    },
                    data, size_t(stride) * size_t(gH)};
    };
    for (uint32_t m : {1u, 2u}) {
        rounds.push_back(developCase(std::string("develop ") + methods[m] + " RG12Packed -> BGR8",
                                     VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, f.rg12Packed.data(), gW + gW / 2, m, black, 0, 1));
        rounds.push_back(developCase(std::string("develop ") + methods[m] + " RG8 -> BGR8", VQP_PIXEL_FORMAT_BAYER_RG8,
                                     f.rg8.data(), gW, m, black8, 0, 1));
    }
    rounds.push_back(developCase("develop edge RG12Packed -> BGR8, once", VQP_PIXEL_FORMAT_BAYER_RG12_PACKED,
                                 f.rg12Packed.data(), gW + gW / 2, 2, black, VQP_BALANCE_WHITE_AUTO_ONCE, 1));
    reportInRounds(level, rounds);
    if (wanted(level, "develop edge RG12Packed -> BGR8, continuous")) { // the mode stays on from run to run
        const ImageFrame fi{gH, gW, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, f.rg12Packed.data(), gW + gW / 2};
        vqpSetBlackLevel(dev, black);
        vqpSetBalanceWhiteAuto(dev, VQP_BALANCE_WHITE_AUTO_CONTINUOUS);
        ImageFrame input = fi, fo{0, 0, 0, o8, 0};
        report(level, "develop edge RG12Packed -> BGR8, continuous", [&] { vqpDevelop(dev, &input, 2, &fo, 1); });
    }
    if (level != "scalar")
        for (uint32_t t : {1u, 2u})
            if (const std::string name = "develop edge RG12Packed -> BGR8, " + std::to_string(t) + " thread" +
                                         (t > 1 ? "s" : "");
                wanted(level, name)) {
                const Case c = developCase(name, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, f.rg12Packed.data(), gW + gW / 2, 2,
                                           black, 0, t);
                report(level, name, c.run);
            }
    vqpRelease(&dev);

    if (level != "scalar") { // the parallel entry points, 1 and 2 threads
        for (uint32_t t : {1u, 2u}) {
            const std::string suffix = ", " + std::to_string(t) + " thread" + (t > 1 ? "s" : "");
            const uint64_t bgr = VQP_PIXEL_FORMAT_BGR8;
            vqpDemosaicSetConfig(h, &bgr);
            for (uint32_t m : {1u, 2u}) {
                gInput = f.rg8.data(), gInputBytes = n;
                ImageFrame fi{gH, gW, VQP_PIXEL_FORMAT_BAYER_RG8, f.rg8.data(), gW}, fo{0, 0, 0, f.out.data(), 0};
                report(level, std::string(methods[m]) + " RG8 -> BGR8" + suffix,
                       [&] { vqpDemosaicingParallel(h, &fi, m, &fo, t); });
            }
            gInput = f.rg12.data(), gInputBytes = 2 * n;
            report(level, "16-bit bilinear" + suffix,
                   [&] { vqpDemosaicingBilinearU16Parallel(h, f.rg12.data(), H, W, o16, t); });
            report(level, "16-bit edge RGGB" + suffix,
                   [&] { vqpDemosaicingEdgeU16Parallel(h, f.rg12.data(), H, W, o16, VQP_PIXEL_FORMAT_BAYER_RG12, t); });
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
        report("opencv", c.name, [&] { cv::cvtColor(*c.src, out, c.code); });
    }
    // The development chain from OpenCV calls on 16-bit data: subtract black, 16-bit edge-aware conversion, the
    // matrix with the gains and the scale to 16 bits folded in, a table from 16 to 8 bits (sRGB).
    {
        cv::Mat dark, colour, mixed, out8(gH, gW, CV_8UC3);
        const float gains[3] = {1.9f, 1.0f, 1.6f}, scale = 65535.0f / (4095.0f - 256.0f);
        const float matrix[9] = {1.72f, -0.55f, -0.17f, -0.21f, 1.48f, -0.27f, 0.04f, -0.51f, 1.47f};
        cv::Mat m(3, 3, CV_32F); // B, G, R in and out
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) m.at<float>(2 - r, 2 - c) = matrix[3 * r + c] * gains[c] * scale;
        std::vector<uint8_t> table(65536);
        for (size_t v = 0; v < table.size(); ++v) {
            const double x = double(v) / 65535.0;
            table[v] = uint8_t(std::lround(255.0 * (x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1 / 2.4) - 0.055)));
        }
        gInput = raw16.data, gInputBytes = raw16.total() * 2;
        report("opencv", "OpenCV development chain -> BGR8", [&] {
            cv::subtract(raw16, cv::Scalar(256), dark);
            cv::cvtColor(dark, colour, cv::COLOR_BayerBG2BGR_EA);
            cv::transform(colour, mixed, m);
            const uint16_t *in = mixed.ptr<uint16_t>();
            uint8_t *o = out8.ptr<uint8_t>();
            for (size_t i = 0, n = mixed.total() * 3; i < n; ++i) o[i] = table[in[i]];
        });
    }
}
#endif

void targets(const std::string &level) {
    const auto get = [&](const std::string &k) {
        for (const std::string &from : {level, std::string("opencv")}) {
            const auto &results = gResults[from];
            const auto it = results.find(k);
            if (it != results.end()) return it->second;
        }
        return 0.0;
    };
    std::printf("\nTargets at the %s level (ratio, target, met):\n", level.c_str());
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
    for (const char *m : {"bilinear", "edge"})
        line(std::string("time a pixel, ") + m + " planar, width " + std::to_string(gW) + " / " + std::to_string(gW + 8),
             vs(std::string(m) + " RG8 -> planar, width +8", std::string(m) + " RG8 -> planar"), 1.1, true);
    for (const char *m : {"bilinear", "edge"}) {
        const std::string d = std::string("develop ") + m;
        line(d + " RG12Packed -> BGR8 time / full-depth " + m + " RGGB12p time",
             vs(std::string("full-depth ") + m + " RGGB12p", d + " RG12Packed -> BGR8"), 1.3, true);
        line(d + " RG8 -> BGR8 time / " + m + " RG8 -> BGR8 time", vs(std::string(m) + " RG8 -> BGR8", d + " RG8 -> BGR8"),
             1.5, true);
    }
    line("develop edge RG12Packed -> BGR8 / OpenCV development chain",
         vs("develop edge RG12Packed -> BGR8", "OpenCV development chain -> BGR8"), 3.0, false);
    line("develop edge, once time / off time", vs("develop edge RG12Packed -> BGR8", "develop edge RG12Packed -> BGR8, once"),
         1.1, true);
    line("develop edge, continuous time / off time",
         vs("develop edge RG12Packed -> BGR8", "develop edge RG12Packed -> BGR8, continuous"), 1.03, true);
    for (const char *c : {"edge RG8 -> BGR8", "bilinear RG8 -> BGR8", "16-bit bilinear", "16-bit edge RGGB",
                          "develop edge RG12Packed -> BGR8"})
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
        } else if (std::strcmp(argv[i], "--levels") == 0 && i + 1 < argc) {
            gLevels = argv[++i];
        } else if (std::strcmp(argv[i], "--width") == 0 && i + 1 < argc) {
            gW = std::max(4, std::atoi(argv[++i]));
        } else {
            std::fprintf(stderr, "usage: velqora_bench [--quick] [--cold] [--filter TEXT[|TEXT...]] [--reps N] "
                                 "[--levels NAME,NAME...] [--width W]\n");
            return 2;
        }
    }
    using vq::simd::Level;
    std::printf("CPU: %s; levels:", cpuModel().c_str());
    for (Level level : {Level::Scalar, Level::Avx2, Level::Avx512, Level::Neon})
        if (vq::simd::supported(level)) std::printf(" %s", vq::simd::levelName(level));
    std::printf(" (the library chooses %s)\n", vqpVectorLevel());
    std::printf("Frame %d x %d, best of %d, one thread unless stated%s\n", gW, gH, gReps,
                gCold ? ", input flushed from the caches before each run" : "");
    Frames f = makeFrames();
    const Level best = vq::simd::bestLevel();
    std::vector<std::string> ran;
    for (Level level : {Level::Scalar, Level::Avx2, Level::Avx512, Level::Neon}) {
        const std::string name = vq::simd::levelName(level);
        if (!gLevels.empty() && ("," + gLevels + ",").find("," + name + ",") == std::string::npos) continue;
        if (!vq::simd::forceLevel(level)) continue;
        runLevel(name, f);
        ran.push_back(name);
    }
    vq::simd::forceLevel(best);
#ifdef VELQORA_BENCH_OPENCV
    runOpenCV(f);
#endif
    for (const std::string &level : ran)
        if (level != "scalar") targets(level);
    return 0;
}
