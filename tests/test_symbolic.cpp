// Symbolic factorization: elimination tree, column counts, supernodes and
// the supernodal structure, checked against a plain symbolic elimination of
// the permuted pattern and against the invariants the numeric phase uses.
#include <gtest/gtest.h>
#include <metis.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "service/vek_serv_memory.h"
#include "service/vek_serv_threads.h"
#include "symbolic.h"
#include "test_matrices.h"

namespace {

// A symmetric graph, one-based, without the diagonal.
struct graph {
  int n = 0;
  std::vector<int> xadj, adjncy;
};

graph graph_of_edges(int n, std::vector<std::set<int>> &adj) {
  graph g;
  g.n = n;
  g.xadj.assign(n + 1, 1);
  for (int i = 0; i < n; ++i) {
    g.xadj[i + 1] = g.xadj[i] + static_cast<int>(adj[i].size());
    for (int j : adj[i]) g.adjncy.push_back(j + 1);
  }
  if (g.adjncy.empty()) g.adjncy.push_back(0);  // keeps data() valid
  return g;
}

// Pattern of A + A^T without the diagonal.
graph graph_of(const vekio::sparse &a) {
  std::vector<std::set<int>> adj(a.n);
  for (int i = 0; i < a.n; ++i)
    for (int p = a.ia[i]; p < a.ia[i + 1]; ++p) {
      const int j = a.ja[p - 1] - 1;
      if (j == i) continue;
      adj[i].insert(j);
      adj[j].insert(i);
    }
  return graph_of_edges(a.n, adj);
}

graph random_graph(int n, int edges, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> pick(0, n - 1);
  std::vector<std::set<int>> adj(n);
  for (int e = 0; e < edges; ++e) {
    const int i = pick(rng), j = pick(rng);
    if (i == j) continue;
    adj[i].insert(j);
    adj[j].insert(i);
  }
  return graph_of_edges(n, adj);
}

graph dense_graph(int n) {
  std::vector<std::set<int>> adj(n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      if (i != j) adj[i].insert(j);
  return graph_of_edges(n, adj);
}

// b's vertices follow a's, with no edge between the two.
graph disjoint_union(const graph &a, const graph &b) {
  std::vector<std::set<int>> adj(a.n + b.n);
  for (int i = 0; i < a.n; ++i)
    for (int p = a.xadj[i]; p < a.xadj[i + 1]; ++p)
      adj[i].insert(a.adjncy[p - 1] - 1);
  for (int i = 0; i < b.n; ++i)
    for (int p = b.xadj[i]; p < b.xadj[i + 1]; ++p)
      adj[a.n + i].insert(a.n + b.adjncy[p - 1] - 1);
  return graph_of_edges(a.n + b.n, adj);
}

struct order {
  std::vector<int> perm, invp;  // perm[new] = old, one-based
};

order order_from_perm(std::vector<int> perm) {
  order o;
  o.perm = std::move(perm);
  o.invp.assign(o.perm.size(), 0);
  for (size_t k = 0; k < o.perm.size(); ++k)
    o.invp[o.perm[k] - 1] = static_cast<int>(k) + 1;
  return o;
}

order identity_order(int n) {
  std::vector<int> p(n);
  for (int i = 0; i < n; ++i) p[i] = i + 1;
  return order_from_perm(p);
}

order random_order(int n, unsigned seed) {
  std::vector<int> p(n);
  for (int i = 0; i < n; ++i) p[i] = i + 1;
  std::mt19937 rng(seed);
  std::shuffle(p.begin(), p.end(), rng);
  return order_from_perm(p);
}

order metis_order(const graph &g) {
  idx_t n = g.n;
  std::vector<idx_t> xadj(g.n + 1), adjncy(std::max(1, g.xadj[g.n] - 1));
  for (int i = 0; i <= g.n; ++i) xadj[i] = g.xadj[i] - 1;
  for (int p = 0; p < g.xadj[g.n] - 1; ++p) adjncy[p] = g.adjncy[p] - 1;
  std::vector<idx_t> perm(g.n), iperm(g.n);
  EXPECT_EQ(METIS_OK, METIS_NodeND(&n, xadj.data(), adjncy.data(), nullptr,
                                   nullptr, perm.data(), iperm.data()));
  std::vector<int> p(g.n);
  for (int i = 0; i < g.n; ++i) p[i] = perm[i] + 1;
  return order_from_perm(p);
}

// The pairs of a single part, in an array of the usual capacity.
std::vector<int> single_part(int n) {
  std::vector<int> parts(1024, 0);
  parts[0] = 1;
  parts[1] = n - 1;
  parts[2] = n;
  parts[3] = n;
  return parts;
}

// Plain symbolic elimination of the permuted pattern: the rows below the
// diagonal of each column of L, and the elimination tree they imply.
struct reference {
  std::vector<std::vector<int>> rows;  // rows[j-1], ascending, all > j
  std::vector<int> parent;
  long long entries = 0;
};

reference eliminate(const graph &g, const order &o) {
  const int n = g.n;
  reference r;
  r.rows.resize(n);
  r.parent.assign(n, 0);
  std::vector<std::vector<int>> children(n);
  for (int j = 1; j <= n; ++j) {
    std::set<int> s;
    const int node = o.perm[j - 1];
    for (int p = g.xadj[node - 1]; p < g.xadj[node]; ++p) {
      const int i = o.invp[g.adjncy[p - 1] - 1];
      if (i > j) s.insert(i);
    }
    for (int c : children[j - 1])
      for (int i : r.rows[c - 1])
        if (i > j) s.insert(i);
    r.rows[j - 1].assign(s.begin(), s.end());
    if (!s.empty()) {
      r.parent[j - 1] = *s.begin();
      children[*s.begin() - 1].push_back(j);
    }
    r.entries += static_cast<long long>(s.size()) + 1;
  }
  return r;
}

// Everything sfinit and symbfct produce for one matrix.
struct analysis {
  int n = 0, nsuper = 0, error1 = 0, error2 = 0;
  double seconds = 0.0;
  std::vector<int> comi, parts, colcnt, snode, xsup, work, parent;
  std::vector<int> xlindx, lindx, xlnz, xunz, sparent, pnlsch, nmod, state1,
      state2, topcnt;
};

void run_sfinit(const graph &g, const order &o, analysis &a) {
  a.n = g.n;
  a.colcnt.assign(g.n, 0);
  a.snode.assign(g.n, 0);
  a.xsup.assign(g.n + 1, 0);
  a.work.assign(tlm::sfinit_work_length(g.n), 0);
  tlm::sfinit(&g.n, g.xadj.data(), g.adjncy.data(), o.perm.data(),
              o.invp.data(), a.parts.data(), a.colcnt.data(), a.snode.data(),
              a.xsup.data(), a.work.data(), a.comi.data(), &a.error1);
  a.nsuper = a.comi[30];
  a.parent.assign(a.work.begin(), a.work.begin() + g.n);
}

void run_symbfct(const graph &g, const order &o, analysis &a) {
  const int ns = a.nsuper;
  a.xlindx.assign(ns + 1, 0);
  a.lindx.assign(std::max(1, a.comi[35]), 0);
  a.xlnz.assign(g.n + 1, 0);
  a.xunz.assign(g.n + 1, 0);
  for (auto *v : {&a.sparent, &a.pnlsch, &a.nmod, &a.state1, &a.state2,
                  &a.topcnt})
    v->assign(std::max(1, ns), 0);
  std::vector<int> work(tlm::symbfct_work_length(g.n, ns), 0);
  tlm::symbfct(&g.n, a.comi.data(), &a.seconds, o.perm.data(), o.invp.data(),
               g.xadj.data(), g.adjncy.data(), a.colcnt.data(), a.xsup.data(),
               a.snode.data(), a.parts.data(), a.xlindx.data(),
               a.lindx.data(), a.xlnz.data(), a.xunz.data(),
               a.sparent.data(), a.pnlsch.data(), a.nmod.data(),
               a.state1.data(), a.state2.data(), a.topcnt.data(),
               work.data(), &a.error2);
}

analysis analyse(const graph &g, const order &o, std::vector<int> parts,
                 int nparts, int panel, int triangle = 1) {
  analysis a;
  a.comi.assign(100, 0);
  a.comi[0] = g.n;
  a.comi[15] = panel;
  a.comi[18] = triangle;
  a.comi[59] = nparts;
  a.parts = std::move(parts);
  run_sfinit(g, o, a);
  EXPECT_EQ(0, a.error1);
  if (a.error1 != 0) return a;
  run_symbfct(g, o, a);
  EXPECT_EQ(0, a.error2);
  return a;
}

// The invariants of the structure, against the reference elimination.
void check(const analysis &a, const reference &r, int panel) {
  const int n = a.n, ns = a.nsuper;
  ASSERT_EQ(0, a.error1);
  ASSERT_EQ(0, a.error2);

  // Tree and counts.
  EXPECT_EQ(r.parent, a.parent);
  long long total = 0;
  for (int j = 1; j <= n; ++j) {
    ASSERT_EQ(static_cast<int>(r.rows[j - 1].size()) + 1, a.colcnt[j - 1])
        << "column " << j;
    total += a.colcnt[j - 1];
  }
  EXPECT_EQ(r.entries, total);
  EXPECT_EQ(r.entries, a.comi[29]);

  // Supernodes: exact nesting, width within the panel, and maximal.
  ASSERT_GE(ns, 1);
  EXPECT_EQ(1, a.xsup[0]);
  EXPECT_EQ(n + 1, a.xsup[ns]);
  long long lindx_len = 0, lnz_len = 0, unz_len = 0;
  int longest = 0;
  for (int s = 1; s <= ns; ++s) {
    const int f = a.xsup[s - 1], l = a.xsup[s] - 1, w = l - f + 1;
    ASSERT_GE(w, 1);
    EXPECT_LE(w, panel);
    for (int j = f; j <= l; ++j) ASSERT_EQ(s, a.snode[j - 1]);
    for (int j = f; j < l; ++j) {
      EXPECT_EQ(j + 1, r.parent[j - 1]);
      EXPECT_EQ(a.colcnt[j - 1] - 1, a.colcnt[j]);
    }
    if (s > 1) {  // a nested column only starts a supernode at the limit
      const bool nested =
          r.parent[f - 2] == f && a.colcnt[f - 1] + 1 == a.colcnt[f - 2];
      EXPECT_TRUE(!nested || f - a.xsup[s - 2] == panel) << "supernode " << s;
    }
    const int height = a.colcnt[f - 1];
    lindx_len += height;
    lnz_len += static_cast<long long>(w) * height;
    unz_len += static_cast<long long>(w) * (height - w);
    longest = std::max(longest, height);
  }
  EXPECT_EQ(ns, a.comi[30]);
  EXPECT_EQ(lindx_len, a.comi[35]);
  EXPECT_EQ(longest, a.comi[22]);
  EXPECT_EQ(lnz_len, a.comi[33]);
  EXPECT_EQ(a.comi[18] == 1 || unz_len == 0 ? 1 : unz_len, a.comi[34]);
  EXPECT_EQ(1, a.comi[21]);
  EXPECT_EQ(4, a.comi[37]);
  EXPECT_GE(a.comi[36], 4);

  // Row lists: own columns first, then exactly the rows of each column.
  EXPECT_EQ(1, a.xlindx[0]);
  for (int s = 1; s <= ns; ++s) {
    const int f = a.xsup[s - 1], l = a.xsup[s] - 1;
    const int beg = a.xlindx[s - 1], end = a.xlindx[s];
    ASSERT_EQ(a.colcnt[f - 1], end - beg);
    for (int p = beg + 1; p < end; ++p)
      ASSERT_LT(a.lindx[p - 2], a.lindx[p - 1]) << "supernode " << s;
    for (int j = f; j <= l; ++j) {
      ASSERT_EQ(j, a.lindx[beg + (j - f) - 1]);
      std::vector<int> tail(a.lindx.begin() + beg + (j - f),
                            a.lindx.begin() + end - 1);
      ASSERT_EQ(r.rows[j - 1], tail) << "column " << j;
    }
  }

  // Storage: a supernode's columns are equal slices, and the slices of all
  // columns tile lnz and unz without gaps.
  std::vector<std::pair<int, int>> lslices, uslices;
  for (int s = 1; s <= ns; ++s) {
    const int f = a.xsup[s - 1], l = a.xsup[s] - 1;
    for (int j = f; j <= l; ++j) {
      lslices.push_back({a.xlnz[j - 1], a.colcnt[f - 1]});
      uslices.push_back({a.xunz[j - 1], a.colcnt[l - 1] - 1});
      if (j < l) {
        EXPECT_EQ(a.colcnt[f - 1], a.xlnz[j] - a.xlnz[j - 1]);
        EXPECT_EQ(a.colcnt[l - 1] - 1, a.xunz[j] - a.xunz[j - 1]);
      }
    }
  }
  for (auto *slices : {&lslices, &uslices}) {
    std::sort(slices->begin(), slices->end());
    int cursor = 1;
    for (auto &sl : *slices) {
      ASSERT_EQ(cursor, sl.first);
      cursor += sl.second;
    }
  }
  EXPECT_EQ(lnz_len + 1, a.xlnz[n]);
  EXPECT_EQ(unz_len + 1, a.xunz[n]);

  // Supernodal tree: the parent of the last column's supernode.
  for (int s = 1; s <= ns; ++s) {
    const int p = r.parent[a.xsup[s] - 2];
    EXPECT_EQ(p == 0 ? 0 : a.snode[p - 1], a.sparent[s - 1]);
  }

  // Ready list: each supernode once, leaves first (negated, ascending),
  // every other one after all its children.
  std::vector<int> children(ns, 0), seen(ns, 0);
  for (int s = 1; s <= ns; ++s)
    if (a.sparent[s - 1] != 0) ++children[a.sparent[s - 1] - 1];
  int leaves = 0, last_leaf = 0;
  for (int i = 0; i < ns; ++i) {
    const int e = a.pnlsch[i];
    const int s = std::abs(e);
    ASSERT_GE(s, 1);
    ASSERT_LE(s, ns);
    ASSERT_EQ(0, seen[s - 1]) << "listed twice: " << s;
    seen[s - 1] = 1;
    if (e < 0) {
      EXPECT_EQ(leaves, i) << "a leaf after a parent";
      EXPECT_EQ(0, children[s - 1]);
      EXPECT_LT(last_leaf, s);
      last_leaf = s;
      ++leaves;
    } else {
      EXPECT_EQ(0, children[s - 1]) << "listed before its children: " << s;
    }
    if (a.sparent[s - 1] != 0) --children[a.sparent[s - 1] - 1];
  }

  // nmod: distinct supernodes that own a column with a row in s.
  std::vector<std::set<int>> updaters(ns);
  for (int j = 1; j <= n; ++j)
    for (int i : r.rows[j - 1])
      if (a.snode[i - 1] != a.snode[j - 1])
        updaters[a.snode[i - 1] - 1].insert(a.snode[j - 1]);
  for (int s = 1; s <= ns; ++s) {
    EXPECT_EQ(static_cast<int>(updaters[s - 1].size()), a.nmod[s - 1])
        << "supernode " << s;
    EXPECT_EQ(tlm::symbolic_state_mark, a.state1[s - 1]);
    EXPECT_EQ(tlm::symbolic_state_mark, a.state2[s - 1]);
  }
}

void analyse_and_check(const graph &g, const order &o, int panel) {
  const reference r = eliminate(g, o);
  const analysis a = analyse(g, o, single_part(g.n), 1, panel);
  check(a, r, panel);
}

// The operation count of the link-list sweep equals a direct sum over each
// supernode's runs of rows by target supernode.
double direct_mflop(const analysis &a, bool sym) {
  double ops = 0.0;
  for (int s = 1; s <= a.nsuper; ++s) {
    const long long w = a.xsup[s] - a.xsup[s - 1];
    const long long h = a.xlindx[s] - a.xlindx[s - 1];
    const long long w2 = w * w, w3 = w2 * w;
    ops += sym ? static_cast<double>(w3 / 3 - w2 / 4 + 5 * w / 12)
               : static_cast<double>(2 * w3 / 3 - w2 / 2 + 5 * w / 6);
    ops += static_cast<double>(w2) * (h - w) * (sym ? 1 : 2);
    long long r = h - w;
    int p = a.xlindx[s - 1] + static_cast<int>(w);
    while (r > 0) {
      const int t = a.snode[a.lindx[p - 1] - 1];
      long long q = 0;
      while (q < r && a.snode[a.lindx[p - 1 + q] - 1] == t) ++q;
      ops += 2.0 * r * w * q + (sym ? 0.0 : 2.0 * (r - q) * w * q);
      r -= q;
      p += static_cast<int>(q);
    }
  }
  return ops / 1e6;
}

double estimate(analysis &a, int sym, int mtype) {
  std::vector<int> length(a.nsuper), link(a.nsuper);
  double mflop = -1.0;
  tlm::flops_estimate(&a.nsuper, a.xsup.data(), a.snode.data(),
                      a.xlindx.data(), a.lindx.data(), length.data(),
                      link.data(), &sym, &mtype, &mflop);
  return mflop;
}

// --- real matrices --------------------------------------------------------

TEST(SymbolicStructure, EveryMatrixOfTheCollectionUnderNestedDissection) {
  const char *names[] = {
      "494_bus",  "GD97_b",   "adder_dcop_05", "bcspwr06", "bcsstk01",
      "bcsstk13", "bfwa62",   "bp_1200",       "cage5",    "cryg2500",
      "dwt_992",  "fs_183_1", "gent113",       "hangGlider_2", "impcol_a",
      "jagmesh7", "mhd1280b", "nnc1374",       "olm1000",  "pts5ldd03",
      "qc324",    "rajat19",  "reorientation_1", "temp",   "tumorAntiAngiogenesis_2",
      "w156",     "watt_2",   "west0067",      "west0479", "west0497",
      "young1c",  "zenios"};
  for (const char *name : names) {
    SCOPED_TRACE(name);
    vekio::sparse m;
    if (!vektest::load(name, m)) continue;
    const graph g = graph_of(m);
    analyse_and_check(g, metis_order(g), 72);
  }
}

TEST(SymbolicStructure, NaturalAndRandomOrdersOfRealMatrices) {
  for (const char *name : {"bcsstk13", "west0479", "young1c"}) {
    SCOPED_TRACE(name);
    vekio::sparse m;
    if (!vektest::load(name, m)) continue;
    const graph g = graph_of(m);
    analyse_and_check(g, identity_order(g.n), 128);
    analyse_and_check(g, random_order(g.n, 7), 16);
  }
}

TEST(SymbolicStructure, GeneratedGraphs) {
  {
    SCOPED_TRACE("lap3d:12");
    const graph g = graph_of(vekio::lap3d(12));
    analyse_and_check(g, metis_order(g), 64);
    analyse_and_check(g, identity_order(g.n), 96);
  }
  {
    SCOPED_TRACE("lap2d:30");
    const graph g = graph_of(vekio::lap2d(30));
    analyse_and_check(g, metis_order(g), 8);
  }
  for (unsigned seed = 1; seed <= 3; ++seed) {
    SCOPED_TRACE(seed);
    const graph g = random_graph(400, 700 * seed, seed);
    analyse_and_check(g, random_order(g.n, seed), 32);
    analyse_and_check(g, metis_order(g), 2);
  }
}

TEST(SymbolicStructure, CountsDoNotDependOnTheThreadCount) {
  vek_serv_set_dynamic(0);
  const graph g = graph_of(vekio::lap3d(10));
  const order o = metis_order(g);
  const reference r = eliminate(g, o);
  std::vector<int> work(2 * g.n);
  int one = 1;
  tlm::etree(&g.n, g.xadj.data(), g.adjncy.data(), o.perm.data(),
             o.invp.data(), &one, single_part(g.n).data(), work.data(),
             work.data() + g.n);
  for (int threads : {1, 3, 4}) {
    SCOPED_TRACE(threads);
    vek_serv_set_num_threads(threads);
    std::vector<int> colcnt(g.n, 0);
    long long total = 0;
    int used = 0, error = -1;
    tlm::lnnt(&g.n, g.xadj.data(), g.adjncy.data(), o.perm.data(),
              o.invp.data(), work.data(), colcnt.data(), &total, &used,
              &error);
    EXPECT_EQ(0, error);
    EXPECT_EQ(threads, used);
    EXPECT_EQ(r.entries, total);
    for (int j = 0; j < g.n; ++j)
      ASSERT_EQ(static_cast<int>(r.rows[j].size()) + 1, colcnt[j]);
  }
}

// --- small cases with known answers ---------------------------------------

TEST(SymbolicCases, DenseMatrixIsCutIntoPanels) {
  const graph g = dense_graph(300);
  const order o = identity_order(300);
  analysis a = analyse(g, o, single_part(300), 1, 128);
  check(a, eliminate(g, o), 128);
  ASSERT_EQ(3, a.nsuper);
  EXPECT_EQ((std::vector<int>{1, 129, 257, 301}),
            std::vector<int>(a.xsup.begin(), a.xsup.begin() + 4));
  EXPECT_EQ(300, a.comi[31]);
  // The pieces of the cut chain stay a chain.
  EXPECT_EQ((std::vector<int>{2, 3, 0}), a.sparent);
  EXPECT_EQ((std::vector<int>{-1, 2, 3}), a.pnlsch);
  EXPECT_EQ((std::vector<int>{0, 1, 2}), a.nmod);
  // The last column stands alone as the top region: (1,2), (3,3).
  EXPECT_EQ((std::vector<int>{1, 2, 3, 3}),
            std::vector<int>(a.parts.begin(), a.parts.begin() + 4));
  EXPECT_EQ(300, a.comi[22]);
  EXPECT_EQ(300 * 128 + 172 * 128 + 44 * 44, a.comi[33]);
}

TEST(SymbolicCases, DiagonalMatrix) {
  const int n = 50;
  std::vector<std::set<int>> none(n);
  const graph g = graph_of_edges(n, none);
  const order o = random_order(n, 3);
  analysis a = analyse(g, o, single_part(n), 1, 128, 0);
  check(a, eliminate(g, o), 128);
  EXPECT_EQ(n, a.nsuper);
  for (int s = 0; s < n; ++s) {
    EXPECT_EQ(0, a.nmod[s]);
    EXPECT_EQ(0, a.sparent[s]);
    EXPECT_EQ(-(s + 1), a.pnlsch[s]);
  }
  for (int j = 0; j <= n; ++j) EXPECT_EQ(1, a.xunz[j]);
  EXPECT_EQ(1, a.comi[34]);  // unz empty, even for full storage
  EXPECT_EQ(n, a.comi[36] / 4);  // no update block: n
  EXPECT_EQ(0.0, estimate(a, 1, 2));
}

TEST(SymbolicCases, OrderOne) {
  const graph g = dense_graph(1);
  const order o = identity_order(1);
  analysis a = analyse(g, o, single_part(1), 1, 128);
  check(a, eliminate(g, o), 128);
  EXPECT_EQ(1, a.nsuper);
  EXPECT_EQ((std::vector<int>{1, 2}), a.xsup);
  EXPECT_EQ((std::vector<int>{1, 2}), a.xlnz);
  EXPECT_EQ((std::vector<int>{1, 0, 1, 1}),
            std::vector<int>(a.parts.begin(), a.parts.begin() + 4));
}

// Two grids, ordered one after the other, with nothing between them.
TEST(SymbolicCases, TwoIndependentGraphs) {
  const graph g1 = graph_of(vekio::lap2d(9));
  const graph g2 = random_graph(60, 150, 5);
  const graph g = disjoint_union(g1, g2);
  const order o1 = metis_order(g1), o2 = metis_order(g2);
  std::vector<int> perm(o1.perm);
  for (int p : o2.perm) perm.push_back(g1.n + p);
  const order o = order_from_perm(perm);
  const int n = g.n;
  std::vector<int> parts(1024, 0);
  const int pairs[] = {1, g1.n, g1.n + 1, n - 1, n, n, n, n};
  std::copy(pairs, pairs + 8, parts.begin());

  analysis a = analyse(g, o, parts, 2, 16);
  check(a, eliminate(g, o), 16);

  const int root1 = a.snode[g1.n - 1], root2 = a.snode[n - 1];
  int roots = 0;
  for (int s = 1; s <= a.nsuper; ++s) roots += a.sparent[s - 1] == 0;
  EXPECT_EQ(2, roots);
  EXPECT_EQ(0, a.sparent[root1 - 1]);
  EXPECT_EQ(0, a.sparent[root2 - 1]);
  // Part 1 ends on its root; part 2 gives up its last supernode to the top
  // region when column n-1 shares a supernode with column n.
  EXPECT_EQ(1, a.parts[0]);
  EXPECT_EQ(root1, a.parts[1]);
  EXPECT_EQ(root1 + 1, a.parts[2]);
  const int last2 = a.snode[n - 2] == root2 ? root2 - 1 : a.snode[n - 2];
  EXPECT_EQ(last2, a.parts[3]);
  EXPECT_EQ(last2 + 1, a.parts[4]);
  EXPECT_EQ(a.nsuper, a.parts[5]);
  // No supernode of part 1 has a row in the other graph.
  for (int s = 1; s <= root1; ++s) EXPECT_EQ(0, a.topcnt[s - 1]);
}

// A grid cut by its middle column: the two halves are the parts, the
// separator the top region, and topcnt counts each supernode's rows in it.
TEST(SymbolicCases, DissectedGridCountsRowsInTheTopRegion) {
  const int N = 15, n = N * N, mid = N / 2;
  const graph g = graph_of(vekio::lap2d(N));
  std::vector<int> left, right, sep;
  for (int y = 0; y < N; ++y)
    for (int x = 0; x < N; ++x) {
      const int v = y * N + x + 1;
      (x < mid ? left : x > mid ? right : sep).push_back(v);
    }
  std::vector<int> perm(left);
  perm.insert(perm.end(), right.begin(), right.end());
  perm.insert(perm.end(), sep.begin(), sep.end());
  const order o = order_from_perm(perm);
  const int nl = static_cast<int>(left.size());
  const int nr = static_cast<int>(right.size());
  std::vector<int> parts(1024, 0);
  const int pairs[] = {1, nl, nl + 1, nl + nr, nl + nr + 1, n, nl + nr + 1, n};
  std::copy(pairs, pairs + 8, parts.begin());

  const reference r = eliminate(g, o);
  analysis a = analyse(g, o, parts, 2, 32);
  check(a, r, 32);

  // The top region starts with the separator, or earlier by the supernode
  // that the last column of the right half shares with it.
  const int top = a.xsup[a.parts[3]];
  EXPECT_LE(top, nl + nr + 1);
  EXPECT_GE(top, nl + 1);
  EXPECT_EQ(a.parts[3] + 1, a.parts[4]);
  EXPECT_EQ(a.nsuper, a.parts[5]);
  int with_top_rows = 0;
  for (int s = 1; s <= a.nsuper; ++s) {
    const int f = a.xsup[s - 1];
    int in_top = 0;
    if (f < top)
      for (int i : r.rows[f - 1]) in_top += i >= top;
    EXPECT_EQ(in_top, a.topcnt[s - 1]) << "supernode " << s;
    with_top_rows += in_top > 0;
  }
  EXPECT_GT(with_top_rows, 2);
}

// --- failures -------------------------------------------------------------

// The layout limit is 7FFFFFFD - n: one dense supernode of order 46340
// fits (46340^2 entries), one of order 46341 does not. Only colcnt at the
// first and last columns is read, so nothing of that size is allocated.
TEST(SymbolicFailures, StorageCursorLimit) {
  for (int n : {46340, 46341}) {
    SCOPED_TRACE(n);
    std::vector<int> colcnt(n, 0), xlnz(n + 1, 0), xunz(n + 1, 0);
    colcnt[0] = n;
    colcnt[n - 1] = 1;
    const int xsup[] = {1, n + 1};
    const int parts[] = {1, 0, 1, 1};
    int ns = 1, np = 1, error = 5;
    tlm::symbfct_layout(&n, &ns, xsup, colcnt.data(), &np, parts,
                        xlnz.data(), xunz.data(), &error);
    if (n == 46340) {
      EXPECT_EQ(0, error);
      EXPECT_EQ(46340LL * 46340 + 1, xlnz[n]);
      EXPECT_EQ(1, xunz[n]);
    } else {
      EXPECT_EQ(tlm::symbolic_overflow, error);
    }
  }
}

// symbfct maps the structure step's failures into its status: a cursor
// overflow gives -182, counts that the lists do not bear out give -180.
TEST(SymbolicFailures, StatusOfTheStructureStep) {
  struct { int n, height, status; } cases[] = {{46341, 46341, -182},
                                               {40, 2, -180}};
  for (auto c : cases) {
    SCOPED_TRACE(c.n);
    const int n = c.n;
    std::vector<std::set<int>> none(n);
    const graph g = graph_of_edges(n, none);
    const order o = identity_order(n);
    analysis a;
    a.n = n;
    a.nsuper = 1;
    a.comi.assign(100, 0);
    a.comi[30] = 1;
    a.comi[35] = c.height;
    a.comi[59] = 1;
    a.parts = single_part(n);
    a.parts[1] = 0;
    a.parts[2] = 1;
    a.parts[3] = 1;
    a.colcnt.assign(n, 1);
    a.colcnt[0] = c.height;
    a.snode.assign(n, 1);
    a.xsup = {1, n + 1};
    if (c.status == -180) {  // forty supernodes of one column each
      a.nsuper = a.comi[30] = n;
      a.comi[35] = n + 1;
      a.xsup.resize(n + 1);
      for (int j = 0; j < n; ++j) a.snode[j] = j + 1;
      for (int s = 0; s <= n; ++s) a.xsup[s] = s + 1;
    }
    run_symbfct(g, o, a);
    EXPECT_EQ(c.status, a.error2);
    EXPECT_EQ(c.status, a.comi[49]);
  }
}

// Heap that refuses requests above a size, to drive the column count's
// retry with fewer threads.
std::size_t refuse_above = 0;
void *(*real_malloc)(std::size_t) = nullptr;
void *refusing_malloc(std::size_t size) {
  return size > refuse_above ? nullptr : real_malloc(size);
}

TEST(SymbolicFailures, ColumnCountScratchHalvesTheThreadsThenFails) {
  vek_serv_set_dynamic(0);
  vek_serv_set_num_threads(4);
  const graph g = graph_of(vekio::lap2d(20));
  const order o = metis_order(g);
  const reference r = eliminate(g, o);
  real_malloc = vek_serv_heap.malloc_fn;
  vek_serv_heap.malloc_fn = refusing_malloc;

  // Room for two threads' arrays, not four.
  refuse_above = 2 * g.n * sizeof(int) + 1024;
  analysis a;
  a.comi.assign(100, 0);
  a.comi[15] = 64;
  a.comi[59] = 1;
  a.parts = single_part(g.n);
  run_sfinit(g, o, a);
  EXPECT_EQ(0, a.error1);
  std::vector<int> colcnt(g.n);
  long long total = 0;
  int used = 0, error = 0;
  tlm::lnnt(&g.n, g.xadj.data(), g.adjncy.data(), o.perm.data(),
            o.invp.data(), a.parent.data(), colcnt.data(), &total, &used,
            &error);
  EXPECT_EQ(0, error);
  EXPECT_EQ(2, used);
  EXPECT_EQ(r.entries, total);

  // Nothing at all: the stage fails with -2 and leaves the sizes alone.
  refuse_above = 0;
  analysis b;
  b.comi.assign(100, 0);
  b.comi[15] = 64;
  b.comi[59] = 1;
  b.parts = single_part(g.n);
  run_sfinit(g, o, b);
  EXPECT_EQ(tlm::symbolic_no_memory, b.error1);
  EXPECT_EQ(0, b.comi[30]);
  vek_serv_heap.malloc_fn = real_malloc;
}

// At most 16 threads, and fewer while their scratch passes 512000000 bytes.
TEST(SymbolicFailures, ColumnCountThreadLimits) {
  vek_serv_set_dynamic(0);
  real_malloc = vek_serv_heap.malloc_fn;
  vek_serv_heap.malloc_fn = refusing_malloc;
  refuse_above = 0;
  struct { int n, threads, first; } cases[] = {
      {1000, 32, 16}, {4000001, 16, 8}, {4000000, 16, 16}};
  for (auto c : cases) {
    SCOPED_TRACE(c.n);
    vek_serv_set_num_threads(c.threads);
    // An empty graph: the refused requests show the first thread count.
    std::vector<int> xadj(c.n + 1, 1), adjncy(1, 0), perm(c.n), parent(c.n, 0),
        colcnt(c.n);
    for (int j = 0; j < c.n; ++j) perm[j] = j + 1;
    std::vector<std::size_t> asked;
    static std::vector<std::size_t> *log;
    log = &asked;
    vek_serv_heap.malloc_fn = [](std::size_t size) -> void * {
      log->push_back(size);
      return nullptr;
    };
    long long total = 0;
    int used = 0, error = 0;
    tlm::lnnt(&c.n, xadj.data(), adjncy.data(), perm.data(), perm.data(),
              parent.data(), colcnt.data(), &total, &used, &error);
    EXPECT_EQ(tlm::symbolic_no_memory, error);
    ASSERT_FALSE(asked.empty());
    const std::size_t bytes = static_cast<std::size_t>(c.first) * c.n * 4;
    EXPECT_GE(asked.front(), bytes);
    EXPECT_LT(asked.front(), bytes + 1024);
  }
  vek_serv_heap.malloc_fn = real_malloc;
}

// --- operation count ------------------------------------------------------

TEST(SymbolicFlops, LinkListSweepAgreesWithDirectSums) {
  for (const char *name : {"bcsstk13", "nnc1374", "mhd1280b"}) {
    SCOPED_TRACE(name);
    vekio::sparse m;
    if (!vektest::load(name, m)) continue;
    const graph g = graph_of(m);
    analysis a = analyse(g, metis_order(g), single_part(g.n), 1, 64);
    const double sym = direct_mflop(a, true), uns = direct_mflop(a, false);
    EXPECT_NEAR(sym, estimate(a, 1, -2), 1e-9 * sym);
    EXPECT_NEAR(uns, estimate(a, 0, 11), 1e-9 * uns);
    EXPECT_NEAR(4 * uns, estimate(a, 0, 13), 4e-9 * uns);
    EXPECT_NEAR(4 * sym, estimate(a, 1, -4), 4e-9 * sym);
    EXPECT_GT(uns, sym);
  }
}

// One dense supernode: n^3/3 - n^2/4 + 5n/12 operations.
TEST(SymbolicFlops, DenseBlock) {
  const graph g = dense_graph(60);
  analysis a = analyse(g, identity_order(60), single_part(60), 1, 128);
  ASSERT_EQ(1, a.nsuper);
  EXPECT_DOUBLE_EQ((72000 - 900 + 25) / 1e6, estimate(a, 1, 2));
  EXPECT_DOUBLE_EQ((144000 - 1800 + 50) / 1e6, estimate(a, 0, 1));
}

}  // namespace
