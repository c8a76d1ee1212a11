// gmres_refine.h - the last resort of the accuracy check: restarted GMRES
// on A M^-1 y = r with the stored factors as M, one right-hand side at a
// time. Factors with perturbed pivots are the exact factors of a matrix
// that differs from A in a few entries, so that A M^-1 is the identity
// plus a matrix of low rank: a Krylov space of about that rank removes
// what plain refinement steps cannot, where those stall.
//
// The caller hands over all work areas; nothing is allocated here.
#ifndef TELMIRA_GMRES_REFINE_H
#define TELMIRA_GMRES_REFINE_H

#include <cmath>
#include <complex>
#include <cstddef>

namespace tlm {

namespace gmres_detail {

template <class T> inline T conj_of(const T &v) { return v; }
template <class R> inline std::complex<R> conj_of(const std::complex<R> &v) {
  return std::conj(v);
}

template <class T> double norm2(int n, const T *v) {
  double s = 0.0;
  for (int i = 0; i < n; ++i) {
    const double a = std::abs(v[i]);
    s += a * a;
  }
  return std::sqrt(s);
}

template <class T> double norm_inf(int n, const T *v) {
  double s = 0.0;
  for (int i = 0; i < n; ++i) {
    const double a = std::abs(v[i]);
    if (!(a <= s)) s = a;
  }
  return s;
}

}  // namespace gmres_detail

// Work areas of one right-hand side with a Krylov space of m vectors.
template <class T> struct gmres_work {
  int m;      // vectors of a cycle
  T *V;       // n (m+1): the orthonormal basis
  T *w;       // n: A M^-1 v, then the residual
  T *z;       // n: M^-1 of a vector
  T *x0;      // n: x before the cycle's correction
  T *H;       // (m+1) m, by columns: the Hessenberg matrix
  T *g;       // m+1: the rotated right-hand side of the small problem
  T *c, *s;   // m each: the rotations
};

// Values the work of one right-hand side takes, for n equations and m
// vectors a cycle.
inline std::size_t gmres_work_values(int n, int m) {
  const std::size_t N = static_cast<std::size_t>(n), M = static_cast<std::size_t>(m);
  return N * (M + 1) + 3 * N + (M + 1) * M + (M + 1) + 2 * M;
}

template <class T> gmres_work<T> gmres_work_in(T *area, int n, int m) {
  const std::size_t N = static_cast<std::size_t>(n), M = static_cast<std::size_t>(m);
  gmres_work<T> wk;
  wk.m = m;
  wk.V = area;
  wk.w = wk.V + N * (M + 1);
  wk.z = wk.w + N;
  wk.x0 = wk.z + N;
  wk.H = wk.x0 + N;
  wk.g = wk.H + (M + 1) * M;
  wk.c = wk.g + M + 1;
  wk.s = wk.c + M;
  return wk;
}

// Improves x (n values) for the right-hand side b until the backward
// error ||b - A x|| / (anorm ||x|| + ||b||), infinity norms, is at most
// target, or max_iter products were spent, or a cycle no longer gains.
// op(in, out): out = A in. prec(out, in): out = M^-1 in, returns non-zero
// on a failed solve. Returns the backward error of x on return; iters
// counts the products. x is never left worse than it came.
template <class T, class Op, class Prec>
double gmres_refine(int n, double anorm, const T *b, T *x, double target, int max_iter,
                    const gmres_work<T> &wk, const Op &op, const Prec &prec, int *iters,
                    int *failed) {
  using namespace gmres_detail;
  typedef decltype(std::abs(T())) R;
  const int m = wk.m;
  const std::size_t N = static_cast<std::size_t>(n);
  *iters = 0;
  *failed = 0;
  const double bn = norm_inf(n, b);
  // r = b - A x into w; the backward error of x.
  auto residual = [&]() {
    op(x, wk.w);
    for (int i = 0; i < n; ++i) wk.w[i] = b[i] - wk.w[i];
    const double den = anorm * norm_inf(n, x) + bn;
    const double rn = norm_inf(n, wk.w);
    return den > 0.0 ? rn / den : rn;
  };
  double omega = residual();
  while (omega > target && *iters < max_iter) {
    const double beta = norm2(n, wk.w);
    if (!(beta > 0.0) || !std::isfinite(beta)) break;
    // The estimate of ||r||_2 that ends the cycle: below it, the infinity
    // norm is below the target for the present size of x.
    const double stop2 = 0.5 * target * (anorm * norm_inf(n, x) + bn);
    for (std::size_t i = 0; i < N; ++i) wk.V[i] = wk.w[i] / static_cast<R>(beta);
    for (int i = 0; i <= m; ++i) wk.g[i] = T(0);
    wk.g[0] = static_cast<R>(beta);
    int k = 0;  // columns of the cycle
    for (int j = 0; j < m && *iters < max_iter; ++j) {
      T *vj = wk.V + N * j;
      T *vn = wk.V + N * (j + 1);
      T *h = wk.H + static_cast<std::size_t>(m + 1) * j;
      if (prec(wk.z, vj) != 0) {
        *failed = 1;
        return omega;
      }
      op(wk.z, vn);
      ++*iters;
      // Modified Gram-Schmidt, twice where the new vector lost most of
      // its length.
      const double before = norm2(n, vn);
      for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i <= j; ++i) {
          const T *vi = wk.V + N * i;
          T d = T(0);
          for (int q = 0; q < n; ++q) d += conj_of(vi[q]) * vn[q];
          if (pass == 0)
            h[i] = d;
          else
            h[i] += d;
          for (int q = 0; q < n; ++q) vn[q] -= d * vi[q];
        }
        if (norm2(n, vn) > 0.5 * before) break;
      }
      const double hn = norm2(n, vn);
      h[j + 1] = static_cast<R>(hn);
      if (hn > 0.0)
        for (int q = 0; q < n; ++q) vn[q] /= static_cast<R>(hn);
      // The rotations of the former columns, then a new one.
      for (int i = 0; i < j; ++i) {
        const T t = wk.c[i] * h[i] + wk.s[i] * h[i + 1];
        h[i + 1] = -conj_of(wk.s[i]) * h[i] + wk.c[i] * h[i + 1];
        h[i] = t;
      }
      const double ha = std::abs(h[j]), hb = std::abs(h[j + 1]);
      const double rho = std::hypot(ha, hb);
      if (rho == 0.0) {
        wk.c[j] = T(1);
        wk.s[j] = T(0);
      } else if (ha == 0.0) {
        wk.c[j] = T(0);
        wk.s[j] = T(1);
      } else {
        wk.c[j] = static_cast<R>(ha / rho);
        wk.s[j] = (h[j] / static_cast<R>(ha)) * conj_of(h[j + 1]) / static_cast<R>(rho);
      }
      const T t = wk.c[j] * h[j] + wk.s[j] * h[j + 1];
      h[j + 1] = T(0);
      h[j] = t;
      wk.g[j + 1] = -conj_of(wk.s[j]) * wk.g[j];
      wk.g[j] = wk.c[j] * wk.g[j];
      k = j + 1;
      if (std::abs(wk.g[j + 1]) <= stop2 || hn == 0.0) break;
    }
    if (k == 0) break;
    // y from the triangle, in g; u = V y into w; x + M^-1 u.
    for (int i = k - 1; i >= 0; --i) {
      const T *hi = wk.H + i;
      T sum = wk.g[i];
      for (int q = i + 1; q < k; ++q) sum -= hi[static_cast<std::size_t>(m + 1) * q] * wk.g[q];
      const T d = hi[static_cast<std::size_t>(m + 1) * i];
      wk.g[i] = d != T(0) ? sum / d : T(0);
    }
    for (int q = 0; q < n; ++q) wk.w[q] = T(0);
    for (int i = 0; i < k; ++i) {
      const T *vi = wk.V + N * i;
      for (int q = 0; q < n; ++q) wk.w[q] += wk.g[i] * vi[q];
    }
    if (prec(wk.z, wk.w) != 0) {
      *failed = 1;
      return omega;
    }
    for (int q = 0; q < n; ++q) {
      wk.x0[q] = x[q];
      x[q] += wk.z[q];
    }
    const double before = omega;
    omega = residual();
    if (!(omega < 0.5 * before)) {
      if (!(omega <= before)) {
        // Worse: the cycle is taken back, x as it was to the last bit
        // (a correction far larger than x would not subtract back to it).
        for (int q = 0; q < n; ++q) x[q] = wk.x0[q];
        omega = before;
      }
      break;
    }
  }
  return omega;
}

}  // namespace tlm

#endif
