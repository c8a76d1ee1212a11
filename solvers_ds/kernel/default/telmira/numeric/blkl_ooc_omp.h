// blkl_ooc_omp.h - the Cholesky sweep with factors in files on several
// threads: the steps of blkl_step.h in the parallel frame of
// sweep_frame_omp.h, on panel slots of each thread.
//
// The factor block holds the arena of file 2 and, behind it, a target and
// a source slot of the largest panel for each thread. A target is made in
// its thread's slot, written to the file and then copied into the arena
// when room can be made by eviction. A source comes from the arena, copied
// under the arena's lock into the thread's source slot, or is read from the
// file: only its remaining rows. So no thread ever holds a pointer into
// the arena outside the lock, and the arena may evict while others work.
// A panel enters the arena with the rows its targets need; as they take
// their updates (in any order), the most rows a target still waiting needs
// are all that stay needed, and the compaction that makes room keeps only
// those, dropping a panel after its last update.
#ifndef TELMIRA_BLKL_OOC_OMP_H
#define TELMIRA_BLKL_OOC_OMP_H

#include <cstdint>

#include "sweep_frame.h"
#include "sweep_frame_omp.h"
#include "telmira_ooc_files.h"
#include "telmira_ooc_tree.h"

namespace tlm {

struct ooc_forward;  // ooc_step.h

// What one thread moved and what failed in it. Padded to its own cache
// lines: each thread writes only its own.
struct ooc_thread_io {
  std::int64_t written, read;
  double t_write, t_read;
  int io_error;     // I/O code of the first failure
  int arena_error;  // code of a failed arena step
  int nonfinite;    // first column whose pivot is not a finite number
  char pad[128 - 2 * sizeof(std::int64_t) - 2 * sizeof(double) - 3 * sizeof(int)];
};

// The slots: values behind the arena, in values of the largest panel.
inline std::int64_t blkl_ooc_omp_slot_values(int panel, int threads) {
  return 2 * static_cast<std::int64_t>(panel > 0 ? panel : 1) * (threads > 0 ? threads : 1);
}

// The sweep. lbuf: the block, arena_values of arena and then the slots of
// nthreads threads (blkl_ooc_omp_slot_values); xl: nthreads copies of
// sh.xlnz (n + 1 entries each) that the steps of each thread move; io:
// nthreads records, zeroed; first (nsuper): the place in slindx of each
// supernode's first target (zero-based); done: a zeroed flag for each
// place of slindx; rows_kept (nsuper): the most rows a target of each
// supernode needs, 0 where it has none. The arena of file 2 must
// have been reset to arena_values. With a tree the sweep runs branch by
// branch (sweep_frame_branch.h): every panel has its place in the arena,
// no slot is used, and consumed holds nsuper entries of work. forward, where
// not null, has each panel make its forward step (ooc_step.h) before it is
// published, one panel at a time. error: 0, the first column of a pivot
// that is not positive, -2 (temp too short), -3 when a record of io names a
// failure.
template <class T>
void blkl_ooc_omp(const T *a, const sweep_shape &sh, const sweep_incoming &in, int nthreads,
                  const int *xjalf, const int *jalf, const int *luperm, const int *perm,
                  int *xl, T *lbuf, int arena_values, int panel, T *temp, ooc_file *ooc,
                  int msglvl, int *first, char *done, int *rows_kept, ooc_thread_io *io,
                  const ooc_tree *tree, int *consumed, ooc_forward *forward, int *error);

}  // namespace tlm

#endif
