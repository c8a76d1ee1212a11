// blkl.cpp - supernodal Cholesky factorization, left-looking, one sweep.
//
// Supernode J's block is dense, column-major, nrows by ncols, its diagonal
// block L11 on top and L21 below. Sources wait on a linked list per target
// (link); length(K) counts the rows of K, from the end of its list, that are
// still to be used as targets.
#include "blkl.h"

#include <cstdio>
#include <cstdlib>

#include "dense/vek_dense.h"
#include "factor_progress.h"
#include "sweep_lists.h"
#include "telmira_scatter.h"
#include "service/vek_serv_message.h"
#include "service/vek_serv_threads.h"

namespace {

// Position (zero-based) of row r of column c of the target: the end of
// column c minus the distance of r from the last row.
inline long entry_pos(const int *xlnz, int c, const int *indmap, int r) {
  return static_cast<long>(std::abs(xlnz[c])) - 2 - indmap[r - 1];
}

}  // namespace

template <class T>
void blkl_update(const int *nrows, const int *ncols, const int *fstcol,
                 const int *lstcol, const int *jlnz, const int *, const int *rem,
                 const int *kncols, const int *klnz, const int *klindx,
                 const int *klda, const int *thread, const int *n, T *lnz,
                 const int *lindx, const int *xlnz, int *indmap, int *relind,
                 const int *tmpsize, T *temp, int *ndone, int *error) {
  const T mone = T(-1), one = T(1);
  int *map = indmap + static_cast<long>(*thread - 1) * *n;
  int *rel = relind + static_cast<long>(*thread - 1) * *n;
  T *tmp = temp + static_cast<long>(*thread - 1) * *tmpsize;
  const int m = *rem;
  const int *r = lindx + (*klindx - 1);  // r[0..m-1]: remaining rows
  T *ksrc = lnz + (*klnz - 1);           // their entries in K's first column

  // 1. The remaining rows are exactly the target's rows.
  if (m == *nrows) {
    vekd::gemm<T>("N", "T", nrows, ncols, kncols, &mone, ksrc, klda, ksrc, klda, &one,
                  lnz + (*jlnz - 1), nrows);
    *ndone = *ncols;
    return;
  }
  // 2. Remaining rows inside the target's columns.
  int nd = 0;
  while (nd < m && r[nd] <= *lstcol) ++nd;
  *ndone = nd;

  // 3. One column: no dense kernel.
  if (*kncols == 1) {
    for (int i = 0; i < nd; ++i) {
      const int c = r[i];
      const T ki = ksrc[i];
      for (int j = 0; j < m; ++j) lnz[entry_pos(xlnz, c, map, r[j])] -= ksrc[j] * ki;
    }
    return;
  }
  // 4. Consecutive rows in the target's list: in place.
  const int r1 = r[0];
  const int d = map[r1 - 1] - map[r[m - 1] - 1];
  if (d < m) {
    T *dst = lnz + (static_cast<long>(xlnz[r1 - 1]) + r1 - *fstcol - 1);
    vekd::gemm<T>("N", "T", rem, &nd, kncols, &mone, ksrc, klda, ksrc, klda, &one, dst,
                  nrows);
    return;
  }
  // 5. Scattered rows: through temp.
  if (static_cast<long>(m) * nd > *tmpsize) {
    *error = -2;
    return;
  }
  for (int i = 0; i < m; ++i) rel[i] = map[r[i] - 1];
  const T zero = T(0);
  vekd::gemm<T>("N", "T", rem, &nd, kncols, &mone, ksrc, klda, ksrc, klda, &zero, tmp, rem);
  for (int j = 0; j < nd; ++j) {
    const int c = r[j];
    T *col_end = lnz + (std::abs(xlnz[*fstcol + *nrows - map[c - 1] - 1]) - 2);
    T *t = tmp + static_cast<long>(j) * m;
    for (int i = 0; i < m; ++i) {
      col_end[-rel[i]] += t[i];
      t[i] = T(0);
    }
  }
}

