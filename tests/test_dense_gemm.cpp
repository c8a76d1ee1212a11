// The library's matrix product against the installed BLAS: every processor
// type's kernel set on sizes that fill no tile or block, every pair of
// transposes, beta 0, 1 and other; the threaded frame; the quick returns.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "dense/vek_dense_level3.h"
#include "dense_reference.h"

namespace {

template <class T>
std::vector<char> transposes() {
  if constexpr (std::is_same<T, zc>::value || std::is_same<T, cc>::value)
    return {'N', 'T', 'C'};
  else
    return {'N', 'T'};
}

// C of m x n with a leading dimension larger than m, operands stored with
// spare rows too, so that a routine that ignores a leading dimension fails.
template <class T>
void check_products(const vekd::kernel_set<T> &set, int type, bool frame) {
  const int sizes[][3] = {{1, 1, 1},    {7, 5, 3},     {17, 13, 19}, {37, 41, 300},
                          {131, 29, 7}, {23, 150, 61}, {260, 77, 515}};
  const T betas[] = {T(0), T(1), T(-0.75)};
  unsigned seed = 1;
  for (const auto &sz : sizes) {
    const int m = sz[0], n = sz[1], k = sz[2];
    for (char ta : transposes<T>()) {
      for (char tb : transposes<T>()) {
        for (T beta : betas) {
          const int lda = (ta == 'N' ? m : k) + 3, ldb = (tb == 'N' ? k : n) + 2, ldc = m + 5;
          const auto a = random_matrix<T>(std::size_t(lda) * (ta == 'N' ? k : m), seed++);
          const auto b = random_matrix<T>(std::size_t(ldb) * (tb == 'N' ? n : k), seed++);
          auto c = random_matrix<T>(std::size_t(ldc) * n, seed++);
          // With beta 0, C's old values must not be read: NaN stays out.
          if (beta == T(0)) c[0] = T(std::numeric_limits<double>::quiet_NaN());
          auto expect = c;
          const T alpha = T(1.25);
          ref<T>::gemm(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta,
                       expect.data(), ldc);
          if (frame) {
            vekd::gemm_frame<T>(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta,
                                c.data(), ldc);
          } else {
            vekd::gemm_whole(set, ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta,
                             c.data(), ldc);
          }
          ASSERT_LE(max_difference(c, expect), 3 * rounding_bound<T>(k))
              << "type " << type << " m=" << m << " n=" << n << " k=" << k << " " << ta
              << tb << " beta " << std::abs(beta);
        }
      }
    }
  }
}

template <class T>
void check_every_type() {
  for (int type : runnable_types())
    check_products<T>(vekd::kernel_set_of<T>(type), type, false);
}

}  // namespace

TEST(DenseGemm, DoubleEveryTypeMatchesInstalledLibrary) { check_every_type<double>(); }
TEST(DenseGemm, SingleEveryTypeMatchesInstalledLibrary) { check_every_type<float>(); }
TEST(DenseGemm, ComplexEveryTypeMatchesInstalledLibrary) { check_every_type<zc>(); }
TEST(DenseGemm, SingleComplexEveryTypeMatchesInstalledLibrary) { check_every_type<cc>(); }

// The frame on two threads: splits by rows and by columns, the cost test of
// small products, and shares that end inside a tile.
TEST(DenseGemm, FrameOnTwoThreadsMatchesInstalledLibrary) {
  vekd::dense_thread_limit(2);
  check_products<double>(vekd::kernel_set_of<double>(0), -1, true);
  check_products<zc>(vekd::kernel_set_of<zc>(0), -1, true);
}

TEST(DenseGemm, BlocksOfTheInnerDimensionAndOfTheColumns) {
  // k beyond two blocks and n beyond one block of columns of every set.
  const int m = 70, n = 2100, k = 1100;
  const auto a = random_matrix<double>(std::size_t(m) * k, 5);
  const auto b = random_matrix<double>(std::size_t(k) * n, 6);
  std::vector<double> expect(std::size_t(m) * n, 0.5), c = expect;
  ref<double>::gemm('N', 'N', m, n, k, -1.0, a.data(), m, b.data(), k, 1.0, expect.data(), m);
  vekd::dense_thread_limit(2);
  vekd::gemm_frame<double>('N', 'N', m, n, k, -1.0, a.data(), m, b.data(), k, 1.0, c.data(),
                           m);
  EXPECT_LE(max_difference(c, expect), rounding_bound<double>(k));
}

TEST(DenseGemm, QuickReturnsAndZeroFactors) {
  std::vector<double> a(16, 1.0), b(16, 1.0), c(16, 2.0);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // m or n zero: nothing changes.
  vekd::gemm_frame<double>('N', 'N', 0, 4, 4, 1.0, a.data(), 4, b.data(), 4, 0.0, c.data(), 4);
  vekd::gemm_frame<double>('N', 'N', 4, 0, 4, 1.0, a.data(), 4, b.data(), 4, 0.0, c.data(), 4);
  EXPECT_EQ(2.0, c[0]);
  // k zero scales C by beta.
  vekd::gemm_frame<double>('N', 'N', 4, 4, 0, 1.0, a.data(), 4, b.data(), 4, 3.0, c.data(), 4);
  EXPECT_EQ(6.0, c[5]);
  // alpha zero reads neither A nor B.
  a[0] = nan;
  vekd::gemm_frame<double>('N', 'N', 4, 4, 4, 0.0, a.data(), 4, b.data(), 4, 0.5, c.data(), 4);
  EXPECT_EQ(3.0, c[15]);
  // beta zero with alpha zero clears C, NaN included.
  c[3] = nan;
  vekd::gemm_frame<double>('N', 'N', 4, 4, 4, 0.0, a.data(), 4, b.data(), 4, 0.0, c.data(), 4);
  for (double x : c) EXPECT_EQ(0.0, x);
}
