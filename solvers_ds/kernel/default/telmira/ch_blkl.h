// ch_blkl.h - supernodal Cholesky factorization L L^H of a Hermitian
// positive definite matrix, one left-looking sweep.
//
// The sweep, the descendant lists and the update paths are those of blkl;
// the products take the conjugate transpose, the stored triangle's mirrored
// entries arrive conjugated, and the diagonal blocks are factorized column
// by column. All arrays are one-based in their contents and passed by their
// first element; T is std::complex<double> or std::complex<float>. The
// error cell ends as 0, -1 (dense routine failure or stop asked by the
// progress hook), -2 (update larger than tmpsize) or the input-matrix
// column of a pivot that is not positive.
#ifndef TELMIRA_CH_BLKL_H
#define TELMIRA_CH_BLKL_H

#include "telmira_types.h"

// The update of target J by the remaining rows of source K: J := J - K K^H
// on J's rows and columns. Returns in ndone the number of K's remaining
// rows that lie within J's columns.
template <class T>
void ch_blkl_update(const int *nrows, const int *ncols, const int *fstcol,
                    const int *lstcol, const int *jlnz, const int *jlindx,
                    const int *rem, const int *kncols, const int *klnz,
                    const int *klindx, const int *klda, const int *thread,
                    const int *n, T *lnz, const int *lindx, const int *xlnz,
                    int *indmap, int *relind, const int *tmpsize, T *temp,
                    int *ndone, int *error);

// The sequential sweep. nnzl is comi(34), the length of lnz, for progress.
template <class T>
void ch_blkl(const T *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             T *lnz, int *indmap, int *relind, const int *tmpsize, T *temp,
             const int *nmod, int *link, const int *snode, const int *xsup,
             int *length, const int *xjalf, const int *jalf, const int *luperm,
             const int *perm, const int *msglvl, int *error);

// Named twins.
void ch_blkl(const tlm::zcomplex *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             tlm::zcomplex *lnz, int *indmap, int *relind, const int *tmpsize,
             tlm::zcomplex *temp, const int *nmod, int *link, const int *snode,
             const int *xsup, int *length, const int *xjalf, const int *jalf,
             const int *luperm, const int *perm, const int *msglvl, int *error);
void sp_ch_blkl(const tlm::ccomplex *a, const int *nsuper, const int *nthreads,
                const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                const int *xlnz, tlm::ccomplex *lnz, int *indmap, int *relind,
                const int *tmpsize, tlm::ccomplex *temp, const int *nmod, int *link,
                const int *snode, const int *xsup, int *length, const int *xjalf,
                const int *jalf, const int *luperm, const int *perm, const int *msglvl,
                int *error);

#endif
