// Fill-reducing ordering: adjacency builders, minimum degree (plain and
// constrained), domain decomposition, nested dissection and the driver.

#include <gtest/gtest.h>
#include <metis.h>

#include <algorithm>
#include <set>
#include <vector>

#include "ordering.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

struct graph {
  int n = 0;
  std::vector<int> xadj, adjncy;  // one-based
};

// Graph of A + A^T without the diagonal.
graph adjacency_of(const vekio::sparse &a) {
  graph g;
  g.n = a.n;
  g.xadj.assign(a.n + 1, 0);
  g.adjncy.assign(2 * static_cast<size_t>(a.nnz()) + 1, 0);
  std::vector<int> work(fulladj_unsym_work(a.n, a.nnz()));
  int n = a.n, nadj = 0;
  fulladj_unsym(&n, const_cast<int *>(a.ia.data()),
                const_cast<int *>(a.ja.data()), nullptr, g.xadj.data(),
                g.adjncy.data(), &nadj, work.data());
  return g;
}

// Graph from an edge list (one-based vertices).
graph from_edges(int n, const std::vector<std::pair<int, int>> &edges) {
  std::vector<std::set<int>> rows(n + 1);
  for (auto &e : edges) {
    rows[e.first].insert(e.second);
    rows[e.second].insert(e.first);
  }
  graph g;
  g.n = n;
  g.xadj.push_back(1);
  for (int i = 1; i <= n; ++i) {
    for (int c : rows[i]) g.adjncy.push_back(c);
    g.xadj.push_back(static_cast<int>(g.adjncy.size()) + 1);
  }
  g.adjncy.push_back(0);
  return g;
}

void expect_permutation(int n, const std::vector<int> &perm,
                        const std::vector<int> &invp) {
  std::vector<int> seen(n + 1, 0);
  for (int k = 1; k <= n; ++k) {
    int v = perm[k - 1];
    ASSERT_GE(v, 1);
    ASSERT_LE(v, n);
    ASSERT_EQ(seen[v]++, 0) << "vertex " << v << " twice";
    ASSERT_EQ(invp[v - 1], k);
  }
}

double fill_of(graph &g, std::vector<int> &perm, std::vector<int> &invp) {
  std::vector<int> cc(g.n), work(2 * g.n);
  double nnzl = 0, ops = 0;
  ordering_fill(&g.n, g.xadj.data(), g.adjncy.data(), perm.data(),
                invp.data(), cc.data(), work.data(), &nnzl, &ops);
  return nnzl;
}

// Minimum degree, plain (ncon 0) or constrained.
void mmd(graph &g, std::vector<int> &perm, std::vector<int> &invp,
         int maxint = 2147483647, int ncon = 0, int sepflag = 1) {
  const int n = g.n;
  std::vector<int> copy(g.adjncy), work(5 * n);
  perm.resize(n);
  invp.resize(n);
  int delta = 0, nofsub = 0, nn = n;
  genmmd_constrained(&nn, g.xadj.data(), copy.data(), invp.data(),
                     perm.data(), &delta, work.data(), work.data() + n,
                     work.data() + 2 * n, work.data() + 3 * n, &maxint,
                     &nofsub, &ncon, work.data() + 4 * n, &sepflag);
}

// Nested dissection; parts returned as found (one-based pairs).
int dissect(graph &g, int threads, int nparts, std::vector<int> &perm,
            std::vector<int> &invp, std::vector<int> &parts) {
  perm.assign(g.n, 0);
  invp.assign(g.n, 0);
  parts.assign(std::max(4 * nparts + 4, 1024), 0);
  int status = 0, nn = g.n;
  metis_nd(&nn, g.xadj.data(), g.adjncy.data(), &threads, perm.data(),
           invp.data(), &nparts, parts.data(), &status);
  EXPECT_EQ(status, 0);
  return nparts;
}

