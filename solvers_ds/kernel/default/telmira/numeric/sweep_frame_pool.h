// sweep_frame_pool.h - the subtree-and-pool schedule of the parallel sweep,
// for a matrix ordered by nested dissection into independent parts: each
// part runs the sequential sweep on one thread, and the supernodes of the
// top (everything after the last part) go through a pool that any thread
// takes from, applying whatever updates are ready.
//
// The lists are the special form of the parallel lists: for each top
// supernode J and source group p (part p, or nparts+1 for the top itself)
// a cell of xslindx lists the sources of J from that group and the rows
// they have left (slindx, slength). A source of part p is ready when the
// part's sweep has passed it (prog(p)); a top source when its state is
// done. A thread that meets an unready source puts J back; the cursors of
// the cells remember what was applied.
#ifndef TELMIRA_SWEEP_FRAME_POOL_H
#define TELMIRA_SWEEP_FRAME_POOL_H

#include <vector>

#include "sweep_frame_omp.h"

namespace tlm {

// The special form of the lists and the parts.
struct sweep_pool_lists {
  int nparts;
  const int *parts;                      // nparts pairs of supernode ranges
  const int *xslindx, *slindx, *slength;  // the cells
};

namespace pool_sweep {

// The source K with rem rows left, as an update sees it.
inline sweep_source source_of(int K, int rem, const sweep_shape &sh) {
  sweep_source s;
  s.K = K;
  s.kfst = sh.xsup[K - 1];
  s.kc = s.kfst;
  s.rem = rem;
  s.kncols = sh.xsup[K] - s.kfst;
  s.klda = std::abs(sh.xlnz[s.kfst]) - std::abs(sh.xlnz[s.kfst - 1]);
  s.klnz = std::abs(sh.xlnz[s.kfst]) - rem;
  s.klindx = sh.xlindx[K] - rem;
  s.kurows = s.klda - s.kncols;
  return s;
}

// The relative index of J's rows in the thread's indmap: the i-th row of
// the list (from 0) is nrows-1-i rows from the last.
inline void fill_indmap(const sweep_target &t, const sweep_shape &sh, int thread) {
  int *map = sh.indmap + (thread - 1L) * sh.n;
  const int *rows = sh.lindx + (t.jlindx - 1);
  for (int i = 0; i < t.nrows; ++i) map[rows[i] - 1] = t.nrows - 1 - i;
}

// A source waits for the supernode of its row r, unless that is a top
// supernode (first column c0 or above), which gathers its sources from the
// cells instead.
inline void push_below(int kc, int r, int c0, int *link, const int *xsup, const int *snode) {
  if (xsup[snode[r - 1] - 1] < c0) sweep_push(kc, r, link, xsup, snode);
}

// The sequential sweep over the supernodes of one part.
template <class Step>
void run_part(int first, int last, int c0, int thread, const sweep_shape &sh, const Step &step,
              sweep_counts *c, int *prog, int *error) {
  for (int J = first; J <= last; ++J) {
    if (omp_sweep::error_seen(error) != 0) return;
    const sweep_target t = sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx);
    step.scatter(t, thread);
    for (int u = 0; u < sh.nmod[J - 1]; ++u) {
      sweep_source s;
      if (!sweep_take(t.fstcol, sh.link, sh.snode, sh.length, sh.xsup, sh.xlnz, sh.xlindx,
                      &s)) {
        omp_sweep::error_set(error, -1);
        return;
      }
      int ndone = 0, err = 0;
      step.update(t, s, thread, &ndone, &err);
      if (err != 0) {
        omp_sweep::error_set(error, err);
        return;
      }
      sh.length[s.K - 1] = s.rem - ndone;
      if (s.rem > ndone)
        push_below(s.kc, sh.lindx[sh.xlindx[s.K] - s.rem + ndone - 1], c0, sh.link, sh.xsup,
                   sh.snode);
    }
    int err = 0;
    step.factor(t, thread, c, &err);
    if (err != 0) {
      omp_sweep::error_set(error, err);
      return;
    }
    if (t.ncols < t.nrows) {
      sh.length[J - 1] = t.nrows - t.ncols;
      push_below(t.fstcol, sh.lindx[t.jlindx + t.ncols - 1], c0, sh.link, sh.xsup, sh.snode);
    } else {
      sh.length[J - 1] = 0;
    }
    __atomic_store_n(prog, J, __ATOMIC_RELEASE);
  }
}

}  // namespace pool_sweep

