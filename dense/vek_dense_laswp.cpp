// vek_dense_laswp.cpp - row interchanges: rows k1 to k2 of A exchanged with
// the rows that ipiv names, in order (incx above 0) or in reverse order
// (incx below 0), over n columns. One form for all processors: column by
// column, each column taking the exchanges four at a time, so that a column
// is read once per four rows and the exchanges stay in its cache lines.
#include <omp.h>

#include <algorithm>

#include "dense/vek_dense_lapack.h"

namespace vekd {
namespace {

template <class T>
inline void swap_rows(T *col, int i, int ip) {
  const T t = col[i];
  col[i] = col[ip];
  col[ip] = t;
}

// pv holds the exchanges already in the order of application, zero-based:
// row r0 + s (s = 0, 1, ..., count - 1, or down from r0 for step -1) with
// row pv[s].
template <class T>
void swap_columns(int n, T *a, int lda, int r0, int step, int count, const int *piv,
                  int pstride) {
  for (int j = 0; j < n; ++j) {
    T *col = a + static_cast<std::ptrdiff_t>(j) * lda;
    int s = 0, r = r0;
    const int *p = piv;
    for (; s + 4 <= count; s += 4) {
      const int p0 = p[0] - 1, p1 = p[pstride] - 1, p2 = p[2 * pstride] - 1,
                p3 = p[3 * pstride] - 1;
      if (p0 != r) swap_rows(col, r, p0);
      if (p1 != r + step) swap_rows(col, r + step, p1);
      if (p2 != r + 2 * step) swap_rows(col, r + 2 * step, p2);
      if (p3 != r + 3 * step) swap_rows(col, r + 3 * step, p3);
      r += 4 * step;
      p += 4 * pstride;
    }
    for (; s < count; ++s) {
      const int q = *p - 1;
      if (q != r) swap_rows(col, r, q);
      r += step;
      p += pstride;
    }
  }
}

template <class T>
void laswp(int n, T *a, int lda, int k1, int k2, const int *ipiv, int incx) {
  if (incx == 0 || n <= 0 || k2 < k1) return;
  const int count = k2 - k1 + 1;
  if (incx > 0) {
    // Row k1 + s with ipiv(k1 + s incx).
    swap_columns(n, a, lda, k1 - 1, 1, count, ipiv + (k1 - 1), incx);
  } else {
    // From row k2 down to k1, row k2 with ipiv(k1 + (k1 - k2) incx), the
    // next ones at steps of incx before it.
    const int first = k1 + (k1 - k2) * incx;
    swap_columns(n, a, lda, k2 - 1, -1, count, ipiv + (first - 1), incx);
  }
}

}  // namespace

template <class T>
void deferred_swaps(int nblocks, int nb, T *a, int lda, int last, const int *ipiv,
                    int nthreads) {
  if (nblocks <= 0) return;
  if (nthreads < 2 || nblocks < 2) {
    for (int c = 0; c < nblocks; ++c)
      laswp(nb, entry(a, lda, 1, c * nb + 1), lda, (c + 1) * nb + 1, last, ipiv, 1);
    return;
  }
#pragma omp parallel for schedule(dynamic, 1) num_threads(nthreads)
  for (int c = 0; c < nblocks; ++c)
    laswp(nb, entry(a, lda, 1, c * nb + 1), lda, (c + 1) * nb + 1, last, ipiv, 1);
}

#define VEK_LASWP_INSTANCE(P, T)                                                          \
  void P##laswp(const int *n, T *a, const int *lda, const int *k1, const int *k2,         \
                const int *ipiv, const int *incx) {                                       \
    laswp<T>(*n, a, *lda, *k1, *k2, ipiv, *incx);                                          \
  }                                                                                       \
  template void deferred_swaps<T>(int, int, T *, int, int, const int *, int);

VEK_LASWP_INSTANCE(d, double)
VEK_LASWP_INSTANCE(s, float)
VEK_LASWP_INSTANCE(z, zcomplex)
VEK_LASWP_INSTANCE(c, ccomplex)

}  // namespace vekd
