// vek_dense_blocking.cpp - the kernel sets of the processor types: register
// tile, cache blocking and micro-kernel, one table per value type.
//
// The blocking follows the usual rule of packed products: a kc x nr panel of
// B stays in the first-level cache while the mc x kc block of A streams from
// the second level, and the kc x nc block of B lives in the last level.
// mc is a multiple of mr and nc a multiple of nr.
//
// Types 0 to 5 share the portable kernels: the x86-64 baseline already has
// SSE2, and the portable tiles gain nothing from SSE3 to SSE4.2. Type 6 is
// AVX2 with FMA, type 7 AVX-512F. The blocks of type 7 are sized for a
// first-level cache of 48 KB and a second level of 1 MB a core: the panel
// of B takes half the first, the block of A half the second.
#include "dense/vek_dense_kernels.h"
#include "dense/vek_dense_kernels_wide.h"

namespace vekd {
namespace {

template <class T>
struct set_table;

template <>
struct set_table<double> {
  static constexpr kernel_set<double> plain = {PLAIN_D_MR, PLAIN_D_NR, 128, 256, 2048,
                                               plain_dkernel};
  static constexpr kernel_set<double> avx2 = {12, 4, 120, 256, 2048, avx2_dkernel};
  static constexpr kernel_set<double> avx512 = {WIDE_D_MR, WIDE_D_NR, 168, 384, 2048,
                                                avx512_dkernel};
};

template <>
struct set_table<float> {
  static constexpr kernel_set<float> plain = {PLAIN_S_MR, PLAIN_S_NR, 128, 512, 2048,
                                              plain_skernel};
  static constexpr kernel_set<float> avx2 = {16, 6, 128, 512, 2040, avx2_skernel};
  static constexpr kernel_set<float> avx512 = {WIDE_S_MR, WIDE_S_NR, 192, 768, 2048,
                                               avx512_skernel};
};

template <>
struct set_table<std::complex<double>> {
  static constexpr kernel_set<std::complex<double>> plain = {
      PLAIN_Z_MR, PLAIN_Z_NR, 64, 256, 1024, plain_zkernel};
  static constexpr kernel_set<std::complex<double>> avx2 = {4, 3, 64, 256, 1020,
                                                            avx2_zkernel};
  static constexpr kernel_set<std::complex<double>> avx512 = {WIDE_Z_MR, WIDE_Z_NR, 96, 256,
                                                              1020, avx512_zkernel};
};

template <>
struct set_table<std::complex<float>> {
  static constexpr kernel_set<std::complex<float>> plain = {
      PLAIN_C_MR, PLAIN_C_NR, 128, 256, 2048, plain_ckernel};
  static constexpr kernel_set<std::complex<float>> avx2 = {8, 3, 128, 256, 2040,
                                                           avx2_ckernel};
  static constexpr kernel_set<std::complex<float>> avx512 = {WIDE_C_MR, WIDE_C_NR, 128, 384,
                                                             2040, avx512_ckernel};
};

}  // namespace

template <class T>
const kernel_set<T> &kernel_set_of(int type) {
  switch (type) {
    case VEK_CPU_AVX2:
      return set_table<T>::avx2;
    case VEK_CPU_AVX512:
      return set_table<T>::avx512;
    default:
      return set_table<T>::plain;
  }
}

template const kernel_set<double> &kernel_set_of<double>(int);
template const kernel_set<float> &kernel_set_of<float>(int);
template const kernel_set<std::complex<double>> &kernel_set_of<std::complex<double>>(int);
template const kernel_set<std::complex<float>> &kernel_set_of<std::complex<float>>(int);

}  // namespace vekd
