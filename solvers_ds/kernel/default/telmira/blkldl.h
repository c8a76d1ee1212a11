// blkldl.h - supernodal LDL^T factorization of a real symmetric indefinite
// matrix (type -2), one left-looking sweep, with pivoting inside the
// diagonal block of each supernode and perturbation of the pivots that stay
// too small.
//
// After the sweep supernode J holds in its block of nrows by ncols:
//   - the strict lower triangle of L11: the unit lower factor of the block;
//   - the diagonal of L11: D, and for a 2 by 2 pivot at local columns i,
//     i+1 also its off-diagonal entry in L11(i+1, i);
//   - L21 below: the final rows of L, A21 M^-T D^-1 with M the block's
//     factor (pivot exchanges included).
// pivot(fstcol+i-1) for local column i: with diagonal pivoting (diagp 1) the
// local column exchanged with i at step i, the exchange applied to whole
// rows of the block (P L11 D L11^T P^T); its strict upper triangle then
// holds D L11^T. With Bunch-Kaufman (diagp 0) kp for a 1 by 1 pivot, -kp in
// both records of a 2 by 2 pivot, in the product form
// M = P1 L1 P2 L2 ... that blkldl_apply inverts.
//
// A pivot whose magnitude is not above eps is replaced by +-|eps| (1e-8
// when eps is 0) and counted in npert; a NaN stays. npos and nneg count the
// signs of D after replacement. All arrays are one-based in their contents
// and passed by their first element. The error cell ends as 0, -1 (illegal
// argument of a block routine, stop asked by the progress hook) or -2
// (update larger than tmpsize allows).
#ifndef TELMIRA_BLKLDL_H
#define TELMIRA_BLKLDL_H

#include "telmira_types.h"

// Bunch-Kaufman factorization of the lower triangle of an n by n block
// ("L" only; info -1 otherwise): unblocked, with the pivot records and the
// counters described above. info is 0, or minus the position of an illegal
// argument (n -2, lda -4), reported through xerbla.
template <class T>
void blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                   int *npert, int *npos, int *nneg, const tlm::real_of<T> *eps, int *info);

// Diagonal pivoting of an m by n block: at step j the largest diagonal
// magnitude of j..n (the last on ties) is exchanged into place, by rows and
// by columns. The block must hold both triangles. info as above (m -1,
// n -2, lda -4).
template <class T>
void blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv,
                     int *npert, int *npos, int *nneg, const tlm::real_of<T> *eps,
                     int *info);

// B := D^-1 M^-1 B, n by nrhs, for the result of blkldl_bkfact ("L" only).
// info: 0, or uplo -1, n -2, nrhs -3, lda -5, ldb -8.
template <class T>
void blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a, const int *lda,
                  const int *ipiv, T *b, const int *ldb, int *info);

// The update of target J by the remaining rows of source K: the rows
// multiplied by K's D form W in temp, then the product K W^T reaches the
// target as in blkl_update. kdiag is the position of K's block in lnz, kfst
// its first column (the pivot records of K tell its 2 by 2 blocks when
// diagp is 0). Returns in ndone the number of K's remaining rows that lie
// within J's columns.
template <class T>
void blkldl_update(const int *nrows, const int *ncols, const int *fstcol, const int *lstcol,
                   const int *jlnz, const int *jlindx, const int *rem, const int *kncols,
                   const int *klnz, const int *klindx, const int *klda, const int *kdiag,
                   const int *kfst, const int *pivot, const int *diagp, const int *thread,
                   const int *n, T *lnz, const int *lindx, const int *xlnz, int *indmap,
                   int *relind, const int *tmpsize, T *temp, int *ndone, int *error);

// The sequential sweep. diagp 1: diagonal pivoting, 0: Bunch-Kaufman. npert,
// npos and nneg are cleared first and summed over all supernodes. With
// rowflag nonzero A is scaled while scattered: s holds n factors,
// luperm_row the input row of each list entry. nnzl is the length of lnz,
// for progress; nthreads is not used by the sequential sweep.
template <class T>
void blkldl(const T *a, const int *ja, const int *nsuper, const int *nthreads, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
            int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
            int *link, const int *snode, const int *xsup, int *length, int *pivot,
            const int *xjalf, const int *jalf, const int *luperm, const int *perm,
            const tlm::real_of<T> *eps, const int *diagp, int *npert, int *npos, int *nneg,
            const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
            const int *msglvl, int *error);

// Named twins.
void blkldl_bkfact_d(const char *uplo, const int *n, double *a, const int *lda, int *ipiv,
                     int *npert, int *npos, int *nneg, const double *eps, int *info);
void sp_blkldl_bkfact(const char *uplo, const int *n, float *a, const int *lda, int *ipiv,
                      int *npert, int *npos, int *nneg, const float *eps, int *info);
void blkldl_diagfact_d(const int *m, const int *n, double *a, const int *lda, int *ipiv,
                       int *npert, int *npos, int *nneg, const double *eps, int *info);
void sp_blkldl_diagfact(const int *m, const int *n, float *a, const int *lda, int *ipiv,
                        int *npert, int *npos, int *nneg, const float *eps, int *info);
void blkldl_apply_d(const char *uplo, const int *n, const int *nrhs, const double *a,
                    const int *lda, const int *ipiv, double *b, const int *ldb, int *info);
void sp_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const float *a,
                     const int *lda, const int *ipiv, float *b, const int *ldb, int *info);
void blkldl_d(const double *a, const int *ja, const int *nsuper, const int *nthreads,
              const int *n, const int *nnzl, const int *xlindx, const int *lindx,
              const int *xlnz, double *lnz, int *indmap, int *relind, const int *tmpsize,
              double *temp, const int *nmod, int *link, const int *snode, const int *xsup,
              int *length, int *pivot, const int *xjalf, const int *jalf, const int *luperm,
              const int *perm, const double *eps, const int *diagp, int *npert, int *npos,
              int *nneg, const double *s, const int *rowflag, const int *luperm_row,
              const int *msglvl, int *error);
void sp_blkldl(const float *a, const int *ja, const int *nsuper, const int *nthreads,
               const int *n, const int *nnzl, const int *xlindx, const int *lindx,
               const int *xlnz, float *lnz, int *indmap, int *relind, const int *tmpsize,
               float *temp, const int *nmod, int *link, const int *snode, const int *xsup,
               int *length, int *pivot, const int *xjalf, const int *jalf, const int *luperm,
               const int *perm, const float *eps, const int *diagp, int *npert, int *npos,
               int *nneg, const float *s, const int *rowflag, const int *luperm_row,
               const int *msglvl, int *error);

#endif
