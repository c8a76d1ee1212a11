// test_fuzz.cpp - a short seeded run of the random driver on the entry
// (tests/helpers/fuzz_telmira.h): every call ends with an error number or a
// solution that satisfies the system, and a released handle holds nothing.
// The long run is the program vek-fuzz (README.md, "Hardening").
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "fuzz_telmira.h"
#include "service/vek_serv_memory.h"
#include "test_heap.h"
#include "test_system.h"

namespace {

TEST(Fuzz, TenThousandSeededCallsEndWithAnErrorOrACorrectAnswer) {
  vektest::fuzz_options options;
  options.calls = 10000;
  options.seed = 20240601;
  if (const char *s = std::getenv("VEK_FUZZ_SEED")) options.seed = std::strtoull(s, nullptr, 10);
  vektest::fuzz_result result;
  const long failures = vektest::fuzz_telmira(options, &result);
  std::printf("%s\n", vektest::fuzz_summary(result).c_str());
  EXPECT_EQ(0, failures) << result.first_failure;
  EXPECT_EQ(options.calls, result.calls);
  // The run reaches every road: successes checked against the matrix, and
  // the refusals of the checks and of the analysis.
  EXPECT_GT(result.verified, 500);
  EXPECT_GT(result.errors[1], 0);
  EXPECT_GT(result.errors[3], 0);
  EXPECT_GT(result.errors[4], 0);
}

// --- What the driver found, one test each ----------------------------------

using vektest::counted_heap;

TEST(FuzzFindings, ACorrectionTakenBackLeavesTheSolutionAsItWas) {
  // Singular (rows 1 and 5 meet column 1 only), two perturbed pivots:
  // the check's Krylov steps tried corrections some 1e15 times the
  // solution and took them back by subtraction, which left a solution with
  // a backward error near 1 behind error 0.
  vekio::sparse m;
  m.n = 5;
  m.ia = {1, 2, 4, 8, 11, 13};
  m.ja = {1, 4, 5, 1, 2, 3, 5, 3, 4, 5, 1, 5};
  m.a = {1.6717502055259432,   0.27672801480409981, 0.86013787857061419, -0.014911681991926051,
         1.0487795113303175,   1.5126074298167234,  0.72652449787384321, 0.51260742981672336,
         1.2767280148040998,   -0.69031329776187178, 0.65683852353401706, 0.0};
  vektest::system s(m, 11, 3);
  s.control({{2, 3}, {8, -1}, {10, 10}, {27, 1}});
  s.b = {-0.22498588770724803, 0.16596957714539862,  0.76823980226368649, 0.71187931182577291,
         0.70147838222033387,  0.28710852870038694,  -0.77211561365137271, -0.64303154382127592,
         0.27209112619833653,  -0.046381755039010319, -0.099480073377814171, -0.30587706254010882,
         0.96961550986129286,  -0.93492626258089817, -0.78727173976477927};
  const int error = s.call(13);
  EXPECT_TRUE(error == -4 || (error == 0 && s.residual(s.x) < 1e-8)) << error << " "
                                                                       << s.residual(s.x);
}

TEST(FuzzFindings, AnInfiniteEntryInATwoByTwoPivotIsNoSolution) {
  // Hermitian, a(1,2) = -inf - 0.24i and a(2,2) = 0: the Bunch-Kaufman
  // pivot is the whole 2 by 2 block, whose diagonal is finite, so the
  // factorization passes; the backward error of the solution is not a
  // number, which the accuracy check once let through behind error 0.
  vekio::sparse m;
  m.n = 2;
  m.cplx = true;
  m.ia = {1, 3, 4};
  m.ja = {1, 2, 2};
  m.a = {1.5813349281020266, 0.0, -INFINITY, -0.23660357177514757, 0.0, 0.0};
  for (int separate : {0, 1}) {
    vektest::system s(m, -4);
    s.b = {0.82985821110972591, 0.071325790899988473, 0.069832225707833429, -0.57864097158596772};
    if (separate) {
      ASSERT_EQ(0, s.call(11));
      ASSERT_EQ(0, s.call(22));
    }
    EXPECT_EQ(-4, s.call(separate ? 33 : 13)) << separate;
  }
}

TEST(FuzzFindings, ASolveUnderTheOtherSignOfTheTypeFactorizesAnew) {
  // The factors of 4 (Cholesky) hold no pivot records for a solve as -4,
  // nor those of -2 for a solve as 2: the solve factorizes under its own type.
  // With the factors in files (mode 2), type 2 keeps the buffers that the
  // analysis of -2 planned: no arena, which it once took for granted.
  const vektest::ooc_scratch scratch;
  for (int mode : {0, 2})
    for (int type : {4, -4, 2, -2}) {
      SCOPED_TRACE(std::to_string(type) + " mode " + std::to_string(mode));
      vekio::sparse m = vekio::lap2d(6);
      if (type == 4 || type == -4) m = vektest::complexify(m, 0.1, {0.5, 0.0});
      vektest::system s(m, type);
      if (mode != 0) s.control({{60, mode}});
      ASSERT_EQ(0, s.call(12));
      s.mtype = -type;
      ASSERT_EQ(0, s.call(33));
      EXPECT_LT(s.residual(s.x), 1e-12);
    }
}

TEST(FuzzFindings, AFactorizationMustKeepTheAnalysisStorageAndScaling) {
  // -2 analysed with the matching and its symmetric scaling, then factorized
  // as 2 (Cholesky, which knows no scaling): refused, status 5. So are 3
  // after 2 (both triangles after one), which the pair rule lets through,
  // and an undefined code after its defined negative.
  struct change {
    int analysed, later;
    bool matched;
  };
  for (change c : {change{-2, 2, true}, change{2, 3, false}, change{11, -11, false}}) {
    SCOPED_TRACE(c.later);
    vektest::system s(vekio::lap2d(6), c.analysed);
    if (c.matched) s.control({{2, 2}, {10, 8}, {11, 1}, {13, 1}});  // scaling and matching
    ASSERT_EQ(0, s.call(11));
    s.mtype = c.later;
    const std::string out = s.call_printing(23);
    EXPECT_EQ(-1, s.error);
    EXPECT_NE(std::string::npos, out.find("are incompatible")) << out;
  }
}

TEST(FuzzFindings, TypeCodesThatNoKernelServesEndTheAnalysisWithErrorThree) {
  for (int type : {-1, -3, 5, -5, -6, -11}) {
    SCOPED_TRACE(type);
    const bool triangle = type == -6;
    vekio::sparse m = vekio::lap2d(5);
    if (type != -1 && type != -11) m = vektest::complexify(m, 0.1, {0.5, 0.0});
    vektest::system s(m, triangle ? 6 : (m.cplx ? 13 : 11));
    s.mtype = type;
    s.iparam[26] = 1;  // the matrix check passes them
    EXPECT_EQ(-3, s.call(13));
    EXPECT_EQ(-34, s.iparam[29]);
    EXPECT_EQ(0, s.call(-1));
  }
}

TEST(FuzzFindings, TheReleaseAfterADiagonalMatrixFreesAStateMadeBefore) {
  counted_heap heap;
  {
    vektest::system s(vekio::lap2d(5), 11);
    ASSERT_EQ(0, s.call(11));
    // The same handle, now with a diagonal matrix: the shortcut marks
    // iparam(12) = -1, and the release must still free the analysis.
    vekio::sparse d = vekio::diagonal(s.n);
    s.A = d;
    ASSERT_EQ(0, s.call(13));
    EXPECT_EQ(-1, s.iparam[11]);
    EXPECT_EQ(0, s.call(-1));
    EXPECT_EQ(0, s.handle[1]);
  }
  vek_serv_free_buffers();
  EXPECT_EQ(0, counted_heap::live.load());
}

}  // namespace

