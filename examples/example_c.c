/*
 * example_c.c - the solver's entry telmira from C, phase by phase.
 *
 * Builds a small real symmetric indefinite system (matrix type -2), with the
 * right-hand side b = A * (1, 2, ..., n), and runs the analysis (ido 11), the
 * factorization (22) and the solve (33) as separate calls, with the matrix
 * check of iparam(27) on, and then releases everything (ido -1).
 *
 * Build against the installed library:
 *   cc example_c.c $(pkg-config --cflags --libs vekutils)
 * or, in CMake, target_link_libraries(app PRIVATE vekutils::vekutils).
 */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "telmira.h"

#define N 8

/* The matrix: 2 and -2 alternating on the diagonal, 1 on the first and
   0.5 on the third superdiagonal, symmetric. A symmetric type takes the
   upper triangle only, row by row, each row beginning with its diagonal
   entry and its columns rising. Indices are one-based. */
static int ia[N + 1];
static int ja[4 * N];
static double a[4 * N];

static void build_matrix(void) {
  int k = 0;
  for (int i = 0; i < N; ++i) {
    ia[i] = k + 1;
    ja[k] = i + 1;
    a[k++] = (i % 2 == 0) ? 2.0 : -2.0;
    if (i + 1 < N) { ja[k] = i + 2; a[k++] = 1.0; }
    if (i + 3 < N) { ja[k] = i + 4; a[k++] = 0.5; }
  }
  ia[N] = k + 1;
}

/* y = A x for the symmetric matrix stored as its upper triangle. */
static void multiply(const double *x, double *y) {
  for (int i = 0; i < N; ++i) y[i] = 0.0;
  for (int i = 0; i < N; ++i)
    for (int k = ia[i] - 1; k < ia[i + 1] - 1; ++k) {
      const int j = ja[k] - 1;
      y[i] += a[k] * x[j];
      if (j != i) y[j] += a[k] * x[i];
    }
}

/* One call of telmira with the arguments that stay the same. */
static int call(intptr_t *handle, int ido, int *iparam, double *b, double *x) {
  const int max_fac_store = 1, matrix_number = 1, matrix_type = -2, neqns = N;
  const int nb = 1, msglvl = 0;
  int perm[N];
  int error = 0;
  telmira(handle, &max_fac_store, &matrix_number, &matrix_type, &ido, &neqns, a, ia, ja,
          perm, &nb, iparam, &msglvl, b, x, &error);
  if (error != 0) {
    printf("ido %d: error %d (%s)", ido, error, telmira_error_words(error));
    if (error == -3 || error == -4)
      printf(", iparam(30) = %d (%s)", iparam[29], telmira_status_words(error, iparam[29]));
    printf("\n");
  }
  return error;
}

int main(void) {
  intptr_t handle[TELMIRA_HANDLE_WORDS];
  int iparam[TELMIRA_IPARAM_WORDS];
  double b[N], x[N], x_true[N];
  memset(handle, 0, sizeof handle); /* all zero before the first call */
  memset(iparam, 0, sizeof iparam); /* iparam(1) = 0: the type's defaults */

  printf("libvekutils %s (header %s)\n", vekutils_version(), VEKUTILS_VERSION_STRING);
  build_matrix();
  for (int i = 0; i < N; ++i) x_true[i] = i + 1.0;
  multiply(x_true, b);

  iparam[26] = 1; /* iparam(27): check the matrix; a passed check clears it */
  int error = call(handle, 11, iparam, b, x);
  if (error == 0) {
    printf("analysis: matrix check %s, %d entries in L\n",
           iparam[26] == 0 ? "passed" : "not run", iparam[17]);
    error = call(handle, 22, iparam, b, x);
  }
  if (error == 0) {
    printf("factorization: %d positive and %d negative eigenvalues, %d perturbed pivots\n",
           iparam[21], iparam[22], iparam[13]);
    error = call(handle, 33, iparam, b, x);
  }
  double max_error = 0.0;
  if (error == 0) {
    for (int i = 0; i < N; ++i) {
      const double e = fabs(x[i] - x_true[i]);
      if (e > max_error) max_error = e;
    }
    printf("solve: %d refinement steps, max |x - x_true| = %.3g\n", iparam[6], max_error);
  }
  /* Release everything the handle holds, after an error too. */
  const int released = call(handle, -1, iparam, b, x);
  if (error != 0 || released != 0) return 1;
  if (!(max_error < 1e-10)) {
    printf("the solution is not accurate\n");
    return 1;
  }
  printf("solved\n");
  return 0;
}
