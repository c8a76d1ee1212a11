// Tests of the memory service: back-pointer blocks, the heap table, the
// spin lock, and the per-thread buffer cache.
#include "service/vek_serv_memory.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <future>
#include <map>
#include <thread>
#include <vector>

namespace {

// A heap that records what passes through it, fills fresh blocks with
// garbage, can refuse requests, and can force every realloc to move.
struct RecordingHeap {
  static inline int mallocs, reallocs, frees;
  static inline bool refuse, always_move;
  static inline void *last_block;
  static inline std::size_t last_size;
  static inline std::vector<void *> freed;

  static void *do_malloc(std::size_t n) {
    ++mallocs;
    if (refuse) return nullptr;
    last_size = n;
    return last_block = std::memset(std::malloc(n), 0xAB, n);
  }
  static void *do_realloc(void *p, std::size_t n) {
    ++reallocs;
    if (refuse) return nullptr;
    last_size = n;
    if (!always_move) return last_block = std::realloc(p, n);
    // Move to a block with a different low-bit pattern so that a lost
    // offset or a stale back pointer shows.
    char *q = static_cast<char *>(std::malloc(n + 16)) + 8;
    std::memcpy(q, p, std::min(malloc_usable_size(p), n));
    std::free(p);
    return last_block = q;
  }
  static void do_free(void *p) {
    ++frees;
    freed.push_back(p);
    // Blocks from the moving realloc sit 8 bytes into their allocation.
    const bool moved = always_move && reinterpret_cast<std::uintptr_t>(p) % 16 == 8;
    std::free(static_cast<char *>(p) - (moved ? 8 : 0));
  }
  static void install() {
    vek_serv_heap = {do_malloc, std::calloc, do_realloc, do_free};
    mallocs = reallocs = frees = 0;
    refuse = always_move = false;
    freed.clear();
  }
};

class BackPointer : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = vek_serv_heap;
    RecordingHeap::install();
  }
  void TearDown() override { vek_serv_heap = saved_; }
  vek_serv_heap_table saved_;
};

std::uintptr_t addr(const void *p) { return reinterpret_cast<std::uintptr_t>(p); }

void *back_pointer(const void *user) {
  void *b;
  std::memcpy(&b, static_cast<const char *>(user) - sizeof(void *), sizeof b);
  return b;
}

}  // namespace

TEST_F(BackPointer, MallocLayoutPerAlignment) {
  EXPECT_EQ(32, vek_serv_effective_alignment(5));
  EXPECT_EQ(4096, vek_serv_effective_alignment(4096));
  const std::size_t W = sizeof(void *);
  struct { int asked; std::uintptr_t got; } cases[] = {{3, 0}, {4, 4}, {48, 32}, {128, 128}};
  for (auto c : cases) {
    void *u = vek_serv_malloc(100, c.asked);
    ASSERT_NE(nullptr, u);
    void *block = RecordingHeap::last_block;
    EXPECT_EQ(block, back_pointer(u)) << c.asked;
    if (c.got == 0) {
      EXPECT_EQ(addr(block) + W, addr(u));  // no alignment: just the word
    } else {
      EXPECT_EQ(0u, addr(u) % c.got) << c.asked;
      EXPECT_GE(addr(u), addr(block) + W);
      EXPECT_LE(addr(u) + 100, addr(block) + RecordingHeap::last_size);
    }
    vek_serv_free(u);
    ASSERT_FALSE(RecordingHeap::freed.empty());
    EXPECT_EQ(block, RecordingHeap::freed.back());
  }
}

TEST_F(BackPointer, SizeZeroAndRefusedHeapGiveNullCallocMultipliesIn32Bits) {
  EXPECT_EQ(nullptr, vek_serv_malloc(0, 128));
  EXPECT_EQ(nullptr, vek_serv_calloc(0, 8, 128));
  EXPECT_EQ(nullptr, vek_serv_calloc(65536, 65536, 128));  // wraps to 0
  EXPECT_EQ(0, RecordingHeap::mallocs);

  unsigned char *p = static_cast<unsigned char *>(vek_serv_calloc(7, 3, 0));  // 21 bytes
  ASSERT_NE(nullptr, p);
  for (int i = 0; i < 21; ++i) EXPECT_EQ(0, p[i]) << i;
  vek_serv_free(p);
  // 65537 * 65537 is 2^32 + 2^17 + 1: only the low 32 bits are asked for.
  p = static_cast<unsigned char *>(vek_serv_calloc(65537, 65537, 0));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(131073u + sizeof(void *), RecordingHeap::last_size);
  vek_serv_free(p);

  RecordingHeap::refuse = true;
  EXPECT_EQ(nullptr, vek_serv_malloc(64, 128));
  EXPECT_EQ(nullptr, vek_serv_calloc(8, 8, 128));
  EXPECT_EQ(nullptr, vek_serv_realloc(nullptr, 64));
}

