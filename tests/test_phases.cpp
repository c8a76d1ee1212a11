// The phases through the public entry: the ido state machine, several sets
// of factors over one analysis, sub-steps of the solve, several right-hand
// sides and the solution over b, refinement, the memory figures, the
// storage modes, and matrices whose factorization fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "service/vek_serv_memory.h"
#include "telmira.h"
#include "telmira_storage.h"
#include "telmira_types.h"
#include "test_heap.h"
#include "test_matrices.h"
#include "test_system.h"
#include "vekio.h"

namespace {

using vektest::rel_diff;
using vektest::substeps_error;
using vektest::system;
using vektest::use_threads;

TEST(Solve, SeveralRightHandSidesOnTwoThreadsSolutionOverBAndRefinement) {
  use_threads(2);
  vekio::sparse m;
  ASSERT_TRUE(vektest::load("bcsstk13", m));
  // iparam(8): two refinement steps, with the residual in working or in
  // extended precision; iparam(6) = 1: the solution replaces b.
  for (int ctl8 : {2, -2})
    for (int over_b : {0, 1}) {
      SCOPED_TRACE(std::to_string(ctl8) + " " + std::to_string(over_b));
      system s(m, 2, 3);
      s.control({{2, 2}, {6, over_b}, {8, ctl8}});
      const std::vector<double> rhs = s.b;
      ASSERT_EQ(s.call(13), 0);
      EXPECT_EQ(s.iparam[2], 2);
      EXPECT_EQ(s.iparam[6], 2);
      std::vector<double> sol = over_b ? s.b : s.x;
      s.b = rhs;
      EXPECT_LE(s.residual(sol), 1e-15);
      EXPECT_LE(rel_diff(sol, s.xref), 1e-6);
      if (!over_b) continue;
      // Without refinement x keeps the permuted work: each side's solution
      // in the solver's order, the same values, not the same places.
      s.iparam[7] = 0;
      ASSERT_EQ(s.call(33), 0);
      sol = s.b;
      s.b = rhs;
      EXPECT_LE(s.residual(sol), 1e-14);
      EXPECT_NE(s.x, sol);
      for (int k = 0; k < s.nb; ++k) {
        const auto at = static_cast<std::ptrdiff_t>(k) * s.n;
        std::vector<double> p(s.x.begin() + at, s.x.begin() + at + s.n);
        std::vector<double> q(sol.begin() + at, sol.begin() + at + s.n);
        std::sort(p.begin(), p.end());
        std::sort(q.begin(), q.end());
        EXPECT_EQ(p, q);
      }
    }
}

TEST(Solve, SubStepsForwardThenBackwardEqualTheFullSolve) {
  use_threads(1);
  for (int nrhs : {1, 3}) {
    SCOPED_TRACE(nrhs);
    system s(vekio::lap3d(9), 2, nrhs);
    ASSERT_EQ(s.call(12), 0);
    ASSERT_EQ(s.call(33), 0);
    const std::vector<double> full = s.x;
    EXPECT_LE(s.residual(full), 1e-14);

    // 331 leaves L^-1 P b in input order; 333 on that gives the solution.
    EXPECT_LE(substeps_error(s, {331, 333}, full), 1e-12);
    // 332 has nothing to do for L L^T: gather and scatter give b back.
    ASSERT_EQ(s.call(332), 0);
    EXPECT_EQ(s.x, s.b);
  }
}

TEST(Phases, StateTableThroughTheEntry) {
  use_threads(1);
  const vekio::sparse m = vekio::lap2d(12);

  {  // empty handle: 22 and 33 make a state and refuse (33 silently at
     // level 0); -1 does nothing
    system s(m);
    const std::string out = s.call_printing(22);
    EXPECT_EQ(s.error, -1);
    EXPECT_NE(out.find("clean impossible (ido?)"), std::string::npos) << out;
    EXPECT_NE(s.handle[0], 0);
    system y(m);
    EXPECT_EQ(y.call(33), -7);
    EXPECT_NE(y.handle[0], 0);
    system z(m);
    EXPECT_EQ(z.call(-1), 0);
    for (intptr_t w : z.handle) EXPECT_EQ(w, 0);
  }

  system s(m);
  ASSERT_EQ(s.call(11), 0);
  EXPECT_NE(s.handle[tlm::STRUC_FI], 0);
  // The analysis blocks are gone after the analysis.
  for (int slot : {tlm::STRUC_S0, tlm::STRUC_S1, tlm::STRUC_S2, tlm::WORK_I0})
    EXPECT_EQ(s.handle[slot], 0) << slot;
  const int *comi = s.comi();
  const intptr_t *entry = tlm::fact_entry(s.handle, 1);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry[1], tlm::not_allocated_mark);

