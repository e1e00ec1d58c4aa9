// Detection of the instruction sets and the per-level tables.
#include "simd/dispatch.h"

#include <atomic>
#include <cstring>

namespace vq::simd {
namespace {

bool machineHas(Level level) {
    switch (level) {
    case Level::Scalar: return true;
#if defined(__x86_64__) && defined(VELQORA_SIMD)
    case Level::Avx2:
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2");
    case Level::Avx512:
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("avx512f") &&
               __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
#endif
#if defined(__aarch64__) && defined(VELQORA_SIMD)
    case Level::Neon: return true; // part of every AArch64 machine
#endif
    default: return false;
    }
}

struct Tables {
    Table byLevel[kLevels];
    bool usable[kLevels] = {};
    Level best = Level::Scalar;

    Tables() {
        for (int i = 0; i < kLevels; ++i) usable[i] = machineHas(static_cast<Level>(i));
#if defined(__x86_64__) && defined(VELQORA_SIMD)
        avx2::installKernels8(byLevel[int(Level::Avx2)]);
        avx2::installKernels16(byLevel[int(Level::Avx2)]);
        avx512::installKernels8(byLevel[int(Level::Avx512)]);
        avx512::installKernels16(byLevel[int(Level::Avx512)]);
#endif
#if defined(__aarch64__) && defined(VELQORA_SIMD)
        neon::installKernels8(byLevel[int(Level::Neon)]);
        neon::installKernels16(byLevel[int(Level::Neon)]);
#endif
        for (int i = 0; i < kLevels; ++i)
            if (usable[i]) best = static_cast<Level>(i);
    }
};

const Tables &tables() {
    static const Tables t; // built once, on first use, by whichever thread comes first
    return t;
}

std::atomic<int> forced{-1};

} // namespace

const Table &table() {
    const Tables &t = tables();
    const int f = forced.load(std::memory_order_relaxed);
    return t.byLevel[f < 0 ? int(t.best) : f];
}

Level bestLevel() { return tables().best; }

bool supported(Level level) {
    const int i = int(level);
    return i >= 0 && i < kLevels && tables().usable[i];
}

bool forceLevel(Level level) {
    if (!supported(level)) return false;
    forced.store(int(level), std::memory_order_relaxed);
    return true;
}

Level activeLevel() {
    const int f = forced.load(std::memory_order_relaxed);
    return f < 0 ? bestLevel() : static_cast<Level>(f);
}

const char *levelName(Level level) {
    static constexpr const char *kNames[kLevels] = {"scalar", "avx2", "avx512", "neon"};
    const int i = int(level);
    return i >= 0 && i < kLevels ? kNames[i] : "unknown";
}

bool levelFromName(const char *name, Level *level) {
    for (int i = 0; i < kLevels; ++i) {
        if (std::strcmp(name, levelName(static_cast<Level>(i))) == 0) {
            *level = static_cast<Level>(i);
            return true;
        }
    }
    return false;
}

} // namespace vq::simd
