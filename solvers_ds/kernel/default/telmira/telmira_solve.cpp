// telmira_solve.cpp - the solve driver: gather of the right-hand sides into
// the permuted work vector, the triangular sweeps of the matrix type, and
// the scatter of the solution back to the input order.
#include "telmira_numeric.h"

#include <algorithm>
#include <complex>

#include "blkldlslvs.h"
#include "blkslv.h"
#include "blkslvs.h"
#include "dense/vek_dense.h"
#include "telmira_layout.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

template <class T>
void psol_fwgath(const int *n, const int *nrhs, T *x, const T *b,
                 const int *perm, const void *s_, const int *m,
                 const int *comi) {
  typedef real_of<T> R;
  const R *s = static_cast<const R *>(s_);
  const int N = *n, K = *nrhs, mtype = COMI(12);
  int scl = COMI(67), back = 0;
  if (COMI(55) == 3) {
    back = 1;
    if (mtype != -2) scl = 0;
  }
  if (scl >= 1 && (s == nullptr || (mtype >= 11 && m == nullptr))) scl = 0;
  const int team = std::max(1, std::min(COMI(15), K));
#pragma omp parallel for schedule(static) num_threads(team) if (team > 1)
  for (int k = 0; k < K; ++k) {
    T *xk = x + static_cast<std::int64_t>(k) * N;
    const T *bk = b + static_cast<std::int64_t>(k) * N;
    if (scl < 1) {
      for (int i = 0; i < N; ++i) xk[i] = bk[perm[i] - 1];
    } else if (mtype < 11 && back == 0) {
      for (int i = 0; i < N; ++i) {
        const int p = perm[i] - 1;
        xk[i] = bk[p] * s[p];
      }
    } else if (mtype < 11) {
      for (int i = 0; i < N; ++i) {
        const int p = perm[i] - 1;
        xk[i] = bk[p] / s[p];
      }
    } else {
      for (int i = 0; i < N; ++i) {
        const int q = m[perm[i] - 1] - 1;
        xk[i] = bk[q] * s[N + q];
      }
    }
  }
}

template <class T>
void psol_bwscat(const int *n, const int *nrhs, T *x, T *b, const int *perm,
                 const void *s_, T *buf, const int *bufcols, const int *comi) {
  typedef real_of<T> R;
  const R *s = static_cast<const R *>(s_);
  const int N = *n, K = *nrhs, mtype = COMI(12);
  int scl = COMI(67), front = 0;
  if (COMI(55) == 1) {
    front = 1;
    if (mtype != -2) scl = 0;
  }
  if (s == nullptr) scl = 0;
  auto unscale = [&](T *v) {
    if (scl < 1) return;
    if (front)
      for (int i = 0; i < N; ++i) v[i] /= s[i];
    else
      for (int i = 0; i < N; ++i) v[i] *= s[i];
  };
  const int team = std::max(1, std::min(COMI(15), K));
  if (COMI(8) == 1) {
#pragma omp parallel for schedule(static) num_threads(team) if (team > 1)
    for (int k = 0; k < K; ++k) {
      const T *xk = x + static_cast<std::int64_t>(k) * N;
      T *bk = b + static_cast<std::int64_t>(k) * N;
      for (int i = 0; i < N; ++i) bk[perm[i] - 1] = xk[i];
      unscale(bk);
    }
    return;
  }
  const int cols = std::max(1, *bufcols);
  for (int k0 = 0; k0 < K; k0 += cols) {
    const int kn = std::min(cols, K - k0);
#pragma omp parallel for schedule(static) num_threads(std::min(team, kn)) if (kn > 1)
    for (int j = 0; j < kn; ++j) {
      T *xk = x + static_cast<std::int64_t>(k0 + j) * N;
      T *bf = buf + static_cast<std::int64_t>(j) * N;
      for (int i = 0; i < N; ++i) bf[perm[i] - 1] = xk[i];
      for (int i = 0; i < N; ++i) xk[i] = bf[i];
      unscale(xk);
    }
  }
}

