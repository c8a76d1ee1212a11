// node_bisection.cpp - multilevel node bisection of a graph, our own.
//
// The graph is coarsened by matching (random at the first level, where all
// edges weigh alike, then the heaviest edge, vertices taken by rising
// degree). The coarsest graph is cut several times: a region is grown from
// a corner of the graph or a random vertex, to the least weight the
// balance allows or to half, its edge cut is refined by single moves, and
// the boundary (of the grown side, or of both) becomes the separator. The
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

#include "ordering.h"
#include "telmira_storage.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "service/vek_serv_memory.h"

namespace {

// Coarsening stops at this many vertices, or when a level shrinks by less
// than this fraction.
constexpr int nb_coarsest = 100;
constexpr double nb_shrink = 0.85;
// Regions grown on the coarsest graph; the best separator is kept.
constexpr int nb_initial_tries = 4;
// Refinement passes (each one-sided) at each level.
constexpr int nb_passes = 12;

struct nb_rng {
  std::uint64_t s;
  std::uint32_t next() {
    // xorshift64*
    s ^= s >> 12;
    s ^= s << 25;
    s ^= s >> 27;
    return static_cast<std::uint32_t>((s * 2685821657736338717ULL) >> 32);
  }
  int below(int m) {
    return m > 0 ? static_cast<int>((static_cast<std::uint64_t>(next()) * static_cast<std::uint32_t>(m)) >> 32)
                 : 0;
  }
};

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

struct nb_graph {
  int n = 0;
  int *xadj = nullptr;
  int *adj = nullptr;
  int *ewgt = nullptr;  // null: every edge weighs 1
  int *vwgt = nullptr;
  int *cmap = nullptr;  // fine vertex -> vertex of the next coarser graph
  bool owned = false;   // xadj/adj/ewgt are this level's own
  long total = 0;       // sum of vwgt
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

void nb_shuffle(nb_rng &rng, int *a, int n) {
  for (int i = n - 1; i > 0; --i) std::swap(a[i], a[rng.below(i + 1)]);
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

// A max-heap of vertices keyed by gain, with the place of each vertex.
struct nb_queue {
  int *heap;  // vertices
  int *key;   // key by vertex
  int *at;    // place in heap by vertex, -1 when out
  int size = 0;

  void up(int i) {
    const int v = heap[i];
    const int k = key[v];
    while (i > 0) {
      const int p = (i - 1) / 2;
      if (key[heap[p]] >= k) break;
      heap[i] = heap[p];
      at[heap[i]] = i;
      i = p;
    }
    heap[i] = v;
    at[v] = i;
  }
  void down(int i) {
    const int v = heap[i];
    const int k = key[v];
    for (;;) {
      int l = 2 * i + 1;
      if (l >= size) break;
      if (l + 1 < size && key[heap[l + 1]] > key[heap[l]]) ++l;
      if (key[heap[l]] <= k) break;
      heap[i] = heap[l];
      at[heap[i]] = i;
      i = l;
    }
    heap[i] = v;
    at[v] = i;
  }
  void insert(int v, int k) {
    key[v] = k;
    heap[size] = v;
    up(size++);
  }
  void update(int v, int k) {
    const int old = key[v];
    key[v] = k;
    if (k > old) up(at[v]);
    else if (k < old) down(at[v]);
  }
  int pop() {
    if (size == 0) return -1;
    const int v = heap[0];
    at[v] = -1;
    if (--size > 0) {
      heap[0] = heap[size];
      down(0);
    }
    return v;
  }
  void clear() {
    for (int i = 0; i < size; ++i) at[heap[i]] = -1;
    size = 0;
  }
};

// The separator state of one graph and the scratch of its refinement.
struct nb_state {
  int *where;    // 0, 1, 2 (separator)
  int *deg[2];   // separator vertices: weight of the neighbours on each side
  int *sep;      // separator vertices
  int *sepat;    // place in sep by vertex, -1 when not in it
  int nsep;
  long pw[3];
  long maxpw;    // each side at most this
};

inline bool nb_feasible(const long *pw, long maxpw) { return pw[0] <= maxpw && pw[1] <= maxpw; }

// Whether the state pw is better than the best one (bpw): a state within
// the balance before one outside it, then the lighter separator. With
// `ratio` (the choice among whole cuts) the separator is weighed against
// the product of the sides' weights: a cut that buys a small separator
// with lopsided sides leaves the larger side to cost more further down.
inline bool nb_better(const long *pw, const long *bpw, long maxpw, bool ratio = false) {
  const bool f = nb_feasible(pw, maxpw), bf = nb_feasible(bpw, maxpw);
  if (f != bf) return f;
  if (!f) return std::max(pw[0], pw[1]) < std::max(bpw[0], bpw[1]);
  if (ratio) {
    const double a = static_cast<double>(pw[2]) * static_cast<double>(bpw[0]) * static_cast<double>(bpw[1]);
    const double b = static_cast<double>(bpw[2]) * static_cast<double>(pw[0]) * static_cast<double>(pw[1]);
    if (a != b) return a < b;
  }
  if (pw[2] != bpw[2]) return pw[2] < bpw[2];
  return std::labs(pw[0] - pw[1]) < std::labs(bpw[0] - bpw[1]);
}

void nb_sep_add(nb_state &s, int v) {
  s.sepat[v] = s.nsep;
  s.sep[s.nsep++] = v;
}
void nb_sep_remove(nb_state &s, int v) {
  const int i = s.sepat[v];
  const int last = s.sep[--s.nsep];
  s.sep[i] = last;
  s.sepat[last] = i;
  s.sepat[v] = -1;
}

// Weights, separator list and neighbour weights from where[].
void nb_setup(const nb_graph &g, nb_state &s) {
  s.pw[0] = s.pw[1] = s.pw[2] = 0;
  s.nsep = 0;
  for (int v = 0; v < g.n; ++v) {
    s.pw[s.where[v]] += g.vwgt[v];
    s.sepat[v] = -1;
    if (s.where[v] != 2) continue;
    nb_sep_add(s, v);
    int d0 = 0, d1 = 0;
    for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
      const int u = g.adj[p];
      if (s.where[u] == 0) d0 += g.vwgt[u];
      else if (s.where[u] == 1) d1 += g.vwgt[u];
    }
    s.deg[0][v] = d0;
    s.deg[1][v] = d1;
  }
}

// One pass that moves separator vertices into side `to`, pulling their
// neighbours on the other side into the separator, and rolls back to the
// best state seen. swaps, mind, mptr: n, n, n+1 scratch. True when the pass
// improved the state.
bool nb_pass(const nb_graph &g, nb_state &s, nb_queue &q, nb_rng &rng, int to, int *swaps,
             int *mind, int *mptr) {
  const int other = 1 - to;
  const int *xadj = g.xadj, *adj = g.adj, *vwgt = g.vwgt;
  int *where = s.where, *dto = s.deg[to], *doth = s.deg[other];
  q.clear();
  for (int i = 0; i < s.nsep; ++i) swaps[i] = s.sep[i];
  nb_shuffle(rng, swaps, s.nsep);
  for (int i = 0; i < s.nsep; ++i) q.insert(swaps[i], vwgt[swaps[i]] - doth[swaps[i]]);
  const int limit = std::min(std::max(2 * s.nsep, 20), 300);
  long best[3] = {s.pw[0], s.pw[1], s.pw[2]};
  int bestat = -1, nswaps = 0, nmind = 0;
  mptr[0] = 0;
  for (;;) {
    const int v = q.pop();
    if (v < 0) break;
    if (s.pw[to] + vwgt[v] > s.maxpw) break;
    s.pw[2] += doth[v] - vwgt[v];
    s.pw[to] += vwgt[v];
    s.pw[other] -= doth[v];
    where[v] = to;
    nb_sep_remove(s, v);
    swaps[nswaps] = v;
    for (int p = xadj[v]; p < xadj[v + 1]; ++p) {
      const int u = adj[p];
      if (where[u] == 2) {
        dto[u] += vwgt[v];
      } else if (where[u] == other) {
        where[u] = 2;
        nb_sep_add(s, u);
        mind[nmind++] = u;
        int d0 = 0, d1 = 0;
        for (int r = xadj[u]; r < xadj[u + 1]; ++r) {
          const int w = adj[r];
          const int ww = where[w];
          if (ww == 0) d0 += vwgt[w];
          else if (ww == 1) d1 += vwgt[w];
          else if (q.at[w] >= 0) {
            doth[w] -= vwgt[u];
            q.update(w, q.key[w] + vwgt[u]);
          } else {
            doth[w] -= vwgt[u];
          }
        }
        s.deg[0][u] = d0;
        s.deg[1][u] = d1;
        q.insert(u, vwgt[u] - doth[u]);
      }
    }
    mptr[++nswaps] = nmind;
    if (nb_better(s.pw, best, s.maxpw)) {
      best[0] = s.pw[0];
      best[1] = s.pw[1];
      best[2] = s.pw[2];
      bestat = nswaps;
    } else if (nswaps - bestat > 2 * limit ||
               (nswaps - bestat > limit && 10 * s.pw[2] > 11 * best[2])) {
      break;
    }
  }
  if (bestat < 0) bestat = 0;
  // Roll back the moves after the best state.
  while (nswaps > bestat) {
    --nswaps;
    const int v = swaps[nswaps];
    where[v] = 2;
    nb_sep_add(s, v);
    s.pw[2] += vwgt[v];
    s.pw[to] -= vwgt[v];
    int d0 = 0, d1 = 0;
    for (int p = xadj[v]; p < xadj[v + 1]; ++p) {
      const int u = adj[p];
      const int wu = where[u];
      if (wu == 2) dto[u] -= vwgt[v];
      else if (wu == 0) d0 += vwgt[u];
      else d1 += vwgt[u];
    }
    s.deg[0][v] = d0;
    s.deg[1][v] = d1;
    for (int m = mptr[nswaps]; m < mptr[nswaps + 1]; ++m) {
      const int u = mind[m];
      where[u] = other;
      nb_sep_remove(s, u);
      s.pw[2] -= vwgt[u];
      s.pw[other] += vwgt[u];
      for (int r = xadj[u]; r < xadj[u + 1]; ++r)
        if (where[adj[r]] == 2) doth[adj[r]] += vwgt[u];
    }
  }
  q.clear();
  return bestat > 0;
}

// Refinement passes, alternating sides (the lighter first), until two in a
// row gain nothing.
void nb_refine(const nb_graph &g, nb_state &s, nb_queue &q, nb_rng &rng, int *scratch) {
  int to = s.pw[0] < s.pw[1] ? 0 : 1;
  int idle = 0;
  for (int pass = 0; pass < nb_passes && idle < 2; ++pass) {
    // An infeasible state is first mended from its heavy side.
    if (!nb_feasible(s.pw, s.maxpw)) to = s.pw[0] < s.pw[1] ? 0 : 1;
    idle = nb_pass(g, s, q, rng, to, scratch, scratch + g.n, scratch + 2 * g.n) ? 0 : idle + 1;
    to = 1 - to;
  }
}

// Region growing from a random vertex up to half the weight; the separator
// is the grown region's outer boundary.
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
  for (int v = 0; v < n; ++v) {
    if (where[v] != 1) continue;
    for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p)
      if (where[g.adj[p]] == 0) {
        where[v] = 2;
        break;
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

// Edge bisection refinement of a two-sided where[] (0/1) by moves of single
// vertices from the heavier side, weighing the cut by the edge weights
// (which, on a coarse graph, count the fine edges between its vertices).
// mem: 7 n scratch.
void nb_edge_refine(const nb_graph &g, int *where, long maxside, nb_rng &rng, int *mem) {
  const int n = g.n;
  int *id = mem, *ed = mem + n, *heap0 = mem + 2 * n, *heap1 = mem + 3 * n, *key = mem + 4 * n;
  int *at = mem + 5 * n, *swaps = mem + 6 * n;
  nb_queue q[2] = {nb_queue{heap0, key, at, 0}, nb_queue{heap1, key, at, 0}};
  long pw[2] = {0, 0}, cut = 0;
  for (int v = 0; v < n; ++v) {
    pw[where[v]] += g.vwgt[v];
    int a = 0, b = 0;
    for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
      const int w = g.ewgt ? g.ewgt[p] : 1;
      if (where[g.adj[p]] == where[v]) a += w;
      else b += w;
    }
    id[v] = a;
    ed[v] = b;
    cut += b;
    at[v] = -1;
  }
  cut /= 2;
  auto better = [&](long c, const long *p, long bc, const long *bp) {
    const bool f = p[0] <= maxside && p[1] <= maxside;
    const bool bf = bp[0] <= maxside && bp[1] <= maxside;
    if (f != bf) return f;
    if (!f) return std::max(p[0], p[1]) < std::max(bp[0], bp[1]);
    if (c != bc) return c < bc;
    return std::labs(p[0] - p[1]) < std::labs(bp[0] - bp[1]);
  };
  const int limit = std::min(std::max(n / 100, 25), 150);
  for (int pass = 0; pass < 6; ++pass) {
    int nb = 0;
    for (int v = 0; v < n; ++v)
      if (ed[v] > 0) swaps[nb++] = v;
    nb_shuffle(rng, swaps, nb);
    for (int i = 0; i < nb; ++i) q[where[swaps[i]]].insert(swaps[i], ed[swaps[i]] - id[swaps[i]]);
    long bcut = cut, bpw[2] = {pw[0], pw[1]};
    int bestat = 0, nswaps = 0;
    for (;;) {
      int from = pw[0] >= pw[1] ? 0 : 1;
      if (q[from].size == 0) {
        if (pw[from] > maxside) break;
        from = 1 - from;
      }
      const int v = q[from].pop();
      if (v < 0) break;
      const int to = 1 - from;
      cut -= ed[v] - id[v];
      pw[to] += g.vwgt[v];
      pw[from] -= g.vwgt[v];
      where[v] = to;
      std::swap(id[v], ed[v]);
      swaps[nswaps++] = v;
      for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
        const int u = g.adj[p];
        const int w = g.ewgt ? g.ewgt[p] : 1;
        const int k = where[u] == to ? w : -w;
        id[u] += k;
        ed[u] -= k;
        if (at[u] >= 0) q[where[u]].update(u, ed[u] - id[u]);
        else if (ed[u] > 0 && key[u] != -2147483647) q[where[u]].insert(u, ed[u] - id[u]);
      }
      key[v] = -2147483647;  // moved: not to be queued again in this pass
      if (better(cut, pw, bcut, bpw)) {
        bcut = cut;
        bpw[0] = pw[0];
        bpw[1] = pw[1];
        bestat = nswaps;
      } else if (nswaps - bestat > limit) {
        break;
      }
    }
    q[0].clear();
    q[1].clear();
    while (nswaps > bestat) {
      const int v = swaps[--nswaps];
      const int to = where[v], from = 1 - to;
      cut += ed[v] - id[v];
      pw[to] -= g.vwgt[v];
      pw[from] += g.vwgt[v];
      where[v] = from;
      std::swap(id[v], ed[v]);
      for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
        const int u = g.adj[p];
        const int w = g.ewgt ? g.ewgt[p] : 1;
        const int k = where[u] == from ? w : -w;
        id[u] += k;
        ed[u] -= k;
      }
    }
    for (int v = 0; v < n; ++v) key[v] = 0;
    if (bestat == 0) break;
  }
}

// A separator of the coarsest graph: the best of several grown regions,
// half of them with the region's outer boundary as separator, half with
// the boundary of both sides (thinned by the refinement).
void nb_initial(nb_work &w, const nb_graph &top, int tries) {
  nb_state &s = w.s;
  long best[3] = {0, 0, 0};
  bool have = false;
  if (top.xadj[top.n] == 0) tries = 1;
  int *mem = w.heap.get(7L * top.n);
  if (mem == nullptr) return;
  for (int t = 0; t < tries; ++t) {
    // Regions of the smallest weight the balance allows (whose round
    // boundaries cut corners) and of half the weight take turns; the edge
    // cut is refined, and the separator is then its boundary on both sides
    // or on the grown side alone.
    const long least = top.total - s.maxpw;
    nb_grow(top, w.rng, t % 4 < 2 ? std::max(least, 1L) : top.total / 2, t % 4 < 3, s.where,
            w.scratch);
    for (int v = 0; v < top.n; ++v)
      if (s.where[v] == 2) s.where[v] = 1;
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
