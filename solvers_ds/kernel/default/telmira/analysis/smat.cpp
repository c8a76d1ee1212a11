// smat.cpp - the compressed-row matrix of the preprocessing toolkit.

#include "smat.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "service/vek_serv_memory.h"
#include "service/vek_serv_message.h"
#include "telmira_storage.h"
#include "smat_alloc.h"
#include "toolkit_assert.h"

namespace tlm {

using namespace smat_alloc;

namespace {

// A record with no arrays; null when the heap refuses.
template <class V>
smat<V> *new_record(std::uint32_t m, std::uint32_t n, std::uint32_t nnz,
                    std::uint32_t sym) {
  smat<V> *A = static_cast<smat<V> *>(mem_try_alloc(sizeof(smat<V>), "smat"));
  if (A == nullptr) return nullptr;
  A->m = m;
  A->n = n;
  A->nnz = nnz;
  A->sym = sym;
  A->ia = nullptr;
  A->ja = nullptr;
  A->a = nullptr;
  return A;
}

// Row starts of the expansion of a symmetric matrix into new_ia (m+1): each
// row keeps its entries and gains one for every entry after the first of a
// row above it. Returns the new entry count.
template <class V> pint expand_count(const smat<V> *A, pint *new_ia) {
  const std::uint32_t m = A->m;
  new_ia[0] = 0;
  for (std::uint32_t i = 0; i < m; ++i) new_ia[i + 1] = A->ia[i + 1] - A->ia[i];
  for (std::uint32_t i = 0; i < m; ++i)
    for (pint k = A->ia[i] + 1; k < A->ia[i + 1]; ++k) ++new_ia[A->ja[k] + 1];
  for (std::uint32_t i = 0; i < m; ++i) new_ia[i + 1] += new_ia[i];
  return new_ia[m];
}

// Both triangles of a symmetric matrix. The old rows (old_ia, src_ja,
// src_a) are read and the new ones written to dst_ia, dst_ja, dst_a; the
// destination may be the source itself, with ja and a enlarged to the new
// size, since the rows move to the back of their new place from the last row
// down. new_ia comes from expand_count and is used up as the fill cursor;
// start is scratch of m entries. map (may be null) receives the source
// position of each new entry.
template <class V>
void expand_rows(std::uint32_t m, const pint *old_ia, const pint *src_ja,
                 const V *src_a, pint *new_ia, pint *start, pint *dst_ia,
                 pint *dst_ja, V *dst_a, pint *map) {
  if (m == 0) {
    dst_ia[0] = 0;
    return;
  }
  for (std::uint32_t r = m; r-- > 0;) {
    const pint first = old_ia[r];
    const pint len = old_ia[r + 1] - first;
    const pint base = new_ia[r + 1] - len;
    for (pint k = len - 1; k >= 0; --k) {
      dst_ja[base + k] = src_ja[first + k];
      if (dst_a) dst_a[base + k] = src_a[first + k];
      if (map) map[base + k] = first + k;
    }
    start[r] = base;
  }
  for (std::uint32_t i = 0; i <= m; ++i) dst_ia[i] = new_ia[i];
  // The mirrored entries of a row arrive in ascending source-row order in
  // front of the row's own segment.
  for (std::uint32_t i = 0; i < m; ++i) {
    for (pint k = start[i] + 1; k < dst_ia[i + 1]; ++k) {
      const pint c = dst_ja[k];
      const pint q = new_ia[c]++;
      dst_ja[q] = static_cast<pint>(i);
      if (dst_a) dst_a[q] = dst_a[k];
      if (map) map[q] = map[k];
    }
  }
}

// The expansion of a symmetric A into a new matrix, new_ia from
// expand_count; null when the heap refuses.
template <class V>
smat<V> *expand_new(const smat<V> *A, int with_values, pint *map,
                    pint *new_ia) {
  const pint total = new_ia[A->m];
  smat<V> *dst = new_record<V>(A->m, A->n, static_cast<std::uint32_t>(total), 0);
  if (dst == nullptr) return nullptr;
  dst->ia = ia_alloc(A->m + 1);
  dst->ja = pint_alloc(dst->nnz, "smat->ja");
  const bool values = with_values && A->a;
  if (values) dst->a = value_alloc<V>(dst->nnz, "smat->a");
  pint *start = pint_alloc(A->m, "smat_expand: start");
  if (lacks(dst->ia, A->m + 1) || lacks(dst->ja, dst->nnz) ||
      (values && lacks(dst->a, dst->nnz)) || lacks(start, A->m)) {
    vek_serv_free(start);
    smat_free(dst);
    return nullptr;
  }
  expand_rows(A->m, A->ia, A->ja, dst->a ? A->a : nullptr, new_ia, start,
              dst->ia, dst->ja, dst->a, map);
  vek_serv_free(start);
  return dst;
}

// Cuts an output of smat_split down to what it holds. When the heap cannot
// move a block, the larger one stays: nothing is lost.
template <class V> void shrink(smat<V> *B) {
  B->nnz = static_cast<std::uint32_t>(B->ia[B->m]);
  try_resize(&B->ja, B->nnz, "smat_split: ja");
  if (B->a) try_resize(&B->a, B->nnz, "smat_split: a");
}

// One block row of smat_split: rows r0..r1-1 of A divided at column k into
// L and R (columns of R reduced by k).
template <class V>
void split_rows(const smat<V> *A, pint k, pint r0, pint r1, smat<V> *L,
                smat<V> *R) {
  pint nl = 0, nr = 0;
  for (pint i = r0; i < r1; ++i) {
    L->ia[i - r0] = nl;
    R->ia[i - r0] = nr;
    for (pint p = A->ia[i]; p < A->ia[i + 1]; ++p) {
      const pint c = A->ja[p];
      if (c < k) {
        L->ja[nl] = c;
        if (A->a) L->a[nl] = A->a[p];
        ++nl;
      } else {
        R->ja[nr] = c - k;
        if (A->a) R->a[nr] = A->a[p];
        ++nr;
      }
    }
  }
  L->ia[r1 - r0] = nl;
  R->ia[r1 - r0] = nr;
  shrink(L);
  shrink(R);
}

// Null when the heap refuses.
template <class V>
smat<V> *split_block(std::uint32_t m, std::uint32_t n, const smat<V> *A) {
  smat<V> *B = new_record<V>(m, n, A->nnz, 0);
  if (B == nullptr) return nullptr;
  B->ia = ia_alloc(m + 1);
  B->ja = pint_alloc(A->nnz, "smat_split: ja");
  if (A->a) B->a = value_alloc<V>(A->nnz, "smat_split: a");
  if (lacks(B->ia, m + 1) || lacks(B->ja, A->nnz) || (A->a && lacks(B->a, A->nnz))) {
    smat_free(B);
    return nullptr;
  }
  return B;
}

template <class V> void free_if_made(smat<V> *A) {
  if (A != nullptr) smat_free(A);
}

}  // namespace

// --- Creation ---------------------------------------------------------------

template <class V>
smat<V> *smat_new_pattern(std::uint32_t m, std::uint32_t n, std::uint32_t nnz,
                          std::uint32_t sym) {
  smat<V> *A = new_record<V>(m, n, nnz, sym);
  if (A == nullptr) return nullptr;
  A->ia = ia_alloc(m + 1);
  A->ja = pint_alloc(nnz, "smat->ja");
  if (lacks(A->ia, m + 1) || lacks(A->ja, nnz)) {
    smat_free(A);
    return nullptr;
  }
  return A;
}

template <class V>
smat<V> *smat_new_header(std::uint32_t m, std::uint32_t n, std::uint32_t sym) {
  smat<V> *A = new_record<V>(m, n, 0, sym);
  if (A == nullptr) return nullptr;
  A->ia = ia_alloc(m + 1);
  if (lacks(A->ia, m + 1)) {
    smat_free(A);
    return nullptr;
  }
  return A;
}

template <class V> smat<V> *smat_clone_pattern(const smat<V> *src) {
  smat<V> *A = smat_new_pattern<V>(src->m, src->n, src->nnz, src->sym);
  if (A == nullptr) return nullptr;
  std::memcpy(A->ia, src->ia, (src->m + 1) * sizeof(pint));
  if (src->nnz > 0) std::memcpy(A->ja, src->ja, src->nnz * sizeof(pint));
  return A;
}

template <class V> smat<V> *smat_clone(const smat<V> *src) {
  smat<V> *A = smat_clone_pattern(src);
  if (A == nullptr) return nullptr;
  if (src->a && src->nnz > 0) {
    A->a = value_alloc<V>(src->nnz, "smat->a");
    if (A->a == nullptr) {
      smat_free(A);
      return nullptr;
    }
    std::memcpy(A->a, src->a, src->nnz * sizeof(V));
  }
  return A;
}

template <class V>
smat<V> *smat_wrap(std::uint32_t m, std::uint32_t n, pint *ia, pint *ja, V *a,
                   std::uint32_t sym, int base_index) {
  TLM_ASSERT(base_index == 0 || base_index == 1, "smat");
  smat<V> *mat = new_record<V>(m, n, 0, sym);
  if (mat == nullptr) return nullptr;
  mat->ia = ia;
  mat->ja = ja;
  mat->a = a;
  if (base_index == 0) {
    mat->nnz = static_cast<std::uint32_t>(ia[m]);
  } else {
    TLM_ASSERT(mat->ia[0] == 1, "smat");
    mat->nnz = static_cast<std::uint32_t>(ia[m] - 1);
    for (std::uint32_t i = 0; i <= m; ++i) --ia[i];
    for (std::uint32_t k = 0; k < mat->nnz; ++k) --ja[k];
  }
  TLM_ASSERT((pint) mat->nnz == mat->ia[mat->m], "smat");
  return mat;
}

template <class V> void smat_free(smat<V> *A) {
  if (A == nullptr) {
    vek_serv_print_message(0, 778, 0);
    return;
  }
  vek_serv_free(A->ia);
  vek_serv_free(A->ja);
  vek_serv_free(A->a);
  vek_serv_free(A);
}

// --- Transformations --------------------------------------------------------

template <class V> smat<V> *smat_transpose(const smat<V> *A) {
  TLM_ASSERT(A != NULL, "smat");
  if (A->sym) return smat_clone(A);
  smat<V> *T = smat_new_pattern<V>(A->n, A->m, A->nnz, A->sym);
  if (T == nullptr) return nullptr;
  if (A->a) T->a = value_alloc<V>(A->nnz, "smat->a");
  pint *next = pint_alloc(A->n + 1, "smat_transpose: next");
  if ((A->a && lacks(T->a, A->nnz)) || next == nullptr) {
    vek_serv_free(next);
    smat_free(T);
    return nullptr;
  }
  for (pint k = 0; k < A->ia[A->m]; ++k) ++T->ia[A->ja[k] + 1];
  for (std::uint32_t c = 0; c < A->n; ++c) T->ia[c + 1] += T->ia[c];
  std::memcpy(next, T->ia, (A->n + 1) * sizeof(pint));
  for (std::uint32_t i = 0; i < A->m; ++i) {
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const pint q = next[A->ja[k]]++;
      T->ja[q] = static_cast<pint>(i);
      if (T->a) T->a[q] = A->a[k];
    }
  }
  vek_serv_free(next);
  return T;
}

