// telmira_driver.cpp - phase drivers of the two precisions.
//
// One template over the precision, instantiated as telmira_double and
// telmira_single. A call runs: the start of a call (state creation in the
// handle, the release of ido 0 and -1, the defaults and the initialisation
// of an analysis, telmira_check), then the phases, then the end of a call
// (memory figures, error numbers, the report).
//
// The phases themselves are built only as far as their stages exist: an
// analysis lays out the matching arrays and the three analysis blocks
// (handle[MC64PERM], handle[MC64UV], handle[STRUC_S0], handle[WORK_I0],
// handle[STRUC_S1]) and then stops with error -7, since the ordering stage
// is not part of this build yet; the weighted matching likewise ends with
// error -7 once its work arrays are made. Factorization and solve can't be
// reached: without an analysis handle[STRUC_FI] is absent, and those calls
// are refused with status 100000.
#include "telmira_internal.h"
#include "telmira_storage.h"

#include "service/vek_serv_message.h"

#include <cstdio>

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

// The analysis, as far as this build has its stages.
template <class R>
void analysis(std::intptr_t *handle, int *iparam, call_record *rec, int mark) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  storage_sums *sums = &rec->sums;
  int *status = &rec->status;
  const std::int64_t n = COMI(1);
  const std::int64_t e = rec->entries;
  const int mt = COMI(12);

  plan_parts(comi);

  auto alloc_mc64 = [&]() {
    return storage_alloc_slot(handle, MC64PERM,
                              4 * (static_cast<std::int64_t>(COMI(49)) * n + n + 3),
                              ST_MC64PERM, status, sums) &&
           storage_alloc_slot(handle, MC64UV, 2 * n * sizeof(R), ST_MC64UV,
                              status, sums);
  };

  if (mt > 10 && COMI(67) == 0) {
    if (!alloc_mc64()) { rec->error = -2; return; }
    int *p = reinterpret_cast<int *>(handle[MC64PERM]);
    R *uv = reinterpret_cast<R *>(handle[MC64UV]);
    for (std::int64_t i = 0; i < n; ++i) p[i] = static_cast<int>(i + 1);
    for (std::int64_t i = 0; i < 2 * n; ++i) uv[i] = R(1);
  }

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
    } else {
      // The weighted matching is not part of this build.
      rec->error = -7;
    }
    storage_free(&mc64_i, mark);
    storage_free(&mc64_r, mark);
    sums->analysis = sum_before;
    return;
  }

  const std::int64_t t = COMI(15), p = COMI(61), h = COMI(4);
  if (!storage_alloc_slot(handle, STRUC_S0,
                          4 * ((2 * t + 3) * n + p + 7 * n + 24), ST_STRUC_S0,
                          status, sums)) {
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
    rec->error = -2;
    return;
  }
  // The ordering (stage 1) is not part of this build.
  rec->error = -7;
}

// Start of a call and the phases. Sets rec->error and rec->status.
template <class R>
void run_call(std::intptr_t *handle, const int *max_fac_store,
              const int *matrix_number, const int *matrix_type, const int *ido,
              const int *neqns, const void *a, const int *ia, const int *ja,
              const int *nb, int *iparam, const int *msglvl, void *b, void *x,
              int mark, int precision, call_record *rec) {
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
    // A configuration file would be read here for OOCL(1) != 0; the
    // out-of-core mode is not part of this build, so none is.
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
  if (F == 1) {
    analysis<R>(handle, iparam, rec, mark);
    return;
  }
  // Factorization and solve need the analysis above; not reached.
  rec->error = -7;
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
  // The statistics of a call at message level 1 follow here once the
  // report of the stages exists.
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
                    const int *ia, const int *ja, const int *nb, int *iparam,
                    const int *msglvl, void *b, void *x, int *error, int mark,
                    int precision) {
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
              ia, ja, nb, iparam, msglvl, b, x, mark, precision, &rec);
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
  (void)perm;
  telmira_driver<double>(handle, max_fac_store, matrix_number, matrix_type,
                         ido, neqns, a, ia, ja, nb, iparam, msglvl, b, x, error,
                         *not_allocated, 0);
}

void telmira_single(intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int *not_allocated) {
  (void)perm;
  telmira_driver<float>(handle, max_fac_store, matrix_number, matrix_type, ido,
                        neqns, a, ia, ja, nb, iparam, msglvl, b, x, error,
                        *not_allocated, 1);
}
