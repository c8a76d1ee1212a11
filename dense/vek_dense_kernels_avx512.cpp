// vek_dense_kernels_avx512.cpp - micro-kernels for processors with AVX-512F.
//
// The kernels of vek_dense_kernels_wide.h on vectors of 64 bytes, inlined
// into functions compiled for AVX-512F, so that a vector is one register
// and the accumulators of a tile (24 for d and s, 12 for z and c) fit the
// 32 registers with room for the loads of A and the broadcasts of B. The
// frame picks these kernels only on processor type 7.
#include "dense/vek_dense_kernels.h"
#include "dense/vek_dense_kernels_wide.h"

namespace vekd {

VEK_WIDE_KERNELS(__attribute__((target("avx512f,avx2,fma"))), avx512)

}  // namespace vekd
