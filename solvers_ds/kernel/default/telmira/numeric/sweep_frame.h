// sweep_frame.h - the left-looking supernodal sweep, once for all the
// factorization kernels, and the update of a target by one source.
//
// A kernel is a step policy with three operations on one supernode J:
//   scatter(t, thread)                       A into J's block, the relative
//                                            index into the thread's indmap;
//   update(t, s, thread, &ndone, &error)     J loses the product of source
//                                            s's remaining rows;
//   factor(t, thread, &counts, &error)       the diagonal block and the
//                                            blocks beside it.
// The frame owns the loop over the supernodes, the descendant lists (link,
// length), the clearing of temp and the progress reports. The parallel
// schedule (sweep_frame_omp.h) calls the same three operations from its own
// loop; the thread number (from 1) selects the thread's block of indmap and
// relind and its slice of temp.
//
// sweep_update is the update that the steps share: the tests that choose
// how a product reaches the target (the same rows, a single source column,
// rows consecutive in the target, scattered rows) are written here once; an
// operand policy says what the source is multiplied by.
#ifndef TELMIRA_SWEEP_FRAME_H
#define TELMIRA_SWEEP_FRAME_H

#include <cstdlib>

#include "dense/vek_dense.h"
#include "factor_progress.h"
#include "scalar_kind.h"
#include "sweep_lists.h"

