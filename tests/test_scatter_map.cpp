// Scatter lists of the input matrix into the factor storage: the structure
// comes from the library's own ordering and symbolic factorization, the
// values are scattered through the lists as the kernels do, and every
// position of every supernode block is compared with the permuted matrix
// formed here from perm/invp.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ordering.h"
#include "scatter_map.h"
#include "symbolic.h"
#include "telmira_scatter.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

typedef std::vector<int> ivec;
const int guard = 0x5A5A5A5A;

// Ordering and symbolic factorization of a stored matrix, as the analysis
// chains them (the shared test helper).
using vektest::analyse;
using vektest::analysis;

struct lists {
  ivec xjalf, jalf, xjauf, jauf, luperm, luperm_row;
  int lcount = -1, ucount = -1;
};

// Runs the step with outputs and work sized as told, guards behind each.
lists scatter_lists(const vekio::sparse &a, analysis &s, int mtype, const ivec *roworder,
                    int rowflag) {
  const int n = a.n, e = a.nnz(), nadj = s.xadj[n] - 1;
  const bool sym = vekio::symmetric_type(mtype);
  lists L;
  for (ivec *v : {&L.xjalf, &L.xjauf}) v->assign(n + 1 + 8, guard);
  for (ivec *v : {&L.jalf, &L.jauf, &L.luperm, &L.luperm_row}) v->assign(e + 8, guard);
  const long long wl = tlm::inv_perm_mod_mod_work_length(n, e, nadj, sym ? 1 : 0);
  ivec work(static_cast<size_t>(wl) + 8, guard);
  if (sym) {
    tlm::inv_perm_mod_mod_sym(&n, a.ia.data(), a.ja.data(), s.perm.data(), s.invp.data(),
                              &s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                              s.xlnz.data(), s.xadj.data(), s.adjncy.data(), &rowflag,
                              L.xjalf.data(), L.jalf.data(), L.luperm.data(),
                              L.luperm_row.data(), &L.lcount, work.data());
  } else {
    tlm::inv_perm_mod_mod(&n, a.ia.data(), a.ja.data(), s.perm.data(), s.invp.data(), &s.ns,
                          s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                          s.xunz.data(), s.xadj.data(), s.adjncy.data(), &mtype,
                          roworder ? roworder->data() : nullptr, &rowflag, L.xjalf.data(),
                          L.jalf.data(), L.xjauf.data(), L.jauf.data(), L.luperm.data(),
                          L.luperm_row.data(), &L.lcount, &L.ucount, work.data());
  }
  for (int k = 0; k < 8; ++k) {
    EXPECT_EQ(work[wl + k], guard) << "work overrun";
    EXPECT_EQ(L.luperm[e + k], guard);
    EXPECT_EQ(L.luperm_row[e + k], guard);
    EXPECT_EQ(L.xjalf[n + 1 + k], guard);
  }
  return L;
}

// Input row of each position of a.
ivec row_of(const vekio::sparse &a) {
  ivec r(a.nnz() + 1, 0);
  for (int i = 1; i <= a.n; ++i)
    for (int k = a.ia[i - 1]; k < a.ia[i]; ++k) r[k] = i;
  return r;
}

