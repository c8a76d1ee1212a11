// telmira_matching.cpp - the matching step of the analysis.
//
// The matching works on zero-based copies of the caller's row starts and
// columns, so that the caller's arrays are only read. The unsymmetric types
// match the matrix as stored; the symmetric types match the matrix with
// both triangles and then turn the matching into a pivot order in which
// each 2x2 pair stays side by side.
#include "telmira_matching.h"
#include "telmira_slots.h"

#include <cstdint>

#include "bitvec.h"
#include "mc64.h"
#include "mpssym.h"
#include "service/vek_serv_memory.h"
#include "smat.h"
#include "telmira_storage.h"

namespace tlm {

template <class R>
int telmira_matching(int *comi, const void *a, const int *ia, const int *ja,
                     int *mc64_i, R *mc64_r, int *ddist_mps, int *matchperm,
                     R *uv, int *failed) {
  const int n = COMI(CI_N), mtype = COMI(CI_MTYPE);
  const int e = ia[n] - 1;
  const bool complex_values = mtype == -4 || mtype == 6 || mtype == 13;
  const bool symmetric = mtype == -4 || mtype == -2 || mtype == 6;
  *failed = 0;

  // Zero-based copies of the structure.
  pint *ia0 = static_cast<pint *>(mem_try_alloc(sizeof(pint) * static_cast<std::size_t>(n + 1), "matching: ia"));
  pint *ja0 = static_cast<pint *>(mem_try_alloc(sizeof(pint) * static_cast<std::size_t>(e > 0 ? e : 1), "matching: ja"));
  if (ia0 == nullptr || ja0 == nullptr) {
    vek_serv_free(ia0);
    vek_serv_free(ja0);
    *failed = 2;
    return 0;
  }
  for (int i = 0; i <= n; ++i) ia0[i] = ia[i] - 1;
  for (int k = 0; k < e; ++k) ja0[k] = ja[k] - 1;

  // The values the matching sees: the matrix itself for the real types,
  // the absolute values for the complex ones.
  const R *values = static_cast<const R *>(a);
  if (complex_values) {
    R *absval = mc64_r + 3 * static_cast<std::int64_t>(n) + e;
    mc64_abs(&e, static_cast<const R *>(a), absval);
    values = absval;
  }

  R *v = mc64_r, *u = mc64_r + n;
  int result = 0;
  if (symmetric) {
    // Match the matrix with both triangles.
    smat<R> upper{static_cast<std::uint32_t>(n), static_cast<std::uint32_t>(n),
                  static_cast<std::uint32_t>(e), 1u, ia0, ja0, const_cast<R *>(values)};
    smat<R> *full = smat_expand(&upper, 1, nullptr);
    result = full == nullptr ? MC64_NO_MEMORY
                             : mc64_match(&n, full->ia, full->ja, full->a, mc64_i, u, v, nullptr);
    smat_free(full);
  } else {
    result = mc64_match(&n, ia0, ja0, values, mc64_i, u, v, nullptr);
  }

  // A matrix without a perfect matching passes: the permutation has been
  // completed, and the pivots that stay zero are perturbed.
  int status = 0;
  if (result == MC64_NO_MEMORY) {
    *failed = 2;
  } else if (result != 0) {
    status = -result;
    *failed = 1;
  }

  int nparts = COMI(CI_NPARTS) < 1 ? 1 : COMI(CI_NPARTS);
  if (!*failed && symmetric) {
    const int method = COMI(CI_METHOD), threads = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
    bvec *pivots = bvec_new(static_cast<std::uint32_t>(n));
    const int ordered = pivots != nullptr && mpssym_order(&n, ia0, ja0, values, &method, &threads,
                                                          mc64_i, pivots, &nparts, ddist_mps) == 1;
    bvec_free(pivots);
    if (!ordered) *failed = 2;
  }

  if (!*failed && symmetric) {
    // One-based ranges, closed by the top region.
    for (int k = 0; k < 2 * nparts; ++k) ddist_mps[k] += 1;
    ddist_mps[2 * nparts] = ddist_mps[2 * nparts - 1] + 1;
    ddist_mps[2 * nparts + 1] = n;
    COMI(CI_NPARTS) = nparts;
  }

  if (!*failed) {
    for (int i = 0; i < n; ++i) mc64_i[i] += 1;
    mc64_i[6 * n] = COMI(CI_LIVE);
    mc64_i[6 * n + 1] = COMI(CI_LIVE);
    mc64_i[6 * n + 2] = -1;
    mc64_i[6 * n + 3] = 0;
    const int scaling = COMI(CI_SCALING);
    mc64_post(&scaling, &n, mc64_i, mc64_r, matchperm, uv, &mtype);
  }
  vek_serv_free(ia0);
  vek_serv_free(ja0);
  return status;
}

template int telmira_matching<double>(int *, const void *, const int *, const int *, int *,
                                      double *, int *, int *, double *, int *);
template int telmira_matching<float>(int *, const void *, const int *, const int *, int *,
                                     float *, int *, int *, float *, int *);

}  // namespace tlm
