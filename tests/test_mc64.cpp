// Tests of the maximum product matching and its scaling.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "mc64.h"

namespace {

// A square matrix in zero-based compressed rows with sorted columns.
template <class R> struct csr {
  int n = 0;
  std::vector<int> ia, ja;
  std::vector<R> a;
};

// Random matrix with about `per_row` entries per row whose magnitudes span
// many orders; with `perfect` set a random permutation's entries are
// present, so that a perfect matching exists.
template <class R>
csr<R> random_matrix(int n, int per_row, bool perfect, unsigned seed, double spread = 8.0) {
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> col(0, n - 1);
  std::uniform_real_distribution<double> expo(-spread, spread), sign(-1.0, 1.0);
  std::vector<int> p(n);
  std::iota(p.begin(), p.end(), 0);
  std::shuffle(p.begin(), p.end(), gen);
  csr<R> m;
  m.n = n;
  m.ia.push_back(0);
  for (int i = 0; i < n; ++i) {
    std::vector<int> cols;
    for (int k = 0; k < per_row; ++k) cols.push_back(col(gen));
    if (perfect) cols.push_back(p[i]);
    std::sort(cols.begin(), cols.end());
    cols.erase(std::unique(cols.begin(), cols.end()), cols.end());
    for (int c : cols) {
      m.ja.push_back(c);
      m.a.push_back(static_cast<R>((sign(gen) < 0 ? -1.0 : 1.0) * std::pow(10.0, expo(gen))));
    }
    m.ia.push_back(static_cast<int>(m.ja.size()));
  }
  return m;
}

template <class R> R value_at(const csr<R> &m, int i, int j) {
  for (int k = m.ia[i]; k < m.ia[i + 1]; ++k)
    if (m.ja[k] == j) return m.a[k];
  return R(0);
}

// Runs the matching and checks what must hold of any result: a
// permutation whose matched entries are non-zero, duals with
// u(i) + v(j) + log|a(i,j)| <= 0 everywhere and = 0 on the matching, and
// scaling factors under which the matched entries have magnitude 1 and no
// entry exceeds 1. Returns the sum of log|a| over the matching.
template <class R> double check_matching(const csr<R> &m, double tol) {
  const int n = m.n;
  std::vector<int> perm(n, -7);
  std::vector<R> u(n), v(n);
  int rank = -1;
  EXPECT_EQ(0, tlm::mc64_match(&n, m.ia.data(), m.ja.data(), m.a.data(), perm.data(),
                               u.data(), v.data(), &rank));
  EXPECT_EQ(n, rank);
  std::vector<int> seen(n, 0);
  double logsum = 0.0;
  for (int j = 0; j < n; ++j) {
    EXPECT_GE(perm[j], 0);
    EXPECT_LT(perm[j], n);
    if (perm[j] < 0 || perm[j] >= n) return 0.0;
    ++seen[perm[j]];
    const double aij = std::fabs(static_cast<double>(value_at(m, perm[j], j)));
    EXPECT_GT(aij, 0.0) << "column " << j;
    logsum += std::log(aij);
  }
  for (int i = 0; i < n; ++i) EXPECT_EQ(1, seen[i]);

  // The factors as the solver stores them: column factors, then row factors.
  std::vector<int> one_based(n), mperm(n);
  for (int j = 0; j < n; ++j) one_based[j] = perm[j] + 1;
  std::vector<R> duals(2 * n), s(2 * n);
  std::copy(v.begin(), v.end(), duals.begin());
  std::copy(u.begin(), u.end(), duals.begin() + n);
  const int scaling = 1, mtype = 11;
  tlm::mc64_post(&scaling, &n, one_based.data(), duals.data(), mperm.data(), s.data(), &mtype);
  EXPECT_EQ(one_based, mperm);
  double largest = 0.0;
  for (int i = 0; i < n; ++i)
    for (int k = m.ia[i]; k < m.ia[i + 1]; ++k) {
      const double scaled = std::fabs(static_cast<double>(m.a[k])) * s[m.ja[k]] * s[n + i];
      largest = std::max(largest, scaled);
      if (perm[m.ja[k]] == i) {
        EXPECT_NEAR(1.0, scaled, tol) << "matched entry (" << i << "," << m.ja[k] << ")";
      }
      const double slack = static_cast<double>(u[i]) + v[m.ja[k]] +
                           std::log(std::fabs(static_cast<double>(m.a[k])));
      if (m.a[k] != R(0)) {
        EXPECT_LE(slack, tol * 40.0);
      }
    }
  EXPECT_LE(largest, 1.0 + tol);
  return logsum;
}

// The best sum of log|a| over all permutations, by enumeration.
double best_by_enumeration(const csr<double> &m) {
  std::vector<int> p(m.n);
  std::iota(p.begin(), p.end(), 0);
  double best = -HUGE_VAL;
  do {
    double s = 0.0;
    bool ok = true;
    for (int j = 0; j < m.n && ok; ++j) {
      const double a = std::fabs(value_at(m, p[j], j));
      if (a == 0.0) ok = false;
      else s += std::log(a);
    }
    if (ok) best = std::max(best, s);
  } while (std::next_permutation(p.begin(), p.end()));
  return best;
}

TEST(Mc64, MatchingIsOptimalOnSmallMatricesByEnumeration) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    const csr<double> m = random_matrix<double>(7, 3, true, seed);
    const double got = check_matching(m, 1e-10);
    EXPECT_NEAR(best_by_enumeration(m), got, 1e-9) << "seed " << seed;
  }
}

