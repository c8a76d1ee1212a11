// The sparse product of the refinement and the extended-precision residual,
// in all four value kinds, against products formed from the full matrix.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "residual_product.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

using tlm::ccomplex;
using tlm::zcomplex;
typedef std::complex<long double> lcx;

template <class T> constexpr bool is_cx() { return tlm::value_traits<T>::is_complex; }

template <class T> T make(double re, double im) {
  if constexpr (is_cx<T>()) {
    using R = tlm::real_of<T>;
    return T(R(re), R(im));
  } else {
    (void)im;
    return T(re);
  }
}
template <class T> lcx wide(const T &v) {
  if constexpr (is_cx<T>())
    return lcx(v.real(), v.imag());
  else
    return lcx(v, 0);
}

// Value p of a matrix in the vekio form, rounded to T.
template <class T> T value_at(const vekio::sparse &m, int p) {
  return m.cplx ? make<T>(m.a[2 * p], m.a[2 * p + 1]) : make<T>(m.a[p], 0.0);
}
template <class T> std::vector<T> values_as(const vekio::sparse &m) {
  std::vector<T> v(m.nnz());
  for (int p = 0; p < m.nnz(); ++p) v[p] = value_at<T>(m, p);
  return v;
}

enum class kind { general, symmetric, hermitian };

// A random square matrix in full storage with a diagonal and about two
// further entries per row; symmetric and Hermitian ones mirror them
// (conjugated for Hermitian, whose diagonal is real). A general one leaves
// row and column 3 empty. off(g) and diag(g) give the values.
template <class Off, class Diag>
vekio::sparse random_matrix(int n, kind k, bool cplx, unsigned seed, Off off, Diag diag) {
  std::mt19937 g(seed);
  std::uniform_int_distribution<int> col(1, n);
  std::map<std::pair<int, int>, zcomplex> e;
  for (int i = 1; i <= n; ++i) {
    if (k == kind::general && i == 3) continue;
    const zcomplex d = diag(g);
    e[{i, i}] = !cplx || k == kind::hermitian ? zcomplex(d.real(), 0.0) : d;
    for (int t = 0; t < 2; ++t) {
      const int j = col(g);
      if (j == i || (k == kind::general && j == 3)) continue;
      zcomplex v = off(g);
      if (!cplx) v = zcomplex(v.real(), 0.0);
      e[{i, j}] = v;
      if (k != kind::general) e[{j, i}] = k == kind::hermitian ? std::conj(v) : v;
    }
  }
  vekio::sparse m;
  m.n = n;
  m.cplx = cplx;
  m.ia.assign(n + 1, 0);
  for (const auto &kv : e) ++m.ia[kv.first.first];
  m.ia[0] = 1;
  for (int i = 1; i <= n; ++i) m.ia[i] += m.ia[i - 1];
  for (const auto &kv : e) {
    m.ja.push_back(kv.first.second);
    m.a.push_back(kv.second.real());
    if (cplx) m.a.push_back(kv.second.imag());
  }
  return m;
}

vekio::sparse random_matrix(int n, kind k, bool cplx, unsigned seed) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  auto val = [&u](std::mt19937 &g) { return zcomplex(u(g), u(g)); };
  auto dia = [&u](std::mt19937 &g) { return zcomplex(4.0 + u(g), u(g)); };
  return random_matrix(n, k, cplx, seed, val, dia);
}

// y = A x or A^T x from the full matrix, with its values rounded to T, in
// long double; bound(k) = sum of |a| |x| and count(k) = terms of y(k).
template <class T>
void reference(const vekio::sparse &full, bool trans, int nb, const std::vector<T> &x,
               std::vector<lcx> &y, std::vector<long double> &bound, std::vector<int> &count) {
  const int n = full.n;
  y.assign(static_cast<size_t>(n) * nb, lcx(0));
  bound.assign(y.size(), 0);
  count.assign(y.size(), 0);
  for (int s = 0; s < nb; ++s)
    for (int i = 0; i < n; ++i)
      for (int p = full.ia[i] - 1; p < full.ia[i + 1] - 1; ++p) {
        const int c = full.ja[p] - 1;
        const lcx v = wide(value_at<T>(full, p));
        const int to = trans ? c : i, from = trans ? i : c;
        const lcx xv = wide(x[from + n * s]);
        y[to + n * s] += v * xv;
        bound[to + n * s] += std::abs(v) * std::abs(xv);
        ++count[to + n * s];
      }
}