TEST(FuzzFindings, OneTriangleRowsInAnyOrderAndRepeatedColumns) {
  // Rows of the types other than 11 and 13 may come in any order; a column
  // repeated within a row is no matrix the solver can read (which of the
  // values counts?) and ends the analysis with -3 and status -32 for every
  // type, as rows out of order do for 11 and 13.
  for (const vektest::typed_matrix &t : vektest::every_type(4)) {
    SCOPED_TRACE(t.name);
    for (int repeat : {0, 1}) {
      vektest::system s(t.m, t.mtype);
      // The second row with more than two entries.
      int row = 0;
      for (int i = 1; i <= s.n && row == 0; ++i)
        if (s.A.ia[i] - s.A.ia[i - 1] > 2 && i > 1) row = i;
      ASSERT_GT(row, 0);
      const int k = s.A.ia[row] - 2;  // the last two entries of the row: k-1, k (0-based)
      const int w = s.A.cplx ? 2 : 1;
      if (repeat) {
        s.A.ja[k] = s.A.ja[k - 1];
      } else {
        std::swap(s.A.ja[k], s.A.ja[k - 1]);
        for (int q = 0; q < w; ++q) std::swap(s.A.a[w * k + q], s.A.a[w * (k - 1) + q]);
      }
      s.set_rhs(1);
      const int error = s.call(13);
      if (repeat || t.mtype == 11 || t.mtype == 13) {
        EXPECT_EQ(-3, error);
        EXPECT_EQ(-32, s.iparam[29]);
      } else {
        ASSERT_EQ(0, error);
        EXPECT_LE(s.residual(s.x), 1e-13);
      }
    }
  }
}

TEST(FuzzFindings, TriangleStorageClearsTheTransposedFlagAtEveryPhase) {
  // Set after the analysis, the flag turned the refinement's product of a
  // Hermitian matrix into its transpose while the solves kept A: error 0
  // with the solution of neither system.
  const vektest::typed_matrix t = vektest::every_type(4)[2];
  for (int number : {1, 2})
    for (int flag : {0, 4}) {
      SCOPED_TRACE(t.name + " number " + std::to_string(number) + " flag " + std::to_string(flag));
      vektest::system s(t.m, t.mtype);
      s.max_fac_store = 2;
      ASSERT_EQ(0, s.call(11));
      ASSERT_EQ(0, s.call(22));
      s.iparam[11] = flag;
      s.matrix_number = number;
      ASSERT_EQ(0, s.call(33));
      EXPECT_LE(s.residual(s.x), 1e-12);
    }
}

TEST(FuzzFindings, TheImaginaryPartOfAHermitianDiagonalIsNotRead) {
  // The factorization reads a Hermitian diagonal as real; the refinement's
  // product and the norm of the accuracy check read it whole, and drove the
  // solution to another matrix's (error 0, residual 0.3 against A).
  for (int type : {4, -4}) {
    const vektest::typed_matrix t = vektest::every_type(4)[type == 4 ? 4 : 2];
    SCOPED_TRACE(t.name);
    vektest::system clean(t.m, type), noisy(t.m, type);
    for (int i = 1; i <= noisy.n; i += 3) noisy.A.a[2 * (noisy.A.ia[i - 1] - 1) + 1] = i == 1 ? 1e308 : 0.7;
    noisy.b = clean.b;  // the right-hand sides of the Hermitian matrix
    noisy.control({{8, 2}});  // refinement also for the positive definite type
    if (type == -4) noisy.control({{10, 8}, {21, 1}});
    ASSERT_EQ(0, noisy.call(13));
    EXPECT_LE(clean.residual(noisy.x), 1e-13);
  }
}
