// telmira_call.h - one call of the phase driver: what it was given, what
// it has come to, and its two phases.
//
// The driver (telmira_driver.cpp) starts a call, runs the analysis
// (telmira_analysis.cpp) and the numeric phase (telmira_numeric_phase.cpp),
// and ends it with the memory figures, the error number and the report.
#ifndef TELMIRA_CALL_H
#define TELMIRA_CALL_H

#include <cstdint>

#include "telmira_check.h"
#include "telmira_phase.h"
#include "telmira_stage.h"
#include "telmira_storage.h"

namespace tlm {

// Everything the end of a call needs to know about its course.
struct call_record {
  int status;
  int error;
  int level;           // limited message level, 0 or 1
  phase_code phase;    // the phases as the call asked for them
  int entries;         // stored entries of this call's matrix
  int entries_in;      // ia(neqns+1)-1 as the caller gave it
  int stored_entries;  // comi(54) when the call began
  int quiet;           // 1: return without the end of a call
  storage_sums sums;
  int timer_flags[TELMIRA_TIMER_FLAGS];
};

// The arguments of the call that the phases read.
struct call_args {
  const int *matrix_number;
  const int *neqns;
  const void *a;
  const int *ia;
  const int *ja;
  int *perm;
  const int *nb;
  void *b;
  void *x;
  const int *msglvl;
};

// The stages' view of the handle for this call; entry (the factor entry of
// the call's matrix_number) and loc_int may be null.
stage_context context_of(std::intptr_t *handle, int *iparam, const call_args &c,
                         call_record *rec, std::intptr_t *entry, int *loc_int);

// The analysis in its steps, up to the committed numeric plan. Sets
// rec->error and rec->status on failure.
template <class R>
void analysis_phase(std::intptr_t *handle, int *iparam, const call_args &c,
                    call_record *rec, int mark);

// Factorization and solve, for a call whose last phase is 2 or 3.
template <class R>
void numeric_phase(std::intptr_t *handle, int *iparam, const call_args &c,
                   call_record *rec, int mark);

}  // namespace tlm

#endif
