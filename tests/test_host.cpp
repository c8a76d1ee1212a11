// Tests of the host stand-in libraries: the assertion report, the validity
// stamp, the growing arrays, and the matrix decompositions over LAPACK with
// their singularity tests.
#include <gtest/gtest.h>

#include <cfloat>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "mlMatrix.h"
#include "utAssert.h"

namespace {

// Builds a matrix from rows given in reading order.
mlMatrix from_rows(int m, int n, const std::vector<double> &v) {
  mlMatrix a(mlMatrixZero, m, n);
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) a(i, j) = v[i * n + j];
  return a;
}

mlMatrix column(const std::vector<double> &v) {
  mlMatrix b(static_cast<int>(v.size()), 1);
  b.become(utConvertCopy, v.data(), static_cast<int>(v.size()), 1);
  return b;
}

// b = A x for an n x n A and an n x k x.
mlMatrix times(const mlMatrix &a, const mlMatrix &x) {
  mlMatrix b(mlMatrixZero, a.rows(), x.cols());
  for (int j = 0; j < x.cols(); ++j)
    for (int i = 0; i < a.rows(); ++i)
      for (int l = 0; l < a.cols(); ++l) b(i, j) += a(i, l) * x(l, j);
  return b;
}

void expect_near(const mlMatrix &x, const mlMatrix &want, double tol) {
  ASSERT_EQ(x.rows(), want.rows());
  ASSERT_EQ(x.cols(), want.cols());
  for (int j = 0; j < x.cols(); ++j)
    for (int i = 0; i < x.rows(); ++i)
      EXPECT_NEAR(x(i, j), want(i, j), tol) << "at (" << i << "," << j << ")";
}

// 2 x 2 matrix [[1, 1], [1, 1 + d]]: symmetric positive definite for d > 0,
// with smallest pivot d.
mlMatrix near_pair(double d) { return from_rows(2, 2, {1, 1, 1, 1 + d}); }

}  // namespace

// ------------------------------------------------------------ libutils

TEST(HostUtils, CheckValidReportsNullDestroyedAndGarbage) {
  utCheckValid live;
  testing::internal::CaptureStderr();
  live.check_ok(&live, "f.cpp", 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  testing::internal::CaptureStderr();
  live.check_ok(nullptr, "f.cpp", 2);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "f.cpp:2: utCheckValid | null object\n");

  alignas(utCheckValid) unsigned char raw[sizeof(utCheckValid)];
  utCheckValid *p = new (raw) utCheckValid;
  p->~utCheckValid();
  testing::internal::CaptureStderr();
  p->check_ok(p, "f.cpp", 3);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "f.cpp:3: utCheckValid | object destroyed\n");

  std::memset(raw, 0x11, sizeof raw);
  testing::internal::CaptureStderr();
  p->check_ok(p, "f.cpp", 4);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "f.cpp:4: utCheckValid | object not valid\n");
}

// ------------------------------------------------------------ libcontainer

TEST(HostContainer, GrowingArraysKeepContentsAndCopyDeeply) {
  doublecoDynArr a(3);
  a.data()[0] = 1.5;
  a.data()[2] = -2.5;
  ASSERT_EQ(a.resize(9), 1);  // room for 9 more; the size stays
  EXPECT_EQ(a.size(), 3);
  EXPECT_GE(a.capacity(), 10);
  EXPECT_EQ(a.data()[0], 1.5);
  EXPECT_EQ(a.data()[2], -2.5);
  for (int k = 3; k < a.capacity(); ++k) EXPECT_EQ(a.data()[k], 0.0);
  EXPECT_EQ(a.resize(-1), 0);
  doublecoDynArr b(a), c;
  c = a;
  a.data()[2] = 4.0;
  c = c;
  EXPECT_EQ(b.data()[2], -2.5);
  EXPECT_EQ(c.data()[2], -2.5);

  intcoDynArr e;  // expand sets the size, never shrinks, fills with zeros
  EXPECT_EQ(e.data(), nullptr);
  ASSERT_EQ(e.expand(4), 1);
  e.data()[3] = 7;
  ASSERT_EQ(e.expand(2), 1);
  EXPECT_EQ(e.size(), 4);
  ASSERT_EQ(e.expand(6), 1);
  EXPECT_EQ(e.size(), 6);
  EXPECT_EQ(e.data()[3], 7);
  EXPECT_EQ(e.data()[5], 0);
}

