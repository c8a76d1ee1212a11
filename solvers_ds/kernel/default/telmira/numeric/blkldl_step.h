// blkldl_step.h - the steps of the supernodal L D L^T sweeps (real,
// complex symmetric and Hermitian values), for the frames of sweep_frame.h
// and sweep_frame_omp.h.
//
// An update carries the source's block diagonal D: the rows that land in
// the target's columns, multiplied by D, form W in temp, and the target
// loses the source's remaining rows times W^T (W^H for Hermitian values).
// The diagonal block is factorized by diagonal pivoting or Bunch-Kaufman
// (blkldl_dense.cpp); then L21 := A21 M^-T D^-1.
#ifndef TELMIRA_BLKLDL_STEP_H
#define TELMIRA_BLKLDL_STEP_H

#include "blkldl.h"
#include "dense/vek_dense.h"
#include "scalar_kind.h"
#include "sweep_frame.h"
#include "telmira_scatter.h"

namespace tlm {

// The second operand of an L D L^T update: W = K D, the nd leading
// remaining rows of K times K's D. k: the remaining rows (leading dimension
// klda); kblk: K's diagonal block; kpiv: K's pivot records, whose negative
// pairs mark its 2 by 2 blocks when the pivoting is Bunch-Kaufman.
template <class T, class Kind> struct ldl_operand {
  static constexpr bool forms_w = true, upper = false, zero_beta = false;
  const T *k;
  int klda;
  const T *kblk;  // K's block diagonal, leading dimension kbld
  int kbld;
  const int *kpiv;
  int kncols;
  bool diagonal;

  bool second(int nd, T *w, long room, const T **b, int *ldb) const {
    if (static_cast<long>(kncols) * nd > room) return false;
    int i = 0;
    while (i < kncols) {
      const T *ki = k + static_cast<long>(i) * klda;
      T *wi = w + static_cast<long>(i) * nd;
      const T d11 = kblk[i + static_cast<long>(i) * kbld];
      if (!diagonal && kpiv[i] < 0 && i + 1 < kncols) {
        const T d21 = kblk[i + 1 + static_cast<long>(i) * kbld];
        const T d12 = Kind::conj(d21);
        const T d22 = kblk[i + 1 + static_cast<long>(i + 1) * kbld];
        const T *ki1 = ki + klda;
        T *wi1 = wi + nd;
        for (int r = 0; r < nd; ++r) {
          wi[r] = d11 * ki[r] + d21 * ki1[r];
          wi1[r] = d12 * ki[r] + d22 * ki1[r];
        }
        i += 2;
      } else {
        for (int r = 0; r < nd; ++r) wi[r] = ki[r] * d11;
        i += 1;
      }
    }
    *b = w;
    *ldb = nd;
    return true;
  }
  void release(int nd, T *w) const { clear(w, static_cast<long>(kncols) * nd); }
  // A source of one column has a 1 by 1 pivot.
  T single(int i) const { return k[i] * kblk[0]; }
};

template <class T, bool Hermitian> struct ldl_step {
  typedef scalar_kind<T, Hermitian> kind;
  typedef real_of<T> R;
  const sweep_shape &sh;
  const T *a;
  const int *ja;
  T *lnz, *temp;
  int *pivot;
  const int *xjalf, *jalf, *luperm, *perm, *luperm_row;
  const R *eps, *s;
  bool diagonal, scaled;
  // Where set, the sources' block diagonals come from here rather than from
  // their panels: two values a column, its diagonal entry and the one below
  // it (ooc_step.h keeps them), so that a source read from a file needs only
  // its remaining rows.
  const T *kept = nullptr;

  // Mirrored entries of a Hermitian matrix arrive conjugated.
  void scatter(const sweep_target &t, int thread) const {
    scatter_at(t, thread, sh.xlnz, nullptr, nullptr);
  }
  // The same with the positions of xlnz moved by shift (scatter.h).
  void scatter_at(const sweep_target &t, int thread, const int *xlnz, const int *,
                  const long *shift) const {
    const int J = t.J, conjugate = kind::conjugates;
    int *map = sh.indmap + (thread - 1L) * sh.n;
    if (scaled)
      telmira_scatter_sym_scaled<T>(&J, a, ja, s, perm, sh.xsup, sh.xlindx, sh.lindx, xlnz,
                                    lnz, xjalf, jalf, luperm, luperm_row, &conjugate, map,
                                    shift);
    else
      telmira_scatter_sym<T>(&J, a, sh.xsup, sh.xlindx, sh.lindx, xlnz, lnz, xjalf, jalf,
                             luperm, &conjugate, map, shift);
  }

  void update(const sweep_target &t, const sweep_source &s, int thread, int *ndone,
              int *error) const {
    const T *kblk = kept != nullptr ? kept + 2L * (s.kfst - 1)
                                    : lnz + (std::abs(sh.xlnz[s.kfst - 1]) - 1);
    const int kbld = kept != nullptr ? 1 : s.klda;
    const ldl_operand<T, kind> op{lnz + (s.klnz - 1), s.klda,  kblk, kbld,
                                  pivot + (s.kfst - 1), s.kncols, diagonal};
    sweep_update<T, kind>(t, s, sh, sweep_space_of(sh, temp, thread), lnz, op, ndone, error);
  }

  // The diagonal block, then L21 := A21 M^-T D^-1.
  void factor(const sweep_target &t, int thread, sweep_counts *c, int *error) const {
    const int ncols = t.ncols, nrows = t.nrows, below = nrows - ncols;
    T *diag = lnz + (t.jlnz - 1);
    T *l21 = diag + ncols;
    int *piv = pivot + (t.fstcol - 1);
    int info = 0;
    if (diagonal) {
      for (int j = 0; j < ncols; ++j)
        for (int i = j + 1; i < ncols; ++i)
          diag[j + static_cast<long>(i) * nrows] =
              kind::conj(diag[i + static_cast<long>(j) * nrows]);
      blkldl_diagfact<T, Hermitian>(&ncols, &ncols, diag, &nrows, piv, &c->npert, &c->npos,
                                    &c->nneg, eps, &info);
      if (info != 0) {
        *error = -1;
        return;
      }
      if (below > 0) {
        for (int i = 1; i < ncols; ++i)
          if (piv[i - 1] != i) swap_columns(l21, nrows, below, i, piv[i - 1]);
        const T one = T(1);
        vekd::trsm<T>("R", "U", "N", "N", &below, &ncols, &one, diag, &nrows, l21, &nrows);
      }
      return;
    }
    blkldl_bkfact<T, Hermitian>("L", &ncols, diag, &nrows, piv, &c->npert, &c->npos,
                                &c->nneg, eps, &info);
    if (info != 0) {
      *error = -1;
      return;
    }
    if (below > 0) {
      // L21 (conjugate) transposed through the thread's temp, ncols by
      // below, and back.
      T *tmp = temp + (thread - 1L) * sh.tmpsize;
      const long count = static_cast<long>(ncols) * below;
      if (count > sh.tmpsize) {
        *error = -2;
        return;
      }
      for (int j = 0; j < ncols; ++j)
        for (int i = 0; i < below; ++i)
          tmp[j + static_cast<long>(i) * ncols] =
              kind::conj(l21[i + static_cast<long>(j) * nrows]);
      blkldl_apply<T, Hermitian>("L", &ncols, &below, diag, &nrows, piv, tmp, &ncols, &info);
      for (int j = 0; j < ncols; ++j)
        for (int i = 0; i < below; ++i)
          l21[i + static_cast<long>(j) * nrows] =
              kind::conj(tmp[j + static_cast<long>(i) * ncols]);
      clear(tmp, count);
      if (info != 0) *error = -1;
    }
  }
};

}  // namespace tlm

#endif
