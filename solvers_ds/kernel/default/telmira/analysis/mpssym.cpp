// mpssym.cpp - the symmetric matching preprocessing, and the front ends
// that order a toolkit matrix through the one-based ordering routines.

#include "mpssym.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "ordering.h"
#include "service/vek_serv_memory.h"
#include "telmira_storage.h"
#include "toolkit_assert.h"

namespace tlm {

namespace {

// A stored diagonal entry above this in absolute value makes a member of a
// pair fit to be a 1x1 pivot; the same bound serves both precisions.
constexpr double pair_threshold = 1e-8;

// End of a run in the merge of two rows.
constexpr pint run_end = 0x7FFFFFFF;

constexpr int mmd_maxint = 2147483647;

// At least one entry, so that null always means the heap refused.
pint *pint_alloc(std::size_t count, const char *name) {
  return static_cast<pint *>(
      mem_try_alloc((count > 0 ? count : 1) * sizeof(pint), name));
}

inline bool bit_of(const bvec *bv, pint k) {
  return bvec_get(bv, static_cast<std::uint32_t>(k)) != 0;
}

// Whether row x of the upper triangle A has a stored diagonal entry above
// the threshold.
template <class V> bool strong_diagonal(const smat<V> *A, pint x) {
  if (A->a == nullptr) return false;
  for (pint k = A->ia[x]; k < A->ia[x + 1]; ++k)
    if (A->ja[k] == x)
      return static_cast<double>(std::fabs(A->a[k])) > pair_threshold;
  return false;
}

// The one-based graph of C for the ordering routines: both triangles, no
// diagonal. adjncy always has at least one entry. 0 (both null) when the
// heap refused.
template <class V>
int one_based_graph(const smat<V> *C, pint **xadj, pint **adjncy) {
  *xadj = nullptr;
  *adjncy = nullptr;
  if (!smat_adjacency(C, xadj, adjncy)) return 0;
  const pint m = static_cast<pint>(C->m);
  const pint nnz = (*xadj)[m];
  if (*adjncy == nullptr) *adjncy = pint_alloc(1, "adjncy");
  if (*adjncy == nullptr) {
    vek_serv_free(*xadj);
    *xadj = nullptr;
    return 0;
  }
  for (pint i = 0; i <= m; ++i) ++(*xadj)[i];
  for (pint k = 0; k < nnz; ++k) ++(*adjncy)[k];
  return 1;
}

// Q->p[old] = new from the one-based invp of the ordering routines.
void order_from_invp(perm *Q, const pint *invp) {
  for (std::uint32_t i = 0; i < Q->n; ++i) Q->p[i] = invp[i] - 1;
}

// The pattern of A with a leading diagonal entry in each row that lacks one,
// or null when every row has it (*failed tells a refusal of the heap). The expansion inside smat_permute mirrors
// all entries of a row but the first, which must therefore be the diagonal;
// a missing one would lose an edge of the graph (and the 1e-8 test of the
// pivots reads the values of A, where a missing diagonal stays missing).
template <class V> smat<V> *with_diagonals(const smat<V> *A, bool *failed) {
  const pint m = static_cast<pint>(A->m);
  pint missing = 0;
  *failed = false;
  for (pint i = 0; i < m; ++i)
    if (A->ia[i] == A->ia[i + 1] || A->ja[A->ia[i]] != i) ++missing;
  if (missing == 0) return nullptr;
  smat<V> *B = smat_new_pattern<V>(A->m, A->n, A->nnz + static_cast<std::uint32_t>(missing), 1);
  if (B == nullptr) {
    *failed = true;
    return nullptr;
  }
  pint out = 0;
  for (pint i = 0; i < m; ++i) {
    B->ia[i] = out;
    if (A->ia[i] == A->ia[i + 1] || A->ja[A->ia[i]] != i) B->ja[out++] = i;
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k) B->ja[out++] = A->ja[k];
  }
  B->ia[m] = out;
  return B;
}

// The single-part form of a range list of m places: (0, m-1, m, m), count 1.
void single_part(perm *ddist, pint m) {
  ddist->p[0] = 0;
  ddist->p[1] = m - 1;
  ddist->p[2] = m;
  ddist->p[3] = m;
  ddist->n = 1;
}

}  // namespace

