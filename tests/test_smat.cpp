// The preprocessing toolkit: compressed-row matrices, bit vectors and
// permutations, checked against dense references on random matrices.
#include <gtest/gtest.h>
#include <unistd.h>

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

TEST(Smat, EmptyMatrixExpandsTransposesAndFrees) {
  smat<double> *A = tlm::smat_new_header<double>(0, 0, 1);
  smat<double> *E = tlm::smat_expand(A, 1, nullptr);
  EXPECT_EQ(E->ja, nullptr);
  tlm::smat_expand_inplace(A, 1, nullptr);
  EXPECT_EQ(A->ja, nullptr);
  smat<double> *T = tlm::smat_transpose(A);
  EXPECT_EQ(T->nnz, 0u);
  for (smat<double> *X : {A, E, T}) tlm::smat_free(X);
}

TEST(Smat, TransposeMatchesTheDenseTranspose) {
  std::mt19937 rng(5);
  for (int trial = 0; trial < 6; ++trial) {
    const int m = 1 + trial * 7, n = 3 + trial * 5;
    smat<double> *A = random_matrix<double>(rng, m, n, 0.25, false);
    entry_map want;
    for (auto &e : entries(A)) want[{e.first.second, e.first.first}] = e.second;
    smat<double> *T = tlm::smat_transpose(A);
    EXPECT_EQ(T->m, unsigned(n));
    EXPECT_TRUE(rows_sorted(T));
    EXPECT_EQ(entries(T), want);
    tlm::smat_transpose_inplace(A);
    EXPECT_EQ(A->m, unsigned(n));
    EXPECT_EQ(A->n, unsigned(m));
    EXPECT_EQ(entries(A), want);
    tlm::smat_free(A);
    tlm::smat_free(T);
  }
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
    EXPECT_EQ(tlm::smat_check(T), 1);

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

// --- Split, column view, values ----------------------------------------------

TEST(Smat, SplitDividesIntoFourBlocks) {
  std::mt19937 rng(29);
  const int m = 20;
  for (int k : {0, 7, 20}) {
    smat<double> *A = random_matrix<double>(rng, m, m, 0.3, true);
    smat<double> *B[4];
    tlm::smat_split(A, k, &B[0], &B[1], &B[2], &B[3]);
    entry_map want[4];
    for (auto &e : entries(A)) {
      int i = e.first.first, j = e.first.second;
      want[(i < k ? 0 : 2) + (j < k ? 0 : 1)][{i < k ? i : i - k, j < k ? j : j - k}] = e.second;
    }
    for (int b = 0; b < 4; ++b) {
      EXPECT_EQ(B[b]->m, unsigned(b < 2 ? k : m - k));
      EXPECT_EQ(B[b]->n, unsigned(b % 2 ? m - k : k));
      EXPECT_EQ(B[b]->nnz, unsigned(want[b].size()));
      EXPECT_EQ(entries(B[b]), want[b]) << "block " << b << " k " << k;
      tlm::smat_free(B[b]);
    }
    tlm::smat_split<double>(A, k, &B[0], &B[1], nullptr, nullptr);
    EXPECT_EQ(entries(B[1]), want[1]);
    tlm::smat_free(B[0]);
    tlm::smat_free(B[1]);
    tlm::smat_free(A);
  }
}

TEST(Smat, ColumnIndexListsRowsAscendingWithPositions) {
  std::mt19937 rng(31);
  smat<double> *A = random_matrix<double>(rng, 40, 40, 0.1, false);
  tlm::smat_col_index<double> *ci = tlm::smat_col_index_new(A);
  std::set<std::pair<int, int>> seen;
  for (int c = 0; c < 40; ++c) {
    for (pint q = ci->col_start[c]; q < ci->col_start[c + 1]; ++q) {
      if (q > ci->col_start[c]) {
        EXPECT_LT(ci->row[q - 1], ci->row[q]);
      }
      const pint k = ci->pos[q], i = ci->row[q];
      EXPECT_EQ(A->ja[k], c);
      EXPECT_TRUE(A->ia[i] <= k && k < A->ia[i + 1]);
      seen.insert({i, c});
    }
  }
  EXPECT_EQ(seen.size(), size_t(A->nnz));
  tlm::smat_col_index_free(ci);
  tlm::smat_free(A);
}

TEST(Smat, ValueOperations) {
  // Rows (2 . -3), (. 0 4), (5 . 1) with an explicit zero, row 2 unsorted.
  smat<double> *A = make<double>(3, 3, {{{0, 2}, {2, -3}}, {{1, 0}, {2, 4}}, {{2, 1}, {0, 5}}}, 0);
  double d[3] = {-1, -1, -1};
  tlm::smat_get_diag(A, d);
  EXPECT_EQ(std::vector<double>(d, d + 3), (std::vector<double>{2, 0, 1}));
  smat<double> *L = tlm::smat_log_abs(A);
  const entry_map want = {{{0, 0}, std::log(2.0)}, {{0, 2}, std::log(3.0)}, {{1, 2}, std::log(4.0)},
                          {{2, 2}, 0.0},           {{2, 0}, std::log(5.0)}};
  EXPECT_EQ(entries(L), want);  // the zero is gone

  const double r[3] = {1, 2, 3}, c[3] = {10, 20, 30};
  const double lr[3] = {0, std::log(2.0), 0}, lc[3] = {0, 0, std::log(0.5)};
  tlm::smat_scale(A, r, c);
  tlm::smat_scale_exp(A, lr, lc);
  entry_map e = entries(A);
  EXPECT_DOUBLE_EQ((e[{0, 2}]), -3 * 30 * 0.5);
  EXPECT_DOUBLE_EQ((e[{1, 2}]), 4 * 30 * 2);  // exp(log 2 + log 0.5) = 1
  EXPECT_DOUBLE_EQ((e[{2, 0}]), 5 * 10 * 3);
  tlm::smat_sort_row(A, 2, 1);
  EXPECT_EQ(A->ja[4], 0);
  EXPECT_DOUBLE_EQ(A->a[4], 150);
  tlm::smat_free(A);
  tlm::smat_free(L);
}

TEST(Smat, WrapOfOneBasedArraysAndBack) {
  pint ia[] = {1, 3, 4, 5}, ja[] = {1, 3, 2, 3};
  double a[] = {1, 2, 3, 4};
  smat<double> *A = tlm::smat_wrap<double>(3, 3, ia, ja, a, 1, 1);
  EXPECT_EQ(A->nnz, 4u);
  EXPECT_EQ(ia[3], 4);
  EXPECT_EQ(ja[1], 2);
  EXPECT_EQ(tlm::smat_check(A), 1);
  tlm::smat_to_base1(A);
  EXPECT_EQ(ia[3], 5);
  EXPECT_EQ(ja[1], 3);
  vek_serv_free(A);  // the record only: the arrays are ours
}

TEST(Smat, ChecksRefuseTheUnsoundForms) {
  // Rows (0 2 3), (1), (2 3), (3): sound both as a full pattern and as an
  // upper triangle.
  const row_list rows = {{{0, 1}, {2, 1}, {3, 1}}, {{1, 1}}, {{2, 1}, {3, 1}}, {{3, 1}}};
  for (int sym : {0, 1}) {
    smat<double> *A = make<double>(4, 4, rows, sym);
    EXPECT_EQ(tlm::smat_check(A), 1);
    // Each change alone makes the matrix unsound; it is undone afterwards.
    auto refused = [&](std::vector<std::pair<pint *, pint>> changes, const char *what) {
      std::vector<pint> keep;
      for (auto &c : changes) keep.push_back(*c.first), *c.first = c.second;
      EXPECT_EQ(tlm::smat_check(A), 0) << what << ", sym " << sym;
      for (size_t k = 0; k < changes.size(); ++k) *changes[k].first = keep[k];
    };
    refused({{&A->ja[3], 2}}, "row 1 without its diagonal");
    refused({{&A->ja[2], 1}}, "falling columns");
    refused({{&A->ja[1], 4}, {&A->ja[2], 5}}, "a column beyond n before the last");
    refused({{&A->ia[2], 3}}, "an empty row");
    A->ia[2] = 3;
    EXPECT_EQ(tlm::smat_check_ia(A), 0);
    A->ia[2] = 4;
    A->nnz = 8;  // ia does not end with nnz
    EXPECT_EQ(tlm::smat_check_ia(A), 0);
    A->nnz = 7;
    tlm::smat_free(A);
  }
  // An entry below the diagonal is refused only with sym set.
  smat<double> *L = make<double>(2, 2, {{{0, 1}}, {{0, 1}, {1, 1}}}, 0);
  EXPECT_EQ(tlm::smat_check(L), 1);
  L->sym = 1;
  EXPECT_EQ(tlm::smat_check_upper(L), 0);
  EXPECT_EQ(tlm::smat_check(L), 0);
  tlm::smat_free(L);
}

TEST(SmatDeathTest, ContractsStopWithUnitLineAndText) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  smat<double> *A = tlm::smat_new_header<double>(3, 3, 0);
  tlm::perm *P = tlm::perm_new(4);
  EXPECT_DEATH((dup2(2, 1), tlm::smat_permute(A, P, 0)),
               "Assertion failed: smat:[0-9]+: src->m == perm->n");
  tlm::bvec *bv = tlm::bvec_new(5);
  EXPECT_DEATH((dup2(2, 1), tlm::bvec_set(bv, 5)), "Assertion failed: bitvec:[0-9]+: bit < bv->size");
  tlm::bvec_free(bv);
  tlm::perm_free(P);
  tlm::smat_free(A);
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
  tlm::bvec_clear(b, 31);
  EXPECT_EQ(tlm::bvec_get(b, 31), 0);
  EXPECT_EQ(tlm::bvec_get(b, 32), 1);

  std::mt19937 rng(41);
  const ivec p = random_perm(rng, 33);
  tlm::perm *P = tlm::perm_new_from(33, p.data());
  tlm::bvec *q = tlm::bvec_permute(b, P);
  for (int i = 0; i < 33; ++i) EXPECT_EQ(tlm::bvec_get(q, p[i]), tlm::bvec_get(b, i)) << i;
  tlm::bvec_permute_inplace(b, P);
  EXPECT_TRUE(b->v[0] == q->v[0] && b->v[1] == q->v[1]);

  // A wrapped vector works on the caller's words and leaves them when freed.
  std::uint32_t words[2] = {5, 0};
  tlm::bvec *w = tlm::bvec_wrap(40, words);
  EXPECT_EQ(tlm::bvec_get(w, 2), 1);
  tlm::bvec_set(w, 39);
  tlm::bvec_free(w);
  EXPECT_EQ(words[1], 0x80u);
  for (tlm::bvec *x : {b32, b, q}) tlm::bvec_free(x);
  tlm::perm_free(P);
}

