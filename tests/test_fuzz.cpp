// test_fuzz.cpp - a short seeded run of the random driver on the entry
// (tests/helpers/fuzz_telmira.h): every call ends with an error number or a
// solution that satisfies the system, and a released handle holds nothing.
// The long run is the program vek-fuzz (README.md, "Hardening").
#include <gtest/gtest.h>

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

TEST(FuzzFindings, TheBlockOfAFailedFactorizationIsFreedWhenItIsMadeAgain) {
  // Not positive definite: every factorization as type 2 fails, and a solve
  // of the failed factor factorizes again into a new block.
  vekio::sparse m = vekio::lap2d(5);
  for (int k = m.ia[0]; k < m.ia[1]; ++k)
    if (m.ja[k - 1] == 1) m.a[k - 1] = -1.0;
  counted_heap heap;
  {
    vektest::system s(m, 2);
    ASSERT_EQ(0, s.call(11));
    EXPECT_EQ(-4, s.call(22));
    EXPECT_EQ(-4, s.call(33));
    EXPECT_EQ(-4, s.call(23));
    EXPECT_EQ(0, s.call(-1));
  }
  vek_serv_free_buffers();
  EXPECT_EQ(0, counted_heap::live.load());
}

TEST(FuzzFindings, ASolveUnderTheOtherSignOfTheTypeFactorizesAnew) {
  // The factors of 4 (Cholesky) hold no pivot records for a solve as -4,
  // nor those of -2 for a solve as 2: the solve factorizes under its own type.
  for (int type : {4, -4, 2, -2}) {
    SCOPED_TRACE(type);
    vekio::sparse m = vekio::lap2d(6);
    if (type == 4 || type == -4) m = vektest::complexify(m, 0.1, {0.5, 0.0});
    vektest::system s(m, type);
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
    s.msglvl = 1;
    if (c.matched) {
      s.iparam[0] = 1;
      s.iparam[1] = 2;
      s.iparam[9] = 8;
      s.iparam[10] = 1;  // scaling
      s.iparam[12] = 1;  // matching
    }
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, s.call(11));
    s.mtype = c.later;
    EXPECT_EQ(-1, s.call(23));
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, out.find("are incompatible")) << out;
  }
}

TEST(FuzzFindings, TypeCodesThatNoKernelServesEndTheAnalysisWithErrorThree) {
  for (int type : {-1, -3, 5, -5, -6, -11}) {
    SCOPED_TRACE(type);
    const bool triangle = type == -6;
    vekio::sparse m = vekio::lap2d(5);
    if (type != -1 && type != -11) m = vektest::complexify(m, 0.1, {0.5, 0.0});
    m = vekio::storage_for_type(m, triangle ? 6 : (m.cplx ? 13 : 11));
    intptr_t handle[64] = {0};
    int iparam[64] = {0};
    std::vector<double> b(2 * m.n, 1.0), x(2 * m.n);
    std::vector<int> perm(m.n);
    int max_fac_store = 1, num = 1, ido = 13, n = m.n, nb = 1, msglvl = 0, error = 0;
    iparam[26] = 1;  // the matrix check passes them
    telmira(handle, &max_fac_store, &num, &type, &ido, &n, m.a.data(), m.ia.data(), m.ja.data(), perm.data(),
            &nb, iparam, &msglvl, b.data(), x.data(), &error);
    EXPECT_EQ(-3, error);
    EXPECT_EQ(-34, iparam[29]);
    ido = -1;
    telmira(handle, &max_fac_store, &num, &type, &ido, &n, m.a.data(), m.ia.data(), m.ja.data(), perm.data(),
            &nb, iparam, &msglvl, b.data(), x.data(), &error);
    EXPECT_EQ(0, error);
  }
}

TEST(FuzzFindings, TheComplexDiagonalShortcutTakesValuesOfAnyMagnitude) {
  // 1 / d as conj(d) / |d|^2 gives 0 for |d| above 1e154.
  for (double scale : {1e200, 1e300}) {
    SCOPED_TRACE(scale);
    intptr_t handle[64] = {0};
    int iparam[64] = {0};
    std::vector<int> ia = {1, 2, 3}, ja = {1, 2}, perm(2);
    std::vector<double> a = {3 * scale, 4 * scale, scale, 0.0}, b = {1, 0, 0, 1}, x(4);
    int max_fac_store = 1, num = 1, type = 13, ido = 13, n = 2, nb = 1, msglvl = 0, error = 0;
    telmira(handle, &max_fac_store, &num, &type, &ido, &n, a.data(), ia.data(), ja.data(), perm.data(), &nb,
            iparam, &msglvl, b.data(), x.data(), &error);
    ASSERT_EQ(0, error);
    // x1 = 1 / (3 + 4i) / scale = (3 - 4i) / 25 / scale, x2 = i / scale
    EXPECT_NEAR(x[0] * scale, 0.12, 1e-15);
    EXPECT_NEAR(x[1] * scale, -0.16, 1e-15);
    EXPECT_NEAR(x[2] * scale, 0.0, 1e-15);
    EXPECT_NEAR(x[3] * scale, 1.0, 1e-15);
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
    noisy.iparam[0] = 1;
    noisy.iparam[7] = 2;  // refinement also for the positive definite type
    if (type == -4) noisy.iparam[9] = 8, noisy.iparam[20] = 1;
    ASSERT_EQ(0, noisy.call(13));
    EXPECT_LE(clean.residual(noisy.x), 1e-13);
  }
}
