// The parallel factorizations through the entry: for every matrix type the
// sweep on two threads gives what one thread gives (the same error number,
// perturbed pivots and inertia, solutions equal to rounding), and a small
// problem factorized again and again on two threads never differs and
// never hangs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "service/vek_serv_threads.h"
#include "test_system.h"
#include "vekio.h"

namespace {

using vektest::system;

struct outcome {
  int error = 0, npert = 0, npos = 0, nneg = 0;
  std::vector<double> x;
  double residual = 0.0;
};

// Analysis, factorization and solve on `threads` threads, the matching
// with its scaling for the types that take it.
outcome solve_on(const vekio::sparse &m, int mtype, int threads) {
  vek_serv_set_dynamic(0);
  vek_serv_set_num_threads(threads);
  system s(m, mtype, 2);
  s.type_defaults();
  outcome o;
  o.error = s.call(13);
  o.npert = s.iparam[13];
  o.npos = s.iparam[21];
  o.nneg = s.iparam[22];
  o.x = s.x;
  o.residual = s.residual(s.x);
  return o;
}

using vektest::every_type;
using vektest::typed_matrix;

TEST(ParallelFactorization, TwoThreadsGiveWhatOneThreadGivesForEveryType) {
  for (const typed_matrix &c : every_type()) {
    SCOPED_TRACE(c.name);
    const outcome one = solve_on(c.m, c.mtype, 1);
    const outcome two = solve_on(c.m, c.mtype, 2);
    ASSERT_EQ(0, one.error);
    EXPECT_EQ(one.error, two.error);
    EXPECT_EQ(one.npert, two.npert);
    EXPECT_EQ(one.npos, two.npos);
    EXPECT_EQ(one.nneg, two.nneg);
    EXPECT_LE(two.residual, 1e-14);
    EXPECT_LE(vektest::rel_diff(two.x, one.x), 1e-10);
  }
}

TEST(ParallelFactorization, RepeatedRunsOnTwoThreadsNeitherDifferNorHang) {
  // The schedules order the updates by their arrival; the results may
  // differ in rounding, the counts never. The unsymmetric matrix is
  // ordered into two parts and runs by parts and pool; the indefinite one
  // by the ready list. One analysis, then many factorizations and solves
  // on the same lists, stale entries of the former run included, which a
  // factorization must not take for new arrivals.
  const vekio::sparse cd = vekio::convdiff3d(7, 1.0, 0.6, 0.3);
  const vekio::sparse indef = vekio::shifted_laplacian3d(7, vekio::shift_near_one(7), 0.0);
  for (const typed_matrix &c : {typed_matrix{"cd3d (11)", cd, 11},
                                typed_matrix{"indef3d (-2)", indef, -2},
                                typed_matrix{"lap3d (2)", vekio::lap3d(7), 2}}) {
    SCOPED_TRACE(c.name);
    const outcome first = solve_on(c.m, c.mtype, 1);
    ASSERT_EQ(0, first.error);
    vek_serv_set_num_threads(2);
    system s(c.m, c.mtype, 2);
    s.type_defaults();
    if (c.mtype == -2) s.iparam[10] = s.iparam[12] = 0;  // no matching
    ASSERT_EQ(0, s.call(11));
    ASSERT_EQ(2, s.iparam[2]);
    const int runs = c.mtype == 2 ? 40 : 200;  // the Cholesky sweep has no pivots to vary
    for (int run = 0; run < runs; ++run) {
      ASSERT_EQ(0, s.call(22)) << run;
      ASSERT_EQ(first.npert, s.iparam[13]) << run;
      ASSERT_EQ(first.npos, s.iparam[21]) << run;
      ASSERT_EQ(first.nneg, s.iparam[22]) << run;
      ASSERT_EQ(0, s.call(33)) << run;
      ASSERT_LE(s.residual(s.x), 1e-14) << run;
    }
  }
}

TEST(ParallelFactorization, AFailingPivotOnOneThreadEndsTheOthersWait) {
  // Type 1 stops at an exact zero pivot: a zero row and column in the
  // middle of the grid.
  vekio::sparse m = vekio::convdiff3d(8, 1.0, 0.6, 0.3);
  const int z = 200;
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k)
      if (i == z || m.ja[k - 1] == z) m.a[k - 1] = 0.0;
  for (int threads : {1, 2}) EXPECT_EQ(-4, solve_on(m, 1, threads).error) << threads;
}

}  // namespace
