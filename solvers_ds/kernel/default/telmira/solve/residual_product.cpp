// residual_product.cpp - y = A x for the refinement and the iteration, the
// residual with extended accumulation, and the copies between working and
// extended precision.
#include "residual_product.h"

#include <omp.h>

#include <cmath>
#include <complex>
#include <limits>

namespace tlm {

namespace {

template <class T> constexpr bool extended_is_wider() {
  return std::numeric_limits<real_of<ext_t<T>>>::digits >
         std::numeric_limits<real_of<T>>::digits;
}
// A compiler whose long double is the double itself (as some Windows ones)
// still builds: refinement in double precision then accumulates in double.
static_assert(extended_is_wider<float>(),
              "the extended format must carry more digits than the working one");
static_assert(sizeof(ext_t<double>) <= 2 * sizeof(double) &&
                  sizeof(ext_t<float>) <= 2 * sizeof(float),
              "an extended value must fit in two working values");

// s = s + a x, with the complex product written out (no checks for
// infinities in the library's complex multiply).
template <class E, class V> inline void mul_add(E &s, const V &a, const E &x) {
  s += static_cast<E>(a) * x;
}
template <class E, class V>
inline void mul_add(std::complex<E> &s, const std::complex<V> &a, const std::complex<E> &x) {
  const E ar = a.real(), ai = a.imag(), xr = x.real(), xi = x.imag();
  s = std::complex<E>(s.real() + (ar * xr - ai * xi), s.imag() + (ar * xi + ai * xr));
}

template <bool Conj, class T> inline T mirrored(const T &v) { return v; }
template <bool Conj, class R> inline std::complex<R> mirrored(const std::complex<R> &v) {
  return Conj ? std::conj(v) : v;
}

// A Hermitian matrix's diagonal is real: the imaginary part of a stored
// diagonal value is not read, as the factorization does not read it.
template <bool Real, class T> inline T diagonal_value(const T &v) { return v; }
template <bool Real, class R> inline std::complex<R> diagonal_value(const std::complex<R> &v) {
  return Real ? std::complex<R>(v.real(), R(0)) : v;
}

template <class E> inline E zero() { return E(0); }

// Working to extended and back.
template <class T> inline ext_t<T> widen(const T &v) { return static_cast<ext_t<T>>(v); }
template <class R> inline std::complex<typename extended_of<R>::type> widen(const std::complex<R> &v) {
  typedef typename extended_of<R>::type E;
  return std::complex<E>(static_cast<E>(v.real()), static_cast<E>(v.imag()));
}
template <class T> inline T narrow(const ext_t<T> &v) { return static_cast<T>(v); }

// |v| of an extended value: the absolute value, or the modulus.
template <class E> inline real_of<E> modulus(const E &v) { return std::abs(v); }

// |re| + |im| of a working value.
template <class T> inline double word_sum(const T &v) { return std::fabs(static_cast<double>(v)); }
template <class R> inline double word_sum(const std::complex<R> &v) {
  return std::fabs(static_cast<double>(v.real())) + std::fabs(static_cast<double>(v.imag()));
}

// ---------------------------------------------------------------------------
// Kernels on one right-hand side. The accumulator type E is T in the working
// product and ext_t<T> in the residual; the matrix values stay T.
// ---------------------------------------------------------------------------

// y(i) = row i of A times x, for rows first to last - 1 (zero-based).
template <class T, class E>
void full_rows(int first, int last, const int *ia, const int *ja, const T *a, const E *x,
               E *y) {
  for (int i = first; i < last; ++i) {
    E s = zero<E>();
    for (int p = ia[i] - 1; p < ia[i + 1] - 1; ++p) mul_add(s, a[p], x[ja[p] - 1]);
    y[i] = s;
  }
}

// y = A^T x for full storage: y cleared, row i scatters x(i).
template <class T, class E>
void full_scatter(int n, const int *ia, const int *ja, const T *a, const E *x, E *y) {
  for (int i = 0; i < n; ++i) y[i] = zero<E>();
  for (int i = 0; i < n; ++i) {
    const E xi = x[i];
    for (int p = ia[i] - 1; p < ia[i + 1] - 1; ++p) mul_add(y[ja[p] - 1], a[p], xi);
  }
}

// y = A x for triangle storage. Row i gathers its stored entries (values
// taken through ConjGather) and scatters x(i) into the rows of its columns
// (values taken through ConjScatter). A: gather as is, scatter conjugated
// for Hermitian; A^T the other way round.
template <bool ConjGather, bool ConjScatter, class T, class E>
void triangle(int n, const int *ia, const int *ja, const T *a, const E *x, E *y) {
  for (int i = 0; i < n; ++i) y[i] = zero<E>();
  for (int i = 0; i < n; ++i) {
    const int p0 = ia[i] - 1, p1 = ia[i + 1] - 1;
    if (p0 >= p1) continue;
    const E xi = x[i];
    E s = zero<E>();
    mul_add(s, diagonal_value<ConjGather != ConjScatter>(a[p0]), xi);
    for (int p = p0 + 1; p < p1; ++p) {
      const int j = ja[p] - 1;
      mul_add(s, mirrored<ConjGather>(a[p]), x[j]);
      mul_add(y[j], mirrored<ConjScatter>(a[p]), xi);
    }
    y[i] += s;
  }
}

template <class T, class E>
void triangle_any(bool hermitian, bool transposed, int n, const int *ia, const int *ja,
                  const T *a, const E *x, E *y) {
  if (!hermitian)
    triangle<false, false>(n, ia, ja, a, x, y);
  else if (transposed)
    triangle<true, false>(n, ia, ja, a, x, y);
  else
    triangle<false, true>(n, ia, ja, a, x, y);
}

inline bool hermitian_type(int mtype) { return mtype == 4 || mtype == -4; }

}  // namespace

template <class T>
void residual_product(const int *trans, const int *neqns, const int *nb, const int *mtype,
                      const int *threads, const int *ia, const int *ja, const T *a,
                      const T *x, T *y, T *scratch) {
  const int n = *neqns, m = *nb;
  const long ld = n;
  const int nt = *threads > 1 ? *threads : 1;
  const bool tri = symmetric_storage(*mtype) != 0;
  const bool herm = hermitian_type(*mtype);

  if (*trans != 0) {
    for (int j = 0; j < m; ++j) {
      if (tri)
        triangle_any(herm, true, n, ia, ja, a, x + ld * j, y + ld * j);
      else
        full_scatter(n, ia, ja, a, x + ld * j, y + ld * j);
    }
    return;
  }

  if (nt * m == 1) {
    if (tri)
      triangle_any(herm, false, n, ia, ja, a, x, y);
    else
      full_rows(0, n, ia, ja, a, x, y);
    return;
  }

  if (tri) {
    if (m == 1) {
      triangle_any(herm, false, n, ia, ja, a, x, y);
      return;
    }
    const int ts = m < nt ? m : nt;
#pragma omp parallel for schedule(static) num_threads(ts)
    for (int j = 0; j < m; ++j) triangle_any(herm, false, n, ia, ja, a, x + ld * j, y + ld * j);
    return;
  }

  if (m == 1) {
#pragma omp parallel for schedule(static) num_threads(nt)
    for (int i = 0; i < n; ++i) full_rows(i, i + 1, ia, ja, a, x, y);
    return;
  }

#pragma omp parallel num_threads(nt)
  {
    T *w = scratch + static_cast<long>(omp_get_thread_num()) * m;
#pragma omp for schedule(static)
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < m; ++j) w[j] = T(0);
      for (int p = ia[i] - 1; p < ia[i + 1] - 1; ++p) {
        const T v = a[p];
        const T *xc = x + (ja[p] - 1);
        for (int j = 0; j < m; ++j) mul_add(w[j], v, xc[ld * j]);
      }
      for (int j = 0; j < m; ++j) y[i + ld * j] = w[j];
    }
  }
}

