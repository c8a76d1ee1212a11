#include "test_analysis.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "ordering.h"
#include "scatter_map.h"
#include "symbolic.h"

namespace vektest {

analysis analyse(vekio::sparse &a, int mtype, ivec *roworder, int method, int nparts,
                 int panel) {
  analysis s;
  int n = s.n = a.n;
  ivec &comi = s.comi;
  comi[9 - 1] = 2147483647;
  comi[12 - 1] = mtype;
  comi[14 - 1] = method;
  comi[15 - 1] = 1;
  comi[16 - 1] = panel;
  comi[17 - 1] = 1;
  comi[19 - 1] = vekio::symmetric_type(mtype) ? 1 : 0;
  comi[60 - 1] = nparts;
  comi[61 - 1] = 1024;
  comi[67 - 1] = roworder ? 1 : 0;
  s.perm.assign(n, 0);
  s.invp.assign(n, 0);
  s.parts.assign(1024, 0);
  s.xadj.assign(n + 1, 0);
  s.adjncy.assign(2 * static_cast<size_t>(a.nnz()) + 1, 0);
  ivec user(n, 0);
  double times[2];
  sssord(&n, a.ia.data(), a.ja.data(), comi.data(), user.data(),
         roworder ? roworder->data() : nullptr, s.xadj.data(), s.adjncy.data(),
         s.perm.data(), s.invp.data(), s.parts.data(), times);
  EXPECT_EQ(comi[50 - 1], 0) << "ordering";
  supernodes(s);
  EXPECT_EQ(s.error1, 0) << "supernodes";
  structure(s);
  EXPECT_EQ(s.error2, 0) << "structure";
  return s;
}

void supernodes(analysis &s) {
  const int n = s.n;
  s.colcnt.assign(n, 0);
  s.snode.assign(n, 0);
  s.xsup.assign(n + 1, 0);
  ivec work(tlm::sfinit_work_length(n));
  tlm::sfinit(&n, s.xadj.data(), s.adjncy.data(), s.perm.data(), s.invp.data(),
              s.parts.data(), s.colcnt.data(), s.snode.data(), s.xsup.data(), work.data(),
              s.comi.data(), &s.error1);
  s.ns = s.comi[31 - 1];
  s.parent.assign(work.begin(), work.begin() + n);  // the elimination tree
}

void structure(analysis &s) {
  const int n = s.n, ns = s.ns;
  s.xlindx.assign(ns + 1, 0);
  s.lindx.assign(std::max(1, s.comi[36 - 1]), 0);
  s.xlnz.assign(n + 1, 0);
  s.xunz.assign(n + 1, 0);
  for (ivec *v : {&s.sparent, &s.pnlsch, &s.nmod, &s.state1, &s.state2, &s.topcnt})
    v->assign(std::max(1, ns), 0);
  ivec work(tlm::symbfct_work_length(n, ns));
  double seconds = 0;
  tlm::symbfct(&n, s.comi.data(), &seconds, s.perm.data(), s.invp.data(), s.xadj.data(),
               s.adjncy.data(), s.colcnt.data(), s.xsup.data(), s.snode.data(),
               s.parts.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
               s.xunz.data(), s.sparent.data(), s.pnlsch.data(), s.nmod.data(),
               s.state1.data(), s.state2.data(), s.topcnt.data(), work.data(), &s.error2);
}

scatter_lists make_scatter_lists(const vekio::sparse &a, analysis &s, int mtype,
                                 const ivec *roworder, int rowflag) {
  const int n = a.n, e = a.nnz(), nadj = s.xadj[n] - 1;
  const bool sym = vekio::symmetric_type(mtype);
  scatter_lists L;
  L.lcount = L.ucount = -1;
  for (ivec *v : {&L.xjalf, &L.xjauf}) v->assign(n + 1 + 8, scatter_guard);
  for (ivec *v : {&L.jalf, &L.jauf, &L.luperm, &L.luperm_row}) v->assign(e + 8, scatter_guard);
  const long long wl = tlm::inv_perm_mod_mod_work_length(n, e, nadj, sym ? 1 : 0);
  ivec work(static_cast<size_t>(wl) + 8, scatter_guard);
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
    EXPECT_EQ(work[wl + k], scatter_guard) << "work overrun";
    EXPECT_EQ(L.luperm[e + k], scatter_guard);
    EXPECT_EQ(L.luperm_row[e + k], scatter_guard);
    EXPECT_EQ(L.xjalf[n + 1 + k], scatter_guard);
  }
  return L;
}

}  // namespace vektest
