// vek_serv_cpu.cpp - processor type, cache table, second-level cache class
// and vendor test. Every CPUID goes through vek_serv_cpuid_source, which is
// the OS layer's vek_os_cpuid unless a host replaced it.
#include "service/vek_serv_cpu.h"

#include "platform/vek_platform.h"
#include "service/vek_serv_memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

vek_serv_cpuid_fn vek_serv_cpuid_source = vek_os_cpuid;

namespace {

enum { EAX = 0, EBX = 1, ECX = 2, EDX = 3 };

inline void cpuid(unsigned leaf, unsigned subleaf, unsigned regs[4]) {
  vek_serv_cpuid_source(leaf, subleaf, regs);
}

inline int load_word(const std::int32_t *w) {
  return __atomic_load_n(w, __ATOMIC_ACQUIRE);
}
inline void store_word(std::int32_t *w, std::int32_t v) {
  __atomic_store_n(w, v, __ATOMIC_RELEASE);
}

std::int32_t cpu_type = -1;  // -1: not yet known
std::int32_t l2_class = -1;

// Cache table: the count of levels, then the size of each level in bytes.
const int VEK_CACHE_LEVELS_MAX = 32;
std::int32_t cache_table[1 + VEK_CACHE_LEVELS_MAX];
std::int32_t cache_table_pending = 1;

// Walks the deterministic cache parameters of one leaf: sub-leaves 0 to 31,
// up to the first null entry, instruction caches left out. Returns the
// number of levels added to the table.
int walk_cache_leaf(unsigned leaf) {
  int count = 0;
  for (unsigned i = 0; i < 32; ++i) {
    unsigned r[4];
    cpuid(leaf, i, r);
    unsigned type = r[EAX] & 0x1f;
    if (type == 0 || r[EBX] == 0 || r[ECX] == 0) break;
    if (type == 2) continue;  // instruction cache
    std::int64_t line = (r[EBX] & 0xfff) + 1;
    std::int64_t partitions = ((r[EBX] >> 12) & 0x3ff) + 1;
    std::int64_t ways = ((r[EBX] >> 22) & 0x3ff) + 1;
    std::int64_t sets = std::int64_t(r[ECX]) + 1;
    std::int64_t size = line * sets * partitions * ways;
    if (size > 0x7fffffff) size = 0x7fffffff;
    cache_table[1 + count++] = static_cast<std::int32_t>(size);
  }
  return count;
}

void fill_cache_table() {
  if (!load_word(&cache_table_pending)) return;
  vek_serv_lock();
  if (load_word(&cache_table_pending)) {
    for (int i = 0; i <= VEK_CACHE_LEVELS_MAX; ++i) cache_table[i] = 0;
    int count = 0;
    if (vek_os_has_cpuid()) {
      unsigned r[4];
      cpuid(0, 0, r);
      if (r[EAX] >= 4) count = walk_cache_leaf(4);
      // Processors of some vendors report nothing in leaf 4 but publish the
      // same records, in the same format, in extended leaf 0x8000001D when
      // they announce topology extensions (leaf 0x80000001 ECX bit 22).
      if (count == 0) {
        cpuid(0x80000000u, 0, r);
        if (r[EAX] >= 0x8000001Du) {
          cpuid(0x80000001u, 0, r);
          if (r[ECX] & (1u << 22)) count = walk_cache_leaf(0x8000001Du);
        }
      }
    }
    cache_table[0] = count;
    store_word(&cache_table_pending, 0);
  }
  vek_serv_unlock();
}

}  // namespace

int vek_serv_cpu_type_of(unsigned ecx, unsigned edx) {
  if (ecx & (1u << 20)) return 5;  // SSE4.2
  if (ecx & (1u << 9)) return 4;   // SSSE3
  if (ecx & (1u << 0)) return 3;   // SSE3
  if (edx & (1u << 26)) return 2;  // SSE2
  return 0;
}

int vek_serv_cpu_type_wide(unsigned ecx, unsigned edx, unsigned ebx7,
                           unsigned long long xcr0) {
  // The system must save the vector registers: XMM and YMM states, and for
  // AVX-512 the mask and upper ZMM states too.
  const bool osxsave = (ecx >> 27) & 1;
  const bool ymm = osxsave && (xcr0 & 0x6) == 0x6;
  const bool zmm = ymm && (xcr0 & 0xe0) == 0xe0;
  const bool avx2_fma = ymm && ((ecx >> 28) & 1) && ((ecx >> 12) & 1) && ((ebx7 >> 5) & 1);
  if (avx2_fma && zmm && ((ebx7 >> 16) & 1)) return 7;
  if (avx2_fma) return 6;
  return vek_serv_cpu_type_of(ecx, edx);
}

