// vek_dense_potf2.cpp - the unblocked Cholesky factorization, upper
// (A = U^H U) and lower (A = L L^H), of real symmetric and complex Hermitian
// matrices: the published left-looking form, one column (row) at a time.
//
// Column j of L takes the updates of all columns before it in one pass
// (lower form: four source columns at a time, so that the target is read
// and written once per four); row j of U takes them as products of columns
// (upper form: partial sums in eight lanes, which the compiler keeps in
// vector registers). The pivot must be above 0: a zero, negative or NaN
// value is stored on the diagonal, info is set to its column and the
// routine ends. A complex matrix's diagonal is taken as real.
//
// One variant per processor type through a dispatch stub; types 6 and 7
// compile the same loops for AVX2 with FMA.
#include <cmath>

#include "dense/vek_dense_lapack.h"
#include "service/vek_serv_dispatch.h"
#include "service/vek_serv_message.h"

namespace vekd {
namespace {

template <class T>
struct arith {
  typedef T real;
  static real re(T x) { return x; }
  static real norm(T x) { return x * x; }
  // conj(x) y
  static T cmul(T x, T y) { return x * y; }
  static T mul(T x, T y) { return x * y; }
  static T scale(T x, real s) { return x * s; }
};

template <class R>
struct arith<std::complex<R>> {
  typedef std::complex<R> T;
  typedef R real;
  static real re(T x) { return x.real(); }
  static real norm(T x) { return x.real() * x.real() + x.imag() * x.imag(); }
  static T cmul(T x, T y) {
    return T(x.real() * y.real() + x.imag() * y.imag(), x.real() * y.imag() - x.imag() * y.real());
  }
  static T mul(T x, T y) {
    return T(x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real());
  }
  static T scale(T x, real s) { return T(x.real() * s, x.imag() * s); }
};

// sum over i < len of conj(x[i]) y[i], in eight lanes.
template <class T>
inline T dotc(int len, const T *x, const T *y) {
  typedef arith<T> A;
  T lane[8] = {T(0), T(0), T(0), T(0), T(0), T(0), T(0), T(0)};
  int i = 0;
  for (; i + 8 <= len; i += 8)
    for (int l = 0; l < 8; ++l) lane[l] += A::cmul(x[i + l], y[i + l]);
  T s = T(0);
  for (; i < len; ++i) s += A::cmul(x[i], y[i]);
  return s + ((lane[0] + lane[4]) + (lane[1] + lane[5])) + ((lane[2] + lane[6]) + (lane[3] + lane[7]));
}

// Whether the pivot is good: above zero and not NaN.
template <class R>
inline bool positive(R x) { return x > R(0); }

template <class T>
inline void potf2_upper(int n, T *a, int lda, int *info) {
  typedef arith<T> A;
  typedef typename A::real R;
  for (int j = 1; j <= n; ++j) {
    T *uj = entry(a, lda, 1, j);
    R ajj = A::re(uj[j - 1]);
    for (int i = 0; i < j - 1; ++i) ajj -= A::norm(uj[i]);
    if (!positive(ajj)) {
      uj[j - 1] = T(ajj);
      *info = j;
      return;
    }
    ajj = std::sqrt(ajj);
    uj[j - 1] = T(ajj);
    const R r = R(1) / ajj;
    for (int c = j + 1; c <= n; ++c) {
      T *uc = entry(a, lda, 1, c);
      uc[j - 1] = A::scale(uc[j - 1] - dotc(j - 1, uj, uc), r);
    }
  }
}

template <class T>
inline void potf2_lower(int n, T *a, int lda, int *info) {
  typedef arith<T> A;
  typedef typename A::real R;
  const std::ptrdiff_t ld = lda;
  for (int j = 1; j <= n; ++j) {
    T *lj = entry(a, lda, 1, j);
    const T *rowj = entry(a, lda, j, 1);  // row j, stride lda
    R ajj = A::re(lj[j - 1]);
    for (int p = 0; p < j - 1; ++p) ajj -= A::norm(rowj[p * ld]);
    if (!positive(ajj)) {
      lj[j - 1] = T(ajj);
      *info = j;
      return;
    }
    ajj = std::sqrt(ajj);
    lj[j - 1] = T(ajj);
    if (j == n) break;
    // Rows j + 1 to n of column j minus L(j+1:n, 1:j-1) conj(L(j, 1:j-1))^T.
    const int len = n - j;
    T *t = lj + j;
    int p = 0;
    for (; p + 4 <= j - 1; p += 4) {
      const T f0 = A::cmul(rowj[p * ld], T(1)), f1 = A::cmul(rowj[(p + 1) * ld], T(1)),
              f2 = A::cmul(rowj[(p + 2) * ld], T(1)), f3 = A::cmul(rowj[(p + 3) * ld], T(1));
      const T *s0 = entry(a, lda, j + 1, p + 1), *s1 = s0 + ld, *s2 = s1 + ld, *s3 = s2 + ld;
      for (int i = 0; i < len; ++i)
        t[i] -= (A::mul(s0[i], f0) + A::mul(s1[i], f1)) + (A::mul(s2[i], f2) + A::mul(s3[i], f3));
    }
    for (; p < j - 1; ++p) {
      const T f = A::cmul(rowj[p * ld], T(1));
      const T *s = entry(a, lda, j + 1, p + 1);
      for (int i = 0; i < len; ++i) t[i] -= A::mul(s[i], f);
    }
    const R r = R(1) / ajj;
    for (int i = 0; i < len; ++i) t[i] = A::scale(t[i], r);
  }
}

template <class T>
inline void potf2_body(const char *uplo, const int *n, T *a, const int *lda, int *info) {
  *info = 0;
  if (*uplo == 'U' || *uplo == 'u') potf2_upper(*n, a, *lda, info);
  else potf2_lower(*n, a, *lda, info);
}

template <class T>
void potf2_plain(const char *uplo, const int *n, T *a, const int *lda, int *info,
                 std::size_t) {
  potf2_body(uplo, n, a, lda, info);
}

template <class T>
__attribute__((target("avx2,fma"), flatten)) void potf2_avx2(const char *uplo, const int *n,
                                                             T *a, const int *lda, int *info,
                                                             std::size_t) {
  potf2_body(uplo, n, a, lda, info);
}

}  // namespace

template <class T>
void potf2_kernel(char uplo, int n, T *a, int lda, int *info) {
  vek_serv_stub<potf2_plain<T>, potf2_plain<T>, potf2_plain<T>, potf2_plain<T>,
                potf2_plain<T>, potf2_avx2<T>, potf2_avx2<T>>::call(&uplo, &n, a, &lda,
                                                                    info, 1);
}

namespace {

template <class T>
void potf2_front(const char *uplo, const int *n, T *a, const int *lda, int *info) {
  *info = 0;
  const char u = *uplo;
  if (u != 'U' && u != 'u' && u != 'L' && u != 'l') *info = -1;
  else if (*n < 0) *info = -2;
  else if (*lda < (*n > 1 ? *n : 1)) *info = -4;
  if (*info != 0) {
    const int pos = -*info;
    xerbla(lapack_names<T>::potf2, &pos, 6);
    return;
  }
  if (*n == 0) return;
  potf2_kernel(u, *n, a, *lda, info);
}

}  // namespace

#define VEK_POTF2_INSTANCE(P, T)                                                          \
  template void potf2_kernel<T>(char, int, T *, int, int *);                              \
  void P##potf2(const char *uplo, const int *n, T *a, const int *lda, int *info,          \
                std::size_t) {                                                            \
    potf2_front<T>(uplo, n, a, lda, info);                                                \
  }

VEK_POTF2_INSTANCE(d, double)
VEK_POTF2_INSTANCE(s, float)
VEK_POTF2_INSTANCE(z, zcomplex)
VEK_POTF2_INSTANCE(c, ccomplex)

}  // namespace vekd