namespace tlm {

// The structure a sweep reads and the work arrays it keeps.
struct sweep_shape {
  int n, nsuper, nnzl, tmpsize, msglvl;
  const int *xsup, *snode, *xlindx, *lindx, *xlnz, *nmod;
  int *link, *length, *indmap, *relind;
};

// The pivot counters of a sweep: replaced pivots, positive and negative
// pivots (the real indefinite kernel only).
struct sweep_counts {
  int npert = 0, npos = 0, nneg = 0;
};

// A thread's workspace: its blocks of indmap and relind, its slice of temp.
template <class T> struct sweep_space {
  int *map, *rel;
  T *tmp;
  long size;
};

template <class T>
inline sweep_space<T> sweep_space_of(const sweep_shape &sh, T *temp, int thread) {
  const long t = thread - 1;
  return sweep_space<T>{sh.indmap + t * sh.n, sh.relind + t * sh.n, temp + t * sh.tmpsize,
                        sh.tmpsize};
}

// Row r(j) of column c of the store loses a(j) b, for j from `from` to
// m-1: one column of a source with one column.
template <class T>
inline void update_column(T *store, const int *xstore, const int *map, const int *r, int c,
                          int from, int m, const T *a, T b) {
  for (int j = from; j < m; ++j) store[entry_pos(xstore, c, map, r[j])] -= a[j] * b;
}

// Adds the rows by nd product in tmp (leading dimension rows) to the store:
// its row i to the row of relative index rel(from+i) in the column of
// relative index rel(j); clears tmp behind it. nrows - rel(j) is the place
// of that column in the target's list, counted from 1.
template <class T>
inline void scatter_add(T *store, const int *xstore, const sweep_target &t, const int *rel,
                        int from, int rows, int nd, T *tmp) {
  for (int j = 0; j < nd; ++j) {
    T *col_end = store + (std::abs(xstore[t.fstcol + t.nrows - rel[j] - 1]) - 2);
    T *x = tmp + static_cast<long>(j) * rows;
    for (int i = 0; i < rows; ++i) {
      col_end[-rel[from + i]] += x[i];
      x[i] = T(0);
    }
  }
}

// The update of target t by source s: t loses K op(B) on the rows they
// share, K the remaining rows of s and B the second operand of Op, the
// product transposed by the kind. The operand policy Op gives:
//   forms_w      B is formed in temp: scattered rows then use two halves;
//   upper        a second product into unz (the LU kernels), Op's own;
//   zero_beta    the product into temp for scattered rows takes beta 0
//                (else 1: temp is zero either way);
//   second(nd, area, room, &b, &ldb)  B for the nd leading rows, formed in
//                area when it must be; false when room does not suffice;
//   release(nd, area)  clears what second formed;
//   single(i)    B(i) of a source with one column.
// Returns in ndone the number of K's remaining rows within t's columns.
template <class T, class Kind, class Op>
void sweep_update(const sweep_target &t, const sweep_source &s, const sweep_shape &sh,
                  const sweep_space<T> &w, T *lnz, const Op &op, int *ndone, int *error) {
  const T mone = T(-1), one = T(1);
  const int m = s.rem, kn = s.kncols, klda = s.klda, nrows = t.nrows;
  const int *r = sh.lindx + (s.klindx - 1);  // r[0..m-1]: the remaining rows
  const T *k = lnz + (s.klnz - 1);           // their entries in K's first column
  int nd = t.ncols, r1 = t.fstcol;
  bool in_place = true;
  if (m != nrows) {
    // The leading remaining rows that are columns of the target.
    nd = 0;
    while (nd < m && r[nd] <= t.lstcol) ++nd;
    if (kn == 1) {  // one column: no dense kernel
      *ndone = nd;
      for (int i = 0; i < nd; ++i)
        update_column(lnz, sh.xlnz, w.map, r, r[i], 0, m, k, Kind::conj(op.single(i)));
      if constexpr (Op::upper) op.upper_single(w.map, r, nd, m, k);
      return;
    }
    // Rows consecutive in the target's list go in place as well.
    r1 = r[0];
    in_place = w.map[r1 - 1] - w.map[r[m - 1] - 1] < m;
  }
  *ndone = nd;
  const T *b = nullptr;
  int ldb = 0;
  if (in_place) {
    // From row r1 of column r1 on; the rows that are the same give r1 =
    // fstcol, the start of the block.
    if (!op.second(nd, w.tmp, w.size, &b, &ldb)) {
      *error = -2;
      return;
    }
    T *dst = lnz + (static_cast<long>(std::abs(sh.xlnz[r1 - 1])) + r1 - t.fstcol - 1);
    vekd::gemm<T>("N", Kind::trans, &m, &nd, &kn, &mone, k, &klda, b, &ldb, &one, dst, &nrows);
    op.release(nd, w.tmp);
    if constexpr (Op::upper) op.upper_in_place(t, r1, nd, m, k, klda);
    return;
  }
  // Scattered rows: the product in temp, then added row by row; a formed B
  // lies in the second half of temp.
  const long room = Op::forms_w ? w.size / 2 : w.size;
  if (static_cast<long>(m) * nd > room) {
    *error = -2;
    return;
  }
  for (int i = 0; i < m; ++i) w.rel[i] = w.map[r[i] - 1];
  if (!op.second(nd, w.tmp + room, room, &b, &ldb)) {
    *error = -2;
    return;
  }
  const T beta = Op::zero_beta ? T(0) : one;
  vekd::gemm<T>("N", Kind::trans, &m, &nd, &kn, &mone, k, &klda, b, &ldb, &beta, w.tmp, &m);
  op.release(nd, w.tmp + room);
  scatter_add(lnz, sh.xlnz, t, w.rel, 0, m, nd, w.tmp);
  if constexpr (Op::upper) op.upper_scattered(t, w, nd, m, k, klda);
}

// The sequential sweep: supernodes 1 to nsuper, thread 1. temp is cleared
// once (its first tmpsize entries); every update and factor step leaves it
// zero. The counters are summed into c.
template <class T, class Step>
void sweep_run(const sweep_shape &sh, T *temp, Step &step, sweep_counts *c, int *error) {
  *error = 0;
  for (int i = 0; i < sh.n; ++i) sh.link[i] = 0;
  factor_progress progress;
  if (factor_progress_start(&progress, sh.msglvl) != 0) {
    *error = -1;
    return;
  }
  clear(temp, sh.tmpsize);
  const int thread = 1;
  for (int J = 1; J <= sh.nsuper; ++J) {
    const sweep_target t = sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx);
    step.scatter(t, thread);
    for (int u = 0; u < sh.nmod[J - 1]; ++u) {
      sweep_source s;
      if (!sweep_take(t.fstcol, sh.link, sh.snode, sh.length, sh.xsup, sh.xlnz, sh.xlindx,
                      &s)) {
        *error = -1;  // the exact update counts rule an empty list out
        return;
      }
      int ndone = 0;
      step.update(t, s, thread, &ndone, error);
      if (*error != 0) return;
      sweep_requeue(s, ndone, sh.link, sh.length, sh.xsup, sh.snode, sh.xlindx, sh.lindx);
    }
    step.factor(t, thread, c, error);
    if (*error != 0) return;
    sweep_release(t, sh.link, sh.length, sh.xsup, sh.snode, sh.lindx);

    const int p = static_cast<int>(100.0 * (t.jlnz - 1) / (sh.nnzl > 0 ? sh.nnzl : 1));
    if (factor_progress_step(&progress, p) != 0) {
      *error = -1;
      return;
    }
  }
  if (factor_progress_end(&progress) != 0) *error = -1;
}

}  // namespace tlm

#endif
