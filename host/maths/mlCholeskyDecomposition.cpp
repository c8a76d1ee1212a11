// mlCholeskyDecomposition.cpp - libmaths: A = L L^T through dpotrf, solves
// through dpotrs.
#include <cfloat>
#include <cmath>

#include "ml_lapack.h"
#include "mlMatrix.h"

namespace {
const char kFile[] = "host/maths/mlCholeskyDecomposition.cpp";
}

mlCholeskyDecomposition::mlCholeskyDecomposition(const mlMatrix &a)
    : m_factor(a), m_singular(1) {
  int n = m_factor.rows();
  if (n != m_factor.cols() || n * n != m_factor.size()) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlCholeskyDecomposition");
    return;
  }
  int info = 0;
  if (n > 0) {
    int lda = n;
    dpotrf_("L", &n, m_factor.data(), &lda, &info, 1);
  }
  if (info != 0) return;
  // Pivots of the elimination are the squares of the diagonal of L.
  const double *l = m_factor.data();
  double dmin = 0.0, dmax = 0.0;
  for (int k = 0; k < n; ++k) {
    double d = l[static_cast<long long>(k) * n + k];
    d *= d;
    if (k == 0 || d < dmin) dmin = d;
    if (k == 0 || d > dmax) dmax = d;
  }
  m_singular = (n > 0 && !(dmin > n * DBL_EPSILON * dmax)) ? 1 : 0;
}

mlCholeskyDecomposition::~mlCholeskyDecomposition() {}

int mlCholeskyDecomposition::is_singular() const {
  m_valid.check_ok(this, kFile, __LINE__);
  return m_singular;
}

void mlCholeskyDecomposition::solve(const mlMatrix &b, mlMatrix &x) const {
  m_valid.check_ok(this, kFile, __LINE__);
  int n = m_factor.rows();
  if (m_singular) {
    ut_report_assert_failure(
        kFile, __LINE__,
        "object in incorrect state for operation | mlCholeskyDecomposition::solve");
    return;
  }
  if (b.rows() != n) {
    ut_report_assert_failure(
        kFile, __LINE__, "argument out of range | mlCholeskyDecomposition::solve");
    return;
  }
  x = b;
  int nrhs = b.cols();
  if (n == 0 || nrhs == 0) return;
  int info = 0;
  dpotrs_("L", &n, &nrhs, m_factor.data(), &n, x.data(), &n, &info, 1);
}
