// scalar_kind.h - what a transpose means for the values of a factorization
// family, and the small value rules that the kernels share.
//
// A symmetric kind transposes (real values, and complex symmetric values of
// type 6); a Hermitian kind conjugates as it transposes (types 4 and -4).
// For real values the two are the same. The kernels are written once over
// the value type T and the kind; conj() is the identity wherever the kind
// does not conjugate, so that the code paths of all four value types stay
// the same.
#ifndef TELMIRA_SCALAR_KIND_H
#define TELMIRA_SCALAR_KIND_H

#include <cmath>
#include <complex>

#include "telmira_types.h"

namespace tlm {

template <class T, bool Hermitian> struct scalar_kind {
  typedef T value;
  typedef real_of<T> real;
  static constexpr bool complex = value_traits<T>::is_complex;
  static constexpr bool conjugates = Hermitian && complex;
  // The letter of a transposed operand in the dense calls.
  static constexpr const char *trans = conjugates ? "C" : "T";
  static T conj(const T &v) {
    if constexpr (conjugates)
      return std::conj(v);
    else
      return v;
  }
};

// |re| + |im|, the measure of the Bunch-Kaufman searches; |x| for real x.
template <class R> inline R abs1(R x) { return std::fabs(x); }
template <class R> inline R abs1(const std::complex<R> &z) {
  return std::fabs(z.real()) + std::fabs(z.imag());
}

template <class R> inline R real_part(R x) { return x; }
template <class R> inline R real_part(const std::complex<R> &z) { return z.real(); }

// 1/d; for complex d from its parts, with one division by re^2 + im^2.
template <class R> inline R reciprocal(R d) { return R(1) / d; }
template <class R> inline std::complex<R> reciprocal(const std::complex<R> &d) {
  const R q = R(1) / (d.real() * d.real() + d.imag() * d.imag());
  return std::complex<R>(d.real() * q, -d.imag() * q);
}

// The test and the replacement of a small pivot: thr is eps, rep its
// magnitude; an eps of 0 replaces exact zeros only, by the given default.
template <class R> inline void pivot_threshold(R eps, R fallback, R *thr, R *rep) {
  *thr = eps;
  *rep = eps == R(0) ? fallback : std::abs(eps);
}

// A replaced pivot keeps the sign of its real part: -rep below 0, else rep.
template <class T> inline T replaced_pivot(const T &d, real_of<T> rep) {
  return real_part(d) < 0 ? T(-rep) : T(rep);
}

// Entry (i, j), one-based, of a column-major block with leading dimension ld.
template <class T> inline T &at(T *a, int ld, int i, int j) {
  return a[(i - 1) + static_cast<long>(j - 1) * ld];
}
template <class T> inline const T &at(const T *a, int ld, int i, int j) {
  return a[(i - 1) + static_cast<long>(j - 1) * ld];
}

// Exchanges columns i and j (one-based) of a block, rows entries each.
template <class T> inline void swap_columns(T *a, int lda, int rows, int i, int j) {
  T *x = a + static_cast<long>(i - 1) * lda;
  T *y = a + static_cast<long>(j - 1) * lda;
  for (int k = 0; k < rows; ++k) {
    const T t = x[k];
    x[k] = y[k];
    y[k] = t;
  }
}

// Exchanges rows i and j (one-based) of a block, over cols columns.
template <class T> inline void swap_rows(T *a, int lda, int cols, int i, int j) {
  for (int c = 1; c <= cols; ++c) {
    const T t = at(a, lda, i, c);
    at(a, lda, i, c) = at(a, lda, j, c);
    at(a, lda, j, c) = t;
  }
}

template <class T> inline void clear(T *x, long count) {
  for (long i = 0; i < count; ++i) x[i] = T(0);
}

}  // namespace tlm

// One explicit instantiation of a routine template, its argument list taken
// from the template itself: TLM_INSTANTIATE(blkl<double>); and the four of a
// template over the value type: TLM_INSTANTIATE_EACH(blkl).
#define TLM_INSTANTIATE(...) template decltype(__VA_ARGS__) __VA_ARGS__;
#define TLM_INSTANTIATE_EACH(F)                              \
  TLM_INSTANTIATE(F<double>) TLM_INSTANTIATE(F<float>)       \
  TLM_INSTANTIATE(F<tlm::zcomplex>) TLM_INSTANTIATE(F<tlm::ccomplex>)

#endif
