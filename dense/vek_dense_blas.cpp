// vek_dense_blas.cpp - the dense interface: the products and triangular
// solves go to the installed BLAS or, on request, to the library's own
// level-3 routines (vek_dense_level3.h); the rest to the installed BLAS and
// LAPACK (Fortran calling convention:
// everything by reference, character arguments followed by their hidden
// lengths).
#include <complex>

#include "dense/vek_dense.h"
#include "dense/vek_dense_lapack.h"
#include "dense/vek_dense_level3.h"
#include "platform/vek_platform.h"

typedef std::complex<double> zc;
typedef std::complex<float> cc;

extern "C" {
#define VEK_GEMM(P, T)                                                                  \
  void P##gemm_(const char *, const char *, const int *, const int *, const int *,   \
                const T *, const T *, const int *, const T *, const int *, const T *, \
                T *, const int *, std::size_t, std::size_t);
VEK_GEMM(d, double) VEK_GEMM(s, float) VEK_GEMM(z, zc) VEK_GEMM(c, cc)
#define VEK_TRSM(P, T)                                                                 \
  void P##trsm_(const char *, const char *, const char *, const char *, const int *, \
                const int *, const T *, const T *, const int *, T *, const int *,    \
                std::size_t, std::size_t, std::size_t, std::size_t);
VEK_TRSM(d, double) VEK_TRSM(s, float) VEK_TRSM(z, zc) VEK_TRSM(c, cc)
#define VEK_POTRF(P, T) \
  void P##potrf_(const char *, const int *, T *, const int *, int *, std::size_t);
VEK_POTRF(d, double) VEK_POTRF(s, float) VEK_POTRF(z, zc) VEK_POTRF(c, cc)
#define VEK_POTF2(P, T) \
  void P##potf2_(const char *, const int *, T *, const int *, int *, std::size_t);
VEK_POTF2(d, double) VEK_POTF2(s, float) VEK_POTF2(z, zc) VEK_POTF2(c, cc)
#define VEK_GETRF(P, T) \
  void P##getrf_(const int *, const int *, T *, const int *, int *, int *);
VEK_GETRF(d, double) VEK_GETRF(s, float) VEK_GETRF(z, zc) VEK_GETRF(c, cc)
#define VEK_GEMV(P, T)                                                                 \
  void P##gemv_(const char *, const int *, const int *, const T *, const T *,       \
                const int *, const T *, const int *, const T *, T *, const int *,   \
                std::size_t);
VEK_GEMV(d, double) VEK_GEMV(s, float) VEK_GEMV(z, zc) VEK_GEMV(c, cc)
#define VEK_TRSV(P, T)                                                                 \
  void P##trsv_(const char *, const char *, const char *, const int *, const T *,   \
                const int *, T *, const int *, std::size_t, std::size_t, std::size_t);
VEK_TRSV(d, double) VEK_TRSV(s, float) VEK_TRSV(z, zc) VEK_TRSV(c, cc)
#define VEK_GER(P, T)                                                                  \
  void P##_(const int *, const int *, const T *, const T *, const int *, const T *, \
            const int *, T *, const int *);
VEK_GER(dger, double) VEK_GER(sger, float) VEK_GER(zgeru, zc) VEK_GER(cgeru, cc)
#define VEK_SCAL(P, T) void P##scal_(const int *, const T *, T *, const int *);
VEK_SCAL(d, double) VEK_SCAL(s, float) VEK_SCAL(z, zc) VEK_SCAL(c, cc)
#define VEK_SYR(P, T)                                                                  \
  void P##syr_(const char *, const int *, const T *, const T *, const int *, T *,   \
               const int *, std::size_t);
VEK_SYR(d, double) VEK_SYR(s, float) VEK_SYR(z, zc) VEK_SYR(c, cc)
}

