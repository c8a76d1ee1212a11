// kernels_omp.cpp - the parallel forms of the factorization kernels: the
// sequential kernels' steps in the ready-list schedule.
#include "kernels_omp.h"

#include "blkl_step.h"
#include "blkldl_step.h"
#include "blklu_step.h"
#include "sweep_frame_omp.h"
#include "sweep_frame_pool.h"

namespace tlm {

namespace {

// The parallel sweep keeps no length: its sources travel with the lists.
sweep_shape parallel_shape(const int *n, const int *nsuper, const int *nnzl, const int *tmpsize,
                           const int *msglvl, const int *xsup, const int *snode,
                           const int *xlindx, const int *lindx, const int *xlnz,
                           const int *nmod, int *link, int *indmap, int *relind) {
  return sweep_shape{*n,    *nsuper, *nnzl, *tmpsize, *msglvl, xsup,   snode, xlindx,
                     lindx, xlnz,    nmod,  link,     nullptr, indmap, relind};
}

sweep_incoming incoming_of(const parallel_lists *l) {
  return sweep_incoming{0, nullptr, l->xnmod, l->xslindx, l->slindx, l->slength, l->up,
                        l->uplen};
}

}  // namespace

template <class T>
void ch_blkl_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
                 const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
                 int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
                 int *link, const int *snode, const int *xsup, const parallel_lists *lists,
                 const int *xjalf, const int *jalf, const int *luperm, const int *perm,
                 const int *msglvl, int *error) {
  const sweep_shape sh = parallel_shape(n, nsuper, nnzl, tmpsize, msglvl, xsup, snode, xlindx,
                                        lindx, xlnz, nmod, link, indmap, relind);
  const chol_step<T> step{sh, a, lnz, temp, xjalf, jalf, luperm, perm};
  sweep_counts counts;
  sweep_run_omp_ready(sh, incoming_of(lists), lists->pnlsch, *nthreads, temp, step, &counts,
                      error);
}

template <class T, bool Hermitian>
void blkldl_omp(const T *a, const int *ja, const int *nsuper, const int *nthreads,
                const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                const int *xlnz, T *lnz, int *indmap, int *relind, const int *tmpsize, T *temp,
                const int *nmod, int *link, const int *snode, const int *xsup,
                const parallel_lists *lists, int *pivot, const int *xjalf, const int *jalf,
                const int *luperm, const int *perm, const real_of<T> *eps, const int *diagp,
                int *npert, int *npos, int *nneg, const real_of<T> *s, const int *rowflag,
                const int *luperm_row, const int *msglvl, int *error) {
  const sweep_shape sh = parallel_shape(n, nsuper, nnzl, tmpsize, msglvl, xsup, snode, xlindx,
                                        lindx, xlnz, nmod, link, indmap, relind);
  const ldl_step<T, Hermitian> step{sh,    a,    ja,     lnz,  temp,       pivot,
                                    xjalf, jalf, luperm, perm, luperm_row, eps,
                                    s,     *diagp != 0, *rowflag != 0};
  sweep_counts counts;
  sweep_run_omp_ready(sh, incoming_of(lists), lists->pnlsch, *nthreads, temp, step, &counts,
                      error);
  *npert = counts.npert;
  if constexpr (!value_traits<T>::is_complex) {
    *npos = counts.npos;
    *nneg = counts.nneg;
  }
}

template <class T>
void blklu_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
               const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
               const int *xunz, T *unz, int *indmap, int *relind, const int *tmpsize, T *temp,
               const int *nmod, int *link, const int *snode, const int *xsup,
               const parallel_lists *lists, int *pivot, const int *xjalf, const int *jalf,
               const int *xjauf, const int *jauf, const int *luperm, const int *msglvl,
               int *error) {
  const sweep_shape sh = parallel_shape(n, nsuper, nnzl, tmpsize, msglvl, xsup, snode, xlindx,
                                        lindx, xlnz, nmod, link, indmap, relind);
  const lu_step<T> step{sh,      a,     nullptr, lnz,  xunz, unz,     temp,    pivot,  nullptr,
                        xjalf,   jalf,  xjauf,   jauf, luperm, nullptr, nullptr, nullptr};
  sweep_counts counts;
  sweep_run_omp_ready(sh, incoming_of(lists), lists->pnlsch, *nthreads, temp, step, &counts,
                      error);
}

template <class T>
void blklu_unsym_omp(const T *a, const int *ja, const int *nsuper, const int *nthreads,
                     const int *n, const int *nnzl, const int *xlindx, const int *lindx,
                     const int *xlnz, T *lnz, const int *xunz, T *unz, int *indmap,
                     int *relind, const int *tmpsize, T *temp, const int *nmod, int *link,
                     const int *snode, const int *xsup, const parallel_lists *lists,
                     int *pivot, int *cpivot, const int *xjalf, const int *jalf,
                     const int *xjauf, const int *jauf, const int *luperm,
                     const real_of<T> *eps, int *npert, const real_of<T> *s, const int *rowflag,
                     const int *luperm_row, const int *msglvl, int *error) {
  sweep_shape sh = parallel_shape(n, nsuper, nnzl, tmpsize, msglvl, xsup, snode, xlindx, lindx,
                                  xlnz, nmod, link, indmap, relind);
  if (lists->pool) sh.length = lists->length;
  const lu_step<T> step{sh,    a,      ja,    lnz,  xunz,   unz,        temp,
                        pivot, cpivot, xjalf, jalf, xjauf,  jauf,       luperm,
                        luperm_row, eps, *rowflag != 0 ? s : nullptr};
  sweep_counts counts;
  if (lists->pool) {
    const sweep_pool_lists pl{lists->nparts, lists->parts, lists->xslindx, lists->slindx,
                              lists->slength};
    sweep_run_pool(sh, pl, *nthreads, temp, step, &counts, error);
  } else {
    sweep_run_omp_ready(sh, incoming_of(lists), lists->pnlsch, *nthreads, temp, step, &counts,
                        error);
  }
  *npert = counts.npert;
}

TLM_INSTANTIATE(ch_blkl_omp<zcomplex>)
TLM_INSTANTIATE(ch_blkl_omp<ccomplex>)
TLM_INSTANTIATE_EACH(blkldl_omp)
TLM_INSTANTIATE(blkldl_omp<zcomplex, true>)
TLM_INSTANTIATE(blkldl_omp<ccomplex, true>)
TLM_INSTANTIATE_EACH(blklu_omp)
TLM_INSTANTIATE_EACH(blklu_unsym_omp)

}  // namespace tlm
