// The library's LU and Cholesky factorizations and their kernels against
// the installed LAPACK: the same info and the same ipiv, factors equal to
// rounding, on sizes around the block sizes of the oracle, on one to four
// threads (the serial panel, the tile scheduler, the wave scheduler and the
// look-ahead form), with singular and indefinite blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "dense/vek_dense.h"
#include "dense/vek_dense_lapack.h"
#include "dense_reference.h"
#include "service/vek_serv_message.h"
#include "service/vek_serv_threads.h"
#include "test_system.h"

extern "C" {
#define REF_LAPACK(P, T)                                                                   \
  void P##getrf_(const int *, const int *, T *, const int *, int *, int *);               \
  void P##potf2_(const char *, const int *, T *, const int *, int *, std::size_t);        \
  void P##potrf_(const char *, const int *, T *, const int *, int *, std::size_t);        \
  void P##laswp_(const int *, T *, const int *, const int *, const int *, const int *,    \
                 const int *);
REF_LAPACK(d, double) REF_LAPACK(s, float) REF_LAPACK(z, zc) REF_LAPACK(c, cc)
}

namespace {

template <class T> struct lapack;
#define BIND(P, T)                                                                         \
  template <> struct lapack<T> {                                                           \
    static constexpr auto getrf = vekd::P##getrf;                                          \
    static constexpr auto lookahead = vekd::P##getrf_lookahead;                            \
    static constexpr auto potf2 = vekd::P##potf2;                                          \
    static constexpr auto potrf = vekd::P##potrf;                                          \
    static constexpr auto ref_getrf = P##getrf_;                                           \
    static constexpr auto ref_potf2 = P##potf2_;                                           \
    static constexpr auto ref_potrf = P##potrf_;                                           \
  };
BIND(d, double) BIND(s, float) BIND(z, zc) BIND(c, cc)
#undef BIND

// Up to four threads whatever the machine has; each TEST runs in a process
// of its own, and the setters come before the first query.
void allow_four_threads() {
  vek_serv_set_dynamic(0);
  vek_serv_domain_set_num_threads(4, VEK_DOMAIN_BLAS);
}

template <class T>
double largest(const std::vector<T> &v) {
  double x = 0;
  for (const T &e : v) x = std::max(x, double(std::abs(e)));
  return x;
}

// A random m x n matrix, leading dimension lda. With dominant set, column
// j has a large entry in a row of a random permutation, so that the pivot
// order leaves no close call for rounding to decide.
template <class T>
std::vector<T> lu_matrix(int m, int n, int lda, unsigned seed, bool dominant) {
  auto a = random_matrix<T>(std::size_t(lda) * n, seed);
  if (dominant) {
    std::vector<int> rows(m);
    std::iota(rows.begin(), rows.end(), 0);
    std::mt19937 g(seed);
    std::shuffle(rows.begin(), rows.end(), g);
    for (int j = 0; j < std::min(m, n); ++j)
      a[rows[j] + std::size_t(j) * lda] += T(4.0 * (m + n) * (1.0 + 0.01 * j));
  }
  return a;
}

template <class T>
void check_lu(int m, int n, int threads, unsigned seed, bool dominant,
              std::vector<int> zero_columns = {}, bool lookahead = false) {
  const int lda = m + 3;
  auto a = lu_matrix<T>(m, n, lda, seed, dominant);
  for (int c : zero_columns)
    for (int i = 0; i < m; ++i) a[i + std::size_t(c - 1) * lda] = T(0);
  auto ref = a;
  const int mn = std::min(m, n);
  std::vector<int> ipiv(mn + 1, -7), ipiv_ref(mn + 1, -7);
  int info = -99, info_ref = -99;
  lapack<T>::ref_getrf(&m, &n, ref.data(), &lda, ipiv_ref.data(), &info_ref);
  vekd::dense_thread_limit(threads);
  if (lookahead) {
    const int zero = 0;
    lapack<T>::lookahead(&m, &n, a.data(), &lda, ipiv.data(), &info, &zero, &zero);
  } else {
    lapack<T>::getrf(&m, &n, a.data(), &lda, ipiv.data(), &info);
  }
  const std::string where = "m=" + std::to_string(m) + " n=" + std::to_string(n) +
                            " threads=" + std::to_string(threads);
  ASSERT_EQ(info_ref, info) << where;
  ASSERT_EQ(ipiv_ref, ipiv) << where;  // the entry past min(m, n) stays untouched too
  const double bound = rounding_bound<T>(4 * std::max(m, n)) * std::max(1.0, largest(ref));
  EXPECT_LE(max_difference(a, ref), bound) << where;
}

// Sizes around the oracle's blocks: the leaf of 8 columns, the threshold
// 64 of the threaded path, panels of 24, 32 and 64 columns, the halving
// of the recursive panel above 256, wide and tall blocks.
const int lu_shapes[][2] = {{1, 1},   {5, 3},    {3, 5},     {9, 9},    {33, 40},
                            {64, 64}, {65, 65},  {100, 20},  {20, 100}, {129, 97},
                            {97, 160}, {257, 257}, {300, 220}, {200, 330}};

template <class T>
void check_lu_family(bool dominant) {
  unsigned seed = 5;
  for (int threads = 1; threads <= 4; ++threads)
    for (const auto &s : lu_shapes) check_lu<T>(s[0], s[1], threads, seed++, dominant);
}

}  // namespace

