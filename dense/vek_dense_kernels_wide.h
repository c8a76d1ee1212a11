// vek_dense_kernels_wide.h - micro-kernels written once over a vector type
// of the compiler's vector extension, for register files of any width.
//
// The routines below use nothing but the extension's arithmetic, loads and
// stores through memcpy, and lane access, so the instructions they
// become are chosen by the target of the function that inlines them: the
// AVX-512 kernels (vek_dense_kernels_avx512.cpp) wrap them in a function
// compiled for AVX-512F, where a vector of eight doubles is one register.
// The same source wrapped for AVX2 gives the same results on any machine
// with AVX2, which is how the tests check the tile logic where no AVX-512
// processor is at hand. A product a*b added to c becomes a fused
// multiply-add where the target has one.
//
// Tiles, panels and the add flag are those of vek_dense_kernels.h.
#ifndef VEK_DENSE_KERNELS_WIDE_H
#define VEK_DENSE_KERNELS_WIDE_H

#include <complex>
#include <cstddef>
#include <cstring>

#define VEK_WIDE_INLINE inline __attribute__((always_inline))

namespace vekd {

// A vector of W values of the real type R.
template <class R, int W>
struct wide_vector {
  typedef R type __attribute__((vector_size(W * sizeof(R))));
};

// Vectors pass by reference only: these helpers are always inlined, and a
// vector wider than the baseline's registers has no by-value convention
// that both sides of a call would share.
template <class V>
VEK_WIDE_INLINE void wide_load(V &v, const void *p) {
  std::memcpy(&v, p, sizeof v);
}

template <class V>
VEK_WIDE_INLINE void wide_store(void *p, const V &v) {
  std::memcpy(p, &v, sizeof v);
}

// A real tile of MV vectors down (MV*W rows) by NR columns. The tile is
// held in MV*NR accumulators; each step loads MV vectors of A and
// broadcasts NR values of B.
template <class R, int W, int MV, int NR>
VEK_WIDE_INLINE void wide_real_kernel(int k, const R *a, const R *b, R *c,
                                      std::ptrdiff_t ldc, int add) {
  typedef typename wide_vector<R, W>::type V;
  V acc[NR][MV];
  for (int j = 0; j < NR; ++j)
    for (int v = 0; v < MV; ++v) acc[j][v] = V{};
  for (int j = 0; j < NR; ++j) __builtin_prefetch(c + j * ldc, 1, 3);
#pragma GCC unroll 2
  for (int p = 0; p < k; ++p) {
    __builtin_prefetch(a + 8 * MV * W, 0, 3);
    V av[MV];
    for (int v = 0; v < MV; ++v) wide_load(av[v], a + v * W);
    for (int j = 0; j < NR; ++j) {
      const V bj = V{} + b[j];
      for (int v = 0; v < MV; ++v) acc[j][v] = av[v] * bj + acc[j][v];
    }
    a += MV * W;
    b += NR;
  }
  for (int j = 0; j < NR; ++j) {
    R *cp = c + j * ldc;
    for (int v = 0; v < MV; ++v) {
      V x = acc[j][v];
      if (add) {
        V old;
        wide_load(old, cp + v * W);
        x += old;
      }
      wide_store(cp + v * W, x);
    }
  }
}

// The lane pattern that swaps the real and imaginary parts of each pair.
// By lanes, which every compiler of the vector extension takes (it runs
// once per tile, after the loop).
template <class V, class I, int W>
VEK_WIDE_INLINE void swap_pairs(V &x) {
  V y;
  for (int i = 0; i < W; ++i) y[i] = x[i ^ 1];
  x = y;
}

// A complex tile of MV vectors down (MV*W/2 complex rows) by NR columns.
// The products with the real and the imaginary part of each value of B are
// kept apart and joined once at the end: r + swapped(i) * (-1, 1, ...).
template <class R, class I, int W, int MV, int NR>
VEK_WIDE_INLINE void wide_complex_kernel(int k, const std::complex<R> *ac,
                                         const std::complex<R> *bc, std::complex<R> *cc,
                                         std::ptrdiff_t ldc, int add) {
  typedef typename wide_vector<R, W>::type V;
  const R *a = reinterpret_cast<const R *>(ac);
  const R *b = reinterpret_cast<const R *>(bc);
  R *c = reinterpret_cast<R *>(cc);
  V re[NR][MV], im[NR][MV];
  for (int j = 0; j < NR; ++j)
    for (int v = 0; v < MV; ++v) re[j][v] = im[j][v] = V{};
#pragma GCC unroll 2
  for (int p = 0; p < k; ++p) {
    __builtin_prefetch(a + 8 * MV * W, 0, 3);
    V av[MV];
    for (int v = 0; v < MV; ++v) wide_load(av[v], a + v * W);
    for (int j = 0; j < NR; ++j) {
      const V br = V{} + b[2 * j], bi = V{} + b[2 * j + 1];
      for (int v = 0; v < MV; ++v) {
        re[j][v] = av[v] * br + re[j][v];
        im[j][v] = av[v] * bi + im[j][v];
      }
    }
    a += MV * W;
    b += 2 * NR;
  }
  V sign;
  for (int i = 0; i < W; ++i) sign[i] = (i & 1) ? R(1) : R(-1);
  for (int j = 0; j < NR; ++j) {
    R *cp = c + 2 * j * ldc;
    for (int v = 0; v < MV; ++v) {
      V x = im[j][v];
      swap_pairs<V, I, W>(x);
      x = x * sign + re[j][v];
      if (add) {
        V old;
        wide_load(old, cp + v * W);
        x += old;
      }
      wide_store(cp + v * W, x);
    }
  }
}

// Integer lane types for the shuffles.
typedef long long wide_i64x8 __attribute__((vector_size(64)));
typedef int wide_i32x16 __attribute__((vector_size(64)));

// The kernels of one target, defined by a file that includes this header
// with ATTR its target attribute and P the name's prefix: d 24 x 8,
// s 48 x 8, z 8 x 3, c 16 x 3, each on vectors of 64 bytes.
#define VEK_WIDE_KERNELS(ATTR, P)                                                          \
  ATTR void P##_dkernel(int k, const double *a, const double *b, double *c,                \
                        std::ptrdiff_t ldc, int add) {                                     \
    ::vekd::wide_real_kernel<double, 8, 3, 8>(k, a, b, c, ldc, add);                       \
  }                                                                                        \
  ATTR void P##_skernel(int k, const float *a, const float *b, float *c,                   \
                        std::ptrdiff_t ldc, int add) {                                     \
    ::vekd::wide_real_kernel<float, 16, 3, 8>(k, a, b, c, ldc, add);                       \
  }                                                                                        \
  ATTR void P##_zkernel(int k, const std::complex<double> *a,                              \
                        const std::complex<double> *b, std::complex<double> *c,            \
                        std::ptrdiff_t ldc, int add) {                                     \
    ::vekd::wide_complex_kernel<double, ::vekd::wide_i64x8, 8, 2, 3>(k, a, b, c, ldc, add);\
  }                                                                                        \
  ATTR void P##_ckernel(int k, const std::complex<float> *a, const std::complex<float> *b, \
                        std::complex<float> *c, std::ptrdiff_t ldc, int add) {             \
    ::vekd::wide_complex_kernel<float, ::vekd::wide_i32x16, 16, 2, 3>(k, a, b, c, ldc, add);\
  }

// The tiles of those kernels, for the blocking table and the tests.
enum { WIDE_D_MR = 24, WIDE_D_NR = 8, WIDE_S_MR = 48, WIDE_S_NR = 8,
       WIDE_Z_MR = 8, WIDE_Z_NR = 3, WIDE_C_MR = 16, WIDE_C_NR = 3 };

}  // namespace vekd

#endif
