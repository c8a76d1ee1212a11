// ordering_fill.cpp - the fill that an order implies: elimination tree and
// column counts by row subtrees.

#include "ordering.h"

void ordering_fill(int *n_, int *xadj_, int *adjncy_, int *perm_, int *invp_,
                   int *colcnt_, int *work, double *nnzl, double *ops) {
  const int n = *n_;
  const int *xadj = xadj_ - 1;
  const int *adjncy = adjncy_ - 1;
  const int *perm = perm_ - 1;
  const int *invp = invp_ - 1;
  int *parent = work - 1;
  int *mark = work + n - 1;
  *nnzl = 0;
  *ops = 0;
  for (int j = 1; j <= n; ++j) {
    parent[j] = 0;
    mark[j] = 0;
    if (colcnt_) colcnt_[j - 1] = 1;
  }
  // Row i of L holds every column on the tree paths from the columns of
  // row i of A up to i. The tree grows as the rows come.
  double total = n;
  for (int i = 1; i <= n; ++i) {
    mark[i] = i;
    int v = perm[i];
    for (int p = xadj[v]; p < xadj[v + 1]; ++p) {
      int j = invp[adjncy[p]];
      if (j >= i) continue;
      while (mark[j] != i) {
        mark[j] = i;
        if (colcnt_) ++colcnt_[j - 1];
        total += 1;
        if (parent[j] == 0) {
          parent[j] = i;
          break;
        }
        j = parent[j];
      }
    }
  }
  *nnzl = total;
  if (colcnt_) {
    double s = 0;
    for (int j = 0; j < n; ++j) {
      double r = colcnt_[j] - 1;
      s += r * r;
    }
    *ops = s;
  }
}
