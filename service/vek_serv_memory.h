// vek_serv_memory.h - the memory service: aligned back-pointer blocks, the
// per-thread buffer cache, and the one spin lock of the service layer.
#ifndef VEK_SERV_MEMORY_H
#define VEK_SERV_MEMORY_H

#include <cstddef>
#include <cstdint>

// The four replaceable heap operations. Every heap access of the service goes
// through this table; tests and hosts may swap the entries. The calloc entry
// is used only while all four are the C runtime's own; a replaced heap gets
// its zero-filled blocks through malloc_fn and a clearing pass.
struct vek_serv_heap_table {
  void *(*malloc_fn)(std::size_t);
  void *(*calloc_fn)(std::size_t, std::size_t);
  void *(*realloc_fn)(void *, std::size_t);
  void (*free_fn)(void *);
};
extern "C" vek_serv_heap_table vek_serv_heap;

// Returns the heap's free pages to the system when the table holds the C
// runtime's own functions; a replaced heap is left to its owner.
void vek_serv_heap_release();

// Alignment rule of both families: below 4 means none (0); 4 or more that
// is not a power of two becomes 32; otherwise the alignment itself.
int vek_serv_effective_alignment(int alignment);

// Back-pointer family. The word in front of the user area holds the address
// of the heap block (4 bytes on a 32-bit host, a pointer-sized word on a
// 64-bit host). All return null for size 0 or when the heap refuses.
void *vek_serv_malloc(std::size_t size, int alignment);
void *vek_serv_calloc(int count, int element_size, int alignment);
void *vek_serv_realloc(void *pointer, std::size_t size);
void  vek_serv_free(void *pointer);
// Takes addresses of pointer variables, ended by a null address; frees each
// non-null one and sets every variable to null.
void  vek_serv_free_list(void **first, ...);

// Thread cache of scratch buffers (5 slots a thread, 40 MiB per block).
// Never mix with the back-pointer family. "VEK_DISABLE_FAST_MM" or
// "VEK_MM_DISABLE" set to any non-empty value, read once per process, turns
// the cache off: buffers then come straight from the heap.
void   *vek_serv_allocate(std::int64_t size, int alignment);
void    vek_serv_deallocate(void *pointer);
// These three are part of the library's public interface (telmira.h
// declares them for C callers): C linkage, visible from the shared library.
#if defined(_WIN32)
#  define VEK_SERV_PUBLIC __declspec(dllexport)
#else
#  define VEK_SERV_PUBLIC __attribute__((visibility("default")))
#endif
extern "C" {
VEK_SERV_PUBLIC void vek_serv_thread_free_buffers();
VEK_SERV_PUBLIC void vek_serv_free_buffers();
VEK_SERV_PUBLIC std::int64_t vek_serv_mem_stat(int *block_count);
}

// The global spin lock.
void vek_serv_lock();
void vek_serv_unlock();

#endif