template <class V> int smat_transpose_inplace(smat<V> *A) {
  smat<V> *T = smat_transpose(A);
  if (T == nullptr) return 0;
  vek_serv_free(A->ia);
  vek_serv_free(A->ja);
  vek_serv_free(A->a);
  A->m = T->m;
  A->n = T->n;
  A->ia = T->ia;
  A->ja = T->ja;
  A->a = T->a;
  vek_serv_free(T);
  return 1;
}

template <class V>
smat<V> *smat_expand(const smat<V> *A, int with_values, pint *map) {
  if (!A->sym) {
    smat<V> *copy = with_values ? smat_clone(A) : smat_clone_pattern(A);
    if (copy != nullptr && map)
      for (std::uint32_t k = 0; k < A->nnz; ++k) map[k] = static_cast<pint>(k);
    return copy;
  }
  pint *new_ia = pint_alloc(A->m + 1, "smat_expand: new_ia");
  if (new_ia == nullptr) return nullptr;
  expand_count(A, new_ia);
  smat<V> *dst = expand_new(A, with_values, map, new_ia);
  vek_serv_free(new_ia);
  return dst;
}

template <class V>
int smat_expand_inplace(smat<V> *A, int with_values, pint *map) {
  if (!A->sym) return 1;
  smat<V> *dst = A;
  const std::uint32_t nnz = 2 * A->nnz - A->m;
  pint *new_ia = pint_alloc(dst->m + 1, "smat_expand: new_ia");
  pint *start = pint_alloc(dst->m, "smat_expand: start");
  // The matrix changes only once every block is had; enlarged arrays that
  // are left when a later request fails still hold the old rows.
  bool had = new_ia != nullptr && !lacks(start, dst->m);
  if (had) {
    expand_count(dst, new_ia);
    TLM_ASSERT(new_ia[dst->m] == (pint) nnz, "smat");
    had = try_resize(&dst->ja, nnz, "smat->ja");
  }
  if (had && with_values && dst->a) had = try_resize(&dst->a, nnz, "smat->a");
  if (!had) {
    vek_serv_free(new_ia);
    vek_serv_free(start);
    return 0;
  }
  if (!(with_values && dst->a)) {
    vek_serv_free(dst->a);
    dst->a = nullptr;
  }
  expand_rows(dst->m, dst->ia, dst->ja, dst->a, new_ia, start, dst->ia,
              dst->ja, dst->a, map);
  vek_serv_free(new_ia);
  vek_serv_free(start);
  dst->nnz = nnz;
  dst->sym = 0;
  return 1;
}

