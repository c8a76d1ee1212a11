// blkl_step.h - the steps of the supernodal Cholesky sweeps, L L^H (L L^T
// for real values), for the frames of sweep_frame.h and sweep_frame_omp.h.
//
// The update of a target multiplies the source by itself; the diagonal
// block is factorized by the dense Cholesky routine (unblocked for complex
// blocks), and L21 := L21 L11^-H.
#ifndef TELMIRA_BLKL_STEP_H
#define TELMIRA_BLKL_STEP_H

#include <cmath>
#include <complex>

#include "dense/vek_dense.h"
#include "scalar_kind.h"
#include "sweep_frame.h"
#include "telmira_scatter.h"
#include "telmira_storage.h"

namespace tlm {

// The second operand of a Cholesky update: the source's remaining rows.
template <class T> struct chol_operand {
  static constexpr bool forms_w = false, upper = false, zero_beta = true;
  const T *k;
  int ld;
  bool second(int, T *, long, const T **b, int *ldb) const {
    *b = k;
    *ldb = ld;
    return true;
  }
  void release(int, T *) const {}
  T single(int i) const { return k[i]; }
};

template <class T> struct chol_step {
  typedef scalar_kind<T, true> kind;
  const sweep_shape &sh;
  const T *a;
  T *lnz, *temp;
  const int *xjalf, *jalf, *luperm, *perm;

  // Mirrored entries of a Hermitian matrix arrive conjugated.
  void scatter(const sweep_target &t, int thread) const {
    scatter_at(t, thread, sh.xlnz, nullptr, nullptr);
  }
  // The same with the positions of xlnz moved by shift (scatter.h).
  void scatter_at(const sweep_target &t, int thread, const int *xlnz, const int *,
                  const long *shift) const {
    const int J = t.J, conjugate = kind::conjugates;
    telmira_scatter_sym<T>(&J, a, sh.xsup, sh.xlindx, sh.lindx, xlnz, lnz, xjalf, jalf,
                           luperm, &conjugate, sh.indmap + (thread - 1L) * sh.n, shift);
  }

  void update(const sweep_target &t, const sweep_source &s, int thread, int *ndone,
              int *error) const {
    const chol_operand<T> op{lnz + (s.klnz - 1), s.klda};
    sweep_update<T, kind>(t, s, sh, sweep_space_of(sh, temp, thread), lnz, op, ndone, error);
  }

  // A pivot that is not positive ends the sweep with the input column.
  void factor(const sweep_target &t, int, sweep_counts *, int *error) const {
    T *blk = lnz + (t.jlnz - 1);
    int info = 0;
    if constexpr (kind::complex)
      vekd::potf2<T>("L", &t.ncols, blk, &t.nrows, &info);
    else
      vekd::potrf<T>("L", &t.ncols, blk, &t.nrows, &info);
    if (info != 0) {
      // A pivot that is not a number comes from NaN or infinite values in A
      // (or an overflow): no column of A is to blame.
      const T d = info > 0 ? blk[(info - 1) + static_cast<long>(info - 1) * t.nrows] : T(0);
      *error = info < 0 ? -1
               : std::isnan(std::real(d)) ? ST_NONFINITE_PIVOT
                                          : perm[t.fstcol + info - 2];
      return;
    }
    if (t.ncols < t.nrows) {
      const int below = t.nrows - t.ncols;
      const T one = T(1);
      vekd::trsm<T>("R", "L", kind::trans, "N", &below, &t.ncols, &one, blk, &t.nrows,
                    blk + t.ncols, &t.nrows);
    }
  }
};

}  // namespace tlm

#endif
