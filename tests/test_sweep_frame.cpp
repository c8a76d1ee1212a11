// The sweep frames with the step policies of the kernels. The parallel
// schedule, written for the Cholesky sweep, takes the L D L^T and the LU
// steps as they are: on two threads it gives the factors of the sequential
// sweeps, pivots and counts included, and leaves temp clear. The structure
// and the lists come from the library's own analysis; the values are random
// on the pattern of a model problem with weak diagonals, so that the
// pivoting has work and meets no tie.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "blkldl_step.h"
#include "blklu_step.h"
#include "parlist.h"
#include "sweep_frame_omp.h"
#include "test_kernels.h"
#include "test_system.h"

namespace {

using namespace vektest;
typedef std::vector<double> dvec;

// The work arrays of a sweep on `threads` threads, filled with garbage, and
// the lists of the parallel schedule.
struct sweep_arrays {
  ivec indmap, relind, link, length, xnmod, xslindx, slindx, slength, up;
  dvec temp;
  int nparts = 0;

  sweep_arrays(const analysis &s, int threads, int mtype) {
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

  tlm::sweep_shape shape(const analysis &s) {
    return tlm::sweep_shape{s.n,     s.ns,          s.comi[34 - 1], s.comi[37 - 1],
                            0,       s.xsup.data(), s.snode.data(), s.xlindx.data(),
                            s.lindx.data(), s.xlnz.data(), s.nmod.data(), link.data(),
                            length.data(),  indmap.data(), relind.data()};
  }
  tlm::sweep_incoming incoming(const analysis &s) {
    const size_t half = up.size() / 2;
    return tlm::sweep_incoming{nparts,      s.parts.data(),  xnmod.data(), xslindx.data(),
                               slindx.data(), slength.data(), up.data(),   up.data() + half};
  }
};

TEST(SweepFrame, ParallelScheduleRunsTheLdlAndTheLuSteps) {
  // L D L^T with both pivoting forms, and LU with complete pivoting (the
  // sweep of type 11) on the structure of type 1; ranges of two parts and
  // the top.
  for (int mtype : {-2, 1}) {
    problem p = prepare(test_matrix("lap3d:7", mtype), mtype, 2, 12, false, ivec(), 2);
    const analysis &s = p.s;
    ASSERT_GT(s.comi[60 - 1], 0);
    const double eps = mtype == 1 ? 1e-12 : 0.0;
    const dvec a = p.st.a;
    const scatter_lists &L = p.L;
    for (int diagp : mtype == -2 ? ivec{0, 1} : ivec{1}) {
      SCOPED_TRACE(testing::Message() << "type " << mtype << " diagp " << diagp);
      if (mtype == 1) p.mtype = 11;
      const factor<double> f = run<double>(p, diagp, eps);  // the sequential entry
      ASSERT_EQ(f.error, 0);
      EXPECT_LT(misfit(p, f, diagp), 4.0);

      sweep_arrays w(s, 2, mtype);
      const tlm::sweep_shape sh = w.shape(s);
      dvec lnz(f.lnz.size(), 7.0), unz(f.unz.size(), 7.0);
      ivec pivot(s.n, 0), cpivot(s.n, 0);
      tlm::sweep_counts c;
      int error = 99;
      if (mtype == -2) {
        const tlm::ldl_step<double, false> step{
            sh,         a.data(),     p.st.ja.data(),   lnz.data(),    w.temp.data(),
            pivot.data(), L.xjalf.data(), L.jalf.data(), L.luperm.data(), s.perm.data(),
            nullptr,    &eps,         nullptr,          diagp != 0,    false};
        tlm::sweep_run_omp(sh, w.incoming(s), 2, w.temp.data(), step, &c, &error);
        EXPECT_EQ((ivec{c.npert, c.npos, c.nneg}), (ivec{f.npert, f.npos, f.nneg}));
        EXPECT_EQ(c.npos + c.nneg, s.n);
      } else {
        const tlm::lu_step<double> step{
            sh,           a.data(),       p.st.ja.data(), lnz.data(),     s.xunz.data(),
            unz.data(),   w.temp.data(),  pivot.data(),   cpivot.data(),  L.xjalf.data(),
            L.jalf.data(), L.xjauf.data(), L.jauf.data(), L.luperm.data(), nullptr,
            &eps,         nullptr};
        tlm::sweep_run_omp(sh, w.incoming(s), 2, w.temp.data(), step, &c, &error);
        EXPECT_EQ(c.npert, f.npert);
        EXPECT_EQ(cpivot, f.cpivot);
        int exchanges = 0;  // complete pivoting did exchange columns
        for (int i = 0; i < s.n; ++i) exchanges += f.cpivot[i] != i + 2 - s.xsup[s.snode[i] - 1];
        EXPECT_GT(exchanges, 0);
        EXPECT_LT(rel_diff(unz, f.unz), 1e-8);
      }
      ASSERT_EQ(error, 0);
      // Equal up to the order of the updates, which the weak diagonals make
      // grow; a fault in a step is of the order of the factor.
      EXPECT_EQ(pivot, f.pivot);
      EXPECT_LT(rel_diff(lnz, f.lnz), 1e-8);
      EXPECT_TRUE(std::all_of(w.temp.begin(), w.temp.end(), [](double t) { return t == 0.0; }));
    }
  }
}

}  // namespace
