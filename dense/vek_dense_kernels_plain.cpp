// vek_dense_kernels_plain.cpp - portable micro-kernels: plain C++ that
// assumes no instruction set beyond the compiler's baseline, used by the
// processor types 0 to 5.
#include "dense/vek_dense_kernels.h"

namespace vekd {
namespace {

template <class R, int MR, int NR>
inline void real_tile(int k, const R *a, const R *b, R *c, std::ptrdiff_t ldc, int add) {
  R acc[NR][MR] = {};
  for (int p = 0; p < k; ++p) {
    for (int j = 0; j < NR; ++j) {
      const R bj = b[j];
      for (int i = 0; i < MR; ++i) acc[j][i] += a[i] * bj;
    }
    a += MR;
    b += NR;
  }
  for (int j = 0; j < NR; ++j) {
    R *cj = c + j * ldc;
    for (int i = 0; i < MR; ++i) cj[i] = add ? cj[i] + acc[j][i] : acc[j][i];
  }
}

// Complex tiles on the pairs of real and imaginary parts, so that the
// compiler sees plain multiply-adds.
template <class R, int MR, int NR>
inline void complex_tile(int k, const R *a, const R *b, R *c, std::ptrdiff_t ldc, int add) {
  R re[NR][MR] = {}, im[NR][MR] = {};
  for (int p = 0; p < k; ++p) {
    for (int j = 0; j < NR; ++j) {
      const R br = b[2 * j], bi = b[2 * j + 1];
      for (int i = 0; i < MR; ++i) {
        re[j][i] += a[2 * i] * br - a[2 * i + 1] * bi;
        im[j][i] += a[2 * i + 1] * br + a[2 * i] * bi;
      }
    }
    a += 2 * MR;
    b += 2 * NR;
  }
  for (int j = 0; j < NR; ++j) {
    R *cj = c + 2 * j * ldc;
    for (int i = 0; i < MR; ++i) {
      cj[2 * i] = add ? cj[2 * i] + re[j][i] : re[j][i];
      cj[2 * i + 1] = add ? cj[2 * i + 1] + im[j][i] : im[j][i];
    }
  }
}

}  // namespace

void plain_dkernel(int k, const double *a, const double *b, double *c,
                   std::ptrdiff_t ldc, int add) {
  real_tile<double, PLAIN_D_MR, PLAIN_D_NR>(k, a, b, c, ldc, add);
}

void plain_skernel(int k, const float *a, const float *b, float *c,
                   std::ptrdiff_t ldc, int add) {
  real_tile<float, PLAIN_S_MR, PLAIN_S_NR>(k, a, b, c, ldc, add);
}

void plain_zkernel(int k, const std::complex<double> *a, const std::complex<double> *b,
                   std::complex<double> *c, std::ptrdiff_t ldc, int add) {
  complex_tile<double, PLAIN_Z_MR, PLAIN_Z_NR>(
      k, reinterpret_cast<const double *>(a), reinterpret_cast<const double *>(b),
      reinterpret_cast<double *>(c), ldc, add);
}

void plain_ckernel(int k, const std::complex<float> *a, const std::complex<float> *b,
                   std::complex<float> *c, std::ptrdiff_t ldc, int add) {
  complex_tile<float, PLAIN_C_MR, PLAIN_C_NR>(
      k, reinterpret_cast<const float *>(a), reinterpret_cast<const float *>(b),
      reinterpret_cast<float *>(c), ldc, add);
}

}  // namespace vekd
