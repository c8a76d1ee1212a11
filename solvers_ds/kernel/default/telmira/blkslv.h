// blkslv.h - triangular solves with a supernodal LU factor.
//
// Supernode J, columns fstcol..lstcol (ncols), nrows rows listed in lindx
// from xlindx(J), below = nrows - ncols:
//   lnz at xlnz(fstcol), leading dimension nrows: L11 (unit lower, diagonal
//     not stored) and U11 (upper with diagonal) in the top square, L21 below;
//   unz at xunz(fstcol), leading dimension below: U12 transposed, entry
//     (r, c) = U(fstcol+c-1, r-th row below the block);
//   pivot(fstcol+i-1): local row exchanged with row i at step i;
//   cpivot(fstcol+i-1): local column exchanged with column i (complete
//     pivoting of mtype 11), a null pointer when there are none (mtype 1).
// The forward sweep applies the row exchanges of a supernode to x and then
// eliminates with the unit L; the backward sweep solves with U12 and U11
// and then undoes the column exchanges.
//
// x holds the permuted right-hand sides, n rows each, and receives the
// permuted solution. substep is comi(55): 0 full solve, 1 forward only,
// 2 diagonal only (nothing for LU), 3 backward only; 1 then 3 is 0.
#ifndef TELMIRA_BLKSLV_H
#define TELMIRA_BLKSLV_H

// One right-hand side: plain loops through lindx, no dense kernel.
template <class T>
void blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
             const int *xlnz, const T *lnz, const int *xunz, const T *unz,
             const int *pivot, const int *cpivot, T *x, const int *substep);

// Several right-hand sides: threads across right-hand sides (split of
// blkslvs_share), level-3 blocks. w holds nrhs columns of leading dimension
// ldw, at least the largest nrows - ncols over the supernodes, and needs no
// initial value; the forward sweep leaves it zero.
template <class T>
void blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
            const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
            const T *lnz, const int *xunz, const T *unz, const int *pivot,
            const int *cpivot, T *x, T *w, const int *ldw, const int *substep);

// Named twins. The _unsym forms (mtype 11) require cpivot; the others
// (mtype 1) have none.
void blkslv1_d(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
               const int *xlnz, const double *lnz, const int *xunz, const double *unz,
               const int *pivot, double *x, const int *substep);
void blkslv_d(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
              const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
              const double *lnz, const int *xunz, const double *unz, const int *pivot,
              double *x, double *w, const int *ldw, const int *substep);
void blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                   const int *xlnz, const double *lnz, const int *xunz, const double *unz,
                   const int *pivot, const int *cpivot, double *x, const int *substep);
void blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                  const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                  const double *lnz, const int *xunz, const double *unz, const int *pivot,
                  const int *cpivot, double *x, double *w, const int *ldw,
                  const int *substep);
void sp_blkslv1(const int *nsuper, const int *xsup, const int *xlindx, const int *lindx,
                const int *xlnz, const float *lnz, const int *xunz, const float *unz,
                const int *pivot, float *x, const int *substep);
void sp_blkslv(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
               const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
               const float *lnz, const int *xunz, const float *unz, const int *pivot,
               float *x, float *w, const int *ldw, const int *substep);
void sp_blkslv1_unsym(const int *nsuper, const int *xsup, const int *xlindx,
                      const int *lindx, const int *xlnz, const float *lnz, const int *xunz,
                      const float *unz, const int *pivot, const int *cpivot, float *x,
                      const int *substep);
void sp_blkslv_unsym(const int *nsuper, const int *nrhs, const int *nthreads, const int *n,
                     const int *xsup, const int *xlindx, const int *lindx, const int *xlnz,
                     const float *lnz, const int *xunz, const float *unz, const int *pivot,
                     const int *cpivot, float *x, float *w, const int *ldw,
                     const int *substep);

#endif
