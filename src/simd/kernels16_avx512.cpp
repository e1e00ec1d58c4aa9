// The 16-bit vector interiors for avx512.
#include "simd/ops_x86.h"
#include "simd/kernels16.h"

namespace vq::simd::avx512 {
constinit const Kernels16 kKernels16 = ::makeKernels16<Avx512Ops>();
} // namespace vq::simd::avx512
