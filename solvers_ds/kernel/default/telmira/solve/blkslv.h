// blkslv.h - triangular solves with a supernodal LU factor, real or
// complex (the factors of blklu and blklu_unsym; the backward product
// transposes the unz block without conjugating it).
//
// Supernode J, columns fstcol..lstcol (ncols), nrows rows listed in lindx
// from xlindx(J), below = nrows - ncols:
//   lnz at xlnz(fstcol), leading dimension nrows: L11 (unit lower, diagonal
//     not stored) and U11 (upper with diagonal) in the top square, L21 below;
//   unz at xunz(fstcol), leading dimension below: U12 transposed, entry
//     (r, c) = U(fstcol+c-1, r-th row below the block);
//   pivot(fstcol+i-1): local row exchanged with row i at step i;
//   cpivot(fstcol+i-1): local column exchanged with column i (complete
//     pivoting of mtype 11), a null pointer when there are none (mtype 1).
// The forward sweep applies the row exchanges of a supernode to x and then
// eliminates with the unit L; the backward sweep solves with U12 and U11
// and then undoes the column exchanges.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward only,
// 2 diagonal only (nothing for LU), 3 backward only; 1 then 3 is 0.
#ifndef TELMIRA_BLKSLV_H
#define TELMIRA_BLKSLV_H

#include "telmira_types.h"

// One right-hand side: plain loops through lindx, no dense kernel.
template <class T>
void blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
             const int *xlnz, const T *lnz, const int *xunz, const T *unz,
             const int *pivot, const int *cpivot, T *x, const int *substep);

// Several right-hand sides: threads across right-hand sides (split of
// blkslvs_share), level-3 blocks. w holds nrhs columns of leading dimension
// ldw, at least the largest nrows - ncols over the supernodes, and needs no
// initial value; the forward sweep leaves it zero.
template <class T>
void blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
            const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
            const T *lnz, const int *xunz, const T *unz, const int *pivot,
            const int *cpivot, T *x, T *w, const int *ldw, const int *substep);

// The names by matrix type: blkslv1 and blkslv (cpivot null) serve types
// 1 and 3, the _unsym names types 11 and 13.
inline constexpr auto &blkslv1_unsym = blkslv1<double>;
inline constexpr auto &blkslv_unsym = blkslv<double>;
inline constexpr auto &sp_blkslv1 = blkslv1<float>;
inline constexpr auto &sp_blkslv = blkslv<float>;
inline constexpr auto &sp_blkslv1_unsym = blkslv1<float>;
inline constexpr auto &sp_blkslv_unsym = blkslv<float>;
inline constexpr auto &c_blkslv1 = blkslv1<tlm::zcomplex>;
inline constexpr auto &c_blkslv = blkslv<tlm::zcomplex>;
inline constexpr auto &c_blkslv1_unsym = blkslv1<tlm::zcomplex>;
inline constexpr auto &c_blkslv_unsym = blkslv<tlm::zcomplex>;

#endif
