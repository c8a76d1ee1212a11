// Tests of muLinearSolver on its dense path and, beyond its 2000 rows,
// through the library's sparse solver; of its argument checks and their
// report texts, of the element accessors of the host arrays, and of the
// "coeffs.dat" dump.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "host_arrays.h"
#include "muLinearSolver.h"
#include "source/solver/write_coeffs.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

const std::string kRange = "argument out of range | muLinearSolver::solve_equations | ";

// The messages of the report lines "FILE:LINE: MESSAGE" on the standard error.
std::vector<std::string> messages(const std::string &err) {
  std::vector<std::string> out;
  std::istringstream in(err);
  std::string line;
  while (std::getline(in, line)) {
    std::size_t p = line.find(": ");
    out.push_back(p == std::string::npos ? line : line.substr(p + 2));
  }
  return out;
}

using vektest::contents;
using vektest::make;

// A system in the facade's form.
struct System {
  muMatrixSym sym;
  int n, nrhs;
  intcoDynArr row_start, col_index;
  doublecoDynArr coeffs, rhs, solution;
  muSolveError error = muSolveFailed;

  System(muMatrixSym s, int rows, int sides, const std::vector<int> &rs,
         const std::vector<int> &ci, const std::vector<double> &v,
         const std::vector<double> &b)
      : sym(s), n(rows), nrhs(sides), row_start(make<intcoDynArr>(rs)),
        col_index(make<intcoDynArr>(ci)), coeffs(make<doublecoDynArr>(v)),
        rhs(make<doublecoDynArr>(b)) {}

  // Runs solve_equations and returns the report messages.
  std::vector<std::string> solve(int restore = 1) {
    testing::internal::CaptureStderr();
    muLinearSolver::solve_equations(sym, n, nrhs, restore, row_start, col_index,
                                    coeffs, rhs, solution, error);
    return messages(testing::internal::GetCapturedStderr());
  }
};

// Right-hand sides b = A x for a system given by its stored entries; with
// the symmetric flag the stored triangle is mirrored.
std::vector<double> rhs_for(bool symmetric, int n, const std::vector<int> &rs,
                            const std::vector<int> &ci,
                            const std::vector<double> &v,
                            const std::vector<double> &x, int nrhs) {
  std::vector<double> b(static_cast<std::size_t>(n) * nrhs, 0.0);
  for (int j = 0; j < nrhs; ++j)
    for (int i = 0; i < n; ++i)
      for (int k = rs[i]; k < rs[i + 1]; ++k) {
        b[j * n + i] += v[k] * x[j * n + ci[k]];
        if (symmetric && ci[k] != i) b[j * n + ci[k]] += v[k] * x[j * n + i];
      }
  return b;
}

// Tridiagonal 4, -1 of n rows: upper triangle for type 2, full otherwise.
void tridiagonal(int n, bool upper, std::vector<int> &rs, std::vector<int> &ci,
                 std::vector<double> &v) {
  rs.assign(1, 0);
  ci.clear();
  v.clear();
  for (int i = 0; i < n; ++i) {
    if (!upper && i > 0) { ci.push_back(i - 1); v.push_back(-1); }
    ci.push_back(i); v.push_back(4);
    if (i + 1 < n) { ci.push_back(i + 1); v.push_back(-1); }
    rs.push_back(static_cast<int>(ci.size()));
  }
}

void expect_solution(const doublecoDynArr &got, const std::vector<double> &want,
                     double tol) {
  ASSERT_EQ(got.size(), static_cast<int>(want.size()));
  for (std::size_t k = 0; k < want.size(); ++k)
    EXPECT_NEAR(got.data()[k], want[k], tol) << "entry " << k;
}

class FacadeDense : public testing::Test {
 protected:
  void SetUp() override { muLinearSolver::set_use_vek(0); }
  void TearDown() override { muLinearSolver::set_use_vek(1); }
};

}  // namespace

