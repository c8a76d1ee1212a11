// c_blkslv.cpp - the named twins of the complex LU solves. The sweeps are
// the templates of blkslv.cpp, instantiated there for complex values.
#include "c_blkslv.h"

void c_blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
               const int *xlnz, const tlm::zcomplex *lnz, const int *xunz,
               const tlm::zcomplex *unz, const int *pivot, tlm::zcomplex *x,
               const int *substep) {
  blkslv1<tlm::zcomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, nullptr,
                         x, substep);
}

void c_blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
              const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
              const tlm::zcomplex *lnz, const int *xunz, const tlm::zcomplex *unz,
              const int *pivot, tlm::zcomplex *x, tlm::zcomplex *w, const int *ldw,
              const int *substep) {
  blkslv<tlm::zcomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz,
                        pivot, nullptr, x, w, ldw, substep);
}

void c_blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                     const int *xlnz, const tlm::zcomplex *lnz, const int *xunz,
                     const tlm::zcomplex *unz, const int *pivot, const int *cpivot,
                     tlm::zcomplex *x, const int *substep) {
  blkslv1<tlm::zcomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, cpivot, x,
                         substep);
}

void c_blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                    const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                    const tlm::zcomplex *lnz, const int *xunz, const tlm::zcomplex *unz,
                    const int *pivot, const int *cpivot, tlm::zcomplex *x, tlm::zcomplex *w,
                    const int *ldw, const int *substep) {
  blkslv<tlm::zcomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz,
                        pivot, cpivot, x, w, ldw, substep);
}

void sp_c_blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                  const int *xlnz, const tlm::ccomplex *lnz, const int *xunz,
                  const tlm::ccomplex *unz, const int *pivot, tlm::ccomplex *x,
                  const int *substep) {
  blkslv1<tlm::ccomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, nullptr,
                         x, substep);
}

void sp_c_blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                 const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                 const tlm::ccomplex *lnz, const int *xunz, const tlm::ccomplex *unz,
                 const int *pivot, tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw,
                 const int *substep) {
  blkslv<tlm::ccomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz,
                        pivot, nullptr, x, w, ldw, substep);
}

void sp_c_blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx,
                        const int *lindx, const int *xlnz, const tlm::ccomplex *lnz,
                        const int *xunz, const tlm::ccomplex *unz, const int *pivot,
                        const int *cpivot, tlm::ccomplex *x, const int *substep) {
  blkslv1<tlm::ccomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, pivot, cpivot, x,
                         substep);
}

void sp_c_blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                       const int *xsup, const int *xlindx, const int *lindx,
                       const int *xlnz, const tlm::ccomplex *lnz, const int *xunz,
                       const tlm::ccomplex *unz, const int *pivot, const int *cpivot,
                       tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw,
                       const int *substep) {
  blkslv<tlm::ccomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, xunz, unz,
                        pivot, cpivot, x, w, ldw, substep);
}
