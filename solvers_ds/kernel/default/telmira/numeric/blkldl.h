// blkldl.h - supernodal L D L^T factorization of a symmetric indefinite
// matrix, one left-looking sweep, with pivoting inside the diagonal block
// of each supernode and perturbation of the pivots that stay too small:
//   blkldl     real values (matrix type -2), L D L^T;
//   c_blkl     complex symmetric values (type 6), L D L^T with complex D
//              and no conjugate anywhere;
//   ch_blkldl  complex Hermitian values (type -4), L D L^H.
// One sweep serves all three: blkldl<T, Hermitian>.
//
// After the sweep supernode J holds in its block of nrows by ncols:
//   - the strict lower triangle of L11: the unit lower factor of the block;
//   - the diagonal of L11: D, and for a 2 by 2 pivot at local columns i,
//     i+1 also its off-diagonal entry in L11(i+1, i); a Hermitian 2 by 2
//     block is [d11 conj(d21); d21 d22], and a Hermitian D has a real
//     diagonal;
//   - L21 below: the final rows of L, A21 M^-T D^-1 (M^-H for Hermitian
//     values) with M the block's factor, pivot exchanges included.
// pivot(fstcol+i-1) for local column i: with diagonal pivoting (diagp 1) the
// local column exchanged with i at step i, the exchange applied to whole
// rows of the block (P L11 D L11^T P^T); its strict upper triangle then
// holds D L11^T. With Bunch-Kaufman (diagp 0) kp for a 1 by 1 pivot, -kp in
// both records of a 2 by 2 pivot, in the product form M = P1 L1 P2 L2 ...
// that blkldl_apply inverts.
//
// A pivot whose magnitude is not above eps is replaced by +-|eps| (1e-8
// when eps is 0), the sign of its real part kept, and counted in npert; a
// NaN stays. Real values only: npos and nneg count the signs of D after
// replacement; the complex sweeps leave the two cells alone. All arrays are
// one-based in their contents and passed by their first element. The error
// cell ends as 0, -1 (illegal argument of a block routine, stop asked by
// the progress hook) or -2 (update larger than tmpsize allows).
#ifndef TELMIRA_BLKLDL_H
#define TELMIRA_BLKLDL_H

#include "telmira_types.h"

// The sequential sweep. diagp 1: diagonal pivoting, 0: Bunch-Kaufman. npert
// (and for real values npos and nneg) are cleared first and summed over all
// supernodes. With rowflag nonzero A is scaled while scattered: s holds n
// real factors, luperm_row the input row of each list entry. nnzl is the
// length of lnz, for progress; nthreads is not used.
template <class T, bool Hermitian = false>
void blkldl(const T *a, const int *ja, const int *nsuper, const int *nthreads, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
            int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
            int *link, const int *snode, const int *xsup, int *length, int *pivot,
            const int *xjalf, const int *jalf, const int *luperm, const int *perm,
            const tlm::real_of<T> *eps, const int *diagp, int *npert, int *npos, int *nneg,
            const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
            const int *msglvl, int *error);

// The dense steps on a diagonal block, unblocked, by the kind of values;
// the counters npos and nneg are read only for real values (they may be
// null otherwise).
//
// Bunch-Kaufman on the lower triangle ("L" only) of an n by n block, with
// the pivot records above. Measures are |re| + |im|; a Hermitian diagonal
// counts by its real part and comes out real, and the exchanges conjugate
// what they move across the diagonal. A negligible column (all its measures
// not above eps): real values replace its pivot and eliminate, complex
// symmetric values replace its pivot and leave the column as it is,
// Hermitian values repair the column and go on through the pivot tests. A
// Hermitian 2 by 2 pivot is eliminated through its eigen-decomposition.
// info is 0, or minus the position of an illegal argument (uplo -1, n -2,
// lda -4), reported through xerbla under the family's name.
template <class T, bool Hermitian = false>
void blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                   int *npert, int *npos, int *nneg, const tlm::real_of<T> *eps, int *info);

// Diagonal pivoting of an m by n block that holds both triangles: at step j
// the diagonal entry of largest modulus from j on (the last on ties) is
// exchanged into place by rows and columns; a Hermitian pivot loses its
// imaginary part first. 1 by 1 pivots divide through their reciprocal.
// info as above (m -1, n -2, lda -4).
template <class T, bool Hermitian = false>
void blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv, int *npert,
                     int *npos, int *nneg, const tlm::real_of<T> *eps, int *info);

// B := D^-1 M^-1 B, n by nrhs, for the result of blkldl_bkfact ("L" only).
// info: 0, or uplo -1, n -2, nrhs -3, lda -5, ldb -8.
template <class T, bool Hermitian = false>
void blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a, const int *lda,
                  const int *ipiv, T *b, const int *ldb, int *info);

// The family's names for complex values.
template <class T> inline constexpr auto &ch_blkldl = blkldl<T, true>;
namespace tlm {
template <class T> inline constexpr auto &c_blkl = blkldl<T>;
}
inline constexpr auto &c_blkl = blkldl<tlm::zcomplex>;
inline constexpr auto &sp_c_blkl = blkldl<tlm::ccomplex>;

// The complex block routines by their names, without sign counters.
inline void c_blkldl_bkfact(const char *uplo, const int *n, tlm::zcomplex *a, const int *lda,
                            int *ipiv, int *npert, const double *eps, int *info) {
  blkldl_bkfact<tlm::zcomplex>(uplo, n, a, lda, ipiv, npert, nullptr, nullptr, eps, info);
}
inline void c_blkldl_diagfact(const int *m, const int *n, tlm::zcomplex *a, const int *lda,
                              int *ipiv, int *npert, const double *eps, int *info) {
  blkldl_diagfact<tlm::zcomplex>(m, n, a, lda, ipiv, npert, nullptr, nullptr, eps, info);
}
inline void ch_blkldl_bkfact(const char *uplo, const int *n, tlm::zcomplex *a, const int *lda,
                             int *ipiv, int *npert, const double *eps, int *info) {
  blkldl_bkfact<tlm::zcomplex, true>(uplo, n, a, lda, ipiv, npert, nullptr, nullptr, eps,
                                     info);
}

#endif
