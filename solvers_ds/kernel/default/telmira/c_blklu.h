// c_blklu.h - supernodal LU factorization of complex matrices: type 3
// (structurally symmetric, partial pivoting in the diagonal block, ZGETRF)
// and type 13 (unsymmetric, complete pivoting in the diagonal block with
// replacement of small pivots).
//
// The sweep, the update paths, the storage of the factor and the pivot
// records are those of blklu.h: the complex forms are the templates
// blklu<T> and blklu_unsym<T> instantiated for complex T. Products transpose
// without conjugating, so the factor is P_J B11 Q_J = L11 U11 in plain
// complex arithmetic. The scaling vector of type 13 stays real.
//
// The dense block factorization of type 13 is the complex specialization of
// blklu_blockfact declared here; any unit that instantiates blklu_unsym for
// complex values includes this header first.
#ifndef TELMIRA_C_BLKLU_H
#define TELMIRA_C_BLKLU_H

#include "blklu.h"
#include "telmira_types.h"

// Complete pivoting in an n by n complex block. It differs from the real
// form in these points:
// - magnitudes are sqrt(re^2 + im^2); a later entry of the row-wise search
//   still wins a tie;
// - the steps run to n-1; the last column is taken as it stands, with
//   ipiv(n) = jpiv(n) = n, and its pivot replaced only when its magnitude
//   lies strictly below eps (the other pivots: not above eps);
// - a replaced pivot becomes rep + 0i, or -rep + 0i when its real part is
//   negative (rep = |eps|, or 1e-13 when eps is 0);
// - the multipliers are formed through the reciprocal: each value times
//   conj(p), scaled by 1/(re^2 + im^2) of the pivot p.
// info is always 0.
template <>
void blklu_blockfact<tlm::zcomplex>(const int *n, tlm::zcomplex *a, const int *lda,
                                    int *ipiv, int *jpiv, int *npert, const double *eps,
                                    int *info);
template <>
void blklu_blockfact<tlm::ccomplex>(const int *n, tlm::ccomplex *a, const int *lda,
                                    int *ipiv, int *jpiv, int *npert, const float *eps,
                                    int *info);

// Named twins.
void c_blklu_blockfact(const int *n, tlm::zcomplex *a, const int *lda, int *ipiv, int *jpiv,
                       int *npert, const double *eps, int *info);
void sp_c_blklu_blockfact(const int *n, tlm::ccomplex *a, const int *lda, int *ipiv,
                          int *jpiv, int *npert, const float *eps, int *info);

void c_blklu(const tlm::zcomplex *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             tlm::zcomplex *lnz, const int *xunz, tlm::zcomplex *unz, int *indmap,
             int *relind, const int *tmpsize, tlm::zcomplex *temp, const int *nmod,
             int *link, const int *snode, const int *xsup, int *length, int *pivot,
             const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
             const int *luperm, const int *perm, const int *msglvl, int *error);
void sp_c_blklu(const tlm::ccomplex *a, const int *nsuper, const int *nthreads, const int *n,
                const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
                tlm::ccomplex *lnz, const int *xunz, tlm::ccomplex *unz, int *indmap,
                int *relind, const int *tmpsize, tlm::ccomplex *temp, const int *nmod,
                int *link, const int *snode, const int *xsup, int *length, int *pivot,
                const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
                const int *luperm, const int *perm, const int *msglvl, int *error);
void c_blklu_unsym(const tlm::zcomplex *a, const int *ja, const int *nsuper,
                   const int *nthreads, const int *n, const int *nnzl, const int *xlindx,
                   const int *lindx, const int *xlnz, tlm::zcomplex *lnz, const int *xunz,
                   tlm::zcomplex *unz, int *indmap, int *relind, const int *tmpsize,
                   tlm::zcomplex *temp, const int *nmod, int *link, const int *snode,
                   const int *xsup, int *length, int *pivot, int *cpivot, const int *xjalf,
                   const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
                   const int *perm, const double *eps, int *npert, const double *s,
                   const int *rowflag, const int *luperm_row, const int *msglvl, int *error);
void sp_c_blklu_unsym(const tlm::ccomplex *a, const int *ja, const int *nsuper,
                      const int *nthreads, const int *n, const int *nnzl, const int *xlindx,
                      const int *lindx, const int *xlnz, tlm::ccomplex *lnz, const int *xunz,
                      tlm::ccomplex *unz, int *indmap, int *relind, const int *tmpsize,
                      tlm::ccomplex *temp, const int *nmod, int *link, const int *snode,
                      const int *xsup, int *length, int *pivot, int *cpivot,
                      const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
                      const int *luperm, const int *perm, const float *eps, int *npert,
                      const float *s, const int *rowflag, const int *luperm_row,
                      const int *msglvl, int *error);

#endif
