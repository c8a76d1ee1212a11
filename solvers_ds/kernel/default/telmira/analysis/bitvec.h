// bitvec.h - bit vectors of the preprocessing toolkit.
//
// Bit i is bit (i AND 31) of word i >> 5. A new vector and its words come
// zero-filled from the 128-byte aligned allocator; a function that makes a
// vector returns null when the heap refuses.
#ifndef TELMIRA_BITVEC_H
#define TELMIRA_BITVEC_H

#include <cstdint>

#include "perm.h"

namespace tlm {

struct bvec {
  std::uint32_t size;    // number of bits, at least 1
  std::uint32_t nwords;  // ((size - 1) >> 5) + 1
  std::uint32_t owned;   // 1: v is freed with the vector; 0: the caller's
  std::uint32_t *v;      // the words
};

// A vector of size bits, all clear, owning its words.
bvec *bvec_new(std::uint32_t size);
// A vector around the caller's words (owned 0).
bvec *bvec_wrap(std::uint32_t size, std::uint32_t *words);
// Frees the words when owned, then the record; null is ignored.
void bvec_free(bvec *bv);
void bvec_set(bvec *bv, std::uint32_t bit);
void bvec_clear(bvec *bv, std::uint32_t bit);
// 0 or 1.
int bvec_get(const bvec *bv, std::uint32_t bit);
// A new vector with bit P->p[i] set for each set bit i of src.
bvec *bvec_permute(const bvec *src, const perm *P);
// The same, written back into src; 0 (src unchanged) when there was no
// room for the copy, else 1.
int bvec_permute_inplace(bvec *src, const perm *P);

}  // namespace tlm

#endif