// --- Front ends of the ordering ---------------------------------------------

template <class V> int smat_order_mmd(const smat<V> *C, perm *Q) {
  TLM_ASSERT_TEXT(Q != NULL, "smat", "perm != NULL");
  TLM_ASSERT_TEXT(Q->n == C->m, "smat", "perm->n == A->m");
  int n = static_cast<int>(C->m);
  if (n == 0) return 1;
  pint *xadj, *adjncy;
  if (!one_based_graph(C, &xadj, &adjncy)) return 0;
  pint *work = pint_alloc(6 * static_cast<std::size_t>(n), "smat_order_mmd");
  if (work == nullptr) {
    vek_serv_free(xadj);
    vek_serv_free(adjncy);
    return 0;
  }
  pint *order = work + 4 * n, *invp = work + 5 * n;
  int delta = 0, maxint = mmd_maxint, nofsub = 0;
  genmmd(&n, xadj, adjncy, invp, order, &delta, work, work + n, work + 2 * n,
         work + 3 * n, &maxint, &nofsub);
  order_from_invp(Q, invp);
  vek_serv_free(work);
  vek_serv_free(xadj);
  vek_serv_free(adjncy);
  return 1;
}

template <class V>
int smat_order_mmd_constrained(const smat<V> *C, perm *Q, int threads) {
  TLM_ASSERT_TEXT(Q != NULL, "smat", "perm != NULL");
  TLM_ASSERT_TEXT(Q->n == C->m, "smat", "perm->n == A->m");
  int n = static_cast<int>(C->m);
  if (n == 0) return 1;
  pint *xadj, *adjncy;
  if (!one_based_graph(C, &xadj, &adjncy)) return 0;
  pint *work = pint_alloc(7 * static_cast<std::size_t>(n),
                          "smat_order_mmd_constrained");
  if (work == nullptr) {
    vek_serv_free(xadj);
    vek_serv_free(adjncy);
    return 0;
  }
  pint *order = work + 5 * n, *invp = work + 6 * n;
  int nparts = threads, ncon = 0, status = 0;
  ddecomp(&nparts, &n, xadj, adjncy, order, invp, &ncon, &status);
  // Without a decomposition nothing is constrained: plain minimum degree.
  if (status != 0) ncon = 0;
  int delta = 0, maxint = mmd_maxint, nofsub = 0, sepflag = 1;
  genmmd_constrained(&n, xadj, adjncy, invp, order, &delta, work, work + n,
                     work + 2 * n, work + 3 * n, &maxint, &nofsub, &ncon,
                     work + 4 * n, &sepflag);
  order_from_invp(Q, invp);
  vek_serv_free(work);
  vek_serv_free(xadj);
  vek_serv_free(adjncy);
  return 1;
}

template <class V>
int smat_order_nd(const smat<V> *C, perm *Q, int threads, int form, perm *ddist) {
  TLM_ASSERT_TEXT(Q != NULL, "smat", "perm != NULL");
  TLM_ASSERT_TEXT(Q->n == C->m, "smat", "perm->n == A->m");
  TLM_ASSERT(ddist != NULL, "smat");
  TLM_ASSERT((ddist->n & 1) == 0, "smat");
  int n = static_cast<int>(C->m);
  if (n <= 8) {
    perm_identity(Q);
    single_part(ddist, n);
    return 1;
  }
  int nparts = static_cast<int>(ddist->n / 2);
  if (nparts < 1) nparts = 1;
  int width = 1;
  while (width < nparts) width *= 2;
  pint *parts = pint_alloc(4 * static_cast<std::size_t>(width) + 4, "smat_order_nd");
  pint *order = pint_alloc(2 * static_cast<std::size_t>(n), "smat_order_nd");
  pint *xadj = nullptr, *adjncy = nullptr;
  if (parts == nullptr || order == nullptr || !one_based_graph(C, &xadj, &adjncy)) {
    vek_serv_free(parts);
    vek_serv_free(order);
    return 0;
  }
  pint *invp = order + n;
  int t = threads > 0 ? threads : 1, status = 0, f = form;
  metis_nd(&n, xadj, adjncy, &t, order, invp, &nparts, parts, &status, &f);
  // A dissection that failed (no room for its work, or a bisection that
  // gave up) leaves no order behind.
  if (status != 0) {
    vek_serv_free(parts);
    vek_serv_free(order);
    vek_serv_free(xadj);
    vek_serv_free(adjncy);
    return 0;
  }
  order_from_invp(Q, invp);
  if (nparts < 1) {
    single_part(ddist, n);
  } else {
    for (int k = 0; k < 2 * nparts; ++k) ddist->p[k] = parts[k] - 1;
    ddist->n = static_cast<std::uint32_t>(2 * nparts);
  }
  vek_serv_free(parts);
  vek_serv_free(order);
  vek_serv_free(xadj);
  vek_serv_free(adjncy);
  return 1;
}

