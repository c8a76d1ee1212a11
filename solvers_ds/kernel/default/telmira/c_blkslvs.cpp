// c_blkslvs.cpp - the solves with a complex symmetric LDL^T factor: the
// sweeps of the real indefinite solves, instantiated for complex values.
// Their products take L and its block columns transposed (GEMM and GEMV
// "T", TRSM "T"), the rank-1 steps are unconjugated (GERU), D is solved in
// complex arithmetic: all that a complex symmetric factor asks for.
#include "c_blkslvs.h"

namespace tlm {

template <class T>
void c_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                const int *substep) {
  blkldlslvs1<T>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, substep);
}

template <class T>
void c_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
               const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const T *lnz, const int *pivot, const int *diagp, T *x, T *w, const int *ldw,
               const int *substep) {
  blkldlslvs<T>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, w,
                ldw, substep);
}

#define C_BLKSLVS_INSTANCE(T)                                                                 \
  template void c_blkslvs1<T>(const int *, const int *, const int *, const int *, const int *, \
                              const T *, const int *, const int *, T *, const int *);          \
  template void c_blkslvs<T>(const int *, const int *, const int *, const int *, const int *,  \
                             const int *, const int *, const int *, const T *, const int *,    \
                             const int *, T *, T *, const int *, const int *);
C_BLKSLVS_INSTANCE(zcomplex)
C_BLKSLVS_INSTANCE(ccomplex)

}  // namespace tlm

void c_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                const int *xlnz, const tlm::zcomplex *lnz, const int *pivot, const int *diagp,
                tlm::zcomplex *x, const int *substep) {
  blkldlslvs1<tlm::zcomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, substep);
}
void sp_c_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const tlm::ccomplex *lnz, const int *pivot,
                   const int *diagp, tlm::ccomplex *x, const int *substep) {
  blkldlslvs1<tlm::ccomplex>(nsuper, xsup, xlindx, lindx, xlnz, lnz, pivot, diagp, x, substep);
}
void c_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
               const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const tlm::zcomplex *lnz, const int *pivot, const int *diagp, tlm::zcomplex *x,
               tlm::zcomplex *w, const int *ldw, const int *substep) {
  blkldlslvs<tlm::zcomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, pivot,
                            diagp, x, w, ldw, substep);
}
void sp_c_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                  const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                  const tlm::ccomplex *lnz, const int *pivot, const int *diagp,
                  tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw, const int *substep) {
  blkldlslvs<tlm::ccomplex>(nsuper, nrhs, nthreads, n, xsup, xlindx, lindx, xlnz, lnz, pivot,
                            diagp, x, w, ldw, substep);
}
void c_blkldl_fsolve(const int *n, const int *nrhs, const tlm::zcomplex *a, const int *lda,
                     const int *ipiv, tlm::zcomplex *b, const int *ldb) {
  blkldl_fsolve<tlm::zcomplex>(n, nrhs, a, lda, ipiv, b, ldb);
}
void c_blkldl_dsolve(const int *n, const int *nrhs, const tlm::zcomplex *a, const int *lda,
                     const int *ipiv, tlm::zcomplex *b, const int *ldb) {
  blkldl_dsolve<tlm::zcomplex>(n, nrhs, a, lda, ipiv, b, ldb);
}
void c_blkldl_bsolve(const int *n, const int *nrhs, const tlm::zcomplex *a, const int *lda,
                     const int *ipiv, tlm::zcomplex *b, const int *ldb) {
  blkldl_bsolve<tlm::zcomplex>(n, nrhs, a, lda, ipiv, b, ldb);
}
void sp_c_blkldl_fsolve(const int *n, const int *nrhs, const tlm::ccomplex *a, const int *lda,
                        const int *ipiv, tlm::ccomplex *b, const int *ldb) {
  blkldl_fsolve<tlm::ccomplex>(n, nrhs, a, lda, ipiv, b, ldb);
}
void sp_c_blkldl_dsolve(const int *n, const int *nrhs, const tlm::ccomplex *a, const int *lda,
                        const int *ipiv, tlm::ccomplex *b, const int *ldb) {
  blkldl_dsolve<tlm::ccomplex>(n, nrhs, a, lda, ipiv, b, ldb);
}
void sp_c_blkldl_bsolve(const int *n, const int *nrhs, const tlm::ccomplex *a, const int *lda,
                        const int *ipiv, tlm::ccomplex *b, const int *ldb) {
  blkldl_bsolve<tlm::ccomplex>(n, nrhs, a, lda, ipiv, b, ldb);
}
