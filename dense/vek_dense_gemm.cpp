// vek_dense_gemm.cpp - the matrix product: packing, the whole product of a
// processor type, the threaded frame and the published routines.
//
// The whole product runs the classic loop nest of packed products: for
// each block of nc columns of B and kc steps of the inner dimension, the
// kc x nc block of op(B) is packed into panels of nr columns; for each
// block of mc rows, the mc x kc block of op(A) is packed, times alpha, into
// panels of mr rows, and the micro-kernel runs over all mr x nr tiles. Tiles
// on the border go through a local tile. beta is applied when C is first
// written: 0 writes without reading, 1 adds, other values scale C first.
#include "dense/vek_dense_level3.h"

#include <omp.h>

#include <algorithm>
#include <cstdint>

#include "service/vek_serv_dispatch.h"
#include "service/vek_serv_memory.h"
#include "service/vek_serv_threads.h"

namespace vekd {
namespace {

template <class T>
struct value_traits {
  static T conj(T x) { return x; }
  static T mul(T x, T y) { return x * y; }
};

template <class R>
struct value_traits<std::complex<R>> {
  typedef std::complex<R> T;
  static T conj(T x) { return T(x.real(), -x.imag()); }
  // Without the checks for infinite parts of the library operator.
  static T mul(T x, T y) {
    return T(x.real() * y.real() - x.imag() * y.imag(),
             x.real() * y.imag() + x.imag() * y.real());
  }
};

inline bool plain_op(char t) { return t == 'N' || t == 'n'; }
inline bool conj_op(char t) { return t == 'C' || t == 'c'; }

// Panels packed together from one run of the source.
const int VEK_STRIP = 10;
// Runs of the source are asked into the cache this many steps ahead: the
// blocks of a supernodal update come cold from memory, a run of a few lines
// at each step, too short for the processor to see a stream.
const int VEK_AHEAD = 4;

template <class T>
inline void prefetch_run(const T *src, int len) {
  const char *p = reinterpret_cast<const char *>(src);
  const char *end = reinterpret_cast<const char *>(src + len);
  for (; p < end; p += 64) __builtin_prefetch(p, 0, 3);
  __builtin_prefetch(end - 1, 0, 3);
}

// Copies of one step into a panel: w values of src (stride 1) to dst, times
// alpha unless unit, conjugated if asked, zeros up to the panel width R. A
// width known at compile time lets the compiler make plain vector moves.
template <class T, int R>
inline void panel_step(const T *__restrict src, int w, T *__restrict dst, T alpha, bool unit,
                       bool conj) {
  typedef value_traits<T> V;
  if (w == R && !conj) {
    if (unit) {
      for (int i = 0; i < R; ++i) dst[i] = src[i];
    } else if (alpha == T(-1)) {  // the updates of the factorizations
      for (int i = 0; i < R; ++i) dst[i] = -src[i];
    } else {
      for (int i = 0; i < R; ++i) dst[i] = V::mul(alpha, src[i]);
    }
    return;
  }
  if (w == R) {  // conjugated: the Hermitian updates
    if (unit) {
      for (int i = 0; i < R; ++i) dst[i] = V::conj(src[i]);
    } else if (alpha == T(-1)) {
      for (int i = 0; i < R; ++i) dst[i] = -V::conj(src[i]);
    } else {
      for (int i = 0; i < R; ++i) dst[i] = V::mul(alpha, V::conj(src[i]));
    }
    return;
  }
  for (int i = 0; i < w; ++i) {
    T v = conj ? V::conj(src[i]) : src[i];
    dst[i] = unit ? v : V::mul(alpha, v);
  }
  for (int i = w; i < R; ++i) dst[i] = T(0);
}

// A run of contiguous values (one column of A, one row of op(B) stored as a
// row of B) spread over the panels of width r, at step p of each.
template <class T, int R>
void spread(const T *src, int len, int kb, int p, T *dst, T alpha, bool unit, bool conj) {
  for (int i0 = 0; i0 < len; i0 += R)
    panel_step<T, R>(src + i0, std::min(R, len - i0),
                     dst + static_cast<std::ptrdiff_t>(i0) * kb + static_cast<std::ptrdiff_t>(p) * R,
                     alpha, unit, conj);
}

template <class T>
void spread_any(const T *src, int len, int kb, int p, T *dst, int r, T alpha, bool unit,
                bool conj) {
  switch (r) {
    case 2: spread<T, 2>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 3: spread<T, 3>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 4: spread<T, 4>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 6: spread<T, 6>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 8: spread<T, 8>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 12: spread<T, 12>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 16: spread<T, 16>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 24: spread<T, 24>(src, len, kb, p, dst, alpha, unit, conj); return;
    case 48: spread<T, 48>(src, len, kb, p, dst, alpha, unit, conj); return;
    default: break;
  }
  typedef value_traits<T> V;
  for (int i0 = 0; i0 < len; i0 += r) {
    T *d = dst + static_cast<std::ptrdiff_t>(i0) * kb + static_cast<std::ptrdiff_t>(p) * r;
    const int w = std::min(r, len - i0);
    for (int i = 0; i < r; ++i) {
      if (i >= w) {
        d[i] = T(0);
        continue;
      }
      T v = conj ? V::conj(src[i0 + i]) : src[i0 + i];
      d[i] = unit ? v : V::mul(alpha, v);
    }
  }
}

// w sequences of kb values with stride 1, each ld apart (rows of op(A)
// stored as columns of A, columns of op(B)), into one panel of width R:
// sequence i to dst[p*R + i], zeros past w. All w sequences are read
// together so that the panel is written in order.
template <class T, int R>
void gather(const T *src, std::ptrdiff_t ld, int w, int kb, T *dst, T alpha, bool unit,
            bool conj) {
  typedef value_traits<T> V;
  if (w == R && unit && !conj) {
    for (int p = 0; p < kb; ++p)
      for (int i = 0; i < R; ++i) dst[static_cast<std::ptrdiff_t>(p) * R + i] = src[i * ld + p];
    return;
  }
  for (int p = 0; p < kb; ++p) {
    for (int i = 0; i < R; ++i) {
      T v = T(0);
      if (i < w) {
        v = conj ? V::conj(src[i * ld + p]) : src[i * ld + p];
        if (!unit) v = V::mul(alpha, v);
      }
      dst[static_cast<std::ptrdiff_t>(p) * R + i] = v;
    }
  }
}

template <class T>
void gather_any(const T *src, std::ptrdiff_t ld, int w, int kb, T *dst, int r, T alpha,
                bool unit, bool conj) {
  switch (r) {
    case 2: gather<T, 2>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 3: gather<T, 3>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 4: gather<T, 4>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 6: gather<T, 6>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 8: gather<T, 8>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 12: gather<T, 12>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 16: gather<T, 16>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 24: gather<T, 24>(src, ld, w, kb, dst, alpha, unit, conj); return;
    case 48: gather<T, 48>(src, ld, w, kb, dst, alpha, unit, conj); return;
    default: break;
  }
  typedef value_traits<T> V;
  for (int p = 0; p < kb; ++p) {
    for (int i = 0; i < r; ++i) {
      T v = T(0);
      if (i < w) {
        v = conj ? V::conj(src[i * ld + p]) : src[i * ld + p];
        if (!unit) v = V::mul(alpha, v);
      }
      dst[static_cast<std::ptrdiff_t>(p) * r + i] = v;
    }
  }
}

// mb x kb of op(A), starting at a, into panels of mr rows: the mr values of
// step p of panel q at dst + q*mr*kb + p*mr, rows past mb zero. alpha goes
// into the copy. The source is read along its columns.
template <class T>
void pack_a(char transa, int mb, int kb, const T *a, int lda, T alpha, T *dst, int mr) {
  const bool trans = !plain_op(transa), conj = conj_op(transa);
  const bool unit = alpha == T(1);
  if (!trans) {
    // In strips of a few panels, so that one step writes to few pages.
    for (int s0 = 0; s0 < mb; s0 += VEK_STRIP * mr) {
      const int len = std::min(VEK_STRIP * mr, mb - s0);
      for (int p = 0; p < kb; ++p) {
        if (p + VEK_AHEAD < kb)
          prefetch_run(a + s0 + static_cast<std::ptrdiff_t>(p + VEK_AHEAD) * lda, len);
        spread_any(a + s0 + static_cast<std::ptrdiff_t>(p) * lda, len, kb, p,
                   dst + static_cast<std::ptrdiff_t>(s0) * kb, mr, alpha, unit, false);
      }
    }
    return;
  }
  for (int i0 = 0; i0 < mb; i0 += mr)
    gather_any(a + static_cast<std::ptrdiff_t>(i0) * lda, lda, std::min(mr, mb - i0), kb,
               dst + static_cast<std::ptrdiff_t>(i0) * kb, mr, alpha, unit, conj);
}

// kb x nb of op(B), starting at b, into panels of nr columns: the nr values
// of step p of panel q at dst + q*nr*kb + p*nr, columns past nb zero.
template <class T>
void pack_b(char transb, int kb, int nb, const T *b, int ldb, T *dst, int nr) {
  const bool trans = !plain_op(transb), conj = conj_op(transb);
  if (trans) {
    for (int s0 = 0; s0 < nb; s0 += VEK_STRIP * nr) {
      const int len = std::min(VEK_STRIP * nr, nb - s0);
      for (int p = 0; p < kb; ++p) {
        if (p + VEK_AHEAD < kb)
          prefetch_run(b + s0 + static_cast<std::ptrdiff_t>(p + VEK_AHEAD) * ldb, len);
        spread_any(b + s0 + static_cast<std::ptrdiff_t>(p) * ldb, len, kb, p,
                   dst + static_cast<std::ptrdiff_t>(s0) * kb, nr, T(1), true, conj);
      }
    }
    return;
  }
  for (int j0 = 0; j0 < nb; j0 += nr)
    gather_any(b + static_cast<std::ptrdiff_t>(j0) * ldb, ldb, std::min(nr, nb - j0), kb,
               dst + static_cast<std::ptrdiff_t>(j0) * kb, nr, T(1), true, false);
}


// All tiles of one packed mb x kb block of A against the packed kb x nb
// block of B. With a triangle (tri 1 lower, 2 upper), (row0, col0) is the
// place of the block in C: tiles wholly outside the triangle are left out
// and tiles across the diagonal written only inside it.
template <class T>
void macro_tiles(const kernel_set<T> &s, int mb, int nb, int kb, const T *ap,
                 const T *bp, T *c, int ldc, int add, int tri, int row0, int col0) {
  const int mr = s.mr, nr = s.nr;
  alignas(64) T tile[VEK_MAX_MR * VEK_MAX_NR];
  for (int j = 0; j < nb; j += nr) {
    const int nn = std::min(nr, nb - j);
    const T *bj = bp + static_cast<std::ptrdiff_t>(j) * kb;
    for (int i = 0; i < mb; i += mr) {
      const int mm = std::min(mr, mb - i);
      // Rows gi..gi+mm-1 and columns gj..gj+nn-1 of C; the diagonal crosses
      // the tile where some row index equals some column index.
      const int gi = row0 + i, gj = col0 + j;
      bool whole = true;
      if (tri == 1) {
        if (gi + mm - 1 < gj) continue;
        whole = gi >= gj + nn - 1;
      } else if (tri == 2) {
        if (gi > gj + nn - 1) continue;
        whole = gi + mm - 1 <= gj;
      }
      const T *ai = ap + static_cast<std::ptrdiff_t>(i) * kb;
      T *cij = c + i + static_cast<std::ptrdiff_t>(j) * ldc;
      if (whole && mm == mr && nn == nr) {
        s.kernel(kb, ai, bj, cij, ldc, add);
        continue;
      }
      s.kernel(kb, ai, bj, tile, mr, 0);
      for (int jj = 0; jj < nn; ++jj) {
        int i0 = 0, i1 = mm;
        if (!whole) {
          const int diag = gj + jj - gi;  // the row of the tile on the diagonal
          if (tri == 1) i0 = std::max(0, diag);
          else i1 = std::min(mm, diag + 1);
        }
        T *cc = cij + static_cast<std::ptrdiff_t>(jj) * ldc;
        const T *tt = tile + jj * mr;
        if (add) {
          for (int ii = i0; ii < i1; ++ii) cc[ii] += tt[ii];
        } else {
          for (int ii = i0; ii < i1; ++ii) cc[ii] = tt[ii];
        }
      }
    }
  }
}

// The product without packing, for the case that no pack buffer can be had.
template <class T>
void gemm_unpacked(char transa, char transb, int m, int n, int k, T alpha, const T *a,
                   int lda, const T *b, int ldb, T *c, int ldc) {
  typedef value_traits<T> V;
  const bool ta = !plain_op(transa), ca = conj_op(transa);
  const bool tb = !plain_op(transb), cb = conj_op(transb);
  for (int j = 0; j < n; ++j) {
    for (int p = 0; p < k; ++p) {
      T bv = tb ? b[j + static_cast<std::ptrdiff_t>(p) * ldb]
                : b[p + static_cast<std::ptrdiff_t>(j) * ldb];
      if (cb) bv = V::conj(bv);
      bv = V::mul(alpha, bv);
      T *cj = c + static_cast<std::ptrdiff_t>(j) * ldc;
      for (int i = 0; i < m; ++i) {
        T av = ta ? a[p + static_cast<std::ptrdiff_t>(i) * lda]
                  : a[i + static_cast<std::ptrdiff_t>(p) * lda];
        if (ca) av = V::conj(av);
        cj[i] += V::mul(av, bv);
      }
    }
  }
}

inline std::size_t round_up(std::size_t x, std::size_t to) { return (x + to - 1) / to * to; }

}  // namespace

template <class T>
void scale_block(int m, int n, T beta, T *c, int ldc) {
  if (beta == T(1)) return;
  for (int j = 0; j < n; ++j) {
    T *cj = c + static_cast<std::ptrdiff_t>(j) * ldc;
    if (beta == T(0)) {
      for (int i = 0; i < m; ++i) cj[i] = T(0);
    } else {
      for (int i = 0; i < m; ++i) cj[i] = value_traits<T>::mul(beta, cj[i]);
    }
  }
}

namespace {

// C scaled by beta, on the whole block or on one triangle of a square one.
template <class T>
void scale_part(int tri, int m, int n, T beta, T *c, int ldc) {
  if (tri == 0) {
    scale_block(m, n, beta, c, ldc);
    return;
  }
  for (int j = 0; j < n; ++j) {
    const int i0 = tri == 1 ? j : 0, i1 = tri == 1 ? m : std::min(m, j + 1);
    if (i1 > i0) scale_block(i1 - i0, 1, beta, c + i0 + static_cast<std::ptrdiff_t>(j) * ldc, ldc);
  }
}

template <class T>
void gemm_blocked(const kernel_set<T> &s, char transa, char transb, int m, int n, int k,
                  T alpha, const T *a, int lda, const T *b, int ldb, T beta, T *c, int ldc,
                  int tri) {
  if (m <= 0 || n <= 0) return;
  if (k <= 0 || alpha == T(0)) {
    scale_part(tri, m, n, beta, c, ldc);
    return;
  }
  int first_add = 1;
  if (beta == T(0)) {
    first_add = 0;
  } else if (!(beta == T(1))) {
    scale_part(tri, m, n, beta, c, ldc);
  }

  // One block of the thread cache holds both pack areas, each starting on
  // a page; its size depends only on the kernel set, so that the cache
  // serves every call of the set from the same block.
  const std::size_t a_bytes = round_up(std::size_t(s.mc) * s.kc * sizeof(T), 4096);
  const std::size_t b_bytes = round_up(std::size_t(s.kc) * s.nc * sizeof(T), 4096);
  void *block = vek_serv_allocate(static_cast<std::int64_t>(a_bytes + b_bytes + 8704), 128);
  if (block == nullptr) {
    if (tri == 0) {
      if (first_add == 0) scale_block(m, n, T(0), c, ldc);
      gemm_unpacked(transa, transb, m, n, k, alpha, a, lda, b, ldb, c, ldc);
    } else {
      // Column by column, each on its part of the triangle.
      for (int j = 0; j < n; ++j) {
        const int i0 = tri == 1 ? j : 0, i1 = tri == 1 ? m : std::min(m, j + 1);
        if (i1 <= i0) continue;
        T *cj = c + i0 + static_cast<std::ptrdiff_t>(j) * ldc;
        if (first_add == 0) scale_block(i1 - i0, 1, T(0), cj, ldc);
        const T *ai = plain_op(transa) ? a + i0 : a + static_cast<std::ptrdiff_t>(i0) * lda;
        const T *bj = plain_op(transb) ? b + static_cast<std::ptrdiff_t>(j) * ldb : b + j;
        gemm_unpacked(transa, transb, i1 - i0, 1, k, alpha, ai, lda, bj, ldb, cj, ldc);
      }
    }
    return;
  }
  T *abuf = reinterpret_cast<T *>(round_up(reinterpret_cast<std::uintptr_t>(block), 4096));
  T *bbuf = reinterpret_cast<T *>(reinterpret_cast<char *>(abuf) + a_bytes);

  const bool ta = !plain_op(transa), tb = !plain_op(transb);
  // Steps of the inner dimension of nearly equal length, at most kc.
  const int ksteps = (k + s.kc - 1) / s.kc;
  const int kstep = (k + ksteps - 1) / ksteps;

  for (int jc = 0; jc < n; jc += s.nc) {
    const int nb = std::min(s.nc, n - jc);
    for (int pc = 0; pc < k; pc += kstep) {
      const int kb = std::min(kstep, k - pc);
      const T *bblk = tb ? b + jc + static_cast<std::ptrdiff_t>(pc) * ldb
                         : b + pc + static_cast<std::ptrdiff_t>(jc) * ldb;
      pack_b(transb, kb, nb, bblk, ldb, bbuf, s.nr);
      const int add = pc == 0 ? first_add : 1;
      for (int ic = 0; ic < m; ic += s.mc) {
        const int mb = std::min(s.mc, m - ic);
        if (tri == 1 && ic + mb - 1 < jc) continue;
        if (tri == 2 && ic > jc + nb - 1) break;
        const T *ablk = ta ? a + pc + static_cast<std::ptrdiff_t>(ic) * lda
                           : a + ic + static_cast<std::ptrdiff_t>(pc) * lda;
        pack_a(transa, mb, kb, ablk, lda, alpha, abuf, s.mr);
        macro_tiles(s, mb, nb, kb, abuf, bbuf, c + ic + static_cast<std::ptrdiff_t>(jc) * ldc,
                    ldc, add, tri, ic, jc);
      }
    }
  }
  vek_serv_deallocate(block);
}

}  // namespace

template <class T>
void gemm_whole(const kernel_set<T> &s, char transa, char transb, int m, int n, int k,
                T alpha, const T *a, int lda, const T *b, int ldb, T beta, T *c, int ldc) {
  gemm_blocked(s, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 0);
}

template <class T>
void gemm_triangle(const kernel_set<T> &s, char uplo, char transa, char transb, int n, int k,
                   T alpha, const T *a, int lda, const T *b, int ldb, T beta, T *c, int ldc) {
  const int tri = (uplo == 'U' || uplo == 'u') ? 2 : 1;
  gemm_blocked(s, transa, transb, n, n, k, alpha, a, lda, b, ldb, beta, c, ldc, tri);
}

// --- Dispatch ------------------------------------------------------------------

namespace {

template <class T, int TYPE>
void gemm_variant(const char *transa, const char *transb, const int *m, const int *n,
                  const int *k, const T *alpha, const T *a, const int *lda, const T *b,
                  const int *ldb, const T *beta, T *c, const int *ldc, std::size_t,
                  std::size_t) {
  gemm_whole(kernel_set_of<T>(TYPE), *transa, *transb, *m, *n, *k, *alpha, a, *lda, b,
             *ldb, *beta, c, *ldc);
}

template <class T>
void gemm_stub(char transa, char transb, int m, int n, int k, T alpha, const T *a,
               int lda, const T *b, int ldb, T beta, T *c, int ldc) {
  vek_serv_stub<gemm_variant<T, 0>, gemm_variant<T, 2>, gemm_variant<T, 3>,
                gemm_variant<T, 4>, gemm_variant<T, 5>, gemm_variant<T, 6>,
                gemm_variant<T, 7>>::call(&transa, &transb, &m, &n, &k, &alpha, a, &lda,
                                          b, &ldb, &beta, c, &ldc, 1, 1);
}

template <class T>
struct is_complex_value : std::false_type {};
template <class R>
struct is_complex_value<std::complex<R>> : std::true_type {};

// Whether threads pay for a product with all dimensions at most 100: the
// work against the cost of the threads, by the counts of the frame's model.
template <class T>
bool threads_pay(int m, int n, int k, int nthreads) {
  int m1 = m, n1 = n;
  if (n * nthreads < m) {
    m1 = m / nthreads;
  } else {
    n1 = n / nthreads;
  }
  double w, p;
  if (is_complex_value<T>::value) {
    if (nthreads < 3) return true;
    w = (2.0 * (2.0 * m * n + n) + 2.0 * m) * k;
    p = 1000.0 * nthreads + double(k) * (2.0 * (2.0 * m1 * n1 + n1) + 2.0 * m1);
  } else {
    w = (double(n) * m + m + n) * k;
    double kterm = double(k) * (m1 + double(m1) * n1 + n1);
    if (sizeof(T) == 4) {
      w *= 0.5;
      kterm *= 0.5;
    }
    p = 1000.0 * nthreads + kterm;
  }
  return w / p > 1.4;
}

std::int32_t thread_limit = 0;

}  // namespace

int dense_threads() {
  // Inside a region where a nested one would get no more threads (the
  // threaded factorizations), the serial forms run without opening one.
  if (omp_get_active_level() >= omp_get_max_active_levels()) return 1;
  int t = vek_serv_domain_get_max_threads(VEK_DOMAIN_BLAS);
  const int limit = __atomic_load_n(&thread_limit, __ATOMIC_RELAXED);
  if (limit > 0 && t > limit) t = limit;
  return t < 1 ? 1 : t;
}

void dense_thread_limit(int count) {
  __atomic_store_n(&thread_limit, count < 0 ? 0 : count, __ATOMIC_RELAXED);
}

template <class T>
void gemm_frame(char transa, char transb, int m, int n, int k, T alpha, const T *a,
                int lda, const T *b, int ldb, T beta, T *c, int ldc) {
  if (m < 1 || n < 1) return;
  if (m <= 16 && n <= 16 && k <= 16) {
    gemm_stub(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  int nthreads = dense_threads();
  const bool small = m <= 100 && n <= 100 && k <= 100;
  if (nthreads >= 2 && small && !threads_pay<T>(m, n, k, nthreads)) nthreads = 1;
  // A thread should have at least one tile of its own.
  const kernel_set<T> &s = kernel_set_of<T>(vek_serv_cpu_detect());
  const bool by_columns = m <= (small ? n * nthreads : n);
  const int unit = by_columns ? s.nr : s.mr;
  const int extent = by_columns ? n : m;
  nthreads = std::min(nthreads, (extent + unit - 1) / unit);
  if (nthreads < 2) {
    gemm_stub(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  const bool ta = !plain_op(transa), tb = !plain_op(transb);
#pragma omp parallel num_threads(nthreads)
  {
    // Shares from the threads that really came, in whole tiles.
    const int got = omp_get_num_threads(), t = omp_get_thread_num();
    const int tiles = (extent + unit - 1) / unit;
    const int first = int(std::int64_t(tiles) * t / got) * unit;
    const int last = std::min(extent, int(std::int64_t(tiles) * (t + 1) / got) * unit);
    if (last > first) {
      if (by_columns) {
        const T *bp = tb ? b + first : b + static_cast<std::ptrdiff_t>(first) * ldb;
        gemm_stub(transa, transb, m, last - first, k, alpha, a, lda, bp, ldb, beta,
                  c + static_cast<std::ptrdiff_t>(first) * ldc, ldc);
      } else {
        const T *ap = ta ? a + static_cast<std::ptrdiff_t>(first) * lda : a + first;
        gemm_stub(transa, transb, last - first, n, k, alpha, ap, lda, b, ldb, beta,
                  c + first, ldc);
      }
    }
  }
}

#define VEK_GEMM_INSTANCE(P, T)                                                        \
  template void gemm_whole<T>(const kernel_set<T> &, char, char, int, int, int, T,    \
                              const T *, int, const T *, int, T, T *, int);           \
  template void scale_block<T>(int, int, T, T *, int);                                \
  template void gemm_triangle<T>(const kernel_set<T> &, char, char, char, int, int, T,  \
                                 const T *, int, const T *, int, T, T *, int);          \
  template void gemm_frame<T>(char, char, int, int, int, T, const T *, int, const T *, \
                              int, T, T *, int);                                      \
  void P##gemm(const char *transa, const char *transb, const int *m, const int *n,    \
               const int *k, const T *alpha, const T *a, const int *lda, const T *b,  \
               const int *ldb, const T *beta, T *c, const int *ldc, std::size_t,      \
               std::size_t) {                                                         \
    gemm_frame<T>(*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c,   \
                  *ldc);                                                              \
  }

VEK_GEMM_INSTANCE(d, double)
VEK_GEMM_INSTANCE(s, float)
VEK_GEMM_INSTANCE(z, zcomplex)
VEK_GEMM_INSTANCE(c, ccomplex)

}  // namespace vekd
