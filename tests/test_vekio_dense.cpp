// Matrix Market files of dense blocks (the right-hand sides and solutions
// of vek-solve): reading both formats, writing, and the refusals.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

#include "vekio.h"

namespace {

std::string temp_path(const std::string &name) {
  return ::testing::TempDir() + "vekio_dense_" + std::to_string(getpid()) + "_" + name;
}

std::string write_file(const std::string &name, const std::string &text) {
  const std::string path = temp_path(name);
  std::ofstream(path) << text;
  return path;
}

TEST(DenseBlock, ReadsTheArrayFormatColumnAfterColumn) {
  const std::string path = write_file("array.mtx",
                                      "%%MatrixMarket matrix array real general\n"
                                      "% two columns\n"
                                      "3 2\n1\n2\n3\n\n4.5\n-5e-1\n6\n");
  vekio::dense_block b;
  std::string err;
  ASSERT_TRUE(vekio::read_matrix_market_dense(path, b, err)) << err;
  EXPECT_EQ(b.n, 3);
  EXPECT_EQ(b.k, 2);
  EXPECT_FALSE(b.cplx);
  const std::vector<double> expect = {1, 2, 3, 4.5, -0.5, 6};
  EXPECT_EQ(b.v, expect);
  std::remove(path.c_str());
}

TEST(DenseBlock, ReadsTheCoordinateFormatWithZerosWhereNothingIsGiven) {
  const std::string path = write_file("coord.mtx",
                                      "%%MatrixMarket matrix coordinate complex general\n"
                                      "2 2 3\n2 1 1.5 -2\n1 2 3 4\n2 1 0.5 1\n");
  vekio::dense_block b;
  std::string err;
  ASSERT_TRUE(vekio::read_matrix_market_dense(path, b, err)) << err;
  ASSERT_TRUE(b.cplx);
  // Column 1: (0, 0), (2, -1) after summing the two entries of row 2;
  // column 2: (3, 4), (0, 0).
  const std::vector<double> expect = {0, 0, 2, -1, 3, 4, 0, 0};
  EXPECT_EQ(b.v, expect);
  std::remove(path.c_str());
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
    std::remove(path.c_str());
  }
}

struct refusal {
  const char *text;
  const char *line_and_words;
};

TEST(DenseBlock, RefusesBrokenFilesNamingTheLine) {
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
  for (const refusal &c : cases) {
    const std::string path = write_file("bad" + std::to_string(k++) + ".mtx", c.text);
    vekio::dense_block b;
    std::string err;
    EXPECT_FALSE(vekio::read_matrix_market_dense(path, b, err)) << c.text;
    EXPECT_NE(err.find(path + c.line_and_words), std::string::npos)
        << "got: " << err << "\nwant: " << c.line_and_words;
    std::remove(path.c_str());
  }
  vekio::dense_block b;
  std::string err;
  EXPECT_FALSE(vekio::read_matrix_market_dense(temp_path("missing.mtx"), b, err));
  EXPECT_NE(err.find("cannot open"), std::string::npos);
  EXPECT_FALSE(vekio::write_matrix_market_dense("/nonexistent-folder/x.mtx", b, err));
  EXPECT_NE(err.find("cannot open"), std::string::npos);
}

}  // namespace
