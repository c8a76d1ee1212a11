// vek_serv_threads.h - thread control: how many threads a parallel region of
// the library may use, the environment settings, the core count, and the
// progress hook.
#ifndef VEK_SERV_THREADS_H
#define VEK_SERV_THREADS_H

// Domains: 0 all ("VEK_ALL"), 1 BLAS ("VEK_BLAS"), 2 FFT ("VEK_FFT"),
// 3 vector mathematics ("VEK_VML").
int  vek_serv_get_max_threads();
int  vek_serv_domain_get_max_threads(int domain);
void vek_serv_set_num_threads(int n);
int  vek_serv_domain_set_num_threads(int n, int domain);
int  vek_serv_get_dynamic();
void vek_serv_set_dynamic(int flag);
void vek_serv_set_mpi_override(int flag);
int  vek_serv_in_parallel();

// Core count found by the initialisation (after it has run).
int vek_serv_physical_cores();
int vek_serv_logical_processors();

// Progress hook: thread number and step (0..100) by address, stage text and
// its length. A non-zero result asks the caller to stop.
typedef int (*vek_serv_progress_fn)(int *thread, int *step, const char *stage,
                                    int stage_length);
void vek_serv_set_progress(vek_serv_progress_fn routine);
int  vek_serv_progress(int *thread, int *step, const char *stage,
                       int stage_length);

#endif
