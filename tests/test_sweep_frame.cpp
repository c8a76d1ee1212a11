// The sweep frames with the step policies of the kernels. The parallel
// schedule, written for the Cholesky sweep, takes the L D L^T and the LU
// steps as they are: on two threads it gives the factors of the sequential
// sweeps, pivots and counts included, and leaves temp clear. The structure
// and the lists come from the library's own analysis; the values are random
// on the pattern of a model problem, so that no pivot search meets a tie.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "blkldl_step.h"
#include "blklu_step.h"
#include "parlist.h"
#include "sweep_frame_omp.h"
#include "test_analysis.h"
#include "test_ldl.h"
#include "vekio.h"

namespace {

using vektest::ivec;
typedef std::vector<double> dvec;

// m's pattern with random values in [-1, 1], the diagonal in [-3, 3];
// symmetric values when sym is set.
vekio::sparse random_values(const vekio::sparse &m, bool sym) {
  vekio::sparse r = m;
  std::mt19937 g(17);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      const int j = m.ja[k - 1];
      r.a[k - 1] = i == j ? 3.0 * d(g) : d(g);
      if (sym && j < i)  // the mirror of an earlier entry
        for (int q = m.ia[j - 1]; q < m.ia[j]; ++q)
          if (m.ja[q - 1] == i) r.a[k - 1] = r.a[q - 1];
    }
  return r;
}

// The work arrays of a sweep on `threads` threads, filled with garbage, and
// the lists of the parallel schedule.
struct sweep_arrays {
  ivec indmap, relind, link, length, xnmod, xslindx, slindx, slength, up;
  dvec temp;
  int nparts = 0;

  sweep_arrays(const vektest::analysis &s, int threads, int mtype) {
    const int n = s.n, ns = s.ns;
    indmap.assign(size_t(threads) * n, 3);
    relind.assign(size_t(threads) * n, 3);
    link.assign(std::max(n, ns), 5);
    length.assign(std::max(1, ns), 5);
    temp.assign(size_t(threads) * s.comi[37 - 1], 7.0);
    nparts = s.comi[60 - 1];
    const int capacity = std::max<int>(1, s.lindx.size());
    xnmod.assign(ns + 1, 0);
    xslindx.assign(ns + 1, 0);
    slindx.assign(capacity, 0);
    slength.assign(capacity, 0);
    int total = 0, ntop = 0, error = 0;
    tlm::parlist(&ns, &n, &capacity, s.xlindx.data(), s.lindx.data(), s.xsup.data(),
                 s.snode.data(), s.nmod.data(), &nparts, s.parts.data(), &mtype, xnmod.data(),
                 xslindx.data(), slindx.data(), slength.data(), &total, &ntop, &error);
    EXPECT_EQ(error, 0);
    up.assign(2 * size_t(std::max(1, xnmod[ns] - 1)), 0);  // up, then uplen
  }

  tlm::sweep_shape shape(const vektest::analysis &s) {
    return tlm::sweep_shape{s.n,     s.ns,          s.comi[34 - 1], s.comi[37 - 1],
                            0,       s.xsup.data(), s.snode.data(), s.xlindx.data(),
                            s.lindx.data(), s.xlnz.data(), s.nmod.data(), link.data(),
                            length.data(),  indmap.data(), relind.data()};
  }
  tlm::sweep_incoming incoming(const vektest::analysis &s) {
    const size_t half = up.size() / 2;
    return tlm::sweep_incoming{nparts,      s.parts.data(),  xnmod.data(), xslindx.data(),
                               slindx.data(), slength.data(), up.data(),   up.data() + half};
  }
  bool temp_clear() const {
    return std::all_of(temp.begin(), temp.end(), [](double t) { return t == 0.0; });
  }
};

// Largest difference of two factors relative to the largest entry.
double rel_diff(const dvec &x, const dvec &y) {
  double d = 0, m = 1e-300;
  for (size_t i = 0; i < x.size(); ++i) {
    d = std::max(d, std::fabs(x[i] - y[i]));
    m = std::max(m, std::fabs(y[i]));
  }
  return d / m;
}

