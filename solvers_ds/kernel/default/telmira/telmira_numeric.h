// telmira_numeric.h - the numeric phase: factorization driver, solve
// driver, gather and scatter of the right-hand sides.
//
// The structure arrays are read from handle[STRUC_FI] (fi) at the positions
// that comx holds (telmira_layout.h). R is the precision of the handle;
// complex types use pairs of R.
#ifndef TELMIRA_NUMERIC_H
#define TELMIRA_NUMERIC_H

#include <cstdint>

#include "telmira_storage.h"

namespace tlm {

// The pivot records of a factorization stand in its own factor block,
// behind the values of L and U: pivot (n entries), then cpivot (n entries).
// So each matrix_number of a handle keeps the exchanges of its own
// factorization. value_bytes: bytes of one value (8 or 16 in double).
constexpr int PIVOT_RECORD_WORDS = 2;  // ints per equation
inline int *factor_pivots(const void *factors, const int *comi, std::size_t value_bytes) {
  const std::size_t values = static_cast<std::size_t>(COMI(CI_LNZ_LEN)) + COMI(CI_UNZ_LEN);
  return reinterpret_cast<int *>(const_cast<char *>(static_cast<const char *>(factors)) +
                                 values * value_bytes);
}

// Whether a solve goes through the refinement call, which refines and
// measures the backward error of its solution: every whole solve, but for
// the positive definite types (Cholesky is backward stable and perturbs no
// pivot), which refine only when iparam(8) asks. Single sub-steps and the
// iteration never do. comi and iparam as everywhere (COMI, CTRL).
inline bool solve_is_measured(const int *comi, const int *iparam) {
  if (COMI(CI_ITERATION) != 0 || COMI(CI_SUBSTEP) != 0) return false;
  const int mtype = COMI(CI_MTYPE);
  if (mtype == 2 || mtype == 4) return COMI(CI_NPERT) > 0 || CTRL(IP_REFINE) != 0;
  return true;
}

// One numeric factorization: the kernel by matrix type, thread count and
// storage mode; the time goes to comr[5], the kernel's error cell to
// comi(50), the pivot counters to comi(62) to comi(64).
// up_uplen: the lists of the parallel sweeps (handle[UP_UPLEN]), null with
// one thread.
template <class R>
void telmira_factorize(const void *a, const int *ia, const int *ja, void *fi,
                       const int *comx, void *factors, void *work, void *up_uplen,
                       const void *scaling, int *comi, double *comr,
                       int *ooc_l);
// The selectors: symmetric storage (types 2, -2, 4, -4, 6) and full
// storage (types 1, 3, 11, 13).
template <class R>
void telmira_factor_sym(const void *a, const int *ia, const int *ja, void *fi,
                        const int *comx, void *factors, void *work, void *up_uplen,
                        const void *scaling, int *comi, int *ooc_l);
template <class R>
void telmira_factor_unsym(const void *a, const int *ia, const int *ja,
                          void *fi, const int *comx, void *factors, void *work,
                          void *up_uplen, const void *scaling, int *comi, int *ooc_l);

// The pivot perturbation of a factorization: 10^-|comi(66)|, for types -2,
// -4 and 6 adjusted by the largest off-diagonal magnitude of a (each row's
// first entry left out). 0 when comi(66) is 0.
double pivot_perturbation(int k, int mtype, int n, const int *ia,
                          const void *a, int single);

// Solve with the factors: gather, triangular sweeps, scatter. x is the
// caller's x (the permuted work vector, and the solution when comi(8) is
// 0); b the right-hand sides (the solution when comi(8) is 1). work holds
// comi(44) values of the handle's precision and type. s: the scalings
// (2 n reals), m: the matching's row order. Status in comi(50).
template <class R>
void telmira_solve(const int *nrhs, void *x, void *b, void *fi,
                   const int *comx, const void *factors, void *work,
                   const void *s, const int *m, int *comi, int *ooc_l);

// The solve of phase 33 with iterative refinement: the first solve, then
// steps of r = b - A x (product of the caller's A, by comi(68) transposed),
// A d = r and x = x + d by the rules of iparam(8), comi(62) and comi(73).
// cgs: handle[CGS_ARR]. Steps done in comi(65); status in comi(50), -112
// when the residual stopped falling with a large correction.
template <class R>
void telmira_refine(const void *a, const int *ia, const int *ja, const int *nb, void *b,
                    void *x, void *fi, const int *comx, const void *factors, void *work,
                    void *cgs, const void *s, const int *m, int *comi, int *iparam,
                    double *comr, int *timer_flags, int *ooc_l);

// The accuracy check alone, on a solution that another path made: the
// backward error of sol against the caller's matrix, further refinement
// steps while they help, status -122 in comi(50) when it stays above the
// square root of the rounding unit. cgs holds 3 n nb + 2 threads nb values.
template <class R>
void telmira_vouch(const void *a, const int *ia, const int *ja, const int *nb,
                   const void *rhs, void *sol, void *cgs, void *fi, const int *comx,
                   const void *factors, void *work, const void *s, const int *m, int *comi,
                   double *comr, int *timer_flags, int *ooc_l);

// x(i) := b(perm(i)) for each right-hand side, with the scaling rules of
// comi(67) and the sub-step comi(55). T is the value type, s real.
template <class T>
void psol_fwgath(const int *n, const int *nrhs, T *x, const T *b,
                 const int *perm, const void *s, const int *m,
                 const int *comi);
// The solution back in the input order: over b (comi(8) = 1) or, through
// buf of bufcols columns, over x.
template <class T>
void psol_bwscat(const int *n, const int *nrhs, T *x, T *b, const int *perm,
                 const void *s, T *buf, const int *bufcols, const int *comi);

}  // namespace tlm

#endif
