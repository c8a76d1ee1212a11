// c_blkl.cpp - the complex symmetric LDL^T sweep. It is the sweep of the
// real indefinite kernel, instantiated for complex values: the scatter, the
// descendant lists, W = K D and the products K W^T, the mirrored diagonal
// block and the transposed copy of L21 need no conjugate, and the block
// routines it calls are the complex ones of c_blkl_dense.cpp. The sign
// counters of the real sweep go to cells of its own.
#include "c_blkl.h"

namespace tlm {

template <class T>
void c_blkl(const T *a, const int *ja, const int *nsuper, const int *nthreads, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
            int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
            int *link, const int *snode, const int *xsup, int *length, int *pivot,
            const int *xjalf, const int *jalf, const int *luperm, const int *perm,
            const real_of<T> *eps, const int *diagp, int *npert, int *, int *,
            const real_of<T> *s, const int *rowflag, const int *luperm_row,
            const int *msglvl, int *error) {
  int npos = 0, nneg = 0;  // the caller's cells stay as they are
  blkldl<T>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz, indmap, relind,
            tmpsize, temp, nmod, link, snode, xsup, length, pivot, xjalf, jalf, luperm, perm,
            eps, diagp, npert, &npos, &nneg, s, rowflag, luperm_row, msglvl, error);
}

#define C_BLKL_INSTANCE(T)                                                                \
  template void c_blkl<T>(const T *, const int *, const int *, const int *, const int *,  \
                          const int *, const int *, const int *, const int *, T *, int *, \
                          int *, const int *, T *, const int *, int *, const int *,       \
                          const int *, int *, int *, const int *, const int *,            \
                          const int *, const int *, const real_of<T> *, const int *,      \
                          int *, int *, int *, const real_of<T> *, const int *,           \
                          const int *, const int *, int *);
C_BLKL_INSTANCE(zcomplex)
C_BLKL_INSTANCE(ccomplex)

}  // namespace tlm

void c_blkl(const tlm::zcomplex *a, const int *ja, const int *nsuper, const int *nthreads,
            const int *n, const int *nnzl, const int *xlindx, const int *lindx,
            const int *xlnz, tlm::zcomplex *lnz, int *indmap, int *relind,
            const int *tmpsize, tlm::zcomplex *temp, const int *nmod, int *link,
            const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
            const int *jalf, const int *luperm, const int *perm, const double *eps,
            const int *diagp, int *npert, int *npos, int *nneg, const double *s,
            const int *rowflag, const int *luperm_row, const int *msglvl, int *error) {
  tlm::c_blkl<tlm::zcomplex>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz,
                             indmap, relind, tmpsize, temp, nmod, link, snode, xsup, length,
                             pivot, xjalf, jalf, luperm, perm, eps, diagp, npert, npos, nneg,
                             s, rowflag, luperm_row, msglvl, error);
}
void sp_c_blkl(const tlm::ccomplex *a, const int *ja, const int *nsuper, const int *nthreads,
               const int *n, const int *nnzl, const int *xlindx, const int *lindx,
               const int *xlnz, tlm::ccomplex *lnz, int *indmap, int *relind,
               const int *tmpsize, tlm::ccomplex *temp, const int *nmod, int *link,
               const int *snode, const int *xsup, int *length, int *pivot,
               const int *xjalf, const int *jalf, const int *luperm, const int *perm,
               const float *eps, const int *diagp, int *npert, int *npos, int *nneg,
               const float *s, const int *rowflag, const int *luperm_row,
               const int *msglvl, int *error) {
  tlm::c_blkl<tlm::ccomplex>(a, ja, nsuper, nthreads, n, nnzl, xlindx, lindx, xlnz, lnz,
                             indmap, relind, tmpsize, temp, nmod, link, snode, xsup, length,
                             pivot, xjalf, jalf, luperm, perm, eps, diagp, npert, npos, nneg,
                             s, rowflag, luperm_row, msglvl, error);
}
