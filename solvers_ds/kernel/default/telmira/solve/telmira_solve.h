// telmira_solve.h - the solve driver: gather of the right-hand sides,
// the triangular sweeps of the matrix type, and the scatter of the solution.
//
// The structure arrays are read from handle[STRUC_FI] (fi) at the positions
// that comx holds (telmira_layout.h). R is the precision of the handle;
// complex types use pairs of R.
#ifndef TELMIRA_SOLVE_H
#define TELMIRA_SOLVE_H

#include <cstdint>

namespace tlm {

// Solve with the factors: gather, triangular sweeps, scatter. x is the
// caller's x (the permuted work vector, and the solution when comi(8) is
// 0); b the right-hand sides (the solution when comi(8) is 1). work holds
// comi(44) values of the handle's precision and type. s: the scalings
// (2 n reals), m: the matching's row order. Status in comi(50).
template <class R>
void telmira_solve(const int *nrhs, void *x, void *b, void *fi,
                   const int *comx, const void *factors, void *work,
                   const void *s, const int *m, int *comi, int *ooc_l);

// x(i) := b(perm(i)) for each right-hand side, with the scaling rules of
// comi(67) and the sub-step comi(55). T is the value type, s real.
template <class T>
void psol_fwgath(const int *n, const int *nrhs, T *x, const T *b,
                 const int *perm, const void *s, const int *m,
                 const int *comi);
// The solution back in the input order: over b (comi(8) = 1) or, through
// buf of bufcols columns, over x.
template <class T>
void psol_bwscat(const int *n, const int *nrhs, T *x, T *b, const int *perm,
                 const void *s, T *buf, const int *bufcols, const int *comi);

}  // namespace tlm

#endif
