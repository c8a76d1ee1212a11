// blklu.h - supernodal LU factorization with pivoting inside the supernode,
// one left-looking sweep.
//
// Supernode J holds in lnz its block of nrows by ncols, column-major: L11
// (unit lower) and U11 (upper, with the diagonal) in the top square, L21
// below. In unz, from xunz(fstcol), it holds U12 transposed: below by ncols
// with leading dimension below = nrows - ncols, entry (r, c) being
// U(fstcol+c-1, row r below the block). Both blocks share J's row list.
//
// pivot(fstcol+i-1) is the local row exchanged with row i of the diagonal
// block, cpivot(fstcol+i-1) the local column (blklu_unsym only), local
// numbers from 1. With P_J and Q_J these exchanges:
//   P_J B11 Q_J = L11 U11,  L21 = B21 Q_J U11^-1,  U12 = L11^-1 P_J B12,
// B the block after all updates; rows below J and columns right of it are
// never exchanged.
//
// All arrays are one-based in their contents and passed by their first
// element. The error cell ends as 0, -1 (zero pivot or dense routine
// failure in blklu, stop asked by the progress hook) or -2 (update larger
// than tmpsize).
#ifndef TELMIRA_BLKLU_H
#define TELMIRA_BLKLU_H

#include "telmira_types.h"

// Dense factorization of an n by n block with complete pivoting: ipiv and
// jpiv the row and column exchanges of each step, a pivot not above eps
// replaced by +-|eps| (1e-13 when eps is 0) and counted in npert. A NaN
// pivot stays. info is always 0.
template <class T>
void blklu_blockfact(const int *n, T *a, const int *lda, int *ipiv, int *jpiv, int *npert,
                     const tlm::real_of<T> *eps, int *info);

// The update of target J by the remaining rows of source K, into both lnz
// and unz. klnz/klindx: position of K's remaining rows in lnz and lindx,
// klda the leading dimension of K's lnz block; kunz: their position in
// unz, ku = klda - kncols its leading dimension. Returns in ndone the
// number of remaining rows that lie within J's columns.
template <class T>
void blklu_update(const int *nrows, const int *ncols, const int *fstcol, const int *lstcol,
                  const int *jlnz, const int *jlindx, const int *rem, const int *kncols,
                  const int *klnz, const int *klindx, const int *klda, const int *kunz,
                  const int *ku, const int *thread, const int *n, T *lnz, T *unz,
                  const int *lindx, const int *xlnz, const int *xunz, int *indmap,
                  int *relind, const int *tmpsize, T *temp, int *ndone, int *error);

// Matrix type 1: partial pivoting in the diagonal block, no replacement; an
// exact zero pivot ends the sweep with error cell -1. nnzl is the length of
// lnz, for progress. nthreads is not used by the sequential sweep.
template <class T>
void blklu(const T *a, const int *nsuper, const int *nthreads, const int *n, const int *nnzl,
           const int *xlindx, const int *lindx, const int *xlnz, T *lnz, const int *xunz,
           T *unz, int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
           int *link, const int *snode, const int *xsup, int *length, int *pivot,
           const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
           const int *luperm, const int *perm, const int *msglvl, int *error);

// Matrix type 11: complete pivoting in the diagonal block with replacement
// of small pivots (blklu_blockfact). npert is cleared first. With rowflag
// nonzero the values are scaled while scattered: s holds n column factors,
// then n row factors, luperm_row the input row of each list entry.
template <class T>
void blklu_unsym(const T *a, const int *ja, const int *nsuper, const int *nthreads,
                 const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                 const int *xlnz, T *lnz, const int *xunz, T *unz, int *indmap, int *relind,
                 const int *tmpsize, T *temp, const int *nmod, int *link, const int *snode,
                 const int *xsup, int *length, int *pivot, int *cpivot, const int *xjalf,
                 const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
                 const int *perm, const tlm::real_of<T> *eps, int *npert,
                 const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
                 const int *msglvl, int *error);

// Named twins.
void blklu_blockfact_d(const int *n, double *a, const int *lda, int *ipiv, int *jpiv,
                       int *npert, const double *eps, int *info);
void sp_blklu_blockfact(const int *n, float *a, const int *lda, int *ipiv, int *jpiv,
                        int *npert, const float *eps, int *info);
void blklu_d(const double *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             double *lnz, const int *xunz, double *unz, int *indmap, int *relind,
             const int *tmpsize, double *temp, const int *nmod, int *link,
             const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
             const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
             const int *perm, const int *msglvl, int *error);
void sp_blklu(const float *a, const int *nsuper, const int *nthreads, const int *n,
              const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
              float *lnz, const int *xunz, float *unz, int *indmap, int *relind,
              const int *tmpsize, float *temp, const int *nmod, int *link,
              const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
              const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
              const int *perm, const int *msglvl, int *error);
void blklu_unsym_d(const double *a, const int *ja, const int *nsuper, const int *nthreads,
                   const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                   const int *xlnz, double *lnz, const int *xunz, double *unz, int *indmap,
                   int *relind, const int *tmpsize, double *temp, const int *nmod,
                   int *link, const int *snode, const int *xsup, int *length, int *pivot,
                   int *cpivot, const int *xjalf, const int *jalf, const int *xjauf,
                   const int *jauf, const int *luperm, const int *perm, const double *eps,
                   int *npert, const double *s, const int *rowflag, const int *luperm_row,
                   const int *msglvl, int *error);
void sp_blklu_unsym(const float *a, const int *ja, const int *nsuper, const int *nthreads,
                    const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                    const int *xlnz, float *lnz, const int *xunz, float *unz, int *indmap,
                    int *relind, const int *tmpsize, float *temp, const int *nmod,
                    int *link, const int *snode, const int *xsup, int *length, int *pivot,
                    int *cpivot, const int *xjalf, const int *jalf, const int *xjauf,
                    const int *jauf, const int *luperm, const int *perm, const float *eps,
                    int *npert, const float *s, const int *rowflag, const int *luperm_row,
                    const int *msglvl, int *error);

#endif
