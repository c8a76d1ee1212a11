// ch_blkldl.h - supernodal L D L^H factorization of a complex Hermitian
// indefinite matrix (type -4), one left-looking sweep, with pivoting inside
// the diagonal block of each supernode and perturbation of the pivots that
// stay too small.
//
// The sweep and the storage are those of the real LDL^T kernel (blkldl.h)
// with conjugate transposition wherever that one transposes:
//   - the stored triangle is the lower one; entries of A mirrored into it
//     arrive conjugated from the scatter;
//   - D is Hermitian: a 2 by 2 block at local columns i, i+1 is
//     [d11 conj(d21); d21 d22] with (d11, d21, d22) = L(i,i), L(i+1,i),
//     L(i+1,i+1); the diagonal of D is real: both pivotings clear the
//     imaginary part of a pivot, the rounding that the updates leave there
//     (or a value given on the diagonal of A);
//   - L21 is A21 M^-H D^-1, M the block's factor with its exchanges; with
//     diagonal pivoting the strict upper triangle of the block holds
//     D L11^H.
// pivot records as in the real kernel: diagonal pivoting (diagp 1) kp for
// each column; Bunch-Kaufman (diagp 0) kp for a 1 by 1 pivot, -kp in both
// records of a 2 by 2 pivot.
//
// A pivot (or, with Bunch-Kaufman, a column) whose magnitude is not above
// eps is replaced with magnitude |eps| (1e-8 when eps is 0) and counted in
// npert. No signs are counted: npos and nneg are taken and left alone. The
// error cell ends as 0, -1 (illegal argument of a block routine, stop asked
// by the progress hook) or -2 (update larger than tmpsize allows). T is
// std::complex<double> or std::complex<float>; all arrays are one-based in
// their contents and passed by their first element.
#ifndef TELMIRA_CH_BLKLDL_H
#define TELMIRA_CH_BLKLDL_H

#include "telmira_types.h"

// Bunch-Kaufman factorization of the lower triangle of a Hermitian n by n
// block ("L" only), unblocked. Magnitudes are |re| + |im|, the diagonal
// counts by its real part alone. A negligible column is repaired and then
// goes through the pivot tests; the 2 by 2 elimination runs on the
// eigen-decomposition of the block. info 0, or minus the position of an
// illegal argument (uplo -1, n -2, lda -4), reported through xerbla.
template <class T>
void ch_blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                      int *npert, const tlm::real_of<T> *eps, int *info);

// Diagonal pivoting of an m by n block that holds both triangles: at step j
// the diagonal entry of largest modulus from j on (the last on ties) is
// exchanged into place by rows and by columns, its imaginary part cleared,
// and the elimination is the unsymmetric one (ZGERU); no conjugation of
// its own (the caller mirrors the conjugate upper triangle). info: m -1,
// n -2, lda -4.
template <class T>
void ch_blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv,
                        int *npert, const tlm::real_of<T> *eps, int *info);

// B := D^-1 M^-1 B, n by nrhs, for the result of ch_blkldl_bkfact ("L"
// only). info: uplo -1, n -2, nrhs -3, lda -5, ldb -8.
template <class T>
void ch_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a,
                     const int *lda, const int *ipiv, T *b, const int *ldb, int *info);

// The update of target J by the remaining rows of source K: W = K D in
// temp, then the target loses K W^H by the paths of the real kernel. The
// arguments are those of blkldl_update.
template <class T>
void ch_blkldl_update(const int *nrows, const int *ncols, const int *fstcol,
                      const int *lstcol, const int *jlnz, const int *jlindx, const int *rem,
                      const int *kncols, const int *klnz, const int *klindx, const int *klda,
                      const int *kdiag, const int *kfst, const int *pivot, const int *diagp,
                      const int *thread, const int *n, T *lnz, const int *lindx,
                      const int *xlnz, int *indmap, int *relind, const int *tmpsize, T *temp,
                      int *ndone, int *error);

// The sequential sweep; the arguments are those of blkldl. npert is cleared
// first and summed over all supernodes; npos and nneg are not touched.
template <class T>
void ch_blkldl(const T *a, const int *ja, const int *nsuper, const int *nthreads, const int *n,
               const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
               int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
               int *link, const int *snode, const int *xsup, int *length, int *pivot,
               const int *xjalf, const int *jalf, const int *luperm, const int *perm,
               const tlm::real_of<T> *eps, const int *diagp, int *npert, int *npos, int *nneg,
               const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
               const int *msglvl, int *error);

// Named twins: the plain names in double, sp_ in single precision.
void ch_blkldl_bkfact(const char *uplo, const int *n, tlm::zcomplex *a, const int *lda,
                      int *ipiv, int *npert, const double *eps, int *info);
void sp_ch_blkldl_bkfact(const char *uplo, const int *n, tlm::ccomplex *a, const int *lda,
                         int *ipiv, int *npert, const float *eps, int *info);
void ch_blkldl_diagfact(const int *m, const int *n, tlm::zcomplex *a, const int *lda,
                        int *ipiv, int *npert, const double *eps, int *info);
void sp_ch_blkldl_diagfact(const int *m, const int *n, tlm::ccomplex *a, const int *lda,
                           int *ipiv, int *npert, const float *eps, int *info);
void ch_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const tlm::zcomplex *a,
                     const int *lda, const int *ipiv, tlm::zcomplex *b, const int *ldb,
                     int *info);
void sp_ch_blkldl_apply(const char *uplo, const int *n, const int *nrhs,
                        const tlm::ccomplex *a, const int *lda, const int *ipiv,
                        tlm::ccomplex *b, const int *ldb, int *info);
void ch_blkldl(const tlm::zcomplex *a, const int *ja, const int *nsuper, const int *nthreads,
               const int *n, const int *nnzl, const int *xlindx, const int *lindx,
               const int *xlnz, tlm::zcomplex *lnz, int *indmap, int *relind,
               const int *tmpsize, tlm::zcomplex *temp, const int *nmod, int *link,
               const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
               const int *jalf, const int *luperm, const int *perm, const double *eps,
               const int *diagp, int *npert, int *npos, int *nneg, const double *s,
               const int *rowflag, const int *luperm_row, const int *msglvl, int *error);
void sp_ch_blkldl(const tlm::ccomplex *a, const int *ja, const int *nsuper,
                  const int *nthreads, const int *n, const int *nnzl, const int *xlindx,
                  const int *lindx, const int *xlnz, tlm::ccomplex *lnz, int *indmap,
                  int *relind, const int *tmpsize, tlm::ccomplex *temp, const int *nmod,
                  int *link, const int *snode, const int *xsup, int *length, int *pivot,
                  const int *xjalf, const int *jalf, const int *luperm, const int *perm,
                  const float *eps, const int *diagp, int *npert, int *npos, int *nneg,
                  const float *s, const int *rowflag, const int *luperm_row,
                  const int *msglvl, int *error);

#endif