// Full pattern (types 1, 11): with distinct values in a, every position
// of each L block (lindx row, column) and each U block (column, row below)
// holds B(perm r, perm c), B the rows of A in roworder, or 0; each entry of
// A lands exactly once, in the storage of its own column.
void check_full(const vekio::sparse &a, analysis &s, int mtype, const ivec *roworder,
                const std::string &what) {
  SCOPED_TRACE(what);
  const int n = a.n, e = a.nnz();
  lists L = scatter_lists(a, s, mtype, roworder, 1);
  ASSERT_EQ(L.lcount + L.ucount, e);
  ASSERT_EQ(L.xjalf[n] - 1, L.lcount);
  ASSERT_EQ(L.xjauf[n] - 1, L.ucount);
  // Expected values, keyed by (new row, new column).
  ivec row_to_b(n + 1);
  for (int v = 1; v <= n; ++v) row_to_b[roworder ? (*roworder)[v - 1] : v] = v;
  std::map<std::pair<int, int>, double> pap;
  for (int q = 1; q <= n; ++q)
    for (int k = a.ia[q - 1]; k < a.ia[q]; ++k)
      pap[{s.invp[row_to_b[q] - 1], s.invp[a.ja[k - 1] - 1]}] = a.a[k - 1];
  const ivec arow = row_of(a);
  std::vector<double> lnz(s.comi[34 - 1], 0.0), unz(s.comi[35 - 1], 0.0);
  ivec lhits(lnz.size(), 0), uhits(unz.size(), 0);
  for (int c = 1; c <= n; ++c) {
    const int J = std::upper_bound(s.xsup.begin(), s.xsup.begin() + s.ns + 1, c) - s.xsup.begin();
    const int nrows = s.xlindx[J] - s.xlindx[J - 1], ncols = s.xsup[J] - s.xsup[J - 1];
    for (int i = L.xjalf[c - 1]; i < L.xjalf[c]; ++i) {
      const int pos = L.jalf[i - 1], k = L.luperm[i - 1];
      ASSERT_TRUE(pos >= s.xlnz[c - 1] && pos < s.xlnz[c - 1] + nrows) << "column " << c;
      lnz[pos - 1] = a.a[k - 1];
      ++lhits[pos - 1];
      EXPECT_EQ(L.luperm_row[i - 1], arow[k]);
    }
    for (int i = L.xjauf[c - 1]; i < L.xjauf[c]; ++i) {
      const int pos = L.jauf[i - 1], k = L.luperm[L.lcount + i - 1];
      ASSERT_TRUE(pos >= s.xunz[c - 1] && pos < s.xunz[c - 1] + nrows - ncols) << c;
      unz[pos - 1] = a.a[k - 1];
      ++uhits[pos - 1];
      EXPECT_EQ(L.luperm_row[L.lcount + i - 1], arow[k]);
    }
  }
  int found = 0;
  for (int J = 1; J <= s.ns; ++J) {
    const int f = s.xsup[J - 1], ncols = s.xsup[J] - f, beg = s.xlindx[J - 1];
    const int nrows = s.xlindx[J] - beg;
    for (int c = f; c < f + ncols; ++c)
      for (int o = 0; o < nrows; ++o) {
        const int r = s.lindx[beg - 1 + o];
        auto it = pap.find({r, c});
        const int lp = s.xlnz[c - 1] - 1 + o;
        ASSERT_EQ(lnz[lp], it == pap.end() ? 0.0 : it->second) << "L " << r << "," << c;
        ASSERT_EQ(lhits[lp], it == pap.end() ? 0 : 1);
        found += lhits[lp];
        if (o < ncols) continue;
        it = pap.find({c, r});
        const int up = s.xunz[c - 1] - 1 + o - ncols;
        ASSERT_EQ(unz[up], it == pap.end() ? 0.0 : it->second) << "U " << c << "," << r;
        ASSERT_EQ(uhits[up], it == pap.end() ? 0 : 1);
        found += uhits[up];
      }
  }
  EXPECT_EQ(found, e);
}

