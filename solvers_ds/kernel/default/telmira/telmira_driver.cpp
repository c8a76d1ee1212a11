// telmira_driver.cpp - phase drivers of the two precisions.
//
// One template over the precision, instantiated as telmira_double and
// telmira_single. A call runs: the start of a call (state creation in the
// handle, the release of ido 0 and -1, the defaults and the initialisation
// of an analysis, telmira_check); the analysis in its steps (parts, the
// matching arrays, the analysis blocks, stages 1 and 2, the memory forecast
// and the storage mode, the final structure, stage 3, the release of the
// analysis blocks, the committed numeric plan); factorization and solve
// (the factor block, the work array, stage 4); and the end of a call
// (memory figures, error numbers, the report).
//
// Every array hangs on the handle by the storage plan; the stages find
// their sub-arrays by the positions in comx (telmira_layout.h).
#include "telmira_internal.h"
#include "telmira_storage.h"

#include "ordering.h"
#include "parlist.h"
#include "scatter_map.h"
#include "service/vek_serv_memory.h"
#include "service/vek_serv_message.h"
#include "telmira_layout.h"
#include "telmira_matching.h"
#include "telmira_numeric.h"
#include "telmira_ooc_config.h"
#include "telmira_stage.h"
#include "telmira_statistics.h"
#include "telmira_types.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

using namespace tlm;

// Everything the end of a call needs to know about its course.
struct call_record {
  int status;
  int error;
  int level;          // limited message level, 0 or 1
  int phase;          // the phase as the call asked for it
  int entries;        // stored entries of this call's matrix
  int entries_in;     // ia(neqns+1)-1 as the caller gave it
  int stored_entries; // COMI(54) when the call began
  int quiet;          // 1: return without the end of a call
  storage_sums sums;
  int timer_flags[TELMIRA_TIMER_FLAGS];
};

std::int64_t n_of(const int *comi) { return COMI(1); }

// Defaults of the control array, written at an analysis when iparam(1) is 0.
void fill_defaults(int *iparam, int mtype) {
  CTRL(2) = 2;
  for (int k = 4; k <= 14; ++k) CTRL(k) = 0;
  for (int k = 18; k <= 25; ++k) CTRL(k) = 0;
  CTRL(18) = -1;
  CTRL(19) = -1;
  CTRL(50) = 0;
  CTRL(60) = 0;
  switch (mtype) {
    case 1: case 3:
      CTRL(10) = 13;
      break;
    case 11: case 13:
      CTRL(10) = 13; CTRL(11) = 1; CTRL(13) = 1;
      break;
    case -4: case -2: case 6:
      CTRL(10) = 8; CTRL(21) = 1;
      break;
    default:
      break;
  }
}

// Initialisation of the state at the start of an analysis.
void start_analysis(std::intptr_t *handle, int *iparam, int mtype, int mark) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *comx = s.comx;
  double *comr = s.comr;
  handle[SLOT_COUNT] = 0;
  const int entries = COMI(49);  // size of all_fact_adr, fixed at creation
  for (int k = 1; k <= COMX_WORDS; ++k) COMX(k) = mark;
  for (int k = 1; k <= 70; ++k) COMI(k) = 0;
  COMI(49) = entries;
  for (int k = 0; k < COMR_WORDS; ++k) comr[k] = 0.0;
  if (CTRL(1) == 0) fill_defaults(iparam, mtype);
  if (mtype == -4 || mtype == -2 || mtype == 6 || mtype == 11 || mtype == 13) {
    if (CTRL(13) > 0) {
      COMI(67) = CTRL(13);
      if (CTRL(11) == 1) COMI(69) = 1;
    }
  }
  COMI(68) = CTRL(12);
  COMI(74) = 0;
  COMI(9) = 2147483647;
  COMI(10) = 6;
  COMI(14) = 2;
  COMI(15) = CTRL(3);
  COMI(17) = 1;
  COMI(24) = 1;
  COMI(25) = 1;
  COMI(40) = 10000;
  COMI(73) = CTRL(26);
  comr[10] = 10.0;
  comr[11] = 1.0;
  comr[12] = 1e-12;
  comr[13] = 1e-30;
  for (int k = 1; k <= COMI(49); ++k)
    reset_fact_entry(s.fact_adr + (k - 1) * LENG_FACT_ADR, mark);
}

// Number of parts of the parallel plan and the length of the separator
// work list.
void plan_parts(int *comi) {
  const int n = COMI(1);
  const int t = COMI(15);
  const int target = (COMI(12) == 11 && t >= 2) ? t : 32;
  int parts = 1;
  while (parts < target) parts *= 2;
  int cap = 1;
  while (cap <= n / 2) cap *= 2;
  COMI(60) = parts < cap ? parts : cap;
  const int list = 4 * COMI(60) + 4;
  COMI(61) = list > 1024 ? list : 1024;
}

