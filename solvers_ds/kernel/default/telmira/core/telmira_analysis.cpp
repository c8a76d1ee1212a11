// telmira_analysis.cpp - the analysis of a call in its steps. Each step
// allocates what it needs by the storage plan, runs, and checks; a failed
// step ends the analysis with its error number, leaving what it made for
// the next analysis or release to free.
//
//   parts        the part count of the parallel plan
//   structure    a structure that the matching and ordering can take
//   matching     the permutation and scalings (identity when switched off)
//   order        the analysis blocks, stage 1 (sssord, sfinit)
//   symbolic     stage 2 (symbfct)
//   mode         the memory forecast and the storage mode
//   layout       the final structure, stage 3 (scatter and parallel lists)
//   release      the analysis blocks go, the final structure shrinks, the
//                update lists of the parallel sweeps
//   files        out of core: the memory plan and the factor files
//   plan         the numeric plan, committed
#include "telmira_call.h"
#include "telmira_slots.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "analysis_profile.h"
#include "ordering.h"
#include "parlist.h"
#include "scatter_map.h"
#include "service/vek_serv_clock.h"
#include "service/vek_serv_memory.h"
#include "service/vek_serv_message.h"
#include "telmira_layout.h"
#include "telmira_matching.h"
#include "telmira_ooc_arena.h"
#include "telmira_ooc_files.h"
#include "telmira_types.h"

