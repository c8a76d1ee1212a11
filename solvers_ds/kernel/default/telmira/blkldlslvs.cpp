// blkldlslvs.cpp - forward, diagonal and backward sweeps with a supernodal
// LDL^T factor, diagonal or Bunch-Kaufman pivoting inside the supernodes.
#include "blkldlslvs.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "blkslvs.h"
#include "dense/vek_dense.h"

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

// The exchanges of all supernodes on nrhs columns of x: applied with
// supernodes ascending, or undone with supernodes descending.
template <class T>
void all_exchanges(int ns, const int *xsup, const int *pivot, int nrhs, int n, T *x,
                   bool undo) {
  for (int k = 0; k < nrhs; ++k) {
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

// x(rows(k)) -= col(k) * xc for the entries from..nrows-1 of a column.
template <class T>
inline void eliminate(const T *col, const int *rows, int from, int nrows, T xc, T *x) {
  for (int k = from; k < nrows; ++k) x[rows[k] - 1] -= col[k] * xc;
}

// The sum of col(k) * x(rows(k)) over the entries from..nrows-1.
template <class T>
inline T dot_below(const T *col, const int *rows, int from, int nrows, const T *x) {
  T t = T(0);
  for (int k = from; k < nrows; ++k) t += col[k] * x[rows[k] - 1];
  return t;
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
        for (int c = 1; c <= v.ncols; ++c) x1[static_cast<long>(k) * n + c - 1] /= *at(blk, v.nrows, c, c);
    } else {
      blkldl_dsolve<T>(&v.ncols, &cnt, blk, &v.nrows, pivot + (v.fst - 1), x1, &n);
    }
  }
}

// The forward sweep on cnt columns of x; w (leading dimension ldw) takes
// the updates of the rows below a block and is left zero.
template <class T>
void forward_cols(int ns, int n, const int *xsup, const int *xlindx, const int *lindx,
                  const int *xlnz, const T *lnz, const int *pivot, int diagp, T *xs, int cnt,
                  T *ws, int ldw) {
  const T one = T(1), mone = T(-1), zero = T(0);
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
      blkldl_fsolve<T>(&v.ncols, &cnt, blk, &v.nrows, piv, x1, &n);
    }
    const int below = v.nrows - v.ncols;
    if (below > 0) {
      vekd::gemm<T>("N", "N", &below, &cnt, &v.ncols, &mone, blk + v.ncols, &v.nrows, x1, &n,
                    &zero, ws, &ldw);
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

// The backward sweep on cnt columns of x; w receives the rows below a block.
template <class T>
void backward_cols(int ns, int n, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const T *lnz, const int *pivot, int diagp, T *xs, int cnt,
                   T *ws, int ldw) {
  const T one = T(1), mone = T(-1);
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
      vekd::gemm<T>("T", "N", &v.ncols, &cnt, &below, &mone, blk + v.ncols, &v.nrows, ws,
                    &ldw, &one, x1, &n);
    }
    if (diagp) {
      if (v.ncols > 1)
        vekd::trsm<T>("L", "L", "T", "U", &v.ncols, &cnt, &one, blk, &v.nrows, x1, &n);
      for (int k = 0; k < cnt; ++k) undo_exchanges(v.ncols, piv, x1 + static_cast<long>(k) * n);
    } else {
      blkldl_bsolve<T>(&v.ncols, &cnt, blk, &v.nrows, piv, x1, &n);
    }
  }
}

}  // namespace

template <class T>
void blkldl_fsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb) {
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
void blkldl_dsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb) {
  const int N = *n, L = *lda, LB = *ldb;
  for (int k = 1; k <= N;) {
    if (ipiv[k - 1] > 0) {
      const T r = T(1) / *at(a, L, k, k);
      for (int c = 1; c <= *nrhs; ++c) *at(b, LB, k, c) *= r;
      k += 1;
    } else {
      // D block (d11, d21, d22), solved with quotients by d21.
      const T d21 = *at(a, L, k + 1, k);
      const T aq = *at(a, L, k, k) / d21, eq = *at(a, L, k + 1, k + 1) / d21;
      const T t = aq * eq - T(1);
      for (int c = 1; c <= *nrhs; ++c) {
        T *bk = at(b, LB, k, c);
        const T u = bk[0] / d21, v = bk[1] / d21;
        bk[0] = (eq * u - v) / t;
        bk[1] = (aq * v - u) / t;
      }
      k += 2;
    }
  }
}

