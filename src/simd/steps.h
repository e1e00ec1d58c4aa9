// How the vector interiors walk a row, shared by the kernel families (src/simd/kernels*.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/dispatch.h"

namespace {

// Fetches into the cache the bytes of `ahead`'s rows that hold `columns` columns from column x.
inline __attribute__((always_inline)) void fetchAhead(const vq::simd::Ahead &ahead, ptrdiff_t x, ptrdiff_t columns) {
    if (ahead.row[0] == nullptr) return;
    const uintptr_t at = uintptr_t(x) * uintptr_t(ahead.twoColumnBytes) / 2;
    const ptrdiff_t bytes = columns * ahead.twoColumnBytes / 2;
    for (ptrdiff_t b = 0; b < bytes; b += 64) {
        __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(ahead.row[0]) + at + b));
        __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(ahead.row[1]) + at + b));
    }
}

// Steps of N pixels from column 1 while a step ends at or before `end`; then, when more than one column is
// left, one step more that ends exactly there (odd-aligned) and covers again pixels already written, with
// the same values: every value of these kernels is a function of the source alone, so the scalar tail is
// one column at most. Returns the first column not written.
template <class O, class Step>
int32_t stepsTo(int32_t end, Step step) {
    int32_t x = 1;
    for (; x + O::N <= end; x += O::N) step(x);
    if (x > 1 && x + 1 < end) {
        const int32_t last = (end - O::N) & 1 ? end - O::N : end - O::N - 1; // odd, ends at or before `end`
        step(last);
        x = last + O::N;
    }
    return x;
}

} // namespace
