// telmira_refine.cpp - iterative refinement: the first solve, then steps of
// r = b - A x, A d = r, x = x + d with the stored factors, until a stop
// rule holds.
//
// handle[CGS_ARR] (work) holds, with v the values of all right-hand sides:
//   iparam(8) >= 0: first v  - the caller's b when the solution overwrites
//                              it, else the residual r;
//                   second v - A x, then the correction d;
//   iparam(8) <  0: first v  - the caller's b when the solution overwrites
//                              it, else the work vector of the correction's
//                              solve;
//                   2 v      - the solution in the extended format;
//                   2 v      - accumulators of the mirrored entries
//                              (triangle storage, transposed product);
//   then 2 comi(15) nb values of scratch for the product.
#include "telmira_refine.h"
#include "telmira_solve.h"
#include "telmira_slots.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <complex>
#include <cstring>
#include <type_traits>

#include "gmres_refine.h"
#include "residual_product.h"
#include "service/vek_serv_memory.h"
#include "service/vek_serv_clock.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

namespace {

// Infinity norm of A as the caller stores it: the largest row sum of
// magnitudes, the mirrored entries of triangle storage included.
// rowsum: n values of the working precision, for triangle storage.
template <class T> inline T real_part(const T &v) { return v; }
template <class R> inline R real_part(const std::complex<R> &v) { return v.real(); }

template <class T>
double matrix_norm_inf(int n, int mtype, const int *ia, const int *ja, const T *a,
                       real_of<T> *rowsum) {
  double norm = 0.0;
  if (symmetric_storage(mtype) == 0) {
    for (int i = 1; i <= n; ++i) {
      double sum = 0.0;
      for (int k = ia[i - 1]; k < ia[i]; ++k) sum += std::abs(a[k - 1]);
      norm = std::max(norm, sum);
    }
    return norm;
  }
  // A Hermitian diagonal counts by its real part alone (it is not read).
  const bool hermitian = mtype == 4 || mtype == -4;
  for (int i = 0; i < n; ++i) rowsum[i] = 0;
  for (int i = 1; i <= n; ++i)
    for (int k = ia[i - 1]; k < ia[i]; ++k) {
      const int j = ja[k - 1];
      const real_of<T> v =
          hermitian && j == i ? std::abs(real_part(a[k - 1])) : std::abs(a[k - 1]);
      rowsum[i - 1] += v;
      if (j != i) rowsum[j - 1] += v;
    }
  for (int i = 0; i < n; ++i) norm = std::max(norm, static_cast<double>(rowsum[i]));
  return norm;
}

// The normwise backward error ||r|| / (||A|| ||x|| + ||b||) in infinity
// norms, the largest over the right-hand sides; NaN when a value is NaN.
template <class T>
double backward_error(int n, int nb, double anorm, const T *r, const T *x, const T *b) {
  double worst = 0.0;
  for (int k = 0; k < nb; ++k) {
    const std::size_t off = static_cast<std::size_t>(k) * n;
    double rn = 0.0, xn = 0.0, bn = 0.0;
    for (int i = 0; i < n; ++i) {
      const double ri = std::abs(r[off + i]), xi = std::abs(x[off + i]),
                   bi = std::abs(b[off + i]);
      if (!(ri <= rn)) rn = ri;
      if (!(xi <= xn)) xn = xi;
      if (!(bi <= bn)) bn = bi;
    }
    const double den = anorm * xn + bn;
    const double w = den > 0.0 ? rn / den : rn;
    if (!(w <= worst)) worst = w;
  }
  return worst;
}

// The areas and operands of the accuracy check.
template <class T> struct guard_areas {
  const T *a;
  const int *ia, *ja;
  int n, nb;
  const T *rhs;  // the right-hand sides
  T *sol;        // the solution, improved in place
  T *ax;         // n nb values: A x, then r in its place, then d
  T *wv;         // n nb values: the work vector of the correction's solve
  T *dkeep;      // n nb values: the solution before the last correction
  T *scratch;    // 2 threads nb values: the scratch of the product
};

// Where plain steps stall (many perturbed pivots), GMRES with the factors
// as preconditioner, each right-hand side on its own; its products count
// as steps. The work area comes from the heap and is given back; without
// it the solution stays as the steps left it. Returns the backward error.
template <class T, class Solve>
double krylov_guard(const guard_areas<T> &g, int *comi, double anorm, double target,
                    int *steps, const Solve &solve) {
  int n = g.n, one = 1;
  int mtype = COMI(CI_MTYPE), threads = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
  const int trans = COMI(CI_TRANSPOSED) != 0 ? 1 : 0;
  // A cycle of up to 100 vectors, fewer where n is small or the basis would
  // pass 256 MB; at most 300 products a right-hand side.
  int m = std::min(100, std::max(1, n));
  while (m > 10 && gmres_work_values(n, m) * sizeof(T) > (std::size_t(256) << 20)) m /= 2;
  const int max_iter = std::min(300, 3 * n);
  const std::size_t values = gmres_work_values(n, m);
  T *area = values * sizeof(T) <= static_cast<std::size_t>(INT_MAX)
                ? static_cast<T *>(vek_serv_malloc(static_cast<int>(values * sizeof(T)), 64))
                : nullptr;
  double worst = 0.0;
  const std::size_t N = static_cast<std::size_t>(n);
  if (area == nullptr) {
    // No room for the basis: the measure of the steps stands.
    for (int k = 0; k < g.nb; ++k) {
      residual_product<T>(&trans, &n, &one, &mtype, &threads, g.ia, g.ja, g.a, g.sol + N * k,
                          g.ax, g.scratch);
      for (int i = 0; i < n; ++i) g.ax[i] = g.rhs[N * k + i] - g.ax[i];
      worst = std::max(worst, backward_error<T>(n, 1, anorm, g.ax, g.sol + N * k, g.rhs + N * k));
    }
    return worst;
  }
  const gmres_work<T> wk = gmres_work_in(area, n, m);
  auto op = [&](const T *in, T *out) {
    residual_product<T>(&trans, &n, &one, &mtype, &threads, g.ia, g.ja, g.a, in, out,
                        g.scratch);
  };
  auto prec = [&](T *out, const T *in) {
    // The solve reads its right-hand side and leaves it as it was.
    const int kept8 = COMI(CI_OVER_B);
    COMI(CI_OVER_B) = 0;
    solve(out, const_cast<T *>(in), &one);
    COMI(CI_OVER_B) = kept8;
    return COMI(CI_STATUS);
  };
  for (int k = 0; k < g.nb; ++k) {
    int iters = 0, failed = 0;
    const double w = gmres_refine<T>(n, anorm, g.rhs + N * k, g.sol + N * k, target, max_iter,
                                     wk, op, prec, &iters, &failed);
    *steps += iters;
    if (!(w <= worst)) worst = w;
    if (failed != 0) break;
  }
  vek_serv_free(area);
  return worst;
}

// The solve vouches for its result. The backward error of the solution is
// measured against the caller's matrix; above a few units of the
// precision's rounding, further steps in working precision run for as long
// as each at least halves it (at most guard_steps of them, none when
// refinement is switched off), and a step that makes it worse is taken
// back. A backward error that stays above the square root of the rounding
// unit is no solution: status -122. The steps done before (steps_before)
// and here go to comi(65); the backward error to comr[17].
template <class T, class Solve>
void accuracy_guard(const guard_areas<T> &g, int *comi, double *comr, int *ooc_l,
                    int steps_before, Solve solve) {
  typedef real_of<T> R;
  const double unit = sizeof(R) == sizeof(float) ? 5.9604644775390625e-08
                                                 : 1.1102230246251565e-16;
  const double target = 64.0 * unit, limit = std::sqrt(unit);
  const int guard_steps = 10;
  int n = g.n, nb = g.nb;
  int mtype = COMI(CI_MTYPE), threads = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
  const int trans = COMI(CI_TRANSPOSED) != 0 ? 1 : 0;
  const std::size_t v = static_cast<std::size_t>(n) * nb;
  const double anorm = matrix_norm_inf<T>(n, mtype, g.ia, g.ja, g.a, reinterpret_cast<R *>(g.ax));
  auto measure = [&]() {
    residual_product<T>(&trans, &n, &nb, &mtype, &threads, g.ia, g.ja, g.a, g.sol, g.ax,
                        g.scratch);
    for (std::size_t q = 0; q < v; ++q) g.ax[q] = g.rhs[q] - g.ax[q];
    return backward_error<T>(n, nb, anorm, g.ax, g.sol, g.rhs);
  };
  double omega = measure();
  int extra = 0;
  while (omega > target && COMI(CI_NO_REFINEMENT) == 0 && extra < guard_steps) {
    // d overwrites r.
    const int kept8 = COMI(CI_OVER_B);
    COMI(CI_OVER_B) = 1;
    solve(g.wv, g.ax);
    COMI(CI_OVER_B) = kept8;
    if (COMI(CI_STATUS) != 0 || (ooc_l != nullptr && OOCL(OL_STATUS) != 0)) return;
    for (std::size_t q = 0; q < v; ++q) {
      g.dkeep[q] = g.sol[q];
      g.sol[q] += g.ax[q];
    }
    ++extra;
    const double before = omega;
    omega = measure();
    if (!(omega <= before)) {
      // Taken back by a copy: a correction far larger than the solution
      // would not subtract back to it.
      for (std::size_t q = 0; q < v; ++q) g.sol[q] = g.dkeep[q];
      omega = before;
      break;
    }
    if (!(omega <= 0.5 * before)) break;
  }
  if (omega > target && COMI(CI_NO_REFINEMENT) == 0 && !std::isnan(omega)) {
    krylov_guard(g, comi, anorm, target, &extra, solve);
    // What the solve vouches for is measured on the solution it returns.
    omega = measure();
  }
  COMI(CI_REFINE_STEPS) = steps_before + extra;
  comr[17] = omega;
  // A backward error that is not a number (an infinite entry of A times the
  // solution) vouches for nothing either.
  if (!(omega <= limit)) COMI(CI_STATUS) = ST_INACCURATE_SOLUTION;
}

template <class T>
void refine_loop(const T *a, const int *ia, const int *ja, const int *nb, T *b, T *x,
                 void *fi, const int *comx, const void *factors, void *work, T *cgs,
                 const void *s, const int *m, int *comi, int *iparam, double *comr,
                 int *timer_flags, int *ooc_l) {
  typedef real_of<T> R;
  int n = COMI(CI_N), K = *nb;
  const int count = n * K;
  const std::size_t v = static_cast<std::size_t>(count);
  const int ctl8 = CTRL(IP_REFINE);
  const bool extended = ctl8 < 0;
  const int wanted = magnitude_of(ctl8);
  const bool over_b = COMI(CI_OVER_B) == 1;
  // The extended solution and accumulators start on a boundary of their
  // own type: one value of padding behind the first area when needed.
  const std::size_t pad =
      extended && (reinterpret_cast<std::uintptr_t>(cgs + v) % alignof(ext_t<T>)) != 0 ? 1 : 0;
  const int trans = COMI(CI_TRANSPOSED) != 0 ? 1 : 0;
  int mtype = COMI(CI_MTYPE), threads = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
  COMI(CI_REFINE_STEPS) = 0;

  // 1. |b| and the saved copy of b.
  T *first = cgs;
  const double Bn = refine_sum_abs<T>(&count, b);
  if (over_b) std::memcpy(first, b, v * sizeof(T));
  const T *rhs = over_b ? first : b;
  T *sol = over_b ? b : x;

  // 2. The first solve.
  double t0 = 0.0, t1 = 0.0;
  auto solve = [&](T *xs, T *bs, const int *count = nullptr) {
    telmira_clock(&t0);
    telmira_solve<R>(count != nullptr ? count : nb, xs, bs, fi, comx, factors, work, s, m, comi, ooc_l);
    telmira_clock(&t1);
    comr[6] += t1 - t0;
    timer_flags[6] = 1;
  };
  comr[6] = 0.0;
  solve(x, b);
  if (COMI(CI_STATUS) != 0 || (ooc_l != nullptr && OOCL(OL_STATUS) != 0)) return;

  // 3. Is there refinement to do?
  int i = 0;
  T *scratch = nullptr;
  if (COMI(CI_NO_REFINEMENT) != 0 || (COMI(CI_NPERT) <= 0 && ctl8 == 0)) goto guard;
  {

  // 4., 5.
  const double Xn = refine_sum_abs<T>(&count, sol);
  double prev = Bn;
  T *second = cgs + v;
  ext_t<T> *xe = reinterpret_cast<ext_t<T> *>(cgs + v + pad);
  // Accumulators of the extended residual: triangle storage and the
  // transposed product add into rows other than their own.
  const bool accumulate = COMI(CI_TRIANGLE) == 1 || trans != 0;
  ext_t<T> *xacc = accumulate ? reinterpret_cast<ext_t<T> *>(cgs + 3 * v + pad) : nullptr;
  scratch = cgs + (extended ? (accumulate ? 5 : 3) * v + pad : 2 * v);
  for (;;) {
    ++i;
    // Residual.
    double Rn = 0.0;
    T *r = nullptr;
    if (!extended) {
      residual_product<T>(&trans, &n, nb, &mtype, &threads, ia, ja, a, sol, second, scratch);
      r = over_b ? x : first;
      for (std::size_t q = 0; q < v; ++q) r[q] = rhs[q] - second[q];
      Rn = refine_sum_abs<T>(&count, r);
    } else {
      if (i == 1) refine_to_extended<T>(&count, sol, xe);
      r = sol;  // the working solution's array holds r; xe holds x
      Rn = residual_extended<T>(&trans, &n, nb, &mtype, ia, ja, a, xe, rhs, r, xacc);
    }
    // Correction: A d = r.
    T *d = nullptr;
    if (!extended) {
      // The correction comes back in the work vector, whatever the caller
      // asked for the solution.
      const int kept8 = COMI(CI_OVER_B);
      COMI(CI_OVER_B) = 0;
      solve(second, r);
      COMI(CI_OVER_B) = kept8;
      d = second;
    } else {
      // In place on r: the solution of the solve overwrites its b.
      const int kept8 = COMI(CI_OVER_B);
      COMI(CI_OVER_B) = 1;
      solve(over_b ? x : first, r);
      COMI(CI_OVER_B) = kept8;
      d = r;
    }
    if (COMI(CI_STATUS) != 0 || (ooc_l != nullptr && OOCL(OL_STATUS) != 0)) return;
    // Update.
    double Dn = 0.0;
    if (!extended) {
      for (std::size_t q = 0; q < v; ++q) sol[q] += d[q];
      Dn = refine_sum_abs<T>(&count, d);
    } else {
      Dn = refine_update_extended<T>(&count, xe, d);
    }
    const bool have_e = Bn != 0.0 && Xn != 0.0;
    const double E = have_e ? Dn / Xn : 0.0;

    bool stop = false;
    if (i == 2 && ctl8 == 0) {
      CTRL(IP_CGS) = -34;
      stop = true;
    } else if (i == 1 && Rn > Bn) {
      prev = 2.0 * Rn;
    }
    if (!stop && i == wanted) stop = true;
    if (!stop) {
      if (Rn >= 0.9 * prev) {
        if (i > 3 || i >= wanted) {
          stop = true;
          if (have_e && E > 0.5) COMI(CI_STATUS) = -112;
        }
      } else {
        prev = Rn;
      }
    }
    if (stop) break;
  }
  COMI(CI_REFINE_STEPS) = i;
  if (extended) refine_from_extended<T>(&count, xe, sol);
  if (COMI(CI_STATUS) != 0) return;
  }

guard:
  {
    if (scratch == nullptr)
      scratch = cgs + (extended ? (COMI(CI_TRIANGLE) == 1 || trans != 0 ? 5 : 3) * v + pad : 2 * v);
    // Areas of the check: A x, then r in its place, then the correction d;
    // the work vector of the correction's solve (the caller's x when the
    // solution overwrites b, as in the steps above); the last correction,
    // behind the scratch of the product.
    guard_areas<T> g{a, ia, ja, n, K, rhs, sol, cgs + v,
                     extended ? cgs + 2 * v : (over_b ? x : first),
                     cgs + (extended ? (COMI(CI_TRIANGLE) == 1 || trans != 0 ? 5 : 3) : 2) * v + pad +
                         2 * static_cast<std::size_t>(threads) * K,
                     scratch};
    accuracy_guard<T>(g, comi, comr, ooc_l, i, solve);
  }
}

}  // namespace

