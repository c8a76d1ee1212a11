// node_bisection.cpp - multilevel node bisection of a graph, our own.
//
// The graph is coarsened by matching (random at the first level, where all
// edges weigh alike, then the heaviest edge, vertices taken by rising
// degree). The coarsest graph is cut several times: a region is grown from
// a corner of the graph or a random vertex, to the least weight the
// balance allows or to half, its edge cut is refined by single moves, and
// one end of each cut edge goes into the separator. The
// best separator is carried back up, refined at each level by one-sided
// moves of separator vertices (Fiduccia-Mattheyses with roll-back to the
// best state seen). Near the top of a dissection the whole cut is made
// several times and the cut with the best ratio of separator to sides is
// kept.
//
// Unlike the partitioner library, whose random state belongs to the whole
// process, everything here lives in the call: each cut's random stream is
// seeded by the call, so that threads may bisect at the same time and each
// gets what it would get alone. Graphs are zero-based, as in the dissection.

#include "node_bisection_refine.h"
#include "ordering.h"
#include "telmira_storage.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "service/vek_serv_memory.h"

using namespace nbis;

namespace {

// Coarsening stops at this many vertices, or when a level shrinks by less
// than this fraction.
constexpr int nb_coarsest = 100;
constexpr double nb_shrink = 0.85;
// Regions grown on the coarsest graph; the best separator is kept.
constexpr int nb_initial_tries = 4;

// Allocation that remembers a refusal; everything is freed by the owner.
struct nb_heap {
  bool failed = false;
  int *get(long count) {
    void *p = vek_serv_malloc(sizeof(int) * static_cast<size_t>(count > 0 ? count : 1),
                              tlm::ALIGNMENT);
    if (p == nullptr) failed = true;
    return static_cast<int *>(p);
  }
};

void nb_release(nb_graph &g) {
  if (g.owned) {
    vek_serv_free(g.xadj);
    vek_serv_free(g.adj);
    vek_serv_free(g.ewgt);
  }
  vek_serv_free(g.vwgt);
  vek_serv_free(g.cmap);
  g = nb_graph{};
}

// A loose shuffle: n/8 swaps of runs of four. Half the order stays in
// place, which keeps the matching's walk over the graph close to the
// memory order while the ties still fall at random.
void nb_stir(nb_rng &rng, int *a, int n) {
  if (n < 16) {
    nb_shuffle(rng, a, n);
    return;
  }
  for (int k = n / 8; k > 0; --k) {
    const int v = rng.below(n - 3), u = rng.below(n - 3);
    std::swap(a[v], a[u + 2]);
    std::swap(a[v + 1], a[u + 3]);
    std::swap(a[v + 2], a[u]);
    std::swap(a[v + 3], a[u + 1]);
  }
}

// Matches the vertices of g and builds the coarser graph c. False when the
// heap refused (c then holds nothing of its own).
bool nb_coarsen(nb_heap &heap, nb_rng &rng, nb_graph &g, nb_graph &c, int maxvwgt,
                int *scratch /* 2 n */) {
  const int n = g.n;
  int *match = scratch, *order = scratch + n;
  g.cmap = heap.get(n);
  if (g.cmap == nullptr) return false;
  for (int i = 0; i < n; ++i) {
    match[i] = -1;
    order[i] = i;
  }
  nb_stir(rng, order, n);
  if (g.ewgt != nullptr) {
    // Rising degree, random among equals: a counting sort of the shuffle.
    int maxdeg = 0;
    for (int i = 0; i < n; ++i) maxdeg = std::max(maxdeg, g.xadj[i + 1] - g.xadj[i]);
    int *cnt = g.cmap;  // free until the numbering below
    if (maxdeg < n) {
      for (int d = 0; d <= maxdeg; ++d) cnt[d] = 0;
      for (int i = 0; i < n; ++i) ++cnt[g.xadj[i + 1] - g.xadj[i]];
      for (int d = 0, s = 0; d <= maxdeg; ++d) {
        const int k = cnt[d];
        cnt[d] = s;
        s += k;
      }
      for (int k = 0; k < n; ++k) {
        const int i = order[k];
        match[cnt[g.xadj[i + 1] - g.xadj[i]]++] = i;
      }
      for (int k = 0; k < n; ++k) order[k] = match[k];
      for (int i = 0; i < n; ++i) match[i] = -1;
    }
  }
  for (int k = 0; k < n; ++k) {
    const int v = order[k];
    if (match[v] >= 0) continue;
    int best = -1, bw = -1;
    const int room = maxvwgt - g.vwgt[v];
    for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
      const int u = g.adj[p];
      if (match[u] >= 0 || g.vwgt[u] > room) continue;
      const int w = g.ewgt ? g.ewgt[p] : 1;
      if (w > bw) {
        bw = w;
        best = u;
        if (g.ewgt == nullptr) break;  // all edges alike: the first will do
      }
    }
    if (best < 0) best = v;
    match[v] = best;
    match[best] = v;
  }
  // Coarse numbers in the fine order, for locality: a pair takes its
  // number at its lower member.
  int cn = 0;
  for (int v = 0; v < n; ++v)
    if (v <= match[v]) g.cmap[v] = g.cmap[match[v]] = cn++;
  c.n = cn;
  c.owned = true;
  c.total = g.total;
  c.xadj = heap.get(cn + 1);
  c.adj = heap.get(g.xadj[n]);
  c.ewgt = heap.get(g.xadj[n]);
  c.vwgt = heap.get(cn);
  if (heap.failed) return false;
  // The first member of each coarse vertex (order[] is free again); the
  // partner is match[].
  int *first = order;
  for (int v = 0; v < n; ++v)
    if (v <= match[v]) first[g.cmap[v]] = v;
  int *pos = heap.get(cn);
  if (pos == nullptr) return false;
  for (int k = 0; k < cn; ++k) pos[k] = -1;
  int e = 0;
  c.xadj[0] = 0;
  for (int k = 0; k < cn; ++k) {
    const int v = first[k], u = match[v];
    c.vwgt[k] = g.vwgt[v] + (u != v ? g.vwgt[u] : 0);
    const int start = e;
    for (int m = 0; m < (u != v ? 2 : 1); ++m) {
      const int x = m == 0 ? v : u;
      for (int p = g.xadj[x]; p < g.xadj[x + 1]; ++p) {
        const int ck = g.cmap[g.adj[p]];
        if (ck == k) continue;
        const int w = g.ewgt ? g.ewgt[p] : 1;
        if (pos[ck] < 0) {
          pos[ck] = e;
          c.adj[e] = ck;
          c.ewgt[e++] = w;
        } else {
          c.ewgt[pos[ck]] += w;
        }
      }
    }
    for (int p = start; p < e; ++p) pos[c.adj[p]] = -1;
    c.xadj[k + 1] = e;
  }
  vek_serv_free(pos);
  return true;
}

