// test_hostile_input.cpp - Matrix Market files that lie or hold what no
// solve can use: the reader refuses them with a message before it
// allocates anything from the header's counts.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <sys/resource.h>

#include "vekio.h"

namespace {

std::string write_file(const std::string &name, const std::string &text) {
  const std::string path = testing::TempDir() + name;
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

TEST(HostileMatrixMarket, HeaderCountsAreCheckedBeforeAnyAllocation) {
  struct file {
    const char *name, *text, *says;
  };
  const file files[] = {
      {"many.mtx", "%%MatrixMarket matrix coordinate real general\n3 3 2000000000\n1 1 1\n",
       "do not fit"},
      {"places.mtx", "%%MatrixMarket matrix coordinate real symmetric\n3 3 7\n1 1 1\n", "do not fit"},
      {"rows.mtx", "%%MatrixMarket matrix coordinate real general\n2000000000 2000000000 2\n1 1 1\n2 2 1\n",
       "some row is empty"},
      // a header that promises far more than the file holds
      {"lying.mtx", "%%MatrixMarket matrix coordinate real general\n100000 100000 1500000000\n1 1 1\n",
       "file ends after 1 of"},
      {"nan.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 nan\n2 2 1\n", "not a finite"},
      {"inf.mtx", "%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 1 -inf\n", "not a finite"},
  };
  for (const file &f : files) {
    SCOPED_TRACE(f.name);
    std::string err;
    EXPECT_FALSE(read_limited(write_file(f.name, f.text), err));
    EXPECT_NE(std::string::npos, err.find(f.says)) << err;
  }
}

}  // namespace
