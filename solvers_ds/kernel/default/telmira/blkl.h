// blkl.h - supernodal Cholesky factorization L L^T, one left-looking sweep.
//
// All arrays are one-based in their contents and passed by their first
// element. The error cell ends as 0, -1 (dense routine failure or stop asked
// by the progress hook), -2 (update larger than tmpsize) or the input-matrix
// column of a non-positive pivot.
#ifndef TELMIRA_BLKL_H
#define TELMIRA_BLKL_H

// The update of target J by the remaining rows of source K. Returns in
// ndone the number of K's remaining rows that lie within J's columns.
template <class T>
void blkl_update(const int *nrows, const int *ncols, const int *fstcol,
                 const int *lstcol, const int *jlnz, const int *jlindx,
                 const int *rem, const int *kncols, const int *klnz,
                 const int *klindx, const int *klda, const int *thread,
                 const int *n, T *lnz, const int *lindx, const int *xlnz,
                 int *indmap, int *relind, const int *tmpsize, T *temp,
                 int *ndone, int *error);

// The sequential sweep. nnzl is comi(34), the length of lnz, for progress.
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

// Named twins.
void blkl_d(const double *a, const int *nsuper, const int *nthreads, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
            double *lnz, int *indmap, int *relind, const int *tmpsize, double *temp,
            const int *nmod, int *link, const int *snode, const int *xsup,
            int *length, const int *xjalf, const int *jalf, const int *luperm,
            const int *perm, const int *msglvl, int *error);
void sp_blkl(const float *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             float *lnz, int *indmap, int *relind, const int *tmpsize, float *temp,
             const int *nmod, int *link, const int *snode, const int *xsup,
             int *length, const int *xjalf, const int *jalf, const int *luperm,
             const int *perm, const int *msglvl, int *error);

#endif
