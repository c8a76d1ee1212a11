// blkl_omp.cpp - supernodal Cholesky factorization on several threads.
//
// The sweep of blkl, shared out among the threads of one parallel region:
// the supernodes of each range of `parts` go by a dynamic loop in ascending
// order, with a barrier between ranges. A finished supernode publishes
// itself into the incoming list of every target it updates (up, uplen,
// with link as the cursor of each target's list); a target polls its list
// and applies the sources in the order they arrived. Every descendant of a
// supernode has a lower number, so that it is either in an earlier range
// or taken earlier in the same loop: the polling cannot deadlock.
#include "blkl.h"

#include <omp.h>

#include <cstdio>
#include <cstdlib>

#include "dense/vek_dense.h"
#include "factor_progress.h"
#include "telmira_scatter.h"
#include "service/vek_serv_message.h"
#include "service/vek_serv_threads.h"

namespace {

// Shared state of one factorization.
struct omp_sweep {
  int *error;
  int arrivals;  // thread numbers handed out, under lock_thread
};

// The error cell as the threads see it: read and written under lock_update,
// so that a poll never works on a stale copy.
int error_seen(const int *error) {
  int e;
#pragma omp critical(lock_update)
  e = *error;
  return e;
}

void error_set(int *error, int value) {
#pragma omp critical(lock_update)
  *error = value;
}

template <class T>
void factor_one(int J, int thread, const T *a, const int *n, const int *xlindx,
                const int *lindx, const int *xlnz, T *lnz, int *indmap, int *relind,
                const int *tmpsize, T *temp, const int *nmod, int *link,
                const int *snode, const int *xsup, const int *xjalf, const int *jalf,
                const int *luperm, const int *perm, const int *xnmod,
                const int *xslindx, const int *slindx, const int *slength, int *up,
                int *uplen, int *error) {
  if (error_seen(error) != 0) return;
  const int fstcol = xsup[J - 1], lstcol = xsup[J] - 1;
  const int ncols = lstcol - fstcol + 1;
  const int nrows = std::abs(xlnz[fstcol]) - std::abs(xlnz[fstcol - 1]);
  const int jlnz = std::abs(xlnz[fstcol - 1]);
  const int jlindx = xlindx[J - 1];
  int *map = indmap + static_cast<long>(thread - 1) * *n;
  const int plain = 0;  // real values: no conjugates
  tlm::telmira_scatter_sym<T>(&J, a, xsup, xlindx, lindx, xlnz, lnz, xjalf, jalf, luperm,
                              &plain, map);

  // The updates, as the sources arrive.
  int pending = nmod[J - 1];
  int pos = xnmod[J - 1];
  while (pending > 0) {
    int end = pos;
    // The test reads link(J) only when the list may have moved on.
    if (__atomic_load_n(&link[J - 1], __ATOMIC_ACQUIRE) == pos) {
      if (__atomic_load_n(error, __ATOMIC_RELAXED) != 0) return;
      continue;
    }
#pragma omp critical(lock_update)
    end = link[J - 1];
    if (error_seen(error) != 0) return;
    for (int i = pos; i < end; ++i) {
      const int kc = up[i - 1];
      const int K = snode[kc - 1];
      const int rem = uplen[i - 1];
      const int kfst = xsup[K - 1];
      const int kncols = xsup[K] - kfst;
      const int klda = std::abs(xlnz[kfst]) - std::abs(xlnz[kfst - 1]);
      const int klnz = std::abs(xlnz[kfst]) - rem;
      const int klindx = xlindx[K] - rem;
      int ndone = 0, err = 0;
      blkl_update<T>(&nrows, &ncols, &fstcol, &lstcol, &jlnz, &jlindx, &rem, &kncols,
                     &klnz, &klindx, &klda, &thread, n, lnz, lindx, xlnz, indmap, relind,
                     tmpsize, temp, &ndone, &err);
      if (err != 0) {
        error_set(error, err);
        return;
      }
    }
    pending -= end - pos;
    pos = end;
  }

  int info = 0;
  vekd::potrf<T>("L", &ncols, lnz + (jlnz - 1), &nrows, &info);
  if (info != 0) {
    error_set(error, info > 0 ? perm[fstcol + info - 2] : -1);
    return;
  }
  if (ncols < nrows) {
    const int below = nrows - ncols;
    const T one = T(1);
    vekd::trsm<T>("R", "L", "T", "N", &below, &ncols, &one, lnz + (jlnz - 1), &nrows,
                  lnz + (jlnz - 1 + ncols), &nrows);
  }

  // Publish J to its targets.
#pragma omp critical(lock_update)
  for (int i = xslindx[J - 1]; i < xslindx[J]; ++i) {
    const int target = snode[slindx[i - 1] - 1];
    const int q = link[target - 1];
    up[q - 1] = fstcol;
    uplen[q - 1] = slength[i - 1];
    link[target - 1] = q + 1;
  }
}

}  // namespace

