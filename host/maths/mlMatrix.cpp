// mlMatrix.cpp - libmaths: the dense matrix, column by column in its
// doublecoDynArr base.
#include "mlMatrix.h"

#include <cstring>

namespace {
const char kFile[] = "host/maths/mlMatrix.cpp";
thread_local double scratch_word = 0.0;
}  // namespace

mlMatrix::mlMatrix() : m_rows(0), m_cols(0) {}

mlMatrix::mlMatrix(int rows, int cols) : mlMatrix(mlMatrixZero, rows, cols) {}

mlMatrix::mlMatrix(mlMatrixInit, int rows, int cols) : m_rows(0), m_cols(0) {
  if (rows < 0 || cols < 0) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlMatrix::mlMatrix");
    return;
  }
  long long n = static_cast<long long>(rows) * cols;
  if (n > 0x7fffffffLL || !expand(static_cast<int>(n))) {
    ut_report_assert_failure(kFile, __LINE__,
                             "mlMatrix::mlMatrix | out of memory");
    return;
  }
  m_rows = rows;
  m_cols = cols;
}

mlMatrix::mlMatrix(const mlMatrix &other)
    : doublecoDynArr(other), m_rows(other.m_rows), m_cols(other.m_cols) {
  if (m_size != m_rows * m_cols) m_rows = m_cols = 0;  // copy failed
}

mlMatrix &mlMatrix::operator=(const mlMatrix &other) {
  doublecoDynArr::operator=(other);
  m_rows = other.m_rows;
  m_cols = other.m_cols;
  if (m_size != m_rows * m_cols) m_rows = m_cols = 0;
  return *this;
}

mlMatrix::~mlMatrix() {}

double &mlMatrix::operator()(int i, int j) {
  m_matrix_valid.check_ok(this, kFile, __LINE__);
  if (i < 0 || i >= m_rows || j < 0 || j >= m_cols) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlMatrix::operator()");
    scratch_word = 0.0;
    return scratch_word;
  }
  return m_data[static_cast<long long>(j) * m_rows + i];
}

const double &mlMatrix::operator()(int i, int j) const {
  m_matrix_valid.check_ok(this, kFile, __LINE__);
  if (i < 0 || i >= m_rows || j < 0 || j >= m_cols) {
    ut_report_assert_failure(
        kFile, __LINE__, "argument out of range | mlMatrix::operator() const");
    scratch_word = 0.0;
    return scratch_word;
  }
  return m_data[static_cast<long long>(j) * m_rows + i];
}

int mlMatrix::become(utConvert how, const double *values, int rows, int cols) {
  m_matrix_valid.check_ok(this, kFile, __LINE__);
  long long n = static_cast<long long>(rows) * cols;
  if (how != utConvertCopy || rows < 0 || cols < 0 || n > 0x7fffffffLL ||
      (n > 0 && values == nullptr)) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlMatrix::become");
    return 0;
  }
  if (!expand(static_cast<int>(n))) {
    ut_report_assert_failure(kFile, __LINE__, "mlMatrix::become | out of memory");
    return 0;
  }
  if (n > 0) std::memcpy(m_data, values, static_cast<std::size_t>(n) * sizeof(double));
  // Elements past the new shape go back to zero, as a fresh matrix has them.
  if (m_size > n)
    std::memset(m_data + n, 0, static_cast<std::size_t>(m_size - n) * sizeof(double));
  m_size = static_cast<int>(n);
  m_rows = rows;
  m_cols = cols;
  return 1;
}
