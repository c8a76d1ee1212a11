// blklu_blockfact.cpp - dense LU of a diagonal block with complete pivoting
// and replacement of small pivots, unblocked, for real and complex blocks.
#include <cmath>
#include <complex>
#include <utility>

#include "blklu.h"
#include "dense/vek_dense.h"
#include "scalar_kind.h"

using tlm::at;

namespace {

// The measure of the search: |x|, or sqrt(re^2 + im^2) from the parts.
template <class R> inline R magnitude(R x) { return std::abs(x); }
template <class R> inline R magnitude(const std::complex<R> &v) {
  return std::sqrt(v.real() * v.real() + v.imag() * v.imag());
}

// The multipliers below pivot d: a division each for real values; complex
// values are multiplied by conj(d) and scaled by 1/(re^2 + im^2).
template <class R> inline void divide_column(R *x, int count, R d) {
  for (int i = 0; i < count; ++i) x[i] /= d;
}
template <class R>
inline void divide_column(std::complex<R> *x, int count, const std::complex<R> &d) {
  const R dr = d.real(), di = d.imag();
  const R s = R(1) / (dr * dr + di * di);
  for (int i = 0; i < count; ++i) {
    const R xr = x[i].real(), xi = x[i].imag();
    x[i] = std::complex<R>((xr * dr + xi * di) * s, (xi * dr - xr * di) * s);
  }
}

}  // namespace

template <class T>
void blklu_blockfact(const int *n, T *a, const int *lda, int *ipiv, int *jpiv, int *npert,
                     const tlm::real_of<T> *eps, int *info) {
  typedef tlm::real_of<T> R;
  constexpr bool complex = tlm::value_traits<T>::is_complex;
  const int N = *n, ld = *lda;
  R thr, rep;
  tlm::pivot_threshold(*eps, R(1.0e-13), &thr, &rep);
  *info = 0;
  if (N < 1) return;
  // Complex blocks take the last column as it stands.
  const int steps = complex ? N - 1 : N;
  for (int j = 1; j <= steps; ++j) {
    // Largest magnitude of the trailing square, row by row; the later entry
    // wins a tie, so that a zero square yields its last entry.
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
    if (magnitude(d) <= thr) {  // false for a NaN, which stays as it is
      ++*npert;
      d = tlm::replaced_pivot(d, rep);
    }
    divide_column(&at(a, ld, j + 1, j), N - j, d);
    if (j < N) {
      const int m = N - j, one = 1;
      const T mone = T(-1);
      vekd::ger<T>(&m, &m, &mone, &at(a, ld, j + 1, j), &one, &at(a, ld, j, j + 1), lda,
                   &at(a, ld, j + 1, j + 1), lda);
    }
  }
  if constexpr (complex) {
    ipiv[N - 1] = N;
    jpiv[N - 1] = N;
    T &d = at(a, ld, N, N);
    if (magnitude(d) < thr) {
      ++*npert;
      d = tlm::replaced_pivot(d, rep);
    }
  }
}

TLM_INSTANTIATE_EACH(blklu_blockfact)