TEST(DenseGetrf, DoubleMatchesInstalledLapackOnOneToFourThreads) {
  allow_four_threads();
  check_lu_family<double>(false);
  // Two threads above 900 columns: panels of 64, groups of three tiles and
  // a tail of four.
  check_lu<double>(1000, 1000, 2, 77, false);
  check_lu<double>(1000, 1000, 3, 78, true);
}

TEST(DenseGetrf, OtherPrecisionsMatchInstalledLapack) {
  allow_four_threads();
  check_lu_family<float>(true);
  check_lu_family<zc>(false);
  check_lu_family<cc>(true);
  check_lu<zc>(950, 950, 2, 79, false);  // panels of 128 on two threads
}

TEST(DenseGetrf, ZeroPivotsReportTheFirstColumnAndTheFactorizationGoesOn) {
  allow_four_threads();
  for (int threads = 1; threads <= 3; ++threads) {
    check_lu<double>(300, 300, threads, 90, false, {70});
    check_lu<double>(300, 300, threads, 91, false, {70, 5});
    check_lu<double>(250, 300, threads, 92, false, {250});
    check_lu<zc>(200, 200, threads, 93, false, {130, 131});
    check_lu<float>(200, 200, threads, 94, true, {199});
  }
}

TEST(DenseGetrf, LookAheadFormMatchesInstalledLapack) {
  allow_four_threads();
  for (int threads = 1; threads <= 3; ++threads) {
    check_lu<double>(300, 300, threads, 100, false, {}, true);
    check_lu<double>(200, 350, threads, 101, false, {}, true);
    check_lu<double>(400, 150, threads, 102, false, {60}, true);
    check_lu<zc>(260, 260, threads, 103, false, {}, true);
  }
}

namespace {

int xerbla_calls = 0, xerbla_info = 0;
void count_xerbla(const char *, const int *info, int) {
  ++xerbla_calls;
  xerbla_info = *info;
}

}  // namespace

TEST(DenseGetrf, EmptyAndBadArguments) {
  vek_serv_set_xerbla(count_xerbla);
  double a[4] = {1, 2, 3, 4};
  int ipiv[2] = {-7, -7}, info = 5;
  const int zero = 0, two = 2, one = 1, minus = -1;
  vekd::dgetrf(&zero, &two, a, &two, ipiv, &info);
  EXPECT_EQ(0, info);
  vekd::dgetrf(&two, &zero, a, &two, ipiv, &info);
  EXPECT_EQ(0, info);
  EXPECT_EQ(-7, ipiv[0]);
  EXPECT_EQ(1.0, a[0]);
  EXPECT_EQ(0, xerbla_calls);
  vekd::dgetrf(&minus, &two, a, &two, ipiv, &info);
  EXPECT_EQ(-1, info);
  vekd::dgetrf(&two, &minus, a, &two, ipiv, &info);
  EXPECT_EQ(-2, info);
  vekd::dgetrf(&two, &two, a, &one, ipiv, &info);
  EXPECT_EQ(-4, info);
  EXPECT_EQ(3, xerbla_calls);
  EXPECT_EQ(4, xerbla_info);
  vekd::dpotrf("X", &two, a, &two, &info, 1);
  EXPECT_EQ(-1, info);
  vekd::zpotf2("U", &two, nullptr, &one, &info, 1);
  EXPECT_EQ(-4, info);
  EXPECT_EQ(5, xerbla_calls);
  vek_serv_set_xerbla(nullptr);
}