// --- The pivots -------------------------------------------------------------

template <class V>
int mpssym_pivots(const smat<V> *A, const perm *M, perm *P,
                  bvec *sym_perm_1x1_pivots) {
  TLM_ASSERT(sym_perm_1x1_pivots != NULL, "mpssym");
  bvec *bits = sym_perm_1x1_pivots;
  if (bits->nwords > 0) std::memset(bits->v, 0, bits->nwords * sizeof(std::uint32_t));
  const pint n = static_cast<pint>(M->n);
  perm_cycle_set *cyc = perm_cycles(M);
  if (cyc == nullptr) return 0;
  // P is filled by position (the element at each place), inverted at the
  // end.
  pint f = 0, back = n - 1;
  for (pint c = 0; c < cyc->count; ++c) {
    if (cyc->starts[c + 1] - cyc->starts[c] != 1) continue;
    P->p[f] = cyc->elements[cyc->starts[c]];
    bvec_set(bits, static_cast<std::uint32_t>(f++));
  }
  for (pint c = 0; c < cyc->count; ++c) {
    const pint *e = cyc->elements + cyc->starts[c];
    const pint len = cyc->starts[c + 1] - cyc->starts[c];
    if (len == 1) continue;
    pint j = 0;
    if (len & 1) {
      P->p[back] = e[0];
      bvec_set(bits, static_cast<std::uint32_t>(back--));
      j = 1;
    }
    for (; j + 1 < len; j += 2) {
      const pint x = e[j], y = e[j + 1];
      P->p[f] = x;
      P->p[f + 1] = y;
      if (strong_diagonal(A, x) && strong_diagonal(A, y)) {
        bvec_set(bits, static_cast<std::uint32_t>(f));
        bvec_set(bits, static_cast<std::uint32_t>(f + 1));
      }
      f += 2;
    }
  }
  perm_cycle_set_free(cyc);
  return perm_invert(P);
}

// --- Compression ------------------------------------------------------------

