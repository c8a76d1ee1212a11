// scatter_map.h - where each entry of the input matrix goes in the factor
// storage.
//
// The analysis builds, once, for every column c of the permuted matrix the
// list of input values that land in it, so that each numeric factorization
// scatters A into lnz (and unz) without a search:
//
//   for i = xjalf(c) .. xjalf(c+1)-1:  lnz(|jalf(i)|) = a(luperm(i))
//   for i = xjauf(c) .. xjauf(c+1)-1:  unz(jauf(i))   = a(luperm(lcount+i))
//
// luperm holds the L sources first and the U sources behind them, at offset
// lcount = xjalf(n+1)-1. luperm_row, when asked for, gives the input row of
// each list entry with the same split (row factors of the scaled scatter).
// Only entries that exist in A are listed; lcount + ucount = ia(n+1)-1.
//
// Column j of supernode s holds in lnz one entry for every row of the list
// of s (its diagonal block included), at xlnz(j) plus the offset of the row
// in that list. For the unsymmetric storage, column j's part of the U block,
// U(j, r), holds the rows r of s below its diagonal block, at xunz(j) plus
// the offset of r among those rows.
//
// In the symmetric form (upper triangle stored, diagonal first in each row)
// the lists fill the lower triangle of each supernode, diagonal included. A
// negative jalf(i) marks a value mirrored into the other triangle: the entry
// stored at (r, c) lands at (new c, new r); the Hermitian kernels store its
// conjugate. luperm_row is then perm of the factor row.
//
// All arrays are one-based in their contents; a C pointer addresses the
// first element. perm[new] = old, invp[old] = new. xlnz and xunz are read
// through their absolute values.
#ifndef TELMIRA_SCATTER_MAP_H
#define TELMIRA_SCATTER_MAP_H

namespace tlm {

// Sort thresholds of the row lists for n equations. A row shorter than t1
// is sorted by comparisons, a longer one by a sweep over all n columns (one
// pass when it is dense); marks of a swept row shorter than t2 are cleared
// by walking the row. sym = 1 gives the rounding of the symmetric form.
void inv_perm_thresholds(int n, int sym, int *t1, int *t2);

// Integers of scratch the two routines need: n equations, e stored entries,
// nadj = xadj(n+1)-1 entries of the adjacency (unused when sym = 1).
// sym = 1 for inv_perm_mod_mod_sym.
long long inv_perm_mod_mod_work_length(int n, int e, int nadj, int sym);

// Full pattern stored (types 1, 3, 11, 13).
//   xadj/adjncy  the adjacency of the ordering: the full symmetric graph
//                without diagonal; for types above 10 the pattern of
//                B + B^T, B the rows of A in roworder. Not changed here.
//   mtype        the matrix type; a row order is honoured above 10 only
//   roworder     the matching's row order (n entries), null = identity
//   rowflag      nonzero: fill luperm_row; zero: luperm_row is not touched
// Out: xjalf, xjauf (n+1 each), jalf (lcount), jauf (ucount), luperm and
// luperm_row (lcount + ucount = e each), lcount, ucount. Rows of A must be
// ascending for types above 10; for types 1 and 3 the pattern must be
// symmetric with every diagonal entry present.
// work: inv_perm_mod_mod_work_length(n, e, nadj, 0) integers.
void inv_perm_mod_mod(const int *n, const int *ia, const int *ja, const int *perm,
                      const int *invp, const int *nsuper, const int *xsup,
                      const int *xlindx, const int *lindx, const int *xlnz,
                      const int *xunz, int *xadj, int *adjncy, const int *mtype,
                      const int *roworder, const int *rowflag, int *xjalf, int *jalf,
                      int *xjauf, int *jauf, int *luperm, int *luperm_row,
                      int *lcount, int *ucount, int *work);

// Upper triangle stored, diagonal first in each row (types 2, -2, 4, -4, 6).
// The adjacency is not needed; the arguments are kept for the common call.
// Out: xjalf (n+1), jalf, luperm, luperm_row (e each), lcount = e.
// work: inv_perm_mod_mod_work_length(n, e, 0, 1) integers.
void inv_perm_mod_mod_sym(const int *n, const int *ia, const int *ja, const int *perm,
                          const int *invp, const int *nsuper, const int *xsup,
                          const int *xlindx, const int *lindx, const int *xlnz,
                          int *xadj, int *adjncy, const int *rowflag, int *xjalf,
                          int *jalf, int *luperm, int *luperm_row, int *lcount,
                          int *work);

// --- helpers shared by the two forms -------------------------------------

// Sorts one row list (len pairs key/src, keys distinct in 1..n) by key.
// t1: threshold of the comparison sort. dense, mark: n integers each; mark
// must be clear on the first call and *dirty 0. walk nonzero: a swept row
// clears its marks by walking itself; otherwise the marks stay, *dirty is
// set, and the next sweep clears the whole array first.
void inv_perm_sort_row(int n, int t1, int len, int walk, int *key, int *src,
                       int *dense, int *mark, int *dirty);

}  // namespace tlm

#endif
