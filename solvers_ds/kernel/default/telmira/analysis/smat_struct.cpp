// smat_struct.cpp - the pattern operations of the preprocessing toolkit's
// compressed-row matrix: the structurally symmetric pattern A + A^T, and the
// adjacency lists of its graph without the diagonal.

#include "smat.h"

#include <cstring>

#include "service/vek_serv_memory.h"
#include "smat_alloc.h"
#include "toolkit_assert.h"

namespace tlm {

using namespace smat_alloc;

template <class V> int smat_make_struct_sym(smat<V> *A) {
  if (A->sym) return smat_expand_inplace(A, 0, nullptr);
  const std::uint32_t m = A->m;
  if (m == 0) {
    vek_serv_free(A->a);
    A->a = nullptr;
    return 1;
  }
  pint *new_ia = pint_alloc(m + 1, "smat_make_struct_sym: new_ia");
  pint *tail = pint_alloc(m, "smat_make_struct_sym: tail");
  pint *cursor = pint_alloc(m, "smat_make_struct_sym: cursor");
  if (new_ia == nullptr || tail == nullptr || cursor == nullptr) {
    vek_serv_free(new_ia);
    vek_serv_free(tail);
    vek_serv_free(cursor);
    return 0;
  }
  // New row lengths: the old ones plus one for every off-diagonal entry of
  // the column.
  new_ia[0] = 0;
  for (std::uint32_t i = 0; i < m; ++i) new_ia[i + 1] = A->ia[i + 1] - A->ia[i];
  for (std::uint32_t i = 0; i < m; ++i)
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k)
      if (A->ja[k] != static_cast<pint>(i)) ++new_ia[A->ja[k] + 1];
  for (std::uint32_t i = 0; i < m; ++i) new_ia[i + 1] += new_ia[i];
  const pint total = new_ia[m];
  if (!try_resize(&A->ja, static_cast<std::uint32_t>(total), "smat->ja")) {
    vek_serv_free(new_ia);
    vek_serv_free(tail);
    vek_serv_free(cursor);
    return 0;
  }
  vek_serv_free(A->a);
  A->a = nullptr;

  // The old entries to the tail of each new row, last row first; then each
  // off-diagonal (i, c) adds i to the head of row c.
  for (std::uint32_t r = m; r-- > 0;) {
    const pint first = A->ia[r];
    const pint len = A->ia[r + 1] - first;
    const pint base = new_ia[r + 1] - len;
    for (pint k = len - 1; k >= 0; --k) A->ja[base + k] = A->ja[first + k];
    tail[r] = base;
  }
  std::memcpy(cursor, new_ia, m * sizeof(pint));
  for (std::uint32_t i = 0; i < m; ++i)
    for (pint k = tail[i]; k < new_ia[i + 1]; ++k)
      if (A->ja[k] != static_cast<pint>(i))
        A->ja[cursor[A->ja[k]]++] = static_cast<pint>(i);

  // Sort each row and squeeze out the duplicates.
  pint out = 0;
  for (std::uint32_t i = 0; i < m; ++i) {
    sort_run<V>(A->ja, nullptr, new_ia[i], new_ia[i + 1]);
    A->ia[i] = out;
    pint prev = run_end;
    for (pint k = new_ia[i]; k < new_ia[i + 1]; ++k) {
      if (A->ja[k] == prev) continue;
      prev = A->ja[k];
      A->ja[out++] = prev;
    }
  }
  A->ia[m] = out;
  A->nnz = static_cast<std::uint32_t>(out);
  vek_serv_free(new_ia);
  vek_serv_free(tail);
  vek_serv_free(cursor);
  return 1;
}

template <class V>
int smat_adjacency(const smat<V> *A, pint **xadj, pint **adjncy) {
  smat<V> *B = smat_clone_pattern(A);
  if (B == nullptr) return 0;
  if (!smat_make_struct_sym(B)) {
    smat_free(B);
    return 0;
  }
  const std::uint32_t m = B->m;
  pint *made_x = nullptr, *made_adj = nullptr;
  if (*xadj == nullptr) *xadj = made_x = pint_alloc(m + 1, "xadj");
  if (*adjncy == nullptr) *adjncy = made_adj = pint_alloc(B->nnz, "adjncy");
  if (*xadj == nullptr || lacks(*adjncy, B->nnz)) {
    if (made_x) *xadj = nullptr;
    if (made_adj) *adjncy = nullptr;
    vek_serv_free(made_x);
    vek_serv_free(made_adj);
    smat_free(B);
    return 0;
  }
  pint *x = *xadj, *adj = *adjncy;
  pint out = 0;
  for (std::uint32_t i = 0; i < m; ++i) {
    x[i] = out;
    for (pint k = B->ia[i]; k < B->ia[i + 1]; ++k)
      if (B->ja[k] != static_cast<pint>(i)) adj[out++] = B->ja[k];
  }
  x[m] = out;
  smat_free(B);
  return 1;
}

#define TLM_SMAT_STRUCT_INSTANTIATE(V)                                         \
  template int smat_make_struct_sym<V>(smat<V> *);                             \
  template int smat_adjacency<V>(const smat<V> *, pint **, pint **);

TLM_SMAT_STRUCT_INSTANTIATE(double)
TLM_SMAT_STRUCT_INSTANTIATE(float)

#undef TLM_SMAT_STRUCT_INSTANTIATE

}  // namespace tlm
