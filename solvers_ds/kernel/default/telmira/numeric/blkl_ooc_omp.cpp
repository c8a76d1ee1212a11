// blkl_ooc_omp.cpp - the out-of-core Cholesky sweep on several threads
// (blkl_ooc_omp.h).
#include "blkl_ooc_omp.h"

#include <complex>
#include <cstdlib>
#include <cstring>

#include "blkl_step.h"
#include "ooc_step.h"
#include "sweep_frame_branch.h"
#include "service/vek_serv_clock.h"
#include "telmira_ooc_arena.h"

namespace tlm {

namespace {

template <class T> struct ooc_omp_step {
  const sweep_shape &sh;  // the structure as the frame sees it
  const T *a;
  const int *xjalf, *jalf, *luperm, *perm;
  T *temp;
  int *xl;  // n + 1 entries a thread
  T *lbuf;
  ooc_file *ooc;
  int msglvl;
  int arena_values;  // the arena: positions 1 .. arena_values of lbuf
  int panel;
  int nthreads;
  const sweep_incoming &in;
  int *first;      // per record: its first target not yet updated (place in slindx)
  char *done;      // per place of slindx: the update has been taken
  int *rows_kept;  // per record: the rows its targets still need, 0 when none
  ooc_thread_io *io;
  bool branch;     // the branch sweep: every panel stands in the arena
  ooc_forward *forward;  // the fused forward step, null when none

  int target_slot(int thread) const { return arena_values + (thread - 1) * panel + 1; }
  int source_slot(int thread) const {
    return arena_values + (nthreads + thread - 1) * panel + 1;
  }
  ooc_file *lfile() const { return ooc + (OOC_LNZ - 1); }
  int *xl_of(int thread) const { return xl + static_cast<long>(thread - 1) * (sh.n + 1); }

  // The inner step of a thread: the in-core step on lbuf, through the
  // thread's own copy of xlnz.
  template <class F> void with_inner(int thread, const F &f) const {
    sweep_shape ish = sh;
    ish.xlnz = xl_of(thread);
    const chol_step<T> inner{ish, a, lbuf, temp, xjalf, jalf, luperm, perm};
    f(inner);
  }

  sweep_target local(const sweep_target &t, int thread) const {
    sweep_target l = t;
    l.jlnz = std::abs(xl_of(thread)[t.fstcol - 1]);
    return l;
  }

  // J's columns of the thread's xl, and the start of the column behind
  // them, moved to the slot (in the branch sweep: to J's place in the
  // arena); false when J has no place.
  bool place(const sweep_target &t, int thread) const {
    const int pos = branch ? std::abs(lfile()->pt_inm[t.J]) : target_slot(thread);
    if (pos == 0) {
      io[thread - 1].arena_error = -3;
      return false;
    }
    const int shift = pos - t.jlnz;
    int *x = xl_of(thread);
    for (int c = t.fstcol; c <= t.lstcol + 1; ++c) {
      const int v = sh.xlnz[c - 1];
      x[c - 1] = v < 0 ? v - shift : v + shift;
    }
    return true;
  }

  void scatter(const sweep_target &t, int thread) const {
    if (!place(t, thread)) return;
    const long shifts[2] = {static_cast<long>(local(t, thread).jlnz) - t.jlnz, 0L};
    with_inner(thread, [&](const chol_step<T> &inner) {
      inner.scatter_at(t, thread, sh.xlnz, nullptr, shifts);
    });
  }

  // A later visit of a target of the branch sweep: its place and index.
  void index(const sweep_target &t, int thread) const {
    if (place(t, thread)) sweep_index_rows(t, sh.lindx, sh.indmap + (thread - 1L) * sh.n);
  }

  // The remaining rows of K into the thread's source slot, densely (rem
  // rows a column): from the arena under its lock, else from the file.
  bool fetch(const sweep_source &s, T *dst, ooc_thread_io *mine) const {
    bool resident = false;
    int e = 0;
#pragma omp critical(ooc_arena)
    {
      int pos = 0, kept = 0;
      if (telmira_ooc_find_panel(lfile(), s.K, s.rem, &pos, &kept, &e) != 0) {
        const T *src = lbuf + (pos - 1);
        for (int c = 0; c < s.kncols; ++c)
          std::memcpy(dst + static_cast<long>(c) * s.rem, src + static_cast<long>(c) * kept,
                      sizeof(T) * static_cast<std::size_t>(s.rem));
        resident = true;
      }
      // The rows the targets still need are those of the first target not
      // yet updated (the targets in column order need fewer and fewer);
      // the next compaction keeps only them, and drops the panel after
      // its last update.
      taken(s);
    }
    if (e != 0) {
      mine->arena_error = e;
      return false;
    }
    if (resident) return true;
    double t0 = 0.0, t1 = 0.0;
    telmira_clock(&t0);
    mine->read += telmira_ooc_read_rows(ooc, OOC_LNZ, s.K, s.rem, s.klda, s.kncols, dst,
                                        msglvl, &mine->io_error);
    telmira_clock(&t1);
    mine->t_read += t1 - t0;
    return mine->io_error == 0;
  }

  // Under the arena's lock: the update of s's target is taken, the place
  // of its row count among K's targets marked. The rows still needed are
  // the most that a target still waiting needs.
  void taken(const sweep_source &s) const {
    const int K = s.K, end = in.xslindx[K] - 1;
    int f = first[K - 1];
    for (int i = f; i < end; ++i)
      if (!done[i] && in.slength[i] == s.rem) {
        done[i] = 1;
        break;
      }
    while (f < end && done[f]) ++f;
    first[K - 1] = f;
    int rows = 0;
    for (int i = f; i < end; ++i)
      if (!done[i] && in.slength[i] > rows) rows = in.slength[i];
    rows_kept[K - 1] = rows;
  }

  void update(const sweep_target &t, const sweep_source &s, int thread, int *ndone,
              int *error) const {
    ooc_thread_io *mine = io + (thread - 1);
    if (mine->arena_error != 0) {
      *error = -3;
      return;
    }
    sweep_source l = s;
    if (branch) {
      // The arena does not change while the threads work: its panels are
      // read in place.
      int pos = 0, kept = 0, e = 0;
      if (telmira_ooc_find_panel(lfile(), s.K, s.rem, &pos, &kept, &e) == 0) {
        mine->arena_error = e != 0 ? e : -3;
        *error = -3;
        return;
      }
      l.klnz = pos;
      l.klda = kept;
    } else {
      const int slot = source_slot(thread);
      if (!fetch(s, lbuf + (slot - 1), mine)) {
        *error = -3;
        return;
      }
      l.klnz = slot;
      l.klda = s.rem;
    }
    with_inner(thread, [&](const chol_step<T> &inner) {
      inner.update(local(t, thread), l, thread, ndone, error);
    });
  }

  // A copy of J's panel in the arena, where room can be made for it: the
  // panels no target needs any more are dropped first, then the oldest
  // go. A panel larger than the arena, or one that updates nothing, stays
  // in the file only.
  void keep(const sweep_target &t, const T *blk, ooc_thread_io *mine) const {
    const int rows = rows_kept[t.J - 1], need = rows * t.ncols;
    if (need > arena_values || rows == 0) return;
    int e = 0;
#pragma omp critical(ooc_arena)
    {
      ooc_file *f = lfile();
      telmira_ooc_room_for_panel(f, rows_kept, sh.xsup, lbuf, need, &e);
      int pos = 0;
      if (e == 0 && telmira_ooc_place_panel(f, t.J, &pos, rows, t.ncols, &e) == 0) {
        for (int c = 0; c < t.ncols; ++c)
          std::memcpy(lbuf + (pos - 1 + static_cast<long>(c) * rows),
                      blk + (static_cast<long>(c) * t.nrows + (t.nrows - rows)),
                      sizeof(T) * static_cast<std::size_t>(rows));
        f->pt_inm[t.J] = pos;  // in the file already
      }
    }
    if (e != 0) mine->arena_error = e;
  }

  void factor(const sweep_target &t, int thread, sweep_counts *c, int *error) const {
    ooc_thread_io *mine = io + (thread - 1);
    if (mine->arena_error != 0) {
      *error = -3;
      return;
    }
    const sweep_target l = local(t, thread);
    with_inner(thread,
               [&](const chol_step<T> &inner) { inner.factor(l, thread, c, error); });
    if (*error != 0) return;
    const T *blk = lbuf + (l.jlnz - 1);
    for (int j = 0; j < t.ncols; ++j)
      if (!ooc_finite(blk[j + static_cast<long>(j) * t.nrows])) {
        mine->nonfinite = t.fstcol + j;
        *error = -3;
        return;
      }
    // The rows below J are shared with other panels' steps.
    if (forward != nullptr) {
#pragma omp critical(ooc_forward)
      ooc_forward_panel(*forward, t.fstcol, t.ncols, t.nrows,
                        sh.lindx + (sh.xlindx[t.J - 1] - 1), blk);
    }
    double t0 = 0.0, t1 = 0.0;
    telmira_clock(&t0);
    // The directory of file 2 grows under the lock, the transfer runs
    // beside the other threads'; the record of J is complete before J is
    // published to its targets.
    const int count = t.nrows * t.ncols;
#pragma omp critical(ooc_write)
    telmira_ooc_reserve_record(ooc, OOC_LNZ, t.J, count, &mine->io_error);
    mine->written += telmira_ooc_write_reserved(ooc, OOC_LNZ, t.J, count, blk, msglvl,
                                                &mine->io_error);
    telmira_clock(&t1);
    mine->t_write += t1 - t0;
    if (mine->io_error != 0) {
      *error = -3;
      return;
    }
    if (arena_values > 0 && !branch) keep(t, blk, mine);
    if (mine->arena_error != 0) *error = -3;
  }
};

}  // namespace

template <class T>
void blkl_ooc_omp(const T *a, const sweep_shape &sh, const sweep_incoming &in, int nthreads,
                  const int *xjalf, const int *jalf, const int *luperm, const int *perm,
                  int *xl, T *lbuf, int arena_values, int panel, T *temp, ooc_file *ooc,
                  int msglvl, int *first, char *done, int *rows_kept, ooc_thread_io *io,
                  const ooc_tree *tree, int *consumed, ooc_forward *forward, int *error) {
  const ooc_omp_step<T> step{sh,    a,        xjalf, jalf,  luperm, perm,
                             temp,  xl,       lbuf,  ooc,   msglvl, arena_values,
                             panel, nthreads, in,    first, done,   rows_kept,
                             io,    tree != nullptr, forward};
  sweep_counts counts;
  if (tree == nullptr) {
    sweep_run_omp(sh, in, nthreads, temp, step, &counts, error);
    return;
  }
  auto load = [&](int leaf, int *e) {
    int code = 0;
    if (ooc_set_branch(ooc + (OOC_LNZ - 1), *tree, leaf, sh.xsup, sh.xlindx, msglvl, &code) !=
        0) {
      io[0].arena_error = code;
      *e = -3;
    }
  };
  sweep_run_branches_omp(sh, in, *tree, nthreads, consumed, temp, step, load, &counts, error);
}

#define TLM_BLKL_OOC_OMP(T)                                                                   \
  template void blkl_ooc_omp<T>(const T *, const sweep_shape &, const sweep_incoming &, int,     \
                                const int *, const int *, const int *, const int *, int *, T *,  \
                                int, int, T *, ooc_file *, int, int *, char *, int *,            \
                                ooc_thread_io *, const ooc_tree *, int *, ooc_forward *, \
                                int *);
TLM_BLKL_OOC_OMP(float)
TLM_BLKL_OOC_OMP(double)
TLM_BLKL_OOC_OMP(std::complex<float>)
TLM_BLKL_OOC_OMP(std::complex<double>)
#undef TLM_BLKL_OOC_OMP

}  // namespace tlm
