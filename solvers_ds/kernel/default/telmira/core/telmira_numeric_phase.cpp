// telmira_numeric_phase.cpp - factorization and solve of a call: the
// factor block of the matrix_number and the work arrays by the plan, the
// factorization when the phase or the plan asks for one, and the solve,
// plain or through the refinement call, decided here and nowhere else.
#include "telmira_call.h"
#include "telmira_slots.h"

#include <algorithm>
#include <climits>
#include <complex>
#include <type_traits>

#include "service/vek_serv_memory.h"
#include "pre_cgs.h"
#include "service/vek_serv_clock.h"
#include "telmira_layout.h"
#include "telmira_ooc_files.h"
#include "telmira_factorize.h"
#include "telmira_refine.h"
#include "telmira_solve.h"
#include "telmira_types.h"

namespace tlm {

namespace {

// The arrays of the plan: the factor block (values, then the pivot
// records), the work array and the iteration array. Returns false with
// error -2 set when one cannot be had.
template <class R>
bool allocate_numeric(std::intptr_t *handle, int *iparam, std::intptr_t *entry,
                      const fact_sizes &plan, call_record *rec, int mark) {
  state_view s = state_of(handle);
  int *comi = s.comi, *comx = s.comx, *ooc_l = s.ooc_l;
  storage_sums *sums = &rec->sums;
  int *status = &rec->status;
  if (plan.factor != 0) {
    // A block left by an earlier factorization goes first: also the one of
    // a factorization that failed, which the entry no longer counts as
    // factors.
    void *old = reinterpret_cast<void *>(entry[0]);
    storage_free(&old, mark);
    entry[0] = 0;
    // With the factors in files the memory freed by the analysis would
    // otherwise stay resident beside the panel buffers: the heap gives
    // its free pages back before they are allocated.
    if (OOCL(OL_MODE) == 2) vek_serv_heap_release();
    if (plan.factor > 0) {
      OOCL(OL_BYTES_WRITTEN) = OOCL(OL_BYTES_READ) = OOCL(OL_BYTES_READ_SOLVE) = OOCL(OL_STATUS) = 0;
      OOCL(OL_COUNTER43) = OOCL(OL_COUNTER44) = 0;
    }
    const std::int64_t f = plan.factor < 0 ? -plan.factor : plan.factor;
    const std::int64_t value_bytes = static_cast<std::int64_t>(sizeof(R)) * words_per_value(COMI(CI_MTYPE));
    const std::int64_t pivots = 4 * PIVOT_RECORD_WORDS * static_cast<std::int64_t>(COMI(CI_N));
    const std::int64_t bytes = f * value_bytes + pivots;
    void *block = nullptr;
    // The kernels clear each supernode's block before they scatter A into
    // it, so that only the pivot records start from zero: a fill of the
    // values here would touch every page from this thread once more.
    const std::int64_t values = COMI(CI_OOC_VALUES) > 0
                                    ? static_cast<std::int64_t>(COMI(CI_OOC_VALUES))
                                    : static_cast<std::int64_t>(COMI(CI_LNZ_LEN)) + COMI(CI_UNZ_LEN);
    const std::int64_t zeroed = std::max(pivots, bytes - values * value_bytes);
    if (!storage_alloc_uncleared(&block, bytes, std::min(zeroed, bytes), ST_FACT_LU, status,
                                 sums)) {
      entry[0] = 0;
      rec->error = -2;
      return false;
    }
    entry[0] = reinterpret_cast<std::intptr_t>(block);
    if (CTRL(IP_MEMORY_REPORT) >= 0) sums->numeric = kbytes_of(bytes);
  }
  COMX(COMX_FACTORS) = 1;

  if (plan.work != 0) {
    const std::int64_t bytes =
        (plan.work < 0 ? -plan.work : plan.work) * static_cast<std::int64_t>(sizeof(R));
    if (plan.work < 0) {
      // A grown work array needs no zero fill.
      storage_free_slot(handle, WORK_R0, mark);
      void *p = bytes <= INT_MAX ? vek_serv_malloc(static_cast<std::size_t>(bytes), ALIGNMENT)
                                 : nullptr;
      if (p == nullptr) {
        rec->status = ST_WORK_R0;
        sums->failed_bytes = bytes;
        sums->failed_sum = sums->analysis;
        rec->error = -2;
        return false;
      }
      handle[WORK_R0] = reinterpret_cast<std::intptr_t>(p);
    } else if (!storage_alloc_slot(handle, WORK_R0, bytes, ST_WORK_R0, status, sums)) {
      rec->error = -2;
      return false;
    }
    if (CTRL(IP_MEMORY_REPORT) >= 0) sums->numeric += kbytes_of(bytes);
  }
  COMX(COMX_WORK) = 1;
  if (plan.iteration > 0) {
    const std::int64_t bytes = plan.iteration * static_cast<std::int64_t>(sizeof(R));
    if (!storage_alloc_slot(handle, CGS_ARR, bytes, ST_CGS_ARR, status, sums)) {
      rec->error = -2;
      return false;
    }
    COMX(COMX_CGS) = 1;
  }
  return true;
}

// Ends the phase with the error of a failed stage: the out-of-core word,
// or -4 with the status in iparam(30).
bool stage_ok(int *comi, int *iparam, int *ooc_l, call_record *rec) {
  if (OOCL(OL_STATUS) != 0) {
    rec->error = OOCL(OL_STATUS);
    rec->status = 0;
    return false;
  }
  if (COMI(CI_STATUS) != 0) {
    rec->status = COMI(CI_STATUS);
    CTRL(IP_STATUS) = COMI(CI_STATUS);
    rec->error = -4;
    return false;
  }
  return true;
}

// A solve vouches for its result: a solution with a NaN or an infinite
// value is no success. One pass over the n nb values of the solution.
template <class R>
void finite_or_error(int *iparam, const call_args &c, call_record *rec, const int *comi) {
  const void *solution = CTRL(IP_OVER_B) == 1 ? c.b : c.x;
  const std::int64_t count =
      static_cast<std::int64_t>(*c.nb) * COMI(CI_N) * words_per_value(COMI(CI_MTYPE));
  if (!all_finite(static_cast<const R *>(solution), count)) {
    rec->status = ST_NONFINITE_SOLUTION;
    CTRL(IP_STATUS) = ST_NONFINITE_SOLUTION;
    rec->error = -4;
  }
}

// The factorization of the call, with the counters it reports.
template <class R>
bool factorize(std::intptr_t *handle, int *iparam, const call_args &c, call_record *rec,
               std::intptr_t *entry) {
  state_view s = state_of(handle);
  int *comi = s.comi, *ooc_l = s.ooc_l;
  stage_factor<R>(context_of(handle, iparam, c, rec, entry, nullptr));
  CTRL(IP_NPERT) = COMI(CI_NPERT);
  CTRL(IP_NPOS) = COMI(CI_NPOS);
  CTRL(IP_NNEG) = COMI(CI_NNEG);
  CTRL(IP_OOC_LEVEL) = OOCL(OL_ALGORITHM);
  return stage_ok(comi, iparam, ooc_l, rec);
}

// The hybrid mode (comi(18) not 0): the stored factors of an earlier matrix
// precondition a Krylov iteration on the current one, for as many passes
// as the measured ratio of factorization to solve time makes worth it; a
// failed iteration factorizes anew while that can still help. The
// iteration's result goes to iparam(20).
template <class R>
void hybrid_phase(std::intptr_t *handle, int *iparam, const call_args &c, call_record *rec,
                  std::intptr_t *entry, int code) {
  state_view s = state_of(handle);
  int *comi = s.comi, *comx = s.comx, *ooc_l = s.ooc_l;
  double *comr = s.comr;
  const int K = COMI(CI_ITERATION);
  const int w = words_per_value(COMI(CI_MTYPE));
  int fresh = 0;
  int limit = K < 0 ? 150 : COMI(CI_MAXIT);
  for (;;) {
    // Factorize when the phase asks for it and the iteration cannot serve,
    // or when an earlier pass failed.
    if (code < 30 || COMI(CI_FORCE) == 1) {
      if (limit < 5 || CTRL(IP_CGS) < 0 || COMI(CI_FORCE) == 1) {
        if (!factorize<R>(handle, iparam, c, rec, entry)) return;
        COMI(CI_FORCE) = 0;
        limit = 4;
        fresh = 1;
      }
      if (code % 10 < 3) return;
    }
    // x := M^-1 b, timed.
    stage_context ctx = context_of(handle, iparam, c, rec, entry, nullptr);
    stage_clock_start(comr, rec->timer_flags);
    COMX(COMX_FACTORS) = 1;
    COMX(COMX_U_PART) = COMI(CI_LNZ_LEN) * w + 1;
    const int ctl6 = COMI(CI_OVER_B);
    COMI(CI_OVER_B) = 0;
    double t0 = 0.0, t1 = 0.0;
    telmira_clock(&t0);
    telmira_solve<R>(c.nb, c.x, c.b, ctx.struc_fi, comx, ctx.factors, ctx.work_r0, ctx.mc64uv,
                     ctx.mc64perm, comi, ooc_l);
    telmira_clock(&t1);
    COMI(CI_OVER_B) = ctl6;
    comr[6] = t1 - t0;
    rec->timer_flags[6] = 1;
    stage_clock_end(comr);
    if (!stage_ok(comi, iparam, ooc_l, rec)) return;
    // The pass limit grows with the ratio of factorization to solve time.
    const double t = t1 - t0;
    const int k = magnitude_of(K);
    if (!(t > static_cast<double>(1e-10f))) {
      limit = K < 0 ? 150 : 0;
    } else {
      limit = static_cast<int>(1.0 + static_cast<double>(0.45f) * 3.0 * k * comr[5] / t);
      if (OOCL(OL_MODE) == 2 && limit < 11) limit = 10;
      if (limit > 100 && K > 0) limit = 100;
      if (K < 0) limit = 150;
    }
    COMI(CI_MAXIT) = limit;
    COMI(CI_CHECK_PASS) = static_cast<int>(1.0 + 0.5 * limit);
    if (limit < 1) {
      // Not worth an iteration: the next phase factorizes; the solve of the
      // stored factors stands (and is measured below).
      COMI(CI_FORCE) = 1;
      if (fresh == 0) CTRL(IP_CGS) = -5;
      break;
    }
    int st = 0, it = 0;
    const int no_copy = 0;
    t0 = t1;
    auto run = [&](auto *value) {
      typedef std::remove_pointer_t<decltype(value)> T;
      cgs_operands<T> op{c.ia, c.ja, static_cast<const T *>(c.a), ctx.struc_fi, comx,
                         ctx.factors, ctx.work_r0, ctx.mc64uv, ctx.mc64perm, ooc_l,
                         static_cast<T *>(ctx.cgs), COMI(CI_ITERATION_LEN) / w};
      pre_cgs<T>(c.neqns, c.nb, op, static_cast<T *>(c.b), static_cast<T *>(c.x), &st, comi,
                 comr, &it, &no_copy);
    };
    if (w == 1)
      run(static_cast<R *>(nullptr));
    else
      run(static_cast<std::complex<R> *>(nullptr));
    telmira_clock(&t1);
    comr[7] = t1 - t0;
    rec->timer_flags[7] = 1;
    CTRL(IP_CGS) = st == 0 ? it : st - 10 * it;
    if (st == 0) break;
    COMI(CI_FORCE) = 1;
    if (fresh == 1 || K <= 0 || code >= 30) {
      rec->status = -3;
      CTRL(IP_STATUS) = -3;
      rec->error = -4;
      return;
    }
  }
  // The solution vouches for itself against the current matrix, in the
  // iteration's array; then it goes over b when the caller asked so.
  const stage_context ctx = context_of(handle, iparam, c, rec, entry, nullptr);
  telmira_vouch<R>(c.a, c.ia, c.ja, c.nb, c.b, c.x, ctx.cgs, ctx.struc_fi, comx, ctx.factors,
                   ctx.work_r0, ctx.mc64uv, ctx.mc64perm, comi, comr, rec->timer_flags, ooc_l);
  CTRL(IP_REFINE_STEPS) = COMI(CI_REFINE_STEPS);
  if (!stage_ok(comi, iparam, ooc_l, rec)) return;
  if (COMI(CI_OVER_B) == 1) {
    const std::int64_t count = static_cast<std::int64_t>(*c.nb) * COMI(CI_N) * w;
    std::copy(static_cast<const R *>(c.x), static_cast<const R *>(c.x) + count,
              static_cast<R *>(c.b));
  }
}

// Factors in files, a Cholesky factor made and used in one call (ido 13
// or 23): the factorization makes the forward substitution panel by panel
// while each panel is in memory, and the call's first solve starts from its
// result with the backward sweep, so that it reads the factors once. Not
// where refinement steps are asked for (iparam(8)), nor for partial or
// transposed solves, scaled systems or the iteration of the hybrid mode;
// a buffer the heap refuses leaves the solve as it was. Offered for the
// lifetime of the object.
template <class R>
class fused_forward {
 public:
  fused_forward(std::intptr_t *handle, int *iparam, const call_args &c, call_record *rec,
                std::intptr_t *entry, int code) {
    if (handle == nullptr) return;  // no factorization in this call
    state_view s = state_of(handle);
    int *comi = s.comi, *ooc_l = s.ooc_l;
    if (ooc_l == nullptr) return;
    OOCL(OL_PHASE) = code;
    OOCL(OL_REFINE) = CTRL(IP_REFINE);
    if (OOCL(OL_MODE) != 2 || COMI(CI_MTYPE) != 2 || COMI(CI_ITERATION) != 0 ||
        (code != 13 && code != 23) || CTRL(IP_REFINE) != 0 || COMI(CI_SUBSTEP) != 0 ||
        COMI(CI_TRANSPOSED) != 0 || COMI(CI_MATCHING) >= 1 || *c.nb < 1 || c.b == nullptr)
      return;
    int n = COMI(CI_N);
    x_ = static_cast<R *>(
        vek_serv_malloc(sizeof(R) * static_cast<std::size_t>(n) * static_cast<std::size_t>(*c.nb), 128));
    if (x_ == nullptr) return;
    const stage_context ctx = context_of(handle, iparam, c, rec, entry, nullptr);
    psol_fwgath<R>(&n, c.nb, x_, static_cast<const R *>(c.b), sub(ctx.struc_fi, s.comx, CX_PERM),
                   nullptr, nullptr, comi);
    f_ = ooc_forward{x_, c.b, n, *c.nb, 0};
    ooc_l_ = ooc_l;
    telmira_ooc_set_forward(ooc_l_, &f_);
  }
  ~fused_forward() {
    if (ooc_l_ != nullptr) telmira_ooc_set_forward(ooc_l_, nullptr);
    if (x_ != nullptr) vek_serv_free_list(reinterpret_cast<void **>(&x_), static_cast<void **>(nullptr));
  }
  fused_forward(const fused_forward &) = delete;
  fused_forward &operator=(const fused_forward &) = delete;

