// telmira_check.cpp - the input checks of every call of the phase driver:
// the arguments against each other and against the handle, the optional
// matrix check, and the supernode panel width.
#include "telmira_check.h"
#include "telmira_phase.h"
#include "telmira_storage.h"
#include "telmira_types.h"

#include "service/vek_serv_clock.h"
#include "service/vek_serv_cpu.h"

#include <cmath>

int telmira_check_matrix(int neqns, int entries, int symmetric_storage,
                         const int *ia, const int *ja, int *iparam) {
  // Each test runs over its whole range and keeps the last offending place,
  // so that a report names the last bad row.
  int bad = 0;
  if (ia[0] != 1) {
    CTRL(31) = 1; CTRL(32) = ia[0]; CTRL(33) = ia[1];
    bad = 1;
  }
  for (int i = 1; i <= neqns; ++i) {
    if (ia[i] <= ia[i - 1]) {
      CTRL(31) = i; CTRL(32) = ia[i - 1]; CTRL(33) = ia[i];
      bad = 1;
    }
  }
  if (bad) return 21;

  for (int k = 1; k <= entries; ++k) {
    const int j = ja[k - 1];
    if (j < 1 || j > neqns) {
      CTRL(31) = k; CTRL(32) = j; CTRL(33) = neqns;
      bad = 1;
    }
  }
  if (bad) return 22;

  if (symmetric_storage) {
    for (int i = 1; i <= neqns; ++i) {
      const int j = ia[i - 1];
      if (ja[j - 1] < i) {
        CTRL(31) = i; CTRL(32) = j; CTRL(33) = ja[j - 1];
        bad = 1;
      }
    }
    if (bad) return 23;
  }

  for (int i = 1; i <= neqns; ++i) {
    for (int k = ia[i - 1]; k <= ia[i] - 2; ++k) {
      if (ja[k] <= ja[k - 1]) {
        CTRL(31) = k; CTRL(32) = ja[k - 1]; CTRL(33) = ja[k];
        bad = 1;
      }
    }
  }
  if (bad) return 24;
  return 0;
}

int telmira_panel_width(int matrix_type, int threads, int neqns) {
  const int t = threads;
  if (matrix_type == 1 || matrix_type == 3 || matrix_type == 11 ||
      matrix_type == 13) {
    if (t < 2) return 128;
    if (t <= 4) return 96;
    return 72;
  }
  int width = t < 5 ? 80 : 64;
  if (vek_serv_is_genuine() == 1) {
    if (t == 1)
      width = 128;
    else if (t > 1 && neqns > 250000)
      width = t <= 4 ? 112 : 96;
  }
  return width;
}

