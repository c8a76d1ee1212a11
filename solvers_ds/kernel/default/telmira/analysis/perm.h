// perm.h - permutations of the preprocessing toolkit, and their cycles.
//
// A perm maps old to new: p[old] is the place that element old goes to.
// (The ordering's integer array perm lists old indices in new order; its
// inverse invp corresponds to p here, taken zero-based.) Contents are
// zero-based. Records and arrays come from mem_try_alloc: a function that
// needs a block the heap refuses returns null (or 0 where it works in
// place, leaving its input as it was) and has given back what it took.
#ifndef TELMIRA_PERM_H
#define TELMIRA_PERM_H

#include <cstdint>

namespace tlm {

// Index type of the toolkit.
typedef std::int32_t pint;

struct perm {
  std::uint32_t n;  // length
  pint *p;          // p[old] = new
};

// The cycles of a permutation, in ascending order of their smallest
// element; each starts with that element and follows p.
struct perm_cycle_set {
  std::int32_t n;      // length of the permutation
  std::int32_t count;  // number of cycles
  pint *elements;      // n entries: the elements cycle after cycle
  pint *starts;        // n+1 entries: start of each cycle, starts[0] = 0,
                       // starts[count] = n
};

// A new permutation of n entries, contents undefined.
perm *perm_new(std::uint32_t n);
// A new permutation holding a copy of array (n entries).
perm *perm_new_from(std::uint32_t n, const pint *array);
// Copies src into dst, or into a new permutation when dst is null; returns
// it. dst must have room for src->n entries.
perm *perm_copy(perm *dst, const perm *src);
// Releases the array and the record; null is ignored.
void perm_free(perm *P);
// p[i] = i.
void perm_identity(perm *P);
// p[i] = 0.
void perm_zero(perm *P);
// 1 when all entries agree, else 0. The lengths must agree.
int perm_equal(const perm *p1, const perm *p2);
// p1[i] becomes p2[p1[i]]: first p1, then p2. p1 and p2 may be the same
// (then a copy is needed, the only request: 0 when it fails, else 1).
int perm_compose(perm *p1, const perm *p2);
// Reverses the array in place.
void perm_reverse(perm *P);
// Replaces the array by its inverse; 0 when there was no room for it.
int perm_invert(perm *P);
// Writes the inverse of src into dst (which may be src), or into a new
// permutation when dst is null; returns it, or null when the heap refused
// (a scratch array is needed only when dst is src).
perm *perm_inverse(perm *dst, const perm *src);
// The cycles of P; release with perm_cycle_set_free.
perm_cycle_set *perm_cycles(const perm *P);
void perm_cycle_set_free(perm_cycle_set *c);

}  // namespace tlm

#endif
