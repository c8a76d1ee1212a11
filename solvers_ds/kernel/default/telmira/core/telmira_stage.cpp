// telmira_stage.cpp - the stages of the analysis below the phase driver:
// order, symbolic factorization, and the final layout of the structure.
#include "telmira_stage.h"
#include "telmira_slots.h"

#include <cstdlib>
#include <cstring>

#include "analysis_profile.h"
#include "ordering.h"
#include "parlist.h"
#include "scatter_map.h"
#include "service/vek_serv_clock.h"
#include "symbolic.h"
#include "telmira_layout.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

std::int64_t fi_layout(int n, int e, int nsuper, int c, int p, int t, int sym,
                       int rowflag, int *comx) {
  std::int64_t next = 1;
  auto place = [&](int k, std::int64_t len) {
    if (comx != nullptr) COMX(k) = static_cast<int>(next);
    next += len > 0 ? len : 0;
  };
  const std::int64_t N = n, S = nsuper, T = t < 1 ? 1 : t;
  place(CX_PERM, N);
  place(CX_INVP, N);
  place(CX_XSUP, S + 1);
  place(CX_SNODE, N);
  place(CX_XLINDX, S + 1);
  place(CX_LINDX, c);
  place(CX_XLNZ, N + 1);
  place(CX_XUNZ, N + 1);
  place(CX_NMOD, S);
  place(CX_PNLSCH, S);
  place(CX_PARTS, p);
  // The pivot records stand in each factor's own block.
  place(CX_PIVOT, 0);
  place(CX_CPIVOT, 0);
  place(CX_IWORK, 2 * T * N + N + S);
  place(CX_XNMOD, t > 1 ? S + 1 : 0);
  place(CX_XJALF, N + 1);
  place(CX_XJAUF, sym ? 0 : N + 1);
  place(CX_LUPERM, e);
  place(CX_LUPERM_ROW, rowflag ? e : 0);
  place(CX_JALF, e);
  place(CX_JAUF, sym ? 0 : e);
  return next - 1;
}

void stage_clock_start(double *comr, int *timer_flags) {
  double t = 0.0;
  telmira_clock(&t);
  comr[8] += t - comr[15];
  comr[15] = t;
  timer_flags[8] = 1;
}

void stage_clock_end(double *comr) { telmira_clock(&comr[15]); }

// Stage 1: adjacency and order (sssord), then elimination tree, column
// counts and supernodes (sfinit).
void stage_order(const stage_context &s) {
  int *comi = s.comi, *comx = s.comx, *timer_flags = s.timer_flags;
  double *comr = s.comr;
  void *s0 = s.struc_s0, *s1 = s.struc_s1, *work_i0 = s.work_i0;
  int *mc64perm = s.mc64perm;
  COMI(CI_STATUS) = 0;
  stage_clock_start(comr, timer_flags);
  int n = *s.neqns;
  double times[2] = {0.0, 0.0};
  // The matching's order reaches the ordering: the row order of the
  // unsymmetric types, the pivot order of the symmetric ones.
  int *match = COMI(CI_MATCHING) > 0 ? mc64perm : nullptr;
  sssord(&n, const_cast<int *>(s.ia), const_cast<int *>(s.ja), comi, s.perm, match,
         sub(s1, comx, CX_XADJ), sub(s1, comx, CX_ADJNCY),
         sub(s0, comx, CX_S0_PERM), sub(s0, comx, CX_S0_INVP),
         sub(s0, comx, CX_S0_PARTS), times);
  comr[0] = times[0];
  comr[1] = times[1];
  analysis_profile *prof = analysis_profile_sink();
  if (prof) {
    prof->graph = times[0];
    prof->reorder = times[1];
  }
  timer_flags[0] = 1;
  timer_flags[1] = 1;
  if (COMI(CI_STATUS) != 0) {
    stage_clock_end(comr);
    return;
  }
  double t0 = 0.0, t1 = 0.0;
  telmira_clock(&t0);
  int error = 0;
  sfinit(&n, sub(s1, comx, CX_XADJ), sub(s1, comx, CX_ADJNCY),
         sub(s0, comx, CX_S0_PERM), sub(s0, comx, CX_S0_INVP),
         sub(s0, comx, CX_S0_PARTS), sub(s0, comx, CX_S0_COLCNT),
         sub(s0, comx, CX_S0_SNODE), sub(s0, comx, CX_S0_XSUP),
         static_cast<int *>(work_i0), comi, &error);
  telmira_clock(&t1);
  comr[2] = t1 - t0;
  if (prof) prof->sfinit = t1 - t0;
  timer_flags[2] = 1;
  COMI(CI_STATUS) = error;
  stage_clock_end(comr);
}