template <class T>
void blkldl_bsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb) {
  const int N = *n, L = *lda, LB = *ldb, one = 1;
  const T tone = T(1), mone = T(-1);
  for (int k = N; k >= 1;) {
    const int p = ipiv[k - 1];
    const int m = N - k;
    if (p > 0) {
      if (m > 0)
        vekd::gemv<T>("T", &m, nrhs, &mone, at(b, LB, k + 1, 1), ldb, at(a, L, k + 1, k), &one,
                      &tone, at(b, LB, k, 1), ldb);
      if (p != k) swap_rows(k, p, *nrhs, b, LB);
      k -= 1;
    } else {
      // The pair k-1, k; the entry below the first column's diagonal is D.
      if (m > 0) {
        vekd::gemv<T>("T", &m, nrhs, &mone, at(b, LB, k + 1, 1), ldb, at(a, L, k + 1, k), &one,
                      &tone, at(b, LB, k, 1), ldb);
        vekd::gemv<T>("T", &m, nrhs, &mone, at(b, LB, k + 1, 1), ldb, at(a, L, k + 1, k - 1),
                      &one, &tone, at(b, LB, k - 1, 1), ldb);
      }
      if (-p != k) swap_rows(k, -p, *nrhs, b, LB);
      k -= 2;
    }
  }
}

template <class T>
void blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                 const int *substep) {
  const int ns = *nsuper, sub = *substep, dp = *diagp;
  const int n = ns > 0 ? xsup[ns] - 1 : 1;
  if (sub == 0 || sub == 1) {
    for (int J = 1; J <= ns; ++J) {
      const snode_view v = view(J, xsup, xlindx, lindx, xlnz);
      const T *blk = lnz + (std::abs(xlnz[v.fst - 1]) - 1);
      const int *piv = pivot + (v.fst - 1);
      T *x1 = x + (v.fst - 1);
      if (dp) {
        apply_exchanges(v.ncols, piv, x1);
        for (int i = 0; i < v.ncols; ++i)
          eliminate(blk + static_cast<long>(i) * v.nrows, v.rows, i + 1, v.nrows, x1[i], x);
      } else {
        for (int i = 0; i < v.ncols;) {
          const T *col = blk + static_cast<long>(i) * v.nrows;
          const int p = piv[i];
          if (p > 0) {
            if (p - 1 != i) std::swap(x1[i], x1[p - 1]);
            eliminate(col, v.rows, i + 1, v.nrows, x1[i], x);
            i += 1;
          } else {
            if (-p - 1 != i + 1) std::swap(x1[i + 1], x1[-p - 1]);
            eliminate(col, v.rows, i + 2, v.nrows, x1[i], x);
            eliminate(col + v.nrows, v.rows, i + 2, v.nrows, x1[i + 1], x);
            i += 2;
          }
        }
      }
    }
    if (sub == 1) all_exchanges(ns, xsup, pivot, 1, n, x, true);
  }
  if (sub == 0 || sub == 2) {
    if (sub == 2) all_exchanges(ns, xsup, pivot, 1, n, x, false);
    diagonal_cols(ns, n, xsup, xlindx, lindx, xlnz, lnz, pivot, dp, x, 1);
    if (sub == 2) all_exchanges(ns, xsup, pivot, 1, n, x, true);
  }
  if (sub == 0 || sub == 3) {
    if (sub == 3) all_exchanges(ns, xsup, pivot, 1, n, x, false);
    for (int J = ns; J >= 1; --J) {
      const snode_view v = view(J, xsup, xlindx, lindx, xlnz);
      const T *blk = lnz + (std::abs(xlnz[v.fst - 1]) - 1);
      const int *piv = pivot + (v.fst - 1);
      T *x1 = x + (v.fst - 1);
      if (dp) {
        for (int i = v.ncols - 1; i >= 0; --i)
          x1[i] -= dot_below(blk + static_cast<long>(i) * v.nrows, v.rows, i + 1, v.nrows, x);
        undo_exchanges(v.ncols, piv, x1);
      } else {
        for (int i = v.ncols - 1; i >= 0;) {
          const T *col = blk + static_cast<long>(i) * v.nrows;
          const int p = piv[i];
          if (p > 0) {
            x1[i] -= dot_below(col, v.rows, i + 1, v.nrows, x);
            if (p - 1 != i) std::swap(x1[i], x1[p - 1]);
            i -= 1;
          } else {
            // The pair i-1, i: column i-1 from two rows below its diagonal.
            x1[i] -= dot_below(col, v.rows, i + 1, v.nrows, x);
            x1[i - 1] -= dot_below(col - v.nrows, v.rows, i + 1, v.nrows, x);
            if (-p - 1 != i) std::swap(x1[i], x1[-p - 1]);
            i -= 2;
          }
        }
      }
    }
  }
}

