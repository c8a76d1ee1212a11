// ddecomp.cpp - domain decomposition for the constrained minimum degree:
// k-way partition, then a minimal vertex separator between the parts.

#include "ordering.h"
#include "telmira_storage.h"

#include <metis.h>

#include "service/vek_serv_memory.h"

namespace {

// Null when the heap refuses.
inline int *ialloc(long count) {
  return static_cast<int *>(
      vek_serv_malloc(sizeof(int) * static_cast<size_t>(count > 0 ? count : 1), tlm::ALIGNMENT));
}

// Symmetric pattern of the graph formed anew, zero-based, without the
// diagonal: the union of each row with the same row of the transpose.
// xadj/adjncy are zero-based here. Returns the new arrays, or false (and
// nothing allocated) when the heap refuses.
bool partition_update(int n, const int *xadj, const int *adjncy, int **sx,
                      int **sa) {
  const int nnz = xadj[n];
  int *xt = ialloc(n + 1);
  int *jt = ialloc(nnz);
  int *mark = ialloc(n);
  int *x = ialloc(n + 1);
  int *a = ialloc(2 * static_cast<long>(nnz));
  if (!xt || !jt || !mark || !x || !a) {
    vek_serv_free_list(reinterpret_cast<void **>(&xt), reinterpret_cast<void **>(&jt),
                       reinterpret_cast<void **>(&mark), reinterpret_cast<void **>(&x),
                       reinterpret_cast<void **>(&a), static_cast<void **>(nullptr));
    return false;
  }
  for (int i = 0; i <= n; ++i) xt[i] = 0;
  for (int p = 0; p < nnz; ++p) ++xt[adjncy[p] + 1];
  for (int i = 1; i <= n; ++i) xt[i] += xt[i - 1];
  for (int i = 0; i < n; ++i)
    for (int p = xadj[i]; p < xadj[i + 1]; ++p) jt[xt[adjncy[p]]++] = i;
  for (int i = n; i >= 1; --i) xt[i] = xt[i - 1];
  xt[0] = 0;

  for (int i = 0; i < n; ++i) mark[i] = -1;
  int out = 0;
  for (int i = 0; i < n; ++i) {
    x[i] = out;
    mark[i] = i;
    for (int p = xadj[i]; p < xadj[i + 1]; ++p)
      if (mark[adjncy[p]] != i) {
        mark[adjncy[p]] = i;
        a[out++] = adjncy[p];
      }
    for (int p = xt[i]; p < xt[i + 1]; ++p)
      if (mark[jt[p]] != i) {
        mark[jt[p]] = i;
        a[out++] = jt[p];
      }
  }
  x[n] = out;
  vek_serv_free(xt);
  vek_serv_free(jt);
  vek_serv_free(mark);
  *sx = x;
  *sa = a;
  return true;
}

// A small linear congruential generator for the visiting order.
inline unsigned next_random(unsigned *state) {
  *state = *state * 1103515245u + 12345u;
  return (*state >> 8) & 0xffffffu;
}

// Keeps a minimal separator: a vertex next to another part is boundary;
// visited in random order, a boundary vertex stays so only while it still
// has a neighbour in another part that is not boundary. bnd: 1 boundary.
void find_interface(int n, const int *xadj, const int *adjncy,
                    const int *where, int *bnd, int *visit) {
  for (int i = 0; i < n; ++i) {
    bnd[i] = 0;
    for (int p = xadj[i]; p < xadj[i + 1]; ++p)
      if (where[adjncy[p]] != where[i]) {
        bnd[i] = 1;
        break;
      }
  }
  for (int i = 0; i < n; ++i) visit[i] = i;
  unsigned state = 4321u;
  for (int i = n - 1; i > 0; --i) {
    int j = static_cast<int>(next_random(&state) % static_cast<unsigned>(i + 1));
    int t = visit[i];
    visit[i] = visit[j];
    visit[j] = t;
  }
  for (int k = 0; k < n; ++k) {
    int v = visit[k];
    if (!bnd[v]) continue;
    int keep = 0;
    for (int p = xadj[v]; p < xadj[v + 1]; ++p) {
      int u = adjncy[p];
      if (where[u] != where[v] && !bnd[u]) {
        keep = 1;
        break;
      }
    }
    bnd[v] = keep;
  }
}

}  // namespace

void ddecomp(int *nparts_, int *n_, int *xadj, int *adjncy, int *perm,
             int *invp, int *ncon, int *status) {
  *status = 0;
  *ncon = 0;
  const int n = *n_;
  int nparts = *nparts_;
  if (nparts <= 1 || n <= 0) return;

  // Zero-based for the partitioner; undone at the end.
  for (int i = 0; i <= n; ++i) --xadj[i];
  const int nnz = xadj[n];
  for (int p = 0; p < nnz; ++p) --adjncy[p];

  int *sx = nullptr, *sa = nullptr;
  int *part = ialloc(n);
  int *bnd = ialloc(n);
  int *visit = ialloc(n);
  int *cnt = ialloc(2 * nparts + 1);
  if (!part || !bnd || !visit || !cnt || !partition_update(n, xadj, adjncy, &sx, &sa)) {
    *status = -2;
  } else {
    idx_t nvtxs = n, ncon1 = 1, np = nparts, objval = 0;
    idx_t options[METIS_NOPTIONS];
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_NUMBERING] = 0;
    options[METIS_OPTION_SEED] = 4321;  // the order depends on the graph alone
    int rc = METIS_OK;
    if (sx[n] > 0) {
      // The partitioner's calls take turns (see metis_nd.cpp).
#pragma omp critical(telmira_partitioner)
      rc = METIS_PartGraphKway(&nvtxs, &ncon1, sx, sa, nullptr, nullptr,
                               nullptr, &np, nullptr, nullptr, options, &objval,
                               part);
    } else {
      for (int i = 0; i < n; ++i) part[i] = static_cast<int>(
          static_cast<long>(i) * nparts / n);
    }
    if (rc != METIS_OK) {
      *status = -2;  // the partitioner failed (memory or input)
    } else {
      find_interface(n, sx, sa, part, bnd, visit);
      // Interior vertices by part, then boundary vertices by part.
      for (int k = 0; k <= 2 * nparts; ++k) cnt[k] = 0;
      int ninterior = 0;
      for (int i = 0; i < n; ++i) {
        ++cnt[part[i] + (bnd[i] ? nparts : 0) + 1];
        if (!bnd[i]) ++ninterior;
      }
      for (int k = 1; k <= 2 * nparts; ++k) cnt[k] += cnt[k - 1];
      for (int i = 0; i < n; ++i) {
        int pos = cnt[part[i] + (bnd[i] ? nparts : 0)]++;
        perm[pos] = i + 1;
        invp[i] = pos + 1;
      }
      int c = n - ninterior + 2;
      *ncon = c > n ? n : c;
    }
  }
  vek_serv_free_list(reinterpret_cast<void **>(&part), reinterpret_cast<void **>(&bnd),
                     reinterpret_cast<void **>(&visit), reinterpret_cast<void **>(&cnt),
                     reinterpret_cast<void **>(&sx), reinterpret_cast<void **>(&sa),
                     static_cast<void **>(nullptr));

  for (int p = 0; p < nnz; ++p) ++adjncy[p];
  for (int i = 0; i <= n; ++i) ++xadj[i];
}
