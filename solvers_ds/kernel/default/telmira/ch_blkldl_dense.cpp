// ch_blkldl_dense.cpp - the dense steps on the diagonal block of a supernode
// in the Hermitian L D L^H factorization: Bunch-Kaufman with the Hermitian
// rules (real diagonal, conjugating exchanges, eigen-decomposition of the
// 2 by 2 pivots) and diagonal pivoting, both unblocked with replacement of
// small pivots, and the application of a Bunch-Kaufman factor to a block of
// right-hand sides.
#include <cmath>
#include <complex>

#include "ch_blkldl.h"
#include "dense/vek_dense.h"
#include "dense/vek_dense_herm.h"
#include "service/vek_serv_message.h"

namespace {

template <class T> inline T &at(T *a, int lda, int i, int j) {
  return a[(i - 1) + static_cast<long>(j - 1) * lda];
}
template <class T> inline const T &at(const T *a, int lda, int i, int j) {
  return a[(i - 1) + static_cast<long>(j - 1) * lda];
}

template <class T> inline void swap_values(T &x, T &y) {
  const T t = x;
  x = y;
  y = t;
}

// The magnitude of the pivot search: |re| + |im|.
template <class R> inline R cabs1(const std::complex<R> &z) {
  return std::fabs(z.real()) + std::fabs(z.imag());
}

// The replacement of a small pivot: thr is the test, rep the magnitude put
// in its place. An eps of 0 replaces exact zeros only, by 1e-8.
template <class R> inline void replacement(R eps, R *thr, R *rep) {
  *thr = eps;
  *rep = eps == R(0) ? R(1.0e-8) : std::abs(eps);
}

// Reports an illegal argument (info < 0) and tells whether there was one.
bool bad_argument(const char *name, int length, int info) {
  if (info == 0) return false;
  const int position = -info;
  xerbla(name, &position, length);
  return true;
}

// The place (from k+1) and |re| + |im| of the largest entry in rows k+1..n
// of column c, the first on ties; k is returned for an empty range.
template <class T>
int column_max(const T *a, int ld, int c, int k, int n, tlm::real_of<T> *big) {
  int imax = k;
  *big = 0;
  for (int i = k + 1; i <= n; ++i)
    if (i == k + 1 || cabs1(at(a, ld, i, c)) > *big) {
      *big = cabs1(at(a, ld, i, c));
      imax = i;
    }
  return imax;
}

}  // namespace