template <class T>
void blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const T *lnz, const int *pivot, const int *diagp, T *x, T *w, const int *ldw,
                const int *substep) {
  if (*nrhs < 1) return;
  const int ns = *nsuper, N = *n, sub = *substep, dp = *diagp, LW = *ldw;
  const int asked = std::max(1, std::min(*nthreads, *nrhs));
  const bool fwd = sub == 0 || sub == 1, diag = sub == 0 || sub == 2, bwd = sub == 0 || sub == 3;
  if (fwd) {
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
        forward_cols(ns, N, xsup, xlindx, lindx, xlnz, lnz, pivot, dp,
                     x + static_cast<long>(first) * N, cnt, w + static_cast<long>(first) * LW,
                     LW);
    }
  }
  // Sub-step exchanges on the calling thread, between the two regions.
  if (sub == 1) all_exchanges(ns, xsup, pivot, *nrhs, N, x, true);
  if (sub == 2 || sub == 3) all_exchanges(ns, xsup, pivot, *nrhs, N, x, false);
  if (diag || bwd) {
    int team = asked;
#pragma omp parallel num_threads(team)
    {
#pragma omp single
      team = std::min(omp_get_num_threads(), *nrhs);
      const int t = omp_get_thread_num();
      int first = 0, cnt = 0;
      if (t < team) blkslvs_share(*nrhs, team, t, &first, &cnt);
      if (cnt > 0) {
        T *xs = x + static_cast<long>(first) * N;
        if (diag) diagonal_cols(ns, N, xsup, xlindx, lindx, xlnz, lnz, pivot, dp, xs, cnt);
        if (bwd)
          backward_cols(ns, N, xsup, xlindx, lindx, xlnz, lnz, pivot, dp, xs, cnt,
                        w + static_cast<long>(first) * LW, LW);
      }
    }
  }
  if (sub == 2) all_exchanges(ns, xsup, pivot, *nrhs, N, x, true);
}

#define BLKLDLSLVS_INSTANCE(T)                                                                 \
  template void blkldl_fsolve<T>(const int *, const int *, const T *, const int *, const int *, \
                                 T *, const int *);                                            \
  template void blkldl_dsolve<T>(const int *, const int *, const T *, const int *, const int *, \
                                 T *, const int *);                                            \
  template void blkldl_bsolve<T>(const int *, const int *, const T *, const int *, const int *, \
                                 T *, const int *);                                            \
  template void blkldlslvs1<T>(const int *, const int *, const int *, const int *, const int *, \
                               const T *, const int *, const int *, T *, const int *);         \
  template void blkldlslvs<T>(const int *, const int *, const int *, const int *, const int *,  \
                              const int *, const int *, const int *, const T *, const int *,    \
                              const int *, T *, T *, const int *, const int *);
BLKLDLSLVS_INSTANCE(double)
BLKLDLSLVS_INSTANCE(float)

void blkldlslvs1_d(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const double *lnz, const int *pivot, const int *diagp,
                   double *x, const int *substep) {
  blkldlslvs1<double>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, substep);
}

void blkldlslvs_d(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                  const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                  const double *lnz, const int *pivot, const int *diagp, double *x, double *w,
                  const int *ldw, const int *substep) {
  blkldlslvs<double>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x,
                     w, ldw, substep);
}

void sp_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const float *lnz, const int *pivot, const int *diagp,
                    float *x, const int *substep) {
  blkldlslvs1<float>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, substep);
}

void sp_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const float *lnz, const int *pivot, const int *diagp, float *x, float *w,
                   const int *ldw, const int *substep) {
  blkldlslvs<float>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x,
                    w, ldw, substep);
}

// Complex symmetric factors (type 6, c_blkslvs): the same sweeps, with
// transposes and no conjugate.
BLKLDLSLVS_INSTANCE(std::complex<double>)
BLKLDLSLVS_INSTANCE(std::complex<float>)
