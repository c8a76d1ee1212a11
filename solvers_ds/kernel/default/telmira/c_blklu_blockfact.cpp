// c_blklu_blockfact.cpp - dense LU of a complex diagonal block with complete
// pivoting and replacement of small pivots, unblocked.
#include <cmath>
#include <complex>

#include "c_blklu.h"
#include "dense/vek_dense.h"

namespace {

template <class T> inline T &at(T *a, int lda, int i, int j) {
  return a[(i - 1) + static_cast<long>(j - 1) * lda];
}

template <class R> inline R magnitude(const std::complex<R> &v) {
  return std::sqrt(v.real() * v.real() + v.imag() * v.imag());
}

// A pivot judged too small becomes +-rep + 0i by the sign of its real part.
template <class R> inline void replace(std::complex<R> &d, R rep, int *npert) {
  ++*npert;
  d = std::complex<R>(d.real() < R(0) ? -rep : rep, R(0));
}

template <class R>
void complex_blockfact(const int *n, std::complex<R> *a, const int *lda, int *ipiv, int *jpiv,
                       int *npert, const R *eps, int *info) {
  typedef std::complex<R> T;
  const int N = *n, ld = *lda;
  const R thr = *eps;
  const R rep = *eps == R(0) ? R(1.0e-13) : std::abs(*eps);
  *info = 0;
  if (N < 1) return;
  for (int j = 1; j < N; ++j) {
    // Largest magnitude of the trailing square, row by row; the later entry
    // wins a tie.
    int p = j, q = j;
    R big = R(0);
    for (int i = j; i <= N; ++i)
      for (int k = j; k <= N; ++k) {
        const R v = magnitude(at(a, ld, i, k));
        if (v >= big) {
          big = v;
          p = i;
          q = k;
        }
      }
    if (p != j)
      for (int k = 1; k <= N; ++k) std::swap(at(a, ld, p, k), at(a, ld, j, k));
    ipiv[j - 1] = p;
    if (q != j)
      for (int i = 1; i <= N; ++i) std::swap(at(a, ld, i, q), at(a, ld, i, j));
    jpiv[j - 1] = q;

    T &d = at(a, ld, j, j);
    if (magnitude(d) <= thr) replace(d, rep, npert);  // a NaN stays
    // Multipliers: times conj(d), scaled by 1/|d|^2.
    const R dr = d.real(), di = d.imag();
    const R s = R(1) / (dr * dr + di * di);
    for (int i = j + 1; i <= N; ++i) {
      T &x = at(a, ld, i, j);
      const R xr = x.real(), xi = x.imag();
      x = T((xr * dr + xi * di) * s, (xi * dr - xr * di) * s);
    }
    const int m = N - j, one = 1;
    const T mone = T(-1);
    vekd::ger<T>(&m, &m, &mone, &at(a, ld, j + 1, j), &one, &at(a, ld, j, j + 1), lda,
                 &at(a, ld, j + 1, j + 1), lda);
  }
  // The last column has no search and nothing below its pivot.
  ipiv[N - 1] = N;
  jpiv[N - 1] = N;
  T &d = at(a, ld, N, N);
  if (magnitude(d) < thr) replace(d, rep, npert);
}

}  // namespace

template <>
void blklu_blockfact<tlm::zcomplex>(const int *n, tlm::zcomplex *a, const int *lda,
                                    int *ipiv, int *jpiv, int *npert, const double *eps,
                                    int *info) {
  complex_blockfact<double>(n, a, lda, ipiv, jpiv, npert, eps, info);
}
template <>
void blklu_blockfact<tlm::ccomplex>(const int *n, tlm::ccomplex *a, const int *lda,
                                    int *ipiv, int *jpiv, int *npert, const float *eps,
                                    int *info) {
  complex_blockfact<float>(n, a, lda, ipiv, jpiv, npert, eps, info);
}

void c_blklu_blockfact(const int *n, tlm::zcomplex *a, const int *lda, int *ipiv, int *jpiv,
                       int *npert, const double *eps, int *info) {
  complex_blockfact<double>(n, a, lda, ipiv, jpiv, npert, eps, info);
}
void sp_c_blklu_blockfact(const int *n, tlm::ccomplex *a, const int *lda, int *ipiv,
                          int *jpiv, int *npert, const float *eps, int *info) {
  complex_blockfact<float>(n, a, lda, ipiv, jpiv, npert, eps, info);
}