  // 33 right after the analysis runs as 23.
  ASSERT_EQ(s.call(33), 0);
  EXPECT_LE(s.residual(s.x), 1e-14);
  EXPECT_NE(entry[0], 0);
  EXPECT_EQ(entry[1], entry[0]);
  EXPECT_EQ(entry[3], static_cast<intptr_t>(COMI(34) + COMI(35)));
  EXPECT_EQ(entry[4], 1);

  // A repeated 22 refactors in place with new values.
  const intptr_t block = entry[0];
  for (double &v : s.A.a) v *= 2.0;
  s.set_rhs(1);
  ASSERT_EQ(s.call(22), 0);
  EXPECT_EQ(entry[0], block);
  ASSERT_EQ(s.call(33), 0);
  EXPECT_LE(s.residual(s.x), 1e-14);

  // 0 drops the factors of matrix 1; a 33 then factorizes again.
  ASSERT_EQ(s.call(0), 0);
  EXPECT_EQ(entry[0], 0);
  EXPECT_EQ(entry[1], tlm::not_allocated_mark);
  std::fill(s.x.begin(), s.x.end(), 0.0);
  ASSERT_EQ(s.call(33), 0);
  EXPECT_LE(s.residual(s.x), 1e-14);

  // 0 with a matrix number beyond max_fac_store is refused.
  s.matrix_number = 2;
  EXPECT_EQ(s.call(0), -7);
  s.matrix_number = 1;

  // -1 empties the handle.
  EXPECT_EQ(s.call(-1), 0);
  for (intptr_t w : s.handle) EXPECT_EQ(w, 0);
}

TEST(Phases, EachSetOfFactorsKeepsItsOwnPivots) {
  // Two sets of factors over one analysis. A factorization of matrix 1
  // between the factorization and the solve of matrix 2 must not change what
  // matrix 2's solve reads: the factor blocks, row and column exchanges
  // belong to each factorization, for every pivoting type; dropping matrix 1
  // leaves matrix 2 alone.
  use_threads(1);
  const vekio::sparse cd = vekio::convdiff2d(9, 40.0);
  struct item {
    vekio::sparse m;
    int mtype;
  };
  for (const item &c : {item{vekio::lap3d(8), 2}, item{cd, 11}, item{cd, 1},
                        item{vekio::lap2d(9), -2},
                        item{vektest::complexify(cd, 0.4, {0.0, 0.5}), 13},
                        item{vektest::complexify(vekio::lap2d(9), 0.3, {-2.0, 0.2}), 6}}) {
    SCOPED_TRACE(c.mtype);
    system s(c.m, c.mtype);
    s.max_fac_store = 2;
    const std::vector<double> a2 = s.A.a;
    std::vector<double> a1 = a2;
    // matrix 1: other values on the same pattern, so that other pivots win;
    // for type 2 a raised diagonal (first in each row) keeps it definite
    for (std::size_t k = 0; k < a1.size(); ++k) a1[k] *= 1.0 + 0.7 * std::sin(3.0 * k);
    if (c.mtype == 2)
      for (int i = 1; i <= s.n; ++i) a1[s.A.ia[i - 1] - 1] = a2[s.A.ia[i - 1] - 1] + 25.0;
    s.matrix_number = 2;
    ASSERT_EQ(s.call(12), 0);
    s.A.a = a1;
    s.matrix_number = 1;
    ASSERT_EQ(s.call(22), 0);
    s.A.a = a2;
    s.matrix_number = 2;
    ASSERT_EQ(s.call(33), 0);
    EXPECT_LE(s.residual(s.x), 1e-14);
    const intptr_t *e1 = tlm::fact_entry(s.handle, 1), *e2 = tlm::fact_entry(s.handle, 2);
    EXPECT_NE(e1[0], e2[0]);
    s.matrix_number = 1;
    ASSERT_EQ(s.call(0), 0);
    EXPECT_EQ(e1[0], 0);
    EXPECT_NE(e2[0], 0);
    s.matrix_number = 2;
    std::fill(s.x.begin(), s.x.end(), 0.0);
    ASSERT_EQ(s.call(33), 0);
    EXPECT_LE(s.residual(s.x), 1e-14);
  }
}

