// bitvec.cpp - bit vectors of the preprocessing toolkit.

#include "bitvec.h"

#include <cstdlib>
#include <cstring>

#include "service/vek_serv_memory.h"
#include "telmira_storage.h"
#include "toolkit_assert.h"

namespace tlm {

namespace {

// Zero-filled, aligned block; null when the heap refuses (and for nothing).
void *zero_alloc(std::uint32_t count, std::uint32_t bytes, const char *name) {
  if (count == 0) return nullptr;
  void *p = vek_serv_calloc(static_cast<int>(count), static_cast<int>(bytes),
                            ALIGNMENT);
  if (p == nullptr) {
    p = mem_try_alloc(static_cast<std::size_t>(count) * bytes, name);
    if (p != nullptr) std::memset(p, 0, static_cast<std::size_t>(count) * bytes);
  }
  return p;
}

inline std::uint32_t words_of(std::uint32_t size) {
  return size == 0 ? 0 : ((size - 1) >> 5) + 1;
}

}  // namespace

bvec *bvec_new(std::uint32_t size) {
  bvec *bv = static_cast<bvec *>(zero_alloc(1, sizeof(bvec), "bvec"));
  if (bv == nullptr) return nullptr;
  bv->size = size;
  bv->nwords = words_of(size);
  bv->owned = 1;
  bv->v = static_cast<std::uint32_t *>(
      zero_alloc(bv->nwords, sizeof(std::uint32_t), "bvec->v"));
  if (bv->v == nullptr && bv->nwords > 0) {
    vek_serv_free(bv);
    return nullptr;
  }
  return bv;
}

bvec *bvec_wrap(std::uint32_t size, std::uint32_t *words) {
  bvec *bv = static_cast<bvec *>(zero_alloc(1, sizeof(bvec), "bvec"));
  if (bv == nullptr) return nullptr;
  bv->size = size;
  bv->nwords = words_of(size);
  bv->owned = 0;
  bv->v = words;
  return bv;
}

void bvec_free(bvec *bv) {
  if (bv == nullptr) return;
  if (bv->owned) vek_serv_free(bv->v);
  vek_serv_free(bv);
}

void bvec_set(bvec *bv, std::uint32_t bit) {
  TLM_ASSERT(bit < bv->size, "bitvec");
  bv->v[bit >> 5] |= 1u << (bit & 31);
}

void bvec_clear(bvec *bv, std::uint32_t bit) {
  TLM_ASSERT(bit < bv->size, "bitvec");
  bv->v[bit >> 5] &= ~(1u << (bit & 31));
}

int bvec_get(const bvec *bv, std::uint32_t bit) {
  TLM_ASSERT(bit < bv->size, "bitvec");
  return static_cast<int>((bv->v[bit >> 5] >> (bit & 31)) & 1u);
}

bvec *bvec_permute(const bvec *src, const perm *P) {
  TLM_ASSERT(src, "bitvec");
  TLM_ASSERT_TEXT(src->size == P->n, "bitvec", "src->size == perm->n");
  bvec *dst = bvec_new(src->size);
  if (dst == nullptr) return nullptr;
  for (std::uint32_t i = 0; i < src->size; ++i)
    if ((src->v[i >> 5] >> (i & 31)) & 1u) bvec_set(dst, static_cast<std::uint32_t>(P->p[i]));
  return dst;
}

int bvec_permute_inplace(bvec *src, const perm *P) {
  TLM_ASSERT(src, "bitvec");
  TLM_ASSERT_TEXT(src->size == P->n, "bitvec", "src->size == perm->n");
  bvec *tmp = bvec_permute(src, P);
  if (tmp == nullptr) return 0;
  if (src->nwords > 0)
    std::memcpy(src->v, tmp->v, src->nwords * sizeof(std::uint32_t));
  bvec_free(tmp);
  return 1;
}

}  // namespace tlm
