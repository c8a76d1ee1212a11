// blklu_step.h - the steps of the supernodal LU sweeps (real and complex
// values, partial or complete pivoting inside the supernode), for the
// frames of sweep_frame.h and sweep_frame_omp.h.
//
// Each update takes two products: one for the L part (all of the target's
// columns hit by the source, the diagonal block included) and one for the
// U part below the diagonal block. The diagonal block is factorized by the
// dense LU (partial pivoting) or blklu_blockfact (complete pivoting); then
// L21 := L21 Q U11^-1 and U12^T := (P U12)^T L11^-T.
#ifndef TELMIRA_BLKLU_STEP_H
#define TELMIRA_BLKLU_STEP_H

#include "blklu.h"
#include "dense/vek_dense.h"
#include "scalar_kind.h"
#include "sweep_frame.h"
#include "telmira_scatter.h"

namespace tlm {

// The operands of an LU update. The L part multiplies LK, the remaining
// rows of K's lnz block, by UK, the same rows of K's unz block (leading
// dimension ku); the U part multiplies UK from row nd on by LK and goes to
// the target's unz block, whose rows are the target's rows below its
// diagonal block.
template <class T> struct lu_operand {
  static constexpr bool forms_w = false, upper = true, zero_beta = false;
  const T *uk;
  int ku, kncols;
  T *unz;
  const int *xunz;

  bool second(int, T *, long, const T **b, int *ldb) const {
    *b = uk;
    *ldb = ku;
    return true;
  }
  void release(int, T *) const {}
  T single(int i) const { return uk[i]; }

  void upper_single(const int *map, const int *r, int nd, int m, const T *lk) const {
    for (int i = 0; i < nd; ++i) update_column(unz, xunz, map, r, r[i], nd, m, uk, lk[i]);
  }
  // Rows consecutive in the target: those below its diagonal block start
  // with its first row below it.
  void upper_in_place(const sweep_target &t, int r1, int nd, int m, const T *lk,
                      int klda) const {
    const int rest = m - nd, below = t.nrows - t.ncols;
    if (rest <= 0) return;
    const T mone = T(-1), one = T(1);
    vekd::gemm<T>("N", "T", &rest, &nd, &kncols, &mone, uk + nd, &ku, lk, &klda, &one,
                  unz + (std::abs(xunz[r1 - 1]) - 1), &below);
  }
  // Scattered rows: the relative index of the L part serves again.
  void upper_scattered(const sweep_target &t, const sweep_space<T> &w, int nd, int m,
                       const T *lk, int klda) const {
    const int rest = m - nd;
    if (rest <= 0) return;
    const T mone = T(-1), one = T(1);
    vekd::gemm<T>("N", "T", &rest, &nd, &kncols, &mone, uk + nd, &ku, lk, &klda, &one, w.tmp,
                  &rest);
    scatter_add(unz, xunz, t, w.rel, nd, rest, nd, w.tmp);
  }
};

template <class T> struct lu_step {
  typedef scalar_kind<T, false> kind;
  typedef real_of<T> R;
  const sweep_shape &sh;
  const T *a;
  const int *ja;
  T *lnz;
  const int *xunz;
  T *unz, *temp;
  int *pivot, *cpivot;  // cpivot: complete pivoting, else null
  const int *xjalf, *jalf, *xjauf, *jauf, *luperm, *luperm_row;
  const R *eps, *s;  // s: scaled while scattered, else null

  void scatter(const sweep_target &t, int thread) const {
    scatter_at(t, thread, sh.xlnz, xunz, nullptr);
  }
  // The same with the positions of xlnz and xunz moved by shift
  // (scatter.h).
  void scatter_at(const sweep_target &t, int thread, const int *xl, const int *xu,
                  const long *shift) const {
    const int J = t.J;
    int *map = sh.indmap + (thread - 1L) * sh.n;
    if (s != nullptr)
      telmira_scatter_lu_scaled<T>(&J, &sh.n, a, ja, s, sh.xsup, sh.xlindx, sh.lindx, xl, lnz,
                                   xu, unz, xjalf, jalf, xjauf, jauf, luperm, luperm_row, map,
                                   shift);
    else
      telmira_scatter_lu<T>(&J, &sh.n, a, sh.xsup, sh.xlindx, sh.lindx, xl, lnz, xu, unz,
                            xjalf, jalf, xjauf, jauf, luperm, map, shift);
  }

  void update(const sweep_target &t, const sweep_source &s, int thread, int *ndone,
              int *error) const {
    // K's U block has kurows rows a column; its remaining rows end the
    // first column.
    const int kunz = std::abs(xunz[s.kfst - 1]) + s.kurows - s.rem;
    const lu_operand<T> op{unz + (kunz - 1), s.kurows, s.kncols, unz, xunz};
    sweep_update<T, kind>(t, s, sh, sweep_space_of(sh, temp, thread), lnz, op, ndone, error);
  }

  void factor(const sweep_target &t, int, sweep_counts *c, int *error) const {
    const int ncols = t.ncols, nrows = t.nrows;
    T *diag = lnz + (t.jlnz - 1);
    int *piv = pivot + (t.fstcol - 1);
    int info = 0;
    if (cpivot != nullptr)
      blklu_blockfact<T>(&ncols, diag, &nrows, piv, cpivot + (t.fstcol - 1), &c->npert, eps,
                         &info);
    else
      vekd::getrf<T>(&ncols, &ncols, diag, &nrows, piv, &info);
    if (info != 0) {
      *error = -1;
      return;
    }
    if (ncols == nrows) return;
    const int below = nrows - ncols;
    const T one = T(1);
    T *l21 = diag + ncols;
    T *u12t = unz + (std::abs(xunz[t.fstcol - 1]) - 1);
    if (cpivot != nullptr) {
      const int *cp = cpivot + (t.fstcol - 1);
      for (int i = 1; i < ncols; ++i)
        if (cp[i - 1] != i) swap_columns(l21, nrows, below, i, cp[i - 1]);
    }
    vekd::trsm<T>("R", "U", "N", "N", &below, &ncols, &one, diag, &nrows, l21, &nrows);
    for (int i = 1; i < ncols; ++i)
      if (piv[i - 1] != i) swap_columns(u12t, below, below, i, piv[i - 1]);
    vekd::trsm<T>("R", "L", "T", "U", &below, &ncols, &one, diag, &nrows, u12t, &below);
  }
};

}  // namespace tlm

#endif
