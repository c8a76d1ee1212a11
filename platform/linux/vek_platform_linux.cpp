// Linux implementation of the operating-system layer (vek_platform.h).
#include <dlfcn.h>
#include "platform/vek_platform.h"

#include <fcntl.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <x86intrin.h>
#define VEK_X86 1
#endif

unsigned vek_os_getenv(const char *name, char *buf, unsigned size) {
  const char *v = std::getenv(name);
  if (v == nullptr) {
    if (size > 0) buf[0] = '\0';
    return 0;
  }
  std::size_t len = std::strlen(v);
  if (len + 1 > size) return static_cast<unsigned>(len + 1);
  std::memcpy(buf, v, len + 1);
  return static_cast<unsigned>(len);
}

// --- Heap --------------------------------------------------------------------
void vek_os_heap_release() {
#if defined(__GLIBC__)
  ::malloc_trim(0);
#endif
}

// --- Paths -------------------------------------------------------------------
char vek_os_path_separator() { return '/'; }

// --- Files -------------------------------------------------------------------
// The handle carries the descriptor plus one, so that descriptor 0 is not null.
static int fd_of(vek_os_file f) { return static_cast<int>(reinterpret_cast<std::intptr_t>(f)) - 1; }

vek_os_file vek_os_file_open(const char *name, int write) {
  const int flags = write ? (O_RDWR | O_CREAT | O_TRUNC) : O_RDWR;
  int fd;
  do {
    fd = ::open(name, flags | O_CLOEXEC, 0600);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return nullptr;
  return reinterpret_cast<vek_os_file>(static_cast<std::intptr_t>(fd) + 1);
}

int vek_os_file_close(vek_os_file f) {
  if (f == nullptr) return -1;
  return ::close(fd_of(f)) == 0 ? 0 : -1;
}

std::int64_t vek_os_file_read(vek_os_file f, std::int64_t pos, void *buf, std::size_t bytes) {
  char *p = static_cast<char *>(buf);
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t k = ::pread(fd_of(f), p + done, bytes - done, static_cast<off_t>(pos + done));
    if (k < 0 && errno == EINTR) continue;
    if (k < 0) return -1;
    if (k == 0) break;
    done += static_cast<std::size_t>(k);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t vek_os_file_write(vek_os_file f, std::int64_t pos, const void *buf,
                               std::size_t bytes) {
  const char *p = static_cast<const char *>(buf);
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t k =
        ::pwrite(fd_of(f), p + done, bytes - done, static_cast<off_t>(pos + done));
    if (k < 0 && errno == EINTR) continue;
    if (k < 0) return done > 0 ? static_cast<std::int64_t>(done) : -1;
    if (k == 0) break;
    done += static_cast<std::size_t>(k);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t vek_os_file_size(vek_os_file f) {
  struct stat st;
  if (::fstat(fd_of(f), &st) != 0) return -1;
  return static_cast<std::int64_t>(st.st_size);
}

int vek_os_file_remove(const char *name) { return ::unlink(name) == 0 ? 0 : -1; }

// --- Thread-local storage ---------------------------------------------------
int vek_os_tls_alloc(vek_os_tls_key *key) {
  pthread_key_t k;
  if (pthread_key_create(&k, nullptr) != 0) return 0;
  *key = static_cast<vek_os_tls_key>(k);
  return 1;
}
void *vek_os_tls_get(vek_os_tls_key key) {
  return pthread_getspecific(static_cast<pthread_key_t>(key));
}
int vek_os_tls_set(vek_os_tls_key key, void *value) {
  return pthread_setspecific(static_cast<pthread_key_t>(key), value) == 0;
}
void vek_os_tls_free(vek_os_tls_key key) {
  pthread_key_delete(static_cast<pthread_key_t>(key));
}

// --- Affinity -----------------------------------------------------------------
static std::uint64_t mask_of(const cpu_set_t &set) {
  std::uint64_t m = 0;
  for (int i = 0; i < 64; ++i)
    if (CPU_ISSET(i, &set)) m |= (std::uint64_t(1) << i);
  return m;
}

// The system mask holds the processors that are online. Linux lists them in
// /sys/devices/system/cpu/online as ranges ("0-3,6,8-9"); where that file
// cannot be read, the first sysconf(_SC_NPROCESSORS_ONLN) processors stand in.
static std::uint64_t online_mask() {
  std::uint64_t m = 0;
  if (FILE *f = std::fopen("/sys/devices/system/cpu/online", "r")) {
    char line[1024];
    if (std::fgets(line, sizeof(line), f) != nullptr) {
      const char *p = line;
      while (*p >= '0' && *p <= '9') {
        char *end;
        long lo = std::strtol(p, &end, 10), hi = lo;
        p = end;
        if (*p == '-') {
          hi = std::strtol(p + 1, &end, 10);
          p = end;
        }
        for (long i = lo; i <= hi && i < 64; ++i) m |= std::uint64_t(1) << i;
        if (*p == ',') ++p;
      }
    }
    std::fclose(f);
  }
  if (m != 0) return m;
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  if (n < 1) n = 1;
  if (n > 64) n = 64;
  return (n == 64) ? ~std::uint64_t(0) : ((std::uint64_t(1) << n) - 1);
}

int vek_os_get_process_affinity(std::uint64_t *process_mask,
                                std::uint64_t *system_mask) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 0;
  *process_mask = mask_of(set);
  *system_mask = online_mask();
  return 1;
}

std::uint64_t vek_os_set_thread_affinity(std::uint64_t mask) {
  cpu_set_t old, set;
  CPU_ZERO(&old);
  if (pthread_getaffinity_np(pthread_self(), sizeof(old), &old) != 0) return 0;
  CPU_ZERO(&set);
  for (int i = 0; i < 64; ++i)
    if (mask & (std::uint64_t(1) << i)) CPU_SET(i, &set);
  if (pthread_setaffinity_np(pthread_self(), sizeof(set), &set) != 0) return 0;
  std::uint64_t prev = mask_of(old);
  return prev ? prev : 1;
}

void vek_os_sleep0() { sched_yield(); }

// --- Clocks ---------------------------------------------------------------------
int vek_os_perf_frequency(std::int64_t *ticks_per_second) {
  *ticks_per_second = 1000000000;  // CLOCK_MONOTONIC counts nanoseconds
  return 1;
}
int vek_os_perf_counter(std::int64_t *ticks) {
  timespec ts;
  if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return 0;
  *ticks = std::int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
  return 1;
}
double vek_os_clock_ms() {
  return static_cast<double>(std::clock()) * 1000.0 / CLOCKS_PER_SEC;
}

// --- Processor --------------------------------------------------------------------
int vek_os_has_cpuid() {
#ifdef VEK_X86
#if defined(__x86_64__)
  return 1;  // every x86-64 processor has CPUID; bit 21 always toggles
#else
  return __get_cpuid_max(0, nullptr) != 0;
#endif
#else
  return 0;
#endif
}

void vek_os_cpuid(unsigned leaf, unsigned subleaf, unsigned regs[4]) {
#ifdef VEK_X86
  __cpuid_count(leaf, subleaf, regs[0], regs[1], regs[2], regs[3]);
#else
  (void)leaf; (void)subleaf;
  regs[0] = regs[1] = regs[2] = regs[3] = 0;
#endif
}

std::uint64_t vek_os_xcr0() {
#ifdef VEK_X86
  unsigned lo, hi;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0u));
  return (std::uint64_t(hi) << 32) | lo;
#else
  return 0;
#endif
}

