// sssord.cpp - the ordering step of the analysis: adjacency, choice of the
// permutation, and the parts of the parallel plan.

#include "ordering.h"
#include "telmira_slots.h"
#include "telmira_storage.h"

#include "service/vek_serv_clock.h"
#include "service/vek_serv_memory.h"

namespace {

inline int comi_get(const int *comi, int k) { return comi[k - 1]; }
inline void comi_set(int *comi, int k, int v) { comi[k - 1] = v; }

// Scratch of the ordering step; null when the heap has none.
inline int *iwork_alloc(long count) { return mem_try_alloc_int(count, "sssord"); }

// When the last subgraph reaches n, the last column becomes the top region.
void split_last_part(int n, int nparts, int *parts) {
  if (nparts > 1 && parts[2 * (nparts - 1) + 1] == n) {
    parts[2 * (nparts - 1) + 1] = n - 1;
    parts[2 * nparts] = n;
    parts[2 * nparts + 1] = n;
  }
}

// Minimum degree, plain or constrained by a domain decomposition, on a copy
// of the adjacency. Returns the status.
int order_by_mmd(int n, int *xadj, int *adjncy, int *comi, int constrained,
                 int *perm, int *invp) {
  const int nnz = xadj[n] - 1;
  int *copy = iwork_alloc(nnz);
  int *work = iwork_alloc(5L * n);
  if (copy == nullptr || work == nullptr) {
    vek_serv_free(copy);
    vek_serv_free(work);
    return ORDERING_NO_MEMORY;
  }
  for (int p = 0; p < nnz; ++p) copy[p] = adjncy[p];
  int delta = comi_get(comi, CI_DELTA);
  int maxint = comi_get(comi, CI_MAXINT) > 0 ? comi_get(comi, CI_MAXINT) : 2147483647;
  int nofsub = 0, nn = n, status = 0;
  if (!constrained) {
    genmmd(&nn, xadj, copy, invp, perm, &delta, work, work + n, work + 2 * n,
           work + 3 * n, &maxint, &nofsub);
  } else {
    int nparts = comi_get(comi, CI_THREADS), ncon = 0;
    ddecomp(&nparts, &nn, xadj, adjncy, perm, invp, &ncon, &status);
    if (status == 0) {
      int sepflag = comi_get(comi, CI_SEPFLAG);
      genmmd_constrained(&nn, xadj, copy, invp, perm, &delta, work, work + n,
                         work + 2 * n, work + 3 * n, &maxint, &nofsub, &ncon,
                         work + 4 * n, &sepflag);
    }
  }
  vek_serv_free(copy);
  vek_serv_free(work);
  return status;
}

// Whether a full pattern (one-based) is structurally symmetric with every
// diagonal entry present, as the types that store both triangles of a
// symmetric pattern must be: the entries of A^T, counted per row, must be
// those of A. O(nnz) with n + nnz scratch. Returns 0 (symmetric),
// ORDERING_PATTERN_NOT_SYMMETRIC or ORDERING_NO_MEMORY.
int pattern_symmetric(int n, const int *ia, const int *ja) {
  const long nnz = ia[n] - 1;
  int *start = iwork_alloc(n + 1L);
  int *cols = iwork_alloc(nnz);
  int *mark = iwork_alloc(n);
  if (start == nullptr || cols == nullptr || mark == nullptr) {
    vek_serv_free_list(reinterpret_cast<void **>(&start), reinterpret_cast<void **>(&cols),
                       reinterpret_cast<void **>(&mark), static_cast<void **>(nullptr));
    return ORDERING_NO_MEMORY;
  }
  for (int i = 0; i <= n; ++i) start[i] = 0;
  bool ok = true;
  for (long k = 0; k < nnz && ok; ++k) {
    const int j = ja[k];
    if (j < 1 || j > n) ok = false;
    else ++start[j];
  }
  if (ok) {
    for (int i = 0; i < n; ++i) start[i + 1] += start[i];
    // the rows of A^T: row j lists every i with (i, j) in A
    for (int i = 1; i <= n; ++i)
      for (int k = ia[i - 1]; k < ia[i]; ++k) cols[start[ja[k - 1] - 1]++] = i;
    for (int i = n; i > 0; --i) start[i] = start[i - 1];
    start[0] = 0;
    for (int i = 0; i < n; ++i) mark[i] = 0;
    for (int i = 1; i <= n && ok; ++i) {
      if (ia[i] - ia[i - 1] != start[i] - start[i - 1]) {
        ok = false;
        break;
      }
      bool diagonal = false;
      for (int k = ia[i - 1]; k < ia[i]; ++k) {
        mark[ja[k - 1] - 1] = i;
        diagonal |= ja[k - 1] == i;
      }
      ok = diagonal;
      for (int k = start[i - 1]; k < start[i] && ok; ++k) ok = mark[cols[k] - 1] == i;
    }
  }
  vek_serv_free(start);
  vek_serv_free(cols);
  vek_serv_free(mark);
  return ok ? 0 : ORDERING_PATTERN_NOT_SYMMETRIC;
}

}  // namespace

