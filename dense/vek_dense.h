// vek_dense.h - the dense operations the solver's kernels call.
//
// One thin interface, by reference in the manner of the published BLAS and
// LAPACK routines, written once as templates over the value type (double,
// float, complex double, complex float). It forwards to the installed
// BLAS/LAPACK; the products, triangular solves and factorizations can run
// the library's own threaded, processor-tuned routines instead
// (use_own_level3).
#ifndef VEK_DENSE_H
#define VEK_DENSE_H

#include <complex>

namespace vekd {

// C := alpha op(A) op(B) + beta C; op is 'N', 'T' or 'C'.
template <class T>
void gemm(const char *transa, const char *transb, const int *m, const int *n,
          const int *k, const T *alpha, const T *a, const int *lda, const T *b,
          const int *ldb, const T *beta, T *c, const int *ldc);

// B := alpha op(A)^-1 B (side 'L') or alpha B op(A)^-1 (side 'R').
template <class T>
void trsm(const char *side, const char *uplo, const char *transa,
          const char *diag, const int *m, const int *n, const T *alpha,
          const T *a, const int *lda, T *b, const int *ldb);

// Cholesky factorization of the triangle uplo; info as published.
template <class T>
void potrf(const char *uplo, const int *n, T *a, const int *lda, int *info);

// The same, column by column (no blocking). For complex values A is
// Hermitian: the imaginary parts of its diagonal are not read, and the
// factor's diagonal is real.
template <class T>
void potf2(const char *uplo, const int *n, T *a, const int *lda, int *info);

// LU factorization with row exchanges; info as published.
template <class T>
void getrf(const int *m, const int *n, T *a, const int *lda, int *ipiv,
           int *info);

// y := alpha op(A) x + beta y.
template <class T>
void gemv(const char *trans, const int *m, const int *n, const T *alpha,
          const T *a, const int *lda, const T *x, const int *incx,
          const T *beta, T *y, const int *incy);

// A := alpha x y^T + A, m by n (no conjugate for complex values).
template <class T>
void ger(const int *m, const int *n, const T *alpha, const T *x, const int *incx,
         const T *y, const int *incy, T *a, const int *lda);

// x := alpha x, n entries with stride incx.
template <class T>
void scal(const int *n, const T *alpha, T *x, const int *incx);

// A := alpha x x^T + A on the triangle uplo, n by n (no conjugate for
// complex values: the complex symmetric update).
template <class T>
void syr(const char *uplo, const int *n, const T *alpha, const T *x, const int *incx,
         T *a, const int *lda);

// B := alpha op(A)^-1 x for one vector (triangular solve).
template <class T>
void trsv(const char *uplo, const char *trans, const char *diag, const int *n,
          const T *a, const int *lda, T *x, const int *incx);

// Threads that the installed BLAS may use inside one call of this
// interface, for the calls that follow (process-wide). The solver sets it
// to its own thread count before a sequential sweep, and to 1 around
// regions whose threads each call the dense routines.
void blas_threads(int count);

// 1: gemm, trsm, getrf, potf2 and potrf run the library's own routines;
// 0 (the default): they forward to the installed BLAS and LAPACK like the
// others, found by name in the process at their first call (one the
// process lacks is replaced by the library's own). Process-wide.
void use_own_level3(int flag);
// 1 while the own routines are chosen.
int own_level3_in_use();

}  // namespace vekd

#endif
