// vek_serv_cpu.h - processor type detection, cache sizes, and the dispatch
// stubs that route a dense kernel call to the variant of the processor type.
#ifndef VEK_SERV_CPU_H
#define VEK_SERV_CPU_H

// Processor types: 0 plain, 2 SSE2, 3 SSE3, 4 SSSE3, 5 SSE4.2.
int  vek_serv_cpu_detect();
int  vek_serv_has_sse41();
void vek_serv_cache_sizes(int *out);  // count and the first 4 level sizes
int  vek_serv_cache_size(int level);
int  vek_serv_l2_class();
int  vek_serv_is_genuine();

#endif
