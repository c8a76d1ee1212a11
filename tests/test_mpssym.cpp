// The symmetric matching preprocessing: pivots from the matching's cycles,
// compression of the 2x2 pairs, and the final order with its ranges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include "bitvec.h"
#include "mpssym.h"
#include "perm.h"
#include "service/vek_serv_memory.h"
#include "smat.h"
#include "test_heap.h"

namespace {

using tlm::pint;
typedef std::vector<int> ivec;
typedef std::set<std::pair<int, int>> edge_set;  // (i, j), i < j

// Diagonal value that stands for no stored diagonal entry.
const double missing = std::numeric_limits<double>::quiet_NaN();

// A symmetric matrix as the step takes it: upper triangle, diagonal first
// (where there is one), off-diagonal values -1.
template <class V> struct upper {
  int n = 0;
  std::vector<pint> ia, ja;
  std::vector<V> a;
  edge_set edges;
  tlm::smat<V> *wrap() { return tlm::smat_wrap<V>(n, n, ia.data(), ja.data(), a.data(), 1, 0); }
};

template <class V> upper<V> make_upper(int n, const edge_set &edges, const std::vector<double> &diag) {
  upper<V> u;
  u.n = n;
  u.edges = edges;
  std::vector<ivec> rows(n);
  for (auto &e : edges) rows[e.first].push_back(e.second);
  u.ia.push_back(0);
  for (int i = 0; i < n; ++i) {
    if (!std::isnan(diag[i])) u.ja.push_back(i), u.a.push_back(static_cast<V>(diag[i]));
    std::sort(rows[i].begin(), rows[i].end());
    for (int j : rows[i]) u.ja.push_back(j), u.a.push_back(V(-1));
    u.ia.push_back(static_cast<pint>(u.ja.size()));
  }
  return u;
}

edge_set path_edges(int n) {
  edge_set e;
  for (int i = 0; i + 1 < n; ++i) e.insert({i, i + 1});
  return e;
}

// mc64_i of a matching made of cycles: each element is matched with the
// next of its cycle.
ivec matching_of(int n, const std::vector<ivec> &cycles) {
  ivec m(n);
  std::iota(m.begin(), m.end(), 0);
  for (auto &c : cycles)
    for (size_t j = 0; j < c.size(); ++j) m[c[j]] = c[(j + 1) % c.size()];
  return m;
}

struct result {
  ivec order;  // old indices in final order
  ivec bits;   // per final position: 1 for a 1x1 pivot
  int nparts = 0;
  std::vector<pint> ranges, ddist;
};

// The step on the matching; status (null: it must succeed) takes its
// return.
template <class V>
result run(upper<V> &u, const ivec &matching, int method, int threads, int nparts,
           int *status = nullptr) {
  const int n = u.n;
  result r;
  r.order = matching;
  r.nparts = nparts;
  tlm::bvec *bits = tlm::bvec_new(n);
  r.ddist.assign(std::max(4 * nparts + 4, 16), -7);
  const int ok = bits == nullptr ? -1
                                 : tlm::mpssym_order<V>(&n, u.ia.data(), u.ja.data(), u.a.data(),
                                                        &method, &threads, r.order.data(), bits,
                                                        &r.nparts, r.ddist.data());
  if (status)
    *status = ok;
  else
    EXPECT_EQ(ok, 1);
  if (ok == 1) {
    for (int k = 0; k < n; ++k) r.bits.push_back(tlm::bvec_get(bits, k));
    r.ranges.assign(r.ddist.begin(), r.ddist.begin() + 2 * r.nparts);
  }
  tlm::bvec_free(bits);
  return r;
}

// What every result must satisfy. The order is a permutation. The pairs
// (clear bits, two at a time) stand side by side and follow the cycles of
// the matching as the pivot rule forms them: counted from the cycle's
// smallest element, which stays alone in an odd cycle. With weak diagonals
// every element of a longer cycle but that one is in a pair. The ranges are
// ascending, disjoint, inside 0..n-1, split no pair and share no edge.
template <class V>
void check_result(const upper<V> &u, const ivec &matching, const std::vector<ivec> &cycles,
                  const result &r) {
  const int n = u.n;
  ivec pos(n, -1), idx(n, 0), len(n, 1), paired(n, 0), second(n + 1, 0), range_of(n, -1);
  for (int k = 0; k < n; ++k) {
    ASSERT_TRUE(r.order[k] >= 0 && r.order[k] < n);
    ASSERT_EQ(pos[r.order[k]], -1) << "twice: " << r.order[k];
    pos[r.order[k]] = k;
  }
  for (auto &c : cycles) {
    const size_t s = std::min_element(c.begin(), c.end()) - c.begin();
    for (size_t j = 0; j < c.size(); ++j) idx[c[(s + j) % c.size()]] = int(j), len[c[j]] = int(c.size());
  }
  for (int k = 0; k < n; ++k) {
    if (r.bits[k]) continue;
    ASSERT_TRUE(k + 1 < n && !r.bits[k + 1]) << "lone clear bit at " << k;
    const int x = r.order[k], y = r.order[k + 1];
    EXPECT_EQ(matching[x], y) << "pair at " << k;
    EXPECT_EQ(idx[x] % 2, len[x] % 2) << "pair at " << k;
    paired[x] = paired[y] = second[k + 1] = 1;
    ++k;
  }
  for (int i = 0; i < n; ++i)
    EXPECT_EQ(paired[i], len[i] == 1 || (len[i] % 2 == 1 && idx[i] == 0) ? 0 : 1) << i;
  ASSERT_GE(r.nparts, 1);
  for (int p = 0; p < r.nparts; ++p) {
    const int f = r.ranges[2 * p], l = r.ranges[2 * p + 1];
    ASSERT_TRUE(0 <= f && f <= l && l < n) << p << ": " << f << ".." << l;
    if (p > 0) {
      EXPECT_LT(r.ranges[2 * p - 1], f);
    }
    EXPECT_FALSE(second[f] || second[l + 1]) << "range " << p << " splits a pair";
    for (int k = f; k <= l; ++k) range_of[k] = p;
  }
  for (auto &e : u.edges) {
    const int a = range_of[pos[e.first]], b = range_of[pos[e.second]];
    EXPECT_TRUE(a < 0 || b < 0 || a == b) << "edge across ranges " << e.first << "-" << e.second;
  }
}

// Pivot order (p[old] = position), bits and compressed matrix of a matching.
struct pivot_view {
  ivec p, bits, map;
  tlm::smat<double> *C = nullptr;
  ~pivot_view() { tlm::smat_free(C); }
};

void pivots_of(upper<double> &u, ivec matching, pivot_view *v) {
  const int n = u.n;
  tlm::smat<double> *A = u.wrap();
  tlm::perm M{static_cast<std::uint32_t>(n), matching.data()};
  tlm::perm *P = tlm::perm_new(n), *map = tlm::perm_new(n);
  tlm::bvec *bits = tlm::bvec_new(n);
  tlm::mpssym_pivots(A, &M, P, bits);
  v->C = tlm::smat_permute(A, P, 0);
  tlm::mpssym_compress(v->C, bits, map);
  v->p.assign(P->p, P->p + n);
  for (int k = 0; k < n; ++k) v->bits.push_back(tlm::bvec_get(bits, k));
  v->map.assign(map->p, map->p + v->C->m);
  tlm::perm_free(P);
  tlm::perm_free(map);
  tlm::bvec_free(bits);
  vek_serv_free(A);  // the record only: the arrays are the test's
}

// The graph of C without the diagonal, checking the upper form on the way,
// and the graph the pivots imply: a pair is one node, joined to a node when
// any of their members are.
edge_set graph_of(const tlm::smat<double> *C) {
  edge_set e;
  for (unsigned i = 0; i < C->m; ++i) {
    EXPECT_EQ(C->ja[C->ia[i]], pint(i)) << "diagonal first in row " << i;
    for (pint k = C->ia[i] + 1; k < C->ia[i + 1]; ++k) {
      EXPECT_GT(C->ja[k], C->ja[k - 1]);
      e.insert({int(i), C->ja[k]});
    }
  }
  return e;
}

edge_set compressed_oracle(const upper<double> &u, const pivot_view &v) {
  ivec node(u.n);
  for (int k = 0, c = 0; k < u.n; ++c, ++k) {
    node[k] = c;
    if (!v.bits[k]) node[++k] = c;
  }
  edge_set e;
  for (auto &x : u.edges) {
    int a = node[v.p[x.first]], b = node[v.p[x.second]];
    if (a != b) e.insert({std::min(a, b), std::max(a, b)});
  }
  return e;
}

// --- Small cases ---------------------------------------------------------

TEST(Mpssym, IdentityMatchingIsTheOrderOfTheMatrix) {
  const int n = 12;
  auto u = make_upper<double>(n, path_edges(n), std::vector<double>(n, 0.0));
  const ivec ident = matching_of(n, {});
  result r = run(u, ident, 0, 1, 4);
  EXPECT_EQ(r.bits, ivec(n, 1));
  EXPECT_EQ(r.nparts, 1);
  EXPECT_EQ(r.ranges, (std::vector<pint>{0, n - 1}));

  // No pair: the compressed matrix is the matrix, and the order is what
  // the minimum degree front end gives it.
  pivot_view v;
  pivots_of(u, ident, &v);
  EXPECT_EQ(v.p, ident);
  EXPECT_EQ(v.C->m, unsigned(n));
  EXPECT_EQ(graph_of(v.C), u.edges);
  tlm::perm *Q = tlm::perm_new(n);
  tlm::smat_order_mmd(v.C, Q);
  for (int k = 0; k < n; ++k) EXPECT_EQ(Q->p[r.order[k]], k);
  tlm::perm_free(Q);
}

TEST(Mpssym, OneExchangeWithWeakDiagonalsIsOnePair) {
  const int n = 6;
  const ivec matching = matching_of(n, {{1, 4}});
  for (double d : {0.0, 1e-8, missing}) {
    std::vector<double> diag(n, 1.0);
    diag[1] = diag[4] = d;
    auto u = make_upper<double>(n, path_edges(n), diag);
    if (!std::isnan(d)) {
      pivot_view v;
      pivots_of(u, matching, &v);
      EXPECT_EQ(v.p, (ivec{0, 4, 1, 2, 5, 3})) << d;  // fixed points first
      EXPECT_EQ(v.bits, (ivec{1, 1, 1, 1, 0, 0})) << d;
      EXPECT_EQ(v.C->m, unsigned(n - 1));
      EXPECT_EQ(graph_of(v.C), compressed_oracle(u, v));
      EXPECT_EQ(v.map, (ivec{0, 1, 2, 3, 4}));
    }
    for (int method = 0; method < 4; ++method) {
      result r = run(u, matching, method, 2, 4);
      check_result(u, matching, {{1, 4}}, r);
      EXPECT_EQ(std::count(r.bits.begin(), r.bits.end(), 0), 2) << d << " " << method;
      // Five compressed rows: no dissection, one part over everything.
      EXPECT_EQ(r.ranges, (std::vector<pint>{0, n - 1}));
    }
  }
}

TEST(Mpssym, StrongDiagonalsKeepTheExchangeAsTwo1x1Pivots) {
  const int n = 6;
  const ivec matching = matching_of(n, {{1, 4}});
  std::vector<double> diag(n, 0.0);
  diag[1] = 2e-8;
  diag[4] = -3.0;
  auto u = make_upper<double>(n, path_edges(n), diag);
  pivot_view v;
  pivots_of(u, matching, &v);
  EXPECT_EQ(v.bits, ivec(n, 1));
  EXPECT_EQ(v.p[1], 4);  // side by side at the place of the pair
  EXPECT_EQ(v.p[4], 5);
  EXPECT_EQ(v.C->m, unsigned(n));
  EXPECT_EQ(run(u, matching, 0, 1, 1).bits, ivec(n, 1));

  // Only one of the two above the threshold: still a pair.
  diag[1] = 1e-8;
  auto w = make_upper<double>(n, path_edges(n), diag);
  const ivec bits = run(w, matching, 0, 1, 1).bits;
  EXPECT_EQ(std::count(bits.begin(), bits.end(), 0), 2);
}

TEST(Mpssym, OddCycleSendsItsSmallestElementToTheBack) {
  const int n = 6;
  const std::vector<ivec> cycles = {{1, 3, 5}};
  const ivec matching = matching_of(n, cycles);
  auto u = make_upper<double>(n, path_edges(n), std::vector<double>(n, 0.0));
  pivot_view v;
  pivots_of(u, matching, &v);
  EXPECT_EQ(v.p, (ivec{0, 5, 1, 3, 2, 4}));
  EXPECT_EQ(v.bits, (ivec{1, 1, 1, 0, 0, 1}));
  EXPECT_EQ(graph_of(v.C), compressed_oracle(u, v));
  EXPECT_EQ(v.map, (ivec{0, 1, 2, 3, 5}));
  for (int method = 0; method < 4; ++method) check_result(u, matching, cycles, run(u, matching, method, 2, 2));
}

// --- A larger graph ------------------------------------------------------

TEST(Mpssym, RandomCyclesOnAGrid) {
  // 5-point grid with a few long edges; a matching of random cycles, one in
  // three a fixed point, the others of length 2 to 5.
  std::mt19937 rng(2024);
  const int k = 50, n = k * k;
  edge_set edges;
  for (int v = 0; v < n; ++v) {
    if (v % k + 1 < k) edges.insert({v, v + 1});
    if (v + k < n) edges.insert({v, v + k});
  }
  std::uniform_int_distribution<int> pick(0, n - 1), length(0, 5);
  for (int t = 0; t < 10; ++t) {
    int x = pick(rng), y = pick(rng);
    if (x != y) edges.insert({std::min(x, y), std::max(x, y)});
  }
  ivec shuffled = matching_of(n, {});
  std::shuffle(shuffled.begin(), shuffled.end(), rng);
  std::vector<ivec> cycles;
  for (int at = 0, len; at < n; at += len) {
    len = std::max(1, std::min(length(rng), n - at));
    cycles.push_back(ivec(shuffled.begin() + at, shuffled.begin() + at + len));
  }
  const ivec matching = matching_of(n, cycles);
  auto u = make_upper<double>(n, edges, std::vector<double>(n, 0.0));

  {
    pivot_view v;
    pivots_of(u, matching, &v);
    EXPECT_EQ(graph_of(v.C), compressed_oracle(u, v));
    EXPECT_EQ(v.C->m, unsigned(n - std::count(v.bits.begin(), v.bits.end(), 0) / 2));
  }
  for (int method = 0; method < 4; ++method) {
    for (int nparts : {4, 8}) {
      if (method < 2 && nparts == 8) continue;
      SCOPED_TRACE(::testing::Message() << "method " << method << " nparts " << nparts);
      result r = run(u, matching, method, 2, nparts);
      check_result(u, matching, cycles, r);
      EXPECT_TRUE(method < 2 ? r.nparts == 1 : r.nparts >= 2 && r.nparts <= nparts) << r.nparts;
    }
  }
  auto f = make_upper<float>(n, edges, std::vector<double>(n, 0.0));
  check_result(f, matching, cycles, run(f, matching, 2, 1, 4));

  // No stored diagonal in the rows of the longer cycles: the same pairs,
  // and no edge lost to the ranges.
  std::vector<double> diag(n, 1.0);
  for (auto &c : cycles)
    for (int x : c) diag[x] = c.size() > 1 ? missing : 1.0;
  auto w = make_upper<double>(n, edges, diag);
  for (int method = 2; method < 4; ++method) check_result(w, matching, cycles, run(w, matching, method, 2, 8));
}

TEST(Mpssym, EveryRefusedBlockGivesZeroAndLeavesNothingBehind) {
  // Each heap request of the step is refused in turn, for every ordering
  // method: the step ends with 0, the matching and the ranges as they were
  // for one part, and every block given back; or, where the refusal was
  // absorbed, with a sound order: that of an undisturbed run, except where
  // the domain decomposition of method 1 gave way to plain minimum degree.
  const int k = 12, n = k * k;
  edge_set edges;
  for (int v = 0; v < n; ++v) {
    if (v % k + 1 < k) edges.insert({v, v + 1});
    if (v + k < n) edges.insert({v, v + k});
  }
  std::vector<ivec> cycles;
  for (int v = 0; v + 3 <= n; v += 7) cycles.push_back({v, v + 1, v + 2});
  const ivec matching = matching_of(n, cycles);
  auto u = make_upper<double>(n, edges, std::vector<double>(n, 0.0));
  for (int method = 0; method < 4; ++method) {
    const result want = run(u, matching, method, 2, 4);
    int refused = 0;
    for (long fail = 1;; ++fail) {
      SCOPED_TRACE(::testing::Message() << "method " << method << " request " << fail);
      vek_serv_free_buffers();
      vektest::counted_heap heap;
      heap.fail_at = fail;
      int ok = 0;
      const result r = run(u, matching, method, 2, 4, &ok);
      vek_serv_free_buffers();
      EXPECT_EQ(heap.live, 0);
      if (ok == 0) {
        ++refused;
        EXPECT_EQ(r.order, matching);
        EXPECT_EQ(r.nparts, 1);
        EXPECT_EQ(std::vector<pint>(r.ddist.begin(), r.ddist.begin() + 4), (std::vector<pint>{0, n - 1, n, n}));
      } else if (ok == 1) {
        check_result(u, matching, cycles, r);
        if (method != 1) {
          EXPECT_EQ(r.order, want.order);
        }
        EXPECT_EQ(r.nparts, want.nparts);
      }
      if (heap.requests < fail) break;
    }
    EXPECT_GT(refused, 5);
  }
}

}  // namespace
