// Tests of the memory service: back-pointer blocks, the heap table, the
// spin lock, and the per-thread buffer cache.
#include "service/vek_serv_memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

// A heap that records what passes through it, fills fresh blocks with
// garbage, can refuse requests, and can force every realloc to move.
struct RecordingHeap {
  static int mallocs, reallocs, frees;
  static bool refuse;
  static bool always_move;
  static void *last_block;
  static std::size_t last_size;
  static std::vector<void *> freed;

  static void *do_malloc(std::size_t n) {
    ++mallocs;
    if (refuse) return nullptr;
    void *p = std::malloc(n);
    std::memset(p, 0xAB, n);
    last_block = p;
    last_size = n;
    return p;
  }
  static void *do_calloc(std::size_t n, std::size_t m) {
    return std::calloc(n, m);
  }
  static void *do_realloc(void *p, std::size_t n) {
    ++reallocs;
    if (refuse) return nullptr;
    last_size = n;
    if (!always_move) return last_block = std::realloc(p, n);
    // Move to a block with a different low-bit pattern so that a lost
    // offset or a stale back pointer shows.
    char *q = static_cast<char *>(std::malloc(n + 16)) + 8;
    std::memcpy(q, p, n);  // the caller only grows blocks in these tests
    std::free(p);
    return last_block = q;
  }
  static void do_free(void *p) {
    ++frees;
    freed.push_back(p);
    // Blocks from the moving realloc sit 8 bytes into their allocation.
    if (always_move && reinterpret_cast<std::uintptr_t>(p) % 16 == 8)
      std::free(static_cast<char *>(p) - 8);
    else
      std::free(p);
  }
};
int RecordingHeap::mallocs, RecordingHeap::reallocs, RecordingHeap::frees;
bool RecordingHeap::refuse, RecordingHeap::always_move;
void *RecordingHeap::last_block;
std::size_t RecordingHeap::last_size;
std::vector<void *> RecordingHeap::freed;

class BackPointer : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = vek_serv_heap;
    vek_serv_heap = {RecordingHeap::do_malloc, RecordingHeap::do_calloc,
                     RecordingHeap::do_realloc, RecordingHeap::do_free};
    RecordingHeap::mallocs = RecordingHeap::reallocs = RecordingHeap::frees = 0;
    RecordingHeap::refuse = RecordingHeap::always_move = false;
    RecordingHeap::freed.clear();
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

TEST(AlignmentRule, SmallMeansNoneOddBecomes32) {
  EXPECT_EQ(0, vek_serv_effective_alignment(-5));
  EXPECT_EQ(0, vek_serv_effective_alignment(3));
  EXPECT_EQ(4, vek_serv_effective_alignment(4));
  EXPECT_EQ(32, vek_serv_effective_alignment(48));
  EXPECT_EQ(32, vek_serv_effective_alignment(5));
  EXPECT_EQ(128, vek_serv_effective_alignment(128));
  EXPECT_EQ(4096, vek_serv_effective_alignment(4096));
}

