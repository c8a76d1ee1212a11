// metis_nd.cpp - nested dissection with a parallel recursion, the tree of
// independent parts it leaves, and the pruning of dense rows and the
// compression of indistinguishable vertices in front of it.
//
// The graph partitioner is reached through its public entries only: each
// bisection is one METIS_ComputeVertexSeparator call (its multilevel node
// bisection). The recursion, the split into left and right graphs, the
// leaf ordering (our genmmd), the pruning and the compression are ours.
// Inside this unit graphs are zero-based, as the partitioner takes them.

#include "ordering.h"
#include "telmira_storage.h"

#include <omp.h>

#include <algorithm>
#include <metis.h>

#include "service/vek_serv_memory.h"

namespace {

// Sides of this many vertices or fewer are ordered by minimum degree.
constexpr int nd_leaf_size = 200;

struct nd_graph {
  int nvtxs;
  int *xadj;    // nvtxs + 1
  int *adjncy;  // xadj[nvtxs]
  int *vwgt;    // vertex weights, null for unit weights
  int *label;   // vertex number in the graph the order refers to
};

struct nd_control {
  int nseps;    // separators tried per bisection
  int ufactor;  // allowed imbalance of a bisection, in thousandths
  int status;   // 0, or -2 once a bisection failed
  int npairs;   // pairs of sizes: 2 W
};

inline int *nd_alloc(long count) {
  return static_cast<int *>(mem_alloc(
      sizeof(int) * static_cast<size_t>(count > 0 ? count : 1), "metis_nd"));
}

void nd_free(nd_graph *g) {
  vek_serv_free(g->xadj);
  vek_serv_free(g->adjncy);
  if (g->vwgt) vek_serv_free(g->vwgt);
  vek_serv_free(g->label);
  g->xadj = g->adjncy = g->vwgt = g->label = nullptr;
  g->nvtxs = 0;
}

// Orders a small graph by minimum degree into positions first.. of order.
void nd_leaf(const nd_graph *g, int first, int *order) {
  const int n = g->nvtxs;
  if (n <= 0) return;
  const int nnz = g->xadj[n];
  int *xadj1 = nd_alloc(n + 1);
  int *adj1 = nd_alloc(nnz);
  int *work = nd_alloc(6L * n);
  for (int i = 0; i <= n; ++i) xadj1[i] = g->xadj[i] + 1;
  for (int p = 0; p < nnz; ++p) adj1[p] = g->adjncy[p] + 1;
  int *invp = work, *perm = work + n;
  int delta = 0, maxint = 2147483647, nofsub = 0, nn = n;
  genmmd(&nn, xadj1, adj1, invp, perm, &delta, work + 2 * n, work + 3 * n,
         work + 4 * n, work + 5 * n, &maxint, &nofsub);
  for (int k = 0; k < n; ++k) order[g->label[perm[k] - 1]] = first + k;
  vek_serv_free(xadj1);
  vek_serv_free(adj1);
  vek_serv_free(work);
}

// Node bisection: where[i] = 0 left, 1 right, 2 separator.
void nd_bisect(nd_control *ctrl, nd_graph *g, int *where) {
  const int n = g->nvtxs;
  if (g->xadj[n] == 0) {
    // No edges: any split is a separation.
    for (int i = 0; i < n; ++i) where[i] = i < n / 2 ? 0 : 1;
    return;
  }
  idx_t nvtxs = n, sepsize = 0;
  idx_t options[METIS_NOPTIONS];
  METIS_SetDefaultOptions(options);
  options[METIS_OPTION_NUMBERING] = 0;
  options[METIS_OPTION_NSEPS] = ctrl->nseps;
  if (ctrl->ufactor > 0) options[METIS_OPTION_UFACTOR] = ctrl->ufactor;
  int rc = METIS_ComputeVertexSeparator(&nvtxs, g->xadj, g->adjncy, g->vwgt,
                                        options, &sepsize, where);
  if (rc != METIS_OK) {
    ctrl->status = -2;
    for (int i = 0; i < n; ++i) where[i] = 2;
  }
}

// Splits g by where into the left (0) and right (1) graphs.
void nd_split(const nd_graph *g, const int *where, int *map, nd_graph *side) {
  const int n = g->nvtxs;
  int cnt[2] = {0, 0}, ecnt[2] = {0, 0};
  for (int i = 0; i < n; ++i) {
    int w = where[i];
    if (w > 1) continue;
    map[i] = cnt[w]++;
    for (int p = g->xadj[i]; p < g->xadj[i + 1]; ++p)
      if (where[g->adjncy[p]] == w) ++ecnt[w];
  }
  for (int s = 0; s < 2; ++s) {
    side[s].nvtxs = cnt[s];
    side[s].xadj = nd_alloc(cnt[s] + 1);
    side[s].adjncy = nd_alloc(ecnt[s]);
    side[s].vwgt = g->vwgt ? nd_alloc(cnt[s]) : nullptr;
    side[s].label = nd_alloc(cnt[s]);
    side[s].xadj[0] = 0;
  }
  int vpos[2] = {0, 0}, epos[2] = {0, 0};
  for (int i = 0; i < n; ++i) {
    int w = where[i];
    if (w > 1) continue;
    nd_graph &s = side[w];
    int k = vpos[w]++;
    s.label[k] = g->label[i];
    if (s.vwgt) s.vwgt[k] = g->vwgt[i];
    for (int p = g->xadj[i]; p < g->xadj[i + 1]; ++p) {
      int u = g->adjncy[p];
      if (where[u] == w) s.adjncy[epos[w]++] = map[u];
    }
    s.xadj[k + 1] = epos[w];
  }
}

void nd_recurse(nd_control *ctrl, nd_graph *g, int *order, int lastvtx,
                int *sizes, int base, int width, int level, int threads,
                int index);

// One side after a bisection: a leaf by minimum degree, or a recursion.
void nd_side(nd_control *ctrl, nd_graph *s, int *order, int lastvtx,
             int *sizes, int base, int nextw, int level, int threads,
             int index) {
  if (s->nvtxs <= nd_leaf_size) {
    nd_leaf(s, lastvtx - s->nvtxs, order);
    if (nextw > 0 && s->nvtxs > 0) {
      sizes[2 * base] = lastvtx - s->nvtxs;
      sizes[2 * base + 1] = lastvtx - 1;
    }
    nd_free(s);
    return;
  }
  nd_recurse(ctrl, s, order, lastvtx, sizes, base, nextw, 2 * level, threads,
             nextw < 2 ? -1 : index);
}

// The dissection recursion. Numbers the separator of g at the top of
// lastvtx-nvtxs..lastvtx-1, records the parts of width 1 and the separator
// ranges (pre-order, index > 0) in sizes, and goes on with both sides, in
// two threads while level is below the thread count. g is freed.
void nd_recurse(nd_control *ctrl, nd_graph *g, int *order, int lastvtx,
                int *sizes, int base, int width, int level, int threads,
                int index) {
  int nextw;
  if (width == 1 && g->nvtxs > 0) {
    sizes[2 * base] = lastvtx - g->nvtxs;
    sizes[2 * base + 1] = lastvtx - 1;
    nextw = 0;
  } else {
    nextw = width / 2;
  }

  const int n = g->nvtxs;
  int *where = nd_alloc(n);
  int *map = nd_alloc(n);
  nd_bisect(ctrl, g, where);
  int lv = lastvtx;
  for (int i = n - 1; i >= 0; --i)
    if (where[i] == 2) order[g->label[i]] = --lv;
  if (index > 0 && index + 1 < ctrl->npairs) {
    sizes[2 * (index + 1)] = lv;
    sizes[2 * (index + 1) + 1] = lastvtx - 1;
  }
  nd_graph side[2];
  nd_split(g, where, map, side);
  vek_serv_free(where);
  vek_serv_free(map);
  nd_free(g);

  int saved_levels = 0;
  if (level == 1 && threads > 1) {
    saved_levels = omp_get_max_active_levels();
    omp_set_max_active_levels(32);
  }

  const int rlast = lv;
  const int llast = lv - side[1].nvtxs;
  const int rindex = nextw < 2 ? -1 : index + nextw;
  const int lindex = nextw < 2 ? -1 : index + 1;
  if (level < threads) {
    // The right side on the first thread, the left on the second.
#pragma omp parallel for num_threads(2) schedule(static)
    for (int s = 0; s < 2; ++s) {
      if (s == 0)
        nd_side(ctrl, &side[1], order, rlast, sizes, base + nextw, nextw,
                level, threads, rindex);
      else
        nd_side(ctrl, &side[0], order, llast, sizes, base, nextw, level,
                threads, lindex);
    }
  } else {
    nd_side(ctrl, &side[1], order, rlast, sizes, base + nextw, nextw, level,
            threads, rindex);
    nd_side(ctrl, &side[0], order, llast, sizes, base, nextw, level, threads,
            lindex);
  }

  if (level == 1 && threads > 1) omp_set_max_active_levels(saved_levels);
}

// Vertices of degree at least factor times the average are taken out of g
// (into the positions after the kept ones, in their order). Returns the
// count kept; pruned graph in *out when it is a true subset.
int nd_prune(int n, const int *xadj, const int *adjncy, double factor,
             nd_graph *out, int *order) {
  double avg = static_cast<double>(xadj[n]) / n;
  double limit = factor * avg;
  int *map = nd_alloc(n);
  int kept = 0;
  for (int i = 0; i < n; ++i)
    map[i] = (xadj[i + 1] - xadj[i] < limit) ? kept++ : -1;
  if (kept == 0 || kept == n) {
    vek_serv_free(map);
    return n;
  }
  int pruned = kept;
  for (int i = 0; i < n; ++i)
    if (map[i] < 0) order[i] = pruned++;
  out->nvtxs = kept;
  out->xadj = nd_alloc(kept + 1);
  out->vwgt = nullptr;
  out->label = nd_alloc(kept);
  long e = 0;
  for (int i = 0; i < n; ++i)
    if (map[i] >= 0)
      for (int p = xadj[i]; p < xadj[i + 1]; ++p)
        if (map[adjncy[p]] >= 0) ++e;
  out->adjncy = nd_alloc(e);
  int ep = 0;
  out->xadj[0] = 0;
  for (int i = 0; i < n; ++i) {
    if (map[i] < 0) continue;
    out->label[map[i]] = i;
    for (int p = xadj[i]; p < xadj[i + 1]; ++p)
      if (map[adjncy[p]] >= 0) out->adjncy[ep++] = map[adjncy[p]];
    out->xadj[map[i] + 1] = ep;
  }
  vek_serv_free(map);
  return kept;
}

// Merges vertices with the same closed neighbourhood. cptr/cind list the
// members of each compressed vertex. Returns the compressed count; builds
// *out (weights = member counts) only when it is below 0.85 n.
int nd_compress(int n, const int *xadj, const int *adjncy, nd_graph *out,
                int *cptr, int *cind) {
  long *key = static_cast<long *>(
      mem_alloc(sizeof(long) * static_cast<size_t>(n > 0 ? n : 1), "metis_nd"));
  int *idx = nd_alloc(n);
  int *map = nd_alloc(n);
  int *mark = nd_alloc(n);
  for (int i = 0; i < n; ++i) {
    long k = i;
    for (int p = xadj[i]; p < xadj[i + 1]; ++p) k += adjncy[p];
    key[i] = k;
    idx[i] = i;
    map[i] = -1;
    mark[i] = -1;
  }
  std::sort(idx, idx + n, [&](int a, int b) {
    if (key[a] != key[b]) return key[a] < key[b];
    int da = xadj[a + 1] - xadj[a], db = xadj[b + 1] - xadj[b];
    if (da != db) return da < db;
    return a < b;
  });
  int cn = 0, nc = 0;
  cptr[0] = 0;
  for (int ii = 0; ii < n; ++ii) {
    int i = idx[ii];
    if (map[i] >= 0) continue;
    map[i] = cn;
    cind[nc++] = i;
    int deg = xadj[i + 1] - xadj[i];
    mark[i] = i;
    for (int p = xadj[i]; p < xadj[i + 1]; ++p) mark[adjncy[p]] = i;
    for (int jj = ii + 1; jj < n; ++jj) {
      int j = idx[jj];
      if (key[j] != key[i] || xadj[j + 1] - xadj[j] != deg) break;
      if (map[j] >= 0 || mark[j] != i) continue;
      bool same = true;
      for (int p = xadj[j]; p < xadj[j + 1] && same; ++p)
        same = mark[adjncy[p]] == i;
      if (!same) continue;
      map[j] = cn;
      cind[nc++] = j;
    }
    cptr[++cn] = nc;
  }
  if (cn < 0.85 * n) {
    out->nvtxs = cn;
    out->xadj = nd_alloc(cn + 1);
    out->vwgt = nd_alloc(cn);
    out->label = nd_alloc(cn);
    for (int i = 0; i < n; ++i) mark[i] = -1;
    long e = 0;
    for (int c = 0; c < cn; ++c) e += xadj[cind[cptr[c]] + 1] - xadj[cind[cptr[c]]];
    out->adjncy = nd_alloc(e);
    int ep = 0;
    out->xadj[0] = 0;
    for (int c = 0; c < cn; ++c) {
      out->label[c] = c;
      out->vwgt[c] = cptr[c + 1] - cptr[c];
      mark[c] = c;
      int i = cind[cptr[c]];  // all members share the neighbourhood
      for (int p = xadj[i]; p < xadj[i + 1]; ++p) {
        int u = map[adjncy[p]];
        if (mark[u] != c) {
          mark[u] = c;
          out->adjncy[ep++] = u;
        }
      }
      out->xadj[c + 1] = ep;
    }
  }
  vek_serv_free(key);
  vek_serv_free(idx);
  vek_serv_free(map);
  vek_serv_free(mark);
  return cn;
}

// A copy of the whole zero-based graph as the recursion's root.
void nd_root(int n, const int *xadj, const int *adjncy, nd_graph *g) {
  g->nvtxs = n;
  g->xadj = nd_alloc(n + 1);
  g->adjncy = nd_alloc(xadj[n]);
  g->vwgt = nullptr;
  g->label = nd_alloc(n);
  for (int i = 0; i <= n; ++i) g->xadj[i] = xadj[i];
  for (int p = 0; p < xadj[n]; ++p) g->adjncy[p] = adjncy[p];
  for (int i = 0; i < n; ++i) g->label[i] = i;
}

}  // namespace

