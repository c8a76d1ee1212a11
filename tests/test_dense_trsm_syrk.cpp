// The library's triangular solve and rank-k update against the installed
// BLAS, on every side, triangle, transpose and diagonal, through the
// dispatch and the threaded frames; their quick returns.
#include <gtest/gtest.h>

#include <limits>

#include "dense/vek_dense_level3.h"
#include "dense_reference.h"

namespace {

// A triangle near the identity, so that the solve is well conditioned with
// its own diagonal and with a unit one, and a rounding bound of the order of
// the sum holds.
template <class T>
std::vector<T> triangle(int n, int lda, unsigned seed) {
  auto a = random_matrix<T>(std::size_t(lda) * n, seed);
  for (auto &x : a) x *= T(1.0 / n);
  for (int j = 0; j < n; ++j) a[j + std::size_t(j) * lda] += T(1);
  return a;
}

template <class T>
void check_solves(void (*ours)(const char *, const char *, const char *, const char *,
                               const int *, const int *, const T *, const T *, const int *,
                               T *, const int *, std::size_t, std::size_t, std::size_t,
                               std::size_t)) {
  const int shapes[][2] = {{1, 1}, {5, 40}, {17, 3}, {45, 70}, {133, 29}, {300, 260}};
  std::vector<char> transes = {'N', 'T'};
  if constexpr (std::is_same<T, zc>::value || std::is_same<T, cc>::value) transes.push_back('C');
  unsigned seed = 11;
  for (const auto &sh : shapes) {
    const int m = sh[0], n = sh[1];
    for (char side : {'L', 'R'}) {
      const int order = side == 'L' ? m : n, lda = order + 2, ldb = m + 3;
      const auto a = triangle<T>(order, lda, seed++);
      for (char uplo : {'L', 'U'}) {
        for (char tr : transes) {
          for (char diag : {'N', 'U'}) {
            auto b = random_matrix<T>(std::size_t(ldb) * n, seed++);
            auto expect = b;
            const T alpha = T(-0.5);
            ref<T>::trsm(side, uplo, tr, diag, m, n, alpha, a.data(), lda, expect.data(), ldb);
            ours(&side, &uplo, &tr, &diag, &m, &n, &alpha, a.data(), &lda, b.data(), &ldb, 1, 1,
                 1, 1);
            ASSERT_LE(max_difference(b, expect), rounding_bound<T>(order))
                << side << uplo << tr << diag << " m=" << m << " n=" << n;
          }
        }
      }
    }
  }
}

}  // namespace

TEST(DenseTrsm, DoubleOnOneAndTwoThreadsMatchesInstalledLibrary) {
  vekd::dense_thread_limit(1);
  check_solves<double>(vekd::dtrsm);
  vekd::dense_thread_limit(2);
  check_solves<double>(vekd::dtrsm);
}

TEST(DenseTrsm, OtherPrecisionsMatchInstalledLibrary) {
  vekd::dense_thread_limit(2);
  check_solves<float>(vekd::strsm);
  check_solves<zc>(vekd::ztrsm);
  check_solves<cc>(vekd::ctrsm);
}

TEST(DenseTrsm, AlphaZeroClearsWithoutReadingTheTriangle) {
  std::vector<double> a(9, std::numeric_limits<double>::quiet_NaN()), b(12, 4.0);
  const int m = 3, n = 4;
  const double zero = 0;
  vekd::dtrsm("L", "U", "N", "N", &m, &n, &zero, a.data(), &m, b.data(), &m, 1, 1, 1, 1);
  for (double x : b) EXPECT_EQ(0.0, x);
  // n zero returns at once; m zero leaves nothing to do.
  b.assign(12, 4.0);
  const int none = 0, one = 1;
  const double unit = 1;
  vekd::dtrsm("L", "U", "N", "N", &m, &none, &unit, a.data(), &m, b.data(), &m, 1, 1, 1, 1);
  vekd::dtrsm("R", "U", "N", "N", &none, &n, &unit, a.data(), &one, b.data(), &one, 1, 1, 1, 1);
  EXPECT_EQ(4.0, b[0]);
}

namespace {

template <class T>
void check_updates(void (*ours)(const char *, const char *, const int *, const int *,
                                const T *, const T *, const int *, const T *, T *,
                                const int *, std::size_t, std::size_t),
                   void (*theirs)(const char *, const char *, const int *, const int *,
                                  const T *, const T *, const int *, const T *, T *,
                                  const int *, std::size_t, std::size_t)) {
  const int shapes[][2] = {{1, 1}, {9, 4}, {16, 33}, {17, 1}, {70, 37}, {150, 300}, {301, 64}};
  unsigned seed = 31;
  for (const auto &sh : shapes) {
    const int n = sh[0], k = sh[1];
    for (char uplo : {'L', 'U'}) {
      for (char tr : {'N', 'T'}) {
        for (T beta : {T(0), T(1), T(0.5)}) {
          const int lda = (tr == 'N' ? n : k) + 1, ldc = n + 2;
          const auto a = random_matrix<T>(std::size_t(lda) * (tr == 'N' ? k : n), seed++);
          auto c = random_matrix<T>(std::size_t(ldc) * n, seed++);
          auto expect = c;
          const T alpha = T(-1.5);
          theirs(&uplo, &tr, &n, &k, &alpha, a.data(), &lda, &beta, expect.data(), &ldc, 1, 1);
          ours(&uplo, &tr, &n, &k, &alpha, a.data(), &lda, &beta, c.data(), &ldc, 1, 1);
          // The other triangle and the spare rows are compared too: they
          // must be left as they were.
          ASSERT_LE(max_difference(c, expect), 2 * rounding_bound<T>(k))
              << uplo << tr << " n=" << n << " k=" << k << " beta " << beta;
        }
      }
    }
  }
}

}  // namespace

TEST(DenseSyrk, DoubleOnOneAndTwoThreadsMatchesInstalledLibrary) {
  vekd::dense_thread_limit(1);
  check_updates<double>(vekd::dsyrk, dsyrk_);
  vekd::dense_thread_limit(2);
  check_updates<double>(vekd::dsyrk, dsyrk_);
}

TEST(DenseSyrk, SingleMatchesInstalledLibrary) {
  vekd::dense_thread_limit(2);
  check_updates<float>(vekd::ssyrk, ssyrk_);
}

TEST(DenseSyrk, ZeroFactorsScaleTheTriangleOnly) {
  const int n = 3, k = 2, zero_k = 0;
  std::vector<double> a(6, 1.0), c(9, 2.0);
  const double alpha = 1, half = 0.5;
  vekd::dsyrk("U", "N", &n, &zero_k, &alpha, a.data(), &n, &half, c.data(), &n, 1, 1);
  EXPECT_EQ(1.0, c[0 + 2 * 3]);  // upper triangle scaled
  EXPECT_EQ(2.0, c[2 + 0 * 3]);  // lower one untouched
  const double zero = 0;
  vekd::dsyrk("L", "N", &n, &k, &zero, a.data(), &n, &half, c.data(), &n, 1, 1);
  EXPECT_EQ(1.0, c[2 + 0 * 3]);
  EXPECT_EQ(1.0, c[0 + 2 * 3]);
}
