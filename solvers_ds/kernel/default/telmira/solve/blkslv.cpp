// blkslv.cpp - forward and backward sweeps with a supernodal LU factor.
#include "blkslv.h"

#include <utility>

#include "scalar_kind.h"
#include "solve_frame.h"

using tlm::solve_block;

namespace {

// The row exchanges of a supernode, ascending, on one vector x1 that starts
// at the supernode's first column. The last step never exchanges.
template <class T> inline void apply_row_swaps(int ncols, const int *piv, T *x1) {
  for (int i = 1; i < ncols; ++i) {
    const int p = piv[i - 1];
    if (p != i) std::swap(x1[i - 1], x1[p - 1]);
  }
}

// The column exchanges of a supernode undone, descending.
template <class T> inline void undo_column_swaps(int ncols, const int *cpiv, T *x1) {
  for (int i = ncols - 1; i >= 1; --i) {
    const int q = cpiv[i - 1];
    if (q != i) std::swap(x1[i - 1], x1[q - 1]);
  }
}

}  // namespace

template <class T>
void blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
             const int *xlnz, const T *lnz, const int *xunz, const T *unz, const int *pivot,
             const int *cpivot, T *x, const int *substep) {
  const int ns = *nsuper;
  if (*substep == 0 || *substep == 1) {
    for (int J = 1; J <= ns; ++J) {
      const solve_block v = tlm::solve_block_of(J, xsup, xlindx, lindx, xlnz);
      apply_row_swaps(v.ncols, pivot + (v.fst - 1), x + (v.fst - 1));
      for (int c = v.fst; c < v.fst + v.ncols; ++c) {
        const T *col = lnz + (std::abs(xlnz[c - 1]) - 1);
        tlm::eliminate(col, v.rows, c - v.fst + 1, v.nrows, x[c - 1], x);
      }
    }
  }
  if (*substep == 0 || *substep == 3) {
    for (int J = ns; J >= 1; --J) {
      const solve_block v = tlm::solve_block_of(J, xsup, xlindx, lindx, xlnz);
      const int fst = v.fst, lst = v.fst + v.ncols - 1;
      // Row c of U12 is column c of the unz block.
      for (int c = lst; c >= fst && v.below > 0; --c) {
        const T *ucol = unz + (std::abs(xunz[c - 1]) - 1);
        x[c - 1] = tlm::reduce_by(x[c - 1], ucol, v.rows + v.ncols, 0, v.below, x);
      }
      // U11 by rows: entry (i, k) of the block stands in column k.
      for (int i = lst; i >= fst; --i) {
        T t = x[i - 1];
        for (int k = i + 1; k <= lst; ++k)
          t -= lnz[std::abs(xlnz[k - 1]) - 1 + (i - fst)] * x[k - 1];
        x[i - 1] = t / lnz[std::abs(xlnz[i - 1]) - 1 + (i - fst)];
      }
      if (cpivot) undo_column_swaps(v.ncols, cpivot + (fst - 1), x + (fst - 1));
    }
  }
}

template <class T>
void blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
            const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
            const T *lnz, const int *xunz, const T *unz, const int *pivot, const int *cpivot,
            T *x, T *w, const int *ldw, const int *substep) {
  if (*nrhs < 1) return;
  const int N = *n, ns = *nsuper, LW = *ldw;
  const T one = T(1);
  tlm::for_each_rhs_share(*nrhs, *nthreads, [&](int first, int cnt) {
    T *xs = x + static_cast<long>(first) * N;
    T *ws = w + static_cast<long>(first) * LW;
    if (*substep == 0 || *substep == 1) {
      for (int J = 1; J <= ns; ++J) {
        const solve_block v = tlm::solve_block_of(J, xsup, xlindx, lindx, xlnz);
        const T *blk = lnz + v.blk;
        T *x1 = xs + (v.fst - 1);
        for (int k = 0; k < cnt; ++k)
          apply_row_swaps(v.ncols, pivot + (v.fst - 1), x1 + static_cast<long>(k) * N);
        if (v.ncols > 1)
          vekd::trsm<T>("L", "L", "N", "U", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &N);
        tlm::forward_below(v, blk, x1, xs, N, cnt, ws, LW, false);
      }
    }
    if (*substep == 0 || *substep == 3) {
      for (int J = ns; J >= 1; --J) {
        const solve_block v = tlm::solve_block_of(J, xsup, xlindx, lindx, xlnz);
        T *x1 = xs + (v.fst - 1);
        const T *ublk = unz + (std::abs(xunz[v.fst - 1]) - 1);
        tlm::backward_below("T", v, ublk, v.below, x1, xs, N, cnt, ws, LW, false);
        vekd::trsm<T>("L", "U", "N", "N", &v.ncols, &cnt, &one, lnz + v.blk, &v.nrows, x1, &N);
        if (cpivot)
          for (int k = 0; k < cnt; ++k)
            undo_column_swaps(v.ncols, cpivot + (v.fst - 1), x1 + static_cast<long>(k) * N);
      }
    }
  });
}

TLM_INSTANTIATE_EACH(blkslv1)
TLM_INSTANTIATE_EACH(blkslv)
