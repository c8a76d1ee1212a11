// Tests of the sparse path of muLinearSolver through the library's own
// telmira: diagonal matrices, which the solver serves without analysis, and a
// positive definite Laplacian through the whole sparse solver.
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

TEST(FacadeSparse, PositiveDefiniteSystemThroughTheSparseSolver) {
  // A 3000-row 2D Laplacian (upper triangle, zero-based), beyond the dense
  // path's limit, with two right-hand sides; indices kept and restored.
  const int N = 60, n = N * N;
  for (int restore : {1, 0}) {
    SCOPED_TRACE(restore);
    intcoDynArr row_start, col_index;
    doublecoDynArr coeffs, rhs, solution;
    std::vector<int> rs, ci;
    int k = 0;
    for (int i = 0; i < n; ++i) {
      rs.push_back(k);
      auto put = [&](int j, double v) { col_index[k] = j; ci.push_back(j); coeffs[k++] = v; };
      put(i, 4.0);
      if ((i + 1) % N != 0) put(i + 1, -1.0);
      if (i + N < n) put(i + N, -1.0);
    }
    rs.push_back(k);
    for (int i = 0; i <= n; ++i) row_start[i] = rs[i];
    // b = A x with x(i) = 1 + i / n for side 0 and 2 - i / n for side 1
    auto xref = [&](int j, int i) { return j == 0 ? 1.0 + double(i) / n : 2.0 - double(i) / n; };
    std::vector<double> b(2 * n, 0.0);
    for (int j = 0; j < 2; ++j)
      for (int i = 0; i < n; ++i)
        for (int p = rs[i]; p < rs[i + 1]; ++p) {
          const int c = ci[p];
          const double v = coeffs.data()[p];
          b[j * n + i] += v * xref(j, c);
          if (c != i) b[j * n + c] += v * xref(j, i);
        }
    for (int q = 0; q < 2 * n; ++q) rhs[q] = b[q];
    muSolveError err = muSolveFailed;
    muLinearSolver::solve_equations(muMatrixSymPosDef, n, 2, restore, row_start, col_index,
                                    coeffs, rhs, solution, err);
    ASSERT_EQ(err, muSolveOk);
    const doublecoDynArr &x = solution;
    double worst = 0.0;
    for (int j = 0; j < 2; ++j)
      for (int i = 0; i < n; ++i) worst = std::max(worst, std::fabs(x[j * n + i] - xref(j, i)));
    EXPECT_LT(worst, 1e-11);
    const int shift = restore ? 0 : 1;
    EXPECT_EQ(contents(row_start)[0], shift);
    EXPECT_EQ(contents(row_start)[n], rs[n] + shift);
    EXPECT_EQ(contents(col_index)[1], ci[1] + shift);
  }
}

TEST(FacadeSparse, UnsymmetricAndStructurallySymmetricThroughTheSparseSolver) {
  // Convection-diffusion on a 50 x 50 grid (2500 rows, beyond the dense
  // limit), full pattern, zero-based; x(i) = 1 + i / n.
  const int N = 50, n = N * N;
  for (muMatrixSym sym : {muMatrixUnsym, muMatrixStructSym}) {
    SCOPED_TRACE(sym);
    intcoDynArr row_start, col_index;
    doublecoDynArr coeffs, rhs, solution;
    std::vector<int> rs, ci;
    std::vector<double> cv;
    int k = 0;
    for (int i = 0; i < n; ++i) {
      rs.push_back(k);
      auto put = [&](int j, double v) {
        col_index[k] = j;
        coeffs[k++] = v;
        ci.push_back(j);
        cv.push_back(v);
      };
      const int x = i % N, y = i / N;
      if (y > 0) put(i - N, -2.0);
      if (x > 0) put(i - 1, -2.0);
      put(i, 4.0);
      if (x < N - 1) put(i + 1, 0.5);
      if (y < N - 1) put(i + N, 0.5);
    }
    rs.push_back(k);
    for (int i = 0; i <= n; ++i) row_start[i] = rs[i];
    for (int i = 0; i < n; ++i) {
      double b = 0.0;
      for (int p = rs[i]; p < rs[i + 1]; ++p) b += cv[p] * (1.0 + double(ci[p]) / n);
      rhs[i] = b;
    }
    muSolveError err = muSolveFailed;
    muLinearSolver::solve_equations(sym, n, 1, 1, row_start, col_index, coeffs, rhs, solution,
                                    err);
    ASSERT_EQ(err, muSolveOk);
    const doublecoDynArr &x = solution;
    double worst = 0.0;
    for (int i = 0; i < n; ++i) worst = std::max(worst, std::fabs(x[i] - (1.0 + double(i) / n)));
    EXPECT_LT(worst, 1e-10);
    EXPECT_EQ(contents(row_start)[n], rs[n]);
  }
}

TEST(FacadeSparse, StructurallySymmetricKindWithZeroDiagonalsIsRetriedAsUnsymmetric) {
  // west0479: unsymmetric pattern, zero diagonal entries. The structurally
  // symmetric kind cannot be analysed; the facade solves it again as an
  // unsymmetric matrix, where the weighted matching puts large entries on
  // the diagonal.
  vekio::sparse m;
  ASSERT_TRUE(vektest::load("west0479", m));
  const int n = m.n;
  intcoDynArr row_start, col_index;
  doublecoDynArr coeffs, rhs, solution;
  for (int i = 0; i <= n; ++i) row_start[i] = m.ia[i] - 1;
  for (int k = 0; k < m.nnz(); ++k) {
    col_index[k] = m.ja[k] - 1;
    coeffs[k] = m.a[k];
  }
  std::vector<double> ones(n, 1.0), b(n);
  vekio::multiply(m, 11, ones.data(), b.data());
  for (int i = 0; i < n; ++i) rhs[i] = b[i];
  muSolveError err = muSolveFailed;
  muLinearSolver::solve_equations(muMatrixStructSym, n, 1, 1, row_start, col_index, coeffs,
                                  rhs, solution, err);
  ASSERT_EQ(err, muSolveOk);
  const doublecoDynArr &x = solution;
  std::vector<double> xs(x.data(), x.data() + n);
  EXPECT_LE(vekio::relative_residual(m, 11, xs.data(), b.data(), 1), 1e-14);
}
