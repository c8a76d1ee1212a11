// blkldlslvs.h - triangular solves with a supernodal L D L^T factor: real
// values (blkldl), complex symmetric values (c_blkslvs, the factor of
// c_blkl; transposes only) and Hermitian values (ch_blkldlslvs, the factor
// of ch_blkldl; the backward step multiplies by L^H).
//
// Supernode J, columns fstcol..lstcol (ncols), nrows rows listed in lindx
// from xlindx(J); the block stands in lnz at xlnz(fstcol), leading
// dimension nrows:
//   strict lower triangle of the top square: the unit lower L11;
//   diagonal of the top square: D; a 2 by 2 block of D at local columns
//     i, i+1 is (L(i,i), L(i+1,i), L(i+1,i+1)), Hermitian [d11 conj(d21);
//     d21 d22];
//   rows below the top square: L21;
//   the strict upper triangle is never read.
// pivot(fstcol+i-1) holds the exchanges local to the block:
//   diagp 1 (diagonal pivoting): kp, the local row exchanged with row i at
//     step i; all exchanges of a block come before its elimination; the
//     diagonal step divides by the stored pivot;
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

#include "telmira_types.h"

// One right-hand side, symmetric values: plain loops through lindx, no
// dense kernel.
template <class T>
void blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                 const int *substep);

// One right-hand side, Hermitian values: the level-2 form of the sweeps
// (the block steps, or the triangular solve on the single column with
// diagonal pivoting; a matrix-vector product for the rows below a block,
// through w). w holds at least the largest nrows - ncols over the
// supernodes and needs no initial value.
template <class T>
void ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                    T *w, const int *substep);

// Several right-hand sides: threads across right-hand sides (the split of
// blkslvs_share), level-3 blocks; a thread with a single Hermitian column
// takes matrix-vector products. w holds nrhs columns of leading dimension
// ldw, at least the largest nrows - ncols over the supernodes, and needs no
// initial value; the forward sweep leaves it zero. The forward sweep is
// one parallel region, the diagonal and backward steps share a second one.
// The exchanges of a single sub-step run on the calling thread between the
// regions, for Hermitian values inside them, each thread on its own
// right-hand sides.
template <class T, bool Hermitian = false>
void blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const T *lnz, const int *pivot, const int *diagp, T *x, T *w, const int *ldw,
                const int *substep);

// Block steps with a Bunch-Kaufman diagonal block a (n by n, leading
// dimension lda, local records ipiv) on nrhs columns of b (leading
// dimension ldb):
//   blkldl_fsolve: b := L^-1 P b, exchanges and rank-1 eliminations in turn;
//   blkldl_dsolve: b := D^-1 b, 1 by 1 pivots by their reciprocal (the
//     reciprocal of the real part for Hermitian values);
//   blkldl_bsolve: b := P^T L^-T b (L^-H), the reverse by matrix-vector
//     products.
template <class T>
void blkldl_fsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb);
template <class T, bool Hermitian = false>
void blkldl_dsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb);
template <class T, bool Hermitian = false>
void blkldl_bsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb);

// The family's names.
template <class T> inline constexpr auto &ch_blkldlslvs = blkldlslvs<T, true>;
namespace tlm {
template <class T> inline constexpr auto &c_blkslvs1 = blkldlslvs1<T>;
template <class T> inline constexpr auto &c_blkslvs = blkldlslvs<T>;
}  // namespace tlm
inline constexpr auto &sp_blkldlslvs1 = blkldlslvs1<float>;
inline constexpr auto &sp_blkldlslvs = blkldlslvs<float>;
inline constexpr auto &c_blkslvs1 = blkldlslvs1<tlm::zcomplex>;
inline constexpr auto &c_blkslvs = blkldlslvs<tlm::zcomplex>;
inline constexpr auto &sp_ch_blkldlslvs1 = ch_blkldlslvs1<tlm::ccomplex>;
inline constexpr auto &sp_ch_blkldlslvs = blkldlslvs<tlm::ccomplex, true>;

#endif