template <class T>
double residual_extended(const int *trans, const int *neqns, const int *nb, const int *mtype,
                         const int *ia, const int *ja, const T *a, const ext_t<T> *x,
                         const T *b, T *r, ext_t<T> *work) {
  typedef ext_t<T> E;
  typedef real_of<E> ER;
  const int n = *neqns, m = *nb;
  const long ld = n;
  const bool tri = symmetric_storage(*mtype) != 0;
  const bool herm = hermitian_type(*mtype);
  const bool transposed = *trans != 0;
  ER sum = 0;
  for (int j = 0; j < m; ++j) {
    const E *xj = x + ld * j;
    const T *bj = b + ld * j;
    T *rj = r + ld * j;
    if (!tri && !transposed) {
      for (int i = 0; i < n; ++i) {
        E s = zero<E>();
        for (int p = ia[i] - 1; p < ia[i + 1] - 1; ++p) mul_add(s, a[p], xj[ja[p] - 1]);
        const E ri = widen(bj[i]) - s;
        rj[i] = narrow<T>(ri);
        sum += modulus(ri);
      }
      continue;
    }
    if (tri)
      triangle_any(herm, transposed, n, ia, ja, a, xj, work);
    else
      full_scatter(n, ia, ja, a, xj, work);
    for (int i = 0; i < n; ++i) {
      const E ri = widen(bj[i]) - work[i];
      rj[i] = narrow<T>(ri);
      sum += modulus(ri);
    }
  }
  return static_cast<double>(sum);
}

template <class T> void refine_to_extended(const int *count, const T *x, ext_t<T> *xe) {
  for (long k = 0; k < *count; ++k) xe[k] = widen(x[k]);
}

template <class T> void refine_from_extended(const int *count, const ext_t<T> *xe, T *x) {
  for (long k = 0; k < *count; ++k) x[k] = narrow<T>(xe[k]);
}

template <class T> double refine_update_extended(const int *count, ext_t<T> *xe, const T *d) {
  real_of<ext_t<T>> sum = 0;
  for (long k = 0; k < *count; ++k) {
    const ext_t<T> dk = widen(d[k]);
    xe[k] += dk;
    sum += modulus(dk);
  }
  return static_cast<double>(sum);
}

template <class T> double refine_sum_abs(const int *count, const T *v) {
  double sum = 0.0;
  for (long k = 0; k < *count; ++k) sum += word_sum(v[k]);
  return sum;
}

#define RESIDUAL_PRODUCT_INSTANCE(T)                                                        \
  template void residual_product<T>(const int *, const int *, const int *, const int *,     \
                                    const int *, const int *, const int *, const T *,       \
                                    const T *, T *, T *);                                   \
  template double residual_extended<T>(const int *, const int *, const int *, const int *,  \
                                       const int *, const int *, const T *,                 \
                                       const ext_t<T> *, const T *, T *, ext_t<T> *);       \
  template void refine_to_extended<T>(const int *, const T *, ext_t<T> *);                  \
  template void refine_from_extended<T>(const int *, const ext_t<T> *, T *);                \
  template double refine_update_extended<T>(const int *, ext_t<T> *, const T *);            \
  template double refine_sum_abs<T>(const int *, const T *);
RESIDUAL_PRODUCT_INSTANCE(double)
RESIDUAL_PRODUCT_INSTANCE(float)
RESIDUAL_PRODUCT_INSTANCE(std::complex<double>)
RESIDUAL_PRODUCT_INSTANCE(std::complex<float>)

}  // namespace tlm
