// c_blkl_dense.cpp - the dense steps on the diagonal block of a supernode in
// the complex symmetric LDL^T factorization: Bunch-Kaufman and diagonal
// pivoting, unblocked, with replacement of small pivots, and the application
// of a Bunch-Kaufman factor to a block of right-hand sides. Transposes only,
// never conjugates.
#include <cmath>

#include "c_blkl.h"
#include "dense/vek_dense.h"
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

// |re| + |im|, the measure of the Bunch-Kaufman search.
template <class T> inline tlm::real_of<T> abs1(const T &z) {
  return std::fabs(z.real()) + std::fabs(z.imag());
}

// 1/z from its parts, one division by re^2 + im^2.
template <class T> inline T reciprocal(const T &z) {
  typedef tlm::real_of<T> R;
  const R q = R(1) / (z.real() * z.real() + z.imag() * z.imag());
  return T(z.real() * q, -z.imag() * q);
}

// thr is the test of a small pivot, rep the magnitude put in its place. An
// eps of 0 replaces exact zeros only, by 1e-8.
template <class R> inline void replacement(R eps, R *thr, R *rep) {
  *thr = eps;
  *rep = eps == R(0) ? R(1.0e-8) : std::abs(eps);
}

// The replaced pivot keeps the sign of the real part of the old one.
template <class T> inline T replaced(const T &d, tlm::real_of<T> rep) {
  return d.real() < 0 ? T(-rep) : T(rep);
}

// Reports an illegal argument (info < 0) and tells whether there was one.
bool bad_argument(const char *name, int length, int info) {
  if (info == 0) return false;
  const int position = -info;
  xerbla(name, &position, length);
  return true;
}

}  // namespace

namespace tlm {

template <class T>
void c_blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                     int *npert, const real_of<T> *eps, int *info) {
  typedef real_of<T> R;
  *info = 0;
  if (*uplo != 'L' && *uplo != 'l')
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*lda < (*n > 1 ? *n : 1))
    *info = -4;
  if (bad_argument("C_BLKLDL_BKFACT", 15, *info)) return;

  const int N = *n, ld = *lda, one = 1;
  R thr, rep;
  replacement(*eps, &thr, &rep);
  const R alpha = R(0.6403882032022076);  // (1 + sqrt(17)) / 8
  int k = 1;
  while (k <= N) {
    int kstep = 1, kp = k;
    const R absakk = abs1(at(a, ld, k, k));
    // Largest measure below the diagonal of column k, the first on ties.
    int imax = k;
    R colmax = R(0);
    if (k < N) {
      imax = k + 1;
      colmax = abs1(at(a, ld, k + 1, k));
      for (int i = k + 2; i <= N; ++i)
        if (abs1(at(a, ld, i, k)) > colmax) {
          colmax = abs1(at(a, ld, i, k));
          imax = i;
        }
    }

    if (absakk <= thr && colmax <= thr) {
      // The whole column is negligible: replace the pivot and leave the
      // column without elimination. A NaN never gets here.
      ++*npert;
      at(a, ld, k, k) = replaced(at(a, ld, k, k), rep);
      ipiv[k - 1] = k;
      k += 1;
      continue;
    }
    if (absakk < alpha * colmax) {
      // Largest off-diagonal measure in row imax of the trailing block.
      R rowmax = abs1(at(a, ld, imax, k));
      for (int j = k + 1; j < imax; ++j)
        if (abs1(at(a, ld, imax, j)) > rowmax) rowmax = abs1(at(a, ld, imax, j));
      if (imax < N) {
        R below = abs1(at(a, ld, imax + 1, imax));
        for (int i = imax + 2; i <= N; ++i)
          if (abs1(at(a, ld, i, imax)) > below) below = abs1(at(a, ld, i, imax));
        if (below > rowmax) rowmax = below;
      }
      if (absakk >= alpha * colmax * (colmax / rowmax)) {
        kp = k;
      } else if (abs1(at(a, ld, imax, imax)) >= alpha * rowmax) {
        kp = imax;
      } else {
        kp = imax;
        kstep = 2;
      }
    }

    // Exchange rows and columns kk and kp of the trailing block, lower
    // triangle only; the columns left of k keep their rows.
    const int kk = k + kstep - 1;
    if (kp != kk) {
      for (int i = kp + 1; i <= N; ++i) swap_values(at(a, ld, i, kk), at(a, ld, i, kp));
      for (int j = kk + 1; j < kp; ++j) swap_values(at(a, ld, j, kk), at(a, ld, kp, j));
      swap_values(at(a, ld, kk, kk), at(a, ld, kp, kp));
      if (kstep == 2) swap_values(at(a, ld, k + 1, k), at(a, ld, kp, k));
    }

    if (kstep == 1) {
      if (k < N) {
        const T r = reciprocal(at(a, ld, k, k)), mr = -r;
        const int m = N - k;
        vekd::syr<T>("L", &m, &mr, &at(a, ld, k + 1, k), &one, &at(a, ld, k + 1, k + 1), lda);
        vekd::scal<T>(&m, &r, &at(a, ld, k + 1, k), &one);
      }
      ipiv[k - 1] = kp;
    } else {
      // D = [d11 d21; d21 d22] at k, k+1; with ak = d22 / d21 and
      // ek = d11 / d21, t = d21^2 / det D.
      if (k < N - 1) {
        const T d21 = at(a, ld, k + 1, k);
        const T ak = at(a, ld, k + 1, k + 1) / d21;
        const T ek = at(a, ld, k, k) / d21;
        const T t = T(1) / (ak * ek - T(1));
        const T u = t / d21;
        for (int j = k + 2; j <= N; ++j) {
          const T wk = u * (ak * at(a, ld, j, k) - at(a, ld, j, k + 1));
          const T wk1 = u * (ek * at(a, ld, j, k + 1) - at(a, ld, j, k));
          for (int i = j; i <= N; ++i)
            at(a, ld, i, j) = at(a, ld, i, j) - at(a, ld, i, k) * wk - at(a, ld, i, k + 1) * wk1;
          at(a, ld, j, k) = wk;
          at(a, ld, j, k + 1) = wk1;
        }
      }
      ipiv[k - 1] = -kp;
      ipiv[k] = -kp;
    }
    k += kstep;
  }
}

