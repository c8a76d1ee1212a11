// vek_dense_blas.cpp - the dense interface: the products, the triangular
// solves and the factorizations go to the library's own routines
// (vek_dense_level3.h, vek_dense_lapack.h) or, on request, to the installed
// BLAS and LAPACK; the rest to the installed BLAS and LAPACK (Fortran
// calling convention: everything by reference, character arguments
// followed by their hidden lengths).
//
// The library does not link the installed products and factorizations: it
// looks them up by name in the loaded process, once, so that the library
// itself carries no reference to them. A routine that is not found is
// replaced by the library's own.
#include <complex>

#include "dense/vek_dense.h"
#include "dense/vek_dense_lapack.h"
#include "dense/vek_dense_level3.h"
#include "platform/vek_platform.h"

typedef std::complex<double> zc;
typedef std::complex<float> cc;

extern "C" {
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
// 1 (the default): the products, the triangular solves and the
// factorizations of the diagonal blocks go to the library's own routines,
// whose speed follows the processor type and nothing in the environment;
// 0: to the installed BLAS and LAPACK where the process has them, for
// comparison.
int own_level3 = 1;

// The installed routines of one value type, null where the process has none.
template <class T>
struct installed {
  typedef void (*gemm_fn)(const char *, const char *, const int *, const int *, const int *,
                          const T *, const T *, const int *, const T *, const int *,
                          const T *, T *, const int *, std::size_t, std::size_t);
  typedef void (*trsm_fn)(const char *, const char *, const char *, const char *,
                          const int *, const int *, const T *, const T *, const int *, T *,
                          const int *, std::size_t, std::size_t, std::size_t, std::size_t);
  typedef void (*cholesky_fn)(const char *, const int *, T *, const int *, int *,
                              std::size_t);
  typedef void (*getrf_fn)(const int *, const int *, T *, const int *, int *, int *);
  gemm_fn gemm;
  trsm_fn trsm;
  cholesky_fn potrf, potf2;
  getrf_fn getrf;
};

template <class T> struct precision_letter;
template <> struct precision_letter<double> { static const char value = 'd'; };
template <> struct precision_letter<float> { static const char value = 's'; };
template <> struct precision_letter<zc> { static const char value = 'z'; };
template <> struct precision_letter<cc> { static const char value = 'c'; };

// The routine of the given Fortran name without its precision letter
// ("gemm_"), as a pointer of type F.
template <class T, class F>
F find_routine(const char *rest) {
  char name[16] = {precision_letter<T>::value};
  for (int i = 0; rest[i] != '\0' && i < 14; ++i) name[i + 1] = rest[i];
  return reinterpret_cast<F>(vek_os_find_symbol(name));
}

// Looked up on the first call; the initialization of the static is safe
// when threads make that call together.
template <class T>
const installed<T> &installed_routines() {
  typedef installed<T> I;
  static const I table = {find_routine<T, typename I::gemm_fn>("gemm_"),
                          find_routine<T, typename I::trsm_fn>("trsm_"),
                          find_routine<T, typename I::cholesky_fn>("potrf_"),
                          find_routine<T, typename I::cholesky_fn>("potf2_"),
                          find_routine<T, typename I::getrf_fn>("getrf_")};
  return table;
}

}  // namespace

void use_own_level3(int flag) { __atomic_store_n(&own_level3, flag ? 1 : 0, __ATOMIC_RELAXED); }
int own_level3_in_use() { return __atomic_load_n(&own_level3, __ATOMIC_RELAXED); }

#define VEK_INSTANCES(P, T)                                                            \
  template <>                                                                          \
  void gemm<T>(const char *ta, const char *tb, const int *m, const int *n,            \
               const int *k, const T *alpha, const T *a, const int *lda, const T *b,  \
               const int *ldb, const T *beta, T *c, const int *ldc) {                 \
    const installed<T>::gemm_fn f =                                                    \
        own_level3_in_use() ? nullptr : installed_routines<T>().gemm;                         \
    if (f == nullptr)                                                                  \
      P##gemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);             \
    else                                                                               \
      f(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);                   \
  }                                                                                    \
  template <>                                                                          \
  void trsm<T>(const char *side, const char *uplo, const char *ta, const char *diag,  \
               const int *m, const int *n, const T *alpha, const T *a, const int *lda, \
               T *b, const int *ldb) {                                                 \
    const installed<T>::trsm_fn f =                                                    \
        own_level3_in_use() ? nullptr : installed_routines<T>().trsm;                         \
    if (f == nullptr)                                                                  \
      P##trsm(side, uplo, ta, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);          \
    else                                                                               \
      f(side, uplo, ta, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);                \
  }                                                                                    \
  template <>                                                                          \
  void potrf<T>(const char *uplo, const int *n, T *a, const int *lda, int *info) {    \
    const installed<T>::cholesky_fn f =                                                \
        own_level3_in_use() ? nullptr : installed_routines<T>().potrf;                        \
    if (f == nullptr) {                                                                \
      mute_progress(1);                                                                \
      P##potrf(uplo, n, a, lda, info, 1);                                              \
      mute_progress(0);                                                                \
    } else {                                                                           \
      f(uplo, n, a, lda, info, 1);                                                     \
    }                                                                                  \
  }                                                                                    \
  template <>                                                                          \
  void potf2<T>(const char *uplo, const int *n, T *a, const int *lda, int *info) {    \
    const installed<T>::cholesky_fn f =                                                \
        own_level3_in_use() ? nullptr : installed_routines<T>().potf2;                        \
    if (f == nullptr) {                                                                \
      mute_progress(1);                                                                \
      P##potf2(uplo, n, a, lda, info, 1);                                              \
      mute_progress(0);                                                                \
    } else {                                                                           \
      f(uplo, n, a, lda, info, 1);                                                     \
    }                                                                                  \
  }                                                                                    \
  template <>                                                                          \
  void getrf<T>(const int *m, const int *n, T *a, const int *lda, int *ipiv,          \
                int *info) {                                                           \
    const installed<T>::getrf_fn f =                                                   \
        own_level3_in_use() ? nullptr : installed_routines<T>().getrf;                        \
    if (f == nullptr) {                                                                \
      mute_progress(1);                                                                \
      P##getrf(m, n, a, lda, ipiv, info);                                              \
      mute_progress(0);                                                                \
    } else {                                                                           \
      f(m, n, a, lda, ipiv, info);                                                     \
    }                                                                                  \
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