template <class V>
smat<V> *smat_permute(const smat<V> *src, const perm *P, int with_values) {
  TLM_ASSERT_TEXT(src->m == P->n, "smat", "src->m == perm->n");
  TLM_ASSERT_TEXT(src->n == P->n, "smat", "src->n == perm->n");
  const std::uint32_t m = src->m;
  const pint *p = P->p;
  const bool values = with_values && src->a;

  if (!src->sym) {
    smat<V> *dst = smat_new_pattern<V>(m, src->n, src->nnz, 0);
    if (dst == nullptr) return nullptr;
    if (values) dst->a = value_alloc<V>(src->nnz, "smat->a");
    if (values && lacks(dst->a, src->nnz)) {
      smat_free(dst);
      return nullptr;
    }
    for (std::uint32_t i = 0; i < m; ++i)
      dst->ia[p[i] + 1] = src->ia[i + 1] - src->ia[i];
    for (std::uint32_t i = 0; i < m; ++i) dst->ia[i + 1] += dst->ia[i];
    TLM_ASSERT(dst->ia[dst->m] == (pint) dst->nnz, "smat");
    for (std::uint32_t i = 0; i < m; ++i) {
      pint q = dst->ia[p[i]];
      for (pint k = src->ia[i]; k < src->ia[i + 1]; ++k, ++q) {
        dst->ja[q] = p[src->ja[k]];
        if (values) dst->a[q] = src->a[k];
      }
    }
    for (std::uint32_t i = 0; i < m; ++i)
      sort_run(dst->ja, dst->a, dst->ia[i], dst->ia[i + 1]);
    return dst;
  }

  // Symmetric: both triangles of the pattern, with the way back to the
  // source values; each new row keeps the entries on or right of the
  // diagonal.
  pint *new_ia = pint_alloc(m + 1, "smat_permute: new_ia");
  if (new_ia == nullptr) return nullptr;
  const pint total = expand_count(src, new_ia);
  pint *map = pint_alloc(static_cast<std::uint32_t>(total), "smat_permute: map");
  smat<V> *E = lacks(map, static_cast<std::size_t>(total))
                   ? nullptr : expand_new(src, 0, map, new_ia);
  vek_serv_free(new_ia);
  perm *inv = E == nullptr ? nullptr : perm_inverse(nullptr, P);
  if (inv == nullptr) {
    vek_serv_free(map);
    free_if_made(E);
    return nullptr;
  }

  pint count = 0;
  for (std::uint32_t i = 0; i < m; ++i) {
    const pint old = inv->p[i];
    for (pint k = E->ia[old]; k < E->ia[old + 1]; ++k)
      if (p[E->ja[k]] >= static_cast<pint>(i)) ++count;
  }
  smat<V> *dst = smat_new_pattern<V>(m, src->n, static_cast<std::uint32_t>(count), 1);
  if (dst != nullptr && values) {
    dst->a = value_alloc<V>(dst->nnz, "smat->a");
    if (lacks(dst->a, dst->nnz)) {
      smat_free(dst);
      dst = nullptr;
    }
  }
  if (dst == nullptr) {
    perm_free(inv);
    vek_serv_free(map);
    smat_free(E);
    return nullptr;
  }
  pint out = 0;
  for (std::uint32_t i = 0; i < m; ++i) {
    dst->ia[i] = out;
    const pint old = inv->p[i];
    for (pint k = E->ia[old]; k < E->ia[old + 1]; ++k) {
      const pint c = p[E->ja[k]];
      if (c < static_cast<pint>(i)) continue;
      dst->ja[out] = c;
      if (values) dst->a[out] = src->a[map[k]];
      ++out;
    }
    sort_run(dst->ja, dst->a, dst->ia[i], out);
  }
  dst->ia[m] = out;
  perm_free(inv);
  vek_serv_free(map);
  smat_free(E);
  return dst;
}

