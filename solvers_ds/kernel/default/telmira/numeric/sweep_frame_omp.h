// sweep_frame_omp.h - the supernodal sweep shared out among the threads of
// one parallel region, for any step policy of sweep_frame.h, by one of two
// schedules: the ranges of `parts` (dynamic loops in ascending order, a
// barrier between ranges) or the ready list `pnlsch` (one dynamic loop).
//
// A finished supernode publishes
// itself into the incoming list of every target it updates (up, uplen, with
// link as the cursor of each target's list); a target polls its list and
// applies the sources in the order they arrived. Every descendant of a
// supernode has a lower number, so that it is either in an earlier range or
// taken earlier in the same loop: the polling cannot deadlock.
#ifndef TELMIRA_SWEEP_FRAME_OMP_H
#define TELMIRA_SWEEP_FRAME_OMP_H

#include <omp.h>

#include <cstdlib>
#include <thread>

#include "factor_progress.h"
#include "sweep_frame.h"

namespace tlm {

// The incoming lists: places xnmod(J) on of up and uplen are J's list, the
// first column and the remaining rows of each source as it arrived;
// xslindx/slindx/slength list each source's targets (first columns) and its
// rows from each. nparts pairs of parts and the top are the ranges.
struct sweep_incoming {
  int nparts;
  const int *parts, *xnmod, *xslindx, *slindx, *slength;
  int *up, *uplen;
};

namespace omp_sweep {

// The error cell as the threads see it: read and written under lock_update,
// so that a poll never works on a stale copy. The accesses are atomic as
// well, because the waits of the sweep poll the cell without the lock.
inline int error_seen(const int *error) {
  int e;
#pragma omp critical(lock_update)
  e = __atomic_load_n(error, __ATOMIC_ACQUIRE);
  return e;
}

inline void error_set(int *error, int value) {
#pragma omp critical(lock_update)
  __atomic_store_n(error, value, __ATOMIC_RELEASE);
}

// One round of a wait for another thread's work: a busy poll at first;
// after many rounds the thread yields its processor, so that a machine
// with more threads than cores does not starve the thread waited for.
inline void spin_wait(int *rounds) {
  if (++*rounds < 4096) {
    __builtin_ia32_pause();
  } else {
    std::this_thread::yield();
  }
}

// Region start of every schedule: the thread's number, by order of
// arrival under lock_thread, and its slice of temp cleared.
template <class T>
int arrive(int *arrivals, T *temp, long tmpsize) {
  int thread = 0;
#pragma omp critical(lock_thread)
  thread = ++*arrivals;
  clear(temp + static_cast<long>(thread - 1) * tmpsize, tmpsize);
  return thread;
}

// Region end: the thread's counters into the shared ones, and the last
// progress report by thread 1.
inline void depart(int thread, const sweep_counts &mine, sweep_counts *c,
                   factor_progress *progress) {
#pragma omp critical(lock_count)
  {
    c->npert += mine.npert;
    c->npos += mine.npos;
    c->nneg += mine.nneg;
  }
  if (thread == 1) factor_progress_end(progress);
}

// The updates of target t by the sources in its incoming list from place
// *pos on: with pending > 0 until that many have been applied (waiting for
// the sources that have not arrived yet), with pending = 0 those that have
// arrived. *pos moves behind the applied ones. False when the sweep fails.
template <class Step>
bool take_arrivals(const sweep_target &t, int thread, const sweep_shape &sh,
                   const sweep_incoming &in, const Step &step, int *pos, int pending,
                   int *error) {
  const int J = t.J;
  int *link = sh.link;
  const bool wait = pending > 0;
  int idle = 0;
  while (!wait || pending > 0) {
    int end = *pos;
    // The test reads link(J) only when the list may have moved on.
    if (__atomic_load_n(&link[J - 1], __ATOMIC_ACQUIRE) == *pos) {
      if (!wait) return true;
      if (__atomic_load_n(error, __ATOMIC_RELAXED) != 0) return false;
      spin_wait(&idle);
      continue;
    }
    idle = 0;
#pragma omp critical(lock_update)
    end = link[J - 1];
    if (error_seen(error) != 0) return false;
    for (int i = *pos; i < end; ++i) {
      const int kc = in.up[i - 1];
      sweep_source s;
      s.kc = kc;
      s.K = sh.snode[kc - 1];
      s.rem = in.uplen[i - 1];
      s.kfst = sh.xsup[s.K - 1];
      s.kncols = sh.xsup[s.K] - s.kfst;
      s.klda = std::abs(sh.xlnz[s.kfst]) - std::abs(sh.xlnz[s.kfst - 1]);
      s.kurows = s.klda - s.kncols;
      s.klnz = std::abs(sh.xlnz[s.kfst]) - s.rem;
      s.klindx = sh.xlindx[s.K] - s.rem;
      int ndone = 0, err = 0;
      step.update(t, s, thread, &ndone, &err);
      if (err != 0) {
        error_set(error, err);
        return false;
      }
    }
    pending -= end - *pos;
    *pos = end;
    if (!wait) return true;
  }
  return true;
}

// The factor step of t and its publication to the targets it updates.
template <class Step>
void factor_and_publish(const sweep_target &t, int thread, const sweep_shape &sh,
                        const sweep_incoming &in, const Step &step, sweep_counts *c,
                        int *error) {
  int err = 0;
  step.factor(t, thread, c, &err);
  if (err != 0) {
    error_set(error, err);
    return;
  }
  int *link = sh.link;
#pragma omp critical(lock_update)
  for (int i = in.xslindx[t.J - 1]; i < in.xslindx[t.J]; ++i) {
    const int target = sh.snode[in.slindx[i - 1] - 1];
    const int q = link[target - 1];
    in.up[q - 1] = t.fstcol;
    in.uplen[q - 1] = in.slength[i - 1];
    __atomic_store_n(&link[target - 1], q + 1, __ATOMIC_RELEASE);
  }
}

// Scatter, the updates as the sources arrive, the factor step, and the
// publication of J to its targets.
template <class Step>
void factor_one(int J, int thread, const sweep_shape &sh, const sweep_incoming &in,
                const Step &step, sweep_counts *c, int *error) {
  if (error_seen(error) != 0) return;
  const sweep_target t = sweep_target_of(J, sh.xsup, sh.xlnz, sh.xlindx);
  step.scatter(t, thread);
  int pos = in.xnmod[J - 1];
  if (sh.nmod[J - 1] > 0 && !take_arrivals(t, thread, sh, in, step, &pos, sh.nmod[J - 1], error))
    return;
  factor_and_publish(t, thread, sh, in, step, c, error);
}

}  // namespace omp_sweep

namespace omp_sweep {

// One parallel region of the sweep. Thread t (numbered from 1 as the
// threads arrive) uses block t of indmap and relind and slice t of temp;
// thread 1 reports the progress. order(run) hands the supernodes out: it
// runs run(J) for each, inside the region, by its own worksharing loops.
// Each thread sums its counters and adds them to c under lock_count.
template <class T, class Step, class Order>
void region(const sweep_shape &sh, const sweep_incoming &in, int nthreads, T *temp,
            const Step &step, sweep_counts *c, int *error, const Order &order) {
  *error = 0;
  for (int s = 0; s < sh.nsuper; ++s) sh.link[s] = in.xnmod[s];
  // The hook's answer stops only the report before the region.
  factor_progress progress;
  if (factor_progress_start(&progress, sh.msglvl) != 0) {
    *error = -1;
    return;
  }
  int arrivals = 0;  // thread numbers handed out, under lock_thread
  const int team = nthreads > 0 ? nthreads : 1;

#pragma omp parallel num_threads(team)
  {
    const int thread = arrive(&arrivals, temp, sh.tmpsize);
    sweep_counts mine;
    long done_entries = 0;
    const int workers = omp_get_num_threads();
    order([&](int J) {
      factor_one(J, thread, sh, in, step, &mine, error);
      if (thread == 1) {
        done_entries += static_cast<long>(std::abs(sh.xlnz[sh.xsup[J] - 1]) -
                                          std::abs(sh.xlnz[sh.xsup[J - 1] - 1]));
        long p = static_cast<long>(100.0 * workers * done_entries /
                                   (sh.nnzl > 0 ? sh.nnzl : 1));
        if (p > 99) p = 99;
        factor_progress_step(&progress, static_cast<int>(p));
      }
    });
    depart(thread, mine, c, &progress);
  }
}

}  // namespace omp_sweep

// The ranges schedule: the supernodes of each pair of parts by a dynamic
// loop in ascending order, a barrier between the pairs; supernodes between
// two pairs, and the top after the last, form ranges of their own.
template <class T, class Step>
void sweep_run_omp(const sweep_shape &sh, const sweep_incoming &in, int nthreads, T *temp,
                   const Step &step, sweep_counts *c, int *error) {
  const int ns = sh.nsuper;
  const int np = in.nparts > 0 ? in.nparts : 1;
  omp_sweep::region(sh, in, nthreads, temp, step, c, error, [&](const auto &run) {
    int end = 0;  // last supernode of the ranges so far
    for (int k = 0; k <= np; ++k) {
      int lo, hi;
      if (k < np && in.nparts > 0) {
        lo = in.parts[2 * k];
        hi = in.parts[2 * k + 1];
        if (hi < lo) continue;
        if (lo > end + 1) {
          const int glo = end + 1, ghi = lo - 1;
#pragma omp for schedule(dynamic, 1)
          for (int J = glo; J <= ghi; ++J) run(J);
        }
      } else {
        lo = end + 1;
        hi = ns;
      }
#pragma omp for schedule(dynamic, 1)
      for (int J = lo; J <= hi; ++J) run(J);
      if (hi > end) end = hi;
      if (end >= ns) break;
    }
  });
}

// The ready-list schedule: one dynamic loop over pnlsch, leaves first and
// every supernode after all its children, so that the supernodes a target
// waits for have all been taken before it.
template <class T, class Step>
void sweep_run_omp_ready(const sweep_shape &sh, const sweep_incoming &in, const int *pnlsch,
                         int nthreads, T *temp, const Step &step, sweep_counts *c,
                         int *error) {
  const int ns = sh.nsuper;
  omp_sweep::region(sh, in, nthreads, temp, step, c, error, [&](const auto &run) {
#pragma omp for schedule(dynamic, 1)
    for (int i = 1; i <= ns; ++i) run(std::abs(pnlsch[i - 1]));
  });
}

}  // namespace tlm

#endif