template <class T>
void ch_blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                      int *npert, const tlm::real_of<T> *eps, int *info) {
  typedef tlm::real_of<T> R;
  *info = 0;
  if (*uplo != 'L' && *uplo != 'l')
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*lda < (*n > 1 ? *n : 1))
    *info = -4;
  if (bad_argument("CH_BLKLDL_BKFACT", 16, *info)) return;

  const int N = *n, ld = *lda, one = 1;
  R thr, rep;
  replacement(*eps, &thr, &rep);
  const R alpha = R(0.6403882032022076);  // (1 + sqrt(17)) / 8
  int k = 1;
  while (k <= N) {
    int kstep = 1, kp = k;
    R absakk = std::fabs(at(a, ld, k, k).real());
    R colmax = 0;
    const int imax = column_max(a, ld, k, k, N, &colmax);

    if (absakk <= thr && colmax <= thr) {
      // A negligible column (a NaN never is): repaired, then on through the
      // pivot tests.
      ++*npert;
      if (absakk == R(0) && colmax == R(0)) {
        at(a, ld, k, k) = T(rep);
        absakk = rep;
      } else if (absakk < colmax) {
        at(a, ld, imax, k) *= rep / colmax;
        colmax = rep;
        absakk = 0;
      } else {
        at(a, ld, k, k) = at(a, ld, k, k).real() < R(0) ? T(-rep) : T(rep);
        absakk = rep;
      }
    }

    if (absakk < alpha * colmax) {
      // Largest off-diagonal magnitude in row imax of the trailing block.
      R rowmax = cabs1(at(a, ld, imax, k));
      for (int j = k + 1; j < imax; ++j)
        if (cabs1(at(a, ld, imax, j)) > rowmax) rowmax = cabs1(at(a, ld, imax, j));
      R below = 0;
      if (imax < N) column_max(a, ld, imax, imax, N, &below);
      if (below > rowmax) rowmax = below;
      if (absakk >= alpha * colmax * (colmax / rowmax)) {
        kp = k;
      } else if (std::fabs(at(a, ld, imax, imax).real()) >= alpha * rowmax) {
        kp = imax;
      } else {
        kp = imax;
        kstep = 2;
      }
    }

    // Exchange rows and columns kk and kp of the trailing block, lower
    // triangle only; what crosses the diagonal is conjugated, the two
    // diagonal entries come out real. The columns left of k keep their rows.
    const int kk = k + kstep - 1;
    if (kp != kk) {
      for (int i = kp + 1; i <= N; ++i) swap_values(at(a, ld, i, kk), at(a, ld, i, kp));
      for (int j = kk + 1; j < kp; ++j) {
        const T t = std::conj(at(a, ld, j, kk));
        at(a, ld, j, kk) = std::conj(at(a, ld, kp, j));
        at(a, ld, kp, j) = t;
      }
      at(a, ld, kp, kk) = std::conj(at(a, ld, kp, kk));
      const R r1 = at(a, ld, kk, kk).real();
      at(a, ld, kk, kk) = T(at(a, ld, kp, kp).real());
      at(a, ld, kp, kp) = T(r1);
      if (kstep == 2) swap_values(at(a, ld, k + 1, k), at(a, ld, kp, k));
    }
    // The pivot's diagonal is real.
    at(a, ld, k, k) = T(at(a, ld, k, k).real());
    if (kstep == 2) at(a, ld, k + 1, k + 1) = T(at(a, ld, k + 1, k + 1).real());

    if (kstep == 1) {
      if (k < N) {
        // A22 := A22 - x x^H / d, x := x / d.
        const int m = N - k;
        const R r = R(1) / at(a, ld, k, k).real();
        const R mr = -r;
        vekd::her<R>("L", &m, &mr, &at(a, ld, k + 1, k), &one, &at(a, ld, k + 1, k + 1), lda);
        vekd::rscal<R>(&m, &r, &at(a, ld, k + 1, k), &one);
      }
      ipiv[k - 1] = kp;
    } else {
      if (k < N - 1) {
        // D = Q diag(rt1, rt2) Q^H, Q = [cs -conj(sn); sn cs]. With
        // [x y] := [x y] Q the update is x x^H / rt1 + y y^H / rt2, and
        // [x y] diag(1/rt1, 1/rt2) Q^H is [x y] D^-1.
        const int m = N - k - 1;
        const T b = std::conj(at(a, ld, k + 1, k));
        R rt1, rt2, cs;
        T sn;
        vekd::laev2<R>(&at(a, ld, k, k), &b, &at(a, ld, k + 1, k + 1), &rt1, &rt2, &cs, &sn);
        const R r1 = R(1) / rt1, r2 = R(1) / rt2, mr1 = -r1, mr2 = -r2;
        T *x = &at(a, ld, k + 2, k), *y = &at(a, ld, k + 2, k + 1);
        T *a22 = &at(a, ld, k + 2, k + 2);
        vekd::rot<R>(&m, x, &one, y, &one, &cs, &sn);
        vekd::her<R>("L", &m, &mr1, x, &one, a22, lda);
        vekd::her<R>("L", &m, &mr2, y, &one, a22, lda);
        vekd::rscal<R>(&m, &r1, x, &one);
        vekd::rscal<R>(&m, &r2, y, &one);
        const T msn = -sn;
        vekd::rot<R>(&m, x, &one, y, &one, &cs, &msn);
      }
      ipiv[k - 1] = -kp;
      ipiv[k] = -kp;
    }
    k += kstep;
  }
}