// Stage 2: the structure of the factor.
void stage_symbolic(const stage_context &s) {
  int *comi = s.comi, *comx = s.comx, *timer_flags = s.timer_flags;
  double *comr = s.comr;
  void *s0 = s.struc_s0, *s1 = s.struc_s1, *s2 = s.struc_s2, *work_i0 = s.work_i0;
  COMI(CI_STATUS) = 0;
  stage_clock_start(comr, timer_flags);
  int error = 0;
  symbfct(s.neqns, comi, &comr[2], sub(s0, comx, CX_S0_PERM),
          sub(s0, comx, CX_S0_INVP), sub(s1, comx, CX_XADJ),
          sub(s1, comx, CX_ADJNCY), sub(s0, comx, CX_S0_COLCNT),
          sub(s0, comx, CX_S0_XSUP), sub(s0, comx, CX_S0_SNODE),
          sub(s0, comx, CX_S0_PARTS), sub(s2, comx, CX_S2_XLINDX),
          sub(s2, comx, CX_S2_LINDX), sub(s0, comx, CX_S0_XLNZ),
          sub(s0, comx, CX_S0_XUNZ), sub(s2, comx, CX_S2_SPARENT),
          sub(s2, comx, CX_S2_PNLSCH), sub(s2, comx, CX_S2_NMOD),
          sub(s2, comx, CX_S2_STATE1), sub(s2, comx, CX_S2_STATE2),
          sub(s2, comx, CX_S2_TOPCNT), static_cast<int *>(work_i0), &error);
  timer_flags[2] = 1;
  COMI(CI_STATUS) = error;
  stage_clock_end(comr);
}

namespace {

void copy_ints(int *to, const int *from, std::int64_t count) {
  if (count > 0) std::memcpy(to, from, static_cast<std::size_t>(count) * sizeof(int));
}

// Stage 3: the final structure in handle[STRUC_FI], the scatter lists of
// the input matrix, the parallel lists and the operation count.
}  // namespace