// Grows a region (side 0) by breadth-first search until it weighs `half`,
// from a random vertex or (far) from the last vertex that a search from a
// random one reaches; the rest is side 1. Components are entered at random
// when the search runs dry. queue: n scratch.
void nb_grow(const nb_graph &g, nb_rng &rng, long half, bool far, int *where, int *queue) {
  const int n = g.n;
  for (int v = 0; v < n; ++v) where[v] = 1;
  long grown = 0;
  int start = rng.below(n);
  if (far) {
    // The last vertex a search from the random one reaches: a corner of
    // the graph, from which the region's boundary runs diagonally.
    int head = 0, tail = 0;
    where[start] = 0;
    queue[tail++] = start;
    while (head < tail) {
      const int v = queue[head++];
      start = v;
      for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p)
        if (where[g.adj[p]] == 1) {
          where[g.adj[p]] = 0;
          queue[tail++] = g.adj[p];
        }
    }
    for (int k = 0; k < tail; ++k) where[queue[k]] = 1;
  }
  int head = 0, tail = 0;
  int left = n;  // vertices not yet grown
  while (grown < half && left > 0) {
    if (head == tail) {
      // A new component (or the start): a random vertex not yet taken.
      int v = start;
      while (where[v] != 1) v = v + 1 < n ? v + 1 : 0;
      start = rng.below(n);
      where[v] = 0;
      grown += g.vwgt[v];
      --left;
      queue[tail++] = v;
      continue;
    }
    const int v = queue[head++];
    for (int p = g.xadj[v]; p < g.xadj[v + 1] && grown < half; ++p) {
      const int u = g.adj[p];
      if (where[u] != 1) continue;
      where[u] = 0;
      grown += g.vwgt[u];
      --left;
      queue[tail++] = u;
    }
  }
}