TEST_F(BackPointer, MallocLayoutPerAlignment) {
  const std::size_t W = sizeof(void *);
  struct { int asked; std::uintptr_t got; } cases[] = {
      {3, 0}, {4, 4}, {48, 32}, {128, 128}};
  for (auto c : cases) {
    void *u = vek_serv_malloc(100, c.asked);
    ASSERT_NE(nullptr, u);
    void *block = RecordingHeap::last_block;
    EXPECT_EQ(c.got + 100 + W, RecordingHeap::last_size) << c.asked;
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

TEST_F(BackPointer, SizeZeroAndRefusedHeapGiveNull) {
  EXPECT_EQ(nullptr, vek_serv_malloc(0, 128));
  EXPECT_EQ(0, RecordingHeap::mallocs);
  RecordingHeap::refuse = true;
  EXPECT_EQ(nullptr, vek_serv_malloc(64, 128));
  EXPECT_EQ(nullptr, vek_serv_calloc(8, 8, 128));
  EXPECT_EQ(nullptr, vek_serv_realloc(nullptr, 64));
  EXPECT_EQ(3, RecordingHeap::mallocs);  // every request reached the table
}

TEST_F(BackPointer, CallocZeroFillsAndMultipliesIn32Bits) {
  EXPECT_EQ(nullptr, vek_serv_calloc(0, 8, 128));
  EXPECT_EQ(nullptr, vek_serv_calloc(65536, 65536, 128));  // wraps to 0
  EXPECT_EQ(0, RecordingHeap::mallocs);

  unsigned char *p = static_cast<unsigned char *>(vek_serv_calloc(3, 1, 128));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0, p[0] | p[1] | p[2]);
  vek_serv_free(p);

  p = static_cast<unsigned char *>(vek_serv_calloc(7, 3, 0));  // 21 bytes
  ASSERT_NE(nullptr, p);
  for (int i = 0; i < 21; ++i) EXPECT_EQ(0, p[i]) << i;
  vek_serv_free(p);

  // 65537 * 65537 is 2^32 + 2^17 + 1: only the low 32 bits are asked for.
  p = static_cast<unsigned char *>(vek_serv_calloc(65537, 65537, 0));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(131073u + sizeof(void *), RecordingHeap::last_size);
  vek_serv_free(p);
}

TEST_F(BackPointer, ReallocFromNullIs128Aligned) {
  EXPECT_EQ(nullptr, vek_serv_realloc(nullptr, 0));
  void *u = vek_serv_realloc(nullptr, 10);
  ASSERT_NE(nullptr, u);
  EXPECT_EQ(0u, addr(u) % 128);
  void *block = back_pointer(u);
  EXPECT_EQ(RecordingHeap::last_block, block);
  vek_serv_free(u);
  EXPECT_EQ(block, RecordingHeap::freed.back());
}

TEST_F(BackPointer, ReallocMovedKeepsContentAndOffset) {
  RecordingHeap::always_move = true;
  int *u = static_cast<int *>(vek_serv_malloc(40 * sizeof(int), 128));
  ASSERT_NE(nullptr, u);
  for (int i = 0; i < 40; ++i) u[i] = 1000 + i;
  std::uintptr_t offset = addr(u) - addr(back_pointer(u));

  int *v = static_cast<int *>(vek_serv_realloc(u, 4000 * sizeof(int)));
  ASSERT_NE(nullptr, v);
  ASSERT_NE(u, v);
  void *moved = RecordingHeap::last_block;
  EXPECT_EQ(4000 * sizeof(int) + offset, RecordingHeap::last_size);
  EXPECT_EQ(addr(moved) + offset, addr(v));
  EXPECT_EQ(moved, back_pointer(v));
  for (int i = 0; i < 40; ++i) ASSERT_EQ(1000 + i, v[i]);
  vek_serv_free(v);
  EXPECT_EQ(moved, RecordingHeap::freed.back());
}

TEST_F(BackPointer, RefusedReallocLeavesOldBlock) {
  double *u = static_cast<double *>(vek_serv_malloc(8 * sizeof(double), 128));
  ASSERT_NE(nullptr, u);
  u[7] = 2.5;
  RecordingHeap::refuse = true;
  EXPECT_EQ(nullptr, vek_serv_realloc(u, 1 << 20));
  RecordingHeap::refuse = false;
  EXPECT_EQ(2.5, u[7]);
  vek_serv_free(u);
  EXPECT_EQ(1, RecordingHeap::frees);
}

TEST_F(BackPointer, NullBackPointerIsIgnored) {
  // A user area whose back-pointer word is null.
  alignas(16) unsigned char fake[64] = {};
  void *u = fake + 16;
  vek_serv_free(u);
  EXPECT_EQ(0, RecordingHeap::frees);
  EXPECT_EQ(nullptr, vek_serv_realloc(u, 100));
  EXPECT_EQ(0, RecordingHeap::reallocs);
  vek_serv_free(nullptr);
  EXPECT_EQ(0, RecordingHeap::frees);
}

TEST_F(BackPointer, FreeListFreesAndNullsEveryVariable) {
  void *a = vek_serv_malloc(16, 128);
  void *b = nullptr;
  double *c = static_cast<double *>(vek_serv_malloc(32, 4));
  void *block_a = back_pointer(a), *block_c = back_pointer(c);
  vek_serv_free_list(&a, &b, reinterpret_cast<void **>(&c),
                     static_cast<void **>(nullptr));
  EXPECT_EQ(nullptr, a);
  EXPECT_EQ(nullptr, b);
  EXPECT_EQ(nullptr, c);
  ASSERT_EQ(2u, RecordingHeap::freed.size());
  EXPECT_EQ(block_a, RecordingHeap::freed[0]);
  EXPECT_EQ(block_c, RecordingHeap::freed[1]);
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