// Upper triangle stored: the complex Hermitian matrix with the values of a
// as real parts and k as imaginary part of entry k above the diagonal scatters, with the conjugate of each negative entry,
// into the lower triangle of each block of P A P^T; positions above the
// diagonal of a block stay untouched. The row of the scaled scatter is the
// stored row of a positive entry and the stored column of a mirrored one.
void check_upper(const vekio::sparse &a, analysis &s, const std::string &what) {
  SCOPED_TRACE(what);
  typedef std::complex<double> cplx;
  const int n = a.n, e = a.nnz();
  lists L = scatter_lists(a, s, 2, nullptr, 1);
  ASSERT_EQ(L.lcount, e);
  ASSERT_EQ(L.xjalf[n] - 1, e);
  auto value = [&a](int k) { return cplx(a.a[k - 1], k); };
  std::map<std::pair<int, int>, cplx> pap;  // (new row, new column), lower
  for (int i = 1; i <= a.n; ++i)
    for (int k = a.ia[i - 1]; k < a.ia[i]; ++k) {
      const int r = s.invp[i - 1], c = s.invp[a.ja[k - 1] - 1];
      if (r == c) {
        pap[{r, c}] = cplx(a.a[k - 1], 0);
      } else if (r > c) {
        pap[{r, c}] = value(k);
      } else {
        pap[{c, r}] = std::conj(value(k));
      }
    }
  const ivec arow = row_of(a);
  std::vector<cplx> lnz(s.comi[34 - 1]);
  ivec hits(lnz.size(), 0);
  for (int c = 1; c <= n; ++c) {
    const int J = std::upper_bound(s.xsup.begin(), s.xsup.begin() + s.ns + 1, c) - s.xsup.begin();
    const int nrows = s.xlindx[J] - s.xlindx[J - 1];
    for (int i = L.xjalf[c - 1]; i < L.xjalf[c]; ++i) {
      const int pos = std::abs(L.jalf[i - 1]), k = L.luperm[i - 1];
      const bool diag = a.ja[k - 1] == arow[k];
      if (diag) {
        EXPECT_GT(L.jalf[i - 1], 0);
      }
      ASSERT_TRUE(pos >= s.xlnz[c - 1] && pos < s.xlnz[c - 1] + nrows) << "column " << c;
      lnz[pos - 1] = diag ? cplx(a.a[k - 1], 0) : L.jalf[i - 1] > 0 ? value(k) : std::conj(value(k));
      ++hits[pos - 1];
      EXPECT_EQ(L.luperm_row[i - 1], L.jalf[i - 1] > 0 ? arow[k] : a.ja[k - 1]);
    }
  }
  for (int J = 1; J <= s.ns; ++J) {
    const int f = s.xsup[J - 1], beg = s.xlindx[J - 1], nrows = s.xlindx[J] - beg;
    for (int c = f; c < s.xsup[J]; ++c)
      for (int o = 0; o < nrows; ++o) {
        const int r = s.lindx[beg - 1 + o], lp = s.xlnz[c - 1] - 1 + o;
        auto it = r >= c ? pap.find({r, c}) : pap.end();
        ASSERT_EQ(lnz[lp], it == pap.end() ? cplx(0) : it->second) << r << "," << c;
        ASSERT_EQ(hits[lp], it == pap.end() ? 0 : 1);
      }
  }
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
  for (size_t k = 0; k < m.a.size(); ++k) m.a[k] = static_cast<double>(k);
  return m;
}

// A tridiagonal pattern with rows/columns filled to the given lengths: the
// row sort then takes its sweep and dense paths.
vekio::sparse heavy_rows(int n, const std::vector<std::pair<int, int>> &rows) {
  std::vector<std::set<int>> cols(n + 1);
  for (int i = 1; i <= n; ++i)
    for (int c = std::max(1, i - 1); c <= std::min(n, i + 1); ++c) cols[i].insert(c);
  for (auto &rl : rows) {
    const ivec order = shuffled(n, rl.first);
    for (int t = 0; t < n && (int)cols[rl.first].size() < rl.second; ++t) {
      cols[rl.first].insert(order[t]);
      cols[order[t]].insert(rl.first);
    }
  }
  vekio::sparse m;
  m.n = n;
  m.ia.push_back(1);
  for (int i = 1; i <= n; ++i) {
    for (int c : cols[i]) m.ja.push_back(c);
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  }
  m.a.assign(m.ja.size(), 1.0);
  return m;
}

// All three forms on one symmetric matrix in full storage.
void check_all_types(const vekio::sparse &full, const std::string &name, int method,
                     int nparts, int panel) {
  vekio::sparse up = vekio::storage_for_type(full, 2);
  analysis s2 = analyse(up, 2, nullptr, method, nparts, panel);
  check_upper(up, s2, name + " type 2");
  vekio::sparse f = full;
  analysis s1 = analyse(f, 1, nullptr, method, nparts, panel);
  check_full(f, s1, 1, nullptr, name + " type 1");
  analysis s11 = analyse(f, 11, nullptr, method, nparts, panel);
  check_full(f, s11, 11, nullptr, name + " type 11");
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
    const bool plain = std::string(name) == "cage5";
    EXPECT_EQ(s.xadj[m.n] - 1 + m.n > m.nnz(), !plain);  // graph entries not in A
    check_full(m, s, 11, nullptr, name);
    ivec order = shuffled(m.n, 7);
    analysis so = analyse(m, 11, &order, 2, 1, 16);
    check_full(m, so, 11, &order, std::string(name) + " row order");
  }
  // A symmetric pattern whose rows are taken in another order.
  vekio::sparse g = numbered(vekio::lap2d(9));
  ivec order = shuffled(g.n, 3);
  analysis s = analyse(g, 11, &order, 0, 1, 4);
  check_full(g, s, 11, &order, "lap2d:9 row order");
}

