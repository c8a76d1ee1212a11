// c_blkslvs.h - triangular solves with a complex symmetric LDL^T factor
// (type 6, from c_blkl). The factor is stored as the real LDL^T factor
// (blkldlslvs.h): unit L11 below the diagonal of each block, D on it (a
// 2 by 2 block of D at i, i+1 with its off-diagonal in L(i+1,i)), L21
// below, and the local exchanges in pivot by diagp. The backward sweep
// takes L transposed, never conjugated.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward, 2
// diagonal, 3 backward; a single sub-step leaves no pivot order in its
// result. T is std::complex<double> or std::complex<float>.
#ifndef TELMIRA_C_BLKSLVS_H
#define TELMIRA_C_BLKSLVS_H

#include "blkldlslvs.h"
#include "telmira_types.h"

namespace tlm {

// One right-hand side: plain loops through lindx, no dense kernel.
template <class T>
void c_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                const int *xlnz, const T *lnz, const int *pivot, const int *diagp, T *x,
                const int *substep);

// Several right-hand sides, threads across them, level-3 blocks; w holds
// nrhs columns of leading dimension ldw (at least the largest nrows - ncols)
// and needs no initial value.
template <class T>
void c_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
               const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const T *lnz, const int *pivot, const int *diagp, T *x, T *w, const int *ldw,
               const int *substep);

}  // namespace tlm

// Named twins: double (c_) and single (sp_c_) precision. The block steps
// with a Bunch-Kaufman diagonal block (n by n, leading dimension lda) on
// nrhs columns of b: fsolve b := L^-1 P b, dsolve b := D^-1 b, bsolve
// b := P^T L^-T b.
void c_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                const int *xlnz, const tlm::zcomplex *lnz, const int *pivot, const int *diagp,
                tlm::zcomplex *x, const int *substep);
void sp_c_blkslvs1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const tlm::ccomplex *lnz, const int *pivot,
                   const int *diagp, tlm::ccomplex *x, const int *substep);
void c_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
               const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const tlm::zcomplex *lnz, const int *pivot, const int *diagp, tlm::zcomplex *x,
               tlm::zcomplex *w, const int *ldw, const int *substep);
void sp_c_blkslvs(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                  const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                  const tlm::ccomplex *lnz, const int *pivot, const int *diagp,
                  tlm::ccomplex *x, tlm::ccomplex *w, const int *ldw, const int *substep);
void c_blkldl_fsolve(const int *n, const int *nrhs, const tlm::zcomplex *a, const int *lda,
                     const int *ipiv, tlm::zcomplex *b, const int *ldb);
void c_blkldl_dsolve(const int *n, const int *nrhs, const tlm::zcomplex *a, const int *lda,
                     const int *ipiv, tlm::zcomplex *b, const int *ldb);
void c_blkldl_bsolve(const int *n, const int *nrhs, const tlm::zcomplex *a, const int *lda,
                     const int *ipiv, tlm::zcomplex *b, const int *ldb);
void sp_c_blkldl_fsolve(const int *n, const int *nrhs, const tlm::ccomplex *a, const int *lda,
                        const int *ipiv, tlm::ccomplex *b, const int *ldb);
void sp_c_blkldl_dsolve(const int *n, const int *nrhs, const tlm::ccomplex *a, const int *lda,
                        const int *ipiv, tlm::ccomplex *b, const int *ldb);
void sp_c_blkldl_bsolve(const int *n, const int *nrhs, const tlm::ccomplex *a, const int *lda,
                        const int *ipiv, tlm::ccomplex *b, const int *ldb);

#endif
