// kernels_omp.h - the factorization kernels on several threads: the steps
// of the sequential kernels (blkl_step.h, blkldl_step.h, blklu_step.h) in
// the ready-list schedule of sweep_frame_omp.h, one parallel region each.
//
// Each takes the arguments of its sequential twin, with the incoming lists
// of the parallel sweep (xnmod, xslindx, slindx, slength, up, uplen, from
// handle[UP_UPLEN]) and the ready list pnlsch in place of length, and
// nthreads threads. link is reset from xnmod first; a thread numbered t by
// its arrival uses block t of indmap and relind and slice t of temp. The
// pivot counters are summed under lock_count; the error cell holds the
// last failure that any thread wrote. Results equal those of the
// sequential twins up to the order in which the updates of a target
// arrive.
#ifndef TELMIRA_KERNELS_OMP_H
#define TELMIRA_KERNELS_OMP_H

#include "telmira_types.h"

namespace tlm {

// The lists of the parallel sweep. With `pool` set (type 11 ordered into
// several parts) xslindx, slindx and slength hold the cells of the special
// form, and the kernel runs the subtree-and-pool schedule over nparts and
// parts, with length as the parts' descendant counts.
struct parallel_lists {
  const int *pnlsch, *xnmod, *xslindx, *slindx, *slength;
  int *up, *uplen;
  bool pool;
  int nparts;
  const int *parts;
  int *length;
};

// L L^H with the ready list, for the complex Hermitian type 4 (the real
// Cholesky keeps the ranges schedule of blkl_omp).
template <class T>
void ch_blkl_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
                 const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
                 int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
                 int *link, const int *snode, const int *xsup, const parallel_lists *lists,
                 const int *xjalf, const int *jalf, const int *luperm, const int *perm,
                 const int *msglvl, int *error);

// L D L^T (types -2 and 6) and L D L^H (type -4, Hermitian).
template <class T, bool Hermitian = false>
void blkldl_omp(const T *a, const int *ja, const int *nsuper, const int *nthreads,
                const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                const int *xlnz, T *lnz, int *indmap, int *relind, const int *tmpsize, T *temp,
                const int *nmod, int *link, const int *snode, const int *xsup,
                const parallel_lists *lists, int *pivot, const int *xjalf, const int *jalf,
                const int *luperm, const int *perm, const real_of<T> *eps, const int *diagp,
                int *npert, int *npos, int *nneg, const real_of<T> *s, const int *rowflag,
                const int *luperm_row, const int *msglvl, int *error);

// LU with partial pivoting in the diagonal blocks (types 1 and 3).
template <class T>
void blklu_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
               const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
               const int *xunz, T *unz, int *indmap, int *relind, const int *tmpsize, T *temp,
               const int *nmod, int *link, const int *snode, const int *xsup,
               const parallel_lists *lists, int *pivot, const int *xjalf, const int *jalf,
               const int *xjauf, const int *jauf, const int *luperm, const int *msglvl,
               int *error);

// LU with complete pivoting in the diagonal blocks (types 11 and 13), by
// the ready list or, with lists->pool, by parts and pool.
template <class T>
void blklu_unsym_omp(const T *a, const int *ja, const int *nsuper, const int *nthreads,
                     const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                     const int *xlnz, T *lnz, const int *xunz, T *unz, int *indmap,
                     int *relind, const int *tmpsize, T *temp, const int *nmod, int *link,
                     const int *snode, const int *xsup, const parallel_lists *lists,
                     int *pivot, int *cpivot, const int *xjalf, const int *jalf,
                     const int *xjauf, const int *jauf, const int *luperm,
                     const real_of<T> *eps, int *npert, const real_of<T> *s, const int *rowflag,
                     const int *luperm_row, const int *msglvl, int *error);

// The family's names for complex values.
template <class T> inline constexpr auto &c_blkl_omp = blkldl_omp<T>;
template <class T> inline constexpr auto &ch_blkldl_omp = blkldl_omp<T, true>;
template <class T> inline constexpr auto &c_blklu_omp = blklu_omp<T>;
template <class T> inline constexpr auto &c_blklu_unsym_omp = blklu_unsym_omp<T>;

}  // namespace tlm

#endif
