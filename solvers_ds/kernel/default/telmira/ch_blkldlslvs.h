// ch_blkldlslvs.h - triangular solves with a supernodal L D L^H factor of a
// Hermitian matrix (ch_blkldl.h).
//
// The storage is that of the real LDL^T solves (blkldlslvs.h), values
// complex: the unit lower L11 and L21 of each supernode, D on the diagonal
// (with Bunch-Kaufman a 2 by 2 block [d11 conj(d21); d21 d22] with d21 in
// L(i+1,i)), the pivot records local to the block. The backward step
// multiplies by L^H. With Bunch-Kaufman (diagp 0) the diagonal of D is real
// and its real part is read; with diagonal pivoting (diagp 1) each x(c) is
// divided by the stored complex pivot.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward, 2
// diagonal, 3 backward; a single sub-step leaves no pivot order in its
// result, so that 1, 2, 3 in turn is 0.
#ifndef TELMIRA_CH_BLKLDLSLVS_H
#define TELMIRA_CH_BLKLDLSLVS_H

#include "telmira_types.h"

// One right-hand side: the level-2 form of the sweeps (block steps below,
// or ZTRSM on the single column with diagonal pivoting; ZGEMV for the rows
// below a block, through w). w holds at least the largest nrows - ncols
// over the supernodes and needs no initial value.
template <class T>
void ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                    T *w, const int *substep);

// Several right-hand sides: threads across right-hand sides (the split of
// blkslvs_share), level-3 blocks. w holds nrhs columns of leading dimension
// ldw, at least the largest nrows - ncols over the supernodes, and needs no
// initial value; the forward sweep leaves it zero. The exchanges of a
// single sub-step are done inside the parallel regions, each thread on its
// own right-hand sides.
template <class T>
void ch_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const T *lnz, const int *pivot, const int *diagp, T *x, T *w,
                   const int *ldw, const int *substep);

// Block steps with a Bunch-Kaufman diagonal block a (n by n, leading
// dimension lda, local records ipiv) on nrhs columns of b (leading
// dimension ldb):
//   ch_blkldl_fsolve: b := L^-1 P b, exchanges and rank-1 eliminations in
//     turn;
//   ch_blkldl_dsolve: b := D^-1 b, D Hermitian;
//   ch_blkldl_bsolve: b := P^T L^-H b, the reverse by matrix-vector
//     products with the conjugate transpose.
template <class T>
void ch_blkldl_fsolve(const int *n, const int *nrhs, const T *a, const int *lda,
                      const int *ipiv, T *b, const int *ldb);
template <class T>
void ch_blkldl_dsolve(const int *n, const int *nrhs, const T *a, const int *lda,
                      const int *ipiv, T *b, const int *ldb);
template <class T>
void ch_blkldl_bsolve(const int *n, const int *nrhs, const T *a, const int *lda,
                      const int *ipiv, T *b, const int *ldb);

// Named twins: the plain names in double, sp_ in single precision.
void ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                    const int *xlnz, const tlm::zcomplex *lnz, const int *pivot,
                    const int *diagp, tlm::zcomplex *x, tlm::zcomplex *w, const int *substep);
void ch_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const tlm::zcomplex *lnz, const int *pivot, const int *diagp,
                   tlm::zcomplex *x, tlm::zcomplex *w, const int *ldw, const int *substep);
void sp_ch_blkldlslvs1(const int *nsuper, const int *xsup, const int *xlindx,
                       const int *lindx, const int *xlnz, const tlm::ccomplex *lnz,
                       const int *pivot, const int *diagp, tlm::ccomplex *x, tlm::ccomplex *w,
                       const int *substep);
void sp_ch_blkldlslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                      const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                      const tlm::ccomplex *lnz, const int *pivot, const int *diagp,
                      tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw, const int *substep);

#endif