template <class V> void smat_sort_row(smat<V> *A, pint row, int with_values) {
  sort_run(A->ja, with_values ? A->a : nullptr, A->ia[row], A->ia[row + 1]);
}

template <class V>
int smat_split(const smat<V> *A, pint k, smat<V> **A11, smat<V> **A12,
               smat<V> **A21, smat<V> **A22) {
  const pint m = static_cast<pint>(A->m);
  const std::uint32_t k1 = static_cast<std::uint32_t>(k);
  const std::uint32_t k2 = static_cast<std::uint32_t>(m - k);
  const bool lower = A21 && A22;
  smat<V> *b11 = split_block(k1, k1, A), *b12 = split_block(k1, k2, A);
  smat<V> *b21 = lower ? split_block(k2, k1, A) : nullptr;
  smat<V> *b22 = lower ? split_block(k2, k2, A) : nullptr;
  if (!b11 || !b12 || (lower && (!b21 || !b22))) {
    for (smat<V> *B : {b11, b12, b21, b22}) free_if_made(B);
    *A11 = *A12 = nullptr;
    if (lower) *A21 = *A22 = nullptr;
    return 0;
  }
  *A11 = b11;
  *A12 = b12;
  split_rows(A, k, 0, k, b11, b12);
  if (lower) {
    *A21 = b21;
    *A22 = b22;
    split_rows(A, k, k, m, b21, b22);
  }
  return 1;
}

