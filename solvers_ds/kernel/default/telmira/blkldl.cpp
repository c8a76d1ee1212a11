// blkldl.cpp - supernodal LDL^T factorization, left-looking, one sweep,
// with pivoting inside the diagonal block of each supernode.
//
// The sweep is the one of the Cholesky kernel: sources wait on a linked list
// per target (link); length(K) counts the rows of K, from the end of its
// list, still to be used as targets. An update carries K's block diagonal
// D: the rows that land in the target's columns, multiplied by D, form W in
// temp, and the target loses K's remaining rows times W^T.
#include "blkldl.h"

#include <cstdlib>

#include "dense/vek_dense.h"
#include "factor_progress.h"
#include "sweep_lists.h"
#include "telmira_scatter.h"

namespace {

// Position (zero-based) of row r of column c of the target: the end of
// column c minus the distance of r from the last row.
inline long entry_pos(const int *xlnz, int c, const int *indmap, int r) {
  return static_cast<long>(std::abs(xlnz[c])) - 2 - indmap[r - 1];
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

template <class T> void clear(T *x, long count) {
  for (long i = 0; i < count; ++i) x[i] = T(0);
}

// W := the nd leading remaining rows of K times K's D, nd by kncols with
// leading dimension nd. k: the remaining rows (leading dimension klda);
// kblk: K's diagonal block; kpiv: K's pivot records, whose negative pairs
// mark its 2 by 2 blocks when the pivoting is Bunch-Kaufman.
template <class T>
void form_w(const T *k, int klda, const T *kblk, int kncols, int nd, const int *kpiv,
            bool diagonal, T *w) {
  int i = 0;
  while (i < kncols) {
    const T *ki = k + static_cast<long>(i) * klda;
    T *wi = w + static_cast<long>(i) * nd;
    const T d11 = kblk[i + static_cast<long>(i) * klda];
    if (!diagonal && kpiv[i] < 0 && i + 1 < kncols) {
      const T d21 = kblk[i + 1 + static_cast<long>(i) * klda];
      const T d22 = kblk[i + 1 + static_cast<long>(i + 1) * klda];
      const T *ki1 = ki + klda;
      T *wi1 = wi + nd;
      for (int r = 0; r < nd; ++r) {
        wi[r] = d11 * ki[r] + d21 * ki1[r];
        wi1[r] = d21 * ki[r] + d22 * ki1[r];
      }
      i += 2;
    } else {
      for (int r = 0; r < nd; ++r) wi[r] = ki[r] * d11;
      i += 1;
    }
  }
}

}  // namespace

template <class T>
void blkldl_update(const int *nrows, const int *ncols, const int *fstcol, const int *lstcol,
                   const int *jlnz, const int *, const int *rem, const int *kncols,
                   const int *klnz, const int *klindx, const int *klda, const int *kdiag,
                   const int *kfst, const int *pivot, const int *diagp, const int *thread,
                   const int *n, T *lnz, const int *lindx, const int *xlnz, int *indmap,
                   int *relind, const int *tmpsize, T *temp, int *ndone, int *error) {
  const T mone = T(-1), one = T(1);
  int *map = indmap + static_cast<long>(*thread - 1) * *n;
  int *rel = relind + static_cast<long>(*thread - 1) * *n;
  T *tmp = temp + static_cast<long>(*thread - 1) * *tmpsize;
  const long tsize = *tmpsize;
  const int m = *rem, kn = *kncols, ld = *klda;
  const bool diagonal = *diagp != 0;
  const int *r = lindx + (*klindx - 1);  // r[0..m-1]: remaining rows
  const T *ksrc = lnz + (*klnz - 1);     // their entries in K's first column
  const T *kblk = lnz + (*kdiag - 1);    // K's diagonal block: its D
  const int *kpiv = pivot + (*kfst - 1);

  // 1. The remaining rows are exactly the target's rows.
  if (m == *nrows) {
    int nd = *ncols;
    *ndone = nd;
    if (static_cast<long>(kn) * nd > tsize) {
      *error = -2;
      return;
    }
    form_w(ksrc, ld, kblk, kn, nd, kpiv, diagonal, tmp);
    vekd::gemm<T>("N", "T", nrows, &nd, kncols, &mone, ksrc, klda, tmp, &nd, &one,
                  lnz + (*jlnz - 1), nrows);
    clear(tmp, static_cast<long>(kn) * nd);
    return;
  }
  // 2. Remaining rows inside the target's columns.
  int nd = 0;
  while (nd < m && r[nd] <= *lstcol) ++nd;
  *ndone = nd;

  // 3. One column, a 1 by 1 pivot: no dense kernel, W(i) = K(i) d.
  if (kn == 1) {
    const T d = kblk[0];
    for (int i = 0; i < nd; ++i) {
      const int c = r[i];
      const T wi = ksrc[i] * d;
      for (int j = 0; j < m; ++j) lnz[entry_pos(xlnz, c, map, r[j])] -= ksrc[j] * wi;
    }
    return;
  }
  // 4. Consecutive rows in the target's list: in place.
  const int r1 = r[0];
  const int d = map[r1 - 1] - map[r[m - 1] - 1];
  if (d < m) {
    if (static_cast<long>(kn) * nd > tsize) {
      *error = -2;
      return;
    }
    form_w(ksrc, ld, kblk, kn, nd, kpiv, diagonal, tmp);
    T *dst = lnz + (static_cast<long>(std::abs(xlnz[r1 - 1])) + r1 - *fstcol - 1);
    vekd::gemm<T>("N", "T", rem, &nd, kncols, &mone, ksrc, klda, tmp, &nd, &one, dst, nrows);
    clear(tmp, static_cast<long>(kn) * nd);
    return;
  }
  // 5. Scattered rows: the product in the first half of temp, W in the
  // second half.
  const long half = tsize / 2;
  if (static_cast<long>(m) * nd > half) {
    *error = -2;
    return;
  }
  for (int i = 0; i < m; ++i) rel[i] = map[r[i] - 1];
  if (static_cast<long>(kn) * nd > half) {
    *error = -2;
    return;
  }
  T *w = tmp + half;
  form_w(ksrc, ld, kblk, kn, nd, kpiv, diagonal, w);
  vekd::gemm<T>("N", "T", rem, &nd, kncols, &mone, ksrc, klda, w, &nd, &one, tmp, rem);
  clear(w, static_cast<long>(kn) * nd);
  for (int j = 0; j < nd; ++j) {
    // nrows - rel[j] is the place of column r[j] in the list, from 1.
    T *col_end = lnz + (std::abs(xlnz[*fstcol + *nrows - rel[j] - 1]) - 2);
    T *t = tmp + static_cast<long>(j) * m;
    for (int i = 0; i < m; ++i) {
      col_end[-rel[i]] += t[i];
      t[i] = T(0);
    }
  }
}

template <class T>
void blkldl(const T *a, const int *ja, const int *nsuper, const int *, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
            int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
            int *link, const int *snode, const int *xsup, int *length, int *pivot,
            const int *xjalf, const int *jalf, const int *luperm, const int *perm,
            const tlm::real_of<T> *eps, const int *diagp, int *npert, int *npos, int *nneg,
            const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
            const int *msglvl, int *error) {
  *error = 0;
  *npert = 0;
  *npos = 0;
  *nneg = 0;
  const int N = *n, ns = *nsuper;
  const int plain = 0;  // real values: no conjugates
  const bool diagonal = *diagp != 0;
  const bool scaled = *rowflag != 0;
  int thread = 1;
  for (int i = 0; i < N; ++i) link[i] = 0;
  factor_progress progress;
  if (factor_progress_start(&progress, *msglvl) != 0) {
    *error = -1;
    return;
  }
  clear(temp, *tmpsize);

  for (int J = 1; J <= ns; ++J) {
    const int fstcol = xsup[J - 1], lstcol = xsup[J] - 1;
    const int ncols = lstcol - fstcol + 1;
    const int nrows = std::abs(xlnz[fstcol]) - std::abs(xlnz[fstcol - 1]);
    const int jlnz = std::abs(xlnz[fstcol - 1]);
    const int jlindx = xlindx[J - 1];
    if (scaled)
      tlm::telmira_scatter_sym_scaled<T>(&J, a, ja, s, perm, xsup, xlindx, lindx, xlnz, lnz,
                                         xjalf, jalf, luperm, luperm_row, &plain, indmap);
    else
      tlm::telmira_scatter_sym<T>(&J, a, xsup, xlindx, lindx, xlnz, lnz, xjalf, jalf, luperm,
                                  &plain, indmap);

    for (int u = 0; u < nmod[J - 1]; ++u) {
      sweep_source src;
      if (!sweep_take(fstcol, link, snode, length, xsup, xlnz, xlindx, &src)) {
        *error = -1;  // the exact update counts rule an empty list out
        return;
      }
      const int rem = src.rem, kfst = src.kfst, kncols = src.kncols, klda = src.klda;
      const int klnz = src.klnz;
      const int kdiag = std::abs(xlnz[kfst - 1]);
      const int klindx = src.klindx;
      int ndone = 0;
      blkldl_update<T>(&nrows, &ncols, &fstcol, &lstcol, &jlnz, &jlindx, &rem, &kncols, &klnz,
                       &klindx, &klda, &kdiag, &kfst, pivot, diagp, &thread, n, lnz, lindx,
                       xlnz, indmap, relind, tmpsize, temp, &ndone, error);
      if (*error != 0) return;
      sweep_requeue(src, ndone, link, length, xsup, snode, xlindx, lindx);
    }

    // The diagonal block, then L21 := A21 M^-T D^-1.
    T *diag = lnz + (jlnz - 1);
    T *l21 = diag + ncols;
    int *piv = pivot + (fstcol - 1);
    const int below = nrows - ncols;
    int info = 0;
    if (diagonal) {
      for (int j = 0; j < ncols; ++j)
        for (int i = j + 1; i < ncols; ++i)
          diag[j + static_cast<long>(i) * nrows] = diag[i + static_cast<long>(j) * nrows];
      blkldl_diagfact<T>(&ncols, &ncols, diag, &nrows, piv, npert, npos, nneg, eps, &info);
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
    } else {
      blkldl_bkfact<T>("L", &ncols, diag, &nrows, piv, npert, npos, nneg, eps, &info);
      if (info != 0) {
        *error = -1;
        return;
      }
      if (below > 0) {
        // L21 transposed through temp, ncols by below.
        const long count = static_cast<long>(ncols) * below;
        if (count > *tmpsize) {
          *error = -2;
          return;
        }
        for (int j = 0; j < ncols; ++j)
          for (int i = 0; i < below; ++i)
            temp[j + static_cast<long>(i) * ncols] = l21[i + static_cast<long>(j) * nrows];
        blkldl_apply<T>("L", &ncols, &below, diag, &nrows, piv, temp, &ncols, &info);
        for (int j = 0; j < ncols; ++j)
          for (int i = 0; i < below; ++i)
            l21[i + static_cast<long>(j) * nrows] = temp[j + static_cast<long>(i) * ncols];
        clear(temp, count);
        if (info != 0) {
          *error = -1;
          return;
        }
      }
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

#define BLKLDL_INSTANCE(T)                                                                 \
  template void blkldl_update<T>(const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const int *, T *, const int *, const int *, int *,       \
                                 int *, const int *, T *, int *, int *);                  \
  template void blkldl<T>(const T *, const int *, const int *, const int *, const int *,  \
                          const int *, const int *, const int *, const int *, T *, int *, \
                          int *, const int *, T *, const int *, int *, const int *,       \
                          const int *, int *, int *, const int *, const int *,            \
                          const int *, const int *, const T *, const int *, int *, int *, \
                          int *, const T *, const int *, const int *, const int *, int *);
BLKLDL_INSTANCE(double)
BLKLDL_INSTANCE(float)

void blkldl_d(const double *a, const int *ja, const int *nsuper, const int *nthreads,
              const int *n, const int *nnzl, const int *xlindx, const int *lindx,
              const int *xlnz, double *lnz, int *indmap, int *relind, const int *tmpsize,
              double *temp, const int *nmod, int *link, const int *snode, const int *xsup,
              int *length, int *pivot, const int *xjalf, const int *jalf, const int *luperm,
              const int *perm, const double *eps, const int *diagp, int *npert, int *npos,
              int *nneg, const double *s, const int *rowflag, const int *luperm_row,
              const int *msglvl, int *error) {
  blkldl<double>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, indmap, relind,
                 tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf, luperm,
                 perm, eps, diagp, npert, npos, nneg, s, rowflag, luperm_row, msglvl, error);
}
void sp_blkldl(const float *a, const int *ja, const int *nsuper, const int *nthreads,
               const int *n, const int *nnzl, const int *xlindx, const int *lindx,
               const int *xlnz, float *lnz, int *indmap, int *relind, const int *tmpsize,
               float *temp, const int *nmod, int *link, const int *snode, const int *xsup,
               int *length, int *pivot, const int *xjalf, const int *jalf, const int *luperm,
               const int *perm, const float *eps, const int *diagp, int *npert, int *npos,
               int *nneg, const float *s, const int *rowflag, const int *luperm_row,
               const int *msglvl, int *error) {
  blkldl<float>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, indmap, relind,
                tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf, luperm,
                perm, eps, diagp, npert, npos, nneg, s, rowflag, luperm_row, msglvl, error);
}

// Complex symmetric values (type 6, c_blkl): the same sweep, with the
// complex block routines declared in c_blkl.h.
#include "c_blkl.h"

#define BLKLDL_COMPLEX_INSTANCE(T)                                                         \
  template void blkldl_update<T>(const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const int *, const int *, const int *, const int *,      \
                                 const int *, T *, const int *, const int *, int *,       \
                                 int *, const int *, T *, int *, int *);                  \
  template void blkldl<T>(const T *, const int *, const int *, const int *, const int *,  \
                          const int *, const int *, const int *, const int *, T *, int *, \
                          int *, const int *, T *, const int *, int *, const int *,       \
                          const int *, int *, int *, const int *, const int *,            \
                          const int *, const int *, const tlm::real_of<T> *, const int *, \
                          int *, int *, int *, const tlm::real_of<T> *, const int *,      \
                          const int *, const int *, int *);
BLKLDL_COMPLEX_INSTANCE(tlm::zcomplex)
BLKLDL_COMPLEX_INSTANCE(tlm::ccomplex)
