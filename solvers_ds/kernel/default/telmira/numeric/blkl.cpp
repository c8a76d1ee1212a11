// blkl.cpp - the sequential Cholesky sweep: the steps of blkl_step.h in the
// frame of sweep_frame.h.
#include "blkl.h"

#include "blkl_step.h"

template <class T>
void blkl(const T *a, const int *nsuper, const int *, const int *n, const int *nnzl,
          const int *xlindx, const int *lindx, const int *xlnz, T *lnz, int *indmap,
          int *relind, const int *tmpsize, T *temp, const int *nmod, int *link,
          const int *snode, const int *xsup, int *length, const int *xjalf, const int *jalf,
          const int *luperm, const int *perm, const int *msglvl, int *error) {
  const tlm::sweep_shape sh{*n,     *nsuper, *nnzl, *tmpsize, *msglvl, xsup,   snode, xlindx,
                            lindx,  xlnz,    nmod,  link,     length,  indmap, relind};
  const tlm::chol_step<T> step{sh, a, lnz, temp, xjalf, jalf, luperm, perm};
  tlm::sweep_counts counts;
  tlm::sweep_run(sh, temp, step, &counts, error);
}

TLM_INSTANTIATE_EACH(blkl)
