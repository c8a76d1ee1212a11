// metis_nd.cpp - nested dissection with a parallel recursion, the tree of
// independent parts it leaves, and the pruning of dense rows and the
// compression of indistinguishable vertices in front of it.
//
// In the partitioner's form each bisection is one
// METIS_ComputeVertexSeparator call (its multilevel node bisection,
// reached through its public entry); the parallel form bisects with our
// own node_bisection, which can run in several threads at once (the
// partitioner cannot). The recursion, the split into left and right graphs,
// the leaf ordering (our genmmd), the pruning and the compression are ours.
// Inside this unit graphs are zero-based, as the partitioner takes them.

#include "analysis_profile.h"
#include "ordering.h"
#include "telmira_storage.h"

#include <omp.h>

#include <algorithm>
#include <metis.h>

#include "service/vek_serv_clock.h"
#include "service/vek_serv_memory.h"

namespace {

// Sides of this many vertices or fewer are ordered by minimum degree.
constexpr int nd_leaf_size = 200;

struct nd_graph {
  int nvtxs;
  int *xadj;    // nvtxs + 1
  int *adjncy;  // xadj[nvtxs]
  int *vwgt;    // vertex weights, null for unit weights
  int *label;   // vertex number in the graph the order refers to; null: i
  bool owned;   // the arrays are this graph's own (else the caller's)
};

struct nd_control {
  int nseps;    // separators tried per bisection
  int ufactor;  // allowed imbalance of a bisection, in thousandths
  int status;   // 0, or -2 once a bisection or an allocation failed
  int npairs;   // pairs of sizes: 2 W
  int even_depths;  // bisections above this depth keep their sides within 1.1
  bool own;     // bisections by our own node bisection (the parallel form)
  int threads;  // threads of the recursion
  analysis_profile *prof;  // null unless the analysis is timed
};

void nd_fail(nd_control *ctrl) {
#pragma omp atomic write
  ctrl->status = -2;
}

bool nd_failed(nd_control *ctrl) {
  int s;
#pragma omp atomic read
  s = ctrl->status;
  return s != 0;
}

// Null (and the control's status -2) when the heap refuses.
int *nd_alloc(nd_control *ctrl, long count) {
  void *p = vek_serv_malloc(sizeof(int) * static_cast<size_t>(count > 0 ? count : 1),
                            tlm::ALIGNMENT);
  if (p == nullptr) nd_fail(ctrl);
  return static_cast<int *>(p);
}

void nd_free(nd_graph *g) {
  if (g->owned) {
    vek_serv_free(g->xadj);
    vek_serv_free(g->adjncy);
    if (g->vwgt) vek_serv_free(g->vwgt);
  }
  if (g->label) vek_serv_free(g->label);
  g->xadj = g->adjncy = g->vwgt = g->label = nullptr;
  g->nvtxs = 0;
}

inline int nd_label(const nd_graph *g, int i) { return g->label ? g->label[i] : i; }

double nd_clock(const nd_control *ctrl) { return ctrl->prof ? vek_serv_seconds() : 0.0; }

// Orders a small graph by minimum degree into positions first.. of order.
void nd_leaf(nd_control *ctrl, const nd_graph *g, int first, int *order) {
  const int n = g->nvtxs;
  if (n <= 0) return;
  const double t0 = nd_clock(ctrl);
  const int nnz = g->xadj[n];
  // One block: the one-based graph for genmmd, then its six scratch arrays.
  int *block = nd_alloc(ctrl, (n + 1) + static_cast<long>(nnz) + 6L * n);
  if (block == nullptr) return;
  int *xadj1 = block, *adj1 = block + n + 1, *work = adj1 + nnz;
  for (int i = 0; i <= n; ++i) xadj1[i] = g->xadj[i] + 1;
  for (int p = 0; p < nnz; ++p) adj1[p] = g->adjncy[p] + 1;
  int *invp = work, *perm = work + n;
  int delta = 0, maxint = 2147483647, nofsub = 0, nn = n;
  genmmd(&nn, xadj1, adj1, invp, perm, &delta, work + 2 * n, work + 3 * n,
         work + 4 * n, work + 5 * n, &maxint, &nofsub);
  for (int k = 0; k < n; ++k) order[nd_label(g, perm[k] - 1)] = first + k;
  vek_serv_free(block);
  if (ctrl->prof) analysis_profile_add(&ctrl->prof->leaves, vek_serv_seconds() - t0);
}

// Node bisection: where[i] = 0 left, 1 right, 2 separator. The seed is
// fixed for every call, so that the order depends on the graph alone.
//
// The partitioner library keeps state of the whole process behind its
// calls: two calls at the same time disturb each other's result. Its calls
// therefore take turns, here and in the domain decomposition (one lock of
// that name). The parallel form of the dissection bisects with our own
// node bisection instead, which keeps its state in the call, so that both
// threads bisect at once.
void nd_bisect(nd_control *ctrl, nd_graph *g, int *where, int ufactor, int depth) {
  const int n = g->nvtxs;
  if (g->xadj[n] == 0) {
    // No edges: any split is a separation.
    for (int i = 0; i < n; ++i) where[i] = i < n / 2 ? 0 : 1;
    return;
  }
  if (ctrl->own) {
    // The separators near the top shape the fill most: the root is cut four
    // times, and the graphs of the next two depths, where they are small
    // (cheap to cut again), three times (as often as the separator count
    // asks, if more); the best cut is kept. The cuts share the threads that
    // wait for the recursion to reach them: four at the root take two
    // rounds on two threads, as three would, and one round on four. Over
    // five seeds and nine model and collection graphs the entries of L fell
    // by 0.6 % from three cuts at the root to four (1.2 % from two). On
    // large graphs more cuts below the root cost much and gained nothing
    // measurable.
    const int runs = std::max(depth == 0 ? 4 : (depth < 3 && n < 20000) ? 3 : 1, ctrl->nseps);
    const int threads = depth < 30 ? std::max(1, ctrl->threads >> depth) : 1;
    if (node_bisection(n, g->xadj, g->adjncy, g->vwgt, ufactor > 0 ? ufactor : 200, 4321, runs,
                       threads, where) != 0)
      nd_fail(ctrl);
    return;
  }
  idx_t nvtxs = n, sepsize = 0;
  idx_t options[METIS_NOPTIONS];
  METIS_SetDefaultOptions(options);
  options[METIS_OPTION_NUMBERING] = 0;
  options[METIS_OPTION_SEED] = 4321;
  options[METIS_OPTION_NSEPS] = ctrl->nseps;
  if (ufactor > 0) options[METIS_OPTION_UFACTOR] = ufactor;
  int rc;
#pragma omp critical(telmira_partitioner)
  rc = METIS_ComputeVertexSeparator(&nvtxs, g->xadj, g->adjncy, g->vwgt, options, &sepsize,
                                    where);
  if (rc != METIS_OK) {
    nd_fail(ctrl);
    for (int i = 0; i < n; ++i) where[i] = 2;
  }
}

// Splits g by where into the left (0) and right (1) graphs, in one pass
// over the edges: each side's adjacency is sized by the degrees of its
// vertices, a bound that the cut edges leave a little short of. map is
// n scratch entries. False (nothing allocated) when the heap refuses.
bool nd_split(nd_control *ctrl, const nd_graph *g, const int *where, int *map,
              nd_graph *side) {
  const int n = g->nvtxs;
  int cnt[2] = {0, 0};
  long ecap[2] = {0, 0};
  for (int i = 0; i < n; ++i) {
    int w = where[i];
    if (w > 1) continue;
    map[i] = cnt[w]++;
    ecap[w] += g->xadj[i + 1] - g->xadj[i];
  }
  bool ok = true;
  for (int s = 0; s < 2; ++s) {
    side[s] = nd_graph{cnt[s], nullptr, nullptr, nullptr, nullptr, true};
    side[s].xadj = nd_alloc(ctrl, cnt[s] + 1);
    side[s].adjncy = nd_alloc(ctrl, ecap[s]);
    side[s].vwgt = g->vwgt ? nd_alloc(ctrl, cnt[s]) : nullptr;
    side[s].label = nd_alloc(ctrl, cnt[s]);
    ok = ok && side[s].xadj && side[s].adjncy && side[s].label && (side[s].vwgt || !g->vwgt);
  }
  if (!ok) {
    for (int s = 0; s < 2; ++s) {
      vek_serv_free(side[s].xadj);
      vek_serv_free(side[s].adjncy);
      vek_serv_free(side[s].vwgt);
      vek_serv_free(side[s].label);
      side[s] = nd_graph{0, nullptr, nullptr, nullptr, nullptr, true};
    }
    return false;
  }
  side[0].xadj[0] = side[1].xadj[0] = 0;
  int vpos[2] = {0, 0}, epos[2] = {0, 0};
  const int *xadj = g->xadj, *adjncy = g->adjncy;
  for (int i = 0; i < n; ++i) {
    const int w = where[i];
    if (w > 1) continue;
    nd_graph &s = side[w];
    const int k = vpos[w]++;
    s.label[k] = nd_label(g, i);
    if (s.vwgt) s.vwgt[k] = g->vwgt[i];
    int e = epos[w];
    int *out = s.adjncy;
    for (int p = xadj[i]; p < xadj[i + 1]; ++p) {
      const int u = adjncy[p];
      if (where[u] == w) out[e++] = map[u];
    }
    epos[w] = e;
    s.xadj[k + 1] = e;
  }
  return true;
}

void nd_recurse(nd_control *ctrl, nd_graph *g, int *order, int lastvtx,
                int *sizes, int base, int width, int depth, int threads,
                int index);

// One side after a bisection: a leaf by minimum degree, or a recursion.
void nd_side(nd_control *ctrl, nd_graph *s, int *order, int lastvtx,
             int *sizes, int base, int nextw, int depth, int threads,
             int index) {
  if (s->nvtxs <= nd_leaf_size || nd_failed(ctrl)) {
    if (!nd_failed(ctrl)) nd_leaf(ctrl, s, lastvtx - s->nvtxs, order);
    if (nextw > 0 && s->nvtxs > 0) {
      sizes[2 * base] = lastvtx - s->nvtxs;
      sizes[2 * base + 1] = lastvtx - 1;
    }
    nd_free(s);
    return;
  }
  nd_recurse(ctrl, s, order, lastvtx, sizes, base, nextw, depth + 1, threads,
             nextw < 2 ? -1 : index);
}

// Whether the two sides below a node of this depth run in two threads:
// while 2^depth is below the thread count.
bool nd_parallel(int depth, int threads) { return depth < 30 && (1 << depth) < threads; }

// The dissection recursion. Numbers the separator of g at the top of
// lastvtx-nvtxs..lastvtx-1, records the parts of width 1 and the separator
// ranges (pre-order, index > 0) in sizes, and goes on with both sides, in
// two threads while 2^depth is below the thread count. g is freed.
void nd_recurse(nd_control *ctrl, nd_graph *g, int *order, int lastvtx,
                int *sizes, int base, int width, int depth, int threads,
                int index) {
  int nextw;
  if (width == 1 && g->nvtxs > 0) {
    sizes[2 * base] = lastvtx - g->nvtxs;
    sizes[2 * base + 1] = lastvtx - 1;
    nextw = 0;
  } else {
    nextw = width / 2;
  }

  const double t0 = nd_clock(ctrl);
  const int n = g->nvtxs;
  int *where = nd_alloc(ctrl, 2L * n);
  if (where == nullptr) {
    nd_free(g);
    return;
  }
  int *map = where + n;
  // A plan of few parts gives each thread one part for its own: the
  // bisections that make them keep the sides within 1.1 of each other, so
  // that the threads get alike shares of the factorization; below them,
  // and in a plan of many parts shared out as they come, the freer
  // imbalance buys smaller separators.
  nd_bisect(ctrl, g, where, depth < ctrl->even_depths ? 100 : ctrl->ufactor, depth);
  int lv = lastvtx;
  for (int i = n - 1; i >= 0; --i)
    if (where[i] == 2) order[nd_label(g, i)] = --lv;
  if (index > 0 && index + 1 < ctrl->npairs) {
    sizes[2 * (index + 1)] = lv;
    sizes[2 * (index + 1) + 1] = lastvtx - 1;
  }
  nd_graph side[2];
  const bool split = nd_split(ctrl, g, where, map, side);
  vek_serv_free(where);
  nd_free(g);
  if (ctrl->prof) {
    analysis_profile *p = ctrl->prof;
    const int d = depth < analysis_profile_levels ? depth : analysis_profile_levels - 1;
    analysis_profile_add(&p->level[d], vek_serv_seconds() - t0);
#pragma omp critical(analysis_profile_levels)
    {
      ++p->bisections;
      if (d + 1 > p->levels) p->levels = d + 1;
    }
  }
  if (!split) return;

  int saved_levels = 0;
  if (depth == 0 && threads > 1) {
    saved_levels = omp_get_max_active_levels();
    omp_set_max_active_levels(32);
  }

  const int rlast = lv;
  const int llast = lv - side[1].nvtxs;
  const int rindex = nextw < 2 ? -1 : index + nextw;
  const int lindex = nextw < 2 ? -1 : index + 1;
  if (nd_parallel(depth, threads)) {
    // The right side on the first thread, the left on the second.
#pragma omp parallel for num_threads(2) schedule(static)
    for (int s = 0; s < 2; ++s) {
      if (s == 0)
        nd_side(ctrl, &side[1], order, rlast, sizes, base + nextw, nextw,
                depth, threads, rindex);
      else
        nd_side(ctrl, &side[0], order, llast, sizes, base, nextw, depth,
                threads, lindex);
    }
  } else {
    nd_side(ctrl, &side[1], order, rlast, sizes, base + nextw, nextw, depth,
            threads, rindex);
    nd_side(ctrl, &side[0], order, llast, sizes, base, nextw, depth, threads,
            lindex);
  }

  if (depth == 0 && threads > 1) omp_set_max_active_levels(saved_levels);
}

// Vertices of degree at least factor times the average are taken out of g
// (into the positions after the kept ones, in their order). Returns the
// count kept; pruned graph in *out when it is a true subset, -1 when the
// heap refuses.
int nd_prune(nd_control *ctrl, int n, const int *xadj, const int *adjncy, double factor,
             nd_graph *out, int *order) {
  double avg = static_cast<double>(xadj[n]) / n;
  double limit = factor * avg;
  int *map = nd_alloc(ctrl, n);
  if (map == nullptr) return -1;
  int kept = 0;
  long e = 0;
  for (int i = 0; i < n; ++i) {
    const bool keep = xadj[i + 1] - xadj[i] < limit;
    map[i] = keep ? kept++ : -1;
    if (keep) e += xadj[i + 1] - xadj[i];  // a bound: edges to pruned ones go
  }
  if (kept == 0 || kept == n) {
    vek_serv_free(map);
    return n;
  }
  int pruned = kept;
  for (int i = 0; i < n; ++i)
    if (map[i] < 0) order[i] = pruned++;
  *out = nd_graph{kept, nd_alloc(ctrl, kept + 1), nd_alloc(ctrl, e), nullptr,
                  nd_alloc(ctrl, kept), true};
  if (out->xadj == nullptr || out->adjncy == nullptr || out->label == nullptr) {
    nd_free(out);
    vek_serv_free(map);
    return -1;
  }
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
// members of each compressed vertex. Returns the compressed count, -1 when
// the heap refuses; builds *out (weights = member counts) only when it is
// below 0.85 n. Candidates meet in buckets of a key (the vertex plus its
// neighbours), filled by a counting sort; only equal keys and degrees are
// compared.
int nd_compress(nd_control *ctrl, int n, const int *xadj, const int *adjncy, nd_graph *out,
                int *cptr, int *cind) {
  int *block = nd_alloc(ctrl, 5L * n + 1);
  if (block == nullptr) return -1;
  int *bucket = block;         // n: the vertex's bucket
  int *head = block + n;       // n + 1: bucket starts
  int *idx = head + n + 1;     // n: vertices by bucket
  int *map = idx + n;          // n
  int *mark = map + n;         // n - 1 words would do; n used
  for (int b = 0; b <= n; ++b) head[b] = 0;
  for (int i = 0; i < n; ++i) {
    unsigned long k = static_cast<unsigned long>(i);
    for (int p = xadj[i]; p < xadj[i + 1]; ++p) k += static_cast<unsigned long>(adjncy[p]);
    bucket[i] = static_cast<int>(k % static_cast<unsigned long>(n));
    ++head[bucket[i] + 1];
    map[i] = -1;
    mark[i] = -1;
  }
  for (int b = 0; b < n; ++b) head[b + 1] += head[b];
  for (int i = 0; i < n; ++i) idx[head[bucket[i]]++] = i;
  for (int b = n; b > 0; --b) head[b] = head[b - 1];
  head[0] = 0;
  int cn = 0, nc = 0;
  cptr[0] = 0;
  for (int i = 0; i < n; ++i) {
    if (map[i] >= 0) continue;
    map[i] = cn;
    cind[nc++] = i;
    const int deg = xadj[i + 1] - xadj[i];
    const int b = bucket[i];
    bool marked = false;
    for (int jj = head[b]; jj < head[b + 1]; ++jj) {
      const int j = idx[jj];
      if (j <= i || map[j] >= 0 || xadj[j + 1] - xadj[j] != deg) continue;
      if (!marked) {
        mark[i] = i;
        for (int p = xadj[i]; p < xadj[i + 1]; ++p) mark[adjncy[p]] = i;
        marked = true;
      }
      if (mark[j] != i) continue;
      bool same = true;
      for (int p = xadj[j]; p < xadj[j + 1] && same; ++p) same = mark[adjncy[p]] == i;
      if (!same) continue;
      map[j] = cn;
      cind[nc++] = j;
    }
    cptr[++cn] = nc;
  }
  if (cn < 0.85 * n) {
    long e = 0;
    for (int c = 0; c < cn; ++c) e += xadj[cind[cptr[c]] + 1] - xadj[cind[cptr[c]]];
    *out = nd_graph{cn, nd_alloc(ctrl, cn + 1), nd_alloc(ctrl, e), nd_alloc(ctrl, cn), nullptr,
                    true};
    if (out->xadj == nullptr || out->adjncy == nullptr || out->vwgt == nullptr) {
      nd_free(out);
      vek_serv_free(block);
      return -1;
    }
    for (int i = 0; i < n; ++i) mark[i] = -1;
    int ep = 0;
    out->xadj[0] = 0;
    for (int c = 0; c < cn; ++c) {
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
  vek_serv_free(block);
  return cn;
}

}  // namespace

void metis_nd(int *n_, int *xadj1, int *adjncy1, int *threads_, int *perm,
              int *invp, int *nparts_, int *parts, int *status, int *form) {
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

  // The imbalance of a bisection, in thousandths. The partitioner's
  // separators get smaller as the sides may differ more: measured against
  // its own nested dissection, 150 left 5 to 24 % more entries in L on the
  // model problems, 200 (its default) -3 to +5 %, and 400 up to 13 % fewer
  // entries and up to 23 % fewer operations (the smallest grids alike),
  // for 0 to 30 % more time in the bisections; the matrices of the
  // collection gain or stay alike.
  int even = 0;
  if (width < 32)
    while ((1 << even) < width) ++even;
  nd_control ctrl{1, 400, 0, 2 * width, even, *form != 0, threads, analysis_profile_sink()};
  const double t0 = nd_clock(&ctrl);
  int *order = nd_alloc(&ctrl, n);
  nd_graph g{0, nullptr, nullptr, nullptr, nullptr, true};
  int gn = n;         // vertices of the graph that is dissected
  int *cptr = nullptr, *cind = nullptr;
  bool compressed = false;

  if (order != nullptr && pfactor > 0 && nnz > 0) {
    gn = nd_prune(&ctrl, n, xadj, adjncy, 0.1 * pfactor, &g, order);
  }
  if (order != nullptr && gn == n && pfactor == 0 && nnz > 0) {
    cptr = nd_alloc(&ctrl, n + 1);
    cind = nd_alloc(&ctrl, n);
    const int cn = cptr && cind ? nd_compress(&ctrl, n, xadj, adjncy, &g, cptr, cind) : -1;
    if (cn >= 0 && cn < 0.85 * n) {
      compressed = true;
      gn = cn;
      if (2 * cn < n) ctrl.nseps = 2;
    }
  }
  // Without pruning or compression the root is the caller's graph itself:
  // the recursion does not free a graph that it does not own.
  if (gn == n && !compressed)
    g = nd_graph{n, const_cast<int *>(xadj), const_cast<int *>(adjncy), nullptr, nullptr, false};
  if (ctrl.prof) analysis_profile_add(&ctrl.prof->compress, vek_serv_seconds() - t0);

  int *sizes = parts;
  if (!nd_failed(&ctrl)) nd_recurse(&ctrl, &g, order, gn, sizes, 0, width, 0, threads, width);
  else nd_free(&g);

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

  const double t1 = nd_clock(&ctrl);
  if (compressed && !nd_failed(&ctrl)) {
    // Expand: members follow their compressed vertex; pairs map through the
    // first member of their first vertex and the last of their last.
    int *iperm = nd_alloc(&ctrl, 2L * gn + 1);
    if (iperm != nullptr) {
      int *start = iperm + gn;
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
    }
  }
  vek_serv_free(cptr);
  vek_serv_free(cind);

  if (!nd_failed(&ctrl)) {
    for (int i = 0; i < n; ++i) {
      invp[i] = order[i] + 1;
      perm[order[i]] = i + 1;
    }
  }
  vek_serv_free(order);
  if (ctrl.prof) analysis_profile_add(&ctrl.prof->compress, vek_serv_seconds() - t1);
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
