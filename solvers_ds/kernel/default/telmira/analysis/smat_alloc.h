// smat_alloc.h - the allocations of the toolkit matrix: row starts from
// the zero-filling aligned allocator, columns and values from mem_alloc,
// which ends the process when memory runs out.
#ifndef TELMIRA_SMAT_ALLOC_H
#define TELMIRA_SMAT_ALLOC_H

#include <cstddef>
#include <cstring>

#include "service/vek_serv_memory.h"
#include "smat.h"
#include "telmira_storage.h"

namespace tlm {
namespace smat_alloc {

// Row starts: zero-filled, 128-byte aligned.
inline pint *ia_alloc(std::uint32_t count) {
  if (count == 0) return nullptr;
  void *p = vek_serv_calloc(static_cast<int>(count), sizeof(pint), ALIGNMENT);
  if (p == nullptr) {
    // mem_alloc reports the request and ends the process if it fails too.
    p = mem_alloc(static_cast<std::size_t>(count) * sizeof(pint), "smat->ia");
    std::memset(p, 0, static_cast<std::size_t>(count) * sizeof(pint));
  }
  return static_cast<pint *>(p);
}

inline pint *pint_alloc(std::uint32_t count, const char *name) {
  return static_cast<pint *>(
      mem_alloc(static_cast<std::size_t>(count) * sizeof(pint), name));
}

template <class V> inline V *value_alloc(std::uint32_t count, const char *name) {
  return static_cast<V *>(
      mem_alloc(static_cast<std::size_t>(count) * sizeof(V), name));
}

template <class V> inline V *value_realloc(V *a, std::uint32_t count, const char *name) {
  return static_cast<V *>(
      mem_realloc(a, static_cast<std::size_t>(count) * sizeof(V), name));
}

inline pint *pint_realloc(pint *p, std::uint32_t count, const char *name) {
  return static_cast<pint *>(
      mem_realloc(p, static_cast<std::size_t>(count) * sizeof(pint), name));
}

}  // namespace smat_alloc
}  // namespace tlm

#endif
