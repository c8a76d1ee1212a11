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

/* Number of words in the handle and in the control array. */
#define TELMIRA_HANDLE_WORDS 64
#define TELMIRA_IPARAM_WORDS 64

TELMIRA_API void telmira(intptr_t *handle, const int *max_fac_store,
                         const int *matrix_number, const int *matrix_type,
                         const int *ido, const int *neqns, const void *a,
                         const int *ia, const int *ja, int *perm,
                         const int *nb, int *iparam, const int *msglvl,
                         void *b, void *x, int *error);

#ifdef __cplusplus
}
#endif

#endif /* TELMIRA_H */