template <class R>
void telmira_refine(const void *a, const int *ia, const int *ja, const int *nb, void *b,
                    void *x, void *fi, const int *comx, const void *factors, void *work,
                    void *cgs, const void *s, const int *m, int *comi, int *iparam,
                    double *comr, int *timer_flags, int *ooc_l) {
  COMI(CI_STATUS) = 0;
  if (COMI(CI_WORDS) == 1)
    refine_loop<R>(static_cast<const R *>(a), ia, ja, nb, static_cast<R *>(b),
                   static_cast<R *>(x), fi, comx, factors, work, static_cast<R *>(cgs), s, m,
                   comi, iparam, comr, timer_flags, ooc_l);
  else
    refine_loop<std::complex<R>>(static_cast<const std::complex<R> *>(a), ia, ja, nb,
                                 static_cast<std::complex<R> *>(b),
                                 static_cast<std::complex<R> *>(x), fi, comx, factors, work,
                                 static_cast<std::complex<R> *>(cgs), s, m, comi, iparam,
                                 comr, timer_flags, ooc_l);
}

template <class R>
void telmira_vouch(const void *a, const int *ia, const int *ja, const int *nb,
                   const void *rhs, void *sol, void *cgs, void *fi, const int *comx,
                   const void *factors, void *work, const void *s, const int *m, int *comi,
                   double *comr, int *timer_flags, int *ooc_l) {
  auto run = [&](auto *value) {
    typedef std::remove_pointer_t<decltype(value)> T;
    const std::size_t v = static_cast<std::size_t>(COMI(CI_N)) * *nb;
    T *area = static_cast<T *>(cgs);
    guard_areas<T> g{static_cast<const T *>(a), ia, ja, COMI(CI_N), *nb,
                     static_cast<const T *>(rhs), static_cast<T *>(sol), area, area + v,
                     area + 2 * v, area + 3 * v};
    auto solve = [&](T *xs, T *bs, const int *count = nullptr) {
      double t0 = 0.0, t1 = 0.0;
      telmira_clock(&t0);
      telmira_solve<R>(count != nullptr ? count : nb, xs, bs, fi, comx, factors, work, s, m, comi, ooc_l);
      telmira_clock(&t1);
      comr[6] += t1 - t0;
      timer_flags[6] = 1;
    };
    accuracy_guard<T>(g, comi, comr, ooc_l, 0, solve);
  };
  COMI(CI_STATUS) = 0;
  if (COMI(CI_WORDS) == 1)
    run(static_cast<R *>(nullptr));
  else
    run(static_cast<std::complex<R> *>(nullptr));
}

#define TELMIRA_REFINE_INSTANCE(R)                                                       \
  template void telmira_refine<R>(const void *, const int *, const int *, const int *,   \
                                  void *, void *, void *, const int *, const void *,     \
                                  void *, void *, const void *, const int *, int *,      \
                                  int *, double *, int *, int *);
TELMIRA_REFINE_INSTANCE(double)
template void telmira_vouch<double>(const void *, const int *, const int *, const int *,
                                    const void *, void *, void *, void *, const int *,
                                    const void *, void *, const void *, const int *, int *,
                                    double *, int *, int *);
template void telmira_vouch<float>(const void *, const int *, const int *, const int *,
                                   const void *, void *, void *, void *, const int *,
                                   const void *, void *, const void *, const int *, int *,
                                   double *, int *, int *);
TELMIRA_REFINE_INSTANCE(float)

}  // namespace tlm