TEST(BackPointerRuntimeHeap, CallocOfTheRuntimesHeapIsZeroAlignedAndFreedByTheService) {
  // With the C runtime's own table the zeroed blocks come from its calloc:
  // the same layout (back pointer in front, the alignment), all bytes zero,
  // also for a block large enough to come fresh from the system, and for
  // one that reuses freed memory that held other bytes.
  for (int round = 0; round < 2; ++round) {
    for (int count : {21, 3 << 20}) {
      unsigned char *p = static_cast<unsigned char *>(vek_serv_calloc(count, 1, 128));
      ASSERT_NE(nullptr, p);
      EXPECT_EQ(0u, addr(p) % 128);
      EXPECT_NE(nullptr, back_pointer(p));
      for (int i = 0; i < count; ++i) ASSERT_EQ(0, p[i]) << count << " at " << i;
      std::memset(p, 0xA5, static_cast<std::size_t>(count));  // for the next round
      vek_serv_free(p);
    }
  }
}

TEST_F(BackPointer, ReallocFromNullMovedOrRefused) {
  EXPECT_EQ(nullptr, vek_serv_realloc(nullptr, 0));
  void *n = vek_serv_realloc(nullptr, 10);  // from null: 128-aligned
  ASSERT_NE(nullptr, n);
  EXPECT_EQ(0u, addr(n) % 128);
  EXPECT_EQ(RecordingHeap::last_block, back_pointer(n));
  vek_serv_free(n);
  EXPECT_EQ(RecordingHeap::last_block, RecordingHeap::freed.back());

  // A refused realloc leaves the old block as it was.
  double *d = static_cast<double *>(vek_serv_malloc(8 * sizeof(double), 128));
  ASSERT_NE(nullptr, d);
  d[7] = 2.5;
  RecordingHeap::refuse = true;
  EXPECT_EQ(nullptr, vek_serv_realloc(d, 1 << 20));
  RecordingHeap::refuse = false;
  EXPECT_EQ(2.5, d[7]);
  vek_serv_free(d);

  // A moved block keeps its content and its offset from the heap block.
  RecordingHeap::always_move = true;
  int *u = static_cast<int *>(vek_serv_malloc(40 * sizeof(int), 128));
  ASSERT_NE(nullptr, u);
  for (int i = 0; i < 40; ++i) u[i] = 1000 + i;
  const std::uintptr_t offset = addr(u) - addr(back_pointer(u));
  int *v = static_cast<int *>(vek_serv_realloc(u, 4000 * sizeof(int)));
  ASSERT_NE(nullptr, v);
  ASSERT_NE(u, v);
  void *moved = RecordingHeap::last_block;
  EXPECT_EQ(addr(moved) + offset, addr(v));
  EXPECT_EQ(moved, back_pointer(v));
  for (int i = 0; i < 40; ++i) ASSERT_EQ(1000 + i, v[i]);
  vek_serv_free(v);
  EXPECT_EQ(moved, RecordingHeap::freed.back());
}

TEST_F(BackPointer, NullBackPointerIsIgnoredAndFreeListNullsEveryVariable) {
  alignas(16) unsigned char fake[64] = {};  // a user area whose back-pointer word is null
  vek_serv_free(fake + 16);
  EXPECT_EQ(nullptr, vek_serv_realloc(fake + 16, 100));
  vek_serv_free(nullptr);
  EXPECT_EQ(0, RecordingHeap::reallocs + RecordingHeap::frees);

  void *a = vek_serv_malloc(16, 128), *b = nullptr;
  double *c = static_cast<double *>(vek_serv_malloc(32, 4));
  void *block_a = back_pointer(a), *block_c = back_pointer(c);
  vek_serv_free_list(&a, &b, reinterpret_cast<void **>(&c), static_cast<void **>(nullptr));
  EXPECT_TRUE(a == nullptr && b == nullptr && c == nullptr);
  EXPECT_EQ(RecordingHeap::freed, (std::vector<void *>{block_a, block_c}));
}

