// vek_platform.h - the operating-system layer.
//
// Every call of the operating system that the library makes goes through
// this header. The Linux implementation lives in platform/linux; a Windows
// build supplies the same functions over the Win32 calls they are named
// after, and nothing else in the library changes.
#ifndef VEK_PLATFORM_H
#define VEK_PLATFORM_H

#include <cstddef>
#include <cstdint>

// --- Environment ----------------------------------------------------------
// Copies the value of an environment variable into buf, with the contract of
// GetEnvironmentVariableA: returns the number of characters stored, without
// the terminating null; returns 0 when the variable is unset (buf[0] is then
// 0); when the value does not fit in size characters including the null,
// returns the size needed and leaves buf untouched.
unsigned vek_os_getenv(const char *name, char *buf, unsigned size);

// --- Paths -----------------------------------------------------------------
// The character that separates a directory from a file name in a path: a
// backslash on Windows, a slash here.
char vek_os_path_separator();

// --- Files (CreateFileA, ReadFile, WriteFile, SetFilePointerEx, DeleteFileA)
// Binary files addressed by byte position, for the work files of the
// out-of-core mode. A handle is null when the file could not be opened.
typedef void *vek_os_file;
// write 0: an existing file for reading and writing; write 1: the file made
// anew, empty, for reading and writing.
vek_os_file vek_os_file_open(const char *name, int write);
int vek_os_file_close(vek_os_file f);  // 0 on success
// Moves bytes between buf and the file at byte position pos. Returns the
// bytes moved, fewer at the end of the file or when the device is full, and
// -1 on an error of the device.
std::int64_t vek_os_file_read(vek_os_file f, std::int64_t pos, void *buf, std::size_t bytes);
std::int64_t vek_os_file_write(vek_os_file f, std::int64_t pos, const void *buf,
                               std::size_t bytes);
std::int64_t vek_os_file_size(vek_os_file f);  // -1 on failure
int vek_os_file_remove(const char *name);      // 0 on success

// --- Heap (HeapCompact) ----------------------------------------------------
// Hands the free pages of the C runtime's heap back to the system, so that
// memory freed by one phase leaves the process's resident size before the
// next one allocates. Does nothing where the runtime has no such call.
void vek_os_heap_release();

// --- Thread-local storage (TlsAlloc, TlsGetValue, TlsSetValue, TlsFree) ---
typedef std::uintptr_t vek_os_tls_key;
int   vek_os_tls_alloc(vek_os_tls_key *key);  // 1 on success, 0 on failure
void *vek_os_tls_get(vek_os_tls_key key);
int   vek_os_tls_set(vek_os_tls_key key, void *value);
void  vek_os_tls_free(vek_os_tls_key key);

// --- Processor affinity (GetProcessAffinityMask, SetThreadAffinityMask) ---
// Masks hold one bit per logical processor, 64 processors at most.
int vek_os_get_process_affinity(std::uint64_t *process_mask,
                                std::uint64_t *system_mask);
// Pins the calling thread; returns the previous mask, or 0 on failure.
std::uint64_t vek_os_set_thread_affinity(std::uint64_t mask);
void vek_os_sleep0();  // gives up the rest of the time slice, as Sleep(0)

// --- Clocks (QueryPerformanceFrequency, QueryPerformanceCounter, clock) ---
int vek_os_perf_frequency(std::int64_t *ticks_per_second);  // 1 on success
int vek_os_perf_counter(std::int64_t *ticks);                // 1 on success
// Processor time in milliseconds, as the host C runtime's clock() counts.
double vek_os_clock_ms();

// --- Processor (CPUID and the time stamp counter) -------------------------
int  vek_os_has_cpuid();  // 1 if bit 21 of the flags register can be toggled
void vek_os_cpuid(unsigned leaf, unsigned subleaf, unsigned regs[4]); // EAX,EBX,ECX,EDX
std::uint64_t vek_os_rdtsc();
// Extended control register 0: the register states the system saves on a
// thread switch. Only when CPUID leaf 1 ECX bit 27 (OSXSAVE) is set.
std::uint64_t vek_os_xcr0();

// --- Message catalogue (LoadLibraryA, FormatMessageA, GetThreadLocale) ----
// Opens the catalogue of the given file name; null when there is none.
void *vek_os_catalogue_open(const char *file_name);
// Address of a function of the process's loaded libraries by name; null
// when none has it.
void *vek_os_find_symbol(const char *name);
// Formats message id of the catalogue into buf; returns the length, 0 when
// the catalogue has no such message.
unsigned vek_os_catalogue_format(void *catalogue, unsigned id, char *buf,
                                 unsigned size);

// --- Address space (no limit on Windows: the first answers -1 there) ------
// The limit on the process's virtual address space in bytes; -1 when there
// is none.
std::int64_t vek_os_address_space_limit();
// The process's virtual size now, in bytes; -1 when it cannot be read.
std::int64_t vek_os_virtual_size();

// --- Atomic word for the spin lock (InterlockedCompareExchange) -----------
// Stores desired when *word equals expected; returns the old value.
std::int32_t vek_os_compare_exchange(volatile std::int32_t *word,
                                     std::int32_t desired,
                                     std::int32_t expected);
void vek_os_store_release(volatile std::int32_t *word, std::int32_t value);

#endif
