// ch_blkslvs.h - triangular solves with a supernodal Cholesky factor L L^H
// of a Hermitian positive definite matrix (ch_blkl): forward L y = b, then
// backward L^H x = y.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. w holds one column per right-hand side of leading
// dimension ldw, at least the largest nrows - ncols over the supernodes
// (comi(23) serves); it needs no initial value, and the forward sweep
// leaves it zero. substep is comi(55): 0 full solve, 1 forward only, 2
// diagonal only (nothing for L L^H), 3 backward only. T is
// std::complex<double> or std::complex<float>.
#ifndef TELMIRA_CH_BLKSLVS_H
#define TELMIRA_CH_BLKSLVS_H

#include "telmira_types.h"

// One right-hand side: the block steps of the form for several, with
// matrix-vector products on the single column through w; no threads.
template <class T>
void ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const T *lnz, T *x, T *w, const int *ldw,
                 const int *substep);

// Several right-hand sides: threads across right-hand sides (split of
// blkslvs_share), level-3 blocks; thread t uses the columns of w of its own
// right-hand sides.
template <class T>
void ch_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const T *lnz, T *x, T *w, const int *ldw, const int *substep);

// Named twins.
void ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, const tlm::zcomplex *lnz, tlm::zcomplex *x,
                 tlm::zcomplex *w, const int *ldw, const int *substep);
void ch_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                const tlm::zcomplex *lnz, tlm::zcomplex *x, tlm::zcomplex *w,
                const int *ldw, const int *substep);
void sp_ch_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx,
                    const int *lindx, const int *xlnz, const tlm::ccomplex *lnz,
                    tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw, const int *substep);
void sp_ch_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                   const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                   const tlm::ccomplex *lnz, tlm::ccomplex *x, tlm::ccomplex *w,
                   const int *ldw, const int *substep);

#endif