void metis_nd(int *n_, int *xadj1, int *adjncy1, int *threads_, int *perm,
              int *invp, int *nparts_, int *parts, int *status) {
  const int n = *n_;
  *status = 0;
  int threads = *threads_ > 0 ? *threads_ : 1;
  int width = 1;
  while (width < *nparts_) width *= 2;
  for (int k = 0; k < 4 * width; ++k) parts[k] = -1;
  if (n <= 0) {
    *nparts_ = 0;
    return;
  }

  // Dense rows select the pruned path.
  int maxdeg = 1;
  for (int i = 0; i < n; ++i)
    maxdeg = std::max(maxdeg, xadj1[i + 1] - xadj1[i]);
  const bool pruned_path = maxdeg >= n / 8;
  const int pfactor = pruned_path ? 200 : 0;
  for (int i = 0; i < n; ++i) perm[i] = 0;

  // Zero-based view of the caller's graph (restored before returning).
  const int nnz = xadj1[n] - 1;
  for (int i = 0; i <= n; ++i) --xadj1[i];
  for (int p = 0; p < nnz; ++p) --adjncy1[p];
  const int *xadj = xadj1;
  const int *adjncy = adjncy1;

  // An imbalance of 15 % per bisection: against the partitioner's 20 % it
  // cuts the time of the bisections by about a tenth, and the fill of the
  // model problems and of the collection stays within a few per cent
  // either way.
  nd_control ctrl{1, 150, 0, 2 * width};
  int *order = nd_alloc(n);
  nd_graph g{0, nullptr, nullptr, nullptr, nullptr};
  int gn = n;         // vertices of the graph that is dissected
  int *cptr = nullptr, *cind = nullptr;
  bool compressed = false;

  if (pfactor > 0 && nnz > 0) {
    gn = nd_prune(n, xadj, adjncy, 0.1 * pfactor, &g, order);
  }
  if (gn == n && pfactor == 0 && nnz > 0) {
    cptr = nd_alloc(n + 1);
    cind = nd_alloc(n);
    int cn = nd_compress(n, xadj, adjncy, &g, cptr, cind);
    if (cn < 0.85 * n) {
      compressed = true;
      gn = cn;
      if (2 * cn < n) ctrl.nseps = 2;
    }
  }
  if (gn == n && !compressed) nd_root(n, xadj, adjncy, &g);

  int *sizes = parts;
  nd_recurse(&ctrl, &g, order, gn, sizes, 0, width, 1, threads, width);

  // Compact the subgraph pairs, then the separator pairs behind them.
  int np = 0;
  for (int k = 0; k < width; ++k) {
    if (sizes[2 * k] == -1) continue;
    sizes[2 * np] = sizes[2 * k];
    sizes[2 * np + 1] = sizes[2 * k + 1];
    ++np;
  }
  int ns = 0;
  for (int k = width + 1; k < 2 * width; ++k) {
    if (sizes[2 * k] == -1) continue;
    int a = sizes[2 * k], b = sizes[2 * k + 1];
    sizes[2 * (np + 1 + ns)] = a;
    sizes[2 * (np + 1 + ns) + 1] = b;
    ++ns;
  }
  for (int k = np; k < 2 * width; ++k) {
    if (k > np && k <= np + ns) continue;
    sizes[2 * k] = sizes[2 * k + 1] = -1;
  }

  if (compressed) {
    // Expand: members follow their compressed vertex; pairs map through the
    // first member of their first vertex and the last of their last.
    int *iperm = nd_alloc(gn);
    int *start = nd_alloc(gn + 1);
    for (int c = 0; c < gn; ++c) iperm[order[c]] = c;
    int pos = 0;
    for (int q = 0; q < gn; ++q) {
      start[q] = pos;
      int c = iperm[q];
      for (int m = cptr[c]; m < cptr[c + 1]; ++m) perm[pos++] = cind[m];
    }
    start[gn] = pos;
    for (int k = 0; k < pos; ++k) order[perm[k]] = k;
    for (int k = 0; k < 2 * width; ++k) {
      if (k == np || sizes[2 * k] == -1) continue;
      int a = sizes[2 * k], b = sizes[2 * k + 1];
      sizes[2 * k] = start[a];
      sizes[2 * k + 1] = start[b + 1] - 1;
    }
    vek_serv_free(iperm);
    vek_serv_free(start);
  }
  if (cptr) vek_serv_free(cptr);
  if (cind) vek_serv_free(cind);

  for (int i = 0; i < n; ++i) {
    invp[i] = order[i] + 1;
    perm[order[i]] = i + 1;
  }
  vek_serv_free(order);
  // One-based pairs; the top region pair stays for the caller.
  for (int k = 0; k < 2 * width; ++k) {
    if (k == np || sizes[2 * k] == -1) continue;
    ++sizes[2 * k];
    ++sizes[2 * k + 1];
  }
  *nparts_ = np;
  if (ctrl.status != 0) *status = ctrl.status;

  for (int p = 0; p < nnz; ++p) ++adjncy1[p];
  for (int i = 0; i <= n; ++i) ++xadj1[i];
}
