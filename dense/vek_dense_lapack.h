// vek_dense_lapack.h - the library's own dense factorizations of the
// supernode blocks: LU with row exchanges, Cholesky, the unblocked Cholesky
// and the row interchanges, for the four value types.
//
// The routines under published names take the published arguments, all by
// reference, with the length of each character argument behind them, and
// give the published results: the same info, the same ipiv (global row
// numbers, counted from 1). Bad arguments go to xerbla.
//
// The LU front runs small matrices and single threads through the recursive
// panel (getrf_panel), and otherwise a tile scheduler: the threads own
// groups of column tiles and bring them forward panel by panel while the
// next panel is factored as soon as its tile is ready (vek_dense_getrf_tiles.cpp).
// The look-ahead form updates the trailing columns while one thread
// factors the next panel. The Cholesky front runs the recursive form on one
// thread and a wave scheduler of square tile blocks on several.
#ifndef VEK_DENSE_LAPACK_H
#define VEK_DENSE_LAPACK_H

#include <omp.h>

#include <complex>
#include <cstddef>
#include <cstdint>

#include "dense/vek_dense_level3.h"
#include "platform/vek_platform.h"

namespace vekd {

// --- Published names -------------------------------------------------------

#define VEK_LAPACK_DECL(P, T)                                                              \
  void P##getrf(const int *m, const int *n, T *a, const int *lda, int *ipiv, int *info);  \
  int P##getrf_panel(const int *m, const int *n, T *a, const int *lda, int *ipiv,         \
                     int *info, const int *thread, const int *offset);                     \
  void P##getrf_unblocked(const int *m, const int *n, T *a, const int *lda, int *ipiv,    \
                          int *info);                                                      \
  int P##getrf_lookahead(const int *m, const int *n, T *a, const int *lda, int *ipiv,     \
                         int *info, const int *thread, const int *offset);                 \
  void P##laswp(const int *n, T *a, const int *lda, const int *k1, const int *k2,         \
                const int *ipiv, const int *incx);                                         \
  void P##potf2(const char *uplo, const int *n, T *a, const int *lda, int *info,          \
                std::size_t uplo_len);
VEK_LAPACK_DECL(d, double)
VEK_LAPACK_DECL(s, float)
VEK_LAPACK_DECL(z, zcomplex)
VEK_LAPACK_DECL(c, ccomplex)
#undef VEK_LAPACK_DECL

#define VEK_POTRF_DECL(P, T)                                                               \
  void P##potrf(const char *uplo, const int *n, T *a, const int *lda, int *info,          \
                std::size_t uplo_len);                                                     \
  int P##potrf_recursive(const char *uplo, const int *n, T *a, const int *lda, int *info, \
                         const int *thread, const int *offset, std::size_t uplo_len);
VEK_POTRF_DECL(d, double)
VEK_POTRF_DECL(s, float)
VEK_POTRF_DECL(z, zcomplex)
VEK_POTRF_DECL(c, ccomplex)
#undef VEK_POTRF_DECL

// --- Shared by the factorizations -------------------------------------------

// The precision's routine names, as the oracle, xerbla and the progress
// hook see them.
template <class T> struct lapack_names;
template <> struct lapack_names<double> {
  static constexpr const char *getrf = "DGETRF", *potrf = "DPOTRF", *potf2 = "DPOTF2";
};
template <> struct lapack_names<float> {
  static constexpr const char *getrf = "SGETRF", *potrf = "SPOTRF", *potf2 = "SPOTF2";
};
template <> struct lapack_names<zcomplex> {
  static constexpr const char *getrf = "ZGETRF", *potrf = "ZPOTRF", *potf2 = "ZPOTF2";
};
template <> struct lapack_names<ccomplex> {
  static constexpr const char *getrf = "CGETRF", *potrf = "CPOTRF", *potf2 = "CPOTF2";
};

