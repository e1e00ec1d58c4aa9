// The 16-bit vector interiors for neon.
#include "simd/ops_neon.h"
#include "simd/kernels16.h"

namespace vq::simd::neon {
void installKernels16(Table &t) { ::installKernels16<NeonOps>(t); }
} // namespace vq::simd::neon