template <class T>
void ch_blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv,
                        int *npert, const tlm::real_of<T> *eps, int *info) {
  typedef tlm::real_of<T> R;
  *info = 0;
  if (*m < 0)
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*lda < (*m > 1 ? *m : 1))
    *info = -4;
  if (bad_argument("CH_BLKLDL_DIAGFACT", 18, *info)) return;

  const int M = *m, N = *n, ld = *lda, mn = M < N ? M : N, one = 1;
  R thr, rep;
  replacement(*eps, &thr, &rep);
  for (int j = 1; j <= mn; ++j) {
    // Largest diagonal modulus from j on, the last on ties.
    int kp = j;
    R big = R(-1);
    for (int i = j; i <= mn; ++i)
      if (std::abs(at(a, ld, i, i)) >= big) {
        big = std::abs(at(a, ld, i, i));
        kp = i;
      }
    if (kp != j)
      for (int c = 1; c <= N; ++c) swap_values(at(a, ld, j, c), at(a, ld, kp, c));
    ipiv[j - 1] = kp;
    if (kp != j)
      for (int r = 1; r <= M; ++r) swap_values(at(a, ld, r, j), at(a, ld, r, kp));

    // The pivot of a Hermitian matrix is real: what the updates leave in its
    // imaginary part is rounding, and kept it would make the two triangles
    // of the Schur complement drift apart by its size over the pivot's.
    T &d = at(a, ld, j, j);
    d = T(d.real());
    if (std::abs(d) <= thr) {  // false for a NaN, which stays as it is
      ++*npert;
      d = d.real() < R(0) ? T(-rep) : T(rep);
    }
    if (j < M) {
      // The complex reciprocal with one division.
      const R q = R(1) / (d.real() * d.real() + d.imag() * d.imag());
      const T r(d.real() * q, -d.imag() * q);
      const int below = M - j;
      vekd::scal<T>(&below, &r, &at(a, ld, j + 1, j), &one);
    }
    if (j < mn) {
      const int rows = M - j, cols = N - j;
      const T mone = T(-1);
      vekd::ger<T>(&rows, &cols, &mone, &at(a, ld, j + 1, j), &one, &at(a, ld, j, j + 1), lda,
                   &at(a, ld, j + 1, j + 1), lda);
    }
  }
}

template <class T>
void ch_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a,
                     const int *lda, const int *ipiv, T *b, const int *ldb, int *info) {
  typedef tlm::real_of<T> R;
  *info = 0;
  if (*uplo != 'L' && *uplo != 'l')
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*nrhs < 0)
    *info = -3;
  else if (*lda < (*n > 1 ? *n : 1))
    *info = -5;
  else if (*ldb < (*n > 1 ? *n : 1))
    *info = -8;
  if (bad_argument("CH_BLKLDL_APPLY", 15, *info)) return;

  const int N = *n, NR = *nrhs, ld = *lda, lb = *ldb, one = 1;
  const T mone = T(-1);
  int k = 1;
  while (k <= N) {
    const int p = ipiv[k - 1];
    if (p > 0) {
      if (p != k)
        for (int j = 1; j <= NR; ++j) swap_values(at(b, lb, k, j), at(b, lb, p, j));
      if (k < N) {
        const int m = N - k;
        vekd::ger<T>(&m, nrhs, &mone, &at(a, ld, k + 1, k), &one, &at(b, lb, k, 1), ldb,
                     &at(b, lb, k + 1, 1), ldb);
      }
      const R r = R(1) / at(a, ld, k, k).real();
      if (NR > 0) vekd::rscal<R>(nrhs, &r, &at(b, lb, k, 1), ldb);
      k += 1;
    } else {
      const int kp = -p;
      if (kp != k + 1)
        for (int j = 1; j <= NR; ++j) swap_values(at(b, lb, k + 1, j), at(b, lb, kp, j));
      if (k < N - 1) {
        const int m = N - k - 1;
        vekd::ger<T>(&m, nrhs, &mone, &at(a, ld, k + 2, k), &one, &at(b, lb, k, 1), ldb,
                     &at(b, lb, k + 2, 1), ldb);
        vekd::ger<T>(&m, nrhs, &mone, &at(a, ld, k + 2, k + 1), &one, &at(b, lb, k + 1, 1),
                     ldb, &at(b, lb, k + 2, 1), ldb);
      }
      // The system [d11 conj(d); d d22], its rows divided by conj(d) and d.
      const T d = at(a, ld, k + 1, k), dc = std::conj(d);
      const T ak = at(a, ld, k, k) / dc;
      const T ek = at(a, ld, k + 1, k + 1) / d;
      const T t = ak * ek - T(1);
      for (int j = 1; j <= NR; ++j) {
        const T u = at(b, lb, k, j) / dc;
        const T v = at(b, lb, k + 1, j) / d;
        at(b, lb, k, j) = (ek * u - v) / t;
        at(b, lb, k + 1, j) = (ak * v - u) / t;
      }
      k += 2;
    }
  }
}

