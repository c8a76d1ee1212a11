// c_blkslv.h - triangular solves with a complex supernodal LU factor (types
// 3 and 13). They are the templates blkslv1<T> and blkslv<T> of blkslv.h for
// complex T, with the same storage, pivot records, sub-steps and division of
// right-hand sides among threads; the backward product transposes the unz
// block without conjugating it.
#ifndef TELMIRA_C_BLKSLV_H
#define TELMIRA_C_BLKSLV_H

#include "blkslv.h"
#include "telmira_types.h"

// Type 3: row exchanges only.
void c_blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
               const int *xlnz, const tlm::zcomplex *lnz, const int *xunz,
               const tlm::zcomplex *unz, const int *pivot, tlm::zcomplex *x,
               const int *substep);
void c_blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
              const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
              const tlm::zcomplex *lnz, const int *xunz, const tlm::zcomplex *unz,
              const int *pivot, tlm::zcomplex *x, tlm::zcomplex *w, const int *ldw,
              const int *substep);
// Type 13: row and column exchanges.
void c_blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                     const int *xlnz, const tlm::zcomplex *lnz, const int *xunz,
                     const tlm::zcomplex *unz, const int *pivot, const int *cpivot,
                     tlm::zcomplex *x, const int *substep);
void c_blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                    const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                    const tlm::zcomplex *lnz, const int *xunz, const tlm::zcomplex *unz,
                    const int *pivot, const int *cpivot, tlm::zcomplex *x, tlm::zcomplex *w,
                    const int *ldw, const int *substep);

void sp_c_blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                  const int *xlnz, const tlm::ccomplex *lnz, const int *xunz,
                  const tlm::ccomplex *unz, const int *pivot, tlm::ccomplex *x,
                  const int *substep);
void sp_c_blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                 const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                 const tlm::ccomplex *lnz, const int *xunz, const tlm::ccomplex *unz,
                 const int *pivot, tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw,
                 const int *substep);
void sp_c_blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx,
                        const int *lindx, const int *xlnz, const tlm::ccomplex *lnz,
                        const int *xunz, const tlm::ccomplex *unz, const int *pivot,
                        const int *cpivot, tlm::ccomplex *x, const int *substep);
void sp_c_blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                       const int *xsup, const int *xlindx, const int *lindx,
                       const int *xlnz, const tlm::ccomplex *lnz, const int *xunz,
                       const tlm::ccomplex *unz, const int *pivot, const int *cpivot,
                       tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw,
                       const int *substep);

#endif
