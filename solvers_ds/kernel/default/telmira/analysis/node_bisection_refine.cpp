// node_bisection_refine.cpp - refinement of the node bisection's cuts: the
// one-sided moves of separator vertices (Fiduccia-Mattheyses with roll-back
// to the best state seen) and the single-vertex moves of an edge cut.

#include "node_bisection_refine.h"

namespace nbis {

namespace {

// Refinement passes (each one-sided) at each level.
constexpr int nb_passes = 12;

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

}  // namespace

void nb_shuffle(nb_rng &rng, int *a, int n) {
  for (int i = n - 1; i > 0; --i) std::swap(a[i], a[rng.below(i + 1)]);
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
  // Moves v to the other side: the cut, the weights, and the inner and
  // outer edge weights of v and its neighbours follow.
  auto flip = [&](int v) {
    const int to = 1 - where[v];
    cut -= ed[v] - id[v];
    pw[to] += g.vwgt[v];
    pw[1 - to] -= g.vwgt[v];
    where[v] = to;
    std::swap(id[v], ed[v]);
    for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
      const int u = g.adj[p];
      const int w = g.ewgt ? g.ewgt[p] : 1;
      const int k = where[u] == to ? w : -w;
      id[u] += k;
      ed[u] -= k;
    }
  };
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
      flip(v);
      swaps[nswaps++] = v;
      for (int p = g.xadj[v]; p < g.xadj[v + 1]; ++p) {
        const int u = g.adj[p];
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
    while (nswaps > bestat) flip(swaps[--nswaps]);
    for (int v = 0; v < n; ++v) key[v] = 0;
    if (bestat == 0) break;
  }
}

}  // namespace nbis
