// vek_dense_potrf.cpp - Cholesky factorization of a real symmetric or
// complex Hermitian positive definite matrix, A = U^H U or A = L L^H: the
// front under the published names, the recursive form of one thread and the
// wave scheduler of several. The imaginary parts of a complex diagonal are
// not read, and the factor's diagonal is real.
//
// The recursive form walks the matrix in blocks of the oracle's width,
// left-looking: each diagonal block takes the updates of all blocks left
// of it in one rank-k update and is factored by the same routine on a
// smaller width, down to the unblocked kernel; the rows below it take one
// product and one triangular solve.
//
// The threaded form cuts the matrix into tiles of nb and lets the threads
// take square groups of p by p tiles (the wave) as soon as their sources
// are finished: a diagonal group takes its rank-k updates and is then
// factored, an off-diagonal group takes its products and then its
// triangular solve. Up to width ready panels go into one product. Panels
// beyond the boundary wait until the rows before it are done; then the
// wave is halved and the boundary moved on, so that the groups grow smaller
// as the remaining matrix does. The status chol_status, shared by all
// threads and changed only under the call's status lock:
//
//   word 0 ntiles, 1 finished, 2 scan_row (tile rows up to it are done),
//   3 wave (p), 4 boundary, 5 nthreads,
//   tile_state(i, j), i <= j, at word j (j - 1) / 2 + i + 5: k > 0 when
//   panels 1 to k - 1 have been applied and k is next, -k while a thread
//   holds it, 0 when finished.
//
// For the upper form tile (i, j) is block row i, block column j of A; for
// the lower form block row j, block column i.
#include <omp.h>

#include <algorithm>

#include "dense/vek_dense_lapack.h"
#include "service/vek_serv_memory.h"
#include "service/vek_serv_message.h"