TEST(SweepFrame, ParallelScheduleRunsTheLdlStep) {
  const vekio::sparse full = random_values(vekio::lap3d(7), true);
  vekio::sparse up = vekio::storage_for_type(full, -2);
  vektest::analysis s = vektest::analyse(up, -2, nullptr, 2, 2, 12);
  const vektest::scatter_lists L = vektest::make_scatter_lists(up, s, -2, nullptr, 0);
  ASSERT_GT(s.comi[60 - 1], 0);  // ranges of parts and the top
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], tmpsize = s.comi[37 - 1], one = 1;
  const double eps = 0.0;
  for (int diagp : {0, 1}) {
    SCOPED_TRACE(testing::Message() << "diagp " << diagp);
    // The sequential entry.
    sweep_arrays q(s, 1, -2);
    dvec lnz(nnzl, 7.0);
    ivec pivot(n, 0);
    int error = 99, npert = 5, npos = 5, nneg = 5, msglvl = 0, rowflag = 0;
    blkldl<double>(up.a.data(), up.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(),
                   s.lindx.data(), s.xlnz.data(), lnz.data(), q.indmap.data(), q.relind.data(),
                   &tmpsize, q.temp.data(), s.nmod.data(), q.link.data(), s.snode.data(),
                   s.xsup.data(), q.length.data(), pivot.data(), L.xjalf.data(), L.jalf.data(),
                   L.luperm.data(), s.perm.data(), &eps, &diagp, &npert, &npos, &nneg, nullptr,
                   &rowflag, nullptr, &msglvl, &error);
    ASSERT_EQ(error, 0);
    const double u = std::numeric_limits<double>::epsilon() / 2;
    const double misfit =
        vektest::ldl_misfit(s, full, {}, vektest::widen(lnz), pivot, diagp, false, u);
    EXPECT_LT(misfit, 1.0);

    // The same step in the parallel frame.
    sweep_arrays p(s, 2, -2);
    const tlm::sweep_shape sh = p.shape(s);
    dvec plnz(nnzl, 7.0);
    ivec ppivot(n, 0);
    const tlm::ldl_step<double, false> step{
        sh,          up.a.data(), up.ja.data(),   plnz.data(),  p.temp.data(), ppivot.data(),
        L.xjalf.data(), L.jalf.data(), L.luperm.data(), s.perm.data(), nullptr, &eps,
        nullptr,     diagp != 0,  false};
    tlm::sweep_counts c;
    int perror = 99;
    tlm::sweep_run_omp(sh, p.incoming(s), 2, p.temp.data(), step, &c, &perror);
    ASSERT_EQ(perror, 0);
    EXPECT_EQ(ppivot, pivot);
    EXPECT_EQ((ivec{c.npert, c.npos, c.nneg}), (ivec{npert, npos, nneg}));
    EXPECT_EQ(c.npos + c.nneg, n);
    EXPECT_LT(rel_diff(plnz, lnz), 1e-10);
    EXPECT_TRUE(p.temp_clear());
  }
}

TEST(SweepFrame, ParallelScheduleRunsTheLuStepWithCompletePivoting) {
  const vekio::sparse full = random_values(vekio::lap3d(7), false);
  vekio::sparse a = vekio::storage_for_type(full, 1);
  vektest::analysis s = vektest::analyse(a, 1, nullptr, 2, 2, 12);
  const vektest::scatter_lists L = vektest::make_scatter_lists(a, s, 1, nullptr, 0);
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], nnzu = s.comi[35 - 1];
  const int tmpsize = s.comi[37 - 1], one = 1;
  const double eps = 1e-12;

  sweep_arrays q(s, 1, 1);
  dvec lnz(nnzl, 7.0), unz(std::max(1, nnzu), 7.0);
  ivec pivot(n, 0), cpivot(n, 0);
  int error = 99, npert = 5, msglvl = 0, rowflag = 0;
  blklu_unsym<double>(a.a.data(), a.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(),
                      s.lindx.data(), s.xlnz.data(), lnz.data(), s.xunz.data(), unz.data(),
                      q.indmap.data(), q.relind.data(), &tmpsize, q.temp.data(), s.nmod.data(),
                      q.link.data(), s.snode.data(), s.xsup.data(), q.length.data(),
                      pivot.data(), cpivot.data(), L.xjalf.data(), L.jalf.data(),
                      L.xjauf.data(), L.jauf.data(), L.luperm.data(), s.perm.data(), &eps,
                      &npert, nullptr, &rowflag, nullptr, &msglvl, &error);
  ASSERT_EQ(error, 0);
  EXPECT_EQ(npert, 0);
  int exchanges = 0;  // complete pivoting did exchange columns
  for (int i = 0; i < n; ++i) exchanges += cpivot[i] != i + 2 - s.xsup[s.snode[i] - 1];
  EXPECT_GT(exchanges, 0);

  sweep_arrays p(s, 2, 1);
  const tlm::sweep_shape sh = p.shape(s);
  dvec plnz(nnzl, 7.0), punz(unz.size(), 7.0);
  ivec ppivot(n, 0), pcpivot(n, 0);
  const tlm::lu_step<double> step{sh,           a.a.data(),     a.ja.data(),    plnz.data(),
                                  s.xunz.data(), punz.data(),   p.temp.data(),  ppivot.data(),
                                  pcpivot.data(), L.xjalf.data(), L.jalf.data(), L.xjauf.data(),
                                  L.jauf.data(), L.luperm.data(), nullptr,      &eps,
                                  nullptr};
  tlm::sweep_counts c;
  int perror = 99;
  tlm::sweep_run_omp(sh, p.incoming(s), 2, p.temp.data(), step, &c, &perror);
  ASSERT_EQ(perror, 0);
  EXPECT_EQ(ppivot, pivot);
  EXPECT_EQ(pcpivot, cpivot);
  EXPECT_EQ(c.npert, 0);
  EXPECT_LT(rel_diff(plnz, lnz), 1e-10);
  EXPECT_LT(rel_diff(punz, unz), 1e-10);
  EXPECT_TRUE(p.temp_clear());
}

}  // namespace
