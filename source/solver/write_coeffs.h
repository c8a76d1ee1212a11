// write_coeffs.h - the dump of the input of muLinearSolver::solve_equations.
#ifndef MU_WRITE_COEFFS_H
#define MU_WRITE_COEFFS_H

#include "muLinearSolver.h"

// The dump switch: non-zero makes solve_equations write "coeffs.dat" before
// it solves. No operation of the library changes it; it is there to be set
// from a debugger (or a test).
extern "C" int mu_dump_coeffs;

// Writes "coeffs.dat" in the current directory, replacing it: sym,
// num_rows, num_rhs and the entry count row_start[num_rows] as 32-bit ints,
// then row_start (num_rows + 1 ints), col_index (count ints), coeffs (count
// doubles) and rhs (num_rows * num_rhs doubles), in the processor's byte
// order with no padding; the arrays as the caller gave them, zero-based.
void write_coeffs(muMatrixSym sym, int num_rows, int num_rhs,
                  const intcoDynArr &row_start, const intcoDynArr &col_index,
                  const doublecoDynArr &coeffs, const doublecoDynArr &rhs);

#endif
