// muLinearSolver.h - the public face of libvekutils: solve A X = B for a
// square sparse matrix in zero-based compressed-row form.
//
// The arrays are the host's containers (coDynArr.h, coFixedArr.h). Their
// element accessors are defined and exported by this library:
//
//   doublecoDynArr / intcoDynArr
//     operator[](i) const   i below 0 or not below the size is reported
//                           ("argument out of range | coDynArr::operator[] const");
//                           past the end the result is a zero that belongs
//                           to no array.
//     operator[](i)         i below 0 is reported ("argument out of range |
//                           coDynArr::operator[]"); i at or above the size
//                           grows the array (resize when past the capacity,
//                           "coDynArr::operator[] | Oh no! out of memory!" if
//                           that fails) and the size becomes i + 1. Reading
//                           past the end therefore grows the array too.
//   intcoFixedArr
//     operator[](i)         a null element pointer is reported ("object in
//                           incorrect state for operation |coFixedArr::operator[]"),
//                           and so is i outside [0, size) ("argument out of
//                           range | coFixedArr::operator[]").
//
// Every report goes through ut_report_assert_failure (libutils), which
// prints one line on the standard error and returns; the call then goes on.
#ifndef MU_LINEAR_SOLVER_H
#define MU_LINEAR_SOLVER_H

#include "coDynArr.h"
#include "coFixedArr.h"

#if defined(_WIN32)
#  if defined(VEK_BUILDING_DLL)
#    define MU_API __declspec(dllexport)
#  else
#    define MU_API __declspec(dllimport)
#  endif
#  define MU_CALL __cdecl
#else
#  define MU_API __attribute__((visibility("default")))
#  define MU_CALL
#endif

// Matrix kind. The value is the solver's matrix type code and is passed on
// unchanged, so other codes of the solver may be given by a cast.
enum muMatrixSym : int {
  muMatrixStructSym = 1,   // real, structurally symmetric, full pattern
  muMatrixSymPosDef = 2,   // real symmetric positive definite, upper triangle
  muMatrixUnsym = 11       // real unsymmetric, full pattern
};

enum muSolveError : int {
  muSolveOk = 0,        // solved; the solution array holds the result
  muSolveNoMemory = 1,  // the system does not fit
  muSolveFailed = 2     // singular, or the solver failed otherwise
};

class MU_API muLinearSolver {
 public:
  muLinearSolver() = delete;

  // Always 1: the sparse solver is part of this library.
  static int MU_CALL vek_available();
  // The path switch: non-zero (the start value) sparse solver; 0 the dense
  // solver for at most 2000 rows.
  static int MU_CALL use_vek();
  static void MU_CALL set_use_vek(int on);

  // Solves A X = B.
  //   sym              matrix kind
  //   num_rows         rows and columns of A, above 0
  //   num_rhs          right-hand sides, above 0
  //   restore_indices  sparse path only: non-zero gives row_start and
  //                    col_index back zero-based; zero leaves them one-based
  //   row_start        num_rows + 1 zero-based offsets; row_start[num_rows]
  //                    is the number of stored entries
  //   col_index        zero-based column of each entry, rising in a row
  //   coeffs           value of each entry
  //   rhs              entry i of side j at j * num_rows + i
  //   solution         same arrangement; grown as needed
  //   solve_error      muSolveOk, muSolveNoMemory or muSolveFailed
  static void MU_CALL solve_equations(muMatrixSym sym, int num_rows,
                                      int num_rhs, int restore_indices,
                                      intcoDynArr &row_start,
                                      intcoDynArr &col_index,
                                      doublecoDynArr &coeffs,
                                      doublecoDynArr &rhs,
                                      doublecoDynArr &solution,
                                      muSolveError &solve_error);
};

#endif