// Pairs 1..nparts are disjoint ranges in ascending order, and no edge joins
// two different parts; everything else (the top region) lies after them.
void expect_independent_parts(graph &g, const std::vector<int> &invp,
                              const std::vector<int> &parts, int nparts) {
  std::vector<int> part_of(g.n + 1, 0);
  int prev = 0;
  for (int k = 1; k <= nparts; ++k) {
    int first = parts[2 * (k - 1)], last = parts[2 * (k - 1) + 1];
    ASSERT_GT(first, prev) << "pair " << k;
    ASSERT_GE(last, first - 1);
    ASSERT_LE(last, g.n);
    for (int p = first; p <= last; ++p) part_of[p] = k;
    prev = last;
  }
  for (int v = 1; v <= g.n; ++v)
    for (int p = g.xadj[v - 1]; p < g.xadj[v]; ++p) {
      int a = part_of[invp[v - 1]], b = part_of[invp[g.adjncy[p - 1] - 1]];
      if (a && b) {
        ASSERT_EQ(a, b) << "edge " << v << "-" << g.adjncy[p - 1];
      }
    }
}

std::vector<int> comi_block() {
  std::vector<int> comi(128, 0);
  comi[9 - 1] = 2147483647;
  comi[15 - 1] = 1;
  comi[17 - 1] = 1;
  comi[60 - 1] = 32;
  comi[61 - 1] = 1024;
  return comi;
}

struct driver_result {
  std::vector<int> perm, invp, parts, xadj, adjncy;
  double times[2] = {0, 0};
};

driver_result run_sssord(vekio::sparse &a, std::vector<int> &comi,
                         std::vector<int> *user_perm = nullptr) {
  driver_result r;
  int n = a.n;
  r.perm.assign(n, 0);
  r.invp.assign(n, 0);
  r.parts.assign(comi[61 - 1], 0);
  r.xadj.assign(n + 1, 0);
  r.adjncy.assign(2 * static_cast<size_t>(a.nnz()) + 1, 0);
  sssord(&n, a.ia.data(), a.ja.data(), comi.data(),
         user_perm ? user_perm->data() : nullptr, nullptr, r.xadj.data(),
         r.adjncy.data(), r.perm.data(), r.invp.data(), r.parts.data(),
         r.times);
  return r;
}

// --- Adjacency ----------------------------------------------------------

TEST(OrderingAdjacency, TriangleSerialParallelAndFullAgree) {
  vekio::sparse full = vekio::lap2d(7);
  // A dense row and column exercise counts across the split point.
  vekio::sparse a;
  a.n = full.n;
  a.ia.push_back(1);
  for (int i = 1; i <= a.n; ++i) {
    std::set<int> cols;
    for (int p = full.ia[i - 1]; p < full.ia[i]; ++p) cols.insert(full.ja[p - 1]);
    if (i == 3)
      for (int c = 1; c <= a.n; ++c) cols.insert(c);
    else
      cols.insert(3);
    for (int c : cols) a.ja.push_back(c);
    a.ia.push_back(static_cast<int>(a.ja.size()) + 1);
  }
  a.a.assign(a.ja.size(), 1.0);
  vekio::sparse upper = vekio::storage_for_type(a, 2);
  int n = a.n, one = 1, two = 2, tri = 1, notri = 0;
  const int nadj = a.nnz() - n;
  std::vector<int> x1(n + 1), a1(nadj), x2(n + 1), a2(nadj), x3(n + 1),
      a3(nadj);
  ladj_mod(&n, upper.ia.data(), upper.ja.data(), &one, &tri, x1.data(),
           a1.data());
  ladj_mod(&n, upper.ia.data(), upper.ja.data(), &two, &tri, x2.data(),
           a2.data());
  ladj_mod(&n, a.ia.data(), a.ja.data(), &two, &notri, x3.data(), a3.data());
  EXPECT_EQ(x1, x2);
  EXPECT_EQ(a1, a2);
  EXPECT_EQ(x1, x3);
  EXPECT_EQ(a1, a3);  // both ascending within a row
  EXPECT_EQ(x1[n], nadj + 1);
}