// --- Instantiations ---------------------------------------------------------

#define TLM_SMAT_INSTANTIATE(V)                                                \
  template smat<V> *smat_new_pattern<V>(std::uint32_t, std::uint32_t,          \
                                        std::uint32_t, std::uint32_t);         \
  template smat<V> *smat_new_header<V>(std::uint32_t, std::uint32_t,           \
                                       std::uint32_t);                         \
  template smat<V> *smat_clone<V>(const smat<V> *);                            \
  template smat<V> *smat_clone_pattern<V>(const smat<V> *);                    \
  template smat<V> *smat_wrap<V>(std::uint32_t, std::uint32_t, pint *, pint *, \
                                 V *, std::uint32_t, int);                     \
  template void smat_free<V>(smat<V> *);                                       \
  template smat<V> *smat_transpose<V>(const smat<V> *);                        \
  template int smat_transpose_inplace<V>(smat<V> *);                          \
  template smat<V> *smat_expand<V>(const smat<V> *, int, pint *);              \
  template int smat_expand_inplace<V>(smat<V> *, int, pint *);                 \
  template smat<V> *smat_permute<V>(const smat<V> *, const perm *, int);       \
  template void smat_sort_row<V>(smat<V> *, pint, int);                        \
  template int smat_split<V>(const smat<V> *, pint, smat<V> **, smat<V> **,    \
                             smat<V> **, smat<V> **);


TLM_SMAT_INSTANTIATE(double)
TLM_SMAT_INSTANTIATE(float)

#undef TLM_SMAT_INSTANTIATE

}  // namespace tlm
