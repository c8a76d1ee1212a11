// Symbolic factorization: tree, column counts, supernodes and row lists,
// checked against a plain symbolic elimination of the permuted pattern and
// against the invariants the numeric phase relies on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include "service/vek_serv_memory.h"
#include "service/vek_serv_threads.h"
#include "symbolic.h"
#include "test_analysis.h"
#include "test_graph.h"
#include "test_matrices.h"
#include "test_system.h"

namespace {

typedef std::vector<int> ivec;
using vektest::add_edge;
using vektest::from_sets;
using vektest::graph;
using vektest::graph_of;

graph random_graph(int n, int edges, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::set<int>> adj(n);
  for (int e = 0; e < edges; ++e) add_edge(adj, rng() % n, rng() % n);
  return from_sets(adj);
}

graph dense_graph(int n) {
  std::vector<std::set<int>> adj(n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < i; ++j) add_edge(adj, i, j);
  return from_sets(adj);
}

struct order {
  ivec perm, invp;  // perm[new] = old, one-based
};

order order_of(const ivec &perm) {
  order o{perm, ivec(perm.size())};
  for (size_t k = 0; k < perm.size(); ++k) o.invp[perm[k] - 1] = int(k) + 1;
  return o;
}

order natural(int n, unsigned shuffle_seed = 0) {
  ivec p(n);
  std::iota(p.begin(), p.end(), 1);
  if (shuffle_seed) std::shuffle(p.begin(), p.end(), std::mt19937(shuffle_seed));
  return order_of(p);
}

order nested_dissection(const graph &g) {
  order o;
  vektest::metis_order(g, o.perm, o.invp);
  return o;
}

ivec pairs(std::initializer_list<int> list) {
  ivec parts(1024, 0);
  std::copy(list.begin(), list.end(), parts.begin());
  return parts;
}
ivec single_part(int n) { return pairs({1, n - 1, n, n}); }

// Plain symbolic elimination: the rows below the diagonal of each column.
struct reference {
  std::vector<ivec> rows;
  ivec parent;
  long long entries = 0;
};

reference eliminate(const graph &g, const order &o) {
  reference r;
  r.rows.resize(g.n);
  r.parent.assign(g.n, 0);
  std::vector<ivec> children(g.n);
  for (int j = 1; j <= g.n; ++j) {
    std::set<int> s;
    const int node = o.perm[j - 1];
    for (int p = g.xadj[node - 1]; p < g.xadj[node]; ++p)
      if (o.invp[g.adjncy[p - 1] - 1] > j) s.insert(o.invp[g.adjncy[p - 1] - 1]);
    for (int c : children[j - 1])
      for (int i : r.rows[c - 1])
        if (i > j) s.insert(i);
    r.rows[j - 1].assign(s.begin(), s.end());
    if (!s.empty()) children[(r.parent[j - 1] = *s.begin()) - 1].push_back(j);
    r.entries += s.size() + 1;
  }
  return r;
}

using vektest::analysis;

// The graph, the order, the parts and the settings before the stages.
analysis prepared(const graph &g, const order &o, ivec parts, int nparts, int panel,
                  int triangle = 1) {
  analysis a;
  a.n = g.n;
  a.xadj = g.xadj;
  a.adjncy = g.adjncy;
  a.perm = o.perm;
  a.invp = o.invp;
  a.comi[15] = panel;
  a.comi[18] = triangle;
  a.comi[59] = nparts;
  a.parts = std::move(parts);
  return a;
}

analysis analyse(const graph &g, const order &o, ivec parts, int nparts,
                 int panel, int triangle = 1) {
  analysis a = prepared(g, o, std::move(parts), nparts, panel, triangle);
  vektest::supernodes(a);
  if (a.error1 == 0) vektest::structure(a);
  EXPECT_EQ(0, a.error1);
  EXPECT_EQ(0, a.error2);
  return a;
}

void check(const analysis &a, const reference &r, int panel) {
  const int ns = a.ns;
  EXPECT_EQ(r.parent, a.parent);
  for (int j = 1; j <= a.n; ++j)
    ASSERT_EQ(int(r.rows[j - 1].size()) + 1, a.colcnt[j - 1]) << "column " << j;
  EXPECT_EQ(r.entries, a.comi[29]);

  // Supernodes: exactly nested columns, cut only at the panel width; row
  // lists ascending, own columns first, then the rows of each column.
  ASSERT_EQ(a.n + 1, a.xsup[ns]);
  long long lindx_len = 0, lnz_len = 0, unz_len = 0;
  int longest = 0;
  std::vector<std::pair<int, int>> lslices, uslices;
  for (int s = 1; s <= ns; ++s) {
    const int f = a.xsup[s - 1], l = a.xsup[s] - 1, w = l - f + 1;
    const int height = a.colcnt[f - 1], beg = a.xlindx[s - 1];
    ASSERT_TRUE(w >= 1 && w <= panel);
    ASSERT_EQ(height, a.xlindx[s] - beg);
    if (s > 1) {
      const bool nested = r.parent[f - 2] == f && height + 1 == a.colcnt[f - 2];
      EXPECT_TRUE(!nested || f - a.xsup[s - 2] == panel) << "supernode " << s;
    }
    for (int p = beg + 1; p < beg + height; ++p)
      ASSERT_LT(a.lindx[p - 2], a.lindx[p - 1]) << "supernode " << s;
    for (int j = f; j <= l; ++j) {
      ASSERT_EQ(s, a.snode[j - 1]);
      ASSERT_EQ(j, a.lindx[beg + j - f - 1]);
      ASSERT_EQ(r.rows[j - 1], ivec(a.lindx.begin() + beg + j - f,
                                    a.lindx.begin() + beg + height - 1))
          << "column " << j;
      lslices.push_back({a.xlnz[j - 1], height});
      uslices.push_back({a.xunz[j - 1], height - w});
    }
    const int p = r.parent[l - 1];
    EXPECT_EQ(p == 0 ? 0 : a.snode[p - 1], a.sparent[s - 1]);
    EXPECT_EQ(tlm::symbolic_state_mark, a.state1[s - 1]);
    EXPECT_EQ(tlm::symbolic_state_mark, a.state2[s - 1]);
    lindx_len += height;
    lnz_len += 1LL * w * height;
    unz_len += 1LL * w * (height - w);
    longest = std::max(longest, height);
  }
  EXPECT_EQ(ns, a.comi[30]);
  EXPECT_EQ(lindx_len, a.comi[35]);
  EXPECT_EQ(longest, a.comi[22]);
  EXPECT_EQ(lnz_len, a.comi[33]);
  EXPECT_EQ((a.comi[18] == 1 || unz_len == 0) ? 1 : unz_len, a.comi[34]);
  EXPECT_EQ(4, a.comi[37]);

  // Every column has its slice of lnz and unz; the slices tile both.
  for (auto *slices : {&lslices, &uslices}) {
    std::sort(slices->begin(), slices->end());
    int cursor = 1;
    for (auto &sl : *slices) {
      ASSERT_EQ(cursor, sl.first);
      cursor += sl.second;
    }
  }
  EXPECT_EQ(lnz_len + 1, a.xlnz[a.n]);
  EXPECT_EQ(unz_len + 1, a.xunz[a.n]);

  // Ready list: each supernode once, leaves first (negated, ascending),
  // every other one after all its children.
  ivec children(ns, 0), seen(ns, 0);
  for (int s = 1; s <= ns; ++s)
    if (a.sparent[s - 1]) ++children[a.sparent[s - 1] - 1];
  for (int i = 0, leaves = 0; i < ns; ++i) {
    const int s = std::abs(a.pnlsch[i]);
    ASSERT_TRUE(s >= 1 && s <= ns && !seen[s - 1]) << "entry " << i;
    seen[s - 1] = 1;
    EXPECT_EQ(0, children[s - 1]) << "listed before its children: " << s;
    if (a.pnlsch[i] < 0) {
      EXPECT_EQ(leaves++, i) << "a leaf after a parent";
      EXPECT_TRUE(i == 0 || -a.pnlsch[i - 1] < s);
    }
    if (a.sparent[s - 1]) --children[a.sparent[s - 1] - 1];
  }

  // nmod: the distinct supernodes that own a column with a row in s.
  // topcnt: rows in the top region, for supernodes that start before it.
  std::vector<std::set<int>> updaters(ns);
  for (int j = 1; j <= a.n; ++j)
    for (int i : r.rows[j - 1])
      if (a.snode[i - 1] != a.snode[j - 1])
        updaters[a.snode[i - 1] - 1].insert(a.snode[j - 1]);
  const int top = a.xsup[a.parts[2 * a.comi[59] - 1]];
  for (int s = 1; s <= ns; ++s) {
    EXPECT_EQ(int(updaters[s - 1].size()), a.nmod[s - 1]) << "supernode " << s;
    const int f = a.xsup[s - 1];
    const int in_top = f >= top ? 0 : std::count_if(r.rows[f - 1].begin(), r.rows[f - 1].end(),
                                                     [top](int i) { return i >= top; });
    EXPECT_EQ(in_top, a.topcnt[s - 1]) << "supernode " << s;
  }
}

void analyse_and_check(const graph &g, const order &o, int panel) {
  check(analyse(g, o, single_part(g.n), 1, panel), eliminate(g, o), panel);
}

TEST(SymbolicStructure, RealAndGeneratedMatricesAgreeWithPlainElimination) {
  // Three threads, so that the column counts run divided.
  vektest::use_threads(3);
  // Small and large, meshes, dense rows, many components and isolated nodes.
  for (const char *name : {"GD97_b", "bcsstk13", "gent113", "hangGlider_2", "mhd1280b", "qc324",
                           "rajat19", "tumorAntiAngiogenesis_2", "west0479", "young1c", "zenios"}) {
    SCOPED_TRACE(name);
    vekio::sparse m;
    if (!vektest::load(name, m)) continue;
    const graph g = graph_of(m);
    analyse_and_check(g, nested_dissection(g), 72);
    if (g.n < 1000) analyse_and_check(g, natural(g.n, 7), 16);
  }
  for (int panel : {2, 96}) {
    const graph lap = graph_of(vekio::lap3d(12));
    analyse_and_check(lap, nested_dissection(lap), panel);
    analyse_and_check(lap, natural(lap.n), panel);
    const graph rnd = random_graph(400, 700 * panel, panel);
    analyse_and_check(rnd, natural(rnd.n, panel), panel);
  }
}

TEST(SymbolicCases, DenseMatrixIsCutIntoPanels) {
  const graph g = dense_graph(300);
  analysis a = analyse(g, natural(300), single_part(300), 1, 128);
  check(a, eliminate(g, natural(300)), 128);
  ASSERT_EQ(3, a.ns);
  EXPECT_EQ((ivec{1, 129, 257, 301}), ivec(a.xsup.begin(), a.xsup.begin() + 4));
  EXPECT_EQ(300, a.comi[31]);
  EXPECT_EQ((ivec{2, 3, 0}), a.sparent);  // the cut chain stays a chain
  EXPECT_EQ((ivec{-1, 2, 3}), a.pnlsch);
  EXPECT_EQ((ivec{0, 1, 2}), a.nmod);
  // The last column alone was the top region; its supernode now is.
  EXPECT_EQ((ivec{1, 2, 3, 3}), ivec(a.parts.begin(), a.parts.begin() + 4));
}

TEST(SymbolicCases, DiagonalMatrixAndOrderOne) {
  const int n = 50;
  const graph g = from_sets(std::vector<std::set<int>>(n));
  analysis a = analyse(g, natural(n, 3), single_part(n), 1, 128, 0);
  check(a, eliminate(g, natural(n, 3)), 128);
  EXPECT_EQ(n, a.ns);
  for (int s = 0; s < n; ++s) EXPECT_EQ(-(s + 1), a.pnlsch[s]);
  EXPECT_EQ(ivec(n + 1, 1), a.xunz);  // unz does not advance
  EXPECT_EQ(1, a.comi[34]);           // its length is still 1

  const graph one = dense_graph(1);
  analysis b = analyse(one, natural(1), single_part(1), 1, 128);
  EXPECT_EQ((ivec{1, 2}), ivec(b.xsup.begin(), b.xsup.end()));
  EXPECT_EQ((ivec{1, 2}), b.xlnz);
  EXPECT_EQ((ivec{1, 0, 1, 1}), ivec(b.parts.begin(), b.parts.begin() + 4));
}

// Two graphs without an edge between them: two roots, two parts.
TEST(SymbolicCases, TwoIndependentGraphs) {
  const graph g1 = graph_of(vekio::lap2d(9)), g2 = random_graph(60, 150, 5);
  std::vector<std::set<int>> adj(g1.n + g2.n);
  for (const graph *h : {&g1, &g2})
    for (int i = 0, off = h == &g2 ? g1.n : 0; i < h->n; ++i)
      for (int p = h->xadj[i]; p < h->xadj[i + 1]; ++p)
        add_edge(adj, off + i, off + h->adjncy[p - 1] - 1);
  const graph g = from_sets(adj);
  ivec perm = nested_dissection(g1).perm;
  for (int p : nested_dissection(g2).perm) perm.push_back(g1.n + p);
  const order o = order_of(perm);
  const int n = g.n;
  analysis a = analyse(g, o, pairs({1, g1.n, g1.n + 1, n - 1, n, n, n, n}), 2, 16);
  check(a, eliminate(g, o), 16);

  const int root1 = a.snode[g1.n - 1], root2 = a.snode[n - 1];
  EXPECT_EQ(2, std::count(a.sparent.begin(), a.sparent.end(), 0));
  EXPECT_EQ(0, a.sparent[root1 - 1] + a.sparent[root2 - 1]);
  // The second part gives its last supernode to the top region when that
  // supernode holds column n as well.
  const int last2 = a.snode[n - 2] == root2 ? root2 - 1 : a.snode[n - 2];
  EXPECT_EQ((ivec{1, root1, root1 + 1, last2, last2 + 1, a.ns}),
            ivec(a.parts.begin(), a.parts.begin() + 6));
}

// A grid cut by its middle column: halves as parts, separator on top;
// the part supernodes have rows in the top region.
TEST(SymbolicCases, DissectedGrid) {
  const int N = 15, mid = N / 2;
  const graph g = graph_of(vekio::lap2d(N));
  ivec groups[3];
  for (int v = 0; v < N * N; ++v)
    groups[v % N < mid ? 0 : v % N > mid ? 1 : 2].push_back(v + 1);
  ivec perm;
  for (auto &grp : groups) perm.insert(perm.end(), grp.begin(), grp.end());
  const order o = order_of(perm);
  const int nl = groups[0].size(), nr = groups[1].size(), sep = nl + nr + 1;
  analysis a = analyse(g, o, pairs({1, nl, nl + 1, nl + nr, sep, N * N, sep, N * N}), 2, 32);
  check(a, eliminate(g, o), 32);

  const int top = a.xsup[a.parts[3]];  // first column after the last part
  EXPECT_TRUE(top > nl && top <= sep);
  EXPECT_GT(std::count_if(a.topcnt.begin(), a.topcnt.end(), [](int c) { return c > 0; }), 2);
}

// The cursor limit is 7FFFFFFD - n: one dense supernode of order 46340
// fits, one of 46341 does not. Only colcnt at the ends of the supernode is
// read, so nothing of that size is allocated.
TEST(SymbolicFailures, StorageCursorLimitAndStatusWords) {
  for (int n : {46340, 46341}) {
    ivec colcnt(n, 1), xlnz(n + 1), xunz(n + 1), xsup{1, n + 1};
    colcnt[0] = n;
    int ns = 1, np = 1, error = 5;
    const ivec parts{1, 0, 1, 1};
    tlm::symbfct_layout(&n, &ns, xsup.data(), colcnt.data(), &np, parts.data(),
                        xlnz.data(), xunz.data(), &error);
    EXPECT_EQ(n == 46340 ? 0 : tlm::symbolic_overflow, error);
    if (n == 46340) {
      EXPECT_EQ(46340LL * 46340 + 1, xlnz[n]);
    }
  }
  // Through symbfct: the same overflow gives -182; a column count that the
  // rows do not bear out gives -180.
  for (int n : {46341, 40}) {
    const graph g = from_sets(std::vector<std::set<int>>(n));
    analysis a = prepared(g, natural(n), pairs({1, 0, 1, 1}), 1, 0, 0);
    a.colcnt.assign(n, 1);
    a.colcnt[0] = n == 40 ? 2 : n;
    a.ns = a.comi[30] = n == 40 ? n : 1;
    a.comi[35] = n == 40 ? n + 1 : n;
    for (int j = 0; j <= n; ++j) {
      if (j < n) a.snode.push_back(n == 40 ? j + 1 : 1);
      if (j <= a.ns) a.xsup.push_back(j == a.ns ? n + 1 : j + 1);
    }
    vektest::structure(a);
    EXPECT_EQ(n == 40 ? -180 : -182, a.error2);
    EXPECT_EQ(a.error2, a.comi[49]);
  }
}

std::size_t refuse_above = 0;
void *(*heap_malloc)(std::size_t) = nullptr;
void *refusing_malloc(std::size_t size) {
  return size > refuse_above ? nullptr : heap_malloc(size);
}

// The column count's scratch: halved threads when the heap refuses, -2 at
// one thread.
TEST(SymbolicFailures, ColumnCountScratch) {
  vektest::use_threads(4);
  const graph g = graph_of(vekio::lap2d(20));
  const order o = nested_dissection(g);
  const reference r = eliminate(g, o);
  heap_malloc = vek_serv_heap.malloc_fn;
  vek_serv_heap.malloc_fn = refusing_malloc;

  refuse_above = 2 * g.n * sizeof(int) + 1024;  // two threads' arrays fit
  analysis a = prepared(g, o, single_part(g.n), 1, 64, 0);
  vektest::supernodes(a);
  EXPECT_EQ(0, a.error1);
  ivec colcnt(g.n);
  long long total = 0;
  int used = 0, error = 0;
  tlm::lnnt(&g.n, g.xadj.data(), g.adjncy.data(), o.perm.data(), o.invp.data(),
            a.parent.data(), colcnt.data(), &total, &used, &error);
  EXPECT_EQ(0, error);
  EXPECT_EQ(2, used);
  EXPECT_EQ(r.entries, total);

  refuse_above = 0;
  analysis b = prepared(g, o, single_part(g.n), 1, 0, 0);
  vektest::supernodes(b);
  EXPECT_EQ(tlm::symbolic_no_memory, b.error1);
  EXPECT_EQ(0, b.comi[30]);
  vek_serv_heap.malloc_fn = heap_malloc;
}

}  // namespace
