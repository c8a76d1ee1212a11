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

template <class T> double tol() {
  return std::is_same<tlm::real_of<T>, float>::value ? 1e-5 : 1e-13;
}

template <class T> class DiagSolve : public ::testing::Test {};
typedef ::testing::Types<double, float, zcomplex, ccomplex> Kinds;
TYPED_TEST_SUITE(DiagSolve, Kinds);

TYPED_TEST(DiagSolve, SolvesSeveralRightHandSidesThroughThePermutedColumns) {
  using T = TypeParam;
  std::mt19937 g(7);
  for (int nb : {1, 3}) {
    for (int threads : {1, 2}) {
      const int n = 37;
      onepr p = make_pattern(n, 11 + nb);
      std::vector<T> a(n), b(n * nb), x(n * nb, T(0));
      for (auto &v : a) {
        do v = value<T>(g); while (std::abs(v) < 0.1);
      }
      for (auto &v : b) v = value<T>(g);
      int err = 99, ctl6 = 0, solve = 1, pos = -1, neg = -1;
      diag_solve<T>(&n, &nb, p.ia.data(), p.ja.data(), a.data(), b.data(), x.data(),
                    &err, &ctl6, &solve, &threads,
                    tlm::value_traits<T>::is_complex ? nullptr : &pos,
                    tlm::value_traits<T>::is_complex ? nullptr : &neg);
      ASSERT_EQ(err, 0);
      // Row i reads a(i) x(c) = b(i), with c the column of row i.
      for (int k = 0; k < nb; ++k)
        for (int i = 0; i < n; ++i) {
          const int c = p.ja[i] - 1;
          const T want = b[i + k * n] / a[i];
          EXPECT_NEAR(std::abs(x[c + k * n] - want), 0.0, tol<T>() * std::abs(want))
              << "row " << i + 1 << " rhs " << k;
        }
      if constexpr (!tlm::value_traits<T>::is_complex) {
        int np = 0;
        for (auto v : a) np += v > 0;
        EXPECT_EQ(pos, np);
        EXPECT_EQ(neg, n - np);
      }
    }
  }
}

TYPED_TEST(DiagSolve, SolutionOverRightHandSideAndCheckOnlyWithoutSolveFlag) {
  using T = TypeParam;
  const int n = 5, nb = 2, threads = 2;
  onepr p = make_pattern(n, 3);
  std::vector<T> a = {T(2), T(-4), T(8), T(1), T(-0.5)};
  std::vector<T> b(n * nb), x(n * nb, T(0));
  for (int k = 0; k < n * nb; ++k) b[k] = T(k + 1);
  const std::vector<T> b0 = b;
  int err = 1, ctl6 = 1, solve = 0;
  diag_solve<T>(&n, &nb, p.ia.data(), p.ja.data(), a.data(), b.data(), x.data(), &err,
                &ctl6, &solve, &threads, nullptr, nullptr);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(b, b0);  // no solve flag: nothing computed, nothing copied
  EXPECT_EQ(x, std::vector<T>(n * nb, T(0)));
  solve = 1;
  diag_solve<T>(&n, &nb, p.ia.data(), p.ja.data(), a.data(), b.data(), x.data(), &err,
                &ctl6, &solve, &threads, nullptr, nullptr);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(b, x);  // the solution stands in both arrays
  for (int k = 0; k < nb; ++k)
    for (int i = 0; i < n; ++i)
      EXPECT_NEAR(std::abs(x[p.ja[i] - 1 + k * n] * a[i] - b0[i + k * n]), 0.0, 1e-5);
}

TYPED_TEST(DiagSolve, FailingRowStopsTheScanAndLeavesXUntouched) {
  using T = TypeParam;
  const bool cplx = tlm::value_traits<T>::is_complex;
  const int n = 4, nb = 1, threads = 1;
  int ctl6 = 0, solve = 1;
  // Row 3 holds no entry and row 4 two: the scan stops at row 3.
  std::vector<int> ia = {1, 2, 3, 3, 5}, ja = {1, 2, 3, 4};
  std::vector<T> a = {T(1), T(-1), T(1), T(1)}, b(n, T(1)), x(n, T(7));
  int err = 0, pos = -1, neg = -1;
  diag_solve<T>(&n, &nb, ia.data(), ja.data(), a.data(), b.data(), x.data(), &err,
                &ctl6, &solve, &threads, cplx ? nullptr : &pos, cplx ? nullptr : &neg);
  EXPECT_EQ(err, 3);
  EXPECT_EQ(x, std::vector<T>(n, T(7)));
  if (!cplx) {
    EXPECT_EQ(pos, 1);
    EXPECT_EQ(neg, 1);
  }
  // A zero on row 2 gives -2, with the count of row 1 only.
  std::vector<int> ia2 = {1, 2, 3, 4, 5}, ja2 = {1, 2, 3, 4};
  std::vector<T> a2 = {T(-3), T(0), T(1), T(1)};
  diag_solve<T>(&n, &nb, ia2.data(), ja2.data(), a2.data(), b.data(), x.data(), &err,
                &ctl6, &solve, &threads, cplx ? nullptr : &pos, cplx ? nullptr : &neg);
  EXPECT_EQ(err, -2);
  EXPECT_EQ(x, std::vector<T>(n, T(7)));
  if (!cplx) {
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(neg, 1);
  }
}

TEST(DiagSolveComplex, ZeroTestUsesTheModulus) {
  const int n = 2, nb = 1, threads = 1, ctl6 = 0, solve = 1;
  std::vector<int> ia = {1, 2, 3}, ja = {1, 2};
  // A purely imaginary value is not zero; its reciprocal is conj(d)/|d|^2.
  std::vector<double> a = {0.0, 2.0, 1.0, 1.0}, b = {2.0, 0.0, 2.0, 0.0}, x(4, 0.0);
  int err = 1;
  diag_solve_z(&n, &nb, ia.data(), ja.data(), a.data(), b.data(), x.data(), &err, &ctl6,
               &solve, &threads);
  ASSERT_EQ(err, 0);
  EXPECT_NEAR(x[0], 0.0, 1e-15);   // 2 / 2i = -i
  EXPECT_NEAR(x[1], -1.0, 1e-15);
  EXPECT_NEAR(x[2], 1.0, 1e-15);   // 2 / (1+i) = 1 - i
  EXPECT_NEAR(x[3], -1.0, 1e-15);
}

}  // namespace

TEST(DiagSolveColumns, ColumnOutOfRangeOrTakenTwiceIsRefused) {
  // n = 3: row 2's one entry names column 9, or column 1 again.
  for (int bad : {9, 0, 1}) {
    const int n = 3, nb = 1, threads = 1, solve = 1, ctl6 = 0;
    std::vector<int> ia = {1, 2, 3, 4}, ja = {1, bad, 3};
    std::vector<double> a = {2, 3, 4}, b = {1, 1, 1}, x(3, -7.0);
    int err = 0, pos = 0, neg = 0;
    diag_solve<double>(&n, &nb, ia.data(), ja.data(), a.data(), b.data(), x.data(), &err,
                       &ctl6, &solve, &threads, &pos, &neg);
    EXPECT_EQ(bad == 1 ? -2 : 2, err) << bad;
  }
}
