// inv_perm_mod_mod.cpp - scatter lists of the input matrix into the factor
// storage, full pattern stored (types 1, 3, 11, 13); the row sort and the
// work length both forms share.
//
// Each new row i gets the list of (new column, position in a) of its
// entries. The lists are sorted by column; the U lists are read from them
// as rows. Then the sources are transposed in place, so that row i lists
// column i, and the L lists are read as columns.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "scatter_map.h"

namespace tlm {

namespace {

// --- comparison sort of a row list ----------------------------------------

inline void swap_pair(int *key, int *src, int a, int b) {
  const int k = key[a], s = src[a];
  key[a] = key[b];
  src[a] = src[b];
  key[b] = k;
  src[b] = s;
}

void insertion_sort(int *key, int *src, int len) {
  for (int a = 1; a < len; ++a) {
    const int k = key[a], s = src[a];
    int b = a - 1;
    while (b >= 0 && key[b] > k) {
      key[b + 1] = key[b];
      src[b + 1] = src[b];
      --b;
    }
    key[b + 1] = k;
    src[b + 1] = s;
  }
}

void sift_down(int *key, int *src, int root, int len) {
  for (;;) {
    int child = 2 * root + 1;
    if (child >= len) return;
    if (child + 1 < len && key[child + 1] > key[child]) ++child;
    if (key[root] >= key[child]) return;
    swap_pair(key, src, root, child);
    root = child;
  }
}

void heap_sort(int *key, int *src, int len) {
  for (int r = len / 2 - 1; r >= 0; --r) sift_down(key, src, r, len);
  for (int end = len - 1; end > 0; --end) {
    swap_pair(key, src, 0, end);
    sift_down(key, src, 0, end);
  }
}

// Quicksort on the median of three, the smaller side by recursion and the
// larger by the loop; heap sort when the depth runs out, insertion sort for
// short ranges. Keys are distinct.
void sort_pairs(int *key, int *src, int len, int depth) {
  while (len > 16) {
    if (depth-- == 0) {
      heap_sort(key, src, len);
      return;
    }
    const int mid = len / 2;
    if (key[mid] < key[0]) swap_pair(key, src, mid, 0);
    if (key[len - 1] < key[0]) swap_pair(key, src, len - 1, 0);
    if (key[len - 1] < key[mid]) swap_pair(key, src, len - 1, mid);
    const int pivot = key[mid];
    int i = -1, j = len;
    for (;;) {
      do ++i; while (key[i] < pivot);
      do --j; while (key[j] > pivot);
      if (i >= j) break;
      swap_pair(key, src, i, j);
    }
    // [0, j] and [j+1, len), both non-empty.
    const int left = j + 1, right = len - left;
    if (left < right) {
      sort_pairs(key, src, left, depth);
      key += left;
      src += left;
      len = right;
    } else {
      sort_pairs(key + left, src + left, right, depth);
      len = left;
    }
  }
  insertion_sort(key, src, len);
}

}  // namespace

// --- shared by both forms -------------------------------------------------

void inv_perm_thresholds(int n, int sym, int *t1, int *t2) {
  if (n <= 0) {
    *t1 = 0;
    *t2 = 0;
    return;
  }
  // Largest r whose comparison sort, 3 r ln r, stays within a sweep of 5 n;
  // the loop leaves r one step (0.8) below it.
  int r = n;
  double x;
  do {
    x = 3.0 * std::log(static_cast<double>(r)) * r + 1.0;
    r = static_cast<int>(0.8 * r);
  } while (x > 5.0 * n);
  int t = sym ? r + static_cast<int>(0.25 * r) : static_cast<int>(r / 0.8);
  *t1 = t < n ? t : n;
  *t2 = static_cast<int>(0.25 * n);
}

long long inv_perm_mod_mod_work_length(int n, int e, int nadj, int sym) {
  const long long nn = n > 0 ? n : 0, ne = e > 0 ? e : 0;
  // Row starts, key and source lists, a dense array and a mark array.
  long long lists;
  if (sym) {
    lists = 2 * ne;  // each entry and its mirror
  } else {
    const long long graph = static_cast<long long>(nadj > 0 ? nadj : 0) + nn;
    lists = graph > ne ? graph : ne;
  }
  return (nn + 1) + 2 * lists + 2 * nn;
}

void inv_perm_sort_row(int n, int t1, int len, int walk, int *key, int *src,
                       int *dense, int *mark, int *dirty) {
  if (len < 2) return;
  if (len < t1) {
    int depth = 0;
    for (int m = len; m > 1; m >>= 1) depth += 2;
    sort_pairs(key, src, len, depth);
    return;
  }
  if (len == n) {
    // Every column is present: one pass.
    for (int t = 0; t < len; ++t) dense[key[t] - 1] = src[t];
    for (int t = 0; t < len; ++t) {
      key[t] = t + 1;
      src[t] = dense[t];
    }
    return;
  }
  // Sweep over all columns.
  if (*dirty) {
    for (int c = 0; c < n; ++c) mark[c] = 0;
    *dirty = 0;
  }
  for (int t = 0; t < len; ++t) {
    mark[key[t] - 1] = 1;
    dense[key[t] - 1] = src[t];
  }
  int out = 0;
  for (int c = 0; c < n; ++c) {
    if (mark[c]) {
      key[out] = c + 1;
      src[out] = dense[c];
      ++out;
    }
  }
  if (walk) {
    for (int t = 0; t < len; ++t) mark[key[t] - 1] = 0;
  } else {
    *dirty = 1;
  }
}

// --- full pattern ---------------------------------------------------------

void inv_perm_mod_mod(const int *n_, const int *ia_, const int *ja_, const int *perm_,
                      const int *invp_, const int *nsuper_, const int *xsup_,
                      const int *xlindx_, const int *lindx_, const int *xlnz_,
                      const int *xunz_, int *xadj_, int *adjncy_, const int *mtype,
                      const int *roworder_, const int *rowflag, int *xjalf_, int *jalf_,
                      int *xjauf_, int *jauf_, int *luperm_, int *luperm_row_,
                      int *lcount, int *ucount, int *work) {
  const int n = *n_;
  xjalf_[0] = 1;
  xjauf_[0] = 1;
  *lcount = 0;
  *ucount = 0;
  if (n <= 0) return;

  // One-based views.
  const int *ia = ia_ - 1, *ja = ja_ - 1, *perm = perm_ - 1, *invp = invp_ - 1;
  const int *xsup = xsup_ - 1, *xlindx = xlindx_ - 1, *lindx = lindx_ - 1;
  const int *xlnz = xlnz_ - 1, *xunz = xunz_ - 1;
  const int *xadj = xadj_ - 1, *adjncy = adjncy_ - 1;
  int *xjalf = xjalf_ - 1, *jalf = jalf_ - 1, *xjauf = xjauf_ - 1, *jauf = jauf_ - 1;
  int *luperm = luperm_ - 1;
  int *luperm_row = luperm_row_ != nullptr ? luperm_row_ - 1 : nullptr;
  const int nsuper = *nsuper_;
  const int e = ia[n + 1] - 1;
  const int nadj = xadj[n + 1] - 1;
  const bool rf = *rowflag != 0;

  // The matching's row order exists for the unsymmetric types only.
  const int *order = *mtype > 10 && roworder_ != nullptr ? roworder_ - 1 : nullptr;
  bool reordered = false;
  if (order != nullptr)
    for (int k = 1; k <= n && !reordered; ++k) reordered = order[k] != k;
  if (!reordered) order = nullptr;
  // The graph with its diagonal has more entries than A exactly when the
  // pattern is not symmetric or a diagonal entry is missing.
  const bool general =
      (*mtype > 10 && static_cast<long long>(nadj) + n > e) || reordered;

  // Work: xrow (n+1), key and src (one list entry each), dense, mark (n).
  const long long m = general ? static_cast<long long>(nadj) + n : e;
  int *xrow = work - 1;
  int *key = work + n;  // key(p) is key[p], p from 1
  int *src = key + m;
  int *dense = src + m;
  int *mark = dense + n;

  // Row lengths and starts.
  xrow[1] = 1;
  for (int i = 1; i <= n; ++i) {
    const int v = perm[i];
    const int len = general ? xadj[v + 1] - xadj[v] + 1 : ia[v + 1] - ia[v];
    xrow[i + 1] = xrow[i] + len;
  }

  // Keys (new columns) and sources (positions in a, 0 for none).
  if (general) {
    for (int i = 1; i <= n; ++i) {
      const int v = perm[i];
      const int q = order != nullptr ? order[v] : v;
      int k = ia[q];
      const int ke = ia[q + 1];
      int g = xadj[v];
      const int ge = xadj[v + 1];
      bool diagonal = false;
      for (int p = xrow[i]; p < xrow[i + 1]; ++p) {
        int c;
        if (!diagonal && (g >= ge || adjncy[g] > v)) {
          c = v;
          diagonal = true;
        } else {
          c = adjncy[g++];
        }
        while (k < ke && ja[k] < c) ++k;
        key[p] = invp[c];
        src[p] = k < ke && ja[k] == c ? k++ : 0;
      }
    }
  } else {
    for (int i = 1; i <= n; ++i) {
      const int v = perm[i];
      int p = xrow[i];
      for (int k = ia[v]; k < ia[v + 1]; ++k, ++p) {
        key[p] = invp[ja[k]];
        src[p] = k;
      }
    }
  }

  // Each row by column.
  int t1 = 0, t2 = 0, dirty = 1;
  inv_perm_thresholds(n, 0, &t1, &t2);
  for (int i = 1; i <= n; ++i) {
    const int len = xrow[i + 1] - xrow[i];
    inv_perm_sort_row(n, t1, len, len < t2, key + xrow[i], src + xrow[i], dense + 1,
                      mark + 1, &dirty);
  }

  // Input row of a new row.
  auto source_row = [&](int i) { return order != nullptr ? order[perm[i]] : perm[i]; };

  // where(r): the position of row r in lindx, valid when it falls in the
  // current supernode's range and lindx holds r there.
  int *where = mark;
  for (int r = 1; r <= n; ++r) where[r] = 0;

  // U lists: row j of supernode s against the rows of s below its columns.
  int u = 1;
  for (int s = 1; s <= nsuper; ++s) {
    const int f = xsup[s], l = xsup[s + 1] - 1;
    const int pb = xlindx[s] + (l - f + 1), pe = xlindx[s + 1];
    for (int p = pb; p < pe; ++p) where[lindx[p]] = p;
    for (int j = f; j <= l; ++j) {
      xjauf[j] = u;
      if (pb >= pe) continue;
      const int base = std::abs(xunz[j]) - pb;
      const int srow = rf ? source_row(j) : 0;
      int t = xrow[j];
      const int te = xrow[j + 1];
      while (t < te && key[t] <= l) ++t;
      for (; t < te; ++t) {
        const int c = key[t], k = src[t];
        if (k == 0) continue;
        const int w = where[c];
        if (w < pb || w >= pe || lindx[w] != c) continue;
        jauf[u] = base + w;
        luperm[u] = k;
        if (rf) luperm_row[u] = srow;
        ++u;
      }
    }
  }
  xjauf[n + 1] = u;
  const int nu = u - 1, nl = e - nu;
  *ucount = nu;
  *lcount = nl;

  // The U sources go behind the L sources.
  if (nu > 0 && nl > 0) {
    std::memmove(luperm + nl + 1, luperm + 1, sizeof(int) * static_cast<size_t>(nu));
    if (rf)
      std::memmove(luperm_row + nl + 1, luperm_row + 1,
                   sizeof(int) * static_cast<size_t>(nu));
  }

  // Transpose the sources: the pattern is symmetric, so for i < c the
  // partner of (i, c) is the next unvisited entry below the diagonal of
  // row c.
  int *cursor = dense;
  for (int i = 1; i <= n; ++i) cursor[i] = xrow[i];
  for (int i = 1; i <= n; ++i) {
    for (int t = xrow[i]; t < xrow[i + 1]; ++t) {
      const int c = key[t];
      if (c <= i) continue;
      const int p = cursor[c]++;
      const int k = src[t];
      src[t] = src[p];
      src[p] = k;
    }
  }

  // L lists: column j of supernode s against the whole row list of s.
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
      while (t < te && key[t] < f) ++t;
      for (; t < te; ++t) {
        const int r = key[t], k = src[t];
        if (k == 0) continue;
        const int w = where[r];
        if (w < pb || w >= pe || lindx[w] != r) continue;
        jalf[lc] = base + w;
        luperm[lc] = k;
        if (rf) luperm_row[lc] = source_row(r);
        ++lc;
      }
    }
  }
  xjalf[n + 1] = lc;
}

}  // namespace tlm
