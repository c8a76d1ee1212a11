// vek_dense_kernels_avx2.cpp - micro-kernels for processors with AVX2 and FMA.
//
// Each routine is compiled for that instruction set by a target attribute,
// so that nothing in the rest of the library needs it; the frame picks these
// kernels only on processor types 6 and 7. A tile of C lives in twelve
// 256-bit registers, fed by vectors of A and broadcasts of B.
#include "dense/vek_dense_kernels.h"

#include <immintrin.h>

#define VEK_AVX2 __attribute__((target("avx2,fma")))

namespace vekd {

// 12 x 4 doubles: column j of the tile in c0j, c1j, c2j (rows 0-3, 4-7,
// 8-11). Three vectors of A and four broadcasts of B a step: seven loads
// for twelve multiply-adds.
VEK_AVX2 void avx2_dkernel(int k, const double *a, const double *b, double *c,
                           std::ptrdiff_t ldc, int add) {
  __m256d c00 = _mm256_setzero_pd(), c10 = _mm256_setzero_pd(), c20 = _mm256_setzero_pd();
  __m256d c01 = _mm256_setzero_pd(), c11 = _mm256_setzero_pd(), c21 = _mm256_setzero_pd();
  __m256d c02 = _mm256_setzero_pd(), c12 = _mm256_setzero_pd(), c22 = _mm256_setzero_pd();
  __m256d c03 = _mm256_setzero_pd(), c13 = _mm256_setzero_pd(), c23 = _mm256_setzero_pd();
  for (int j = 0; j < 4; ++j) {
    _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc + 11), _MM_HINT_T0);
  }
#pragma GCC unroll 4
  for (int p = 0; p < k; ++p) {
    const __m256d a0 = _mm256_loadu_pd(a), a1 = _mm256_loadu_pd(a + 4),
                  a2 = _mm256_loadu_pd(a + 8);
    __m256d bj = _mm256_broadcast_sd(b);
    c00 = _mm256_fmadd_pd(a0, bj, c00); c10 = _mm256_fmadd_pd(a1, bj, c10);
    c20 = _mm256_fmadd_pd(a2, bj, c20);
    bj = _mm256_broadcast_sd(b + 1);
    c01 = _mm256_fmadd_pd(a0, bj, c01); c11 = _mm256_fmadd_pd(a1, bj, c11);
    c21 = _mm256_fmadd_pd(a2, bj, c21);
    bj = _mm256_broadcast_sd(b + 2);
    c02 = _mm256_fmadd_pd(a0, bj, c02); c12 = _mm256_fmadd_pd(a1, bj, c12);
    c22 = _mm256_fmadd_pd(a2, bj, c22);
    bj = _mm256_broadcast_sd(b + 3);
    c03 = _mm256_fmadd_pd(a0, bj, c03); c13 = _mm256_fmadd_pd(a1, bj, c13);
    c23 = _mm256_fmadd_pd(a2, bj, c23);
    a += 12;
    b += 4;
  }
#define VEK_STORE_D(J, X, Y, Z)                                        \
  {                                                                    \
    double *cp = c + (J) * ldc;                                        \
    __m256d x = X, y = Y, z = Z;                                       \
    if (add) {                                                         \
      x = _mm256_add_pd(x, _mm256_loadu_pd(cp));                       \
      y = _mm256_add_pd(y, _mm256_loadu_pd(cp + 4));                   \
      z = _mm256_add_pd(z, _mm256_loadu_pd(cp + 8));                   \
    }                                                                  \
    _mm256_storeu_pd(cp, x);                                           \
    _mm256_storeu_pd(cp + 4, y);                                       \
    _mm256_storeu_pd(cp + 8, z);                                       \
  }
  VEK_STORE_D(0, c00, c10, c20) VEK_STORE_D(1, c01, c11, c21)
  VEK_STORE_D(2, c02, c12, c22) VEK_STORE_D(3, c03, c13, c23)
#undef VEK_STORE_D
}