TEST(Phases, NoSolveWithTheFactorsOfAFailedFactorizationNorWithoutRightHandSides) {
  use_threads(1);
  vekio::sparse m = vekio::lap2d(10);
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k)
      if (m.ja[k - 1] == i && i == 37) m.a[k - 1] = -50.0;  // not positive definite
  {
    vektest::counted_heap heap;
    system s(m, 2);
    EXPECT_EQ(-4, s.call(12));
    // Each solve factorizes again into a new block, and fails again; the
    // block of the failed factorization is freed.
    EXPECT_EQ(-4, s.call(33));
    EXPECT_EQ(-4, s.call(23));
    for (double v : s.x) EXPECT_TRUE(std::isfinite(v));
    EXPECT_EQ(0, s.call(-1));
    vek_serv_free_buffers();
    EXPECT_EQ(0, heap.live);
  }
  // A phase that ends in a solve refuses nb below 1 (error -1, at message
  // level 0 in its silent form -7).
  system t(vekio::lap2d(6), 11);
  t.nb = 0;
  for (int ido : {13, 23}) EXPECT_EQ(-7, t.call(ido)) << ido;
  t.nb = 1;
  ASSERT_EQ(0, t.call(12));
  t.nb = -3;
  EXPECT_EQ(-7, t.call(23));
  t.nb = 1;
  EXPECT_EQ(0, t.call(33));
}

TEST(Phases, StructuresThatCannotBeAnalysedEndWithErrorThree) {
  // Without the matrix check: a structure that the ordering cannot take,
  // or a caller's order that is not a permutation, ends the analysis with
  // error -3 and the reason in iparam(30), instead of running on it.
  auto analyse = [](int mtype, int n, std::vector<int> ia, std::vector<int> ja,
                    std::vector<int> perm = {}) {
    system s(vekio::diagonal(n), 11);  // the arrays given as they are
    s.mtype = mtype;
    s.A.ia = ia;
    s.A.ja = ja;
    s.A.a.assign(ja.size(), 1.0);
    if (!perm.empty()) s.control({{2, 2}, {5, 1}}).perm = perm;  // the caller's order
    s.call(11);
    return std::make_pair(s.error, s.iparam[29]);
  };
  // Type 1 with an unsymmetric pattern (7 x 7, rows 1 to 7).
  EXPECT_EQ(std::make_pair(-3, -31),
            analyse(1, 7, {1, 2, 4, 6, 8, 9, 11, 13}, {1, 2, 5, 2, 3, 1, 4, 5, 5, 6, 3, 7}));
  // Type 2 given its lower triangle.
  EXPECT_EQ(std::make_pair(-3, -32), analyse(2, 3, {1, 2, 4, 7}, {1, 1, 2, 1, 2, 3}));
  // Type 11 with a column out of range, and with a row not in rising order.
  EXPECT_EQ(std::make_pair(-3, -32), analyse(11, 3, {1, 3, 4, 6}, {1, 9, 2, 1, 3}));
  EXPECT_EQ(std::make_pair(-3, -32), analyse(11, 3, {1, 3, 4, 6}, {2, 1, 2, 1, 3}));
  // Orders out of range or repeated.
  for (const std::vector<int> &bad : {std::vector<int>{1, 2, 9}, std::vector<int>{1, 3, 3},
                                      std::vector<int>{0, 1, 2}})
    EXPECT_EQ(std::make_pair(-3, -33), analyse(2, 3, {1, 3, 5, 6}, {1, 2, 2, 3, 3}, bad));
}

