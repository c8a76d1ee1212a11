// mlMatrix.h - libmaths: dense matrices and their Cholesky, LU and
// singular value decompositions. The factorizations are LAPACK's.
//
// mlMatrix keeps its elements column by column in its doublecoDynArr base;
// element (i, j), both from 0, is operator()(i, j).
#ifndef ML_MATRIX_H
#define ML_MATRIX_H

#include "coDynArr.h"
#include "host_export.h"
#include "utAssert.h"

// Tag of the constructor that fills the matrix with zeros.
enum mlMatrixInit { mlMatrixZero = 0 };

class ML_API mlMatrix : public doublecoDynArr {
 public:
  mlMatrix();
  // A rows x cols matrix. Its elements are zero here as well.
  mlMatrix(int rows, int cols);
  mlMatrix(mlMatrixInit init, int rows, int cols);
  mlMatrix(const mlMatrix &other);
  mlMatrix &operator=(const mlMatrix &other);
  ~mlMatrix();

  int rows() const { return m_rows; }
  int cols() const { return m_cols; }

  // Element (i, j). An index out of range is reported; the reference is
  // then to a scratch word outside the matrix.
  double &operator()(int i, int j);
  const double &operator()(int i, int j) const;

  // Becomes a rows x cols matrix holding the block `values`, column by
  // column. Only utConvertCopy is known. Returns 1, or 0 on failure.
  int become(utConvert how, const double *values, int rows, int cols);

 private:
  int m_rows;
  int m_cols;
  utCheckValid m_matrix_valid;
};

// Cholesky decomposition A = L L^T of a symmetric positive definite matrix;
// only the lower triangle of A is read.
//
// is_singular() is non-zero when LAPACK's dpotrf meets a pivot that is not
// positive (A is not numerically positive definite), or when the smallest
// pivot, the square of a diagonal entry of L, is not above n * DBL_EPSILON
// times the largest: such a factor carries no significant digit in some
// direction. A non-square A is reported and singular.
class ML_API mlCholeskyDecomposition {
 public:
  explicit mlCholeskyDecomposition(const mlMatrix &a);
  ~mlCholeskyDecomposition();
  mlCholeskyDecomposition(const mlCholeskyDecomposition &) = delete;
  mlCholeskyDecomposition &operator=(const mlCholeskyDecomposition &) = delete;

  int is_singular() const;
  // x becomes the solution of A x = b, as many columns as b. Called on a
  // singular decomposition, or with b of the wrong row count, it reports
  // and leaves x alone.
  void solve(const mlMatrix &b, mlMatrix &x) const;

 private:
  mlMatrix m_factor;
  int m_singular;
  utCheckValid m_valid;
};

// LU decomposition P A = L U with partial pivoting (dgetrf).
//
// is_singular() is non-zero when dgetrf meets an exactly zero pivot, or
// when the smallest |U(k,k)| is not above n * DBL_EPSILON times the largest.
// A non-square A is reported and singular.
class ML_API mlLUDecomposition {
 public:
  explicit mlLUDecomposition(const mlMatrix &a);
  ~mlLUDecomposition();
  mlLUDecomposition(const mlLUDecomposition &) = delete;
  mlLUDecomposition &operator=(const mlLUDecomposition &) = delete;

  int is_singular() const;
  void solve(const mlMatrix &b, mlMatrix &x) const;

 private:
  mlMatrix m_factor;
  intcoDynArr m_pivots;
  int m_singular;
  utCheckValid m_valid;
};

// Singular value decomposition A = U S V^T of an m x n matrix (dgesvd).
//
// is_singular(tol) is non-zero when the smallest singular value (of the
// min(m, n)) is not above tol times the largest - the tolerance is
// relative - when all are zero, when A has fewer rows than columns, or when
// dgesvd did not converge.
//
// solve(b, x) gives the minimum-norm least-squares solution
// x = V S^+ U^T b, where S^+ inverts the singular values above
// max(m, n) * DBL_EPSILON times the largest and drops the others; so it
// gives an answer for every b, singular or not.
class ML_API mlSingularValueDecomposition {
 public:
  explicit mlSingularValueDecomposition(const mlMatrix &a);
  ~mlSingularValueDecomposition();
  mlSingularValueDecomposition(const mlSingularValueDecomposition &) = delete;
  mlSingularValueDecomposition &operator=(
      const mlSingularValueDecomposition &) = delete;

  int is_singular(double tol) const;
  void solve(const mlMatrix &b, mlMatrix &x) const;

  // Singular value k, from 0, largest first.
  double singular_value(int k) const;

 private:
  mlMatrix m_u;
  mlMatrix m_vt;
  doublecoDynArr m_s;
  int m_rows;
  int m_cols;
  int m_info;
  utCheckValid m_valid;
};

#endif
