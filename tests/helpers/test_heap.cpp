// test_heap.cpp - the counted heap of test_heap.h.
#include "test_heap.h"

namespace vektest {

std::atomic<long> counted_heap::live{0}, counted_heap::requests{0}, counted_heap::fail_at{0};

namespace {

vek_serv_heap_table plain;

bool refused() { return ++counted_heap::requests == counted_heap::fail_at.load(); }
void *counted_malloc(std::size_t n) {
  void *p = refused() ? nullptr : plain.malloc_fn(n);
  if (p) ++counted_heap::live;
  return p;
}
void *counted_calloc(std::size_t n, std::size_t s) {
  void *p = refused() ? nullptr : plain.calloc_fn(n, s);
  if (p) ++counted_heap::live;
  return p;
}
void *counted_realloc(void *p, std::size_t n) {
  void *q = refused() ? nullptr : plain.realloc_fn(p, n);
  if (!p && q) ++counted_heap::live;
  return q;
}
void counted_free(void *p) {
  if (p) --counted_heap::live;
  plain.free_fn(p);
}

}  // namespace

counted_heap::counted_heap() : saved(vek_serv_heap) {
  plain = vek_serv_heap;
  live = requests = fail_at = 0;
  vek_serv_heap = {counted_malloc, counted_calloc, counted_realloc, counted_free};
}

}  // namespace vektest
