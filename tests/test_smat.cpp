// The preprocessing toolkit: compressed-row matrices, bit vectors and
// permutations, checked against dense references on random matrices. (The
// toolkit's functions that the library does not call are left out.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "bitvec.h"
#include "perm.h"
#include "service/vek_serv_memory.h"
#include "smat.h"
#include "telmira_storage.h"

namespace {

using tlm::pint;
using tlm::smat;
typedef std::vector<int> ivec;
typedef std::map<std::pair<int, int>, double> entry_map;
typedef std::vector<std::vector<std::pair<int, double>>> row_list;

// A matrix from rows of (column, value), in the toolkit's allocation.
template <class V> smat<V> *make(int m, int n, const row_list &rows, int sym) {
  int nnz = 0;
  for (auto &r : rows) nnz += static_cast<int>(r.size());
  smat<V> *A = tlm::smat_new_pattern<V>(m, n, nnz, sym);
  if (nnz > 0) A->a = static_cast<V *>(mem_alloc(nnz * sizeof(V), "a"));
  int k = 0;
  for (int i = 0; i < m; ++i) {
    for (auto &e : rows[i]) A->ja[k] = e.first, A->a[k++] = static_cast<V>(e.second);
    A->ia[i + 1] = k;
  }
  return A;
}

// Random matrix with sorted rows and a distinct value per entry; upper:
// the upper triangle of a symmetric one, diagonal first.
template <class V>
smat<V> *random_matrix(std::mt19937 &rng, int m, int n, double density, bool diagonal,
                       bool upper = false) {
  std::uniform_real_distribution<double> u(0, 1);
  row_list rows(m);
  double next = 1;
  for (int i = 0; i < m; ++i)
    for (int j = upper ? i : 0; j < n; ++j)
      if ((diagonal && i == j) || u(rng) < density) rows[i].push_back({j, next++});
  return make<V>(m, n, rows, upper ? 1 : 0);
}

// The entries of A by (row, column); a duplicate fails the test.
template <class V> entry_map entries(const smat<V> *A) {
  entry_map e;
  for (unsigned i = 0; i < A->m; ++i)
    for (pint k = A->ia[i]; k < A->ia[i + 1]; ++k)
      EXPECT_TRUE(e.emplace(std::make_pair(int(i), int(A->ja[k])), A->a ? double(A->a[k]) : 1.0).second)
          << "duplicate (" << i << "," << A->ja[k] << ")";
  return e;
}

entry_map mirrored(const entry_map &upper) {
  entry_map full = upper;
  for (auto &e : upper) full[{e.first.second, e.first.first}] = e.second;
  return full;
}

std::set<std::pair<int, int>> pattern_of(const entry_map &e) {
  std::set<std::pair<int, int>> s;
  for (auto &x : e) s.insert(x.first);
  return s;
}

template <class V> bool rows_sorted(const smat<V> *A) {
  for (unsigned i = 0; i < A->m; ++i)
    for (pint k = A->ia[i] + 1; k < A->ia[i + 1]; ++k)
      if (A->ja[k - 1] >= A->ja[k]) return false;
  return true;
}

ivec random_perm(std::mt19937 &rng, int n) {
  ivec p(n);
  std::iota(p.begin(), p.end(), 0);
  std::shuffle(p.begin(), p.end(), rng);
  return p;
}

template <class V> struct Typed : ::testing::Test {};
typedef ::testing::Types<double, float> value_types;
TYPED_TEST_SUITE(Typed, value_types);

// --- Expansion, transpose, permutation ---------------------------------------

TYPED_TEST(Typed, ExpandGivesBothTrianglesSortedWithTheMap) {
  typedef TypeParam V;
  std::mt19937 rng(11);
  smat<V> *Z = tlm::smat_new_header<V>(0, 0, 1);  // empty: no arrays come or go
  smat<V> *ZE = tlm::smat_expand(Z, 1, nullptr);
  EXPECT_EQ(ZE->ja, nullptr);
  tlm::smat_expand_inplace(Z, 1, nullptr);
  EXPECT_EQ(Z->ja, nullptr);
  tlm::smat_free(Z);
  tlm::smat_free(ZE);
  for (int m : {1, 7, 60}) {
    smat<V> *A = random_matrix<V>(rng, m, m, 0.2, true, true);
    std::vector<pint> map(2 * A->nnz - m), map2(map.size());
    smat<V> *E = tlm::smat_expand(A, 1, map.data());
    ASSERT_EQ(E->nnz, 2 * A->nnz - m);
    EXPECT_EQ(E->sym, 0u);
    EXPECT_TRUE(rows_sorted(E));
    EXPECT_EQ(entries(E), mirrored(entries(A)));
    for (unsigned k = 0; k < E->nnz; ++k) EXPECT_EQ(E->a[k], A->a[map[k]]);

    // In place: the same arrays and map; without values the values go.
    smat<V> *B = tlm::smat_clone(A), *C = tlm::smat_clone(A);
    tlm::smat_expand_inplace(B, 1, map2.data());
    tlm::smat_expand_inplace(C, 0, nullptr);
    EXPECT_EQ(map2, map);
    ASSERT_EQ(B->nnz, E->nnz);
    EXPECT_TRUE(std::equal(E->ia, E->ia + m + 1, B->ia));
    EXPECT_TRUE(std::equal(E->ja, E->ja + E->nnz, B->ja));
    EXPECT_TRUE(std::equal(E->a, E->a + E->nnz, B->a));
    EXPECT_TRUE(std::equal(E->ja, E->ja + E->nnz, C->ja));
    EXPECT_EQ(C->a, nullptr);
    for (smat<V> *X : {A, E, B, C}) tlm::smat_free(X);
  }
  // An unsymmetric matrix: a copy with the identity map, left alone in place.
  smat<V> *A = random_matrix<V>(rng, 9, 9, 0.3, true);
  const entry_map before = entries(A);
  std::vector<pint> map(A->nnz, -1);
  smat<V> *E = tlm::smat_expand(A, 1, map.data());
  tlm::smat_expand_inplace(A, 1, nullptr);
  EXPECT_EQ(entries(E), before);
  EXPECT_EQ(entries(A), before);
  for (unsigned k = 0; k < A->nnz; ++k) EXPECT_EQ(map[k], pint(k));
  tlm::smat_free(A);
  tlm::smat_free(E);
}

TYPED_TEST(Typed, PermuteIsPAPTransposed) {
  typedef TypeParam V;
  std::mt19937 rng(17);
  for (int m : {1, 8, 45}) {
    const ivec p = random_perm(rng, m);
    tlm::perm *P = tlm::perm_new_from(m, p.data());
    smat<V> *A = random_matrix<V>(rng, m, m, 0.2, false);
    entry_map want;
    for (auto &e : entries(A)) want[{p[e.first.first], p[e.first.second]}] = e.second;
    smat<V> *B = tlm::smat_permute(A, P, 1);
    EXPECT_TRUE(rows_sorted(B));
    EXPECT_EQ(entries(B), want);

    // Symmetric: the upper triangle of P A P^T, again diagonal first.
    smat<V> *S = random_matrix<V>(rng, m, m, 0.2, true, true);
    entry_map swant;
    for (auto &e : mirrored(entries(S)))
      if (p[e.first.first] <= p[e.first.second]) swant[{p[e.first.first], p[e.first.second]}] = e.second;
    smat<V> *T = tlm::smat_permute(S, P, 1);
    EXPECT_EQ(T->sym, 1u);
    EXPECT_EQ(T->nnz, S->nnz);
    EXPECT_EQ(entries(T), swant);

    // The identity leaves a sorted matrix as it is.
    tlm::perm_identity(P);
    smat<V> *I = tlm::smat_permute(S, P, 0);
    EXPECT_EQ(I->a, nullptr);
    EXPECT_EQ(pattern_of(entries(I)), pattern_of(entries(S)));
    for (smat<V> *X : {A, B, S, T, I}) tlm::smat_free(X);
    tlm::perm_free(P);
  }
}

TEST(Smat, MakeStructSymAndAdjacencyAgreeWithTheDenseUnion) {
  std::mt19937 rng(23);
  for (int trial = 0; trial < 5; ++trial) {
    const int m = 5 + 13 * trial;
    // Unsymmetric with some rows lacking their diagonal, or an upper
    // triangle standing for the full matrix.
    const bool upper = trial == 4;
    smat<double> *A = random_matrix<double>(rng, m, m, 0.15, upper, upper);
    auto want = pattern_of(mirrored(entries(A)));
    std::set<std::pair<int, int>> adj_want, adj;
    for (auto &e : want)
      if (e.first != e.second) adj_want.insert(e);

    pint *xadj = nullptr, *adjncy = nullptr;
    tlm::smat_adjacency(A, &xadj, &adjncy);
    for (int i = 0; i < m; ++i)
      for (pint k = xadj[i]; k < xadj[i + 1]; ++k) adj.insert({i, adjncy[k]});
    EXPECT_EQ(xadj[m], pint(adj_want.size()));
    EXPECT_EQ(adj, adj_want);

    tlm::smat_make_struct_sym(A);
    EXPECT_TRUE(rows_sorted(A));
    EXPECT_EQ(pattern_of(entries(A)), want);
    EXPECT_EQ(A->sym, 0u);
    tlm::smat_free(A);
    vek_serv_free(xadj);
    vek_serv_free(adjncy);
  }
}

// --- Bit vectors and permutations ---------------------------------------------

TEST(Bvec, WordsBitsAndPermutation) {
  tlm::bvec *b32 = tlm::bvec_new(32), *b = tlm::bvec_new(33);
  EXPECT_EQ(b32->nwords, 1u);
  EXPECT_EQ(b->nwords, 2u);
  EXPECT_EQ(b->v[0] | b->v[1], 0u);
  for (unsigned bit : {0u, 31u, 32u}) tlm::bvec_set(b, bit);
  EXPECT_EQ(b->v[0], 0x80000001u);
  EXPECT_EQ(b->v[1], 1u);
  EXPECT_EQ(tlm::bvec_get(b, 31), 1);
  EXPECT_EQ(tlm::bvec_get(b, 30), 0);

  std::mt19937 rng(41);
  const ivec p = random_perm(rng, 33);
  tlm::perm *P = tlm::perm_new_from(33, p.data());
  ivec before;
  for (int i = 0; i < 33; ++i) before.push_back(tlm::bvec_get(b, i));
  tlm::bvec_permute_inplace(b, P);
  for (int i = 0; i < 33; ++i) EXPECT_EQ(tlm::bvec_get(b, p[i]), before[i]) << i;
  for (tlm::bvec *x : {b32, b}) tlm::bvec_free(x);
  tlm::perm_free(P);
}

TEST(Perm, ComposeInvertAndCycles) {
  std::mt19937 rng(43);
  const int n = 25;
  const ivec a = random_perm(rng, n), b = random_perm(rng, n);
  tlm::perm *A = tlm::perm_new_from(n, a.data()), *B = tlm::perm_new_from(n, b.data());
  tlm::perm *C = tlm::perm_new_from(n, b.data());
  tlm::perm_compose(A, B);
  tlm::perm_compose(C, C);  // aliased: b o b
  for (int i = 0; i < n; ++i) {
    EXPECT_EQ(A->p[i], b[a[i]]);
    EXPECT_EQ(C->p[i], b[b[i]]);
  }
  tlm::perm *I = tlm::perm_inverse(nullptr, B);
  for (int i = 0; i < n; ++i) EXPECT_EQ(I->p[b[i]], i);
  tlm::perm_invert(I);
  EXPECT_EQ(ivec(I->p, I->p + n), b);
  tlm::perm_inverse(I, I);  // aliased
  tlm::perm_compose(I, B);
  for (int i = 0; i < n; ++i) EXPECT_EQ(I->p[i], i);
  for (tlm::perm *X : {A, B, C, I}) tlm::perm_free(X);
  tlm::perm_free(nullptr);

  // Cycles in the order of their smallest element: 0 -> 4 -> 2 -> 0, 1
  // fixed, 3 <-> 6, 5 -> 7 -> 8 -> 5.
  const pint p[] = {4, 1, 0, 6, 2, 7, 3, 8, 5};
  tlm::perm *P = tlm::perm_new_from(9, p);
  tlm::perm_cycle_set *c = tlm::perm_cycles(P);
  ASSERT_EQ(c->count, 4);
  EXPECT_EQ(ivec(c->starts, c->starts + 5), (ivec{0, 3, 4, 6, 9}));
  EXPECT_EQ(ivec(c->elements, c->elements + 9), (ivec{0, 4, 2, 1, 3, 6, 5, 7, 8}));
  tlm::perm_cycle_set_free(c);
  tlm::perm_free(P);
}

}  // namespace
