// blkldl_dense.cpp - the dense steps on the diagonal block of a supernode
// in the L D L^T factorizations and solves: Bunch-Kaufman and diagonal
// pivoting, both unblocked with replacement of small pivots, and the block
// solves with a Bunch-Kaufman factor. One source for real, complex
// symmetric and Hermitian values; where the kinds part ways it says so.
#include <cstdio>

#include "blkldl.h"
#include "blkldlslvs.h"
#include "dense/vek_dense.h"
#include "dense/vek_dense_herm.h"
#include "scalar_kind.h"
#include "service/vek_serv_message.h"

using tlm::at;

namespace {

// Reports an illegal argument (info < 0) under the routine's name in the
// family of the kind, and tells whether there was one.
template <class K> bool bad_argument(const char *base, int info) {
  if (info == 0) return false;
  char name[32];
  const int length = std::snprintf(name, sizeof name, "%s%s",
                                   K::conjugates ? "CH_" : K::complex ? "C_" : "", base);
  const int position = -info;
  xerbla(name, &position, length);
  return true;
}

// The measure of a diagonal entry in the pivot tests: a Hermitian diagonal
// counts by its real part alone.
template <class K> inline typename K::real diagonal_measure(const typename K::value &d) {
  if constexpr (K::conjugates)
    return std::fabs(d.real());
  else
    return tlm::abs1(d);
}

// The place (from k+1) and the measure of the largest entry in rows k+1..n
// of column c, the first on ties; k and 0 for an empty range.
template <class T>
int column_max(const T *a, int ld, int c, int k, int n, tlm::real_of<T> *big) {
  int imax = k;
  *big = 0;
  for (int i = k + 1; i <= n; ++i)
    if (i == k + 1 || tlm::abs1(at(a, ld, i, c)) > *big) {
      *big = tlm::abs1(at(a, ld, i, c));
      imax = i;
    }
  return imax;
}

// Exchanges rows and columns kk and kp of the trailing block of a
// Bunch-Kaufman step at k, lower triangle only; the columns left of k keep
// their rows. Hermitian values: what crosses the diagonal is conjugated,
// and the two diagonal entries come out real.
template <class K>
void exchange(typename K::value *a, int ld, int n, int k, int kk, int kp, int kstep) {
  typedef typename K::value T;
  for (int i = kp + 1; i <= n; ++i) std::swap(at(a, ld, i, kk), at(a, ld, i, kp));
  for (int j = kk + 1; j < kp; ++j) {
    const T t = K::conj(at(a, ld, j, kk));
    at(a, ld, j, kk) = K::conj(at(a, ld, kp, j));
    at(a, ld, kp, j) = t;
  }
  if constexpr (K::conjugates) {
    at(a, ld, kp, kk) = std::conj(at(a, ld, kp, kk));
    const typename K::real r1 = at(a, ld, kk, kk).real();
    at(a, ld, kk, kk) = T(at(a, ld, kp, kp).real());
    at(a, ld, kp, kp) = T(r1);
  } else {
    std::swap(at(a, ld, kk, kk), at(a, ld, kp, kp));
  }
  if (kstep == 2) std::swap(at(a, ld, k + 1, k), at(a, ld, kp, k));
}

// The 1 by 1 elimination at k: A22 := A22 - x x^T / d (x x^H / d), x := x /
// d. Real values count the sign of 1/d, at k = n that of d.
template <class K>
void eliminate_one(typename K::value *a, int ld, int n, int k, int *npos, int *nneg) {
  typedef typename K::value T;
  typedef typename K::real R;
  const int m = n - k, one = 1;
  const T p = at(a, ld, k, k);
  if constexpr (K::conjugates) {
    if (k < n) {
      const R r = R(1) / p.real(), mr = -r;
      vekd::her<R>("L", &m, &mr, &at(a, ld, k + 1, k), &one, &at(a, ld, k + 1, k + 1), &ld);
      vekd::rscal<R>(&m, &r, &at(a, ld, k + 1, k), &one);
    }
  } else {
    if (k < n) {
      const T r = tlm::reciprocal(p), mr = -r;
      if constexpr (!K::complex) ++*(r >= T(0) ? npos : nneg);
      vekd::syr<T>("L", &m, &mr, &at(a, ld, k + 1, k), &one, &at(a, ld, k + 1, k + 1), &ld);
      vekd::scal<T>(&m, &r, &at(a, ld, k + 1, k), &one);
    } else if constexpr (!K::complex) {
      ++*(p >= T(0) ? npos : nneg);
    }
  }
}

// The 2 by 2 elimination at k, k+1. Symmetric values: with D = [d11 d21;
// d21 d22], ak = d22 / d21 and ek = d11 / d21, t = d21^2 / det D; real
// values count one sign of each for a negative determinant, else two of the
// diagonal's. Hermitian values: D = Q diag(rt1, rt2) Q^H, Q = [cs
// -conj(sn); sn cs]; with [x y] := [x y] Q the update is x x^H / rt1 + y
// y^H / rt2, and [x y] diag(1/rt1, 1/rt2) Q^H is [x y] D^-1.
template <class K>
void eliminate_two(typename K::value *a, int ld, int n, int k, int *npos, int *nneg) {
  typedef typename K::value T;
  typedef typename K::real R;
  if constexpr (K::conjugates) {
    if (k < n - 1) {
      const int m = n - k - 1, one = 1;
      const T b = std::conj(at(a, ld, k + 1, k));
      R rt1, rt2, cs;
      T sn;
      vekd::laev2<R>(&at(a, ld, k, k), &b, &at(a, ld, k + 1, k + 1), &rt1, &rt2, &cs, &sn);
      const R r1 = R(1) / rt1, r2 = R(1) / rt2, mr1 = -r1, mr2 = -r2;
      T *x = &at(a, ld, k + 2, k), *y = &at(a, ld, k + 2, k + 1);
      T *a22 = &at(a, ld, k + 2, k + 2);
      vekd::rot<R>(&m, x, &one, y, &one, &cs, &sn);
      vekd::her<R>("L", &m, &mr1, x, &one, a22, &ld);
      vekd::her<R>("L", &m, &mr2, y, &one, a22, &ld);
      vekd::rscal<R>(&m, &r1, x, &one);
      vekd::rscal<R>(&m, &r2, y, &one);
      const T msn = -sn;
      vekd::rot<R>(&m, x, &one, y, &one, &cs, &msn);
    }
  } else {
    const T d21 = at(a, ld, k + 1, k);
    const T ak = at(a, ld, k + 1, k + 1) / d21;
    const T ek = at(a, ld, k, k) / d21;
    const T t = T(1) / (ak * ek - T(1));
    if (k < n - 1) {
      const T u = t / d21;
      for (int j = k + 2; j <= n; ++j) {
        const T wk = u * (ak * at(a, ld, j, k) - at(a, ld, j, k + 1));
        const T wk1 = u * (ek * at(a, ld, j, k + 1) - at(a, ld, j, k));
        for (int i = j; i <= n; ++i)
          at(a, ld, i, j) = at(a, ld, i, j) - at(a, ld, i, k) * wk - at(a, ld, i, k + 1) * wk1;
        at(a, ld, j, k) = wk;
        at(a, ld, j, k + 1) = wk1;
      }
    }
    if constexpr (!K::complex) {
      if (t <= T(0)) {
        ++*npos;
        ++*nneg;
      } else if (at(a, ld, k, k) > T(0) && at(a, ld, k + 1, k + 1) > T(0)) {
        *npos += 2;
      } else {
        *nneg += 2;
      }
    }
  }
}

// The D step of the block solves on rows of b. A 1 by 1 pivot d: Hermitian
// values scale by 1/re d; otherwise the factorization's application
// (in_factor) divides real rows by d and multiplies complex ones by the
// reciprocal from d's parts, while the solves multiply by 1/d. A 2 by 2
// block [d11 conj(d21); d21 d22] (d21 both ways for symmetric values): the
// rows divided by conj(d21) and d21, through the quotients ak, ek.
template <class T, bool Hermitian>
void d_solve(int n, const int *nrhs, const T *a, int ld, const int *ipiv, T *b,
             const int *ldb, bool in_factor) {
  typedef tlm::scalar_kind<T, Hermitian> K;
  typedef tlm::real_of<T> R;
  const int NR = *nrhs, lb = *ldb;
  for (int k = 1; k <= n;) {
    if (ipiv[k - 1] > 0) {
      const T d = at(a, ld, k, k);
      if constexpr (K::conjugates) {
        const R r = R(1) / d.real();
        if (NR > 0) vekd::rscal<R>(nrhs, &r, &at(b, lb, k, 1), ldb);
      } else if constexpr (!K::complex) {
        const T r = T(1) / d;
        for (int j = 1; j <= NR; ++j)
          if (in_factor)
            at(b, lb, k, j) /= d;
          else
            at(b, lb, k, j) *= r;
      } else {
        const T r = in_factor ? tlm::reciprocal(d) : T(1) / d;
        for (int j = 1; j <= NR; ++j) at(b, lb, k, j) *= r;
      }
      k += 1;
    } else {
      const T d = at(a, ld, k + 1, k), dc = K::conj(d);
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

// Row r of b (nrhs entries, stride ldb) loses col^T (col^H) times the m
// rows of b from row r0 on. Hermitian values conjugate the row around the
// product with the conjugate transpose, as B^H col is the conjugate of
// col^H B.
template <class T, bool Hermitian>
void reduce_row(int r, int r0, int m, const T *col, const int *nrhs, T *b, const int *ldb) {
  const T mone = T(-1), tone = T(1);
  const int one = 1;
  if constexpr (tlm::scalar_kind<T, Hermitian>::conjugates) {
    typedef tlm::real_of<T> R;
    if (m < 1 || *nrhs < 1) return;
    vekd::lacgv<R>(nrhs, &at(b, *ldb, r, 1), ldb);
    vekd::gemv<T>("C", &m, nrhs, &mone, &at(b, *ldb, r0, 1), ldb, col, &one, &tone,
                  &at(b, *ldb, r, 1), ldb);
    vekd::lacgv<R>(nrhs, &at(b, *ldb, r, 1), ldb);
  } else if (m > 0) {
    vekd::gemv<T>("T", &m, nrhs, &mone, &at(b, *ldb, r0, 1), ldb, col, &one, &tone,
                  &at(b, *ldb, r, 1), ldb);
  }
}

}  // namespace

template <class T, bool Hermitian>
void blkldl_bkfact(const char *uplo, const int *n, T *a, const int *lda, int *ipiv,
                   int *npert, int *npos, int *nneg, const tlm::real_of<T> *eps, int *info) {
  typedef tlm::scalar_kind<T, Hermitian> K;
  typedef tlm::real_of<T> R;
  *info = 0;
  if (*uplo != 'L' && *uplo != 'l')
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*lda < (*n > 1 ? *n : 1))
    *info = -4;
  if (bad_argument<K>("BLKLDL_BKFACT", *info)) return;

  const int N = *n, ld = *lda;
  R thr, rep;
  tlm::pivot_threshold(*eps, R(1.0e-8), &thr, &rep);
  const R alpha = R(0.6403882032022076);  // (1 + sqrt(17)) / 8
  int k = 1;
  while (k <= N) {
    int kstep = 1, kp = k;
    R absakk = diagonal_measure<K>(at(a, ld, k, k));
    R colmax = 0;
    const int imax = column_max(a, ld, k, k, N, &colmax);
    bool tests = true;
    if (absakk <= thr && colmax <= thr) {  // a negligible column; a NaN never is
      ++*npert;
      if constexpr (K::conjugates) {
        // Repaired, then on through the pivot tests.
        if (absakk == R(0) && colmax == R(0)) {
          at(a, ld, k, k) = T(rep);
          absakk = rep;
        } else if (absakk < colmax) {
          at(a, ld, imax, k) *= rep / colmax;
          colmax = rep;
          absakk = 0;
        } else {
          at(a, ld, k, k) = tlm::replaced_pivot(at(a, ld, k, k), rep);
          absakk = rep;
        }
      } else {
        at(a, ld, k, k) = tlm::replaced_pivot(at(a, ld, k, k), rep);
        tests = false;
        if constexpr (K::complex) {  // no elimination
          ipiv[k - 1] = k;
          k += 1;
          continue;
        }
      }
    }
    if (tests && absakk < alpha * colmax) {
      // Largest off-diagonal measure in row imax of the trailing block.
      R rowmax = tlm::abs1(at(a, ld, imax, k));
      for (int j = k + 1; j < imax; ++j)
        if (tlm::abs1(at(a, ld, imax, j)) > rowmax) rowmax = tlm::abs1(at(a, ld, imax, j));
      R below = 0;
      if (imax < N) column_max(a, ld, imax, imax, N, &below);
      if (below > rowmax) rowmax = below;
      if (absakk >= alpha * colmax * (colmax / rowmax)) {
        kp = k;
      } else if (diagonal_measure<K>(at(a, ld, imax, imax)) >= alpha * rowmax) {
        kp = imax;
      } else {
        kp = imax;
        kstep = 2;
      }
    }
    const int kk = k + kstep - 1;
    if (kp != kk) exchange<K>(a, ld, N, k, kk, kp, kstep);
    if constexpr (K::conjugates) {  // the pivot's diagonal is real
      at(a, ld, k, k) = T(at(a, ld, k, k).real());
      if (kstep == 2) at(a, ld, k + 1, k + 1) = T(at(a, ld, k + 1, k + 1).real());
    }
    if (kstep == 1) {
      eliminate_one<K>(a, ld, N, k, npos, nneg);
      ipiv[k - 1] = kp;
    } else {
      eliminate_two<K>(a, ld, N, k, npos, nneg);
      ipiv[k - 1] = -kp;
      ipiv[k] = -kp;
    }
    k += kstep;
  }
}

template <class T, bool Hermitian>
void blkldl_diagfact(const int *m, const int *n, T *a, const int *lda, int *ipiv, int *npert,
                     int *npos, int *nneg, const tlm::real_of<T> *eps, int *info) {
  typedef tlm::scalar_kind<T, Hermitian> K;
  typedef tlm::real_of<T> R;
  *info = 0;
  if (*m < 0)
    *info = -1;
  else if (*n < 0)
    *info = -2;
  else if (*lda < (*m > 1 ? *m : 1))
    *info = -4;
  if (bad_argument<K>("BLKLDL_DIAGFACT", *info)) return;

  const int M = *m, N = *n, ld = *lda, mn = M < N ? M : N, one = 1;
  R thr, rep;
  tlm::pivot_threshold(*eps, R(1.0e-8), &thr, &rep);
  for (int j = 1; j <= mn; ++j) {
    // Largest diagonal modulus from j on, the last on ties.
    int kp = j;
    R big = R(-1);
    for (int i = j; i <= mn; ++i)
      if (std::abs(at(a, ld, i, i)) >= big) {
        big = std::abs(at(a, ld, i, i));
        kp = i;
      }
    if (kp != j) tlm::swap_rows(a, ld, N, j, kp);
    ipiv[j - 1] = kp;
    if (kp != j) tlm::swap_columns(a, ld, M, j, kp);

    // A Hermitian pivot is real: what the updates leave in its imaginary
    // part is rounding, and kept it would make the two triangles of the
    // Schur complement drift apart by its size over the pivot's.
    T &d = at(a, ld, j, j);
    if constexpr (K::conjugates) d = T(d.real());
    if (std::abs(d) <= thr) {  // false for a NaN, which stays as it is
      ++*npert;
      d = tlm::replaced_pivot(d, rep);
    }
    if constexpr (!K::complex) ++*(d <= T(0) ? nneg : npos);
    if (j < M) {
      const int below = M - j;
      const T r = tlm::reciprocal(d);
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

template <class T, bool Hermitian>
void blkldl_apply(const char *uplo, const int *n, const int *nrhs, const T *a, const int *lda,
                  const int *ipiv, T *b, const int *ldb, int *info) {
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
  if (bad_argument<tlm::scalar_kind<T, Hermitian>>("BLKLDL_APPLY", *info)) return;
  // Step k touches rows k on only, and its D step rows k (and k+1): all
  // exchanges and eliminations first, then D, is the same as in turn.
  blkldl_fsolve<T>(n, nrhs, a, lda, ipiv, b, ldb);
  d_solve<T, Hermitian>(*n, nrhs, a, *lda, ipiv, b, ldb, true);
}

template <class T>
void blkldl_fsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb) {
  const int N = *n, L = *lda, LB = *ldb, one = 1;
  const T mone = T(-1);
  for (int k = 1; k <= N;) {
    const int p = ipiv[k - 1];
    if (p > 0) {
      if (p != k) tlm::swap_rows(b, LB, *nrhs, k, p);
      if (k < N) {
        const int m = N - k;
        vekd::ger<T>(&m, nrhs, &mone, &at(a, L, k + 1, k), &one, &at(b, LB, k, 1), ldb,
                     &at(b, LB, k + 1, 1), ldb);
      }
      k += 1;
    } else {
      if (-p != k + 1) tlm::swap_rows(b, LB, *nrhs, k + 1, -p);
      if (k + 1 < N) {
        const int m = N - k - 1;
        vekd::ger<T>(&m, nrhs, &mone, &at(a, L, k + 2, k), &one, &at(b, LB, k, 1), ldb,
                     &at(b, LB, k + 2, 1), ldb);
        vekd::ger<T>(&m, nrhs, &mone, &at(a, L, k + 2, k + 1), &one, &at(b, LB, k + 1, 1),
                     ldb, &at(b, LB, k + 2, 1), ldb);
      }
      k += 2;
    }
  }
}

template <class T, bool Hermitian>
void blkldl_dsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb) {
  d_solve<T, Hermitian>(*n, nrhs, a, *lda, ipiv, b, ldb, false);
}

template <class T, bool Hermitian>
void blkldl_bsolve(const int *n, const int *nrhs, const T *a, const int *lda, const int *ipiv,
                   T *b, const int *ldb) {
  const int N = *n, L = *lda;
  for (int k = N; k >= 1;) {
    const int p = ipiv[k - 1];
    const int m = N - k;
    reduce_row<T, Hermitian>(k, k + 1, m, &at(a, L, k + 1, k), nrhs, b, ldb);
    if (p > 0) {
      if (p != k) tlm::swap_rows(b, *ldb, *nrhs, k, p);
      k -= 1;
    } else {
      // The pair k-1, k; the entry below the first column's diagonal is D.
      reduce_row<T, Hermitian>(k - 1, k + 1, m, &at(a, L, k + 1, k - 1), nrhs, b, ldb);
      if (-p != k) tlm::swap_rows(b, *ldb, *nrhs, k, -p);
      k -= 2;
    }
  }
}

#define BLKLDL_DENSE_INSTANCES(T, H)          \
  TLM_INSTANTIATE(blkldl_bkfact<T, H>)        \
  TLM_INSTANTIATE(blkldl_diagfact<T, H>)      \
  TLM_INSTANTIATE(blkldl_apply<T, H>)         \
  TLM_INSTANTIATE(blkldl_dsolve<T, H>)        \
  TLM_INSTANTIATE(blkldl_bsolve<T, H>)
BLKLDL_DENSE_INSTANCES(double, false)
BLKLDL_DENSE_INSTANCES(float, false)
BLKLDL_DENSE_INSTANCES(tlm::zcomplex, false)
BLKLDL_DENSE_INSTANCES(tlm::ccomplex, false)
BLKLDL_DENSE_INSTANCES(tlm::zcomplex, true)
BLKLDL_DENSE_INSTANCES(tlm::ccomplex, true)
TLM_INSTANTIATE_EACH(blkldl_fsolve)
