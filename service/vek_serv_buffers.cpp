// vek_serv_buffers.cpp - the per-thread cache of scratch buffers.
//
// Each thread that uses the cache gets a state of five slots. A slot keeps
// one heap block after its buffer is given back, so that the dense layer,
// which asks again and again for buffers of the same sizes, pays no heap
// call after the first one. The fast paths (a thread scanning its own
// slots) take no lock and use no atomic read-modify-write: only the owner
// changes a slot's block, address and size; other threads only ever store
// 0 into a busy word.
#include "service/vek_serv_memory.h"

#include "platform/vek_platform.h"

#include <cstdint>

namespace {

const int VEK_CACHE_SLOTS = 5;
const std::int64_t VEK_CACHE_MAX_REQUEST = 41943040;  // 40 MiB
const int VEK_CACHE_REGISTRY = 8193;                  // states, numbered from 1

struct vek_cache_state {
  void *raw[VEK_CACHE_SLOTS];                // heap block, null if none
  void *user[VEK_CACHE_SLOTS];               // address handed out
  std::uint32_t raw_size[VEK_CACHE_SLOTS];   // bytes of the heap block
  std::int32_t busy[VEK_CACHE_SLOTS];        // 1 while handed out
  std::int64_t slot_count;                   // slots in use, 0 to 5
};

// Disabled: -1 until the environment has been read, then 0 or 1.
std::int32_t cache_disabled = -1;
std::int32_t cache_env_read = 0;

std::int32_t cache_key_set = 0;
vek_os_tls_key cache_key;

vek_cache_state *cache_registry[VEK_CACHE_REGISTRY];  // entry k at [k - 1]
std::int32_t cache_count = 0;

// Words that another thread may read or write without the lock are accessed
// as single aligned 32-bit loads and stores.
inline std::int32_t load_word(const std::int32_t *w) {
  return __atomic_load_n(w, __ATOMIC_ACQUIRE);
}
inline void store_word(std::int32_t *w, std::int32_t v) {
  __atomic_store_n(w, v, __ATOMIC_RELEASE);
}
inline std::int32_t load_relaxed(const std::int32_t *w) {
  return __atomic_load_n(w, __ATOMIC_RELAXED);
}
inline void store_relaxed(std::int32_t *w, std::int32_t v) {
  __atomic_store_n(w, v, __ATOMIC_RELAXED);
}

// Any non-empty value of either variable disables the cache; the text is
// not parsed, so "0" disables too.
void read_environment() {
  if (load_word(&cache_env_read)) return;
  vek_serv_lock();
  if (!load_relaxed(&cache_env_read)) {
    char buf[16];
    int off = 0;
    const char *names[2] = {"VEK_DISABLE_FAST_MM", "VEK_MM_DISABLE"};
    for (const char *name : names) {
      buf[0] = '\0';
      // A value too long for the buffer reports its length, not 0: set.
      if (vek_os_getenv(name, buf, sizeof buf) != 0) off = 1;
    }
    cache_disabled = off;
    store_word(&cache_env_read, 1);
  }
  vek_serv_unlock();
}

inline bool is_disabled() {
  read_environment();
  return cache_disabled == 1;
}

void ensure_key() {
  if (load_word(&cache_key_set)) return;
  vek_serv_lock();
  if (!load_relaxed(&cache_key_set)) {
    if (vek_os_tls_alloc(&cache_key)) store_word(&cache_key_set, 1);
  }
  vek_serv_unlock();
}

inline vek_cache_state *own_state() {
  if (!load_word(&cache_key_set)) return nullptr;
  return static_cast<vek_cache_state *>(vek_os_tls_get(cache_key));
}

// A new state for the calling thread. Null when the heap refuses it; when
// the registry filled up meanwhile, null with *full set.
vek_cache_state *create_state(int *full) {
  vek_cache_state *s = nullptr;
  *full = 0;
  vek_serv_lock();
  if (cache_count >= VEK_CACHE_REGISTRY) {
    *full = 1;
  } else {
    s = static_cast<vek_cache_state *>(
        vek_serv_heap.malloc_fn(sizeof(vek_cache_state)));
    if (s != nullptr) {
      for (int i = 0; i < VEK_CACHE_SLOTS; ++i) {
        s->raw[i] = nullptr;
        s->user[i] = nullptr;
        s->raw_size[i] = 0;
        s->busy[i] = 0;
      }
      s->slot_count = 0;
      if (vek_os_tls_set(cache_key, s)) {
        cache_registry[cache_count] = s;
        store_relaxed(&cache_count, cache_count + 1);
      } else {
        vek_serv_heap.free_fn(s);
        s = nullptr;
      }
    }
  }
  vek_serv_unlock();
  return s;
}

// Aligned address inside a slot's block: the block itself when it already
// has the alignment, else the next boundary above it.
inline void *slot_user(void *raw, std::uintptr_t alignment) {
  std::uintptr_t r = reinterpret_cast<std::uintptr_t>(raw);
  std::uintptr_t mask = alignment ? alignment - 1 : 0;
  if ((r & mask) == 0) return raw;
  return reinterpret_cast<void *>((r & ~mask) + alignment);
}

inline void empty_slot(vek_cache_state *s, int i) {
  s->raw[i] = nullptr;
  s->user[i] = nullptr;
  s->raw_size[i] = 0;
  store_relaxed(&s->busy[i], 0);
}

// Frees the idle blocks of one state; returns 1 if a block is still busy.
int free_idle_blocks(vek_cache_state *s) {
  int any_busy = 0;
  for (int i = 0; i < s->slot_count; ++i) {
    if (s->raw[i] == nullptr) continue;
    if (load_word(&s->busy[i])) {
      any_busy = 1;
    } else {
      vek_serv_heap.free_fn(s->raw[i]);
      empty_slot(s, i);
    }
  }
  return any_busy;
}

}  // namespace

