// Detection of the instruction sets and the per-level tables.
#include "simd/dispatch.h"

#include <atomic>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace vq::simd {
namespace {

#if defined(__x86_64__) && defined(VELQORA_SIMD)
// What the processor reports and the operating system has switched on, read with cpuid and xgetbv
// directly (no C library's notion of the CPU): a set counts only when the processor has it and the
// operating system saves its registers (the XCR0 bits of the SSE, AVX and AVX-512 states).
struct X86Features {
    bool avx2 = false;
    bool avx512 = false; // F, BW and VL, what the AVX-512 units are compiled for
};

X86Features readX86Features() {
    X86Features f;
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(0, &eax, &ebx, &ecx, &edx) || eax < 7) return f;
    __get_cpuid(1, &eax, &ebx, &ecx, &edx);
    const bool osxsave = (ecx >> 27) & 1, avx = (ecx >> 28) & 1;
    if (!osxsave || !avx) return f;
    unsigned xcr0Low = 0, xcr0High = 0;
    __asm__ volatile("xgetbv" : "=a"(xcr0Low), "=d"(xcr0High) : "c"(0u));
    const bool ymmState = (xcr0Low & 0x6u) == 0x6u;                   // SSE and AVX registers
    const bool zmmState = ymmState && (xcr0Low & 0xE0u) == 0xE0u;       // opmask, upper ZMM, ZMM16-31
    __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx);
    f.avx2 = ymmState && ((ebx >> 5) & 1);
    const bool avx512f = (ebx >> 16) & 1, avx512bw = (ebx >> 30) & 1, avx512vl = (ebx >> 31) & 1;
    f.avx512 = f.avx2 && zmmState && avx512f && avx512bw && avx512vl;
    return f;
}
#endif

bool machineHas(Level level) {
    switch (level) {
    case Level::Scalar: return true;
#if defined(__x86_64__) && defined(VELQORA_SIMD)
    case Level::Avx2: return readX86Features().avx2;
    case Level::Avx512: return readX86Features().avx512;
#endif
#if defined(__aarch64__) && defined(VELQORA_SIMD)
    case Level::Neon: return true; // part of every AArch64 machine
#endif
    default: return false;
    }
}

// A level's table takes the entries of its units only once the machine is known to run them; the entries
// are data, so filling the table runs no code of the units.
void install(Level level, Table &t) {
    const auto fill = [&t](const Kernels8 &k8, const Kernels16 &k16) {
        static_cast<Kernels8 &>(t) = k8;
        static_cast<Kernels16 &>(t) = k16;
    };
    switch (level) {
#if defined(__x86_64__) && defined(VELQORA_SIMD)
    case Level::Avx2: fill(avx2::kKernels8, avx2::kKernels16); break;
    case Level::Avx512: fill(avx512::kKernels8, avx512::kKernels16); break;
#endif
#if defined(__aarch64__) && defined(VELQORA_SIMD)
    case Level::Neon: fill(neon::kKernels8, neon::kKernels16); break;
#endif
    default: break; // the scalar table stays empty
    }
}

struct Tables {
    Table byLevel[kLevels];
    bool usable[kLevels] = {};
    Level best = Level::Scalar;

    Tables() {
        for (int i = 0; i < kLevels; ++i) {
            const Level level = static_cast<Level>(i);
            usable[i] = machineHas(level);
            if (!usable[i]) continue;
            install(level, byLevel[i]);
            best = level;
        }
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
