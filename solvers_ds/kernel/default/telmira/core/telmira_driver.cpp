// telmira_driver.cpp - phase drivers of the two precisions.
//
// One template over the precision, instantiated as telmira_double and
// telmira_single. A call runs: the start (state creation in the handle, the
// releases of ido 0 and -1, the defaults and the initialisation of an
// analysis, telmira_check); the analysis (telmira_analysis.cpp); the
// factorization and solve (telmira_numeric_phase.cpp); and the end (memory
// figures, error numbers, the report).
#include "telmira_call.h"
#include "telmira_slots.h"
#include "telmira_driver.h"
#include "telmira_report.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "service/vek_serv_message.h"
#include "telmira_ooc_config.h"
#include "telmira_statistics.h"
#include "telmira_types.h"

namespace {

using namespace tlm;

// Defaults of the control array, written at an analysis when iparam(1) is 0.
void fill_defaults(int *iparam, int mtype) {
  CTRL(IP_METHOD) = 2;
  for (int k = 4; k <= 14; ++k) CTRL(k) = 0;
  for (int k = 18; k <= 25; ++k) CTRL(k) = 0;
  CTRL(IP_LU_ENTRIES) = -1;
  CTRL(IP_MFLOP) = -1;
  CTRL(IP_PHASE_STATUS) = 0;
  CTRL(IP_OOC) = 0;
  switch (mtype) {
    case 1: case 3:
      CTRL(IP_PERTURBATION) = 13;
      break;
    case 11: case 13:
      CTRL(IP_PERTURBATION) = 13; CTRL(IP_SCALING) = 1; CTRL(IP_MATCHING) = 1;
      break;
    case -4: case -2: case 6:
      CTRL(IP_PERTURBATION) = 8; CTRL(IP_PIVOTING) = 1;
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
  const int entries = COMI(CI_MAX_FAC_STORE);  // size of all_fact_adr, fixed at creation
  for (int k = 1; k <= COMX_WORDS; ++k) COMX(k) = mark;
  for (int k = 1; k <= 70; ++k) COMI(k) = 0;
  COMI(CI_MAX_FAC_STORE) = entries;
  for (int k = 0; k < COMR_WORDS; ++k) comr[k] = 0.0;
  if (CTRL(IP_DEFAULTS) == 0) fill_defaults(iparam, mtype);
  if (mtype == -4 || mtype == -2 || mtype == 6 || mtype == 11 || mtype == 13) {
    if (CTRL(IP_MATCHING) > 0) {
      COMI(CI_MATCHING) = CTRL(IP_MATCHING);
      if (CTRL(IP_SCALING) == 1) COMI(CI_SCALING) = 1;
    }
  }
  COMI(CI_TRANSPOSED) = CTRL(IP_TRANSPOSED);
  COMI(CI_SET74) = 0;
  COMI(CI_MAXINT) = 2147483647;
  COMI(CI_LIVE) = 6;
  COMI(CI_METHOD) = 2;
  COMI(CI_THREADS) = CTRL(IP_THREADS);
  COMI(CI_SEPFLAG) = 1;
  COMI(CI_SET24) = 1;
  COMI(CI_SET25) = 1;
  COMI(CI_SET40) = 10000;
  COMI(CI_NO_REFINEMENT) = CTRL(IP_NO_REFINEMENT);
  comr[10] = 10.0;
  comr[11] = 1.0;
  comr[12] = 1e-12;
  comr[13] = 1e-30;
  for (int k = 1; k <= COMI(CI_MAX_FAC_STORE); ++k)
    reset_fact_entry(s.fact_adr + (k - 1) * LENG_FACT_ADR, mark);
}

}  // namespace

stage_context tlm::context_of(std::intptr_t *handle, int *iparam, const call_args &c,
                         call_record *rec, std::intptr_t *entry, int *loc_int) {
  state_view s = state_of(handle);
  auto slot = [handle](int k) { return reinterpret_cast<void *>(handle[k]); };
  stage_context k{};
  k.neqns = c.neqns;
  k.a = c.a;
  k.ia = c.ia;
  k.ja = c.ja;
  k.perm = c.perm;
  k.nb = c.nb;
  k.b = c.b;
  k.x = c.x;
  k.comi = s.comi;
  k.comr = s.comr;
  k.comx = s.comx;
  k.iparam = iparam;
  k.ooc_l = s.ooc_l;
  k.timer_flags = rec->timer_flags;
  k.struc_s0 = slot(STRUC_S0);
  k.struc_s1 = slot(STRUC_S1);
  k.struc_s2 = slot(STRUC_S2);
  k.struc_fi = slot(STRUC_FI);
  k.work_i0 = slot(WORK_I0);
  k.work_r0 = slot(WORK_R0);
  k.cgs = slot(CGS_ARR);
  k.up_uplen = slot(UP_UPLEN);
  k.mc64perm = static_cast<int *>(slot(MC64PERM));
  k.mc64uv = slot(MC64UV);
  k.loc_int = loc_int;
  k.entry = entry;
  k.factors = entry != nullptr ? reinterpret_cast<void *>(entry[0]) : nullptr;
  return k;
}

namespace {

// Start of a call and the phases. Sets rec->error and rec->status.
template <class R>
void run_call(std::intptr_t *handle, const int *max_fac_store,
              const int *matrix_number, const int *matrix_type, const int *ido,
              const int *neqns, const void *a, const int *ia, const int *ja,
              int *perm, const int *nb, int *iparam, const int *msglvl, void *b,
              void *x, int mark, int precision, call_record *rec) {
  const int F = rec->phase.first;
  if (*ido < -1) {
    rec->status = 10000;
    rec->error = -1;
    return;
  }

  if (handle[SLOT_COUNT] == 0) {
    if (*ido == -1 || (*ido < 1 && CTRL(IP_TRANSPOSED) == -1)) {
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
      COMI(CI_LIVE) = -1;
      rec->status = 1000;
      rec->error = -1;
      return;
    }
    if (!create_ooc(handle, sizeof(R), &rec->status, &rec->sums)) {
      rec->error = -2;
      return;
    }
    int *ooc_l = state_of(handle).ooc_l;
    OOCL(OL_MODE) = CTRL(IP_OOC);
    OOCL(OL_MSGLVL) = *msglvl;
    OOCL(OL_INT_BYTES) = 4;
  } else {
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
      CTRL(IP_PEAK_KB) = 0;
      CTRL(IP_PERMANENT_KB) = 0;
      CTRL(IP_NUMERIC_KB) = 0;
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
    // The mode wanted for this analysis; its settings are read once per
    // handle, at the first analysis that asks for the mode.
    OOCL(OL_MODE) = CTRL(IP_OOC);
    if (OOCL(OL_MODE) != 0 && OOCL(OL_CONFIG_READ) == 0) {
      telmira_ooc_read_config("telmira_ooc.cfg", s.ooc_path, ooc_l, *msglvl);
      OOCL(OL_CONFIG_READ) = 1;
    }
    start_analysis(handle, iparam, *matrix_type, mark);
    rec->sums = storage_sums{};
    rec->sums.counting = 1;
  }
  rec->stored_entries = COMI(CI_ENTRIES);
  const int n = *neqns;
  const int from_ia = (n >= 0 && ia != nullptr) ? ia[n] - 1 : 0;
  if (F == 1 || F == 2) COMI(CI_ENTRIES) = from_ia;
  rec->entries = F == 3 ? COMI(CI_ENTRIES) : from_ia;
  rec->entries_in = from_ia;

  int max_fac_store_c, matrix_number_c, matrix_type_c, neqns_c, nb_c,
      entries_c, checked_phase;
  OOCL(OL_MSGLVL) = *msglvl;
  telmira_check(handle, max_fac_store, &max_fac_store_c, matrix_number,
                &matrix_number_c, matrix_type, &matrix_type_c, ido,
                &checked_phase, neqns, &neqns_c, nb, &nb_c, &rec->entries,
                &entries_c, msglvl, &rec->level, iparam, &rec->status, comi, ia,
                ja, a, b, x, rec->timer_flags, s.comr);
  OOCL(OL_VALUE_BYTES) = 8 * COMI(CI_WORDS);
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
    analysis_phase<R>(handle, iparam, args, rec, mark);
    if (rec->error != 0 || rec->phase.last < 2) return;
  }
  numeric_phase<R>(handle, iparam, args, rec, mark);
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

