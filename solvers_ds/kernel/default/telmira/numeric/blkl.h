// blkl.h - supernodal Cholesky factorization in one left-looking sweep:
// L L^T for real values (blkl, matrix type 2), L L^H for complex values
// (ch_blkl, type 4; the stored triangle's mirrored entries arrive
// conjugated, the diagonal blocks are factorized column by column).
//
// All arrays are one-based in their contents and passed by their first
// element. The error cell ends as 0, -1 (dense routine failure or stop asked
// by the progress hook), -2 (update larger than tmpsize) or the input-matrix
// column of a pivot that is not positive.
#ifndef TELMIRA_BLKL_H
#define TELMIRA_BLKL_H

#include "telmira_types.h"

// The sequential sweep. nnzl is comi(34), the length of lnz, for progress;
// nthreads is not used.
template <class T>
void blkl(const T *a, const int *nsuper, const int *nthreads, const int *n,
          const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
          T *lnz, int *indmap, int *relind, const int *tmpsize, T *temp,
          const int *nmod, int *link, const int *snode, const int *xsup,
          int *length, const int *xjalf, const int *jalf, const int *luperm,
          const int *perm, const int *msglvl, int *error);

// The same sweep on nthreads threads: the ranges of parts (nparts pairs and
// the top) one after the other, each by a dynamic loop; a finished
// supernode publishes itself into its targets' incoming lists up/uplen
// (places xnmod(J) on, link(J) the cursor of J's list, nsuper entries);
// xslindx/slindx/slength list each source's targets (first columns) and
// its rows from each. Thread t uses block t of indmap and relind and slice
// t of temp.
template <class T>
void blkl_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
              const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
              T *lnz, int *indmap, int *relind, const int *tmpsize, T *temp,
              const int *nmod, int *link, const int *snode, const int *xsup,
              const int *xjalf, const int *jalf, const int *luperm, const int *perm,
              const int *nparts, const int *parts, const int *xnmod, const int *xslindx,
              const int *slindx, const int *slength, int *up, int *uplen,
              const int *msglvl, int *error);

// The Hermitian name of the complex sweep.
template <class T> inline constexpr auto &ch_blkl = blkl<T>;

#endif