int ordering_pattern_sound(int n, const int *ia, const int *ja, int triangle, int sorted) {
  if (ia[0] != 1) return ORDERING_PATTERN_MALFORMED;
  bool unsorted = false;
  for (int i = 1; i <= n; ++i) {
    if (ia[i] < ia[i - 1]) return ORDERING_PATTERN_MALFORMED;
    if (triangle && (ia[i] == ia[i - 1] || ja[ia[i - 1] - 1] != i))
      return ORDERING_PATTERN_MALFORMED;
    int prev = triangle ? i : 0;
    for (int k = ia[i - 1] + (triangle ? 1 : 0); k < ia[i]; ++k) {
      const int j = ja[k - 1];
      if (j < 1 || j > n || (triangle && j <= i)) return ORDERING_PATTERN_MALFORMED;
      if (j <= prev) {
        if (sorted) return ORDERING_PATTERN_MALFORMED;
        unsorted = true;
      }
      prev = j;
    }
  }
  if (!unsorted) return 0;
  // Rows in any order: a column repeated within a row shows only against a
  // mark of the row's columns, for the rows that do not rise.
  int *mark = static_cast<int *>(vek_serv_malloc(static_cast<std::size_t>(n) * sizeof(int), 64));
  if (mark == nullptr) return ORDERING_NO_MEMORY;
  for (int j = 0; j < n; ++j) mark[j] = 0;
  int status = 0;
  for (int i = 1; i <= n && status == 0; ++i) {
    bool rising = true;
    for (int k = ia[i - 1] + 1; k < ia[i] && rising; ++k) rising = ja[k - 1] > ja[k - 2];
    if (rising) continue;
    for (int k = ia[i - 1]; k < ia[i]; ++k) {
      if (mark[ja[k - 1] - 1] == i) {
        status = ORDERING_PATTERN_MALFORMED;
        break;
      }
      mark[ja[k - 1] - 1] = i;
    }
  }
  vek_serv_free(mark);
  return status;
}

void ordering_single_part(int n, int *parts) {
  parts[0] = 1;
  parts[1] = n - 1;
  parts[2] = n;
  parts[3] = n;
}

void ordering_regroup(int n, int nparts, int *perm, int *parts, int *work) {
  int *mark = work;             // n: part of each position
  int *order = work + n;        // n: the new order
  int *newsep = work + 2 * n;   // 2 nparts: repacked separator pairs
  for (int i = 0; i < n; ++i) mark[i] = nparts + 1;
  for (int k = 1; k <= nparts; ++k)
    for (int p = parts[2 * (k - 1)]; p <= parts[2 * (k - 1) + 1]; ++p)
      mark[p - 1] = k;
  int next = 0;
  for (int k = 1; k <= nparts + 1; ++k) {
    int first = next + 1;
    // Each part is one contiguous range; the top region is all the rest.
    if (k <= nparts) {
      for (int p = parts[2 * (k - 1)]; p <= parts[2 * (k - 1) + 1]; ++p)
        order[next++] = perm[p - 1];
    } else {
      for (int p = 0; p < n; ++p)
        if (mark[p] == nparts + 1) order[next++] = perm[p];
    }
    parts[2 * (k - 1)] = first;
    parts[2 * (k - 1) + 1] = next;
  }
  // Separators: the one with the largest first goes to the top, and so on
  // downwards, each keeping its length.
  int nsep = 0;
  while (nsep < nparts - 1 && parts[2 * (nparts + 1 + nsep)] > 0) ++nsep;
  if (nsep > 0) {
    int *sep = parts + 2 * (nparts + 1);
    int top = sep[1];
    for (int s = 0; s < nsep; ++s) {
      int best = -1;
      for (int t = 0; t < nsep; ++t)
        if (sep[2 * t] != -2 && (best < 0 || sep[2 * t] > sep[2 * best]))
          best = t;
      int len = sep[2 * best + 1] - sep[2 * best] + 1;
      newsep[2 * best] = top - len + 1;
      newsep[2 * best + 1] = top;
      top -= len;
      sep[2 * best] = sep[2 * best + 1] = -2;
    }
    for (int t = 0; t < 2 * nsep; ++t) sep[t] = newsep[t];
  }
  for (int i = 0; i < n; ++i) perm[i] = order[i];
}

