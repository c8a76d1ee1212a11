// node_bisection_refine.h - the pieces of the node bisection that refine a
// cut: the graph levels, the gain queue, the separator state, and the
// refinement of separators and edge cuts. Inside the bisection only.
#ifndef TELMIRA_NODE_BISECTION_REFINE_H
#define TELMIRA_NODE_BISECTION_REFINE_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace nbis {

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

// A state within the balance: each side at most maxpw, and neither empty
// (a separator that leaves one side empty splits nothing, however small).
inline bool nb_feasible(const long *pw, long maxpw) {
  return pw[0] <= maxpw && pw[1] <= maxpw && pw[0] > 0 && pw[1] > 0;
}

// Whether the state pw is better than the best one (bpw): a state within
// the balance before one outside it, then the lighter separator. With
// `ratio` (the choice among whole cuts) the separator is weighed against
// the product of the sides' weights: a cut that buys a small separator
// with lopsided sides leaves the larger side to cost more further down.
inline bool nb_better(const long *pw, const long *bpw, long maxpw, bool ratio = false) {
  const bool f = nb_feasible(pw, maxpw), bf = nb_feasible(bpw, maxpw);
  if (f != bf) return f;
  if (!f) {
    const bool split = pw[0] > 0 && pw[1] > 0, bsplit = bpw[0] > 0 && bpw[1] > 0;
    if (split != bsplit) return split;
    return std::max(pw[0], pw[1]) < std::max(bpw[0], bpw[1]);
  }
  if (ratio) {
    const double a = static_cast<double>(pw[2]) * static_cast<double>(bpw[0]) * static_cast<double>(bpw[1]);
    const double b = static_cast<double>(bpw[2]) * static_cast<double>(pw[0]) * static_cast<double>(pw[1]);
    if (a != b) return a < b;
  }
  if (pw[2] != bpw[2]) return pw[2] < bpw[2];
  return std::labs(pw[0] - pw[1]) < std::labs(bpw[0] - bpw[1]);
}

// Shuffles a[0..n).
void nb_shuffle(nb_rng &rng, int *a, int n);

// Weights, separator list and neighbour weights from s.where.
void nb_setup(const nb_graph &g, nb_state &s);

// Refinement passes of the separator, alternating sides (the lighter
// first), until two in a row gain nothing. scratch: 3 n + 1.
void nb_refine(const nb_graph &g, nb_state &s, nb_queue &q, nb_rng &rng, int *scratch);

// Refinement of a two-sided where[] (0/1) as an edge cut; mem: 7 n scratch.
void nb_edge_refine(const nb_graph &g, int *where, long maxside, nb_rng &rng, int *mem);

}  // namespace nbis

#endif
