// blkldlslvs.cpp - forward, diagonal and backward sweeps with a supernodal
// L D L^T factor, diagonal or Bunch-Kaufman pivoting inside the supernodes;
// one source for symmetric and Hermitian values.
#include "blkldlslvs.h"

#include <utility>

#include "scalar_kind.h"
#include "solve_frame.h"

namespace tlm {

// The structure and the factor of one solve.
template <class T> struct ldl_view {
  int ns;
  const int *xsup, *xlindx, *lindx, *xlnz;
  const T *lnz;
  const int *pivot;
  int diagp;
  solve_block block(int J) const { return solve_block_of(J, xsup, xlindx, lindx, xlnz); }
};

}  // namespace tlm

using tlm::ldl_view;
using tlm::solve_block;

namespace {

// The exchanges of one block applied to x1 (local rows from 1), in the
// order of the factorization. Diagonal pivoting records are all positive
// and take the first branch only.
template <class T> inline void apply_exchanges(int ncols, const int *piv, T *x1) {
  for (int i = 1; i <= ncols;) {
    const int p = piv[i - 1];
    if (p > 0) {
      if (p != i) std::swap(x1[i - 1], x1[p - 1]);
      i += 1;
    } else {
      if (-p != i + 1) std::swap(x1[i], x1[-p - 1]);
      i += 2;
    }
  }
}

// The same exchanges undone, last first. The record of the second column of
// a 2 by 2 pivot names the exchange of the pair.
template <class T> inline void undo_exchanges(int ncols, const int *piv, T *x1) {
  for (int i = ncols; i >= 1;) {
    const int p = piv[i - 1];
    if (p > 0) {
      if (p != i) std::swap(x1[i - 1], x1[p - 1]);
      i -= 1;
    } else {
      if (-p != i) std::swap(x1[i - 1], x1[-p - 1]);
      i -= 2;
    }
  }
}

// The exchanges of all supernodes on cnt columns of x (leading dimension
// n): applied with supernodes ascending, or undone with supernodes
// descending.
template <class T>
void all_exchanges(const ldl_view<T> &f, int cnt, int n, T *x, bool undo) {
  for (int k = 0; k < cnt; ++k) {
    T *xk = x + static_cast<long>(k) * n;
    for (int s = 1; s <= f.ns; ++s) {
      const int J = undo ? f.ns + 1 - s : s;
      const int fst = f.xsup[J - 1], ncols = f.xsup[J] - fst;
      if (undo)
        undo_exchanges(ncols, f.pivot + (fst - 1), xk + (fst - 1));
      else
        apply_exchanges(ncols, f.pivot + (fst - 1), xk + (fst - 1));
    }
  }
}

// The exchanges that a single sub-step puts before (before) or behind one
// part of the solve: the forward part, or the diagonal and backward part.
template <class T>
void substep_exchanges(const ldl_view<T> &f, bool forward_part, bool before, int sub, int cnt,
                       int n, T *x) {
  if (forward_part) {
    if (!before && sub == 1) all_exchanges(f, cnt, n, x, true);
  } else if (before) {
    if (sub == 2 || sub == 3) all_exchanges(f, cnt, n, x, false);
  } else if (sub == 2) {
    all_exchanges(f, cnt, n, x, true);
  }
}

// The diagonal step over all supernodes on cnt columns of x.
template <class T, bool Hermitian>
void diagonal_cols(const ldl_view<T> &f, int n, T *xs, int cnt) {
  for (int J = 1; J <= f.ns; ++J) {
    const solve_block v = f.block(J);
    const T *blk = f.lnz + v.blk;
    T *x1 = xs + (v.fst - 1);
    if (f.diagp) {
      for (int k = 0; k < cnt; ++k)
        for (int c = 1; c <= v.ncols; ++c)
          x1[static_cast<long>(k) * n + c - 1] /= tlm::at(blk, v.nrows, c, c);
    } else {
      blkldl_dsolve<T, Hermitian>(&v.ncols, &cnt, blk, &v.nrows, f.pivot + (v.fst - 1), x1, &n);
    }
  }
}

// The forward sweep on cnt columns of x; vec: a single Hermitian column,
// by matrix-vector products.
template <class T>
void forward_cols(const ldl_view<T> &f, int n, T *xs, int cnt, T *ws, int ldw, bool vec) {
  const T one = T(1);
  for (int J = 1; J <= f.ns; ++J) {
    const solve_block v = f.block(J);
    const T *blk = f.lnz + v.blk;
    const int *piv = f.pivot + (v.fst - 1);
    T *x1 = xs + (v.fst - 1);
    if (f.diagp) {
      for (int k = 0; k < cnt; ++k)
        apply_exchanges(v.ncols, piv, x1 + static_cast<long>(k) * n);
      if (v.ncols > 1)
        vekd::trsm<T>("L", "L", "N", "U", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
    } else {
      blkldl_fsolve<T>(&v.ncols, &cnt, blk, &v.nrows, piv, x1, &n);
    }
    tlm::forward_below(v, blk, x1, xs, n, cnt, ws, ldw, vec);
  }
}

// The backward sweep on cnt columns of x: X1 loses L21^T w (L21^H w).
template <class T, bool Hermitian>
void backward_cols(const ldl_view<T> &f, int n, T *xs, int cnt, T *ws, int ldw, bool vec) {
  typedef tlm::scalar_kind<T, Hermitian> K;
  const T one = T(1);
  for (int J = f.ns; J >= 1; --J) {
    const solve_block v = f.block(J);
    const T *blk = f.lnz + v.blk;
    const int *piv = f.pivot + (v.fst - 1);
    T *x1 = xs + (v.fst - 1);
    tlm::backward_below(K::trans, v, blk + v.ncols, v.nrows, x1, xs, n, cnt, ws, ldw, vec);
    if (f.diagp) {
      if (v.ncols > 1)
        vekd::trsm<T>("L", "L", K::trans, "U", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
      for (int k = 0; k < cnt; ++k) undo_exchanges(v.ncols, piv, x1 + static_cast<long>(k) * n);
    } else {
      blkldl_bsolve<T, Hermitian>(&v.ncols, &cnt, blk, &v.nrows, piv, x1, &n);
    }
  }
}

// One part of a solve on cnt columns of x: the forward sweep, or the
// diagonal and backward steps, with the sub-step exchanges around it when
// asked. A single Hermitian column goes by matrix-vector products.
template <class T, bool Hermitian>
void solve_part(const ldl_view<T> &f, bool forward_part, bool exchanges, int sub, int n,
                T *xs, int cnt, T *ws, int ldw) {
  const bool vec = tlm::scalar_kind<T, Hermitian>::conjugates && cnt == 1;
  if (exchanges) substep_exchanges(f, forward_part, true, sub, cnt, n, xs);
  if (forward_part) {
    if (sub == 0 || sub == 1) forward_cols(f, n, xs, cnt, ws, ldw, vec);
  } else {
    if (sub == 0 || sub == 2) diagonal_cols<T, Hermitian>(f, n, xs, cnt);
    if (sub == 0 || sub == 3) backward_cols<T, Hermitian>(f, n, xs, cnt, ws, ldw, vec);
  }
  if (exchanges) substep_exchanges(f, forward_part, false, sub, cnt, n, xs);
}

}  // namespace

template <class T>
void blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                 const int *substep) {
  const ldl_view<T> f{*nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, *diagp};
  const int sub = *substep;
  const int n = f.ns > 0 ? xsup[f.ns] - 1 : 1;
  if (sub == 0 || sub == 1) {
    for (int J = 1; J <= f.ns; ++J) {
      const solve_block v = f.block(J);
      const T *blk = lnz + v.blk;
      const int *piv = pivot + (v.fst - 1);
      T *x1 = x + (v.fst - 1);
      if (f.diagp) {
        apply_exchanges(v.ncols, piv, x1);
        for (int i = 0; i < v.ncols; ++i) {
          const T *col = blk + static_cast<long>(i) * v.nrows;
          tlm::eliminate(col, v.rows, i + 1, v.nrows, x1[i], x);
        }
        continue;
      }
      for (int i = 0; i < v.ncols;) {
        const T *col = blk + static_cast<long>(i) * v.nrows;
        const int p = piv[i];
        if (p > 0) {
          if (p - 1 != i) std::swap(x1[i], x1[p - 1]);
          tlm::eliminate(col, v.rows, i + 1, v.nrows, x1[i], x);
          i += 1;
        } else {
          if (-p - 1 != i + 1) std::swap(x1[i + 1], x1[-p - 1]);
          tlm::eliminate(col, v.rows, i + 2, v.nrows, x1[i], x);
          tlm::eliminate(col + v.nrows, v.rows, i + 2, v.nrows, x1[i + 1], x);
          i += 2;
        }
      }
    }
    substep_exchanges(f, true, false, sub, 1, n, x);
  }
  if (sub == 1) return;
  substep_exchanges(f, false, true, sub, 1, n, x);
  if (sub == 0 || sub == 2) diagonal_cols<T, false>(f, n, x, 1);
  if (sub == 0 || sub == 3) {
    for (int J = f.ns; J >= 1; --J) {
      const solve_block v = f.block(J);
      const T *blk = lnz + v.blk;
      const int *piv = pivot + (v.fst - 1);
      T *x1 = x + (v.fst - 1);
      if (f.diagp) {
        for (int i = v.ncols - 1; i >= 0; --i) {
          const T *col = blk + static_cast<long>(i) * v.nrows;
          x1[i] -= tlm::dot_below(col, v.rows, i + 1, v.nrows, x);
        }
        undo_exchanges(v.ncols, piv, x1);
        continue;
      }
      for (int i = v.ncols - 1; i >= 0;) {
        const T *col = blk + static_cast<long>(i) * v.nrows;
        const int p = piv[i];
        x1[i] -= tlm::dot_below(col, v.rows, i + 1, v.nrows, x);
        if (p > 0) {
          if (p - 1 != i) std::swap(x1[i], x1[p - 1]);
          i -= 1;
        } else {
          // The pair i-1, i: column i-1 from two rows below its diagonal.
          x1[i - 1] -= tlm::dot_below(col - v.nrows, v.rows, i + 1, v.nrows, x);
          if (-p - 1 != i) std::swap(x1[i], x1[-p - 1]);
          i -= 2;
        }
      }
    }
  }
  substep_exchanges(f, false, false, sub, 1, n, x);
}

template <class T>
void ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                    T *w, const int *substep) {
  const ldl_view<T> f{*nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, *diagp};
  if (f.ns < 1) return;
  const int n = xsup[f.ns] - 1;
  solve_part<T, true>(f, true, true, *substep, n, x, 1, w, n);
  if (*substep != 1) solve_part<T, true>(f, false, true, *substep, n, x, 1, w, n);
}

