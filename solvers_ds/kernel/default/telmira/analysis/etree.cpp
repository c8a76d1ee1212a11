// etree.cpp - elimination tree of the permuted graph and its child lists.
#include "symbolic.h"

namespace tlm {

// One column of Liu's algorithm: every neighbour i < j is followed up to the
// root of its current subtree, compressing the path onto j; a root other
// than j becomes a child of j.
static inline void etree_column(int j, const int *xadj, const int *adjncy,
                                const int *perm, const int *invp, int *parent,
                                int *ancestor) {
  const int node = perm[j - 1];
  for (int p = xadj[node - 1]; p < xadj[node]; ++p) {
    int r = invp[adjncy[p - 1] - 1];
    if (r >= j) continue;
    for (;;) {
      const int a = ancestor[r - 1];
      if (a == j) break;
      if (a == 0) {
        ancestor[r - 1] = j;
        parent[r - 1] = j;
        break;
      }
      ancestor[r - 1] = j;
      r = a;
    }
  }
}

void etree(const int *n, const int *xadj, const int *adjncy, const int *perm,
           const int *invp, const int *nparts, const int *parts, int *parent,
           int *ancestor) {
  const int neqns = *n;
  for (int j = 0; j < neqns; ++j) {
    parent[j] = 0;
    ancestor[j] = 0;
  }
  const int np = *nparts;

  // Columns of the independent parts.
  for (int k = 0; k < np; ++k) {
    const int first = parts[2 * k], last = parts[2 * k + 1];
    for (int j = first; j <= last; ++j)
      etree_column(j, xadj, adjncy, perm, invp, parent, ancestor);
  }
  // Columns between the parts, then the rest.
  int end = 0;
  for (int k = 0; k < np; ++k) {
    const int first = parts[2 * k], last = parts[2 * k + 1];
    if (last < first) continue;
    for (int j = end + 1; j < first; ++j)
      etree_column(j, xadj, adjncy, perm, invp, parent, ancestor);
    if (last > end) end = last;
  }
  for (int j = end + 1; j <= neqns; ++j)
    etree_column(j, xadj, adjncy, perm, invp, parent, ancestor);
}

void etree_children(const int *n, const int *parent, int *fchild,
                    int *sibling) {
  const int neqns = *n;
  for (int j = 0; j < neqns; ++j) {
    fchild[j] = 0;
    sibling[j] = 0;
  }
  // Backwards, so that each list comes out ascending.
  for (int j = neqns; j >= 1; --j) {
    const int p = parent[j - 1];
    if (p == 0) continue;
    sibling[j - 1] = fchild[p - 1];
    fchild[p - 1] = j;
  }
}

}  // namespace tlm
