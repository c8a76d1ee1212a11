// solve_frame.h - what the triangular solves of all factor kinds share: the
// division of the right-hand sides among threads, a supernode as the sweeps
// see it, the steps on the rows below a diagonal block, and the loops of
// the single right-hand side forms.
//
// x holds the permuted right-hand sides, n rows each; w one column per
// right-hand side of leading dimension ldw, at least the largest nrows -
// ncols over the supernodes. The forward step writes w and leaves it zero,
// the backward step overwrites it.
#ifndef TELMIRA_SOLVE_FRAME_H
#define TELMIRA_SOLVE_FRAME_H

#include <omp.h>

#include <algorithm>
#include <cstdlib>

#include "dense/vek_dense.h"

// The first right-hand side of each thread: thread t of T takes
// nrhs / T columns, one more while t < nrhs mod T.
void blkslvs_share(int nrhs, int team, int t, int *first, int *count);

namespace tlm {

// min(nthreads, nrhs) threads; one of them lowers the team to what the
// region got, then thread t runs body(first, count) on its own consecutive
// right-hand sides. There is no other cooperation.
template <class Body> void for_each_rhs_share(int nrhs, int nthreads, const Body &body) {
  int team = std::max(1, std::min(nthreads, nrhs));
#pragma omp parallel num_threads(team)
  {
#pragma omp single
    team = std::min(omp_get_num_threads(), nrhs);
    // the implicit barrier of single publishes team
    const int t = omp_get_thread_num();
    int first = 0, cnt = 0;
    if (t < team) blkslvs_share(nrhs, team, t, &first, &cnt);
    if (cnt > 0) body(first, cnt);
  }
}

// Supernode J: columns fst.. (ncols), nrows rows listed from rows, below
// of them under the diagonal block, whose block starts at lnz(blk+1).
struct solve_block {
  int fst, ncols, nrows, below;
  const int *rows;
  long blk;
};

inline solve_block solve_block_of(int J, const int *xsup, const int *xlindx, const int *lindx,
                                  const int *xlnz) {
  solve_block v;
  v.fst = xsup[J - 1];
  v.ncols = xsup[J] - v.fst;
  v.blk = std::abs(xlnz[v.fst - 1]) - 1;
  v.nrows = std::abs(xlnz[v.fst]) - std::abs(xlnz[v.fst - 1]);
  v.below = v.nrows - v.ncols;
  v.rows = lindx + (xlindx[J - 1] - 1);
  return v;
}

// Forward: w := -L21 X1 (blk the supernode's block, X1 its rows of x, cnt
// columns; vec: one column, by a matrix-vector product), added into the
// rows of x below the block; w is left zero.
template <class T>
void forward_below(const solve_block &v, const T *blk, const T *x1, T *xs, int n, int cnt,
                   T *ws, int ldw, bool vec) {
  if (v.below <= 0) return;
  const T mone = T(-1), zero = T(0);
  const int inc = 1;
  if (vec)
    vekd::gemv<T>("N", &v.below, &v.ncols, &mone, blk + v.ncols, &v.nrows, x1, &inc, &zero, ws,
                  &inc);
  else
    vekd::gemm<T>("N", "N", &v.below, &cnt, &v.ncols, &mone, blk + v.ncols, &v.nrows, x1, &n,
                  &zero, ws, &ldw);
  for (int k = 0; k < cnt; ++k) {
    T *xk = xs + static_cast<long>(k) * n;
    T *wk = ws + static_cast<long>(k) * ldw;
    for (int i = 0; i < v.below; ++i) {
      xk[v.rows[v.ncols + i] - 1] += wk[i];
      wk[i] = T(0);
    }
  }
}

// Backward: w := the rows of x below the block, then X1 := X1 - op(B) w,
// B the below by ncols block under the diagonal (leading dimension ldb),
// op its transpose by trans.
template <class T>
void backward_below(const char *trans, const solve_block &v, const T *b, int ldb, T *x1,
                    const T *xs, int n, int cnt, T *ws, int ldw, bool vec) {
  if (v.below <= 0) return;
  const T mone = T(-1), one = T(1);
  const int inc = 1;
  for (int k = 0; k < cnt; ++k) {
    const T *xk = xs + static_cast<long>(k) * n;
    T *wk = ws + static_cast<long>(k) * ldw;
    for (int i = 0; i < v.below; ++i) wk[i] = xk[v.rows[v.ncols + i] - 1];
  }
  if (vec)
    vekd::gemv<T>(trans, &v.below, &v.ncols, &mone, b, &ldb, ws, &inc, &one, x1, &inc);
  else
    vekd::gemm<T>(trans, "N", &v.ncols, &cnt, &v.below, &mone, b, &ldb, ws, &ldw, &one, x1, &n);
}

// x(rows(k)) -= col(k) xc for the entries from..nrows-1 of a column.
template <class T>
inline void eliminate(const T *col, const int *rows, int from, int nrows, T xc, T *x) {
  for (int k = from; k < nrows; ++k) x[rows[k] - 1] -= col[k] * xc;
}

// t - col(k) x(rows(k)), subtracted one by one over the entries
// from..nrows-1.
template <class T>
inline T reduce_by(T t, const T *col, const int *rows, int from, int nrows, const T *x) {
  for (int k = from; k < nrows; ++k) t -= col[k] * x[rows[k] - 1];
  return t;
}

// The sum of col(k) x(rows(k)) over the entries from..nrows-1.
template <class T>
inline T dot_below(const T *col, const int *rows, int from, int nrows, const T *x) {
  T t = T(0);
  for (int k = from; k < nrows; ++k) t += col[k] * x[rows[k] - 1];
  return t;
}

}  // namespace tlm

#endif