namespace {

template <class T>
T conj_of(T x) { return x; }
template <class R>
std::complex<R> conj_of(std::complex<R> x) { return std::conj(x); }

// A symmetric (Hermitian) positive definite matrix with unit-sized
// entries off the diagonal; with bad set, the pivot of column bad fails.
// A complex diagonal carries imaginary parts, which must not be read.
template <class T>
std::vector<T> spd_matrix(int n, int lda, unsigned seed, int bad) {
  auto b = random_matrix<T>(std::size_t(lda) * n, seed);
  std::vector<T> a(std::size_t(lda) * n, T(0));
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i <= j; ++i) {
      T v = i == j ? T(n) + T(std::abs(b[i + std::size_t(j) * lda])) : b[i + std::size_t(j) * lda];
      if (i == j) v += T(0.5) * (b[i + std::size_t(j) * lda] - conj_of(b[i + std::size_t(j) * lda]));
      a[i + std::size_t(j) * lda] = v;
      a[j + std::size_t(i) * lda] = conj_of(v);
    }
  }
  if (bad > 0) a[(bad - 1) * (std::size_t(lda) + 1)] = T(-1);
  return a;
}

template <class T>
void check_cholesky(char uplo, int n, int threads, unsigned seed, int bad, bool unblocked) {
  const int lda = n + 2;
  auto a = spd_matrix<T>(n, lda, seed, bad);
  auto ref = a;
  int info = -99, info_ref = -99;
  vekd::dense_thread_limit(threads);
  if (unblocked) {
    lapack<T>::ref_potf2(&uplo, &n, ref.data(), &lda, &info_ref, 1);
    lapack<T>::potf2(&uplo, &n, a.data(), &lda, &info, 1);
  } else {
    lapack<T>::ref_potrf(&uplo, &n, ref.data(), &lda, &info_ref, 1);
    lapack<T>::potrf(&uplo, &n, a.data(), &lda, &info, 1);
  }
  const std::string where = std::string(1, uplo) + " n=" + std::to_string(n) +
                            " threads=" + std::to_string(threads);
  ASSERT_EQ(info_ref, info) << where;
  // Past a failed pivot the blocks to its right and below may stand at
  // different stages; the factor of the leading block is finished in both.
  const int upto = info > 0 ? info - 1 : n;
  double d = 0;
  for (int j = 0; j < upto; ++j)
    for (int i = 0; i < upto; ++i) {
      const bool in = uplo == 'U' ? i <= j : i >= j;
      if (in) d = std::max(d, double(std::abs(a[i + std::size_t(j) * lda] - ref[i + std::size_t(j) * lda])));
    }
  EXPECT_LE(d, rounding_bound<T>(n) * std::sqrt(double(n)) * 4) << where;
}

}  // namespace

TEST(DensePotrf, MatchesInstalledLapackAroundEveryBlockSize) {
  allow_four_threads();
  // 127 and 128 on either side of the unblocked threshold; the recursive
  // blocks of 24, 32, 56 and 96; 699 and 700 on either side of the block
  // of 8 on two threads; the wave with several groups above 1000.
  const int sizes[] = {1, 8, 127, 128, 129, 300, 451, 699, 700, 1001};
  unsigned seed = 200;
  for (int threads = 1; threads <= 4; ++threads)
    for (int n : sizes)
      for (char uplo : {'L', 'U'}) {
        check_cholesky<double>(uplo, n, threads, seed++, 0, false);
        if (n <= 451) check_cholesky<float>(uplo, n, threads, seed++, 0, false);
      }
}

