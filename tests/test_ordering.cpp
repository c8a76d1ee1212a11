// Fill-reducing ordering: adjacency builders, minimum degree (plain and
// constrained), domain decomposition, nested dissection and the driver.

#include <gtest/gtest.h>
#include <algorithm>
#include <functional>
#include <numeric>
#include <set>
#include <thread>
#include <vector>

#include "ordering.h"
#include "test_graph.h"
#include "test_matrices.h"
#include "test_system.h"
#include "vekio.h"

namespace {

typedef std::vector<int> ivec;
using vektest::edge_list;
using vektest::edges_of;
using vektest::from_edges;
using vektest::graph;
using vektest::graph_of;

void expect_permutation(int n, const ivec &perm, const ivec &invp) {
  ivec seen(n + 1, 0);
  for (int k = 1; k <= n; ++k) {
    const int v = perm[k - 1];
    ASSERT_TRUE(v >= 1 && v <= n) << v;
    ASSERT_EQ(seen[v]++, 0) << "vertex " << v << " twice";
    ASSERT_EQ(invp[v - 1], k);
  }
}

double fill_of(graph &g, ivec perm, ivec invp) {
  ivec cc(g.n), work(2 * g.n);
  double nnzl = 0, ops = 0;
  ordering_fill(&g.n, g.xadj.data(), g.adjncy.data(), perm.data(), invp.data(), cc.data(),
                work.data(), &nnzl, &ops);
  return nnzl;
}

// Minimum degree, plain (ncon 0) or constrained.
void mmd(graph &g, ivec &perm, ivec &invp, int maxint = 2147483647, int ncon = 0,
         int sepflag = 1) {
  int n = g.n, delta = 0, nofsub = 0;
  ivec copy(g.adjncy), work(5 * n);
  perm.resize(n);
  invp.resize(n);
  genmmd_constrained(&n, g.xadj.data(), copy.data(), invp.data(), perm.data(), &delta,
                     work.data(), work.data() + n, work.data() + 2 * n, work.data() + 3 * n,
                     &maxint, &nofsub, &ncon, work.data() + 4 * n, &sepflag);
}

// Nested dissection (form 0: the partitioner's bisections, 1: the parallel
// form's own); parts returned as found (one-based pairs).
int dissect(graph &g, int threads, int nparts, ivec &perm, ivec &invp, ivec &parts,
            int form = 0) {
  perm.assign(g.n, 0);
  invp.assign(g.n, 0);
  parts.assign(std::max(4 * nparts + 4, 1024), 0);
  int status = 0, n = g.n;
  metis_nd(&n, g.xadj.data(), g.adjncy.data(), &threads, perm.data(), invp.data(), &nparts,
           parts.data(), &status, &form);
  EXPECT_EQ(status, 0);
  expect_permutation(g.n, perm, invp);
  return nparts;
}

// Pairs 1..nparts are disjoint ranges in ascending order, and no edge joins
// two different parts; everything else (the top region) lies after them.
void expect_independent_parts(graph &g, const ivec &invp, const ivec &parts, int nparts) {
  ivec part_of(g.n + 1, 0);
  int prev = 0;
  for (int k = 1; k <= nparts; ++k) {
    const int first = parts[2 * (k - 1)], last = parts[2 * (k - 1) + 1];
    ASSERT_TRUE(first > prev && last >= first - 1 && last <= g.n) << "pair " << k;
    for (int p = first; p <= last; ++p) part_of[p] = k;
    prev = last;
  }
  for (auto &e : edges_of(g)) {
    const int a = part_of[invp[e.first - 1]], b = part_of[invp[e.second - 1]];
    ASSERT_TRUE(!a || !b || a == b) << "edge " << e.first << "-" << e.second;
  }
}

// --- Adjacency ----------------------------------------------------------

TEST(OrderingAdjacency, TriangleSerialParallelAndFullAgree) {
  // lap2d:7 with a dense row and column, which exercise counts across the
  // split point.
  const vekio::sparse full = vekio::lap2d(7);
  vekio::sparse a;
  a.n = full.n;
  a.ia.push_back(1);
  for (int i = 1; i <= a.n; ++i) {
    std::set<int> cols(full.ja.begin() + full.ia[i - 1] - 1, full.ja.begin() + full.ia[i] - 1);
    for (int c = i == 3 ? 1 : 3; c <= (i == 3 ? a.n : 3); ++c) cols.insert(c);
    a.ja.insert(a.ja.end(), cols.begin(), cols.end());
    a.ia.push_back(static_cast<int>(a.ja.size()) + 1);
  }
  a.a.assign(a.ja.size(), 1.0);
  vekio::sparse upper = vekio::storage_for_type(a, 2);
  int n = a.n, one = 1, two = 2, tri = 1, notri = 0;
  const int nadj = a.nnz() - n;
  ivec x1(n + 1), a1(nadj), x2(n + 1), a2(nadj), x3(n + 1), a3(nadj);
  ladj_mod(&n, upper.ia.data(), upper.ja.data(), &one, &tri, x1.data(), a1.data());
  ladj_mod(&n, upper.ia.data(), upper.ja.data(), &two, &tri, x2.data(), a2.data());
  ladj_mod(&n, a.ia.data(), a.ja.data(), &two, &notri, x3.data(), a3.data());
  EXPECT_EQ(x1, x2);
  EXPECT_EQ(a1, a2);
  EXPECT_EQ(x1, x3);
  EXPECT_EQ(a1, a3);  // both ascending within a row
  EXPECT_EQ(x1[n], nadj + 1);
}

TEST(OrderingAdjacency, UnsymmetricPatternIsSymmetrisedInRowOrder) {
  // Rows: 1:{1,3} 2:{1,2} 3:{3,4} 4:{2}
  ivec ia = {1, 3, 5, 7, 8}, ja = {1, 3, 1, 2, 3, 4, 2};
  ivec xadj(5), adjncy(16), work(fulladj_unsym_work(4, 7));
  int n = 4, nadj = 0;
  fulladj_unsym(&n, ia.data(), ja.data(), nullptr, xadj.data(), adjncy.data(), &nadj,
                work.data());
  EXPECT_EQ(nadj, 8);
  EXPECT_EQ(xadj, (ivec{1, 3, 5, 7, 9}));
  EXPECT_EQ(ivec(adjncy.begin(), adjncy.begin() + 8), (ivec{2, 3, 1, 4, 1, 4, 2, 3}));
  // Rows taken in the order 4,3,2,1: B = P A, rows 1:{2} 2:{3,4} 3:{1,2}
  // 4:{1,3}; B + B^T off the diagonal.
  ivec order = {4, 3, 2, 1};
  fulladj_unsym(&n, ia.data(), ja.data(), order.data(), xadj.data(), adjncy.data(), &nadj,
                work.data());
  EXPECT_EQ(xadj, (ivec{1, 4, 7, 10, 13}));
  EXPECT_EQ(ivec(adjncy.begin(), adjncy.begin() + 12),
            (ivec{2, 3, 4, 1, 3, 4, 1, 2, 4, 1, 2, 3}));
}

// --- Minimum degree -------------------------------------------------------

TEST(OrderingMinimumDegree, TreesAreOrderedWithoutFill) {
  // Path 1-2-...-30, star centred at 5, and a binary tree of 63 vertices.
  edge_list path, star, tree;
  for (int i = 1; i < 30; ++i) path.push_back({i, i + 1});
  for (int i = 1; i <= 20; ++i)
    if (i != 5) star.push_back({5, i});
  for (int i = 2; i <= 63; ++i) tree.push_back({i / 2, i});
  for (auto *edges : {&path, &star, &tree}) {
    int n = 0;
    for (auto &e : *edges) n = std::max({n, e.first, e.second});
    graph g = from_edges(n, *edges);
    ivec perm, invp;
    mmd(g, perm, invp);
    expect_permutation(n, perm, invp);
    EXPECT_EQ(fill_of(g, perm, invp), 2.0 * n - 1) << "n " << n;
    EXPECT_TRUE(edges != &star || perm[19] == 5);  // the centre goes last
  }
}

TEST(OrderingMinimumDegree, IsolatedNodesFirstGridsBeatTheBandTagOverflowChangesNothing) {
  // A 12x12 grid plus three isolated vertices.
  graph grid = graph_of(vekio::lap2d(12)), g = from_edges(grid.n + 3, edges_of(grid));
  ivec perm, invp;
  mmd(g, perm, invp);
  expect_permutation(g.n, perm, invp);
  EXPECT_EQ(std::set<int>(perm.begin(), perm.begin() + 3), (std::set<int>{145, 146, 147}));

  ivec nperm(grid.n), gperm, ginvp, operm, oinvp;
  for (int i = 0; i < grid.n; ++i) nperm[i] = i + 1;
  mmd(grid, gperm, ginvp);
  EXPECT_LT(fill_of(grid, gperm, ginvp), 0.8 * fill_of(grid, nperm, nperm));
  mmd(grid, operm, oinvp, 300);  // the marks wrap many times
  EXPECT_EQ(operm, gperm);
  EXPECT_EQ(oinvp, ginvp);
}

TEST(OrderingMinimumDegree, ReservedNodesStayLastAsGiven) {
  graph g = graph_of(vekio::lap2d(10));
  const int n = g.n, ncon = 10;
  // Reserve the middle column of the grid, in a given order.
  ivec reserved, given;
  for (int r = 9; r >= 0; --r) reserved.push_back(r * 10 + 5);
  for (int v = 1; v <= n; ++v)
    if (v % 10 != 5) given.push_back(v);
  given.insert(given.end(), reserved.begin(), reserved.end());

  ivec perm = given, invp(n);
  mmd(g, perm, invp, 2147483647, ncon, 0);
  expect_permutation(n, perm, invp);
  EXPECT_EQ(ivec(perm.end() - ncon, perm.end()), reserved);

  perm = given;
  mmd(g, perm, invp, 2147483647, ncon, 1);
  expect_permutation(n, perm, invp);
  EXPECT_EQ(std::set<int>(perm.end() - ncon, perm.end()),
            std::set<int>(reserved.begin(), reserved.end()));
  // The separator splits the grid: the two halves need no more fill than
  // the order the constraint allows.
  ivec fperm, finvp;
  mmd(g, fperm, finvp);
  EXPECT_LT(fill_of(g, perm, invp), 1.5 * fill_of(g, fperm, finvp));
}

// --- Domain decomposition and dissection -----------------------------------

TEST(OrderingDecomposition, SeparatorIsLastAndSplitsTheDomains) {
  graph g = graph_of(vekio::lap2d(20));
  int nparts = 4, n = g.n, ncon = 0, status = 0;
  ivec perm(n), invp(n);
  ddecomp(&nparts, &n, g.xadj.data(), g.adjncy.data(), perm.data(), invp.data(), &ncon,
          &status);
  ASSERT_EQ(status, 0);
  expect_permutation(n, perm, invp);
  EXPECT_GT(ncon, 2);
  EXPECT_LT(ncon, n / 4);
  // Without the separator the interior falls into at least 4 components.
  auto interior = [&](int v) { return invp[v - 1] <= n - ncon + 2; };
  ivec root(n + 1);
  std::iota(root.begin(), root.end(), 0);
  std::function<int(int)> find = [&](int v) { return root[v] == v ? v : root[v] = find(root[v]); };
  for (auto &e : edges_of(g))
    if (interior(e.first) && interior(e.second)) root[find(e.first)] = find(e.second);
  int ncomp = 0;
  for (int v = 1; v <= n; ++v) ncomp += interior(v) && find(v) == v;
  EXPECT_GE(ncomp, 4);
  int one = 1;  // one part asked for: nothing happens
  ddecomp(&one, &n, g.xadj.data(), g.adjncy.data(), perm.data(), invp.data(), &ncon, &status);
  EXPECT_EQ(ncon, 0);
}

TEST(OrderingDissection, PartsAreIndependentAndSeparatorsSeparate) {
  // One thread: that two give the same order is checked with the analyses.
  graph g = graph_of(vekio::lap2d(40));
  ivec perm, invp, parts;
  const int np = dissect(g, 1, 8, perm, invp, parts);
  EXPECT_EQ(np, 8);
  expect_independent_parts(g, invp, parts, np);
  // Parts and separators (still interleaved, as the recursion left
  // them) cover every position once.
  ivec used(g.n + 1, 0);
  for (int k = 1; k <= 2 * np; ++k) {
    if (k == np + 1) continue;
    ASSERT_GE(parts[2 * (k - 1)], 1) << "pair " << k;
    for (int p = parts[2 * (k - 1)]; p <= parts[2 * (k - 1) + 1]; ++p) used[p]++;
  }
  EXPECT_EQ(ivec(used.begin() + 1, used.end()), ivec(g.n, 1));
}

TEST(OrderingDissection, SmallGraphIsStillBisectedAndFillIsNearTheReference) {
  edge_list path;
  for (int i = 1; i < 50; ++i) path.push_back({i, i + 1});
  graph p = from_edges(50, path);
  ivec perm, invp, parts;
  EXPECT_EQ(dissect(p, 1, 2, perm, invp, parts), 2);
  expect_independent_parts(p, invp, parts, 2);

  vekio::sparse a;
  ASSERT_TRUE(vektest::load("bcsstk13", a));
  graph g = graph_of(a);
  dissect(g, 1, 32, perm, invp, parts);
  ivec rperm, rinvp;
  vektest::metis_order(g, rperm, rinvp);
  EXPECT_LE(fill_of(g, perm, invp), 1.10 * fill_of(g, rperm, rinvp));
}

TEST(OrderingDissection, DenseRowsAreNumberedLast) {
  graph grid = graph_of(vekio::lap2d(20));
  edge_list edges = edges_of(grid);
  const int dense = grid.n + 1;
  for (int v = 1; v <= grid.n; ++v) edges.push_back({v, dense});
  graph g = from_edges(dense, edges);
  ivec perm, invp, parts;
  const int np = dissect(g, 1, 4, perm, invp, parts);
  EXPECT_EQ(perm[g.n - 1], dense);
  // Without the dense vertex the parts are still independent.
  expect_independent_parts(grid, invp, parts, np);
}

TEST(OrderingDissection, IndistinguishableVerticesStayTogether) {
  // Three unknowns at every point of a 24x24 grid, all coupled.
  graph grid = graph_of(vekio::lap2d(24));
  edge_list edges;
  for (int v = 1; v <= grid.n; ++v) {
    for (int a = 1; a <= 3; ++a)
      for (int b = a + 1; b <= 3; ++b) edges.push_back({3 * v - 3 + a, 3 * v - 3 + b});
  }
  for (auto &e : edges_of(grid))
    for (int a = 1; a <= 3; ++a)
      for (int b = 1; b <= 3; ++b) edges.push_back({3 * e.first - 3 + a, 3 * e.second - 3 + b});
  graph g = from_edges(3 * grid.n, edges);
  ivec perm, invp, parts;
  const int np = dissect(g, 1, 4, perm, invp, parts);
  expect_independent_parts(g, invp, parts, np);
  for (int v = 0; v < grid.n; ++v) {
    const auto mm = std::minmax({invp[3 * v], invp[3 * v + 1], invp[3 * v + 2]});
    EXPECT_EQ(mm.second - mm.first, 2) << "point " << v + 1;
  }
  // Pairs cover whole points: no range ends inside a group of three.
  for (int k = 1; k <= np; ++k) EXPECT_EQ(parts[2 * k - 1] % 3, 0);
}

// --- Driver ----------------------------------------------------------------

struct driver_result {
  ivec perm, invp, parts, xadj, adjncy;
  double times[2] = {0, 0};
};

// The driver with comi set to the defaults and then to the pairs (k, value)
// of settings; the order of the caller in user_perm.
driver_result run_sssord(vekio::sparse &a, ivec &comi,
                         std::initializer_list<std::pair<int, int>> settings,
                         ivec *user_perm = nullptr) {
  comi.assign(128, 0);
  const std::pair<int, int> defaults[] = {{9, 2147483647}, {15, 1}, {17, 1}, {60, 32}, {61, 1024}};
  for (auto kv : defaults) comi[kv.first - 1] = kv.second;
  for (auto kv : settings) comi[kv.first - 1] = kv.second;
  driver_result r;
  int n = a.n;
  r.perm.assign(n, 0);
  r.invp.assign(n, 0);
  r.parts.assign(comi[61 - 1], 0);
  r.xadj.assign(n + 1, 0);
  r.adjncy.assign(2 * static_cast<size_t>(a.nnz()) + 1, 0);
  sssord(&n, a.ia.data(), a.ja.data(), comi.data(), user_perm ? user_perm->data() : nullptr,
         nullptr, r.xadj.data(), r.adjncy.data(), r.perm.data(), r.invp.data(),
         r.parts.data(), r.times);
  EXPECT_EQ(comi[50 - 1], 0);
  expect_permutation(n, r.perm, r.invp);
  return r;
}

TEST(OrderingDriver, DissectionRegroupsPartsInFrontOfTheSeparators) {
  vekio::sparse full = vekio::lap2d(30), upper = vekio::storage_for_type(full, 2);
  ivec comi;
  const driver_result r = run_sssord(upper, comi, {{12, 2}, {14, 2}, {19, 1}, {60, 4}});
  const int n = full.n, np = comi[60 - 1];
  ASSERT_EQ(np, 4);
  graph g = graph_of(full);
  expect_independent_parts(g, r.invp, r.parts, np);
  EXPECT_EQ(r.parts[0], 1);
  EXPECT_EQ(r.parts[2 * np], r.parts[2 * np - 1] + 1);  // top region
  EXPECT_EQ(r.parts[2 * np + 1], n);
  // The separators tile the top region, the top one last.
  ivec cover(n + 1, 0);
  for (int k = np + 2; k <= 2 * np; ++k)
    for (int p = r.parts[2 * (k - 1)]; p <= r.parts[2 * (k - 1) + 1]; ++p) ++cover[p];
  EXPECT_EQ(ivec(cover.begin() + r.parts[2 * np], cover.end()), ivec(n + 1 - r.parts[2 * np], 1));
  EXPECT_EQ(r.parts[2 * (np + 1) + 1], n);
}

TEST(OrderingDriver, CallersPermutationMethodsAndOrderOne) {
  vekio::sparse full = vekio::lap2d(9);
  const int n = full.n;
  ivec mine(n), comi;
  for (int i = 0; i < n; ++i) mine[i] = n - i;
  driver_result r = run_sssord(full, comi, {{12, 11}, {14, 2}, {21, 1}}, &mine);
  EXPECT_EQ(r.perm, mine);
  EXPECT_EQ(comi[60 - 1], 1);
  EXPECT_EQ(ivec(r.parts.begin(), r.parts.begin() + 4), (ivec{1, n - 1, n, n}));
  EXPECT_EQ(comi[4 - 1], full.nnz() - n);  // adjacency built all the same

  // Mode 2: the computed order goes back to the caller, by every method.
  for (int method = 0; method <= 3; ++method) {
    std::fill(mine.begin(), mine.end(), 0);
    r = run_sssord(full, comi, {{12, 11}, {14, method}, {15, 2}, {21, 2}}, &mine);
    EXPECT_EQ(mine, r.perm) << "method " << method;
    EXPECT_TRUE(method >= 2 || comi[60 - 1] == 1) << "method " << method;
    // Order one: one part, whatever the method.
    vekio::sparse one = vekio::diagonal(1);
    const driver_result o = run_sssord(one, comi, {{12, 2}, {14, method}});
    EXPECT_EQ(comi[60 - 1], 1);
    EXPECT_EQ(ivec(o.parts.begin(), o.parts.begin() + 4), (ivec{1, 0, 1, 1})) << method;
  }
}

// --- Two analyses at once ---------------------------------------------------

// The order that an analysis by method computes for an SPD matrix, handed
// back through iparam(5) = 2.
ivec analysed_order(const vekio::sparse &full, int method) {
  vektest::system s(full);
  s.control({{2, method}, {5, 2}});
  EXPECT_EQ(s.call(11), 0) << "method " << method;
  return s.perm;
}

TEST(OrderingConcurrency, TwoAnalysesAtOnceGiveTheSerialOrders) {
  // Two threads for the analyses themselves: the domain decomposition of
  // method 1 and the parallel dissection of method 3 run too.
  setenv("VEK_NUM_THREADS", "2", 1);
  const vekio::sparse first = vekio::lap2d(70), second = vekio::lap3d(15);
  for (int method : {1, 2, 3}) {
    const ivec alone1 = analysed_order(first, method), alone2 = analysed_order(second, method);
    ivec sorted(alone1), identity(first.n);
    std::sort(sorted.begin(), sorted.end());
    std::iota(identity.begin(), identity.end(), 1);
    ASSERT_EQ(sorted, identity) << "method " << method;
    for (int round = 0; round < 3; ++round) {
      // Different matrices, then the same one, on two handles at once.
      ivec a, b, c, d;
      std::thread t1([&] { a = analysed_order(first, method); });
      std::thread t2([&] { b = analysed_order(second, method); });
      t1.join();
      t2.join();
      std::thread t3([&] { c = analysed_order(second, method); });
      std::thread t4([&] { d = analysed_order(second, method); });
      t3.join();
      t4.join();
      EXPECT_EQ(a, alone1) << "method " << method << " round " << round;
      EXPECT_EQ(b, alone2) << "method " << method << " round " << round;
      EXPECT_EQ(c, alone2) << "method " << method << " round " << round;
      EXPECT_EQ(d, alone2) << "method " << method << " round " << round;
    }
  }
  // Neither form's order depends on how many threads make it.
  graph g = graph_of(vekio::lap2d(70));
  for (int form : {0, 1}) {
    ivec perm1, invp1, parts1, perm3, invp3, parts3;
    dissect(g, 1, 8, perm1, invp1, parts1, form);
    dissect(g, 3, 8, perm3, invp3, parts3, form);
    EXPECT_EQ(perm1, perm3) << "form " << form;
    EXPECT_EQ(parts1, parts3) << "form " << form;
  }
}

// --- Node bisection -------------------------------------------------------

struct cut_result {
  ivec where;
  long weight[3] = {0, 0, 0};
};

// Bisects a one-based test graph (zero-based inside) and checks that no
// edge joins the two sides.
cut_result bisect(const graph &g, const ivec &vwgt, int runs, int threads) {
  ivec x(g.xadj), a(g.adjncy.begin(), g.adjncy.begin() + (g.xadj[g.n] - 1));
  for (int &v : x) --v;
  for (int &v : a) --v;
  cut_result r;
  r.where.assign(g.n, -1);
  EXPECT_EQ(node_bisection(g.n, x.data(), a.data(), vwgt.empty() ? nullptr : vwgt.data(), 400,
                           4321, runs, threads, r.where.data()),
            0);
  for (int v = 0; v < g.n; ++v) {
    EXPECT_TRUE(r.where[v] >= 0 && r.where[v] <= 2) << v;
    r.weight[r.where[v]] += vwgt.empty() ? 1 : vwgt[v];
    for (int p = x[v]; p < x[v + 1]; ++p)
      EXPECT_FALSE(r.where[v] + r.where[a[p]] == 1) << "edge " << v << "-" << a[p] << " is cut";
  }
  return r;
}

graph two_grids(int k) {
  edge_list e;
  for (int part = 0; part < 2; ++part)
    for (int i = 0; i < k; ++i)
      for (int j = 0; j < k; ++j) {
        const int v = 1 + part * k * k + i * k + j;
        if (j + 1 < k) e.push_back({v, v + 1});
        if (i + 1 < k) e.push_back({v, v + k});
      }
  return from_edges(2 * k * k, e);
}

TEST(OrderingBisection, SeparatorsAreSmallWithinTheBalanceAndTheSameOnAnyThreads) {
  // Grids: the separator is near the side of the square or the face of the
  // cube (a corner-cutting one is allowed: smaller, sides within 0.7).
  const graph grid = graph_of(vekio::lap2d(40)), cube = graph_of(vekio::lap3d(12));
  for (int runs : {1, 3}) {
    const cut_result g2 = bisect(grid, {}, runs, 1), g3 = bisect(cube, {}, runs, 1);
    EXPECT_LE(g2.weight[2], 44) << "runs " << runs;
    EXPECT_LE(g3.weight[2], 160) << "runs " << runs;
    for (const cut_result *r : {&g2, &g3}) {
      const long total = r->weight[0] + r->weight[1] + r->weight[2];
      EXPECT_LE(std::max(r->weight[0], r->weight[1]), 0.7 * total);
      EXPECT_GT(std::min(r->weight[0], r->weight[1]), 0);
    }
  }
  // Dense irregular graphs (as the basis matrices of linear programs give):
  // a separator of a third of the graph that leaves one side empty is
  // smaller than any true split, and is no bisection.
  for (int seed : {1, 2, 3}) {
    edge_list e;
    unsigned x = 12345u * seed;
    for (int v = 2; v <= 300; ++v)
      for (int k = 0; k < 12; ++k) {
        x = x * 1103515245u + 12345u;
        const int u = 1 + static_cast<int>((x >> 8) % static_cast<unsigned>(v - 1));
        e.push_back({u, v});
      }
    const cut_result d = bisect(from_edges(300, e), {}, 1, 1);
    EXPECT_GT(std::min(d.weight[0], d.weight[1]), 0) << "seed " << seed;
  }
  // Two components: a cut between them costs nothing.
  EXPECT_EQ(bisect(two_grids(12), {}, 1, 1).weight[2], 0);
  // Weighted vertices (as after compression): the balance is by weight.
  const graph cube8 = graph_of(vekio::lap3d(8));
  ivec vwgt(cube8.n);
  for (int v = 0; v < cube8.n; ++v) vwgt[v] = 1 + (v * 7919) % 5;
  const cut_result w = bisect(cube8, vwgt, 3, 1);
  const long total = w.weight[0] + w.weight[1] + w.weight[2];
  EXPECT_LE(std::max(w.weight[0], w.weight[1]), 0.7 * total);
  EXPECT_LE(w.weight[2], 0.2 * total);
  // The cuts that run in threads, and calls that run at the same time,
  // give what one thread gives.
  const ivec alone = bisect(grid, {}, 3, 1).where;
  EXPECT_EQ(bisect(grid, {}, 3, 2).where, alone);
  ivec a, b;
  std::thread t1([&] { a = bisect(grid, {}, 3, 2).where; });
  std::thread t2([&] { b = bisect(grid, {}, 3, 1).where; });
  t1.join();
  t2.join();
  EXPECT_EQ(a, alone);
  EXPECT_EQ(b, alone);
}

TEST(OrderingBisection, AwkwardGraphsGetValidOrdersAndIndependentParts) {
  std::vector<std::pair<const char *, graph>> cases;
  {
    // A clique of 260 (no small separator exists) beside isolated vertices.
    edge_list e;
    for (int a = 1; a <= 260; ++a)
      for (int b = a + 1; b <= 260; ++b) e.push_back({a, b});
    cases.push_back({"clique and isolated vertices", from_edges(300, e)});
  }
  {
    // A path just above the leaf size, and a star whose hub the dense-row
    // path takes out.
    edge_list path, star;
    for (int v = 1; v < 205; ++v) path.push_back({v, v + 1});
    for (int v = 2; v <= 400; ++v) star.push_back({1, v});
    for (int v = 2; v < 400; ++v) star.push_back({v, v + 1});
    cases.push_back({"path", from_edges(205, path)});
    cases.push_back({"star over a path", from_edges(400, star)});
  }
  {
    // Columns of equal structure (compressed into heavy vertices): a grid
    // with every node carrying three unknowns.
    const graph grid = graph_of(vekio::lap2d(15));
    edge_list e;
    for (auto &p : edges_of(grid))
      for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) e.push_back({3 * (p.first - 1) + a + 1, 3 * (p.second - 1) + b + 1});
    for (int v = 0; v < grid.n; ++v)
      for (int a = 0; a < 3; ++a)
        for (int b = a + 1; b < 3; ++b) e.push_back({3 * v + a + 1, 3 * v + b + 1});
    cases.push_back({"three unknowns a node", from_edges(3 * grid.n, e)});
  }
  for (auto &c : cases) {
    for (int threads : {1, 2}) {
      ivec perm, invp, parts;
      const int np = dissect(c.second, threads, 8, perm, invp, parts, 1);
      expect_independent_parts(c.second, invp, parts, np);
      if (HasFailure()) FAIL() << c.first << ", " << threads << " thread(s)";
    }
  }
}

TEST(OrderingBisection, ParallelDissectionFillIsNearTheReference) {
  for (const char *name : {"bcsstk13", "lap3d:16"}) {
    vekio::sparse m;
    if (name[0] == 'l') m = vekio::lap3d(16);
    else ASSERT_TRUE(vektest::load(name, m));
    graph g = graph_of(m);
    ivec perm, invp, parts, rperm, rinvp;
    const int np = dissect(g, 2, 8, perm, invp, parts, 1);
    expect_independent_parts(g, invp, parts, np);
    vektest::metis_order(g, rperm, rinvp);
    EXPECT_LE(fill_of(g, perm, invp), 1.05 * fill_of(g, rperm, rinvp)) << name;
  }
}

}  // namespace
