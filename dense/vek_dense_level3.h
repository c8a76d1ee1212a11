// vek_dense_level3.h - the library's own level-3 routines.
//
// The routines under their published names take the published arguments,
// all by reference, with the length of each character argument behind
// them. Each is a frame: it decides whether the operation is worth threads,
// splits it among them, and calls the dispatch stub of its operation, which
// sends the work to the variant of the processor type. A variant packs its
// operands into buffers of the thread cache and runs the register-blocked
// kernels of its type (vek_dense_kernels.h).
#ifndef VEK_DENSE_LEVEL3_H
#define VEK_DENSE_LEVEL3_H

#include <complex>
#include <cstddef>

#include "dense/vek_dense_kernels.h"

namespace vekd {

typedef std::complex<double> zcomplex;
typedef std::complex<float> ccomplex;

#define VEK_GEMM_DECL(P, T)                                                         \
  void P##gemm(const char *transa, const char *transb, const int *m, const int *n, \
               const int *k, const T *alpha, const T *a, const int *lda,           \
               const T *b, const int *ldb, const T *beta, T *c, const int *ldc,    \
               std::size_t transa_len, std::size_t transb_len);
VEK_GEMM_DECL(d, double)
VEK_GEMM_DECL(s, float)
VEK_GEMM_DECL(z, zcomplex)
VEK_GEMM_DECL(c, ccomplex)
#undef VEK_GEMM_DECL

#define VEK_TRSM_DECL(P, T)                                                         \
  void P##trsm(const char *side, const char *uplo, const char *transa,             \
               const char *diag, const int *m, const int *n, const T *alpha,       \
               const T *a, const int *lda, T *b, const int *ldb,                   \
               std::size_t side_len, std::size_t uplo_len, std::size_t transa_len, \
               std::size_t diag_len);
VEK_TRSM_DECL(d, double)
VEK_TRSM_DECL(s, float)
VEK_TRSM_DECL(z, zcomplex)
VEK_TRSM_DECL(c, ccomplex)
#undef VEK_TRSM_DECL

#define VEK_SYRK_DECL(P, T)                                                         \
  void P##syrk(const char *uplo, const char *trans, const int *n, const int *k,    \
               const T *alpha, const T *a, const int *lda, const T *beta, T *c,    \
               const int *ldc, std::size_t uplo_len, std::size_t trans_len);
VEK_SYRK_DECL(d, double)
VEK_SYRK_DECL(s, float)
#undef VEK_SYRK_DECL

// The Hermitian rank-k update (trans N or C), alpha and beta real.
#define VEK_HERK_DECL(P, R)                                                         \
  void P##herk(const char *uplo, const char *trans, const int *n, const int *k,    \
               const R *alpha, const std::complex<R> *a, const int *lda,           \
               const R *beta, std::complex<R> *c, const int *ldc,                  \
               std::size_t uplo_len, std::size_t trans_len);
VEK_HERK_DECL(z, double)
VEK_HERK_DECL(c, float)
#undef VEK_HERK_DECL

// --- Shared by the frames ---------------------------------------------------

// Threads a frame may use now: the dense domain's count of the thread
// control, one inside a solver region in dynamic mode, and at most the
// limit set by dense_thread_limit (0: no limit).
int  dense_threads();
void dense_thread_limit(int count);

// The whole product of one processor type on one thread: C := alpha op(A)
// op(B) + beta C with the kernel set s. trans is 'N', 'T' or 'C'.
template <class T>
void gemm_whole(const kernel_set<T> &s, char transa, char transb, int m, int n,
                int k, T alpha, const T *a, int lda, const T *b, int ldb, T beta,
                T *c, int ldc);

// The same on one triangle of a square C (uplo 'L' or 'U'), n x n: tiles
// outside it are not formed, and nothing outside it is written.
template <class T>
void gemm_triangle(const kernel_set<T> &s, char uplo, char transa, char transb, int n,
                   int k, T alpha, const T *a, int lda, const T *b, int ldb, T beta, T *c,
                   int ldc);

// The triangular solve of one processor type on one thread, with the
// arguments of the published trsm by value.
template <class T>
void trsm_whole(const kernel_set<T> &s, char side, char uplo, char transa, char diag,
                int m, int n, T alpha, const T *a, int lda, T *b, int ldb);

// C := beta C on an m x n block (beta 0 clears it without reading it).
template <class T>
void scale_block(int m, int n, T beta, T *c, int ldc);

// The threaded product frame behind the published names.
template <class T>
void gemm_frame(char transa, char transb, int m, int n, int k, T alpha, const T *a,
                int lda, const T *b, int ldb, T beta, T *c, int ldc);

}  // namespace vekd

#endif