template <class T> T nan_value() {
  const double q = std::numeric_limits<double>::quiet_NaN();
  return make<T>(q, q);
}

// residual_product for the storage of mtype, several sides, both
// directions and 1 to 3 threads: every result near the reference, the
// thread counts bit for bit alike, y wholly written, the scratch area kept.
template <class T> void check_product(const vekio::sparse &full, int mtype, const std::string &what) {
  SCOPED_TRACE(what + ", type " + std::to_string(mtype));
  const vekio::sparse st = vekio::storage_for_type(full, mtype);
  const std::vector<T> a = values_as<T>(st);
  const int n = full.n;
  const double eps = std::numeric_limits<tlm::real_of<T>>::epsilon();
  std::mt19937 g(17);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int nb : {1, 3}) {
    std::vector<T> x(static_cast<size_t>(n) * nb);
    for (T &v : x) v = make<T>(u(g), u(g));
    for (int trans : {0, 1}) {
      std::vector<lcx> yref;
      std::vector<long double> bound;
      std::vector<int> count;
      reference(full, trans != 0, nb, x, yref, bound, count);
      std::vector<T> first;
      for (int threads : {1, 2, 3}) {
        SCOPED_TRACE("nb " + std::to_string(nb) + ", trans " + std::to_string(trans) +
                     ", threads " + std::to_string(threads));
        const T canary = make<T>(7.5, -2.5);
        const size_t ns = 2 * static_cast<size_t>(threads) * nb;
        std::vector<T> y(x.size(), nan_value<T>()), scratch(ns + 8, canary);
        tlm::residual_product<T>(&trans, &n, &nb, &mtype, &threads, st.ia.data(), st.ja.data(),
                                 a.data(), x.data(), y.data(), scratch.data());
        int bad = 0;
        for (size_t k = 0; k < y.size(); ++k) {
          const long double err = std::abs(wide(y[k]) - yref[k]);
          const long double tol = 4 * eps * (count[k] + 2) * bound[k];
          if (!(err <= tol) && bad++ < 3)
            ADD_FAILURE() << "y(" << k << ") off by " << static_cast<double>(err)
                          << ", bound " << static_cast<double>(tol);
        }
        for (size_t k = ns; k < scratch.size(); ++k) EXPECT_EQ(scratch[k], canary);
        if (threads == 1)
          first = y;
        else
          EXPECT_TRUE(y == first) << "the result depends on the thread count";
      }
    }
  }
}

template <class T> class ResidualProduct : public ::testing::Test {};
typedef ::testing::Types<double, float, zcomplex, ccomplex> Kinds;
TYPED_TEST_SUITE(ResidualProduct, Kinds);

TYPED_TEST(ResidualProduct, MatchesTheFullMatrixInEveryStorage) {
  using T = TypeParam;
  const bool cx = is_cx<T>();
  // Full storage with an empty row, and the triangles of each kind; and a
  // larger matrix from the collection.
  check_product<T>(random_matrix(61, kind::general, cx, 1), cx ? 13 : 11, "general");
  check_product<T>(random_matrix(53, kind::symmetric, cx, 2), cx ? 6 : -2, "symmetric");
  vekio::sparse m;
  if (cx) {
    check_product<T>(random_matrix(53, kind::hermitian, cx, 3), 4, "Hermitian");
    if (vektest::load("mhd1280b", m)) check_product<T>(m, -4, "mhd1280b");
  } else {
    if (vektest::load("west0479", m)) check_product<T>(m, 11, "west0479");
    if (vektest::load("bcsstk01", m)) check_product<T>(m, 2, "bcsstk01");
  }
}

// ---------------------------------------------------------------------------
// The extended residual. Values are i + p 2^-h with small integers i and p,
// h = 28 for double and 13 for single precision, for the matrix and for x:
// each product has bits from 2^2 down to 2^-2h, more than the working
// format holds and fewer than the extended one, so that the exact residual
// follows from integers scaled by 2^2h, and only an extended accumulation
// finds it.
// ---------------------------------------------------------------------------

template <class T> constexpr int half_bits() {
  return std::is_same<tlm::real_of<T>, double>::value ? 28 : 13;
}

struct cint {
  long long re, im;
};

