// telmira_report.h - the printed report of a failed call.
#ifndef TELMIRA_REPORT_H
#define TELMIRA_REPORT_H

#include <cstdint>

// Prints the lines of a failed call: the header of the error number and
// the lines of the status. comi may be null when no state exists.
void telmira_report(int *error, const int *status, const int *comi,
                    const int *max_fac_store, const int *matrix_number,
                    const int *matrix_type, const int *ido, const int *phase,
                    const int *neqns, const int *nb, const int *entries,
                    const int *stored_entries, const int *iparam,
                    const std::int64_t *failed_size, const int *memory_sum);

#endif
