// vek_dense_getrf.cpp - LU factorization with partial pivoting, A = P L U:
// the front under the published names, the recursive panel and the
// unblocked left-looking kernel; the oracle and the progress hook as the
// factorizations call them.
//
// The front sends small matrices and single threads to the recursive panel
// (halving its width down to the oracle's leaf, 8 columns in double
// precision), the middle sizes on eight threads to the look-ahead form, and
// the rest to the tile scheduler. The row exchanges left of a block are
// deferred to the end of each routine.
#include <cmath>
#include <limits>

#include "dense/vek_dense_lapack.h"
#include "service/vek_serv_dispatch.h"
#include "service/vek_serv_ilaenv.h"
#include "service/vek_serv_message.h"
#include "service/vek_serv_threads.h"

namespace vekd {

int ilaenv(int ispec, const char *name, char opt, int n1, int n2, int n3, int n4) {
  return vek_serv_ilaenv(&ispec, name, &opt, &n1, &n2, &n3, &n4, 6, 1);
}

namespace {
// Calls of the factorizations under way for the solver, whose own progress
// is what its caller's hook sees.
int progress_muted = 0;
}  // namespace

int progress(int thread, int step, const char *name) {
  if (__atomic_load_n(&progress_muted, __ATOMIC_RELAXED) > 0) return 0;
  return vek_serv_progress(&thread, &step, name, 6);
}

void mute_progress(int on) {
  __atomic_add_fetch(&progress_muted, on ? 1 : -1, __ATOMIC_RELAXED);
}

namespace {

template <class T>
struct lu_arith {
  typedef T real;
  static real cabs1(T x) { return std::fabs(x); }
  static real abs(T x) { return std::fabs(x); }
  static T mul(T x, T y) { return x * y; }
};

template <class R>
struct lu_arith<std::complex<R>> {
  typedef std::complex<R> T;
  typedef R real;
  // The magnitude by which the published routine chooses its pivot.
  static real cabs1(T x) { return std::fabs(x.real()) + std::fabs(x.imag()); }
  static real abs(T x) { return std::abs(x); }
  static T mul(T x, T y) {
    return T(x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real());
  }
};

template <class T>
inline void unblocked_body(int m, int n, T *a, int lda, int *ipiv, int *info) {
  typedef lu_arith<T> A;
  typedef typename A::real R;
  *info = 0;
  const R sfmin = std::numeric_limits<R>::min();
  const std::ptrdiff_t ld = lda;
  const int mn = m < n ? m : n;
  for (int j = 1; j <= mn; ++j) {
    T *cj = entry(a, lda, 1, j);
    // The pivot: the first entry of largest magnitude in rows j to m.
    int jp = j;
    R big = A::cabs1(cj[j - 1]);
    for (int i = j + 1; i <= m; ++i) {
      const R v = A::cabs1(cj[i - 1]);
      if (v > big) {
        big = v;
        jp = i;
      }
    }
    ipiv[j - 1] = jp;
    if (cj[jp - 1] != T(0)) {
      if (jp != j) {
        T *rj = a + (j - 1), *rp = a + (jp - 1);
        for (int c = 0; c < n; ++c) {
          const T t = rj[c * ld];
          rj[c * ld] = rp[c * ld];
          rp[c * ld] = t;
        }
      }
      if (j < m) {
        const T pivot = cj[j - 1];
        if (A::abs(pivot) >= sfmin) {
          const T r = T(1) / pivot;
          for (int i = j; i < m; ++i) cj[i] = A::mul(cj[i], r);
        } else {
          for (int i = j; i < m; ++i) cj[i] /= pivot;
        }
      }
    } else if (*info == 0) {
      *info = j;
    }
    // Row j of U right of the diagonal.
    if (j > 1) {
      const T *rowj = a + (j - 1);
      for (int c = j + 1; c <= n; ++c) {
        const T *uc = entry(a, lda, 1, c);
        T s = T(0);
        for (int p = 0; p < j - 1; ++p) s += A::mul(uc[p], rowj[p * ld]);
        *entry(a, lda, j, c) -= s;
      }
    }
    // The next column, before its pivot is sought: rows j + 1 to m minus
    // L(j+1:m, 1:j) U(1:j, j+1).
    if (j + 1 <= mn) {
      const T *u = entry(a, lda, 1, j + 1);
      T *t = entry(a, lda, j + 1, j + 1);
      const int len = m - j;
      int p = 0;
      for (; p + 4 <= j; p += 4) {
        const T f0 = u[p], f1 = u[p + 1], f2 = u[p + 2], f3 = u[p + 3];
        const T *s0 = entry(a, lda, j + 1, p + 1), *s1 = s0 + ld, *s2 = s1 + ld, *s3 = s2 + ld;
        for (int i = 0; i < len; ++i)
          t[i] -= (A::mul(s0[i], f0) + A::mul(s1[i], f1)) + (A::mul(s2[i], f2) + A::mul(s3[i], f3));
      }
      for (; p < j; ++p) {
        const T f = u[p];
        const T *s = entry(a, lda, j + 1, p + 1);
        for (int i = 0; i < len; ++i) t[i] -= A::mul(s[i], f);
      }
    }
  }
}

// One variant per processor type; types 6 and 7 compile the same loops for
// AVX2 with FMA.
template <class T>
void unblocked_plain(const int *m, const int *n, T *a, const int *lda, int *ipiv, int *info) {
  unblocked_body(*m, *n, a, *lda, ipiv, info);
}

template <class T>
__attribute__((target("avx2,fma"), flatten)) void unblocked_avx2(const int *m, const int *n,
                                                                 T *a, const int *lda,
                                                                 int *ipiv, int *info) {
  unblocked_body(*m, *n, a, *lda, ipiv, info);
}

}  // namespace

template <class T>
void getrf_unblocked(int m, int n, T *a, int lda, int *ipiv, int *info) {
  vek_serv_stub<unblocked_plain<T>, unblocked_plain<T>, unblocked_plain<T>,
                unblocked_plain<T>, unblocked_plain<T>, unblocked_avx2<T>,
                unblocked_avx2<T>>::call(&m, &n, a, &lda, ipiv, info);
}

template <class T>
int getrf_panel(int m, int n, T *a, int lda, int *ipiv, int *info, int thread, int offset) {
  const char *name = lapack_names<T>::getrf;
  *info = 0;
  const int mn = m < n ? m : n;
  const int nb = ilaenv(1, name, 'S', m, n, -1, -1);
  if (nb <= 1 || nb >= mn) {
    getrf_unblocked(m, n, a, lda, ipiv, info);
    return progress(thread, offset + n, name);
  }
  for (int j = 1; j <= mn; j += nb) {
    const int jb = mn - j + 1 < nb ? mn - j + 1 : nb;
    int local = 0;
    const int stop = getrf_panel(m - j + 1, jb, entry(a, lda, j, j), lda, ipiv + (j - 1),
                                 &local, thread, offset + j - 1);
    if (stop != 0) return stop;
    if (*info == 0 && local > 0) *info = local + j - 1;
    const int last = m < j + jb - 1 ? m : j + jb - 1;
    for (int i = j; i <= last; ++i) ipiv[i - 1] += j - 1;
    if (j + jb <= n) {
      const int rest = n - j - jb + 1;
      level3<T>::laswp(rest, entry(a, lda, 1, j + jb), lda, j, j + jb - 1, ipiv);
      level3<T>::trsm("L", "L", "N", "U", jb, rest, T(1), entry(a, lda, j, j), lda,
                      entry(a, lda, j, j + jb), lda);
      if (j + jb <= m)
        level3<T>::gemm("N", "N", m - j - jb + 1, rest, jb, T(-1), entry(a, lda, j + jb, j),
                        lda, entry(a, lda, j, j + jb), lda, T(1),
                        entry(a, lda, j + jb, j + jb), lda);
    }
  }
  // The exchanges of later blocks in the columns of earlier ones.
  deferred_swaps((mn - 1) / nb, nb, a, lda, mn, ipiv, 1);
  return 0;
}

namespace {

template <class T>
void getrf_front(const int *pm, const int *pn, T *a, const int *plda, int *ipiv, int *info) {
  const char *name = lapack_names<T>::getrf;
  const int m = *pm, n = *pn, lda = *plda;
  *info = 0;
  if (m < 0) *info = -1;
  else if (n < 0) *info = -2;
  else if (lda < (m > 1 ? m : 1)) *info = -4;
  if (*info != 0) {
    const int pos = -*info;
    xerbla(name, &pos, 6);
    return;
  }
  if (m == 0 || n == 0) return;
  const int mn = m < n ? m : n;
  if (n <= ilaenv(3, name, ' ', m, n, -1, -1)) {
    getrf_panel(m, n, a, lda, ipiv, info, 0, 0);
    return;
  }
  const int nthreads = factor_threads();
  if (nthreads < 2) {
    getrf_panel(m, n, a, lda, ipiv, info, 0, 0);
    return;
  }
  if (n <= ilaenv(3, name, ' ', m, n, nthreads, -1)) {
    getrf_lookahead(m, n, a, lda, ipiv, info, 0, 0);
    return;
  }
  const int nb = ilaenv(1, name, ' ', m, n, nthreads, -1);
  if (!(nb > 1 && nb < mn)) {
    getrf_unblocked(m, n, a, lda, ipiv, info);
    return;
  }
  if (getrf_tiles(m, n, a, lda, ipiv, info, nthreads, nb) == 1)
    getrf_lookahead(m, n, a, lda, ipiv, info, 0, 0);
}

}  // namespace

#define VEK_GETRF_INSTANCE(P, T)                                                           \
  template void getrf_unblocked<T>(int, int, T *, int, int *, int *);                      \
  template int getrf_panel<T>(int, int, T *, int, int *, int *, int, int);                 \
  void P##getrf(const int *m, const int *n, T *a, const int *lda, int *ipiv, int *info) {  \
    getrf_front<T>(m, n, a, lda, ipiv, info);                                              \
  }                                                                                        \
  int P##getrf_panel(const int *m, const int *n, T *a, const int *lda, int *ipiv,          \
                     int *info, const int *thread, const int *offset) {                    \
    return getrf_panel<T>(*m, *n, a, *lda, ipiv, info, *thread, *offset);                  \
  }                                                                                        \
  void P##getrf_unblocked(const int *m, const int *n, T *a, const int *lda, int *ipiv,     \
                          int *info) {                                                     \
    getrf_unblocked<T>(*m, *n, a, *lda, ipiv, info);                                       \
  }

VEK_GETRF_INSTANCE(d, double)
VEK_GETRF_INSTANCE(s, float)
VEK_GETRF_INSTANCE(z, zcomplex)
VEK_GETRF_INSTANCE(c, ccomplex)

}  // namespace vekd