TEST(SpinLock, ExcludesConcurrentWriters) {
  long counter = 0;
  auto work = [&counter] {
    for (int i = 0; i < 5000; ++i) {
      vek_serv_lock();
      long v = counter;
      std::this_thread::yield();  // widen the window a lost update needs
      counter = v + 1;
      vek_serv_unlock();
    }
  };
  std::thread t1(work), t2(work);
  t1.join();
  t2.join();
  EXPECT_EQ(10000, counter);
}

// ---------------------------------------------------------------------------
// Thread cache. Every test starts from an empty cache; the environment is
// read once per process, which the ctest run (one process per test) gives
// each test afresh.
// ---------------------------------------------------------------------------

namespace {

class Cache : public BackPointer {
 protected:
  void SetUp() override {
    BackPointer::SetUp();
    vek_serv_free_buffers();
    RecordingHeap::mallocs = RecordingHeap::frees = 0;
    RecordingHeap::freed.clear();
  }
  void TearDown() override {
    vek_serv_free_buffers();
    BackPointer::TearDown();
  }
  // The bytes the cache holds and its block count.
  static void expect_stat(std::int64_t bytes, int blocks) {
    int count = -5;
    EXPECT_EQ(bytes, vek_serv_mem_stat(&count));
    EXPECT_EQ(blocks, count);
  }
};

const std::int64_t MiB = 1 << 20;

}  // namespace

TEST_F(Cache, ReleasedBlockIsReusedWithoutHeapAndSizeBelowOneGivesNull) {
  EXPECT_EQ(nullptr, vek_serv_allocate(0, 128));
  EXPECT_EQ(nullptr, vek_serv_allocate(-8, 128));
  vek_serv_deallocate(nullptr);
  EXPECT_EQ(0, RecordingHeap::mallocs + RecordingHeap::frees);

  void *p = vek_serv_allocate(1000, 128);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0u, addr(p) % 128);
  expect_stat(1128, 1);
  vek_serv_deallocate(p);
  EXPECT_EQ(p, vek_serv_allocate(1000, 128));
  vek_serv_deallocate(p);
  // Same size + alignment, other alignment: the same block, realigned.
  void *q = vek_serv_allocate(1096, 32);
  EXPECT_EQ(0u, addr(q) % 32);
  EXPECT_GE(addr(q), addr(p) - 128);
  EXPECT_LE(addr(q), addr(p));
  vek_serv_deallocate(q);
  EXPECT_EQ(2, RecordingHeap::mallocs);  // the thread's state and the one block
  EXPECT_EQ(0, RecordingHeap::frees);
  expect_stat(1128, 1);
}

// Buffers beyond the five slots come from the heap and go back to it; a
// busy block is never handed out twice, an idle larger one is reused, and
// an idle smaller one is freed once and replaced.
TEST_F(Cache, BuffersBeyondTheSlotsAndReplacedSlotsNeverOverlap) {
  void *big = vek_serv_allocate(1 * MiB, 128);
  vek_serv_deallocate(big);
  unsigned char *held[5];
  for (int i = 0; i < 5; ++i) {
    held[i] = static_cast<unsigned char *>(vek_serv_allocate(4096, 128));
    std::memset(held[i], i, 4096);
  }
  EXPECT_NE(std::find(held, held + 5, big), held + 5);  // the idle larger block
  void *sixth = vek_serv_allocate(4096, 128);
  ASSERT_NE(nullptr, sixth);
  EXPECT_EQ(sixth, RecordingHeap::last_block);  // neither padded nor aligned
  vek_serv_deallocate(sixth);
  ASSERT_EQ(1, RecordingHeap::frees);
  EXPECT_EQ(sixth, RecordingHeap::freed.back());

  const int k = held[2] == big ? 3 : 2;  // a slot with a block of 4096
  vek_serv_deallocate(held[k]);
  held[k] = static_cast<unsigned char *>(vek_serv_allocate(5000, 128));
  ASSERT_EQ(2, RecordingHeap::frees);  // the smaller idle block, once
  std::memset(held[k], 9, 5000);
  for (int i = 0; i < 5; ++i) {
    if (i == k) continue;
    EXPECT_EQ(std::count(held[i], held[i] + 4096, i), 4096) << i;
  }
  for (void *h : held) vek_serv_deallocate(h);
  EXPECT_EQ(2, RecordingHeap::frees);
}

