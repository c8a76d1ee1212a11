// Scatter lists of the input matrix into the factor storage: the structure
// comes from the library's own ordering and symbolic factorization, the
// values are scattered through the lists as the kernels do, and every
// position of every supernode block is compared with the permuted matrix
// formed here from perm/invp. (The scatter routines that follow the lists
// in the sweeps are checked by the factors of test_factor_kernels.)
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "scatter_map.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

typedef std::vector<int> ivec;
typedef std::complex<double> zc;
using vektest::analyse;
using vektest::analysis;
using vektest::make_scatter_lists;
const int guard = vektest::scatter_guard;

// With distinct values in a, every position of each L block (lindx row,
// column) and, for full storage (types 1, 11), each U block (column, row
// below) holds B(perm r, perm c), B the rows of A in roworder, or 0; each
// entry of A lands exactly once, in the storage of its own column. With the
// upper triangle stored (type 2), A is read as the Hermitian matrix with the
// values of a as real parts and k as imaginary part of entry k above the
// diagonal: a negative position marks a mirrored entry, which is
// conjugated, and positions above the diagonal of a block stay untouched.
// The row of the scaled scatter is the stored row of an entry, the stored
// column of a mirrored one.
void check_lists(const vekio::sparse &a, analysis &s, int mtype, const ivec *roworder,
                 const std::string &what) {
  SCOPED_TRACE(what);
  const bool sym = mtype == 2;
  const int n = a.n, e = a.nnz();
  const vektest::scatter_lists L = make_scatter_lists(a, s, mtype, roworder, 1);
  ASSERT_EQ(L.lcount + (sym ? 0 : L.ucount), e);
  ASSERT_EQ(L.xjalf[n] - 1, L.lcount);
  ASSERT_EQ(sym ? 0 : L.xjauf[n] - 1, sym ? 0 : L.ucount);
  ivec row_to_b(n + 1), arow(e + 1);  // arow: the input row of each position
  for (int v = 1; v <= n; ++v) row_to_b[roworder ? (*roworder)[v - 1] : v] = v;
  for (int i = 1; i <= n; ++i)
    for (int k = a.ia[i - 1]; k < a.ia[i]; ++k) arow[k] = i;
  auto value = [&](int k, bool conj) {
    const zc v(a.a[k - 1], sym && a.ja[k - 1] != arow[k] ? k : 0);
    return conj ? std::conj(v) : v;
  };
  std::map<std::pair<int, int>, zc> B;  // by (new row, new column); lower for type 2
  for (int k = 1; k <= e; ++k) {
    const int r = s.invp[row_to_b[arow[k]] - 1], c = s.invp[a.ja[k - 1] - 1];
    if (sym && r < c) B[{c, r}] = value(k, true);
    else B[{r, c}] = value(k, false);
  }
  std::vector<zc> lnz(s.comi[34 - 1]), unz(s.comi[35 - 1]);
  ivec lhits(lnz.size(), 0), uhits(unz.size(), 0);
  for (int c = 1; c <= n; ++c) {
    const int J = s.snode[c - 1], nrows = s.xlindx[J] - s.xlindx[J - 1];
    const int below = nrows - (s.xsup[J] - s.xsup[J - 1]);
    for (int i = L.xjalf[c - 1]; i < L.xjalf[c]; ++i) {
      const int pos = std::abs(L.jalf[i - 1]), k = L.luperm[i - 1];
      const bool mirrored = L.jalf[i - 1] < 0;
      ASSERT_TRUE(pos >= s.xlnz[c - 1] && pos < s.xlnz[c - 1] + nrows) << "column " << c;
      EXPECT_FALSE(mirrored && a.ja[k - 1] == arow[k]) << "a diagonal entry mirrored";
      lnz[pos - 1] = value(k, mirrored);
      ++lhits[pos - 1];
      EXPECT_EQ(L.luperm_row[i - 1], mirrored ? a.ja[k - 1] : arow[k]);
    }
    for (int i = L.xjauf[c - 1]; !sym && i < L.xjauf[c]; ++i) {
      const int pos = L.jauf[i - 1], k = L.luperm[L.lcount + i - 1];
      ASSERT_TRUE(pos >= s.xunz[c - 1] && pos < s.xunz[c - 1] + below) << "column " << c;
      unz[pos - 1] = value(k, false);
      ++uhits[pos - 1];
      EXPECT_EQ(L.luperm_row[L.lcount + i - 1], arow[k]);
    }
  }
  int found = 0;
  for (int J = 1; J <= s.ns; ++J) {
    const int f = s.xsup[J - 1], ncols = s.xsup[J] - f, beg = s.xlindx[J - 1];
    for (int c = f; c < f + ncols; ++c)
      for (int o = 0; o < s.xlindx[J] - beg; ++o) {
        const int r = s.lindx[beg - 1 + o], lp = s.xlnz[c - 1] - 1 + o;
        auto it = sym && r < c ? B.end() : B.find({r, c});
        ASSERT_EQ(lnz[lp], it == B.end() ? zc(0) : it->second) << "L " << r << "," << c;
        ASSERT_EQ(lhits[lp], it == B.end() ? 0 : 1);
        found += lhits[lp];
        if (sym || o < ncols) continue;
        it = B.find({c, r});
        const int up = s.xunz[c - 1] - 1 + o - ncols;
        ASSERT_EQ(unz[up], it == B.end() ? zc(0) : it->second) << "U " << c << "," << r;
        ASSERT_EQ(uhits[up], it == B.end() ? 0 : 1);
        found += uhits[up];
      }
  }
  EXPECT_EQ(found, e);
  // Without the row flag the same lists come, and the row array is left alone.
  const vektest::scatter_lists L0 = make_scatter_lists(a, s, mtype, roworder, 0);
  EXPECT_EQ(L0.jalf, L.jalf);
  EXPECT_EQ(std::count(L0.luperm_row.begin(), L0.luperm_row.end(), guard), e + 8);
}

