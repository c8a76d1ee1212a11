// perm.cpp - permutations of the preprocessing toolkit.

#include "perm.h"

#include <cstring>

#include "service/vek_serv_memory.h"
#include "telmira_storage.h"
#include "toolkit_assert.h"

namespace tlm {

namespace {

// Null when the heap refuses, and for a count of 0.
pint *pint_alloc(std::uint32_t count, const char *name) {
  return static_cast<pint *>(
      mem_try_alloc(static_cast<std::size_t>(count) * sizeof(pint), name));
}

}  // namespace

perm *perm_new(std::uint32_t n) {
  perm *P = static_cast<perm *>(mem_try_alloc(sizeof(perm), "perm"));
  if (P == nullptr) return nullptr;
  P->n = n;
  P->p = pint_alloc(n, "perm->p");
  if (P->p == nullptr && n > 0) {
    vek_serv_free(P);
    return nullptr;
  }
  return P;
}

perm *perm_new_from(std::uint32_t n, const pint *array) {
  perm *P = perm_new(n);
  if (P != nullptr && n > 0) std::memcpy(P->p, array, n * sizeof(pint));
  return P;
}

perm *perm_copy(perm *dst, const perm *src) {
  TLM_ASSERT(src != NULL, "perm");
  if (dst == nullptr) dst = perm_new(src->n);
  if (dst == nullptr) return nullptr;
  if (dst != src && src->n > 0)
    std::memcpy(dst->p, src->p, src->n * sizeof(pint));
  dst->n = src->n;
  return dst;
}

void perm_free(perm *P) {
  if (P == nullptr) return;
  vek_serv_free(P->p);
  vek_serv_free(P);
}

void perm_identity(perm *perm) {
  TLM_ASSERT(perm, "perm");
  for (std::uint32_t i = 0; i < perm->n; ++i) perm->p[i] = static_cast<pint>(i);
}

void perm_zero(perm *perm) {
  TLM_ASSERT(perm != NULL, "perm");
  for (std::uint32_t i = 0; i < perm->n; ++i) perm->p[i] = 0;
}

int perm_equal(const perm *perm1, const perm *perm2) {
  TLM_ASSERT(perm1->n == perm2->n, "perm");
  for (std::uint32_t i = 0; i < perm1->n; ++i)
    if (perm1->p[i] != perm2->p[i]) return 0;
  return 1;
}

int perm_compose(perm *p1, const perm *p2) {
  const perm *src = p2;
  TLM_ASSERT(src != NULL, "perm");
  TLM_ASSERT(p1->n == p2->n, "perm");
  const std::uint32_t n = p1->n;
  if (n == 0) return 1;
  if (p2 != p1) {
    // Entry i reads only its own old value: no copy is needed.
    for (std::uint32_t i = 0; i < n; ++i) p1->p[i] = p2->p[p1->p[i]];
    return 1;
  }
  // p1 composed with itself reads the old array from a private copy.
  pint *old = pint_alloc(n, "perm_compose");
  if (old == nullptr) return 0;
  std::memcpy(old, p1->p, n * sizeof(pint));
  for (std::uint32_t i = 0; i < n; ++i) p1->p[i] = old[old[i]];
  vek_serv_free(old);
  return 1;
}

void perm_reverse(perm *P) {
  if (P->n == 0) return;
  for (std::uint32_t i = 0, j = P->n - 1; i < j; ++i, --j) {
    pint t = P->p[i];
    P->p[i] = P->p[j];
    P->p[j] = t;
  }
}

int perm_invert(perm *src) {
  TLM_ASSERT(src != NULL, "perm");
  return perm_inverse(src, src) != nullptr;
}

perm *perm_inverse(perm *dst, const perm *src) {
  TLM_ASSERT(src != NULL, "perm");
  const std::uint32_t n = src->n;
  if (dst == nullptr) dst = perm_new(n);
  if (dst == nullptr) return nullptr;
  if (n == 0) {
    dst->n = 0;
    return dst;
  }
  if (dst != src) {
    for (std::uint32_t i = 0; i < n; ++i) dst->p[src->p[i]] = static_cast<pint>(i);
    dst->n = n;
    return dst;
  }
  // In place: the inverse is built aside, the array still being read.
  pint *inv = pint_alloc(n, "perm_inverse");
  if (inv == nullptr) return nullptr;
  for (std::uint32_t i = 0; i < n; ++i) inv[src->p[i]] = static_cast<pint>(i);
  std::memcpy(dst->p, inv, n * sizeof(pint));
  vek_serv_free(inv);
  return dst;
}

perm_cycle_set *perm_cycles(const perm *P) {
  const std::uint32_t n = P->n;
  perm_cycle_set *c =
      static_cast<perm_cycle_set *>(mem_try_alloc(sizeof(perm_cycle_set), "perm_cycles"));
  if (c == nullptr) return nullptr;
  c->n = static_cast<std::int32_t>(n);
  c->count = 0;
  c->elements = pint_alloc(n, "perm_cycles: elements");
  c->starts = pint_alloc(n + 1, "perm_cycles: starts");
  unsigned char *seen = static_cast<unsigned char *>(
      mem_try_alloc(n > 0 ? n : 1, "perm_cycles: seen"));
  if ((c->elements == nullptr && n > 0) || c->starts == nullptr || seen == nullptr) {
    vek_serv_free(seen);
    perm_cycle_set_free(c);
    return nullptr;
  }
  std::memset(seen, 0, n > 0 ? n : 1);
  pint out = 0;
  // The first unvisited element of the ascending sweep is the smallest of
  // its cycle. The walk also stops on an entry out of range or seen before,
  // so that an array that is no permutation cannot make it run on.
  for (std::uint32_t i = 0; i < n; ++i) {
    if (seen[i]) continue;
    c->starts[c->count++] = out;
    pint e = static_cast<pint>(i);
    while (e >= 0 && static_cast<std::uint32_t>(e) < n && !seen[e]) {
      seen[e] = 1;
      c->elements[out++] = e;
      e = P->p[e];
    }
  }
  c->starts[c->count] = out;
  vek_serv_free(seen);
  return c;
}

void perm_cycle_set_free(perm_cycle_set *c) {
  if (c == nullptr) return;
  vek_serv_free(c->elements);
  vek_serv_free(c->starts);
  vek_serv_free(c);
}

}  // namespace tlm
