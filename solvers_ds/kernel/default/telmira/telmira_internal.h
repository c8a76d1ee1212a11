// telmira_internal.h - routines of the solver behind the entry `telmira`.
#ifndef TELMIRA_INTERNAL_H
#define TELMIRA_INTERNAL_H

#include <cstdint>

#include "telmira.h"
#include "telmira_types.h"

// The not-allocated marks, one per precision, at fixed addresses: a handle
// slot or factor entry holding the value 777777 owns no memory.
extern int telmira_not_allocated_double;
extern int telmira_not_allocated_single;

// Phase drivers of the two precisions: the arguments of `telmira` plus the
// address of the precision's not-allocated mark.
void telmira_double(intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int *not_allocated);
void telmira_single(intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int *not_allocated);

// Diagonal-matrix shortcut. error: 0, row i (> 0) whose entry count is not
// one, or -i when the entry of row i is zero. The real forms count the
// positive and negative diagonal values into pos and neg (iparam(22), (23)).
template <class T>
void diag_solve(const int *neqns, const int *nb, const int *ia, const int *ja,
                const T *a, T *b, T *x, int *error, const int *ctl6,
                const int *solve, const int *threads, int *pos, int *neg);

void diag_solve_d(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const double *a, double *b, double *x, int *error,
                  const int *ctl6, const int *solve, const int *threads,
                  int *ctl22, int *ctl23);
void diag_solve_s(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const float *a, float *b, float *x, int *error,
                  const int *ctl6, const int *solve, const int *threads,
                  int *ctl22, int *ctl23);
void diag_solve_z(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const double *a, double *b, double *x, int *error,
                  const int *ctl6, const int *solve, const int *threads);
void diag_solve_c(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const float *a, float *b, float *x, int *error,
                  const int *ctl6, const int *solve, const int *threads);

// The thread count the entry runs with: reduced to one thread for each 50
// equations when there is one right-hand side and dynamic adjustment is on.
int telmira_threads_for(int threads, int neqns, int nb, int dynamic);

// --- Input checks and the report of a failed call --------------------------

// Number of timer flags, one per line of the time table of the report.
constexpr int TELMIRA_TIMER_FLAGS = 10;

// Compares the arguments of a call with each other and with the state in
// the handle, and with iparam(27) set walks the whole matrix. The status is
// 0 when all passed; the copies then hold the checked values. On failure
// the phase and the copies of the entry count and of nb hold 0, and the
// copies of max_fac_store and matrix_type the stored values.
void telmira_check(std::intptr_t *handle, const int *max_fac_store,
                   int *max_fac_store_c, const int *matrix_number,
                   int *matrix_number_c, const int *matrix_type,
                   int *matrix_type_c, const int *ido, int *phase,
                   const int *neqns, int *neqns_c, const int *nb, int *nb_c,
                   const int *entries, int *entries_c, const int *msglvl,
                   int *level, int *iparam, int *status, int *comi,
                   const int *ia, const int *ja, const void *a, const void *b,
                   const void *x, int *timer_flags, double *comr);

// The matrix check alone: four tests over ia and ja, each recording its
// last offending place in iparam(31) to iparam(33). Returns 0 or the
// status 21 to 24 of the first test that failed.
int telmira_check_matrix(int neqns, int entries, int symmetric_storage,
                         const int *ia, const int *ja, int *iparam);

// Supernode panel width for a matrix type, thread count and size.
int telmira_panel_width(int matrix_type, int threads, int neqns);

// Prints the lines of a failed call: the header of the error number and
// the lines of the status. comi may be null when no state exists.
void telmira_report(int *error, const int *status, const int *comi,
                    const int *max_fac_store, const int *matrix_number,
                    const int *matrix_type, const int *ido, const int *phase,
                    const int *neqns, const int *nb, const int *entries,
                    const int *stored_entries, const int *iparam,
                    const std::int64_t *failed_size, const int *memory_sum);

#endif
