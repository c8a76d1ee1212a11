// coDynArr.cpp - libcontainer: the growing arrays doublecoDynArr and
// intcoDynArr. Both share the storage routines below.
#include "coDynArr.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// Grows *data from capacity *cap to room for element `index`, new elements
// zero. Returns 1, or 0 (and changes nothing) on failure.
int grow_to(void **data, int *cap, int index, std::size_t elem) {
  if (index < 0) return 0;
  if (index < *cap) return 1;
  long long want = static_cast<long long>(index) + 1;
  long long twice = 2LL * *cap;
  long long newcap = want > twice ? want : twice;
  if (newcap > 0x7fffffffLL) newcap = 0x7fffffffLL;
  void *p = std::realloc(*data, static_cast<std::size_t>(newcap) * elem);
  if (p == nullptr) return 0;
  std::memset(static_cast<char *>(p) + static_cast<std::size_t>(*cap) * elem,
              0, static_cast<std::size_t>(newcap - *cap) * elem);
  *data = p;
  *cap = static_cast<int>(newcap);
  return 1;
}

// Copies n elements into a fresh block of exactly n; null for n < 1.
void *clone(const void *src, int n, std::size_t elem) {
  if (n < 1) return nullptr;
  void *p = std::malloc(static_cast<std::size_t>(n) * elem);
  if (p != nullptr) std::memcpy(p, src, static_cast<std::size_t>(n) * elem);
  return p;
}

}  // namespace

// ---------------------------------------------------------------- double

doublecoDynArr::doublecoDynArr()
    : m_data(nullptr), m_capacity(0), m_size(0), m_reserved(0) {}

doublecoDynArr::doublecoDynArr(int size) : doublecoDynArr() { expand(size); }

doublecoDynArr::doublecoDynArr(const doublecoDynArr &other) : doublecoDynArr() {
  m_data = static_cast<double *>(clone(other.m_data, other.m_size, sizeof(double)));
  if (m_data != nullptr) m_capacity = m_size = other.m_size;
}

doublecoDynArr &doublecoDynArr::operator=(const doublecoDynArr &other) {
  if (this != &other) {
    double *p = static_cast<double *>(clone(other.m_data, other.m_size, sizeof(double)));
    std::free(m_data);
    m_data = p;
    m_capacity = m_size = (p != nullptr) ? other.m_size : 0;
  }
  return *this;
}

doublecoDynArr::~doublecoDynArr() {
  std::free(m_data);
  m_data = nullptr;
  m_capacity = m_size = 0;
}

int doublecoDynArr::resize(int index) {
  void *p = m_data;
  int ok = grow_to(&p, &m_capacity, index, sizeof(double));
  m_data = static_cast<double *>(p);
  return ok;
}

int doublecoDynArr::expand(int n) {
  if (n < 1) return 1;
  if (!resize(n - 1)) return 0;
  if (m_size < n) m_size = n;
  return 1;
}

// ---------------------------------------------------------------- int

intcoDynArr::intcoDynArr()
    : m_data(nullptr), m_capacity(0), m_size(0), m_reserved(0) {}

intcoDynArr::intcoDynArr(int size) : intcoDynArr() { expand(size); }

intcoDynArr::intcoDynArr(const intcoDynArr &other) : intcoDynArr() {
  m_data = static_cast<int *>(clone(other.m_data, other.m_size, sizeof(int)));
  if (m_data != nullptr) m_capacity = m_size = other.m_size;
}

intcoDynArr &intcoDynArr::operator=(const intcoDynArr &other) {
  if (this != &other) {
    int *p = static_cast<int *>(clone(other.m_data, other.m_size, sizeof(int)));
    std::free(m_data);
    m_data = p;
    m_capacity = m_size = (p != nullptr) ? other.m_size : 0;
  }
  return *this;
}

intcoDynArr::~intcoDynArr() {
  std::free(m_data);
  m_data = nullptr;
  m_capacity = m_size = 0;
}

int intcoDynArr::resize(int index) {
  void *p = m_data;
  int ok = grow_to(&p, &m_capacity, index, sizeof(int));
  m_data = static_cast<int *>(p);
  return ok;
}

int intcoDynArr::expand(int n) {
  if (n < 1) return 1;
  if (!resize(n - 1)) return 0;
  if (m_size < n) m_size = n;
  return 1;
}
