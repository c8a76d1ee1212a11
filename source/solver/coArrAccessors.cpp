// coArrAccessors.cpp - the element accessors of the host's arrays
// doublecoDynArr, intcoDynArr and intcoFixedArr, which this library defines
// and exports. The non-const accessor of a growing array grows it.
#include <cstddef>

#include "coDynArr.h"
#include "coFixedArr.h"
#include "utAssert.h"

namespace {
const char kFile[] = "source/solver/coArrAccessors.cpp";

// Targets of an access that was reported and must not touch memory outside
// the array: reads give zero, writes are lost.
const double zero_double = 0.0;
const int zero_int = 0;
thread_local double sink_double;
thread_local int sink_int;
}  // namespace

// The layout the host application's arrays have.
struct co_dyn_layout {
  void *data;
  int capacity;
  int size;
  int reserved;
  utCheckValid valid;
};
struct co_fixed_layout {
  void *data;
  int size;
  utCheckValid valid;
};
static_assert(sizeof(doublecoDynArr) == sizeof(co_dyn_layout), "layout");
static_assert(sizeof(intcoDynArr) == sizeof(co_dyn_layout), "layout");
static_assert(sizeof(intcoFixedArr) == sizeof(co_fixed_layout), "layout");

// ------------------------------------------------------------ growing

// One body for both element types.
#define CO_DYN_CONST_ACCESS(zero)                                           \
  m_valid.check_ok(this, kFile, __LINE__);                                  \
  if (index < 0 || index >= m_size) {                                       \
    ut_report_assert_failure(                                               \
        kFile, __LINE__, "argument out of range | coDynArr::operator[] const"); \
    return zero;                                                            \
  }                                                                         \
  return m_data[index];

#define CO_DYN_ACCESS(sink)                                                 \
  m_valid.check_ok(this, kFile, __LINE__);                                  \
  if (index < 0) {                                                          \
    ut_report_assert_failure(kFile, __LINE__,                               \
                             "argument out of range | coDynArr::operator[]"); \
    sink = 0;                                                               \
    return sink;                                                            \
  }                                                                         \
  if (index >= m_size) {                                                    \
    if (index >= m_capacity && resize(index) == 0) {                        \
      ut_report_assert_failure(kFile, __LINE__,                             \
                               "coDynArr::operator[] | Oh no! out of memory!"); \
      sink = 0;                                                             \
      return sink;                                                          \
    }                                                                       \
    m_size = index + 1;                                                     \
  }                                                                         \
  return m_data[index];

const double &doublecoDynArr::operator[](int index) const {
  CO_DYN_CONST_ACCESS(zero_double)
}

double &doublecoDynArr::operator[](int index) { CO_DYN_ACCESS(sink_double) }

const int &intcoDynArr::operator[](int index) const {
  CO_DYN_CONST_ACCESS(zero_int)
}

int &intcoDynArr::operator[](int index) { CO_DYN_ACCESS(sink_int) }

// ------------------------------------------------------------ fixed

int &intcoFixedArr::operator[](int index) {
  m_valid.check_ok(this, kFile, __LINE__);
  if (m_data == nullptr) {
    ut_report_assert_failure(
        kFile, __LINE__,
        "object in incorrect state for operation |coFixedArr::operator[]");
  }
  m_valid.check_ok(this, kFile, __LINE__);
  if (index < 0 || index >= m_size || m_data == nullptr) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | coFixedArr::operator[]");
    sink_int = 0;
    return sink_int;
  }
  return m_data[index];
}