TEST(OrderingAdjacency, UnsymmetricPatternIsSymmetrisedInRowOrder) {
  // Rows: 1:{1,3} 2:{1,2} 3:{3,4} 4:{2}
  vekio::sparse a;
  a.n = 4;
  a.ia = {1, 3, 5, 7, 8};
  a.ja = {1, 3, 1, 2, 3, 4, 2};
  std::vector<int> xadj(5), adjncy(16), work(fulladj_unsym_work(4, 7));
  int n = 4, nadj = 0;
  fulladj_unsym(&n, a.ia.data(), a.ja.data(), nullptr, xadj.data(),
                adjncy.data(), &nadj, work.data());
  EXPECT_EQ(nadj, 8);
  std::vector<int> expect_x = {1, 3, 5, 7, 9};
  std::vector<int> expect_a = {2, 3, 1, 4, 1, 4, 2, 3};
  EXPECT_EQ(xadj, expect_x);
  EXPECT_EQ(std::vector<int>(adjncy.begin(), adjncy.begin() + 8), expect_a);
  // Rows taken in the order 4,3,2,1: B = P A.
  std::vector<int> order = {4, 3, 2, 1};
  fulladj_unsym(&n, a.ia.data(), a.ja.data(), order.data(), xadj.data(),
                adjncy.data(), &nadj, work.data());
  // B rows: 1:{2} 2:{3,4} 3:{1,2} 4:{1,3}; B + B^T off the diagonal.
  std::vector<int> expect_x2 = {1, 4, 7, 10, 13};
  std::vector<int> expect_a2 = {2, 3, 4, 1, 3, 4, 1, 2, 4, 1, 2, 3};
  EXPECT_EQ(xadj, expect_x2);
  EXPECT_EQ(std::vector<int>(adjncy.begin(), adjncy.begin() + 12), expect_a2);
}

// --- Minimum degree -------------------------------------------------------

TEST(OrderingMinimumDegree, TreesAreOrderedWithoutFill) {
  // Path 1-2-...-30, star centred at 5, and a binary tree of 63 vertices.
  std::vector<std::pair<int, int>> path, star, tree;
  for (int i = 1; i < 30; ++i) path.push_back({i, i + 1});
  for (int i = 1; i <= 20; ++i)
    if (i != 5) star.push_back({5, i});
  for (int i = 2; i <= 63; ++i) tree.push_back({i / 2, i});
  for (auto *edges : {&path, &star, &tree}) {
    int n = 0;
    for (auto &e : *edges) n = std::max({n, e.first, e.second});
    graph g = from_edges(n, *edges);
    std::vector<int> perm, invp;
    mmd(g, perm, invp);
    expect_permutation(n, perm, invp);
    EXPECT_EQ(fill_of(g, perm, invp), 2.0 * n - 1) << "n " << n;
  }
  graph g = from_edges(20, star);
  std::vector<int> perm, invp;
  mmd(g, perm, invp);
  EXPECT_EQ(perm[19], 5);  // the centre goes last
}

TEST(OrderingMinimumDegree, IsolatedNodesFirstAndGridsBeatTheBand) {
  // A 12x12 grid plus three isolated vertices.
  vekio::sparse a = vekio::lap2d(12);
  graph grid = adjacency_of(a);
  std::vector<std::pair<int, int>> edges;
  for (int v = 1; v <= grid.n; ++v)
    for (int p = grid.xadj[v - 1]; p < grid.xadj[v]; ++p)
      edges.push_back({v, grid.adjncy[p - 1]});
  graph g = from_edges(grid.n + 3, edges);
  std::vector<int> perm, invp;
  mmd(g, perm, invp);
  expect_permutation(g.n, perm, invp);
  std::set<int> first3(perm.begin(), perm.begin() + 3);
  EXPECT_EQ(first3, (std::set<int>{145, 146, 147}));

  std::vector<int> nperm(grid.n), ninvp(grid.n);
  for (int i = 0; i < grid.n; ++i) nperm[i] = ninvp[i] = i + 1;
  std::vector<int> gperm, ginvp;
  mmd(grid, gperm, ginvp);
  EXPECT_LT(fill_of(grid, gperm, ginvp), 0.8 * fill_of(grid, nperm, ninvp));
}