TEST(DensePotrf, NotPositiveDefiniteNamesTheColumn) {
  allow_four_threads();
  unsigned seed = 300;
  for (int threads = 1; threads <= 3; ++threads)
    for (int bad : {1, 100, 129, 600})
      for (char uplo : {'L', 'U'}) check_cholesky<double>(uplo, 700, threads, seed++, bad, false);
  check_cholesky<float>('L', 300, 2, seed++, 290, false);
}

TEST(DensePotrf, ComplexMatchesInstalledLapackAroundBlockSizes) {
  allow_four_threads();
  // The unblocked threshold 128, the recursive blocks of 24 and 32 on one
  // thread, the wave of tiles of 32 and 40 on two and three.
  const int sizes[] = {1, 8, 127, 128, 129, 300, 451, 560};
  unsigned seed = 500;
  for (int threads = 1; threads <= 3; ++threads)
    for (int n : sizes)
      for (char uplo : {'L', 'U'}) {
        check_cholesky<zc>(uplo, n, threads, seed++, 0, false);
        if (n <= 300) check_cholesky<cc>(uplo, n, threads, seed++, 0, false);
      }
}

TEST(DensePotrf, ComplexNotPositiveDefiniteNamesTheColumn) {
  allow_four_threads();
  unsigned seed = 600;
  // In the first block, on a block edge and inside a later block, on the
  // recursive form and in the wave.
  for (int threads = 1; threads <= 2; ++threads)
    for (int bad : {1, 25, 129, 290})
      for (char uplo : {'L', 'U'}) {
        check_cholesky<zc>(uplo, 300, threads, seed++, bad, false);
        check_cholesky<cc>(uplo, 300, threads, seed++, bad, false);
      }
}

// The interface finds the installed routines at run time: without the
// switch its results are those of the installed library to the bit, with it
// those of the library's own.
TEST(DenseInterface, TheSwitchChoosesBetweenTheInstalledAndTheOwnRoutines) {
  vekd::dense_thread_limit(1);
  const int n = 300, lda = n + 1;
  const auto spd = spd_matrix<zc>(n, lda, 700, 0);
  const auto lu = lu_matrix<double>(n, n, lda, 701, false);
  for (int own : {0, 1}) {
    vekd::use_own_level3(own);
    auto a = spd, ref = spd;
    int info = -1, info_ref = -1;
    vekd::potrf<zc>("U", &n, a.data(), &lda, &info);
    if (own) vekd::zpotrf("U", &n, ref.data(), &lda, &info_ref, 1);
    else zpotrf_("U", &n, ref.data(), &lda, &info_ref, 1);
    EXPECT_EQ(0, info);
    EXPECT_EQ(0, info_ref);
    EXPECT_TRUE(a == ref) << "potrf, own " << own;
    auto b = lu, bref = lu;
    std::vector<int> ipiv(n), ipiv_ref(n);
    vekd::getrf<double>(&n, &n, b.data(), &lda, ipiv.data(), &info);
    if (own) vekd::dgetrf(&n, &n, bref.data(), &lda, ipiv_ref.data(), &info_ref);
    else dgetrf_(&n, &n, bref.data(), &lda, ipiv_ref.data(), &info_ref);
    EXPECT_TRUE(b == bref && ipiv == ipiv_ref) << "getrf, own " << own;
  }
  vekd::use_own_level3(1);
}

TEST(DensePotf2, AllPrecisionsMatchInstalledLapack) {
  unsigned seed = 400;
  for (int n : {1, 2, 7, 40, 101})
    for (char uplo : {'L', 'U'})
      for (int bad : {0, (n + 1) / 2}) {
        check_cholesky<double>(uplo, n, 1, seed++, bad, true);
        check_cholesky<float>(uplo, n, 1, seed++, bad, true);
        check_cholesky<zc>(uplo, n, 1, seed++, bad, true);
        check_cholesky<cc>(uplo, n, 1, seed++, bad, true);
      }
}