// Length W of handle[WORK_I0], without its 15 extra words.
std::int64_t work_i0_length(const int *comi, const int *iparam) {
  const std::int64_t n = COMI(1), t = COMI(15), p = COMI(61), h = COMI(4);
  const int method = COMI(14);
  const bool dissection = method == 2 || method == 3;
  const bool q = (dissection && COMI(19) == 1) ||
                 (CTRL(5) == 1 && COMI(12) < 11);
  const std::int64_t l = dissection ? 5 : t + p + n + 3 + h;
  std::int64_t w = 2 * n + 3;
  auto widen = [&w](std::int64_t v) { if (v > w) w = v; };
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

// Everything the stages of one call are handed.
struct call_args {
  const int *matrix_number;
  const int *neqns;
  const void *a;
  const int *ia;
  const int *ja;
  int *perm;
  const int *nb;
  void *b;
  void *x;
  const int *msglvl;
};

template <class R>
void run_stage(std::intptr_t *handle, int stage, int *phase, int *iparam,
               const call_args &c, call_record *rec, std::intptr_t *entry,
               int *loc_int) {
  state_view s = state_of(handle);
  auto slot = [handle](int k) { return reinterpret_cast<void *>(handle[k]); };
  void *factors = entry != nullptr ? reinterpret_cast<void *>(entry[0]) : nullptr;
  telmira_stage<R>(phase, c.neqns, c.matrix_number, c.a, c.ia, c.ja, c.perm,
                   c.nb, s.comi, s.comr, s.comx, entry, factors, slot(STRUC_S0),
                   slot(STRUC_S1), slot(STRUC_S2), slot(STRUC_FI), slot(WORK_I0),
                   slot(WORK_R0), slot(CGS_ARR), slot(UP_UPLEN), slot(MC64PERM),
                   slot(MC64UV), rec->timer_flags, loc_int, c.b, c.x, &stage,
                   iparam, s.ooc_l, s.ooc_r, s.ooc_path);
}

// Error of a failed analysis stage: -8 for an overflow, -3 otherwise.
void stage_failed(int *iparam, call_record *rec, int status) {
  rec->status = status;
  CTRL(30) = status;
  rec->error = status == -182 ? -8 : -3;
}

// The forecast counts of handle[STRUC_FI], in words, without the 35 extra.
struct fi_counts {
  std::int64_t in_core;
  std::int64_t out_of_core;
};

fi_counts fi_forecast(const int *comi, const int *ooc_l, std::int64_t e) {
  const std::int64_t n = COMI(1), t = COMI(15) < 1 ? 1 : COMI(15),
                     p = COMI(61), h = COMI(4), s = COMI(31), c = COMI(36);
  const std::int64_t o6 = OOCL(6), o45 = OOCL(45);
  const bool S = COMI(19) == 1;
  const std::int64_t b = p + 7 * s + 6 * n + (t < 2 ? 4 : 6 + 2 * s) + s +
                         4 * n + 2 * t * n + 7;
  const std::int64_t g = t + t * o45;
  fi_counts k;
  k.in_core = o6 * t + c + b + (e + 1) + g + e + g;
  if (!S) k.in_core += h + 3 + n;
  if (COMI(69) != 0) k.in_core += e;
  if (S)
    k.out_of_core = b + g + g + 12 + 6 * s + (COMI(69) != 0 ? g : 0);
  else
    k.out_of_core = b + g + (2 * o45 + 2) * t + h + n + 3 + 12 + 6 * s +
                    (COMI(69) != 0 ? (2 * o45 + 2) * t : 0);
  return k;
}

std::int64_t megabytes(std::int64_t bytes) { return (bytes >> 10) >> 10; }

// Resizes an integer slot of the plan; the sum G is corrected by the
// difference. Returns 0 with the status set on failure.
int resize_slot(std::intptr_t *handle, int slot, std::int64_t bytes,
                int failure_status, call_record *rec) {
  void *p = reinterpret_cast<void *>(handle[slot]);
  void *q = bytes <= INT_MAX ? vek_serv_realloc(p, static_cast<std::size_t>(bytes)) : nullptr;
  if (q == nullptr) {
    rec->status = failure_status;
    rec->sums.failed_bytes = bytes;
    rec->sums.failed_sum = rec->sums.analysis;
    return 0;
  }
  handle[slot] = reinterpret_cast<std::intptr_t>(q);
  return 1;
}

// The analysis in its steps, up to the commit of the numeric plan.
template <class R>
void analysis(std::intptr_t *handle, int *iparam, const call_args &c,
              call_record *rec, int mark) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *comx = s.comx;
  int *ooc_l = s.ooc_l;
  storage_sums *sums = &rec->sums;
  int *status = &rec->status;
  const std::int64_t n = COMI(1);
  const std::int64_t e = rec->entries;
  const int mt = COMI(12);
  int phase = rec->phase;

  plan_parts(comi);

  // A structure that the matching and the ordering cannot take.
  if (!ordering_pattern_sound(static_cast<int>(n), c.ia, c.ja, COMI(19) == 1, mt > 10)) {
    stage_failed(iparam, rec, ORDERING_PATTERN_MALFORMED);
    return;
  }

  auto alloc_mc64 = [&]() {
    return storage_alloc_slot(handle, MC64PERM,
                              4 * (static_cast<std::int64_t>(COMI(49)) * n + n + 3),
                              ST_MC64PERM, status, sums) &&
           storage_alloc_slot(handle, MC64UV, 2 * n * sizeof(R), ST_MC64UV,
                              status, sums);
  };

  // The identity permutation and unit scalings.
  auto identity_mc64 = [&]() {
    int *p = reinterpret_cast<int *>(handle[MC64PERM]);
    R *uv = reinterpret_cast<R *>(handle[MC64UV]);
    for (std::int64_t i = 0; i < n; ++i) p[i] = static_cast<int>(i + 1);
    for (std::int64_t i = 0; i < 2 * n; ++i) uv[i] = R(1);
  };

  if (mt > 10 && COMI(67) == 0) {
    if (!alloc_mc64()) { rec->error = -2; return; }
    identity_mc64();
  }

  // The range list of the symmetric matching; it lives until the parts of
  // the ordering are laid out.
  void *ddist_mps = nullptr;
  const bool symmetric_matched =
      COMI(67) > 0 && (mt == -4 || mt == -2 || mt == 6);
  if (COMI(67) > 0) {
    if (!alloc_mc64()) { rec->error = -2; return; }
    // The matching's own work arrays live only within this call; the sum
    // goes back to its earlier value when they are freed.
    const int sum_before = sums->analysis;
    void *mc64_i = nullptr;
    void *mc64_r = nullptr;
    const bool complex_values = mt == -4 || mt == 6 || mt == 13;
    const int ok =
        storage_alloc(&mc64_i, 4 * (6 * n + 20) + 12, ST_MC64_I, status, sums) &&
        storage_alloc(&mc64_r,
                      sizeof(R) * (3 * n + (complex_values ? 2 * e : e)),
                      ST_MC64_R, status, sums);
    if (!ok) {
      rec->error = -2;
    } else if (words_per_value(mt) == 1 && COMI(67) >= 2) {
      // Real types know only the first matching mode.
      rec->status = COMI(67) <= 4 ? 1 : 0;
      rec->error = -6;
    } else if (symmetric_matched &&
               !storage_alloc(&ddist_mps, 4 * std::max<std::int64_t>(COMI(61), 16),
                              ST_MC64_I, status, sums)) {
      rec->error = -2;
    } else {
      int failed = 0;
      const int st = telmira_matching<R>(
          comi, c.a, c.ia, c.ja, static_cast<int *>(mc64_i), static_cast<R *>(mc64_r),
          static_cast<int *>(ddist_mps), reinterpret_cast<int *>(handle[MC64PERM]),
          reinterpret_cast<R *>(handle[MC64UV]), &failed);
      if (failed) {
        rec->status = st;
        rec->error = -6;
      }
    }
    storage_free(&mc64_i, mark);
    storage_free(&mc64_r, mark);
    sums->analysis = sum_before;
    if (rec->error != 0) {
      storage_free(&ddist_mps, mark);
      return;
    }
  }

  const std::int64_t t = COMI(15) < 1 ? 1 : COMI(15), p = COMI(61), h = COMI(4);
  if (!storage_alloc_slot(handle, STRUC_S0,
                          4 * ((2 * t + 3) * n + p + 7 * n + 24), ST_STRUC_S0,
                          status, sums)) {
    storage_free(&ddist_mps, mark);
    rec->error = -2;
    return;
  }
  const std::int64_t w = work_i0_length(comi, iparam);
  COMI(45) = static_cast<int>(w);
  if (COMI(19) == 1) COMI(68) = 0;
  if (!storage_alloc_slot(handle, WORK_I0, 4 * (w + 15), ST_WORK_I0, status,
                          sums) ||
      !storage_alloc_slot(handle, STRUC_S1, 4 * (h + 17 + 2 * n), ST_STRUC_S1,
                          status, sums)) {
    storage_free(&ddist_mps, mark);
    rec->error = -2;
    return;
  }
  std::int64_t work_i0_bytes = 4 * (w + 15);
  // The blocks of the first two stages.
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
    const std::int64_t used = 2 * (static_cast<std::int64_t>(COMI(60)) + 1);
    for (std::int64_t k = 0; k < p; ++k) parts[k] = k < used ? list[k] : 0;
    storage_free(&ddist_mps, mark);
  }

  // Stage 1: the order.
  run_stage<R>(handle, 1, &phase, iparam, c, rec, nullptr, nullptr);
  if (COMI(50) != 0) {
    stage_failed(iparam, rec, COMI(50));
    return;
  }

  // Stage 2: the symbolic factorization.
  const std::int64_t ns = COMI(31), cl = COMI(36);
  if (!storage_alloc_slot(handle, STRUC_S2, 4 * (7 * ns + 18 + cl),
                          ST_STRUC_S2, status, sums)) {
    rec->error = -2;
    return;
  }
  COMX(CX_S2_XLINDX) = 1;
  COMX(CX_S2_LINDX) = static_cast<int>(ns + 2);
  for (int k = 0; k < 6; ++k)
    COMX(CX_S2_SPARENT + k) = static_cast<int>(ns + 2 + cl + k * ns);
  run_stage<R>(handle, 2, &phase, iparam, c, rec, nullptr, nullptr);
  if (COMI(50) != 0) {
    stage_failed(iparam, rec, COMI(50));
    return;
  }

  // The memory forecast in megabytes.
  const fi_counts counts = fi_forecast(comi, ooc_l, e);
  const std::int64_t I = megabytes(4 * (counts.in_core + 35));
  const std::int64_t O = megabytes(4 * (counts.out_of_core + 35));
  int phase22 = 22;
  const int no_commit = 0;
  fact_sizes forecast{};
  fact_plan(&phase22, c.nb, handle, nullptr, &mark, &no_commit, &forecast);
  const std::int64_t wv = words_per_value(mt);
  auto mag = [](std::int64_t v) { return v < 0 ? -v : v; };
  const std::int64_t F = megabytes(
      static_cast<std::int64_t>(sizeof(R)) *
      (wv * (static_cast<std::int64_t>(COMI(34)) + COMI(35)) +
       mag(forecast.work) + mag(forecast.iteration)));
  const std::int64_t D = megabytes(8 * cl);
  CTRL(61) = static_cast<int>(sums->analysis / 1024 + 1 + I);
  CTRL(62) = static_cast<int>(I + 1);
  CTRL(63) = static_cast<int>(F + 1);

  // The storage mode.
  int mode = 0;
  int line = 989;
  if (OOCL(1) == 1) {
    if (CTRL(61) < OOCL(2) && F + 2 + D < OOCL(2)) {
      mode = 0;
      line = 987;
    } else {
      mode = 2;
      line = 988;
    }
  } else if (OOCL(1) == 2) {
    mode = 2;
    line = 990;
  }
  if (rec->level > 0) {
    vek_serv_print_message(0, 0, 0);
    vek_serv_print_message(0, line, 0);
    vek_serv_print_message(0, 0, 0);
  }
  if (mode == 2 && sums->analysis / 1024 + 1 + O > OOCL(2)) {
    CTRL(15) = static_cast<int>((O + 1) * 1024 + sums->analysis);
    OOCL(11) = -9;
    rec->status = -9;
    rec->error = -9;
    return;
  }
  // The files of the out-of-core mode are not part of this version: the
  // factors stay in memory whichever mode was chosen.
  OOCL(1) = 0;

  // The final structure.
  const int rowflag = COMI(69) != 0 ? 1 : 0;
  const std::int64_t layout =
      fi_layout(static_cast<int>(n), static_cast<int>(e), static_cast<int>(ns),
                static_cast<int>(cl), static_cast<int>(p), static_cast<int>(t),
                COMI(19) == 1, rowflag, nullptr);
  const std::int64_t fi_words = std::max(counts.in_core, layout) + 35;
  if (!storage_alloc_slot(handle, STRUC_FI, 4 * fi_words, ST_STRUC_FI, status,
                          sums)) {
    rec->error = -2;
    return;
  }
  // handle[WORK_I0] serves the scatter map next; it grows when the plan's
  // length is short of what that step needs.
  const int method = COMI(14);
  const bool q = ((method == 2 || method == 3) && COMI(19) == 1) ||
                 (CTRL(5) == 1 && mt < 11);
  std::int64_t want = q ? 4 * (3 * n + 18 + h) : work_i0_bytes;
  const int nadj = reinterpret_cast<int *>(handle[STRUC_S1])[n] - 1;
  const std::int64_t map_bytes =
      4 * (inv_perm_mod_mod_work_length(static_cast<int>(n), static_cast<int>(e),
                                        nadj, COMI(19) == 1) + 2 * ns + 16);
  if (map_bytes > want) want = map_bytes;
  if (want != work_i0_bytes) {
    if (!resize_slot(handle, WORK_I0, want, ST_WORK_I0, rec)) {
      rec->error = -2;
      return;
    }
    sums->analysis += kbytes_of(want) - kbytes_of(work_i0_bytes);
    work_i0_bytes = want;
  }
  void *loc_int = nullptr;
  if (t > 1) {
    // slindx and slength, then the cursor array of the sources
    const std::int64_t cells = std::max<std::int64_t>(
        ns + 1, parlist_cells(static_cast<int>(ns), COMI(60)));
    const std::int64_t bytes = std::max<std::int64_t>(8 * cl + 60, 4 * (2 * cl + cells + 16));
    if (!storage_alloc(&loc_int, bytes, ST_LOC_INT, status, sums)) {
      rec->error = -2;
      return;
    }
  }

  // Stage 3.
  run_stage<R>(handle, 3, &phase, iparam, c, rec, nullptr,
               static_cast<int *>(loc_int));
  CTRL(57) = OOCL(47);
  if (COMI(50) != 0) {
    storage_free(&loc_int, mark);
    stage_failed(iparam, rec, COMI(50));
    return;
  }

  // The analysis blocks go; the final structure shrinks to what it uses.
  sums->counting = 0;
  storage_free_slot(handle, STRUC_S0, mark);
  storage_free_slot(handle, STRUC_S1, mark);
  storage_free_slot(handle, STRUC_S2, mark);
  storage_free_slot(handle, WORK_I0, mark);
  const std::int64_t fi_bytes = 4 * static_cast<std::int64_t>(COMX(CX_FI_END)) + 12;
  if (!resize_slot(handle, STRUC_FI, fi_bytes, ST_STRUC_FI, rec)) {
    storage_free(&loc_int, mark);
    rec->error = -2;
    return;
  }
  sums->permanent = kbytes_of(fi_bytes);
  if (t > 1) {
    const std::int64_t qtop = COMI(60) == 1 ? 1 : COMI(72);
    const std::int64_t cells = std::max<std::int64_t>(
        ns + 1, parlist_cells(static_cast<int>(qtop), COMI(60)));
    const std::int64_t len = std::max<std::int64_t>(
        COMI(60) * qtop + ns + qtop + 16, cells) +
        2 * static_cast<std::int64_t>(COMI(28)) + 2 * static_cast<std::int64_t>(COMI(6));
    sums->counting = 1;
    const int ok = storage_alloc_slot(handle, UP_UPLEN, 4 * len, ST_UP_UPLEN,
                                      status, sums);
    sums->counting = 0;
    if (!ok) {
      storage_free(&loc_int, mark);
      rec->error = -2;
      return;
    }
    sums->permanent += kbytes_of(4 * len);
    int *up = reinterpret_cast<int *>(handle[UP_UPLEN]);
    const int *li = static_cast<int *>(loc_int);
    const std::int64_t total = COMI(28);
    COMX(CX_XSLINDX) = 1;
    COMX(CX_SLINDX) = static_cast<int>(cells + 1);
    COMX(CX_SLENGTH) = static_cast<int>(cells + 1 + total);
    COMX(CX_INLIST) = static_cast<int>(cells + 1 + 2 * total);
    std::memcpy(up, li + 2 * cl, static_cast<std::size_t>(cells) * 4);
    std::memcpy(up + cells, li, static_cast<std::size_t>(total) * 4);
    std::memcpy(up + cells + total, li + cl, static_cast<std::size_t>(total) * 4);
  }
  storage_free(&loc_int, mark);

  // The numeric plan, committed for a factorization with this nb.
  phase22 = 22;
  const int commit = 1;
  fact_sizes plan{};
  fact_plan(&phase22, c.nb, handle, nullptr, &mark, &commit, &plan);
  auto kb = [&](std::int64_t values) {
    return kbytes_of(mag(values) * static_cast<std::int64_t>(sizeof(R)) * wv);
  };
  sums->numeric = kb(plan.factor) + kb(plan.iteration / (wv > 0 ? wv : 1)) +
                  kb(plan.work / (wv > 0 ? wv : 1));
  CTRL(15) = sums->analysis;
  CTRL(16) = sums->permanent;
  CTRL(17) = sums->numeric;
}

