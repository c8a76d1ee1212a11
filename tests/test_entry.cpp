// The entry's dispatch: probes, the thread count, the diagonal path and the
// iparam(12) = -1 mark, through the public `telmira`. (The precision a
// handle keeps is exercised by the random driver, test_fuzz.)
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "service/vek_serv_threads.h"
#include "telmira.h"

namespace {

struct call {
  intptr_t handle[64] = {0};
  int iparam[64];
  int max_fac_store = 1, matrix_number = 1, mtype, ido = 13, n, nb = 1, msglvl = 0, error = 12345;
  std::vector<int> perm;
  explicit call(int neqns = 0, int type = 11) : mtype(type), n(neqns) {
    for (int &v : iparam) v = -99;
    iparam[0] = 0;
    iparam[5] = 0;
    iparam[11] = 0;
    iparam[27] = 0;
    iparam[59] = 0;  // in core
  }
  void run(const void *a, const int *ia, const int *ja, void *b, void *x) {
    perm.assign(n > 0 ? n : 1, 0);
    telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, a, ia, ja, perm.data(), &nb, iparam,
            &msglvl, b, x, &error);
  }
};

TEST(Entry, ProbesAnswerAndTouchNothingElse) {
  call c;
  c.ido = -2;
  c.run(nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(c.error, 16);
  EXPECT_EQ(c.iparam[0], 23);
  for (int k = 1; k < 64; ++k) {
    if (k == 5 || k == 11 || k == 27 || k == 59) continue;
    EXPECT_EQ(c.iparam[k], -99) << "iparam(" << k + 1 << ")";
  }
  for (intptr_t w : c.handle) EXPECT_EQ(w, 0);

  call d;
  d.ido = -3;
  d.iparam[0] = 5;
  d.run(nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(d.error, 300000);
  EXPECT_EQ(d.iparam[0], 5);
}

TEST(Entry, ThreadCountIsStoredBeforeThePhaseDriverRuns) {
  vek_serv_set_dynamic(0);
  vek_serv_set_num_threads(3);
  // A 2 x 2 full matrix: not diagonal, so it reaches the driver.
  std::vector<int> ia = {1, 3, 5}, ja = {1, 2, 1, 2};
  std::vector<double> a = {4, 1, 1, 4}, b = {1, 1}, x = {0, 0};
  call c(2);
  c.iparam[2] = 77;
  c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
  EXPECT_EQ(c.iparam[2], 3);  // dynamic off: no reduction for 2 equations
  EXPECT_NE(c.iparam[11], -1);
  c.ido = -1;
  c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
  EXPECT_EQ(c.handle[0], 0);
}

TEST(Entry, DiagonalMatrixIsSolvedWithoutState) {
  const int n = 6;
  std::vector<int> ia(n + 1), ja(n);
  std::vector<double> a(n), b(n), x(n, 0.0);
  for (int i = 0; i < n; ++i) {
    ia[i] = i + 1;
    ja[i] = i + 1;
    a[i] = (i % 2 ? -1.0 : 1.0) * (i + 1);
    b[i] = 3.0;
  }
  ia[n] = n + 1;
  for (int mtype : {2, 11, -2, 1}) {
    call c(n, mtype);
    c.ido = 13;
    std::fill(x.begin(), x.end(), 0.0);
    c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
    EXPECT_EQ(c.error, 0);
    EXPECT_EQ(c.iparam[11], -1);
    EXPECT_EQ(c.iparam[21], 3);  // positive diagonal values
    EXPECT_EQ(c.iparam[22], 3);  // negative ones
    for (int i = 0; i < n; ++i) EXPECT_DOUBLE_EQ(x[i], 3.0 / a[i]);
    EXPECT_EQ(c.handle[0], 0);
    // A release has nothing to do and leaves no state behind.
    c.ido = -1;
    c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
    EXPECT_EQ(c.error, 0);
    EXPECT_EQ(c.handle[0], 0);
  }
}

TEST(Entry, DiagonalPhasesAnalysisOnlyCheckOnlyErrorsAndTheMark) {
  std::vector<int> ia = {1, 2, 3}, ja = {1, 2};
  std::vector<double> a = {2.0, -4.0}, b = {2.0, 2.0}, x = {9.0, 9.0};
  // ido 11: nothing at all; 12: checks and counts, no solve.
  for (int ido : {11, 12}) {
    call c(2);
    c.ido = ido;
    c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
    EXPECT_EQ(c.error, 0) << ido;
    EXPECT_EQ(c.iparam[11], -1) << ido;
    EXPECT_EQ(c.iparam[21], ido == 11 ? -99 : 1) << ido;
    EXPECT_EQ(c.iparam[22], ido == 11 ? -99 : 1) << ido;
    EXPECT_EQ(x[0], 9.0) << ido;
  }

  // Rows of 0 and 2 entries, or a zero diagonal value: refused with -7.
  std::vector<int> ib = {1, 1, 3};
  std::vector<double> z = {0.0, 1.0};
  for (bool zero : {false, true}) {
    call e(2);
    e.ido = zero ? 13 : 23;
    e.run(zero ? z.data() : a.data(), zero ? ia.data() : ib.data(), ja.data(), b.data(), x.data());
    EXPECT_EQ(e.error, -7) << zero;
    EXPECT_EQ(x[0], 9.0) << zero;
  }

  // The mark iparam(12) = -1 left set: a full 2 x 2 matrix runs nothing.
  call c(2);
  c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
  ASSERT_EQ(c.iparam[11], -1);
  std::vector<int> ia2 = {1, 3, 5}, ja2 = {1, 2, 1, 2};
  std::vector<double> a2 = {4, 1, 1, 4};
  c.iparam[2] = 55;
  c.run(a2.data(), ia2.data(), ja2.data(), b.data(), x.data());
  EXPECT_EQ(c.error, 0);
  EXPECT_EQ(c.iparam[2], 55);
  EXPECT_EQ(c.handle[0], 0);
}

TEST(Entry, ComplexDiagonalOfAnyMagnitudeAndSolutionOverB) {
  // Type 13 with one entry per row: the complex routine, iparam(6) = 1. A
  // purely imaginary value is no zero; 1 / d as conj(d) / |d|^2 would give
  // 0 for |d| above 1e154.
  std::vector<int> ia = {1, 2, 3}, ja = {2, 1};
  for (double scale : {1.0, 1e200, 1e300}) {
    SCOPED_TRACE(scale);
    std::vector<double> a = {3 * scale, 4 * scale, 0.0, scale}, b = {1.0, 0.0, 0.0, 2.0}, x(4, 0.0);
    call c(2, 13);
    c.iparam[5] = 1;
    c.run(a.data(), ia.data(), ja.data(), b.data(), x.data());
    EXPECT_EQ(c.error, 0);
    // Row 1: (3 + 4i) x(2) = 1, x(2) = (3 - 4i) / 25; row 2: i x(1) = 2i.
    EXPECT_NEAR(x[0] * scale, 2.0, 1e-15);
    EXPECT_NEAR(x[1] * scale, 0.0, 1e-15);
    EXPECT_NEAR(x[2] * scale, 0.12, 1e-15);
    EXPECT_NEAR(x[3] * scale, -0.16, 1e-15);
    EXPECT_EQ(b, x);
    EXPECT_EQ(c.iparam[21], -99);  // no sign counts for complex types
  }
}

}  // namespace
