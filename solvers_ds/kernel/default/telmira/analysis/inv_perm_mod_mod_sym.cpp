// inv_perm_mod_mod_sym.cpp - scatter lists of the input matrix into the
// factor storage, upper triangle stored (types 2, -2, 4, -4, 6).
//
// New row i receives the whole symmetric row of its old row: its stored
// entries as they are (diagonal with a positive source, the others negative,
// for they are read as the mirrored value when the list is taken as a
// column), and the entries stored in other rows with this column, mirrored
// in with a positive source. Sorted by column, row j is column j of the
// lower triangle; the entries from j on form the list of column j.
#include <cstdlib>

#include "scatter_map.h"

namespace tlm {

void inv_perm_mod_mod_sym(const int *n_, const int *ia_, const int *ja_,
                          const int *perm_, const int *invp_, const int *nsuper_,
                          const int *xsup_, const int *xlindx_, const int *lindx_,
                          const int *xlnz_, int *, int *, const int *rowflag,
                          int *xjalf_, int *jalf_, int *luperm_, int *luperm_row_,
                          int *lcount, int *work) {
  const int n = *n_;
  xjalf_[0] = 1;
  *lcount = 0;
  if (n <= 0) return;

  // One-based views.
  const int *ia = ia_ - 1, *ja = ja_ - 1, *perm = perm_ - 1, *invp = invp_ - 1;
  const int *xsup = xsup_ - 1, *xlindx = xlindx_ - 1, *lindx = lindx_ - 1;
  const int *xlnz = xlnz_ - 1;
  int *xjalf = xjalf_ - 1, *jalf = jalf_ - 1;
  int *luperm = luperm_ - 1;
  int *luperm_row = luperm_row_ != nullptr ? luperm_row_ - 1 : nullptr;
  const int nsuper = *nsuper_;
  const int e = ia[n + 1] - 1;
  const bool rf = *rowflag != 0;

  // Work: xrow (n+1), key and src (2 e each), dense, mark (n).
  const long long m = 2LL * e;
  int *xrow = work - 1;
  int *key = work + n;
  int *src = key + m;
  int *dense = src + m;
  int *mark = dense + n;

  // Row lengths: the old row plus the entries with its column, the
  // diagonal once.
  int *colcount = dense;
  for (int c = 1; c <= n; ++c) colcount[c] = 0;
  for (int k = 1; k <= e; ++k) ++colcount[ja[k]];
  xrow[1] = 1;
  for (int i = 1; i <= n; ++i) {
    const int r = perm[i];
    xrow[i + 1] = xrow[i] + (ia[r + 1] - ia[r]) + colcount[r] - 1;
  }

  // Mirrored entries fill each row from its start; the row's own entries
  // stand at its end.
  int *cursor = dense;
  for (int i = 1; i <= n; ++i) cursor[i] = xrow[i];
  for (int i = 1; i <= n; ++i) {
    const int r = perm[i];
    const int k0 = ia[r], ke = ia[r + 1];
    const int b = xrow[i + 1] - (ke - k0) - k0;  // b + k: own slot of entry k
    key[b + k0] = i;
    src[b + k0] = k0;
    for (int k = k0 + 1; k < ke; ++k) {
      const int c = invp[ja[k]];
      const int p = cursor[c]++;
      key[p] = i;
      src[p] = k;
      key[b + k] = c;
      src[b + k] = -k;
    }
  }

  // Each row by column. A swept row clears its marks by walking only when
  // it is short and the next row will be swept too.
  int t1 = 0, t2 = 0, dirty = 1;
  inv_perm_thresholds(n, 1, &t1, &t2);
  for (int i = 1; i <= n; ++i) {
    const int len = xrow[i + 1] - xrow[i];
    const int walk = len < t2 && i < n && xrow[i + 2] - xrow[i + 1] >= t1;
    inv_perm_sort_row(n, t1, len, walk, key + xrow[i], src + xrow[i], dense + 1,
                      mark + 1, &dirty);
  }

  // Column j of supernode s against the rows of s from j on. where(r): the
  // position of row r in lindx, valid when in the range of s and lindx
  // holds r there.
  int *where = mark;
  for (int r = 1; r <= n; ++r) where[r] = 0;
  int lc = 1;
  for (int s = 1; s <= nsuper; ++s) {
    const int f = xsup[s], l = xsup[s + 1] - 1;
    const int pb = xlindx[s], pe = xlindx[s + 1];
    for (int p = pb; p < pe; ++p) where[lindx[p]] = p;
    for (int j = f; j <= l; ++j) {
      xjalf[j] = lc;
      const int base = std::abs(xlnz[j]) - pb;
      int t = xrow[j];
      const int te = xrow[j + 1];
      while (t < te && key[t] < j) ++t;
      for (; t < te; ++t) {
        const int r = key[t], k = src[t];
        const int w = where[r];
        if (w < pb || w >= pe || lindx[w] != r) continue;
        jalf[lc] = k < 0 ? -(base + w) : base + w;
        luperm[lc] = k < 0 ? -k : k;
        if (rf) luperm_row[lc] = perm[r];
        ++lc;
      }
    }
  }
  xjalf[n + 1] = lc;
  *lcount = lc - 1;
}

}  // namespace tlm