// 16 x 6 floats, the same scheme with eight values a vector.
VEK_AVX2 void avx2_skernel(int k, const float *a, const float *b, float *c,
                           std::ptrdiff_t ldc, int add) {
  __m256 c00 = _mm256_setzero_ps(), c10 = _mm256_setzero_ps();
  __m256 c01 = _mm256_setzero_ps(), c11 = _mm256_setzero_ps();
  __m256 c02 = _mm256_setzero_ps(), c12 = _mm256_setzero_ps();
  __m256 c03 = _mm256_setzero_ps(), c13 = _mm256_setzero_ps();
  __m256 c04 = _mm256_setzero_ps(), c14 = _mm256_setzero_ps();
  __m256 c05 = _mm256_setzero_ps(), c15 = _mm256_setzero_ps();
  for (int j = 0; j < 6; ++j) {
    _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc + 15), _MM_HINT_T0);
  }
#pragma GCC unroll 4
  for (int p = 0; p < k; ++p) {
    _mm_prefetch(reinterpret_cast<const char *>(a + 128), _MM_HINT_T0);
    const __m256 a0 = _mm256_loadu_ps(a), a1 = _mm256_loadu_ps(a + 8);
    __m256 bj = _mm256_broadcast_ss(b);
    c00 = _mm256_fmadd_ps(a0, bj, c00); c10 = _mm256_fmadd_ps(a1, bj, c10);
    bj = _mm256_broadcast_ss(b + 1);
    c01 = _mm256_fmadd_ps(a0, bj, c01); c11 = _mm256_fmadd_ps(a1, bj, c11);
    bj = _mm256_broadcast_ss(b + 2);
    c02 = _mm256_fmadd_ps(a0, bj, c02); c12 = _mm256_fmadd_ps(a1, bj, c12);
    bj = _mm256_broadcast_ss(b + 3);
    c03 = _mm256_fmadd_ps(a0, bj, c03); c13 = _mm256_fmadd_ps(a1, bj, c13);
    bj = _mm256_broadcast_ss(b + 4);
    c04 = _mm256_fmadd_ps(a0, bj, c04); c14 = _mm256_fmadd_ps(a1, bj, c14);
    bj = _mm256_broadcast_ss(b + 5);
    c05 = _mm256_fmadd_ps(a0, bj, c05); c15 = _mm256_fmadd_ps(a1, bj, c15);
    a += 16;
    b += 6;
  }
#define VEK_STORE_S(J, LO, HI)                                         \
  {                                                                    \
    float *cp = c + (J) * ldc;                                         \
    __m256 lo = LO, hi = HI;                                           \
    if (add) {                                                         \
      lo = _mm256_add_ps(lo, _mm256_loadu_ps(cp));                     \
      hi = _mm256_add_ps(hi, _mm256_loadu_ps(cp + 8));                 \
    }                                                                  \
    _mm256_storeu_ps(cp, lo);                                          \
    _mm256_storeu_ps(cp + 8, hi);                                      \
  }
  VEK_STORE_S(0, c00, c10) VEK_STORE_S(1, c01, c11) VEK_STORE_S(2, c02, c12)
  VEK_STORE_S(3, c03, c13) VEK_STORE_S(4, c04, c14) VEK_STORE_S(5, c05, c15)
#undef VEK_STORE_S
}

