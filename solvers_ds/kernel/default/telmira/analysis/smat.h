// smat.h - the compressed-row matrix of the preprocessing toolkit.
//
// Contents are zero-based: ia[0] is 0 and ia[m] is nnz. A matrix with sym
// set stores the upper triangle only, the diagonal entry first in each row;
// the expansion to both triangles relies on that (2 nnz - m entries, the
// first entry of a row is not mirrored). ia comes from the zero-filling
// 128-byte aligned allocator, ja and a from mem_try_alloc; a is null for a
// pattern. A record made by smat_wrap holds the caller's arrays, all others
// own theirs. The values are double or float (the two instantiations).
//
// Broken contracts stop the process with "Assertion failed: smat:<line>:
// <condition>". When the heap refuses a block, a function that makes a
// matrix returns null and one that works in place returns 0 (1 when it
// succeeded); either way it has given back what it took, and an input
// changed in place is left as it was.
#ifndef TELMIRA_SMAT_H
#define TELMIRA_SMAT_H

#include <cstdint>

#include "perm.h"

namespace tlm {

template <class V> struct smat {
  std::uint32_t m;    // rows
  std::uint32_t n;    // columns
  std::uint32_t nnz;  // stored entries
  std::uint32_t sym;  // non-zero: upper triangle of a symmetric matrix
  pint *ia;           // m+1 row starts
  pint *ja;           // nnz columns
  V *a;               // nnz values, or null
};

// The column-wise view of a square matrix: column c holds the entries
// col_start[c] .. col_start[c+1]-1 of row and pos, rows ascending; pos is
// the entry's place in A->ja and A->a. A is not owned.
template <class V> struct smat_col_index {
  const smat<V> *A;
  pint *col_start;  // m+1 entries
  pint *row;        // nnz entries
  pint *pos;        // nnz entries
};

// --- Creation (null when the heap refuses) -----------------------------------

// ia zeroed, ja allocated (nnz entries), a null.
template <class V>
smat<V> *smat_new_pattern(std::uint32_t m, std::uint32_t n, std::uint32_t nnz,
                          std::uint32_t sym);
// nnz 0, ia zeroed, ja and a null.
template <class V>
smat<V> *smat_new_header(std::uint32_t m, std::uint32_t n, std::uint32_t sym);
// Deep copy with values (when the source has them).
template <class V> smat<V> *smat_clone(const smat<V> *src);
// Deep copy of ia and ja, a null.
template <class V> smat<V> *smat_clone_pattern(const smat<V> *src);
// A record around the caller's arrays. base_index 1: the arrays are shifted
// to zero-based in place (smat_to_base1 shifts them back).
template <class V>
smat<V> *smat_wrap(std::uint32_t m, std::uint32_t n, pint *ia, pint *ja, V *a,
                   std::uint32_t sym, int base_index);
// Releases ia, ja, a and the record. A null matrix is reported (message
// 778) and nothing else happens.
template <class V> void smat_free(smat<V> *A);

// --- Transformations --------------------------------------------------------

// New matrix A^T: the counting transpose, rows of the result ascending in the
// source's row order, values carried. With sym set a plain copy.
template <class V> smat<V> *smat_transpose(const smat<V> *A);
// The same, the result taking the place of A's arrays.
template <class V> int smat_transpose_inplace(smat<V> *A);
// New matrix holding both triangles of a symmetric A; a copy for sym 0.
// map (may be null), one entry for each entry of the result: the place in
// A->a the entry came from (the identity for sym 0). Sorted rows stay
// sorted.
template <class V>
smat<V> *smat_expand(const smat<V> *A, int with_values, pint *map);
// The same in place (ja and a enlarged); nothing happens for sym 0. Without
// values a is released: it no longer matches the pattern. On failure ja
// and a may have grown, holding the old rows.
template <class V>
int smat_expand_inplace(smat<V> *A, int with_values, pint *map);
// Makes the pattern structurally symmetric in place, rows sorted, duplicates
// removed. The result is a pattern (a is released); ja may stay larger than
// nnz.
template <class V> int smat_make_struct_sym(smat<V> *A);
// The graph of the symmetrized pattern without the diagonal, zero-based:
// xadj (m+1) and adjncy. Arrays not supplied by the caller (null pointers)
// are allocated here (and on failure released again, the pointer null).
template <class V>
int smat_adjacency(const smat<V> *A, pint **xadj, pint **adjncy);
// New matrix P A P^T, rows sorted. For sym set the result is again an upper
// triangle with the diagonal first in each row.
template <class V>
smat<V> *smat_permute(const smat<V> *src, const perm *P, int with_values);
// Insertion sort of one row by ascending column, values carried.
template <class V> void smat_sort_row(smat<V> *A, pint row, int with_values);
// 2 x 2 block split at row and column k: A11 (k x k), A12 (k x m-k), and,
// when both A21 and A22 are given, A21 (m-k x k) and A22 (m-k x m-k). The
// outputs are new matrices with sym 0, columns of A12 and A22 reduced by k;
// on failure all are null.
template <class V>
int smat_split(const smat<V> *A, pint k, smat<V> **A11, smat<V> **A12,
               smat<V> **A21, smat<V> **A22);
// New matrix: the expansion of A with values, zero entries dropped, each
// value replaced by log |value|.
template <class V> smat<V> *smat_log_abs(const smat<V> *A);
// a(i,j) *= c[j] * r[i].
template <class V> void smat_scale(smat<V> *A, const V *r, const V *c);
// a(i,j) *= exp(lr[i] + lc[j]).
template <class V> void smat_scale_exp(smat<V> *A, const V *lr, const V *lc);
// d[i] = first entry of row i in column i; rows without one leave d[i].
template <class V> void smat_get_diag(const smat<V> *A, V *d);
// Adds 1 to every entry of ia and ja.
template <class V> void smat_to_base1(smat<V> *A);
// Writes a matrix in one-based arrays to a text file: order, entry count,
// ia, ja, one per line ("%d"), then the values ("%24.16e"; 1.0 for each
// entry when a is null). A file that cannot be opened is skipped silently.
template <class V>
void smat_dump(const char *path, int order, const pint *ia, const pint *ja,
               const V *a);

// --- Column view ------------------------------------------------------------

template <class V> smat_col_index<V> *smat_col_index_new(const smat<V> *A);
// Frees the view's arrays and the record, not the matrix.
template <class V> void smat_col_index_free(smat_col_index<V> *ci);

// --- Validity tests: 1 sound, 0 unsound; none stops anything ----------------

// ia[0] is 0, ia rises strictly up to ia[m-1], ia[m] is nnz; columns rise
// strictly within each row, and each column before a row's last is below
// n; for sym set no entry below the diagonal; every row has its diagonal.
template <class V> int smat_check(const smat<V> *A);
// No entry below the diagonal (passes for sym 0).
template <class V> int smat_check_upper(const smat<V> *A);
// The test of ia alone.
template <class V> int smat_check_ia(const smat<V> *A);

}  // namespace tlm

#endif
