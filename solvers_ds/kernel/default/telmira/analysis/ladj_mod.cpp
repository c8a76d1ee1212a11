// ladj_mod.cpp - full symmetric adjacency (no diagonal) of a stored pattern,
// from both triangles or from the upper one.

#include "ordering.h"
#include "telmira_storage.h"

#include "service/vek_serv_memory.h"

namespace {

// Upper triangle, rows lo..hi: each entry c after the diagonal goes into
// row i and i into row c, each at its cursor (both one-based arrays).
void ladj_scatter(int lo, int hi, const int *ia, const int *ja, int *cursor,
                  int *adjncy) {
  for (int i = lo; i <= hi; ++i) {
    for (int k = ia[i] + 1; k < ia[i + 1]; ++k) {
      int c = ja[k];
      adjncy[cursor[i]++] = c;
      adjncy[cursor[c]++] = i;
    }
  }
}

}  // namespace

void ladj_mod(int *n_, int *ia_, int *ja_, int *threads_, int *triangular_,
              int *xadj_, int *adjncy_) {
  const int n = *n_;
  if (n <= 0) {
    xadj_[0] = 1;
    return;
  }
  const int *ia = ia_ - 1;
  const int *ja = ja_ - 1;
  int *xadj = xadj_ - 1;
  int *adjncy = adjncy_ - 1;
  int threads = *threads_ > 0 ? *threads_ : 1;

  if (*triangular_ != 1) {
    // Both triangles: one diagonal entry a row, so row i starts i-1 places
    // before its start in ja.
    for (int i = 1; i <= n + 1; ++i) xadj[i] = ia[i] - i + 1;
#pragma omp parallel for num_threads(threads) schedule(static) if (threads > 1)
    for (int i = 1; i <= n; ++i) {
      int pos = xadj[i];
      for (int k = ia[i]; k < ia[i + 1]; ++k)
        if (ja[k] != i) adjncy[pos++] = ja[k];
    }
    return;
  }

  // Upper triangle, diagonal first in each row. Count row j in xadj[j+2],
  // so that the running sum leaves the start of row i in xadj[i+1]; the
  // scatter then moves xadj[i+1] on to the start of row i+1.
  for (int i = 1; i <= n + 1; ++i) xadj[i] = 0;
  for (int i = 1; i <= n; ++i) {
    for (int k = ia[i] + 1; k < ia[i + 1]; ++k) {
      int c = ja[k];
      if (i + 2 <= n + 1) ++xadj[i + 2];
      if (c + 2 <= n + 1) ++xadj[c + 2];
    }
  }
  xadj[1] = 1;
  xadj[2] = 1;
  for (int i = 3; i <= n + 1; ++i) xadj[i] += xadj[i - 1];

  // Two row ranges, 1..m-1 and m..n, with cursors of their own. The second
  // range writes only rows from m on, behind what the first range puts
  // there, so both write disjoint slots and the result is the serial one,
  // which is also the pass taken when the cursors cannot be had.
  int *cur1 = threads < 2 || n < 2 ? nullptr : mem_try_alloc_int(n + 1, "ladj_mod");
  int *cur2 = cur1 == nullptr ? nullptr : mem_try_alloc_int(n + 1, "ladj_mod");
  if (cur2 == nullptr) {
    vek_serv_free(cur1);
    ladj_scatter(1, n, ia, ja, xadj + 1, adjncy);
    xadj[1] = 1;
    return;
  }
  int m = static_cast<int>(0.48f * static_cast<float>(n));
  if (m < 1) m = 1;
  int *c1 = cur1 - 1;
  int *c2 = cur2 - 1;
  for (int i = 1; i <= n; ++i) {
    c1[i] = xadj[i + 1];
    c2[i] = xadj[i + 1];
  }
  for (int i = 1; i < m; ++i)
    for (int k = ia[i] + 1; k < ia[i + 1]; ++k)
      if (ja[k] >= m) ++c2[ja[k]];
#pragma omp parallel for num_threads(2) schedule(static)
  for (int part = 0; part < 2; ++part) {
    if (part == 0)
      ladj_scatter(1, m - 1, ia, ja, c1, adjncy);
    else
      ladj_scatter(m, n, ia, ja, c2, adjncy);
  }
  // Rows below m end where the first cursor stopped; rows from m on end at
  // the second cursor (the first ones never pass it).
  for (int i = m; i <= n; ++i) xadj[i + 1] = c2[i];
  for (int i = 1; i < m; ++i) xadj[i + 1] = c1[i];
  xadj[1] = 1;
  vek_serv_free(cur1);
  vek_serv_free(cur2);
}
