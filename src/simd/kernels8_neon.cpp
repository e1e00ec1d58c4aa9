// The 8-bit vector interiors for neon (compiled with (AArch64 baseline)).
#include "simd/ops_neon.h"
#include "simd/kernels8.h"

namespace vq::simd::neon {
constinit const Kernels8 kKernels8 = ::makeKernels8<NeonOps>();
} // namespace vq::simd::neon