TEST_F(FacadeDense, EachKindSolvesSeveralSides) {
  struct item {
    const char *what;
    muMatrixSym sym;
    int n, nrhs;
    std::vector<int> rs, ci;
    std::vector<double> v, x;
  };
  const item cases[] = {
      {"upper triangle of [[4,1,0],[1,5,2],[0,2,6]] by Cholesky", muMatrixSymPosDef, 3, 1,
       {0, 2, 4, 5}, {0, 1, 1, 2, 2}, {4, 1, 5, 2, 6}, {1, -2, 3}},
      // the zero corner needs a row exchange
      {"[[0,2,1],[1,1,0],[3,0,1]] by LU", muMatrixUnsym, 3, 3, {0, 2, 4, 6}, {1, 2, 0, 1, 0, 2},
       {2, 1, 1, 1, 3, 1}, {1, 2, 3, -1, 0, 0.5, 4, 4, -4}},
      {"the same, structurally symmetric", muMatrixStructSym, 3, 3, {0, 2, 4, 6},
       {1, 2, 0, 1, 0, 2}, {2, 1, 1, 1, 3, 1}, {1, 2, 3, -1, 0, 0.5, 4, 4, -4}},
      // not positive definite but regular: rescued by the singular values
      {"upper triangle of [[1,2],[2,1]]", muMatrixSymPosDef, 2, 2, {0, 2, 3}, {0, 1, 1},
       {1, 2, 1}, {2, -1, 1, 1}}};
  for (const item &c : cases) {
    SCOPED_TRACE(c.what);
    const bool sym = c.sym == muMatrixSymPosDef;
    System s(c.sym, c.n, c.nrhs, c.rs, c.ci, c.v, rhs_for(sym, c.n, c.rs, c.ci, c.v, c.x, c.nrhs));
    ASSERT_EQ(s.solution.size(), 0);
    EXPECT_TRUE(s.solve(0).empty());
    EXPECT_EQ(s.error, muSolveOk);
    expect_solution(s.solution, c.x, 1e-13);  // grown from empty, side after side
    // The dense path leaves the indices zero-based whatever restore_indices says.
    EXPECT_EQ(contents(s.row_start), c.rs);
    EXPECT_EQ(contents(s.col_index), c.ci);
  }
}

TEST_F(FacadeDense, SingularByValuesFailsAndLeavesSolution) {
  // [[1,2],[2,4]]: LU and the singular value test both find it singular.
  System s(muMatrixUnsym, 2, 1, {0, 2, 4}, {0, 1, 0, 1}, {1, 2, 2, 4}, {1, 2});
  s.solution = make<doublecoDynArr>(std::vector<double>{-7});
  EXPECT_EQ(s.solve(), std::vector<std::string>{
                           "algorithm failure | muLinearSolver::solve_equations | SVD singular"});
  EXPECT_EQ(s.error, muSolveFailed);
  EXPECT_EQ(contents(s.solution), std::vector<double>{-7});
}

TEST_F(FacadeDense, TwoThousandRowsAreSolvedTwoThousandAndOneAreRefused) {
  for (int n : {2000, 2001}) {
    std::vector<int> rs, ci;
    std::vector<double> v, x(n);
    tridiagonal(n, true, rs, ci, v);
    for (int i = 0; i < n; ++i) x[i] = 1 + i % 7;
    System s(muMatrixSymPosDef, n, 1, rs, ci, v, rhs_for(true, n, rs, ci, v, x, 1));
    std::vector<double> b = contents(s.rhs);
    EXPECT_TRUE(s.solve().empty());
    if (n == 2000) {
      EXPECT_EQ(s.error, muSolveOk);
      expect_solution(s.solution, x, 1e-12);
    } else {
      EXPECT_EQ(s.error, muSolveNoMemory);
      EXPECT_EQ(s.solution.size(), 0);
    }
    EXPECT_EQ(contents(s.row_start), rs);
    EXPECT_EQ(contents(s.col_index), ci);
    EXPECT_EQ(contents(s.coeffs), v);
    EXPECT_EQ(contents(s.rhs), b);
  }
}

TEST_F(FacadeDense, OrderReportsGoOnWithTheData) {
  // Row 1 lists its columns falling; the values still land where they
  // belong, and the system is solved.
  std::vector<int> rs = {0, 2, 4}, ci = {0, 1, 1, 0};
  std::vector<double> v = {3, 1, 2, 1}, x = {1, 2};
  System s(muMatrixUnsym, 2, 1, rs, ci, v, rhs_for(false, 2, rs, ci, v, x, 1));
  EXPECT_EQ(s.solve(), std::vector<std::string>{
                           "class data is inconsistent | muLinearSolver::solve_equations | column order"});
  EXPECT_EQ(s.error, muSolveOk);
  expect_solution(s.solution, x, 1e-14);

  // An empty row is reported; the matrix is then singular.
  System e(muMatrixUnsym, 2, 1, {0, 2, 2}, {0, 1}, {1, 1}, {1, 1});
  EXPECT_EQ(e.solve(), (std::vector<std::string>{
                           "class data is inconsistent | muLinearSolver::solve_equations | row_start order",
                           "algorithm failure | muLinearSolver::solve_equations | SVD singular"}));
  EXPECT_EQ(e.error, muSolveFailed);
}

