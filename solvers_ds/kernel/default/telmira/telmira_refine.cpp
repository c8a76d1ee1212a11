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
#include "telmira_numeric.h"

#include <cmath>
#include <complex>
#include <cstring>

#include "residual_product.h"
#include "service/vek_serv_clock.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

namespace {

template <class T>
void refine_loop(const T *a, const int *ia, const int *ja, const int *nb, T *b, T *x,
                 void *fi, const int *comx, const void *factors, void *work, T *cgs,
                 const void *s, const int *m, int *comi, int *iparam, double *comr,
                 int *timer_flags, int *ooc_l) {
  typedef real_of<T> R;
  int n = COMI(1), K = *nb;
  const int count = n * K;
  const std::size_t v = static_cast<std::size_t>(count);
  const int ctl8 = CTRL(8);
  const bool extended = ctl8 < 0;
  const int wanted = ctl8 < 0 ? -ctl8 : ctl8;
  const bool over_b = COMI(8) == 1;
  const int trans = COMI(68) != 0 ? 1 : 0;
  int mtype = COMI(12), threads = COMI(15) < 1 ? 1 : COMI(15);
  COMI(65) = 0;

  // 1. |b| and the saved copy of b.
  T *first = cgs;
  const double Bn = refine_sum_abs<T>(&count, b);
  if (over_b) std::memcpy(first, b, v * sizeof(T));
  const T *rhs = over_b ? first : b;
  T *sol = over_b ? b : x;

  // 2. The first solve.
  double t0 = 0.0, t1 = 0.0;
  auto solve = [&](T *xs, T *bs) {
    telmira_clock(&t0);
    telmira_solve<R>(nb, xs, bs, fi, comx, factors, work, s, m, comi, ooc_l);
    telmira_clock(&t1);
    comr[6] += t1 - t0;
    timer_flags[6] = 1;
  };
  comr[6] = 0.0;
  solve(x, b);
  if (COMI(50) != 0 || (ooc_l != nullptr && OOCL(11) != 0)) return;

  // 3. Is there refinement to do?
  if (COMI(73) != 0 || (COMI(62) <= 0 && ctl8 == 0)) return;

  // 4., 5.
  const double Xn = refine_sum_abs<T>(&count, sol);
  double prev = Bn;
  T *second = cgs + v;
  ext_t<T> *xe = reinterpret_cast<ext_t<T> *>(cgs + v);
  // Accumulators of the extended residual: triangle storage and the
  // transposed product add into rows other than their own.
  const bool accumulate = COMI(19) == 1 || trans != 0;
  ext_t<T> *xacc = accumulate ? reinterpret_cast<ext_t<T> *>(cgs + 3 * v) : nullptr;
  T *scratch = cgs + (extended ? (accumulate ? 5 : 3) * v : 2 * v);
  int i = 0;
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
      const int kept8 = COMI(8);
      COMI(8) = 0;
      solve(second, r);
      COMI(8) = kept8;
      d = second;
    } else {
      // In place on r: the solution of the solve overwrites its b.
      const int kept8 = COMI(8);
      COMI(8) = 1;
      solve(over_b ? x : first, r);
      COMI(8) = kept8;
      d = r;
    }
    if (COMI(50) != 0 || (ooc_l != nullptr && OOCL(11) != 0)) return;
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
      CTRL(20) = -34;
      stop = true;
    } else if (i == 1 && Rn > Bn) {
      prev = 2.0 * Rn;
    }
    if (!stop && i == wanted) stop = true;
    if (!stop) {
      if (Rn >= 0.9 * prev) {
        if (i > 3 || i >= wanted) {
          stop = true;
          if (have_e && E > 0.5) COMI(50) = -112;
        }
      } else {
        prev = Rn;
      }
    }
    if (stop) break;
  }
  COMI(65) = i;
  if (extended) refine_from_extended<T>(&count, xe, sol);
}

}  // namespace

template <class R>
void telmira_refine(const void *a, const int *ia, const int *ja, const int *nb, void *b,
                    void *x, void *fi, const int *comx, const void *factors, void *work,
                    void *cgs, const void *s, const int *m, int *comi, int *iparam,
                    double *comr, int *timer_flags, int *ooc_l) {
  COMI(50) = 0;
  if (COMI(5) == 1)
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

#define TELMIRA_REFINE_INSTANCE(R)                                                       \
  template void telmira_refine<R>(const void *, const int *, const int *, const int *,   \
                                  void *, void *, void *, const int *, const void *,     \
                                  void *, void *, const void *, const int *, int *,      \
                                  int *, double *, int *, int *);
TELMIRA_REFINE_INSTANCE(double)
TELMIRA_REFINE_INSTANCE(float)

}  // namespace tlm
