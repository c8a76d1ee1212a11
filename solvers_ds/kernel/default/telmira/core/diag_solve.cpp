// diag_solve.cpp - the diagonal-matrix shortcut: a matrix with one stored
// entry per row is checked, its signs counted and solved in one pass, with no
// handle state, no ordering and no factor.
#include <cmath>
#include <vector>
#include <complex>

#include "diag_solve.h"

namespace {

// A zero entry, or one that is not a finite number, cannot be divided by.
template <class T> bool is_zero(const T &d) { return std::abs(d) == 0.0 || !std::isfinite(d); }
template <class R> bool is_zero(const std::complex<R> &d) {
  return std::sqrt(d.real() * d.real() + d.imag() * d.imag()) == R(0) ||
         !std::isfinite(d.real()) || !std::isfinite(d.imag());
}

template <class T> T reciprocal(const T &d) { return T(1) / d; }
template <class R> std::complex<R> reciprocal(const std::complex<R> &d) {
  // Scaled by the larger part, so that no square overflows or underflows:
  // conj(d) / |d|^2 would give 0 for a value above 1e154.
  const R re = d.real(), im = d.imag();
  if (std::fabs(re) >= std::fabs(im)) {
    const R t = im / re, den = re + im * t;
    return std::complex<R>(R(1) / den, -t / den);
  }
  const R t = re / im, den = im + re * t;
  return std::complex<R>(t / den, R(-1) / den);
}

template <class T>
void solve_rows(int n, int nb, const int *ia, const int *ja, const T *a,
                const T *b, T *x, int threads) {
  // ia, ja one-based; row i has its one value at a(i).
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int i = 1; i <= n; ++i) {
    const int c = ja[ia[i - 1] - 1];
    if constexpr (!tlm::value_traits<T>::is_complex) {
      if (nb <= 1) {
        x[c - 1] = b[i - 1] / a[i - 1];
        continue;
      }
    }
    const T r = reciprocal(a[i - 1]);
    const int m = nb > 1 ? nb : 1;
    for (int k = 0; k < m; ++k)
      x[c - 1 + static_cast<long>(k) * n] = b[i - 1 + static_cast<long>(k) * n] * r;
  }
}

}  // namespace

template <class T>
void diag_solve(const int *neqns, const int *nb, const int *ia, const int *ja,
                const T *a, T *b, T *x, int *error, const int *ctl6,
                const int *solve, const int *threads, int *pos, int *neg) {
  const int n = *neqns;
  int npos = 0, nneg = 0;
  // Two rows in one column make the matrix singular, found before anything
  // is written, whether or not this call solves.
  std::vector<unsigned char> taken(n > 0 ? n : 0, 0);
  // Rows of one entry each that end at n + 1 start at 1; a first start
  // other than 1 would shift every column read below.
  if (n > 0 && ia[0] != 1) {
    if (pos) { *pos = 0; *neg = 0; }
    *error = 1;
    return;
  }
  for (int i = 1; i <= n; ++i) {
    if (static_cast<long long>(ia[i]) - ia[i - 1] != 1) {  // any int, garbage too
      if (pos) { *pos = npos; *neg = nneg; }
      *error = i;
      return;
    }
    // The one entry of a row may stand in any column, but in one that
    // exists.
    const int c = ja[ia[i - 1] - 1];
    if (c < 1 || c > n) {
      if (pos) { *pos = npos; *neg = nneg; }
      *error = i;
      return;
    }
    const T d = a[i - 1];
    if (is_zero(d) || taken[c - 1]) {
      if (pos) { *pos = npos; *neg = nneg; }
      *error = -i;
      return;
    }
    taken[c - 1] = 1;
    if constexpr (!tlm::value_traits<T>::is_complex) {
      if (d > T(0)) ++npos; else ++nneg;
    }
  }
  if (pos) { *pos = npos; *neg = nneg; }
  *error = 0;
  if (*solve != 1) return;
  const int nrhs = *nb;
  solve_rows(n, nrhs, ia, ja, a, b, x, *threads > 0 ? *threads : 1);
  if (*ctl6 == 1) {
    const long len = static_cast<long>(n) * (nrhs > 1 ? nrhs : 1);
    for (long k = 0; k < len; ++k) b[k] = x[k];
  }
}

template void diag_solve<double>(const int *, const int *, const int *, const int *,
                                 const double *, double *, double *, int *, const int *,
                                 const int *, const int *, int *, int *);
template void diag_solve<float>(const int *, const int *, const int *, const int *,
                                const float *, float *, float *, int *, const int *,
                                const int *, const int *, int *, int *);
template void diag_solve<tlm::zcomplex>(const int *, const int *, const int *,
                                            const int *, const tlm::zcomplex *,
                                            tlm::zcomplex *, tlm::zcomplex *,
                                            int *, const int *, const int *, const int *,
                                            int *, int *);
template void diag_solve<tlm::ccomplex>(const int *, const int *, const int *,
                                            const int *, const tlm::ccomplex *,
                                            tlm::ccomplex *, tlm::ccomplex *,
                                            int *, const int *, const int *, const int *,
                                            int *, int *);

void diag_solve_d(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const double *a, double *b, double *x, int *error,
                  const int *ctl6, const int *solve, const int *threads,
                  int *ctl22, int *ctl23) {
  diag_solve<double>(neqns, nb, ia, ja, a, b, x, error, ctl6, solve, threads,
                     ctl22, ctl23);
}
void diag_solve_s(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const float *a, float *b, float *x, int *error,
                  const int *ctl6, const int *solve, const int *threads,
                  int *ctl22, int *ctl23) {
  diag_solve<float>(neqns, nb, ia, ja, a, b, x, error, ctl6, solve, threads,
                    ctl22, ctl23);
}
void diag_solve_z(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const double *a, double *b, double *x, int *error,
                  const int *ctl6, const int *solve, const int *threads) {
  using Z = tlm::zcomplex;
  diag_solve<Z>(neqns, nb, ia, ja, reinterpret_cast<const Z *>(a),
                reinterpret_cast<Z *>(b), reinterpret_cast<Z *>(x), error, ctl6,
                solve, threads, nullptr, nullptr);
}
void diag_solve_c(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const float *a, float *b, float *x, int *error,
                  const int *ctl6, const int *solve, const int *threads) {
  using C = tlm::ccomplex;
  diag_solve<C>(neqns, nb, ia, ja, reinterpret_cast<const C *>(a),
                reinterpret_cast<C *>(b), reinterpret_cast<C *>(x), error, ctl6,
                solve, threads, nullptr, nullptr);
}