TEST(Perm, ComposeInvertAndReverse) {
  std::mt19937 rng(43);
  const int n = 25;
  const ivec a = random_perm(rng, n), b = random_perm(rng, n);
  tlm::perm *A = tlm::perm_new_from(n, a.data()), *B = tlm::perm_new_from(n, b.data());
  tlm::perm_compose(A, B);
  tlm::perm *C = tlm::perm_copy(nullptr, B);
  tlm::perm_compose(C, C);  // aliased: b o b
  for (int i = 0; i < n; ++i) {
    EXPECT_EQ(A->p[i], b[a[i]]);
    EXPECT_EQ(C->p[i], b[b[i]]);
  }
  EXPECT_EQ(tlm::perm_equal(C, B), 0);

  tlm::perm *I = tlm::perm_inverse(nullptr, B);
  for (int i = 0; i < n; ++i) EXPECT_EQ(I->p[b[i]], i);
  tlm::perm_invert(I);
  EXPECT_EQ(tlm::perm_equal(I, B), 1);
  tlm::perm_inverse(I, I);
  tlm::perm_compose(I, B);
  for (int i = 0; i < n; ++i) EXPECT_EQ(I->p[i], i);

  tlm::perm_reverse(B);
  for (int i = 0; i < n; ++i) EXPECT_EQ(B->p[i], b[n - 1 - i]);
  tlm::perm_copy(C, B);
  EXPECT_EQ(tlm::perm_equal(C, B), 1);
  for (tlm::perm *X : {A, B, C, I}) tlm::perm_free(X);
  tlm::perm_free(nullptr);
}

TEST(Perm, CyclesInOrderOfTheirSmallestElement) {
  // 0 -> 4 -> 2 -> 0, 1 fixed, 3 <-> 6, 5 -> 7 -> 8 -> 5.
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