  CTRL(IP_NUMERIC_KB) = sums.numeric;
  CTRL(IP_PERMANENT_KB) = sums.permanent;
  if (ooc_l == nullptr || OOCL(OL_STATUS) != -9) CTRL(IP_PEAK_KB) = sums.analysis;
  CTRL(IP_VERSION) = 110;
  if (comi != nullptr) {
    COMI(CI_SUM_NUMERIC) = sums.numeric;
    COMI(CI_SUM_PERMANENT) = sums.permanent;
    COMI(CI_SUM_ANALYSIS) = sums.analysis;
  }

  if (ooc_l != nullptr && OOCL(OL_MSGLVL) == 2) {
    if (OOCL(OL_MODE) == 2 && OOCL(OL_STATUS) == 0 && comi != nullptr) {
      if (OOCL(OL_ALGORITHM) == 0)
        std::printf(" all L factors fit in RAM, BrLL algorithm of OOC TELMIRA is run; comi(60)=%d\n", COMI(CI_NPARTS));
      else if (OOCL(OL_ALGORITHM) == 3)
        std::printf(" max Branch of L-tree fit in RAM, BrLL algorithm of OOC TELMIRA is run; comi(60)=%d\n", COMI(CI_NPARTS));
      else if (OOCL(OL_ALGORITHM) == 2)
        std::printf(" LL algorithm OOC TELMIRA is run; nparts=%d\n", COMI(CI_NPARTS));
    }
    std::printf(" local TELMIRA version is %d\n", CTRL(IP_VERSION));
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
                     matrix_type, ido, &rec->phase.code, neqns, nb, &rec->entries_in,
                     &rec->stored_entries, iparam, &sums.failed_bytes, &sum);
    }
  }
  if (rec->level > 0 && comi != nullptr) COMI(CI_STATUS) = rec->status;
  // The report of the call; at message level 0 it only closes the timers.
  if (comi != nullptr && handle[SLOT_COUNT] != 0 && COMI(CI_LIVE) >= 0)
    telmira_statistics(&rec->phase.code, matrix_number, neqns, nb, &rec->entries_in,
                       iparam, comi, s.comr, rec->timer_flags, ooc_l, s.ooc_r);
  *error = err;
  if (comi != nullptr && *ido >= 0) COMI(CI_STATUS) = 0;

  // A state that no checked call owns (a refused first call, or a creation
  // that failed half-way) is released at once: an empty handle must own
  // nothing.
  if (handle[SLOT_COUNT] == 0 &&
      (handle[SLOT_BASIC] != 0 || handle[SLOT_FACT_ADR] != 0 ||
       handle[SLOT_OOC_ADR] != 0))
    storage_release(handle, mark, 1);
}

