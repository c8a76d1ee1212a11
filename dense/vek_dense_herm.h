// vek_dense_herm.h - the dense operations of the Hermitian kernels that the
// general interface (vek_dense.h) lacks: the Hermitian rank-1 update, the
// eigen-decomposition of a Hermitian 2 by 2 block, conjugation of a vector,
// the plane rotation with a complex sine, and scaling by a real factor.
//
// By reference in the manner of the published routines, as templates over
// the real type R of the complex values (double and float), forwarded to the
// installed BLAS/LAPACK.
#ifndef VEK_DENSE_HERM_H
#define VEK_DENSE_HERM_H

#include <complex>

namespace vekd {

// A := alpha x x^H + A on the triangle uplo, n by n, alpha real. The
// diagonal of the triangle it updates comes out real.
template <class R>
void her(const char *uplo, const int *n, const R *alpha, const std::complex<R> *x,
         const int *incx, std::complex<R> *a, const int *lda);

// Eigen-decomposition of the Hermitian block [a b; conj(b) c] (the real
// parts of a and c are read): rt1 the eigenvalue of larger magnitude, rt2
// the other, and (cs1, sn1) with
//   [cs1 conj(sn1); -sn1 cs1] [a b; conj(b) c] [cs1 -conj(sn1); sn1 cs1]
//     = diag(rt1, rt2).
template <class R>
void laev2(const std::complex<R> *a, const std::complex<R> *b, const std::complex<R> *c,
           R *rt1, R *rt2, R *cs1, std::complex<R> *sn1);

// x := conj(x), n entries with stride incx.
template <class R>
void lacgv(const int *n, std::complex<R> *x, const int *incx);

// The plane rotation with real cosine c and complex sine s:
//   x := c x + s y,  y := c y - conj(s) x.
template <class R>
void rot(const int *n, std::complex<R> *x, const int *incx, std::complex<R> *y,
         const int *incy, const R *c, const std::complex<R> *s);

// x := alpha x with a real factor alpha.
template <class R>
void rscal(const int *n, const R *alpha, std::complex<R> *x, const int *incx);

}  // namespace vekd

#endif