// ------------------------------------------------------------ argument checks

TEST_F(FacadeDense, CountChecksReportInOrder) {
  System s(muMatrixUnsym, 0, 0, {0}, {}, {}, {});
  EXPECT_EQ(s.solve(), (std::vector<std::string>{kRange + "num_rows", kRange + "num_rhs"}));
  EXPECT_EQ(s.error, muSolveOk);  // nothing to solve: the call went on
}

TEST_F(FacadeDense, ShortRowStartIsReportedAndReadAsGrown) {
  // row_start lacks its last entry: the check reports it, and the read of
  // row_start[num_rows] grows it with a zero, which ends the last row
  // before it starts.
  System s(muMatrixUnsym, 2, 1, {0, 1}, {0, 1}, {1, 1}, {1, 1});
  EXPECT_EQ(s.solve(), (std::vector<std::string>{
                           kRange + "row_start",
                           "class data is inconsistent | muLinearSolver::solve_equations | row_start order",
                           "algorithm failure | muLinearSolver::solve_equations | SVD singular"}));
  EXPECT_EQ(s.row_start.size(), 3);
}

TEST_F(FacadeDense, EntryArraysMayBeOneShortButNotTwo) {
  std::vector<int> rs = {0, 1, 3}, ci = {0, 0, 1};
  std::vector<double> v = {2, 1, 4};
  // One short: no report; the missing value is read (and grown) as zero,
  // which leaves a singular matrix.
  System c1(muMatrixUnsym, 2, 1, rs, ci, {2, 1}, {2, 1});
  std::vector<std::string> r1 = c1.solve();
  ASSERT_FALSE(r1.empty());
  EXPECT_EQ(r1.front(), "algorithm failure | muLinearSolver::solve_equations | SVD singular");
  EXPECT_EQ(c1.coeffs.size(), 3);

  // Two short, in each array, and rhs short: checks 4, 5 and 6 in order.
  System c2(muMatrixUnsym, 2, 2, rs, {0}, {2}, {1, 1, 1});
  std::vector<std::string> r2 = c2.solve();
  ASSERT_GE(r2.size(), 3u);
  EXPECT_EQ(r2[0], kRange + "col_index");
  EXPECT_EQ(r2[1], kRange + "coeffs");
  EXPECT_EQ(r2[2], kRange + "rhs");
}

// ------------------------------------------------------------ accessors

// The exported accessors, through which the facade reads the caller's
// arrays: a const read past the end is reported and grows nothing, a write
// grows; fixed arrays report instead.
TEST(FacadeAccessors, ConstReadsNeverGrowWritesPastTheEndDo) {
  doublecoDynArr d = make<doublecoDynArr>(std::vector<double>{1.5, 2.5});
  const doublecoDynArr &cd = d;
  testing::internal::CaptureStderr();
  EXPECT_EQ(cd[1], 2.5);
  EXPECT_EQ(cd[2], 0.0);
  EXPECT_EQ(d.size(), 2);
  d[4] = 3.0;
  EXPECT_EQ(d.size(), 5);
  EXPECT_EQ(contents(d), (std::vector<double>{1.5, 2.5, 0, 0, 3}));
  d[-1] = 5;
  EXPECT_EQ(d.size(), 5);
  intcoFixedArr f(3), empty(0);  // fixed arrays never grow
  f[2] = 9;
  EXPECT_EQ(f.data()[2], 9);
  f[3] = 1;
  empty[0] = 1;
  EXPECT_EQ(messages(testing::internal::GetCapturedStderr()),
            (std::vector<std::string>{"argument out of range | coDynArr::operator[] const",
                                      "argument out of range | coDynArr::operator[]",
                                      "argument out of range | coFixedArr::operator[]",
                                      "object in incorrect state for operation |coFixedArr::operator[]",
                                      "argument out of range | coFixedArr::operator[]"}));
}

// ------------------------------------------------------------ dump

