// vek_dense_getrf_lookahead.cpp - the threaded LU one panel ahead of the
// update.
//
// For each panel the trailing columns are shared among the threads in
// stripes of multiples of four; thread 0 takes the first stripe, which
// holds the next panel, and as soon as it has applied the last panel to
// its stripe it factors the next one while the others are still updating.
// Its stripe is made narrower by the cost of the panel (oracle query 12),
// so that all finish together.
#include <omp.h>

#include <algorithm>

#include "dense/vek_dense_lapack.h"
#include "service/vek_serv_message.h"

namespace vekd {
namespace {

// Applies the panel at (kp, kp), nb wide, to columns c0 to c0 + ncols - 1.
template <class T>
void apply_panel(int m, T *a, int lda, const int *ipiv, int kp, int nb, int c0, int ncols) {
  if (ncols <= 0) return;
  typedef level3<T> L;
  L::laswp(ncols, entry(a, lda, 1, c0), lda, kp, kp + nb - 1, ipiv);
  L::trsm("L", "L", "N", "U", nb, ncols, T(1), entry(a, lda, kp, kp), lda,
          entry(a, lda, kp, c0), lda);
  if (kp + nb <= m)
    L::gemm("N", "N", m - kp - nb + 1, ncols, nb, T(-1), entry(a, lda, kp + nb, kp), lda,
            entry(a, lda, kp, c0), lda, T(1), entry(a, lda, kp + nb, c0), lda);
}

// The panel at (j, j), jb wide, with its info and pivots made global.
template <class T>
int factor_panel(int m, T *a, int lda, int *ipiv, int *info, int j, int jb, int thread,
                 int offset, bool lookahead) {
  int local = 0;
  const int stop =
      lookahead ? getrf_lookahead(m - j + 1, jb, entry(a, lda, j, j), lda, ipiv + (j - 1),
                                  &local, thread, offset + j - 1)
                : getrf_panel(m - j + 1, jb, entry(a, lda, j, j), lda, ipiv + (j - 1), &local,
                              thread, offset + j - 1);
  if (*info == 0 && local > 0) *info = local + j - 1;
  const int last = std::min(m, j + jb - 1);
  for (int i = j; i <= last; ++i) ipiv[i - 1] += j - 1;
  return stop;
}

inline int down4(int x) { return x / 4 * 4; }

}  // namespace

template <class T>
int getrf_lookahead(int m, int n, T *a, int lda, int *ipiv, int *info, int thread,
                    int offset) {
  const char *name = lapack_names<T>::getrf;
  *info = 0;
  if (m < 0) *info = -1;
  else if (n < 0) *info = -2;
  else if (lda < std::max(1, m)) *info = -4;
  if (*info != 0) {
    const int pos = -*info;
    xerbla(name, &pos, 6);
    return 0;
  }
  if (m == 0 || n == 0) return 0;
  if (n <= ilaenv(3, name, 'P', m, n, -1, -1))
    return getrf_panel(m, n, a, lda, ipiv, info, thread, offset);
  const int nthreads = factor_threads();
  if (nthreads < 2) return getrf_panel(m, n, a, lda, ipiv, info, 0, 0);
  const int mn = std::min(m, n);
  const int nb = ilaenv(1, name, 'P', m, n, -1, -1);
  if (!(nb > 1 && nb < mn)) {
    getrf_unblocked(m, n, a, lda, ipiv, info);
    return progress(thread, offset + n, name);
  }
  if (getrf_lookahead(m, nb, a, lda, ipiv, info, thread, offset) != 0) return 1;
  const int steps = (mn - 1) / nb;
  int stop = 0;
  for (int s = 0, j = nb + 1; s < steps; ++s, j += nb) {
    const int jb = std::min(mn - j + 1, nb);
    const int rest = n - j + 1;
    const int kp = j - nb;  // the panel to apply
    int factored = 0;
#pragma omp parallel num_threads(nthreads)
    {
      const int t = omp_get_thread_num(), nt = omp_get_num_threads();
      // Stripes: thread 0 first, from column j; the last takes what is left.
      int first = 0, others = 0;
      bool factor = false;
      const int share = down4(rest / nt);
      if (nt < 2 || jb >= rest) {
        first = others = share;
      } else {
        const int cost = nb * ilaenv(12, name, 'P', m - j + 1, rest, -1, -1) / 32;
        const int r = down4(std::max(share - cost, 0));
        if (r >= jb) {
          first = r;
          others = down4((rest - r) / (nt - 1));
          factor = true;
        } else if (share < jb && jb > 8) {
          first = others = share;
        } else {
          first = jb;
          others = down4((rest - jb) / (nt - 1));
          factor = true;
        }
      }
      const int c0 = t == 0 ? j : j + first + (t - 1) * others;
      int width = t == 0 ? first : others;
      if (t == nt - 1) width = n - c0 + 1;
      if (nt == 1) width = rest;
#pragma omp barrier
      apply_panel(m, a, lda, ipiv, kp, nb, c0, width);
      if (t == 0 && factor && nt > 1) {
        factored = 1;
        if (factor_panel(m, a, lda, ipiv, info, j, jb, t, offset, false) != 0)
          __atomic_store_n(&stop, 1, __ATOMIC_RELAXED);
      }
    }
    if (stop != 0) return 1;
    if (!factored && factor_panel(m, a, lda, ipiv, info, j, jb, thread, offset, true) != 0)
      return 1;
  }
  // Columns right of a wide block's last panel.
  if (m < n) {
    const int kp = (steps * nb) + 1, jb = mn - kp + 1;
    level3<T>::laswp(n - m, entry(a, lda, 1, m + 1), lda, kp, mn, ipiv);
    level3<T>::trsm("L", "L", "N", "U", jb, n - m, T(1), entry(a, lda, kp, kp), lda,
                    entry(a, lda, kp, m + 1), lda);
  }
  // The left exchanges, each block's columns sliced among the threads.
  const int blocks = steps;
#pragma omp parallel num_threads(nthreads)
  {
    const int t = omp_get_thread_num(), nt = omp_get_num_threads();
    const int slice = nb / nt;
    const int w = t == nt - 1 ? nb - slice * (nt - 1) : slice;
    for (int b = 0; b < blocks && w > 0; ++b) {
      const int c = b * nb + 1 + t * slice;
      level3<T>::laswp(w, entry(a, lda, 1, c), lda, (b + 1) * nb + 1, mn, ipiv);
    }
  }
  return 0;
}

#define VEK_LOOKAHEAD_INSTANCE(P, T)                                                       \
  template int getrf_lookahead<T>(int, int, T *, int, int *, int *, int, int);             \
  int P##getrf_lookahead(const int *m, const int *n, T *a, const int *lda, int *ipiv,      \
                         int *info, const int *thread, const int *offset) {                \
    return getrf_lookahead<T>(*m, *n, a, *lda, ipiv, info, *thread, *offset);              \
  }

VEK_LOOKAHEAD_INSTANCE(d, double)
VEK_LOOKAHEAD_INSTANCE(s, float)
VEK_LOOKAHEAD_INSTANCE(z, zcomplex)
VEK_LOOKAHEAD_INSTANCE(c, ccomplex)

}  // namespace vekd
