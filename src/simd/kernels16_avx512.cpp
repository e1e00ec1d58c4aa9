// The 16-bit vector interiors for avx512.
#include "simd/ops_x86.h"
#include "simd/kernels16.h"

namespace vq::simd::avx512 {
void installKernels16(Table &t) { ::installKernels16<Avx512Ops>(t); }
} // namespace vq::simd::avx512
