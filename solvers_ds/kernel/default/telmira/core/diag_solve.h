// diag_solve.h - the diagonal-matrix shortcut of the entry.
#ifndef TELMIRA_DIAG_SOLVE_H
#define TELMIRA_DIAG_SOLVE_H

#include "telmira_types.h"

// Diagonal-matrix shortcut. error: 0, row i (> 0) whose entry count is not
// one, or -i when the entry of row i is zero or stands in the column of an
// earlier row (x and b untouched then). The real forms count the
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

#endif
