// telmira.cpp - the entry of the sparse direct solver.
//
// Answers the probes, fixes the precision of the handle, takes the thread
// count and reduces it for small systems, serves a matrix with one entry per
// row itself, and hands everything else to the phase driver of the chosen
// precision.
#include "telmira.h"

#include "diag_solve.h"
#include "telmira_driver.h"
#include "telmira_entry.h"

#include "service/vek_serv_blas.h"
#include "service/vek_serv_threads.h"

int telmira_not_allocated_double = tlm::not_allocated_mark;
int telmira_not_allocated_single = tlm::not_allocated_mark;

namespace {

// The progress routine of this library never stops a run. The entry installs
// the outer routine on every call; it only forwards.
int telmira_progress_quiet(int *, int *, const char *, int) { return 0; }
int telmira_progress(int *thread, int *step, const char *stage, int length) {
  return telmira_progress_quiet(thread, step, stage, length);
}

// comi(k) of a handle that holds state; the basic block starts with comi.
int handle_comi(const intptr_t *handle, int k) {
  const int *comi = reinterpret_cast<const int *>(handle[1]);
  return comi ? comi[k - 1] : 0;
}

}  // namespace

int telmira_threads_for(int threads, int neqns, int nb, int dynamic) {
  if (neqns < 50 * threads) {
    if (nb < 2 && dynamic != 0) threads = neqns / 50;
    if (threads < 2) threads = 1;
  }
  return threads;
}

extern "C" TELMIRA_API void telmira(intptr_t *handle, const int *max_fac_store,
                                    const int *matrix_number,
                                    const int *matrix_type, const int *ido,
                                    const int *neqns, const void *a,
                                    const int *ia, const int *ja, int *perm,
                                    const int *nb, int *iparam,
                                    const int *msglvl, void *b, void *x,
                                    int *error) {
  vek_serv_set_progress(telmira_progress);

  // 1. Probes.
  if (*ido == -2) {
    *error = 16;
    iparam[0] = 23;
    return;
  }
  if (*ido == -3) {
    *error = 300000;
    return;
  }

  // The host's BLAS thread setting comes back as it was when the call ends.
  vek_serv_blas_guard blas_guard;

  // 2. Error word and threads.
  *error = 0;
  int threads = vek_serv_get_max_threads();

  // 3. Precision: fixed by the call that creates the state.
  const bool single = handle[0] == 0 ? iparam[27] == 1 : handle_comi(handle, 90) == 1;

  // 4. One thread for each 50 equations with one right-hand side.
  threads = telmira_threads_for(threads, *neqns, *nb, vek_serv_get_dynamic());

  // 5. A matrix with as many entries as equations is diagonal.
  if (*ido > 0 && *neqns >= 1 && ia != nullptr && ia[*neqns] - 1 == *neqns) {
    iparam[11] = -1;
    if (*ido == 11) return;
    const int solve = (*ido % 10 == 3) ? 1 : 0;
    const bool real = tlm::is_real_type(*matrix_type);
    int err = 0;
    if (real) {
      if (single)
        diag_solve_s(neqns, nb, ia, ja, static_cast<const float *>(a),
                     static_cast<float *>(b), static_cast<float *>(x), &err,
                     &iparam[5], &solve, &threads, &iparam[21], &iparam[22]);
      else
        diag_solve_d(neqns, nb, ia, ja, static_cast<const double *>(a),
                     static_cast<double *>(b), static_cast<double *>(x), &err,
                     &iparam[5], &solve, &threads, &iparam[21], &iparam[22]);
    } else {
      if (single)
        diag_solve_c(neqns, nb, ia, ja, static_cast<const float *>(a),
                     static_cast<float *>(b), static_cast<float *>(x), &err,
                     &iparam[5], &solve, &threads);
      else
        diag_solve_z(neqns, nb, ia, ja, static_cast<const double *>(a),
                     static_cast<double *>(b), static_cast<double *>(x), &err,
                     &iparam[5], &solve, &threads);
    }
    *error = err != 0 ? -7 : 0;
    // A solution with a NaN or an infinite value is no success.
    if (*error == 0 && solve) {
      const void *solution = iparam[5] == 1 ? b : x;
      const std::int64_t count = static_cast<std::int64_t>(*nb < 1 ? 1 : *nb) * *neqns *
                                 (real ? 1 : 2);
      const bool finite = single ? tlm::all_finite(static_cast<const float *>(solution), count)
                                 : tlm::all_finite(static_cast<const double *>(solution), count);
      if (!finite) *error = -4;
    }
    return;
  }

  // 6. After a diagonal matrix no state exists: nothing to release. A state
  // that an earlier call on this handle made is still released, so that the
  // handle owns nothing after ido -1.
  if (iparam[11] == -1 && !(*ido == -1 && handle[1] != 0)) return;

  // 7. The phase driver of the chosen precision.
  iparam[2] = threads;
  if (single)
    telmira_single(handle, max_fac_store, matrix_number, matrix_type, ido, neqns,
                   a, ia, ja, perm, nb, iparam, msglvl, b, x, error,
                   &telmira_not_allocated_single);
  else
    telmira_double(handle, max_fac_store, matrix_number, matrix_type, ido, neqns,
                   a, ia, ja, perm, nb, iparam, msglvl, b, x, error,
                   &telmira_not_allocated_double);
}
