// vek_dense_syrk.cpp - the symmetric rank-k update C := alpha op(A) op(A)^T
// + beta C on one triangle of C (trans N: op(A) = A, n x k; trans T: op(A)
// = A^T, A being k x n), and for complex values the Hermitian one,
// C := alpha op(A) op(A)^H + beta C with real alpha and beta (trans C:
// op(A) = A^H), whose diagonal comes out real.
//
// The variant of a processor type is the packed product of its type on the
// triangle: the operand is packed twice, as A and as B, and only the tiles
// that touch the triangle are formed. The frame gives each thread one
// diagonal block and then forms the blocks between them with the threaded
// product.
#include <omp.h>

#include <algorithm>

#include "dense/vek_dense_level3.h"
#include "service/vek_serv_dispatch.h"

namespace vekd {
namespace {

inline bool is(char c, char upper) { return c == upper || c == upper + ('a' - 'A'); }

// op(A) rows from r on.
template <class T>
const T *rows_of(const T *a, int lda, bool trans, int r) {
  return trans ? a + static_cast<std::ptrdiff_t>(r) * lda : a + r;
}

// The block of C between diagonal blocks [r0, r0 + n0) and [r1, r1 + n1)
// (r1 > r0), on the named triangle, by the threaded product. op is the
// letter of the transposed factor: T, or C for the Hermitian update.
template <class T>
void off_block(bool upper, bool trans, char op, int r0, int n0, int r1,
               int n1, int k, T alpha, const T *a, int lda, T beta, T *c, int ldc) {
  const char ta = trans ? op : 'N', tb = trans ? 'N' : op;
  const int ri = upper ? r0 : r1, rj = upper ? r1 : r0;
  const int ni = upper ? n0 : n1, nj = upper ? n1 : n0;
  T *cij = c + ri + static_cast<std::ptrdiff_t>(rj) * ldc;
  const T *ai = rows_of(a, lda, trans, ri), *aj = rows_of(a, lda, trans, rj);
  gemm_frame(ta, tb, ni, nj, k, alpha, ai, lda, aj, lda, beta, cij, ldc);
}

template <class T>
void syrk_whole(const kernel_set<T> &s, char uplo, char trans, char op, int n, int k,
                T alpha, const T *a, int lda, T beta, T *c, int ldc) {
  if (n <= 0) return;
  const bool upper = is(uplo, 'U'), tr = !is(trans, 'N');
  // alpha 0 or k 0 only scales the triangle, inside the product.
  gemm_triangle(s, upper ? 'U' : 'L', tr ? op : 'N', tr ? 'N' : op, n, k, alpha, a, lda, a,
                lda, beta, c, ldc);
}

template <class T, int TYPE>
void syrk_variant(const char *uplo, const char *trans, const char *op, const int *n,
                  const int *k, const T *alpha, const T *a, const int *lda, const T *beta,
                  T *c, const int *ldc) {
  syrk_whole(kernel_set_of<T>(TYPE), *uplo, *trans, *op, *n, *k, *alpha, a, *lda, *beta, c,
             *ldc);
}

template <class T>
void syrk_stub(const char *uplo, const char *trans, char op, int n, int k, const T *alpha,
               const T *a, const int *lda, const T *beta, T *c, const int *ldc) {
  vek_serv_stub<syrk_variant<T, 0>, syrk_variant<T, 2>, syrk_variant<T, 3>,
                syrk_variant<T, 4>, syrk_variant<T, 5>, syrk_variant<T, 6>,
                syrk_variant<T, 7>>::call(uplo, trans, &op, &n, &k, alpha, a, lda, beta, c,
                                          ldc);
}

template <class T>
void syrk_frame(const char *uplo, const char *trans, char op, const int *n, const int *k,
                const T *alpha, const T *a, const int *lda, const T *beta, T *c,
                const int *ldc) {
  if (*n <= 0 || ((*alpha == T(0) || *k == 0) && *beta == T(1))) return;
  const int nthreads = *n < 17 ? 1 : dense_threads();
  if (nthreads < 2) {
    syrk_stub(uplo, trans, op, *n, *k, alpha, a, lda, beta, c, ldc);
    return;
  }
  const bool upper = is(*uplo, 'U'), tr = !is(*trans, 'N');
  int came = 1;
#pragma omp parallel num_threads(nthreads)
  {
    const int got = omp_get_num_threads(), t = omp_get_thread_num();
    if (t == 0) came = got;
    const int r0 = int(std::int64_t(*n) * t / got), r1 = int(std::int64_t(*n) * (t + 1) / got);
    if (r1 > r0)
      syrk_stub(uplo, trans, op, r1 - r0, *k, alpha, rows_of(a, *lda, tr, r0), lda, beta,
                c + r0 + static_cast<std::ptrdiff_t>(r0) * *ldc, ldc);
  }
  // The blocks between the diagonal blocks, block column by block column.
  for (int i = 0; i + 1 < came; ++i) {
    const int r0 = int(std::int64_t(*n) * i / came), r1 = int(std::int64_t(*n) * (i + 1) / came);
    off_block<T>(upper, tr, op, r0, r1 - r0, r1, *n - r1, *k, *alpha, a, *lda, *beta, c,
                 *ldc);
  }
}

template <class R>
void herk_frame(const char *uplo, const char *trans, const int *n, const int *k,
                const R *alpha, const std::complex<R> *a, const int *lda, const R *beta,
                std::complex<R> *c, const int *ldc) {
  typedef std::complex<R> T;
  if (*n <= 0 || ((*alpha == R(0) || *k == 0) && *beta == R(1))) return;
  const T calpha(*alpha), cbeta(*beta);
  syrk_frame<T>(uplo, trans, 'C', n, k, &calpha, a, lda, &cbeta, c, ldc);
  // The products on the diagonal leave rounding in the imaginary parts,
  // and beta 1 keeps those of C.
  for (int j = 0; j < *n; ++j) {
    T &d = c[j + static_cast<std::ptrdiff_t>(j) * *ldc];
    d = T(d.real(), R(0));
  }
}

}  // namespace

#define VEK_SYRK_INSTANCE(P, T)                                                          \
  void P##syrk(const char *uplo, const char *trans, const int *n, const int *k,          \
               const T *alpha, const T *a, const int *lda, const T *beta, T *c,          \
               const int *ldc, std::size_t, std::size_t) {                               \
    syrk_frame<T>(uplo, trans, 'T', n, k, alpha, a, lda, beta, c, ldc);                  \
  }

VEK_SYRK_INSTANCE(d, double)
VEK_SYRK_INSTANCE(s, float)

#define VEK_HERK_INSTANCE(P, R)                                                          \
  void P##herk(const char *uplo, const char *trans, const int *n, const int *k,          \
               const R *alpha, const std::complex<R> *a, const int *lda, const R *beta,  \
               std::complex<R> *c, const int *ldc, std::size_t, std::size_t) {           \
    herk_frame<R>(uplo, trans, n, k, alpha, a, lda, beta, c, ldc);                       \
  }

VEK_HERK_INSTANCE(z, double)
VEK_HERK_INSTANCE(c, float)

}  // namespace vekd
