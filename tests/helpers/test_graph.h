// test_graph.h - symmetric graphs for the ordering and symbolic tests:
// one-based adjacency without the diagonal, built from sets, edge lists or
// the pattern of A + A^T, and the partitioner's nested dissection as a
// reference order.
#ifndef VEK_TEST_GRAPH_H
#define VEK_TEST_GRAPH_H

#include <metis.h>

#include <set>
#include <utility>
#include <vector>

#include "vekio.h"

namespace vektest {

struct graph {
  int n = 0;
  std::vector<int> xadj, adjncy;  // one-based; adjncy never empty
};
typedef std::vector<std::set<int>> adjacency_sets;  // zero-based
typedef std::vector<std::pair<int, int>> edge_list;  // one-based

inline void add_edge(adjacency_sets &adj, int i, int j) {
  if (i == j) return;
  adj[i].insert(j);
  adj[j].insert(i);
}

inline graph from_sets(const adjacency_sets &adj) {
  graph g;
  g.n = static_cast<int>(adj.size());
  g.xadj.push_back(1);
  for (const auto &row : adj) {
    for (int j : row) g.adjncy.push_back(j + 1);
    g.xadj.push_back(static_cast<int>(g.adjncy.size()) + 1);
  }
  g.adjncy.push_back(0);
  return g;
}

inline graph from_edges(int n, const edge_list &edges) {
  adjacency_sets adj(n);
  for (auto &e : edges) add_edge(adj, e.first - 1, e.second - 1);
  return from_sets(adj);
}

// Each edge twice, once from either end.
inline edge_list edges_of(const graph &g) {
  edge_list edges;
  for (int v = 1; v <= g.n; ++v)
    for (int p = g.xadj[v - 1]; p < g.xadj[v]; ++p) edges.push_back({v, g.adjncy[p - 1]});
  return edges;
}

inline graph graph_of(const vekio::sparse &a) {
  adjacency_sets adj(a.n);
  for (int i = 0; i < a.n; ++i)
    for (int p = a.ia[i]; p < a.ia[i + 1]; ++p) add_edge(adj, i, a.ja[p - 1] - 1);
  return from_sets(adj);
}

// The partitioner's nested dissection: perm (new to old) and invp, one-based.
inline void metis_order(const graph &g, std::vector<int> &perm, std::vector<int> &invp) {
  idx_t n = g.n;
  std::vector<idx_t> xadj(g.xadj.begin(), g.xadj.end()),
      adjncy(g.adjncy.begin(), g.adjncy.end()), p(n), ip(n);
  for (auto &v : xadj) --v;
  for (auto &v : adjncy) --v;
  METIS_NodeND(&n, xadj.data(), adjncy.data(), nullptr, nullptr, p.data(), ip.data());
  perm.assign(p.begin(), p.end());
  invp.assign(ip.begin(), ip.end());
  for (int k = 0; k < g.n; ++k) ++perm[k], ++invp[k];
}

}  // namespace vektest

#endif
