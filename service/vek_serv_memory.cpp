// vek_serv_memory.cpp - the heap table, the back-pointer family of aligned
// blocks, the alignment rule shared with the thread cache, and the one spin
// lock of the service layer.
#include "service/vek_serv_memory.h"

#include "platform/vek_platform.h"

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// Defaults are the C runtime's heap functions. Nothing in the library calls
// the heap except through these four entries (the calloc entry only while
// the table holds the runtime's own functions).
vek_serv_heap_table vek_serv_heap = {std::malloc, std::calloc,
                                    std::realloc, std::free};

void vek_serv_heap_release() {
  if (vek_serv_heap.malloc_fn == std::malloc && vek_serv_heap.free_fn == std::free)
    vek_os_heap_release();
}

// ---------------------------------------------------------------------------
// Alignment rule
// ---------------------------------------------------------------------------

int vek_serv_effective_alignment(int alignment) {
  if (alignment < 4) return 0;
  if ((alignment & (alignment - 1)) != 0) return 32;
  return alignment;
}

// ---------------------------------------------------------------------------
// Back-pointer blocks
//
// One heap block holds: slack, the back-pointer word, the user area. The
// back pointer is the address of the heap block and sits directly in front
// of the user area. On the 32-bit host this word is 4 bytes; on a 64-bit
// host it is pointer-sized (VEK_BACK_WORD bytes), and every "4" of the
// layout becomes that width. With alignment 4 on a 64-bit host the word is
// only 4-aligned, so it is read and written bytewise.
// ---------------------------------------------------------------------------

namespace {

const std::uintptr_t VEK_BACK_WORD = sizeof(void *);
// Fixed alignment of a block that vek_serv_realloc creates from null.
const std::uintptr_t VEK_REALLOC_ALIGN = 128;

inline void store_back_pointer(void *user, void *block) {
  std::memcpy(static_cast<char *>(user) - VEK_BACK_WORD, &block,
              sizeof(void *));
}

inline void *load_back_pointer(const void *user) {
  void *block;
  std::memcpy(&block, static_cast<const char *>(user) - VEK_BACK_WORD,
              sizeof(void *));
  return block;
}

// User pointer of a heap block for the given effective alignment: at least
// one back-pointer word lies in front of it, also with no alignment.
inline void *user_of_block(void *block, std::uintptr_t alignment) {
  std::uintptr_t mask = alignment ? alignment - 1 : 0;
  std::uintptr_t u =
      (reinterpret_cast<std::uintptr_t>(block) + alignment + VEK_BACK_WORD) &
      ~mask;
  return reinterpret_cast<void *>(u);
}

// A back-pointer block of size bytes for the alignment asked, taken from
// the given heap call (malloc-like, or the runtime's calloc for one unit).
template <class Take> void *aligned_block(std::size_t size, int alignment, Take take) {
  std::uintptr_t align =
      static_cast<std::uintptr_t>(vek_serv_effective_alignment(alignment));
  void *block = take(align + size + VEK_BACK_WORD);
  if (block == nullptr) return nullptr;
  void *user = user_of_block(block, align);
  store_back_pointer(user, block);
  return user;
}

}  // namespace

void *vek_serv_malloc(std::size_t size, int alignment) {
  if (size == 0) return nullptr;
  return aligned_block(size, alignment, [](std::size_t b) { return vek_serv_heap.malloc_fn(b); });
}

void *vek_serv_calloc(int count, int element_size, int alignment) {
  // The product is taken in 32 bits, as the callers' counts are.
  std::uint32_t bytes =
      static_cast<std::uint32_t>(count) * static_cast<std::uint32_t>(element_size);
  if (bytes == 0) return nullptr;
  if (vek_serv_heap.malloc_fn == std::malloc && vek_serv_heap.calloc_fn == std::calloc &&
      vek_serv_heap.free_fn == std::free) {
    // The C runtime's own heap: its calloc takes large blocks fresh from the
    // system, already zero, so that their pages are first touched by the
    // code that uses them rather than by a clearing pass here.
    return aligned_block(bytes, alignment, [](std::size_t b) { return std::calloc(1, b); });
  }
  void *user = vek_serv_malloc(bytes, alignment);
  if (user == nullptr) return nullptr;
  // Whole 32-bit words first, then the last 0 to 3 bytes.
  unsigned char *p = static_cast<unsigned char *>(user);
  const std::uint32_t zero = 0;
  std::uint32_t words = bytes / 4;
  for (std::uint32_t i = 0; i < words; ++i) std::memcpy(p + 4 * i, &zero, 4);
  for (std::uint32_t i = 4 * words; i < bytes; ++i) p[i] = 0;
  return user;
}

void *vek_serv_realloc(void *pointer, std::size_t size) {
  if (pointer == nullptr) {
    if (size == 0) return nullptr;
    void *block =
        vek_serv_heap.malloc_fn(size + VEK_REALLOC_ALIGN + VEK_BACK_WORD);
    if (block == nullptr) return nullptr;
    void *user = user_of_block(block, VEK_REALLOC_ALIGN);
    store_back_pointer(user, block);
    return user;
  }
  void *block = load_back_pointer(pointer);
  if (block == nullptr) return nullptr;
  std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(pointer) -
                          reinterpret_cast<std::uintptr_t>(block);
  void *moved = vek_serv_heap.realloc_fn(block, size + offset);
  if (moved == nullptr) return nullptr;  // old block stays intact
  if (moved == block) return pointer;
  // The offset is kept, not the alignment: a moved block is only as aligned
  // as the heap's new block happens to allow.
  void *user = static_cast<char *>(moved) + offset;
  store_back_pointer(user, moved);
  return user;
}

void vek_serv_free(void *pointer) {
  if (pointer == nullptr) return;
  void *block = load_back_pointer(pointer);
  if (block == nullptr) return;
  vek_serv_heap.free_fn(block);
}

void vek_serv_free_list(void **first, ...) {
  va_list ap;
  va_start(ap, first);
  for (void **var = first; var != nullptr; var = va_arg(ap, void **)) {
    if (*var != nullptr) vek_serv_free(*var);
    *var = nullptr;
  }
  va_end(ap);
}

// ---------------------------------------------------------------------------
// The spin lock: a busy loop on one 32-bit word, no pause, not reentrant.
// ---------------------------------------------------------------------------

namespace {
volatile std::int32_t vek_serv_lock_word = 0;
}

void vek_serv_lock() {
  while (vek_os_compare_exchange(&vek_serv_lock_word, 1, 0) != 0) {
  }
}

void vek_serv_unlock() { vek_os_store_release(&vek_serv_lock_word, 0); }
