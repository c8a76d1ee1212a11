// blkslv.cpp - forward and backward sweeps with a supernodal LU factor.
#include "blkslv.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>

#include "blkslvs.h"
#include "dense/vek_dense.h"

namespace {

// The row exchanges of a supernode, ascending, on one vector x1 that starts
// at the supernode's first column. The last step never exchanges.
template <class T>
inline void apply_row_swaps(int ncols, const int *piv, T *x1) {
  for (int i = 1; i < ncols; ++i) {
    const int p = piv[i - 1];
    if (p != i) std::swap(x1[i - 1], x1[p - 1]);
  }
}

// The column exchanges of a supernode undone, descending.
template <class T>
inline void undo_column_swaps(int ncols, const int *cpiv, T *x1) {
  for (int i = ncols - 1; i >= 1; --i) {
    const int q = cpiv[i - 1];
    if (q != i) std::swap(x1[i - 1], x1[q - 1]);
  }
}

}  // namespace

template <class T>
void blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
             const int *xlnz, const T *lnz, const int *xunz, const T *unz,
             const int *pivot, const int *cpivot, T *x, const int *substep) {
  const int ns = *nsuper;
  if (*substep == 0 || *substep == 1) {
    for (int J = 1; J <= ns; ++J) {
      const int fst = xsup[J - 1], lst = xsup[J] - 1, ncols = lst - fst + 1;
      const int nrows = std::abs(xlnz[fst]) - std::abs(xlnz[fst - 1]);
      const int *rows = lindx + (xlindx[J - 1] - 1);
      T *x1 = x + (fst - 1);
      apply_row_swaps(ncols, pivot + (fst - 1), x1);
      for (int c = fst; c <= lst; ++c) {
        const T *col = lnz + (std::abs(xlnz[c - 1]) - 1);
        const T xc = x[c - 1];
        for (int k = c - fst + 1; k < nrows; ++k) x[rows[k] - 1] -= col[k] * xc;
      }
    }
  }
  if (*substep == 0 || *substep == 3) {
    for (int J = ns; J >= 1; --J) {
      const int fst = xsup[J - 1], lst = xsup[J] - 1, ncols = lst - fst + 1;
      const int nrows = std::abs(xlnz[fst]) - std::abs(xlnz[fst - 1]);
      const int below = nrows - ncols;
      const int *rows = lindx + (xlindx[J - 1] - 1) + ncols;
      if (below > 0) {
        // Row c of U12 is column c of the unz block.
        for (int c = lst; c >= fst; --c) {
          const T *ucol = unz + (std::abs(xunz[c - 1]) - 1);
          T t = x[c - 1];
          for (int r = 0; r < below; ++r) t -= ucol[r] * x[rows[r] - 1];
          x[c - 1] = t;
        }
      }
      // U11 by rows: entry (i, k) of the block stands in column k.
      for (int i = lst; i >= fst; --i) {
        T t = x[i - 1];
        for (int k = i + 1; k <= lst; ++k)
          t -= lnz[std::abs(xlnz[k - 1]) - 1 + (i - fst)] * x[k - 1];
        x[i - 1] = t / lnz[std::abs(xlnz[i - 1]) - 1 + (i - fst)];
      }
      if (cpivot) undo_column_swaps(ncols, cpivot + (fst - 1), x + (fst - 1));
    }
  }
}

template <class T>
void blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
            const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
            const T *lnz, const int *xunz, const T *unz, const int *pivot,
            const int *cpivot, T *x, T *w, const int *ldw, const int *substep) {
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
          for (int k = 0; k < cnt; ++k)
            apply_row_swaps(ncols, pivot + (fst - 1), x1 + static_cast<long>(k) * N);
          if (ncols > 1)
            vekd::trsm<T>("L", "L", "N", "U", &ncols, &cnt, &one, blk, &nrows, x1, n);
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
            const T *ublk = unz + (std::abs(xunz[fst - 1]) - 1);
            vekd::gemm<T>("T", "N", &ncols, &cnt, &below, &mone, ublk, &below, ws, ldw, &one,
                          x1, n);
          }
          vekd::trsm<T>("L", "U", "N", "N", &ncols, &cnt, &one, blk, &nrows, x1, n);
          if (cpivot)
            for (int k = 0; k < cnt; ++k)
              undo_column_swaps(ncols, cpivot + (fst - 1), x1 + static_cast<long>(k) * N);
        }
      }
    }
  }
}

#define BLKSLV_INSTANCE(T)                                                               \
  template void blkslv1<T>(const int *, const int *, const int *, const int *, const int *, \
                           const T *, const int *, const T *, const int *, const int *,    \
                           T *, const int *);                                             \
  template void blkslv<T>(const int *, const int *, const int *, const int *, const int *,  \
                          const int *, const int *, const int *, const T *, const int *,    \
                          const T *, const int *, const int *, T *, T *, const int *,       \
                          const int *);
BLKSLV_INSTANCE(double)
BLKSLV_INSTANCE(float)

void blkslv1_d(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
               const int *xlnz, const double *lnz, const int *xunz, const double *unz,
               const int *pivot, double *x, const int *substep) {
  blkslv1<double>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, nullptr, x,
                  substep);
}

void blkslv_d(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
              const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
              const double *lnz, const int *xunz, const double *unz, const int *pivot,
              double *x, double *w, const int *ldw, const int *substep) {
  blkslv<double>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot,
                 nullptr, x, w, ldw, substep);
}

void blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const double *lnz, const int *xunz, const double *unz,
                   const int *pivot, const int *cpivot, double *x, const int *substep) {
  blkslv1<double>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, cpivot, x,
                  substep);
}

void blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                  const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                  const double *lnz, const int *xunz, const double *unz, const int *pivot,
                  const int *cpivot, double *x, double *w, const int *ldw,
                  const int *substep) {
  blkslv<double>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot,
                 cpivot, x, w, ldw, substep);
}

void sp_blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                const int *xlnz, const float *lnz, const int *xunz, const float *unz,
                const int *pivot, float *x, const int *substep) {
  blkslv1<float>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, nullptr, x,
                 substep);
}

void sp_blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
               const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const float *lnz, const int *xunz, const float *unz, const int *pivot,
               float *x, float *w, const int *ldw, const int *substep) {
  blkslv<float>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot,
                nullptr, x, w, ldw, substep);
}

void sp_blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx,
                      const int *lindx, const int *xlnz, const float *lnz, const int *xunz,
                      const float *unz, const int *pivot, const int *cpivot, float *x,
                      const int *substep) {
  blkslv1<float>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, cpivot, x,
                 substep);
}

void sp_blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                     const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                     const float *lnz, const int *xunz, const float *unz, const int *pivot,
                     const int *cpivot, float *x, float *w, const int *ldw,
                     const int *substep) {
  blkslv<float>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot,
                cpivot, x, w, ldw, substep);
}

// Complex values take the same sweeps: the products transpose without
// conjugating.
BLKSLV_INSTANCE(std::complex<double>)
BLKSLV_INSTANCE(std::complex<float>)