// Factorization and solve, for a phase whose units digit is at least 2.
template <class R>
void numeric(std::intptr_t *handle, int *iparam, const call_args &c,
             call_record *rec, int mark) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *comx = s.comx;
  int *ooc_l = s.ooc_l;
  storage_sums *sums = &rec->sums;
  int *status = &rec->status;
  std::intptr_t *entry = fact_entry(handle, *c.matrix_number);
  if (entry == nullptr) {
    rec->status = 100;
    rec->error = -1;
    return;
  }
  int phase = rec->phase;
  const std::int64_t value_bytes =
      static_cast<std::int64_t>(sizeof(R)) * words_per_value(COMI(12));

  const int commit = 1;
  fact_sizes plan{};
  fact_plan(&phase, c.nb, handle, entry, &mark, &commit, &plan);

  // The factors.
  if (plan.factor != 0) {
    if (plan.factor < 0) {
      void *old = reinterpret_cast<void *>(entry[0]);
      storage_free(&old, mark);
      entry[0] = 0;
    } else {
      OOCL(8) = OOCL(9) = OOCL(10) = OOCL(11) = 0;
      OOCL(43) = OOCL(44) = 0;
    }
    const std::int64_t f = plan.factor < 0 ? -plan.factor : plan.factor;
    // The values, then the pivot records of this factorization.
    const std::int64_t bytes = f * value_bytes + 4 * PIVOT_RECORD_WORDS * n_of(comi);
    void *block = nullptr;
    if (!storage_alloc(&block, bytes, ST_FACT_LU, status, sums)) {
      entry[0] = 0;
      rec->error = -2;
      return;
    }
    entry[0] = reinterpret_cast<std::intptr_t>(block);
    if (CTRL(9) >= 0) sums->numeric = kbytes_of(bytes);
  }
  COMX(COMX_FACTORS) = 1;

  // The work array of the kernels and solves.
  if (plan.work != 0) {
    const std::int64_t bytes = (plan.work < 0 ? -plan.work : plan.work) *
                               static_cast<std::int64_t>(sizeof(R));
    if (plan.work < 0) {
      storage_free_slot(handle, WORK_R0, mark);
      void *p = bytes <= INT_MAX ? vek_serv_malloc(static_cast<std::size_t>(bytes), ALIGNMENT)
                                 : nullptr;
      if (p == nullptr) {
        rec->status = ST_WORK_R0;
        sums->failed_bytes = bytes;
        sums->failed_sum = sums->analysis;
        rec->error = -2;
        return;
      }
      handle[WORK_R0] = reinterpret_cast<std::intptr_t>(p);
    } else if (!storage_alloc_slot(handle, WORK_R0, bytes, ST_WORK_R0, status,
                                   sums)) {
      rec->error = -2;
      return;
    }
    if (CTRL(9) >= 0) sums->numeric += kbytes_of(bytes);
  }
  COMX(COMX_WORK) = 1;
  if (plan.iteration > 0) {
    const std::int64_t bytes = plan.iteration * static_cast<std::int64_t>(sizeof(R));
    if (!storage_alloc_slot(handle, CGS_ARR, bytes, ST_CGS_ARR, status, sums)) {
      rec->error = -2;
      return;
    }
    COMX(COMX_CGS) = 1;
  }

  // Step 6 and 7: phase 33 goes to the refinement call unless nothing asks
  // for it; other phases run their stage first.
  bool refine_now = false;
  if (phase == 33) {
    if (CTRL(14) + COMI(62) == 0) {
      CTRL(14) = 0;
      COMI(62) = 0;
    } else if (CTRL(14) > 0) {
      COMI(62) = CTRL(14);
    }
    // The preconditioned iteration is not part of this version: with a
    // selection in comi(18) the stored factors solve directly.
    // A single sub-step (331 to 333) is no whole solve to refine.
    refine_now = solve_is_measured(comi, iparam);
  }
  if (!refine_now) {
    run_stage<R>(handle, 4, &phase, iparam, c, rec, entry, nullptr);
    if (OOCL(11) != 0) {
      rec->error = OOCL(11);
      rec->status = 0;
      storage_free_slot(handle, CGS_ARR, mark);
      return;
    }
    CTRL(14) = COMI(62);
    CTRL(22) = COMI(63);
    CTRL(23) = COMI(64);
    CTRL(7) = COMI(65);
    CTRL(57) = OOCL(47);
    if (COMI(50) != 0) {
      rec->status = COMI(50);
      CTRL(30) = COMI(50);
      rec->error = -4;
      storage_free_slot(handle, CGS_ARR, mark);
      return;
    }
  }
  // Step 8: refinement, after perturbed pivots or when iparam(8) asks.
  if (phase % 10 == 3 && solve_is_measured(comi, iparam)) {
    // The extended path keeps accumulators for triangle storage and for
    // the transposed product.
    // One more vector than the steps need: the last correction of the
    // accuracy check, which takes back a step that made things worse.
    const std::int64_t k = (CTRL(8) >= 0 ? 2 : ((COMI(19) == 1 || COMI(68) != 0) ? 5 : 3)) + 1;
    const std::int64_t bytes = static_cast<std::int64_t>(sizeof(R)) * *c.nb * COMI(5) *
                               (k * COMI(1) + 2 * std::max(1, COMI(15)));
    storage_free_slot(handle, CGS_ARR, mark);
    if (!storage_alloc_slot(handle, CGS_ARR, bytes, ST_CGS_ARR, status, sums)) {
      rec->error = -2;
      return;
    }
    COMX(COMX_CGS) = 1;
    COMI(43) = 0;
    int p33 = 33;
    run_stage<R>(handle, 4, &p33, iparam, c, rec, entry, nullptr);
    CTRL(7) = COMI(65);
    if (OOCL(11) != 0) {
      rec->error = OOCL(11);
      rec->status = 0;
    } else if (COMI(50) != 0) {
      rec->status = COMI(50);
      CTRL(30) = COMI(50);
      rec->error = -4;
    }
  }
  COMX(COMX_CGS) = mark;
  storage_free_slot(handle, CGS_ARR, mark);
  // A solve vouches for its result: a solution with a NaN or an infinite
  // value is no success. One pass over the n nb values of the solution.
  if (rec->error == 0 && phase % 10 == 3) {
    const void *solution = CTRL(6) == 1 ? c.b : c.x;
    const std::int64_t count =
        static_cast<std::int64_t>(*c.nb) * COMI(1) * words_per_value(COMI(12));
    if (!all_finite(static_cast<const R *>(solution), count)) {
      rec->status = ST_NONFINITE_SOLUTION;
      CTRL(30) = ST_NONFINITE_SOLUTION;
      rec->error = -4;
    }
  }
}

