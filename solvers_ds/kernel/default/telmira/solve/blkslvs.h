// blkslvs.h - triangular solves with a supernodal Cholesky factor: L L^T
// for real values, L L^H for complex values (ch_blkslvs, ch_blkslvs1, the
// factor of ch_blkl): forward L y = b, then backward L^T x = y (L^H x = y).
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward only,
// 2 diagonal only (nothing for a Cholesky factor), 3 backward only.
#ifndef TELMIRA_BLKSLVS_H
#define TELMIRA_BLKSLVS_H

#include "solve_frame.h"
#include "telmira_types.h"

// One right-hand side, real values: plain loops through lindx, no dense
// kernel.
template <class T>
void blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
              const int *xlnz, const T *lnz, T *x, const int *substep);

// One right-hand side, complex values: the block steps of the form for
// several, with matrix-vector products on the single column through w
// (ldw at least the largest nrows - ncols); no threads.
template <class T>
void ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, T *x, T *w, const int *ldw,
                 const int *substep);

// Several right-hand sides: threads across right-hand sides (the split of
// blkslvs_share), level-3 blocks. w holds nrhs columns of leading dimension
// ldw, at least the longest column of L below its diagonal block (comi(23)
// serves), and needs no initial value.
template <class T>
void blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
             const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
             const T *lnz, T *x, T *w, const int *ldw, const int *substep);

template <class T> inline constexpr auto &ch_blkslvs = blkslvs<T>;

#endif
