// coDynArr.h - libcontainer: growing arrays of doubles and of ints.
//
// Layout (relied on by clients): element pointer, capacity, size, one
// reserved word, validity stamp. Elements from the size up to the capacity
// are zero. The element accessors operator[] are declared here but defined
// and exported by the client library libvekutils; see its facade header
// muLinearSolver.h for their semantics (a write or non-const read past the
// end grows the array).
#ifndef CO_DYN_ARR_H
#define CO_DYN_ARR_H

#include "host_export.h"
#include "utAssert.h"

#if defined(_WIN32) && !defined(VEK_BUILDING_DLL)
#  define CO_ACCESSOR_API __declspec(dllimport)
#elif defined(_WIN32)
#  define CO_ACCESSOR_API __declspec(dllexport)
#else
#  define CO_ACCESSOR_API __attribute__((visibility("default")))
#endif

class doublecoDynArr {
 public:
  CO_API doublecoDynArr();
  // size elements, all zero.
  CO_API explicit doublecoDynArr(int size);
  CO_API doublecoDynArr(const doublecoDynArr &other);
  CO_API doublecoDynArr &operator=(const doublecoDynArr &other);
  CO_API ~doublecoDynArr();  // not virtual: the layout has no vtable

  // Makes room for element `index`: the capacity becomes at least
  // index + 1 (at least twice the old capacity when it grows). The size is
  // unchanged. Returns 1, or 0 when the memory cannot be had or the index
  // is negative.
  CO_API int resize(int index);
  // Makes the array hold at least n elements: capacity and size become at
  // least n; elements kept, new ones zero. Returns 1, or 0 on failure.
  CO_API int expand(int n);

  int size() const { return m_size; }
  int capacity() const { return m_capacity; }
  double *data() { return m_data; }
  const double *data() const { return m_data; }

  CO_ACCESSOR_API double &operator[](int index);
  CO_ACCESSOR_API const double &operator[](int index) const;

 protected:
  double *m_data;
  int m_capacity;
  int m_size;
  int m_reserved;
  utCheckValid m_valid;
};

class intcoDynArr {
 public:
  CO_API intcoDynArr();
  CO_API explicit intcoDynArr(int size);
  CO_API intcoDynArr(const intcoDynArr &other);
  CO_API intcoDynArr &operator=(const intcoDynArr &other);
  CO_API ~intcoDynArr();

  CO_API int resize(int index);
  CO_API int expand(int n);

  int size() const { return m_size; }
  int capacity() const { return m_capacity; }
  int *data() { return m_data; }
  const int *data() const { return m_data; }

  CO_ACCESSOR_API int &operator[](int index);
  CO_ACCESSOR_API const int &operator[](int index) const;

 protected:
  int *m_data;
  int m_capacity;
  int m_size;
  int m_reserved;
  utCheckValid m_valid;
};

#endif
