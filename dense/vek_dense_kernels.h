// vek_dense_kernels.h - the register-blocked micro-kernels of the level-3
// routines and the kernel set of each processor type.
//
// A micro-kernel multiplies one packed panel of A (mr rows, stored k-major:
// the mr values of step p at a + p*mr) by one packed panel of B (nr
// columns, the nr values of step p at b + p*nr) and writes the mr x nr tile
// of C at c with leading dimension ldc: C = acc when add is 0, C += acc
// otherwise. Complex values are stored as pairs in both panels and tiles.
//
// A kernel set is what the whole-product routine of a processor type needs:
// the register tile, the cache blocking and the micro-kernel. The blocking
// of all types stands in one table (vek_dense_blocking.cpp).
#ifndef VEK_DENSE_KERNELS_H
#define VEK_DENSE_KERNELS_H

#include <complex>
#include <cstddef>

namespace vekd {

// Processor types beyond the five of the detection's basic table.
enum { VEK_CPU_AVX2 = 6, VEK_CPU_AVX512 = 7 };

// The largest register tile of any set, for the local tiles of the frames.
enum { VEK_MAX_MR = 48, VEK_MAX_NR = 16 };

template <class T>
using micro_kernel = void (*)(int k, const T *a, const T *b, T *c,
                              std::ptrdiff_t ldc, int add);

template <class T>
struct kernel_set {
  int mr, nr;      // register tile, in values of T
  int mc, kc, nc;  // blocks of the rows of A, the inner dimension, the columns of B
  micro_kernel<T> kernel;
};

// The set of a processor type (0 to 7; others give the plain set).
template <class T>
const kernel_set<T> &kernel_set_of(int type);

// --- Micro-kernels ---------------------------------------------------------
// Portable kernels, one tile shape per value type (vek_dense_kernels_plain.cpp).
void plain_dkernel(int, const double *, const double *, double *, std::ptrdiff_t, int);
void plain_skernel(int, const float *, const float *, float *, std::ptrdiff_t, int);
void plain_zkernel(int, const std::complex<double> *, const std::complex<double> *,
                   std::complex<double> *, std::ptrdiff_t, int);
void plain_ckernel(int, const std::complex<float> *, const std::complex<float> *,
                   std::complex<float> *, std::ptrdiff_t, int);
enum { PLAIN_D_MR = 4, PLAIN_D_NR = 4, PLAIN_S_MR = 8, PLAIN_S_NR = 4,
       PLAIN_Z_MR = 2, PLAIN_Z_NR = 2, PLAIN_C_MR = 4, PLAIN_C_NR = 2 };

// AVX2 with FMA (vek_dense_kernels_avx2.cpp): d 12x4, s 16x6, z 4x3, c 8x3.
void avx2_dkernel(int, const double *, const double *, double *, std::ptrdiff_t, int);
void avx2_skernel(int, const float *, const float *, float *, std::ptrdiff_t, int);
void avx2_zkernel(int, const std::complex<double> *, const std::complex<double> *,
                  std::complex<double> *, std::ptrdiff_t, int);
void avx2_ckernel(int, const std::complex<float> *, const std::complex<float> *,
                  std::complex<float> *, std::ptrdiff_t, int);

// AVX-512F (vek_dense_kernels_avx512.cpp, from vek_dense_kernels_wide.h):
// d 24x8, s 48x8, z 8x3, c 16x3.
void avx512_dkernel(int, const double *, const double *, double *, std::ptrdiff_t, int);
void avx512_skernel(int, const float *, const float *, float *, std::ptrdiff_t, int);
void avx512_zkernel(int, const std::complex<double> *, const std::complex<double> *,
                    std::complex<double> *, std::ptrdiff_t, int);
void avx512_ckernel(int, const std::complex<float> *, const std::complex<float> *,
                    std::complex<float> *, std::ptrdiff_t, int);

}  // namespace vekd

#endif
