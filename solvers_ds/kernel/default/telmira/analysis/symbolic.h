// symbolic.h - symbolic factorization: elimination tree, column counts,
// supernodes and the compressed structure of the factor.
//
// The stage runs in two calls so that the driver can size the structure
// arrays in between:
//
//   1. sfinit   - elimination tree, column counts `colcnt`, the supernode
//                 partition `snode`/`xsup`, and `parts` turned into supernode
//                 numbers. It stores in comi the sizes the driver needs:
//                 comi(30) entries of L, comi(31) nsuper, comi(32) widest
//                 exact supernode, comi(36) length of `lindx`.
//   2. (driver) allocates xlindx (nsuper+1), lindx (comi(36)), xlnz and xunz
//                 (n+1 each), and the seven supernode arrays of nsuper
//                 entries: sparent, pnlsch, nmod, two state arrays, topcnt.
//   3. symbfct  - fills them and stores comi(22), comi(23), comi(34),
//                 comi(35), comi(37), comi(38) and the status comi(50).
//
// All arrays are one-based in their contents; the C pointers address the
// first element (array(1) is p[0]). comi(k) is comi[k-1]. The adjacency
// `xadj`/`adjncy` is the full symmetric graph of the pattern, diagonal
// excluded, one-based. `perm[new] = old`, `invp[old] = new`.
//
// `parts` holds pairs (first, last) of column positions on entry to sfinit:
// pairs 1..nparts are the independent subgraphs, pair nparts+1 the top
// region, pairs nparts+2..2 nparts the separators; nparts is comi(60).
// A single part of order n is (1, n-1), (n, n). sfinit rewrites the pairs in
// supernode numbers; symbfct lays out the factor storage in that order.
#ifndef TELMIRA_SYMBOLIC_H
#define TELMIRA_SYMBOLIC_H