template <class T>
void blkl_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
              const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
              T *lnz, int *indmap, int *relind, const int *tmpsize, T *temp,
              const int *nmod, int *link, const int *snode, const int *xsup,
              const int *xjalf, const int *jalf, const int *luperm, const int *perm,
              const int *nparts, const int *parts, const int *xnmod, const int *xslindx,
              const int *slindx, const int *slength, int *up, int *uplen,
              const int *msglvl, int *error) {
  *error = 0;
  const int ns = *nsuper;
  for (int s = 0; s < ns; ++s) link[s] = xnmod[s];
  // Thread 1 reports; the hook's answer stops only the report before the
  // region.
  factor_progress progress;
  if (factor_progress_start(&progress, *msglvl) != 0) {
    *error = -1;
    return;
  }
  // Ranges: each pair of parts, the gaps between them, and the top.
  const int np = *nparts > 0 ? *nparts : 1;
  omp_sweep sweep{error, 0};
  int team = *nthreads > 0 ? *nthreads : 1;

#pragma omp parallel num_threads(team)
  {
    int thread = 0;
#pragma omp critical(lock_thread)
    thread = ++sweep.arrivals;
    T *slice = temp + static_cast<long>(thread - 1) * *tmpsize;
    for (int i = 0; i < *tmpsize; ++i) slice[i] = T(0);
    long done_entries = 0;
    const int workers = omp_get_num_threads();

    int end = 0;  // last supernode of the ranges so far
    for (int k = 0; k <= np; ++k) {
      int lo, hi;
      if (k < np && *nparts > 0) {
        lo = parts[2 * k];
        hi = parts[2 * k + 1];
        if (hi < lo) continue;
        if (lo > end + 1) {
          // Supernodes between two pairs form a range of their own.
          const int glo = end + 1, ghi = lo - 1;
#pragma omp for schedule(dynamic, 1)
          for (int J = glo; J <= ghi; ++J)
            factor_one<T>(J, thread, a, n, xlindx, lindx, xlnz, lnz, indmap, relind,
                          tmpsize, temp, nmod, link, snode, xsup, xjalf, jalf, luperm,
                          perm, xnmod, xslindx, slindx, slength, up, uplen, error);
        }
      } else {
        lo = end + 1;
        hi = ns;
      }
#pragma omp for schedule(dynamic, 1)
      for (int J = lo; J <= hi; ++J) {
        factor_one<T>(J, thread, a, n, xlindx, lindx, xlnz, lnz, indmap, relind, tmpsize,
                      temp, nmod, link, snode, xsup, xjalf, jalf, luperm, perm, xnmod,
                      xslindx, slindx, slength, up, uplen, error);
        if (thread == 1) {
          const int f = xsup[J - 1];
          done_entries += static_cast<long>(std::abs(xlnz[xsup[J] - 1]) -
                                            std::abs(xlnz[f - 1]));
          long p = static_cast<long>(100.0 * workers * done_entries /
                                     (*nnzl > 0 ? *nnzl : 1));
          if (p > 99) p = 99;
          factor_progress_step(&progress, static_cast<int>(p));
        }
      }
      if (hi > end) end = hi;
      if (end >= ns) break;
    }
    if (thread == 1) factor_progress_end(&progress);
  }
}

#define BLKL_OMP_INSTANCE(T)                                                           \
  template void blkl_omp<T>(const T *, const int *, const int *, const int *,         \
                            const int *, const int *, const int *, const int *, T *,  \
                            int *, int *, const int *, T *, const int *, int *,       \
                            const int *, const int *, const int *, const int *,       \
                            const int *, const int *, const int *, const int *,       \
                            const int *, const int *, const int *, const int *, int *, \
                            int *, const int *, int *);
BLKL_OMP_INSTANCE(double)
BLKL_OMP_INSTANCE(float)
