// c_blklu.cpp - the named twins of the complex LU sweeps. The sweeps are
// the templates of blklu.cpp, instantiated there for complex values.
#include "c_blklu.h"

void c_blklu(const tlm::zcomplex *a, const int *nsuper, const int *nthreads, const int *n,
             const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
             tlm::zcomplex *lnz, const int *xunz, tlm::zcomplex *unz, int *indmap,
             int *relind, const int *tmpsize, tlm::zcomplex *temp, const int *nmod,
             int *link, const int *snode, const int *xsup, int *length, int *pivot,
             const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
             const int *luperm, const int *perm, const int *msglvl, int *error) {
  blklu<tlm::zcomplex>(a, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz,
                       indmap, relind, tmpsize, temp, nmod, link, snode, xsup, length, pivot,
                       xjalf, jalf, xjauf, jauf, luperm, perm, msglvl, error);
}

void sp_c_blklu(const tlm::ccomplex *a, const int *nsuper, const int *nthreads, const int *n,
                const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
                tlm::ccomplex *lnz, const int *xunz, tlm::ccomplex *unz, int *indmap,
                int *relind, const int *tmpsize, tlm::ccomplex *temp, const int *nmod,
                int *link, const int *snode, const int *xsup, int *length, int *pivot,
                const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
                const int *luperm, const int *perm, const int *msglvl, int *error) {
  blklu<tlm::ccomplex>(a, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz, unz,
                       indmap, relind, tmpsize, temp, nmod, link, snode, xsup, length, pivot,
                       xjalf, jalf, xjauf, jauf, luperm, perm, msglvl, error);
}

void c_blklu_unsym(const tlm::zcomplex *a, const int *ja, const int *nsuper,
                   const int *nthreads, const int *n, const int *nnzl, const int *xlindx,
                   const int *lindx, const int *xlnz, tlm::zcomplex *lnz, const int *xunz,
                   tlm::zcomplex *unz, int *indmap, int *relind, const int *tmpsize,
                   tlm::zcomplex *temp, const int *nmod, int *link, const int *snode,
                   const int *xsup, int *length, int *pivot, int *cpivot, const int *xjalf,
                   const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
                   const int *perm, const double *eps, int *npert, const double *s,
                   const int *rowflag, const int *luperm_row, const int *msglvl, int *error) {
  blklu_unsym<tlm::zcomplex>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz,
                             unz, indmap, relind, tmpsize, temp, nmod, link, snode, xsup,
                             length, pivot, cpivot, xjalf, jalf, xjauf, jauf, luperm, perm,
                             eps, npert, s, rowflag, luperm_row, msglvl, error);
}

void sp_c_blklu_unsym(const tlm::ccomplex *a, const int *ja, const int *nsuper,
                      const int *nthreads, const int *n, const int *nnzl, const int *xlindx,
                      const int *lindx, const int *xlnz, tlm::ccomplex *lnz, const int *xunz,
                      tlm::ccomplex *unz, int *indmap, int *relind, const int *tmpsize,
                      tlm::ccomplex *temp, const int *nmod, int *link, const int *snode,
                      const int *xsup, int *length, int *pivot, int *cpivot,
                      const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
                      const int *luperm, const int *perm, const float *eps, int *npert,
                      const float *s, const int *rowflag, const int *luperm_row,
                      const int *msglvl, int *error) {
  blklu_unsym<tlm::ccomplex>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, xunz,
                             unz, indmap, relind, tmpsize, temp, nmod, link, snode, xsup,
                             length, pivot, cpivot, xjalf, jalf, xjauf, jauf, luperm, perm,
                             eps, npert, s, rowflag, luperm_row, msglvl, error);
}