TEST(OrderingMinimumDegree, TagOverflowGivesTheSameOrder) {
  graph g = adjacency_of(vekio::lap2d(15));
  std::vector<int> p1, i1, p2, i2;
  mmd(g, p1, i1);
  mmd(g, p2, i2, 300);  // the marks wrap many times
  EXPECT_EQ(p1, p2);
  EXPECT_EQ(i1, i2);
}

TEST(OrderingMinimumDegree, ReservedNodesStayLastAsGiven) {
  graph g = adjacency_of(vekio::lap2d(10));
  const int n = g.n, ncon = 10;
  // Reserve the middle column of the grid, in a given order.
  std::vector<int> given(n);
  std::vector<int> reserved;
  for (int r = 0; r < 10; ++r) reserved.push_back(r * 10 + 5);
  std::reverse(reserved.begin(), reserved.end());
  int k = 0;
  for (int v = 1; v <= n; ++v)
    if (std::find(reserved.begin(), reserved.end(), v) == reserved.end())
      given[k++] = v;
  for (int v : reserved) given[k++] = v;

  std::vector<int> perm = given, invp(n);
  mmd(g, perm, invp, 2147483647, ncon, 0);
  expect_permutation(n, perm, invp);
  EXPECT_EQ(std::vector<int>(perm.end() - ncon, perm.end()), reserved);

  perm = given;
  mmd(g, perm, invp, 2147483647, ncon, 1);
  expect_permutation(n, perm, invp);
  std::set<int> tail(perm.end() - ncon, perm.end());
  EXPECT_EQ(tail, std::set<int>(reserved.begin(), reserved.end()));
  // The separator splits the grid: the two halves need no more fill than
  // the order the constraint allows.
  std::vector<int> fperm, finvp;
  mmd(g, fperm, finvp);
  EXPECT_LT(fill_of(g, perm, invp), 1.5 * fill_of(g, fperm, finvp));
}

// --- Domain decomposition and dissection -----------------------------------

TEST(OrderingDecomposition, SeparatorIsLastAndSplitsTheDomains) {
  graph g = adjacency_of(vekio::lap2d(20));
  const int n = g.n;
  std::vector<int> perm(n), invp(n);
  int nparts = 4, nn = n, ncon = 0, status = 0;
  ddecomp(&nparts, &nn, g.xadj.data(), g.adjncy.data(), perm.data(),
          invp.data(), &ncon, &status);
  ASSERT_EQ(status, 0);
  expect_permutation(n, perm, invp);
  EXPECT_GT(ncon, 2);
  EXPECT_LT(ncon, n / 4);
  // Without the separator the interior falls into at least 4 components.
  const int ninterior = n - ncon + 2;
  std::vector<int> comp(n + 1, 0);
  int ncomp = 0;
  for (int s = 1; s <= n; ++s) {
    if (invp[s - 1] > ninterior || comp[s]) continue;
    ++ncomp;
    std::vector<int> stack = {s};
    comp[s] = ncomp;
    while (!stack.empty()) {
      int v = stack.back();
      stack.pop_back();
      for (int p = g.xadj[v - 1]; p < g.xadj[v]; ++p) {
        int u = g.adjncy[p - 1];
        if (invp[u - 1] <= ninterior && !comp[u]) {
          comp[u] = ncomp;
          stack.push_back(u);
        }
      }
    }
  }
  EXPECT_GE(ncomp, 4);
  // One part asked for: nothing happens.
  int one = 1;
  ddecomp(&one, &nn, g.xadj.data(), g.adjncy.data(), perm.data(),
          invp.data(), &ncon, &status);
  EXPECT_EQ(ncon, 0);
}

TEST(OrderingDissection, PartsAreIndependentAndSeparatorsSeparate) {
  graph g = adjacency_of(vekio::lap2d(40));
  for (int threads : {1, 2}) {
    std::vector<int> perm, invp, parts;
    int np = dissect(g, threads, 8, perm, invp, parts);
    expect_permutation(g.n, perm, invp);
    EXPECT_EQ(np, 8);
    expect_independent_parts(g, invp, parts, np);
    // Parts and separators (still interleaved, as the recursion left
    // them) cover every position once.
    std::vector<int> used(g.n + 1, 0);
    for (int k = 1; k <= 2 * np; ++k) {
      if (k == np + 1) continue;
      int first = parts[2 * (k - 1)], last = parts[2 * (k - 1) + 1];
      ASSERT_GE(first, 1) << "pair " << k;
      for (int p = first; p <= last; ++p) used[p]++;
    }
    for (int p = 1; p <= g.n; ++p) EXPECT_EQ(used[p], 1) << "position " << p;
  }
}