template <class T>
void c_blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv,
                       int *npert, const real_of<T> *eps, int *info) {
  typedef real_of<T> R;
  *info = 0;
  if (*m < 0)
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*lda < (*m > 1 ? *m : 1))
    *info = -4;
  if (bad_argument("C_BLKLDL_DIAGFACT", 17, *info)) return;

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

    T &d = at(a, ld, j, j);
    if (std::abs(d) <= thr) {  // false for a NaN, which stays as it is
      ++*npert;
      d = replaced(d, rep);
    }
    if (j < M) {
      const int below = M - j;
      const T r = reciprocal(d);
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
void c_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a,
                    const int *lda, const int *ipiv, T *b, const int *ldb, int *info) {
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
  if (bad_argument("C_BLKLDL_APPLY", 14, *info)) return;

  const int N = *n, R = *nrhs, ld = *lda, lb = *ldb, one = 1;
  const T mone = T(-1);
  int k = 1;
  while (k <= N) {
    const int p = ipiv[k - 1];
    if (p > 0) {
      if (p != k)
        for (int j = 1; j <= R; ++j) swap_values(at(b, lb, k, j), at(b, lb, p, j));
      if (k < N) {
        const int m = N - k;
        vekd::ger<T>(&m, nrhs, &mone, &at(a, ld, k + 1, k), &one, &at(b, lb, k, 1), ldb,
                     &at(b, lb, k + 1, 1), ldb);
      }
      const T r = reciprocal(at(a, ld, k, k));
      for (int j = 1; j <= R; ++j) at(b, lb, k, j) *= r;
      k += 1;
    } else {
      const int kp = -p;
      if (kp != k + 1)
        for (int j = 1; j <= R; ++j) swap_values(at(b, lb, k + 1, j), at(b, lb, kp, j));
      if (k < N - 1) {
        const int m = N - k - 1;
        vekd::ger<T>(&m, nrhs, &mone, &at(a, ld, k + 2, k), &one, &at(b, lb, k, 1), ldb,
                     &at(b, lb, k + 2, 1), ldb);
        vekd::ger<T>(&m, nrhs, &mone, &at(a, ld, k + 2, k + 1), &one, &at(b, lb, k + 1, 1),
                     ldb, &at(b, lb, k + 2, 1), ldb);
      }
      // The 2 by 2 system [d11 d21; d21 d22], by the quotients of d21.
      const T d = at(a, ld, k + 1, k);
      const T ak = at(a, ld, k, k) / d;
      const T ek = at(a, ld, k + 1, k + 1) / d;
      const T t = ak * ek - T(1);
      for (int j = 1; j <= R; ++j) {
        const T u = at(b, lb, k, j) / d;
        const T v = at(b, lb, k + 1, j) / d;
        at(b, lb, k, j) = (ek * u - v) / t;
        at(b, lb, k + 1, j) = (ak * v - u) / t;
      }
      k += 2;
    }
  }
}

#define C_BLKL_DENSE_INSTANCE(T)                                                          \
  template void c_blkldl_bkfact<T>(const char *, const int *, T *, const int *, int *,    \
                                   int *, const real_of<T> *, int *);                     \
  template void c_blkldl_diagfact<T>(const int *, const int *, T *, const int *, int *,   \
                                     int *, const real_of<T> *, int *);                   \
  template void c_blkldl_apply<T>(const char *, const int *, const int *, const T *,      \
                                  const int *, const int *, T *, const int *, int *);