void stage_layout(const stage_context &s) {
  int *comi = s.comi, *comx = s.comx, *timer_flags = s.timer_flags, *iparam = s.iparam;
  int *ooc_l = s.ooc_l, *loc_int = s.loc_int, *mc64perm = s.mc64perm, *perm = s.perm;
  double *comr = s.comr;
  void *s0 = s.struc_s0, *s1 = s.struc_s1, *s2 = s.struc_s2, *fi = s.struc_fi,
       *work_i0 = s.work_i0;
  const int *neqns = s.neqns, *ia = s.ia, *ja = s.ja;
  COMI(CI_STATUS) = 0;
  stage_clock_start(comr, timer_flags);
  const int n = *neqns;
  const int ns = COMI(CI_NSUPER), c = COMI(CI_LINDX_LEN), p = COMI(CI_PARTS_LEN), t = COMI(CI_THREADS);
  const int e = COMI(CI_ENTRIES);
  const int sym = COMI(CI_TRIANGLE) == 1 ? 1 : 0;
  const int rowflag = COMI(CI_SCALING) != 0 ? 1 : 0;
  if (CTRL(IP_LU_ENTRIES) < 0) CTRL(IP_LU_ENTRIES) = COMI(CI_LNZ_LEN) + COMI(CI_UNZ_LEN);

  const std::int64_t end = fi_layout(n, e, ns, c, p, t, sym, rowflag, comx);
  copy_ints(sub(fi, comx, CX_PERM), sub(s0, comx, CX_S0_PERM), n);
  copy_ints(sub(fi, comx, CX_INVP), sub(s0, comx, CX_S0_INVP), n);
  copy_ints(sub(fi, comx, CX_XSUP), sub(s0, comx, CX_S0_XSUP), ns + 1);
  copy_ints(sub(fi, comx, CX_SNODE), sub(s0, comx, CX_S0_SNODE), n);
  copy_ints(sub(fi, comx, CX_XLINDX), sub(s2, comx, CX_S2_XLINDX), ns + 1);
  copy_ints(sub(fi, comx, CX_LINDX), sub(s2, comx, CX_S2_LINDX), c);
  copy_ints(sub(fi, comx, CX_XLNZ), sub(s0, comx, CX_S0_XLNZ), n + 1);
  copy_ints(sub(fi, comx, CX_XUNZ), sub(s0, comx, CX_S0_XUNZ), n + 1);
  copy_ints(sub(fi, comx, CX_NMOD), sub(s2, comx, CX_S2_NMOD), ns);
  copy_ints(sub(fi, comx, CX_PNLSCH), sub(s2, comx, CX_S2_PNLSCH), ns);
  copy_ints(sub(fi, comx, CX_PARTS), sub(s0, comx, CX_S0_PARTS), p);
  if (CTRL(IP_PERM_MODE) < 0) copy_ints(perm, sub(fi, comx, CX_PERM), n);

  // Where each entry of A goes in the factor.
  analysis_profile *prof = analysis_profile_sink();
  const double tmap = prof ? vek_serv_seconds() : 0.0;
  int *work = static_cast<int *>(work_i0);
  int lcount = 0, ucount = 0;
  if (sym) {
    inv_perm_mod_mod_sym(neqns, ia, ja, sub(fi, comx, CX_PERM),
                         sub(fi, comx, CX_INVP), &ns, sub(fi, comx, CX_XSUP),
                         sub(fi, comx, CX_XLINDX), sub(fi, comx, CX_LINDX),
                         sub(fi, comx, CX_XLNZ), sub(s1, comx, CX_XADJ),
                         sub(s1, comx, CX_ADJNCY), &rowflag,
                         sub(fi, comx, CX_XJALF), sub(fi, comx, CX_JALF),
                         sub(fi, comx, CX_LUPERM),
                         rowflag ? sub(fi, comx, CX_LUPERM_ROW) : nullptr,
                         &lcount, work);
  } else {
    const int mtype = COMI(CI_MTYPE);
    const int *roworder =
        (mtype > 10 && COMI(CI_MATCHING) > 0 && mc64perm != nullptr) ? mc64perm : nullptr;
    inv_perm_mod_mod(neqns, ia, ja, sub(fi, comx, CX_PERM),
                     sub(fi, comx, CX_INVP), &ns, sub(fi, comx, CX_XSUP),
                     sub(fi, comx, CX_XLINDX), sub(fi, comx, CX_LINDX),
                     sub(fi, comx, CX_XLNZ), sub(fi, comx, CX_XUNZ),
                     sub(s1, comx, CX_XADJ), sub(s1, comx, CX_ADJNCY), &mtype,
                     roworder, &rowflag, sub(fi, comx, CX_XJALF),
                     sub(fi, comx, CX_JALF), sub(fi, comx, CX_XJAUF),
                     sub(fi, comx, CX_JAUF), sub(fi, comx, CX_LUPERM),
                     rowflag ? sub(fi, comx, CX_LUPERM_ROW) : nullptr, &lcount,
                     &ucount, work);
    // The U lists close up behind the L lists.
    int *jalf = sub(fi, comx, CX_JALF);
    std::memmove(jalf + lcount, sub(fi, comx, CX_JAUF),
                 static_cast<std::size_t>(ucount) * sizeof(int));
    COMX(CX_JAUF) = COMX(CX_JALF) + lcount;
  }
  COMX(CX_FI_END) = static_cast<int>(end - (sym ? 0 : e));
  if (prof) prof->scatter = vek_serv_seconds() - tmap;

  // Lists of the parallel numeric phase.
  if (t > 1) {
    double t0 = 0.0, t1 = 0.0;
    telmira_clock(&t0);
    const int np = COMI(CI_NPARTS), mtype = COMI(CI_MTYPE);
    // loc_int: slindx, slength, then the source index
    const int cap = c;
    int total = 0, ntop = 1, error = 0;
    parlist(&ns, neqns, &cap, sub(fi, comx, CX_XLINDX), sub(fi, comx, CX_LINDX),
            sub(fi, comx, CX_XSUP), sub(fi, comx, CX_SNODE),
            sub(fi, comx, CX_NMOD), &np, sub(fi, comx, CX_PARTS), &mtype,
            sub(fi, comx, CX_XNMOD), loc_int + 2 * static_cast<std::int64_t>(cap),
            loc_int, loc_int + cap, &total, &ntop, &error);
    COMI(CI_LIST_END) = total;
    COMI(CI_NTOP) = ntop;
    COMI(CI_INLIST_END) = sub(fi, comx, CX_XNMOD)[ns];
    telmira_clock(&t1);
    comr[3] = t1 - t0;
    if (prof) prof->lists = t1 - t0;
    timer_flags[3] = 1;
    if (error != 0) {
      COMI(CI_STATUS) = -1;
      stage_clock_end(comr);
      return;
    }
  }

  // The operation count of the factorization.
  if (COMI(CI_MSGLVL) > 0 || CTRL(IP_MFLOP) < 0 || OOCL(OL_MODE) == 2) {
    double mflop = 0.0;
    const int mtype = COMI(CI_MTYPE);
    flops_estimate(&ns, sub(fi, comx, CX_XSUP), sub(fi, comx, CX_SNODE),
                   sub(fi, comx, CX_XLINDX), sub(fi, comx, CX_LINDX), work,
                   work + ns, &sym, &mtype, &mflop);
    comr[14] = mflop;
    if (CTRL(IP_MFLOP) < 0) CTRL(IP_MFLOP) = mflop < 2147483647.0 ? static_cast<int>(mflop) : 2147483647;
  }
  stage_clock_end(comr);
}

}  // namespace tlm
