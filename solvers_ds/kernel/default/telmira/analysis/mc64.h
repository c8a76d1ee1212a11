// mc64.h - the weighted bipartite matching with scaling that runs before the
// ordering.
//
// For each column a row is chosen such that the product of the absolute
// values of the matched entries is as large as possible (maximum product
// matching). Its dual variables give a row and a column scaling under which
// every matched entry has absolute value 1 and no entry exceeds 1.
//
// All arrays here are zero-based: ia (n+1 entries), ja, values. The routines
// are templates over the real type R (double, float); single precision keeps
// values, costs, duals and distances in float and forms the logarithms in
// double.
#ifndef TELMIRA_MC64_H
#define TELMIRA_MC64_H

namespace tlm {

// The cost record of the matching: the kept (non-zero) entries of the input
// with their costs log|a(i,j)| - log max_i |a(i,j)|, all at most 0.
template <class R> struct mc64_csr {
  int n;    // rows and columns
  int nnz;  // capacity: the stored entries of the input
  int *ia;  // n+1 row starts of the kept entries
  int *ja;  // columns
  R *m;     // costs
};

// Absolute values of count complex numbers given as (re, im) pairs.
template <class R> void mc64_abs(const int *count, const R *values, R *out);

// Builds the cost record of an n by n matrix (zero-based ia, ja) with real
// values. colmax (n) receives log max |a| of each column, or 0 for a column
// without non-zero entries; *bound receives (-1-n) times the smallest cost.
// Returns the record, or null when it has no stored entries or the heap no
// room.
template <class R>
mc64_csr<R> *mc64_cost(int n, const int *ia, const int *ja, const R *values,
                       R *colmax, R *bound);
template <class R> void mc64_csr_free(mc64_csr<R> *rec);

// The cheap assignment followed by the shortest augmenting path searches.
// perm[j] receives the row matched with column j, or -1. Returns the number
// of matched columns, or -1 when the heap has no room for the search.
template <class R>
int mc64_search(const mc64_csr<R> *rec, int *perm, R *rowdual, R *coldual,
                R bound);

// The front end. perm (n) receives the permutation: perm[j] is the row
// matched with column j, so that rows taken in this order put the matched
// entries on the diagonal. rowdual (u) and coldual (v) receive the duals,
// u(i) + v(j) + log|a(i,j)| <= 0 for every entry and = 0 for matched ones.
// A matrix without a perfect matching still gets a permutation of all n:
// the unmatched columns are joined to the remaining rows. *rank (may be
// null) receives the number of columns that the search matched, the
// structural rank of the matrix. Returns 0, -1 when the permutation could
// not be completed, -2 when the matrix has no stored entries, and
// MC64_NO_MEMORY when the heap has no room for the work arrays (perm and the
// duals are then undefined).
constexpr int MC64_NO_MEMORY = -3;
template <class R>
int mc64_match(const int *n, const int *ia, const int *ja, const R *values,
               int *perm, R *rowdual, R *coldual, int *rank);

// Stores the results for the rest of the solver. mc64_i: one-based
// permutation (n); duals: v in [0, n), u in [n, 2n). matchperm receives the
// permutation (one-based), s the factors: s[0..n) column factors, s[n..2n)
// row factors. scaling 0: factors 1; -1: identity permutation and factors 1.
// For the symmetric types (-4, -2, 6) the column factor is the geometric
// mean of the column and the row factor of the same index, so that the
// scaled matrix stays symmetric.
template <class R>
void mc64_post(const int *scaling, const int *n, const int *mc64_i,
               const R *duals, int *matchperm, R *s, const int *mtype);

}  // namespace tlm

#endif
