// mpssym.h - the symmetric matching preprocessing of the symmetric
// indefinite types, and the front ends that order a toolkit matrix.
//
// The matching's cycles are read as pivots: elements it leaves in place are
// 1x1 pivots, exchanged elements are paired into 2x2 pivots, and each pair
// stays adjacent in the elimination order. To that end the pairs of the
// graph are compressed into single nodes, the compressed graph is ordered,
// and the pairs are expanded again in that order.
//
// All arrays are zero-based. The values are double or float. Every
// function here that can need memory returns 1, or 0 when the heap refused
// a block or the dissection failed; what it made is then released.
#ifndef TELMIRA_MPSSYM_H
#define TELMIRA_MPSSYM_H

#include "bitvec.h"
#include "perm.h"
#include "smat.h"

namespace tlm {

// The whole step.
//   n, ia, ja, a  the stored upper triangle (diagonal first in each row); a
//                 is what the 1e-8 test of the pairs reads (the matrix, or
//                 the absolute values the matching used)
//   method        0 minimum degree, 1 constrained minimum degree, 2 nested
//                 dissection on one thread, 3 nested dissection on *threads
//                 (any other value is taken as 2)
//   threads       thread count (the part count of method 1)
//   mc64_i        in: the matching, mc64_i[j] = row matched with column j;
//                 out: the old indices in final order
//   pivots        n bits, cleared and filled here, in final order: set for
//                 a 1x1 pivot, clear for both members of a 2x2 pair
//   nparts        in: the requested part count; out: the count found (1
//                 unless method 2 or 3 found more)
//   ddist_mps     out: the ranges of the parts, pairs (first, last) of final
//                 positions, ascending, a pair never split; room for at
//                 least max(4 *nparts + 4, 16) entries. With one part it
//                 holds (0, n-1, n, n).
// Returns 1, or 0 with mc64_i unchanged, ddist_mps and nparts those of one
// part, and pivots undefined.
template <class V>
int mpssym_order(const int *n, pint *ia, pint *ja, const V *a,
                 const int *method, const int *threads, pint *mc64_i,
                 bvec *pivots, int *nparts, pint *ddist_mps);

// The pivot order of the matching M on A (upper triangle): P->p[old] =
// position. The fixed points lead; then the pairs of the cycles, the first
// element of an odd cycle going to the back as a 1x1 pivot. A pair whose
// members both have a stored diagonal entry above 1e-8 in absolute value
// becomes two 1x1 pivots. pivots: bit k set for a 1x1 pivot at position k.
template <class V>
int mpssym_pivots(const smat<V> *A, const perm *M, perm *P, bvec *pivots);

// Compresses C (pattern, upper triangle in pivot order, rows sorted) in
// place (C unchanged when it returns 0): each pair of rows and columns k, k+1 with bit k clear becomes one.
// map->p[c] receives the first pivot position of compressed node c (the
// first C->m entries of map are used).
template <class V>
int mpssym_compress(smat<V> *C, const bvec *pivots, perm *map);

// Front ends of the ordering on the graph of C (both triangles, diagonal
// removed). Q (C->m entries) receives the order, Q->p[old] = new.
// Multiple minimum degree.
template <class V> int smat_order_mmd(const smat<V> *C, perm *Q);
// Domain decomposition into threads parts, then minimum degree constrained
// to keep the separators last (which are then ordered by minimum degree
// among themselves).
template <class V>
int smat_order_mmd_constrained(const smat<V> *C, perm *Q, int threads);
// Nested dissection. ddist in: n = 2 times the requested part count; out:
// the subgraphs found as pairs (first, last) of positions, n = 2 times their
// count. ddist->p needs room for 2 W entries (W the power of two at or above
// the requested count), and at least 4. A C of at most 8 rows is not
// ordered: Q becomes the identity, ddist->p (0, m-1, m, m) and ddist->n 1.
// form: that of metis_nd (0 the partitioner's bisections, 1 the parallel
// form's own).
template <class V>
int smat_order_nd(const smat<V> *C, perm *Q, int threads, int form, perm *ddist);

}  // namespace tlm

#endif