ivec shuffled(int n, unsigned seed) {
  ivec p(n);
  std::iota(p.begin(), p.end(), 1);
  std::shuffle(p.begin(), p.end(), std::mt19937(seed));
  return p;
}

// Values by position, so that a wrong source cannot pass by an equal value;
// the first entry is an explicit zero, which has to be listed all the same.
vekio::sparse numbered(vekio::sparse m) {
  std::iota(m.a.begin(), m.a.end(), 0.0);
  return m;
}

// All three forms on one symmetric matrix in full storage.
void check_all_types(const vekio::sparse &full, const std::string &name, int method,
                     int nparts, int panel) {
  vekio::sparse up = vekio::storage_for_type(full, 2), f = full;
  analysis s2 = analyse(up, 2, nullptr, method, nparts, panel);
  check_lists(up, s2, 2, nullptr, name + " type 2");
  for (int mtype : {1, 11}) {
    analysis s = analyse(f, mtype, nullptr, method, nparts, panel);
    check_lists(f, s, mtype, nullptr, name + " type " + std::to_string(mtype));
  }
}

TEST(ScatterMap, SymmetricMatricesInAllThreeForms) {
  for (const char *name : {"bcsstk01", "494_bus", "dwt_992"}) {
    vekio::sparse m;
    ASSERT_TRUE(vektest::load(name, m));
    check_all_types(numbered(m), name, 0, 1, 8);
  }
  check_all_types(numbered(vekio::lap2d(30)), "lap2d:30 dissected", 2, 4, 16);
  check_all_types(numbered(vekio::lap3d(7)), "lap3d:7", 2, 1, 128);
  check_all_types(numbered(vekio::lap2d(6)), "lap2d:6 panel 1", 0, 1, 1);
  check_all_types(numbered(vekio::diagonal(1)), "order 1", 0, 1, 8);
}