// The sweep on nthreads threads by parts and pool. sh.length must be a
// real array: the parts' sweeps keep their descendant lists in link and
// length as the sequential sweep does.
template <class T, class Step>
void sweep_run_pool(const sweep_shape &sh, const sweep_pool_lists &pl, int nthreads, T *temp,
                    const Step &step, sweep_counts *c, int *error) {
  *error = 0;
  const int ns = sh.nsuper, np = pl.nparts;
  const int t0 = pl.parts[2 * (np - 1) + 1] + 1;  // the first top supernode
  const int ntop = ns - t0 + 1;
  const int c0 = t0 <= ns ? sh.xsup[t0 - 1] : sh.n + 1;
  const long cells = ntop > 0 ? static_cast<long>(ntop) * (np + 1) + 1 : 1;
  std::vector<int> prog(np + 2, 0), state(ns + 1, 0);
  std::vector<int> cursor(pl.xslindx, pl.xslindx + cells);  // a private copy
  for (int i = 0; i < sh.n; ++i) sh.link[i] = 0;
  factor_progress progress;
  if (factor_progress_start(&progress, sh.msglvl) != 0) {
    *error = -1;
    return;
  }
  int arrivals = 0, done = 0, next = ns + 2;
  const int team = nthreads > 0 ? nthreads : 1;

#pragma omp parallel num_threads(team)
  {
    const int thread = omp_sweep::arrive(&arrivals, temp, sh.tmpsize);
    sweep_counts mine;

    // The top supernodes receive A first.
#pragma omp for schedule(dynamic, 1)
    for (int J = t0; J <= ns; ++J)
      step.scatter(sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx), thread);

    // The parts, one thread each; no barrier behind them.
#pragma omp for schedule(dynamic, 1) nowait
    for (int p = 1; p <= np; ++p)
      pool_sweep::run_part(pl.parts[2 * (p - 1)], pl.parts[2 * (p - 1) + 1], c0, thread, sh,
                           step, &mine, &prog[p], error);
    if (thread == 1) factor_progress_step(&progress, 99);

    // The pool of the top supernodes.
    int idle = 0;
    for (;;) {
      int J = 0;
      bool stop = false;
#pragma omp critical(lock_pool)
      {
        if (done == ntop || __atomic_load_n(error, __ATOMIC_RELAXED) != 0) {
          stop = true;
        } else {
          if (next > ns) {
            J = t0;
            next = t0 + 1;
          } else {
            J = next++;
          }
          if (state[J] == 0)
            state[J] = -1;
          else
            J = 0;
        }
      }
      if (stop) break;
      if (J == 0) {
        omp_sweep::spin_wait(&idle);
        continue;
      }
      const sweep_target t = sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx);
      pool_sweep::fill_indmap(t, sh, thread);
      bool complete = true;
      for (int p = 1; p <= np + 1 && complete; ++p) {
        const long cell = static_cast<long>(J - t0) * (np + 1) + p;
        int &e = cursor[cell - 1];
        for (; e < pl.xslindx[cell]; ++e) {
          const int K = pl.slindx[e - 1];
          bool ready;
          if (p <= np) {
            ready = __atomic_load_n(&prog[p], __ATOMIC_ACQUIRE) >= K;
          } else {
#pragma omp critical(lock_pool)
            ready = state[K] == 1;
          }
          if (!ready) {
            complete = false;
            break;
          }
          int ndone = 0, err = 0;
          step.update(t, pool_sweep::source_of(K, pl.slength[e - 1], sh), thread, &ndone, &err);
          if (err != 0) {
            omp_sweep::error_set(error, err);
            complete = false;
            break;
          }
        }
      }
      if (!complete) {
#pragma omp critical(lock_pool)
        state[J] = 0;
        omp_sweep::spin_wait(&idle);
        continue;
      }
      idle = 0;
      int err = 0;
      step.factor(t, thread, &mine, &err);
      if (err != 0) omp_sweep::error_set(error, err);
#pragma omp critical(lock_pool)
      {
        prog[np + 1] = J;
        state[J] = 1;
        ++done;
      }
    }
    omp_sweep::depart(thread, mine, c, &progress);
  }
}

}  // namespace tlm

#endif
