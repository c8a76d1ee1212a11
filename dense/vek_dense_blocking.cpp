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
// AVX2 with FMA; type 7 (AVX-512) runs the AVX2 kernels with its own table.
#include "dense/vek_dense_kernels.h"

namespace vekd {
namespace {

template <class T>
struct set_table;

template <>
struct set_table<double> {
  static constexpr kernel_set<double> plain = {PLAIN_D_MR, PLAIN_D_NR, 128, 256, 2048,
                                               plain_dkernel};
  static constexpr kernel_set<double> avx2 = {12, 4, 120, 256, 2048, avx2_dkernel};
};

template <>
struct set_table<float> {
  static constexpr kernel_set<float> plain = {PLAIN_S_MR, PLAIN_S_NR, 128, 512, 2048,
                                              plain_skernel};
  static constexpr kernel_set<float> avx2 = {16, 6, 128, 512, 2040, avx2_skernel};
};

template <>
struct set_table<std::complex<double>> {
  static constexpr kernel_set<std::complex<double>> plain = {
      PLAIN_Z_MR, PLAIN_Z_NR, 64, 256, 1024, plain_zkernel};
  static constexpr kernel_set<std::complex<double>> avx2 = {4, 3, 64, 256, 1020,
                                                            avx2_zkernel};
};

template <>
struct set_table<std::complex<float>> {
  static constexpr kernel_set<std::complex<float>> plain = {
      PLAIN_C_MR, PLAIN_C_NR, 128, 256, 2048, plain_ckernel};
  static constexpr kernel_set<std::complex<float>> avx2 = {8, 3, 128, 256, 2040,
                                                           avx2_ckernel};
};

}  // namespace

template <class T>
const kernel_set<T> &kernel_set_of(int type) {
  switch (type) {
    case VEK_CPU_AVX2:
    case VEK_CPU_AVX512:
      return set_table<T>::avx2;
    default:
      return set_table<T>::plain;
  }
}

template const kernel_set<double> &kernel_set_of<double>(int);
template const kernel_set<float> &kernel_set_of<float>(int);
template const kernel_set<std::complex<double>> &kernel_set_of<std::complex<double>>(int);
template const kernel_set<std::complex<float>> &kernel_set_of<std::complex<float>>(int);

}  // namespace vekd