TEST_F(Cache, RefusedSlotBlockGivesNullAndNoBusySlot) {
  void *p = vek_serv_allocate(64, 128);
  vek_serv_deallocate(p);
  RecordingHeap::refuse = true;
  EXPECT_EQ(nullptr, vek_serv_allocate(999, 128));
  RecordingHeap::refuse = false;
  expect_stat(192, 1);
  EXPECT_EQ(p, vek_serv_allocate(64, 128));  // slot 0 was not disturbed
  vek_serv_deallocate(p);
}

TEST_F(Cache, ReleaseFromAnotherThreadReturnsToOwnersSlot) {
  void *p = nullptr, *again = nullptr;
  int mallocs_between = -1;
  std::promise<void> allocated, released;
  std::thread owner([&] {
    p = vek_serv_allocate(777, 128);
    allocated.set_value();
    released.get_future().wait();
    int before = RecordingHeap::mallocs;
    again = vek_serv_allocate(777, 128);
    mallocs_between = RecordingHeap::mallocs - before;
    vek_serv_deallocate(again);
  });
  allocated.get_future().wait();
  vek_serv_deallocate(p);  // this thread has no slot holding p
  EXPECT_EQ(0, RecordingHeap::frees);
  released.set_value();
  owner.join();
  EXPECT_EQ(p, again);
  EXPECT_EQ(0, mallocs_between);
  expect_stat(777 + 128, 1);  // the ended thread's state stays with its block
}

TEST_F(Cache, FreeingKeepsBusyBlocksAndEndsTheCacheOnlyWhenNothingIsBusy) {
  void *a = vek_serv_allocate(100, 128);
  void *b = vek_serv_allocate(200, 128);
  vek_serv_deallocate(a);
  vek_serv_thread_free_buffers();
  ASSERT_EQ(1, RecordingHeap::frees);
  expect_stat(328, 2);  // slot 0 is a hole below the busy slot 1
  std::thread other([] { vek_serv_deallocate(vek_serv_allocate(300, 128)); });
  other.join();
  vek_serv_free_buffers();  // b is still out: idle blocks go, states stay
  EXPECT_EQ(2, RecordingHeap::frees);
  expect_stat(328, 2);
  vek_serv_deallocate(b);  // still found in its slot, not freed directly
  EXPECT_EQ(2, RecordingHeap::frees);
  vek_serv_thread_free_buffers();
  EXPECT_EQ(3, RecordingHeap::frees);
  expect_stat(0, 0);
  vek_serv_free_buffers();
  expect_stat(0, 0);
  void *c = vek_serv_allocate(100, 128);  // a fresh cache serves the next request
  expect_stat(228, 1);
  EXPECT_EQ(228, vek_serv_mem_stat(nullptr));
  vek_serv_deallocate(c);
}

// The switch is read once per process.
TEST(CacheEnvironment, AnyValueDisables) {
  setenv("VEK_MM_DISABLE", "0", 1);  // not parsed: "0" disables too
  const vek_serv_heap_table saved = vek_serv_heap;
  RecordingHeap::install();
  for (int round = 0; round < 2; ++round) {
    void *p = vek_serv_allocate(1000, 128);
    EXPECT_EQ(RecordingHeap::last_block, p);
    EXPECT_EQ(1000u, RecordingHeap::last_size);
    vek_serv_deallocate(p);
  }
  EXPECT_EQ(2, RecordingHeap::mallocs);
  EXPECT_EQ(2, RecordingHeap::frees);
  int count = 0;
  EXPECT_EQ(0, vek_serv_mem_stat(&count));
  EXPECT_EQ(-1, count);
  vek_serv_heap = saved;
}
