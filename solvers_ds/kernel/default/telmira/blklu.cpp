// blklu.cpp - supernodal LU factorization, left-looking, one sweep, with
// pivoting inside the diagonal block of each supernode.
//
// The sweep is the one of the Cholesky kernel: sources wait on a linked list
// per target (link); length(K) counts the rows of K, from the end of its
// list, still to be used as targets. Each update takes two products, one
// for the L part (all of the target's columns hit by the source, the
// diagonal block included) and one for the U part below the diagonal block.
#include "blklu.h"

#include <cstdio>
#include <cstdlib>

#include "dense/vek_dense.h"
#include "factor_progress.h"
#include "sweep_lists.h"
#include "telmira_scatter.h"
#include "service/vek_serv_message.h"
#include "service/vek_serv_threads.h"

namespace {

// Position (zero-based) of row r of column c of the target, in lnz or in
// unz: the end of column c minus the distance of r from the last row. The
// U part of a column ends where its L part does, both at the last row.
inline long entry_pos(const int *x, int c, const int *indmap, int r) {
  return static_cast<long>(std::abs(x[c])) - 2 - indmap[r - 1];
}

template <class T> void swap_columns(T *a, int lda, int rows, int i, int j) {
  T *x = a + static_cast<long>(i - 1) * lda;
  T *y = a + static_cast<long>(j - 1) * lda;
  for (int k = 0; k < rows; ++k) {
    const T t = x[k];
    x[k] = y[k];
    y[k] = t;
  }
}

// The arguments that only blklu_unsym has; complete = false for blklu.
template <class T> struct unsym_args {
  bool complete = false;
  const int *ja = nullptr;
  int *cpivot = nullptr;
  const tlm::real_of<T> *eps = nullptr;
  int *npert = nullptr;
  const tlm::real_of<T> *s = nullptr;
  bool scaled = false;
  const int *luperm_row = nullptr;
};

template <class T>
void lu_sweep(const T *a, const int *nsuper, const int *n, const int *nnzl,
              const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
              const int *xunz, T *unz, int *indmap, int *relind, const int *tmpsize,
              T *temp, const int *nmod, int *link, const int *snode, const int *xsup,
              int *length, int *pivot, const int *xjalf, const int *jalf,
              const int *xjauf, const int *jauf, const int *luperm, const int *msglvl,
              const unsym_args<T> &u, int *error) {
  *error = 0;
  const int N = *n, ns = *nsuper;
  int thread = 1;
  for (int i = 0; i < N; ++i) link[i] = 0;
  factor_progress progress;
  if (factor_progress_start(&progress, *msglvl) != 0) {
    *error = -1;
    return;
  }
  for (int i = 0; i < *tmpsize; ++i) temp[i] = T(0);

  for (int J = 1; J <= ns; ++J) {
    const int fstcol = xsup[J - 1], lstcol = xsup[J] - 1;
    const int ncols = lstcol - fstcol + 1;
    const int nrows = std::abs(xlnz[fstcol]) - std::abs(xlnz[fstcol - 1]);
    const int jlnz = std::abs(xlnz[fstcol - 1]);
    const int jlindx = xlindx[J - 1];
    if (u.scaled)
      tlm::telmira_scatter_lu_scaled<T>(&J, n, a, u.ja, u.s, xsup, xlindx, lindx, xlnz, lnz,
                                        xunz, unz, xjalf, jalf, xjauf, jauf, luperm,
                                        u.luperm_row, indmap);
    else
      tlm::telmira_scatter_lu<T>(&J, n, a, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, xjalf,
                                 jalf, xjauf, jauf, luperm, indmap);

    for (int m = 0; m < nmod[J - 1]; ++m) {
      sweep_source src;
      if (!sweep_take(fstcol, link, snode, length, xsup, xlnz, xlindx, &src)) {
        *error = -1;  // the exact update counts rule an empty list out
        return;
      }
      const int rem = src.rem, kfst = src.kfst, kncols = src.kncols, klda = src.klda;
      const int ku = klda - kncols;
      const int klnz = src.klnz;
      const int kunz = std::abs(xunz[kfst]) - rem;
      const int klindx = src.klindx;
      int ndone = 0;
      blklu_update<T>(&nrows, &ncols, &fstcol, &lstcol, &jlnz, &jlindx, &rem, &kncols, &klnz,
                      &klindx, &klda, &kunz, &ku, &thread, n, lnz, unz, lindx, xlnz, xunz,
                      indmap, relind, tmpsize, temp, &ndone, error);
      if (*error != 0) return;
      sweep_requeue(src, ndone, link, length, xsup, snode, xlindx, lindx);
    }

    // The diagonal block.
    T *diag = lnz + (jlnz - 1);
    int *piv = pivot + (fstcol - 1);
    int info = 0;
    if (u.complete)
      blklu_blockfact<T>(&ncols, diag, &nrows, piv, u.cpivot + (fstcol - 1), u.npert, u.eps,
                         &info);
    else
      vekd::getrf<T>(&ncols, &ncols, diag, &nrows, piv, &info);
    if (info != 0) {
      *error = -1;
      return;
    }

    // L21 := L21 Q U11^-1; U12^T := (P U12)^T L11^-T.
    if (ncols < nrows) {
      const int below = nrows - ncols;
      const T one = T(1);
      T *l21 = diag + ncols;
      T *u12t = unz + (std::abs(xunz[fstcol - 1]) - 1);
      if (u.complete) {
        const int *cp = u.cpivot + (fstcol - 1);
        for (int i = 1; i < ncols; ++i)
          if (cp[i - 1] != i) swap_columns(l21, nrows, below, i, cp[i - 1]);
      }
      vekd::trsm<T>("R", "U", "N", "N", &below, &ncols, &one, diag, &nrows, l21, &nrows);
      for (int i = 1; i < ncols; ++i)
        if (piv[i - 1] != i) swap_columns(u12t, below, below, i, piv[i - 1]);
      vekd::trsm<T>("R", "L", "T", "U", &below, &ncols, &one, diag, &nrows, u12t, &below);
    }
    sweep_release(J, fstcol, ncols, nrows, jlindx, link, length, xsup, snode, lindx);

    const int p = static_cast<int>(100.0 * (jlnz - 1) / (*nnzl > 0 ? *nnzl : 1));
    if (factor_progress_step(&progress, p) != 0) {
      *error = -1;
      return;
    }
  }
  if (factor_progress_end(&progress) != 0) *error = -1;
}

}  // namespace

