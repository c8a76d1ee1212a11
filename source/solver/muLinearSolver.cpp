// muLinearSolver.cpp - the exported class: argument checks, the dense path
// through the host's decompositions, the sparse path through telmira, and
// the mapping of the result.
#include "muLinearSolver.h"

#include <stdint.h>

#include "mlMatrix.h"
#include "service/vek_serv_blas.h"
#include "service/vek_serv_threads.h"
#include "telmira.h"
#include "utAssert.h"
#include "write_coeffs.h"

namespace {

const char kFile[] = "source/solver/muLinearSolver.cpp";

// The path switch: non-zero sparse solver, 0 dense solver.
int use_vek_switch = 1;

// The dense path takes at most this many rows.
const int kDenseMaxRows = 2000;

// Relative tolerance of the singular value test of the dense path.
const double kSvdTolerance = 1e-07;

void report(int line, const char *message) {
  ut_report_assert_failure(kFile, line, message);
}

// The argument checks, in their order; each failure is reported and the
// call goes on.
void check_arguments(int num_rows, int num_rhs, intcoDynArr &row_start,
                     intcoDynArr &col_index, doublecoDynArr &coeffs,
                     doublecoDynArr &rhs) {
  if (num_rows < 1)
    report(__LINE__, "argument out of range | muLinearSolver::solve_equations | num_rows");
  if (num_rhs < 1)
    report(__LINE__, "argument out of range | muLinearSolver::solve_equations | num_rhs");
  if (row_start.size() < num_rows + 1)
    report(__LINE__, "argument out of range | muLinearSolver::solve_equations | row_start");
  // The stored entry count less one: an array one entry short still passes.
  if (col_index.size() < row_start[num_rows] - 1)
    report(__LINE__, "argument out of range | muLinearSolver::solve_equations | col_index");
  if (coeffs.size() < row_start[num_rows] - 1)
    report(__LINE__, "argument out of range | muLinearSolver::solve_equations | coeffs");
  if (static_cast<long long>(rhs.size()) <
      static_cast<long long>(num_rows) * num_rhs)
    report(__LINE__, "argument out of range | muLinearSolver::solve_equations | rhs");
}

// Adds delta to the row starts and to the stored column numbers.
void shift_indices(int num_rows, int nnz, intcoDynArr &row_start,
                   intcoDynArr &col_index, int delta) {
  for (int i = 0; i <= num_rows; ++i) row_start[i] += delta;
  for (int k = 0; k < nnz; ++k) col_index[k] += delta;
}

muSolveError map_error(int error) {
  if (error == -2 || error == -9) return muSolveNoMemory;
  return error != 0 ? muSolveFailed : muSolveOk;
}

void solve_sparse(muMatrixSym sym, int num_rows, int num_rhs,
                  int restore_indices, intcoDynArr &row_start,
                  intcoDynArr &col_index, doublecoDynArr &coeffs,
                  doublecoDynArr &rhs, doublecoDynArr &solution,
                  muSolveError &solve_error) {
  intptr_t handle[TELMIRA_HANDLE_WORDS];
  for (int k = 0; k < TELMIRA_HANDLE_WORDS; ++k) handle[k] = 0;
  const int max_fac_store = 1;
  const int matrix_number = 1;
  int ido = 13;
  int matrix_type = static_cast<int>(sym);

  // The solver takes one-based indices.
  int nnz = row_start[num_rows];
  shift_indices(num_rows, nnz, row_start, col_index, 1);

  // Permutation argument: not read with these control values.
  intcoFixedArr perm(num_rows);

  int iparam[TELMIRA_IPARAM_WORDS];
  for (int k = 0; k < TELMIRA_IPARAM_WORDS; ++k) iparam[k] = 0;
  iparam[0] = 0;                           // iparam(1): defaults
  iparam[1] = 2;                           // iparam(2)
  iparam[2] = vek_serv_get_max_threads();  // iparam(3): threads
  iparam[26] = 1;                          // iparam(27): check the matrix
  const int msglvl = 0;
  int error = -1;

  long long need = static_cast<long long>(num_rows) * num_rhs;
  if (solution.size() < need) solution.expand(static_cast<int>(need));

  // The solver reads the values and the right-hand sides by address: arrays
  // that the checks found short are grown (with zeros) through the growing
  // accessor first, so that no read passes their end.
  if (nnz > 0 && coeffs.size() < nnz) (void)coeffs[nnz - 1];
  if (need > 0 && rhs.size() < need) (void)rhs[static_cast<int>(need) - 1];

  // Analysis, factorization, solve and refinement in one call.
  telmira(handle, &max_fac_store, &matrix_number, &matrix_type, &ido,
          &num_rows, coeffs.data(), row_start.data(), col_index.data(),
          perm.data(), &num_rhs, iparam, &msglvl, rhs.data(), solution.data(),
          &error);
  if (error == -3 && sym == muMatrixStructSym) {
    // The reordering failed on the symmetric structure: try again as an
    // unsymmetric matrix, on the same handle.
    matrix_type = muMatrixUnsym;
    telmira(handle, &max_fac_store, &matrix_number, &matrix_type, &ido,
            &num_rows, coeffs.data(), row_start.data(), col_index.data(),
            perm.data(), &num_rhs, iparam, &msglvl, rhs.data(),
            solution.data(), &error);
  }

  // Release all; its own error cell keeps the result of the solve.
  int release = -1;
  int release_error = 0;
  telmira(handle, &max_fac_store, &matrix_number, &matrix_type, &release,
          &num_rows, coeffs.data(), row_start.data(), col_index.data(),
          perm.data(), &num_rhs, iparam, &msglvl, rhs.data(), solution.data(),
          &release_error);

  if (restore_indices != 0)
    shift_indices(num_rows, nnz, row_start, col_index, -1);

  solve_error = map_error(error);
}

void solve_dense(muMatrixSym sym, int num_rows, int num_rhs,
                 intcoDynArr &row_start, intcoDynArr &col_index,
                 doublecoDynArr &coeffs, doublecoDynArr &rhs,
                 doublecoDynArr &solution, muSolveError &solve_error) {
  if (num_rows > kDenseMaxRows) {
    solve_error = muSolveNoMemory;
    return;
  }
  const bool symmetric = (sym == muMatrixSymPosDef);

  mlMatrix a(mlMatrixZero, num_rows, num_rows);
  for (int i = 0; i < num_rows; ++i) {
    int first = row_start[i];
    int end = row_start[i + 1];
    if (first >= end)
      report(__LINE__, "class data is inconsistent | muLinearSolver::solve_equations | row_start order");
    int previous = -1;
    for (int k = first; k < end; ++k) {
      int col = col_index[k];
      if (col <= previous)
        report(__LINE__, "class data is inconsistent | muLinearSolver::solve_equations | column order");
      previous = col;
      double value = coeffs[k];
      a(i, col) = value;
      if (symmetric && col != i) a(col, i) = value;
    }
  }

  mlMatrix b(num_rows, num_rhs);
  if (num_rhs == 1) {
    // become reads num_rows values by address; a short rhs is grown first.
    if (num_rows > 0 && rhs.size() < num_rows) (void)rhs[num_rows - 1];
    b.become(utConvertCopy, rhs.data(), num_rows, 1);
  } else {
    for (int j = 0; j < num_rhs; ++j)
      for (int i = 0; i < num_rows; ++i) b(i, j) = rhs[j * num_rows + i];
  }
  mlMatrix x(num_rows, num_rhs);

  int singular;
  if (symmetric) {
    mlCholeskyDecomposition chol(a);
    singular = chol.is_singular();
    if (!singular) chol.solve(b, x);
  } else {
    mlLUDecomposition lu(a);
    singular = lu.is_singular();
    if (!singular) lu.solve(b, x);
  }

  if (singular) {
    mlSingularValueDecomposition svd(a);
    if (svd.is_singular(kSvdTolerance)) {
      report(__LINE__, "algorithm failure | muLinearSolver::solve_equations | SVD singular");
      solve_error = muSolveFailed;
      return;
    }
    svd.solve(b, x);
  }

  if (num_rhs == 1) {
    for (int i = 0; i < num_rows; ++i) solution[i] = x(i, 0);
  } else {
    for (int j = 0; j < num_rhs; ++j)
      for (int i = 0; i < num_rows; ++i) solution[j * num_rows + i] = x(i, j);
  }
  solve_error = muSolveOk;
}

}  // namespace

int muLinearSolver::vek_available() { return 1; }

int muLinearSolver::use_vek() { return use_vek_switch; }

void muLinearSolver::set_use_vek(int on) { use_vek_switch = on; }

void muLinearSolver::solve_equations(muMatrixSym sym, int num_rows,
                                     int num_rhs, int restore_indices,
                                     intcoDynArr &row_start,
                                     intcoDynArr &col_index,
                                     doublecoDynArr &coeffs,
                                     doublecoDynArr &rhs,
                                     doublecoDynArr &solution,
                                     muSolveError &solve_error) {
  // The host's BLAS thread setting comes back as it was when the call ends.
  vek_serv_blas_guard blas_guard;
  check_arguments(num_rows, num_rhs, row_start, col_index, coeffs, rhs);

  if (mu_dump_coeffs != 0)
    write_coeffs(sym, num_rows, num_rhs, row_start, col_index, coeffs, rhs);

  if (use_vek_switch != 0)
    solve_sparse(sym, num_rows, num_rhs, restore_indices, row_start,
                 col_index, coeffs, rhs, solution, solve_error);
  else
    solve_dense(sym, num_rows, num_rhs, row_start, col_index, coeffs, rhs,
                solution, solve_error);
}
