// The 16-bit vector interiors for neon.
#include "simd/ops_neon.h"
#include "simd/kernels16.h"

namespace vq::simd::neon {
constinit const Kernels16 kKernels16 = ::makeKernels16<NeonOps>();
} // namespace vq::simd::neon
