// telmira_stage_numbers.cpp - stage 4 of the phase driver: one
// factorization into the factor block of a matrix_number, and the solve
// with it, plain or through the refinement call.
#include "telmira_stage.h"
#include "telmira_slots.h"

#include "service/vek_serv_clock.h"
#include "telmira_factorize.h"
#include "telmira_refine.h"
#include "telmira_solve.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

template <class R> void stage_factor(const stage_context &s) {
  int *comi = s.comi, *comx = s.comx, *iparam = s.iparam;
  double *comr = s.comr;
  std::intptr_t *entry = s.entry;
  COMI(CI_STATUS) = 0;
  stage_clock_start(comr, s.timer_flags);
  const int w = words_per_value(COMI(CI_MTYPE));
  entry[3] = (static_cast<std::intptr_t>(COMI(CI_LNZ_LEN)) + COMI(CI_UNZ_LEN)) * w;
  entry[1] = entry[0];
  entry[4] = w;
  entry[5] = COMI(CI_MTYPE);
  COMX(COMX_FACTORS) = 1;
  COMX(COMX_U_PART) = COMI(CI_LNZ_LEN) * w + 1;
  COMI(CI_NPERT) = COMI(CI_NPOS) = COMI(CI_NNEG) = 0;
  CTRL(IP_CGS) = 0;
  telmira_factorize<R>(s.a, s.ia, s.ja, s.struc_fi, comx, s.factors, s.work_r0,
                       COMI(CI_THREADS) > 1 ? s.up_uplen : nullptr, s.mc64uv, comi, comr, s.ooc_l);
  // The scatter of A runs inside the kernel's sweep.
  comr[4] = 0.0;
  s.timer_flags[4] = 1;
  s.timer_flags[5] = 1;
  // A failed factorization leaves no factors to solve with: a later solve
  // of this matrix_number factorizes again (and fails again).
  if (COMI(CI_STATUS) != 0) entry[1] = not_allocated_mark;
  COMI(CI_MAXIT) = 4;
  COMI(CI_FORCE) = 0;
  COMX(COMX_WORK) = 1;
  stage_clock_end(comr);
}

template <class R> void stage_solve(const stage_context &s, bool measured) {
  int *comi = s.comi, *comx = s.comx;
  double *comr = s.comr;
  COMI(CI_STATUS) = 0;
  stage_clock_start(comr, s.timer_flags);
  const int w = words_per_value(COMI(CI_MTYPE));
  COMX(COMX_FACTORS) = 1;
  COMX(COMX_U_PART) = COMI(CI_LNZ_LEN) * w + 1;
  if (measured) {
    telmira_refine<R>(s.a, s.ia, s.ja, s.nb, s.b, s.x, s.struc_fi, comx, s.factors,
                      s.work_r0, s.cgs, s.mc64uv, s.mc64perm, comi, s.iparam, comr,
                      s.timer_flags, s.ooc_l);
  } else {
    double t0 = 0.0, t1 = 0.0;
    telmira_clock(&t0);
    telmira_solve<R>(s.nb, s.x, s.b, s.struc_fi, comx, s.factors, s.work_r0, s.mc64uv,
                     s.mc64perm, comi, s.ooc_l);
    telmira_clock(&t1);
    comr[6] = t1 - t0;
    s.timer_flags[6] = 1;
    COMI(CI_REFINE_STEPS) = 0;
  }
  stage_clock_end(comr);
}

template void stage_factor<double>(const stage_context &);
template void stage_factor<float>(const stage_context &);
template void stage_solve<double>(const stage_context &, bool);
template void stage_solve<float>(const stage_context &, bool);

}  // namespace tlm
