// The last resort of the accuracy check: where the factors carry many
// perturbed pivots and plain refinement steps stall, GMRES with the
// factors as preconditioner brings the backward error to the rounding
// level; where refinement is switched off the same solve is refused.
#include <gtest/gtest.h>

#include "test_matrices.h"
#include "test_system.h"

namespace {

using vektest::system;

// nnc1374 without matching and scaling, pivots perturbed at 1e-6: several
// hundred perturbed pivots, which plain steps cannot make up for.
void perturbed_setup(system &s) {
  s.iparam[0] = 1;
  s.iparam[1] = 2;
  s.iparam[9] = 6;   // iparam(10): perturbation 1e-6
  s.iparam[10] = 0;  // iparam(11): no scaling
  s.iparam[12] = 0;  // iparam(13): no matching
}

TEST(KrylovGuard, ManyPerturbedPivotsStillReachTheRoundingLevel) {
  vekio::sparse m;
  ASSERT_TRUE(vektest::load("nnc1374", m));
  system s(m, 11, 2);
  perturbed_setup(s);
  ASSERT_EQ(0, s.call(13));
  EXPECT_GT(s.iparam[13], 100);  // iparam(14): perturbed pivots
  EXPECT_GT(s.iparam[6], 10);    // iparam(7): more than the plain steps
  EXPECT_LE(s.residual(s.x), 1e-14);
}

TEST(KrylovGuard, WithoutRefinementTheSolveIsRefused) {
  vekio::sparse m;
  ASSERT_TRUE(vektest::load("nnc1374", m));
  system s(m, 11, 1);
  perturbed_setup(s);
  s.iparam[25] = 1;  // iparam(26): no refinement
  EXPECT_EQ(-4, s.call(13));
  EXPECT_EQ(-122, s.iparam[29]);
}

}  // namespace
