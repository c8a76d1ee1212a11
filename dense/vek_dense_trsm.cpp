// vek_dense_trsm.cpp - the triangular solve with many right-hand sides.
//
// The variant of a processor type solves recursively: the triangle is cut
// in two, one half solved, the other half's right-hand sides updated by the
// whole product of the same type, and the other half solved. The product
// does nearly all the work; the leaves, triangles of at most 32 rows, are
// solved by substitution (not by their inverses, which lose accuracy on
// ill-conditioned triangles). The columns of B (side L) or its rows (side R)
// are independent, so the variant works on chunks of them, small enough
// for the chunk to stay in the cache through the recursion. The frame splits
// the same dimension among threads.
#include <omp.h>

#include <algorithm>
#include <cstdint>

#include "dense/vek_dense_level3.h"
#include "service/vek_serv_dispatch.h"

namespace vekd {
namespace {

const int VEK_TRSM_LEAF = 32;
const int VEK_TRSM_CHUNK = 1024;

template <class T>
T conj_value(T x) { return x; }
template <class R>
std::complex<R> conj_value(std::complex<R> x) { return std::conj(x); }

// The triangle as the solve sees it: op(A)(i, j), with the unit diagonal.
template <class T>
struct tri {
  const T *a;
  int lda;
  bool trans, conj, unit;
  T at(int i, int j) const {
    T v = trans ? a[j + static_cast<std::ptrdiff_t>(i) * lda]
                : a[i + static_cast<std::ptrdiff_t>(j) * lda];
    return conj ? conj_value(v) : v;
  }
  tri shifted(int d) const {
    tri t = *this;
    t.a = a + d + static_cast<std::ptrdiff_t>(d) * lda;
    return t;
  }
};

// A leaf triangle copied out: op(A)(r, i) at t[r + i*VEK_TRSM_LEAF], the
// diagonal (ones for a unit diagonal) in d. The solves divide by it, as a
// substitution should: a product with the reciprocal rounds twice.
template <class T>
void copy_leaf(const tri<T> &t, int m, T *l, T *d) {
  for (int i = 0; i < m; ++i) {
    for (int r = 0; r < m; ++r) l[r + i * VEK_TRSM_LEAF] = t.at(r, i);
    d[i] = t.unit ? T(1) : t.at(i, i);
  }
}

// op(A) X = B on a leaf, op(A) lower (forward) or upper, column by column.
template <class T>
void left_leaf(const tri<T> &t, bool forward, int m, int n, T *b, int ldb) {
  T l[VEK_TRSM_LEAF * VEK_TRSM_LEAF], d[VEK_TRSM_LEAF];
  copy_leaf(t, m, l, d);
  for (int j = 0; j < n; ++j) {
    T *x = b + static_cast<std::ptrdiff_t>(j) * ldb;
    if (forward) {
      for (int i = 0; i < m; ++i) {
        const T xi = x[i] / d[i];
        x[i] = xi;
        const T *li = l + i * VEK_TRSM_LEAF;
        for (int r = i + 1; r < m; ++r) x[r] -= li[r] * xi;
      }
    } else {
      for (int i = m - 1; i >= 0; --i) {
        const T xi = x[i] / d[i];
        x[i] = xi;
        const T *li = l + i * VEK_TRSM_LEAF;
        for (int r = 0; r < i; ++r) x[r] -= li[r] * xi;
      }
    }
  }
}

// X op(A) = B on a leaf, op(A) upper (forward through the columns) or lower.
template <class T>
void right_leaf(const tri<T> &t, bool forward, int m, int n, T *b, int ldb) {
  T l[VEK_TRSM_LEAF * VEK_TRSM_LEAF], d[VEK_TRSM_LEAF];
  copy_leaf(t, n, l, d);
  for (int s = 0; s < n; ++s) {
    const int j = forward ? s : n - 1 - s;
    T *xj = b + static_cast<std::ptrdiff_t>(j) * ldb;
    const int r0 = forward ? 0 : j + 1, r1 = forward ? j : n;
    for (int r = r0; r < r1; ++r) {
      const T f = l[r + j * VEK_TRSM_LEAF];
      const T *xr = b + static_cast<std::ptrdiff_t>(r) * ldb;
      for (int i = 0; i < m; ++i) xj[i] -= xr[i] * f;
    }
    if (!t.unit) {
      const T dj = d[j];
      for (int i = 0; i < m; ++i) xj[i] /= dj;
    }
  }
}

// Address of the off-diagonal block of op(A) that couples the halves m1 and
// m - m1: below the first half's diagonal block for a lower op(A), right of
// it for an upper one, read through transa.
template <class T>
const T *coupling(const tri<T> &t, bool lower, int m1) {
  const bool below = lower != t.trans;
  return below ? t.a + m1 : t.a + static_cast<std::ptrdiff_t>(m1) * t.lda;
}

template <class T>
void left_rec(const kernel_set<T> &s, char transa, const tri<T> &t, bool forward, int m,
              int n, T *b, int ldb) {
  if (m <= VEK_TRSM_LEAF) {
    left_leaf(t, forward, m, n, b, ldb);
    return;
  }
  const int m1 = std::max(VEK_TRSM_LEAF, (m / 2) / VEK_TRSM_LEAF * VEK_TRSM_LEAF);
  const int m2 = m - m1;
  const T *off = coupling(t, forward, m1);
  if (forward) {
    left_rec(s, transa, t, true, m1, n, b, ldb);
    gemm_whole(s, transa, 'N', m2, n, m1, T(-1), off, t.lda, b, ldb, T(1), b + m1, ldb);
    left_rec(s, transa, t.shifted(m1), true, m2, n, b + m1, ldb);
  } else {
    left_rec(s, transa, t.shifted(m1), false, m2, n, b + m1, ldb);
    gemm_whole(s, transa, 'N', m1, n, m2, T(-1), off, t.lda, b + m1, ldb, T(1), b, ldb);
    left_rec(s, transa, t, false, m1, n, b, ldb);
  }
}

template <class T>
void right_rec(const kernel_set<T> &s, char transa, const tri<T> &t, bool forward, int m,
               int n, T *b, int ldb) {
  if (n <= VEK_TRSM_LEAF) {
    right_leaf(t, forward, m, n, b, ldb);
    return;
  }
  const int n1 = std::max(VEK_TRSM_LEAF, (n / 2) / VEK_TRSM_LEAF * VEK_TRSM_LEAF);
  const int n2 = n - n1;
  // forward: op(A) upper, its block right of the first diagonal block.
  const T *off = coupling(t, !forward, n1);
  T *b2 = b + static_cast<std::ptrdiff_t>(n1) * ldb;
  if (forward) {
    right_rec(s, transa, t, true, m, n1, b, ldb);
    gemm_whole(s, 'N', transa, m, n2, n1, T(-1), b, ldb, off, t.lda, T(1), b2, ldb);
    right_rec(s, transa, t.shifted(n1), true, m, n2, b2, ldb);
  } else {
    right_rec(s, transa, t.shifted(n1), false, m, n2, b2, ldb);
    gemm_whole(s, 'N', transa, m, n1, n2, T(-1), b2, ldb, off, t.lda, T(1), b, ldb);
    right_rec(s, transa, t, false, m, n1, b, ldb);
  }
}

inline bool is(char c, char upper) { return c == upper || c == upper + ('a' - 'A'); }

}  // namespace

template <class T>
void trsm_whole(const kernel_set<T> &s, char side, char uplo, char transa, char diag,
                int m, int n, T alpha, const T *a, int lda, T *b, int ldb) {
  if (m <= 0 || n <= 0) return;
  if (alpha == T(0)) {
    scale_block(m, n, T(0), b, ldb);
    return;
  }
  scale_block(m, n, alpha, b, ldb);
  tri<T> t{a, lda, !is(transa, 'N'), is(transa, 'C'), is(diag, 'U')};
  const char ta = t.trans ? (t.conj ? 'C' : 'T') : 'N';
  const bool lower_op = is(uplo, 'L') != t.trans;
  if (is(side, 'L')) {
    for (int j = 0; j < n; j += VEK_TRSM_CHUNK)
      left_rec(s, ta, t, lower_op, m, std::min(VEK_TRSM_CHUNK, n - j),
               b + static_cast<std::ptrdiff_t>(j) * ldb, ldb);
  } else {
    for (int i = 0; i < m; i += VEK_TRSM_CHUNK)
      right_rec(s, ta, t, !lower_op, std::min(VEK_TRSM_CHUNK, m - i), n, b + i, ldb);
  }
}

namespace {

template <class T, int TYPE>
void trsm_variant(const char *side, const char *uplo, const char *transa, const char *diag,
                  const int *m, const int *n, const T *alpha, const T *a, const int *lda,
                  T *b, const int *ldb, std::size_t, std::size_t, std::size_t, std::size_t) {
  trsm_whole(kernel_set_of<T>(TYPE), *side, *uplo, *transa, *diag, *m, *n, *alpha, a, *lda,
             b, *ldb);
}

template <class T>
void trsm_stub(const char *side, const char *uplo, const char *transa, const char *diag,
               int m, int n, const T *alpha, const T *a, const int *lda, T *b,
               const int *ldb) {
  vek_serv_stub<trsm_variant<T, 0>, trsm_variant<T, 2>, trsm_variant<T, 3>,
                trsm_variant<T, 4>, trsm_variant<T, 5>, trsm_variant<T, 6>,
                trsm_variant<T, 7>>::call(side, uplo, transa, diag, &m, &n, alpha, a, lda,
                                          b, ldb, 1, 1, 1, 1);
}

// The frame: the independent dimension of B split among threads, when each
// thread gets enough of it for the product inside to pay.
template <class T>
void trsm_frame(const char *side, const char *uplo, const char *transa, const char *diag,
                const int *m, const int *n, const T *alpha, const T *a, const int *lda,
                T *b, const int *ldb) {
  if (*n <= 0) return;
  const bool left = is(*side, 'L');
  const int order = left ? *m : *n, extent = left ? *n : *m;
  int nthreads = dense_threads();
  if (*m < 17 && *n < 17) nthreads = 1;
  // Work of a share against the cost of a thread, as for the product.
  const double share_work = double(order) * order * (double(extent) / std::max(nthreads, 1));
  if (share_work < 2.0e5 || extent / std::max(nthreads, 1) < 8) nthreads = 1;
  if (nthreads < 2) {
    trsm_stub(side, uplo, transa, diag, *m, *n, alpha, a, lda, b, ldb);
    return;
  }
#pragma omp parallel num_threads(nthreads)
  {
    const int got = omp_get_num_threads(), t = omp_get_thread_num();
    const int first = int(std::int64_t(extent) * t / got);
    const int last = int(std::int64_t(extent) * (t + 1) / got);
    if (last > first) {
      if (left) {
        trsm_stub(side, uplo, transa, diag, *m, last - first, alpha, a, lda,
                  b + static_cast<std::ptrdiff_t>(first) * *ldb, ldb);
      } else {
        trsm_stub(side, uplo, transa, diag, last - first, *n, alpha, a, lda, b + first, ldb);
      }
    }
  }
}

}  // namespace

#define VEK_TRSM_INSTANCE(P, T)                                                         \
  template void trsm_whole<T>(const kernel_set<T> &, char, char, char, char, int, int, T,  \
                              const T *, int, T *, int);                                 \
  void P##trsm(const char *side, const char *uplo, const char *transa, const char *diag, \
               const int *m, const int *n, const T *alpha, const T *a, const int *lda,   \
               T *b, const int *ldb, std::size_t, std::size_t, std::size_t,              \
               std::size_t) {                                                            \
    trsm_frame<T>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);               \
  }

VEK_TRSM_INSTANCE(d, double)
VEK_TRSM_INSTANCE(s, float)
VEK_TRSM_INSTANCE(z, zcomplex)
VEK_TRSM_INSTANCE(c, ccomplex)

}  // namespace vekd
