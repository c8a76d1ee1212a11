// blkldl.cpp - the sequential L D L^T sweeps: the steps of blkldl_step.h in
// the frame of sweep_frame.h, for real, complex symmetric and Hermitian
// values.
#include "blkldl.h"

#include "blkldl_step.h"

template <class T, bool Hermitian>
void blkldl(const T *a, const int *ja, const int *nsuper, const int *, const int *n,
            const int *nnzl, const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
            int *indmap, int *relind, const int *tmpsize, T *temp, const int *nmod, int *link,
            const int *snode, const int *xsup, int *length, int *pivot, const int *xjalf,
            const int *jalf, const int *luperm, const int *perm,
            const tlm::real_of<T> *eps, const int *diagp, int *npert, int *npos, int *nneg,
            const tlm::real_of<T> *s, const int *rowflag, const int *luperm_row,
            const int *msglvl, int *error) {
  const tlm::sweep_shape sh{*n,    *nsuper, *nnzl, *tmpsize, *msglvl, xsup,   snode, xlindx,
                            lindx, xlnz,    nmod,  link,     length,  indmap, relind};
  const tlm::ldl_step<T, Hermitian> step{sh,     a,     ja,         lnz, temp, pivot,
                                         xjalf,  jalf,  luperm,     perm, luperm_row,
                                         eps,    s,     *diagp != 0, *rowflag != 0};
  tlm::sweep_counts counts;
  tlm::sweep_run(sh, temp, step, &counts, error);
  // Written also after a failure: the counts of the supernodes done.
  *npert = counts.npert;
  if constexpr (!tlm::value_traits<T>::is_complex) {
    *npos = counts.npos;
    *nneg = counts.nneg;
  }
}

TLM_INSTANTIATE_EACH(blkldl)
TLM_INSTANTIATE(blkldl<tlm::zcomplex, true>)
TLM_INSTANTIATE(blkldl<tlm::ccomplex, true>)
