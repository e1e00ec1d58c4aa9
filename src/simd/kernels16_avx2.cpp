// The 16-bit vector interiors for avx2.
#include "simd/ops_x86.h"
#include "simd/kernels16.h"

namespace vq::simd::avx2 {
void installKernels16(Table &t) { ::installKernels16<Avx2Ops>(t); }
} // namespace vq::simd::avx2
