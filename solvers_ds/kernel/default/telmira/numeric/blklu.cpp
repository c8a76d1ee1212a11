// blklu.cpp - the sequential LU sweeps: the steps of blklu_step.h in the
// frame of sweep_frame.h, for real and complex values.
#include "blklu.h"

#include "blklu_step.h"

namespace {

template <class T>
void lu_run(const tlm::sweep_shape &sh, const tlm::lu_step<T> &step, T *temp, int *npert,
            int *error) {
  tlm::sweep_counts counts;
  tlm::sweep_run(sh, temp, step, &counts, error);
  if (npert != nullptr) *npert = counts.npert;
}

}  // namespace

template <class T>
void blklu(const T *a, const int *nsuper, const int *, const int *n, const int *nnzl,
           const int *xlindx, const int *lindx, const int *xlnz, T *lnz, const int *xunz,
           T *unz, int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod,
           int *link, const int *snode, const int *xsup, int *length, int *pivot,
           const int *xjalf, const int *jalf, const int *xjauf, const int *jauf,
           const int *luperm, const int *, const int *msglvl, int *error) {
  const tlm::sweep_shape sh{*n,    *nsuper, *nnzl, *tmpsize, *msglvl, xsup,   snode, xlindx,
                            lindx, xlnz,    nmod,  link,     length,  indmap, relind};
  const tlm::lu_step<T> step{sh,   a,    nullptr, lnz,    xunz,    unz,     temp,    pivot,
                             nullptr, xjalf, jalf, xjauf, jauf, luperm, nullptr, nullptr,
                             nullptr};
  lu_run(sh, step, temp, nullptr, error);
}

template <class T>
void blklu_unsym(const T *a, const int *ja, const int *nsuper, const int *, const int *n,
                 const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz,
                 T *lnz, const int *xunz, T *unz, int *indmap, int *relind,
                 const int *tmpsize, T *temp, const int *nmod, int *link, const int *snode,
                 const int *xsup, int *length, int *pivot, int *cpivot, const int *xjalf,
                 const int *jalf, const int *xjauf, const int *jauf, const int *luperm,
                 const int *, const tlm::real_of<T> *eps, int *npert,
                 const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
                 const int *msglvl, int *error) {
  const tlm::sweep_shape sh{*n,    *nsuper, *nnzl, *tmpsize, *msglvl, xsup,   snode, xlindx,
                            lindx, xlnz,    nmod,  link,     length,  indmap, relind};
  const tlm::lu_step<T> step{sh,    a,     ja,    lnz,    xunz,       unz, temp,
                             pivot, cpivot, xjalf, jalf, xjauf, jauf, luperm, luperm_row,
                             eps,   *rowflag != 0 ? s : nullptr};
  lu_run(sh, step, temp, npert, error);
}

TLM_INSTANTIATE_EACH(blklu)
TLM_INSTANTIATE_EACH(blklu_unsym)
