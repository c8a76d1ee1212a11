// blklu.h - supernodal LU factorization with pivoting inside the supernode,
// one left-looking sweep, for real (matrix types 1 and 11) and complex
// values (c_blklu, type 3, and c_blklu_unsym, type 13). Products transpose
// without conjugating.
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
// jpiv the row and column exchanges of each step. The search takes the
// largest magnitude of the trailing square row by row, a later entry
// winning a tie; a pivot not above eps is replaced by +-|eps| (1e-13 when
// eps is 0), the sign of its real part kept, and counted in npert; a NaN
// pivot stays. Complex blocks differ: magnitudes are sqrt(re^2 + im^2), the
// multipliers are formed through the pivot's reciprocal, and the last
// column is taken as it stands (ipiv(n) = jpiv(n) = n), its pivot replaced
// only when strictly below eps. info is always 0.
template <class T>
void blklu_blockfact(const int *n, T *a, const int *lda, int *ipiv, int *jpiv, int *npert,
                     const tlm::real_of<T> *eps, int *info);

// Matrix types 1 and 3: partial pivoting in the diagonal block, no
// replacement; an exact zero pivot ends the sweep with error cell -1. nnzl
// is the length of lnz, for progress; nthreads is not used.
template <class T>
void blklu(const T *a, const int *nsuper, const int *nthreads, const int *n, const int *nnzl,
           const int *xlindx, const int *lindx, const int *xlnz, T *lnz, const int *xunz,
           T *unz, int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
           int *link, const int *snode, const int *xsup, int *length, int *pivot,
           const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
           const int *luperm, const int *perm, const int *msglvl, int *error);

// Matrix types 11 and 13: complete pivoting in the diagonal block with
// replacement of small pivots (blklu_blockfact). npert is cleared first.
// With rowflag nonzero the values are scaled while scattered: s holds n
// real column factors, then n row factors, luperm_row the input row of
// each list entry.
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
inline constexpr auto &c_blklu = blklu<tlm::zcomplex>;
inline constexpr auto &sp_c_blklu = blklu<tlm::ccomplex>;
inline constexpr auto &c_blklu_unsym = blklu_unsym<tlm::zcomplex>;
inline constexpr auto &sp_c_blklu_unsym = blklu_unsym<tlm::ccomplex>;
inline constexpr auto &sp_blklu_blockfact = blklu_blockfact<float>;
inline constexpr auto &c_blklu_blockfact = blklu_blockfact<tlm::zcomplex>;
inline constexpr auto &sp_c_blklu_blockfact = blklu_blockfact<tlm::ccomplex>;

#endif
