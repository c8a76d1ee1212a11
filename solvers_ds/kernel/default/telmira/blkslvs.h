// blkslvs.h - triangular solves with a supernodal Cholesky factor L L^T.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward only,
// 2 diagonal only (nothing for L L^T), 3 backward only.
#ifndef TELMIRA_BLKSLVS_H
#define TELMIRA_BLKSLVS_H

// One right-hand side: plain loops through lindx, no dense kernel.
template <class T>
void blkslvs1(const int *nsuper, const int *xsup, const int *xlindx,
              const int *lindx, const int *xlnz, const T *lnz, T *x,
              const int *substep);

// Several right-hand sides: threads across right-hand sides, level-3 blocks.
// w holds nrhs columns of leading dimension ldw, at least the longest
// column of L below its diagonal block (comi(23) serves), and needs no
// initial value.
template <class T>
void blkslvs(const int *nsuper, const int *nrhs, const int *nthreads,
             const int *n, const int *xsup, const int *xlindx, const int *lindx,
             const int *xlnz, const T *lnz, T *x, T *w, const int *ldw,
             const int *substep);

// The first right-hand side of each thread: thread t of T takes
// nrhs / T columns, one more while t < nrhs mod T.
void blkslvs_share(int nrhs, int team, int t, int *first, int *count);

#endif
