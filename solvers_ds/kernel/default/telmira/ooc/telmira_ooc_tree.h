// telmira_ooc_tree.h - the partition tree of a dissection into 32 parts,
// as the branch-by-branch out-of-core sweep and its memory plan see it.
//
// The parts list holds, as pairs of supernode ranges, the 32 leaves
// (pairs 0..31), the region behind the last leaf (pair 32, not a node) and
// the 31 separators in pre-order (pairs 33..63): the root is pair 33; a
// separator of pair k that covers w leaves from leaf b has its left child
// at pair k + 1 and its right child at pair k + w / 2 (separators), or, at
// w = 2, the leaves b and b + 1. Supernodes behind every range belong to
// the root.
//
// The tree is taken only when it is one that the sweep can rely on: every
// supernode in exactly one node, the parent of each supernode in its own
// node or an ancestor of it. Then a branch, the nodes from a leaf to the
// root, holds every target of the sources of the leaf.
#ifndef TELMIRA_OOC_TREE_H
#define TELMIRA_OOC_TREE_H

#include <cstdint>

namespace tlm {

constexpr int OOC_TREE_LEAVES = 32;
constexpr int OOC_TREE_PAIRS = 2 * OOC_TREE_LEAVES;
constexpr int OOC_TREE_ROOT = OOC_TREE_LEAVES + 1;
constexpr int OOC_TREE_LEVELS = 6;  // the nodes of a branch

struct ooc_tree {
  int parent[OOC_TREE_PAIRS];  // pair of the parent node, -1 for the root
  int lo[OOC_TREE_PAIRS];      // first leaf under the node, from 0
  int hi[OOC_TREE_PAIRS];      // last leaf under the node
  // The supernodes of node k, ascending: members[start[k] .. start[k+1]-1].
  int start[OOC_TREE_PAIRS + 1];
  const int *members;
};

// Builds the tree of a 32-part list (one-based supernode pairs, as after
// the symbolic phase). owner and members: nsuper entries of the caller;
// members is what tree->members points at. Returns false, and leaves the
// plan without a tree, when nparts is not 32 or the ranges do not make the
// tree described above.
bool ooc_tree_build(int nparts, const int *parts, int nsuper, const int *xsup,
                    const int *xlindx, const int *lindx, const int *snode, int *owner,
                    int *members, ooc_tree *tree);

// The branch of leaf (from 0): the nodes from the leaf up to the root, in
// path[0..5].
void ooc_tree_path(const ooc_tree &tree, int leaf, int *path);

// Value and index entries of the panels of node k: xlnz and xlindx spans of
// its supernodes.
void ooc_tree_node_size(const ooc_tree &tree, int k, const int *xsup, const int *xlnz,
                        const int *xlindx, std::int64_t *values, std::int64_t *index);

}  // namespace tlm

#endif
