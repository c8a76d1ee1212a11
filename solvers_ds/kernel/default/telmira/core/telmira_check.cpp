// telmira_check.cpp - the input checks of every call of the phase driver:
// the arguments against each other and against the handle, the optional
// matrix check, and the supernode panel width.
#include "telmira_check.h"
#include "telmira_slots.h"
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
    CTRL(IP_CHECK_PLACE1) = 1; CTRL(IP_CHECK_PLACE2) = ia[0]; CTRL(IP_CHECK_PLACE3) = ia[1];
    bad = 1;
  }
  // A row holds at most neqns columns: longer rows, where a row start is
  // garbage, fail here before any column is read through them.
  for (int i = 1; i <= neqns; ++i) {
    if (ia[i] <= ia[i - 1] || static_cast<long long>(ia[i]) - ia[i - 1] > neqns) {
      CTRL(IP_CHECK_PLACE1) = i; CTRL(IP_CHECK_PLACE2) = ia[i - 1]; CTRL(IP_CHECK_PLACE3) = ia[i];
      bad = 1;
    }
  }
  if (bad) return 21;

  for (int k = 1; k <= entries; ++k) {
    const int j = ja[k - 1];
    if (j < 1 || j > neqns) {
      CTRL(IP_CHECK_PLACE1) = k; CTRL(IP_CHECK_PLACE2) = j; CTRL(IP_CHECK_PLACE3) = neqns;
      bad = 1;
    }
  }
  if (bad) return 22;

  if (symmetric_storage) {
    for (int i = 1; i <= neqns; ++i) {
      const int j = ia[i - 1];
      if (ja[j - 1] < i) {
        CTRL(IP_CHECK_PLACE1) = i; CTRL(IP_CHECK_PLACE2) = j; CTRL(IP_CHECK_PLACE3) = ja[j - 1];
        bad = 1;
      }
    }
    if (bad) return 23;
  }

  for (int i = 1; i <= neqns; ++i) {
    for (int k = ia[i - 1]; k <= ia[i] - 2; ++k) {
      if (ja[k] <= ja[k - 1]) {
        CTRL(IP_CHECK_PLACE1) = k; CTRL(IP_CHECK_PLACE2) = ja[k - 1]; CTRL(IP_CHECK_PLACE3) = ja[k];
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
  *level = tlm::magnitude_of(*msglvl);
  if (*level > 1) *level = 1;

  // 3. Iteration selection and transposed flag, as iparam(1) says.
  int selection = CTRL(IP_ITERATION);
  double tolerance = comr[12];
  int transposed = CTRL(IP_TRANSPOSED);
  if (CTRL(IP_DEFAULTS) == 1) {
    transposed = 0;
    const int v = tlm::magnitude_of(CTRL(IP_ITERATION));
    if (v != 0) {
      const int k = v / 10;
      const int m = v % 10;
      if (k != 0) tolerance = std::exp(k * -2.302585092994046);
      selection = CTRL(IP_ITERATION) < 0 ? -m : m;
    }
  }

  // 4. Phase and the sub-step of a 331 to 333 call.
  int st = 0;
  const tlm::phase_code pc = tlm::decode_phase(*ido);
  const int substep = pc.substep;
  int ph = pc.code;
  if (substep == 0 && (*ido < -1 || *ido > 33)) st = 1;

  // 5. Threads.
  if (CTRL(IP_THREADS) < 1) CTRL(IP_THREADS) = 1;

  const int mt = *matrix_type;
  const int m = tlm::magnitude_of(mt);
  int raise_work_factor = 0;
  if (st == 0 && *max_fac_store > COMI(CI_MAX_FAC_STORE) && COMI(CI_MAX_FAC_STORE) > 0) st = 2;
  if (st == 0 && *matrix_number > *max_fac_store) st = 3;
  if (st == 0 && *matrix_number < 1 && ph > 21) st = 4;
  if (st == 0 && (m < 1 || (m > 6 && m != 11)) && mt != 13) st = 15;
  if (st == 0 && mt != COMI(CI_MTYPE) && COMI(CI_MTYPE) != 0) {
    if (mt == -COMI(CI_MTYPE)) {
      raise_work_factor = mt < 1;
    } else {
      const int o = COMI(CI_MTYPE) < 0 ? -COMI(CI_MTYPE) : COMI(CI_MTYPE);
      if (m / 2 != o / 2) st = 5;
    }
  }
  if (st == 0 && *neqns != COMI(CI_N) && COMI(CI_N) > 0) st = 6;
  if (st == 0 && *neqns < 1) st = 7;
  if (st == 0 && *entries < *neqns) st = 8;
  // Any phase that ends in a solve needs a right-hand side.
  if (st == 0 && *nb < 1 && (ph > 32 || ph % 10 == 3)) st = 9;
  if (st == 0 && (CTRL(IP_OVER_B) < 0 || CTRL(IP_OVER_B) > 1)) st = 10;
  if (st == 0 && (CTRL(IP_METHOD) < 0 || CTRL(IP_METHOD) > 3)) st = 11;
  // After the tests of the arguments: a factorization or solve works on the
  // structure of the analysis, and a code
  // that no kernel serves, or one that stores the other way (2 with 3 pass
  // the test above), cannot take it; nor can the Cholesky types take an
  // analysis with the matching and scaling of the indefinite ones.
  if (st == 0 && mt != COMI(CI_MTYPE) && COMI(CI_MTYPE) != 0 && ph > 13 &&
      (!tlm::is_defined_type(mt) || tlm::symmetric_storage(mt) != tlm::symmetric_storage(COMI(CI_MTYPE))))
    st = 5;
  if (st == 0 && ph > 13 && (mt == 2 || mt == 4) && (COMI(CI_MATCHING) > 0 || COMI(CI_SCALING) != 0))
    st = 5;
  if (st == 0 && CTRL(IP_CHECK_MATRIX) != 0)
    st = telmira_check_matrix(*neqns, *entries, tlm::symmetric_storage(mt),
                              ia, ja, iparam);

  *status = st;
  *matrix_number_c = *matrix_number;
  *neqns_c = *neqns;
  if (st != 0) {
    *phase = 0;
    *entries_c = 0;
    *nb_c = 0;
    *max_fac_store_c = COMI(CI_MAX_FAC_STORE);
    *matrix_type_c = COMI(CI_MTYPE);
    return;
  }

  // 18. The checked values go to the copies.
  CTRL(IP_CHECK_MATRIX) = 0;
  *phase = ph;
  *max_fac_store_c = *max_fac_store;
  *matrix_type_c = mt;
  *entries_c = *entries;
  *nb_c = *nb;

  if (raise_work_factor && COMI(CI_WORK_FACTOR) < 4) {
    if (COMI(CI_WORK_FACTOR) > 0) COMI(CI_TMPSIZE) = 4 * COMI(CI_TMPSIZE) / COMI(CI_WORK_FACTOR);
    COMI(CI_WORK_FACTOR) = 4;
  }

  // 19. Sizes, and at the analysis the derived counts of the pattern.
  const int n = *neqns;
  const int e = *entries;
  COMI(CI_N) = n;
  COMI(CI_N_PLUS_1) = n + 1;
  const bool analysis = ph == 11 || ph == 12 || ph == 13;
  if (analysis) {
    COMI(CI_TRIANGLE) = tlm::symmetric_storage(mt);
    COMI(CI_OFFDIAG) = COMI(CI_TRIANGLE) ? e - n : (e - n) / 2;
    COMI(CI_ADJ_LEN) = mt < 11 ? 2 * COMI(CI_OFFDIAG) : n + 2 * e;
    COMI(CI_METHOD) = CTRL(IP_METHOD);
    COMI(CI_THREADS) = CTRL(IP_THREADS);
    COMI(CI_ONE_THREAD) = COMI(CI_THREADS) == 1 ? 1 : 0;
    COMI(CI_PERM_MODE) = CTRL(IP_PERM_MODE);
    COMI(CI_POOL) = (mt == 11 && COMI(CI_THREADS) > 1 && (COMI(CI_METHOD) == 2 || COMI(CI_METHOD) == 3)) ? 1 : 0;
  }
  // Triangle storage clears the transposed flag at every phase, not only at
  // the analysis: the triangular solves never follow it, and a Hermitian
  // matrix is not its own transpose, so a refinement against the transposed
  // product would settle on the solution of another system.
  COMI(CI_TRANSPOSED) = COMI(CI_TRIANGLE) == 1 ? 0 : transposed;

  // 20. Panel width, words per value and the settings of this call.
  COMI(CI_WORDS) = tlm::words_per_value(mt);
  COMI(CI_OVER_B) = CTRL(IP_OVER_B);
  COMI(CI_MSGLVL) = *level;
  COMI(CI_MTYPE) = mt;
  COMI(CI_PANEL) = telmira_panel_width(mt, COMI(CI_THREADS), n);
  COMI(CI_ITERATION) = selection;
  COMI(CI_PIVOTING) = CTRL(IP_PIVOTING);
  COMI(CI_SUBSTEP) = substep;
  COMI(CI_PERTURBATION) = CTRL(IP_PERTURBATION);
  comr[12] = tolerance;

  // 21. Only the listed phases run.
  if (ph != 11 && ph != 12 && ph != 13 && ph != 22 && ph != 23 && ph != 33) {
    *status = 20;
    *phase = 0;
    *entries_c = 0;
    *nb_c = 0;
  }
}
