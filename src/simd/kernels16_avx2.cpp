// The 16-bit vector interiors for avx2.
#include "simd/ops_x86.h"
#include "simd/kernels16.h"

namespace vq::simd::avx2 {
constinit const Kernels16 kKernels16 = ::makeKernels16<Avx2Ops>();
} // namespace vq::simd::avx2
