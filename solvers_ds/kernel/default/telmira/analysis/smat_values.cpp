// smat_values.cpp - the toolkit matrix: operations on its values, the
// one-based form, the dump, the column view and the validity tests.

#include "smat.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "service/vek_serv_memory.h"
#include "telmira_storage.h"
#include "smat_alloc.h"
#include "toolkit_assert.h"

namespace tlm {

using namespace smat_alloc;

template <class V> smat<V> *smat_log_abs(const smat<V> *A) {
  smat<V> *E = smat_expand(A, 1, nullptr);
  if (E == nullptr || E->a == nullptr) return E;
  pint out = 0, row_first = 0;
  for (std::uint32_t i = 0; i < E->m; ++i) {
    const pint row_end = E->ia[i + 1];
    E->ia[i] = out;
    for (pint k = row_first; k < row_end; ++k) {
      if (E->a[k] == V(0)) continue;
      E->ja[out] = E->ja[k];
      E->a[out] = std::log(std::fabs(E->a[k]));
      ++out;
    }
    row_first = row_end;
  }
  E->ia[E->m] = out;
  E->nnz = static_cast<std::uint32_t>(out);
  // A block the heap cannot shrink stays as it is.
  try_resize(&E->ja, E->nnz, "smat->ja");
  try_resize(&E->a, E->nnz, "smat->a");
  return E;
}

template <class V> void smat_scale(smat<V> *A, const V *r, const V *c) {
  for (std::uint32_t i = 0; i < A->m; ++i)
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k)
      A->a[k] = A->a[k] * (c[A->ja[k]] * r[i]);
}

template <class V> void smat_scale_exp(smat<V> *A, const V *lr, const V *lc) {
  for (std::uint32_t i = 0; i < A->m; ++i)
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k)
      A->a[k] = A->a[k] * std::exp(lr[i] + lc[A->ja[k]]);
}

template <class V> void smat_get_diag(const smat<V> *A, V *d) {
  for (std::uint32_t i = 0; i < A->m; ++i) {
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      if (A->ja[k] == static_cast<pint>(i)) {
        d[i] = A->a[k];
        break;
      }
    }
  }
}

template <class V> void smat_to_base1(smat<V> *A) {
  smat<V> *mat = A;
  TLM_ASSERT(mat->ia[0] == 0, "smat");
  for (std::uint32_t k = 0; k < mat->nnz; ++k) ++mat->ja[k];
  for (std::uint32_t i = 0; i <= mat->m; ++i) ++mat->ia[i];
  TLM_ASSERT((pint) mat->nnz == mat->ia[mat->m]-1, "smat");
}

template <class V>
void smat_dump(const char *path, int order, const pint *ia, const pint *ja,
               const V *a) {
  std::FILE *f = std::fopen(path, "w");
  if (f == nullptr) return;
  const int nnz = ia[order] - 1;
  std::fprintf(f, "%d\n", order);
  std::fprintf(f, "%d\n", nnz);
  for (int i = 0; i <= order; ++i) std::fprintf(f, "%d\n", ia[i]);
  for (int k = 0; k < nnz; ++k) std::fprintf(f, "%d\n", ja[k]);
  for (int k = 0; k < nnz; ++k)
    std::fprintf(f, "%24.16e\n", a ? static_cast<double>(a[k]) : 1.0);
  std::fclose(f);
}

// --- Column view ------------------------------------------------------------

