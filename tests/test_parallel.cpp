// The parallel factorizations through the entry: for every matrix type the
// sweep on two threads, and the solver on the library's own dense routines,
// give what one thread with the installed BLAS and LAPACK gives (the same
// error number, perturbed pivots and inertia, solutions equal to rounding);
// a small problem factorized again and again on two threads never differs
// and never hangs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dense/vek_dense.h"
#include "test_system.h"
#include "vekio.h"

namespace {

using vektest::system;
using vektest::typed_matrix;

struct outcome {
  int error = 0, npert = 0, npos = 0, nneg = 0;
  std::vector<double> x;
  double residual = 0.0;
};

// Analysis, factorization and solve on `threads` threads, the matching
// with its scaling for the types that take it; own: the dense routines of
// the library instead of the installed ones.
outcome solve_on(const vekio::sparse &m, int mtype, int threads, bool own = false) {
  vekd::use_own_level3(own ? 1 : 0);
  vektest::use_threads(threads);
  system s(m, mtype, 2);
  s.type_defaults();
  outcome o;
  o.error = s.call(13);
  o.npert = s.iparam[13];
  o.npos = s.iparam[21];
  o.nneg = s.iparam[22];
  o.x = s.x;
  o.residual = s.residual(s.x);
  vekd::use_own_level3(0);
  return o;
}

TEST(ParallelFactorization, TwoThreadsAndTheOwnDenseRoutinesGiveWhatOneThreadGives) {
  // A Laplacian whose top separators exceed the unblocked Cholesky's 128
  // columns, so that the blocked form runs inside the solver.
  for (const typed_matrix &c : vektest::every_type(14)) {
    const outcome one = solve_on(c.m, c.mtype, 1);
    ASSERT_EQ(0, one.error) << c.name;
    for (int threads : {1, 2})
      for (bool own : {false, true}) {
        if (threads == 1 && !own) continue;
        SCOPED_TRACE(c.name + " threads " + std::to_string(threads) + (own ? " own" : ""));
        const outcome o = solve_on(c.m, c.mtype, threads, own);
        EXPECT_EQ(one.error, o.error);
        EXPECT_EQ(one.npert, o.npert);
        EXPECT_EQ(one.npos, o.npos);
        EXPECT_EQ(one.nneg, o.nneg);
        EXPECT_LE(o.residual, 1e-14);
        EXPECT_LE(vektest::rel_diff(o.x, one.x), 1e-10);
      }
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
    vektest::use_threads(2);
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
