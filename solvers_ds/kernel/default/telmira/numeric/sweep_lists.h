// sweep_lists.h - the descendant lists of the left-looking supernodal sweeps.
//
// link, by column: for a target's first column the head of the list of the
// sources that wait to update it, for a source's first column the next
// source on the same list; 0 ends a list. length(K): the rows of source K,
// counted from the end of its row list, that are still to be used.
#ifndef TELMIRA_SWEEP_LISTS_H
#define TELMIRA_SWEEP_LISTS_H

#include <cstdlib>

// A target: supernode J, its columns fstcol..lstcol, the nrows rows of its
// block, which starts at lnz(jlnz) and lists its rows from lindx(jlindx).
struct sweep_target {
  int J, fstcol, lstcol, ncols, nrows, jlnz, jlindx;
};

inline sweep_target sweep_target_of(int J, const int *xsup, const int *xlnz,
                                    const int *xlindx) {
  sweep_target t;
  t.J = J;
  t.fstcol = xsup[J - 1];
  t.lstcol = xsup[J] - 1;
  t.ncols = t.lstcol - t.fstcol + 1;
  t.jlnz = std::abs(xlnz[t.fstcol - 1]);
  t.nrows = std::abs(xlnz[t.fstcol]) - t.jlnz;
  t.jlindx = xlindx[J - 1];
  return t;
}

// A source as its next update sees it: first column kc and supernode K, the
// rem remaining rows, its column count and leading dimension, and where the
// remaining rows start in lnz (klnz) and in lindx (klindx); kurows: the rows
// a column of K's U block has where it lies (klda - kncols in memory, fewer
// where only the remaining rows were read).
struct sweep_source {
  int kc, K, rem, kfst, kncols, klda, klnz, klindx, kurows;
};

// Takes the next source waiting for the target whose first column is
// fstcol. Returns 0 when the list is empty, which the exact update counts
// of the analysis rule out.
inline int sweep_take(int fstcol, int *link, const int *snode, const int *length,
                      const int *xsup, const int *xlnz, const int *xlindx, sweep_source *s) {
  const int kc = link[fstcol - 1];
  if (kc == 0) return 0;
  link[fstcol - 1] = link[kc - 1];
  s->kc = kc;
  s->K = snode[kc - 1];
  s->rem = length[s->K - 1];
  s->kfst = xsup[s->K - 1];
  s->kncols = xsup[s->K] - s->kfst;
  s->klda = std::abs(xlnz[s->kfst]) - std::abs(xlnz[s->kfst - 1]);
  s->klnz = std::abs(xlnz[s->kfst]) - s->rem;
  s->klindx = xlindx[s->K] - s->rem;
  s->kurows = s->klda - s->kncols;
  return 1;
}

// Puts the source of first column kc on the list of the supernode that
// holds row r.
inline void sweep_push(int kc, int r, int *link, const int *xsup, const int *snode) {
  const int t = xsup[snode[r - 1] - 1];
  link[kc - 1] = link[t - 1];
  link[t - 1] = kc;
}

// After an update that used ndone of the source's remaining rows: the rest
// waits for the supernode of its next row.
inline void sweep_requeue(const sweep_source &s, int ndone, int *link, int *length,
                          const int *xsup, const int *snode, const int *xlindx,
                          const int *lindx) {
  length[s.K - 1] = s.rem - ndone;
  if (s.rem > ndone) sweep_push(s.kc, lindx[xlindx[s.K] - s.rem + ndone - 1], link, xsup, snode);
}

// After target J is factorized: its rows below the diagonal block become a
// source.
inline void sweep_release(const sweep_target &t, int *link, int *length, const int *xsup,
                          const int *snode, const int *lindx) {
  if (t.ncols < t.nrows) {
    length[t.J - 1] = t.nrows - t.ncols;
    sweep_push(t.fstcol, lindx[t.jlindx + t.ncols - 1], link, xsup, snode);
  } else {
    length[t.J - 1] = 0;
  }
}

// The relative index of the target's rows: indmap(r) is the distance of
// row r from the target's last row.
inline void sweep_index_rows(const sweep_target &t, const int *lindx, int *indmap) {
  const int *rows = lindx + (t.jlindx - 1);
  for (int i = 0; i < t.nrows; ++i) indmap[rows[i] - 1] = t.nrows - 1 - i;
}

// Position (zero-based) of row r of column c of the target, in a store
// whose columns start at xstore (lnz or unz): the end of column c minus the
// distance of r from the last row of the target.
inline long entry_pos(const int *xstore, int c, const int *indmap, int r) {
  return static_cast<long>(std::abs(xstore[c])) - 2 - indmap[r - 1];
}

#endif
