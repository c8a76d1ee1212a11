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

// Derived rules of the matrix type codes.
inline int words_per_value(int mtype) {
  int a = mtype < 0 ? -mtype : mtype;
  return (a < 3 || mtype == 11) ? 1 : 2;
}
inline int symmetric_storage(int mtype) {
  int a = mtype < 0 ? -mtype : mtype;
  return (a % 2 == 0) ? 1 : 0;
}
// Real variants serve the types whose absolute code, after taking 10 off
// codes above 10, is at most 2.
inline bool is_real_type(int mtype) {
  int a = mtype < 0 ? -mtype : mtype;
  if (a > 10) a -= 10;
  return a <= 2;
}

}  // namespace tlm

#endif
