// blkldlslvs.h - triangular solves with a supernodal LDL^T factor.
//
// Supernode J, columns fstcol..lstcol (ncols), nrows rows listed in lindx
// from xlindx(J); the block stands in lnz at xlnz(fstcol), leading
// dimension nrows:
//   strict lower triangle of the top square: the unit lower L11;
//   diagonal of the top square: D; a 2 by 2 block of D at local columns
//     i, i+1 is (L(i,i), L(i+1,i), L(i+1,i+1));
//   rows below the top square: L21;
//   the strict upper triangle is never read.
// pivot(fstcol+i-1) holds the exchanges local to the block:
//   diagp 1 (diagonal pivoting): kp, the local row exchanged with row i at
//     step i; all exchanges of a block come before its elimination;
//   diagp 0 (Bunch-Kaufman): kp > 0 for a 1 by 1 pivot exchanged with i,
//     -kp in both records of a 2 by 2 pivot at i, i+1, whose exchange is
//     between i+1 and kp; exchanges and elimination alternate.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward, 2
// diagonal, 3 backward. A single sub-step leaves no pivot order in its
// result: the forward step undoes the exchanges behind it, the diagonal
// step applies them before and undoes them behind, the backward step
// applies them before and undoes them itself. 1, 2, 3 in turn is 0.
#ifndef TELMIRA_BLKLDLSLVS_H
#define TELMIRA_BLKLDLSLVS_H

// One right-hand side: plain loops through lindx, no dense kernel.
template <class T>
void blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                 const int *substep);

// Several right-hand sides: threads across right-hand sides (split of
// blkslvs_share), level-3 blocks. w holds nrhs columns of leading dimension
// ldw, at least the largest nrows - ncols over the supernodes, and needs no
// initial value; the forward sweep leaves it zero. The exchanges of a
// single sub-step run on the calling thread.
template <class T>
void blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const T *lnz, const int *pivot, const int *diagp, T *x, T *w, const int *ldw,
                const int *substep);

// Block steps with a Bunch-Kaufman diagonal block a (n by n, leading
// dimension lda, local records ipiv) on nrhs columns of b (leading
// dimension ldb):
//   blkldl_fsolve: b := L^-1 P b, exchanges and rank-1 eliminations in turn;
//   blkldl_dsolve: b := D^-1 b, 1 by 1 pivots by their reciprocal;
//   blkldl_bsolve: b := P^T L^-T b, the reverse by matrix-vector products.
template <class T>
void blkldl_fsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb);
template <class T>
void blkldl_dsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb);
template <class T>
void blkldl_bsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb);

// Named twins.
void blkldlslvs1_d(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const double *lnz, const int *pivot, const int *diagp,
                   double *x, const int *substep);
void blkldlslvs_d(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                  const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                  const double *lnz, const int *pivot, const int *diagp, double *x, double *w,
                  const int *ldw, const int *substep);
void sp_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const float *lnz, const int *pivot, const int *diagp,
                    float *x, const int *substep);
void sp_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const float *lnz, const int *pivot, const int *diagp, float *x, float *w,
                   const int *ldw, const int *substep);

#endif
