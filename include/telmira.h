/*
 * telmira.h - entry of the TELMIRA sparse direct solver (libvekutils).
 *
 * One routine, sixteen arguments, all by reference, in the manner of the
 * old numerical libraries. Arrays are one-based in their contents (ia, ja,
 * perm hold Fortran-style indices). Integers are 32 bits; the handle holds
 * 64 pointer-sized words and must be all zero before its first call.
 *
 *   handle         in/out  intptr_t[64], the whole state of the solver
 *   max_fac_store  in      factorizations that may be kept at once
 *   matrix_number  in      which of them this call works on, from 1
 *   matrix_type    in      1, 2, -2, 3, 4, -4, 6, 11, 13
 *   ido            in      phases: 11, 12, 13, 22, 23, 33, 331..333,
 *                          0 (release one factor), -1 (release all),
 *                          -2 and -3 (probes)
 *   neqns          in      number of equations
 *   a              in      values (double or float; complex as pairs)
 *   ia             in      int[neqns+1], row starts, one-based
 *   ja             in      column numbers, one-based, rising in a row
 *   perm           in/out  int[neqns], permutation under iparam(5)
 *   nb             in      number of right-hand sides
 *   iparam         in/out  int[64], control array (iparam(1) is iparam[0])
 *   msglvl         in      message level, 0, 1 or 2
 *   b              in/out  right-hand sides, one after the other
 *   x              out     solutions, same arrangement
 *   error          out     0 or a negative error number
 */
#ifndef TELMIRA_H
#define TELMIRA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#  define TELMIRA_API __declspec(dllexport)
#else
#  define TELMIRA_API __attribute__((visibility("default")))
#endif

/* Version of libvekutils that this header belongs to. */
#define VEKUTILS_VERSION_MAJOR 1
#define VEKUTILS_VERSION_MINOR 1
#define VEKUTILS_VERSION_PATCH 0
#define VEKUTILS_VERSION_STRING "1.1.0"
/* One number that rises with every version: 10000 * major + 100 * minor + patch. */
#define VEKUTILS_VERSION \
  (10000 * VEKUTILS_VERSION_MAJOR + 100 * VEKUTILS_VERSION_MINOR + VEKUTILS_VERSION_PATCH)

/* Number of words in the handle and in the control array. */
#define TELMIRA_HANDLE_WORDS 64
#define TELMIRA_IPARAM_WORDS 64

TELMIRA_API void telmira(intptr_t *handle, const int *max_fac_store,
                         const int *matrix_number, const int *matrix_type,
                         const int *ido, const int *neqns, const void *a,
                         const int *ia, const int *ja, int *perm,
                         const int *nb, int *iparam, const int *msglvl,
                         void *b, void *x, int *error);

/* The version of the library that is loaded, "MAJOR.MINOR.PATCH"; compare
   with VEKUTILS_VERSION_STRING to see whether header and library agree. */
TELMIRA_API const char *vekutils_version(void);

/* The words of an error number of telmira, e.g. "not enough memory" for -2;
   "unknown error number" for a number that the solver never sets. The text
   is static: never free it. */
TELMIRA_API const char *telmira_error_words(int error);

/* The words of the status that iparam(30) holds after error -3 or -4, e.g.
   "a pivot is NaN or infinite" for -4 with -120; a positive status of -4
   names the input column of a pivot that is not positive (types 2 and 4).
   Empty text for a pair that has no words of its own. Static text. */
TELMIRA_API const char *telmira_status_words(int error, int status);

/* The cache of scratch buffers of the library's memory service: buffers
   given back stay with their thread (up to five a thread), to be reused,
   until the process ends unless released here. vek_serv_free_buffers releases the idle buffers of all threads,
   vek_serv_thread_free_buffers those of the calling thread; call either
   between solver calls, never during one. vek_serv_mem_stat returns the
   bytes held by the cache and stores the number of blocks in *block_count
   (when not null); with the cache switched off (VEK_DISABLE_FAST_MM or
   VEK_MM_DISABLE set) it returns 0 and stores -1. */
TELMIRA_API void vek_serv_free_buffers(void);
TELMIRA_API void vek_serv_thread_free_buffers(void);
TELMIRA_API int64_t vek_serv_mem_stat(int *block_count);

#ifdef __cplusplus
}
#endif

#endif /* TELMIRA_H */
