// The storage plan of a handle: the report of a refused allocation; the
// release at a new analysis and at ido -1 (the reuse of factor blocks and
// the work array's growth show in test_phases); and the allocators that end
// the process.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "service/vek_serv_memory.h"
#include "telmira.h"
#include "telmira_check.h"
#include "telmira_types.h"
#include "telmira_storage.h"
#include "test_heap.h"
#include "test_system.h"

namespace {

using vektest::counted_heap;
long live() { return counted_heap::live; }
std::atomic<long> &fail_at = counted_heap::fail_at;

// A handle around a small matrix of type mtype, on one thread.
struct solver : vektest::system {
  explicit solver(int type = 1) : system(vekio::lap2d(3), type) { vektest::use_threads(1); }
};

// The sweep of test_alloc_failure fails every request of every type; here
// the report of one refused request: error -2 with the memory lines, and a
// release that leaves nothing.
TEST(StorageFailures, ARefusedRequestIsReportedAndLeavesNothing) {
  counted_heap heap;
  for (int k : {1, 6}) {
    SCOPED_TRACE(k);
    solver s(11);
    counted_heap::requests = 0;
    fail_at = k;
    const std::string out = s.call_printing(11);
    fail_at = 0;
    EXPECT_EQ(s.error, -2);
    EXPECT_EQ(out.find("*** Error in TELMIRA  (     insufficient_memory) error_num= -"), 0u)
        << out;
    EXPECT_NE(out.find("*** Error in TELMIRA memory allocation: "), std::string::npos) << out;
    EXPECT_NE(out.find("total memory wanted here: "), std::string::npos) << out;
    s.release();
    for (intptr_t w : s.handle) EXPECT_EQ(w, 0);
    EXPECT_EQ(live(), 0);
  }
}

TEST(StorageRelease, NewAnalysisAndReleaseFreeEverything) {
  counted_heap heap;
  solver s;
  s.call(11);
  const long after_first = live();
  EXPECT_GT(after_first, 0);
  s.call(11);  // the second analysis frees the arrays of the first
  EXPECT_EQ(live(), after_first);

  // ido 0 frees the factors of its matrix number only.
  intptr_t *entry = tlm::fact_entry(s.handle, 1);
  ASSERT_NE(entry, nullptr);
  void *factors = vek_serv_malloc(64, 128);
  entry[0] = entry[1] = reinterpret_cast<intptr_t>(factors);
  entry[4] = 1;
  s.call(0);
  EXPECT_EQ(s.error, 0);
  EXPECT_EQ(entry[0], 0);
  EXPECT_EQ(entry[1], tlm::not_allocated_mark);
  EXPECT_EQ(live(), after_first);

  s.call(-1);
  for (intptr_t w : s.handle) EXPECT_EQ(w, 0);
  EXPECT_EQ(live(), 0);
  s.call(-1);  // nothing left to release
  EXPECT_EQ(s.error, 0);
}

TEST(StorageRelease, NoFactorTableForZeroFactorizations) {
  counted_heap heap;
  solver s;
  s.max_fac_store = 0;
  s.matrix_number = 0;
  s.call(11);
  EXPECT_NE(s.handle[1], 0);
  EXPECT_EQ(s.handle[3], 0);
  s.release();
  EXPECT_EQ(live(), 0);
}

TEST(MemAlloc, FailureEndsTheProcessWithItsMessage) {
  int *filled = mem_alloc_int_fill(4, 7, "xadj");
  EXPECT_EQ(filled[3], 7);
  filled = mem_realloc_int(filled, 8, "xadj");
  EXPECT_EQ(filled[0], 7);
  vek_serv_free(filled);
  EXPECT_EQ(mem_alloc(0, "none"), nullptr);
  EXPECT_DEATH(
      {
        dup2(2, 1);
        counted_heap heap;
        fail_at = 1;
        mem_alloc_int(100, "lindx");
      },
      "Error! \\*\\*\\*Memory allocation failed for lindx\\. Requested size: 400 bytes");
  EXPECT_DEATH(
      {
        dup2(2, 1);
        void *p = mem_alloc(16, "adjncy");
        counted_heap heap;
        fail_at = 1;
        mem_realloc(p, 4096, "adjncy");
      },
      "Error! \\*\\*\\*Memory allocation failed for adjncy\\. Requested size: 4096 bytes");
}

}  // namespace
