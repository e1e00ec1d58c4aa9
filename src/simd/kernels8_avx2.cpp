// The 8-bit vector interiors for avx2 (compiled with -mavx2).
#include "simd/ops_x86.h"
#include "simd/kernels8.h"

namespace vq::simd::avx2 {
void installKernels8(Table &t) { ::installKernels8<Avx2Ops>(t); }
} // namespace vq::simd::avx2
