// The 8-bit vector interiors for avx512 (compiled with -mavx2 -mavx512f -mavx512bw -mavx512vl).
#include "simd/ops_x86.h"
#include "simd/kernels8.h"

namespace vq::simd::avx512 {
constinit const Kernels8 kKernels8 = ::makeKernels8<Avx512Ops>();
} // namespace vq::simd::avx512
