// vek_dense_herm.cpp - the Hermitian dense operations forwarded to the
// installed BLAS and LAPACK (Fortran calling convention).
#include "dense/vek_dense_herm.h"

#include <cstddef>

typedef std::complex<double> zc;
typedef std::complex<float> cc;

extern "C" {
#define VEK_HERM_DECL(P, R, T)                                                           \
  void P##her_(const char *, const int *, const R *, const T *, const int *, T *,       \
               const int *, std::size_t);                                                \
  void P##laev2_(const T *, const T *, const T *, R *, R *, R *, T *);                   \
  void P##lacgv_(const int *, T *, const int *);                                         \
  void P##rot_(const int *, T *, const int *, T *, const int *, const R *, const T *);
VEK_HERM_DECL(z, double, zc)
VEK_HERM_DECL(c, float, cc)
void zdscal_(const int *, const double *, zc *, const int *);
void csscal_(const int *, const float *, cc *, const int *);
}

namespace vekd {

#define VEK_HERM_INSTANCE(P, S, R)                                                       \
  template <>                                                                            \
  void her<R>(const char *uplo, const int *n, const R *alpha, const std::complex<R> *x,  \
              const int *incx, std::complex<R> *a, const int *lda) {                     \
    P##her_(uplo, n, alpha, x, incx, a, lda, 1);                                         \
  }                                                                                      \
  template <>                                                                            \
  void laev2<R>(const std::complex<R> *a, const std::complex<R> *b,                      \
                const std::complex<R> *c, R *rt1, R *rt2, R *cs1, std::complex<R> *sn1) { \
    P##laev2_(a, b, c, rt1, rt2, cs1, sn1);                                              \
  }                                                                                      \
  template <>                                                                            \
  void lacgv<R>(const int *n, std::complex<R> *x, const int *incx) {                     \
    P##lacgv_(n, x, incx);                                                               \
  }                                                                                      \
  template <>                                                                            \
  void rot<R>(const int *n, std::complex<R> *x, const int *incx, std::complex<R> *y,     \
              const int *incy, const R *c, const std::complex<R> *s) {                   \
    P##rot_(n, x, incx, y, incy, c, s);                                                  \
  }                                                                                      \
  template <>                                                                            \
  void rscal<R>(const int *n, const R *alpha, std::complex<R> *x, const int *incx) {     \
    S##scal_(n, alpha, x, incx);                                                         \
  }

VEK_HERM_INSTANCE(z, zd, double)
VEK_HERM_INSTANCE(c, cs, float)

}  // namespace vekd