namespace vekd {
namespace {

// The rank-k update of a diagonal block, C := C - op(A) op(A)^H on the
// triangle uplo (trans N, or that of adjoint below); the Hermitian one for
// complex values.
template <class T> struct rank_k;
template <> struct rank_k<double> {
  static void update(const char *uplo, const char *tr, int n, int k, const double *a,
                     int lda, double *c, int ldc) {
    const double minus = -1, one = 1;
    dsyrk(uplo, tr, &n, &k, &minus, a, &lda, &one, c, &ldc, 1, 1);
  }
};
template <> struct rank_k<float> {
  static void update(const char *uplo, const char *tr, int n, int k, const float *a,
                     int lda, float *c, int ldc) {
    const float minus = -1, one = 1;
    ssyrk(uplo, tr, &n, &k, &minus, a, &lda, &one, c, &ldc, 1, 1);
  }
};
template <> struct rank_k<zcomplex> {
  static void update(const char *uplo, const char *tr, int n, int k, const zcomplex *a,
                     int lda, zcomplex *c, int ldc) {
    const double minus = -1, one = 1;
    zherk(uplo, tr, &n, &k, &minus, a, &lda, &one, c, &ldc, 1, 1);
  }
};
template <> struct rank_k<ccomplex> {
  static void update(const char *uplo, const char *tr, int n, int k, const ccomplex *a,
                     int lda, ccomplex *c, int ldc) {
    const float minus = -1, one = 1;
    cherk(uplo, tr, &n, &k, &minus, a, &lda, &one, c, &ldc, 1, 1);
  }
};

// The letter of the conjugate transpose: T for real values, whose packing
// takes the shorter road without a conjugate.
template <class T> inline const char *adjoint() { return "T"; }
template <> inline const char *adjoint<zcomplex>() { return "C"; }
template <> inline const char *adjoint<ccomplex>() { return "C"; }

inline bool is_upper(char u) { return u == 'U' || u == 'u'; }

}  // namespace

template <class T>
int potrf_recursive(char uplo, int n, T *a, int lda, int *info, int thread, int offset) {
  const char *name = lapack_names<T>::potrf;
  typedef level3<T> L;
  *info = 0;
  const int nb = ilaenv(1, name, uplo, n, -1, -1, -1);
  if (nb < 2 || n <= nb) {
    potf2_kernel(uplo, n, a, lda, info);
    return progress(thread, offset + n, name);
  }
  const bool upper = is_upper(uplo);
  const char *ct = adjoint<T>();
  for (int j = 1; j <= n; j += nb) {
    const int jb = std::min(n - j + 1, nb);
    T *ajj = entry(a, lda, j, j);
    if (upper) rank_k<T>::update("U", ct, jb, j - 1, entry(a, lda, 1, j), lda, ajj, lda);
    else rank_k<T>::update("L", "N", jb, j - 1, entry(a, lda, j, 1), lda, ajj, lda);
    int local = 0;
    const int stop = potrf_recursive(uplo, jb, ajj, lda, &local, thread, offset + j - 1);
    if (stop != 0) return stop;
    if (local != 0) {
      *info = local + j - 1;
      return 0;
    }
    if (j + jb > n) break;
    const int rest = n - j - jb + 1;
    if (upper) {
      L::gemm(ct, "N", jb, rest, j - 1, T(-1), entry(a, lda, 1, j), lda,
              entry(a, lda, 1, j + jb), lda, T(1), entry(a, lda, j, j + jb), lda);
      L::trsm("L", "U", ct, "N", jb, rest, T(1), ajj, lda, entry(a, lda, j, j + jb), lda);
    } else {
      L::gemm("N", ct, rest, jb, j - 1, T(-1), entry(a, lda, j + jb, 1), lda,
              entry(a, lda, j, 1), lda, T(1), entry(a, lda, j + jb, j), lda);
      L::trsm("R", "L", ct, "N", rest, jb, T(1), ajj, lda, entry(a, lda, j + jb, j), lda);
    }
  }
  return 0;
}

namespace {

enum { NTILES, FINISHED, SCAN_ROW, WAVE, BOUNDARY, NTHREADS };

struct chol_status {
  std::int32_t *w;
  std::int32_t *tile(int i, int j) const { return w + (j * (j - 1) / 2 + i + 5); }
  int tile_state(int i, int j) const { return __atomic_load_n(tile(i, j), __ATOMIC_ACQUIRE); }
  void set(int i, int j, int v) const { __atomic_store_n(tile(i, j), v, __ATOMIC_RELEASE); }
  // Marks the tiles of the p by p group at (a, b) with row <= column.
  void mark(int a, int b, int p, int v) const {
    const int nt = w[NTILES];
    for (int j = b; j < b + p && j <= nt; ++j)
      for (int i = a; i < a + p && i <= j; ++i) set(i, j, v);
  }
};

struct wave_task {
  int i, j, k, w;
};

// Whether tile (a, b) can take its next panel now.
bool ready(const chol_status &s, int a, int b) {
  const int k = s.tile_state(a, b);
  if (k <= 0 || k > s.w[BOUNDARY]) return false;
  if (a == b) return s.tile_state(k, b) == 0;
  return s.tile_state(k, a) == 0 && (k == a || s.tile_state(k, b) == 0);
}

bool scan(const chol_status &s, wave_task &got) {
  const int nt = s.w[NTILES], p = s.w[WAVE];
  bool contiguous = true;
  for (int a = s.w[SCAN_ROW] + 1; a <= nt; a += p) {
    bool done = true;
    for (int b = a; b <= nt; b += p) {
      if (ready(s, a, b)) {
        got = {a, b, s.tile_state(a, b), p};
        return true;
      }
      if (s.tile_state(a, b) != 0) done = false;
    }
    if (done && contiguous) s.w[SCAN_ROW] = std::min(a + p - 1, nt);
    else contiguous = false;
  }
  return false;
}

// Chooses the next group for a thread whose last one was (li, lj) (li 0:
// none). Runs under the status lock.
wave_task choose(const chol_status &s, int li, int lj) {
  const int nt = s.w[NTILES];
  wave_task got = {0, 0, -1, 1};
  int p = s.w[WAVE];
  const bool aligned = li > 0 && (li - 1) % p == 0 && (lj - 1) % p == 0;
  bool found = false;
  if (aligned && ready(s, li, lj)) {
    got = {li, lj, s.tile_state(li, lj), p};
    found = true;
  } else if (aligned && li + p <= lj && ready(s, li + p, lj)) {
    got = {li + p, lj, s.tile_state(li + p, lj), p};
    found = true;
  }
  while (!found) {
    found = scan(s, got);
    const int boundary = s.w[BOUNDARY];
    if (found || s.w[SCAN_ROW] + 1 < boundary || boundary >= nt) break;
    p = std::max(p / 2, 1);
    __atomic_store_n(&s.w[WAVE], p, __ATOMIC_RELEASE);
    s.w[BOUNDARY] = std::min(nt, boundary + std::max((nt - boundary) / 2 / p * p, p));
  }
  if (found) {
    s.mark(got.i, got.j, got.w, -got.k);
    return got;
  }
  got = {0, 0, -1, 1};
  bool open = false;
  for (int b = s.w[SCAN_ROW] + 1; b <= nt && !open; ++b)
    for (int a = s.w[SCAN_ROW] + 1; a <= b; ++a)
      if (s.tile_state(a, b) != 0) {
        open = true;
        break;
      }
  if (!open) __atomic_store_n(&s.w[FINISHED], 1, __ATOMIC_RELEASE);
  return got;
}

// Whether panel k has been finished on tile columns c to c + w - 1.
bool sources_done(const chol_status &s, int k, int c, int w) {
  const int nt = s.w[NTILES];
  for (int x = c; x < c + w && x <= nt; ++x)
    if (s.tile_state(k, x) != 0) return false;
  return true;
}

// Runs one group; returns nonzero when the progress hook asked to stop.
// The group's next state (0: finished) goes to *next; the caller enters it
// under the status lock, since a chooser that saw part of a group's tiles
// changed could take an overlapping group of the halved wave.
template <class T>
int run_group(const chol_status &s, wave_task g, char uplo, int n, T *a, int lda, int nb,
              int width, int *info, int thread, int *next) {
  typedef level3<T> L;
  const bool upper = is_upper(uplo);
  const char *ct = adjoint<T>();
  const int i = g.i, j = g.j, w = g.w;
  int k = g.k, stop = 0;
  int m = 1;
  for (int kk = k + 1; kk < i && m < width; ++kk, ++m)
    if (!sources_done(s, kk, i, w) || (i != j && !sources_done(s, kk, j, w))) break;
  const int r0 = (i - 1) * nb + 1, c0 = (k - 1) * nb + 1;
  const int rows = std::min(w * nb, n - r0 + 1), count = std::min(m * nb, r0 - c0);
  if (i == j) {
    if (k != i) {
      if (upper)
        rank_k<T>::update("U", ct, rows, count, entry(a, lda, c0, r0), lda,
                          entry(a, lda, r0, r0), lda);
      else
        rank_k<T>::update("L", "N", rows, count, entry(a, lda, r0, c0), lda,
                          entry(a, lda, r0, r0), lda);
      k += m;
    }
    if (k == i && __atomic_load_n(info, __ATOMIC_RELAXED) == 0) {
      int local = 0;
      stop = potrf_recursive(uplo, rows, entry(a, lda, r0, r0), lda, &local, thread, r0 - 1);
      if (local != 0) __atomic_store_n(info, r0 - 1 + local, __ATOMIC_RELAXED);
      ++k;
    }
  } else {
    const int c1 = (j - 1) * nb + 1, cols = std::min(w * nb, n - c1 + 1);
    if (k != i) {
      if (upper)
        L::gemm(ct, "N", rows, cols, count, T(-1), entry(a, lda, c0, r0), lda,
                entry(a, lda, c0, c1), lda, T(1), entry(a, lda, r0, c1), lda);
      else
        L::gemm("N", ct, cols, rows, count, T(-1), entry(a, lda, c1, c0), lda,
                entry(a, lda, r0, c0), lda, T(1), entry(a, lda, c1, r0), lda);
      k += m;
    }
    if (k == i && s.tile_state(i, i) == 0 && __atomic_load_n(&s.w[WAVE], __ATOMIC_RELAXED) == w) {
      if (upper)
        L::trsm("L", "U", ct, "N", rows, cols, T(1), entry(a, lda, r0, r0), lda,
                entry(a, lda, r0, c1), lda);
      else
        L::trsm("R", "L", ct, "N", cols, rows, T(1), entry(a, lda, r0, r0), lda,
                entry(a, lda, c1, r0), lda);
      ++k;
    }
  }
  *next = k > i ? 0 : k;
  return stop;
}

template <class T>
void potrf_front(const char *puplo, const int *pn, T *a, const int *plda, int *info) {
  const char *name = lapack_names<T>::potrf;
  const char uplo = *puplo;
  const int n = *pn, lda = *plda;
  *info = 0;
  if (uplo != 'U' && uplo != 'u' && uplo != 'L' && uplo != 'l') *info = -1;
  else if (n < 0) *info = -2;
  else if (lda < std::max(1, n)) *info = -4;
  if (*info != 0) {
    const int pos = -*info;
    xerbla(name, &pos, 6);
    return;
  }
  if (n == 0) return;
  if (n < ilaenv(3, name, uplo, n, -1, -1, -1)) {
    potf2_kernel(uplo, n, a, lda, info);
    return;
  }
  const int nthreads = factor_threads();
  if (nthreads < 2) {
    potrf_recursive(uplo, n, a, lda, info, 0, 0);
    return;
  }
  const int nb = ilaenv(1, name, uplo, n, nthreads, -1, -1);
  int width = ilaenv(1, name, uplo, n, nthreads, -2, -1);
  const int limit = ilaenv(1, name, uplo, n, nthreads, -3, -1);
  if (nb < 2 || n <= nb) {
    potrf_recursive(uplo, n, a, lda, info, 0, 0);
    return;
  }
  const int nt = (n + nb - 1) / nb;
  chol_status s = {static_cast<std::int32_t *>(
      vek_serv_allocate(static_cast<std::int64_t>(nt) * (nt + 1) / 2 * 4 + 24, 128))};
  if (s.w == nullptr) {
    potrf_recursive(uplo, n, a, lda, info, 0, 0);
    return;
  }
  int p = 1;
  while (2 * p <= std::max(nt / (nthreads + 1), 1)) p *= 2;
  s.w[NTILES] = nt;
  s.w[FINISHED] = 0;
  s.w[SCAN_ROW] = 0;
  s.w[NTHREADS] = nthreads;
  s.w[BOUNDARY] = (nt / 2 + p - 1) / p * p;
  for (int j = 1; j <= nt; ++j)
    for (int i = 1; i <= j; ++i) *s.tile(i, j) = 1;
  while (limit < p * nb && p != 1) p = std::max(p / 2, 1);
  s.w[WAVE] = p;
  width = std::max(width / p * p, p);
  const int first = std::min(nb * p, n);
  potrf_front(puplo, &first, a, plda, info);
  if (*info != 0) {
    vek_serv_deallocate(s.w);
    return;
  }
  s.mark(1, 1, p, 0);
  int stop = 0;
  std::int32_t news = 0;  // groups finished
  std::int32_t status_lock = 0;
#pragma omp parallel num_threads(nthreads)
  {
    const int t = omp_get_thread_num();
    int li = 0, lj = 0;
    for (;;) {
      wave_task g;
      std::int32_t seen;
      lock_status(&status_lock);
      const int wave = s.w[WAVE];
      g = choose(s, li, lj);
      // A halved wave may have made groups ready for the others too.
      if (s.w[WAVE] != wave) __atomic_add_fetch(&news, 1, __ATOMIC_RELEASE);
      seen = __atomic_load_n(&news, __ATOMIC_ACQUIRE);
      unlock_status(&status_lock);
      if (g.k > 0) {
        int next = 0;
        if (run_group(s, g, uplo, n, a, lda, nb, width, info, t, &next) != 0)
          __atomic_store_n(&stop, 1, __ATOMIC_RELAXED);
        lock_status(&status_lock);
        s.mark(g.i, g.j, g.w, next);
        unlock_status(&status_lock);
        __atomic_add_fetch(&news, 1, __ATOMIC_RELEASE);
        li = g.i;
        lj = g.j;
      } else if (__atomic_load_n(&s.w[FINISHED], __ATOMIC_ACQUIRE) == 0) {
        wait_for_news(&news, seen);
      }
      if (__atomic_load_n(&s.w[FINISHED], __ATOMIC_ACQUIRE) == 1 ||
          __atomic_load_n(info, __ATOMIC_RELAXED) != 0 ||
          __atomic_load_n(&stop, __ATOMIC_RELAXED) != 0)
        break;
    }
  }
  vek_serv_deallocate(s.w);
}

}  // namespace

#define VEK_POTRF_INSTANCE(P, T)                                                           \
  template int potrf_recursive<T>(char, int, T *, int, int *, int, int);                   \
  void P##potrf(const char *uplo, const int *n, T *a, const int *lda, int *info,           \
                std::size_t) {                                                             \
    potrf_front<T>(uplo, n, a, lda, info);                                                 \
  }                                                                                        \
  int P##potrf_recursive(const char *uplo, const int *n, T *a, const int *lda, int *info,  \
                         const int *thread, const int *offset, std::size_t) {              \
    return potrf_recursive<T>(*uplo, *n, a, *lda, info, *thread, *offset);                 \
  }

VEK_POTRF_INSTANCE(d, double)
VEK_POTRF_INSTANCE(s, float)
VEK_POTRF_INSTANCE(z, zcomplex)
VEK_POTRF_INSTANCE(c, ccomplex)

}  // namespace vekd