template <class T>
void blklu_update(const int *nrows, const int *ncols, const int *fstcol, const int *lstcol,
                  const int *jlnz, const int *, const int *rem, const int *kncols,
                  const int *klnz, const int *klindx, const int *klda, const int *kunz,
                  const int *ku, const int *thread, const int *n, T *lnz, T *unz,
                  const int *lindx, const int *xlnz, const int *xunz, int *indmap,
                  int *relind, const int *tmpsize, T *temp, int *ndone, int *error) {
  const T mone = T(-1), one = T(1);
  int *map = indmap + static_cast<long>(*thread - 1) * *n;
  int *rel = relind + static_cast<long>(*thread - 1) * *n;
  T *tmp = temp + static_cast<long>(*thread - 1) * *tmpsize;
  const int m = *rem;
  const int *r = lindx + (*klindx - 1);  // r[0..m-1]: remaining rows
  const T *lk = lnz + (*klnz - 1);       // L(r, K's columns), leading dimension klda
  const T *uk = unz + (*kunz - 1);       // U(K's columns, r) transposed, leading dimension ku
  const int below = *nrows - *ncols;
  T *ju = unz + (std::abs(xunz[*fstcol - 1]) - 1);  // the target's U block

  // 1. The remaining rows are exactly the target's rows.
  if (m == *nrows) {
    *ndone = *ncols;
    vekd::gemm<T>("N", "T", nrows, ncols, kncols, &mone, lk, klda, uk, ku, &one,
                  lnz + (*jlnz - 1), nrows);
    if (below > 0)
      vekd::gemm<T>("N", "T", &below, ncols, kncols, &mone, uk + *ncols, ku, lk, klda, &one,
                    ju, &below);
    return;
  }
  // 2. Remaining rows inside the target's columns.
  int nd = 0;
  while (nd < m && r[nd] <= *lstcol) ++nd;
  *ndone = nd;
  const int rest = m - nd;  // rows below the target's diagonal block

  // 3. One column: no dense kernel.
  if (*kncols == 1) {
    for (int i = 0; i < nd; ++i) {
      const int c = r[i];
      const T ui = uk[i];
      for (int j = 0; j < m; ++j) lnz[entry_pos(xlnz, c, map, r[j])] -= lk[j] * ui;
    }
    for (int i = 0; i < nd; ++i) {
      const int c = r[i];
      const T li = lk[i];
      for (int j = nd; j < m; ++j) unz[entry_pos(xunz, c, map, r[j])] -= uk[j] * li;
    }
    return;
  }
  // 4. Consecutive rows in the target's list: in place. The rows below the
  // diagonal block then start with the target's first row below it.
  const int r1 = r[0];
  const int d = map[r1 - 1] - map[r[m - 1] - 1];
  if (d < m) {
    T *dst = lnz + (static_cast<long>(std::abs(xlnz[r1 - 1])) + r1 - *fstcol - 1);
    vekd::gemm<T>("N", "T", rem, &nd, kncols, &mone, lk, klda, uk, ku, &one, dst, nrows);
    if (rest > 0)
      vekd::gemm<T>("N", "T", &rest, &nd, kncols, &mone, uk + nd, ku, lk, klda, &one,
                    unz + (std::abs(xunz[r1 - 1]) - 1), &below);
    return;
  }
  // 5. Scattered rows: through temp, one relative index for both parts.
  if (static_cast<long>(m) * nd > *tmpsize) {
    *error = -2;
    return;
  }
  for (int i = 0; i < m; ++i) rel[i] = map[r[i] - 1];
  vekd::gemm<T>("N", "T", rem, &nd, kncols, &mone, lk, klda, uk, ku, &one, tmp, rem);
  for (int j = 0; j < nd; ++j) {
    // nrows - rel[j] is the place of column r[j] in the list, from 1.
    T *col_end = lnz + (std::abs(xlnz[*fstcol + *nrows - rel[j] - 1]) - 2);
    T *t = tmp + static_cast<long>(j) * m;
    for (int i = 0; i < m; ++i) {
      col_end[-rel[i]] += t[i];
      t[i] = T(0);
    }
  }
  if (rest > 0) {
    vekd::gemm<T>("N", "T", &rest, &nd, kncols, &mone, uk + nd, ku, lk, klda, &one, tmp,
                  &rest);
    for (int j = 0; j < nd; ++j) {
      T *col_end = unz + (std::abs(xunz[*fstcol + *nrows - rel[j] - 1]) - 2);
      T *t = tmp + static_cast<long>(j) * rest;
      for (int i = 0; i < rest; ++i) {
        col_end[-rel[nd + i]] += t[i];
        t[i] = T(0);
      }
    }
  }
}