namespace vekd {

namespace {
// 1: the products, the triangular solves and the factorizations of the
// diagonal blocks go to the library's own routines; 0 (the default): to
// the installed BLAS and LAPACK. The solver's factor
// times with the own routines are not yet as short as with the installed
// library, so they are chosen only on request.
int own_level3 = 0;
}  // namespace

void use_own_level3(int flag) { __atomic_store_n(&own_level3, flag ? 1 : 0, __ATOMIC_RELAXED); }
int own_level3_in_use() { return __atomic_load_n(&own_level3, __ATOMIC_RELAXED); }

#define VEK_INSTANCES(P, T)                                                            \
  template <>                                                                          \
  void gemm<T>(const char *ta, const char *tb, const int *m, const int *n,            \
               const int *k, const T *alpha, const T *a, const int *lda, const T *b,  \
               const int *ldb, const T *beta, T *c, const int *ldc) {                 \
    if (__atomic_load_n(&own_level3, __ATOMIC_RELAXED))                                \
      P##gemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);             \
    else                                                                               \
      P##gemm_(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);            \
  }                                                                                    \
  template <>                                                                          \
  void trsm<T>(const char *side, const char *uplo, const char *ta, const char *diag,  \
               const int *m, const int *n, const T *alpha, const T *a, const int *lda, \
               T *b, const int *ldb) {                                                 \
    if (__atomic_load_n(&own_level3, __ATOMIC_RELAXED))                                \
      P##trsm(side, uplo, ta, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);          \
    else                                                                               \
      P##trsm_(side, uplo, ta, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);         \
  }                                                                                    \
  template <>                                                                          \
  void potf2<T>(const char *uplo, const int *n, T *a, const int *lda, int *info) {    \
    if (__atomic_load_n(&own_level3, __ATOMIC_RELAXED))                                \
      P##potf2(uplo, n, a, lda, info, 1);                                              \
    else                                                                               \
      P##potf2_(uplo, n, a, lda, info, 1);                                             \
  }                                                                                    \
  template <>                                                                          \
  void getrf<T>(const int *m, const int *n, T *a, const int *lda, int *ipiv,          \
                int *info) {                                                           \
    if (__atomic_load_n(&own_level3, __ATOMIC_RELAXED))                                \
      P##getrf(m, n, a, lda, ipiv, info);                                              \
    else                                                                               \
      P##getrf_(m, n, a, lda, ipiv, info);                                             \
  }                                                                                    \
  template <>                                                                          \
  void gemv<T>(const char *tr, const int *m, const int *n, const T *alpha, const T *a, \
               const int *lda, const T *x, const int *incx, const T *beta, T *y,      \
               const int *incy) {                                                      \
    P##gemv_(tr, m, n, alpha, a, lda, x, incx, beta, y, incy, 1);                      \
  }                                                                                    \
  template <>                                                                          \
  void trsv<T>(const char *uplo, const char *tr, const char *diag, const int *n,      \
               const T *a, const int *lda, T *x, const int *incx) {                   \
    P##trsv_(uplo, tr, diag, n, a, lda, x, incx, 1, 1, 1);                             \
  }

#define VEK_GER_INSTANCE(F, T)                                                         \
  template <>                                                                          \
  void ger<T>(const int *m, const int *n, const T *alpha, const T *x, const int *incx, \
              const T *y, const int *incy, T *a, const int *lda) {                     \
    F##_(m, n, alpha, x, incx, y, incy, a, lda);                                       \
  }

VEK_INSTANCES(d, double)
VEK_INSTANCES(s, float)
VEK_INSTANCES(z, zc)
VEK_INSTANCES(c, cc)
// The blocked Cholesky: the library's own for real values; complex blocks
// go to the installed library (the solver factors them unblocked).
#define VEK_POTRF_OWN(P, T)                                                             \
  template <>                                                                          \
  void potrf<T>(const char *uplo, const int *n, T *a, const int *lda, int *info) {    \
    if (__atomic_load_n(&own_level3, __ATOMIC_RELAXED))                                \
      P##potrf(uplo, n, a, lda, info, 1);                                              \
    else                                                                               \
      P##potrf_(uplo, n, a, lda, info, 1);                                             \
  }
#define VEK_POTRF_INSTALLED(P, T)                                                       \
  template <>                                                                          \
  void potrf<T>(const char *uplo, const int *n, T *a, const int *lda, int *info) {    \
    P##potrf_(uplo, n, a, lda, info, 1);                                               \
  }
VEK_POTRF_OWN(d, double)
VEK_POTRF_OWN(s, float)
VEK_POTRF_INSTALLED(z, zc)
VEK_POTRF_INSTALLED(c, cc)

VEK_GER_INSTANCE(dger, double)
VEK_GER_INSTANCE(sger, float)
VEK_GER_INSTANCE(zgeru, zc)
VEK_GER_INSTANCE(cgeru, cc)

// The complex forms of syr are the symmetric (not Hermitian) updates of the
// installed LAPACK.
#define VEK_SCAL_SYR_INSTANCE(P, T)                                                    \
  template <>                                                                          \
  void scal<T>(const int *n, const T *alpha, T *x, const int *incx) {                  \
    P##scal_(n, alpha, x, incx);                                                       \
  }                                                                                    \
  template <>                                                                          \
  void syr<T>(const char *uplo, const int *n, const T *alpha, const T *x,              \
              const int *incx, T *a, const int *lda) {                                 \
    P##syr_(uplo, n, alpha, x, incx, a, lda, 1);                                       \
  }

VEK_SCAL_SYR_INSTANCE(d, double)
VEK_SCAL_SYR_INSTANCE(s, float)
VEK_SCAL_SYR_INSTANCE(z, zc)
VEK_SCAL_SYR_INSTANCE(c, cc)

}  // namespace vekd

namespace vekd {

// The installed library's own thread control, when it has one.
void blas_threads(int count) {
  typedef void (*setter)(int);
  static setter set = reinterpret_cast<setter>(vek_os_find_symbol("openblas_set_num_threads"));
  static int current = -1;
  if (count < 1) count = 1;
  dense_thread_limit(count);
  if (set != nullptr && count != current) {
    set(count);
    current = count;
  }
}

}  // namespace vekd