template <class V> smat_col_index<V> *smat_col_index_new(const smat<V> *A) {
  TLM_ASSERT(A != NULL, "smat");
  // Room for every column also when the matrix is not square; the view is
  // meant for square matrices, which the closing check demands.
  const std::uint32_t ncols = A->n > A->m ? A->n : A->m;
  smat_col_index<V> *ci = static_cast<smat_col_index<V> *>(
      mem_try_alloc(sizeof(smat_col_index<V>), "smat_col_index"));
  if (ci == nullptr) return nullptr;
  ci->A = A;
  ci->col_start = ia_alloc(ncols + 1);
  ci->row = pint_alloc(A->nnz, "smat_col_index: row");
  ci->pos = pint_alloc(A->nnz, "smat_col_index: pos");
  if (ci->col_start == nullptr || lacks(ci->row, A->nnz) || lacks(ci->pos, A->nnz)) {
    smat_col_index_free(ci);
    return nullptr;
  }
  for (std::uint32_t k = 0; k < A->nnz; ++k) ++ci->col_start[A->ja[k] + 1];
  for (std::uint32_t c = 0; c < ncols; ++c) ci->col_start[c + 1] += ci->col_start[c];
  // col_start[c] is the cursor of column c; afterwards it holds the start of
  // column c+1, and the array moves back by one place.
  for (std::uint32_t i = 0; i < A->m; ++i) {
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const pint q = ci->col_start[A->ja[k]]++;
      ci->row[q] = static_cast<pint>(i);
      ci->pos[q] = k;
    }
  }
  for (std::uint32_t c = ncols; c > 0; --c) ci->col_start[c] = ci->col_start[c - 1];
  ci->col_start[0] = 0;
  TLM_ASSERT(A->nnz == (unsigned) ci->col_start[A->m], "smat");
  return ci;
}

template <class V> void smat_col_index_free(smat_col_index<V> *ci) {
  if (ci == nullptr) return;
  vek_serv_free(ci->col_start);
  vek_serv_free(ci->row);
  vek_serv_free(ci->pos);
  vek_serv_free(ci);
}

// --- Validity tests ---------------------------------------------------------

template <class V> int smat_check_ia(const smat<V> *A) {
  if (A->ia[0] != 0) return 0;
  for (std::uint32_t i = 1; i < A->m; ++i)
    if (A->ia[i] <= A->ia[i - 1]) return 0;
  return A->ia[A->m] == static_cast<pint>(A->nnz) ? 1 : 0;
}

template <class V> int smat_check_upper(const smat<V> *A) {
  if (!A->sym) return 1;
  for (std::uint32_t i = 0; i < A->m; ++i)
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k)
      if (A->ja[k] < static_cast<pint>(i)) return 0;
  return 1;
}

template <class V> int smat_check(const smat<V> *A) {
  if (!smat_check_ia(A)) return 0;
  const pint n = static_cast<pint>(A->n);
  // Columns rise within a row; the bound n is tested on each column that
  // has a successor in its row (the last one is left to the other tests).
  for (std::uint32_t i = 0; i < A->m; ++i) {
    for (pint k = A->ia[i]; k + 1 < A->ia[i + 1]; ++k) {
      if (A->ja[k] >= A->ja[k + 1]) return 0;
      if (A->ja[k] >= n) return 0;
    }
  }
  if (!smat_check_upper(A)) return 0;
  for (std::uint32_t i = 0; i < A->m; ++i) {
    bool diagonal = false;
    for (pint k = A->ia[i]; k < A->ia[i + 1] && !diagonal; ++k)
      diagonal = A->ja[k] == static_cast<pint>(i);
    if (!diagonal) return 0;
  }
  return 1;
}

// --- Instantiations ---------------------------------------------------------

#define TLM_SMAT_VALUES_INSTANTIATE(V)                                         \
  template smat<V> *smat_log_abs<V>(const smat<V> *);                          \
  template void smat_scale<V>(smat<V> *, const V *, const V *);                \
  template void smat_scale_exp<V>(smat<V> *, const V *, const V *);            \
  template void smat_get_diag<V>(const smat<V> *, V *);                        \
  template void smat_to_base1<V>(smat<V> *);                                   \
  template void smat_dump<V>(const char *, int, const pint *, const pint *,    \
                             const V *);                                       \
  template smat_col_index<V> *smat_col_index_new<V>(const smat<V> *);          \
  template void smat_col_index_free<V>(smat_col_index<V> *);                   \
  template int smat_check<V>(const smat<V> *);                                 \
  template int smat_check_upper<V>(const smat<V> *);                           \
  template int smat_check_ia<V>(const smat<V> *);

TLM_SMAT_VALUES_INSTANTIATE(double)
TLM_SMAT_VALUES_INSTANTIATE(float)

#undef TLM_SMAT_VALUES_INSTANTIATE

}  // namespace tlm
