// ordering.h - the fill-reducing ordering of the analysis phase.
//
// Every routine here takes its arguments by address, in the manner of the
// numeric core. Arrays are one-based in content: row starts and adjacency
// positions count from 1, vertex numbers count from 1. `comi` is the
// solver's integer block, numbered from 1: comi(k) is comi[k-1].
//
// Permutations: perm[new] = old and invp[old] = new (both one-based, n
// entries each, stored from perm[0]).
//
// parts: pairs (first, last) of positions in the new order, inclusive,
// one-based. Pairs 1..nparts are the independent subgraphs in ascending
// position, pair nparts+1 is the top region (all after the last subgraph, up
// to n), pairs nparts+2..2 nparts are the separators inside the top region.
// With one part the array holds (1, n-1), (n, n).
#ifndef TELMIRA_ORDERING_H
#define TELMIRA_ORDERING_H

// --- Adjacency -------------------------------------------------------------

// Full symmetric adjacency without the diagonal, from a pattern that holds
// one diagonal entry per row.
//   *triangular != 1: ia/ja hold both triangles; rows are copied without
//     their diagonal entry, in parallel over *threads threads.
//   *triangular == 1: ia/ja hold the upper triangle with the diagonal first in
//     each row; both triangles are formed (two independent row ranges when
//     *threads > 1, same result as the serial pass).
// xadj: n+1 entries; adjncy: ia[n]-1-n entries for full input, 2 (ia[n]-1-n)
// for triangular input.
void ladj_mod(int *n, int *ia, int *ja, int *threads, int *triangular,
              int *xadj, int *adjncy);

// Pattern of B + B^T without the diagonal, B the rows of A taken in the order
// roworder (B row k = A row roworder[k]; null pointer = natural order). Rows
// of A must be sorted ascending. adjncy needs 2 (ia[n]-1) entries; iwork
// needs fulladj_unsym_work(n, nnz) entries. *nadj returns the entry count
// of the adjacency.
void fulladj_unsym(int *n, int *ia, int *ja, int *roworder, int *xadj,
                   int *adjncy, int *nadj, int *iwork);
int fulladj_unsym_work(int n, int nnz);

// --- Multiple minimum degree ----------------------------------------------

// Multiple minimum degree ordering. adjncy is destroyed (pass a copy). dhead,
// qsize, llist and marker are n-entry scratch arrays. *delta is the
// tolerance of multiple elimination (0), *maxint the largest integer of the
// marks (2147483647). On return perm/invp hold the order; *nofsub is the
// sum over eliminated supernodes of minimum degree + size - 2, an estimate
// of the subscripts of the compressed factor.
void genmmd(int *n, int *xadj, int *adjncy, int *invp, int *perm, int *delta,
            int *dhead, int *qsize, int *llist, int *marker, int *maxint,
            int *nofsub);

// Minimum degree with the last *ncon positions reserved. On entry perm holds
// an order (from ddecomp); the nodes at its positions n-ncon+1..n are not
// eliminated by minimum degree. *sepflag 0: they keep those positions as
// given. *sepflag 1: once all other nodes are numbered they are ordered by
// minimum degree among themselves. rank is one more n-entry scratch array.
// *ncon 0 is plain genmmd.
void genmmd_constrained(int *n, int *xadj, int *adjncy, int *invp, int *perm,
                        int *delta, int *dhead, int *qsize, int *llist,
                        int *marker, int *maxint, int *nofsub, int *ncon,
                        int *rank, int *sepflag);

// --- Domain decomposition ---------------------------------------------------

// Divides the graph into *nparts parts with the k-way partitioner, then
// keeps a minimal vertex separator between them. perm/invp receive the
// order: interior vertices by part, then separator vertices by part. *ncon
// is the count of positions to constrain at the end (separator + 2). With
// *nparts <= 1 only *ncon = 0 is set. *status: 0, or -2 when the
// partitioner failed or memory ran out.
void ddecomp(int *nparts, int *n, int *xadj, int *adjncy, int *perm,
             int *invp, int *ncon, int *status);

// --- Nested dissection ------------------------------------------------------

// Nested dissection with a parallel recursion over *threads threads.
// *nparts in: requested number of subgraphs (rounded up to a power of two,
// W); out: the subgraphs found. parts needs at least 4 W entries (comi(61)
// is enough). On return pairs 1..nparts are the subgraphs, pair nparts+1 is
// (-1,-1) (the caller sets the top region), pairs nparts+2..2 nparts the
// separators in pre-order; all one-based. Dense rows (maximum degree at
// least n/8) are pruned and numbered last; otherwise indistinguishable
// vertices are compressed. *status: 0, or -2 when a bisection failed or
// memory ran out (perm and invp are then undefined). *form 0: the
// bisections are the graph partitioner's, one at a time (the recursion's
// other thread splits graphs and orders leaves meanwhile); *form 1 (the
// parallel form): our own node_bisection, in the threads at once. The
// order depends on the graph, *nparts and the form, not on the threads:
// two calls at the same time give what each gives alone.
void metis_nd(int *n, int *xadj, int *adjncy, int *threads, int *perm,
              int *invp, int *nparts, int *parts, int *status, int *form);