void sssord(int *n_, int *ia, int *ja, int *comi, int *user_perm,
            int *match_perm, int *xadj, int *adjncy, int *perm, int *invp,
            int *parts, double *times) {
  const int n = *n_;
  const int mtype = comi_get(comi, CI_MTYPE);
  const int method = comi_get(comi, CI_METHOD);
  const int permmode = comi_get(comi, CI_PERM_MODE);
  const int matching = comi_get(comi, CI_MATCHING);
  int threads = comi_get(comi, CI_THREADS) > 0 ? comi_get(comi, CI_THREADS) : 1;
  double t0 = 0, t1 = 0, t2 = 0;
  telmira_clock(&t0);
  comi_set(comi, CI_STATUS, 0);

  // 1-2. The adjacency.
  int nnz = ia[n] - 1;
  for (int i = 0; i < n; ++i) perm[i] = invp[i] = 0;
  for (int i = 0; i <= n; ++i) xadj[i] = 0;
  if (mtype > 10) {
    int *work = iwork_alloc(fulladj_unsym_work(n, nnz));
    if (work == nullptr) {
      comi_set(comi, CI_STATUS, ORDERING_NO_MEMORY);
      return;
    }
    int nadj = 0, nn = n;
    fulladj_unsym(&nn, ia, ja, matching > 0 ? match_perm : nullptr, xadj,
                  adjncy, &nadj, work);
    vek_serv_free(work);
    comi_set(comi, CI_ADJ_LEN, nadj);
  } else {
    int nn = n, tri = comi_get(comi, CI_TRIANGLE);
    // Both triangles of a structurally symmetric matrix: a pattern that is
    // not symmetric, or a row without its diagonal entry, cannot be ordered
    // as one (an unsymmetric type takes such a matrix).
    const int shape = tri != 1 ? pattern_symmetric(n, ia, ja) : 0;
    if (shape != 0) {
      comi_set(comi, CI_STATUS, shape);
      return;
    }
    ladj_mod(&nn, ia, ja, &threads, &tri, xadj, adjncy);
  }
  telmira_clock(&t1);
  times[0] = t1 - t0;

  // 4-5. The permutation.
  int nparts = comi_get(comi, CI_NPARTS);
  int status = 0;
  bool dissection = false;
  const bool sym_matched =
      matching > 0 && (mtype == -4 || mtype == -2 || mtype == 6) &&
      match_perm != nullptr;
  if (permmode >= 1 && permmode != 2) {
    // The caller's order must be a permutation of 1..n; invp marks.
    for (int i = 0; i < n; ++i) {
      const int p = user_perm[i];
      if (p < 1 || p > n || invp[p - 1] != 0) {
        comi_set(comi, CI_STATUS, ORDERING_PERM_INVALID);
        return;
      }
      invp[p - 1] = i + 1;
    }
    for (int i = 0; i < n; ++i) perm[i] = user_perm[i];
    nparts = 1;
    ordering_single_part(n, parts);
  } else if (sym_matched) {
    // The symmetric matching's order, with the parts of its dissection.
    for (int i = 0; i < n; ++i) perm[i] = match_perm[i];
    if (nparts <= 1) {
      nparts = 1;
      ordering_single_part(n, parts);
    } else {
      split_last_part(n, nparts, parts);
      dissection = true;
    }
  } else if (method == 0 || method == 1) {
    status = order_by_mmd(n, xadj, adjncy, comi, method == 1 && threads > 1,
                          perm, invp);
  } else {
    int nn = n, t = method == 3 ? threads : 1, form = method == 3 ? 1 : 0;
    if (nparts < 1) nparts = 1;
    metis_nd(&nn, xadj, adjncy, &t, perm, invp, &nparts, parts, &status, &form);
    if (nparts <= 1) {
      nparts = 1;
      ordering_single_part(n, parts);
    } else {
      split_last_part(n, nparts, parts);
      dissection = true;
    }
  }
  if (status != 0) {
    comi_set(comi, CI_STATUS, status);
    return;
  }
  // 6. Hand the order to the caller.
  if (permmode == 2)
    for (int i = 0; i < n; ++i) user_perm[i] = perm[i];
  telmira_clock(&t2);
  times[1] = t2 - t1;

  // 8. The parts of the parallel plan.
  if (method == 0 || method == 1) {
    nparts = 1;
    ordering_single_part(n, parts);
  } else if (dissection && nparts >= 2) {
    int *work = iwork_alloc(2L * n + 4L * nparts);
    if (work == nullptr) {
      comi_set(comi, CI_STATUS, ORDERING_NO_MEMORY);
      return;
    }
    ordering_regroup(n, nparts, perm, parts, work);
    vek_serv_free(work);
  }
  // 9. invp from perm.
  for (int k = 0; k < n; ++k) invp[perm[k] - 1] = k + 1;
  comi_set(comi, CI_NPARTS, nparts);
}