// The levels of one bisection and its work space.
struct nb_work {
  static constexpr int max_levels = 64;
  nb_heap heap;
  nb_rng rng;
  nb_graph lv[max_levels];
  int *scratch;  // 3 n + 1
  int *bestw;    // n
  nb_queue q;
  nb_state s;
  int maxvwgt;
};

// Coarsens lv[l0] down to about `target` vertices; returns the count of
// levels in use (the coarsest is lv[return - 1]), or -1 when the heap
// refused. At most `most` new levels.
int nb_coarsen_levels(nb_work &w, int l0, int target, int most) {
  int nl = l0 + 1;
  while (nl < nb_work::max_levels && nl - l0 - 1 < most && w.lv[nl - 1].n > target &&
         w.lv[nl - 1].xadj[w.lv[nl - 1].n] > 0) {
    nb_graph &f = w.lv[nl - 1];
    nb_graph &c = w.lv[nl];
    const bool ok = nb_coarsen(w.heap, w.rng, f, c, w.maxvwgt, w.scratch);
    ++nl;
    if (!ok) return -1;
    if (c.n > nb_shrink * f.n) break;
  }
  return nl;
}

// Frees the levels below l0 and the map of l0.
void nb_drop_levels(nb_work &w, int l0, int nl) {
  for (int l = nl - 1; l > l0; --l) nb_release(w.lv[l]);
  vek_serv_free(w.lv[l0].cmap);
  w.lv[l0].cmap = nullptr;
}

// A separator of the coarsest graph: the best of several grown regions.
// Each region's edge cut is refined; then every cut edge puts one end into
// the separator: the end in the grown side (even tries), or whichever end
// comes first (odd tries). The separator refinement thins the result.
void nb_initial(nb_work &w, const nb_graph &top, int tries) {
  nb_state &s = w.s;
  long best[3] = {0, 0, 0};
  bool have = false;
  if (top.xadj[top.n] == 0) tries = 1;
  int *mem = w.heap.get(7L * top.n);
  if (mem == nullptr) return;
  for (int t = 0; t < tries; ++t) {
    // Regions of the smallest weight the balance allows (whose round
    // boundaries cut corners) and of half the weight take turns; three in
    // four start from a far corner.
    const long least = top.total - s.maxpw;
    nb_grow(top, w.rng, t % 4 < 2 ? std::max(least, 1L) : top.total / 2, t % 4 < 3, s.where,
            w.scratch);
    nb_edge_refine(top, s.where, s.maxpw, w.rng, mem);
    for (int v = 0; v < top.n; ++v) {
      if (t % 2 == 0 && s.where[v] != 0) continue;
      for (int p = top.xadj[v]; p < top.xadj[v + 1]; ++p) {
        const int u = top.adj[p];
        if (s.where[u] != s.where[v] && s.where[u] != 3 && s.where[u] != 2) {
          s.where[v] = 3;  // marked; made separator below
          break;
        }
      }
    }
    for (int v = 0; v < top.n; ++v)
      if (s.where[v] == 3) s.where[v] = 2;
    nb_setup(top, s);
    nb_refine(top, s, w.q, w.rng, w.scratch);
    if (!have || nb_better(s.pw, best, s.maxpw)) {
      have = true;
      best[0] = s.pw[0];
      best[1] = s.pw[1];
      best[2] = s.pw[2];
      std::copy(s.where, s.where + top.n, w.bestw);
    }
  }
  vek_serv_free(mem);
  std::copy(w.bestw, w.bestw + top.n, s.where);
  nb_setup(top, s);
}

// Carries the separator of lv[from] up to lv[to], refining at each level.
void nb_uncoarsen(nb_work &w, int from, int to) {
  nb_state &s = w.s;
  for (int l = from - 1; l >= to; --l) {
    const nb_graph &f = w.lv[l];
    for (int v = 0; v < f.n; ++v) w.bestw[v] = s.where[f.cmap[v]];
    std::copy(w.bestw, w.bestw + f.n, s.where);
    nb_setup(f, s);
    nb_refine(f, s, w.q, w.rng, w.scratch);
  }
}