template <class V>
int mpssym_compress(smat<V> *C, const bvec *pivots, perm *map) {
  const pint m = static_cast<pint>(C->m);
  pint *ia0 = pint_alloc(static_cast<std::size_t>(m) + 1, "mpssym_compress: ia");
  pint *ja0 = pint_alloc(C->nnz, "mpssym_compress: ja");
  pint *map2 = pint_alloc(static_cast<std::size_t>(m), "mpssym_compress: map2");
  if (ia0 == nullptr || ja0 == nullptr || map2 == nullptr) {
    vek_serv_free(ia0);
    vek_serv_free(ja0);
    vek_serv_free(map2);
    return 0;
  }
  std::memcpy(ia0, C->ia, (static_cast<std::size_t>(m) + 1) * sizeof(pint));
  if (C->nnz > 0) std::memcpy(ja0, C->ja, C->nnz * sizeof(pint));

  // Rows, merged pairwise where a pair stands, in the old numbering.
  pint merged = 0, w = 0;
  for (pint i = 0; i < m;) {
    const pint row = i - merged;
    if (!bit_of(pivots, i) && i + 1 < m) {
      pint pa = ia0[i], ea = ia0[i + 1];
      pint pb = ia0[i + 1], eb = ia0[i + 2];
      while (pa < ea && ja0[pa] < i + 1) ++pa;
      while (pb < eb && ja0[pb] < i + 1) ++pb;
      for (;;) {
        const pint ca = pa < ea ? ja0[pa] : run_end;
        const pint cb = pb < eb ? ja0[pb] : run_end;
        if (ca == run_end && cb == run_end) break;
        if (ca <= cb) {
          C->ja[w++] = ca;
          ++pa;
          if (cb == ca) ++pb;
        } else {
          C->ja[w++] = cb;
          ++pb;
        }
      }
      map2[i] = map2[i + 1] = row;
      i += 2;
      ++merged;
    } else {
      for (pint k = ia0[i]; k < ia0[i + 1]; ++k)
        if (ja0[k] >= i) C->ja[w++] = ja0[k];
      map2[i] = row;
      i += 1;
    }
    C->ia[row + 1] = w;
  }
  C->ia[0] = 0;
  C->sym = 1;
  C->nnz = static_cast<std::uint32_t>(w);
  C->m -= static_cast<std::uint32_t>(merged);
  C->n -= static_cast<std::uint32_t>(merged);

  // Compressed column numbers; the two members of a pair meet in one.
  pint out = 0, row_first = 0;
  for (pint r = 0; r < static_cast<pint>(C->m); ++r) {
    const pint row_end = C->ia[r + 1];
    C->ia[r] = out;
    pint prev_col = -1;
    for (pint k = row_first; k < row_end; ++k) {
      const pint col = map2[C->ja[k]];
      TLM_ASSERT(col >= prev_col, "mpssym");
      if (col == prev_col) continue;
      C->ja[out++] = col;
      prev_col = col;
    }
    row_first = row_end;
  }
  C->ia[C->m] = out;
  C->nnz = static_cast<std::uint32_t>(out);

  for (pint u = 0; u < m;) {
    map->p[map2[u]] = u;
    u += (bit_of(pivots, u) || u + 1 >= m) ? 1 : 2;
  }
  vek_serv_free(ia0);
  vek_serv_free(ja0);
  vek_serv_free(map2);
  return 1;
}

// --- The step ---------------------------------------------------------------

