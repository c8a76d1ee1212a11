// telmira_refine.h - iterative refinement and the accuracy check of a
// solve, and which solves go through them.
#ifndef TELMIRA_REFINE_H
#define TELMIRA_REFINE_H

#include "telmira_storage.h"

namespace tlm {

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

}  // namespace tlm

#endif