// Start of a call and the phases. Sets rec->error and rec->status.
template <class R>
void run_call(std::intptr_t *handle, const int *max_fac_store,
              const int *matrix_number, const int *matrix_type, const int *ido,
              const int *neqns, const void *a, const int *ia, const int *ja,
              int *perm, const int *nb, int *iparam, const int *msglvl, void *b,
              void *x, int mark, int precision, call_record *rec) {
  const int F = rec->phase / 10;
  if (*ido < -1) {
    rec->status = 10000;
    rec->error = -1;
    return;
  }

  if (handle[SLOT_COUNT] == 0) {
    if (*ido == -1 || (*ido < 1 && CTRL(12) == -1)) {
      rec->quiet = 1;
      return;
    }
    for (int k = SLOT_FACT_ADR; k <= 17; ++k) handle[k] = 0;
    if (!create_basic(handle, *max_fac_store, precision, mark, &rec->status,
                      &rec->sums)) {
      rec->error = -2;
      return;
    }
    if (*ido < 1) {
      int *comi = state_of(handle).comi;
      COMI(10) = -1;
      rec->status = 1000;
      rec->error = -1;
      return;
    }
    if (!create_ooc(handle, sizeof(R), &rec->status, &rec->sums)) {
      rec->error = -2;
      return;
    }
    int *ooc_l = state_of(handle).ooc_l;
    OOCL(1) = CTRL(60);
    OOCL(4) = *msglvl;
    OOCL(12) = 4;
    if (OOCL(1) != 0)
      telmira_ooc_read_config("telmira_ooc.cfg", state_of(handle).ooc_path, ooc_l,
                              *msglvl);
    if (OOCL(1) != 0 && *matrix_type != 2) CTRL(3) = 1;
  } else {
    state_view s = state_of(handle);
    int *ooc_l = s.ooc_l;
    if ((OOCL(1) != 0 || CTRL(60) != 0) && *matrix_type != 2) CTRL(3) = 1;
    if (*ido == 0) {
      std::intptr_t *entry = fact_entry(handle, *matrix_number);
      if (entry == nullptr) {
        rec->status = 100;
        rec->error = -1;
        return;
      }
      release_fact_entry(entry, mark);
      return;
    }
    if (F == 1 || *ido == -1) {
      CTRL(15) = 0;
      CTRL(16) = 0;
      CTRL(17) = 0;
      storage_release(handle, mark, *ido == -1);
      if (*ido == -1) {
        rec->quiet = 1;
        return;
      }
    }
  }

  state_view s = state_of(handle);
  int *comi = s.comi;
  int *ooc_l = s.ooc_l;
  if (F == 1) {
    start_analysis(handle, iparam, *matrix_type, mark);
    rec->sums = storage_sums{};
    rec->sums.counting = 1;
  }
  rec->stored_entries = COMI(54);
  const int n = *neqns;
  const int from_ia = (n >= 0 && ia != nullptr) ? ia[n] - 1 : 0;
  if (F == 1 || F == 2) COMI(54) = from_ia;
  rec->entries = F == 3 ? COMI(54) : from_ia;
  rec->entries_in = from_ia;

  int max_fac_store_c, matrix_number_c, matrix_type_c, neqns_c, nb_c,
      entries_c, checked_phase;
  OOCL(4) = *msglvl;
  telmira_check(handle, max_fac_store, &max_fac_store_c, matrix_number,
                &matrix_number_c, matrix_type, &matrix_type_c, ido,
                &checked_phase, neqns, &neqns_c, nb, &nb_c, &rec->entries,
                &entries_c, msglvl, &rec->level, iparam, &rec->status, comi, ia,
                ja, a, b, x, rec->timer_flags, s.comr);
  OOCL(42) = 8 * COMI(5);
  if (rec->status != 0) {
    rec->error = -1;
    return;
  }
  const std::intptr_t fi = handle[STRUC_FI];
  if (F > 1 && (fi == 0 || fi == mark)) {
    rec->status = 100000;
    rec->error = -1;
    return;
  }
  const call_args args = {matrix_number, neqns, a, ia, ja, perm, nb, b, x, msglvl};
  if (F == 1) {
    analysis<R>(handle, iparam, args, rec, mark);
    if (rec->error != 0 || rec->phase % 10 < 2) return;
  }
  numeric<R>(handle, iparam, args, rec, mark);
}