template <class V>
int mpssym_order(const int *n_, pint *ia, pint *ja, const V *a,
                 const int *method, const int *threads, pint *mc64_i,
                 bvec *pivots, int *nparts, pint *ddist_mps) {
  const pint n = *n_;
  const int requested = *nparts > 0 ? *nparts : 1;
  ddist_mps[0] = 0;
  ddist_mps[1] = n - 1;
  ddist_mps[2] = n;
  ddist_mps[3] = n;
  *nparts = 1;
  if (n <= 0) return 1;

  // Records around the caller's arrays: the matrix, the matching, the list.
  // Everything made here is released on every way out; a refusal of the
  // heap returns 0 with mc64_i and ddist_mps as they were (the ranges of
  // the single part).
  perm M{static_cast<std::uint32_t>(n), mc64_i};
  perm ddist{static_cast<std::uint32_t>(2 * requested), ddist_mps};
  smat<V> *A = smat_wrap<V>(static_cast<std::uint32_t>(n),
                            static_cast<std::uint32_t>(n), ia, ja,
                            const_cast<V *>(a), 1, 0);
  perm *map = perm_new(static_cast<std::uint32_t>(n));
  perm *P = perm_new(static_cast<std::uint32_t>(n));
  smat<V> *C = nullptr;
  perm *Q = nullptr, *E = nullptr;
  pint *start = nullptr;
  int ok = A != nullptr && map != nullptr && P != nullptr && mpssym_pivots(A, &M, P, pivots);
  if (ok) {
    bool failed = false;
    smat<V> *B = with_diagonals(A, &failed);
    if (!failed) C = smat_permute(B ? B : A, P, 0);
    if (B) smat_free(B);
    ok = C != nullptr && mpssym_compress(C, pivots, map);
  }
  const pint m = ok ? static_cast<pint>(C->m) : 0;
  if (ok) {
    Q = perm_new(static_cast<std::uint32_t>(m));
    E = perm_new(static_cast<std::uint32_t>(n));
    start = pint_alloc(static_cast<std::size_t>(m) + 1, "mpssym_order: start");
    ok = Q != nullptr && E != nullptr && start != nullptr;
  }

  const int meth = *method;
  const bool dissection = meth != 0 && meth != 1;
  if (ok) {
    if (meth == 0) {
      ok = smat_order_mmd(C, Q);
    } else if (meth == 1) {
      ok = smat_order_mmd_constrained(C, Q, *threads);
    } else {
      ok = smat_order_nd(C, Q, meth == 3 ? *threads : 1, meth == 3 ? 1 : 0, &ddist);
      if (ok) {
        *nparts = static_cast<int>(ddist.n >> 1);
        if (*nparts == 0) *nparts = 1;
      }
    }
  }
  ok = ok && perm_invert(Q);  // Q->p[k]: the compressed node at place k

  if (ok) {
    // Expand: each place of the compressed order gives its node's first
    // pivot position and, for a pair, the second. start[k] is the expanded
    // position of place k.
    pint e = 0;
    for (pint k = 0; k < m; ++k) {
      start[k] = e;
      const pint i = map->p[Q->p[k]];
      E->p[e++] = i;
      if (!bit_of(pivots, i)) E->p[e++] = i + 1;
    }
    start[m] = e;

    // The ranges of the dissection, in compressed places, to expanded
    // positions: a first to the first member of its node, a last to the
    // last member, so that a range never splits a pair; a range of a single
    // node is handled like any other.
    if (dissection) {
      for (int j = 0; j < 2 * *nparts; ++j) {
        const pint c = ddist_mps[j];
        if (j & 1) {
          if (c >= -1 && c < m) ddist_mps[j] = start[c + 1] - 1;
        } else {
          if (c >= 0 && c <= m) ddist_mps[j] = start[c];
        }
      }
    }

    // Final positions: P maps each old index through its pivot position to
    // its place; the pivot bits follow. The bits move before anything
    // else changes, since only their move can still find no room.
    ok = perm_invert(E) && bvec_permute_inplace(pivots, E);
    if (ok) {
      perm_compose(P, E);
      for (pint i = 0; i < n; ++i) mc64_i[P->p[i]] = i;
    }
  }
  if (!ok) {
    // A dissection may have written its ranges: back to the single part.
    ddist_mps[0] = 0;
    ddist_mps[1] = n - 1;
    ddist_mps[2] = n;
    ddist_mps[3] = n;
    *nparts = 1;
  }

  vek_serv_free(start);
  vek_serv_free(A);  // the record only: the arrays are the caller's
  if (C) smat_free(C);
  perm_free(Q);
  perm_free(E);
  perm_free(P);
  perm_free(map);
  return ok ? 1 : 0;
}

// --- Instantiations ---------------------------------------------------------

#define TLM_MPSSYM_INSTANTIATE(V)                                              \
  template int mpssym_order<V>(const int *, pint *, pint *, const V *,         \
                               const int *, const int *, pint *, bvec *,       \
                               int *, pint *);                                 \
  template int mpssym_pivots<V>(const smat<V> *, const perm *, perm *,         \
                                bvec *);                                       \
  template int mpssym_compress<V>(smat<V> *, const bvec *, perm *);            \
  template int smat_order_mmd<V>(const smat<V> *, perm *);                     \
  template int smat_order_mmd_constrained<V>(const smat<V> *, perm *, int);    \
  template int smat_order_nd<V>(const smat<V> *, perm *, int, int, perm *);

TLM_MPSSYM_INSTANTIATE(double)
TLM_MPSSYM_INSTANTIATE(float)

#undef TLM_MPSSYM_INSTANTIATE

}  // namespace tlm
