// perm.cpp - permutations of the preprocessing toolkit.

#include "perm.h"

#include <cstring>

#include "service/vek_serv_memory.h"
#include "telmira_storage.h"
#include "toolkit_assert.h"

namespace tlm {

namespace {

pint *pint_alloc(std::uint32_t count, const char *name) {
  return static_cast<pint *>(
      mem_alloc(static_cast<std::size_t>(count) * sizeof(pint), name));
}

}  // namespace

perm *perm_new(std::uint32_t n) {
  perm *P = static_cast<perm *>(mem_alloc(sizeof(perm), "perm"));
  P->n = n;
  P->p = pint_alloc(n, "perm->p");
  return P;
}

perm *perm_new_from(std::uint32_t n, const pint *array) {
  perm *P = perm_new(n);
  if (n > 0) std::memcpy(P->p, array, n * sizeof(pint));
  return P;
}

perm *perm_copy(perm *dst, const perm *src) {
  TLM_ASSERT(src != NULL, "perm");
  if (dst == nullptr) dst = perm_new(src->n);
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

void perm_compose(perm *p1, const perm *p2) {
  const perm *src = p2;
  TLM_ASSERT(src != NULL, "perm");
  TLM_ASSERT(p1->n == p2->n, "perm");
  const std::uint32_t n = p1->n;
  if (n == 0) return;
  // The old p1 from a private copy; when p2 is p1 it is read from there too.
  pint *old = pint_alloc(n, "perm_compose");
  std::memcpy(old, p1->p, n * sizeof(pint));
  const pint *second = p2 == p1 ? old : p2->p;
  for (std::uint32_t i = 0; i < n; ++i) p1->p[i] = second[old[i]];
  vek_serv_free(old);
}

void perm_reverse(perm *P) {
  if (P->n == 0) return;
  for (std::uint32_t i = 0, j = P->n - 1; i < j; ++i, --j) {
    pint t = P->p[i];
    P->p[i] = P->p[j];
    P->p[j] = t;
  }
}

void perm_invert(perm *src) {
  TLM_ASSERT(src != NULL, "perm");
  perm_inverse(src, src);
}

perm *perm_inverse(perm *dst, const perm *src) {
  TLM_ASSERT(src != NULL, "perm");
  const std::uint32_t n = src->n;
  if (dst == nullptr) dst = perm_new(n);
  if (n == 0) {
    dst->n = 0;
    return dst;
  }
  pint *inv = pint_alloc(n, "perm_inverse");
  for (std::uint32_t i = 0; i < n; ++i) inv[src->p[i]] = static_cast<pint>(i);
  std::memcpy(dst->p, inv, n * sizeof(pint));
  dst->n = n;
  vek_serv_free(inv);
  return dst;
}

perm_cycle_set *perm_cycles(const perm *P) {
  const std::uint32_t n = P->n;
  perm_cycle_set *c =
      static_cast<perm_cycle_set *>(mem_alloc(sizeof(perm_cycle_set), "perm_cycles"));
  c->n = static_cast<std::int32_t>(n);
  c->count = 0;
  c->elements = pint_alloc(n, "perm_cycles: elements");
  c->starts = pint_alloc(n + 1, "perm_cycles: starts");
  unsigned char *seen = static_cast<unsigned char *>(
      mem_alloc(n > 0 ? n : 1, "perm_cycles: seen"));
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
