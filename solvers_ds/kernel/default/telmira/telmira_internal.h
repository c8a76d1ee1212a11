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
                const T *a, T *b, T *x, int *error, const int *iparm6,
                const int *solve, const int *threads, int *pos, int *neg);

void diag_solve_d(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const double *a, double *b, double *x, int *error,
                  const int *iparm6, const int *solve, const int *threads,
                  int *iparm22, int *iparm23);
void diag_solve_s(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const float *a, float *b, float *x, int *error,
                  const int *iparm6, const int *solve, const int *threads,
                  int *iparm22, int *iparm23);
void diag_solve_z(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const double *a, double *b, double *x, int *error,
                  const int *iparm6, const int *solve, const int *threads);
void diag_solve_c(const int *neqns, const int *nb, const int *ia, const int *ja,
                  const float *a, float *b, float *x, int *error,
                  const int *iparm6, const int *solve, const int *threads);

// The thread count the entry runs with: reduced to one thread for each 50
// equations when there is one right-hand side and dynamic adjustment is on.
int telmira_threads_for(int threads, int neqns, int nb, int dynamic);

#endif
