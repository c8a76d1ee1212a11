// blkslvs.cpp - forward and backward sweeps with a supernodal Cholesky factor.
#include "blkslvs.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>

#include "dense/vek_dense.h"

template <class T>
void blkslvs1(const int *nsuper, const int *xsup, const int *xlindx,
              const int *lindx, const int *xlnz, const T *lnz, T *x,
              const int *substep) {
  const int ns = *nsuper;
  if (*substep == 0 || *substep == 1) {
    for (int J = 1; J <= ns; ++J) {
      const int fst = xsup[J - 1], lst = xsup[J] - 1;
      const int *rows = lindx + (xlindx[J - 1] - 1);
      for (int c = fst; c <= lst; ++c) {
        const T *col = lnz + (std::abs(xlnz[c - 1]) - 1);
        const int top = c - fst;  // place of the diagonal in the column
        const int nrows = std::abs(xlnz[c]) - std::abs(xlnz[c - 1]);
        const T xc = x[c - 1] / col[top];
        x[c - 1] = xc;
        for (int k = top + 1; k < nrows; ++k) x[rows[k] - 1] -= col[k] * xc;
      }
    }
  }
  if (*substep == 0 || *substep == 3) {
    for (int J = ns; J >= 1; --J) {
      const int fst = xsup[J - 1], lst = xsup[J] - 1;
      const int *rows = lindx + (xlindx[J - 1] - 1);
      for (int c = lst; c >= fst; --c) {
        const T *col = lnz + (std::abs(xlnz[c - 1]) - 1);
        const int top = c - fst;
        const int nrows = std::abs(xlnz[c]) - std::abs(xlnz[c - 1]);
        T t = x[c - 1];
        for (int k = top + 1; k < nrows; ++k) t -= col[k] * x[rows[k] - 1];
        x[c - 1] = t / col[top];
      }
    }
  }
}

void blkslvs_share(int nrhs, int team, int t, int *first, int *count) {
  const int base = nrhs / team, extra = nrhs % team;
  *count = base + (t < extra ? 1 : 0);
  *first = t * base + std::min(t, extra);
}

template <class T>
void blkslvs(const int *nsuper, const int *nrhs, const int *nthreads,
             const int *n, const int *xsup, const int *xlindx, const int *lindx,
             const int *xlnz, const T *lnz, T *x, T *w, const int *ldw,
             const int *substep) {
  if (*nrhs < 1) return;
  int team = std::max(1, std::min(*nthreads, *nrhs));
  const int N = *n, ns = *nsuper;
  const T one = T(1), mone = T(-1), zero = T(0);
#pragma omp parallel num_threads(team)
  {
#pragma omp single
    team = std::min(omp_get_num_threads(), *nrhs);
    // the implicit barrier of single publishes team
    const int t = omp_get_thread_num();
    int first = 0, cnt = 0;
    if (t < team) blkslvs_share(*nrhs, team, t, &first, &cnt);
    if (cnt > 0) {
      T *xs = x + static_cast<long>(first) * N;
      T *ws = w + static_cast<long>(first) * *ldw;
      if (*substep == 0 || *substep == 1) {
        for (int J = 1; J <= ns; ++J) {
          const int fst = xsup[J - 1], lst = xsup[J] - 1, ncols = lst - fst + 1;
          const int nrows = std::abs(xlnz[fst]) - std::abs(xlnz[fst - 1]);
          const T *blk = lnz + (std::abs(xlnz[fst - 1]) - 1);
          const int *rows = lindx + (xlindx[J - 1] - 1);
          T *x1 = xs + (fst - 1);
          if (ncols == 1) {
            const T r = T(1) / blk[0];
            for (int k = 0; k < cnt; ++k) x1[static_cast<long>(k) * N] *= r;
          } else {
            vekd::trsm<T>("L", "L", "N", "N", &ncols, &cnt, &one, blk, &nrows, x1, n);
          }
          const int below = nrows - ncols;
          if (below > 0) {
            vekd::gemm<T>("N", "N", &below, &cnt, &ncols, &mone, blk + ncols, &nrows, x1, n,
                          &zero, ws, ldw);
            for (int k = 0; k < cnt; ++k) {
              T *xk = xs + static_cast<long>(k) * N;
              T *wk = ws + static_cast<long>(k) * *ldw;
              for (int i = 0; i < below; ++i) {
                xk[rows[ncols + i] - 1] += wk[i];
                wk[i] = T(0);
              }
            }
          }
        }
      }
      if (*substep == 0 || *substep == 3) {
        for (int J = ns; J >= 1; --J) {
          const int fst = xsup[J - 1], lst = xsup[J] - 1, ncols = lst - fst + 1;
          const int nrows = std::abs(xlnz[fst]) - std::abs(xlnz[fst - 1]);
          const T *blk = lnz + (std::abs(xlnz[fst - 1]) - 1);
          const int *rows = lindx + (xlindx[J - 1] - 1);
          T *x1 = xs + (fst - 1);
          const int below = nrows - ncols;
          if (below > 0) {
            for (int k = 0; k < cnt; ++k) {
              const T *xk = xs + static_cast<long>(k) * N;
              T *wk = ws + static_cast<long>(k) * *ldw;
              for (int i = 0; i < below; ++i) wk[i] = xk[rows[ncols + i] - 1];
            }
            vekd::gemm<T>("T", "N", &ncols, &cnt, &below, &mone, blk + ncols, &nrows, ws, ldw,
                          &one, x1, n);
          }
          vekd::trsm<T>("L", "L", "T", "N", &ncols, &cnt, &one, blk, &nrows, x1, n);
        }
      }
    }
  }
}

#define BLKSLVS_INSTANCE(T)                                                             \
  template void blkslvs1<T>(const int *, const int *, const int *, const int *,        \
                            const int *, const T *, T *, const int *);                 \
  template void blkslvs<T>(const int *, const int *, const int *, const int *,         \
                           const int *, const int *, const int *, const int *,         \
                           const T *, T *, T *, const int *, const int *);
BLKSLVS_INSTANCE(double)
BLKSLVS_INSTANCE(float)
