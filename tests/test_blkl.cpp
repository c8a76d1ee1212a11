// The supernodal Cholesky sweep on structures from the library's own
// analysis, checked by L L^T = P A P^T entry by entry, and the solves with
// its factor against the system.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "blkl.h"
#include "blkslvs.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

using vektest::ivec;

struct problem {
  vekio::sparse full, up;  // up: the upper triangle that type 2 takes
  vektest::analysis s;
  vektest::scatter_lists L;
};

problem prepare(const vekio::sparse &full, int method, int panel) {
  problem p;
  p.full = full;
  p.up = vekio::storage_for_type(full, 2);
  p.s = vektest::analyse(p.up, 2, nullptr, method, 1, panel);
  p.L = vektest::make_scatter_lists(p.up, p.s, 2, nullptr, 0);
  return p;
}

// Runs the sweep on a factor filled with garbage; returns the error cell.
// tmpsize -1: the analysis' size.
int factor(const problem &p, std::vector<double> &lnz, int tmpsize = -1) {
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], one = 1, msglvl = 0;
  if (tmpsize < 0) tmpsize = s.comi[37 - 1];
  lnz.assign(std::max(1, nnzl), 7.0);
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  std::vector<double> temp(std::max(tmpsize, 1), 7.0);
  int error = 99;
  blkl<double>(p.up.a.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(),
               s.xlnz.data(), lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(),
               s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(), length.data(),
               p.L.xjalf.data(), p.L.jalf.data(), p.L.luperm.data(), s.perm.data(), &msglvl,
               &error);
  return error;
}

// Largest |(L L^T - P A P^T)(i, j)| over the pattern of L L^T and of A,
// relative to the largest |A| entry.
double factor_error(const problem &p, const std::vector<double> &lnz) {
  const vektest::analysis &s = p.s;
  const vekio::sparse &m = p.full;
  std::map<std::pair<int, int>, double> d;  // lower triangle, permuted numbering
  std::vector<std::pair<int, double>> col;
  for (int J = 1; J <= s.ns; ++J)
    for (int c = s.xsup[J - 1]; c < s.xsup[J]; ++c) {
      col.clear();
      for (int k = 0; k < s.xlnz[c] - s.xlnz[c - 1]; ++k) {
        const int r = s.lindx[s.xlindx[J - 1] - 1 + k];
        if (r >= c) col.push_back({r, lnz[s.xlnz[c - 1] - 1 + k]});
      }
      for (auto &x : col)
        for (auto &y : col)
          if (y.first <= x.first) d[{x.first, y.first}] += x.second * y.second;
    }
  ivec invp(s.n + 1);
  for (int i = 1; i <= s.n; ++i) invp[s.perm[i - 1]] = i;
  double worst = 0.0, amax = 0.0;
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      const int pi = invp[i], pj = invp[m.ja[k - 1]];
      if (pi >= pj) d[{pi, pj}] -= m.a[k - 1];
      amax = std::max(amax, std::fabs(m.a[k - 1]));
    }
  for (auto &e : d) worst = std::max(worst, std::fabs(e.second));
  return worst / amax;
}

// temp that the updates through temp need: rem times ndone of the largest
// update whose rows are neither all the target's, nor from a source of one
// column, nor consecutive in the target's list.
long scattered_need(const vektest::analysis &s) {
  long need = 0;
  for (int K = 1; K <= s.ns; ++K) {
    const int kn = s.xsup[K] - s.xsup[K - 1], last = s.xlindx[K];
    for (int q = s.xlindx[K - 1] + kn; q < last;) {
      const int T = s.snode[s.lindx[q - 1] - 1], rem = last - q;
      int nd = 0, first = -1, lastpos = -1;
      while (nd < rem && s.lindx[q - 1 + nd] < s.xsup[T]) ++nd;
      for (int t = s.xlindx[T - 1]; t < s.xlindx[T]; ++t) {
        if (s.lindx[t - 1] == s.lindx[q - 1]) first = t;
        if (s.lindx[t - 1] == s.lindx[last - 2]) lastpos = t;
      }
      if (rem != s.xlindx[T] - s.xlindx[T - 1] && kn > 1 && lastpos - first >= rem)
        need = std::max(need, long(rem) * nd);
      q += nd;
    }
  }
  return need;
}

