// telmira_stage.h - the stages below the phase driver: order, symbolic
// factorization, the final layout of the structure, and the numbers
// (factorization, solve).
//
// The driver hands each stage the arrays of the handle's storage plan in
// one context; sub-arrays of a block are found by their positions in comx
// (telmira_layout.h). Every stage clears comi(50) first and leaves its
// status there, and adds the time since the last stage's end to the
// allocation timer comr[8].
#ifndef TELMIRA_STAGE_H
#define TELMIRA_STAGE_H

#include <cstdint>

namespace tlm {

struct stage_context {
  // The call.
  const int *neqns;
  const void *a;
  const int *ia;
  const int *ja;
  int *perm;
  const int *nb;
  void *b;
  void *x;
  // The state.
  int *comi;
  double *comr;
  int *comx;
  int *iparam;
  int *ooc_l;
  int *timer_flags;
  // The arrays of the storage plan.
  void *struc_s0, *struc_s1, *struc_s2, *struc_fi, *work_i0, *work_r0, *cgs, *up_uplen;
  int *mc64perm;
  void *mc64uv;
  int *loc_int;
  // The factor entry of the call's matrix_number and its block.
  std::intptr_t *entry;
  void *factors;
};

// 1: adjacency and order (sssord), then elimination tree, column counts
// and supernodes (sfinit).
void stage_order(const stage_context &s);
// 2: the structure of the factor (symbfct).
void stage_symbolic(const stage_context &s);
// 3: the final structure in handle[STRUC_FI], the scatter lists of A, the
// parallel lists (more than one thread) and the operation count.
void stage_layout(const stage_context &s);
// 4: one factorization into the entry's block, with its words set; a
// failed one leaves the entry marked unfactorized.
template <class R> void stage_factor(const stage_context &s);
// 4: the solve with the stored factors: plain, or, when `measured`, through
// the refinement call, which refines by the rules of iparam(8) and
// measures the backward error of the solution (the cgs array is laid out
// for it). Steps done in comi(65).
template <class R> void stage_solve(const stage_context &s, bool measured);

// The time between stages goes to the allocation timer.
void stage_clock_start(double *comr, int *timer_flags);
void stage_clock_end(double *comr);

}  // namespace tlm

#endif