TEST(OrderingDissection, SmallGraphIsStillBisectedAndFillIsNearTheReference) {
  std::vector<std::pair<int, int>> path;
  for (int i = 1; i < 50; ++i) path.push_back({i, i + 1});
  graph p = from_edges(50, path);
  std::vector<int> perm, invp, parts;
  int np = dissect(p, 1, 2, perm, invp, parts);
  EXPECT_EQ(np, 2);
  expect_independent_parts(p, invp, parts, np);

  vekio::sparse a;
  ASSERT_TRUE(vektest::load("bcsstk13", a));
  graph g = adjacency_of(a);
  dissect(g, 1, 32, perm, invp, parts);
  expect_permutation(g.n, perm, invp);
  std::vector<idx_t> x(g.xadj.begin(), g.xadj.end()),
      adj(g.adjncy.begin(), g.adjncy.begin() + g.xadj[g.n] - 1), rp(g.n),
      ri(g.n);
  for (auto &v : x) --v;
  for (auto &v : adj) --v;
  idx_t nn = g.n;
  METIS_NodeND(&nn, x.data(), adj.data(), nullptr, nullptr, rp.data(),
               ri.data());
  std::vector<int> rperm(g.n), rinvp(g.n);
  for (int i = 0; i < g.n; ++i) {
    rperm[i] = rp[i] + 1;
    rinvp[i] = ri[i] + 1;
  }
  EXPECT_LE(fill_of(g, perm, invp), 1.10 * fill_of(g, rperm, rinvp));
}

TEST(OrderingDissection, DenseRowsAreNumberedLast) {
  graph grid = adjacency_of(vekio::lap2d(20));
  std::vector<std::pair<int, int>> edges;
  for (int v = 1; v <= grid.n; ++v)
    for (int p = grid.xadj[v - 1]; p < grid.xadj[v]; ++p)
      edges.push_back({v, grid.adjncy[p - 1]});
  const int dense = grid.n + 1;
  for (int v = 1; v <= grid.n; ++v) edges.push_back({v, dense});
  graph g = from_edges(dense, edges);
  std::vector<int> perm, invp, parts;
  int np = dissect(g, 1, 4, perm, invp, parts);
  expect_permutation(g.n, perm, invp);
  EXPECT_EQ(perm[g.n - 1], dense);
  // Without the dense vertex the parts are still independent.
  expect_independent_parts(grid, invp, parts, np);
}

TEST(OrderingDissection, IndistinguishableVerticesStayTogether) {
  // Three unknowns at every point of a 24x24 grid, all coupled.
  graph grid = adjacency_of(vekio::lap2d(24));
  std::vector<std::pair<int, int>> edges;
  for (int v = 1; v <= grid.n; ++v) {
    for (int a = 0; a < 3; ++a)
      for (int b = a + 1; b < 3; ++b)
        edges.push_back({3 * (v - 1) + a + 1, 3 * (v - 1) + b + 1});
    for (int p = grid.xadj[v - 1]; p < grid.xadj[v]; ++p)
      for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
          edges.push_back({3 * (v - 1) + a + 1,
                           3 * (grid.adjncy[p - 1] - 1) + b + 1});
  }
  graph g = from_edges(3 * grid.n, edges);
  std::vector<int> perm, invp, parts;
  int np = dissect(g, 1, 4, perm, invp, parts);
  expect_permutation(g.n, perm, invp);
  expect_independent_parts(g, invp, parts, np);
  for (int v = 0; v < grid.n; ++v) {
    int lo = std::min({invp[3 * v], invp[3 * v + 1], invp[3 * v + 2]});
    int hi = std::max({invp[3 * v], invp[3 * v + 1], invp[3 * v + 2]});
    EXPECT_EQ(hi - lo, 2) << "point " << v + 1;
  }
  // Pairs cover whole points: no range ends inside a group of three.
  for (int k = 1; k <= np; ++k) EXPECT_EQ(parts[2 * k - 1] % 3, 0);
}