TEST(Blkl, FactorsUnderBothOrdersAndSeveralPanelsWithTempOfExactlyTheLargestUpdate) {
  vekio::sparse bcs, dwt;
  ASSERT_TRUE(vektest::load("bcsstk01", bcs));
  ASSERT_TRUE(vektest::load("dwt_992", dwt));
  long scattered = 0;
  for (const vekio::sparse &m : {bcs, vekio::lap2d(9), vekio::lap3d(4), dwt})
    for (int method : {0, 2})
      for (int panel : {1, 4, 1000}) {
        SCOPED_TRACE(testing::Message() << "n " << m.n << " method " << method << " panel "
                                        << panel);
        const problem p = prepare(m, method, panel);
        std::vector<double> lnz;
        ASSERT_EQ(factor(p, lnz), 0);
        EXPECT_LT(factor_error(p, lnz), 1e-13);
        // Only the scattered path needs temp; a shortfall is reported, not written.
        const long need = scattered_need(p.s);
        if (need > 1) {
          scattered = std::max(scattered, need);
          EXPECT_EQ(factor(p, lnz, int(need)), 0);
          EXPECT_LT(factor_error(p, lnz), 1e-13);
          EXPECT_EQ(factor(p, lnz, int(need) - 1), -2);
        }
      }
  EXPECT_GT(scattered, 1);
}

TEST(Blkl, NegativePivotReportsTheInputColumnWhateverTheOrder) {
  vekio::sparse m = vekio::lap2d(5);
  // Column 7 gets a negative diagonal; all others stay dominant.
  for (int k = m.ia[6]; k < m.ia[7]; ++k)
    if (m.ja[k - 1] == 7) m.a[k - 1] = -4.0;
  for (int method : {0, 2})
    for (int panel : {1, 8}) {
      std::vector<double> lnz;
      EXPECT_EQ(factor(prepare(m, method, panel), lnz), 7) << method << " " << panel;
    }
}

// Solves with the factor of a permuted matrix: x(i) = b(perm(i)), then
// back. Returns the worst relative residual over the right-hand sides.
double solve_residual(const problem &p, const std::vector<double> &lnz, int nrhs, int threads,
                      bool split) {
  const vektest::analysis &s = p.s;
  const int n = s.n;
  int ldw = 1;  // w needs only the rows below a diagonal block per right-hand side
  for (int J = 1; J <= s.ns; ++J) {
    const int f = s.xsup[J - 1];
    ldw = std::max(ldw, s.xlnz[f] - s.xlnz[f - 1] - (s.xsup[J] - f));
  }
  const size_t len = size_t(n) * nrhs;
  std::vector<double> b(len), x(len), sol(len), w(size_t(ldw) * nrhs);
  for (size_t k = 0; k < len; ++k) b[k] = std::cos(0.7 * k) + 0.1 * (k % 7);
  for (size_t k = 0; k < len; ++k) x[k] = b[s.perm[k % n] - 1 + k / n * n];
  // Whole, or forward, diagonal (nothing for L L^T) and backward in turn.
  for (int sub : split ? ivec{1, 2, 3} : ivec{0}) {
    if (nrhs == 1)
      blkslvs1<double>(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                       lnz.data(), x.data(), &sub);
    else
      blkslvs<double>(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(),
                      s.lindx.data(), s.xlnz.data(), lnz.data(), x.data(), w.data(), &ldw, &sub);
  }
  for (size_t k = 0; k < len; ++k) sol[s.perm[k % n] - 1 + k / n * n] = x[k];
  return vekio::relative_residual(p.up, 2, sol.data(), b.data(), nrhs);
}

TEST(Blkslvs, OneAndSeveralRightHandSidesSolveTheSystem) {
  vekio::sparse bcs;
  ASSERT_TRUE(vektest::load("bcsstk01", bcs));
  for (const vekio::sparse &m : {bcs, vekio::lap3d(6)})
    for (int panel : {1, 8, 1000}) {
      SCOPED_TRACE(testing::Message() << "n " << m.n << " panel " << panel);
      const problem p = prepare(m, 2, panel);
      std::vector<double> lnz;
      ASSERT_EQ(factor(p, lnz), 0);
      EXPECT_LT(solve_residual(p, lnz, 1, 1, false), 1e-15);
      EXPECT_LT(solve_residual(p, lnz, 5, 2, false), 1e-15);  // 3 + 2 columns
      EXPECT_LT(solve_residual(p, lnz, 2, 4, false), 1e-15);  // fewer columns than threads
      EXPECT_LT(solve_residual(p, lnz, 1, 1, true), 1e-15);
      EXPECT_LT(solve_residual(p, lnz, 3, 2, true), 1e-15);
    }
}

TEST(Blkslvs, ThreadShareOfRightHandSides) {
  struct item {
    int nrhs, threads, thread, first, count;
  };
  for (const item &c : {item{5, 2, 0, 0, 3}, item{5, 2, 1, 3, 2}, item{7, 3, 2, 5, 2}}) {
    int first = -1, cnt = -1;
    blkslvs_share(c.nrhs, c.threads, c.thread, &first, &cnt);
    EXPECT_EQ(first, c.first);
    EXPECT_EQ(cnt, c.count);
  }
}

}  // namespace
