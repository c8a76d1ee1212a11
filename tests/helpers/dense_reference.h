// dense_reference.h - what the tests of the library's level-3 routines
// compare with: the installed BLAS, random operands and a rounding bound.
#ifndef DENSE_REFERENCE_H
#define DENSE_REFERENCE_H

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#include "dense/vek_dense_kernels.h"

typedef std::complex<double> zc;
typedef std::complex<float> cc;

extern "C" {
#define REF_GEMM(P, T)                                                                 \
  void P##gemm_(const char *, const char *, const int *, const int *, const int *,   \
                const T *, const T *, const int *, const T *, const int *, const T *, \
                T *, const int *, std::size_t, std::size_t);
REF_GEMM(d, double) REF_GEMM(s, float) REF_GEMM(z, zc) REF_GEMM(c, cc)
#define REF_TRSM(P, T)                                                                 \
  void P##trsm_(const char *, const char *, const char *, const char *, const int *, \
                const int *, const T *, const T *, const int *, T *, const int *,    \
                std::size_t, std::size_t, std::size_t, std::size_t);
REF_TRSM(d, double) REF_TRSM(s, float) REF_TRSM(z, zc) REF_TRSM(c, cc)
void dsyrk_(const char *, const char *, const int *, const int *, const double *,
            const double *, const int *, const double *, double *, const int *,
            std::size_t, std::size_t);
void ssyrk_(const char *, const char *, const int *, const int *, const float *,
            const float *, const int *, const float *, float *, const int *, std::size_t,
            std::size_t);
void zherk_(const char *, const char *, const int *, const int *, const double *,
            const zc *, const int *, const double *, zc *, const int *, std::size_t,
            std::size_t);
void cherk_(const char *, const char *, const int *, const int *, const float *,
            const cc *, const int *, const float *, cc *, const int *, std::size_t,
            std::size_t);
}

template <class T>
struct ref;
#define REF_BIND(P, T)                                                                  \
  template <>                                                                           \
  struct ref<T> {                                                                       \
    static void gemm(char ta, char tb, int m, int n, int k, T alpha, const T *a, int lda, \
                     const T *b, int ldb, T beta, T *c, int ldc) {                      \
      P##gemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);    \
    }                                                                                   \
    static void trsm(char side, char uplo, char ta, char diag, int m, int n, T alpha,   \
                     const T *a, int lda, T *b, int ldb) {                              \
      P##trsm_(&side, &uplo, &ta, &diag, &m, &n, &alpha, a, &lda, b, &ldb, 1, 1, 1, 1);  \
    }                                                                                   \
  };
REF_BIND(d, double) REF_BIND(s, float) REF_BIND(z, zc) REF_BIND(c, cc)
#undef REF_BIND

template <class T>
struct real_of { typedef T type; };
template <class R>
struct real_of<std::complex<R>> { typedef R type; };

template <class T>
T random_value(std::mt19937 &g) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  if constexpr (std::is_same<T, zc>::value || std::is_same<T, cc>::value) {
    const double re = u(g);
    return T(re, u(g));
  } else {
    return T(u(g));
  }
}

template <class T>
std::vector<T> random_matrix(std::size_t count, unsigned seed) {
  std::mt19937 g(seed);
  std::vector<T> v(count);
  for (auto &x : v) x = random_value<T>(g);
  return v;
}

template <class T>
double max_difference(const std::vector<T> &x, const std::vector<T> &y) {
  double d = 0;
  for (std::size_t i = 0; i < x.size(); ++i) d = std::max(d, double(std::abs(x[i] - y[i])));
  return d;
}

// Rounding allowance of a sum of `terms` products of values of size about 1.
template <class T>
double rounding_bound(int terms) {
  return 4.0 * (terms + 4) * std::numeric_limits<typename real_of<T>::type>::epsilon();
}

// The processor types whose kernels this machine can run.
inline std::vector<int> runnable_types() {
  std::vector<int> types = {0, 2, 3, 4, 5};
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    types.push_back(vekd::VEK_CPU_AVX2);
    if (__builtin_cpu_supports("avx512f")) types.push_back(vekd::VEK_CPU_AVX512);
  }
  return types;
}

#endif