template <class T>
void blklu(const T *a, const int *nsuper, const int *, const int *n, const int *nnzl,
           const int *xlindx, const int *lindx, const int *xlnz, T *lnz, const int *xunz,
           T *unz, int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
           int *link, const int *snode, const int *xsup, int *length, int *pivot,
           const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
           const int *luperm, const int *, const int *msglvl, int *error) {
  const unsym_args<T> none;
  lu_sweep<T>(a, nsuper, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz, indmap, relind,
              tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf, xjauf,
              jauf, luperm, msglvl, none, error);
}

template <class T>
void blklu_unsym(const T *a, const int *ja, const int *nsuper, const int *, const int *n,
                 const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
                 T *lnz, const int *xunz, T *unz, int *indmap, int *relind,
                 const int *tmpsize, T *temp, const int *nmod, int *link, const int *snode,
                 const int *xsup, int *length, int *pivot, int *cpivot, const int *xjalf,
                 const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
                 const int *, const tlm::real_of<T> *eps, int *npert,
                 const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
                 const int *msglvl, int *error) {
  *npert = 0;
  unsym_args<T> u;
  u.complete = true;
  u.ja = ja;
  u.cpivot = cpivot;
  u.eps = eps;
  u.npert = npert;
  u.s = s;
  u.scaled = *rowflag != 0;
  u.luperm_row = luperm_row;
  lu_sweep<T>(a, nsuper, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz, indmap, relind,
              tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf, xjauf,
              jauf, luperm, msglvl, u, error);
}

