// sfinit.cpp - first stage of the symbolic factorization: elimination tree,
// column counts, supernodes, and the parts in supernode numbers.
#include <climits>

#include "symbolic.h"
#include "telmira_slots.h"

namespace tlm {

void sfinit_supernodes(const int *n, const int *parent, const int *colcnt,
                       const int *panel, int *snode, int *xsup, int *nsuper,
                       int *widest, long long *nofnz) {
  const int neqns = *n;
  *nsuper = 0;
  *widest = 0;
  *nofnz = 0;
  if (neqns < 1) {
    xsup[0] = 1;
    return;
  }
  const int limit = *panel > 0 ? *panel : 1;

  // Column j joins the supernode of j-1 when j is the parent of j-1 and its
  // structure is that of j-1 without the diagonal. The chain length is
  // followed across the panel limit.
  int ns = 1, width = 1, chain = 1, widest_chain = 1;
  long long lindx_len = colcnt[0];
  snode[0] = 1;
  for (int j = 2; j <= neqns; ++j) {
    const bool nested =
        parent[j - 2] == j && colcnt[j - 1] + 1 == colcnt[j - 2];
    chain = nested ? chain + 1 : 1;
    if (chain > widest_chain) widest_chain = chain;
    if (nested && width < limit) {
      ++width;
    } else {
      ++ns;
      width = 1;
      lindx_len += colcnt[j - 1];
    }
    snode[j - 1] = ns;
  }

  // First columns, from a backward sweep over snode.
  xsup[ns] = neqns + 1;
  for (int j = neqns; j >= 2; --j)
    if (snode[j - 1] != snode[j - 2]) xsup[snode[j - 1] - 1] = j;
  xsup[0] = 1;

  *nsuper = ns;
  *widest = widest_chain;
  *nofnz = lindx_len;
}

// New last of a column range: the supernode of the last column, less one
// when that supernode goes on past the range.
static inline int part_last(int last, int neqns, const int *snode) {
  if (last < 1 || last > neqns) return last;
  const int s = snode[last - 1];
  if (last < neqns && snode[last] == s) return s - 1;
  return s;
}

static inline int part_first(int first, int neqns, const int *snode) {
  if (first < 1 || first > neqns) return first;
  return snode[first - 1];
}

void sfinit_parts(const int *n, const int *nparts, const int *snode,
                  const int *nsuper, int *parts) {
  const int neqns = *n, np = *nparts;
  if (np < 1) return;
  // Each pair depends only on its own columns, so the conversion runs in
  // place; the top region follows the last part.
  for (int k = 0; k < np; ++k) {
    parts[2 * k] = part_first(parts[2 * k], neqns, snode);
    parts[2 * k + 1] = part_last(parts[2 * k + 1], neqns, snode);
  }
  parts[2 * np] = parts[2 * np - 1] + 1;
  parts[2 * np + 1] = *nsuper;
  for (int k = np + 1; k < 2 * np; ++k) {
    parts[2 * k] = part_first(parts[2 * k], neqns, snode);
    parts[2 * k + 1] = part_last(parts[2 * k + 1], neqns, snode);
  }
}

void sfinit(const int *n, const int *xadj, const int *adjncy, const int *perm,
            const int *invp, int *parts, int *colcnt, int *snode, int *xsup,
            int *work, int *comi, int *error) {
  const int neqns = *n;
  const int np = comi[CI_NPARTS - 1];
  *error = 0;

  int *parent = work;
  int *ancestor = work + neqns;
  int *fchild = work + neqns;  // the ancestors are no longer needed then
  int *sibling = work + 2 * neqns;

  etree(n, xadj, adjncy, perm, invp, &np, parts, parent, ancestor);
  etree_children(n, parent, fchild, sibling);

  long long lcount = 0;
  lnnt(n, xadj, adjncy, perm, invp, parent, colcnt, &lcount, nullptr, error);
  if (*error != 0) return;

  int nsuper = 0, widest = 0;
  long long nofnz = 0;
  sfinit_supernodes(n, parent, colcnt, &comi[CI_PANEL - 1], snode, xsup, &nsuper,
                    &widest, &nofnz);
  sfinit_parts(n, &np, snode, &nsuper, parts);

  comi[CI_L_ENTRIES - 1] = lcount > INT_MAX ? INT_MAX : static_cast<int>(lcount);
  comi[CI_NSUPER - 1] = nsuper;
  comi[CI_WIDEST - 1] = widest;
  comi[CI_LINDX_LEN - 1] = nofnz > INT_MAX ? INT_MAX : static_cast<int>(nofnz);
}

}  // namespace tlm
