// mc64.cpp - maximum product matching and its scaling: the cost record, the
// cheap assignment, the shortest augmenting path searches, the completion
// of the permutation, and the post-step that stores the results.
#include "mc64.h"

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>

#include "service/vek_serv_memory.h"
#include "telmira_storage.h"

namespace tlm {

namespace {

// The largest value of the precision; minus it stands for "no cost".
template <class R> constexpr R huge_value() { return std::numeric_limits<R>::max(); }
// Relative tolerance of a tight edge, the same in both precisions.
constexpr double tight_tolerance = 2.220446049250313e-16;

// The bit vector of the search: which rows the cheap assignment matched.
struct match_bits {
  int size;
  int shift;  // 5
  int mask;   // 31
  std::uint32_t *v;
};

// Null when the heap has no room.
match_bits *bits_new(int size) {
  match_bits *b = static_cast<match_bits *>(mem_try_alloc(sizeof(match_bits), "bvec_new: vec"));
  if (b == nullptr) return nullptr;
  b->size = size;
  b->shift = 5;
  b->mask = 31;
  const int words = (size + b->mask) / (b->mask + 1);
  b->v = static_cast<std::uint32_t *>(
      mem_try_alloc(sizeof(std::uint32_t) * static_cast<std::size_t>(words > 0 ? words : 1), "bvec_new: vec->v"));
  if (b->v == nullptr) {
    vek_serv_free(b);
    return nullptr;
  }
  for (int k = 0; k < words; ++k) b->v[k] = 0;
  return b;
}
void bits_free(match_bits *b) {
  vek_serv_free(b->v);
  vek_serv_free(b);
}
inline void bits_set(match_bits *b, int i) { b->v[i >> b->shift] |= 1u << (i & b->mask); }
inline bool bits_get(const match_bits *b, int i) {
  return (b->v[i >> b->shift] >> (i & b->mask)) & 1u;
}

// Binary min-heap of columns by distance; hpos holds each column's place,
// -1 for unseen and -2 for finished.
template <class R> struct col_heap {
  int *heap;
  int *hpos;
  const R *dist;
  int size;

  void swap_places(int a, int b) {
    const int ca = heap[a], cb = heap[b];
    heap[a] = cb;
    heap[b] = ca;
    hpos[cb] = a;
    hpos[ca] = b;
  }
  void up(int k) {
    while (k > 0) {
      const int parent = (k - 1) / 2;
      if (dist[heap[parent]] <= dist[heap[k]]) break;
      swap_places(k, parent);
      k = parent;
    }
  }
  void down(int k) {
    for (;;) {
      const int l = 2 * k + 1, r = l + 1;
      int m = k;
      if (l < size && dist[heap[l]] < dist[heap[m]]) m = l;
      if (r < size && dist[heap[r]] < dist[heap[m]]) m = r;
      if (m == k) break;
      swap_places(k, m);
      k = m;
    }
  }
  // Inserts column j, or moves it up after its distance fell.
  void push_or_raise(int j) {
    if (hpos[j] < 0) {
      heap[size] = j;
      hpos[j] = size;
      ++size;
    }
    up(hpos[j]);
  }
  int pop() {
    const int top = heap[0];
    --size;
    if (size > 0) {
      heap[0] = heap[size];
      hpos[heap[0]] = 0;
      down(0);
    }
    hpos[top] = -1;
    return top;
  }
  void remove(int j) {
    const int k = hpos[j];
    --size;
    if (k != size) {
      const int moved = heap[size];
      heap[k] = moved;
      hpos[moved] = k;
      up(k);
      down(hpos[moved]);
    }
    hpos[j] = -1;
  }
};

// The cheap assignment: each row takes its best column when that one is
// free; an unmatched row may then take a column whose row can move to
// another free column of its best cost.
template <class R>
int mc64_cheap(const mc64_csr<R> *rec, int *perm, R *rowdual, R *coldual,
               match_bits *matched) {
  const int n = rec->n;
  const int *ia = rec->ia, *ja = rec->ja;
  const R *cost = rec->m;
  int count = 0;
  for (int j = 0; j < n; ++j) {
    perm[j] = -1;
    coldual[j] = R(0);
  }
  for (int i = 0; i < n; ++i) {
    R best = -huge_value<R>();
    int col = -1;
    for (int k = ia[i]; k < ia[i + 1]; ++k)
      if (cost[k] >= best) {  // of equal costs the last one
        best = cost[k];
        col = ja[k];
      }
    rowdual[i] = best;
    if (col >= 0 && perm[col] < 0) {
      perm[col] = i;
      bits_set(matched, i);
      ++count;
    }
  }
  for (int i = 0; i < n; ++i) {
    if (bits_get(matched, i)) continue;
    for (int k = ia[i]; k < ia[i + 1]; ++k) {
      if (cost[k] != rowdual[i]) continue;
      const int j = ja[k];
      if (perm[j] < 0) {
        perm[j] = i;
        bits_set(matched, i);
        ++count;
        break;
      }
      const int r = perm[j];
      int freecol = -1;
      for (int q = ia[r]; q < ia[r + 1]; ++q)
        if (cost[q] == rowdual[r] && perm[ja[q]] < 0) {
          freecol = ja[q];
          break;
        }
      if (freecol >= 0) {
        perm[freecol] = r;
        perm[j] = i;
        bits_set(matched, i);
        ++count;
        break;
      }
    }
  }
  return count;
}

}  // namespace

template <class R> void mc64_abs(const int *count, const R *values, R *out) {
  for (int k = 0; k < *count; ++k)
    out[k] = static_cast<R>(std::sqrt(static_cast<double>(values[2 * k]) * values[2 * k] +
                                      static_cast<double>(values[2 * k + 1]) * values[2 * k + 1]));
}

template <class R>
mc64_csr<R> *mc64_cost(int n, const int *ia, const int *ja, const R *values,
                       R *colmax, R *bound) {
  const int nnz = ia[n] - ia[0];
  if (nnz <= 0) return nullptr;
  mc64_csr<R> *rec = static_cast<mc64_csr<R> *>(mem_try_alloc(sizeof(mc64_csr<R>), "csr_new: mat"));
  if (rec == nullptr) return nullptr;
  rec->n = n;
  rec->nnz = nnz;
  rec->ia = static_cast<int *>(mem_try_alloc(sizeof(int) * static_cast<std::size_t>(n + 1), "csr_new: mat->ia"));
  rec->ja = static_cast<int *>(mem_try_alloc(sizeof(int) * static_cast<std::size_t>(nnz), "csr_new: mat->ja"));
  rec->m = static_cast<R *>(mem_try_alloc(sizeof(R) * static_cast<std::size_t>(nnz), "csr_new: mat->m"));
  if (rec->ia == nullptr || rec->ja == nullptr || rec->m == nullptr) {
    mc64_csr_free(rec);
    return nullptr;
  }
  for (int j = 0; j < n; ++j) colmax[j] = R(0);
  int kept = 0;
  rec->ia[0] = 0;
  for (int i = 0; i < n; ++i) {
    for (int k = ia[i]; k < ia[i + 1]; ++k) {
      const R v = std::abs(values[k]);
      // A stored zero takes no part; neither does a value that is not a
      // finite number, whose cost could not be compared (the factorization
      // reports such a matrix).
      if (v == R(0) || !std::isfinite(v)) continue;
      rec->ja[kept] = ja[k];
      rec->m[kept] = v;
      if (v > colmax[ja[k]]) colmax[ja[k]] = v;
      ++kept;
    }
    rec->ia[i + 1] = kept;
  }
  for (int j = 0; j < n; ++j)
    colmax[j] = colmax[j] > R(0) ? static_cast<R>(std::log(static_cast<double>(colmax[j]))) : R(0);
  R smallest = huge_value<R>();
  for (int k = 0; k < kept; ++k) {
    const R c = static_cast<R>(std::log(static_cast<double>(rec->m[k]))) - colmax[rec->ja[k]];
    rec->m[k] = c;
    if (c < smallest) smallest = c;
  }
  *bound = static_cast<R>(-1 - n) * smallest;
  return rec;
}

template <class R> void mc64_csr_free(mc64_csr<R> *rec) {
  if (rec == nullptr) return;
  vek_serv_free(rec->ia);
  vek_serv_free(rec->ja);
  vek_serv_free(rec->m);
  vek_serv_free(rec);
}

template <class R>
int mc64_search(const mc64_csr<R> *rec, int *perm, R *rowdual, R *coldual,
                R bound) {
  const int n = rec->n;
  match_bits *matched = bits_new(n > 0 ? n : 1);
  if (matched == nullptr) return -1;
  int count = mc64_cheap(rec, perm, rowdual, coldual, matched);
  if (count == n) {
    bits_free(matched);
    return count;
  }
  const std::size_t N = static_cast<std::size_t>(n);
  R *dist = static_cast<R *>(mem_try_alloc(sizeof(R) * N, "mc64_search: dist"));
  int *iwork = static_cast<int *>(mem_try_alloc(sizeof(int) * 7 * N, "mc64_search: work"));
  if (dist == nullptr || iwork == nullptr) {
    vek_serv_free(dist);
    vek_serv_free(iwork);
    bits_free(matched);
    return -1;
  }
  int *hpos = iwork, *heapv = iwork + N, *pred = iwork + 2 * N, *colof = iwork + 3 * N;
  int *queue = iwork + 4 * N, *scanned = iwork + 5 * N, *finished = iwork + 6 * N;
  for (int j = 0; j < n; ++j) hpos[j] = -1;
  col_heap<R> heap{heapv, hpos, dist, 0};
  const int *ia = rec->ia, *ja = rec->ja;
  const R *cost = rec->m;
  const R tol = static_cast<R>(tight_tolerance);

  for (int s = 0; s < n && count < n; ++s) {
    if (bits_get(matched, s)) continue;
    R D = R(0), best = huge_value<R>(), low = huge_value<R>();
    int qhead = 0, qtail = 0, nscanned = 0, nfinished = 0, end = -1;
    heap.size = 0;
    queue[qtail++] = s;
    // Marks column t finished at the current distance; its row joins the
    // queue, or the column ends the path when it is free.
    auto finish = [&](int t) {
      hpos[t] = -2;
      if (perm[t] < 0) {
        end = t;
      } else {
        queue[qtail++] = perm[t];
        colof[perm[t]] = t;
      }
      coldual[t] -= D;
      finished[nfinished++] = t;
    };
    for (;;) {
      // Scan the rows reached at the current distance.
      while (qhead < qtail && end < 0) {
        const int i = queue[qhead++];
        scanned[nscanned++] = i;
        if (rowdual[i] < low) low = rowdual[i];
        for (int k = ia[i]; k < ia[i + 1]; ++k) {
          const int j = ja[k];
          if (hpos[j] == -2) continue;
          const R r = rowdual[i] - cost[k] + coldual[j];
          if (r > best) continue;
          if (perm[j] < 0) best = r;
          if (hpos[j] == -1 || D + r < dist[j]) {
            pred[j] = i;
            if (r > tol * D) {
              dist[j] = D + r;
              heap.push_or_raise(j);
            } else if (perm[j] < 0) {
              end = j;
              break;
            } else {
              const int row = perm[j];
              queue[qtail++] = row;
              colof[row] = j;
              if (hpos[j] >= 0) heap.remove(j);
              hpos[j] = -2;
              finished[nfinished++] = j;
              coldual[j] -= D;
            }
          }
        }
        rowdual[i] += D;
      }
      if (end >= 0 || heap.size == 0) break;
      // The next distance: the nearest column, but not beyond the limit.
      const int t = heap.pop();
      const R limit = bound + low;
      R step = dist[t] - D;
      bool cut = false;
      if (limit < step) {
        step = limit;
        cut = true;
      }
      D += step;
      best -= step;
      finish(t);
      while (end < 0 && heap.size > 0 && dist[heap.heap[0]] == D) finish(heap.pop());
      if (end >= 0 || cut) break;
      low -= step;
    }
    // Bring the duals of this search to a common distance; reset only what
    // the search touched.
    if (D != R(0)) {
      for (int k = 0; k < nscanned; ++k) rowdual[scanned[k]] -= D;
      for (int k = 0; k < nfinished; ++k) coldual[finished[k]] += D;
    }
    for (int k = 0; k < heap.size; ++k) hpos[heap.heap[k]] = -1;
    for (int k = 0; k < nfinished; ++k) hpos[finished[k]] = -1;
    heap.size = 0;
    if (end >= 0) {
      ++count;
      int j = end;
      for (;;) {
        const int i = pred[j];
        perm[j] = i;
        if (i == s) break;
        j = colof[i];
      }
    }
  }
  vek_serv_free(dist);
  vek_serv_free(iwork);
  bits_free(matched);
  return count;
}

template <class R>
int mc64_match(const int *n_, const int *ia, const int *ja, const R *values,
               int *perm, R *rowdual, R *coldual, int *rank) {
  const int n = *n_;
  if (rank != nullptr) *rank = 0;
  if (ia[n] - ia[0] <= 0) return -2;
  R *colmax = static_cast<R *>(mem_try_alloc(sizeof(R) * static_cast<std::size_t>(n > 0 ? n : 1), "mc64_match: colmax"));
  if (colmax == nullptr) return MC64_NO_MEMORY;
  R bound = R(0);
  mc64_csr<R> *rec = mc64_cost(n, ia, ja, values, colmax, &bound);
  int count = rec == nullptr ? -1 : mc64_search(rec, perm, rowdual, coldual, bound);
  int *mark = count >= 0 && count < n
                  ? static_cast<int *>(mem_try_alloc(sizeof(int) * static_cast<std::size_t>(n), "mc64_match: mark"))
                  : nullptr;
  if (count < 0 || (count < n && mark == nullptr)) {
    mc64_csr_free(rec);
    vek_serv_free(colmax);
    return MC64_NO_MEMORY;
  }
  if (rank != nullptr) *rank = count;

  if (count < n) {
    // Complete the permutation. An index stands both for a row and for a
    // column; following perm from a matched column leads either back to it
    // (a cycle) or to an unmatched index, which is the free row that the
    // head of the chain can take.
    for (int c = 0; c < n; ++c) mark[c] = -1;
    for (int c = 0; c < n; ++c) {
      if (mark[c] == -2 || perm[c] < 0) continue;
      mark[c] = -2;
      int j = perm[c];
      while (j != c && perm[j] >= 0) {
        mark[j] = -2;
        j = perm[j];
      }
      if (j != c) {
        mark[j] = -2;
        mark[c] = j;
      }
    }
    // Rows that are matched already cannot be given again.
    for (int c = 0; c < n; ++c)
      if (mark[c] >= 0) {
        perm[mark[c]] = c;
        ++count;
      }
    for (int c = 0; c < n; ++c)
      if (perm[c] < 0) {
        perm[c] = c;
        rowdual[c] = R(0);
        coldual[c] = R(0);
        ++count;
      }
    vek_serv_free(mark);
  }
  if (count == n) {
    for (int i = 0; i < n; ++i) {
      coldual[i] = -coldual[i] - colmax[i];
      rowdual[i] = -rowdual[i];
    }
  }
  mc64_csr_free(rec);
  vek_serv_free(colmax);
  return count == n ? 0 : -1;
}

template <class R>
void mc64_post(const int *scaling, const int *n_, const int *mc64_i,
               const R *duals, int *matchperm, R *s, const int *mtype) {
  const int n = *n_;
  const int mt = *mtype;
  for (int i = 0; i < n; ++i) matchperm[i] = *scaling == -1 ? i + 1 : mc64_i[i];
  if (*scaling == 0 || *scaling == -1) {
    for (int i = 0; i < 2 * n; ++i) s[i] = R(1);
    return;
  }
  const R *v = duals, *u = duals + n;
  // A factor that cannot be formed (a row or column without any non-zero
  // entry keeps an infinite dual) stays 1.
  auto factor = [](double x) {
    const double f = std::exp(x);
    return (std::isfinite(f) && f > 0.0 && static_cast<R>(f) > R(0) &&
            std::isfinite(static_cast<double>(static_cast<R>(f))))
               ? static_cast<R>(f)
               : R(1);
  };
  const bool symmetric = mt == -4 || mt == -2 || mt == 6;
  for (int i = 0; i < n; ++i) {
    const double vi = v[i], ui = u[i];
    s[i] = symmetric ? factor(0.5 * (vi + ui)) : factor(vi);
    s[n + i] = factor(ui);
  }
}

#define TELMIRA_MC64_INSTANCE(R)                                                        \
  template void mc64_abs<R>(const int *, const R *, R *);                               \
  template mc64_csr<R> *mc64_cost<R>(int, const int *, const int *, const R *, R *, R *); \
  template void mc64_csr_free<R>(mc64_csr<R> *);                                        \
  template int mc64_search<R>(const mc64_csr<R> *, int *, R *, R *, R);                 \
  template int mc64_match<R>(const int *, const int *, const int *, const R *, int *,   \
                             R *, R *, int *);                                          \
  template void mc64_post<R>(const int *, const int *, const int *, const R *, int *,   \
                             R *, const int *);
TELMIRA_MC64_INSTANCE(double)
TELMIRA_MC64_INSTANCE(float)

}  // namespace tlm