 private:
  ooc_forward f_{};
  R *x_ = nullptr;
  const int *ooc_l_ = nullptr;
};

}  // namespace

template <class R>
void numeric_phase(std::intptr_t *handle, int *iparam, const call_args &c,
                   call_record *rec, int mark) {
  state_view s = state_of(handle);
  int *comi = s.comi, *comx = s.comx, *ooc_l = s.ooc_l;
  std::intptr_t *entry = fact_entry(handle, *c.matrix_number);
  if (entry == nullptr) {
    rec->status = 100;
    rec->error = -1;
    return;
  }
  // The plan may turn a solve without factors into a factorization and
  // solve (33 into 23), and force a factorization at 33.
  int code = rec->phase.code;
  const int commit = 1;
  fact_sizes plan{};
  fact_plan(&code, c.nb, handle, entry, &mark, &commit, &plan);
  if (OOCL(OL_MODE) == 2 && code < 30) {
    // One set of factor files serves the handle: factorizing this matrix
    // into them takes the factors of every other matrix number away, whose
    // next solve then factorizes anew instead of reading foreign factors.
    for (int k = 1; k <= COMI(CI_MAX_FAC_STORE); ++k)
      if (k != *c.matrix_number && fact_entry(handle, k) != nullptr)
        release_fact_entry(fact_entry(handle, k), mark);
  }
  if (!allocate_numeric<R>(handle, iparam, entry, plan, rec, mark)) return;
  const phase_code phase = decode_phase(code);

  if (COMI(CI_ITERATION) != 0) {
    hybrid_phase<R>(handle, iparam, c, rec, entry, code);
    COMX(COMX_CGS) = mark;
    storage_free_slot(handle, CGS_ARR, mark);
    if (rec->error == 0 && phase.solves()) finite_or_error<R>(iparam, c, rec, comi);
    return;
  }

  // The factorization.
  const fused_forward<R> fused((code < 30 || COMI(CI_FORCE) == 1) && phase.solves() ? handle : nullptr,
                               iparam, c, rec, entry, code);
  if ((code < 30 || COMI(CI_FORCE) == 1) && !factorize<R>(handle, iparam, c, rec, entry)) {
    storage_free_slot(handle, CGS_ARR, mark);
    COMX(COMX_CGS) = mark;
    return;
  }
  if (!phase.solves()) {
    storage_free_slot(handle, CGS_ARR, mark);
    COMX(COMX_CGS) = mark;
    return;
  }

  // A solve of stored factors takes the caller's count of perturbed pivots
  // (iparam(14)) when there is one.
  if (code == 33) {
    if (CTRL(IP_NPERT) + COMI(CI_NPERT) == 0) {
      CTRL(IP_NPERT) = 0;
      COMI(CI_NPERT) = 0;
    } else if (CTRL(IP_NPERT) > 0) {
      COMI(CI_NPERT) = CTRL(IP_NPERT);
    }
  }
  // The solve: through the refinement call, which refines and measures its
  // solution, or plain. The refinement call's array: the vectors of the
  // steps (with the extended path's accumulators for triangle storage and
  // the transposed product), one more for the accuracy check's last
  // correction, and the scratch of the parallel product.
  const bool measured = solve_is_measured(comi, iparam);
  if (measured) {
    const std::int64_t k =
        (CTRL(IP_REFINE) >= 0 ? 2 : ((COMI(CI_TRIANGLE) == 1 || COMI(CI_TRANSPOSED) != 0) ? 5 : 3)) + 1;
    // (and one value of padding for the alignment of the extended area)
    const std::int64_t bytes = static_cast<std::int64_t>(sizeof(R)) * COMI(CI_WORDS) *
                               (*c.nb * (k * COMI(CI_N) + 2 * std::max(1, COMI(CI_THREADS))) + 1);
    storage_free_slot(handle, CGS_ARR, mark);
    if (!storage_alloc_slot(handle, CGS_ARR, bytes, ST_CGS_ARR, &rec->status, &rec->sums)) {
      rec->error = -2;
      return;
    }
    COMX(COMX_CGS) = 1;
  }
  const stage_context ctx = context_of(handle, iparam, c, rec, entry, nullptr);
  stage_solve<R>(ctx, measured);
  CTRL(IP_REFINE_STEPS) = COMI(CI_REFINE_STEPS);
  CTRL(IP_OOC_LEVEL) = OOCL(OL_ALGORITHM);
  const bool ok = stage_ok(comi, iparam, ooc_l, rec);
  COMX(COMX_CGS) = mark;
  storage_free_slot(handle, CGS_ARR, mark);
  if (ok) finite_or_error<R>(iparam, c, rec, comi);
}

template void numeric_phase<double>(std::intptr_t *, int *, const call_args &, call_record *,
                                    int);
template void numeric_phase<float>(std::intptr_t *, int *, const call_args &, call_record *,
                                   int);

}  // namespace tlm
