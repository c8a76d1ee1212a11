// The diagonal shortcut in all four value kinds, called directly.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <random>
#include <vector>

#include "diag_solve.h"

namespace {

using tlm::ccomplex;
using tlm::zcomplex;

// A matrix with one entry per row; row i holds column col[i] (a permutation).
struct onepr {
  int n;
  std::vector<int> ia, ja;
};

onepr make_pattern(int n, unsigned seed) {
  onepr m{n, std::vector<int>(n + 1), std::vector<int>(n)};
  std::vector<int> col(n);
  for (int i = 0; i < n; ++i) col[i] = i + 1;
  std::shuffle(col.begin(), col.end(), std::mt19937(seed));
  for (int i = 0; i < n; ++i) {
    m.ia[i] = i + 1;
    m.ja[i] = col[i];
  }
  m.ia[n] = n + 1;
  return m;
}

template <class T> T value(std::mt19937 &g) {
  std::uniform_real_distribution<double> u(-2.0, 2.0);
  if constexpr (tlm::value_traits<T>::is_complex) {
    using R = tlm::real_of<T>;
    return T(R(u(g)), R(u(g)));
  } else {
    return T(u(g));
  }
}

template <class T> class DiagSolve : public ::testing::Test {};
typedef ::testing::Types<double, float, zcomplex, ccomplex> Kinds;
TYPED_TEST_SUITE(DiagSolve, Kinds);

TYPED_TEST(DiagSolve, SolvesSeveralRightHandSidesThroughThePermutedColumns) {
  using T = TypeParam;
  constexpr bool cplx = tlm::value_traits<T>::is_complex;
  const double tol = std::is_same<tlm::real_of<T>, float>::value ? 1e-5 : 1e-13;
  std::mt19937 g(7);
  const int n = 37;
  for (int nb : {1, 3})
    for (int threads : {1, 2})
      for (int ctl6 : {0, 1}) {  // iparam(6) = 1: the solution over b as well
        onepr p = make_pattern(n, 11 + nb);
        std::vector<T> a(n), b(n * nb), x(n * nb, T(0));
        for (auto &v : a) {
          do v = value<T>(g); while (std::abs(v) < 0.1);
        }
        for (auto &v : b) v = value<T>(g);
        const std::vector<T> b0 = b;
        // Without the solve flag the rows are checked and nothing computed.
        int err = 99, no = 0, solve = 1, pos = -1, neg = -1;
        diag_solve<T>(&n, &nb, p.ia.data(), p.ja.data(), a.data(), b.data(), x.data(), &err,
                      &ctl6, &no, &threads, nullptr, nullptr);
        EXPECT_EQ(err, 0);
        EXPECT_EQ(b, b0);
        EXPECT_EQ(x, std::vector<T>(n * nb, T(0)));
        diag_solve<T>(&n, &nb, p.ia.data(), p.ja.data(), a.data(), b.data(), x.data(), &err,
                      &ctl6, &solve, &threads, cplx ? nullptr : &pos, cplx ? nullptr : &neg);
        ASSERT_EQ(err, 0);
        // Row i reads a(i) x(c) = b(i), with c the column of row i.
        for (int k = 0; k < nb; ++k)
          for (int i = 0; i < n; ++i) {
            const int c = p.ja[i] - 1;
            const T want = b0[i + k * n] / a[i];
            EXPECT_NEAR(std::abs(x[c + k * n] - want), 0.0, tol * std::abs(want))
                << "row " << i + 1 << " rhs " << k;
          }
        EXPECT_EQ(b, ctl6 ? x : b0);
        if constexpr (!cplx) {
          int np = 0;
          for (auto v : a) np += v > 0;
          EXPECT_EQ(pos, np);
          EXPECT_EQ(neg, n - np);
        }
      }
}

TYPED_TEST(DiagSolve, FailingRowStopsTheScanAndLeavesXUntouched) {
  using T = TypeParam;
  constexpr bool cplx = tlm::value_traits<T>::is_complex;
  const int n = 4, nb = 1, threads = 1;
  int ctl6 = 0, solve = 1;
  std::vector<T> b(n, T(1)), x(n, T(7));
  int err = 0, pos = -1, neg = -1;
  auto run = [&](std::vector<int> ia, std::vector<int> ja, std::vector<T> a) {
    diag_solve<T>(&n, &nb, ia.data(), ja.data(), a.data(), b.data(), x.data(), &err, &ctl6,
                  &solve, &threads, cplx ? nullptr : &pos, cplx ? nullptr : &neg);
    return err;
  };
  // Row 3 holds no entry and row 4 two: the scan stops at row 3, with the
  // counts of the rows before it.
  EXPECT_EQ(run({1, 2, 3, 3, 5}, {1, 2, 3, 4}, {T(1), T(-1), T(1), T(1)}), 3);
  EXPECT_TRUE(cplx || (pos == 1 && neg == 1));
  // Row starts from 0 end at n, not n + 1, but would read ja(0) first.
  EXPECT_EQ(run({0, 1, 2, 3, 4}, {1, 2, 3, 4}, {T(1), T(1), T(1), T(1)}), 1);
  // A zero on row 2 gives -2, with the count of row 1 only.
  EXPECT_EQ(run({1, 2, 3, 4, 5}, {1, 2, 3, 4}, {T(-3), T(0), T(1), T(1)}), -2);
  EXPECT_TRUE(cplx || (pos == 0 && neg == 1));
  EXPECT_EQ(x, std::vector<T>(n, T(7)));
  // Row 2's one entry names column 9 or 0 (out of range), or column 1
  // again (taken twice: singular, found also by a call that does not solve,
  // with x still untouched).
  for (int s : {1, 0})
    for (int bad : {9, 0, 1}) {
      solve = s;
      EXPECT_EQ(run({1, 2, 3, 4, 5}, {1, bad, 3, 4}, std::vector<T>(n, T(2))),
                bad == 1 ? -2 : 2)
          << bad;
      EXPECT_EQ(x, std::vector<T>(n, T(7)));
    }
}

}  // namespace