TEST(Phases, MemoryFiguresAcrossCalls) {
  use_threads(1);
  system s(vekio::lap2d(40));
  ASSERT_EQ(s.call(11), 0);
  const int peak = s.iparam[14], permanent = s.iparam[15], numeric = s.iparam[16];
  EXPECT_GT(peak, 0);
  EXPECT_GT(permanent, 0);
  EXPECT_LT(permanent, peak);
  // The forecast of L alone: |L| doubles in kilobytes.
  EXPECT_GE(numeric, static_cast<int>(8.0 * s.comi()[33] / 1024));
  // In megabytes: all in-core structures >= integers, and the factors.
  EXPECT_GE(s.iparam[60], s.iparam[61]);
  EXPECT_GE(s.iparam[61], 1);
  EXPECT_GE(s.iparam[62], 1);

  // The factorization keeps the analysis figures; its own sum is what it
  // allocated.
  ASSERT_EQ(s.call(22), 0);
  EXPECT_EQ(s.iparam[14], peak);
  EXPECT_EQ(s.iparam[15], permanent);
  EXPECT_GE(s.iparam[16], static_cast<int>(8.0 * s.comi()[33] / 1024));
  // A second analysis starts its sums anew and arrives at the same figures.
  ASSERT_EQ(s.call(11), 0);
  EXPECT_EQ(s.iparam[14], peak);
  EXPECT_EQ(s.iparam[15], permanent);
  EXPECT_EQ(s.iparam[16], numeric);
}

TEST(Phases, NotPositiveDefiniteReportsTheInputColumn) {
  // A column turned indefinite: every leading block without it stays
  // positive definite, so its pivot is the first to fail in any order; on
  // two threads the others, waiting on its updates, end as well.
  struct item {
    int N, col, method, threads;
  };
  for (const item &c : {item{10, 7, 0, 1}, item{10, 7, 2, 1}, item{30, 451, 2, 2}}) {
    SCOPED_TRACE(c.col);
    use_threads(c.threads);
    vekio::sparse m = vekio::lap2d(c.N);
    for (int k = m.ia[c.col - 1]; k < m.ia[c.col]; ++k)
      if (m.ja[k - 1] == c.col) m.a[k - 1] = -4.0;
    system s(m);
    s.control({{2, c.method}, {18, -1}, {19, -1}});
    const std::string out = s.call_printing(13);
    EXPECT_EQ(s.error, -4);
    EXPECT_EQ(s.iparam[29], c.col);
    EXPECT_EQ(s.comi()[19], c.threads == 1 ? 1 : 0);  // comi(20): sequential kernels
    EXPECT_NE(out.find("*** Error in TELMIRA  ( numerical_factorization) error_num= " +
                       std::to_string(c.col)),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("zero or negative pivot, A is not SPD-matrix"), std::string::npos);
    EXPECT_NE(std::string(telmira_status_words(-4, s.iparam[29])).find("not positive definite"),
              std::string::npos);
  }
}

TEST(Phases, ReturnedPermutationAndCallerPermutation) {
  use_threads(1);
  system s(vekio::lap2d(15));
  s.control({{2, 2}, {5, 2}});  // hand the computed order back
  ASSERT_EQ(s.call(13), 0);
  const std::vector<int> computed = s.perm;  // a permutation: OrderingConcurrency
  const int lcomputed = s.comi()[33];

  // The same order given back (iparam(5) = 1) gives the same factor size.
  system t(vekio::lap2d(15));
  t.control({{2, 2}, {5, 1}});
  t.perm = computed;
  ASSERT_EQ(t.call(13), 0);
  EXPECT_EQ(t.comi()[33], lcomputed);
  EXPECT_LE(t.residual(t.x), 1e-14);
}

