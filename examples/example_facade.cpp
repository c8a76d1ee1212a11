// example_facade.cpp - solving a small system through muLinearSolver.
//
//   | 4 -1  0 |       | 3 |
//   |-1  4 -1 | x  =  | 2 |     solution x = (1, 1, 1)
//   | 0 -1  4 |       | 3 |
//
// Build against the installed library:
//   g++ -std=c++17 example_facade.cpp $(pkg-config --cflags --libs vekutils-facade)
#include <cstdio>

#include "muLinearSolver.h"

int main() {
  const int n = 3;

  // Compressed rows, zero-based. Type 2 (symmetric positive definite)
  // stores the upper triangle, diagonal first; type 11 (unsymmetric) would
  // store the full pattern.
  intcoDynArr row_start, col_index;
  doublecoDynArr coeffs, rhs, solution;
  const int starts[] = {0, 2, 4, 5};
  const int cols[] = {0, 1, 1, 2, 2};
  const double vals[] = {4, -1, 4, -1, 4};
  for (int i = 0; i <= n; ++i) row_start[i] = starts[i];  // writes grow
  for (int k = 0; k < 5; ++k) {
    col_index[k] = cols[k];
    coeffs[k] = vals[k];
  }
  rhs[0] = 3;
  rhs[1] = 2;
  rhs[2] = 3;

  muSolveError err;
  muLinearSolver::solve_equations(muMatrixSymPosDef, n, 1,
                                  /* restore_indices */ 1, row_start,
                                  col_index, coeffs, rhs, solution, err);
  if (err != muSolveOk) {
    std::printf("sparse solver: error %d\n", static_cast<int>(err));
    // The dense path (at most 2000 rows) as a second opinion.
    muLinearSolver::set_use_vek(0);
    muLinearSolver::solve_equations(muMatrixSymPosDef, n, 1, 1, row_start,
                                    col_index, coeffs, rhs, solution, err);
    muLinearSolver::set_use_vek(1);
  }
  if (err != muSolveOk) {
    std::printf("error %d\n", static_cast<int>(err));
    return 1;
  }
  const doublecoDynArr &x = solution;  // const reads never grow the array
  for (int i = 0; i < n; ++i) std::printf("x[%d] = %g\n", i, x[i]);
  return 0;
}