namespace {
class FacadeDump : public FacadeDense {
 protected:
  void SetUp() override {
    FacadeDense::SetUp();
    old_ = std::filesystem::current_path();
    dir_ = std::filesystem::temp_directory_path() /
           ("facade_dump_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            "_" + std::to_string(reinterpret_cast<std::uintptr_t>(this)));
    std::filesystem::create_directories(dir_);
    std::filesystem::current_path(dir_);
    mu_dump_coeffs = 1;
  }
  void TearDown() override {
    mu_dump_coeffs = 0;
    std::filesystem::current_path(old_);
    std::filesystem::remove_all(dir_);
    FacadeDense::TearDown();
  }
  std::filesystem::path old_, dir_;
};

template <class T>
T take(std::ifstream &in) {
  T v{};
  in.read(reinterpret_cast<char *>(&v), sizeof v);
  return v;
}
}  // namespace

TEST_F(FacadeDump, CoeffsFileHoldsTheInputFieldByField) {
  std::vector<int> rs = {0, 2, 4, 6}, ci = {1, 2, 0, 1, 0, 2};
  std::vector<double> v = {2, 1, 1, 1, 3, 1}, b = {1, 2, 3, 4, 5, 6};
  System s(muMatrixUnsym, 3, 2, rs, ci, v, b);
  EXPECT_TRUE(s.solve().empty());
  EXPECT_EQ(s.error, muSolveOk);

  std::ifstream in("coeffs.dat", std::ios::binary);
  ASSERT_TRUE(in.good());
  EXPECT_EQ(take<int>(in), 11);
  EXPECT_EQ(take<int>(in), 3);
  EXPECT_EQ(take<int>(in), 2);
  EXPECT_EQ(take<int>(in), 6);
  for (int x : rs) EXPECT_EQ(take<int>(in), x);
  for (int x : ci) EXPECT_EQ(take<int>(in), x);
  for (double x : v) EXPECT_EQ(take<double>(in), x);
  for (double x : b) EXPECT_EQ(take<double>(in), x);
  in.peek();
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(std::filesystem::file_size("coeffs.dat"), 4u * (4 + 4 + 6) + 8u * (6 + 6));

  // A second call replaces the file.
  System one(muMatrixSymPosDef, 1, 1, {0, 1}, {0}, {2}, {4});
  one.solve();
  EXPECT_EQ(std::filesystem::file_size("coeffs.dat"), 4u * (4 + 2 + 1) + 8u * 2);
}

TEST_F(FacadeDump, UnopenableFileIsReportedAndTheSolveGoesOn) {
  std::filesystem::create_directory("coeffs.dat");
  System s(muMatrixSymPosDef, 1, 1, {0, 1}, {0}, {2}, {4});
  EXPECT_EQ(s.solve(), std::vector<std::string>{"::write_coeffs | Failed to open out_file"});
  EXPECT_EQ(s.error, muSolveOk);
  expect_solution(s.solution, {2}, 1e-15);
}

// ------------------------------------------------------------ sparse path

TEST(FacadeSparse, MatricesBeyondTheDenseLimitThroughTheSparseSolver) {
  // A Laplacian as its upper triangle with two sides, indices restored or
  // kept one-based; a convection-diffusion matrix in full storage of both
  // unsymmetric kinds; and west0479, whose zero diagonals the structurally
  // symmetric kind cannot analyse: the facade solves it again as an
  // unsymmetric matrix.
  ASSERT_NE(muLinearSolver::use_vek(), 0);
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
    std::vector<int> rs(c.m.ia), ci(c.m.ja);
    for (int &v : rs) --v;
    for (int &v : ci) --v;
    std::vector<double> xref(static_cast<std::size_t>(n) * c.nrhs), b(xref.size());
    for (std::size_t q = 0; q < xref.size(); ++q) xref[q] = 1.0 + double(q % n) / n + double(q / n);
    for (int j = 0; j < c.nrhs; ++j) vekio::multiply(c.m, c.mtype, &xref[j * n], &b[j * n]);
    System s(c.sym, n, c.nrhs, rs, ci, c.m.a, b);
    EXPECT_TRUE(s.solve(c.restore).empty());
    ASSERT_EQ(s.error, muSolveOk);
    const std::vector<double> x = contents(s.solution);
    ASSERT_EQ(x.size(), b.size());
    EXPECT_LE(vekio::relative_residual(c.m, c.mtype, x.data(), b.data(), c.nrhs), 1e-14);
    // Restored exactly, or left one-based.
    EXPECT_EQ(contents(s.row_start), c.restore ? rs : c.m.ia);
    EXPECT_EQ(contents(s.col_index), c.restore ? ci : c.m.ja);
  }
}

TEST(FacadeSparse, ZeroOnTheDiagonalFailsLeavesTheSolutionAndStillRestores) {
  System d(muMatrixUnsym, 4, 2, {0, 1, 2, 3, 4}, {0, 1, 2, 3}, {1, -2, 0, -4},
           std::vector<double>(8, 1.0));
  d.solution = make<doublecoDynArr>(std::vector<double>(8, -9.0));
  d.solve(1);
  EXPECT_EQ(d.error, muSolveFailed);
  EXPECT_EQ(contents(d.row_start), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(contents(d.solution), std::vector<double>(8, -9.0));  // the solver wrote nothing
}