TEST(HostMaths, BecomeTakesAColumnMajorBlockAndOutOfRangeIsReportedAndHarmless) {
  mlMatrix a(mlMatrixZero, 3, 2);
  const double block[] = {1, 2, 3, 4};  // 2 x 2, column by column
  ASSERT_EQ(a.become(utConvertCopy, block, 2, 2), 1);
  expect_near(a, from_rows(2, 2, {1, 3, 2, 4}), 0.0);
  testing::internal::CaptureStderr();
  a(2, 0) = 5.0;
  a(0, -1) = 6.0;
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("argument out of range | mlMatrix::operator()"), std::string::npos);
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 2);
  expect_near(a, from_rows(2, 2, {1, 3, 2, 4}), 0.0);
}

TEST(HostMaths, CholeskyAndLUSolveAndTestSingularity) {
  // Cholesky reads the lower triangle only; LU needs a row exchange.
  mlMatrix spd = from_rows(3, 3, {4, 1, 0, 1, 5, 2, 0, 2, 6});
  mlMatrix want = from_rows(3, 2, {1, -1, 2, 0.5, -3, 4});
  mlMatrix b = times(spd, want), x;
  spd(0, 1) = 100;
  spd(1, 2) = -100;
  mlCholeskyDecomposition chol(spd);
  ASSERT_EQ(chol.is_singular(), 0);
  chol.solve(b, x);
  expect_near(x, want, 1e-13);
  mlMatrix a = from_rows(3, 3, {0, 2, 1, 1, 1, 0, 3, 0, 1});
  mlLUDecomposition lu(a);
  ASSERT_EQ(lu.is_singular(), 0);
  lu.solve(times(a, want), x);
  expect_near(x, want, 1e-13);

  // Singular: indefinite (Cholesky only), exactly singular, and a last
  // pivot of 2^-52, below 2 * DBL_EPSILON of the first.
  EXPECT_NE(mlCholeskyDecomposition(from_rows(2, 2, {1, 2, 2, 1})).is_singular(), 0);
  EXPECT_NE(mlLUDecomposition(from_rows(3, 3, {1, 2, 3, 4, 5, 6, 0, 0, 0})).is_singular(), 0);
  for (double d : {0.0, DBL_EPSILON}) {
    EXPECT_NE(mlCholeskyDecomposition(near_pair(d)).is_singular(), 0) << d;
    EXPECT_NE(mlLUDecomposition(near_pair(d)).is_singular(), 0) << d;
  }
  // Nearly singular, still regular: solved to the accuracy the condition
  // (about 4e10) allows.
  mlCholeskyDecomposition c10(near_pair(1e-10));
  mlLUDecomposition l10(near_pair(1e-10));
  ASSERT_EQ(c10.is_singular() | l10.is_singular(), 0);
  c10.solve(column({2, 2 + 1e-10}), x);
  expect_near(x, column({1, 1}), 1e-5);
  l10.solve(column({2, 2 + 1e-10}), x);
  expect_near(x, column({1, 1}), 1e-5);

  // A solve on a singular factor is reported and leaves x.
  mlCholeskyDecomposition sing(near_pair(0.0));
  x = column({7, 8});
  testing::internal::CaptureStderr();
  sing.solve(column({1, 1}), x);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("object in incorrect state"),
            std::string::npos);
  expect_near(x, column({7, 8}), 0.0);
}

TEST(HostMaths, SvdValuesRelativeSingularityAndSolve) {
  // Singular values 3 and 2, in descending order.
  mlSingularValueDecomposition d(from_rows(2, 2, {0, 2, 3, 0}));
  EXPECT_NEAR(d.singular_value(0), 3.0, 1e-14);
  EXPECT_NEAR(d.singular_value(1), 2.0, 1e-14);
  EXPECT_EQ(d.is_singular(0.5), 0);
  EXPECT_NE(d.is_singular(0.7), 0);

  // Ratio 1e-8: singular at 1e-7, regular at 1e-9, whatever the scale.
  mlSingularValueDecomposition big(from_rows(2, 2, {1e5, 0, 0, 1e-3}));
  EXPECT_NE(big.is_singular(1e-7), 0);
  EXPECT_EQ(big.is_singular(1e-9), 0);

  EXPECT_NE(mlSingularValueDecomposition(from_rows(2, 2, {1, 2, 2, 4})).is_singular(1e-7), 0);
  EXPECT_NE(mlSingularValueDecomposition(mlMatrix(mlMatrixZero, 2, 2)).is_singular(1e-7), 0);

  // A regular matrix, several sides.
  mlMatrix a = from_rows(3, 3, {0, 2, 1, 1, 1, 0, 3, 0, 1});
  mlMatrix want = from_rows(3, 2, {1, 0, 2, 2, -1, 3});
  mlSingularValueDecomposition r(a);
  ASSERT_EQ(r.is_singular(1e-7), 0);
  mlMatrix x;
  r.solve(times(a, want), x);
  expect_near(x, want, 1e-13);
}
