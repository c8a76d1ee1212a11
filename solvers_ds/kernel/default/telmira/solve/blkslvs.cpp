// blkslvs.cpp - forward and backward sweeps with a supernodal Cholesky
// factor, L L^T or L L^H.
#include "blkslvs.h"

#include "scalar_kind.h"

using tlm::solve_block;

namespace {

// The sweeps over all supernodes on cnt columns of x (leading dimension n)
// and the same columns of w. vec: one column, by matrix-vector products.
template <class T>
void chol_cols(int ns, const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const T *lnz, T *xs, T *ws, int n, int ldw, int cnt, bool vec, int substep) {
  typedef tlm::scalar_kind<T, true> K;
  const T one = T(1);
  if (substep == 0 || substep == 1) {
    for (int J = 1; J <= ns; ++J) {
      const solve_block v = tlm::solve_block_of(J, xsup, xlindx, lindx, xlnz);
      const T *blk = lnz + v.blk;
      T *x1 = xs + (v.fst - 1);
      // X1 := L11^-1 X1
      if (v.ncols == 1) {
        const T r = one / blk[0];
        for (int k = 0; k < cnt; ++k) x1[static_cast<long>(k) * n] *= r;
      } else {
        vekd::trsm<T>("L", "L", "N", "N", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
      }
      tlm::forward_below(v, blk, x1, xs, n, cnt, ws, ldw, vec);
    }
  }
  if (substep == 0 || substep == 3) {
    for (int J = ns; J >= 1; --J) {
      const solve_block v = tlm::solve_block_of(J, xsup, xlindx, lindx, xlnz);
      const T *blk = lnz + v.blk;
      T *x1 = xs + (v.fst - 1);
      tlm::backward_below(K::trans, v, blk + v.ncols, v.nrows, x1, xs, n, cnt, ws, ldw, vec);
      // X1 := L11^-T X1 (L11^-H)
      vekd::trsm<T>("L", "L", K::trans, "N", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
    }
  }
}

}  // namespace

template <class T>
void blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
              const int *xlnz, const T *lnz, T *x, const int *substep) {
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
        tlm::eliminate(col, rows, top + 1, nrows, xc, x);
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
        x[c - 1] = tlm::reduce_by(x[c - 1], col, rows, top + 1, nrows, x) / col[top];
      }
    }
  }
}

template <class T>
void ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, T *x, T *w, const int *ldw,
                 const int *substep) {
  // The order, the leading dimension that the block solves are given.
  const int n = std::max(1, xsup[*nsuper] - 1);
  chol_cols<T>(*nsuper, xsup, xlindx, lindx, xlnz, lnz, x, w, n, *ldw, 1, true, *substep);
}

void blkslvs_share(int nrhs, int team, int t, int *first, int *count) {
  const int base = nrhs / team, extra = nrhs % team;
  *count = base + (t < extra ? 1 : 0);
  *first = t * base + std::min(t, extra);
}

template <class T>
void blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
             const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
             const T *lnz, T *x, T *w, const int *ldw, const int *substep) {
  if (*nrhs < 1) return;
  const int N = *n, LW = *ldw;
  tlm::for_each_rhs_share(*nrhs, *nthreads, [&](int first, int cnt) {
    chol_cols<T>(*nsuper, xsup, xlindx, lindx, xlnz, lnz, x + static_cast<long>(first) * N,
                 w + static_cast<long>(first) * LW, N, LW, cnt, false, *substep);
  });
}

TLM_INSTANTIATE(blkslvs1<double>)
TLM_INSTANTIATE(blkslvs1<float>)
TLM_INSTANTIATE(ch_blkslvs1<tlm::zcomplex>)
TLM_INSTANTIATE(ch_blkslvs1<tlm::ccomplex>)
TLM_INSTANTIATE_EACH(blkslvs)