std::uint64_t vek_os_rdtsc() {
#ifdef VEK_X86
  return __rdtsc();
#else
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return std::uint64_t(ts.tv_sec) * 1000000000u + ts.tv_nsec;
#endif
}

// --- Message catalogue --------------------------------------------------------------
// Linux has no message-table resources: the built-in table of the message
// service is the complete behaviour here, and no catalogue is ever found.
void *vek_os_catalogue_open(const char *) { return nullptr; }
unsigned vek_os_catalogue_format(void *, unsigned, char *buf, unsigned size) {
  if (size > 0) buf[0] = '\0';
  return 0;
}

// --- Address space -------------------------------------------------------------------
std::int64_t vek_os_address_space_limit() {
  rlimit r;
  if (getrlimit(RLIMIT_AS, &r) != 0 || r.rlim_cur == RLIM_INFINITY) return -1;
  return r.rlim_cur > static_cast<rlim_t>(INT64_MAX) ? -1 : static_cast<std::int64_t>(r.rlim_cur);
}

std::int64_t vek_os_virtual_size() {
  // The first field of statm: the total program size in pages.
  std::FILE *f = std::fopen("/proc/self/statm", "r");
  if (f == nullptr) return -1;
  long long pages = -1;
  const int got = std::fscanf(f, "%lld", &pages);
  std::fclose(f);
  const long page = sysconf(_SC_PAGESIZE);
  if (got != 1 || pages < 0 || page <= 0) return -1;
  return static_cast<std::int64_t>(pages) * page;
}

// --- Atomics ----------------------------------------------------------------------------
std::int32_t vek_os_compare_exchange(volatile std::int32_t *word,
                                     std::int32_t desired,
                                     std::int32_t expected) {
  return __sync_val_compare_and_swap(word, expected, desired);
}
void vek_os_store_release(volatile std::int32_t *word, std::int32_t value) {
  __atomic_store_n(word, value, __ATOMIC_RELEASE);
}

void *vek_os_find_symbol(const char *name) { return dlsym(RTLD_DEFAULT, name); }