#define CH_BLKLDL_DENSE_INSTANCE(T, R)                                                      \
  template void ch_blkldl_bkfact<T>(const char *, const int *, T *, const int *, int *,    \
                                    int *, const R *, int *);                              \
  template void ch_blkldl_diagfact<T>(const int *, const int *, T *, const int *, int *,   \
                                      int *, const R *, int *);                            \
  template void ch_blkldl_apply<T>(const char *, const int *, const int *, const T *,      \
                                   const int *, const int *, T *, const int *, int *);
CH_BLKLDL_DENSE_INSTANCE(tlm::zcomplex, double)
CH_BLKLDL_DENSE_INSTANCE(tlm::ccomplex, float)

void ch_blkldl_bkfact(const char *uplo, const int *n, tlm::zcomplex *a, const int *lda,
                      int *ipiv, int *npert, const double *eps, int *info) {
  ch_blkldl_bkfact<tlm::zcomplex>(uplo, n, a, lda, ipiv, npert, eps, info);
}
void sp_ch_blkldl_bkfact(const char *uplo, const int *n, tlm::ccomplex *a, const int *lda,
                         int *ipiv, int *npert, const float *eps, int *info) {
  ch_blkldl_bkfact<tlm::ccomplex>(uplo, n, a, lda, ipiv, npert, eps, info);
}
void ch_blkldl_diagfact(const int *m, const int *n, tlm::zcomplex *a, const int *lda,
                        int *ipiv, int *npert, const double *eps, int *info) {
  ch_blkldl_diagfact<tlm::zcomplex>(m, n, a, lda, ipiv, npert, eps, info);
}
void sp_ch_blkldl_diagfact(const int *m, const int *n, tlm::ccomplex *a, const int *lda,
                           int *ipiv, int *npert, const float *eps, int *info) {
  ch_blkldl_diagfact<tlm::ccomplex>(m, n, a, lda, ipiv, npert, eps, info);
}
void ch_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const tlm::zcomplex *a,
                     const int *lda, const int *ipiv, tlm::zcomplex *b, const int *ldb,
                     int *info) {
  ch_blkldl_apply<tlm::zcomplex>(uplo, n, nrhs, a, lda, ipiv, b, ldb, info);
}
void sp_ch_blkldl_apply(const char *uplo, const int *n, const int *nrhs,
                        const tlm::ccomplex *a, const int *lda, const int *ipiv,
                        tlm::ccomplex *b, const int *ldb, int *info) {
  ch_blkldl_apply<tlm::ccomplex>(uplo, n, nrhs, a, lda, ipiv, b, ldb, info);
}