TEST(ScatterMap, UnsymmetricPatternsWithAndWithoutRowOrder) {
  // cage5 has a symmetric pattern: the plain case, until rows are reordered.
  for (const char *name : {"west0479", "gent113", "rajat19", "cage5"}) {
    vekio::sparse m;
    ASSERT_TRUE(vektest::load(name, m));
    m = numbered(m);
    analysis s = analyse(m, 11, nullptr, 2, 1, 16);
    EXPECT_EQ(s.xadj[m.n] - 1 + m.n > m.nnz(), std::string(name) != "cage5")
        << "graph entries not in A";
    check_lists(m, s, 11, nullptr, name);
    ivec order = shuffled(m.n, 7);
    analysis so = analyse(m, 11, &order, 2, 1, 16);
    check_lists(m, so, 11, &order, std::string(name) + " row order");
  }
  // A symmetric pattern whose rows are taken in another order.
  vekio::sparse g = numbered(vekio::lap2d(9));
  ivec order = shuffled(g.n, 3);
  analysis s = analyse(g, 11, &order, 0, 1, 4);
  check_lists(g, s, 11, &order, "lap2d:9 row order");
}

TEST(ScatterMap, DenseAndLongRowsTakeTheSweepPaths) {
  // A tridiagonal pattern with rows (and columns) filled to lengths of every
  // sort path: shorter than t1, between t1 and t2, beyond t2, and full, in
  // several successions.
  const int n = 12000;
  int t1 = 0, t2 = 0;
  tlm::inv_perm_thresholds(n, 0, &t1, &t2);
  ASSERT_LT(t1, t2);
  std::vector<std::set<int>> cols(n + 1);
  for (int i = 1; i <= n; ++i) cols[i] = {std::max(1, i - 1), i, std::min(n, i + 1)};
  const std::pair<int, int> heavy[] = {{100, t1 + 5}, {101, t1 + 50}, {5000, t2 + 10},
                                       {5001, t1 + 1}, {9000, n},      {11999, t2 - 1},
                                       {12000, t1 + 2}};
  for (auto &rl : heavy) {
    const ivec order = shuffled(n, rl.first);
    for (int t = 0; t < n && int(cols[rl.first].size()) < rl.second; ++t) {
      cols[rl.first].insert(order[t]);
      cols[order[t]].insert(rl.first);
    }
  }
  vekio::sparse m;
  m.n = n;
  m.ia.push_back(1);
  for (int i = 1; i <= n; ++i) {
    m.ja.insert(m.ja.end(), cols[i].begin(), cols[i].end());
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  }
  m.a.resize(m.ja.size());
  check_all_types(numbered(m), "heavy rows", 0, 1, 64);
}

TEST(ScatterMap, RowSortAgreesWithPlainSortAcrossPathsAndMarkStates) {
  // The sort keeps each source with its key whatever path a row takes, and
  // a sweep never sees the marks of an earlier row.
  const int n = 20000;
  int t1 = 0, t2 = 0;
  tlm::inv_perm_thresholds(n, 0, &t1, &t2);
  ASSERT_TRUE(t1 > 16 && t1 < t2 && t2 < n);
  ivec dense(n), mark(n, 0);
  int dirty = 0;
  std::mt19937 rng(11);
  const int lengths[] = {0, 1, 2, 17, 300, t1 - 1, t1, t1 + 7, t2 - 1, t2, t2 + 3, n - 1, n, 5};
  for (int walk : {1, 0, 1})
    for (int len : lengths) {
      ivec cols = shuffled(n, rng());
      cols.resize(len);
      ivec key = cols, src(len + 1, guard);
      key.push_back(guard);  // behind the row, as the next row's entries would be
      for (int t = 0; t < len; ++t) src[t] = -3 * key[t] + 1;
      tlm::inv_perm_sort_row(n, t1, len, walk, key.data(), src.data(), dense.data(),
                             mark.data(), &dirty);
      std::sort(cols.begin(), cols.end());
      cols.push_back(guard);
      ASSERT_EQ(key, cols) << "len " << len << " walk " << walk;
      for (int t = 0; t < len; ++t) ASSERT_EQ(src[t], -3 * key[t] + 1);
      ASSERT_EQ(src[len], guard);
    }
}

}  // namespace