TEST(Mc64, ScalingBoundsHoldOnLargerMatricesInBothPrecisions) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    check_matching(random_matrix<double>(400 * static_cast<int>(seed), 4, true, seed), 1e-9);
    check_matching(random_matrix<float>(300, 4, true, 100 + seed, 4.0), 2e-3);
  }
}

TEST(Mc64, SmallStructuresGiveTheirPermutationAndRank) {
  struct item {
    const char *what;
    std::vector<int> ia, ja;
    std::vector<double> a;
    int status, rank;       // rank -1: not asked for
    std::vector<int> perm;  // empty: any permutation
  };
  const item cases[] = {
      {"a diagonal keeps the identity", {0, 1, 2, 3}, {0, 1, 2}, {-1, -2, -3}, 0, -1, {0, 1, 2}},
      // the stored zero at (0,0) cannot be matched, though the diagonal
      // would be the natural choice
      {"a stored zero takes no part", {0, 2, 4}, {0, 1, 0, 1}, {0, 1, 1, 1}, 0, 2, {1, 0}},
      // rows 0 and 1 reach only column 0, row 3 is empty: rank 2 of 4, and
      // still a full permutation
      {"structurally singular", {0, 1, 2, 5, 5}, {0, 0, 1, 2, 3}, {2, 3, 1, 4, 5}, 0, 2, {}},
      {"no entries: no cost record", {0, 0, 0, 0}, {}, {}, -2, -1, {}},
  };
  for (const item &c : cases) {
    SCOPED_TRACE(c.what);
    const int n = static_cast<int>(c.ia.size()) - 1;
    std::vector<int> perm(n, -9);
    std::vector<double> u(n), v(n);
    int rank = -1;
    ASSERT_EQ(c.status, tlm::mc64_match(&n, c.ia.data(), c.ja.data(), c.a.data(), perm.data(),
                                        u.data(), v.data(), c.rank < 0 ? nullptr : &rank));
    if (c.status != 0) continue;
    EXPECT_EQ(c.rank, rank);
    std::vector<int> sorted(perm), identity(n);
    std::sort(sorted.begin(), sorted.end());
    std::iota(identity.begin(), identity.end(), 0);
    EXPECT_EQ(identity, sorted);
    if (!c.perm.empty()) {
      EXPECT_EQ(c.perm, perm);
    }
    if (c.rank < 0) check_matching(csr<double>{n, c.ia, c.ja, c.a}, 1e-14);  // exact duals
  }
}

TEST(Mc64, PostStepForms) {
  const int n = 2;
  const int mc64_i[2] = {2, 1};
  // v = (log 4, 0), u = (0, log 9)
  const double duals[4] = {std::log(4.0), 0.0, 0.0, std::log(9.0)};
  int perm[2];
  double s[4];
  int scaling = 1, mtype = -2;
  tlm::mc64_post(&scaling, &n, mc64_i, duals, perm, s, &mtype);
  EXPECT_EQ(2, perm[0]);
  EXPECT_NEAR(2.0, s[0], 1e-14);  // sqrt(4 * 1)
  EXPECT_NEAR(3.0, s[1], 1e-14);  // sqrt(1 * 9)
  EXPECT_NEAR(9.0, s[3], 1e-13);
  mtype = 11;
  tlm::mc64_post(&scaling, &n, mc64_i, duals, perm, s, &mtype);
  EXPECT_NEAR(4.0, s[0], 1e-14);
  EXPECT_NEAR(1.0, s[1], 1e-14);
  scaling = 0;
  tlm::mc64_post(&scaling, &n, mc64_i, duals, perm, s, &mtype);
  EXPECT_EQ(1, perm[1]);
  for (double f : s) EXPECT_EQ(1.0, f);
  scaling = -1;
  tlm::mc64_post(&scaling, &n, mc64_i, duals, perm, s, &mtype);
  EXPECT_EQ(1, perm[0]);
  EXPECT_EQ(2, perm[1]);
}

}  // namespace
