// coFixedArr.cpp - libcontainer: the fixed int array intcoFixedArr.
#include "coFixedArr.h"

#include <cstdlib>

intcoFixedArr::intcoFixedArr(int size) : m_data(nullptr), m_size(0) {
  if (size > 0) {
    m_data = static_cast<int *>(
        std::malloc(static_cast<std::size_t>(size) * sizeof(int)));
    if (m_data != nullptr) m_size = size;
  }
}

intcoFixedArr::~intcoFixedArr() {
  std::free(m_data);
  m_data = nullptr;
  m_size = 0;
}
