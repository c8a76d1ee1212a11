// vek_serv_threads.h - thread control: how many threads a parallel region of
// the library may use, the environment settings, the core count, and the
// progress hook.
//
// The environment is read once per process, at the first getter:
//   "VEK_NUM_THREADS"         thread count for all domains
//   "VEK_DOMAIN_NUM_THREADS"  list of NAME=count pairs, e.g. "VEK_BLAS=2"
//   "VEK_DYNAMIC"             FALSE or false turns dynamic mode off
//   "OMP_NUM_THREADS", "V_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE",
//   "V_MPI_THREAD_LEVEL"      taken into account in dynamic mode
// A setter called before the first getter wins over the environment.
#ifndef VEK_SERV_THREADS_H
#define VEK_SERV_THREADS_H

// Domains: 0 all ("VEK_ALL"), 1 BLAS ("VEK_BLAS"), 2 FFT ("VEK_FFT"),
// 3 vector mathematics ("VEK_VML").
enum {
  VEK_DOMAIN_ALL = 0,
  VEK_DOMAIN_BLAS = 1,
  VEK_DOMAIN_FFT = 2,
  VEK_DOMAIN_VML = 3
};

int  vek_serv_get_max_threads();
int  vek_serv_domain_get_max_threads(int domain);
void vek_serv_set_num_threads(int n);
int  vek_serv_domain_set_num_threads(int n, int domain);
int  vek_serv_get_dynamic();
void vek_serv_set_dynamic(int flag);
void vek_serv_set_mpi_override(int flag);
int  vek_serv_in_parallel();

// Core count found by the initialisation (they run it if still pending).
int vek_serv_physical_cores();
int vek_serv_logical_processors();

// Progress hook: thread number and step (0..100) by address, stage text and
// its length. A non-zero result asks the caller to stop.
typedef int (*vek_serv_progress_fn)(int *thread, int *step, const char *stage,
                                    int stage_length);
void vek_serv_set_progress(vek_serv_progress_fn routine);
int  vek_serv_progress(int *thread, int *step, const char *stage,
                       int stage_length);

// --- Text rules of the environment values -------------------------------
// Number rule: digits only -> their value (atoi, saturated at the largest
// int); any other character -> 1. An empty text gives 0.
int vek_serv_thread_count_value(const char *text);
// 1 if text is a non-empty run of decimal digits, else 0.
int vek_serv_is_digits(const char *text);
// "VEK_DYNAMIC" rule: leading blanks and quotes skipped, the word up to the
// next blank or quote; exactly "FALSE" or "false" gives 0, all else 1.
int vek_serv_dynamic_value(const char *text);
// List grammar of "VEK_DOMAIN_NUM_THREADS". settings[d] is the setting of
// domain d (0 all, 1 BLAS, 2 FFT, 3 VML); a pair whose value is at least 1
// fills its domain's setting only while that is negative, so the first
// mention of a domain wins. Unknown names and values below 1 are passed over.
void vek_serv_parse_domain_list(const char *text, int *settings[4]);

// --- Topology arithmetic of the core count ------------------------------
// Bits needed to write n - 1 (0 for n <= 1).
int vek_serv_topology_width(unsigned n);
// The core key of an initial APIC id: its package part (low
// width(logical_per_package) bits cleared) OR its core part (the bits from
// width(logical_per_core) to width(logical_per_core) + width(cores_per_package)
// - 1, kept in place). Distinct keys are distinct physical cores.
unsigned vek_serv_core_key(unsigned apic_id, int logical_per_package,
                           int logical_per_core, int cores_per_package);

#endif