template <class T>
void blkl(const T *a, const int *nsuper, const int *, const int *n, const int *nnzl,
          const int *xlindx, const int *lindx, const int *xlnz, T *lnz, int *indmap,
          int *relind, const int *tmpsize, T *temp, const int *nmod, int *link,
          const int *snode, const int *xsup, int *length, const int *xjalf,
          const int *jalf, const int *luperm, const int *perm, const int *msglvl,
          int *error) {
  *error = 0;
  const int N = *n, ns = *nsuper;
  const int plain = 0;  // real values: no conjugates
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
    tlm::telmira_scatter_sym<T>(&J, a, xsup, xlindx, lindx, xlnz, lnz, xjalf, jalf, luperm,
                                &plain, indmap);

    for (int u = 0; u < nmod[J - 1]; ++u) {
      sweep_source src;
      if (!sweep_take(fstcol, link, snode, length, xsup, xlnz, xlindx, &src)) {
        *error = -1;  // the exact update counts rule an empty list out
        return;
      }
      const int rem = src.rem, kncols = src.kncols, klda = src.klda;
      const int klnz = src.klnz;
      const int klindx = src.klindx;
      int ndone = 0;
      blkl_update<T>(&nrows, &ncols, &fstcol, &lstcol, &jlnz, &jlindx, &rem, &kncols,
                     &klnz, &klindx, &klda, &thread, n, lnz, lindx, xlnz, indmap, relind,
                     tmpsize, temp, &ndone, error);
      if (*error != 0) return;
      sweep_requeue(src, ndone, link, length, xsup, snode, xlindx, lindx);
    }

    int info = 0;
    vekd::potrf<T>("L", &ncols, lnz + (jlnz - 1), &nrows, &info);
    if (info > 0) {
      *error = perm[fstcol + info - 2];
      return;
    }
    if (info < 0) {
      *error = -1;
      return;
    }
    if (ncols < nrows) {
      const int below = nrows - ncols;
      const T one = T(1);
      vekd::trsm<T>("R", "L", "T", "N", &below, &ncols, &one, lnz + (jlnz - 1), &nrows,
                    lnz + (jlnz - 1 + ncols), &nrows);
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

#define BLKL_INSTANCE(T)                                                                \
  template void blkl_update<T>(const int *, const int *, const int *, const int *,    \
                               const int *, const int *, const int *, const int *,    \
                               const int *, const int *, const int *, const int *,    \
                               const int *, T *, const int *, const int *, int *,     \
                               int *, const int *, T *, int *, int *);                \
  template void blkl<T>(const T *, const int *, const int *, const int *, const int *, \
                        const int *, const int *, const int *, T *, int *, int *,     \
                        const int *, T *, const int *, int *, const int *,            \
                        const int *, int *, const int *, const int *, const int *,    \
                        const int *, const int *, int *);
BLKL_INSTANCE(double)
BLKL_INSTANCE(float)

void blkl_d(const double *a, const int *nsuper, const int *nthreads, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
            double *lnz, int *indmap, int *relind, const int *tmpsize, double *temp,
            const int *nmod, int *link, const int *snode, const int *xsup, int *length,
            const int *xjalf, const int *jalf, const int *luperm, const int *perm,
            const int *msglvl, int *error) {
  blkl<double>(a, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, indmap, relind,
               tmpsize, temp, nmod, link, snode, xsup, length, xjalf, jalf, luperm, perm,
               msglvl, error);
}
void sp_blkl(const float *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             float *lnz, int *indmap, int *relind, const int *tmpsize, float *temp,
             const int *nmod, int *link, const int *snode, const int *xsup, int *length,
             const int *xjalf, const int *jalf, const int *luperm, const int *perm,
             const int *msglvl, int *error) {
  blkl<float>(a, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, indmap, relind,
              tmpsize, temp, nmod, link, snode, xsup, length, xjalf, jalf, luperm, perm,
              msglvl, error);
}
