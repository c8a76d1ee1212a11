// The matrix library of the tools and tests: Matrix Market input with its
// error lines, the model problems and the storage forms.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "test_matrices.h"
#include "vekio.h"

namespace {

std::string write_temp(const std::string &name, const std::string &text) {
  std::string path = ::testing::TempDir() + name;
  std::ofstream(path) << text;
  return path;
}

TEST(MatrixMarket, SymmetricFileIsExpandedAndAgreesWithTheUpperTriangle) {
  vekio::sparse full;
  vekio::mm_header h;
  ASSERT_TRUE(vektest::load("bcsstk01", full, &h));
  EXPECT_EQ(h.sym, vekio::mm_symmetry::symmetric);
  EXPECT_EQ(full.n, 48);
  // 224 stored entries of the lower triangle, 48 of them on the diagonal.
  EXPECT_EQ(full.nnz(), 2 * 224 - 48);
  // The product with the upper triangle in symmetric storage equals the
  // product with the full matrix.
  vekio::sparse up = vekio::storage_for_type(full, 2);
  EXPECT_EQ(up.nnz(), 224);
  for (int i = 1; i <= up.n; ++i)
    for (int k = up.ia[i - 1]; k < up.ia[i]; ++k) EXPECT_GE(up.ja[k - 1], i);
  std::vector<double> x(48), y1(48), y2(48);
  for (int i = 0; i < 48; ++i) x[i] = 1.0 + 0.01 * i;
  vekio::multiply(full, 11, x.data(), y1.data());
  vekio::multiply(up, 2, x.data(), y2.data());
  for (int i = 0; i < 48; ++i) EXPECT_NEAR(y1[i], y2[i], 1e-9 * std::fabs(y1[i]) + 1e-9);
  EXPECT_EQ(vekio::suggested_mtype(h), -2);
}

TEST(MatrixMarket, HermitianAndPatternFiles) {
  vekio::sparse full;
  vekio::mm_header h;
  ASSERT_TRUE(vektest::load("mhd1280b", full, &h));
  EXPECT_TRUE(full.cplx);
  EXPECT_EQ(vekio::suggested_mtype(h), -4);
  // The upper triangle in Hermitian storage reproduces the full product.
  vekio::sparse up = vekio::storage_for_type(full, 4);
  std::vector<double> x(2 * full.n), y1(2 * full.n), y2(2 * full.n);
  for (int i = 0; i < 2 * full.n; ++i) x[i] = std::sin(0.3 * i);
  vekio::multiply(full, 13, x.data(), y1.data());
  vekio::multiply(up, 4, x.data(), y2.data());
  double scale = vekio::norm_inf(full, 13);
  for (int i = 0; i < 2 * full.n; ++i) EXPECT_NEAR(y1[i], y2[i], 1e-12 * scale);

  vekio::sparse spd;
  ASSERT_TRUE(vektest::load("dwt_992", spd, &h));
  EXPECT_TRUE(h.pattern);
  // Made SPD: diagonal = off-diagonal count + 1, so every row sums to 1.
  std::vector<double> ones(spd.n, 1.0), y(spd.n);
  vekio::multiply(spd, 11, ones.data(), y.data());
  for (double v : y) EXPECT_DOUBLE_EQ(v, 1.0);
}

TEST(MatrixMarket, BadFilesNameTheLine) {
  struct bad { const char *text; const char *want; };
  const bad cases[] = {
      {"%%MatrixMarket matrix array real general\n2 2\n1\n2\n3\n4\n", ":1: format"},
      {"%%MatrixMarket matrix coordinate real general\n% c\n2 3 1\n1 1 1\n", ":3: matrix is not square"},
      {"%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 1.0\n3 1 2.0\n", ":4: index (3, 1)"},
      {"%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 1.0\n2 2 x\n", ":4: missing value"},
      {"%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 1.0\n1 2 2.0\n", ":4: entry above"},
      {"%%MatrixMarket matrix coordinate real general\n2 2 3\n1 1 1.0\n2 2 2.0\n", ":4: file ends after 2 of 3"},
      {"hello\n", ":1: not a Matrix Market file"},
  };
  int k = 0;
  for (const bad &c : cases) {
    std::string path = write_temp("bad" + std::to_string(k++) + ".mtx", c.text);
    vekio::sparse m;
    vekio::mm_header h;
    std::string err;
    EXPECT_FALSE(vekio::read_matrix_market(path, m, h, err));
    EXPECT_NE(err.find(path + c.want), std::string::npos) << err;
  }
}

TEST(MatrixMarket, DuplicatesAreSummedAndEmptyRowsKept) {
  std::string path = write_temp("dup.mtx",
      "%%MatrixMarket matrix coordinate integer general\n3 3 3\n3 1 2\n3 1 5\n1 3 1\n");
  vekio::sparse m;
  vekio::mm_header h;
  std::string err;
  ASSERT_TRUE(vekio::read_matrix_market(path, m, h, err)) << err;
  EXPECT_EQ(m.ia, (std::vector<int>{1, 2, 2, 3}));
  EXPECT_EQ(m.ja, (std::vector<int>{3, 1}));
  EXPECT_EQ(m.a, (std::vector<double>{1.0, 7.0}));
}

TEST(Generators, LaplaciansHaveTheirStencils) {
  vekio::sparse l2 = vekio::lap2d(7);
  EXPECT_EQ(l2.n, 49);
  EXPECT_EQ(l2.nnz(), 5 * 49 - 4 * 7);
  vekio::sparse l3 = vekio::lap3d(5);
  EXPECT_EQ(l3.n, 125);
  EXPECT_EQ(l3.nnz(), 7 * 125 - 6 * 25);
  // A x with x = ones: 0 inside, positive on the boundary; exactly the
  // number of missing neighbours.
  std::vector<double> ones(125, 1.0), y(125);
  vekio::multiply(l3, 11, ones.data(), y.data());
  EXPECT_DOUBLE_EQ(y[62], 0.0);  // the centre (2,2,2)
  EXPECT_DOUBLE_EQ(y[0], 3.0);   // a corner misses three neighbours
  vekio::sparse g;
  std::string err;
  EXPECT_TRUE(vekio::generate("lap2d:4", g, err));
  EXPECT_EQ(g.n, 16);
  EXPECT_FALSE(vekio::generate("lap2d:", g, err));
  EXPECT_FALSE(vekio::generate("ring:5", g, err));
  // The complex convection-diffusion: unsymmetric, complex off the
  // diagonal, every row strictly dominant in magnitude.
  ASSERT_TRUE(vekio::generate("zcd3d:4", g, err));
  ASSERT_TRUE(g.cplx);
  EXPECT_EQ(g.nnz(), 7 * 64 - 6 * 16);
  bool complex_coupling = false;
  for (int i = 1; i <= g.n; ++i) {
    double diag = 0.0, off = 0.0;
    for (int p = g.ia[i - 1]; p < g.ia[i]; ++p) {
      const double m = std::hypot(g.a[2 * (p - 1)], g.a[2 * (p - 1) + 1]);
      if (g.ja[p - 1] == i) diag = m;
      else off += m;
      if (g.ja[p - 1] != i && g.a[2 * (p - 1) + 1] != 0.0) complex_coupling = true;
    }
    EXPECT_GT(diag, off) << i;
  }
  EXPECT_TRUE(complex_coupling);
}

TEST(Residual, ExactSolutionGivesZeroAndAWrongOneDoesNot) {
  vekio::sparse A = vekio::storage_for_type(vekio::lap2d(6), 2);
  std::vector<double> x(36 * 2), b(36 * 2);
  for (int i = 0; i < 72; ++i) x[i] = 1.0 + i % 5;
  vekio::multiply(A, 2, x.data(), b.data());
  vekio::multiply(A, 2, x.data() + 36, b.data() + 36);
  EXPECT_EQ(vekio::relative_residual(A, 2, x.data(), b.data(), 2), 0.0);
  x[40] += 1e-3;  // second right-hand side only
  EXPECT_GT(vekio::relative_residual(A, 2, x.data(), b.data(), 2), 1e-5);
}

}  // namespace