template <class T> cint scaled(const T &v, int bits) {
  const lcx w = wide(v);
  return {std::llround(std::ldexp(w.real(), bits)), std::llround(std::ldexp(w.imag(), bits))};
}

template <class T> T from_scaled(const cint &v, int bits) {
  return make<T>(static_cast<double>(std::ldexp(static_cast<long double>(v.re), -bits)),
                 static_cast<double>(std::ldexp(static_cast<long double>(v.im), -bits)));
}

// i + p 2^-h, i from lo to hi and p from -3 to 3.
double fine(std::mt19937 &g, int h, int lo, int hi) {
  const int i = std::uniform_int_distribution<int>(lo, hi)(g);
  return std::ldexp(double(i * (1 << h) + std::uniform_int_distribution<int>(-3, 3)(g)), -h);
}

template <class T> void check_extended(const vekio::sparse &full, int mtype, const std::string &what) {
  SCOPED_TRACE(what + ", type " + std::to_string(mtype));
  using E = tlm::ext_t<T>;
  const int h = half_bits<T>(), n = full.n, nb = 2;
  const vekio::sparse st = vekio::storage_for_type(full, mtype);
  const std::vector<T> a = values_as<T>(st);
  std::mt19937 g(23);
  std::vector<T> x(static_cast<size_t>(n) * nb);
  for (T &v : x) v = make<T>(fine(g, h, -1, 1), fine(g, h, -1, 1));
  std::vector<E> xe(x.size());
  const int count = static_cast<int>(x.size());
  tlm::refine_to_extended<T>(&count, x.data(), xe.data());

  for (int trans : {0, 1}) {
    SCOPED_TRACE("trans " + std::to_string(trans));
    // A x exactly, scaled by 2^2h.
    std::vector<cint> ax(x.size(), cint{0, 0});
    long double largest = 0;
    for (int s = 0; s < nb; ++s)
      for (int i = 0; i < n; ++i)
        for (int p = full.ia[i] - 1; p < full.ia[i + 1] - 1; ++p) {
          const int c = full.ja[p] - 1;
          const int to = (trans ? c : i) + n * s, from = (trans ? i : c) + n * s;
          const cint av = scaled(value_at<T>(full, p), h), xv = scaled(x[from], h);
          ax[to].re += av.re * xv.re - av.im * xv.im;
          ax[to].im += av.re * xv.im + av.im * xv.re;
          largest = std::max(largest, std::fabs(static_cast<long double>(ax[to].re)) +
                                          std::fabs(static_cast<long double>(ax[to].im)));
        }
    ASSERT_LT(largest, std::ldexp(1.0L, 60)) << "the construction leaves the integer range";

    // b is A x rounded to T; the exact residual is b - A x.
    std::vector<T> b(x.size()), want(x.size());
    long double want_sum = 0;
    int nonzero = 0;
    for (size_t k = 0; k < x.size(); ++k) {
      b[k] = from_scaled<T>(ax[k], 2 * h);
      const cint bs = scaled(b[k], 2 * h);
      const cint r{bs.re - ax[k].re, bs.im - ax[k].im};
      want[k] = from_scaled<T>(r, 2 * h);
      want_sum += std::abs(wide(want[k]));
      if (r.re != 0 || r.im != 0) ++nonzero;
    }
    ASSERT_GT(nonzero, n / 2) << "too few residuals away from zero to tell anything";

    std::vector<T> r(x.size(), nan_value<T>());
    std::vector<E> work(n);
    const double sum = tlm::residual_extended<T>(&trans, &n, &nb, &mtype, st.ia.data(),
                                                 st.ja.data(), a.data(), xe.data(), b.data(),
                                                 r.data(), work.data());
    int bad = 0;
    for (size_t k = 0; k < x.size(); ++k)
      if (!(r[k] == want[k]) && bad++ < 3)
        ADD_FAILURE() << "r(" << k << ") = " << wide(r[k]).real() << ", exact "
                      << wide(want[k]).real();
    // The sum of moduli (not of the words) of r.
    EXPECT_NEAR(sum, static_cast<double>(want_sum), 1e-12 * static_cast<double>(want_sum));

    // The same residual in working precision misses it.
    const int one = 1;
    std::vector<T> y(x.size()), scratch(2 * nb);
    tlm::residual_product<T>(&trans, &n, &nb, &mtype, &one, st.ia.data(), st.ja.data(),
                             a.data(), x.data(), y.data(), scratch.data());
    int differ = 0;
    for (size_t k = 0; k < x.size(); ++k)
      if (!(b[k] - y[k] == want[k])) ++differ;
    EXPECT_GT(differ, n / 4) << "the working-precision residual is exact as well";
  }
}