TEST(ScatterMap, WithoutRowFlagTheRowArrayIsLeftAlone) {
  vekio::sparse full = numbered(vekio::lap2d(5));
  vekio::sparse up = vekio::storage_for_type(full, 2);
  for (int mtype : {2, 1, 11}) {
    vekio::sparse &a = mtype == 2 ? up : full;
    analysis s = analyse(a, mtype, nullptr, 0, 1, 4);
    lists L = scatter_lists(a, s, mtype, nullptr, 0);
    EXPECT_EQ(std::count(L.luperm_row.begin(), L.luperm_row.end(), guard), a.nnz() + 8);
  }
}

TEST(ScatterMap, DenseAndLongRowsTakeTheSweepPaths) {
  // Rows of every sort path: shorter than t1, between t1 and t2, beyond t2,
  // and full, in several successions.
  const int n = 12000;
  int t1 = 0, t2 = 0;
  tlm::inv_perm_thresholds(n, 0, &t1, &t2);
  ASSERT_LT(t1, t2);
  vekio::sparse m = numbered(heavy_rows(
      n, {{100, t1 + 5}, {101, t1 + 50}, {5000, t2 + 10}, {5001, t1 + 1}, {9000, n},
          {11999, t2 - 1}, {12000, t1 + 2}}));
  check_all_types(m, "heavy rows", 0, 1, 64);
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
      ivec key = cols, src(len);
      for (int t = 0; t < len; ++t) src[t] = -3 * key[t] + 1;
      tlm::inv_perm_sort_row(n, t1, len, walk, key.data(), src.data(), dense.data(),
                             mark.data(), &dirty);
      std::sort(cols.begin(), cols.end());
      ASSERT_EQ(key, cols) << "len " << len << " walk " << walk;
      for (int t = 0; t < len; ++t) ASSERT_EQ(src[t], -3 * key[t] + 1);
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// The scatter itself, plain and scaled, as the kernels run it per supernode.

namespace {

typedef std::complex<double> zc;

// Values of A by input position (row, column), full: the stored triangle
// mirrored (conjugated for Hermitian) where the storage keeps one.
std::map<std::pair<int, int>, zc> full_values(const vekio::sparse &a,
                                              const std::vector<zc> &v, bool sym) {
  std::map<std::pair<int, int>, zc> m;
  for (int i = 1; i <= a.n; ++i)
    for (int k = a.ia[i - 1]; k < a.ia[i]; ++k) {
      const int j = a.ja[k - 1];
      m[{i, j}] = v[k - 1];
      if (sym && j != i) m[{j, i}] = std::conj(v[k - 1]);
    }
  return m;
}

std::vector<double> scaling(int count, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> d(0.5, 2.0);
  std::vector<double> s(count);
  for (double &x : s) x = d(g);
  return s;
}

TEST(Scatter, FullStoragePlainAndScaledAgainstThePermutedMatrix) {
  vekio::sparse m;
  ASSERT_TRUE(vektest::load("west0479", m));
  analysis s = analyse(m, 11, nullptr, 2, 1, 16);
  lists L = scatter_lists(m, s, 11, nullptr, 1);
  const int n = m.n;
  std::vector<zc> v(m.nnz());
  for (int k = 0; k < m.nnz(); ++k) v[k] = zc(m.a[k], 0.25 * (k % 5));
  const auto A = full_values(m, v, false);
  const std::vector<double> sc = scaling(2 * n, 7);
  for (int scaled : {0, 1}) {
    SCOPED_TRACE(scaled);
    std::vector<zc> lnz(s.xlnz[n] - 1, zc(9, 9)), unz(std::max(1, s.xunz[n] - 1), zc(9, 9));
    ivec indmap(n, -1);
    for (int J = 1; J <= s.ns; ++J) {
      if (scaled)
        tlm::telmira_scatter_lu_scaled<zc>(&J, &n, v.data(), m.ja.data(), sc.data(),
                                           s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                                           s.xlnz.data(), lnz.data(), s.xunz.data(),
                                           unz.data(), L.xjalf.data(), L.jalf.data(),
                                           L.xjauf.data(), L.jauf.data(), L.luperm.data(),
                                           L.luperm_row.data(), indmap.data());
      else
        tlm::telmira_scatter_lu<zc>(&J, &n, v.data(), s.xsup.data(), s.xlindx.data(),
                                    s.lindx.data(), s.xlnz.data(), lnz.data(), s.xunz.data(),
                                    unz.data(), L.xjalf.data(), L.jalf.data(), L.xjauf.data(),
                                    L.jauf.data(), L.luperm.data(), indmap.data());
      const int f = s.xsup[J - 1], l = s.xsup[J] - 1, nrows = s.xlnz[f] - s.xlnz[f - 1];
      for (int c = f; c <= l; ++c)
        for (int q = 0; q < nrows; ++q) {
          const int r = s.lindx[s.xlindx[J - 1] - 1 + q];
          ASSERT_EQ(indmap[r - 1], nrows - 1 - q);
          const int pr = s.perm[r - 1], pc = s.perm[c - 1];
          auto it = A.find({pr, pc});
          zc want = it == A.end() ? zc(0) : it->second;
          if (scaled) want *= sc[pc - 1] * sc[n + pr - 1];
          EXPECT_LE(std::abs(lnz[s.xlnz[c - 1] - 1 + q] - want), 1e-14 * std::abs(want))
              << "L " << r << "," << c;
          if (q < l - f + 1) continue;
          // U(c, r) for the rows below the diagonal block.
          auto ut = A.find({pc, pr});
          zc uwant = ut == A.end() ? zc(0) : ut->second;
          if (scaled) uwant *= sc[pr - 1] * sc[n + pc - 1];
          EXPECT_LE(std::abs(unz[s.xunz[c - 1] - 1 + q - (l - f + 1)] - uwant),
                    1e-14 * std::abs(uwant))
              << "U " << c << "," << r;
        }
    }
  }
}

TEST(Scatter, SymmetricStorageHermitianAndScaled) {
  vekio::sparse full;
  ASSERT_TRUE(vektest::load("bcsstk01", full));
  vekio::sparse m = vekio::storage_for_type(full, 2);
  analysis s = analyse(m, 2, nullptr, 2, 1, 8);
  lists L = scatter_lists(m, s, 2, nullptr, 1);
  const int n = m.n;
  std::vector<zc> v(m.nnz());
  for (int i = 1; i <= n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k)
      v[k - 1] = zc(m.a[k - 1], m.ja[k - 1] == i ? 0.0 : 0.1 * (k % 7) + 0.05);
  const auto A = full_values(m, v, true);
  const std::vector<double> sc = scaling(n, 11);
  const int herm = 1;
  for (int scaled : {0, 1}) {
    SCOPED_TRACE(scaled);
    std::vector<zc> lnz(s.xlnz[n] - 1, zc(9, 9));
    ivec indmap(n, -1);
    for (int J = 1; J <= s.ns; ++J) {
      if (scaled)
        tlm::telmira_scatter_sym_scaled<zc>(&J, v.data(), m.ja.data(), sc.data(),
                                            s.perm.data(), s.xsup.data(), s.xlindx.data(),
                                            s.lindx.data(), s.xlnz.data(), lnz.data(),
                                            L.xjalf.data(), L.jalf.data(), L.luperm.data(),
                                            L.luperm_row.data(), &herm, indmap.data());
      else
        tlm::telmira_scatter_sym<zc>(&J, v.data(), s.xsup.data(), s.xlindx.data(),
                                     s.lindx.data(), s.xlnz.data(), lnz.data(), L.xjalf.data(),
                                     L.jalf.data(), L.luperm.data(), &herm, indmap.data());
      const int f = s.xsup[J - 1], l = s.xsup[J] - 1, nrows = s.xlnz[f] - s.xlnz[f - 1];
      for (int c = f; c <= l; ++c)
        for (int q = c - f; q < nrows; ++q) {  // the lower triangle, diagonal included
          const int r = s.lindx[s.xlindx[J - 1] - 1 + q];
          const int pr = s.perm[r - 1], pc = s.perm[c - 1];
          auto it = A.find({pr, pc});
          zc want = it == A.end() ? zc(0) : it->second;
          if (scaled) want *= sc[pr - 1] * sc[pc - 1];
          EXPECT_LE(std::abs(lnz[s.xlnz[c - 1] - 1 + q] - want), 1e-14 * std::abs(want))
              << r << "," << c;
        }
    }
  }
}

}  // namespace