int vek_serv_cpu_type_override(const char *text) {
  if (text == nullptr || text[0] == '\0') return -1;
  // The number is read as atoi reads it (leading blanks and a sign taken,
  // stopping at the first non-digit); out-of-range values are clamped so
  // that they fall outside 0 to 7.
  long v = std::strtol(text, nullptr, 10);
  if (v < 0 || v > 7) return -1;
  if (v == 0 && std::strcmp(text, "0") != 0) return -1;  // "00", "abc"
  return v == 1 ? 0 : static_cast<int>(v);
}

int vek_serv_cpu_detect() {
  int type = __atomic_load_n(&cpu_type, __ATOMIC_RELAXED);
  if (type >= 0) return type;

  char buf[32];
  buf[0] = '\0';
  unsigned len = vek_os_getenv("VEK_DEBUG_CPU_TYPE", buf, sizeof buf);
  // A value too long for the buffer is no override.
  int forced = (len > 0 && len < sizeof buf) ? vek_serv_cpu_type_override(buf)
                                             : -1;
  if (forced >= 0) {
    type = forced;  // no check that the processor can run it
  } else if (!vek_os_has_cpuid()) {
    type = 0;
  } else {
    unsigned r[4], r7[4] = {0, 0, 0, 0};
    cpuid(0, 0, r);
    if (r[EAX] >= 7) cpuid(7, 0, r7);
    cpuid(1, 0, r);
    const unsigned long long xcr0 = ((r[ECX] >> 27) & 1) ? vek_os_xcr0() : 0;
    type = vek_serv_cpu_type_wide(r[ECX], r[EDX], r7[EBX], xcr0);
  }
  // Racing first callers store the same value.
  __atomic_store_n(&cpu_type, type, __ATOMIC_RELAXED);
  return type;
}

int vek_serv_has_sse41() {
  if (!vek_os_has_cpuid()) return 0;
  unsigned r[4];
  cpuid(1, 0, r);
  return (r[ECX] >> 19) & 1;
}

void vek_serv_cache_sizes(int *out) {
  fill_cache_table();
  if (out == nullptr) return;
  for (int i = 0; i < 5; ++i) out[i] = cache_table[i];
}

int vek_serv_cache_size(int level) {
  fill_cache_table();
  int count = cache_table[0];
  // With no level found, level 0 answers 0: no cache is known.
  if (level == 0) return count > 0 ? cache_table[count] : 0;
  if (level >= 1 && level <= count) return cache_table[level];
  return -1;
}

int vek_serv_l2_class() {
  int cached = __atomic_load_n(&l2_class, __ATOMIC_RELAXED);
  if (cached != -1) return cached;
  if (!vek_os_has_cpuid()) return -1;
  unsigned r[4];
  cpuid(2, 0, r);
  int value = -1;
  for (int reg = EAX; reg <= EDX; ++reg) {
    if (r[reg] & 0x80000000u) continue;  // register holds no descriptors
    for (int b = (reg == EAX) ? 1 : 0; b < 4; ++b) {
      switch ((r[reg] >> (8 * b)) & 0xff) {
        case 0x40: value = 0; break;
        case 0x41: case 0x79: value = 1; break;
        case 0x42: case 0x7A: case 0x82: value = 2; break;
        case 0x43: case 0x7B: value = 3; break;
        case 0x44: case 0x7C: case 0x84: value = 4; break;
        case 0x45: case 0x7D: case 0x85: value = 5; break;
        case 0x49: value = 6; break;
        default: break;  // unknown descriptors change nothing
      }
    }
  }
  __atomic_store_n(&l2_class, value, __ATOMIC_RELAXED);
  return value;
}

int vek_serv_is_genuine() {
  if (!vek_os_has_cpuid()) return 0;
  unsigned r[4];
  cpuid(0, 0, r);
  char vendor[12];
  std::memcpy(vendor, &r[EBX], 4);
  std::memcpy(vendor + 4, &r[EDX], 4);
  std::memcpy(vendor + 8, &r[ECX], 4);
  return std::memcmp(vendor, "GenuineCorvo", 12) == 0 ? 1 : 0;
}