C_BLKL_DENSE_INSTANCE(zcomplex)
C_BLKL_DENSE_INSTANCE(ccomplex)

}  // namespace tlm

// The real sweep's block routines for complex values.
template <>
void blkldl_bkfact<tlm::zcomplex>(const char *uplo, const int *n, tlm::zcomplex *a,
                                  const int *lda, int *ipiv, int *npert, int *, int *,
                                  const double *eps, int *info) {
  tlm::c_blkldl_bkfact<tlm::zcomplex>(uplo, n, a, lda, ipiv, npert, eps, info);
}
template <>
void blkldl_bkfact<tlm::ccomplex>(const char *uplo, const int *n, tlm::ccomplex *a,
                                  const int *lda, int *ipiv, int *npert, int *, int *,
                                  const float *eps, int *info) {
  tlm::c_blkldl_bkfact<tlm::ccomplex>(uplo, n, a, lda, ipiv, npert, eps, info);
}
template <>
void blkldl_diagfact<tlm::zcomplex>(const int *m, const int *n, tlm::zcomplex *a,
                                    const int *lda, int *ipiv, int *npert, int *, int *,
                                    const double *eps, int *info) {
  tlm::c_blkldl_diagfact<tlm::zcomplex>(m, n, a, lda, ipiv, npert, eps, info);
}
template <>
void blkldl_diagfact<tlm::ccomplex>(const int *m, const int *n, tlm::ccomplex *a,
                                    const int *lda, int *ipiv, int *npert, int *, int *,
                                    const float *eps, int *info) {
  tlm::c_blkldl_diagfact<tlm::ccomplex>(m, n, a, lda, ipiv, npert, eps, info);
}
template <>
void blkldl_apply<tlm::zcomplex>(const char *uplo, const int *n, const int *nrhs,
                                 const tlm::zcomplex *a, const int *lda, const int *ipiv,
                                 tlm::zcomplex *b, const int *ldb, int *info) {
  tlm::c_blkldl_apply<tlm::zcomplex>(uplo, n, nrhs, a, lda, ipiv, b, ldb, info);
}
template <>
void blkldl_apply<tlm::ccomplex>(const char *uplo, const int *n, const int *nrhs,
                                 const tlm::ccomplex *a, const int *lda, const int *ipiv,
                                 tlm::ccomplex *b, const int *ldb, int *info) {
  tlm::c_blkldl_apply<tlm::ccomplex>(uplo, n, nrhs, a, lda, ipiv, b, ldb, info);
}

void c_blkldl_bkfact(const char *uplo, const int *n, tlm::zcomplex *a, const int *lda,
                     int *ipiv, int *npert, const double *eps, int *info) {
  tlm::c_blkldl_bkfact<tlm::zcomplex>(uplo, n, a, lda, ipiv, npert, eps, info);
}
void sp_c_blkldl_bkfact(const char *uplo, const int *n, tlm::ccomplex *a, const int *lda,
                        int *ipiv, int *npert, const float *eps, int *info) {
  tlm::c_blkldl_bkfact<tlm::ccomplex>(uplo, n, a, lda, ipiv, npert, eps, info);
}
void c_blkldl_diagfact(const int *m, const int *n, tlm::zcomplex *a, const int *lda,
                       int *ipiv, int *npert, const double *eps, int *info) {
  tlm::c_blkldl_diagfact<tlm::zcomplex>(m, n, a, lda, ipiv, npert, eps, info);
}
void sp_c_blkldl_diagfact(const int *m, const int *n, tlm::ccomplex *a, const int *lda,
                          int *ipiv, int *npert, const float *eps, int *info) {
  tlm::c_blkldl_diagfact<tlm::ccomplex>(m, n, a, lda, ipiv, npert, eps, info);
}
void c_blkldl_apply(const char *uplo, const int *n, const int *nrhs, const tlm::zcomplex *a,
                    const int *lda, const int *ipiv, tlm::zcomplex *b, const int *ldb,
                    int *info) {
  tlm::c_blkldl_apply<tlm::zcomplex>(uplo, n, nrhs, a, lda, ipiv, b, ldb, info);
}
void sp_c_blkldl_apply(const char *uplo, const int *n, const int *nrhs,
                       const tlm::ccomplex *a, const int *lda, const int *ipiv,
                       tlm::ccomplex *b, const int *ldb, int *info) {
  tlm::c_blkldl_apply<tlm::ccomplex>(uplo, n, nrhs, a, lda, ipiv, b, ldb, info);
}