TEST(Phases, MoreRightHandSidesThanAtTheAnalysisGrowTheWorkArray) {
  use_threads(2);
  system s(vekio::lap2d(30), 2, 1);
  ASSERT_EQ(s.call(12), 0);
  const intptr_t before = s.handle[tlm::WORK_R0];
  ASSERT_NE(before, 0);
  const int kept = s.comi()[6];  // comi(7), the work size
  s.set_rhs(120);
  ASSERT_EQ(s.call(33), 0);
  EXPECT_LE(s.residual(s.x), 1e-14);
  EXPECT_GT(s.comi()[6], kept);
  // Back to one side: the larger array is kept.
  const int grown = s.comi()[6];
  s.set_rhs(1);
  ASSERT_EQ(s.call(33), 0);
  EXPECT_EQ(s.comi()[6], grown);
  EXPECT_LE(s.residual(s.x), 1e-14);
}

TEST(Phases, StorageModeLinesAndNoRoomEvenOutOfCore) {
  use_threads(1);
  struct want {
    int iparam60;
    const char *limit_mb, *line;
  };
  for (const want &w :
       {want{0, nullptr, "In-Core mode, because iparam(60)=0 ==="},
        want{1, nullptr, "In-Core mode, because iparam(60)=1 and there is enough RAM for In-Core ==="},
        want{2, nullptr, "Out-Of-Core mode, because iparam(60)=2 ==="},
        // A limit of 0 megabytes: the choice by memory falls on the
        // out-of-core mode, whose own structures do not fit either.
        want{1, "0", "Out-Of-Core mode, because iparam(60)=1 and there is not enough RAM for In-Core ==="}}) {
    SCOPED_TRACE(w.line);
    if (w.limit_mb) setenv("VEK_TELMIRA_OOC_MAX_CORE_SIZE", w.limit_mb, 1);
    system s(vekio::lap2d(25));
    s.control({{2, 2}, {18, -1}, {19, -1}, {60, w.iparam60}});
    const std::string out = s.call_printing(13);
    unsetenv("VEK_TELMIRA_OOC_MAX_CORE_SIZE");
    EXPECT_NE(out.find(std::string("\n=== TELMIRA is running in ") + w.line + "\n\n"), std::string::npos) << out;
    if (w.limit_mb) {
      EXPECT_EQ(s.error, -9);
      EXPECT_NE(out.find("*** Error in TELMIRA  ( not enough mem. for OOC) error_num= -9"),
                std::string::npos);
      // The forecast that was refused: at least one megabyte of structures.
      EXPECT_GE(s.iparam[14], 1024);
      EXPECT_EQ(s.handle[tlm::STRUC_FI], 0);
      continue;
    }
    EXPECT_EQ(s.error, 0) << out;
    // The report of the whole call follows (its lines: the Statistics tests).
    EXPECT_NE(out.find("Summary TELMIRA: ( reorder to solve )"), std::string::npos);
    EXPECT_LE(s.residual(s.x), 1e-14);
  }
}

// ---------------------------------------------------------------------------
// Iterative refinement with the stored factors.

TEST(Refinement, StepsCountedAndStopRules) {
  use_threads(1);
  const vekio::sparse m = vekio::lap3d(9);
  struct item {
    const char *what;
    int iparam8, iparam26, perturbed, nrhs, least, most;
  };
  for (const item &c : {
           // exactly one step, whatever the residual says
           item{"one step", 1, 0, 0, 3, 1, 1},
           // the residual is at rounding level at once and stops falling;
           // from the fourth step on that ends the loop
           item{"stagnation", 10, 0, 0, 1, 4, 9},
           // iparam(26) leaves refinement out
           item{"none", 3, 1, 0, 1, 0, 0},
           // a count of perturbed pivots given at 33 calls for two steps
           // with iparam(8) = 0, and iparam(20) says so
           item{"perturbed", 0, 0, 5, 1, 2, 2}}) {
    SCOPED_TRACE(c.what);
    system s(m, 2, c.nrhs);
    s.control({{2, 2}, {8, c.iparam8}, {26, c.iparam26}});
    ASSERT_EQ(s.call(12), 0);
    s.iparam[13] = c.perturbed;
    ASSERT_EQ(s.call(33), 0);
    EXPECT_GE(s.iparam[6], c.least);
    EXPECT_LE(s.iparam[6], c.most);
    if (c.perturbed) {
      EXPECT_EQ(s.iparam[19], -34);
    }
    EXPECT_LE(s.residual(s.x), 1e-15);
  }
}