#define BLKLU_INSTANCE(T)                                                                 \
  template void blklu_update<T>(const int *, const int *, const int *, const int *,      \
                                const int *, const int *, const int *, const int *,      \
                                const int *, const int *, const int *, const int *,      \
                                const int *, const int *, const int *, T *, T *,         \
                                const int *, const int *, const int *, int *, int *,     \
                                const int *, T *, int *, int *);                         \
  template void blklu<T>(const T *, const int *, const int *, const int *, const int *,  \
                         const int *, const int *, const int *, T *, const int *, T *,   \
                         int *, int *, const int *, T *, const int *, int *,             \
                         const int *, const int *, int *, int *, const int *,            \
                         const int *, const int *, const int *, const int *,             \
                         const int *, const int *, int *);                               \
  template void blklu_unsym<T>(                                                          \
      const T *, const int *, const int *, const int *, const int *, const int *,       \
      const int *, const int *, const int *, T *, const int *, T *, int *, int *,       \
      const int *, T *, const int *, int *, const int *, const int *, int *, int *,     \
      int *, const int *, const int *, const int *, const int *, const int *,           \
      const int *, const tlm::real_of<T> *, int *, const tlm::real_of<T> *,             \
      const int *, const int *, const int *, int *);
BLKLU_INSTANCE(double)
BLKLU_INSTANCE(float)

void blklu_d(const double *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             double *lnz, const int *xunz, double *unz, int *indmap, int *relind,
             const int *tmpsize, double *temp, const int *nmod, int *link,
             const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
             const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
             const int *perm, const int *msglvl, int *error) {
  blklu<double>(a, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz, indmap,
                relind, tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf,
                xjauf, jauf, luperm, perm, msglvl, error);
}
void sp_blklu(const float *a, const int *nsuper, const int *nthreads, const int *n,
              const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
              float *lnz, const int *xunz, float *unz, int *indmap, int *relind,
              const int *tmpsize, float *temp, const int *nmod, int *link,
              const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
              const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
              const int *perm, const int *msglvl, int *error) {
  blklu<float>(a, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz, indmap,
               relind, tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf,
               xjauf, jauf, luperm, perm, msglvl, error);
}
void blklu_unsym_d(const double *a, const int *ja, const int *nsuper, const int *nthreads,
                   const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                   const int *xlnz, double *lnz, const int *xunz, double *unz, int *indmap,
                   int *relind, const int *tmpsize, double *temp, const int *nmod,
                   int *link, const int *snode, const int *xsup, int *length, int *pivot,
                   int *cpivot, const int *xjalf, const int *jalf, const int *xjauf,
                   const int *jauf, const int *luperm, const int *perm, const double *eps,
                   int *npert, const double *s, const int *rowflag, const int *luperm_row,
                   const int *msglvl, int *error) {
  blklu_unsym<double>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz,
                      indmap, relind, tmpsize, temp, nmod, link, snode, xsup, length, pivot,
                      cpivot, xjalf, jalf, xjauf, jauf, luperm, perm, eps, npert, s, rowflag,
                      luperm_row, msglvl, error);
}
void sp_blklu_unsym(const float *a, const int *ja, const int *nsuper, const int *nthreads,
                    const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                    const int *xlnz, float *lnz, const int *xunz, float *unz, int *indmap,
                    int *relind, const int *tmpsize, float *temp, const int *nmod,
                    int *link, const int *snode, const int *xsup, int *length, int *pivot,
                    int *cpivot, const int *xjalf, const int *jalf, const int *xjauf,
                    const int *jauf, const int *luperm, const int *perm, const float *eps,
                    int *npert, const float *s, const int *rowflag, const int *luperm_row,
                    const int *msglvl, int *error) {
  blklu_unsym<float>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz,
                     indmap, relind, tmpsize, temp, nmod, link, snode, xsup, length, pivot,
                     cpivot, xjalf, jalf, xjauf, jauf, luperm, perm, eps, npert, s, rowflag,
                     luperm_row, msglvl, error);
}

// Complex values take the same sweep; only the block factorization of the
// complete pivoting has a form of its own, the specialization declared in
// c_blklu.h.
#include "c_blklu.h"
BLKLU_INSTANCE(tlm::zcomplex)
BLKLU_INSTANCE(tlm::ccomplex)
