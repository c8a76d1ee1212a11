// coFixedArr.h - libcontainer: an int array of fixed size.
//
// Layout (relied on by clients): element pointer, size, validity stamp.
// The elements are not initialised. The accessor operator[] is defined and
// exported by libvekutils, as for the growing arrays of coDynArr.h.
#ifndef CO_FIXED_ARR_H
#define CO_FIXED_ARR_H

#include "coDynArr.h"

class intcoFixedArr {
 public:
  // size elements; none for a size below 1 (the element pointer is then
  // null). A failed allocation leaves a null pointer and size 0.
  CO_API explicit intcoFixedArr(int size);
  CO_API ~intcoFixedArr();
  intcoFixedArr(const intcoFixedArr &) = delete;
  intcoFixedArr &operator=(const intcoFixedArr &) = delete;

  int size() const { return m_size; }
  int *data() { return m_data; }

  CO_ACCESSOR_API int &operator[](int index);

 protected:
  int *m_data;
  int m_size;
  utCheckValid m_valid;
};

#endif
