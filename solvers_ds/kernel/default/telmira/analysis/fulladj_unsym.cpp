// fulladj_unsym.cpp - adjacency of B + B^T, B the rows of an unsymmetric
// pattern taken in a given row order, without the diagonal.

#include "ordering.h"

int fulladj_unsym_work(int n, int nnz) { return 2 * (n + 1) + 2 * nnz; }

void fulladj_unsym(int *n_, int *ia_, int *ja_, int *roworder_, int *xadj_,
                   int *adjncy_, int *nadj, int *iwork) {
  const int n = *n_;
  if (n <= 0) {
    xadj_[0] = 1;
    *nadj = 0;
    return;
  }
  const int *ia = ia_ - 1;
  const int *ja = ja_ - 1;
  int *xadj = xadj_ - 1;
  int *adjncy = adjncy_ - 1;
  const int nnz = ia[n + 1] - 1;
  // Work: rows of B (xb, jb), then B^T (xt, jt), all one-based.
  int *xb = iwork - 1;
  int *jb = iwork + (n + 1) - 1;
  int *xt = iwork + (n + 1) + nnz - 1;
  int *jt = iwork + 2 * (n + 1) + nnz - 1;

  xb[1] = 1;
  for (int k = 1; k <= n; ++k) {
    int r = roworder_ != nullptr ? roworder_[k - 1] : k;
    int pos = xb[k];
    for (int p = ia[r]; p < ia[r + 1]; ++p) jb[pos++] = ja[p];
    xb[k + 1] = pos;
  }
  // Transpose by counting; the rows of B^T come out ascending.
  for (int i = 1; i <= n + 1; ++i) xt[i] = 0;
  for (int p = 1; p <= nnz; ++p) ++xt[jb[p] + 1];
  xt[1] = 1;
  for (int i = 2; i <= n + 1; ++i) xt[i] += xt[i - 1];
  for (int k = 1; k <= n; ++k)
    for (int p = xb[k]; p < xb[k + 1]; ++p) jt[xt[jb[p]]++] = k;
  for (int i = n + 1; i >= 2; --i) xt[i] = xt[i - 1];
  xt[1] = 1;

  // Merge row k of B with row k of B^T, dropping duplicates and diagonal.
  int out = 1;
  for (int k = 1; k <= n; ++k) {
    xadj[k] = out;
    int p = xb[k], pe = xb[k + 1];
    int q = xt[k], qe = xt[k + 1];
    int last = 0;
    while (p < pe || q < qe) {
      int v;
      if (q >= qe || (p < pe && jb[p] <= jt[q])) {
        v = jb[p++];
      } else {
        v = jt[q++];
      }
      if (v == last || v == k) continue;
      adjncy[out++] = v;
      last = v;
    }
  }
  xadj[n + 1] = out;
  *nadj = out - 1;
}