// The vector operations of the complex kernel, by the real type.
template <class R> struct avx_complex;
template <> struct avx_complex<double> {
  typedef __m256d V;
  static constexpr int width = 4;  // reals in a vector
  VEK_AVX2 static V zero() { return _mm256_setzero_pd(); }
  VEK_AVX2 static V load(const double *p) { return _mm256_loadu_pd(p); }
  VEK_AVX2 static void store(double *p, V v) { _mm256_storeu_pd(p, v); }
  VEK_AVX2 static V broadcast(const double *p) { return _mm256_broadcast_sd(p); }
  VEK_AVX2 static V fmadd(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
  VEK_AVX2 static V add(V a, V b) { return _mm256_add_pd(a, b); }
  // r + i with the pairs of i swapped, subtracted in the real and added in
  // the imaginary places: the complex sum of the two partial products.
  VEK_AVX2 static V join(V r, V i) { return _mm256_addsub_pd(r, _mm256_permute_pd(i, 5)); }
};
template <> struct avx_complex<float> {
  typedef __m256 V;
  static constexpr int width = 8;
  VEK_AVX2 static V zero() { return _mm256_setzero_ps(); }
  VEK_AVX2 static V load(const float *p) { return _mm256_loadu_ps(p); }
  VEK_AVX2 static void store(float *p, V v) { _mm256_storeu_ps(p, v); }
  VEK_AVX2 static V broadcast(const float *p) { return _mm256_broadcast_ss(p); }
  VEK_AVX2 static V fmadd(V a, V b, V c) { return _mm256_fmadd_ps(a, b, c); }
  VEK_AVX2 static V add(V a, V b) { return _mm256_add_ps(a, b); }
  VEK_AVX2 static V join(V r, V i) { return _mm256_addsub_ps(r, _mm256_permute_ps(i, 0xB1)); }
};

// width x 3 complex values (4 doubles, 8 floats down a column). The
// products with the real and the imaginary part of b are kept apart (rJ,
// iJ) and joined once at the end.
template <class R>
VEK_AVX2 inline void avx2_complex_kernel(int k, const std::complex<R> *ac,
                                         const std::complex<R> *bc, std::complex<R> *cc,
                                         std::ptrdiff_t ldc, int add) {
  typedef avx_complex<R> O;
  typedef typename O::V V;
  constexpr int w = O::width;
  const R *a = reinterpret_cast<const R *>(ac);
  const R *b = reinterpret_cast<const R *>(bc);
  R *c = reinterpret_cast<R *>(cc);
  V r00 = O::zero(), r10 = O::zero(), i00 = O::zero(), i10 = O::zero();
  V r01 = O::zero(), r11 = O::zero(), i01 = O::zero(), i11 = O::zero();
  V r02 = O::zero(), r12 = O::zero(), i02 = O::zero(), i12 = O::zero();
#pragma GCC unroll 4
  for (int p = 0; p < k; ++p) {
    _mm_prefetch(reinterpret_cast<const char *>(a + 16 * w), _MM_HINT_T0);
    const V a0 = O::load(a), a1 = O::load(a + w);
    V br = O::broadcast(b), bi = O::broadcast(b + 1);
    r00 = O::fmadd(a0, br, r00); r10 = O::fmadd(a1, br, r10);
    i00 = O::fmadd(a0, bi, i00); i10 = O::fmadd(a1, bi, i10);
    br = O::broadcast(b + 2); bi = O::broadcast(b + 3);
    r01 = O::fmadd(a0, br, r01); r11 = O::fmadd(a1, br, r11);
    i01 = O::fmadd(a0, bi, i01); i11 = O::fmadd(a1, bi, i11);
    br = O::broadcast(b + 4); bi = O::broadcast(b + 5);
    r02 = O::fmadd(a0, br, r02); r12 = O::fmadd(a1, br, r12);
    i02 = O::fmadd(a0, bi, i02); i12 = O::fmadd(a1, bi, i12);
    a += 2 * w;
    b += 6;
  }
  auto put = [&](int j, V re0, V im0, V re1, V im1) VEK_AVX2 {
    R *cp = c + 2 * j * ldc;
    V lo = O::join(re0, im0), hi = O::join(re1, im1);
    if (add) {
      lo = O::add(lo, O::load(cp));
      hi = O::add(hi, O::load(cp + w));
    }
    O::store(cp, lo);
    O::store(cp + w, hi);
  };
  put(0, r00, i00, r10, i10);
  put(1, r01, i01, r11, i11);
  put(2, r02, i02, r12, i12);
}

VEK_AVX2 void avx2_zkernel(int k, const std::complex<double> *ac,
                           const std::complex<double> *bc, std::complex<double> *cc,
                           std::ptrdiff_t ldc, int add) {
  avx2_complex_kernel<double>(k, ac, bc, cc, ldc, add);
}

VEK_AVX2 void avx2_ckernel(int k, const std::complex<float> *ac,
                           const std::complex<float> *bc, std::complex<float> *cc,
                           std::ptrdiff_t ldc, int add) {
  avx2_complex_kernel<float>(k, ac, bc, cc, ldc, add);
}

}  // namespace vekd
