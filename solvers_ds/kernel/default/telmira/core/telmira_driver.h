// telmira_driver.h - the phase drivers of the two precisions.
#ifndef TELMIRA_DRIVER_H
#define TELMIRA_DRIVER_H

#include <cstdint>

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

#endif
