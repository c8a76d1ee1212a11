// ch_blkldlslvs.cpp - forward, diagonal and backward sweeps with a
// supernodal L D L^H factor, diagonal or Bunch-Kaufman pivoting inside the
// supernodes.
#include "ch_blkldlslvs.h"

#include <omp.h>

#include <algorithm>
#include <complex>
#include <cstdlib>
#include <utility>

#include "blkslvs.h"
#include "dense/vek_dense.h"
#include "dense/vek_dense_herm.h"

namespace {

// Entry (i, j), one-based, of a column-major block with leading dimension ld.
template <class T>
inline T *at(T *a, int ld, int i, int j) {
  return a + (static_cast<long>(j - 1) * ld + (i - 1));
}

template <class T>
inline void swap_rows(int i, int k, int nrhs, T *b, int ldb) {
  for (int c = 1; c <= nrhs; ++c) std::swap(*at(b, ldb, i, c), *at(b, ldb, k, c));
}

// The exchanges of one block applied to x1 (local rows from 1), in the
// order of the factorization. Diagonal pivoting records are all positive
// and take the first branch only.
template <class T>
inline void apply_exchanges(int ncols, const int *piv, T *x1) {
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
template <class T>
inline void undo_exchanges(int ncols, const int *piv, T *x1) {
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
void all_exchanges(int ns, const int *xsup, const int *pivot, int cnt, int n, T *x,
                   bool undo) {
  for (int k = 0; k < cnt; ++k) {
    T *xk = x + static_cast<long>(k) * n;
    for (int s = 1; s <= ns; ++s) {
      const int J = undo ? ns + 1 - s : s;
      const int fst = xsup[J - 1], ncols = xsup[J] - fst;
      if (undo)
        undo_exchanges(ncols, pivot + (fst - 1), xk + (fst - 1));
      else
        apply_exchanges(ncols, pivot + (fst - 1), xk + (fst - 1));
    }
  }
}

struct snode_view {
  int fst, ncols, nrows;
  const int *rows;
};

inline snode_view view(int J, const int *xsup, const int *xlindx, const int *lindx,
                       const int *xlnz) {
  snode_view v;
  v.fst = xsup[J - 1];
  v.ncols = xsup[J] - v.fst;
  v.nrows = std::abs(xlnz[v.fst]) - std::abs(xlnz[v.fst - 1]);
  v.rows = lindx + (xlindx[J - 1] - 1);
  return v;
}

// The diagonal step over all supernodes on cnt columns of x (leading
// dimension n).
template <class T>
void diagonal_cols(int ns, int n, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const T *lnz, const int *pivot, int diagp, T *xs,
                   int cnt) {
  for (int J = 1; J <= ns; ++J) {
    const snode_view v = view(J, xsup, xlindx, lindx, xlnz);
    const T *blk = lnz + (std::abs(xlnz[v.fst - 1]) - 1);
    T *x1 = xs + (v.fst - 1);
    if (diagp) {
      for (int k = 0; k < cnt; ++k)
        for (int c = 1; c <= v.ncols; ++c)
          x1[static_cast<long>(k) * n + c - 1] /= *at(blk, v.nrows, c, c);
    } else {
      ch_blkldl_dsolve<T>(&v.ncols, &cnt, blk, &v.nrows, pivot + (v.fst - 1), x1, &n);
    }
  }
}

// The forward sweep on cnt columns of x; w (leading dimension ldw) takes
// the updates of the rows below a block and is left zero. A single column
// goes through the matrix-vector product.
template <class T>
void forward_cols(int ns, int n, const int *xsup, const int *xlindx, const int *lindx,
                  const int *xlnz, const T *lnz, const int *pivot, int diagp, T *xs, int cnt,
                  T *ws, int ldw) {
  const T one = T(1), mone = T(-1), zero = T(0);
  const int inc = 1;
  for (int J = 1; J <= ns; ++J) {
    const snode_view v = view(J, xsup, xlindx, lindx, xlnz);
    const T *blk = lnz + (std::abs(xlnz[v.fst - 1]) - 1);
    const int *piv = pivot + (v.fst - 1);
    T *x1 = xs + (v.fst - 1);
    if (diagp) {
      for (int k = 0; k < cnt; ++k) apply_exchanges(v.ncols, piv, x1 + static_cast<long>(k) * n);
      if (v.ncols > 1)
        vekd::trsm<T>("L", "L", "N", "U", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
    } else {
      ch_blkldl_fsolve<T>(&v.ncols, &cnt, blk, &v.nrows, piv, x1, &n);
    }
    const int below = v.nrows - v.ncols;
    if (below > 0) {
      if (cnt == 1)
        vekd::gemv<T>("N", &below, &v.ncols, &mone, blk + v.ncols, &v.nrows, x1, &inc, &zero,
                      ws, &inc);
      else
        vekd::gemm<T>("N", "N", &below, &cnt, &v.ncols, &mone, blk + v.ncols, &v.nrows, x1,
                      &n, &zero, ws, &ldw);
      for (int k = 0; k < cnt; ++k) {
        T *xk = xs + static_cast<long>(k) * n;
        T *wk = ws + static_cast<long>(k) * ldw;
        for (int i = 0; i < below; ++i) {
          xk[v.rows[v.ncols + i] - 1] += wk[i];
          wk[i] = T(0);
        }
      }
    }
  }
}

// The backward sweep on cnt columns of x; w receives the rows below a
// block, and X1 loses L21^H w.
template <class T>
void backward_cols(int ns, int n, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const T *lnz, const int *pivot, int diagp, T *xs, int cnt,
                   T *ws, int ldw) {
  const T one = T(1), mone = T(-1);
  const int inc = 1;
  for (int J = ns; J >= 1; --J) {
    const snode_view v = view(J, xsup, xlindx, lindx, xlnz);
    const T *blk = lnz + (std::abs(xlnz[v.fst - 1]) - 1);
    const int *piv = pivot + (v.fst - 1);
    T *x1 = xs + (v.fst - 1);
    const int below = v.nrows - v.ncols;
    if (below > 0) {
      for (int k = 0; k < cnt; ++k) {
        const T *xk = xs + static_cast<long>(k) * n;
        T *wk = ws + static_cast<long>(k) * ldw;
        for (int i = 0; i < below; ++i) wk[i] = xk[v.rows[v.ncols + i] - 1];
      }
      if (cnt == 1)
        vekd::gemv<T>("C", &below, &v.ncols, &mone, blk + v.ncols, &v.nrows, ws, &inc, &one,
                      x1, &inc);
      else
        vekd::gemm<T>("C", "N", &v.ncols, &cnt, &below, &mone, blk + v.ncols, &v.nrows, ws,
                      &ldw, &one, x1, &n);
    }
    if (diagp) {
      if (v.ncols > 1)
        vekd::trsm<T>("L", "L", "C", "U", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
      for (int k = 0; k < cnt; ++k) undo_exchanges(v.ncols, piv, x1 + static_cast<long>(k) * n);
    } else {
      ch_blkldl_bsolve<T>(&v.ncols, &cnt, blk, &v.nrows, piv, x1, &n);
    }
  }
}

// The steps of one solve on cnt columns of x, with the exchanges around a
// single sub-step: forward and what follows it, or the diagonal and
// backward steps with what comes before and after them.
template <class T>
void sweep_cols(bool forward_part, int ns, int n, const int *xsup, const int *xlindx,
                const int *lindx, const int *xlnz, const T *lnz, const int *pivot, int diagp,
                int sub, T *xs, int cnt, T *ws, int ldw) {
  if (forward_part) {
    if (sub == 0 || sub == 1)
      forward_cols(ns, n, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, xs, cnt, ws, ldw);
    if (sub == 1) all_exchanges(ns, xsup, pivot, cnt, n, xs, true);
    return;
  }
  if (sub == 2 || sub == 3) all_exchanges(ns, xsup, pivot, cnt, n, xs, false);
  if (sub == 0 || sub == 2)
    diagonal_cols(ns, n, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, xs, cnt);
  if (sub == 0 || sub == 3)
    backward_cols(ns, n, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, xs, cnt, ws, ldw);
  if (sub == 2) all_exchanges(ns, xsup, pivot, cnt, n, xs, true);
}

}  // namespace

template <class T>
void ch_blkldl_fsolve(const int *n, const int *nrhs, const T *a, const int *lda,
                      const int *ipiv, T *b, const int *ldb) {
  const int N = *n, L = *lda, LB = *ldb, one = 1;
  const T mone = T(-1);
  for (int k = 1; k <= N;) {
    const int p = ipiv[k - 1];
    if (p > 0) {
      if (p != k) swap_rows(k, p, *nrhs, b, LB);
      if (k < N) {
        const int m = N - k;
        vekd::ger<T>(&m, nrhs, &mone, at(a, L, k + 1, k), &one, at(b, LB, k, 1), ldb,
                     at(b, LB, k + 1, 1), ldb);
      }
      k += 1;
    } else {
      if (-p != k + 1) swap_rows(k + 1, -p, *nrhs, b, LB);
      if (k + 1 < N) {
        const int m = N - k - 1;
        vekd::ger<T>(&m, nrhs, &mone, at(a, L, k + 2, k), &one, at(b, LB, k, 1), ldb,
                     at(b, LB, k + 2, 1), ldb);
        vekd::ger<T>(&m, nrhs, &mone, at(a, L, k + 2, k + 1), &one, at(b, LB, k + 1, 1), ldb,
                     at(b, LB, k + 2, 1), ldb);
      }
      k += 2;
    }
  }
}

template <class T>
void ch_blkldl_dsolve(const int *n, const int *nrhs, const T *a, const int *lda,
                      const int *ipiv, T *b, const int *ldb) {
  typedef tlm::real_of<T> R;
  const int N = *n, L = *lda, LB = *ldb;
  for (int k = 1; k <= N;) {
    if (ipiv[k - 1] > 0) {
      const R r = R(1) / at(a, L, k, k)->real();
      if (*nrhs > 0) vekd::rscal<R>(nrhs, &r, at(b, LB, k, 1), ldb);
      k += 1;
    } else {
      // D block [d11 conj(d21); d21 d22], its rows divided by conj(d21) and
      // d21.
      const T d21 = *at(a, L, k + 1, k), d12 = std::conj(d21);
      const T aq = *at(a, L, k, k) / d12, eq = *at(a, L, k + 1, k + 1) / d21;
      const T t = aq * eq - T(1);
      for (int c = 1; c <= *nrhs; ++c) {
        T *bk = at(b, LB, k, c);
        const T u = bk[0] / d12, v = bk[1] / d21;
        bk[0] = (eq * u - v) / t;
        bk[1] = (aq * v - u) / t;
      }
      k += 2;
    }
  }
}

namespace {

// Row r of b (nrhs entries, stride ldb) loses col^H times the m rows of b
// from row r0 on: the row conjugated around the product with the conjugate
// transpose, as (B^H col) is the conjugate of col^H B.
template <class T>
void reduce_row(int r, int r0, int m, const T *col, const int *nrhs, T *b, const int *ldb) {
  typedef tlm::real_of<T> R;
  if (m < 1 || *nrhs < 1) return;
  const T tone = T(1), mone = T(-1);
  const int one = 1;
  vekd::lacgv<R>(nrhs, at(b, *ldb, r, 1), ldb);
  vekd::gemv<T>("C", &m, nrhs, &mone, at(b, *ldb, r0, 1), ldb, col, &one, &tone,
                at(b, *ldb, r, 1), ldb);
  vekd::lacgv<R>(nrhs, at(b, *ldb, r, 1), ldb);
}

}  // namespace

template <class T>
void ch_blkldl_bsolve(const int *n, const int *nrhs, const T *a, const int *lda,
                      const int *ipiv, T *b, const int *ldb) {
  const int N = *n, L = *lda, LB = *ldb;
  for (int k = N; k >= 1;) {
    const int p = ipiv[k - 1];
    const int m = N - k;
    reduce_row(k, k + 1, m, at(a, L, k + 1, k), nrhs, b, ldb);
    if (p > 0) {
      if (p != k) swap_rows(k, p, *nrhs, b, LB);
      k -= 1;
    } else {
      // The pair k-1, k; the entry below the first column's diagonal is D.
      reduce_row(k - 1, k + 1, m, at(a, L, k + 1, k - 1), nrhs, b, ldb);
      if (-p != k) swap_rows(k, -p, *nrhs, b, LB);
      k -= 2;
    }
  }
}

template <class T>
void ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                    T *w, const int *substep) {
  const int ns = *nsuper, sub = *substep, dp = *diagp;
  if (ns < 1) return;
  const int n = xsup[ns] - 1;
  sweep_cols(true, ns, n, xsup, xlindx, lindx, xlnz, lnz, pivot, dp, sub, x, 1, w, n);
  sweep_cols(false, ns, n, xsup, xlindx, lindx, xlnz, lnz, pivot, dp, sub, x, 1, w, n);
}

template <class T>
void ch_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const T *lnz, const int *pivot, const int *diagp, T *x, T *w,
                   const int *ldw, const int *substep) {
  if (*nrhs < 1 || *nsuper < 1) return;
  const int ns = *nsuper, N = *n, sub = *substep, dp = *diagp, LW = *ldw;
  const int asked = std::max(1, std::min(*nthreads, *nrhs));
  // The forward sweep is one parallel region, the diagonal and backward
  // steps share a second one; each thread works on its own columns only.
  for (int part = 0; part < 2; ++part) {
    const bool forward_part = part == 0;
    if (forward_part && sub != 0 && sub != 1) continue;
    if (!forward_part && sub == 1) continue;
    int team = asked;
#pragma omp parallel num_threads(team)
    {
#pragma omp single
      team = std::min(omp_get_num_threads(), *nrhs);
      // the implicit barrier of single publishes team
      const int t = omp_get_thread_num();
      int first = 0, cnt = 0;
      if (t < team) blkslvs_share(*nrhs, team, t, &first, &cnt);
      if (cnt > 0)
        sweep_cols(forward_part, ns, N, xsup, xlindx, lindx, xlnz, lnz, pivot, dp, sub,
                   x + static_cast<long>(first) * N, cnt, w + static_cast<long>(first) * LW,
                   LW);
    }
  }
}

#define CH_BLKLDLSLVS_INSTANCE(T)                                                          \
  template void ch_blkldl_fsolve<T>(const int *, const int *, const T *, const int *,     \
                                    const int *, T *, const int *);                       \
  template void ch_blkldl_dsolve<T>(const int *, const int *, const T *, const int *,     \
                                    const int *, T *, const int *);                       \
  template void ch_blkldl_bsolve<T>(const int *, const int *, const T *, const int *,     \
                                    const int *, T *, const int *);                       \
  template void ch_blkldlslvs1<T>(const int *, const int *, const int *, const int *,     \
                                  const int *, const T *, const int *, const int *, T *,  \
                                  T *, const int *);                                      \
  template void ch_blkldlslvs<T>(const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const T *, const int *, const int *, T *, T *,           \
                                 const int *, const int *);
CH_BLKLDLSLVS_INSTANCE(tlm::zcomplex)
CH_BLKLDLSLVS_INSTANCE(tlm::ccomplex)

void ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const tlm::zcomplex *lnz, const int *pivot,
                    const int *diagp, tlm::zcomplex *x, tlm::zcomplex *w, const int *substep) {
  ch_blkldlslvs1<tlm::zcomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, w,
                                substep);
}
void ch_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const tlm::zcomplex *lnz, const int *pivot, const int *diagp,
                   tlm::zcomplex *x, tlm::zcomplex *w, const int *ldw, const int *substep) {
  ch_blkldlslvs<tlm::zcomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz,
                               pivot, diagp, x, w, ldw, substep);
}
void sp_ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx,
                       const int *lindx, const int *xlnz, const tlm::ccomplex *lnz,
                       const int *pivot, const int *diagp, tlm::ccomplex *x, tlm::ccomplex *w,
                       const int *substep) {
  ch_blkldlslvs1<tlm::ccomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, w,
                                substep);
}
void sp_ch_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                      const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                      const tlm::ccomplex *lnz, const int *pivot, const int *diagp,
                      tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw, const int *substep) {
  ch_blkldlslvs<tlm::ccomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz,
                               pivot, diagp, x, w, ldw, substep);
}