// End of a call: memory figures, error numbers and the report.
void end_call(std::intptr_t *handle, const int *max_fac_store,
              const int *matrix_number, const int *matrix_type, const int *ido,
              const int *neqns, const int *nb, int *iparam, int *error,
              int mark, call_record *rec) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *ooc_l = s.ooc_l;
  const storage_sums &sums = rec->sums;

  CTRL(17) = sums.numeric;
  CTRL(16) = sums.permanent;
  if (ooc_l == nullptr || OOCL(11) != -9) CTRL(15) = sums.analysis;
  CTRL(64) = 110;
  if (comi != nullptr) {
    COMI(77) = sums.numeric;
    COMI(76) = sums.permanent;
    COMI(75) = sums.analysis;
  }

  if (ooc_l != nullptr && OOCL(4) == 2) {
    if (OOCL(1) == 2 && OOCL(11) == 0 && comi != nullptr) {
      if (OOCL(47) == 0)
        std::printf(" all L factors fit in RAM, BrLL algorithm of OOC TELMIRA is run; comi(60)=%d\n", COMI(60));
      else if (OOCL(47) == 3)
        std::printf(" max Branch of L-tree fit in RAM, BrLL algorithm of OOC TELMIRA is run; comi(60)=%d\n", COMI(60));
      else if (OOCL(47) == 2)
        std::printf(" LL algorithm OOC TELMIRA is run; nparts=%d\n", COMI(60));
    }
    std::printf(" local TELMIRA version is %d\n", CTRL(64));
    std::fflush(nullptr);
  }

  int err = rec->error;
  if (err < 0) {
    if (*ido < 0) {
      // A release or a code below -1 that failed: one line, no report.
      if (rec->level != 0) vek_serv_print_message(0, 774, 0);
    } else if (rec->level == 0) {
      if (err == -1) err = -7;
    } else {
      const int sum = sums.failed_sum;
      telmira_report(&err, &rec->status, comi, max_fac_store, matrix_number,
                     matrix_type, ido, &rec->phase, neqns, nb, &rec->entries_in,
                     &rec->stored_entries, iparam, &sums.failed_bytes, &sum);
    }
  }
  if (rec->level > 0 && comi != nullptr) COMI(50) = rec->status;
  // The report of the call; at message level 0 it only closes the timers.
  if (comi != nullptr && handle[SLOT_COUNT] != 0 && COMI(10) >= 0)
    telmira_statistics(&rec->phase, matrix_number, neqns, nb, &rec->entries_in,
                       iparam, comi, s.comr, rec->timer_flags, ooc_l, s.ooc_r);
  *error = err;
  if (comi != nullptr && *ido >= 0) COMI(50) = 0;

  // A state that no checked call owns (a refused first call, or a creation
  // that failed half-way) is released at once: an empty handle must own
  // nothing.
  if (handle[SLOT_COUNT] == 0 &&
      (handle[SLOT_BASIC] != 0 || handle[SLOT_FACT_ADR] != 0 ||
       handle[SLOT_OOC_ADR] != 0))
    storage_release(handle, mark, 1);
}