// Second tries. A solve under the defaults that the factors could not make
// accurate, or whose factorization overflowed, is tried again within the
// same call: first the factorization alone with a larger pivot
// perturbation; then also the analysis with the other choice of the
// weighted matching: without it for the unsymmetric types (on some matrices
// the matched order leaves pivots that no perturbation rescues), with it and
// its scaling for the symmetric indefinite ones (-2, -4, 6), whose defaults
// leave it off. The controls of the last try stand in iparam afterwards. A
// caller who set the controls (iparam(1) = 1) gets the first result as it is.
// The exponent of the second try's perturbation: 1e-6 in double precision
// (1e-8, the square root of the rounding unit, still leaves pivots too small
// for the refinement on the hardest matrices), 1e-4 in single, about the
// square root of its rounding unit.
constexpr int retry_perturbation[2] = {6, 4};
constexpr int row_retry_perturbation = 1006;
constexpr int row_retry_matching = 1007;

template <class R>
bool values_finite(int n, const int *ia, const void *a, int words) {
  if (n < 1 || ia == nullptr || a == nullptr) return false;
  const R *v = static_cast<const R *>(a);
  const std::int64_t count = static_cast<std::int64_t>(ia[n] - 1) * words;
  for (std::int64_t k = 0; k < count; ++k)
    if (!std::isfinite(v[k])) return false;
  return true;
}

bool retry_wanted(const std::intptr_t *handle, const int *iparam, int mtype,
                  const call_record &rec) {
  if (rec.quiet || rec.error != -4 || rec.phase.substep != 0) return false;
  if (rec.status != ST_INACCURATE_SOLUTION && rec.status != ST_NONFINITE_PIVOT &&
      rec.status != ST_NONFINITE_SOLUTION)
    return false;
  if ((mtype != 11 && mtype != 13 && mtype != -2 && mtype != -4 && mtype != 6) ||
      CTRL(IP_DEFAULTS) != 0 || handle[SLOT_COUNT] == 0)
    return false;
  const int *comi = state_of(const_cast<std::intptr_t *>(handle)).comi;
  return comi != nullptr && COMI(CI_ITERATION) == 0;
}