template <class R>
void telmira_solve(const int *nrhs, void *x_, void *b_, void *fi,
                   const int *comx, const void *factors, void *work,
                   const void *s, const int *m, int *comi, int *) {
  COMI(50) = 0;
  const int mtype = COMI(12);
  int n = COMI(1);
  int *perm = sub(fi, comx, CX_PERM);
  int *xsup = sub(fi, comx, CX_XSUP);
  int *xlindx = sub(fi, comx, CX_XLINDX);
  int *lindx = sub(fi, comx, CX_LINDX);
  int *xlnz = sub(fi, comx, CX_XLNZ);
  int nsuper = COMI(31), nthreads = COMI(15), substep = COMI(55);
  int bufcols = n > 0 ? COMI(44) / n : 1;
  if (mtype != 2 && mtype != -2 && mtype != 1 && mtype != 11) {
    // The solves of the other types come with their factorizations.
    COMI(50) = -1;
    return;
  }
  R *x = static_cast<R *>(x_);
  R *b = static_cast<R *>(b_);
  R *w = static_cast<R *>(work);
  const R *lnz = static_cast<const R *>(factors);
  psol_fwgath<R>(&n, nrhs, x, b, perm, s, m, comi);
  int ldw = COMI(23) > 0 ? COMI(23) : 1;
  // Threads across the right-hand sides; each calls the dense routines on
  // one thread.
  if (*nrhs > 1 && nthreads > 1) vekd::blas_threads(1);
  if (mtype == 2) {
    if (*nrhs == 1)
      blkslvs1<R>(&nsuper, xsup, xlindx, lindx, xlnz, lnz, x, &substep);
    else if (*nrhs > 1)
      blkslvs<R>(&nsuper, nrhs, &nthreads, &n, xsup, xlindx, lindx, xlnz, lnz, x, w, &ldw,
                 &substep);
  } else if (mtype == -2) {
    const int *pivot = sub(fi, comx, CX_PIVOT);
    const int diagp = COMI(51) == 0 ? 1 : 0;
    if (*nrhs == 1)
      blkldlslvs1<R>(&nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, &diagp, x, &substep);
    else if (*nrhs > 1)
      blkldlslvs<R>(&nsuper, nrhs, &nthreads, &n, xsup, xlindx, lindx, xlnz, lnz, pivot,
                    &diagp, x, w, &ldw, &substep);
  } else {
    const int *xunz = sub(fi, comx, CX_XUNZ);
    const int *pivot = sub(fi, comx, CX_PIVOT);
    const int *cpivot = mtype == 11 ? sub(fi, comx, CX_CPIVOT) : nullptr;
    const R *unz = lnz + static_cast<std::int64_t>(COMI(34));
    if (*nrhs == 1)
      blkslv1<R>(&nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, cpivot, x,
                 &substep);
    else if (*nrhs > 1)
      blkslv<R>(&nsuper, nrhs, &nthreads, &n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz,
                pivot, cpivot, x, w, &ldw, &substep);
  }
  psol_bwscat<R>(&n, nrhs, x, b, perm, s, w, &bufcols, comi);
}

#define PSOL_INSTANCE(T)                                                        \
  template void psol_fwgath<T>(const int *, const int *, T *, const T *,        \
                               const int *, const void *, const int *,          \
                               const int *);                                    \
  template void psol_bwscat<T>(const int *, const int *, T *, T *, const int *, \
                               const void *, T *, const int *, const int *);
PSOL_INSTANCE(double)
PSOL_INSTANCE(float)
PSOL_INSTANCE(std::complex<double>)
PSOL_INSTANCE(std::complex<float>)

#define TELMIRA_SOLVE_INSTANCE(R)                                                \
  template void telmira_solve<R>(const int *, void *, void *, void *,            \
                                 const int *, const void *, void *, const void *, \
                                 const int *, int *, int *);
TELMIRA_SOLVE_INSTANCE(double)
TELMIRA_SOLVE_INSTANCE(float)

}  // namespace tlm
