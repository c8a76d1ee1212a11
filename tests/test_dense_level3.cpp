// The library's level-3 routines against the installed BLAS. The matrix
// product: every processor type's kernel set on sizes that fill no tile or
// block, every pair of transposes, beta 0, 1 and other; the threaded frame.
// The triangular solve and the rank-k update on every side, triangle,
// transpose and diagonal, through the dispatch and the threaded frames. The
// quick returns of all three; and the processor type forced by
// VEK_DEBUG_CPU_TYPE, which reaches the product through the published frame
// bit for bit (the type is read once per process; each TEST runs in a
// process of its own).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "dense/vek_dense_kernels_wide.h"
#include "dense/vek_dense_level3.h"
#include "dense_reference.h"
#include "service/vek_serv_cpu.h"

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

// ours: the published trsm's arguments.
template <class T, class F>
void check_solves(F ours) {
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

TEST(DenseTrsm, EveryPrecisionMatchesInstalledLibrary) {
  vekd::dense_thread_limit(1);
  check_solves<double>(vekd::dtrsm);
  vekd::dense_thread_limit(2);
  check_solves<double>(vekd::dtrsm);
  check_solves<float>(vekd::strsm);
  check_solves<zc>(vekd::ztrsm);
  check_solves<cc>(vekd::ctrsm);
}

namespace wide_on_avx2 {
// The kernels of the widest processor type from the same source, compiled
// for AVX2: every vector of 64 bytes becomes two registers.
VEK_WIDE_KERNELS(__attribute__((target("avx2,fma"))), avx2)
}  // namespace wide_on_avx2

namespace {

// Type 7's set with its kernel replaced by the AVX2 build of the same one.
template <class T>
vekd::kernel_set<T> wide_set(vekd::micro_kernel<T> kernel) {
  vekd::kernel_set<T> s = vekd::kernel_set_of<T>(vekd::VEK_CPU_AVX512);
  s.kernel = kernel;
  return s;
}

template <class T>
void check_wide(const vekd::kernel_set<T> &s) {
  check_products<T>(s, vekd::VEK_CPU_AVX512, false);
  check_solves<T>([&s](const char *side, const char *uplo, const char *tr, const char *diag,
                       const int *m, const int *n, const T *alpha, const T *a, const int *lda,
                       T *b, const int *ldb, std::size_t, std::size_t, std::size_t,
                       std::size_t) {
    vekd::trsm_whole(s, *side, *uplo, *tr, *diag, *m, *n, *alpha, a, *lda, b, *ldb);
  });
}

}  // namespace

// The widest kernels' tiles, their blocking and the frames' local tiles for
// them, wherever AVX2 runs; on AVX-512 processors the type-7 case of the
// products above runs the kernels themselves.
TEST(DenseWideKernels, SameSourceOnAvx2MatchesInstalledLibrary) {
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma"))
    GTEST_SKIP() << "no AVX2";
  vekd::dense_thread_limit(1);
  check_wide<double>(wide_set<double>(wide_on_avx2::avx2_dkernel));
  check_wide<float>(wide_set<float>(wide_on_avx2::avx2_skernel));
  check_wide<zc>(wide_set<zc>(wide_on_avx2::avx2_zkernel));
  check_wide<cc>(wide_set<cc>(wide_on_avx2::avx2_ckernel));
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

// The rank-k updates: the symmetric one (S = T, transposing letter T) and
// the Hermitian one (S real, letter C).
template <class T, class S = T>
void check_updates(void (*ours)(const char *, const char *, const int *, const int *,
                                const S *, const T *, const int *, const S *, T *,
                                const int *, std::size_t, std::size_t),
                   void (*theirs)(const char *, const char *, const int *, const int *,
                                  const S *, const T *, const int *, const S *, T *,
                                  const int *, std::size_t, std::size_t),
                   char transposed = 'T') {
  const int shapes[][2] = {{1, 1}, {9, 4}, {16, 33}, {17, 1}, {70, 37}, {150, 300}, {301, 64}};
  unsigned seed = 31;
  for (const auto &sh : shapes) {
    const int n = sh[0], k = sh[1];
    for (char uplo : {'L', 'U'}) {
      for (char tr : {'N', transposed}) {
        for (S beta : {S(0), S(1), S(0.5)}) {
          const int lda = (tr == 'N' ? n : k) + 1, ldc = n + 2;
          const auto a = random_matrix<T>(std::size_t(lda) * (tr == 'N' ? k : n), seed++);
          auto c = random_matrix<T>(std::size_t(ldc) * n, seed++);
          auto expect = c;
          const S alpha = S(-1.5);
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

TEST(DenseSyrk, DoubleOnOneAndTwoThreadsAndSingleMatchInstalledLibrary) {
  vekd::dense_thread_limit(1);
  check_updates<double>(vekd::dsyrk, dsyrk_);
  vekd::dense_thread_limit(2);
  check_updates<double>(vekd::dsyrk, dsyrk_);
  check_updates<float>(vekd::ssyrk, ssyrk_);
}

// The diagonal of C comes out real: its imaginary parts, random before,
// are compared with the installed library's zeros.
TEST(DenseHerk, ComplexOnOneAndTwoThreadsMatchInstalledLibrary) {
  vekd::dense_thread_limit(1);
  check_updates<zc, double>(vekd::zherk, zherk_, 'C');
  check_updates<cc, float>(vekd::cherk, cherk_, 'C');
  vekd::dense_thread_limit(2);
  check_updates<zc, double>(vekd::zherk, zherk_, 'C');
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

namespace {

void expect_kernels_of(const char *text, int type) {
  bool runnable = false;
  for (int t : runnable_types()) runnable = runnable || t == type;
  if (!runnable) GTEST_SKIP() << "this processor can't run type " << type;
  setenv("VEK_DEBUG_CPU_TYPE", text, 1);
  ASSERT_EQ(type, vek_serv_cpu_detect());
  vekd::dense_thread_limit(1);
  const int m = 45, n = 38, k = 300;
  const auto a = random_matrix<double>(std::size_t(m) * k, 1);
  const auto b = random_matrix<double>(std::size_t(k) * n, 2);
  const auto c0 = random_matrix<double>(std::size_t(m) * n, 3);
  auto c = c0;
  const double alpha = 0.75, beta = -1;
  vekd::dgemm("N", "T", &m, &n, &k, &alpha, a.data(), &m, b.data(), &n, &beta, c.data(), &m,
              1, 1);
  for (int other : runnable_types()) {
    auto d = c0;
    vekd::gemm_whole(vekd::kernel_set_of<double>(other), 'N', 'T', m, n, k, alpha, a.data(), m,
                     b.data(), n, beta, d.data(), m);
    const auto &mine = vekd::kernel_set_of<double>(type);
    const auto &theirs = vekd::kernel_set_of<double>(other);
    if (mine.kernel == theirs.kernel && mine.kc == theirs.kc) {
      EXPECT_EQ(c, d) << "type " << other;
    } else {
      EXPECT_NE(c, d) << "type " << other;
    }
  }
}

}  // namespace

TEST(DenseDispatch, ForcedPlainType) { expect_kernels_of("0", 0); }
TEST(DenseDispatch, TypeOneMeansPlain) { expect_kernels_of("1", 0); }
TEST(DenseDispatch, ForcedSse2Type) { expect_kernels_of("2", 2); }
TEST(DenseDispatch, ForcedSse42Type) { expect_kernels_of("5", 5); }
TEST(DenseDispatch, ForcedAvx2Type) { expect_kernels_of("6", 6); }
TEST(DenseDispatch, ForcedAvx512Type) { expect_kernels_of("7", 7); }