template <class R>
void second_tries(std::intptr_t *handle, const int *max_fac_store,
                  const int *matrix_number, const int *matrix_type, const int *neqns,
                  const void *a, const int *ia, const int *ja, int *perm, const int *nb,
                  int *iparam, const int *msglvl, void *b, void *x, int mark,
                  int precision, call_record *rec) {
  if (!retry_wanted(handle, iparam, *matrix_type, *rec)) return;
  const bool complex_values = *matrix_type == 13 || *matrix_type == -4 || *matrix_type == 6;
  if (!values_finite<R>(*neqns, ia, a, complex_values ? 2 : 1)) return;
  const int last = rec->phase.last < 2 ? 2 : rec->phase.last;
  auto again = [&](int code) {
    call_record next{};
    next.level = rec->level;
    next.phase = decode_phase(code);
    next.sums = rec->sums;
    std::copy(rec->timer_flags, rec->timer_flags + TELMIRA_TIMER_FLAGS, next.timer_flags);
    // The controls stand as the first try left them: the second try must
    // not fill in the defaults again.
    CTRL(IP_DEFAULTS) = 1;
    run_call<R>(handle, max_fac_store, matrix_number, matrix_type, &code, neqns, a, ia, ja,
                perm, nb, iparam, msglvl, b, x, mark, precision, &next);
    CTRL(IP_DEFAULTS) = 0;
    *rec = next;
  };
  const int k = magnitude_of(CTRL(IP_PERTURBATION));
  const int k2 = retry_perturbation[precision == 1 ? 1 : 0];
  if (k == 0 || k > k2) {
    CTRL(IP_PERTURBATION) = k2;
    if (rec->level > 0) {
      const std::intptr_t words[1] = {k2};
      vek_serv_print_message_words(row_retry_perturbation, 1, words);
    }
    again(20 + last);
    if (!retry_wanted(handle, iparam, *matrix_type, *rec)) return;
  }
  const int *comi = state_of(handle).comi;
  const bool unsymmetric = *matrix_type == 11 || *matrix_type == 13;
  if (unsymmetric != (COMI(CI_MATCHING) > 0)) return;
  // A new analysis would take the factors of the other matrix numbers
  // away: with those stored the call keeps its result.
  for (int k = 1; k <= COMI(CI_MAX_FAC_STORE); ++k) {
    const std::intptr_t *other = k == *matrix_number ? nullptr : fact_entry(handle, k);
    if (other != nullptr && other[0] != 0 && other[0] != mark) return;
  }
  CTRL(IP_MATCHING) = unsymmetric ? 0 : 1;
  CTRL(IP_SCALING) = unsymmetric ? 0 : 1;
  if (rec->level > 0) {
    const std::intptr_t words[1] = {reinterpret_cast<std::intptr_t>(unsymmetric ? "without" : "with")};
    vek_serv_print_message_words(row_retry_matching, 1, words);
  }
  again(10 + last);
}

template <class R>
void telmira_driver(std::intptr_t *handle, const int *max_fac_store,
                    const int *matrix_number, const int *matrix_type,
                    const int *ido, const int *neqns, const void *a,
                    const int *ia, const int *ja, int *perm, const int *nb,
                    int *iparam, const int *msglvl, void *b, void *x,
                    int *error, int mark, int precision) {
  call_record rec{};
  CTRL(IP_PHASE_STATUS) = 0;
  rec.level = magnitude_of(*msglvl);
  if (rec.level > 1) rec.level = 1;
  rec.phase = decode_phase(*ido);
  if (handle[SLOT_COUNT] != 0) {
    const int *comi = state_of(handle).comi;
    rec.sums.analysis = COMI(CI_SUM_ANALYSIS);
    rec.sums.permanent = COMI(CI_SUM_PERMANENT);
    rec.sums.numeric = COMI(CI_SUM_NUMERIC);
  }
  run_call<R>(handle, max_fac_store, matrix_number, matrix_type, ido, neqns, a,
              ia, ja, perm, nb, iparam, msglvl, b, x, mark, precision, &rec);
  if (rec.quiet) {
    *error = 0;
    return;
  }
  second_tries<R>(handle, max_fac_store, matrix_number, matrix_type, neqns, a, ia, ja, perm,
                  nb, iparam, msglvl, b, x, mark, precision, &rec);
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
