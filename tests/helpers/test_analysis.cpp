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
  ivec colcnt(n), work(tlm::sfinit_work_length(n));
  s.snode.assign(n, 0);
  s.xsup.assign(n + 1, 0);
  int error = 0;
  tlm::sfinit(&n, s.xadj.data(), s.adjncy.data(), s.perm.data(), s.invp.data(),
              s.parts.data(), colcnt.data(), s.snode.data(), s.xsup.data(), work.data(),
              comi.data(), &error);
  EXPECT_EQ(error, 0) << "supernodes";
  const int ns = s.ns = comi[31 - 1];
  s.xlindx.assign(ns + 1, 0);
  s.lindx.assign(std::max(1, comi[36 - 1]), 0);
  s.xlnz.assign(n + 1, 0);
  s.xunz.assign(n + 1, 0);
  s.nmod.assign(std::max(1, ns), 0);
  std::vector<ivec> tree(5, ivec(std::max(1, ns)));
  ivec work2(tlm::symbfct_work_length(n, ns));
  double seconds = 0;
  tlm::symbfct(&n, comi.data(), &seconds, s.perm.data(), s.invp.data(), s.xadj.data(),
               s.adjncy.data(), colcnt.data(), s.xsup.data(), s.snode.data(),
               s.parts.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
               s.xunz.data(), tree[0].data(), tree[1].data(), s.nmod.data(), tree[2].data(),
               tree[3].data(), tree[4].data(), work2.data(), &error);
  EXPECT_EQ(error, 0) << "structure";
  return s;
}

scatter_lists make_scatter_lists(const vekio::sparse &a, analysis &s, int mtype,
                                 const ivec *roworder, int rowflag) {
  const int n = a.n, e = a.nnz(), nadj = s.xadj[n] - 1;
  const bool sym = vekio::symmetric_type(mtype);
  scatter_lists L;
  L.xjalf.assign(n + 1, 0);
  L.xjauf.assign(n + 1, 0);
  for (ivec *v : {&L.jalf, &L.jauf, &L.luperm, &L.luperm_row}) v->assign(e + 1, 0);
  ivec work(static_cast<size_t>(tlm::inv_perm_mod_mod_work_length(n, e, nadj, sym ? 1 : 0)));
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
  return L;
}

}  // namespace vektest
