// c_blkl.h - supernodal factorization of a complex symmetric matrix (type 6)
// as P L D L^T P^T, with no conjugate anywhere: the sweep, the updates and
// the storage of the factor are those of the real LDL^T kernel (blkldl.h),
// the values and D complex. What differs lies in the dense steps on the
// diagonal block:
//   - diagonal pivoting (c_blkldl_diagfact) measures a value by its modulus,
//     Bunch-Kaufman (c_blkldl_bkfact) by |re| + |im|;
//   - a pivot not above eps in magnitude becomes rep + 0i, or -rep + 0i when
//     its real part is negative (rep = |eps|, 1e-8 when eps is 0), and is
//     counted in npert; a NaN stays;
//   - 1 by 1 pivots divide through their complex reciprocal;
//   - no signs are counted: D has no inertia. c_blkl receives the cells
//     npos and nneg of the real kernel's argument list and leaves them as
//     they are.
// Arrays are one-based in their contents and passed by their first element;
// T is std::complex<double> or std::complex<float>, eps and the scaling
// vector are real.
#ifndef TELMIRA_C_BLKL_H
#define TELMIRA_C_BLKL_H

#include <complex>

#include "blkldl.h"
#include "telmira_types.h"

namespace tlm {

// Bunch-Kaufman factorization of the lower triangle of an n by n block
// ("L" only), unblocked, with the pivot records of blkldl_bkfact. A column
// whose diagonal and off-diagonal magnitudes are all not above eps gets the
// replaced pivot and no elimination: its entries below the diagonal stay as
// they are. info is 0, or minus the position of an illegal argument (uplo
// -1, n -2, lda -4), reported through xerbla.
template <class T>
void c_blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                     int *npert, const real_of<T> *eps, int *info);

// Diagonal pivoting of an m by n block holding both triangles: at step j
// the diagonal entry of largest modulus from j on (the last on ties) is
// exchanged into place by rows and columns. info as above (m -1, n -2,
// lda -4).
template <class T>
void c_blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv,
                       int *npert, const real_of<T> *eps, int *info);

// B := D^-1 M^-1 B, n by nrhs, for the result of c_blkldl_bkfact ("L"
// only). info: 0, or uplo -1, n -2, nrhs -3, lda -5, ldb -8.
template <class T>
void c_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a,
                    const int *lda, const int *ipiv, T *b, const int *ldb, int *info);

// The sequential sweep, argument for argument that of blkldl. diagp 1:
// diagonal pivoting, 0: Bunch-Kaufman. npert is cleared first and summed
// over all supernodes; npos and nneg are not touched. The error cell ends
// as 0, -1 or -2 as in blkldl.
template <class T>
void c_blkl(const T *a, const int *ja, const int *nsuper, const int *nthreads, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
            int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
            int *link, const int *snode, const int *xsup, int *length, int *pivot,
            const int *xjalf, const int *jalf, const int *luperm, const int *perm,
            const real_of<T> *eps, const int *diagp, int *npert, int *npos, int *nneg,
            const real_of<T> *s, const int *rowflag, const int *luperm_row,
            const int *msglvl, int *error);

}  // namespace tlm

// The block routines of the real kernel's sweep, for complex values: they
// forward to the routines above and leave the sign counters alone.
template <>
void blkldl_bkfact<tlm::zcomplex>(const char *uplo, const int *n, tlm::zcomplex *a,
                                  const int *lda, int *ipiv, int *npert, int *npos, int *nneg,
                                  const double *eps, int *info);
template <>
void blkldl_bkfact<tlm::ccomplex>(const char *uplo, const int *n, tlm::ccomplex *a,
                                  const int *lda, int *ipiv, int *npert, int *npos, int *nneg,
                                  const float *eps, int *info);
template <>
void blkldl_diagfact<tlm::zcomplex>(const int *m, const int *n, tlm::zcomplex *a,
                                    const int *lda, int *ipiv, int *npert, int *npos,
                                    int *nneg, const double *eps, int *info);
template <>
void blkldl_diagfact<tlm::ccomplex>(const int *m, const int *n, tlm::ccomplex *a,
                                    const int *lda, int *ipiv, int *npert, int *npos,
                                    int *nneg, const float *eps, int *info);
template <>
void blkldl_apply<tlm::zcomplex>(const char *uplo, const int *n, const int *nrhs,
                                 const tlm::zcomplex *a, const int *lda, const int *ipiv,
                                 tlm::zcomplex *b, const int *ldb, int *info);
template <>
void blkldl_apply<tlm::ccomplex>(const char *uplo, const int *n, const int *nrhs,
                                 const tlm::ccomplex *a, const int *lda, const int *ipiv,
                                 tlm::ccomplex *b, const int *ldb, int *info);

// Named twins: double (c_) and single (sp_c_) precision.
void c_blkldl_bkfact(const char *uplo, const int *n, tlm::zcomplex *a, const int *lda,
                     int *ipiv, int *npert, const double *eps, int *info);
void sp_c_blkldl_bkfact(const char *uplo, const int *n, tlm::ccomplex *a, const int *lda,
                        int *ipiv, int *npert, const float *eps, int *info);
void c_blkldl_diagfact(const int *m, const int *n, tlm::zcomplex *a, const int *lda,
                       int *ipiv, int *npert, const double *eps, int *info);
void sp_c_blkldl_diagfact(const int *m, const int *n, tlm::ccomplex *a, const int *lda,
                          int *ipiv, int *npert, const float *eps, int *info);
void c_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const tlm::zcomplex *a,
                    const int *lda, const int *ipiv, tlm::zcomplex *b, const int *ldb,
                    int *info);
void sp_c_blkldl_apply(const char *uplo, const int *n, const int *nrhs,
                       const tlm::ccomplex *a, const int *lda, const int *ipiv,
                       tlm::ccomplex *b, const int *ldb, int *info);
void c_blkl(const tlm::zcomplex *a, const int *ja, const int *nsuper, const int *nthreads,
            const int *n, const int *nnzl, const int *xlindx, const int *lindx,
            const int *xlnz, tlm::zcomplex *lnz, int *indmap, int *relind,
            const int *tmpsize, tlm::zcomplex *temp, const int *nmod, int *link,
            const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
            const int *jalf, const int *luperm, const int *perm, const double *eps,
            const int *diagp, int *npert, int *npos, int *nneg, const double *s,
            const int *rowflag, const int *luperm_row, const int *msglvl, int *error);
void sp_c_blkl(const tlm::ccomplex *a, const int *ja, const int *nsuper, const int *nthreads,
               const int *n, const int *nnzl, const int *xlindx, const int *lindx,
               const int *xlnz, tlm::ccomplex *lnz, int *indmap, int *relind,
               const int *tmpsize, tlm::ccomplex *temp, const int *nmod, int *link,
               const int *snode, const int *xsup, int *length, int *pivot,
               const int *xjalf, const int *jalf, const int *luperm, const int *perm,
               const float *eps, const int *diagp, int *npert, int *npos, int *nneg,
               const float *s, const int *rowflag, const int *luperm_row,
               const int *msglvl, int *error);

#endif