template <class R>
void telmira_driver(std::intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int mark, int precision) {
  call_record rec{};
  CTRL(50) = 0;
  rec.level = *msglvl < 0 ? -*msglvl : *msglvl;
  if (rec.level > 1) rec.level = 1;
  rec.phase = (*ido >= 331 && *ido <= 334) ? *ido / 10 : *ido;
  if (handle[SLOT_COUNT] != 0) {
    const int *comi = state_of(handle).comi;
    rec.sums.analysis = COMI(75);
    rec.sums.permanent = COMI(76);
    rec.sums.numeric = COMI(77);
  }
  run_call<R>(handle, max_fac_store, matrix_number, matrix_type, ido, neqns, a,
              ia, ja, perm, nb, iparam, msglvl, b, x, mark, precision, &rec);
  if (rec.quiet) {
    *error = 0;
    return;
  }
  end_call(handle, max_fac_store, matrix_number, matrix_type, ido, neqns, nb,
           iparam, error, mark, &rec);
}

}  // namespace

void telmira_double(intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int *not_allocated) {
  telmira_driver<double>(handle, max_fac_store, matrix_number, matrix_type,
                         ido, neqns, a, ia, ja, perm, nb, iparam, msglvl, b, x, error,
                         *not_allocated, 0);
}

void telmira_single(intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int *not_allocated) {
  telmira_driver<float>(handle, max_fac_store, matrix_number, matrix_type, ido,
                        neqns, a, ia, ja, perm, nb, iparam, msglvl, b, x, error,
                        *not_allocated, 1);
}