namespace tlm {

// Status words of this stage.
constexpr int symbolic_no_memory = -2;       // sfinit: column count scratch
constexpr int symbolic_overflow = -20;       // structure step: cursor limit
constexpr int symbolic_inconsistent = -2;    // structure step: bad list
constexpr int symbfct_status_overflow = -182;  // comi(50) after -20
constexpr int symbfct_status_other = -180;     // comi(50) after other errors

// Largest cursor of the factor storage: 7FFFFFFD hexadecimal minus n.
constexpr long long symbolic_cursor_limit = 0x7FFFFFFDLL;

// Value the two scheduling state arrays receive from symbfct.
constexpr int symbolic_state_mark = -1111111;

// Column count scratch: 512000000 bytes and 16 threads at most.
constexpr long long lnnt_scratch_limit = 512000000LL;
constexpr int lnnt_max_threads = 16;

// Work lengths in integers.
inline long long sfinit_work_length(int n) { return 4LL * n + 4; }
inline long long symbfct_work_length(int n, int nsuper) {
  return 3LL * n + 2 + nsuper + 1;
}
// flops_estimate takes `length` and `link`, nsuper entries each.

// --- elimination tree (etree.cpp) ---------------------------------------

// Elimination tree of the permuted graph by Liu's algorithm with path
// compression. Columns are taken in the sweep of the parts: the columns of
// pairs 1..nparts, then the columns in gaps between pairs, then the rest up
// to n (ascending when the pairs are contiguous). parent(j) 0 marks a root.
// ancestor: n integers of scratch.
void etree(const int *n, const int *xadj, const int *adjncy, const int *perm,
           const int *invp, const int *nparts, const int *parts, int *parent,
           int *ancestor);

// First-child and sibling lists of a forest given by parent; children are
// listed in ascending order, 0 ends a list.
void etree_children(const int *n, const int *parent, int *fchild,
                    int *sibling);

// --- column counts (lnnt.cpp) -------------------------------------------

// Column counts of L, diagonal included, by the walk of the row subtrees,
// in parallel with thread-private marks and counts. total receives the sum
// of the counts (entries of L) in 64 bits. error: 0, or -2 when the scratch
// cannot be had even for one thread. threads_used, when not null, receives
// the thread count of the walk.
void lnnt(const int *n, const int *xadj, const int *adjncy, const int *perm,
          const int *invp, const int *parent, int *colcnt, long long *total,
          int *threads_used, int *error);

// --- supernode partition (sfinit.cpp) -----------------------------------

// First stage. Reads comi(16) (panel width limit) and comi(60) (nparts).
// Writes colcnt (n), snode (n), xsup (room for n+1; nsuper+1 used) and
// converts parts to supernode numbers. Stores comi(30), comi(31), comi(32),
// comi(36). work: sfinit_work_length(n) integers; on return it holds the
// elimination tree (n), first-child (n) and sibling (n) lists.
// error: 0 or -2 (no memory for the column counts). perm and invp are not
// changed.
void sfinit(const int *n, const int *xadj, const int *adjncy, const int *perm,
            const int *invp, int *parts, int *colcnt, int *snode, int *xsup,
            int *work, int *comi, int *error);

// The supernode partition from the tree and the counts: exact nesting,
// widths limited by panel. widest receives the longest chain without the
// limit; nofnz the length of lindx (64 bits).
void sfinit_supernodes(const int *n, const int *parent, const int *colcnt,
                       const int *panel, int *snode, int *xsup, int *nsuper,
                       int *widest, long long *nofnz);

// Pairs of column ranges to pairs of supernode ranges, in place.
void sfinit_parts(const int *n, const int *nparts, const int *snode,
                  const int *nsuper, int *parts);

// --- structure (symbfct.cpp) --------------------------------------------

// Second stage. Reads comi(11) (message level; 2 traces the index arrays),
// comi(19) (triangle storage), comi(31) (nsuper), comi(36), comi(60).
// Writes xlindx (nsuper+1), lindx (comi(36)), xlnz, xunz (n+1 each),
// sparent, pnlsch, nmod, state1, state2, topcnt (nsuper each) and comi(22),
// comi(23), comi(34), comi(35), comi(37), comi(38), comi(50). The elapsed
// time is added to *seconds. work: symbfct_work_length(n, nsuper) integers.
// error receives comi(50): 0, -182 (storage beyond the cursor limit) or
// -180 (inconsistent structure).
void symbfct(const int *n, int *comi, double *seconds, const int *perm,
             const int *invp, const int *xadj, const int *adjncy,
             const int *colcnt, const int *xsup, const int *snode,
             const int *parts, int *xlindx, int *lindx, int *xlnz, int *xunz,
             int *sparent, int *pnlsch, int *nmod, int *state1, int *state2,
             int *topcnt, int *work, int *error);

// Storage layout of lnz and unz in the order of the parts (supernode pairs):
// each column of supernode s gets colcnt(xsup(s)) entries of L and
// colcnt(last column)-1 entries of U. error: 0 or -20 when a cursor would
// pass 7FFFFFFD - n. Reads only colcnt at first and last columns.
void symbfct_layout(const int *n, const int *nsuper, const int *xsup,
                    const int *colcnt, const int *nparts, const int *parts,
                    int *xlnz, int *xunz, int *error);

// Supernodal tree and the ready list of the supernodes. count: nsuper
// integers of scratch.
void symbfct_tree(const int *nsuper, const int *xsup, const int *snode,
                  const int *parent, int *sparent, int *pnlsch, int *count);

// Row lists of the supernodes (supernodal symbolic factorization by merging
// the lists of the children). mrglnk: nsuper, rchlnk: n+1, marker: n
// integers of scratch. error: 0 or -2 when a list does not have the length
// the column counts promise.
void symbfct_structure(const int *n, const int *xadj, const int *adjncy,
                       const int *perm, const int *invp, const int *colcnt,
                       const int *nsuper, const int *xsup, const int *snode,
                       int *xlindx, int *lindx, int *mrglnk, int *rchlnk,
                       int *marker, int *error);

// Largest temporary update block, in values; n when it would be 0.
void symbfct_tmpsiz(const int *n, const int *nsuper, const int *xsup,
                    const int *snode, const int *xlindx, const int *lindx,
                    long long *tmpsiz);

// --- operation count (flops_estimate.cpp) -------------------------------

// Operations of the left-looking supernodal factorization, in millions.
// length, link: nsuper integers of scratch each. symmetric: 1 for
// symmetric storage. mtype: the matrix type; complex types count 4 times.
void flops_estimate(const int *nsuper, const int *xsup, const int *snode,
                    const int *xlindx, const int *lindx, int *length,
                    int *link, const int *symmetric, const int *mtype,
                    double *mflop);

}  // namespace tlm

#endif