// Multilevel node bisection of a zero-based graph (no self loops, both
// directions of each edge): where[i] = 0 or 1 for the two sides, 2 for the
// separator, no edge joining side 0 to side 1. vwgt: vertex weights, null
// for 1 each. Each side weighs at most (1 + ufactor/1000)/2 of the whole
// where the graph allows it. The graph is cut `runs` times (1 to 8), each
// cut from its own random stream, and the cut with the best ratio of
// separator weight to the product of the side weights is kept; the cuts
// run on up to `threads` threads. The result depends on the graph,
// ufactor, seed and runs only, and the call keeps no state outside itself:
// threads may bisect at the same time. Returns 0, or -2 when the heap
// refuses (where is then all 2).
int node_bisection(int n, const int *xadj, const int *adjncy, const int *vwgt, int ufactor,
                   int seed, int runs, int threads, int *where);

// --- Driver -----------------------------------------------------------------

// Status of the ordering step for a matrix that stores both triangles of a
// symmetric pattern (types 1 and 3) whose pattern is not symmetric or lacks
// a diagonal entry; the analysis ends with error -3.
constexpr int ORDERING_PATTERN_NOT_SYMMETRIC = -31;
// Status for a structure that cannot be ordered: row starts that fall,
// columns out of range or (where rows must be sorted) not rising within a
// row, or (triangle storage) a row that does not begin with its diagonal
// entry or holds one below it.
constexpr int ORDERING_PATTERN_MALFORMED = -32;

// Status for a matrix type code that the check lets through but no kernel
// serves (-1, -3, 5, -5, -6, -11).
constexpr int ORDERING_TYPE_UNDEFINED = -34;

// Status for scratch memory of the ordering that could not be had (also
// that of metis_nd and of the column counts); the analysis ends with -2.
constexpr int ORDERING_NO_MEMORY = -2;

// Status for a caller's order (iparam(5) = 1) that is not a permutation of
// 1..n.
constexpr int ORDERING_PERM_INVALID = -33;

// Whether a structure (one-based ia, ja) can be analysed at all; see the
// status above. triangle: upper triangle with the diagonal first in each
// row; sorted: the columns of each row must rise (without it rows may come in
// any order, but no column twice). Returns 0, ORDERING_PATTERN_MALFORMED, or
// ORDERING_NO_MEMORY when the mark of n integers that rows out of order need
// cannot be had. O(nnz). The matrix check of iparam(27) names the place; this
// pass only keeps a malformed structure from the matching and ordering code.
int ordering_pattern_sound(int n, const int *ia, const int *ja, int triangle, int sorted);

// The ordering step of the analysis. Reads comi(9), (12), (13), (14), (15),
// (17), (19), (21), (60), (67); writes comi(4) (unsymmetric types: entry
// count of the adjacency), comi(50) (status), comi(60) (parts found).
//   ia, ja       the matrix as stored (one-based); triangle for comi(19) 1
//   user_perm    the caller's permutation (comi(21) 1 reads it, 2 writes it)
//   match_perm   the matching's order: for types 11/13 with comi(67) > 0 the
//                row order of the adjacency; for types -4, -2, 6 with
//                comi(67) > 0 the symmetric order taken as is (parts then
//                already hold its ranges, comi(60) its count). May be null.
//   xadj, adjncy out: the adjacency (n+1 and 2 (ia[n]-1) entries)
//   perm, invp   out: the order
//   parts        out: the pairs, comi(61) entries
//   times        out: [0] adjacency time, [1] ordering time, seconds
// The symbolic initialisation (sfinit) is the caller's next step: perm and
// invp are final when sssord returns.
void sssord(int *n, int *ia, int *ja, int *comi, int *user_perm,
            int *match_perm, int *xadj, int *adjncy, int *perm, int *invp,
            int *parts, double *times);

// Sets parts to the single-part form (1, n-1), (n, n).
void ordering_single_part(int n, int *parts);

// Moves the subgraphs of a dissection order in front of all separators and
// rewrites the pairs (see the layout above). work: 2 n + 4 nparts entries.
void ordering_regroup(int n, int nparts, int *perm, int *parts, int *work);

// --- Fill of an order -------------------------------------------------------

// Elimination tree and column counts of the Cholesky factor that the order
// perm/invp implies on the graph xadj/adjncy. work: 2 n entries. Returns the
// entries of L (diagonal included) in *nnzl and the operation count, the
// sum over columns of the squared below-diagonal count, in *ops. colcnt
// (n entries) may be null.
void ordering_fill(int *n, int *xadj, int *adjncy, int *perm, int *invp,
                   int *colcnt, int *work, double *nnzl, double *ops);

#endif