namespace tlm {

namespace {

// Number of parts of the parallel plan and the length of the separator
// work list.
void plan_parts(int *comi) {
  const int n = COMI(CI_N);
  const int t = COMI(CI_THREADS);
  const int target = (COMI(CI_MTYPE) == 11 && t >= 2) ? t : 32;
  int parts = 1;
  while (parts < target) parts *= 2;
  int cap = 1;
  while (cap <= n / 2) cap *= 2;
  COMI(CI_NPARTS) = parts < cap ? parts : cap;
  const int list = 4 * COMI(CI_NPARTS) + 4;
  COMI(CI_PARTS_LEN) = list > 1024 ? list : 1024;
}

// Length W of handle[WORK_I0], without its 15 extra words.
std::int64_t work_i0_length(const int *comi, const int *iparam) {
  const std::int64_t n = COMI(CI_N), t = COMI(CI_THREADS), p = COMI(CI_PARTS_LEN), h = COMI(CI_ADJ_LEN);
  const int method = COMI(CI_METHOD);
  const bool dissection = method == 2 || method == 3;
  const bool q = (dissection && COMI(CI_TRIANGLE) == 1) || (CTRL(IP_PERM_MODE) == 1 && COMI(CI_MTYPE) < 11);
  const std::int64_t l = dissection ? 5 : t + p + n + 3 + h;
  std::int64_t w = 2 * n + 3;
  auto widen = [&w](std::int64_t v) {
    if (v > w) w = v;
  };
  widen(l);
  widen(2 * n + 2 * n * t + 1 + t);
  widen(n * t);
  if (q) {
    widen(3 * n + 3);
    widen(n + n * t);
  } else {
    widen(h + 3 + 3 * n);
    widen(n + h + n * t);
  }
  return w;
}

// The forecast counts of handle[STRUC_FI], in words, without the 35 extra.
struct fi_counts {
  std::int64_t in_core;
  std::int64_t out_of_core;
};

fi_counts fi_forecast(const int *comi, const int *ooc_l, std::int64_t e) {
  const std::int64_t n = COMI(CI_N), t = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS), p = COMI(CI_PARTS_LEN),
                     h = COMI(CI_ADJ_LEN), s = COMI(CI_NSUPER), c = COMI(CI_LINDX_LEN);
  const std::int64_t o6 = OOCL(OL_ROW_LIST), o45 = OOCL(OL_SCATTER_LIST);
  const bool S = COMI(CI_TRIANGLE) == 1;
  const std::int64_t b =
      p + 7 * s + 6 * n + (t < 2 ? 4 : 6 + 2 * s) + s + 4 * n + 2 * t * n + 7;
  const std::int64_t g = t + t * o45;
  fi_counts k;
  k.in_core = o6 * t + c + b + (e + 1) + g + e + g;
  if (!S) k.in_core += h + 3 + n;
  if (COMI(CI_SCALING) != 0) k.in_core += e;
  if (S)
    k.out_of_core = b + g + g + 12 + 6 * s + (COMI(CI_SCALING) != 0 ? g : 0);
  else
    k.out_of_core = b + g + (2 * o45 + 2) * t + h + n + 3 + 12 + 6 * s +
                    (COMI(CI_SCALING) != 0 ? (2 * o45 + 2) * t : 0);
  return k;
}

std::int64_t megabytes(std::int64_t bytes) { return (bytes >> 10) >> 10; }
std::int64_t magnitude(std::int64_t v) { return v < 0 ? -v : v; }

// The steps share the call and what the earlier steps found.
template <class R> struct analysis_steps {
  std::intptr_t *handle;
  int *iparam;
  const call_args &c;
  call_record *rec;
  int mark;
  int *comi, *comx, *ooc_l;
  storage_sums *sums;
  int *status;
  std::int64_t n, e, t = 1, p = 0, h = 0, ns = 0, cl = 0;
  int mt;
  void *ddist_mps = nullptr;  // the parts of the symmetric matching
  void *loc_int = nullptr;    // the parallel lists until stage 3 is done
  std::int64_t work_i0_bytes = 0;
  fi_counts counts{};
  analysis_profile *prof = analysis_profile_sink();  // null: not timed

  analysis_steps(std::intptr_t *h_, int *ip, const call_args &c_, call_record *r, int m)
      : handle(h_), iparam(ip), c(c_), rec(r), mark(m) {
    state_view s = state_of(handle);
    comi = s.comi;
    comx = s.comx;
    ooc_l = s.ooc_l;
    sums = &rec->sums;
    status = &rec->status;
    n = COMI(CI_N);
    e = rec->entries;
    mt = COMI(CI_MTYPE);
  }
  ~analysis_steps() {
    storage_free(&ddist_mps, mark);
    storage_free(&loc_int, mark);
  }

  bool failed(int error) {
    rec->error = error;
    return false;
  }
  // Error of a failed stage: -8 for an overflow, -2 for scratch memory
  // that could not be had, -3 otherwise.
  bool stage_failed(int st) {
    rec->status = st;
    CTRL(IP_STATUS) = st;
    return failed(st == -182 ? -8 : st == ORDERING_NO_MEMORY ? -2 : -3);
  }
  // Seconds since t0, added to *slot of the profile when there is one.
  void took(double *slot, double t0) {
    if (prof == nullptr) return;
    *slot += vek_serv_seconds() - t0;
  }
  double start() const { return prof != nullptr ? vek_serv_seconds() : 0.0; }
  bool alloc_slot(int slot, std::int64_t bytes, int failure_status) {
    const double t0 = start();
    const bool ok = storage_alloc_slot(handle, slot, bytes, failure_status, status, sums) != 0;
    if (prof) took(&prof->alloc, t0);
    return ok;
  }
  // Resizes an integer slot; the sums are the caller's business.
  bool resize_slot(int slot, std::int64_t bytes, int failure_status) {
    void *old = reinterpret_cast<void *>(handle[slot]);
    const double t0 = start();
    void *q = bytes <= INT_MAX ? vek_serv_realloc(old, static_cast<std::size_t>(bytes)) : nullptr;
    if (prof) took(&prof->alloc, t0);
    if (q == nullptr) {
      rec->status = failure_status;
      sums->failed_bytes = bytes;
      sums->failed_sum = sums->analysis;
      return false;
    }
    handle[slot] = reinterpret_cast<std::intptr_t>(q);
    return true;
  }
  stage_context context() {
    return context_of(handle, iparam, c, rec, nullptr, static_cast<int *>(loc_int));
  }

  bool structure() {
    if (!is_defined_type(mt)) return stage_failed(ORDERING_TYPE_UNDEFINED);
    const int st =
        ordering_pattern_sound(static_cast<int>(n), c.ia, c.ja, COMI(CI_TRIANGLE) == 1, mt > 10);
    if (st != 0) return stage_failed(st);
    return true;
  }

  bool matching() {
    const bool matched = COMI(CI_MATCHING) > 0;
    if (!matched && mt <= 10) return true;
    if (!alloc_slot(MC64PERM, 4 * (static_cast<std::int64_t>(COMI(CI_MAX_FAC_STORE)) * n + n + 3),
                    ST_MC64PERM) ||
        !alloc_slot(MC64UV, 2 * n * sizeof(R), ST_MC64UV))
      return failed(-2);
    if (!matched) {
      // Types above 10 without matching: the identity and unit scalings.
      int *perm = reinterpret_cast<int *>(handle[MC64PERM]);
      R *uv = reinterpret_cast<R *>(handle[MC64UV]);
      for (std::int64_t i = 0; i < n; ++i) perm[i] = static_cast<int>(i + 1);
      for (std::int64_t i = 0; i < 2 * n; ++i) uv[i] = R(1);
      return true;
    }
    // The matching's own work arrays live only within this step; the sum
    // goes back to its earlier value when they are freed.
    const int sum_before = sums->analysis;
    const bool complex_values = mt == -4 || mt == 6 || mt == 13;
    const bool symmetric = mt == -4 || mt == -2 || mt == 6;
    void *mc64_i = nullptr, *mc64_r = nullptr;
    int error = 0;
    if (!storage_alloc(&mc64_i, 4 * (6 * n + 20) + 12, ST_MC64_I, status, sums) ||
        !storage_alloc(&mc64_r, sizeof(R) * (3 * n + (complex_values ? 2 * e : e)),
                       ST_MC64_R, status, sums)) {
      error = -2;
    } else if (words_per_value(mt) == 1 && COMI(CI_MATCHING) >= 2) {
      // Real types know only the first matching mode.
      rec->status = COMI(CI_MATCHING) <= 4 ? 1 : 0;
      error = -6;
    } else if (symmetric &&
               !storage_alloc(&ddist_mps, 4 * std::max<std::int64_t>(COMI(CI_PARTS_LEN), 16),
                              ST_MC64_I, status, sums)) {
      error = -2;
    } else {
      int bad = 0;
      const int st = telmira_matching<R>(
          comi, c.a, c.ia, c.ja, static_cast<int *>(mc64_i), static_cast<R *>(mc64_r),
          static_cast<int *>(ddist_mps), reinterpret_cast<int *>(handle[MC64PERM]),
          reinterpret_cast<R *>(handle[MC64UV]), &bad);
      if (bad == 2) {
        rec->status = ST_MC64_I;
        error = -2;
      } else if (bad) {
        rec->status = st;
        error = -6;
      }
    }
    storage_free(&mc64_i, mark);
    storage_free(&mc64_r, mark);
    sums->analysis = sum_before;
    return error == 0 ? true : failed(error);
  }

  bool order() {
    t = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
    p = COMI(CI_PARTS_LEN);
    h = COMI(CI_ADJ_LEN);
    if (!alloc_slot(STRUC_S0, 4 * ((2 * t + 3) * n + p + 7 * n + 24), ST_STRUC_S0))
      return failed(-2);
    const std::int64_t w = work_i0_length(comi, iparam);
    COMI(CI_WORK_I0_LEN) = static_cast<int>(w);
    if (COMI(CI_TRIANGLE) == 1) COMI(CI_TRANSPOSED) = 0;
    if (!alloc_slot(WORK_I0, 4 * (w + 15), ST_WORK_I0) ||
        !alloc_slot(STRUC_S1, 4 * (h + 17 + 2 * n), ST_STRUC_S1))
      return failed(-2);
    work_i0_bytes = 4 * (w + 15);
    COMX(CX_XADJ) = 1;
    COMX(CX_ADJNCY) = static_cast<int>(n + 2);
    COMX(CX_S0_PERM) = 1;
    COMX(CX_S0_INVP) = static_cast<int>(n + 1);
    COMX(CX_S0_PARTS) = static_cast<int>(2 * n + 1);
    COMX(CX_S0_COLCNT) = static_cast<int>(2 * n + p + 1);
    COMX(CX_S0_SNODE) = static_cast<int>(3 * n + p + 1);
    COMX(CX_S0_XSUP) = static_cast<int>(4 * n + p + 1);
    COMX(CX_S0_XLNZ) = static_cast<int>(5 * n + p + 2);
    COMX(CX_S0_XUNZ) = static_cast<int>(6 * n + p + 3);
    if (ddist_mps != nullptr) {
      // The symmetric order comes with its parts: the ranges of the list,
      // then the top region; the pairs behind them stay empty.
      int *parts = sub(reinterpret_cast<void *>(handle[STRUC_S0]), comx, CX_S0_PARTS);
      const int *list = static_cast<const int *>(ddist_mps);
      const std::int64_t used = 2 * (static_cast<std::int64_t>(COMI(CI_NPARTS)) + 1);
      for (std::int64_t k = 0; k < p; ++k) parts[k] = k < used ? list[k] : 0;
      storage_free(&ddist_mps, mark);
    }
    stage_order(context());
    return COMI(CI_STATUS) == 0 ? true : stage_failed(COMI(CI_STATUS));
  }

  bool symbolic() {
    ns = COMI(CI_NSUPER);
    cl = COMI(CI_LINDX_LEN);
    if (!alloc_slot(STRUC_S2, 4 * (7 * ns + 18 + cl), ST_STRUC_S2)) return failed(-2);
    COMX(CX_S2_XLINDX) = 1;
    COMX(CX_S2_LINDX) = static_cast<int>(ns + 2);
    for (int k = 0; k < 6; ++k) COMX(CX_S2_SPARENT + k) = static_cast<int>(ns + 2 + cl + k * ns);
    const double t0 = start();
    stage_symbolic(context());
    if (prof) took(&prof->symbolic, t0);
    return COMI(CI_STATUS) == 0 ? true : stage_failed(COMI(CI_STATUS));
  }

  // The memory forecast in megabytes, and the storage mode with its line.
  bool mode() {
    counts = fi_forecast(comi, ooc_l, e);
    const std::int64_t I = megabytes(4 * (counts.in_core + 35));
    const std::int64_t O = megabytes(4 * (counts.out_of_core + 35));
    int phase22 = 22;
    const int no_commit = 0;
    fact_sizes forecast{};
    fact_plan(&phase22, c.nb, handle, nullptr, &mark, &no_commit, &forecast);
    const std::int64_t wv = words_per_value(mt);
    const std::int64_t F = megabytes(
        static_cast<std::int64_t>(sizeof(R)) *
        (wv * (static_cast<std::int64_t>(COMI(CI_LNZ_LEN)) + COMI(CI_UNZ_LEN)) + magnitude(forecast.work) +
         magnitude(forecast.iteration)));
    const std::int64_t D = megabytes(8 * cl);
    CTRL(IP_FORECAST_PEAK) = static_cast<int>(sums->analysis / 1024 + 1 + I);
    CTRL(IP_FORECAST_IC) = static_cast<int>(I + 1);
    CTRL(IP_FORECAST_FACTOR) = static_cast<int>(F + 1);
    int out_of_core = 0, line = 989;
    if (OOCL(OL_MODE) == 1) {
      if (CTRL(IP_FORECAST_PEAK) < OOCL(OL_CORE_MB) && F + 2 + D < OOCL(OL_CORE_MB)) {
        line = 987;
      } else {
        out_of_core = 1;
        line = 988;
      }
    } else if (OOCL(OL_MODE) == 2) {
      out_of_core = 1;
      line = 990;
    }
    if (rec->level > 0) {
      vek_serv_print_message(0, 0, 0);
      vek_serv_print_message(0, line, 0);
      vek_serv_print_message(0, 0, 0);
    }
    if (out_of_core && sums->analysis / 1024 + 1 + O > OOCL(OL_CORE_MB)) {
      CTRL(IP_PEAK_KB) = static_cast<int>((O + 1) * 1024 + sums->analysis);
      OOCL(OL_STATUS) = -9;
      rec->status = -9;
      return failed(-9);
    }
    OOCL(OL_MODE) = out_of_core ? 2 : 0;
    return true;
  }

  // Out of core: the panel bounds, the memory plan (-9 when the budget
  // cannot hold its floor), the directories of the factor files and the
  // size of the panel buffers that replace the factor block.
  bool files() {
    COMI(CI_OOC_VALUES) = 0;
    OOCL(OL_ALGORITHM) = 0;
    if (OOCL(OL_MODE) != 2) return true;
    void *fi = reinterpret_cast<void *>(handle[STRUC_FI]);
    const int *xsup = sub(fi, comx, CX_XSUP), *xlnz = sub(fi, comx, CX_XLNZ),
              *xlindx = sub(fi, comx, CX_XLINDX);
    const int nsuper = COMI(CI_NSUPER);
    telmira_ooc_panel_bounds(ooc_l, nsuper, xsup, xlnz, xlindx);
    ooc_plan_input in{};
    in.nparts = COMI(CI_NPARTS);
    in.parts = sub(fi, comx, CX_PARTS);
    in.nsuper = nsuper;
    in.xsup = xsup;
    in.xlnz = xlnz;
    in.xlindx = xlindx;
    in.lindx = sub(fi, comx, CX_LINDX);
    in.snode = sub(fi, comx, CX_SNODE);
    in.threads = static_cast<int>(t);
    in.words = COMI(CI_WORDS);
    in.int_words = COMX(CX_FI_END);
    if (telmira_ooc_plan(ooc_l, in) != 0) {
      CTRL(IP_PEAK_KB) = sums->analysis;
      rec->status = -9;
      return failed(-9);
    }
    CTRL(IP_OOC_LEVEL) = OOCL(OL_ALGORITHM);
    OOCL(OL_FILE_LIMIT) = OOC_MAX_FILE_BYTES;
    const bool upper = COMI(CI_TRIANGLE) != 1;
    const int elem = static_cast<int>(sizeof(R)) * words_per_value(mt);
    ooc_file *ooc = static_cast<ooc_file *>(state_of(handle).ooc);
    const int st_l = telmira_ooc_prepare(ooc + (OOC_LNZ - 1), nsuper,
                                         static_cast<std::int64_t>(COMI(CI_LNZ_LEN)) * elem, elem,
                                         mt == 2);
    const int st_u = upper ? telmira_ooc_prepare(ooc + (OOC_UNZ - 1), nsuper,
                                                 static_cast<std::int64_t>(COMI(CI_UNZ_LEN)) * elem,
                                                 elem, 0)
                           : 0;
    if (st_l != 0 || st_u != 0) {
      rec->status = st_l != 0 ? st_l : st_u;
      return failed(-2);
    }
    std::int64_t lvalues = 0;
    const std::int64_t values = telmira_ooc_block_values(
        mt == 2, upper, OOCL(OL_PANEL_VALUES), OOCL(OL_ARENA_VALUES), &lvalues);
    COMI(CI_OOC_VALUES) = static_cast<int>(values);
    return true;
  }

  bool layout() {
    const int rowflag = COMI(CI_SCALING) != 0 ? 1 : 0;
    const std::int64_t words =
        fi_layout(static_cast<int>(n), static_cast<int>(e), static_cast<int>(ns),
                  static_cast<int>(cl), static_cast<int>(p), static_cast<int>(t), COMI(CI_TRIANGLE) == 1,
                  rowflag, nullptr);
    if (!alloc_slot(STRUC_FI, 4 * (std::max(counts.in_core, words) + 35), ST_STRUC_FI))
      return failed(-2);
    // handle[WORK_I0] serves the scatter map next; it grows when the plan's
    // length is short of what that step needs.
    const int method = COMI(CI_METHOD);
    const bool q = ((method == 2 || method == 3) && COMI(CI_TRIANGLE) == 1) || (CTRL(IP_PERM_MODE) == 1 && mt < 11);
    std::int64_t want = q ? 4 * (3 * n + 18 + h) : work_i0_bytes;
    const int nadj = reinterpret_cast<int *>(handle[STRUC_S1])[n] - 1;
    const std::int64_t map_bytes =
        4 * (inv_perm_mod_mod_work_length(static_cast<int>(n), static_cast<int>(e), nadj,
                                          COMI(CI_TRIANGLE) == 1) +
             2 * ns + 16);
    if (map_bytes > want) want = map_bytes;
    if (want != work_i0_bytes) {
      if (!resize_slot(WORK_I0, want, ST_WORK_I0)) return failed(-2);
      sums->analysis += kbytes_of(want) - kbytes_of(work_i0_bytes);
      work_i0_bytes = want;
    }
    if (t > 1) {
      // slindx and slength, then the cursor array of the sources
      const std::int64_t cells =
          std::max<std::int64_t>(ns + 1, parlist_cells(static_cast<int>(ns), COMI(CI_NPARTS)));
      const std::int64_t bytes = std::max<std::int64_t>(8 * cl + 60, 4 * (2 * cl + cells + 16));
      const double t0 = start();
      const bool ok = storage_alloc(&loc_int, bytes, ST_LOC_INT, status, sums);
      if (prof) took(&prof->alloc, t0);
      if (!ok) return failed(-2);
    }
    stage_layout(context());
    CTRL(IP_OOC_LEVEL) = OOCL(OL_ALGORITHM);
    return COMI(CI_STATUS) == 0 ? true : stage_failed(COMI(CI_STATUS));
  }

  bool release() {
    sums->counting = 0;
    storage_free_slot(handle, STRUC_S0, mark);
    storage_free_slot(handle, STRUC_S1, mark);
    storage_free_slot(handle, STRUC_S2, mark);
    storage_free_slot(handle, WORK_I0, mark);
    const std::int64_t fi_bytes = 4 * static_cast<std::int64_t>(COMX(CX_FI_END)) + 12;
    if (!resize_slot(STRUC_FI, fi_bytes, ST_STRUC_FI)) return failed(-2);
    sums->permanent = kbytes_of(fi_bytes);
    if (t < 2) return true;
    // The update lists of the parallel sweeps, from stage 3's lists.
    const std::int64_t qtop = COMI(CI_NPARTS) == 1 ? 1 : COMI(CI_NTOP);
    const std::int64_t cells =
        std::max<std::int64_t>(ns + 1, parlist_cells(static_cast<int>(qtop), COMI(CI_NPARTS)));
    const std::int64_t len =
        std::max<std::int64_t>(COMI(CI_NPARTS) * qtop + ns + qtop + 16, cells) +
        2 * static_cast<std::int64_t>(COMI(CI_LIST_END)) + 2 * static_cast<std::int64_t>(COMI(CI_INLIST_END));
    sums->counting = 1;
    const bool ok = alloc_slot(UP_UPLEN, 4 * len, ST_UP_UPLEN);
    sums->counting = 0;
    if (!ok) return failed(-2);
    sums->permanent += kbytes_of(4 * len);
    int *up = reinterpret_cast<int *>(handle[UP_UPLEN]);
    const int *li = static_cast<int *>(loc_int);
    const std::int64_t total = COMI(CI_LIST_END);
    COMX(CX_XSLINDX) = 1;
    COMX(CX_SLINDX) = static_cast<int>(cells + 1);
    COMX(CX_SLENGTH) = static_cast<int>(cells + 1 + total);
    COMX(CX_INLIST) = static_cast<int>(cells + 1 + 2 * total);
    std::memcpy(up, li + 2 * cl, static_cast<std::size_t>(cells) * 4);
    std::memcpy(up + cells, li, static_cast<std::size_t>(total) * 4);
    std::memcpy(up + cells + total, li + cl, static_cast<std::size_t>(total) * 4);
    storage_free(&loc_int, mark);
    return true;
  }

  // The numeric plan, committed for a factorization with this nb.
  void plan() {
    int phase22 = 22;
    const int commit = 1;
    fact_sizes plan{};
    fact_plan(&phase22, c.nb, handle, nullptr, &mark, &commit, &plan);
    const std::int64_t wv = words_per_value(mt);
    auto kb = [&](std::int64_t values) {
      return kbytes_of(magnitude(values) * static_cast<std::int64_t>(sizeof(R)) * wv);
    };
    sums->numeric = kb(plan.factor) + kb(plan.iteration / wv) + kb(plan.work / wv);
    CTRL(IP_PEAK_KB) = sums->analysis;
    CTRL(IP_PERMANENT_KB) = sums->permanent;
    CTRL(IP_NUMERIC_KB) = sums->numeric;
  }
};

}  // namespace

template <class R>
void analysis_phase(std::intptr_t *handle, int *iparam, const call_args &c,
                    call_record *rec, int mark) {
  analysis_profile *prof = analysis_profile_sink();
  const double t0 = vek_serv_seconds();
  if (prof) *prof = analysis_profile{};
  plan_parts(state_of(handle).comi);
  analysis_steps<R> a(handle, iparam, c, rec, mark);
  if (a.structure() && a.matching() && a.order() && a.symbolic()) {
    double tm = a.start();
    const bool planned = a.mode();
    if (prof) a.took(&prof->plan, tm);
    if (planned && a.layout() && a.release() && a.files()) {
      tm = a.start();
      a.plan();
      if (prof) a.took(&prof->plan, tm);
    }
  }
  if (prof) prof->total = vek_serv_seconds() - t0;
}

template void analysis_phase<double>(std::intptr_t *, int *, const call_args &, call_record *,
                                     int);
template void analysis_phase<float>(std::intptr_t *, int *, const call_args &, call_record *,
                                    int);

}  // namespace tlm