TEST(DensePotf2, NaNPivotIsNeverSuccess) {
  std::vector<double> a = spd_matrix<double>(10, 10, 9, 0);
  a[4 * 11] = std::numeric_limits<double>::quiet_NaN();
  const int n = 10;
  int info = 0;
  vekd::dpotf2("L", &n, a.data(), &n, &info, 1);
  EXPECT_EQ(5, info);
}

TEST(DenseLaswp, MatchesInstalledLapackForEveryStride) {
  const int m = 40, n = 13, lda = 43;
  std::mt19937 g(3);
  std::vector<int> ipiv(80);
  for (int i = 0; i < 80; ++i) ipiv[i] = 1 + int(g() % m);
  for (int incx : {1, 2, -1, -3})
    for (int k1 : {1, 6})
      for (int k2 : {k1, k1 + 2, 17}) {
        auto a = random_matrix<zc>(std::size_t(lda) * n, 50 + k2);
        auto ref = a;
        vekd::zlaswp(&n, a.data(), &lda, &k1, &k2, ipiv.data(), &incx);
        zlaswp_(&n, ref.data(), &lda, &k1, &k2, ipiv.data(), &incx);
        EXPECT_EQ(ref, a) << "incx=" << incx << " k1=" << k1 << " k2=" << k2;
      }
}

namespace {

// Analysis, factorization and solve of a generated matrix through the
// entry, with the solver's dense routines of one library or the other.
std::vector<double> solve_with(const vektest::typed_matrix &c, int threads, bool own,
                               int *error, double *residual) {
  vekd::use_own_level3(own ? 1 : 0);
  vek_serv_set_dynamic(0);
  vek_serv_set_num_threads(threads);
  vektest::system s(c.m, c.mtype, 2);
  *error = s.call(13);
  *residual = s.residual(s.x);
  vekd::use_own_level3(1);
  return s.x;
}

}  // namespace

TEST(DenseOwnRoutines, SolverOfEveryTypeGivesWhatTheInstalledLibraryGives) {
  // A Laplacian whose top separators exceed the unblocked Cholesky's 128
  // columns, so that the blocked form runs inside the solver.
  for (const vektest::typed_matrix &c : vektest::every_type(14)) {
    SCOPED_TRACE(c.name);
    int e0 = 0;
    double r0 = 0;
    const std::vector<double> x0 = solve_with(c, 1, false, &e0, &r0);
    ASSERT_EQ(0, e0);
    for (int threads : {1, 2}) {
      int e = -1;
      double r = 1;
      const std::vector<double> x = solve_with(c, threads, true, &e, &r);
      EXPECT_EQ(0, e) << threads;
      EXPECT_LE(r, 1e-14) << threads;
      EXPECT_LE(vektest::rel_diff(x, x0), 1e-10) << threads;
    }
  }
}

namespace {

int progress_calls = 0, stop_after = 0;
int stopping_hook(int *, int *, const char *, int) {
  return ++progress_calls > stop_after ? 1 : 0;
}

}  // namespace

TEST(DenseProgress, AStopFromTheHookEndsEveryFormWithoutHanging) {
  allow_four_threads();
  vek_serv_set_progress(stopping_hook);
  for (int threads : {1, 2, 3}) {
    for (int after : {0, 3}) {
      vekd::dense_thread_limit(threads);
      stop_after = after;
      progress_calls = 0;
      const int n = 400;
      auto a = lu_matrix<double>(n, n, n, 7, false);
      std::vector<int> ipiv(n);
      int info = -1;
      vekd::dgetrf(&n, &n, a.data(), &n, ipiv.data(), &info);
      EXPECT_EQ(0, info);
      // The calls stop soon after the hook first asks: at most one report
      // more per thread.
      EXPECT_LE(progress_calls, after + 1 + threads);
      progress_calls = 0;
      auto s = spd_matrix<double>(n, n, 8, 0);
      vekd::dpotrf("L", &n, s.data(), &n, &info, 1);
      EXPECT_EQ(0, info);
      EXPECT_LE(progress_calls, after + 1 + threads);
    }
  }
  vek_serv_set_progress(nullptr);
}
