// blkl_omp.cpp - the Cholesky sweep on several threads: the steps of
// blkl_step.h in the parallel frame of sweep_frame_omp.h.
#include "blkl.h"

#include "blkl_step.h"
#include "sweep_frame_omp.h"

template <class T>
void blkl_omp(const T *a, const int *nsuper, const int *nthreads, const int *n,
              const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
              int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
              int *link, const int *snode, const int *xsup, const int *xjalf,
              const int *jalf, const int *luperm, const int *perm, const int *nparts,
              const int *parts, const int *xnmod, const int *xslindx, const int *slindx,
              const int *slength, int *up, int *uplen, const int *msglvl, int *error) {
  // The parallel sweep keeps no length: its sources travel with the lists.
  const tlm::sweep_shape sh{*n,    *nsuper, *nnzl, *tmpsize, *msglvl, xsup,   snode, xlindx,
                            lindx, xlnz,    nmod,  link,     nullptr, indmap, relind};
  const tlm::sweep_incoming in{*nparts, parts, xnmod, xslindx, slindx, slength, up, uplen};
  const tlm::chol_step<T> step{sh, a, lnz, temp, xjalf, jalf, luperm, perm};
  tlm::sweep_counts counts;
  tlm::sweep_run_omp(sh, in, *nthreads, temp, step, &counts, error);
}

TLM_INSTANTIATE_EACH(blkl_omp)
