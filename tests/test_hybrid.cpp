// The hybrid mode through the entry: sequences of matrices with the same
// pattern whose values change a little, solved by CG or CGS with the
// factors of an earlier matrix as preconditioner, and the fallback to a
// fresh factorization when the values change too much.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "telmira_storage.h"
#include "test_system.h"
#include "vekio.h"

namespace {

using vektest::system;

// The defaults of the type with the iteration selection iparam(4).
void hybrid_controls(system &s, int iteration) { s.type_defaults().iparam[3] = iteration; }

// The stored values scaled entry by entry by 1 + change * (a number in
// [-1, 1] that depends on the step and the entry).
std::vector<double> changed(const std::vector<double> &a, double change, int step) {
  std::vector<double> out(a);
  for (std::size_t k = 0; k < a.size(); ++k)
    out[k] = a[k] * (1.0 + change * std::sin(1.7 * static_cast<double>(k) + 0.9 * step));
  return out;
}

// One step of a sequence: new values, new right-hand side, ido 23, and the
// report at message level 1.
std::string step(system &s, const std::vector<double> &a) {
  s.A.a = a;
  s.set_rhs(s.nb);
  return s.call_printing(23);
}

struct sequence_case {
  const char *name;
  vekio::sparse m;
  int mtype;
  int iteration;
};

TEST(Hybrid, SequencesOfSimilarMatricesIterateWithoutRefactorizing) {
  vektest::use_threads(1);
  const vekio::sparse cd = vekio::convdiff3d(9, 1.0, 0.6, 0.3);
  const sequence_case cases[] = {
      // K below 0: a fixed pass limit, so that the measured times of a
      // loaded machine cannot send a step to a factorization.
      {"lap3d CG", vekio::lap3d(10), 2, -122},
      {"cd3d CGS", cd, 11, -121},
      {"cd3d complex CGS", vektest::complexify(cd, 0.2, {0.0, 0.3}), 13, -121},
  };
  for (const sequence_case &c : cases) {
    SCOPED_TRACE(c.name);
    system s(c.m, c.mtype);
    hybrid_controls(s, c.iteration);
    const std::vector<double> a0 = s.A.a;
    ASSERT_EQ(0, s.call(13));
    for (int k = 1; k <= 4; ++k) {
      SCOPED_TRACE(k);
      const std::string out = step(s, changed(a0, 0.01, k));
      ASSERT_EQ(0, s.error) << out;
      EXPECT_LE(s.residual(s.x), 1e-11);
      EXPECT_GT(s.iparam[19], 0);  // the passes of the iteration
      // The old factors served: no factorization in this call, and the
      // report says how the solve ran.
      EXPECT_EQ(out.find("Time numfct"), std::string::npos) << out;
      EXPECT_NE(out.find("Time cgs"), std::string::npos);
    }
  }
}

TEST(Hybrid, LargeChangeFactorizesAgainOrIsAnErrorWhenThatIsNotAllowed) {
  // Values changed by up to 90 %: the old factors are no preconditioner.
  vektest::use_threads(1);
  const vekio::sparse cd = vekio::convdiff3d(8, 1.0, 0.6, 0.3);
  for (int selection : {121, -121}) {
    SCOPED_TRACE(selection);
    system s(cd, 11);
    hybrid_controls(s, selection);
    const std::vector<double> a0 = s.A.a;
    ASSERT_EQ(0, s.call(13));
    const std::string out = step(s, changed(a0, 0.9, 1));
    if (selection > 0) {
      // The iteration fails, a fresh factorization repairs it.
      ASSERT_EQ(0, s.error) << out;
      EXPECT_NE(out.find("Time numfct"), std::string::npos) << out;
      EXPECT_LE(s.residual(s.x), 1e-14);
      EXPECT_GE(s.iparam[19], 0);
    } else {
      // No factorization may repair it: error -4 with the iteration's
      // result, not a wrong answer.
      EXPECT_EQ(-4, s.error);
      EXPECT_LT(s.iparam[19], 0);
      EXPECT_NE(out.find("*** Error in TELMIRA: cgs error iparam(20)"), std::string::npos)
          << out;
      // The next call factorizes and solves.
      step(s, changed(a0, 0.9, 1));
      EXPECT_EQ(0, s.error);
      EXPECT_LE(s.residual(s.x), 1e-14);
    }
  }
}

TEST(Hybrid, SolutionOverTheRightHandSideAndASolveOfStoredFactors) {
  vektest::use_threads(1);
  system s(vekio::lap3d(8), 2, 2);
  hybrid_controls(s, -62);  // CG with a tolerance of 1e-6, fixed pass limit
  s.iparam[5] = 1;         // the solution overwrites b
  const std::vector<double> a0 = s.A.a;
  ASSERT_EQ(0, s.call(13));
  const std::vector<double> a1 = changed(a0, 0.005, 1);
  std::vector<double> rhs;
  {
    s.A.a = a1;
    s.set_rhs(2);
    rhs = s.b;
    ASSERT_EQ(0, s.call(23));
    const std::vector<double> sol = s.b;
    s.b = rhs;
    EXPECT_LE(s.residual(sol), 1e-11);
  }
  // ido 33 with the values of the last call: the iteration on the stored
  // factors again.
  s.b = rhs;
  ASSERT_EQ(0, s.call(33));
  const std::vector<double> sol = s.b;
  s.b = rhs;
  EXPECT_LE(s.residual(sol), 1e-11);
  EXPECT_GT(s.iparam[19], 0);
}

TEST(Refinement, ChangedValuesWithTheOldFactorsAreNeverASilentWrongAnswer) {
  // Without the hybrid mode, ido 33 with values that changed since the
  // factorization: the solve measures its solution against the current
  // matrix and refines it with the old factors, or says it cannot.
  vektest::use_threads(1);
  system s(vekio::convdiff3d(8, 1.0, 0.6, 0.3), 11);
  const std::vector<double> a0 = s.A.a;
  ASSERT_EQ(0, s.call(13));
  for (double change : {0.01, 0.9}) {
    s.A.a = changed(a0, change, 3);
    s.set_rhs(1);
    const int e = s.call(33);
    if (e == 0)
      EXPECT_LE(s.residual(s.x), 1e-14) << change;
    else
      EXPECT_EQ(tlm::ST_INACCURATE_SOLUTION, s.iparam[29]);
  }
}

}  // namespace
