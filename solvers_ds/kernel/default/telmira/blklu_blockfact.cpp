// blklu_blockfact.cpp - dense LU of a diagonal block with complete pivoting
// and replacement of small pivots, unblocked.
#include <cmath>

#include "blklu.h"
#include "dense/vek_dense.h"

namespace {

template <class T> inline T &at(T *a, int lda, int i, int j) {
  return a[(i - 1) + static_cast<long>(j - 1) * lda];
}

}  // namespace

template <class T>
void blklu_blockfact(const int *n, T *a, const int *lda, int *ipiv, int *jpiv, int *npert,
                     const tlm::real_of<T> *eps, int *info) {
  typedef tlm::real_of<T> R;
  const int N = *n, ld = *lda;
  // A threshold of 0 still replaces an exact zero, by a tiny value.
  const R thr = *eps;
  const R rep = *eps == R(0) ? R(1.0e-13) : std::abs(*eps);
  *info = 0;
  for (int j = 1; j <= N; ++j) {
    // Largest magnitude of the trailing square, row by row; the later entry
    // wins a tie, so that a zero square yields its last entry.
    int p = j, q = j;
    R big = R(0);
    for (int i = j; i <= N; ++i)
      for (int k = j; k <= N; ++k) {
        const R v = std::abs(at(a, ld, i, k));
        if (v >= big) {
          big = v;
          p = i;
          q = k;
        }
      }
    if (p != j)
      for (int k = 1; k <= N; ++k) {
        const T t = at(a, ld, p, k);
        at(a, ld, p, k) = at(a, ld, j, k);
        at(a, ld, j, k) = t;
      }
    ipiv[j - 1] = p;
    if (q != j)
      for (int i = 1; i <= N; ++i) {
        const T t = at(a, ld, i, q);
        at(a, ld, i, q) = at(a, ld, i, j);
        at(a, ld, i, j) = t;
      }
    jpiv[j - 1] = q;

    T &d = at(a, ld, j, j);
    if (std::abs(d) <= thr) {  // false for a NaN, which stays as it is
      ++*npert;
      d = d >= T(0) ? T(rep) : T(-rep);
    }
    for (int i = j + 1; i <= N; ++i) at(a, ld, i, j) /= d;
    if (j < N) {
      const int m = N - j, one = 1;
      const T mone = T(-1);
      vekd::ger<T>(&m, &m, &mone, &at(a, ld, j + 1, j), &one, &at(a, ld, j, j + 1), lda,
                   &at(a, ld, j + 1, j + 1), lda);
    }
  }
}

template void blklu_blockfact<double>(const int *, double *, const int *, int *, int *,
                                      int *, const double *, int *);
template void blklu_blockfact<float>(const int *, float *, const int *, int *, int *, int *,
                                     const float *, int *);

void blklu_blockfact_d(const int *n, double *a, const int *lda, int *ipiv, int *jpiv,
                       int *npert, const double *eps, int *info) {
  blklu_blockfact<double>(n, a, lda, ipiv, jpiv, npert, eps, info);
}
void sp_blklu_blockfact(const int *n, float *a, const int *lda, int *ipiv, int *jpiv,
                        int *npert, const float *eps, int *info) {
  blklu_blockfact<float>(n, a, lda, ipiv, jpiv, npert, eps, info);
}
