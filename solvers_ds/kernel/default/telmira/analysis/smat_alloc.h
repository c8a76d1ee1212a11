// smat_alloc.h - the allocations of the toolkit matrix: row starts from
// the zero-filling aligned allocator, columns and values from
// mem_try_alloc. Each gives null when the heap refuses; a count of 0 also
// gives null, which is no failure (lacks() tells the two apart).
#ifndef TELMIRA_SMAT_ALLOC_H
#define TELMIRA_SMAT_ALLOC_H

#include <cstddef>
#include <cstring>

#include "service/vek_serv_memory.h"
#include "smat.h"
#include "telmira_storage.h"

namespace tlm {
namespace smat_alloc {

// True when a request of count elements came back empty.
inline bool lacks(const void *p, std::size_t count) { return p == nullptr && count > 0; }

// Row starts: zero-filled, 128-byte aligned.
inline pint *ia_alloc(std::uint32_t count) {
  if (count == 0) return nullptr;
  void *p = vek_serv_calloc(static_cast<int>(count), sizeof(pint), ALIGNMENT);
  if (p == nullptr) {
    p = mem_try_alloc(static_cast<std::size_t>(count) * sizeof(pint), "smat->ia");
    if (p != nullptr) std::memset(p, 0, static_cast<std::size_t>(count) * sizeof(pint));
  }
  return static_cast<pint *>(p);
}

inline pint *pint_alloc(std::uint32_t count, const char *name) {
  return static_cast<pint *>(
      mem_try_alloc(static_cast<std::size_t>(count) * sizeof(pint), name));
}

template <class V> inline V *value_alloc(std::uint32_t count, const char *name) {
  return static_cast<V *>(
      mem_try_alloc(static_cast<std::size_t>(count) * sizeof(V), name));
}

// Resizes *p to count elements. False when the heap refuses: *p is then
// the old block, unchanged. A count of 0 releases the block.
template <class T> inline bool try_resize(T **p, std::uint32_t count, const char *name) {
  T *q = static_cast<T *>(
      mem_try_realloc(*p, static_cast<std::size_t>(count) * sizeof(T), name));
  if (lacks(q, count)) return false;
  *p = q;
  return true;
}

// End of a run in the merge and squeeze sweeps.
constexpr pint run_end = 0x7FFFFFFF;

// Insertion sort of positions first..last-1 by column, values carried when
// a is given.
template <class V> inline void sort_run(pint *ja, V *a, pint first, pint last) {
  for (pint k = first + 1; k < last; ++k) {
    const pint c = ja[k];
    const V v = a ? a[k] : V(0);
    pint j = k - 1;
    while (j >= first && ja[j] > c) {
      ja[j + 1] = ja[j];
      if (a) a[j + 1] = a[j];
      --j;
    }
    ja[j + 1] = c;
    if (a) a[j + 1] = v;
  }
}

}  // namespace smat_alloc
}  // namespace tlm

#endif