TEST(Refinement, ExtendedResidualRepairsASinglePrecisionFactor) {
  // In single precision the factor of a moderately conditioned matrix
  // leaves an error of about cond * eps; refinement with residuals in
  // double precision brings it down to the rounding of the result.
  use_threads(1);
  double err[2] = {0, 0};
  for (int ctl8 : {0, -4}) {
    system s(vekio::lap3d(14), 2, 1, true);
    s.control({{2, 2}, {8, ctl8}, {26, ctl8 == 0 ? 1 : 0}});  // 26: no refinement at all
    ASSERT_EQ(s.call(13), 0);
    EXPECT_EQ(s.comi()[89], 1);  // comi(90): the handle's precision
    err[ctl8 == 0 ? 0 : 1] = rel_diff(s.x, s.xref);
    if (ctl8 != 0) {
      EXPECT_GE(s.iparam[6], 1);
    }
  }
  EXPECT_LT(err[1], 0.2 * err[0]) << err[0] << " " << err[1];
  EXPECT_LT(err[1], 1e-6);
}

// ---------------------------------------------------------------------------
// Unsymmetric values: LU with pivoting inside the supernodes.

TEST(SolveLU, SingularBlockStopsPartialPivotingAndIsReplacedByCompletePivoting) {
  use_threads(1);
  // A zero row and column in a structurally symmetric matrix: the
  // structurally symmetric kernel stops, the unsymmetric one replaces the
  // pivot and goes on.
  vekio::sparse m = vekio::convdiff2d(6, 20.0);
  const int z = 14;
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k)
      if (i == z || m.ja[k - 1] == z) m.a[k - 1] = 0.0;
  {
    system s(m, 1);
    const std::string out = s.call_printing(13);
    EXPECT_EQ(s.error, -4);
    EXPECT_EQ(s.iparam[29], -1);
    EXPECT_NE(out.find("*** Error in TELMIRA: zero pivot"), std::string::npos) << out;
  }
  {
    system s(m, 11);
    s.call(13);
    EXPECT_EQ(s.error, 0);
    EXPECT_EQ(s.iparam[13], 1);  // one perturbed pivot
    // The perturbed pivots brought the refinement along.
    EXPECT_GE(s.iparam[6], 1);
  }
}

// ---------------------------------------------------------------------------
// Symmetric indefinite: LDL^T with pivoting inside the supernodes.

TEST(SolveLDL, InertiaOfAShiftedLaplacian) {
  // The eigenvalues of the 5-point Laplacian on an N x N grid are
  // 4 - 2 cos(i pi / (N+1)) - 2 cos(j pi / (N+1)): the shift sigma leaves
  // as many negative eigenvalues as there are below sigma.
  use_threads(1);
  const int N = 20;
  const double sigma = 2.3;
  vekio::sparse m = vekio::lap2d(N);
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k)
      if (m.ja[k - 1] == i) m.a[k - 1] -= sigma;
  int below = 0;
  const double pi = std::acos(-1.0);
  for (int i = 1; i <= N; ++i)
    for (int j = 1; j <= N; ++j)
      if (4.0 - 2.0 * std::cos(i * pi / (N + 1)) - 2.0 * std::cos(j * pi / (N + 1)) < sigma)
        ++below;
  for (int bk : {1, 0}) {
    system s(m, -2);
    s.control({{2, 2}, {10, 8}, {21, bk}});
    ASSERT_EQ(s.call(13), 0);
    EXPECT_EQ(s.iparam[22], below) << bk;
    EXPECT_EQ(s.iparam[21], m.n - below) << bk;
    EXPECT_EQ(s.iparam[13], 0);
    EXPECT_LE(s.residual(s.x), 1e-13);
  }
}

}  // namespace