// The one-level scheme from lv[l0]: coarsen to the coarsest size, cut,
// carry back. False when the heap refused.
bool nb_single(nb_work &w, int l0, int tries) {
  const int n0 = w.lv[l0].n;
  const int target = std::max(40, std::min(nb_coarsest, n0 / 8));
  const int nl = nb_coarsen_levels(w, l0, target, nb_work::max_levels);
  if (nl < 0) return false;
  nb_initial(w, w.lv[nl - 1], tries);
  if (w.heap.failed) return false;
  nb_uncoarsen(w, nl - 1, l0);
  nb_drop_levels(w, l0, nl);
  return true;
}

}  // namespace

int node_bisection(int n, const int *xadj, const int *adjncy, const int *vwgt, int ufactor,
                   int seed, int runs, int threads, int *where) {
  if (n <= 0) return 0;
  runs = std::max(1, std::min(runs, 8));
  // Regions grown on the coarsest graph: more where the caller asks for
  // more effort.
  const int tries = runs > 1 ? 2 * nb_initial_tries : nb_initial_tries;
  long total = 0;
  for (int i = 0; i < n; ++i) total += vwgt ? vwgt[i] : 1;
  const long maxpw =
      static_cast<long>(0.5 * (1.0 + 0.001 * std::max(ufactor, 1)) * static_cast<double>(total));
  // Each whole cut has its own random stream and work space, so that the
  // cuts may run in threads and the result does not depend on how many.
  int *cut = runs > 1 ? static_cast<int *>(vek_serv_malloc(
                            sizeof(int) * static_cast<size_t>(runs) * static_cast<size_t>(n),
                            tlm::ALIGNMENT))
                      : where;
  if (cut == nullptr) {
    for (int i = 0; i < n; ++i) where[i] = 2;
    return -2;
  }
  long pws[8][3];
  bool oks[8];
  const int team = std::max(1, std::min(threads, runs));
#pragma omp parallel for num_threads(team) schedule(static, 1) if (team > 1)
  for (int r = 0; r < runs; ++r) {
    nb_work w;
    w.rng.s = 0x9E3779B97F4A7C15ULL ^
              (static_cast<std::uint64_t>(static_cast<unsigned>(seed + 7919 * r)) << 32) ^
              static_cast<std::uint64_t>(static_cast<unsigned>(n));
    if (w.rng.s == 0) w.rng.s = 1;
    nb_graph &g = w.lv[0];
    g.n = n;
    g.xadj = const_cast<int *>(xadj);
    g.adj = const_cast<int *>(adjncy);
    g.vwgt = w.heap.get(n);
    w.scratch = w.heap.get(3L * n + 1);
    w.bestw = w.heap.get(n);
    int *qmem = w.heap.get(3L * n);
    int *smem = w.heap.get(5L * n);
    bool ok = !w.heap.failed;
    if (ok) {
      for (int i = 0; i < n; ++i) g.vwgt[i] = vwgt ? vwgt[i] : 1;
      g.total = total;
      const long maxv = static_cast<long>(1.5 * static_cast<double>(total) / nb_coarsest) + 1;
      w.maxvwgt = static_cast<int>(std::min<long>(maxv, 2147483647L));
      w.q = nb_queue{qmem, qmem + n, qmem + 2 * n, 0};
      for (int i = 0; i < n; ++i) w.q.at[i] = -1;
      w.s = nb_state{smem, {smem + n, smem + 2 * n}, smem + 3 * n, smem + 4 * n, 0, {0, 0, 0}, maxpw};
      ok = nb_single(w, 0, tries);
      if (ok) {
        std::copy(w.s.where, w.s.where + n, cut + static_cast<size_t>(r) * n);
        for (int k = 0; k < 3; ++k) pws[r][k] = w.s.pw[k];
      }
    }
    oks[r] = ok;
    for (int l = nb_work::max_levels - 1; l >= 0; --l) nb_release(w.lv[l]);
    vek_serv_free(w.scratch);
    vek_serv_free(w.bestw);
    vek_serv_free(qmem);
    vek_serv_free(smem);
  }
  bool ok = true;
  int best = 0;
  for (int r = 0; r < runs; ++r) {
    ok = ok && oks[r];
    if (ok && r > 0 && nb_better(pws[r], pws[best], maxpw, true)) best = r;
  }
  if (ok && cut != where) std::copy(cut + static_cast<size_t>(best) * n, cut + static_cast<size_t>(best + 1) * n, where);
  if (cut != where) vek_serv_free(cut);
  if (!ok)
    for (int i = 0; i < n; ++i) where[i] = 2;
  return ok ? 0 : -2;
}