// The own level-3 frames by value type.
template <class T> struct level3;
#define VEK_LEVEL3_BIND(P, T)                                                              \
  template <> struct level3<T> {                                                           \
    static void gemm(const char *ta, const char *tb, int m, int n, int k, T alpha,         \
                     const T *a, int lda, const T *b, int ldb, T beta, T *c, int ldc) {    \
      P##gemm(ta, tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);         \
    }                                                                                      \
    static void trsm(const char *side, const char *uplo, const char *ta, const char *diag, \
                     int m, int n, T alpha, const T *a, int lda, T *b, int ldb) {          \
      P##trsm(side, uplo, ta, diag, &m, &n, &alpha, a, &lda, b, &ldb, 1, 1, 1, 1);         \
    }                                                                                      \
    static void laswp(int n, T *a, int lda, int k1, int k2, const int *ipiv) {             \
      const int one = 1;                                                                   \
      P##laswp(&n, a, &lda, &k1, &k2, ipiv, &one);                                         \
    }                                                                                      \
  };
VEK_LEVEL3_BIND(d, double)
VEK_LEVEL3_BIND(s, float)
VEK_LEVEL3_BIND(z, zcomplex)
VEK_LEVEL3_BIND(c, ccomplex)
#undef VEK_LEVEL3_BIND

// Entry (i, j) of a column-major matrix, counted from 1.
template <class T>
inline T *entry(T *a, int lda, int i, int j) {
  return a + (i - 1) + static_cast<std::ptrdiff_t>(j - 1) * lda;
}

// One round of a scheduler thread's wait: a pause of the processor for the
// first rounds, then the processor given away, so that a machine with more
// threads than cores does not starve the thread waited for.
inline void backoff(int round, int spins) {
  if (round < spins) {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  } else {
    vek_os_sleep0();
  }
}

// The lock of a scheduler's status block: one word per call, taken with an
// atomic exchange and given back with a release store, so that whatever a
// thread wrote under it is seen by the next holder.
inline void lock_status(std::int32_t *word) {
  for (int round = 0;; ++round) {
    if (__atomic_load_n(word, __ATOMIC_RELAXED) == 0 &&
        __atomic_exchange_n(word, 1, __ATOMIC_ACQUIRE) == 0)
      return;
    backoff(round, 4096);
  }
}
inline void unlock_status(std::int32_t *word) { __atomic_store_n(word, 0, __ATOMIC_RELEASE); }

// The wait of a scheduler's thread that found nothing to do: until another
// thread has finished a task (news, counted up by each), or a bounded number
// of rounds has passed.
inline void wait_for_news(const std::int32_t *news, std::int32_t seen) {
  for (int round = 0; round < (1 << 16) + 256; ++round) {
    if (__atomic_load_n(news, __ATOMIC_ACQUIRE) != seen) return;
    backoff(round, 1 << 16);
  }
}

// Threads a factorization may use: those of the level-3 frames (one inside
// a region that a nested one could not widen).
inline int factor_threads() { return dense_threads(); }

// The oracle with a name of the library's own.
int ilaenv(int ispec, const char *name, char opt, int n1, int n2, int n3, int n4);

// The progress hook with a routine name; nonzero asks to stop.
int progress(int thread, int step, const char *name);
// The factorizations' calls of the hook are left out while a mute (on 1)
// is not taken back (on 0): the solver's dense interface mutes them, since
// its caller follows the solver's own progress.
void mute_progress(int on);

// The serial LU of a block, recursive (vek_dense_getrf.cpp): the result is
// nonzero when the progress hook asked to stop; offset is the number of
// columns left of the block, for the report only.
template <class T>
int getrf_panel(int m, int n, T *a, int lda, int *ipiv, int *info, int thread, int offset);
template <class T>
void getrf_unblocked(int m, int n, T *a, int lda, int *ipiv, int *info);
template <class T>
int getrf_lookahead(int m, int n, T *a, int lda, int *ipiv, int *info, int thread,
                    int offset);
// The threaded tile form; the result is 1 when the status block could not
// be had (nothing has been done then), 2 when the hook asked to stop, 0
// otherwise.
template <class T>
int getrf_tiles(int m, int n, T *a, int lda, int *ipiv, int *info, int nthreads, int nb);

// The unblocked Cholesky of the processor type (vek_dense_potf2.cpp), with
// the published info; uplo 'U' or 'L'.
template <class T>
void potf2_kernel(char uplo, int n, T *a, int lda, int *info);

// The left swaps of an LU in blocks of nb columns: block c from column
// (c - 1) nb + 1 gets the exchanges of rows c nb + 1 to last.
template <class T>
void deferred_swaps(int nblocks, int nb, T *a, int lda, int last, const int *ipiv,
                    int nthreads);

}  // namespace vekd

#endif
