// ch_blkslvs.cpp - forward and backward sweeps with a supernodal Cholesky
// factor L L^H.
#include "ch_blkslvs.h"

#include <omp.h>

#include <algorithm>
#include <complex>
#include <cstdlib>

#include "blkslvs.h"
#include "dense/vek_dense.h"

namespace {

// The sweeps over all supernodes on cnt columns of x (leading dimension n)
// and the same columns of w. vec: one column, by matrix-vector products.
template <class T>
void ch_sweeps(int ns, const int *xsup, const int *xlindx, const int *lindx,
               const int *xlnz, const T *lnz, T *xs, T *ws, const int *n,
               const int *ldw, int cnt, bool vec, int substep) {
  const T one = T(1), mone = T(-1), zero = T(0);
  const int inc = 1;
  const long N = *n, LDW = *ldw;
  if (substep == 0 || substep == 1) {
    for (int J = 1; J <= ns; ++J) {
      const int fst = xsup[J - 1], ncols = xsup[J] - fst;
      const int nrows = std::abs(xlnz[fst]) - std::abs(xlnz[fst - 1]);
      const int below = nrows - ncols;
      const T *blk = lnz + (std::abs(xlnz[fst - 1]) - 1);
      const int *rows = lindx + (xlindx[J - 1] - 1 + ncols);
      T *x1 = xs + (fst - 1);
      // X1 := L11^-1 X1
      if (ncols == 1) {
        const T r = one / blk[0];
        for (int k = 0; k < cnt; ++k) x1[k * N] *= r;
      } else {
        vekd::trsm<T>("L", "L", "N", "N", &ncols, &cnt, &one, blk, &nrows, x1, n);
      }
      if (below == 0) continue;
      // W := -L21 X1, added into the rows below and cleared.
      if (vec)
        vekd::gemv<T>("N", &below, &ncols, &mone, blk + ncols, &nrows, x1, &inc, &zero, ws,
                      &inc);
      else
        vekd::gemm<T>("N", "N", &below, &cnt, &ncols, &mone, blk + ncols, &nrows, x1, n,
                      &zero, ws, ldw);
      for (int k = 0; k < cnt; ++k) {
        T *xk = xs + k * N, *wk = ws + k * LDW;
        for (int i = 0; i < below; ++i) {
          xk[rows[i] - 1] += wk[i];
          wk[i] = zero;
        }
      }
    }
  }
  if (substep == 0 || substep == 3) {
    for (int J = ns; J >= 1; --J) {
      const int fst = xsup[J - 1], ncols = xsup[J] - fst;
      const int nrows = std::abs(xlnz[fst]) - std::abs(xlnz[fst - 1]);
      const int below = nrows - ncols;
      const T *blk = lnz + (std::abs(xlnz[fst - 1]) - 1);
      const int *rows = lindx + (xlindx[J - 1] - 1 + ncols);
      T *x1 = xs + (fst - 1);
      if (below > 0) {
        // X1 := X1 - L21^H W, W the rows below gathered.
        for (int k = 0; k < cnt; ++k) {
          const T *xk = xs + k * N;
          T *wk = ws + k * LDW;
          for (int i = 0; i < below; ++i) wk[i] = xk[rows[i] - 1];
        }
        if (vec)
          vekd::gemv<T>("C", &below, &ncols, &mone, blk + ncols, &nrows, ws, &inc, &one, x1,
                        &inc);
        else
          vekd::gemm<T>("C", "N", &ncols, &cnt, &below, &mone, blk + ncols, &nrows, ws, ldw,
                        &one, x1, n);
      }
      // X1 := L11^-H X1
      vekd::trsm<T>("L", "L", "C", "N", &ncols, &cnt, &one, blk, &nrows, x1, n);
    }
  }
}

}  // namespace

template <class T>
void ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, T *x, T *w, const int *ldw,
                 const int *substep) {
  // The order, the leading dimension that the block solves are given.
  const int n = std::max(1, xsup[*nsuper] - 1);
  ch_sweeps<T>(*nsuper, xsup, xlindx, lindx, xlnz, lnz, x, w, &n, ldw, 1, true, *substep);
}

template <class T>
void ch_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const T *lnz, T *x, T *w, const int *ldw, const int *substep) {
  if (*nrhs < 1) return;
  int team = std::max(1, std::min(*nthreads, *nrhs));
#pragma omp parallel num_threads(team)
  {
#pragma omp single
    team = std::min(omp_get_num_threads(), *nrhs);
    // the implicit barrier of single publishes team
    const int t = omp_get_thread_num();
    int first = 0, cnt = 0;
    if (t < team) blkslvs_share(*nrhs, team, t, &first, &cnt);
    if (cnt > 0)
      ch_sweeps<T>(*nsuper, xsup, xlindx, lindx, xlnz, lnz, x + static_cast<long>(first) * *n,
                   w + static_cast<long>(first) * *ldw, n, ldw, cnt, false, *substep);
  }
}

#define CH_BLKSLVS_INSTANCE(T)                                                           \
  template void ch_blkslvs1<T>(const int *, const int *, const int *, const int *,      \
                               const int *, const T *, T *, T *, const int *,           \
                               const int *);                                            \
  template void ch_blkslvs<T>(const int *, const int *, const int *, const int *,       \
                              const int *, const int *, const int *, const int *,       \
                              const T *, T *, T *, const int *, const int *);
CH_BLKSLVS_INSTANCE(tlm::zcomplex)
CH_BLKSLVS_INSTANCE(tlm::ccomplex)

void ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const tlm::zcomplex *lnz, tlm::zcomplex *x,
                 tlm::zcomplex *w, const int *ldw, const int *substep) {
  ch_blkslvs1<tlm::zcomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, x, w, ldw, substep);
}
void ch_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const tlm::zcomplex *lnz, tlm::zcomplex *x, tlm::zcomplex *w,
                const int *ldw, const int *substep) {
  ch_blkslvs<tlm::zcomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, x, w,
                            ldw, substep);
}
void sp_ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx,
                    const int *lindx, const int *xlnz, const tlm::ccomplex *lnz,
                    tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw, const int *substep) {
  ch_blkslvs1<tlm::ccomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, x, w, ldw, substep);
}
void sp_ch_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const tlm::ccomplex *lnz, tlm::ccomplex *x, tlm::ccomplex *w,
                   const int *ldw, const int *substep) {
  ch_blkslvs<tlm::ccomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, x, w,
                            ldw, substep);
}
