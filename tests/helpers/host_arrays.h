// host_arrays.h - the host's growing arrays from and to vectors, for the
// tests of the facade.
#ifndef VEK_TEST_HOST_ARRAYS_H
#define VEK_TEST_HOST_ARRAYS_H

#include <type_traits>
#include <vector>

#include "muLinearSolver.h"

namespace vektest {

template <class A, class T> A make(const std::vector<T> &v) {
  A a;
  if (!v.empty()) a.expand(static_cast<int>(v.size()));
  for (std::size_t k = 0; k < v.size(); ++k) a.data()[k] = v[k];
  return a;
}

template <class A> auto contents(const A &a) {
  using T = std::remove_const_t<std::remove_pointer_t<decltype(a.data())>>;
  return std::vector<T>(a.data(), a.data() + a.size());
}

}  // namespace vektest

#endif
