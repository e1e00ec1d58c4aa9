// The 8-bit vector interiors for neon (compiled with (AArch64 baseline)).
#include "simd/ops_neon.h"
#include "simd/kernels8.h"

namespace vq::simd::neon {
void installKernels8(Table &t) { ::installKernels8<NeonOps>(t); }
} // namespace vq::simd::neon
