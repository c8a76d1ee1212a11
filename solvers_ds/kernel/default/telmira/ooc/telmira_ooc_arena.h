// telmira_ooc_arena.h - the memory plan of the out-of-core mode and the
// arena that holds factor panels in memory while the factorization runs.
//
// The plan decides, once per analysis, how many value and index entries the
// arenas may hold (ooc_l(23), ooc_l(24)) and by which algorithm (ooc_l(47)):
//   0  the whole of L fits the budget;
//   3  the largest leaf-to-root branch of the partition tree fits;
//   2  only a share of the panels fits.
// It refuses a budget that cannot hold one panel per thread and one more
// with -9.
//
// An arena holds whole panels, or their last rows, at one-based element
// positions of its block, in address order in mapm. Its free space is the
// tail behind the last panel and one hole between panels. A panel goes into
// the tail while it fits, else to the top end of the hole; eviction widens
// the hole upward through the arena in address order; compaction shrinks
// every panel to the rows still needed and closes all gaps.
#ifndef TELMIRA_OOC_ARENA_H
#define TELMIRA_OOC_ARENA_H

#include <cstdint>

#include "telmira_ooc_files.h"
#include "telmira_ooc_tree.h"

namespace tlm {

// What the plan reads.
struct ooc_plan_input {
  int nparts;              // parts of the partition
  const int *parts;        // nparts pairs of supernode ranges, the leaves
  int nsuper;
  const int *xsup, *xlnz, *xlindx;
  const int *lindx, *snode;  // for the tree; without them no tree is taken
  int threads;             // T
  int words;               // w, words per value
  std::int64_t int_words;  // N, the integers that stay in memory
};

// Sets ooc_l(5), ooc_l(6), ooc_l(7): the largest panel (value entries), row
// list and width over the supernodes.
void telmira_ooc_panel_bounds(int *ooc_l, int nsuper, const int *xsup, const int *xlnz,
                              const int *xlindx);

// The partition tree of the plan, when the parts make one: sets ooc_l(25)
// to ooc_l(29) and the largest branch in *Bv values and *Bi indices.
bool ooc_plan_tree(int *ooc_l, const ooc_plan_input &in, std::int64_t *Bv, std::int64_t *Bi);

// The plan, in kilobytes: sets ooc_l(23) to ooc_l(29) and ooc_l(47), or
// ooc_l(11) = -9 and returns -9 when the budget ooc_l(2) megabytes cannot
// hold the floor.
int telmira_ooc_plan(int *ooc_l, const ooc_plan_input &in);

// Empties the arena of a logical file and gives it capacity entries.
void telmira_ooc_arena_reset(ooc_file *f, int capacity);

// need < 0: 0 when -need entries fit the tail or the hole, else 1.
// need = 0: compaction; rows_kept(rec) (one-based by record) the rows of
//           each panel still needed, 0 drops it; columns(rec) from
//           pointers (xsup), or 1 each when pointers is null.
// need > 0: evicts panels until a hole of need entries exists.
// Returns 0, or the code set in the error cell.
int telmira_ooc_make_room(ooc_file *f, const int *rows_kept, const int *pointers,
                          void *arena, int need, int *error);

// Room for a panel of need entries as the sweeps make it: nothing when it
// fits; else the compaction, and where that leaves less than an eighth of
// the arena free, the oldest panels go until a hole of that size (or of
// need, the larger) exists, so that the next panels find room without
// moving the arena again. Error cell as above.
void telmira_ooc_room_for_panel(ooc_file *f, const int *rows_kept, const int *pointers,
                                void *arena, int need, int *error);

// Reserves rows x columns entries for record; the position (one-based) goes
// to *position.
int telmira_ooc_place_panel(ooc_file *f, int record, int *position, int rows, int columns,
                            int *error);

// The absolute position of record's panel, 0 when it is not resident; then
// *position is that of its last rows_wanted rows and *rows its kept rows.
int telmira_ooc_find_panel(const ooc_file *f, int record, int rows_wanted, int *position,
                           int *rows, int *error);

// Loads the branch of leaf (from 0) of the partition tree into the arena,
// for the branch-by-branch sweep that visits the leaves in order: the
// panels of the nodes it shares with the branch of the previous leaf stay
// at the low addresses, the others go, and every supernode of the nodes
// below gets a place of its full panel (rows x columns), marked fresh.
// Returns 0; -34 when the branch does not fit, -39 when a shared panel
// is not where the order of the branches puts it.
int ooc_set_branch(ooc_file *f, const ooc_tree &tree, int leaf, const int *xsup,
                   const int *xlindx, int msglvl, int *error);

// Whether the analysis planned the value arena of file 2 (for type 2):
// a later factorization under another type code keeps the analysis's
// buffers, and type 2 then runs without one.
inline bool telmira_ooc_has_arena(const ooc_file *ooc) {
  return ooc != nullptr && ooc[OOC_LNZ - 1].pt_inm != nullptr;
}

// The value buffers of an out-of-core factorization, in values. With an
// arena (type 2): the arena of capacity values and one source panel behind
// it. Without: a target and a source panel of panel values each, for L and,
// with upper, for U. *l_values: the L part; the U part follows it.
inline std::int64_t telmira_ooc_block_values(bool arena, bool upper, int panel, int capacity,
                                             std::int64_t *l_values) {
  const std::int64_t p = panel > 0 ? panel : 1;
  *l_values = arena ? static_cast<std::int64_t>(capacity) + p : 2 * p;
  return *l_values + (upper ? 2 * p : 0);
}

}  // namespace tlm

#endif
