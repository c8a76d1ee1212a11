// telmira_stage.h - the stage routine below the phase driver.
//
// One call does one stage: 1 order (sssord, sfinit), 2 symbolic
// factorization (symbfct), 3 the final structure in handle[STRUC_FI] with the
// scatter lists of A and the parallel lists, 4 the numbers (factorization,
// solve). Arrays come by their bare addresses; sub-arrays by the positions
// in comx. The status comes back in comi(50).
#ifndef TELMIRA_STAGE_H
#define TELMIRA_STAGE_H

#include <cstdint>

namespace tlm {

template <class R>
void telmira_stage(int *phase, const int *neqns, const int *matrix_number,
                   const void *a, const int *ia, const int *ja, int *perm,
                   const int *nb, int *comi, double *comr, int *comx,
                   std::intptr_t *entry, void *factors, void *struc_s0,
                   void *struc_s1, void *struc_s2, void *struc_fi, void *work_i0,
                   void *work_r0, void *cgs_arr, void *up_uplen, void *mc64perm,
                   void *mc64uv, int *timer_flags, int *loc_int, void *b,
                   void *x, const int *stage, int *iparam, int *ooc_l,
                   void *ooc_r, char *ooc_path);

}  // namespace tlm

#endif
