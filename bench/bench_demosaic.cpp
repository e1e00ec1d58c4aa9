// Time per frame of vqpDemosaicing for each method and output format on a 1920x1080 BayerRG8 frame,
// and of the reduction of 12-bit packed input.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "velqora.h"

namespace {

constexpr int kH = 1080, kW = 1920;

void demosaicFrame(benchmark::State &state) {
    const auto method = static_cast<uint32_t>(state.range(0));
    const auto config = static_cast<uint64_t>(state.range(1));
    const auto input = static_cast<uint32_t>(state.range(2));
    const int stride = input == VQP_PIXEL_FORMAT_BAYER_RG12_PACKED ? kW + kW / 2 : kW;
    std::vector<uint8_t> in(size_t(stride) * kH);
    std::mt19937 rng(1);
    for (auto &v : in) v = uint8_t(rng());
    std::vector<uint8_t> out(size_t(kH) * kW * 4);
    ProcessingHandle *h = nullptr;
    vqpCreate(&h);
    vqpDemosaicSetConfig(h, &config);
    ImageFrame fi{kH, kW, input, in.data(), stride}, fo{0, 0, 0, out.data(), 0};
    for (auto _ : state) {
        if (vqpDemosaicing(h, &fi, method, &fo) != VQP_OK) state.SkipWithError("demosaic failed");
        benchmark::DoNotOptimize(out.data());
    }
    vqpRelease(&h);
    state.SetItemsProcessed(state.iterations() * int64_t(kH) * kW);
}

void args(benchmark::internal::Benchmark *b) {
    for (int64_t method : {0, 1, 2})
        for (int64_t config : {VQP_PIXEL_FORMAT_BGR8, VQP_PIXEL_FORMAT_BGRA8, VQP_PIXEL_FORMAT_RGB8_PLANAR,
                               VQP_PIXEL_FORMAT_MONO8})
            b->Args({method, config, VQP_PIXEL_FORMAT_BAYER_RG8});
    b->Args({1, VQP_PIXEL_FORMAT_BGR8, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED});
    b->ArgNames({"method", "format", "input"})->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK(demosaicFrame)->Apply(args);
