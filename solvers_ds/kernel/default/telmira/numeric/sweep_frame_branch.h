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
//
// On several threads (sweep_run_branches_omp) the sources reach their
// targets through the incoming lists of sweep_frame_omp.h. For each leaf
// one thread loads the branch; the supernodes of the nodes that are final
// with the leaf (a run from the leaf up) are then shared out in ascending
// order, each waiting for the rest of its sources before it is factorized
// and published; behind them in the same loop the supernodes of the nodes
// above take the sources as they arrive, until the final ones are through.
#ifndef TELMIRA_SWEEP_FRAME_BRANCH_H
#define TELMIRA_SWEEP_FRAME_BRANCH_H

#include "sweep_frame.h"
#include "sweep_frame_omp.h"
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

namespace omp_sweep {

// The members of the nodes path[from..to-1], counted over the nodes in
// order: the member of place idx.
inline int branch_member(const ooc_tree &tree, const int *path, int from, int to, int idx) {
  for (int l = from; l < to; ++l) {
    const int size = tree.start[path[l] + 1] - tree.start[path[l]];
    if (idx < size) return tree.members[tree.start[path[l]] + idx];
    idx -= size;
  }
  return 0;
}

inline int branch_members(const ooc_tree &tree, const int *path, int from, int to) {
  int count = 0;
  for (int l = from; l < to; ++l) count += tree.start[path[l] + 1] - tree.start[path[l]];
  return count;
}

// One visit of target J: A on the first (the place reached in its list
// goes to pos), else its index. With final, all the sources it still waits
// for, then the factor step and the publication; otherwise the sources
// that arrive until the count of final visits still running (*running)
// is 0, so that the updates of every source finished with this leaf are
// in before the leaf's panels leave.
template <class Step>
void visit(int J, bool final, int thread, const sweep_shape &sh, const sweep_incoming &in,
           const Step &step, int *pos, const int *running, sweep_counts *c, int *error) {
  if (error_seen(error) != 0) return;
  const sweep_target t = sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx);
  if (*pos == 0) {
    step.scatter(t, thread);
    *pos = in.xnmod[J - 1];
  } else {
    step.index(t, thread);
  }
  if (!final) {
    int idle = 0;
    for (;;) {
      // Read before the take: a final visit publishes before it counts
      // itself out.
      const bool last = __atomic_load_n(running, __ATOMIC_ACQUIRE) == 0;
      const int before = *pos;
      if (!take_arrivals(t, thread, sh, in, step, pos, 0, error)) return;
      if (last) return;
      if (*pos != before) {
        idle = 0;
      } else {
        if (__atomic_load_n(error, __ATOMIC_RELAXED) != 0) return;
        spin_wait(&idle);
      }
    }
  }
  const int pending = sh.nmod[J - 1] - (*pos - in.xnmod[J - 1]);
  if (pending < 0) {
    error_set(error, -1);
    return;
  }
  if (pending > 0 && !take_arrivals(t, thread, sh, in, step, pos, pending, error)) return;
  factor_and_publish(t, thread, sh, in, step, c, error);
}

}  // namespace omp_sweep

// consumed: nsuper entries of work, the place in each target's incoming
// list reached so far.
template <class T, class Step, class Load>
void sweep_run_branches_omp(const sweep_shape &sh, const sweep_incoming &in,
                            const ooc_tree &tree, int nthreads, int *consumed, T *temp,
                            const Step &step, const Load &load, sweep_counts *c, int *error) {
  using namespace omp_sweep;
  *error = 0;
  for (int s = 0; s < sh.nsuper; ++s) {
    sh.link[s] = in.xnmod[s];
    consumed[s] = 0;  // not visited
  }
  factor_progress progress;
  if (factor_progress_start(&progress, sh.msglvl) != 0) {
    *error = -1;
    return;
  }
  int arrivals = 0;
  int stop = 0;     // written by the loading thread, read by all behind the barrier
  int running = 0;  // final visits of the leaf not yet through
  const int team = nthreads > 0 ? nthreads : 1;
#pragma omp parallel num_threads(team)
  {
    const int thread = arrive(&arrivals, temp, sh.tmpsize);
    sweep_counts mine;
    double finished = 0.0;  // entries of the panels this thread factorized
    const int workers = omp_get_num_threads();
    for (int leaf = 0; leaf < OOC_TREE_LEAVES; ++leaf) {
      int path[OOC_TREE_LEVELS];
      ooc_tree_path(tree, leaf, path);
      int split = 0;
      while (split < OOC_TREE_LEVELS && tree.hi[path[split]] == leaf) ++split;
      const int nfinal = branch_members(tree, path, 0, split);
      const int nopen = branch_members(tree, path, split, OOC_TREE_LEVELS);
#pragma omp single
      {
        if (error_seen(error) == 0) {
          int e = 0;
          load(leaf, &e);
          if (e != 0) error_set(error, e);
        }
        stop = error_seen(error);
        __atomic_store_n(&running, nfinal, __ATOMIC_RELEASE);
      }
      // Behind the barrier of the load every thread sees the same answer;
      // the loop below ends at a barrier, before the next load.
      if (stop != 0) break;
      // The final visits first, in ascending order, then the open ones,
      // which take the updates as the final ones publish them.
#pragma omp for schedule(dynamic, 1)
      for (int i = 0; i < nfinal + nopen; ++i) {
        if (i >= nfinal) {
          const int J = branch_member(tree, path, split, OOC_TREE_LEVELS, i - nfinal);
          visit(J, false, thread, sh, in, step, consumed + (J - 1), &running, &mine, error);
          continue;
        }
        const int J = branch_member(tree, path, 0, split, i);
        visit(J, true, thread, sh, in, step, consumed + (J - 1), &running, &mine, error);
        __atomic_sub_fetch(&running, 1, __ATOMIC_RELEASE);
        if (thread == 1) {
          finished += std::abs(sh.xlnz[sh.xsup[J] - 1]) - std::abs(sh.xlnz[sh.xsup[J - 1] - 1]);
          const double p = 100.0 * workers * finished / (sh.nnzl > 0 ? sh.nnzl : 1);
          factor_progress_step(&progress, p > 99.0 ? 99 : static_cast<int>(p));
        }
      }
    }
    depart(thread, mine, c, &progress);
  }
}

}  // namespace tlm

#endif