void *vek_serv_allocate(std::int64_t size, int alignment) {
  ensure_key();
  if (size < 1) return nullptr;
  const std::size_t bytes = static_cast<std::size_t>(size);
  if (is_disabled()) return vek_serv_heap.malloc_fn(bytes);
  if (size > VEK_CACHE_MAX_REQUEST) return vek_serv_heap.malloc_fn(bytes);

  const std::uintptr_t align =
      static_cast<std::uintptr_t>(vek_serv_effective_alignment(alignment));
  const std::uint32_t total = static_cast<std::uint32_t>(size + align);

  if (!load_word(&cache_key_set)) return vek_serv_heap.malloc_fn(bytes);
  vek_cache_state *s = own_state();
  if (s == nullptr) {
    if (load_relaxed(&cache_count) >= VEK_CACHE_REGISTRY)
      return vek_serv_heap.malloc_fn(bytes);
    int full;
    s = create_state(&full);
    if (full) return vek_serv_heap.malloc_fn(bytes);
    if (s == nullptr) return nullptr;
  }

  int larger = -1, smaller = -1;
  for (int i = 0; i < s->slot_count; ++i) {
    if (load_word(&s->busy[i])) continue;
    if (s->raw[i] != nullptr && s->raw_size[i] == total) {
      s->user[i] = slot_user(s->raw[i], align);
      store_relaxed(&s->busy[i], 1);
      return s->user[i];
    }
    if (s->raw[i] != nullptr && s->raw_size[i] > total) {
      if (larger < 0) larger = i;
    } else if (smaller < 0) {
      smaller = i;  // a slot without a block counts as smaller
    }
  }

  if (s->slot_count < VEK_CACHE_SLOTS) {
    // A free slot is preferred over an idle larger block.
    int i = static_cast<int>(s->slot_count);
    void *raw = vek_serv_heap.malloc_fn(total);
    if (raw == nullptr) return nullptr;
    s->raw[i] = raw;
    s->raw_size[i] = total;
    s->user[i] = slot_user(raw, align);
    store_relaxed(&s->busy[i], 1);
    s->slot_count = i + 1;
    return s->user[i];
  }
  if (larger >= 0) {  // first fit; the block keeps its size
    s->user[larger] = slot_user(s->raw[larger], align);
    store_relaxed(&s->busy[larger], 1);
    return s->user[larger];
  }
  if (smaller >= 0) {
    if (s->raw[smaller] != nullptr) vek_serv_heap.free_fn(s->raw[smaller]);
    empty_slot(s, smaller);
    void *raw = vek_serv_heap.malloc_fn(total);
    if (raw == nullptr) return nullptr;  // the slot stays an idle hole
    s->raw[smaller] = raw;
    s->raw_size[smaller] = total;
    s->user[smaller] = slot_user(raw, align);
    store_relaxed(&s->busy[smaller], 1);
    return s->user[smaller];
  }
  return vek_serv_heap.malloc_fn(bytes);  // all five slots busy
}

