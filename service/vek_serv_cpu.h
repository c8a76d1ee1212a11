// vek_serv_cpu.h - processor type detection, cache sizes, and the dispatch
// stubs that route a dense kernel call to the variant of the processor type
// (the stubs themselves: service/vek_serv_dispatch.h).
#ifndef VEK_SERV_CPU_H
#define VEK_SERV_CPU_H

// Processor types: 0 plain, 2 SSE2, 3 SSE3, 4 SSSE3, 5 SSE4.2, 6 AVX2 with
// FMA, 7 AVX-512 (foundation). Detected once per process;
// "VEK_DEBUG_CPU_TYPE" (0 to 7, 1 meaning 0) overrides it.
int  vek_serv_cpu_detect();
int  vek_serv_has_sse41();
void vek_serv_cache_sizes(int *out);  // count and the first 4 level sizes
int  vek_serv_cache_size(int level);  // 0: last level; 1..count; else -1
int  vek_serv_l2_class();             // 0 to 6 by the leaf 2 descriptors, or -1
int  vek_serv_is_genuine();           // vendor text "GenuineCorvo"

// The steps of the type rule, on their own.
// Type of the leaf 1 feature words ECX and EDX, by the first test that holds.
int vek_serv_cpu_type_of(unsigned ecx, unsigned edx);
// The type with the wide vector units: 7 or 6 when leaf 1 ECX, leaf 7 EBX
// and the saved register states (xcr0, 0 when the system doesn't say) allow
// them, else the type of vek_serv_cpu_type_of.
int vek_serv_cpu_type_wide(unsigned ecx, unsigned edx, unsigned ebx7,
                           unsigned long long xcr0);
// The override a text of "VEK_DEBUG_CPU_TYPE" asks for (1 already turned
// into 0), or -1 when the text is null, empty or invalid.
int vek_serv_cpu_type_override(const char *text);

// Source of the CPUID results this service reads: vek_os_cpuid by default.
// A host or a test may set another before the first query to present a
// different processor; the results are cached per process all the same.
typedef void (*vek_serv_cpuid_fn)(unsigned leaf, unsigned subleaf,
                                  unsigned regs[4]);
extern vek_serv_cpuid_fn vek_serv_cpuid_source;

#endif
