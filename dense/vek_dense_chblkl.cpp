// vek_dense_chblkl.cpp - the unblocked Cholesky factorization forwarded to
// the installed LAPACK.
#include <complex>
#include <cstddef>

#include "dense/vek_dense_chblkl.h"

typedef std::complex<double> zc;
typedef std::complex<float> cc;

extern "C" {
#define VEK_POTF2(P, T) \
  void P##potf2_(const char *, const int *, T *, const int *, int *, std::size_t);
VEK_POTF2(d, double) VEK_POTF2(s, float) VEK_POTF2(z, zc) VEK_POTF2(c, cc)
}

namespace vekd {

#define VEK_POTF2_INSTANCE(P, T)                                                     \
  template <>                                                                        \
  void potf2<T>(const char *uplo, const int *n, T *a, const int *lda, int *info) {  \
    P##potf2_(uplo, n, a, lda, info, 1);                                             \
  }

VEK_POTF2_INSTANCE(d, double)
VEK_POTF2_INSTANCE(s, float)
VEK_POTF2_INSTANCE(z, zc)
VEK_POTF2_INSTANCE(c, cc)

}  // namespace vekd