void vek_serv_deallocate(void *pointer) {
  if (pointer == nullptr) return;
  if (is_disabled()) {
    vek_serv_heap.free_fn(pointer);
    return;
  }
  if (vek_cache_state *s = own_state()) {
    for (int i = 0; i < s->slot_count; ++i) {
      if (s->raw[i] != nullptr && s->user[i] == pointer) {
        store_relaxed(&s->busy[i], 0);
        return;
      }
    }
  }
  // Another thread's buffer goes back to the slot of the thread that
  // allocated it.
  vek_serv_lock();
  for (int k = 0; k < cache_count; ++k) {
    vek_cache_state *s = cache_registry[k];
    for (int i = 0; i < s->slot_count; ++i) {
      if (s->raw[i] != nullptr && s->user[i] == pointer) {
        store_word(&s->busy[i], 0);
        vek_serv_unlock();
        return;
      }
    }
  }
  vek_serv_unlock();
  vek_serv_heap.free_fn(pointer);  // a buffer that came straight from the heap
}

void vek_serv_thread_free_buffers() {
  vek_cache_state *s = own_state();
  if (s == nullptr || is_disabled()) return;
  // Emptied slots below a busy one stay as holes, which the allocation
  // treats as idle smaller blocks.
  if (!free_idle_blocks(s)) s->slot_count = 0;
}

void vek_serv_free_buffers() {
  if (is_disabled()) return;
  vek_serv_lock();
  int any_busy = 0;
  for (int k = 0; k < cache_count; ++k) {
    vek_cache_state *s = cache_registry[k];
    if (free_idle_blocks(s))
      any_busy = 1;
    else
      s->slot_count = 0;
  }
  // With a buffer still out, every state stays: its thread keeps its slots
  // and its registry entry. Otherwise the cache starts again from nothing.
  if (!any_busy) {
    for (int k = 0; k < cache_count; ++k) {
      vek_serv_heap.free_fn(cache_registry[k]);
      cache_registry[k] = nullptr;
    }
    store_relaxed(&cache_count, 0);
    if (load_relaxed(&cache_key_set)) {
      vek_os_tls_free(cache_key);
      store_word(&cache_key_set, 0);
    }
  }
  vek_serv_unlock();
}

std::int64_t vek_serv_mem_stat(int *block_count) {
  if (is_disabled()) {
    if (block_count != nullptr) *block_count = -1;
    return 0;
  }
  std::int64_t bytes = 0;
  std::int64_t blocks = 0;
  vek_serv_lock();
  for (int k = 0; k < cache_count; ++k) {
    const vek_cache_state *s = cache_registry[k];
    blocks += s->slot_count;
    for (int i = 0; i < s->slot_count; ++i)
      if (s->raw[i] != nullptr) bytes += s->raw_size[i];
  }
  vek_serv_unlock();
  if (block_count != nullptr) *block_count = static_cast<int>(blocks);
  return bytes;
}
