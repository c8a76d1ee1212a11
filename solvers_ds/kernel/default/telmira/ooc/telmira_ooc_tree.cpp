// telmira_ooc_tree.cpp - the partition tree of a 32-part dissection
// (telmira_ooc_tree.h).
#include "telmira_ooc_tree.h"

#include <cstdlib>

namespace tlm {

namespace {

// The separator of pair k covers w leaves from leaf b.
void link_separator(ooc_tree *t, int k, int w, int b) {
  t->lo[k] = b;
  t->hi[k] = b + w - 1;
  const int half = w / 2;
  if (half >= 2) {
    t->parent[k + 1] = k;
    t->parent[k + half] = k;
    link_separator(t, k + 1, half, b);
    link_separator(t, k + half, half, b + half);
  } else {
    t->parent[b] = k;
    t->parent[b + 1] = k;
  }
}

bool is_ancestor_or_self(const ooc_tree &t, int a, int k) {
  for (; k >= 0; k = t.parent[k])
    if (k == a) return true;
  return false;
}

}  // namespace

bool ooc_tree_build(int nparts, const int *parts, int nsuper, const int *xsup,
                    const int *xlindx, const int *lindx, const int *snode, int *owner,
                    int *members, ooc_tree *tree) {
  if (nparts != OOC_TREE_LEAVES || parts == nullptr || nsuper < 1) return false;
  ooc_tree &t = *tree;
  for (int k = 0; k < OOC_TREE_PAIRS; ++k) {
    t.parent[k] = -1;
    t.lo[k] = t.hi[k] = k < OOC_TREE_LEAVES ? k : -1;
  }
  link_separator(&t, OOC_TREE_ROOT, OOC_TREE_LEAVES, 0);
  t.members = members;

  // Owners by the ranges; a supernode in two ranges breaks the tree.
  for (int s = 0; s < nsuper; ++s) owner[s] = -1;
  for (int k = 0; k < OOC_TREE_PAIRS; ++k) {
    if (k == OOC_TREE_LEAVES) continue;
    const int f = parts[2 * k], l = parts[2 * k + 1];
    if (l < f) continue;
    if (f < 1 || l > nsuper) return false;
    for (int s = f; s <= l; ++s) {
      if (owner[s - 1] != -1) return false;
      owner[s - 1] = k;
    }
  }
  for (int s = nsuper; s >= 1 && owner[s - 1] == -1; --s) owner[s - 1] = OOC_TREE_ROOT;
  for (int s = 0; s < nsuper; ++s)
    if (owner[s] == -1) return false;

  // The parent of every supernode lies in its node or above it.
  for (int J = 1; J <= nsuper; ++J) {
    const int ncols = xsup[J] - xsup[J - 1], nrows = xlindx[J] - xlindx[J - 1];
    if (nrows <= ncols) continue;
    const int P = snode[lindx[xlindx[J - 1] - 1 + ncols] - 1];
    if (!is_ancestor_or_self(t, owner[P - 1], owner[J - 1])) return false;
  }

  // The members of each node, ascending.
  for (int k = 0; k <= OOC_TREE_PAIRS; ++k) t.start[k] = 0;
  for (int s = 0; s < nsuper; ++s) ++t.start[owner[s] + 1];
  for (int k = 0; k < OOC_TREE_PAIRS; ++k) t.start[k + 1] += t.start[k];
  int next[OOC_TREE_PAIRS];
  for (int k = 0; k < OOC_TREE_PAIRS; ++k) next[k] = t.start[k];
  for (int s = 0; s < nsuper; ++s) members[next[owner[s]]++] = s + 1;
  return true;
}

void ooc_tree_path(const ooc_tree &tree, int leaf, int *path) {
  int k = leaf;
  for (int l = 0; l < OOC_TREE_LEVELS; ++l) {
    path[l] = k;
    k = tree.parent[k];
  }
}

void ooc_tree_node_size(const ooc_tree &tree, int k, const int *xsup, const int *xlnz,
                        const int *xlindx, std::int64_t *values, std::int64_t *index) {
  *values = *index = 0;
  for (int m = tree.start[k]; m < tree.start[k + 1]; ++m) {
    const int J = tree.members[m];
    *values += std::abs(xlnz[xsup[J] - 1]) - std::abs(xlnz[xsup[J - 1] - 1]);
    *index += xlindx[J] - xlindx[J - 1];
  }
}

}  // namespace tlm
