// The 8-bit vector interiors for avx2 (compiled with -mavx2).
#include "simd/ops_x86.h"
#include "simd/kernels8.h"

namespace vq::simd::avx2 {
constinit const Kernels8 kKernels8 = ::makeKernels8<Avx2Ops>();
} // namespace vq::simd::avx2
