// telmira_check.h - the input checks of every call of the phase driver.
#ifndef TELMIRA_CHECK_H
#define TELMIRA_CHECK_H

#include <cstdint>

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

#endif
