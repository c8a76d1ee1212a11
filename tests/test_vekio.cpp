// The matrix library of the tools and tests: Matrix Market input of sparse
// matrices and of dense blocks with their error lines, files that lie about
// their size, the model problems and the storage forms.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "test_matrices.h"
#include "vekio.h"

namespace {

// The tests run in processes of their own, several at once: the names carry
// the test's.
std::string temp_path(const std::string &name) {
  return ::testing::TempDir() + ::testing::UnitTest::GetInstance()->current_test_info()->name() +
         "_" + name;
}

std::string write_temp(const std::string &name, const std::string &text) {
  const std::string path = temp_path(name);
  std::ofstream(path) << text;
  return path;
}

// Reads with the address space held to what is in use plus 512 MB, so that
// an allocation sized by the header fails instead of passing unseen.
bool read_limited(const std::string &path, std::string &err) {
  struct rlimit old;
  getrlimit(RLIMIT_AS, &old);
  struct rlimit lim = old;
  lim.rlim_cur = 0;
  if (FILE *f = std::fopen("/proc/self/statm", "r")) {
    unsigned long pages = 0;
    if (std::fscanf(f, "%lu", &pages) == 1) lim.rlim_cur = pages * 4096UL + (512UL << 20);
    std::fclose(f);
  }
  if (lim.rlim_cur != 0) setrlimit(RLIMIT_AS, &lim);
  vekio::sparse m;
  vekio::mm_header h;
  bool ok = false;
  try {
    ok = vekio::read_matrix_market(path, m, h, err);
  } catch (const std::bad_alloc &) {
    err = "bad_alloc";
  }
  setrlimit(RLIMIT_AS, &old);
  return ok;
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

TEST(MatrixMarket, BadFilesNameTheLineAndHeaderCountsAreCheckedBeforeAnyAllocation) {
  struct bad { const char *text, *want; };
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
    const std::string path = write_temp("bad" + std::to_string(k++) + ".mtx", c.text);
    std::string err;
    EXPECT_FALSE(read_limited(path, err));
    EXPECT_NE(err.find(path + c.want), std::string::npos) << err;
  }
  // Headers that promise what no memory holds, or more than the file has,
  // and values that are not finite: refused before the counts are believed.
  const bad hostile[] = {
      {"%%MatrixMarket matrix coordinate real general\n3 3 2000000000\n1 1 1\n", "do not fit"},
      {"%%MatrixMarket matrix coordinate real symmetric\n3 3 7\n1 1 1\n", "do not fit"},
      {"%%MatrixMarket matrix coordinate real general\n2000000000 2000000000 2\n1 1 1\n2 2 1\n",
       "some row is empty"},
      {"%%MatrixMarket matrix coordinate real general\n100000 100000 1500000000\n1 1 1\n",
       "file ends after 1 of"},
      {"%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 nan\n2 2 1\n", "not a finite"},
      {"%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 1 -inf\n", "not a finite"},
  };
  for (const bad &c : hostile) {
    SCOPED_TRACE(c.text);
    std::string err;
    EXPECT_FALSE(read_limited(write_temp("hostile.mtx", c.text), err));
    EXPECT_NE(err.find(c.want), std::string::npos) << err;
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

// --- dense blocks (the right-hand sides and solutions of vek-solve) --------

TEST(DenseBlock, ReadsTheArrayAndTheCoordinateFormat) {
  // The array format column after column; the coordinate format with zeros
  // where nothing is given and repeated entries summed.
  const std::string array = write_temp("array.mtx",
                                       "%%MatrixMarket matrix array real general\n"
                                       "% two columns\n"
                                       "3 2\n1\n2\n3\n\n4.5\n-5e-1\n6\n");
  const std::string coord = write_temp("coord.mtx",
                                       "%%MatrixMarket matrix coordinate complex general\n"
                                       "2 2 3\n2 1 1.5 -2\n1 2 3 4\n2 1 0.5 1\n");
  vekio::dense_block a, c;
  std::string err;
  ASSERT_TRUE(vekio::read_matrix_market_dense(array, a, err)) << err;
  EXPECT_EQ(a.n, 3);
  EXPECT_EQ(a.k, 2);
  EXPECT_FALSE(a.cplx);
  EXPECT_EQ(a.v, (std::vector<double>{1, 2, 3, 4.5, -0.5, 6}));
  ASSERT_TRUE(vekio::read_matrix_market_dense(coord, c, err)) << err;
  ASSERT_TRUE(c.cplx);
  // Column 1: (0, 0), (2, -1); column 2: (3, 4), (0, 0).
  EXPECT_EQ(c.v, (std::vector<double>{0, 0, 2, -1, 3, 4, 0, 0}));
}

TEST(DenseBlock, WrittenFilesReadBackExactly) {
  for (bool cplx : {false, true}) {
    vekio::dense_block b;
    b.n = 4;
    b.k = 3;
    b.cplx = cplx;
    for (int e = 0; e < b.n * b.k * (cplx ? 2 : 1); ++e)
      b.v.push_back(1.0 / (e + 3) - (e % 2 ? 1e-300 : 1e300));
    const std::string path = temp_path(cplx ? "out_c.mtx" : "out_r.mtx");
    std::string err;
    ASSERT_TRUE(vekio::write_matrix_market_dense(path, b, err)) << err;
    vekio::dense_block r;
    ASSERT_TRUE(vekio::read_matrix_market_dense(path, r, err)) << err;
    EXPECT_EQ(r.n, b.n);
    EXPECT_EQ(r.k, b.k);
    EXPECT_EQ(r.cplx, cplx);
    EXPECT_EQ(r.v, b.v);
  }
}

TEST(DenseBlock, RefusesBrokenFilesNamingTheLine) {
  struct refusal { const char *text, *line_and_words; };
  const refusal cases[] = {
      {"%%MatrixMarket matrix array real symmetric\n2 2\n1\n2\n3\n", ":1: a block of vectors must be general"},
      {"%%MatrixMarket matrix array pattern general\n2 1\n", ":1: field 'pattern'"},
      {"%%MatrixMarket vector array real general\n2 1\n1\n2\n", ":1: not a Matrix Market matrix"},
      {"%%MatrixMarket matrix array real general\n2\n1\n2\n", ":2: bad size line"},
      {"%%MatrixMarket matrix array real general\n3 1\n1\n2\n", ":4: the file ends after 2 of 3"},
      {"%%MatrixMarket matrix array real general\n2 1\n1\n2\n3\n", ":5: more values"},
      {"%%MatrixMarket matrix array real general\n2 1\n1\nx\n", ":4: bad value"},
      {"%%MatrixMarket matrix array complex general\n1 1\n1\n", ":3: bad value (want: two"},
      {"%%MatrixMarket matrix array real general\n1 1\n1 2\n", ":3: bad value"},
      {"%%MatrixMarket matrix array real general\n1 1\ninf\n", ":3: bad value"},
      {"%%MatrixMarket matrix coordinate real general\n2 1 1\n3 1 1.0\n", ":3: bad entry"},
  };
  int k = 0;
  vekio::dense_block b;
  std::string err;
  for (const refusal &c : cases) {
    const std::string path = write_temp("bad" + std::to_string(k++) + ".mtx", c.text);
    EXPECT_FALSE(vekio::read_matrix_market_dense(path, b, err)) << c.text;
    EXPECT_NE(err.find(path + c.line_and_words), std::string::npos)
        << "got: " << err << "\nwant: " << c.line_and_words;
  }
  EXPECT_FALSE(vekio::read_matrix_market_dense(temp_path("missing.mtx"), b, err));
  EXPECT_NE(err.find("cannot open"), std::string::npos);
  EXPECT_FALSE(vekio::write_matrix_market_dense("/nonexistent-folder/x.mtx", b, err));
  EXPECT_NE(err.find("cannot open"), std::string::npos);
}

// --- model problems and residual -------------------------------------------

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