void telmira_check(std::intptr_t *handle, const int *max_fac_store,
                   int *max_fac_store_c, const int *matrix_number,
                   int *matrix_number_c, const int *matrix_type,
                   int *matrix_type_c, const int *ido, int *phase,
                   const int *neqns, int *neqns_c, const int *nb, int *nb_c,
                   const int *entries, int *entries_c, const int *msglvl,
                   int *level, int *iparam, int *status, int *comi,
                   const int *ia, const int *ja, const void *a, const void *b,
                   const void *x, int *timer_flags, double *comr) {
  (void)a; (void)b; (void)x;  // the values are not looked at

  // 1. Clock, call counter, timers.
  telmira_clock(&comr[15]);
  handle[tlm::SLOT_COUNT] += 1;
  for (int k = 0; k < TELMIRA_TIMER_FLAGS; ++k) timer_flags[k] = 0;
  if (handle[tlm::SLOT_COUNT] == 1)
    for (int k = 0; k <= 7; ++k) comr[k] = 0.0;
  comr[8] = 0.0;
  comr[9] = comr[15];

  // 2. Limited message level.
  *level = *msglvl < 0 ? -*msglvl : *msglvl;
  if (*level > 1) *level = 1;

  // 3. Iteration selection and transposed flag, as iparam(1) says.
  int selection = CTRL(4);
  double tolerance = comr[12];
  int transposed = CTRL(12);
  if (CTRL(1) == 1) {
    transposed = 0;
    const int v = CTRL(4) < 0 ? -CTRL(4) : CTRL(4);
    if (v != 0) {
      const int k = v / 10;
      const int m = v % 10;
      if (k != 0) tolerance = std::exp(k * -2.302585092994046);
      selection = CTRL(4) < 0 ? -m : m;
    }
  }

  // 4. Phase and the sub-step of a 331 to 333 call.
  int st = 0;
  const tlm::phase_code pc = tlm::decode_phase(*ido);
  const int substep = pc.substep;
  int ph = pc.code;
  if (substep == 0 && (*ido < -1 || *ido > 33)) st = 1;

  // 5. Threads.
  if (CTRL(3) < 1) CTRL(3) = 1;

  const int mt = *matrix_type;
  const int m = mt < 0 ? -mt : mt;
  int raise_work_factor = 0;
  if (st == 0 && *max_fac_store > COMI(49) && COMI(49) > 0) st = 2;
  if (st == 0 && *matrix_number > *max_fac_store) st = 3;
  if (st == 0 && *matrix_number < 1 && ph > 21) st = 4;
  if (st == 0 && (m < 1 || (m > 6 && m != 11)) && mt != 13) st = 15;
  if (st == 0 && mt != COMI(12) && COMI(12) != 0) {
    if (mt == -COMI(12)) {
      raise_work_factor = mt < 1;
    } else {
      const int o = COMI(12) < 0 ? -COMI(12) : COMI(12);
      if (m / 2 != o / 2) st = 5;
    }
  }
  if (st == 0 && *neqns != COMI(1) && COMI(1) > 0) st = 6;
  if (st == 0 && *neqns < 1) st = 7;
  if (st == 0 && *entries < *neqns) st = 8;
  // Any phase that ends in a solve needs a right-hand side.
  if (st == 0 && *nb < 1 && (ph > 32 || ph % 10 == 3)) st = 9;
  if (st == 0 && (CTRL(6) < 0 || CTRL(6) > 1)) st = 10;
  if (st == 0 && (CTRL(2) < 0 || CTRL(2) > 3)) st = 11;
  if (st == 0 && CTRL(27) != 0)
    st = telmira_check_matrix(*neqns, *entries, tlm::symmetric_storage(mt),
                              ia, ja, iparam);

  *status = st;
  *matrix_number_c = *matrix_number;
  *neqns_c = *neqns;
  if (st != 0) {
    *phase = 0;
    *entries_c = 0;
    *nb_c = 0;
    *max_fac_store_c = COMI(49);
    *matrix_type_c = COMI(12);
    return;
  }

  // 18. The checked values go to the copies.
  CTRL(27) = 0;
  *phase = ph;
  *max_fac_store_c = *max_fac_store;
  *matrix_type_c = mt;
  *entries_c = *entries;
  *nb_c = *nb;

  if (raise_work_factor && COMI(38) < 4) {
    if (COMI(38) > 0) COMI(37) = 4 * COMI(37) / COMI(38);
    COMI(38) = 4;
  }

  // 19. Sizes, and at the analysis the derived counts of the pattern.
  const int n = *neqns;
  const int e = *entries;
  COMI(1) = n;
  COMI(2) = n + 1;
  const bool analysis = ph == 11 || ph == 12 || ph == 13;
  if (analysis) {
    COMI(19) = tlm::symmetric_storage(mt);
    COMI(3) = COMI(19) ? e - n : (e - n) / 2;
    COMI(4) = mt < 11 ? 2 * COMI(3) : n + 2 * e;
    COMI(14) = CTRL(2);
    COMI(15) = CTRL(3);
    COMI(20) = COMI(15) == 1 ? 1 : 0;
    COMI(21) = CTRL(5);
  }
  COMI(68) = (analysis && COMI(19) == 1) ? 0 : transposed;

  // 20. Panel width, words per value and the settings of this call.
  COMI(5) = tlm::words_per_value(mt);
  COMI(8) = CTRL(6);
  COMI(11) = *level;
  COMI(12) = mt;
  COMI(16) = telmira_panel_width(mt, COMI(15), n);
  COMI(18) = selection;
  COMI(51) = CTRL(21);
  COMI(55) = substep;
  COMI(66) = CTRL(10);
  comr[12] = tolerance;

  // 21. Only the listed phases run.
  if (ph != 11 && ph != 12 && ph != 13 && ph != 22 && ph != 23 && ph != 33) {
    *status = 20;
    *phase = 0;
    *entries_c = 0;
    *nb_c = 0;
  }
}
