// Tests of the sparse path of muLinearSolver through the library's own
// telmira: diagonal matrices, which the solver serves without analysis, and
// larger matrices of each kind through the whole sparse solver.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "muLinearSolver.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

template <class A>
auto contents(const A &a) {
  using T = std::remove_const_t<std::remove_pointer_t<decltype(a.data())>>;
  return std::vector<T>(a.data(), a.data() + a.size());
}

// Diagonal d of n rows; nrhs sides with b[j*n+i] = (i + 1) * (j + 1) * d[i].
struct Diagonal {
  int n, nrhs;
  intcoDynArr row_start, col_index;
  doublecoDynArr coeffs, rhs, solution;
  muSolveError error = muSolveFailed;

  Diagonal(int rows, int sides, int zero_at = -1) : n(rows), nrhs(sides) {
    for (int i = 0; i < n; ++i) {
      row_start[i] = i;
      col_index[i] = i;
      coeffs[i] = (i == zero_at) ? 0.0 : (i % 2 ? -1.0 : 1.0) * (1 + i % 5);
    }
    row_start[n] = n;
    for (int j = 0; j < nrhs; ++j)
      for (int i = 0; i < n; ++i)
        rhs[j * n + i] = (i + 1) * (j + 1) * coeffs.data()[i];
  }
  muSolveError run(muMatrixSym sym, int restore) {
    muLinearSolver::solve_equations(sym, n, nrhs, restore, row_start, col_index,
                                    coeffs, rhs, solution, error);
    return error;
  }
};

}  // namespace

TEST(FacadeSparse, DiagonalSystemsAreSolvedSideAfterSide) {
  ASSERT_NE(muLinearSolver::use_vek(), 0);
  for (muMatrixSym sym : {muMatrixStructSym, muMatrixSymPosDef, muMatrixUnsym}) {
    Diagonal d(6, 3);
    EXPECT_EQ(d.run(sym, 1), muSolveOk) << "type " << sym;
    ASSERT_EQ(d.solution.size(), 18);  // grown from empty
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 6; ++i)
        EXPECT_DOUBLE_EQ(d.solution.data()[j * 6 + i], (i + 1) * (j + 1));
  }
}

TEST(FacadeSparse, IndicesRestoredExactlyWhenAsked) {
  Diagonal kept(5, 1), restored(5, 1);
  std::vector<int> before = contents(kept.row_start);
  ASSERT_EQ(kept.run(muMatrixUnsym, 0), muSolveOk);
  ASSERT_EQ(restored.run(muMatrixUnsym, 1), muSolveOk);
  EXPECT_EQ(contents(restored.row_start), before);
  EXPECT_EQ(contents(restored.col_index), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(kept.row_start.data()[0], 1);
  EXPECT_EQ(contents(kept.row_start), (std::vector<int>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(contents(kept.col_index), (std::vector<int>{1, 2, 3, 4, 5}));
}

TEST(FacadeSparse, ZeroOnTheDiagonalFailsAndStillRestores) {
  Diagonal d(4, 2, 2);
  std::vector<double> old = {-9, -9, -9, -9, -9, -9, -9, -9};
  for (int k = 0; k < 8; ++k) d.solution[k] = old[k];
  EXPECT_EQ(d.run(muMatrixUnsym, 1), muSolveFailed);
  EXPECT_EQ(contents(d.row_start), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(contents(d.solution), old);  // the solver wrote nothing
}

TEST(FacadeSparse, MoreThanTwoThousandRows) {
  Diagonal d(2500, 1);
  EXPECT_EQ(d.run(muMatrixSymPosDef, 1), muSolveOk);
  ASSERT_EQ(d.solution.size(), 2500);
  EXPECT_DOUBLE_EQ(d.solution.data()[2499], 2500.0);
}

TEST(FacadeSparse, MatricesBeyondTheDenseLimitThroughTheSparseSolver) {
  // Each beyond the dense path's 2000 rows: a Laplacian as its upper
  // triangle with two sides, indices restored or kept one-based; a
  // convection-diffusion matrix in full storage of both unsymmetric kinds;
  // and west0479, whose zero diagonals the structurally symmetric kind
  // cannot analyse: the facade solves it again as an unsymmetric matrix.
  vekio::sparse west;
  ASSERT_TRUE(vektest::load("west0479", west));
  struct item {
    const char *name;
    vekio::sparse m;
    muMatrixSym sym;
    int mtype, nrhs, restore;
  };
  const vekio::sparse cd = vekio::convdiff2d(50, 1.5);
  const item cases[] = {
      {"lap2d:60", vekio::storage_for_type(vekio::lap2d(60), 2), muMatrixSymPosDef, 2, 2, 1},
      {"lap2d:60 kept", vekio::storage_for_type(vekio::lap2d(60), 2), muMatrixSymPosDef, 2, 2, 0},
      {"cd2d:50", cd, muMatrixUnsym, 11, 1, 1},
      {"cd2d:50 structurally symmetric", cd, muMatrixStructSym, 11, 1, 1},
      {"west0479", west, muMatrixStructSym, 11, 1, 1}};
  for (const item &c : cases) {
    SCOPED_TRACE(c.name);
    const int n = c.m.n;
    intcoDynArr row_start, col_index;
    doublecoDynArr coeffs, rhs, solution;
    for (int i = 0; i <= n; ++i) row_start[i] = c.m.ia[i] - 1;
    for (int k = 0; k < c.m.nnz(); ++k) {
      col_index[k] = c.m.ja[k] - 1;
      coeffs[k] = c.m.a[k];
    }
    std::vector<double> xref(static_cast<std::size_t>(n) * c.nrhs), b(xref.size());
    for (std::size_t q = 0; q < xref.size(); ++q) xref[q] = 1.0 + double(q % n) / n + double(q / n);
    for (int j = 0; j < c.nrhs; ++j) vekio::multiply(c.m, c.mtype, &xref[j * n], &b[j * n]);
    for (std::size_t q = 0; q < b.size(); ++q) rhs[static_cast<int>(q)] = b[q];
    muSolveError err = muSolveFailed;
    muLinearSolver::solve_equations(c.sym, n, c.nrhs, c.restore, row_start, col_index, coeffs,
                                    rhs, solution, err);
    ASSERT_EQ(err, muSolveOk);
    const std::vector<double> x = contents(solution);
    ASSERT_EQ(x.size(), b.size());
    EXPECT_LE(vekio::relative_residual(c.m, c.mtype, x.data(), b.data(), c.nrhs), 1e-14);
    const int shift = c.restore ? 0 : 1;
    EXPECT_EQ(contents(row_start)[0], shift);
    EXPECT_EQ(contents(row_start)[n], c.m.nnz() + shift);
    EXPECT_EQ(contents(col_index)[1], c.m.ja[1] - 1 + shift);
  }
}
