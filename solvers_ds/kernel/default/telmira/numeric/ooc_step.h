// ooc_step.h - the storage policy of the out-of-core sweeps: any step of
// blkl_step.h, blkldl_step.h or blklu_step.h on panels that come from and
// go to the files of the out-of-core mode, in the frame of sweep_frame.h.
//
// The inner step works on small buffers instead of the whole of lnz and
// unz: its shape carries copies of xlnz and xunz in which the columns of
// the current target, and the first column of the current source, are moved
// to where their panels stand in the buffers. So the arithmetic of the
// in-core steps runs unchanged.
//
// Target J: placed in the value arena (type 2) or the target slot, A
// scattered, updated, factorized, written to file 2 (and its U block to
// file 3). Source K: found in the arena, or read from the files into the
// source slot behind the arena: only its remaining rows, of L and of the U
// block. The block diagonal that L D L^T needs of a source stays in memory
// (kept: two values a column) from the factorization of its panel.
#ifndef TELMIRA_OOC_STEP_H
#define TELMIRA_OOC_STEP_H

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>

#include "dense/vek_dense.h"
#include "service/vek_serv_clock.h"
#include "sweep_frame.h"
#include "telmira_ooc_arena.h"
#include "telmira_ooc_files.h"

namespace tlm {

// The step of one panel: x(J) := L(J,J)^-1 x(J), then the rows below lose
// L(rows,J) x(J). blk: the panel (nrows by ncols, leading dimension nrows),
// rows: its row list. Every source of J has made its step before J's.
template <class T>
void ooc_forward_panel(const ooc_forward &f, int fstcol, int ncols, int nrows, const int *rows,
                       const T *blk) {
  T *x = static_cast<T *>(f.x);
  const T one = T(1);
  int nc = ncols, nr = nrows, nb = f.nrhs, n = f.n;
  vekd::trsm<T>("L", "L", "N", "N", &nc, &nb, &one, blk, &nr, x + (fstcol - 1), &n);
  for (int k = 0; k < nb; ++k) {
    T *xk = x + static_cast<long>(k) * n;
    for (int j = 0; j < ncols; ++j) {
      const T v = xk[fstcol - 1 + j];
      if (v == T(0)) continue;
      const T *c = blk + static_cast<long>(j) * nrows;
      for (int i = ncols; i < nrows; ++i) xk[rows[i] - 1] -= c[i] * v;
    }
  }
}

// What the out-of-core sweep reads and counts.
struct ooc_sweep_io {
  ooc_file *ooc;        // the eleven directories
  int msglvl;
  bool arena;           // type 2: panels stay in the value arena of file 2
  bool branch;          // the branch sweep placed every target beforehand
  bool upper;           // a U block in file 3
  int target, source;   // slot positions (one-based) without an arena
  int utarget, usource; // the same in the U buffer
  int io_error;         // I/O code of the first failure, 0 while none
  int arena_error;      // code of a failed arena step
  int nonfinite;        // first column whose pivot is not a finite number
  std::int64_t written, read;
  double t_write, t_read;
  ooc_forward *forward;  // the fused forward step (type 2), null when none
};

template <class V> inline bool ooc_finite(const V &v) { return std::isfinite(v); }
template <class V> inline bool ooc_finite(const std::complex<V> &v) {
  return std::isfinite(v.real()) && std::isfinite(v.imag());
}

template <class T, class Inner> struct ooc_step {
  const Inner &inner;     // on lnz = lbuf, unz = ubuf, through xl and xu
  const sweep_shape &sh;  // the structure as the frame sees it
  int *xl, *xu;           // the inner step's xlnz and xunz
  const int *xunz;        // the structure's xunz, null without U
  T *lbuf, *ubuf;
  ooc_sweep_io *io;
  T *kept;                // the L D L^T block diagonals, null for the others

  // Column c's entry of x moved by shift, its sign kept.
  static void move(int *x, int c, int shift) {
    const int v = x[c - 1];
    x[c - 1] = v < 0 ? v - shift : v + shift;
  }
  void rebase_columns(int fst, int lst, int pos, const int *from, int *to) const {
    const int shift = pos - std::abs(from[fst - 1]);
    for (int c = fst; c <= lst + 1; ++c) {
      to[c - 1] = from[c - 1];
      move(to, c, shift);
    }
  }
  bool failed_io(int *error) const {
    if (io->io_error == 0) return false;
    *error = -3;
    return true;
  }

  // Where the target's panel stands.
  int target_position(const sweep_target &t, int *error) const {
    if (!io->arena) return io->target;
    ooc_file *f = io->ooc + (OOC_LNZ - 1);
    if (io->branch) {
      const int pos = std::abs(f->pt_inm[t.J]);
      if (pos == 0) {
        io->arena_error = -3;
        *error = -3;
      }
      return pos;
    }
    const int need = t.nrows * t.ncols;
    int e = 0;
    // Panels shrink to the rows still needed, then the oldest go.
    telmira_ooc_room_for_panel(f, sh.length, sh.xsup, lbuf, need, &e);
    int pos = 0;
    if (e == 0) telmira_ooc_place_panel(f, t.J, &pos, t.nrows, t.ncols, &e);
    if (e != 0) {
      io->arena_error = e;
      *error = -3;
      return 0;
    }
    return pos;
  }

  sweep_target local(const sweep_target &t) const {
    sweep_target l = t;
    l.jlnz = std::abs(xl[t.fstcol - 1]);
    return l;
  }

  void scatter(const sweep_target &t, int thread) const {
    int error = 0;
    const int pos = target_position(t, &error);
    if (error != 0) return;  // update and factor see the arena error
    rebase_columns(t.fstcol, t.lstcol, pos, sh.xlnz, xl);
    if (io->upper) rebase_columns(t.fstcol, t.lstcol, io->utarget, xunz, xu);
    // The lists of A name positions in the whole factor.
    const long shift[2] = {static_cast<long>(pos) - t.jlnz,
                           io->upper ? io->utarget - std::abs(xunz[t.fstcol - 1]) : 0L};
    inner.scatter_at(t, thread, sh.xlnz, xunz, shift);
  }

  // A later visit of a target that stays in the arena (the branch sweep):
  // its columns in xl again (the end of its last column is the start of
  // the next supernode's, which may have moved it) and its relative index.
  void index(const sweep_target &t, int thread) const {
    int error = 0;
    const int pos = target_position(t, &error);
    if (error != 0) return;
    rebase_columns(t.fstcol, t.lstcol, pos, sh.xlnz, xl);
    sweep_index_rows(t, sh.lindx, sh.indmap + (thread - 1L) * sh.n);
  }

  void update(const sweep_target &t, const sweep_source &s, int thread, int *ndone,
              int *error) const {
    if (io->arena_error != 0) {
      *error = -3;
      return;
    }
    sweep_source l = s;
    const int full = s.klda;  // rows of K's panel
    int pos = 0, kept = 0, e = 0;
    if (io->arena && telmira_ooc_find_panel(io->ooc + (OOC_LNZ - 1), s.K, s.rem, &pos, &kept,
                                            &e) != 0) {
      l.klnz = pos;
      l.klda = kept;
    } else if (e != 0) {
      io->arena_error = e;
      *error = -3;
      return;
    } else {
      double t0 = 0.0, t1 = 0.0;
      telmira_clock(&t0);
      io->read += telmira_ooc_read_record(io->ooc, OOC_LNZ, s.K, s.rem, full, s.kncols,
                                          lbuf + (io->source - 1), io->msglvl, &io->io_error);
      if (io->upper)
        io->read += telmira_ooc_read_record(io->ooc, OOC_UNZ, s.K, s.rem, full - s.kncols,
                                            s.kncols, ubuf + (io->usource - 1), io->msglvl,
                                            &io->io_error);
      telmira_clock(&t1);
      io->t_read += t1 - t0;
      if (failed_io(error)) return;
      l.klnz = io->source;
      l.klda = s.rem;
      l.kurows = s.rem;
      // The first column of K, for the U block.
      xl[s.kfst - 1] = io->source;
      if (io->upper) xu[s.kfst - 1] = io->usource;
    }
    inner.update(local(t), l, thread, ndone, error);
  }

  void factor(const sweep_target &t, int thread, sweep_counts *c, int *error) const {
    if (io->arena_error != 0) {
      *error = -3;
      return;
    }
    const sweep_target l = local(t);
    inner.factor(l, thread, c, error);
    if (*error != 0) return;
    const T *blk = lbuf + (l.jlnz - 1);
    for (int j = 0; j < t.ncols; ++j)
      if (!ooc_finite(blk[j + static_cast<long>(j) * t.nrows])) {
        io->nonfinite = t.fstcol + j;
        *error = -1;
        return;
      }
    // The diagonal entry of each column and the one below it, within the
    // supernode, for the updates this panel makes from the file.
    if (kept != nullptr)
      for (int j = 0; j < t.ncols; ++j) {
        kept[2L * (t.fstcol - 1 + j)] = blk[j + static_cast<long>(j) * t.nrows];
        kept[2L * (t.fstcol - 1 + j) + 1] =
            j + 1 < t.ncols ? blk[j + 1 + static_cast<long>(j) * t.nrows] : T(0);
      }
    if (io->forward != nullptr)
      ooc_forward_panel(*io->forward, t.fstcol, t.ncols, t.nrows,
                        sh.lindx + (sh.xlindx[t.J - 1] - 1), blk);
    double t0 = 0.0, t1 = 0.0;
    telmira_clock(&t0);
    io->written += telmira_ooc_write_record(io->ooc, OOC_LNZ, t.J, t.nrows * t.ncols, blk,
                                            io->msglvl, &io->io_error);
    if (io->upper)
      io->written += telmira_ooc_write_record(io->ooc, OOC_UNZ, t.J,
                                              (t.nrows - t.ncols) * t.ncols,
                                              ubuf + (io->utarget - 1), io->msglvl,
                                              &io->io_error);
    telmira_clock(&t1);
    io->t_write += t1 - t0;
    failed_io(error);
  }
};

}  // namespace tlm

#endif
