// telmira_types.h - value types of the solver.
//
// Every value-bearing routine is written once as a template over its value
// type and instantiated for the four kinds: double, float, complex double and
// complex float (namespace tlm; the name telmira is the entry). The named twins (sp_..., c_...) are thin names over it.
#ifndef TELMIRA_TYPES_H
#define TELMIRA_TYPES_H

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tlm {

typedef std::complex<double> zcomplex;
typedef std::complex<float> ccomplex;

template <class T> struct value_traits {
  typedef T real;
  static constexpr bool is_complex = false;
  static constexpr int words = 1;  // words per value, comi(5)
};
template <class R> struct value_traits<std::complex<R>> {
  typedef R real;
  static constexpr bool is_complex = true;
  static constexpr int words = 2;
};

template <class T> using real_of = typename value_traits<T>::real;

// The mark of a handle slot or factor entry that owns no memory.
constexpr int not_allocated_mark = 777777;

// The magnitude of an integer from the caller, without the overflow of
// -INT_MIN.
inline int magnitude_of(int v) { return v >= 0 ? v : (v == -2147483647 - 1 ? 2147483647 : -v); }

// Derived rules of the matrix type codes.
inline int words_per_value(int mtype) {
  int a = magnitude_of(mtype);
  return (a < 3 || mtype == 11) ? 1 : 2;
}
inline int symmetric_storage(int mtype) {
  int a = magnitude_of(mtype);
  return (a % 2 == 0) ? 1 : 0;
}
// The nine codes that a kernel serves; the check lets a few more through
// (-1, -3, 5, -5, -6, -11), which the analysis refuses.
inline bool is_defined_type(int mtype) {
  switch (mtype) {
    case 1: case 2: case -2: case 3: case 4: case -4: case 6: case 11: case 13: return true;
    default: return false;
  }
}
// Real variants serve the types whose absolute code, after taking 10 off
// codes above 10, is at most 2.
inline bool is_real_type(int mtype) {
  int a = magnitude_of(mtype);
  if (a > 10) a -= 10;
  return a <= 2;
}

// Whether count values are all finite numbers: a value is NaN or infinite
// exactly when all bits of its exponent are set. Integer operations only,
// without branches, so that the loop vectorizes.
template <class R> inline bool all_finite(const R *v, std::int64_t count) {
  typedef typename std::conditional<sizeof(R) == 8, std::uint64_t, std::uint32_t>::type U;
  const U exponent = sizeof(R) == 8 ? static_cast<U>(0x7FF0000000000000ull)
                                    : static_cast<U>(0x7F800000u);
  U bad = 0;
  for (std::int64_t k = 0; k < count; ++k) {
    U bits;
    std::memcpy(&bits, v + k, sizeof(U));
    bad |= static_cast<U>((bits & exponent) == exponent);
  }
  return bad == 0;
}

}  // namespace tlm

#endif
