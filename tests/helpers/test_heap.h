// test_heap.h - the library's heap table, counted: the blocks it holds and
// the requests it has had, one of which can be refused.
#ifndef VEK_TEST_HEAP_H
#define VEK_TEST_HEAP_H

#include <atomic>

#include "service/vek_serv_memory.h"

namespace vektest {

// Installed while it lives; the counts start at zero. Request fail_at
// (malloc, calloc or realloc; 0: none) is refused.
struct counted_heap {
  static std::atomic<long> live, requests, fail_at;
  vek_serv_heap_table saved;
  counted_heap();
  ~counted_heap() { vek_serv_heap = saved; }
  counted_heap(const counted_heap &) = delete;
  counted_heap &operator=(const counted_heap &) = delete;
};

}  // namespace vektest

#endif