template <class T> class ResidualExtended : public ::testing::Test {};
TYPED_TEST_SUITE(ResidualExtended, Kinds);

TYPED_TEST(ResidualExtended, AccumulatesBeyondWorkingPrecisionInEveryStorage) {
  using T = TypeParam;
  const bool cx = is_cx<T>();
  const int h = half_bits<T>();
  auto off = [h](std::mt19937 &g) { return zcomplex(fine(g, h, -1, 1), fine(g, h, -1, 1)); };
  auto dia = [h](std::mt19937 &g) { return zcomplex(fine(g, h, 2, 2), fine(g, h, 0, 0)); };
  check_extended<T>(random_matrix(40, kind::general, cx, 5, off, dia), cx ? 13 : 11, "general");
  check_extended<T>(random_matrix(40, kind::symmetric, cx, 6, off, dia), cx ? 6 : -2, "symmetric");
  if (cx) check_extended<T>(random_matrix(40, kind::hermitian, cx, 7, off, dia), 4, "Hermitian");
}

TYPED_TEST(ResidualExtended, CopiesRoundTripUpdateKeepsLowBitsNormCountsEveryWord) {
  using T = TypeParam;
  using E = tlm::ext_t<T>;
  const int digits = std::numeric_limits<tlm::real_of<T>>::digits;
  const int count = 5;
  std::vector<T> x(count), back(count), d(count);
  std::vector<E> xe(count);
  std::mt19937 g(3);
  std::uniform_real_distribution<double> u(-10.0, 10.0);
  for (T &v : x) v = make<T>(u(g), u(g));
  tlm::refine_to_extended<T>(&count, x.data(), xe.data());
  tlm::refine_from_extended<T>(&count, xe.data(), back.data());
  EXPECT_TRUE(back == x);

  // x = 1 (+ i), d below the working precision of 1: the extended sum keeps
  // d, the rounded one is x again. The returned sum takes the modulus.
  const double tiny = std::ldexp(1.0, -digits - 3);
  long double dsum = 0;
  for (int k = 0; k < count; ++k) {
    x[k] = make<T>(1.0, 1.0);
    d[k] = make<T>((k + 1) * tiny, -3 * tiny);
    dsum += std::abs(wide(d[k]));
  }
  tlm::refine_to_extended<T>(&count, x.data(), xe.data());
  const double sum = tlm::refine_update_extended<T>(&count, xe.data(), d.data());
  EXPECT_NEAR(sum, static_cast<double>(dsum), 1e-12 * static_cast<double>(dsum));
  for (int k = 0; k < count; ++k) {
    const lcx diff = lcx(static_cast<long double>(std::real(xe[k])) - 1,
                         static_cast<long double>(std::imag(xe[k])) - (is_cx<T>() ? 1 : 0));
    EXPECT_EQ(diff, wide(d[k])) << "value " << k;
  }
  tlm::refine_from_extended<T>(&count, xe.data(), back.data());
  EXPECT_TRUE(back == x);

  // The residual reads the low bits: with A = I and b = x, r = -d.
  std::vector<int> ia(count + 1), ja(count);
  std::iota(ia.begin(), ia.end(), 1);
  std::iota(ja.begin(), ja.end(), 1);
  const std::vector<T> a(count, make<T>(1.0, 0.0));
  std::vector<T> r(count);
  const int nb = 1, mtype = is_cx<T>() ? 13 : 11, trans = 0;
  tlm::residual_extended<T>(&trans, &count, &nb, &mtype, ia.data(), ja.data(), a.data(),
                            xe.data(), x.data(), r.data(), nullptr);
  for (int k = 0; k < count; ++k) EXPECT_EQ(r[k], -d[k]) << "value " << k;

  // The word-wise norm counts every word.
  const int three = 3;
  const T v[3] = {make<T>(3.0, -4.0), make<T>(-0.5, 0.25), make<T>(0.0, -1.0)};
  EXPECT_EQ(tlm::refine_sum_abs<T>(&three, v), is_cx<T>() ? 3 + 4 + 0.5 + 0.25 + 1 : 3 + 0.5);
}

}  // namespace