template <class T, bool Hermitian>
void blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const T *lnz, const int *pivot, const int *diagp, T *x, T *w, const int *ldw,
                const int *substep) {
  if (*nrhs < 1 || *nsuper < 1) return;
  const ldl_view<T> f{*nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, *diagp};
  const int N = *n, sub = *substep, LW = *ldw;
  // Hermitian values exchange inside the regions, the others around them on
  // the calling thread.
  const bool inside = tlm::scalar_kind<T, Hermitian>::conjugates;
  for (int part = 0; part < 2; ++part) {
    const bool forward_part = part == 0;
    if (forward_part ? sub != 0 && sub != 1 : sub == 1) continue;
    if (!inside) substep_exchanges(f, forward_part, true, sub, *nrhs, N, x);
    tlm::for_each_rhs_share(*nrhs, *nthreads, [&](int first, int cnt) {
      T *xs = x + static_cast<long>(first) * N, *ws = w + static_cast<long>(first) * LW;
      solve_part<T, Hermitian>(f, forward_part, inside, sub, N, xs, cnt, ws, LW);
    });
    if (!inside) substep_exchanges(f, forward_part, false, sub, *nrhs, N, x);
  }
}

TLM_INSTANTIATE_EACH(blkldlslvs1)
TLM_INSTANTIATE(ch_blkldlslvs1<tlm::zcomplex>)
TLM_INSTANTIATE(ch_blkldlslvs1<tlm::ccomplex>)
TLM_INSTANTIATE_EACH(blkldlslvs)
TLM_INSTANTIATE(blkldlslvs<tlm::zcomplex, true>)
TLM_INSTANTIATE(blkldlslvs<tlm::ccomplex, true>)