// --- Driver ----------------------------------------------------------------

TEST(OrderingDriver, DissectionRegroupsPartsInFrontOfTheSeparators) {
  vekio::sparse full = vekio::lap2d(30);
  vekio::sparse upper = vekio::storage_for_type(full, 2);
  std::vector<int> comi = comi_block();
  comi[12 - 1] = 2;
  comi[14 - 1] = 2;
  comi[19 - 1] = 1;
  comi[60 - 1] = 4;
  driver_result r = run_sssord(upper, comi);
  ASSERT_EQ(comi[50 - 1], 0);
  const int n = full.n, np = comi[60 - 1];
  ASSERT_EQ(np, 4);
  expect_permutation(n, r.perm, r.invp);
  graph g = adjacency_of(full);
  expect_independent_parts(g, r.invp, r.parts, np);
  EXPECT_EQ(r.parts[0], 1);
  EXPECT_EQ(r.parts[2 * np], r.parts[2 * np - 1] + 1);  // top region
  EXPECT_EQ(r.parts[2 * np + 1], n);
  // The separators tile the top region, the top one last.
  std::vector<int> cover(n + 1, 0);
  for (int k = np + 2; k <= 2 * np; ++k)
    for (int p = r.parts[2 * (k - 1)]; p <= r.parts[2 * (k - 1) + 1]; ++p)
      ++cover[p];
  for (int p = r.parts[2 * np]; p <= n; ++p) EXPECT_EQ(cover[p], 1) << p;
  EXPECT_EQ(r.parts[2 * (np + 1) + 1], n);
}

TEST(OrderingDriver, CallersPermutationAndMethodsWithOnePart) {
  vekio::sparse full = vekio::lap2d(9);
  const int n = full.n;
  std::vector<int> mine(n);
  for (int i = 0; i < n; ++i) mine[i] = n - i;
  std::vector<int> comi = comi_block();
  comi[12 - 1] = 11;
  comi[14 - 1] = 2;
  comi[21 - 1] = 1;
  driver_result r = run_sssord(full, comi, &mine);
  EXPECT_EQ(r.perm, mine);
  expect_permutation(n, r.perm, r.invp);
  EXPECT_EQ(comi[60 - 1], 1);
  EXPECT_EQ(std::vector<int>(r.parts.begin(), r.parts.begin() + 4),
            (std::vector<int>{1, n - 1, n, n}));
  EXPECT_EQ(comi[4 - 1], full.nnz() - n);  // adjacency built all the same

  // Mode 2: the computed order goes back to the caller, by every method.
  for (int method = 0; method <= 3; ++method) {
    comi = comi_block();
    comi[12 - 1] = 11;
    comi[14 - 1] = method;
    comi[15 - 1] = 2;
    comi[21 - 1] = 2;
    std::fill(mine.begin(), mine.end(), 0);
    r = run_sssord(full, comi, &mine);
    ASSERT_EQ(comi[50 - 1], 0);
    expect_permutation(n, r.perm, r.invp);
    EXPECT_EQ(mine, r.perm) << "method " << method;
    if (method < 2) {
      EXPECT_EQ(comi[60 - 1], 1);
    }
  }
}

TEST(OrderingDriver, OrderOne) {
  vekio::sparse a = vekio::diagonal(1);
  for (int method = 0; method <= 3; ++method) {
    std::vector<int> comi = comi_block();
    comi[12 - 1] = 2;
    comi[14 - 1] = method;
    driver_result r = run_sssord(a, comi);
    EXPECT_EQ(comi[50 - 1], 0);
    EXPECT_EQ(r.perm[0], 1);
    EXPECT_EQ(r.invp[0], 1);
    EXPECT_EQ(comi[60 - 1], 1);
    EXPECT_EQ(std::vector<int>(r.parts.begin(), r.parts.begin() + 4),
              (std::vector<int>{1, 0, 1, 1}));
  }
}

}  // namespace
