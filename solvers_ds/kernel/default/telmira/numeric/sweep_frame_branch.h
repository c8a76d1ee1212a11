// sweep_frame_branch.h - the supernodal sweep branch by branch of the
// partition tree, for factors that leave memory while the panels of one
// branch stay in it.
//
// For each leaf in order, load(leaf, &error) brings the branch's panels in
// (the nodes it shares with the previous branch stay, with their partial
// sums). Then, for the nodes from the leaf up to the root and for each of
// their supernodes J in order:
//   - on J's first visit, A into its block (scatter); on a later one only
//     the relative index of its rows (index);
//   - every source that waits for J now takes its update: all of them are
//     in the branch, since the targets of a source lie on its way to the
//     root;
//   - when the leaf is the last under J's node, J has had all its updates
//     and is factorized; it then becomes a source for the nodes above.
// So by the end of a leaf's turn the sources finished in it have updated
// every target, and the nodes that will not come back can leave memory.
// The step policy is that of sweep_frame.h with index() beside scatter().
#ifndef TELMIRA_SWEEP_FRAME_BRANCH_H
#define TELMIRA_SWEEP_FRAME_BRANCH_H

#include "sweep_frame.h"
#include "telmira_ooc_tree.h"

namespace tlm {

// taken: nsuper entries of work. error: as sweep_run's, and -1 when the
// counts of a target do not add up when it is factorized.
template <class T, class Step, class Load>
void sweep_run_branches(const sweep_shape &sh, const ooc_tree &tree, int *taken, T *temp,
                        const Step &step, const Load &load, sweep_counts *c, int *error) {
  *error = 0;
  for (int i = 0; i < sh.n; ++i) sh.link[i] = 0;
  for (int J = 0; J < sh.nsuper; ++J) taken[J] = -1;  // not visited
  factor_progress progress;
  if (factor_progress_start(&progress, sh.msglvl) != 0) {
    *error = -1;
    return;
  }
  clear(temp, sh.tmpsize);
  const int thread = 1;
  double finished = 0.0;  // entries of the factorized panels
  for (int leaf = 0; leaf < OOC_TREE_LEAVES; ++leaf) {
    load(leaf, error);
    if (*error != 0) return;
    int path[OOC_TREE_LEVELS];
    ooc_tree_path(tree, leaf, path);
    for (int l = 0; l < OOC_TREE_LEVELS; ++l) {
      const int node = path[l];
      const bool last = tree.hi[node] == leaf;
      for (int m = tree.start[node]; m < tree.start[node + 1]; ++m) {
        const int J = tree.members[m];
        const sweep_target t = sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx);
        if (taken[J - 1] < 0) {
          step.scatter(t, thread);
          taken[J - 1] = 0;
        } else {
          step.index(t, thread);
        }
        sweep_source s;
        while (sweep_take(t.fstcol, sh.link, sh.snode, sh.length, sh.xsup, sh.xlnz,
                          sh.xlindx, &s)) {
          int ndone = 0;
          step.update(t, s, thread, &ndone, error);
          if (*error != 0) return;
          sweep_requeue(s, ndone, sh.link, sh.length, sh.xsup, sh.snode, sh.xlindx, sh.lindx);
          ++taken[J - 1];
        }
        if (!last) continue;
        if (taken[J - 1] != sh.nmod[J - 1]) {
          *error = -1;
          return;
        }
        step.factor(t, thread, c, error);
        if (*error != 0) return;
        sweep_release(t, sh.link, sh.length, sh.xsup, sh.snode, sh.lindx);
        const int p = static_cast<int>(100.0 * finished / (sh.nnzl > 0 ? sh.nnzl : 1));
        finished += static_cast<double>(t.nrows) * t.ncols;
        if (factor_progress_step(&progress, p) != 0) {
          *error = -1;
          return;
        }
      }
    }
  }
  if (factor_progress_end(&progress) != 0) *error = -1;
}

}  // namespace tlm

#endif
